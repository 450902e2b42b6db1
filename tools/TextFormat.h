#pragma once

// Number and text formatting shared by the tool's text outputs (LandXML, SVG, CSV).

#include <cstdint>
#include <string>

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
/// @p text with the characters XML reserves replaced by entities, for element text and
/// attribute values alike.
std::string XmlEscaped(const std::string& text);

}  // namespace dtmtool
