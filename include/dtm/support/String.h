#pragma once

/// @file
/// The support kit's string and its two text helpers.

#include <dtm/support/Export.h>

#include <cstddef>
#include <string>

namespace kor {

/// UTF-8 text. `Compare` is byte-wise and case-sensitive; `CompareIgnoreCase` folds ASCII letters
/// only, so multi-byte characters compare byte by byte and are never broken apart.
class DTM_API String {
public:
    String() = default;
    String(const char* text);  // NOLINT(google-explicit-constructor): as text literals are used
    String(std::string text);  // NOLINT(google-explicit-constructor)

    const char* c_str() const noexcept { return m_text.c_str(); }
    const std::string& str() const noexcept { return m_text; }
    std::size_t length() const noexcept { return m_text.size(); }
    bool empty() const noexcept { return m_text.empty(); }

    /// Negative, zero or positive as this text sorts before, equal to or after @p other,
    /// comparing bytes as unsigned values.
    int Compare(const String& other) const noexcept;
    /// As Compare, with the ASCII letters A-Z taken as a-z.
    int CompareIgnoreCase(const String& other) const noexcept;

    String& operator+=(const String& other) {
        m_text += other.m_text;
        return *this;
    }
    friend String operator+(String left, const String& right) { return left += right; }
    friend bool operator==(const String& a, const String& b) { return a.m_text == b.m_text; }
    friend bool operator!=(const String& a, const String& b) { return a.m_text != b.m_text; }

private:
    std::string m_text;
};

}  // namespace kor

/// sprintf into @p buffer of @p size bytes, always terminated; returns the length the full text
/// needed (as snprintf), so a caller can tell that the text was cut.
DTM_API int kor_sprintf(char* buffer, std::size_t size, const char* format, ...)
#if defined(__GNUC__)
    __attribute__((format(printf, 3, 4)))
#endif
    ;

/// @p value with @p decimals digits after a '.' (never a locale's comma), rounded to nearest.
/// Negative @p decimals count as 0, and more than STRING_MAX_DECIMALS as that many.
DTM_API kor::String StringDaDouble(double value, int decimals);

/// The most decimals StringDaDouble writes: the longest fraction a double can have in decimal
/// (that of the smallest subnormal), so every digit up to it may be significant. Beyond it only
/// zeros would follow, and a damaged count (a label option read as two billion) must not build
/// a text of gigabytes.
constexpr int STRING_MAX_DECIMALS = 1074;
