#pragma once

/// @file
/// The triangulated irregular network of a project.

#include <dtm/network/COpzTri.h>
#include <dtm/support/Export.h>
#include <dtm/support/Geom.h>

#include <cstdint>
#include <memory>
#include <vector>

class CCld;
class CDtmChangeContext;
class CDtmPrj;
class CTri;
class CTrisEventListener;
class COcTree;

/// The network of one project: an array of vertices and an array of triangles that index it.
///
/// Every mutation is reported to the project's change context. After every change event that
/// touched triangles or vertices, the network recomputes its derived data (broken check, vertex
/// colours, normals, octree, selection). A network may be computed on a point cloud; its
/// vertices are then copies of cloud points and it remembers each vertex's cloud index.
class DTM_API CTris {
public:
    /// An empty network of @p project (borrowed: the project owns the network), reporting to
    /// the project's change context; options at their INI defaults.
    explicit CTris(CDtmPrj* project);
    /// Removes everything without notification.
    ~CTris();
    CTris(const CTris&) = delete;
    CTris& operator=(const CTris&) = delete;

    /// The owning project.
    CDtmPrj* GetDtmPrj() const noexcept { return m_project; }
    /// The project's change context, which every notification goes to.
    CDtmChangeContext* GetContext() const noexcept { return m_context; }
    /// The display and computation options.
    const COpzTri& GetOptions() const noexcept { return m_options; }
    COpzTri& GetOptions() noexcept { return m_options; }

    // Vertices -----------------------------------------------------------------------------

    /// Appends @p p, widens the elevation range and reports the vertex added; always true.
    bool AddTriVrt(const kor::geom::PNT_3D& p);
    /// Appends cloud point @p cloudIndex as a vertex and remembers its index; false without a
    /// bound cloud.
    bool AddTriVrt(int cloudIndex);
    /// Reports vertices moved, then overwrites vertex @p i. The elevation range is not updated.
    void SetTriVrtAt(int i, const kor::geom::PNT_3D& p);
    /// Erases vertex @p i and reports it. Triangles are deliberately not renumbered: the caller
    /// removes or renumbers the triangles that refer to @p i or later.
    void RemoveTriVrt(int i);
    /// Reserves room for @p n vertices; nothing is added or reported.
    void SetNoTriVrts(int n);
    int GetNoTriVrts() const noexcept { return static_cast<int>(m_vertices.size()); }
    const kor::geom::PNT_3D& GetTriVrtAt(int i) const { return m_vertices[i]; }
    /// The vertex array.
    const std::vector<kor::geom::PNT_3D>& GetPnts() const noexcept { return m_vertices; }
    /// The cloud point index of each vertex of a cloud-bound network; empty otherwise.
    const std::vector<std::int32_t>& GetCldIndexes() const noexcept { return m_cloudIndexes; }

    // Triangles ----------------------------------------------------------------------------

    /// Appends @p t (no index check), reports it added, then takes a reference on it.
    void AddTri(CTri* t);
    /// Creates, appends and returns a triangle (owned by the network); null, with nothing done,
    /// when an index is >= the vertex count, unless the network is broken. Negative indices are
    /// not rejected.
    CTri* AddNewTri(int colour, int i0, int i1, int i2);
    /// Erases triangle @p i, reports it removed, then drops the network's reference.
    void RemoveTriAt(int i);
    /// Removes @p t when present (the first occurrence).
    void RemoveTri(CTri* t);
    /// Removes the first triangle, in array order, whose plan contains (x, y); z is ignored.
    /// False when none contains the point.
    bool RemoveTri(double x, double y, double z);
    /// Removes everything in one event, reported as all triangles removed.
    void RemoveAll();
    /// Removes everything without notification and clears the broken flag.
    void DoRemoveAll();
    /// Position of @p t, or -1.
    int FindTriIndex(const CTri* t) const;
    int GetNoTris() const noexcept { return static_cast<int>(m_tris.size()); }
    /// Triangle @p i (borrowed); an index out of range throws std::out_of_range.
    CTri* GetTriAt(int i) const;
    /// The three vertex points of @p t, the first repeated as the fourth.
    TVrtTri GetVrtTri(const CTri* t) const;
    TVrtTri GetVrtTriAt(int i) const;
    /// Orders triangle @p i counter-clockwise; nothing for an index out of range.
    void OrdSensOrarTri(int i);
    /// The point (P0 + P1 + 2 P2) / 4 of triangle @p i: the third vertex is weighted twice on
    /// purpose, since label placement relies on this point rather than the centroid.
    void CalcCentroTri(int i, double& x, double& y) const;
    /// Recomputes the elevation range over every vertex (+inf / -inf when there is none).
    void UpdateMinMaxQuota();
    double GetMinQuota() const noexcept { return m_minQuota; }
    double GetMaxQuota() const noexcept { return m_maxQuota; }

