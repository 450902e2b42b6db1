#include "SurveyRecord.h"

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
    if (role != other.role || attributes != other.attributes ||
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

const SurveyRecord* FindSurveyRecord(const SurveyRecords& records, const CDtmPrj& prj) {
    const auto found = records.find(&prj);
    return found == records.end() ? nullptr : &found->second;
}

}  // namespace dtmtool
