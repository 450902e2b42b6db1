#pragma once

/// @file
/// The contour-line options of a project: intervals and tension for new lines, label text
/// settings, line categories and colours, and the elevation colour classes.

#include <dtm/colourclasses/CColorClassComputer.h>
#include <dtm/support/Export.h>
#include <dtm/support/String.h>

#include <array>
#include <cstddef>
#include <cstdint>

class ifpstream;
class ofpstream;

/// Where a contour label sits across its line. Only the centred label interrupts the line (see
/// COpzCvLv::GetQuotaExtent); on which side the host draws the other two is its own choice.
enum enumTextVAlignment : std::int32_t {
    TEXT_VALIGN_0 = 0,        ///< Beside the line, on one side.
    TEXT_VALIGN_CENTRED = 1,  ///< Centred on the line, which is cut where the label stands.
    TEXT_VALIGN_2 = 2         ///< Beside the line, on the other side.
};

/// The host's two orientations of a contour label; the library only stores and range-checks
/// them.
enum enumTextOrientation : std::int32_t { TEXT_ORIENTATION_0 = 0, TEXT_ORIENTATION_1 = 1 };

/// Contour-line options of a project: the contour intervals and tension offered for new lines,
/// the label text settings, the on/off flags and colours of four line categories (their
/// meaning is the host's), the colour-by-layer switch and the colour classes that colour lines
/// by elevation. The contour collection embeds one.
///
/// The options live in the host's INI file, section "CURVE", in two groups read and written by
/// separate operations: the text group (GetDaIni / SetInIni) and the display group
/// (GetVisDaIni / SetVisInIni). In the document they travel in the two groups of the project's
/// option section, at two different places with other options between them, so that each group
/// is read on its own:
/// - the first group (SalvaInFile / LeggeDaFile) holds the four category flags and colours and
///   is present at every version;
/// - the second group (SalvaVisInFile / LeggeVisDaFile) holds the colour-by-layer switch, the
///   colour classes and the label text settings; documents older than version 800 did not
///   store these, so there the group holds no bytes at all.
/// The intervals, tension and contour flag live only in the INI file.
///
/// The setters only store, as given: they send no notification and check no range. Changes
/// that listeners must see go through the contour collection (CCvLvs::SetTextOptions and
/// SetVisOptions), which notifies and re-labels.
class DTM_API COpzCvLv {
public:
    /// Number of line categories, each with an on/off flag and a colour.
    static constexpr unsigned kCategoryCount = 4;

    /// Reads both INI groups (GetDaIni and GetVisDaIni), so that new options start from the
    /// last saved settings; absent values give the defaults.
    COpzCvLv();
    /// Copies every option; reads nothing.
    COpzCvLv(const COpzCvLv& other);
    /// Copies every option.
    COpzCvLv& operator=(const COpzCvLv& other);
    /// Frees the prefix, the suffix and the colour classes.
    ~COpzCvLv();

    /// Reads the text group from the host's INI file, section "CURVE": intervals ("QuI1",
    /// "QuI2"), tension ("SiTe"), text height ("DmC1"), gap ("CvLvGap"), contour flag ("CntS"),
    /// decimals ("CdcC"), prefix ("CvLvPref"), suffix ("CvLvSuff"), vertical alignment
    /// ("CvLvVAlgn") and orientation ("CvLvOrien"). Absent or malformed values give the
    /// defaults (1, 5, -1, 1, 1, false, 0, "", "", TEXT_VALIGN_CENTRED, TEXT_ORIENTATION_0). An
    /// alignment outside 0..2 becomes TEXT_VALIGN_CENTRED and an orientation outside 0..1
    /// becomes TEXT_ORIENTATION_0, negative values included.
    void GetDaIni();
    /// Writes the text group under the keys that GetDaIni reads. A line break inside the
    /// prefix or suffix becomes a blank there (the document keeps it); blanks at their ends are
    /// kept.
    void SetInIni() const;
    /// Reads the display group from the host's INI file, section "CURVE": category flags
    /// ("ClAt5" to "ClAt8", default true), colour by layer ("CvLvClrByLayer", default true),
    /// category colours ("ClCo5" to "ClCo8", default 7) and the colour classes (key prefix
    /// "CvLvsGrCol", with CColorClassComputer's own defaults). A colour is taken as its 16 bits
    /// whether the file spells them signed (-32768..-1) or unsigned (0..65535); any other value
    /// gives the default.
    void GetVisDaIni();
    /// Writes the display group under the keys that GetVisDaIni reads; colours as unsigned
    /// values.
    void SetVisInIni() const;

