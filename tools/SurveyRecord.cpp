#include "SurveyRecord.h"

#include "TextFormat.h"

#include <algorithm>
#include <initializer_list>

namespace dtmtool {

namespace {

std::string ValueOf(const SurveyAttributes& attributes, const std::string& name) {
    for (const auto& attribute : attributes)
        if (attribute.first == name) return attribute.second;
    return {};
}

}  // namespace

std::string SurveyUnits::Attribute(const std::string& name) const {
    return ValueOf(attributes, name);
}

std::string SurveyUnits::Describe() const {
    if (!IsKnown()) return "not recorded";
    std::string text = system;
    // The unit of the coordinates and elevations is what a reader of the numbers needs; the
    // others (area, volume, angles) stay in the record for the export.
    for (const char* name : {"linearUnit", "elevationUnit"}) {
        const std::string value = Attribute(name);
        if (!value.empty()) text += std::string(", ") + name + " " + value;
    }
    return text;
}

std::string DescribeCoordinateSystem(const SurveyAttributes& coordinateSystem) {
    if (coordinateSystem.empty()) return "not recorded";
    // The first of several attributes that give the same fact a name.
    const auto firstOf = [&coordinateSystem](std::initializer_list<const char*> names) {
        for (const char* name : names) {
            const std::string value = ValueOf(coordinateSystem, name);
            if (!value.empty()) return value;
        }
        return std::string();
    };
    // What a person checks the projection by; the rest (a WKT definition of a few hundred
    // characters, file locations) stays in the record for the export.
    std::vector<std::string> parts;
    const std::string name = firstOf({"name", "desc", "horizontalCoordinateSystemName"});
    if (!name.empty()) parts.push_back(name);
    const std::string epsg = ValueOf(coordinateSystem, "epsgCode");
    if (!epsg.empty()) parts.push_back("EPSG " + epsg);
    const std::string vertical = firstOf({"verticalCoordinateSystemName", "verticalDatum"});
    if (!vertical.empty()) parts.push_back("vertical " + vertical);
    if (parts.empty())
        for (const auto& attribute : coordinateSystem)
            parts.push_back(attribute.first + " " + attribute.second);
    std::string text;
    for (const std::string& part : parts) text += (text.empty() ? "" : ", ") + part;
    return text;
}

bool SurveyBoundary::operator==(const SurveyBoundary& other) const {
    if (role != other.role || attributes != other.attributes || elements != other.elements ||
        points.size() != other.points.size())
        return false;
    for (std::size_t i = 0; i < points.size(); ++i)
        if (points[i].x != other.points[i].x || points[i].y != other.points[i].y ||
            points[i].z != other.points[i].z)
            return false;
    return true;
}

std::string SurveyRecord::SurfaceAttribute(const std::string& name) const {
    return ValueOf(surfaceAttributes, name);
}

std::size_t SurveyRecord::CountBoundaries(BoundaryRole role) const noexcept {
    std::size_t count = 0;
    for (const SurveyBoundary& boundary : boundaries) count += boundary.role == role;
    return count;
}

bool SurveyRecord::BoundariesFollow(std::size_t external, std::size_t internal) const noexcept {
    return CountBoundaries(BoundaryRole::External) == external &&
           CountBoundaries(BoundaryRole::Internal) == internal;
}

bool SurveyRecord::HoldsElements() const noexcept {
    const auto holds = [](const auto& item) { return !item.elements.empty(); };
    return !sourceElements.empty() || !surfaceElements.empty() || !fileElements.empty() ||
           !groupElements.empty() || std::any_of(breaklines.begin(), breaklines.end(), holds) ||
           std::any_of(boundaries.begin(), boundaries.end(), holds);
}

namespace {

// The name of the element that @p text, the XML of one element, starts with.
std::string ElementName(const std::string& text) {
    const std::size_t end = text.find_first_of(" \t\n\r/>", 1);
    return text.substr(1, end == std::string::npos ? std::string::npos : end - 1);
}

}  // namespace

std::string DescribeKeptElements(const SurveyRecord& record) {
    std::vector<std::pair<std::string, std::size_t>> counts;
    const auto count = [&counts](const SurveyElements& elements) {
        for (const std::string& element : elements) {
            const std::string name = ElementName(element);
            const auto found =
                std::find_if(counts.begin(), counts.end(),
                             [&name](const auto& kept) { return kept.first == name; });
            if (found != counts.end())
                ++found->second;
            else
                counts.emplace_back(name, 1);
        }
    };
    count(record.fileElements);
    count(record.groupElements);
    count(record.surfaceElements);
    count(record.sourceElements);
    for (const SurveyBoundary& boundary : record.boundaries) count(boundary.elements);
    for (const SurveyBreakline& line : record.breaklines) count(line.elements);
    std::string text;
    for (const auto& kept : counts) {
        text += (text.empty() ? "" : ", ") + kept.first;
        if (kept.second > 1) text += " (" + Count(kept.second) + ")";
    }
    return text;
}

const SurveyRecord* FindSurveyRecord(const SurveyRecords& records, const CDtmPrj& prj) {
    const auto found = records.find(&prj);
    return found == records.end() ? nullptr : &found->second;
}

}  // namespace dtmtool
