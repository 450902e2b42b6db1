#pragma once

/// @file
/// How the host draws a network: the abstract network it reads, the listener it hands in, and
/// the record of one ready-to-draw triangle.

#include <dtm/support/Export.h>
#include <dtm/support/Geom.h>

#include <cstdint>
#include <vector>

/// One triangle ready to draw, as handed to ITrisListener::OnTris. A plain record; buffers of
/// it belong to the network and are valid only during the call that hands them over.
struct TTriDraw {
    /// The triangle's three vertices, in its vertex order.
    kor::geom::PNT_3D pnts[3];
    /// The triangle's own colour packed 0x00BBGGRR: its colour index, with "by layer" (256)
    /// replaced by the fixed colour of the options, and the foreground colour (7) black on a
    /// white background.
    std::int32_t color = 0;
    /// The colour the triangle is drawn in under the current colour type, packed 0x00BBGGRR.
    std::int32_t drawColor = 0;
    /// The triangle's own colour (as @ref color) as a 0..1 component.
    float red = 0.0f;
    float green = 0.0f;
    float blue = 0.0f;
    /// The triangle's position in the network's triangle array.
    std::int32_t index = 0;
    /// True when the triangle is selected.
    bool selected = false;
};

/// Receives the triangles of a network being drawn. Implemented by the host.
///
/// The two slots keep this order: OnTris, OnTriIndexes. The network borrows the listener for
/// the duration of one enumeration and never deletes it, hence the protected destructor.
class DTM_API ITrisListener {
public:
    /// A buffer of @p count filled records (borrowed: the network reuses it once the call
    /// returns, so copy what must be kept).
    virtual void OnTris(int count, TTriDraw* records) = 0;
    /// One triangle: its three vertex indices, its selection bit, its position in the network
    /// and the colour it is drawn in (packed 0x00BBGGRR).
    virtual void OnTriIndexes(int i0, int i1, int i2, bool selected, int index, int colour) = 0;

protected:
    ITrisListener() = default;
    ITrisListener(const ITrisListener&) = default;
    ITrisListener& operator=(const ITrisListener&) = default;
    ~ITrisListener() = default;
};

/// The network as the host draws it: its box, its triangles (through an ITrisListener), its
/// vertices with their colours and normals, and the selection of triangles. Implemented by
/// CTris.
///
/// The thirteen slots keep the order in which they are declared here. The network belongs to
/// its project, so it is never deleted through this interface, hence the protected destructor.
class DTM_API ITris {
public:
    /// The box of the network's vertices (or of its cloud); false with fewer than 2 vertices.
    virtual bool GetBdry(kor::geom::RECT_3D& box) const = 0;
    /// Hands every triangle to @p listener (borrowed) in array order: one OnTriIndexes per
    /// triangle when @p bufSize is -1, otherwise buffers of @p bufSize records through OnTris,
    /// the last one possibly shorter. Nothing on a broken network.
    virtual void GetTris(ITrisListener* listener, int bufSize) const = 0;
    /// Hands to @p listener (borrowed) the triangles not culled by @p planes: a triangle is
    /// culled when its three vertices lie on the positive side of any one plane. Per triangle
    /// (OnTriIndexes) for a cloud-bound network with @p perTriangle true, otherwise in buffers
    /// of @p bufSize records. Nothing on a broken network or without triangles.
    virtual void GetTris_Clip(ITrisListener* listener,
                              const std::vector<kor::geom::PLANE_3D>& planes, int bufSize,
                              bool perTriangle) const = 0;
    /// The number of triangles.
    virtual int GetNoTris() const = 0;
    /// True when the network is bound to a point cloud.
    virtual bool IsCld() const = 0;
    /// The vertex array (owned by the network).
    virtual const std::vector<kor::geom::PNT_3D>& GetPnts() const = 0;
    /// The per-vertex colours of a cloud-bound network (owned by the network), or null.
    virtual const TTriColor* GetColors() const = 0;
    /// The per-vertex normals of a cloud-bound network (owned by the network), or null.
    virtual const TTriNormal* GetNormals() const = 0;
    /// Selects triangle @p i, or, with @p toggle true and the triangle selected, deselects it.
    /// Nothing on a broken network; no notification.
    virtual void SelTri(int i, bool toggle) = 0;
    /// Deselects every triangle. Nothing on a broken network; no notification.
    virtual void UnSelTris() = 0;
    /// Deletes the selected triangles in one change event. Nothing on a broken network.
    virtual void DelSelTris() = 0;
    /// The height of the triangles' labels when they are shown, otherwise -1.0.
    virtual double GetTriDim() const = 0;
    /// Stores the host's background colour (packed 0x00BBGGRR) and recomputes the colours.
    virtual void CalcColors_Bkg(int background) = 0;

protected:
    ITris() = default;
    ITris(const ITris&) = default;
    ITris& operator=(const ITris&) = default;
    ~ITris() = default;
};
