#pragma once

/// @file
/// A contour line with its label and gap intervals, its memento and its scoped node editor.

#include <dtm/contours/Spline.h>
#include <dtm/project/CDtmEnt.h>
#include <dtm/project/IEventListener.h>
#include <dtm/support/Events.h>
#include <dtm/support/Export.h>
#include <dtm/support/Geom.h>
#include <dtm/support/RefCounter.h>

#include <cstddef>
#include <cstdint>
#include <vector>

class CCvLvs;
class CDtmChangeContext;

/// A stretch of a contour line, between two spine parameters, that is either left blank or
/// covered by an elevation label.
///
/// Reference-counted: the line that holds it keeps one reference; a change context keeps one
/// more on an interval removed in the current event. The values change only through the line
/// (CCvLv), which reports every change.
class DTM_API CCvLvInterv : public kor::IRefCounter {
public:
    /// Flag bit 0: a text interval, where an elevation label is drawn and the line is cut.
    /// Clear: an empty interval, where the line is simply not drawn.
    static constexpr std::int32_t FLAG_TEXT = 1;
    /// Flag bit 1: the label of a text interval reads against the line's direction.
    static constexpr std::int32_t FLAG_INVERTED = 2;

    /// An interval from spine parameter @p start to @p end with @p flags, held by nobody yet;
    /// the creator holds its one reference.
    CCvLvInterv(double start, double end, std::int32_t flags) noexcept;

    /// Spine parameter where the interval begins.
    double GetStart() const noexcept { return m_start; }
    /// Spine parameter where the interval ends.
    double GetEnd() const noexcept { return m_end; }
    /// The flag bits (FLAG_TEXT, FLAG_INVERTED); other bits are kept as read from a file.
    std::int32_t GetFlags() const noexcept { return m_flags; }
    /// True for a text (label) interval, false for an empty one.
    bool IsText() const noexcept { return (m_flags & FLAG_TEXT) != 0; }

protected:
    ~CCvLvInterv() override;

private:
    friend class CCvLv;

    double m_start;
    double m_end;
    std::int32_t m_flags;
};

/// The values of one interval, without identity: what a memento and the document keep.
struct TCvLvInterv {
    double start;        ///< Spine parameter where the interval begins.
    double end;          ///< Spine parameter where it ends.
    std::int32_t flags;  ///< Flag bits as in CCvLvInterv.
};

/// A node record of contour files older than version 800, read only: a kind (2 marks a label
/// node), a label position, then the five values of a TVrtPol. The two trailing 32-bit values
/// that such a file stores after each record are not part of it.
struct TOldVrtPol {
    std::int16_t kind;      ///< 2 for a label node; other values carry no label.
    std::int16_t position;  ///< Label position along the segment, in hundredths of its length;
                            ///< negative when the label reads against the line.
    double x;               ///< Node easting.
    double y;               ///< Node northing.
    double xp;              ///< Spline coefficient of x.
    double yp;              ///< Spline coefficient of y.
    double len;             ///< Chord length to the next node.
};

/// The snapshot of a contour line taken before a change: tension, colour, the nodes with their
/// coefficients and the interval values. Reference-counted: released by whoever holds it.
class DTM_API CCvLvMemento : public kor::IMemento {
public:
    /// Bytes reported for the memento itself, whatever it holds.
    static constexpr std::size_t FIXED_SIZE = 96;
    /// Bytes reported per node held (five doubles).
    static constexpr std::size_t NODE_SIZE = 40;
    /// Bytes reported per interval held: its values plus its own object's bookkeeping.
    static constexpr std::size_t INTERVAL_SIZE = 48;

    /// A memento of tension @p sigma, colour @p color, @p nodes and @p intervals; the creator
    /// holds its one reference.
    CCvLvMemento(double sigma, std::int32_t color, std::vector<TVrtPol> nodes,
                 std::vector<TCvLvInterv> intervals);

    /// FIXED_SIZE + NODE_SIZE × nodes + INTERVAL_SIZE × intervals: the figure the host budgets
    /// its undo memory with.
    std::size_t GetSize() const override;

    /// The tension held.
    double GetSigma() const noexcept { return m_sigma; }
    /// The colour index held.
    std::int32_t GetColor() const noexcept { return m_color; }
    /// The nodes held, coefficients included.
    const std::vector<TVrtPol>& GetNodes() const noexcept { return m_nodes; }
    /// The interval values held, in the line's order.
    const std::vector<TCvLvInterv>& GetIntervals() const noexcept { return m_intervals; }

protected:
    ~CCvLvMemento() override;

private:
    double m_sigma;
    std::int32_t m_color;
    std::vector<TVrtPol> m_nodes;
    std::vector<TCvLvInterv> m_intervals;
};