    /// Writes the first group of the option section, at every version: four pairs of category
    /// flag (int32, 1 or 0) and category colour (uint16), category 1 first.
    void SalvaInFile(ofpstream& stream) const;
    /// Reads the first group. A flag is true when its int32 is greater than zero. With
    /// @p apply false every byte is consumed and nothing is stored. A stream that ends inside
    /// the group is left failed and the options unchanged.
    void LeggeDaFile(ifpstream& stream, bool apply);
    /// Writes the second group of the option section: from version 800 colour by layer
    /// (int32), the colour classes, text height, gap (doubles), decimals (int32), prefix and
    /// suffix (each an int32 length and that many bytes, no terminator), vertical alignment and
    /// orientation (int32); nothing for an older version. Throws std::length_error, writing
    /// nothing, when the prefix or suffix is too long for its int32 length.
    void SalvaVisInFile(ofpstream& stream) const;
    /// Reads the second group. A flag is true when its int32 is greater than zero; a string
    /// length below 1 gives an empty string, otherwise that many bytes are read and a last
    /// zero byte among them is dropped; an alignment or orientation outside its range gets
    /// its default, as in GetDaIni. A stream older than version 800 holds no second group:
    /// nothing is read and nothing changes. With @p apply false every byte is consumed and
    /// nothing is stored. A stream that ends inside the group is left failed and the options
    /// unchanged; a damaged string length costs no more memory than the stream holds.
    void LeggeVisDaFile(ifpstream& stream, bool apply);

    /// Length along its line of a centred label of @p characters characters at @p textHeight:
    /// (characters - 0.3333 + 1) times the height, evaluated in that order so that every
    /// caller gets the same bits. The one home of the measure, shared by GetQuotaExtent and by
    /// the conversion of old documents' labels.
    static double LabelExtent(std::size_t characters, double textHeight);

    /// The label text of @p elevation: prefix, the elevation with GetDecimals() decimals
    /// (StringDaDouble; negative decimals count as 0, and more than 17, the most a double
    /// carries, as 17, so that a damaged value cannot make a label of millions of digits),
    /// suffix.
    kor::String GetFullQuotaText(double elevation) const;
    /// Length along the line that a label of @p text takes: (characters - 0.3333 + 1) times
    /// the text height when the label is centred on the line (alignment TEXT_VALIGN_CENTRED),
    /// 0 for any other alignment, because a label beside the line does not cut it. A UTF-8
    /// sequence counts as one character, so that "m²" is two, and so does every byte outside
    /// one, so that text in a single-byte code page counts its bytes; a null @p text counts as
    /// empty.
    double GetQuotaExtent(const char* text) const;
    /// GetQuotaExtent of the label text of @p elevation (GetFullQuotaText); 0, without
    /// formatting, when the label is not centred on the line.
    double GetQuotaExtent(double elevation) const;

    /// Stores the label text settings in one call (a plain store, in the order of
    /// CCvLvs::SetTextOptions).
    void SetTextOptions(double textHeight, double gap, std::int32_t decimals,
                        const kor::String& prefix, const kor::String& suffix,
                        enumTextVAlignment vAlignment, enumTextOrientation orientation);
    /// Stores the display settings in one call (a plain store, in the order of
    /// CCvLvs::SetVisOptions): the four category flags, colour by layer, the four category
    /// colours and the colour classes.
    void SetVisOptions(bool categoryOn1, bool categoryOn2, bool categoryOn3, bool categoryOn4,
                       bool colorByLayer, std::uint16_t categoryColor1,
                       std::uint16_t categoryColor2, std::uint16_t categoryColor3,
                       std::uint16_t categoryColor4, const CColorClassComputer& classes);

