#include <dtm/colourclasses/CColorClassComputer.h>

#include <dtm/support/IniFile.h>
#include <dtm/support/LumoEng.h>
#include <dtm/support/RawIO.h>
#include <dtm/support/Streams.h>
#include <dtm/support/String.h>
#include <dtm/support/Tolerances.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

const char* const kIniSection = "CURVE";

/// The first stream version whose documents hold colour-class sections.
constexpr short kFirstVersionWithColorClasses = 800;

/// The upper limit of SetNoSteps: more steps than this cannot be told apart on screen.
constexpr unsigned kMaxNoSteps = 4;
/// Step count of a new table.
constexpr unsigned kDefaultNoSteps = 4;
/// How many classes the INI reader takes at most, so that a damaged count cannot make it read
/// thousands of keys.
constexpr long kMaxIniClasses = 100;
/// The colour of an elevation when the table is empty (white on the usual dark background).
constexpr int kNoClassColor = 7;
/// Default colour of a class whose INI key is missing.
constexpr long kDefaultIniClassColor = 7;

/// Runs @p print (a kor_sprintf call taking a buffer and its size) and returns the whole text,
/// however long the prefix was.
template <class Print>
std::string Printed(Print print) {
    char small[64];
    const int needed = print(small, sizeof(small));
    if (needed < 0) return std::string();
    if (static_cast<std::size_t>(needed) < sizeof(small)) return std::string(small);
    std::vector<char> large(static_cast<std::size_t>(needed) + 1);
    print(large.data(), large.size());
    return std::string(large.data());
}

/// Key "<prefix><suffix>", e.g. "TriGrCol-nosteps".
std::string KeyOf(const char* prefix, const char* suffix) {
    return Printed([&](char* buffer, std::size_t size) {
        return kor_sprintf(buffer, size, "%s%s", prefix, suffix);
    });
}

/// Key "<prefix>-class<index><suffix>", e.g. "TriGrCol-class0-value".
std::string ClassKeyOf(const char* prefix, int index, const char* suffix) {
    return Printed([&](char* buffer, std::size_t size) {
        return kor_sprintf(buffer, size, "%s%s%d%s", prefix, "-class", index, suffix);
    });
}

/// floor(@p x) as a 32-bit integer, the width grades have always had. Values that do not fit
/// (possible only with absurd step counts read from a file, or infinities) saturate, and a NaN
/// gives 0, instead of the undefined behaviour of a plain conversion.
std::int32_t FloorToInt32(double x) {
    if (std::isnan(x)) return 0;
    const double floored = std::floor(x);
    if (floored >= 2147483648.0) return std::numeric_limits<std::int32_t>::max();
    if (floored < -2147483648.0) return std::numeric_limits<std::int32_t>::min();
    return static_cast<std::int32_t>(floored);
}

/// A class value that the state test counts as undefined. The test asks for values strictly
/// above the threshold, so the threshold itself still counts as a defined elevation here.
bool IsUndefinedClassValue(double value) {
    return value > dtm::UNDEFINED_QUOTE_THRESHOLD;
}

}  // namespace

CColorClassComputer::CColorClassComputer() : m_noSteps(kDefaultNoSteps), m_custom(true) {}

CColorClassComputer::CColorClassComputer(const CColorClassComputer& other) = default;

CColorClassComputer& CColorClassComputer::operator=(const CColorClassComputer& other) = default;

CColorClassComputer::~CColorClassComputer() = default;

bool CColorClassComputer::operator==(const CColorClassComputer& other) const {
    if (m_noSteps != other.m_noSteps) return false;
    if (m_entries.size() != other.m_entries.size()) return false;
    if (m_entries.size() > 1 && m_custom != other.m_custom) return false;
    for (std::size_t i = 0; i < m_entries.size(); ++i) {
        // Exact comparison on purpose: a table edited by a fraction is a different table.
        if (!(m_entries[i].value == other.m_entries[i].value)) return false;
        if (m_entries[i].color != other.m_entries[i].color) return false;
    }
    return true;
}

void CColorClassComputer::SetNoSteps(unsigned n) {
    m_noSteps = std::min(n, kMaxNoSteps);
}

void CColorClassComputer::AddEntry(int pos, int color) {
    Insert(pos, false, TClassInfo{UNDEFINED_QUOTE, color});
}

void CColorClassComputer::AddEntry(int pos, double value, int color) {
    Insert(pos, true, TClassInfo{value, color});
}

void CColorClassComputer::Insert(int pos, bool custom, const TClassInfo& entry) {
    // The first entry decides the mode; afterwards an entry of the other mode is refused, so
    // that a table never mixes graded and custom classes.
    if (!m_entries.empty() && m_custom != custom) return;
    if (pos < 0 || static_cast<std::size_t>(pos) > m_entries.size())
        throw std::out_of_range("CColorClassComputer::AddEntry: position out of range");
    m_custom = custom;
    m_entries.insert(m_entries.begin() + pos, entry);
}

void CColorClassComputer::RemoveEntry(int i) {
    if (IsValidIndex(i)) m_entries.erase(m_entries.begin() + i);
}