/// One contour line of a project: nodes at one elevation, drawn as a tension spline through
/// them, with a colour, a visibility flag and intervals (sorted by start) where the line is
/// blank or carries an elevation label.
///
/// Reference-counted; the collection (CCvLvs) lists it with one reference. While the line has
/// a collection with a change context, every change operation runs inside one event of that
/// context and sends Notify_CvLv_Modifying with its change kind before changing anything, so
/// that the previous state can be kept for undo. A line without a collection (or whose
/// collection has no project) changes silently.
///
/// Index arguments out of range are caller faults: they throw std::out_of_range before
/// anything is reported or changed.
class DTM_API CCvLv : public CDtmEnt {
public:
    /// The colour that lines read from files older than version 800 take: by layer.
    static constexpr std::int32_t COLOR_BY_LAYER = 256;

    /// A visible line of collection @p cvlvs (borrowed, may be null) at @p elevation with
    /// tension @p sigma and colour @p color, without nodes or intervals. It is not listed in
    /// the collection yet: CCvLvs::AddCvLv does that. The creator holds its one reference.
    CCvLv(CCvLvs* cvlvs, double elevation, double sigma, std::int32_t color);
    /// A line owns its intervals: it is shared by reference, never copied.
    CCvLv(const CCvLv&) = delete;
    CCvLv& operator=(const CCvLv&) = delete;

    /// The collection of the line (borrowed), or null; it becomes null when the collection is
    /// destroyed while the line lives on.
    CCvLvs* GetCvLvs() const noexcept { return m_cvlvs; }
    /// The collection's project (borrowed), or null.
    CDtmPrj* GetDtmPrj() const override;

    /// The line's elevation.
    double GetQuota() const noexcept { return m_quota; }
    /// The tension as set; negative means that the end tangents are derived from the nodes.
    double GetSigma() const noexcept { return m_sigma; }
    /// The denormalised tension that every evaluation of the line's spline uses.
    double GetSigmap() const noexcept { return m_sigmap; }
    /// The colour index (256: by layer).
    std::int32_t GetColor() const noexcept { return m_color; }
    /// Whether the line is drawn.
    bool IsVisible() const noexcept { return m_visible; }

    /// Number of nodes.
    unsigned GetNoNodes() const noexcept { return static_cast<unsigned>(m_nodes.size()); }
    /// The nodes with their spline coefficients and chord lengths.
    const std::vector<TVrtPol>& GetNodes() const noexcept { return m_nodes; }
    /// Node @p i; throws std::out_of_range when @p i is not below GetNoNodes().
    const TVrtPol& GetNodeAt(unsigned i) const { return m_nodes.at(i); }
    /// Number of intervals.
    unsigned GetNoIntervals() const noexcept { return static_cast<unsigned>(m_intervals.size()); }
    /// Interval @p i in start order (borrowed); throws std::out_of_range when @p i is not below
    /// GetNoIntervals().
    CCvLvInterv* GetIntervalAt(unsigned i) const { return m_intervals.at(i).Get(); }
    /// The index of @p interval among the line's intervals, or -1 when the line does not hold
    /// it.
    int FindInterval(const CCvLvInterv* interval) const noexcept;

    /// What the change context recorded of this line in the current event: 0 untouched,
    /// 1 added, 2 modifying recorded, 4 removed.
    int GetChangeMark() const noexcept { return m_changeMark; }

    /// Sets the colour index. Nothing happens when @p color is the current colour; otherwise
    /// the change is reported with kind eCvLvChangeColor.
    void SetColor(std::int32_t color);
    /// Shows or hides the line. Always reported (kind eCvLvChangeGeometry), even when
    /// @p visible is the current value.
    void SetVisible(bool visible);
    /// Sets the tension and recomputes the spline coefficients and sigmap over the present
    /// nodes. Nothing happens when @p sigma equals the present tension; otherwise reported with
    /// kind eCvLvChangeGeometry.
    void ChangeSigmaTension(double sigma);

