#include "TextFormat.h"

#include <charconv>

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
