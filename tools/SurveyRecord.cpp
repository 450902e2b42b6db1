#include "SurveyRecord.h"

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