void CColorClassComputer::SetEntryColor(int i, int color) {
    if (IsValidIndex(i)) m_entries[static_cast<std::size_t>(i)].color = color;
}

void CColorClassComputer::SetEntryValue(int i, double value) {
    if (IsValidIndex(i)) m_entries[static_cast<std::size_t>(i)].value = value;
}

void CColorClassComputer::Reset() {
    m_custom = true;
    m_entries.clear();
}

CColorClassComputer::enumState CColorClassComputer::GetState() const {
    if (m_entries.size() < 2) return STATE_TOO_FEW_CLASSES;
    if (!m_custom) return STATE_VALID;
    if (IsUndefinedClassValue(m_entries[0].value)) return STATE_UNDEFINED_VALUE;
    for (std::size_t i = 1; i < m_entries.size(); ++i) {
        const double value = m_entries[i].value;
        if (IsUndefinedClassValue(value)) return STATE_UNDEFINED_VALUE;
        if (m_entries[i - 1].value >= value - dtm::ToleranceOf(value)) return STATE_NOT_INCREASING;
    }
    return STATE_VALID;
}

std::uint32_t CColorClassComputer::StepsPerClass() const {
    // noSteps is stored unclamped when read from a file, so noSteps + 1 can wrap to 0 in 32
    // bits. The graded lookup divides by it, so such a table is graded as if it had no
    // intermediate steps (a divisor of 1) and never divides by zero.
    const std::uint32_t steps = m_noSteps + 1u;
    return steps == 0 ? 1u : steps;
}

int CColorClassComputer::GetColor(double minZ, double maxZ, double z) const {
    if (m_entries.empty()) return kNoClassColor;
    return m_custom ? GetCustomColor(z) : GetGradedColor(minZ, maxZ, z);
}

int CColorClassComputer::GetGradedColor(double minZ, double maxZ, double z) const {
    const std::size_t count = m_entries.size();
    if (count < 2 || !(minZ < maxZ - dtm::ToleranceOf(maxZ))) return m_entries.front().color;
    if (z <= minZ + dtm::ToleranceOf(minZ)) return m_entries.front().color;
    if (z >= maxZ - dtm::ToleranceOf(maxZ)) return m_entries.back().color;

    // The number of grades is formed as an integer and converted once; the double expression
    // keeps this exact order (multiply, then divide, then add 0.5): another order rounds
    // differently on grade boundaries, and a drawing's colours must not change from one
    // release to the next.
    const std::uint32_t steps = StepsPerClass();
    const double grades = static_cast<double>(static_cast<std::uint64_t>(count - 1) * steps);
    const std::int64_t grade = FloorToInt32(grades * (z - minZ) / (maxZ - minZ) + 0.5);
    return GetColor(static_cast<int>(grade / steps), static_cast<int>(grade % steps));
}

int CColorClassComputer::GetCustomColor(double z) const {
    const TClassInfo& first = m_entries.front();
    const TClassInfo& last = m_entries.back();
    if (z <= first.value + dtm::ToleranceOf(first.value)) return first.color;
    if (z >= last.value - dtm::ToleranceOf(last.value)) return last.color;

    // The custom lookup never divides by the step count, so it keeps the count's own 32-bit
    // arithmetic: noSteps + 1 wraps to 0 for the largest count, every grade is then 0, and
    // every elevation takes its class's own colour.
    const std::uint32_t divisions = m_noSteps + 1u;
    for (std::size_t i = 1; i < m_entries.size(); ++i) {
        const double upper = m_entries[i].value;
        if (!(z <= upper + dtm::ToleranceOf(upper))) continue;
        const double lower = m_entries[i - 1].value;
        const double t = (z - lower) / (upper - lower);
        const std::int64_t grade = FloorToInt32(t * divisions + 0.5);
        // Both routes are kept as they are: below the top of the interval the class's own
        // index is returned; at the top the same class is reached by interpolating all the
        // way from the previous one, which passes its colour once through RGB. Custom tables
        // therefore show plain classes, no gradient.
        const int index = static_cast<int>(i);
        if (grade <= static_cast<std::int64_t>(m_noSteps)) return GetColor(index, 0);
        return GetColor(index - 1, static_cast<int>(grade));
    }
    // Only a NaN elevation or NaN class values get here: no interval holds the elevation.
    return first.color;
}

int CColorClassComputer::GetColor(int index, int step) const {
    if (index < 0) return m_entries.front().color;
    if (static_cast<std::size_t>(index) + 1 >= m_entries.size()) return m_entries.back().color;
    const TClassInfo& from = m_entries[static_cast<std::size_t>(index)];
    if (step == 0) return from.color;
    const TClassInfo& to = m_entries[static_cast<std::size_t>(index) + 1];

    long fromRgb[3];
    long toRgb[3];
    CLumoEng::Index_to_RGB(static_cast<short>(from.color), fromRgb[0], fromRgb[1], fromRgb[2]);
    CLumoEng::Index_to_RGB(static_cast<short>(to.color), toRgb[0], toRgb[1], toRgb[2]);

    // c0 + ((c1 - c0) * step) / (s + 1), division truncating towards zero. The components are
    // 32-bit values; the product is formed in 64 bits so that an unclamped step count read from
    // a file cannot overflow it. Within 32-bit range the result is the same.
    const std::int64_t divisor = StepsPerClass();
    std::uint32_t blended[3];
    for (int component = 0; component < 3; ++component) {
        const std::int64_t c0 = static_cast<std::int32_t>(fromRgb[component]);
        const std::int64_t c1 = static_cast<std::int32_t>(toRgb[component]);
        blended[component] = static_cast<std::uint32_t>(c0 + ((c1 - c0) * step) / divisor);
    }
    const std::uint32_t packed = (blended[0] << 16) | (blended[1] << 8) | blended[2];
    return CLumoEng::RGB_to_Index(packed);
}

