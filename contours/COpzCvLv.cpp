#include <dtm/contours/COpzCvLv.h>

#include <dtm/support/IniFile.h>
#include <dtm/support/RawIO.h>
#include <dtm/support/Streams.h>

#include <algorithm>
#include <cstring>
#include <limits>
#include <stdexcept>
#include <string>

namespace {

const char* const kIniSection = "CURVE";
/// Key prefix of the contour lines' colour classes.
const char* const kColorClassPrefix = "CvLvsGrCol";
/// Keys of the category flags and colours, category 1 first.
const char* const kCategoryOnKeys[COpzCvLv::kCategoryCount] = {"ClAt5", "ClAt6", "ClAt7", "ClAt8"};
const char* const kCategoryColorKeys[COpzCvLv::kCategoryCount] = {"ClCo5", "ClCo6", "ClCo7",
                                                                  "ClCo8"};

/// From this stream version the document holds the second group (colour by layer, the colour
/// classes and the label text settings); older documents kept only the categories.
constexpr short kVersionTextInOptions = 800;

constexpr double kDefaultInterval1 = 1.0;
constexpr double kDefaultInterval2 = 5.0;
/// Negative: the spline takes its end tangents from the nodes.
constexpr double kDefaultTension = -1.0;
constexpr double kDefaultTextHeight = 1.0;
constexpr double kDefaultGap = 1.0;
constexpr std::uint16_t kDefaultCategoryColor = 7;

/// Length of a label along its line, in text heights: one per character, less the third of a
/// height that follows the last character as spacing, plus one height of clearance shared
/// between the two ends.
constexpr double kLabelTrailingSpacing = 0.3333;
constexpr double kLabelClearance = 1.0;

/// The alignment a stored value stands for. The check is on the value taken as unsigned, so a
/// negative value is out of range too. Applied to INI and stream reads alike.
enumTextVAlignment VAlignmentFromStored(long stored) {
    if (static_cast<std::uint32_t>(stored) > static_cast<std::uint32_t>(TEXT_VALIGN_2))
        return TEXT_VALIGN_CENTRED;
    return static_cast<enumTextVAlignment>(stored);
}

/// The orientation a stored value stands for; the same unsigned check as the alignment.
enumTextOrientation OrientationFromStored(long stored) {
    if (static_cast<std::uint32_t>(stored) > static_cast<std::uint32_t>(TEXT_ORIENTATION_1))
        return TEXT_ORIENTATION_0;
    return static_cast<enumTextOrientation>(stored);
}

/// A category colour from the INI file. The 16 bits may have been written by a program that keeps
/// colour indexes signed (-1) or unsigned (65535): both spellings are the same colour.
std::uint16_t ReadIniColor(CIniFile& ini, const char* key) {
    // An out-of-range sentinel default tells "absent or malformed" from any stored value.
    constexpr long kAbsent = std::numeric_limits<std::int32_t>::min();
    const long stored = ini.GetLong(kIniSection, key, kAbsent);
    if (stored < std::numeric_limits<std::int16_t>::min() ||
        stored > std::numeric_limits<std::uint16_t>::max())
        return kDefaultCategoryColor;
    return static_cast<std::uint16_t>(stored);
}

/// True when the last byte of @p text is a zero byte, which a reader would take for a stored
/// terminator and drop.
bool EndsInZeroByte(const kor::String& text) {
    return !text.str().empty() && text.str().back() == '\0';
}

/// The int32 length a string is stored with (see WriteCountedText); throws when it does not fit.
std::int32_t StoredLength(const kor::String& text) {
    const std::size_t length = text.length() + (EndsInZeroByte(text) ? 1 : 0);
    if (length > static_cast<std::size_t>(std::numeric_limits<std::int32_t>::max()))
        throw std::length_error("COpzCvLv: label text too long for the document");
    return static_cast<std::int32_t>(length);
}

/// Writes a string as its int32 length and its bytes, without terminator. A text that itself
/// ends in a zero byte gets one zero byte more, as writers that stored the terminator did: the
/// reader drops that one, and the text comes back whole instead of one byte shorter.
void WriteCountedText(std::ostream& stream, const kor::String& text) {
    dtm::io::WriteRaw<std::int32_t>(stream, StoredLength(text));
    if (text.length() > 0) stream.write(text.c_str(), static_cast<std::streamsize>(text.length()));
    if (EndsInZeroByte(text)) stream.write("", 1);
}

/// Reads a counted string (see dtm::io::ReadCountedText) into a string of the support kit.
bool ReadCountedText(std::istream& stream, kor::String& text) {
    std::string read;
    if (!dtm::io::ReadCountedText(stream, read)) return false;
    text = kor::String(std::move(read));
    return true;
}

bool ReadStoredVAlignment(std::istream& stream, enumTextVAlignment& value) {
    std::int32_t stored = 0;
    if (!dtm::io::ReadRaw(stream, stored)) return false;
    value = VAlignmentFromStored(stored);
    return true;
}

bool ReadStoredOrientation(std::istream& stream, enumTextOrientation& value) {
    std::int32_t stored = 0;
    if (!dtm::io::ReadRaw(stream, stored)) return false;
    value = OrientationFromStored(stored);
    return true;
}

/// How many continuation bytes the UTF-8 lead byte @p byte announces (0 for any other byte).
unsigned ContinuationsAfter(unsigned char byte) {
    if (byte >= 0xC2u && byte <= 0xDFu) return 1;
    if (byte >= 0xE0u && byte <= 0xEFu) return 2;
    if (byte >= 0xF0u && byte <= 0xF4u) return 3;
    return 0;
}

/// Number of characters of @p size bytes of text: a UTF-8 sequence is one character, and so is
/// every other byte. A continuation byte that no lead byte announced stands alone, so that a
/// label written in a single-byte code page ("5\xB0" for 5 degrees) still counts its degree
/// sign.
std::size_t CountCharacters(const char* text, std::size_t size) {
    std::size_t characters = 0;
    unsigned pending = 0;
    for (std::size_t i = 0; i < size; ++i) {
        const auto byte = static_cast<unsigned char>(text[i]);
        if (pending > 0 && (byte & 0xC0u) == 0x80u) {
            --pending;
            continue;
        }
        ++characters;
        pending = ContinuationsAfter(byte);
    }
    return characters;
}

}  // namespace

