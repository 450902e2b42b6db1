#pragma once

/// @file
/// The elevation colour-class table: maps an elevation to a CAD colour index.

#include <dtm/support/Export.h>

#include <cstdint>
#include <vector>

class ifpstream;
class ofpstream;

/// An ordered table of colour classes that maps an elevation to a CAD colour index, in one of
/// two modes:
/// - graded (custom flag false): the classes are spread evenly between a minimum and a maximum
///   elevation given at each query, with noSteps intermediate colours between two neighbours;
/// - custom (custom flag true): each class carries its own upper elevation, and an elevation
///   takes the colour of the class whose interval holds it.
///
/// A plain value class. The network's colouring and the contour collection own one table each;
/// the project options carry them to and from the INI file and the document stream.
class DTM_API CColorClassComputer {
public:
    /// One class of the table.
    struct TClassInfo {
        /// Custom mode: the class's upper elevation. Graded mode: not consulted, UNDEFINED_QUOTE.
        double value;
        /// CAD colour index (handed to the colour engine as a 16-bit index).
        int color;
    };

    /// Verdict of GetState.
    enum enumState {
        STATE_VALID = 0,            ///< The table can be used.
        STATE_TOO_FEW_CLASSES = 1,  ///< Fewer than 2 classes.
        STATE_UNDEFINED_VALUE = 2,  ///< Custom mode and some class value is undefined.
        STATE_NOT_INCREASING = 3    ///< Custom mode and the values do not strictly increase.
    };

    /// Empty table, 4 steps, custom mode.
    CColorClassComputer();
    /// Copies the table, the step count and the mode.
    CColorClassComputer(const CColorClassComputer& other);
    /// Copies the table, the step count and the mode.
    CColorClassComputer& operator=(const CColorClassComputer& other);
    /// Frees the table.
    ~CColorClassComputer();

    /// Same step count, same number of entries, pairwise equal entries (values compared exactly,
    /// so a NaN value makes the tables differ) and, when there is more than one entry, the same
    /// mode. With zero or one entry the mode is deliberately not compared: such a table gives
    /// the same colours in both modes.
    bool operator==(const CColorClassComputer& other) const;
    /// Negation of operator==.
    bool operator!=(const CColorClassComputer& other) const { return !(*this == other); }

    /// Sets the number of intermediate steps between two neighbouring classes, at most 4
    /// (larger values are stored as 4). The INI and stream readers store what they read
    /// without this limit.
    void SetNoSteps(unsigned n);
    /// The number of intermediate steps, as set or as read.
    unsigned GetNoSteps() const { return m_noSteps; }

    /// Sets the mode; changes nothing else (the entries keep their values).
    void SetCustom(bool custom) { m_custom = custom; }
    /// True in custom mode, false in graded mode.
    bool IsCustom() const { return m_custom; }

    /// Number of classes.
    unsigned GetNoClasses() const { return static_cast<unsigned>(m_entries.size()); }
    /// Class @p i. Throws std::out_of_range when @p i is not below GetNoClasses().
    const TClassInfo& GetClassInfoA(unsigned i) const { return m_entries.at(i); }

    /// Inserts a graded class of colour @p color before position @p pos (GetNoClasses()
    /// appends). On an empty table this switches to graded mode first; on a non-empty table in
    /// custom mode the call does nothing. Throws std::out_of_range, changing nothing, when an
    /// insertion is due and @p pos is outside 0..GetNoClasses().
    void AddEntry(int pos, int color);
    /// Inserts a custom class (@p value, @p color) before position @p pos. On an empty table
    /// this switches to custom mode first; on a non-empty table in graded mode the call does
    /// nothing. Values are not sorted: the caller keeps them increasing (GetState tells).
    /// Throws std::out_of_range, changing nothing, when an insertion is due and @p pos is
    /// outside 0..GetNoClasses().
    void AddEntry(int pos, double value, int color);
    /// Erases class @p i; an index that, taken as unsigned, is not below the count is ignored.
    void RemoveEntry(int i);
    /// Sets class @p i's colour; an out-of-range index (negative ones included) is ignored.
    void SetEntryColor(int i, int color);
    /// Sets class @p i's value; an out-of-range index (negative ones included) is ignored.
    void SetEntryValue(int i, double value);
    /// Empties the table and switches to custom mode; the step count is kept.
    void Reset();

    /// Whether the table can be used: the first failing rule decides (see enumState).
    enumState GetState() const;

    /// Colour index of elevation @p z, with @p minZ and @p maxZ the elevation range over which
    /// a graded table is spread (ignored in custom mode). An empty table gives 7. An elevation
    /// that no class can hold (a NaN) gives the first class's colour. A step count of
    /// 0xFFFFFFFF, which only a file can hold, is looked up as 0 steps: one more step would
    /// wrap to 0 in 32 bits.
    int GetColor(double minZ, double maxZ, double z) const;

    /// Reads the table from the host's INI file, section "CURVE", keys made from @p prefix
    /// ("TriGrCol" for the network, "CvLvsGrCol" for the contour lines). At most 100 classes are
    /// read; a stored count below 2 gives the default graded table of colours 1, 2, 3. Absent
    /// or malformed values give the defaults. The step count is stored as read, unclamped.
    void GetDaIni(const char* prefix);
    /// Writes the table to the host's INI file under @p prefix: every class, no limit. Keys of
    /// classes beyond the current count, left from a longer table, are not removed.
    void SetInIni(const char* prefix) const;

    /// Writes the stream section; streams older than version 800 get nothing.
    void SalvaInFile(ofpstream& stream) const;
    /// Reads the stream section (nothing from streams older than version 800) and, when
    /// @p apply is true, stores it; with @p apply false the same bytes are consumed and the
    /// table is unchanged. A stream that ends inside the section is left failed and the table
    /// unchanged.
    void LeggeDaFile(ifpstream& stream, bool apply);

private:
    /// Colour of class @p index moved @p step steps towards class @p index + 1.
    int GetColor(int index, int step) const;
    int GetGradedColor(double minZ, double maxZ, double z) const;
    int GetCustomColor(double z) const;
    /// noSteps + 1, the divisor of the step arithmetic, or 1 when that wraps to 0.
    std::uint32_t StepsPerClass() const;
    /// The insertion shared by both AddEntry overloads.
    void Insert(int pos, bool custom, const TClassInfo& entry);
    bool IsValidIndex(int i) const {
        return static_cast<unsigned>(i) < static_cast<unsigned>(m_entries.size());
    }

    std::vector<TClassInfo> m_entries;
    std::uint32_t m_noSteps;
    bool m_custom;
};