    /// Gives interval @p index the extent [@p start, @p end], without re-sorting or merging.
    /// Always reported (kind eCvLvChangeGeometry). Throws std::out_of_range, reporting nothing,
    /// when @p index is not a valid interval index.
    void ChangeIntervalDimension(int index, double start, double end);
    /// Adds an interval from @p start to @p end with @p flags, keeping the list sorted by start.
    ///
    /// With tol(v) = |v|·1e-12 + 1e-12 and i the first interval whose end is not below
    /// @p start:
    /// - an empty interval (FLAG_TEXT clear) absorbs what it meets from i on: on the overlap
    ///   [max of starts, min of ends], an existing text interval counts as met when
    ///   min − tol(min) > max, an existing empty one when min + tol(min) ≥ max (touching
    ///   counts). A met empty interval widens the new one to their union; every met interval
    ///   is removed;
    /// - a text interval is refused when interval i exists and
    ///   @p end + tol(@p end) ≥ its start and its end + tol(its end) ≥ @p start.
    ///
    /// Everything happens in one event: one Notify_CvLv_Modifying (kind eCvLvChangeGeometry),
    /// then Notify_CvLv_IntervalRemoved for each removed interval. A refused interval changes
    /// and reports nothing.
    /// @return the new interval (borrowed: the line holds it), or null when refused.
    CCvLvInterv* AddInterval(double start, double end, std::int32_t flags);
    /// Removes @p interval when the line holds it: Notify_CvLv_Modifying (kind
    /// eCvLvChangeGeometry), then Notify_CvLv_IntervalRemoved, whose context takes a
    /// reference of its own, so the interval lives until the event closes.
    /// @return false, reporting nothing, when the line does not hold @p interval.
    bool RemoveInterval(CCvLvInterv* interval);
    /// Removes every empty interval (FLAG_TEXT clear), reported as RemoveInterval with one
    /// modifying notification for all. A line without empty intervals reports nothing.
    void RemoveEmptyIntervals();
    /// Removes every text interval (FLAG_TEXT set), as RemoveEmptyIntervals.
    void RemoveTextIntervals();
    /// Toggles FLAG_INVERTED of @p interval when the line holds it (reported with kind
    /// eCvLvChangeGeometry); nothing otherwise.
    void InvertTextDirection(CCvLvInterv* interval);

    /// The curve parameter nearest to @p point: a coarse pass over every segment and five
    /// levels of tenfold refinement. On success returns true with @p segment the segment
    /// index, @p t the local parameter in it and @p spine the spine parameter. A point beyond
    /// the line's start can get a parameter below 0 (at most a tenth of the first segment): the
    /// refinement around the first node samples the curve continued before it. Returns false
    /// with @p segment = -1 when the line has no segment.
    bool FindSpineParam(const kor::geom::PNT_2D& point, int& segment, double& t,
                        double& spine) const;

    /// Places the label interval of a label node (kind 2) of a file older than version 800 on
    /// the segment from @p node1 to @p node2.
    ///
    /// @p flags becomes 1 (text), or 3 (text read against the line) when @p position is
    /// negative. With step = node1.len / 100 and t = @p position × step, @p start = t + @p base.
    /// From t the routine advances a step at a time, evaluating the curve
    /// (TrovaSngValSpline with @p base as the segment length and @p sigmap as tension) and
    /// measuring the straight distance from the point at the start, while that distance does
    /// not exceed (L − 0.3333 + 1) × @p charHeight, L being the length of the elevation's text
    /// with @p decimals decimals, and t stays below node1.len − tol(node1.len). @p end = t +
    /// @p base, or node1.len + @p base when t ran past node1.len. @p base is thus both the
    /// length given to the evaluation and the offset added to start and end, as old files
    /// were written. A step that does not advance (a length that is not a positive number)
    /// leaves @p end at @p start.
    static void ConvertOldVrtPolTipo2(double sigmap, double elevation, double charHeight,
                                      int decimals, double base, const TOldVrtPol& node1,
                                      const TOldVrtPol& node2, int position, double& start,
                                      double& end, std::int32_t& flags);

    /// A new CCvLvMemento of the tension, colour, nodes and intervals; the caller holds its
    /// one reference.
    kor::IMemento* CreateMemento() const override;
    /// Always true, whatever @p memento is: every memento taken of a contour line is kept as a
    /// change, a deliberate simplification.
    bool HasChanged(const kor::IMemento* memento) const override;

protected:
    ~CCvLv() override;
    /// Puts a CCvLvMemento back, in this order: the colour when it differs (as SetColor); the
    /// tension when it differs (as ChangeSigmaTension, recomputing over the present nodes);
    /// then always, in one event with kind eCvLvChangeGeometry, the memento's nodes with their
    /// coefficients (nothing recomputed: sigmap stays the line's present one, which the memento
    /// does not hold), every present interval reported removed, and
    /// new intervals made from the memento's values in their stored order. Throws
    /// std::invalid_argument, changing and reporting nothing, when @p memento is not a contour
    /// line memento.
    void OnSetMemento(kor::IMemento* memento) override;

private:
    friend class CDtmChangeContext;
    friend class CCvLvs;
    friend class CCvLvModifier;

