#pragma once

// Number and text formatting shared by the tool's text outputs (LandXML, SVG, CSV).

#include <cstdint>
#include <string>
#include <string_view>

namespace dtmtool {

/// Appends the shortest decimal text that reads back as exactly @p value.
void AppendExact(std::string& text, double value);
/// The shortest decimal text that reads back as exactly @p value.
std::string Exact(double value);
/// Appends @p value with @p decimals digits after the point.
void AppendFixed(std::string& text, double value, int decimals);
/// @p value with @p decimals digits after the point, as a string.
std::string Fixed(double value, int decimals);
/// @p count with thousands separated by commas ("33,000"), for reports a person reads.
std::string Count(std::uint64_t count);
/// "@p count @p singular" for a count of one, "@p count @p plural" otherwise, the count
/// grouped as Count groups it ("1 point", "0 points", "1,200 points").
std::string Counted(std::uint64_t count, const std::string& singular, const std::string& plural);
/// @p text in single quotes for a message, cut short with "..." when it is long, so that a
/// message quoting what a person typed stays one readable line.
std::string QuotedForMessage(std::string_view text);

/// What reading a piece of text as a number found.
enum class NumberText {
    /// A finite number, now in the value.
    Finite,
    /// Text written as a number that is not a finite double: "inf", "nan", or a value beyond
    /// what a double holds ("1e999", a 400-digit integer, "1e-999").
    NotFinite,
    /// Anything else, including a number followed by other characters.
    NotANumber,
};
/// Reads the whole of @p text as a decimal number: an optional sign, digits with an optional
/// point, an optional exponent ("-12.5", "+3", "1e-3"), no spaces. @p value is set only for
/// a finite number.
NumberText ReadNumber(std::string_view text, double& value);

/// The largest magnitude a coordinate may have, wherever it comes from (a survey file, the
/// command line, a point list). Survey coordinates in any unit stay far below it, and within it
/// the products of coordinate differences that elevations, profiles and drawings are computed
/// from stay finite; beyond it they overflow into answers that are no numbers at all.
constexpr double kLargestCoordinate = 1e15;

/// Whether @p value is a finite number within kLargestCoordinate of zero.
bool IsUsableCoordinate(double value);

/// Reads the whole of @p text as ReadNumber does and says whether it is a usable coordinate;
/// @p value is set only then.
bool ReadCoordinate(std::string_view text, double& value);

/// @p text made fit for element text and attribute values alike: the characters XML reserves
/// become entities, and the tab, line feed and carriage return character references, so that
/// they come back as they were from an attribute value too. What a document of XML 1.0 cannot
/// hold (other control characters, bytes that are not well-formed UTF-8, surrogates, U+FFFE
/// and U+FFFF) becomes U+FFFD, one for each byte, so that the document stays readable.
std::string XmlEscaped(const std::string& text);

}  // namespace dtmtool