COpzCvLv::COpzCvLv()
    : m_interval1(kDefaultInterval1),
      m_interval2(kDefaultInterval2),
      m_tension(kDefaultTension),
      m_textHeight(kDefaultTextHeight),
      m_gap(kDefaultGap),
      m_contourFlag(false),
      m_decimals(0),
      m_vAlignment(TEXT_VALIGN_CENTRED),
      m_orientation(TEXT_ORIENTATION_0),
      m_colorByLayer(true) {
    m_categoryOn.fill(true);
    m_categoryColor.fill(kDefaultCategoryColor);
    GetDaIni();
    GetVisDaIni();
}

COpzCvLv::COpzCvLv(const COpzCvLv& other) = default;

COpzCvLv& COpzCvLv::operator=(const COpzCvLv& other) = default;

COpzCvLv::~COpzCvLv() = default;

void COpzCvLv::GetDaIni() {
    CIniFile ini;
    m_interval1 = ini.GetDouble(kIniSection, "QuI1", kDefaultInterval1);
    m_interval2 = ini.GetDouble(kIniSection, "QuI2", kDefaultInterval2);
    m_tension = ini.GetDouble(kIniSection, "SiTe", kDefaultTension);
    m_textHeight = ini.GetDouble(kIniSection, "DmC1", kDefaultTextHeight);
    m_gap = ini.GetDouble(kIniSection, "CvLvGap", kDefaultGap);
    m_contourFlag = ini.GetBool(kIniSection, "CntS", false);
    m_decimals = static_cast<std::int32_t>(ini.GetLong(kIniSection, "CdcC", 0));
    m_prefix = ini.GetKorString(kIniSection, "CvLvPref", "");
    m_suffix = ini.GetKorString(kIniSection, "CvLvSuff", "");
    m_vAlignment = VAlignmentFromStored(ini.GetLong(kIniSection, "CvLvVAlgn", TEXT_VALIGN_CENTRED));
    m_orientation =
        OrientationFromStored(ini.GetLong(kIniSection, "CvLvOrien", TEXT_ORIENTATION_0));
}

