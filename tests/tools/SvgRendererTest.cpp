// The picture: well-formed SVG holding what the library hands the host to draw.

#include <gtest/gtest.h>

#include <array>
#include <cstdio>
#include <cstdlib>
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

// A path of M, L and Z commands read back: the letters in order and the points.
struct PathData {
    std::string commands;
    std::vector<std::array<double, 2>> points;
};

PathData ReadPath(const std::string& d) {
    PathData path;
    const char* at = d.c_str();
    while (*at != '\0') {
        const char command = *at++;
        path.commands += command;
        if (command == 'Z') continue;
        char* end = nullptr;
        const double x = std::strtod(at, &end);
        const double y = std::strtod(end, &end);
        path.points.push_back({x, y});
        at = end;
    }
    return path;
}

// The d attribute of the one path drawn in @p stroke.
std::string PathOfStroke(const pugi::xml_node& root, const std::string& stroke) {
    const pugi::xml_node path = root.find_child_by_attribute("path", "stroke", stroke.c_str());
    EXPECT_TRUE(path) << stroke;
    return path.attribute("d").as_string();
}

pugi::xml_node SvgRoot(pugi::xml_document& document, const std::string& svg) {
    EXPECT_TRUE(document.load_string(svg.c_str()));
    return document.child("svg");
}

// Each boundary is drawn as the ring the survey gave, once round and closed, in its place: the
// hole where it lies within the outline, north up.
TEST(SvgRendererTest, BoundariesAreDrawnAsTheirRingsInPlace) {
    Workspace workspace;
    AddHill(workspace);
    dtmtool::RenderOptions options;
    options.width = 800;
    pugi::xml_document document;
    const pugi::xml_node root =
        SvgRoot(document, dtmtool::SvgText(workspace.Library(), options, "doc.dtm"));

    const PathData outline = ReadPath(PathOfStroke(root, "#1b4d1e"));
    ASSERT_EQ(outline.commands, "MLLLZ");
    const auto [left, bottom] = outline.points[0];  // (1000, 2000)
    const double scale = (outline.points[1][0] - left) / 100.0;
    ASSERT_GT(scale, 0.0);
    const auto at = [&, left = left, bottom = bottom](double x, double y) {
        return std::array<double, 2>{left + (x - 1000.0) * scale, bottom - (y - 2000.0) * scale};
    };
    const std::vector<std::array<double, 2>> ring = {at(1000, 2000), at(1100, 2000), at(1100, 2080),
                                                     at(1000, 2080)};
    const std::vector<std::array<double, 2>> hole = {at(1040, 2030), at(1045, 2030),
                                                     at(1042, 2035)};
    const auto expectNear = [](const PathData& path,
                               const std::vector<std::array<double, 2>>& expected) {
        ASSERT_EQ(path.points.size(), expected.size());
        for (std::size_t i = 0; i < expected.size(); ++i)
            for (int k = 0; k < 2; ++k)
                EXPECT_NEAR(path.points[i][k], expected[i][k], 0.06) << i << ", " << k;
    };
    expectNear(outline, ring);
    const PathData holePath = ReadPath(PathOfStroke(root, "#1f4e79"));
    EXPECT_EQ(holePath.commands, "MLLZ");
    expectNear(holePath, hole);
}

// Every triangle is drawn once, as a closed path of its three corners, in the path of its
// colour.
TEST(SvgRendererTest, EveryTriangleIsDrawnOnceAsAClosedPath) {
    Workspace workspace;
    AddHill(workspace);
    pugi::xml_document document;
    const pugi::xml_node root =
        SvgRoot(document, dtmtool::SvgText(workspace.Library(), {}, "doc.dtm"));
    std::size_t triangles = 0;
    for (const pugi::xml_node path : root.children("path")) {
        const std::string fill = path.attribute("fill").as_string();
        if (fill != path.attribute("stroke").as_string()) continue;
        const PathData data = ReadPath(path.attribute("d").as_string());
        ASSERT_EQ(data.commands.size() % 4, 0u);
        for (std::size_t k = 0; k < data.commands.size(); k += 4)
            ASSERT_EQ(data.commands.substr(k, 4), "MLLZ") << fill << " at " << k;
        triangles += data.points.size() / 3;
    }
    EXPECT_EQ(triangles,
              static_cast<std::size_t>(workspace.Library().GetPrj(0)->GetTris()->GetNoTris()));
}

