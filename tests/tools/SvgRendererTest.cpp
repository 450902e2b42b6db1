// The picture: well-formed SVG holding what the library hands the host to draw.

#include <gtest/gtest.h>

#include <map>
#include <pugixml.hpp>

#include "ContourLines.h"
#include "SurfaceProject.h"
#include "SvgRenderer.h"
#include "ToolError.h"
#include "ToolTestSupport.h"
#include "Workspace.h"

namespace {

using dtmtool::Workspace;

void AddHill(Workspace& workspace) {
    dtmtool::TinSurface surface = tool_test::GridSurface(
        20, 16, 5.0, 1000.0, 2000.0,
        [](double x, double y) {
            return 50.0 - 0.002 * ((x - 1050) * (x - 1050) + (y - 2040) * (y - 2040));
        },
        0.2, 3);
    surface.name = "Hill <1>";
    surface.externalBoundaries.push_back(
        {{1000, 2000, 0}, {1100, 2000, 0}, {1100, 2080, 0}, {1000, 2080, 0}});
    surface.internalBoundaries.push_back({{1040, 2030, 0}, {1045, 2030, 0}, {1042, 2035, 0}});
    surface.breaklines.push_back({{1010, 2010, 40}, {1090, 2070, 40}});
    CDtmPrj& prj = *dtmtool::AddSurfaceProject(workspace, surface);
    dtmtool::ContourSettings settings;
    settings.interval = 2.0;
    settings.labelEvery = 2;
    settings.textHeight = 1.5;
    dtmtool::MakeContourLines(prj, settings);
}

std::size_t TextIntervals(const CCvLvs& lines) {
    std::size_t count = 0;
    for (unsigned i = 0; i < lines.GetNoCvLvs(); ++i)
        for (unsigned k = 0; k < lines.GetCvLvAt(i)->GetNoIntervals(); ++k)
            if (lines.GetCvLvAt(i)->GetIntervalAt(k)->IsText()) ++count;
    return count;
}

TEST(SvgRendererTest, ThePictureIsWellFormedAndHoldsEveryLayer) {
    Workspace workspace;
    AddHill(workspace);
    const CDtmPrj& prj = *workspace.Library().GetPrj(0);
    dtmtool::RenderOptions options;
    options.width = 800;
    const std::string svg = dtmtool::SvgText(workspace.Library(), options, "doc.dtm");

    pugi::xml_document document;
    ASSERT_TRUE(document.load_string(svg.c_str()));
    const pugi::xml_node root = document.child("svg");
    ASSERT_TRUE(root);
    // The extent is 100 × 80 plan units, fitted to 800 pixels wide less the margins.
    EXPECT_DOUBLE_EQ(root.attribute("width").as_double(), 800.0);

    std::map<std::string, int> fills;
    int contourPaths = 0, labels = 0, holes = 0, outlines = 0, breaklines = 0;
    for (const pugi::xml_node node : root.children()) {
        const std::string name = node.name();
        const std::string stroke = node.attribute("stroke").as_string();
        const std::string fill = node.attribute("fill").as_string();
        if (name == "path" && fill == stroke && !fill.empty()) ++fills[fill];
        if (name == "path" && stroke == "#7a4a26") ++contourPaths;
        if (name == "path" && stroke == "#1f4e79") ++holes;
        if (name == "path" && stroke == "#1b4d1e") ++outlines;
        if (name == "path" && stroke == "#c62828") ++breaklines;
        if (name == "text" && std::string(node.attribute("text-anchor").as_string()) == "middle") {
            ++labels;
            EXPECT_EQ(std::string(node.child_value()).size(), 2u);  // "44", "48": no decimals
        }
    }
    EXPECT_GE(fills.size(), 3u);  // the triangles in several elevation colours
    EXPECT_EQ(contourPaths, static_cast<int>(prj.GetCvLvs()->GetNoCvLvs()));
    EXPECT_EQ(labels, static_cast<int>(TextIntervals(*prj.GetCvLvs())));
    EXPECT_GT(labels, 0);
    EXPECT_EQ(holes, 1);
    EXPECT_EQ(outlines, 1);
    EXPECT_EQ(breaklines, 1);
    EXPECT_NE(svg.find(">Hill &lt;1&gt;</text>"), std::string::npos);
}

TEST(SvgRendererTest, HiddenProjectsAreNotDrawn) {
    Workspace workspace;
    AddHill(workspace);
    workspace.Library().GetPrj(0)->SetVisible(false);
    EXPECT_THROW(dtmtool::SvgText(workspace.Library(), {}, "doc.dtm"), dtmtool::ToolError);
}

TEST(SvgRendererTest, ALibraryWithNothingToDrawIsReportedWithTheDocument) {
    Workspace workspace;
    workspace.AddProject("Empty");
    try {
        dtmtool::SvgText(workspace.Library(), {}, "doc.dtm");
        FAIL();
    } catch (const dtmtool::ToolError& error) {
        EXPECT_EQ(std::string(error.what()), "doc.dtm: holds nothing to draw");
    }
}

}  // namespace
