#pragma once

/// @file
/// The triangulated irregular network of a project.

#include <dtm/network/COpzTri.h>
#include <dtm/network/ITris.h>
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
class CTrisSearchIndex;
class COcTree;
// File section
class ifpstream;
class ofpstream;
namespace kor {
class CPtr64Mapper;
class CRefObjIdRemapper;
}  // namespace kor

/// The network of one project: an array of vertices and an array of triangles that index it.
///
/// Every mutation is reported to the project's change context. After every change event that
/// touched triangles or vertices, the network recomputes its derived data (broken check, vertex
/// colours, normals, octree, selection). A network may be computed on a point cloud; its
/// vertices are then copies of cloud points and it remembers each vertex's cloud index.
///
/// Not safe to use from several threads at once, const operations included: the elevation
/// query, the profile and the octree's traversals build or refresh spatial indexes on first
/// use after a change.
class DTM_API CTris : public ITris {
public:
    /// An empty network of @p project (borrowed: the project owns the network), reporting to
    /// the project's change context; options at their INI defaults.
    explicit CTris(CDtmPrj* project);
    /// Removes everything without notification.
    virtual ~CTris();
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
    /// Vertex @p i; an index out of range throws std::out_of_range.
    const kor::geom::PNT_3D& GetTriVrtAt(int i) const {
        return m_vertices.at(static_cast<std::size_t>(i));
    }
    /// The vertex array.
    const std::vector<kor::geom::PNT_3D>& GetPnts() const noexcept override { return m_vertices; }
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
    /// False when none contains the point. A triangle with a vertex that does not exist contains
    /// no point (see GetVrtTri).
    bool RemoveTri(double x, double y, double z);
    /// Removes everything in one event, reported as all triangles removed.
    void RemoveAll();
    /// Removes everything without notification and clears the broken flag.
    void DoRemoveAll();
    /// Position of @p t, or -1.
    int FindTriIndex(const CTri* t) const;
    int GetNoTris() const noexcept override { return static_cast<int>(m_tris.size()); }
    /// Triangle @p i (borrowed); an index out of range throws std::out_of_range.
    CTri* GetTriAt(int i) const;
    /// The three vertex points of @p t, the first repeated as the fourth. A vertex index that
    /// names no vertex (negative, or left past the end by RemoveTriVrt) gives a point whose
    /// coordinates are all NaN: such a triangle lies nowhere rather than reading stray memory.
    TVrtTri GetVrtTri(const CTri* t) const;
    TVrtTri GetVrtTriAt(int i) const;
    /// Orders triangle @p i counter-clockwise; nothing for an index out of range.
    void OrdSensOrarTri(int i);
    /// The point (P0 + P1 + 2 P2) / 4 of triangle @p i: the third vertex is weighted twice on
    /// purpose, since label placement relies on this point rather than the centroid. NaN when a
    /// vertex of the triangle does not exist; an index @p i out of range throws
    /// std::out_of_range.
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
    bool IsCld() const noexcept override { return m_cloud != nullptr; }
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
    bool GetBdry(kor::geom::RECT_3D& box) const override;

    // Colours and normals ------------------------------------------------------------------

    /// Recomputes the per-vertex colours of a cloud-bound network.
    void CalcColors();
    /// Recomputes the per-vertex normals of a cloud-bound network.
    void CalcNormals();
    /// Stores the host's background colour (packed 0x00BBGGRR), then recomputes the colours.
    void CalcColors_Bkg(int background) override;
    /// The packed RGB (0x00BBGGRR) triangle @p t is drawn in.
    int CalcColorTri(const CTri* t) const;
    /// Per-vertex colours (owned by the network), or null.
    const TTriColor* GetColors() const noexcept override;
    /// Per-vertex normals (owned by the network), or null.
    const TTriNormal* GetNormals() const noexcept override;
    int GetBackgroundColor() const noexcept { return m_background; }

    // Selection ----------------------------------------------------------------------------

    /// Starts a fresh, empty selection sized for the current triangles.
    void InitSelTris();
    /// Selects triangle @p i, or, with @p toggle true and the triangle selected, deselects it.
    /// Nothing on a broken network; no notification. The index is not checked against the
    /// triangle count: the bits grow to hold it, so that a selection made before the first
    /// recomputation of the derived data is kept. A negative index throws std::out_of_range.
    void SelTri(int i, bool toggle) override;
    /// Deselects triangle @p i. Nothing on a broken network; no notification.
    void UnSelTri(int i);
    /// Deselects every triangle. Nothing on a broken network; no notification.
    void UnSelTris() override;
    /// True when triangle @p i is selected; false on a broken network and for an index the
    /// bits do not reach.
    bool IsSelTri(int i) const;
    /// Deletes the selected triangles inside one change event (opened also when none is
    /// selected), reporting each one removed; the others keep their relative order. The
    /// selection itself is started afresh by the network's listener when the event closes.
    /// Nothing on a broken network.
    void DelSelTris() override;