void COpzCvLv::SetInIni() const {
    CIniFile ini;
    ini.WriteDouble(kIniSection, "QuI1", m_interval1);
    ini.WriteDouble(kIniSection, "QuI2", m_interval2);
    ini.WriteDouble(kIniSection, "SiTe", m_tension);
    ini.WriteDouble(kIniSection, "DmC1", m_textHeight);
    ini.WriteDouble(kIniSection, "CvLvGap", m_gap);
    ini.WriteBool(kIniSection, "CntS", m_contourFlag);
    ini.WriteLong(kIniSection, "CdcC", m_decimals);
    ini.WriteString(kIniSection, "CvLvPref", m_prefix.c_str());
    ini.WriteString(kIniSection, "CvLvSuff", m_suffix.c_str());
    ini.WriteLong(kIniSection, "CvLvVAlgn", m_vAlignment);
    ini.WriteLong(kIniSection, "CvLvOrien", m_orientation);
}

void COpzCvLv::GetVisDaIni() {
    CIniFile ini;
    for (unsigned i = 0; i < kCategoryCount; ++i) {
        m_categoryOn[i] = ini.GetBool(kIniSection, kCategoryOnKeys[i], true);
        m_categoryColor[i] = ReadIniColor(ini, kCategoryColorKeys[i]);
    }
    m_colorByLayer = ini.GetBool(kIniSection, "CvLvClrByLayer", true);
    m_colorClasses.GetDaIni(kColorClassPrefix);
}

void COpzCvLv::SetVisInIni() const {
    CIniFile ini;
    for (unsigned i = 0; i < kCategoryCount; ++i) {
        ini.WriteBool(kIniSection, kCategoryOnKeys[i], m_categoryOn[i]);
        ini.WriteLong(kIniSection, kCategoryColorKeys[i], m_categoryColor[i]);
    }
    ini.WriteBool(kIniSection, "CvLvClrByLayer", m_colorByLayer);
    m_colorClasses.SetInIni(kColorClassPrefix);
}

void COpzCvLv::SalvaInFile(ofpstream& stream) const {
    for (unsigned i = 0; i < kCategoryCount; ++i) {
        dtm::io::WriteBool32(stream, m_categoryOn[i]);
        dtm::io::WriteRaw<std::uint16_t>(stream, m_categoryColor[i]);
    }
}

void COpzCvLv::LeggeDaFile(ifpstream& stream, bool apply) {
    // Read into a scratch copy: a stream that ends inside the group leaves this object as it
    // was, and apply false consumes exactly the bytes that apply true would.
    COpzCvLv read(*this);
    if (read.ReadCategoryGroup(stream) && apply) *this = read;
}

bool COpzCvLv::ReadCategoryGroup(ifpstream& stream) {
    for (unsigned i = 0; i < kCategoryCount; ++i) {
        if (!dtm::io::ReadBool32(stream, m_categoryOn[i]) ||
            !dtm::io::ReadRaw(stream, m_categoryColor[i]))
            return false;
    }
    return true;
}