// The drawing takes in a boundary that reaches beyond the network, an outline or a hole alike:
// the ring spans the picture from margin to margin.
TEST(SvgRendererTest, ABoundaryBeyondTheNetworkIsInThePicture) {
    for (const bool internal : {false, true}) {
        Workspace workspace;
        dtmtool::TinSurface surface =
            tool_test::GridSurface(3, 3, 10.0, 0.0, 0.0, [](double x, double) { return x; });
        const dtmtool::Polyline3D ring = {{-20, -10, 0}, {70, -10, 0}, {70, 40, 0}, {-20, 40, 0}};
        (internal ? surface.internalBoundaries : surface.externalBoundaries).push_back(ring);
        dtmtool::AddSurfaceProject(workspace, surface);
        pugi::xml_document document;
        const pugi::xml_node root =
            SvgRoot(document, dtmtool::SvgText(workspace.Library(), {}, "doc.dtm"));
        const double width = root.attribute("width").as_double();
        const PathData drawn = ReadPath(PathOfStroke(root, internal ? "#1f4e79" : "#1b4d1e"));
        ASSERT_EQ(drawn.points.size(), 4u) << internal;
        const double left = drawn.points[0][0];
        const double right = drawn.points[1][0];
        EXPECT_GT(left, 0.0) << internal;
        EXPECT_NEAR(width - right, left, 0.11) << internal;
    }
}

// The triangles' edges are drawn up to the set number of triangles, that number included.
TEST(SvgRendererTest, EdgesAreDrawnUpToTheirTriangleCountIncluded) {
    Workspace workspace;
    AddHill(workspace);
    const int triangles = workspace.Library().GetPrj(0)->GetTris()->GetNoTris();
    const auto hasEdges = [&](int most) {
        dtmtool::RenderOptions options;
        options.maxTrianglesWithEdges = most;
        pugi::xml_document document;
        return static_cast<bool>(
            SvgRoot(document, dtmtool::SvgText(workspace.Library(), options, "doc.dtm"))
                .find_child_by_attribute("path", "stroke", "#000"));
    };
    EXPECT_TRUE(hasEdges(triangles));
    EXPECT_FALSE(hasEdges(triangles - 1));
}

// The legend shows the elevations of the first visible project that has triangles coloured by
// classes, at its two ends.
TEST(SvgRendererTest, TheLegendIsOfTheFirstVisibleColouredNetwork) {
    Workspace workspace;
    workspace.AddProject("Empty");
    AddHill(workspace);
    dtmtool::TinSurface plane = tool_test::GridSurface(
        4, 4, 10.0, 1000.0, 2000.0, [](double x, double) { return 200.0 + x / 100.0; });
    plane.name = "Plane";
    dtmtool::AddSurfaceProject(workspace, plane);
    const auto legendEnds = [&]() {
        pugi::xml_document document;
        const pugi::xml_node root =
            SvgRoot(document, dtmtool::SvgText(workspace.Library(), {}, "doc.dtm"));
        const pugi::xml_node low = root.find_child_by_attribute("text", "text-anchor", "end");
        EXPECT_TRUE(low);
        return std::string(low.child_value()) + " " + low.next_sibling("text").child_value();
    };
    const auto ends = [](const CDtmPrj& prj) {
        char text[64];
        std::snprintf(text, sizeof text, "%.1f %.1f", prj.GetTris()->GetMinQuota(),
                      prj.GetTris()->GetMaxQuota());
        return std::string(text);
    };
    CLibDtm& library = workspace.Library();
    EXPECT_EQ(legendEnds(), ends(*library.GetPrj(1)));
    library.GetPrj(1)->SetVisible(false);
    EXPECT_EQ(legendEnds(), ends(*library.GetPrj(2)));
    EXPECT_EQ(legendEnds(), "210.0 210.4");

    // With no visible network coloured by classes there is no legend at all.
    library.GetPrj(2)->GetTris()->GetOptions().SetColorType(COpzTri::TRI_COLOR_FIXED);
    pugi::xml_document document;
    const pugi::xml_node root =
        SvgRoot(document, dtmtool::SvgText(workspace.Library(), {}, "doc.dtm"));
    EXPECT_FALSE(root.find_child_by_attribute("text", "text-anchor", "end"));
    EXPECT_TRUE(root.find_child_by_attribute("path", "stroke", "#000"));
}