    /// The change context of the collection's project, or null (borrowed).
    CDtmChangeContext* GetContext() const;
    /// Sends Notify_CvLv_Modifying with @p kind when there is a context.
    void NotifyModifying(enumCvLvChangeType kind);
    /// Makes @p intervals the line's list and reports each of @p removed (intervals that the
    /// old list held) removed; the old list is left in @p intervals. The caller has opened the
    /// event and reported the line as modifying.
    void SwapIntervals(std::vector<kor::CRefPtr<CCvLvInterv>>& intervals,
                       const std::vector<kor::CRefPtr<CCvLvInterv>>& removed);
    /// New intervals made from @p values, in the given order.
    static std::vector<kor::CRefPtr<CCvLvInterv>> MakeIntervals(
        const std::vector<TCvLvInterv>& values);
    /// Removes every interval whose text flag equals @p text, inside one event.
    void RemoveIntervalsOfKind(bool text);

    // Quiet state changes for the collection and its file section: they report nothing, so
    // they are meant for a line that no collection lists yet (or a scratch line).
    /// Replaces tension, sigmap and nodes as given, coefficients included.
    void DoSetSpline(double sigma, double sigmap, std::vector<TVrtPol> nodes);
    void DoSetColor(std::int32_t color) noexcept { m_color = color; }
    void DoSetVisible(bool visible) noexcept { m_visible = visible; }
    /// Replaces the intervals by new ones made from @p intervals, in the given order.
    void DoReplaceIntervals(const std::vector<TCvLvInterv>& intervals);
    /// Replaces the nodes by the five values of each old record, and the intervals by one label
    /// interval for each label node (kind 2) that has a following node, in node order, placed
    /// by ConvertOldVrtPolTipo2 with the line's sigmap and elevation, @p charHeight,
    /// @p decimals and the spine offset of the label node. A label node without a following
    /// node has no segment and gets no label. Set sigmap first.
    void DoLoadOldNodes(const std::vector<TOldVrtPol>& nodes, double charHeight, int decimals);
    /// The list index of @p interval, or the list size when the line does not hold it.
    std::size_t IndexOf(const CCvLvInterv* interval) const noexcept;

    CCvLvs* m_cvlvs;
    double m_quota;
    double m_sigma;
    double m_sigmap = 0.0;
    std::vector<TVrtPol> m_nodes;
    std::vector<kor::CRefPtr<CCvLvInterv>> m_intervals;
    std::int32_t m_color;
    bool m_visible = true;
    int m_changeMark = 0;
};

/// Scoped editor of one contour line's node positions: all the moves made through one modifier
/// are one change, announced before the first move, and the spline is recomputed once, when
/// the modifier goes.
///
/// The modifier opens no event: the caller brackets the edit in one on the project's change
/// context. The line (borrowed) must outlive the modifier. Assignment is member-wise; a
/// modifier assigned from one that has moved nodes recomputes that line's spline when it goes.
class DTM_API CCvLvModifier {
public:
    /// Starts editing @p line (borrowed). Throws std::invalid_argument for a null line.
    explicit CCvLvModifier(CCvLv* line);
    /// When a node was moved, recomputes the line's spline coefficients and sigmap from the
    /// moved nodes. A failure of that computation propagates, unless another exception is
    /// already passing, in which case it is dropped and the coefficients stay as they were.
    ~CCvLvModifier() noexcept(false);
    CCvLvModifier(const CCvLvModifier&) = default;
    CCvLvModifier& operator=(const CCvLvModifier&) = default;

    /// Sets x and y of node @p index. The first move of this modifier sends
    /// Notify_CvLv_Modifying with kind eCvLvChangeAll to the line's context. Throws
    /// std::out_of_range, reporting nothing, when @p index is not below the node count.
    void MoveNode(unsigned index, double x, double y);

    /// Whether a node has been moved through this modifier.
    bool IsChanged() const noexcept { return m_changed; }

private:
    CCvLv* m_line;
    bool m_changed = false;
};
