#include "SurveyRecord.h"

namespace dtmtool {

std::string SurveyUnits::Attribute(const std::string& name) const {
    for (const auto& attribute : attributes)
        if (attribute.first == name) return attribute.second;
    return {};
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

const SurveyRecord* FindSurveyRecord(const SurveyRecords& records, const CDtmPrj& prj) {
    const auto found = records.find(&prj);
    return found == records.end() ? nullptr : &found->second;
}

}  // namespace dtmtool