    // Point cloud --------------------------------------------------------------------------

    /// Binds @p cloud, taking a reference on it. The reference on a previous cloud is dropped
    /// only by DoRemoveAll.
    void SetCld(CCld* cloud);
    CCld* GetCld() const noexcept { return m_cloud; }
    /// True when a cloud is bound.
    bool IsCld() const noexcept { return m_cloud != nullptr; }
    /// True when the bound cloud is missing, unusable or too small: the network keeps its data
    /// but is neither drawn nor used.
    bool IsBroken() const noexcept { return m_broken; }
    /// Marks the network broken, once, when its cloud is unusable or holds fewer points than the
    /// network refers to, and warns the user through the message handler.
    void CheckBroken();

    // Search and elevation -----------------------------------------------------------------

    /// Rebuilds the octree, reordering the triangle array; nothing on a broken network.
    void CalcOcTree();
    /// Finds the edge shared by two triangles that passes within @p tol of @p p.
    bool FindTri(const kor::geom::PNT_2D& p, double tol, int& tri1, int& tri2, int& edgeStart,
                 int& edgeEnd, int& opp1, int& opp2) const;
    /// Elevation of the network at (x, y): the first triangle in array order that holds the
    /// point; UNDEFINED_QUOTE or another undefined value when none does.
    double GetCoordZQ(double x, double y) const;
    /// Elevation of triangle @p tri's plane at (x, y); undefined outside the triangle.
    double GetCoordZQ(int tri, double x, double y) const;
    /// The box of all vertices (or the cloud's); false with fewer than 2 vertices.
    bool GetBdry(kor::geom::RECT_3D& box) const;

    // Colours and normals ------------------------------------------------------------------

    /// Recomputes the per-vertex colours of a cloud-bound network.
    void CalcColors();
    /// Recomputes the per-vertex normals of a cloud-bound network.
    void CalcNormals();
    /// Stores the host's background colour (packed 0x00BBGGRR), then recomputes the colours.
    void CalcColors_Bkg(int background);
    /// The packed RGB (0x00BBGGRR) triangle @p t is drawn in.
    int CalcColorTri(const CTri* t) const;
    /// Per-vertex colours (owned by the network), or null.
    const TTriColor* GetColors() const noexcept;
    /// Per-vertex normals (owned by the network), or null.
    const TTriNormal* GetNormals() const noexcept;
    int GetBackgroundColor() const noexcept { return m_background; }

    // Selection ----------------------------------------------------------------------------

    /// Starts a fresh, empty selection sized for the current triangles.
    void InitSelTris();

private:
    friend class CTrisEventListener;
    friend class COcTree;
    friend struct CTrisTestAccess;

    /// True when a cloud is bound and the network still holds its reference: only then may the
    /// cloud be read, since DoRemoveAll lets the cloud go but keeps the pointer.
    bool HoldsCld() const noexcept { return m_cloud != nullptr && m_cloudReferenced; }

    void UpdateMinMaxQuota(double z);
    void AppendVertex(const kor::geom::PNT_3D& p);
    void UpdateTriColors();

    CDtmChangeContext* m_context;
    COpzTri m_options;
    std::vector<kor::geom::PNT_3D> m_vertices;
    std::vector<CTri*> m_tris;
    std::vector<std::int32_t> m_cloudIndexes;
    std::vector<std::uint8_t> m_selection;
    double m_minQuota;
    double m_maxQuota;
    CDtmPrj* m_project;
    CCld* m_cloud = nullptr;
    /// Whether the network holds a reference on m_cloud. DoRemoveAll drops the reference but
    /// leaves the pointer, so the flag keeps a second DoRemoveAll (the destructor's) from
    /// releasing it twice.
    bool m_cloudReferenced = false;
    std::unique_ptr<COcTree> m_octree;
    std::unique_ptr<CTrisEventListener> m_listener;
    std::vector<TTriColor> m_colours;
    std::vector<TTriNormal> m_normals;
    bool m_broken = false;
    std::int32_t m_background = 0;
};