void CColorClassComputer::GetDaIni(const char* prefix) {
    CIniFile ini;
    m_custom = ini.GetBool(kIniSection, KeyOf(prefix, "-custom").c_str(), true);
    // Stored as read, without the limit of SetNoSteps: a file may hold any count, and a
    // negative one comes back as its 32-bit unsigned value.
    m_noSteps = static_cast<std::uint32_t>(
        ini.GetLong(kIniSection, KeyOf(prefix, "-nosteps").c_str(), kDefaultNoSteps));
    const long count = ini.GetLong(kIniSection, KeyOf(prefix, "-noclasses").c_str(), -1);

    if (count >= 2) {
        const long stored = std::min(count, kMaxIniClasses);
        m_entries.assign(static_cast<std::size_t>(stored), TClassInfo{0.0, 0});
        for (int i = 0; i < static_cast<int>(stored); ++i) {
            TClassInfo& entry = m_entries[static_cast<std::size_t>(i)];
            entry.value = ini.GetDouble(kIniSection, ClassKeyOf(prefix, i, "-value").c_str(), 0.0);
            entry.color = static_cast<int>(ini.GetLong(
                kIniSection, ClassKeyOf(prefix, i, "-color").c_str(), kDefaultIniClassColor));
        }
        return;
    }
    // Too few classes to use: fall back to a graded table of three colours. The table is empty
    // at the first AddEntry, which therefore switches it to graded mode whatever was read.
    Reset();
    AddEntry(0, 1);
    AddEntry(1, 2);
    AddEntry(2, 3);
}

void CColorClassComputer::SetInIni(const char* prefix) const {
    CIniFile ini;
    ini.WriteBool(kIniSection, KeyOf(prefix, "-custom").c_str(), m_custom);
    // Written as its signed 32-bit value, the form GetDaIni reads back (the INI file keeps
    // 32-bit integers), so that even a step count of 0xFFFFFFFF survives a round trip.
    ini.WriteLong(kIniSection, KeyOf(prefix, "-nosteps").c_str(),
                  static_cast<long>(static_cast<std::int32_t>(m_noSteps)));
    ini.WriteLong(kIniSection, KeyOf(prefix, "-noclasses").c_str(),
                  static_cast<long>(m_entries.size()));
    for (std::size_t i = 0; i < m_entries.size(); ++i) {
        const int index = static_cast<int>(i);
        ini.WriteDouble(kIniSection, ClassKeyOf(prefix, index, "-value").c_str(),
                        m_entries[i].value);
        ini.WriteLong(kIniSection, ClassKeyOf(prefix, index, "-color").c_str(), m_entries[i].color);
    }
}

void CColorClassComputer::SalvaInFile(ofpstream& stream) const {
    if (stream.GetVersion() < kFirstVersionWithColorClasses) return;
    dtm::io::WriteRaw<std::uint32_t>(stream, m_noSteps);
    dtm::io::WriteBool32(stream, m_custom);
    dtm::io::WriteRaw<std::int32_t>(stream, static_cast<std::int32_t>(m_entries.size()));
    for (const TClassInfo& entry : m_entries) {
        dtm::io::WriteRaw<double>(stream, entry.value);
        dtm::io::WriteRaw<std::int32_t>(stream, entry.color);
    }
}

void CColorClassComputer::LeggeDaFile(ifpstream& stream, bool apply) {
    if (stream.GetVersion() < kFirstVersionWithColorClasses) return;

    // Everything is read into a scratch table first, so that a stream ending inside the
    // section leaves this table as it was, and apply false consumes exactly the same bytes.
    CColorClassComputer read;
    std::int32_t customFlag = 0;
    std::int32_t count = 0;
    if (!dtm::io::ReadRaw(stream, read.m_noSteps) || !dtm::io::ReadRaw(stream, customFlag) ||
        !dtm::io::ReadRaw(stream, count))
        return;
    read.m_custom = customFlag == 1;  // only 1 is true in this section
    // The table grows as entries arrive, never by the stored count: a damaged count larger
    // than the stream stops at the stream's end instead of reserving memory for it.
    for (std::int32_t i = 0; i < count; ++i) {
        TClassInfo entry{0.0, 0};
        std::int32_t color = 0;
        if (!dtm::io::ReadRaw(stream, entry.value) || !dtm::io::ReadRaw(stream, color)) return;
        entry.color = color;
        read.m_entries.push_back(entry);
    }
    if (apply) *this = read;
}