    /// First contour interval offered for new lines ("QuI1").
    double GetInterval1() const { return m_interval1; }
    /// Sets the first contour interval (a plain store).
    void SetInterval1(double value) { m_interval1 = value; }
    /// Second contour interval offered for new lines ("QuI2").
    double GetInterval2() const { return m_interval2; }
    /// Sets the second contour interval (a plain store).
    void SetInterval2(double value) { m_interval2 = value; }
    /// Spline tension for new lines ("SiTe"); negative: end tangents from the nodes.
    double GetTension() const { return m_tension; }
    /// Sets the tension (a plain store).
    void SetTension(double value) { m_tension = value; }
    /// Label character height ("DmC1").
    double GetTextHeight() const { return m_textHeight; }
    /// Sets the text height (a plain store).
    void SetTextHeight(double value) { m_textHeight = value; }
    /// Label gap ("CvLvGap").
    double GetGap() const { return m_gap; }
    /// Sets the gap (a plain store).
    void SetGap(double value) { m_gap = value; }
    /// The contour flag ("CntS"); stored for the host.
    bool IsContourFlag() const { return m_contourFlag; }
    /// Sets the contour flag (a plain store).
    void SetContourFlag(bool value) { m_contourFlag = value; }
    /// Decimals of the label elevation ("CdcC"), as stored.
    std::int32_t GetDecimals() const { return m_decimals; }
    /// Sets the decimals (a plain store).
    void SetDecimals(std::int32_t value) { m_decimals = value; }
    /// Text before the elevation ("CvLvPref").
    const kor::String& GetPrefix() const { return m_prefix; }
    /// Sets the prefix (a plain store).
    void SetPrefix(const kor::String& value) { m_prefix = value; }
    /// Text after the elevation ("CvLvSuff").
    const kor::String& GetSuffix() const { return m_suffix; }
    /// Sets the suffix (a plain store).
    void SetSuffix(const kor::String& value) { m_suffix = value; }
    /// Vertical alignment of the labels ("CvLvVAlgn"). The setter stores what it is given;
    /// only reads range-check.
    enumTextVAlignment GetVAlignment() const { return m_vAlignment; }
    /// Sets the vertical alignment (a plain store).
    void SetVAlignment(enumTextVAlignment value) { m_vAlignment = value; }
    /// Orientation of the labels ("CvLvOrien"). The setter stores what it is given.
    enumTextOrientation GetOrientation() const { return m_orientation; }
    /// Sets the orientation (a plain store).
    void SetOrientation(enumTextOrientation value) { m_orientation = value; }

    /// On/off flag of category @p index (0 to 3 for categories 1 to 4; "ClAt5" to "ClAt8").
    /// Throws std::out_of_range when @p index is not below kCategoryCount.
    bool IsCategoryOn(unsigned index) const { return m_categoryOn.at(index); }
    /// Sets the flag of category @p index (a plain store); throws std::out_of_range, changing
    /// nothing, when @p index is not below kCategoryCount.
    void SetCategoryOn(unsigned index, bool value) { m_categoryOn.at(index) = value; }
    /// Colour index of category @p index (0 to 3; "ClCo5" to "ClCo8"). Throws
    /// std::out_of_range when @p index is not below kCategoryCount.
    std::uint16_t GetCategoryColor(unsigned index) const { return m_categoryColor.at(index); }
    /// Sets the colour of category @p index (a plain store); throws std::out_of_range, changing
    /// nothing, when @p index is not below kCategoryCount.
    void SetCategoryColor(unsigned index, std::uint16_t value) {
        m_categoryColor.at(index) = value;
    }
    /// True when every line takes colour 256, by layer ("CvLvClrByLayer").
    bool IsColorByLayer() const { return m_colorByLayer; }
    /// Sets colour by layer (a plain store).
    void SetColorByLayer(bool value) { m_colorByLayer = value; }
    /// The elevation colour classes (INI key prefix "CvLvsGrCol").
    const CColorClassComputer& GetColorClasses() const { return m_colorClasses; }
    /// The elevation colour classes, for editing in place.
    CColorClassComputer& GetColorClasses() { return m_colorClasses; }
    /// Sets the colour classes (a plain store).
    void SetColorClasses(const CColorClassComputer& classes) { m_colorClasses = classes; }

private:
    bool ReadCategoryGroup(ifpstream& stream);
    bool ReadVisGroup(ifpstream& stream);

    double m_interval1;
    double m_interval2;
    double m_tension;
    double m_textHeight;
    double m_gap;
    bool m_contourFlag;
    std::int32_t m_decimals;
    kor::String m_prefix;
    kor::String m_suffix;
    enumTextVAlignment m_vAlignment;
    enumTextOrientation m_orientation;
    std::array<bool, kCategoryCount> m_categoryOn;
    bool m_colorByLayer;
    std::array<std::uint16_t, kCategoryCount> m_categoryColor;
    CColorClassComputer m_colorClasses;
};
