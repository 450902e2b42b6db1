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

bool IsUsableCoordinate(double value) {
    return std::isfinite(value) && std::fabs(value) <= kLargestCoordinate;
}

bool ReadCoordinate(std::string_view text, double& value) {
    double read = 0.0;
    if (ReadNumber(text, read) != NumberText::Finite || !IsUsableCoordinate(read)) return false;
    value = read;
    return true;
}

namespace {

constexpr const char* kReplacementCharacter = "\xEF\xBF\xBD";  // U+FFFD, in UTF-8

// The length of the well-formed UTF-8 sequence at @p at of a character XML 1.0 allows, or 0.
// Overlong forms, surrogates, code points past U+10FFFF and the non-characters U+FFFE and
// U+FFFF are not well-formed here.
std::size_t XmlCharacterLength(const std::string& text, std::size_t at) {
    const auto byte = [&text](std::size_t i) {
        return i < text.size() ? static_cast<unsigned char>(text[i]) : 0u;
    };
    const unsigned lead = byte(at);
    std::size_t length = 0;
    unsigned code = 0;
    unsigned lowest = 0;
    if (lead < 0x80) {
        // Below the space only the tab, the line feed and the carriage return are characters.
        return lead >= 0x20 || lead == '\t' || lead == '\n' || lead == '\r' ? 1 : 0;
    } else if ((lead & 0xE0) == 0xC0) {
        length = 2, code = lead & 0x1F, lowest = 0x80;
    } else if ((lead & 0xF0) == 0xE0) {
        length = 3, code = lead & 0x0F, lowest = 0x800;
    } else if ((lead & 0xF8) == 0xF0) {
        length = 4, code = lead & 0x07, lowest = 0x10000;
    } else {
        return 0;
    }
    for (std::size_t i = 1; i < length; ++i) {
        const unsigned next = byte(at + i);
        if ((next & 0xC0) != 0x80) return 0;
        code = (code << 6) | (next & 0x3F);
    }
    const bool surrogate = code >= 0xD800 && code <= 0xDFFF;
    if (code < lowest || code > 0x10FFFF || surrogate || code == 0xFFFE || code == 0xFFFF) return 0;
    return length;
}

}  // namespace

std::string XmlEscaped(const std::string& text) {
    std::string escaped;
    escaped.reserve(text.size());
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t length = XmlCharacterLength(text, at);
        if (length == 0) {
            escaped += kReplacementCharacter;
            ++at;
            continue;
        }
        if (length > 1) {
            escaped.append(text, at, length);
            at += length;
            continue;
        }
        switch (const char c = text[at++]) {
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
            // A reader turns these into spaces in an attribute value unless they come as
            // references.
            case '\t':
                escaped += "&#9;";
                break;
            case '\n':
                escaped += "&#10;";
                break;
            case '\r':
                escaped += "&#13;";
                break;
            default:
                escaped += c;
        }
    }
    return escaped;
}

}  // namespace dtmtool
