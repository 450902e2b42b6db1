#pragma once

/// @file
/// The contour-line collection of a project, with its options, colours and elevation range.

#include <dtm/colourclasses/CColorClassComputer.h>
#include <dtm/contours/CCvLv.h>
#include <dtm/contours/COpzCvLv.h>
#include <dtm/support/Export.h>
#include <dtm/support/RefCounter.h>
#include <dtm/support/String.h>

#include <cstdint>
#include <vector>

class CDtmChangeContext;
class CDtmPrj;
class ifpstream;
class ofpstream;

/// The contour direction of a collection. The host gives the values their meaning; the library
/// stores, writes and reads the 32-bit value as it is, and derives 1 for old files that hold
/// lines.
enum enumCvLvDir : std::int32_t {
    eCvLvDirUnknown = 0,   ///< No direction established (a new collection, an empty old file).
    eCvLvDirOriented = 1,  ///< The lines follow the host's direction convention.
};

/// The contour lines of a project, in insertion order (which is also file order and index
/// order), with the contour options, the direction and the running elevation range of the
/// lines.
///
/// The collection holds one reference on each of its lines. Additions and removals are
/// reported to the project's change context (after the change); a line reports its own changes
/// through GetContext. A collection without a project reports nothing.
///
/// The elevation range only grows while lines are added: removing one line leaves it as it was
/// (it may stay wider than the lines), removing all resets it, and UpdateMinMaxQuota()
/// recomputes it on request. Colours by elevation are spread over that range.
class DTM_API CCvLvs {
public:
    /// An empty collection of @p prj (borrowed, may be null); it takes the project's change
    /// context (borrowed) now, so the project must build its context first. The options start
    /// from the host's INI file. The range is +infinity/-infinity.
    explicit CCvLvs(CDtmPrj* prj);
    /// Member-wise: the same project, context, options, direction and range, and the same line
    /// objects, on each of which the copy takes a reference of its own. The lines keep naming
    /// their original collection.
    CCvLvs(const CCvLvs& other);
    /// Member-wise, as the copy constructor; the lines held before are released without
    /// notification.
    CCvLvs& operator=(const CCvLvs& other);
    /// Releases every line without notification. A line that lives on (held by an undo command
    /// or the host) and names this collection is detached from it first, so that it reports no
    /// project instead of pointing at a destroyed collection.
    virtual ~CCvLvs();

    /// The owning project (borrowed), or null.
    CDtmPrj* GetDtmPrj() const noexcept { return m_dtmPrj; }
    /// The project's change context (borrowed), or null without a project.
    CDtmChangeContext* GetContext() const noexcept { return m_context; }

    /// The contour options. Changing them here stores without notifying or re-labelling: use
    /// SetTextOptions and SetVisOptions for changes that the lines must follow.
    COpzCvLv& GetOpzCvLv() noexcept { return m_opz; }
    /// The contour options.
    const COpzCvLv& GetOpzCvLv() const noexcept { return m_opz; }

    /// Number of lines.
    unsigned GetNoCvLvs() const noexcept { return static_cast<unsigned>(m_cvlvs.size()); }
    /// Line @p i (borrowed); throws std::out_of_range when @p i is not below GetNoCvLvs().
    CCvLv* GetCvLvAt(unsigned i) const { return m_cvlvs.at(i).Get(); }

    /// The stored elevation range: +infinity/-infinity when no line was added since the last
    /// reset.
    void GetMinMaxQuota(double& minQuota, double& maxQuota) const noexcept {
        minQuota = m_minQuota;
        maxQuota = m_maxQuota;
    }
    /// Recomputes the range from scratch over the lines (+infinity/-infinity without lines).
    void UpdateMinMaxQuota() noexcept;
    /// Widens the range to hold @p elevation (a NaN changes nothing).
    void UpdateMinMaxQuota(double elevation) noexcept;

    /// The contour direction.
    enumCvLvDir GetCvLvDir() const noexcept { return m_dir; }
    /// Sets the contour direction; sends no notification.
    void SetCvLvDir(enumCvLvDir dir) noexcept { m_dir = dir; }

