#pragma once

// What a project keeps of the survey file it came from besides what the library holds: the
// units the file states and the survey's own point ids. A surveyor's point numbers and the
// unit of the coordinates are part of the survey; an export that lost them would hand a
// receiving program coordinates it may read in the wrong unit, with points it cannot match
// to the field book.

#include <map>
#include <string>
#include <utility>
#include <vector>

class CDtmPrj;

namespace dtmtool {

/// The units a LandXML file states: the element inside <Units> ("Metric" or "Imperial") and its
/// attributes in file order, kept as text so that a unit this program has not heard of comes
/// out as it went in. An empty system means the units are not known.
struct SurveyUnits {
    std::string system;
    std::vector<std::pair<std::string, std::string>> attributes;

    bool IsKnown() const noexcept { return !system.empty(); }
    /// The value of attribute @p name, or an empty text.
    std::string Attribute(const std::string& name) const;
    /// "Imperial, linearUnit USSurveyFoot" and so on; "not recorded" when unknown.
    std::string Describe() const;
    bool operator==(const SurveyUnits& other) const {
        return system == other.system && attributes == other.attributes;
    }
    bool operator!=(const SurveyUnits& other) const { return !(*this == other); }
};

/// The survey facts of one project.
struct SurveyRecord {
    SurveyUnits units;
    /// The survey's id of each vertex, in vertex order; empty when the points have no ids of
    /// their own (they are then numbered 1..n on export).
    std::vector<long long> pointIds;

    bool IsEmpty() const noexcept { return !units.IsKnown() && pointIds.empty(); }
};

/// The records of the projects of one library, by project.
using SurveyRecords = std::map<const CDtmPrj*, SurveyRecord>;

/// The record of @p prj in @p records, or null when it has none.
const SurveyRecord* FindSurveyRecord(const SurveyRecords& records, const CDtmPrj& prj);

}  // namespace dtmtool
