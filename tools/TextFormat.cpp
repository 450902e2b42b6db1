#include "TextFormat.h"

#include <charconv>
#include <cmath>

namespace dtmtool {

void AppendExact(std::string& text, double value) {
    char buffer[32];
    const std::to_chars_result written = std::to_chars(buffer, buffer + sizeof(buffer), value);
    text.append(buffer, written.ptr);
}

std::string Exact(double value) {
    std::string text;
    AppendExact(text, value);
    return text;
}

void AppendFixed(std::string& text, double value, int decimals) {
    // 32 characters hold any fixed value of the magnitudes the tool writes; a value beyond
    // them (an undefined elevation's 1.7e200) is written in the shortest form instead.
    char buffer[48];
    const std::to_chars_result written =
        std::to_chars(buffer, buffer + sizeof(buffer), value, std::chars_format::fixed, decimals);
    if (written.ec != std::errc()) {
        AppendExact(text, value);
        return;
    }
    text.append(buffer, written.ptr);
}

std::string Fixed(double value, int decimals) {
    std::string text;
    AppendFixed(text, value, decimals);
    return text;
}

std::string Count(std::uint64_t count) {
    std::string digits = std::to_string(count);
    for (int at = static_cast<int>(digits.size()) - 3; at > 0; at -= 3)
        digits.insert(static_cast<std::size_t>(at), ",");
    return digits;
}

std::string Counted(std::uint64_t count, const std::string& singular, const std::string& plural) {
    return Count(count) + " " + (count == 1 ? singular : plural);
}

std::string QuotedForMessage(std::string_view text) {
    // Long enough for any coordinate or line of a point list a person means to type; what is
    // longer is shown by its start.
    constexpr std::size_t kLongest = 40;
    if (text.size() <= kLongest) return "'" + std::string(text) + "'";
    return "'" + std::string(text.substr(0, kLongest - 3)) + "...'";
}

NumberText ReadNumber(std::string_view text, double& value) {
    // from_chars reads no leading '+', which people write and strtod accepts.
    if (text.size() > 1 && text[0] == '+' && text[1] != '-') text.remove_prefix(1);
    const char* end = text.data() + text.size();
    double read = 0.0;
    const std::from_chars_result result = std::from_chars(text.data(), end, read);
    if (text.empty() || result.ptr != end) return NumberText::NotANumber;
    // Out of range is a well-formed number too large (or too close to zero) for a double.
    if (result.ec == std::errc::result_out_of_range) return NumberText::NotFinite;
    if (result.ec != std::errc()) return NumberText::NotANumber;
    if (!std::isfinite(read)) return NumberText::NotFinite;
    value = read;
    return NumberText::Finite;
}

std::string XmlEscaped(const std::string& text) {
    std::string escaped;
    escaped.reserve(text.size());
    for (const char c : text) {
        switch (c) {
            case '&':
                escaped += "&amp;";
                break;
            case '<':
                escaped += "&lt;";
                break;
            case '>':
                escaped += "&gt;";
                break;
            case '"':
                escaped += "&quot;";
                break;
            case '\'':
                escaped += "&apos;";
                break;
            default:
                escaped += c;
        }
    }
    return escaped;
}

}  // namespace dtmtool