    // Drawing ------------------------------------------------------------------------------

    /// Hands every triangle to @p listener (borrowed, not null) in array order: with
    /// @p bufSize -1 one OnTriIndexes per triangle, otherwise buffers of @p bufSize records
    /// through OnTris, the last one with the remaining count (an empty remainder is not
    /// handed over). Nothing on a broken network. A null listener, or a @p bufSize below 1
    /// other than -1, throws std::invalid_argument.
    void GetTris(ITrisListener* listener, int bufSize) const override;
    /// Hands to @p listener (borrowed, not null) the triangles that no plane of @p planes culls
    /// (all three vertices strictly on its positive side), in the octree's order: one
    /// OnTriIndexes each for a cloud-bound network with @p perTriangle true, otherwise buffers
    /// of @p bufSize records. Nothing on a broken network or without triangles. A null
    /// listener, or buffered delivery with a @p bufSize below 1, throws std::invalid_argument.
    void GetTris_Clip(ITrisListener* listener, const std::vector<kor::geom::PLANE_3D>& planes,
                      int bufSize, bool perTriangle) const override;
    /// Hands to @p listener (borrowed, not null) one OnTris(1, record) for each triangle that
    /// the horizontal plane at elevation @p z crosses, in the octree's order. Nothing without
    /// triangles; the broken flag is deliberately not consulted. A null listener throws
    /// std::invalid_argument.
    virtual void GetTris_Quote(ITrisListener* listener, double z) const;
    /// The text height when labels are shown (second display flag set and symbol 1);
    /// otherwise -1.0.
    double GetTriDim() const override;
    /// Stores @p h as the text height and sends Notify_Tri_InnerDrawModified; nothing when
    /// @p h is the current text height and the symbol is already 1.
    void SetTextOptions(double h);
    /// Stores every display option. A change of a colour, a flag or the colour type, or of the
    /// classes while colouring by classes, sends Notify_Tri_LayersModified and re-derives the
    /// triangles' colours; a change of the text height, @p scaleFactor or the symbol sends
    /// Notify_Tri_InnerDrawModified (after the colours). Each notification is an event of its
    /// own unless the caller brackets the call in one. Nothing when no option changes.
    void SetVisOptions(bool firstFlag, bool secondFlag, COpzTri::enumTriColorType type,
                       short fixedColour, short layerColour, const CColorClassComputer& classes,
                       COpzTri::enumTriSymbol symbol, double textHeight, double scaleFactor);
    /// Sets the first display flag as the full form does; nothing when it is unchanged.
    void SetVisOptions(bool firstFlag);

    // File section -------------------------------------------------------------------------

    /// Writes the network's section of the host's document at the version @p s carries.
    ///
    /// Nothing at all for a network without vertices. Otherwise, at every version, the count is
    /// followed by the cloud's identifier from @p mapper (borrowed; may be null for a network
    /// without a cloud; 0 when the network holds none), and a network holding its cloud stores
    /// its cloud point indices instead of points. A tree goes out as an octree block, or, when
    /// it no longer matches the triangles, as a block that stands for an empty tree; from
    /// version 1502 a network without a tree ends with that block too. A reader takes the
    /// identifier and the block only from version 1502 on, so a section written at an older
    /// version does not read back at it: documents are written at 1502 or later. Throws
    /// std::invalid_argument, having written nothing, when the network holds a cloud and
    /// @p mapper is null.
    void SalvaInFile(ofpstream& s, kor::CPtr64Mapper* mapper) const;
    /// Reads a section written at the version @p s carries and, when @p load is true, appends
    /// its vertices and triangles inside one change event; with @p load false the network is
    /// left as it was except for the elevation range (see below), and no cloud is bound.
    ///
    /// A cloud-bound section looks its cloud up in @p remapper: a missing cloud marks the
    /// network broken without a message; a found one is bound (one reference) and checked with
    /// CheckBroken against the indices the network will hold, which may warn once and mark it
    /// broken. A broken network stores nothing of a cloud-bound section. Triangles that refer
    /// outside the vertex array are dropped silently. The elevation range is taken from the
    /// section from version 800 and recomputed from the vertices before. From version 1502 the
    /// event listener is disarmed and the octree block is read, but only while the tree has no
    /// root: when it has one, the block stays unread and @p s is left at its start, so a host
    /// that reads on must read into a network without a tree. A tree that does not fit the
    /// triangles now held is rebuilt with CalcOcTree.
    ///
    /// Failures leave @p s failed and never a structure that refers outside an array: when the
    /// section ends or is inconsistent before its octree block (a negative count included) the
    /// network is left exactly as it was; a short, too deep or inconsistent octree block costs
    /// only the tree, which is rebuilt.
    void LeggeDaFile(ifpstream& s, const kor::CRefObjIdRemapper& remapper, bool load);
    /// The bytes the host reserves for the section of an empty network: always 24.
    static int GetEmptySectionFileSize(ifpstream& s);
    /// Reads and writes the section on the network's behalf.
    friend class CTrisFileSection;

private:
    friend class CTrisEventListener;
    friend class COcTree;
    friend struct CTrisTestAccess;
    /// The undo machinery's door (network/CTrisUndoAccess.h): it reads the reported vertex edit
    /// and restores vertices, the elevation range and groups of triangles exactly.
    friend class CTrisUndoAccess;