void COpzCvLv::SalvaVisInFile(ofpstream& stream) const {
    if (stream.GetVersion() < kVersionTextInOptions) return;
    // Both lengths are checked before the first byte, so that a refusal leaves no half group.
    StoredLength(m_prefix);
    StoredLength(m_suffix);

    dtm::io::WriteBool32(stream, m_colorByLayer);
    m_colorClasses.SalvaInFile(stream);
    dtm::io::WriteRaw<double>(stream, m_textHeight);
    dtm::io::WriteRaw<double>(stream, m_gap);
    dtm::io::WriteRaw<std::int32_t>(stream, m_decimals);
    WriteCountedText(stream, m_prefix);
    WriteCountedText(stream, m_suffix);
    dtm::io::WriteRaw<std::int32_t>(stream, m_vAlignment);
    dtm::io::WriteRaw<std::int32_t>(stream, m_orientation);
}

void COpzCvLv::LeggeVisDaFile(ifpstream& stream, bool apply) {
    if (stream.GetVersion() < kVersionTextInOptions) return;
    COpzCvLv read(*this);  // scratch copy, as in LeggeDaFile
    if (read.ReadVisGroup(stream) && apply) *this = read;
}

bool COpzCvLv::ReadVisGroup(ifpstream& stream) {
    if (!dtm::io::ReadBool32(stream, m_colorByLayer)) return false;
    // Into the scratch copy; a failure there leaves the stream failed, so the next read fails.
    m_colorClasses.LeggeDaFile(stream, true);
    return dtm::io::ReadRaw(stream, m_textHeight) && dtm::io::ReadRaw(stream, m_gap) &&
           dtm::io::ReadRaw(stream, m_decimals) && ReadCountedText(stream, m_prefix) &&
           ReadCountedText(stream, m_suffix) && ReadStoredVAlignment(stream, m_vAlignment) &&
           ReadStoredOrientation(stream, m_orientation);
}

kor::String COpzCvLv::GetFullQuotaText(double elevation) const {
    return m_prefix + StringDaDouble(elevation, m_decimals) + m_suffix;
}

double COpzCvLv::LabelExtent(std::size_t characters, double textHeight) {
    // Evaluated in the order of the formula, so that results match it to the last bit.
    return (static_cast<double>(characters) - kLabelTrailingSpacing + kLabelClearance) * textHeight;
}

double COpzCvLv::GetQuotaExtent(const char* text) const {
    if (m_vAlignment != TEXT_VALIGN_CENTRED) return 0.0;
    const std::size_t characters = text ? CountCharacters(text, std::strlen(text)) : 0;
    return LabelExtent(characters, m_textHeight);
}

double COpzCvLv::GetQuotaExtent(double elevation) const {
    if (m_vAlignment != TEXT_VALIGN_CENTRED) return 0.0;
    // The whole label is counted, so that a zero byte kept inside a prefix cannot shorten it.
    const kor::String label = GetFullQuotaText(elevation);
    return LabelExtent(CountCharacters(label.c_str(), label.length()), m_textHeight);
}

void COpzCvLv::SetTextOptions(double textHeight, double gap, std::int32_t decimals,
                              const kor::String& prefix, const kor::String& suffix,
                              enumTextVAlignment vAlignment, enumTextOrientation orientation) {
    m_textHeight = textHeight;
    m_gap = gap;
    m_decimals = decimals;
    m_prefix = prefix;
    m_suffix = suffix;
    m_vAlignment = vAlignment;
    m_orientation = orientation;
}

void COpzCvLv::SetVisOptions(bool categoryOn1, bool categoryOn2, bool categoryOn3, bool categoryOn4,
                             bool colorByLayer, std::uint16_t categoryColor1,
                             std::uint16_t categoryColor2, std::uint16_t categoryColor3,
                             std::uint16_t categoryColor4, const CColorClassComputer& classes) {
    m_categoryOn = {categoryOn1, categoryOn2, categoryOn3, categoryOn4};
    m_colorByLayer = colorByLayer;
    m_categoryColor = {categoryColor1, categoryColor2, categoryColor3, categoryColor4};
    m_colorClasses = classes;
}
