#include <dtm/support/String.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <locale>
#include <sstream>

namespace kor {

namespace {

unsigned char FoldAscii(unsigned char c) {
    return (c >= 'A' && c <= 'Z') ? static_cast<unsigned char>(c - 'A' + 'a') : c;
}

template <class Fold>
int CompareBytes(const std::string& a, const std::string& b, Fold fold) {
    const std::size_t common = std::min(a.size(), b.size());
    for (std::size_t i = 0; i < common; ++i) {
        const unsigned char ca = fold(static_cast<unsigned char>(a[i]));
        const unsigned char cb = fold(static_cast<unsigned char>(b[i]));
        if (ca != cb) return ca < cb ? -1 : 1;
    }
    if (a.size() == b.size()) return 0;
    return a.size() < b.size() ? -1 : 1;
}

}  // namespace

String::String(const char* text) : m_text(text ? text : "") {}
String::String(std::string text) : m_text(std::move(text)) {}

int String::Compare(const String& other) const noexcept {
    return CompareBytes(m_text, other.m_text, [](unsigned char c) { return c; });
}

int String::CompareIgnoreCase(const String& other) const noexcept {
    return CompareBytes(m_text, other.m_text, FoldAscii);
}

}  // namespace kor

int kor_sprintf(char* buffer, std::size_t size, const char* format, ...) {
    va_list args;
    va_start(args, format);
    const int needed = std::vsnprintf(buffer, size, format, args);
    va_end(args);
    return needed;
}

kor::String StringDaDouble(double value, int decimals) {
    // A classic-locale stream gives '.' whatever the host process set with setlocale.
    std::ostringstream text;
    text.imbue(std::locale::classic());
    text.setf(std::ios::fixed, std::ios::floatfield);
    text.precision(std::min(std::max(decimals, 0), STRING_MAX_DECIMALS));
    text << value;
    std::string formatted = text.str();
    // A value that rounds to zero is shown without a sign: a label "-0.00" would puzzle a user.
    if (!formatted.empty() && formatted[0] == '-' &&
        formatted.find_first_not_of("-0.") == std::string::npos)
        formatted.erase(0, 1);
    return kor::String(formatted);
}
