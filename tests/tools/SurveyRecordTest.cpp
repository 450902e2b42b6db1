// The parts of a survey record compare equal only when every field does: an export refuses
// surfaces in different units on that comparison, and the document tests compare whole records
// read back with it.

#include <gtest/gtest.h>

#include <functional>
#include <vector>

#include "SurveyRecord.h"
#include "ToolTestSupport.h"

namespace {

using dtmtool::BoundaryRole;
using dtmtool::SurveyBoundary;
using dtmtool::SurveyBreakline;
using dtmtool::SurveyUnits;
using tool_test::PNT_3D;

// @p base equals itself and a copy, and differs from each copy that @p changes alter in one
// field.
template <class T>
void ExpectEachFieldCounts(const T& base, const std::vector<std::function<void(T&)>>& changes) {
    const T copy = base;
    EXPECT_TRUE(copy == base);
    for (std::size_t i = 0; i < changes.size(); ++i) {
        T changed = base;
        changes[i](changed);
        EXPECT_FALSE(changed == base) << "change " << i;
        EXPECT_FALSE(base == changed) << "change " << i;
    }
}

TEST(SurveyRecordTest, UnitsDifferInTheirSystemOrInAnyAttribute) {
    const SurveyUnits metric{"Metric", {{"linearUnit", "meter"}, {"areaUnit", "squareMeter"}}};
    ExpectEachFieldCounts<SurveyUnits>(
        metric, {[](SurveyUnits& u) { u.system = "Imperial"; },
                 [](SurveyUnits& u) { u.attributes[0].second = "millimeter"; },
                 [](SurveyUnits& u) { u.attributes.pop_back(); }});
    EXPECT_TRUE((SurveyUnits{"Metric", {}} != metric));
}

TEST(SurveyRecordTest, BreaklinesDifferInTheirAttributesOrTheirSegmentCount) {
    const SurveyBreakline line{{{"name", "kerb"}, {"brkType", "standard"}}, 4};
    ExpectEachFieldCounts<SurveyBreakline>(
        line, {[](SurveyBreakline& b) { b.attributes[0].second = "ditch"; },
               [](SurveyBreakline& b) { b.segments = 5; }});
}

TEST(SurveyRecordTest, BoundariesDifferInRoleAttributesOrAnyCoordinate) {
    const SurveyBoundary ring{BoundaryRole::Kept,
                              {{"bndType", "texture"}},
                              {PNT_3D(1, 2, 3), PNT_3D(4, 5, 6), PNT_3D(7, 8, 9)}};
    ExpectEachFieldCounts<SurveyBoundary>(
        ring, {[](SurveyBoundary& b) { b.role = BoundaryRole::Internal; },
               [](SurveyBoundary& b) { b.attributes[0].second = "void"; },
               [](SurveyBoundary& b) { b.points.pop_back(); },
               [](SurveyBoundary& b) { b.points[1].x = 4.5; },
               [](SurveyBoundary& b) { b.points[1].y = 5.5; },
               [](SurveyBoundary& b) { b.points[2].z = 9.5; }});
}

}  // namespace