    /// Appends @p line, takes one reference on it, makes this its collection, widens the range
    /// by its elevation, then sends Notify_CvLv_Added. Opens no event of its own: a caller
    /// adding several lines brackets them. Throws std::invalid_argument for a null line.
    void AddCvLv(CCvLv* line);
    /// Creates a visible line at @p elevation with tension @p sigma and colour @p color, whose
    /// nodes and spline coefficients are built from the @p nodeCount coordinates @p x and
    /// @p y (borrowed), and adds it as AddCvLv does.
    /// @return the line, borrowed: the collection holds its only lasting reference.
    /// @throws std::invalid_argument, adding nothing, for a negative @p nodeCount or null
    /// arrays with a positive one.
    CCvLv* AddNewCvLv(double elevation, double sigma, std::int32_t color, int nodeCount,
                      const double* x, const double* y);
    /// Creates a visible line of colour 256 (by layer) at @p elevation with tension @p sigma and
    /// denormalised tension @p sigmap (used as given, not recomputed) from @p nodeCount node
    /// records of an old file (borrowed): their five values become the nodes unchanged, and
    /// each label node (kind 2) followed by another node gives a label interval placed by
    /// CCvLv::ConvertOldVrtPolTipo2 with the text height and decimals of @p options. Adds it as
    /// AddCvLv does.
    /// @return the line, borrowed: the collection holds its only lasting reference.
    /// @throws std::invalid_argument, adding nothing, for a negative @p nodeCount or a null
    /// array with a positive one.
    CCvLv* AddNewCvLv(const COpzCvLv& options, double elevation, double sigma, double sigmap,
                      int nodeCount, const TOldVrtPol* nodes);

    /// Removes @p line when the collection lists it: erases it, sends Notify_CvLv_Removed, then
    /// releases the collection's reference (the context holds its own until the event
    /// closes). The range is not recomputed. A line not listed, null included, is ignored.
    void RemoveCvLv(CCvLv* line);
    /// Removes every line inside one event of the project's change context, as
    /// DoRemoveAllCvLvls with that context. The event is opened also when there is no line.
    void RemoveAllCvLvs();
    /// Removes every line: sends Notify_CvLv_Removed to @p context (borrowed, may be null for a
    /// silent removal) for each line in list order while the list is still whole, then empties
    /// the list and resets the range to +infinity/-infinity. Opens no event: the caller
    /// brackets. When a notification throws, the lines already reported are dropped and the
    /// others stay, with the range unchanged.
    void DoRemoveAllCvLvls(CDtmChangeContext* context);

    /// Re-colours every line through CCvLv::SetColor, so that only lines whose colour really
    /// changes are reported: colour 256 when colour-by-layer is set, otherwise the colour that
    /// the options' colour classes give for the line's elevation within the collection's
    /// range. All in one event, opened only when some colour changes.
    void UpdateCvLvColors();
    /// Fits the label (text) intervals of @p line to the present text options: each keeps its
    /// centre and takes half the label extent on either side, shortened by the start of the
    /// line and the start of the next interval; with a label that is not centred on the line
    /// (extent 0) it collapses to its centre. Empty intervals are left alone. Every text
    /// interval is stored with CCvLv::ChangeIntervalDimension, changed or not, each an event of
    /// its own unless the caller has one open. Nothing happens when the line has no intervals or no
    /// nodes. Throws std::invalid_argument for a null line.
    void UpdateCvLvTextIntervals(CCvLv* line);

    /// Sets the label text options. Nothing happens when every value equals the stored one
    /// (strings compared case-sensitively). Otherwise, inside one event, the options are
    /// stored and UpdateCvLvTextIntervals runs for every line in list order.
    void SetTextOptions(double charHeight, double gap, std::int32_t decimals,
                        const kor::String& prefix, const kor::String& suffix,
                        enumTextVAlignment vAlignment, enumTextOrientation orientation);
    /// Sets the display options: the four category flags, colour by layer, the four category
    /// colours and the colour classes. Nothing happens when all nine values equal the stored
    /// ones and the colour classes compare equal. Otherwise, inside one event: the values are
    /// stored; Notify_CvLv_LayersModified is sent when colour by layer or any category colour
    /// changed, or when colour by layer is set and the classes differ (a change of the
    /// category flags alone does not send it); then the lines are re-coloured as
    /// UpdateCvLvColors does.
    void SetVisOptions(bool categoryOn1, bool categoryOn2, bool categoryOn3, bool categoryOn4,
                       bool colorByLayer, std::uint16_t categoryColor1,
                       std::uint16_t categoryColor2, std::uint16_t categoryColor3,
                       std::uint16_t categoryColor4, const CColorClassComputer& classes);

    /// Writes the contour section of the document: the later record layout from version 800
    /// (with the direction and the stored elevation range), the old node layout below it.
    void SalvaInFile(ofpstream& stream) const;
    /// Reads the contour section of the document. With @p load true the present lines are
    /// replaced by the section's, in one event; with @p load false the section is consumed and
    /// nothing changes. A short or damaged section leaves the stream failed and the collection
    /// unchanged.
    void LeggeDaFile(ifpstream& stream, bool load);

private:
    /// The colour UpdateCvLvColors gives @p line.
    std::int32_t ColorFor(const CCvLv& line) const;

    CDtmPrj* m_dtmPrj;
    CDtmChangeContext* m_context;
    COpzCvLv m_opz;
    std::vector<kor::CRefPtr<CCvLv>> m_cvlvs;
    enumCvLvDir m_dir = eCvLvDirUnknown;
    double m_minQuota;
    double m_maxQuota;
};