// A tall, narrow survey is drawn to the height of a square and in the middle of a picture of
// the width asked for, which its legend fits, down to the narrowest picture there is.
TEST(SvgRendererTest, ATallSurveyIsDrawnInTheMiddleOfAPictureOfTheWidthAskedFor) {
    Workspace workspace;
    dtmtool::TinSurface surface = tool_test::GridSurface(
        2, 30, 10.0, 0.0, 0.0, [](double, double y) { return 100.0 + y / 10.0; });
    surface.externalBoundaries.push_back({{0, 0, 0}, {20, 0, 0}, {20, 300, 0}, {0, 300, 0}});
    dtmtool::AddSurfaceProject(workspace, surface);
    for (const int width : {200, 800}) {
        SCOPED_TRACE(width);
        dtmtool::RenderOptions options;
        options.width = width;
        pugi::xml_document document;
        const pugi::xml_node root =
            SvgRoot(document, dtmtool::SvgText(workspace.Library(), options, "doc.dtm"));
        EXPECT_DOUBLE_EQ(root.attribute("width").as_double(), width);
        // The outline, 20 × 300, is 300 units high in a square of the width less the margins
        // of 24 pixels, and as far from either side.
        const PathData outline = ReadPath(PathOfStroke(root, "#1b4d1e"));
        ASSERT_EQ(outline.points.size(), 4u);
        const double scale = (width - 48.0) / 300.0;
        EXPECT_NEAR(outline.points[1][0] - outline.points[0][0], 20.0 * scale, 0.11);
        EXPECT_NEAR(outline.points[0][1] - outline.points[2][1], 300.0 * scale, 0.11);
        EXPECT_NEAR(width - outline.points[1][0], outline.points[0][0], 0.11);
        // Every cell of the legend, and the elevation after it, lie within the picture.
        double right = 0.0;
        for (const pugi::xml_node rect : root.children("rect"))
            if (rect.attribute("x"))
                right = std::max(right, rect.attribute("x").as_double() +
                                            rect.attribute("width").as_double(0.0));
        const pugi::xml_node low = root.find_child_by_attribute("text", "text-anchor", "end");
        ASSERT_TRUE(low);
        const pugi::xml_node high = low.next_sibling("text");
        EXPECT_STREQ(high.child_value(), "130.0");
        EXPECT_LT(right, high.attribute("x").as_double());
        EXPECT_LE(high.attribute("x").as_double() + 50.0, width);
        EXPECT_GT(low.attribute("x").as_double(), 50.0);
    }
}

// The title sits above the drawing at the left margin; one too wide for the picture, at about
// 11.7 pixels a bold character, is squeezed to the width between the margins.
TEST(SvgRendererTest, ATitleWiderThanThePictureIsSqueezedToFit) {
    Workspace workspace;
    AddHill(workspace);
    struct Case {
        std::string title;
        int width;
        bool squeezed;
    };
    // Twelve characters fit the 152 pixels within a picture 200 wide and thirteen do not,
    // counted as characters: twelve two-byte ones fit as well.
    const std::string twoBytes = "\xc3\xa4";
    std::string twelve, thirteen;
    for (int i = 0; i < 12; ++i) twelve += twoBytes;
    thirteen = twelve + twoBytes;
    for (const Case& c : {Case{"", 200, false}, Case{twelve, 200, false}, Case{thirteen, 200, true},
                          Case{"abcdefghijklm", 200, true}, Case{"abcdefghijklm", 800, false}}) {
        SCOPED_TRACE(c.title + " at " + std::to_string(c.width));
        dtmtool::RenderOptions options;
        options.width = c.width;
        options.title = c.title;
        pugi::xml_document document;
        const pugi::xml_node root =
            SvgRoot(document, dtmtool::SvgText(workspace.Library(), options, "doc.dtm"));
        const pugi::xml_node title = root.find_child_by_attribute("text", "font-weight", "bold");
        ASSERT_TRUE(title);
        // No title given: the project's name.
        EXPECT_EQ(std::string(title.child_value()), c.title.empty() ? "Hill <1>" : c.title);
        EXPECT_DOUBLE_EQ(title.attribute("x").as_double(), 24.0);
        if (c.squeezed) {
            EXPECT_DOUBLE_EQ(title.attribute("textLength").as_double(), c.width - 48.0);
            EXPECT_STREQ(title.attribute("lengthAdjust").as_string(), "spacingAndGlyphs");
        } else {
            EXPECT_FALSE(title.attribute("textLength"));
            EXPECT_FALSE(title.attribute("lengthAdjust"));
        }
    }
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