    /// True when a cloud is bound and the network still holds its reference: only then may the
    /// cloud be read, since DoRemoveAll lets the cloud go but keeps the pointer.
    bool HoldsCld() const noexcept { return m_cloud != nullptr && m_cloudReferenced; }

    void AppendVertex(const kor::geom::PNT_3D& p);
    /// As AppendVertex for each of @p count points in turn, in one step when no listener hears
    /// the additions (a file section appends hundreds of thousands).
    void AppendVertices(const kor::geom::PNT_3D* points, std::size_t count);
    /// Takes in the last @p count vertices of the array, placed there without a word while no
    /// listener hears additions: the search index counts them as appended and the elevation
    /// range grows to hold them.
    void NoteVerticesAppended(std::size_t count);
    /// True when no listener hears additions, so that vertices may go in without a word.
    bool AdditionsUnheard() const;
    /// Widens the elevation range to hold @p z (a not-a-number leaves it as it is).
    void UpdateMinMaxQuota(double z);
    /// Widens the elevation range to hold the @p count points at @p points, in their order.
    void FoldQuotas(const kor::geom::PNT_3D* points, std::size_t count);
    /// Room for @p count more triangles in the array and in the open event's list of added
    /// ones, ahead of a long run of AddNewTri.
    void ReserveTriAppends(std::size_t count);
    /// Appends the @p count triangles at @p created, each made with its creation reference,
    /// which the network takes over, as that many AddNewTri would while no listener hears the
    /// additions (AdditionsUnheard): listed in the array and in the open event in one step.
    /// Should the array not grow, the triangles are released and the array stays as it was.
    void AppendNewTrisUnheard(CTri* const* created, std::size_t count);
    void UpdateTriColors();
    /// Keeps the index and values of the vertex overwrite or erasure about to be reported:
    /// Notify_Tri_Vrt_Moved and Notify_Tri_Vrt_Removed carry no index, and undo needs it.
    /// An index outside the vertex array is kept as "no edit".
    void KeepReportedVrtEdit(int i, const kor::geom::PNT_3D& after);
    /// Reports for the undo machinery's edits (CTrisUndoAccess): only the network may send
    /// its notifications.
    void ReportVrtsMoved();
    void ReportTriRemoved(CTri* t);

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
    /// The vertex edit being reported (see KeepReportedVrtEdit); index -1 when none.
    int m_reportedVrtIndex = -1;
    kor::geom::PNT_3D m_reportedVrtBefore;
    kor::geom::PNT_3D m_reportedVrtAfter;

    // ---- Search index of the elevation query and the profile (network/CTrisSearchIndex.h) ----
    // Derived data, built on the first query after a change. Every operation that changes the
    // shape of a triangle or the order of the array other than by appending calls
    // NoteGeometryChanged; appends are only counted, so that the index can take them in without
    // a rebuild and can tell a count that changed behind the network's back.
    friend class CTrisSearchIndex;
    friend struct TShapeStamp;
    friend struct CTrisSearchTestAccess;
    /// The elevation query as a literal scan of every triangle in array order: the reference
    /// that the indexed GetCoordZQ reproduces bit for bit.
    double GetCoordZQByScan(double x, double y) const;
    /// Marks the triangles' shapes or their order as changed: the search index and the
    /// octree's node boxes are out of date from now on.
    void NoteGeometryChanged() noexcept { ++m_geometryVersion; }
    mutable std::unique_ptr<CTrisSearchIndex> m_searchIndex;
    std::uint64_t m_geometryVersion = 0;
    std::uint64_t m_appendedVertices = 0;  // vertices appended through AppendVertex
    std::uint64_t m_appendedTris = 0;      // triangles appended through AddTri, AddNewTri
};
