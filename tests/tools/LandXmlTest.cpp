// Reading and writing LandXML surfaces, checked against texts the tests assemble by hand.

#include <gtest/gtest.h>
#include <pugixml.hpp>

#include "LandXml.h"
#include "Progress.h"
#include "TempDir.h"
#include "ToolError.h"
#include "ToolTestSupport.h"

namespace {

using dtmtool::ParseLandXml;
using dtmtool::TinSurface;
using dtmtool::ToolError;
using tool_test::LandXmlOf;
using tool_test::LandXmlStyle;
using tool_test::PNT_3D;

const std::string kFile = "survey.xml";

TinSurface SmallSurface() {
    TinSurface surface = tool_test::GridSurface(
        3, 2, 10.0, 148066.238, 6399017.829, [](double x, double y) { return 0.01 * x - 0.02 * y; },
        0.3, 3);
    surface.name = "Survey & Co";
    surface.breaklines.push_back({surface.points[0], surface.points[5], surface.points[10]});
    surface.externalBoundaries.push_back(
        {surface.points[0], surface.points[3], surface.points[11], surface.points[8]});
    surface.internalBoundaries.push_back({surface.points[5], surface.points[6], surface.points[9]});
    return surface;
}

std::vector<TinSurface> Parse(const std::string& text) {
    return ParseLandXml(text.data(), text.size(), kFile);
}

std::string ParseError(const std::string& text) {
    try {
        Parse(text);
    } catch (const ToolError& error) {
        return error.what();
    }
    return "";
}

void ExpectSamePoints(const std::vector<PNT_3D>& actual, const std::vector<PNT_3D>& expected) {
    ASSERT_EQ(actual.size(), expected.size());
    for (std::size_t i = 0; i < actual.size(); ++i) {
        EXPECT_EQ(actual[i].x, expected[i].x) << i;
        EXPECT_EQ(actual[i].y, expected[i].y) << i;
        EXPECT_EQ(actual[i].z, expected[i].z) << i;
    }
}

// The surface read from @p style's text holds the generator's surface: points as easting,
// northing, elevation, the same triangles and the source data.
void ExpectReadsBack(const LandXmlStyle& style) {
    const TinSurface expected = SmallSurface();
    const std::vector<TinSurface> read = Parse(LandXmlOf({expected}, style));
    ASSERT_EQ(read.size(), 1u);
    const TinSurface& surface = read[0];
    EXPECT_EQ(surface.name, expected.name);
    // Vertices come in file order, which a reversed file turns round.
    std::vector<PNT_3D> points = expected.points;
    std::vector<std::array<int, 3>> faces = expected.faces;
    if (style.reversed) {
        std::reverse(points.begin(), points.end());
        const int last = static_cast<int>(points.size()) - 1;
        for (auto& face : faces)
            for (int& v : face) v = last - v;
    }
    ExpectSamePoints(surface.points, points);
    EXPECT_EQ(surface.faces, faces);
    std::vector<std::vector<int>> hidden;
    for (const auto& face : style.hiddenFaces) {
        hidden.emplace_back(face.begin(), face.end());
        if (style.reversed)
            for (int& v : hidden.back()) v = static_cast<int>(points.size()) - 1 - v;
    }
    EXPECT_EQ(surface.survey.hiddenFaces, hidden);
    ASSERT_EQ(surface.breaklines.size(), 1u);
    ExpectSamePoints(surface.breaklines[0], expected.breaklines[0]);
    ASSERT_EQ(surface.externalBoundaries.size(), 1u);
    ExpectSamePoints(surface.externalBoundaries[0], expected.externalBoundaries[0]);
    ASSERT_EQ(surface.internalBoundaries.size(), 1u);
    ExpectSamePoints(surface.internalBoundaries[0], expected.internalBoundaries[0]);
}

TEST(LandXmlTest, ReadsPointsAsNorthingEastingElevationWithSourceData) {
    ExpectReadsBack(LandXmlStyle{});
}

TEST(LandXmlTest, ReadsIdsThatAreNotOneToNAndPointsOutOfOrder) {
    LandXmlStyle style;
    style.firstId = 5000;
    style.idStep = 7;
    style.reversed = true;
    ExpectReadsBack(style);
}

TEST(LandXmlTest, ReadsSparseIdsThroughTheMap) {
    LandXmlStyle style;
    style.firstId = 3;
    style.idStep = 1000003;
    ExpectReadsBack(style);
}

// Ids at both ends of their range span more than a signed 64-bit number holds.
TEST(LandXmlTest, IdsAtBothEndsOfTheirRangeAreFoundAndMissingOnesNamed) {
    const std::string points =
        "<LandXML>\n<Surfaces>\n<Surface name=\"S\">\n<Definition surfType=\"TIN\">\n<Pnts>\n"
        "<P id=\"-9223372036854775808\">0 0 1</P>\n<P id=\"9223372036854775807\">0 1 2</P>\n"
        "<P id=\"0\">1 1 3</P>\n</Pnts>\n<Faces>\n";
    const std::string end = "</Faces>\n</Definition>\n</Surface>\n</Surfaces>\n</LandXML>\n";
    const std::vector<TinSurface> read =
        Parse(points + "<F>-9223372036854775808 9223372036854775807 0</F>\n" + end);
    ASSERT_EQ(read.size(), 1u);
    EXPECT_EQ(read[0].faces, (std::vector<std::array<int, 3>>{{0, 1, 2}}));

    const std::string dense =
        "<LandXML>\n<Surfaces>\n<Surface name=\"S\">\n<Definition surfType=\"TIN\">\n<Pnts>\n"
        "<P id=\"-10\">0 0 1</P>\n<P id=\"0\">0 1 2</P>\n<P id=\"10\">1 1 3</P>\n</Pnts>\n"
        "<Faces>\n<F>-10 0 10</F>\n<F>-10 10 9223372036854775807</F>\n";
    EXPECT_EQ(ParseError(dense + end),
              kFile +
                  ": line 12: face 2 of surface 'S' refers to point "
                  "9223372036854775807, which the surface does not define");
}

TEST(LandXmlTest, KeepsInvisibleFacesOutOfTheModelAndInTheRecord) {
    LandXmlStyle style;
    style.hiddenFaces = {{0, 4, 1}, {2, 6, 3}};
    ExpectReadsBack(style);
    style.reversed = true;
    style.firstId = 40;
    ExpectReadsBack(style);
}

TEST(LandXmlTest, ReadsEveryNamespaceAndPrefixAndCrLfAlike) {
    for (const char* ns :
         {"http://www.landxml.org/schema/LandXML-1.1", "http://www.landxml.org/schema/LandXML-2.0",
          "http://www.inframodel.fi/inframodel", ""}) {
        LandXmlStyle style;
        style.ns = ns;
        style.newline = "\r\n";
        SCOPED_TRACE(ns);
        ExpectReadsBack(style);
    }
    LandXmlStyle prefixed;
    prefixed.prefix = "lx";
    ExpectReadsBack(prefixed);
}

// The one surface that @p text holds, checked to have @p points and @p faces.
TinSurface ExpectOneSurface(const std::string& text, const std::vector<PNT_3D>& points,
                            const std::vector<std::array<int, 3>>& faces) {
    const std::vector<TinSurface> read = Parse(text);
    EXPECT_EQ(read.size(), 1u);
    if (read.empty()) return {};
    ExpectSamePoints(read[0].points, points);
    EXPECT_EQ(read[0].faces, faces);
    return read[0];
}

TEST(LandXmlTest, ReadsTrailingDotNumbersAndLatin1Names) {
    const std::string text =
        "<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?>\n<LandXML><Surfaces>"
        "<Surface name=\"J\xe4rvi\"><Definition surfType=\"TIN\"><Pnts>"
        "<P id=\"10\">100. 200. 5.</P><P id=\"20\">100 210 6.5</P><P id=\"30\">110. 200 7</P>"
        "</Pnts><Faces><F>10 20 30</F></Faces></Definition></Surface></Surfaces></LandXML>";
    const TinSurface read =
        ExpectOneSurface(text, {{200, 100, 5}, {210, 100, 6.5}, {200, 110, 7}}, {{0, 1, 2}});
    EXPECT_EQ(read.name, "J\xc3\xa4rvi");
}

// Numbers may be separated, led and followed by any XML blank: spaces, tabs, line feeds and
// carriage returns, as files written line by line or by hand have them.
TEST(LandXmlTest, NumbersAreSeparatedByAnyBlank) {
    const std::string text =
        "<LandXML><Surfaces><Surface name=\"S\"><Definition surfType=\"TIN\"><Pnts>"
        "<P id=\"1\">\t100\t200\t5\t</P><P id=\"2\">\n100\n210\n6.5\n</P>"
        "<P id=\"3\">\r\n110\r\n200\r\n7\r\n</P><P id=\"4\"> \t\r\n110 \t\r\n210 \t\r\n8 </P>"
        "</Pnts><Faces><F>1\t2\r\n3</F><F>\n2 4\t3 </F></Faces></Definition></Surface>"
        "</Surfaces></LandXML>";
    ExpectOneSurface(text, {{200, 100, 5}, {210, 100, 6.5}, {200, 110, 7}, {210, 110, 8}},
                     {{0, 1, 2}, {1, 3, 2}});
}

TEST(LandXmlTest, SplitsAFourSidedFaceAlongItsFirstDiagonal) {
    const std::string text =
        "<LandXML><Surfaces><Surface name=\"Q\"><Definition surfType=\"TIN\"><Pnts>"
        "<P id=\"1\">0 0 1</P><P id=\"2\">0 1 1</P><P id=\"3\">1 1 1</P><P id=\"4\">1 0 1</P>"
        "</Pnts><Faces><F>1 2 3 4</F></Faces></Definition></Surface></Surfaces></LandXML>";
    EXPECT_EQ(Parse(text)[0].faces, (std::vector<std::array<int, 3>>{{0, 1, 2}, {0, 2, 3}}));
}

TEST(LandXmlTest, PointsAndFacesSplitIntoSeveralGroupsAllBelongToTheSurface) {
    const std::string text =
        "<LandXML><Surfaces><Surface name=\"S\"><Definition surfType=\"TIN\">"
        "<Pnts><P id=\"1\">0 0 1</P><P id=\"2\">0 10 2</P></Pnts>"
        "<Faces><F>1 2 3</F></Faces>"
        "<Pnts><P id=\"3\">10 0 3</P><P id=\"4\">10 10 4</P></Pnts>"
        "<Faces><F>2 4 3</F><F>3 4 9</F></Faces>"
        "</Definition></Surface></Surfaces><Surfaces><Surface name=\"T\">"
        "<Definition surfType=\"TIN\"><Pnts><P id=\"1\">0 0 1</P><P id=\"2\">0 1 1</P>"
        "<P id=\"3\">1 0 1</P></Pnts><Faces><F>1 2 3</F></Faces></Definition></Surface>"
        "</Surfaces></LandXML>";
    // The third face refers to a point no group defines; its number counts every group's faces.
    EXPECT_EQ(ParseError(text), kFile +
                                    ": line 1: face 3 of surface 'S' refers to point 9, "
                                    "which the surface does not define");
    std::string sound = text;
    sound.replace(sound.find("<F>3 4 9</F>"), 12, "");
    const std::vector<TinSurface> read = Parse(sound);
    ASSERT_EQ(read.size(), 2u);
    ExpectSamePoints(read[0].points, {{0, 0, 1}, {10, 0, 2}, {0, 10, 3}, {10, 10, 4}});
    EXPECT_EQ(read[0].faces, (std::vector<std::array<int, 3>>{{0, 1, 2}, {1, 3, 2}}));
    EXPECT_EQ(read[1].name, "T");
}

TEST(LandXmlTest, KeepsOneSurfacePerTinAndSkipsOtherKindsAndOtherBoundaries) {
    TinSurface a = SmallSurface();
    a.name = "A";
    TinSurface b = SmallSurface();
    b.name = "B";
    LandXmlStyle style;
    style.extraSourceData =
        "<Boundaries><Boundary bndType=\"texture\"><PntList3D>0 0 0 1 1 1 0 1 0 0 0 0"
        "</PntList3D></Boundary></Boundaries>";
    std::string text = LandXmlOf({a, b}, style);
    const std::string grid =
        "<Surface name=\"G\"><Definition surfType=\"grid\"></Definition></Surface>";
    text.insert(text.find("<Surface name=\"B\""), grid);
    const std::vector<TinSurface> read = Parse(text);
    ASSERT_EQ(read.size(), 2u);
    EXPECT_EQ(read[0].name, "A");
    EXPECT_EQ(read[1].name, "B");
    // The texture region limits nothing: the record keeps it whole for the export. The group
    // of boundaries after its own counts as well.
    ASSERT_EQ(read[0].survey.boundaries.size(), 3u);
    EXPECT_EQ(read[0].survey.boundaries[0].role, dtmtool::BoundaryRole::Kept);
    EXPECT_EQ(read[0].survey.boundaries[0].attributes,
              (dtmtool::SurveyAttributes{{"bndType", "texture"}}));
    ExpectSamePoints(read[0].survey.boundaries[0].points,
                     {{0, 0, 0}, {1, 1, 1}, {1, 0, 0}, {0, 0, 0}});
    EXPECT_EQ(read[0].survey.boundaries[1].role, dtmtool::BoundaryRole::External);
    EXPECT_EQ(read[0].survey.boundaries[2].role, dtmtool::BoundaryRole::Internal);
    ASSERT_EQ(read[0].externalBoundaries.size(), 1u);
    ExpectSamePoints(read[0].externalBoundaries[0], a.externalBoundaries[0]);
    ASSERT_EQ(read[0].internalBoundaries.size(), 1u);
    ExpectSamePoints(read[0].internalBoundaries[0], a.internalBoundaries[0]);
}

TEST(LandXmlTest, WriterOutputReadsBackAsTheSameSurfaces) {
    TinSurface a = SmallSurface();
    TinSurface b = tool_test::GridSurface(
        2, 2, 0.1, -1765.746, 54.891, [](double x, double y) { return x * y * 1e-3; }, 0.4, 9);
    b.name = "B <second>";
    const std::string text = dtmtool::LandXmlText({a, b});
    const std::vector<TinSurface> read = Parse(text);
    ASSERT_EQ(read.size(), 2u);
    for (std::size_t s = 0; s < 2; ++s) {
        const TinSurface& expected = s == 0 ? a : b;
        EXPECT_EQ(read[s].name, expected.name);
        ExpectSamePoints(read[s].points, expected.points);
        EXPECT_EQ(read[s].faces, expected.faces);
        ASSERT_EQ(read[s].breaklines.size(), expected.breaklines.size());
        ASSERT_EQ(read[s].externalBoundaries.size(), expected.externalBoundaries.size());
        ASSERT_EQ(read[s].internalBoundaries.size(), expected.internalBoundaries.size());
    }
    ExpectSamePoints(read[0].breaklines[0], a.breaklines[0]);
    ExpectSamePoints(read[0].externalBoundaries[0], a.externalBoundaries[0]);
    ExpectSamePoints(read[0].internalBoundaries[0], a.internalBoundaries[0]);
}

TEST(LandXmlTest, PointIdsAreKeptInFileOrderAndTheUnitsOfTheFileGoToEverySurface) {
    LandXmlStyle style;
    style.prefix = "lx";
    style.firstId = 1000;
    style.idStep = 7;
    TinSurface other = SmallSurface();
    other.name = "Other";
    const std::vector<TinSurface> read = Parse(LandXmlOf({SmallSurface(), other}, style));
    ASSERT_EQ(read.size(), 2u);
    for (const TinSurface& surface : read) {
        ASSERT_EQ(surface.survey.pointIds.size(), surface.points.size());
        for (std::size_t i = 0; i < surface.points.size(); ++i)
            EXPECT_EQ(surface.survey.pointIds[i], 1000 + 7 * static_cast<long long>(i));
        EXPECT_EQ(surface.survey.units.system, "Metric");
        EXPECT_EQ(surface.survey.units.attributes,
                  (std::vector<std::pair<std::string, std::string>>{{"linearUnit", "meter"}}));
    }
}

TEST(LandXmlTest, UnitsAreReadAsTheyStandWithoutNamespaceDeclarations) {
    const std::string surface =
        "<Surfaces><Surface name=\"S\"><Definition surfType=\"TIN\"><Pnts><P id=\"4\">0 0 1</P>"
        "<P id=\"-2\">0 1 1</P><P id=\"9\">1 1 1</P></Pnts><Faces><F>4 -2 9</F></Faces>"
        "</Definition></Surface></Surfaces>";
    const std::vector<TinSurface> read = Parse(
        "<LandXML><Units><x:Imperial xmlns:x=\"urn:x\" linearUnit=\"USSurveyFoot\" "
        "areaUnit=\"squareFoot\" angularUnit=\"decimal degrees\"/></Units>" +
        surface + "</LandXML>");
    ASSERT_EQ(read.size(), 1u);
    EXPECT_EQ(read[0].survey.units.system, "Imperial");
    EXPECT_EQ(read[0].survey.units.attributes, (std::vector<std::pair<std::string, std::string>>{
                                                   {"linearUnit", "USSurveyFoot"},
                                                   {"areaUnit", "squareFoot"},
                                                   {"angularUnit", "decimal degrees"}}));
    EXPECT_EQ(read[0].survey.units.Describe(), "Imperial, linearUnit USSurveyFoot");
    EXPECT_EQ(read[0].survey.pointIds, (std::vector<long long>{4, -2, 9}));

    const std::vector<TinSurface> bare = Parse("<LandXML>" + surface + "</LandXML>");
    EXPECT_FALSE(bare[0].survey.units.IsKnown());
    EXPECT_EQ(bare[0].survey.units.Describe(), "not recorded");
}

TEST(LandXmlTest, TheWriterUsesTheSurveysIdsAndStatesItsUnits) {
    TinSurface surface = SmallSurface();
    for (std::size_t i = 0; i < surface.points.size(); ++i)
        surface.survey.pointIds.push_back(i % 3 == 0
                                              ? -static_cast<long long>(i) - 1
                                              : 5000000000LL - 11 * static_cast<long long>(i));
    const dtmtool::SurveyUnits units{"Imperial",
                                     {{"linearUnit", "foot"}, {"note", "Smith & \"Sons\" <1>"}}};
    const std::string text = dtmtool::LandXmlText({surface}, units);
    EXPECT_NE(text.find("<Units>\n    <Imperial linearUnit=\"foot\" note=\"Smith &amp; "
                        "&quot;Sons&quot; &lt;1&gt;\"/>\n  </Units>\n  <Application"),
              std::string::npos)
        << text;
    const std::vector<TinSurface> read = Parse(text);
    ASSERT_EQ(read.size(), 1u);
    EXPECT_EQ(read[0].survey.pointIds, surface.survey.pointIds);
    EXPECT_EQ(read[0].survey.units, units);
    EXPECT_EQ(read[0].faces, surface.faces);
    ExpectSamePoints(read[0].points, surface.points);
}

TEST(LandXmlTest, WithoutIdsForEveryPointTheWriterNumbersThemAndStatesNoUnknownUnits) {
    TinSurface surface = SmallSurface();
    surface.survey.pointIds = {77, 78};  // not one per point: not used
    const std::string text = dtmtool::LandXmlText({surface});
    EXPECT_EQ(text.find("<Units>"), std::string::npos);
    const std::vector<TinSurface> read = Parse(text);
    ASSERT_EQ(read[0].survey.pointIds.size(), surface.points.size());
    for (std::size_t i = 0; i < surface.points.size(); ++i)
        EXPECT_EQ(read[0].survey.pointIds[i], static_cast<long long>(i) + 1);
    EXPECT_EQ(read[0].faces, surface.faces);
}

// A point's attributes besides its id (name, code, description) are the surveyor's: kept with
// the vertex the point became, in the file's order, and written back on the same point.
TEST(LandXmlTest, PointAttributesBesidesTheIdAreKeptAndWrittenBack) {
    const std::string text =
        "<LandXML><Surfaces><Surface name=\"S\"><Definition surfType=\"TIN\"><Pnts>"
        "<P id=\"30\" name=\"BM 1\" code=\"bench\">0 0 1</P><P id=\"10\">0 10 2</P>"
        "<P name=\"K&amp;2\" id=\"20\" desc=\"kerb&#9;edge\">10 0 3</P><P id=\"40\" name=\"\">10 "
        "10 "
        "4</P></Pnts><Faces><F>30 20 10</F><F>20 40 10</F></Faces></Definition></Surface>"
        "</Surfaces></LandXML>";
    const std::vector<TinSurface> read = Parse(text);
    ASSERT_EQ(read.size(), 1u);
    const std::vector<dtmtool::SurveyPointAttributes> expected = {
        {0, {{"name", "BM 1"}, {"code", "bench"}}},
        {2, {{"name", "K&2"}, {"desc", "kerb\tedge"}}},
        {3, {{"name", ""}}}};
    EXPECT_EQ(read[0].survey.pointAttributes, expected);

    const std::string written = dtmtool::LandXmlText(read);
    EXPECT_NE(written.find("<P id=\"30\" name=\"BM 1\" code=\"bench\">"), std::string::npos)
        << written;
    EXPECT_NE(written.find("<P id=\"10\">"), std::string::npos) << written;
    const std::vector<TinSurface> back = Parse(written);
    ASSERT_EQ(back.size(), 1u);
    EXPECT_EQ(back[0].survey.pointAttributes, expected);
    EXPECT_EQ(back[0].survey.pointIds, read[0].survey.pointIds);
}

// Without the survey's ids, which no longer name its points, their attributes are not written
// either: they would land on whatever points the new numbers give.
TEST(LandXmlTest, PointAttributesGoOutOnlyWithTheSurveysIds) {
    TinSurface surface = SmallSurface();
    surface.survey.pointAttributes = {{1, {{"name", "A"}}}};
    for (std::size_t i = 0; i < surface.points.size(); ++i)
        surface.survey.pointIds.push_back(100 + static_cast<long long>(i));
    const std::vector<TinSurface> kept = Parse(dtmtool::LandXmlText({surface}));
    EXPECT_EQ(kept[0].survey.pointAttributes, surface.survey.pointAttributes);
    surface.survey.pointIds.pop_back();
    const std::string text = dtmtool::LandXmlText({surface});
    EXPECT_EQ(text.find("name=\"A\""), std::string::npos) << text;
    EXPECT_TRUE(Parse(text)[0].survey.pointAttributes.empty());
}

TEST(LandXmlTest, BreaklineAttributesAreKeptPerPointListAndWrittenBack) {
    const std::string text =
        "<LandXML><Surfaces><Surface name=\"S\"><SourceData><Breaklines>"
        "<Breakline name=\"Kerb &amp; gutter\" brkType=\"nonDestructive\" desc=\"d\">"
        "<PntList3D>0 0 1 1 1 1 2 2 2</PntList3D><PntList3D>5 5 5 6 6 6</PntList3D></Breakline>"
        "<Breakline><PntList3D>7 7 7</PntList3D></Breakline>"
        "<Breakline brkType=\"standard\"><PntList3D>8 8 8 9 9 9</PntList3D></Breakline>"
        "</Breaklines></SourceData><Definition surfType=\"TIN\"><Pnts><P id=\"1\">0 0 1</P>"
        "<P id=\"2\">0 1 1</P><P id=\"3\">1 1 1</P></Pnts><Faces><F>1 2 3</F></Faces>"
        "</Definition></Surface></Surfaces></LandXML>";
    const std::vector<TinSurface> read = Parse(text);
    ASSERT_EQ(read[0].breaklines.size(), 3u);
    const dtmtool::SurveyAttributes kerb{
        {"name", "Kerb & gutter"}, {"brkType", "nonDestructive"}, {"desc", "d"}};
    // The single point list makes no breakline and has no entry.
    const std::vector<dtmtool::SurveyBreakline> expected{
        {kerb, 2}, {kerb, 1}, {{{"brkType", "standard"}}, 1}};
    EXPECT_EQ(read[0].survey.breaklines, expected);

    const std::vector<TinSurface> again = Parse(dtmtool::LandXmlText(read));
    EXPECT_EQ(again[0].survey.breaklines, expected);
    // Lines the record does not describe are written as standard breaklines.
    TinSurface plain = read[0];
    plain.survey.breaklines.clear();
    const std::string written = dtmtool::LandXmlText({plain});
    EXPECT_EQ(Parse(written)[0].survey.breaklines,
              (std::vector<dtmtool::SurveyBreakline>{{{{"brkType", "standard"}}, 2},
                                                     {{{"brkType", "standard"}}, 1},
                                                     {{{"brkType", "standard"}}, 1}}));
}

// Five boundaries in an order of the survey's own: a texture region, an outer boundary, a void,
// an island and another texture region.
const std::string kSurveyBoundaries =
    "<Boundaries>"
    "<Boundary bndType=\"texture\" m=\"1\"><PntList3D>0 0 1 0 5 1 5 0 1 0 0 1</PntList3D>"
    "</Boundary>"
    "<Boundary name=\"Site\" bndType=\"outer\" edgeTrim=\"true\" desc=\"fence &amp; gate\">"
    "<PntList3D>0 0 1 0 10 1 10 0 1 0 0 1</PntList3D></Boundary>"
    "<Boundary bndType=\"void\" name=\"Pond\"><PntList3D>1 1 1 1 3 1 3 1 1</PntList3D>"
    "</Boundary>"
    "<Boundary bndType=\"island\"><PntList3D>1.5 1.5 1 1.5 2 1 2 1.5 1</PntList3D></Boundary>"
    "<Boundary bndType=\"texture\" m=\"2\"><PntList3D>6 6 2 6 7 2 7 6 2</PntList3D>"
    "</Boundary></Boundaries>";

// A surface of one triangle with those boundaries.
const std::string kSurveyWithBoundaries =
    "<LandXML><Surfaces><Surface name=\"S\"><SourceData>" + kSurveyBoundaries +
    "</SourceData><Definition surfType=\"TIN\"><Pnts><P id=\"1\">0 0 1</P>"
    "<P id=\"2\">0 10 1</P><P id=\"3\">10 0 1</P></Pnts><Faces><F>1 2 3</F></Faces>"
    "</Definition></Surface></Surfaces></LandXML>";

TEST(LandXmlTest, BoundariesKeepTheirAttributesOrderAndOtherKindsThroughAnExport) {
    using dtmtool::BoundaryRole;
    using dtmtool::SurveyBoundary;
    const std::vector<TinSurface> read = Parse(kSurveyWithBoundaries);
    ASSERT_EQ(read.size(), 1u);
    const TinSurface& surface = read[0];
    // The outer boundary and the island limit the model from outside, the void from inside.
    ASSERT_EQ(surface.externalBoundaries.size(), 2u);
    ExpectSamePoints(surface.externalBoundaries[0], {{0, 0, 1}, {10, 0, 1}, {0, 10, 1}});
    ExpectSamePoints(surface.externalBoundaries[1], {{1.5, 1.5, 1}, {2, 1.5, 1}, {1.5, 2, 1}});
    ASSERT_EQ(surface.internalBoundaries.size(), 1u);
    ExpectSamePoints(surface.internalBoundaries[0], {{1, 1, 1}, {3, 1, 1}, {1, 3, 1}});
    const std::vector<SurveyBoundary> expected{
        {BoundaryRole::Kept,
         {{"bndType", "texture"}, {"m", "1"}},
         {{0, 0, 1}, {5, 0, 1}, {0, 5, 1}, {0, 0, 1}}},
        {BoundaryRole::External,
         {{"name", "Site"}, {"bndType", "outer"}, {"edgeTrim", "true"}, {"desc", "fence & gate"}},
         {}},
        {BoundaryRole::Internal, {{"bndType", "void"}, {"name", "Pond"}}, {}},
        {BoundaryRole::External, {{"bndType", "island"}}, {}},
        {BoundaryRole::Kept,
         {{"bndType", "texture"}, {"m", "2"}},
         {{6, 6, 2}, {7, 6, 2}, {6, 7, 2}}},
    };
    EXPECT_EQ(surface.survey.boundaries, expected);

    // Written and read again: the same boundaries in the same order, each ring as it was.
    const std::vector<TinSurface> again = Parse(dtmtool::LandXmlText(read));
    EXPECT_EQ(again[0].survey.boundaries, expected);
    ASSERT_EQ(again[0].externalBoundaries.size(), 2u);
    for (std::size_t i = 0; i < 2; ++i)
        ExpectSamePoints(again[0].externalBoundaries[i], surface.externalBoundaries[i]);
    ExpectSamePoints(again[0].internalBoundaries.at(0), surface.internalBoundaries[0]);
}

TEST(LandXmlTest, BoundariesTheRecordNoLongerNamesGoOutPlainBeforeTheKeptOnes) {
    using dtmtool::BoundaryRole;
    // As after an edit that removed the island: the record no longer fits the project's rings.
    TinSurface edited = Parse(kSurveyWithBoundaries)[0];
    edited.externalBoundaries.pop_back();
    const TinSurface back = Parse(dtmtool::LandXmlText({edited}))[0];
    ASSERT_EQ(back.survey.boundaries.size(), 4u);
    const std::vector<BoundaryRole> roles{BoundaryRole::External, BoundaryRole::Internal,
                                          BoundaryRole::Kept, BoundaryRole::Kept};
    const std::vector<dtmtool::SurveyAttributes> attributes{{{"bndType", "outer"}},
                                                            {{"bndType", "void"}},
                                                            {{"bndType", "texture"}, {"m", "1"}},
                                                            {{"bndType", "texture"}, {"m", "2"}}};
    for (std::size_t i = 0; i < 4; ++i) {
        EXPECT_EQ(back.survey.boundaries[i].role, roles[i]) << i;
        EXPECT_EQ(back.survey.boundaries[i].attributes, attributes[i]) << i;
    }
    ExpectSamePoints(back.externalBoundaries.at(0), edited.externalBoundaries[0]);
    ExpectSamePoints(back.internalBoundaries.at(0), edited.internalBoundaries[0]);
    ExpectSamePoints(back.survey.boundaries[2].points, edited.survey.boundaries[0].points);
}

// A file states its units and its coordinate system once: the surfaces that record one must
// share it, and those that record none do not stand against them.
TEST(LandXmlTest, OneFileStatesTheUnitsAndTheCoordinateSystemTheSurfacesShare) {
    TinSurface a = SmallSurface(), b = SmallSurface(), c = SmallSurface();
    a.name = "A";
    b.name = "B";
    c.name = "C";
    const auto errorOf = [](const auto& check) {
        try {
            check();
        } catch (const ToolError& error) {
            return std::string(error.what());
        }
        return std::string("no error");
    };
    EXPECT_FALSE(dtmtool::UnitsOfSurfaces({a, b}, "doc.dtm").IsKnown());
    EXPECT_TRUE(dtmtool::CoordinateSystemOfSurfaces({a, b}, "doc.dtm").empty());
    b.survey.units = {"Metric", {{"linearUnit", "meter"}}};
    b.survey.coordinateSystem = {{"epsgCode", "2056"}};
    EXPECT_EQ(dtmtool::UnitsOfSurfaces({a, b}, "doc.dtm"), b.survey.units);
    EXPECT_EQ(dtmtool::CoordinateSystemOfSurfaces({a, b}, "doc.dtm"), b.survey.coordinateSystem);
    c.survey.units = {"Imperial", {{"linearUnit", "USSurveyFoot"}}};
    c.survey.coordinateSystem = {{"epsgCode", "21781"}};
    EXPECT_EQ(errorOf([&] {
                  dtmtool::UnitsOfSurfaces({a, b, c}, "doc.dtm");
              }),
              "doc.dtm: projects 'B' and 'C' are in different units (Metric, linearUnit "
              "meter; Imperial, linearUnit USSurveyFoot), and a LandXML file has one set of "
              "units");
    EXPECT_EQ(errorOf([&] {
                  dtmtool::CoordinateSystemOfSurfaces({a, b, c}, "doc.dtm");
              }),
              "doc.dtm: projects 'B' and 'C' are in different coordinate systems (EPSG 2056; "
              "EPSG 21781), and a LandXML file has one coordinate system");
}

TEST(LandXmlTest, AFaceOnAMissingPointNamesTheFaceThePointAndTheLine) {
    const std::string text =
        "<LandXML>\n<Surfaces>\n<Surface name=\"S\">\n<Definition surfType=\"TIN\">\n<Pnts>\n"
        "<P id=\"1\">0 0 1</P>\n<P id=\"2\">0 1 1</P>\n<P id=\"3\">1 1 1</P>\n</Pnts>\n<Faces>\n"
        "<F>1 2 3</F>\n<F>1 3 99</F>\n</Faces>\n</Definition>\n</Surface>\n</Surfaces>\n"
        "</LandXML>\n";
    EXPECT_EQ(ParseError(text), kFile +
                                    ": line 12: face 2 of surface 'S' refers to point 99, "
                                    "which the surface does not define");
}

// The parser reads a file in another encoding through a converted copy, whose offsets are not
// the file's: its messages name no line rather than a wrong one.
TEST(LandXmlTest, AFileInAnotherEncodingNamesNoLine) {
    const std::string text =
        "<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?>\n<LandXML>\n<Surfaces>\n"
        "<Surface name=\"J\xe4rvi\">\n<Definition surfType=\"TIN\">\n<Pnts>\n"
        "<P id=\"1\">0 0 1</P>\n<P id=\"2\">0 1 1</P>\n<P id=\"3\">1 1 1</P>\n</Pnts>\n"
        "<Faces>\n<F>1 3 99</F>\n</Faces>\n</Definition>\n</Surface>\n</Surfaces>\n</LandXML>\n";
    EXPECT_EQ(ParseError(text), kFile +
                                    ": face 1 of surface 'J\xc3\xa4rvi' refers to point 99, which "
                                    "the surface does not define");
}

TEST(LandXmlTest, FilesWithoutATinSurfaceAreRefused) {
    EXPECT_EQ(ParseError("<LandXML><Surfaces><Surface name=\"G\"><Definition surfType=\"grid\"/>"
                         "</Surface><Surface><SourceData/></Surface></Surfaces></LandXML>"),
              kFile +
                  ": holds no TIN surface (surface 'G' is a grid surface, not a TIN; a "
                  "surface without a name has no Definition)");
    EXPECT_EQ(ParseError("<LandXML><Alignments/></LandXML>"), kFile + ": holds no TIN surface");
}

TEST(LandXmlTest, TextThatIsNotLandXmlIsRefused) {
    EXPECT_EQ(ParseError("<svg/>"), kFile + ": is not a LandXML file (its root element is <svg>)");
    EXPECT_EQ(ParseError("<LandXML><Surfaces>"),
              kFile + ": line 1: is not valid XML: Start-end tags mismatch");
    EXPECT_EQ(ParseError("plain text"),
              kFile + ": line 1: is not valid XML: No document element found");
    // The parser stops at the very first byte here: offset 0 is still on the first line.
    EXPECT_EQ(ParseError("<"), kFile + ": line 1: is not valid XML: Could not determine tag type");
}

TEST(LandXmlTest, BadPointsAreRefusedWithTheirIds) {
    const auto surface = [](const std::string& points) {
        return "<LandXML><Surfaces><Surface name=\"S\"><Definition surfType=\"TIN\"><Pnts>" +
               points + "</Pnts><Faces/></Definition></Surface></Surfaces></LandXML>";
    };
    EXPECT_EQ(ParseError(surface("<P id=\"7\">1 2</P>")),
              kFile +
                  ": line 1: point 7 of surface 'S' does not hold three numbers (northing "
                  "easting elevation)");
    EXPECT_EQ(ParseError(surface("<P id=\"7\">1 2 x</P>")),
              kFile +
                  ": line 1: point 7 of surface 'S' does not hold three numbers (northing "
                  "easting elevation)");
    EXPECT_EQ(ParseError(surface("<P id=\"a7\">1 2 3</P>")),
              kFile +
                  ": line 1: a point of surface 'S' has the id 'a7', which is not a whole "
                  "number");
    EXPECT_EQ(ParseError(surface("<P id=\"7\">1 2 3</P><P id=\"7\">4 5 6</P>")),
              kFile + ": point id 7 appears twice in surface 'S'");
}

// A file large enough to watch is read under a bar that names it and is gone at the end; a
// small one shows none.
TEST(LandXmlTest, ALargeFileIsReadUnderAProgressBar) {
    const std::string large = LandXmlOf(
        {tool_test::GridSurface(60, 60, 1.0, 0.0, 0.0, [](double x, double y) { return x + y; })});
    ASSERT_GE(large.size() * 2, dtmtool::Progress::MIN_TOTAL);
    const std::string small = LandXmlOf({SmallSurface()});
    dtmtool::Progress::ForceShown(true);
    ::testing::internal::CaptureStderr();
    EXPECT_EQ(Parse(large).at(0).faces.size(), 7200u);
    const std::string drawn = ::testing::internal::GetCapturedStderr();
    ::testing::internal::CaptureStderr();
    Parse(small);
    const std::string quiet = ::testing::internal::GetCapturedStderr();
    dtmtool::Progress::ForceShown(false);
    EXPECT_EQ(drawn.rfind("\rreading " + kFile + " [....", 0), 0u) << drawn;
    ASSERT_GE(drawn.size(), 4u);
    EXPECT_EQ(drawn.substr(drawn.size() - 4), "\r\033[K");
    EXPECT_EQ(quiet, "");
}

TEST(LandXmlTest, WriteLandXmlWritesTheFileAtomically) {
    dtm_test::TempDir folder;
    const std::string path = folder.File("out.xml");
    dtmtool::WriteLandXml(path, {SmallSurface()});
    const std::vector<TinSurface> read = dtmtool::ReadLandXml(path);
    ASSERT_EQ(read.size(), 1u);
    EXPECT_EQ(read[0].faces, SmallSurface().faces);
    EXPECT_EQ(tool_test::FolderEntries(folder.Path()), std::vector<std::string>{"out.xml"});
}

// A document of one TIN surface named @p name with the given <P> and <F> elements.
std::string Tin(const std::string& points, const std::string& faces, const std::string& name = "S",
                const std::string& sourceData = "") {
    return "<LandXML><Surfaces><Surface name=\"" + name + "\"><Definition surfType=\"TIN\"><Pnts>" +
           points + "</Pnts><Faces>" + faces + "</Faces></Definition><SourceData>" + sourceData +
           "</SourceData></Surface></Surfaces></LandXML>";
}

TEST(LandXmlTest, CoordinatesThatAreNotFiniteOrTooLargeAreRefusedWithThePointAndTheLine) {
    for (const char* value :
         {"nan", "NaN", "-nan", "inf", "-inf", "Infinity", "1e308", "-1000000000000001"}) {
        SCOPED_TRACE(value);
        const std::string expected = kFile +
                                     ": line 2: point 17 of surface 'S' holds a value that is not "
                                     "a number within 1e15 of zero, which every northing, easting "
                                     "and elevation must be";
        EXPECT_EQ(
            ParseError(
                Tin("<P id=\"1\">1 2 3</P>\n<P id=\"17\">4 5 " + std::string(value) + "</P>", "")),
            expected);
        EXPECT_EQ(
            ParseError(
                Tin("<P id=\"1\">1 2 3</P>\n<P id=\"17\">" + std::string(value) + " 5 6</P>", "")),
            expected);
    }
}

TEST(LandXmlTest, CoordinatesAtTheLimitAreTaken) {
    EXPECT_EQ(ParseError(Tin("<P id=\"1\">1 2 3</P>\n<P id=\"17\">-1e15 5 1e15</P>", "")), "");
}

TEST(LandXmlTest, BreaklinesAndBoundariesWithCoordinatesThatAreNotFiniteAreRefused) {
    const std::string points = "<P id=\"1\">0 0 1</P><P id=\"2\">0 1 1</P><P id=\"3\">1 1 1</P>";
    EXPECT_EQ(ParseError(Tin(points, "<F>1 2 3</F>", "S",
                             "<Breaklines><Breakline><PntList3D>0 0 1 1 1 nan</PntList3D>"
                             "</Breakline></Breaklines>")),
              kFile +
                  ": line 1: a breakline of surface 'S' holds a value that is not a number "
                  "within 1e15 of zero, which every northing, easting and elevation must be");
    EXPECT_EQ(ParseError(Tin(points, "<F>1 2 3</F>", "S",
                             "<Boundaries><Boundary bndType=\"outer\"><PntList3D>0 0 1 1 inf 1 "
                             "1 0 1</PntList3D></Boundary></Boundaries>")),
              kFile +
                  ": line 1: a boundary of surface 'S' holds a value that is not a number "
                  "within 1e15 of zero, which every northing, easting and elevation must be");
    EXPECT_EQ(ParseError(Tin(points, "<F>1 2 3</F>", "S",
                             "<Breaklines><Breakline><PntList3D>0 0 1 1 2e15 1</PntList3D>"
                             "</Breakline></Breaklines>")),
              kFile +
                  ": line 1: a breakline of surface 'S' holds a value that is not a number "
                  "within 1e15 of zero, which every northing, easting and elevation must be");
}

std::vector<std::string> Warnings(const std::string& text) {
    std::vector<std::string> warnings;
    ParseLandXml(text.data(), text.size(), kFile, &warnings);
    return warnings;
}

using Lines = std::vector<std::string>;

// Three points of a right triangle with legs of 10 m, and its face.
const std::string kCorners = "<P id=\"1\">0 0 1</P><P id=\"2\">0 10 1</P><P id=\"3\">10 0 1</P>";

TEST(LandXmlTest, BreaklinesAndBoundariesThatCannotBeUsedAreNamedAsLeftOut) {
    const std::string text = Tin(kCorners, "<F>1 2 3</F>", "S",
                                 "<Breaklines>\n"
                                 "<Breakline><PntList3D>0 0 1 5 5 1</PntList3D></Breakline>\n"
                                 "<Breakline><PntList3D>0 0 1</PntList3D></Breakline>\n"
                                 "<Breakline><PntList3D></PntList3D></Breakline>\n"
                                 "<Breakline><PntList2D>0 0 5 5</PntList2D></Breakline>\n"
                                 "</Breaklines><Boundaries>\n"
                                 "<Boundary bndType=\"void\"><PntList3D>0 0 1 1 1 1 0 0 1"
                                 "</PntList3D></Boundary>\n"
                                 "<Boundary bndType=\"outer\"><PntList3D>0 0 1 1 1 1"
                                 "</PntList3D></Boundary>\n"
                                 "</Boundaries>");
    EXPECT_EQ(Warnings(text),
              (Lines{kFile + ": line 3: a point list of breakline 2 of surface 'S' holds fewer "
                             "than two points and was left out",
                     kFile + ": line 4: a point list of breakline 3 of surface 'S' holds fewer "
                             "than two points and was left out",
                     kFile + ": line 5: breakline 4 of surface 'S' has no PntList3D and was left "
                             "out",
                     kFile + ": line 7: boundary 1 of surface 'S' (void) has fewer than three "
                             "corners and was left out",
                     kFile + ": line 8: boundary 2 of surface 'S' (outer) has fewer than three "
                             "corners and was left out"}));
    const std::vector<TinSurface> surfaces = Parse(text);
    EXPECT_EQ(surfaces.at(0).breaklines.size(), 1u);
    EXPECT_TRUE(surfaces.at(0).internalBoundaries.empty());
    EXPECT_TRUE(surfaces.at(0).externalBoundaries.empty());
    EXPECT_TRUE(surfaces.at(0).survey.boundaries.empty());
}

// A TIN beside a grid and a surface known only by its source data.
std::string TinBesideSurfacesThatAreNot() {
    std::string text = Tin(kCorners, "<F>1 2 3</F>", "S");
    text.insert(text.find("<Surface name=\"S\""),
                "\n<Surface name=\"G\"><Definition surfType=\"grid\"><Grid/></Definition>"
                "</Surface>\n<Surface name=\"D\"><SourceData/></Surface>\n");
    return text;
}

TEST(LandXmlTest, SurfacesThatAreNotTinsAreNamedAndKeptForExport) {
    const std::string text = TinBesideSurfacesThatAreNot();
    EXPECT_EQ(Warnings(text),
              (Lines{kFile + ": line 2: surface 'G' is a grid surface, not a TIN, and was kept "
                             "for export, not imported",
                     kFile + ": line 3: surface 'D' has no Definition and was kept for export, "
                             "not imported"}));
    const std::vector<TinSurface> surfaces = Parse(text);
    ASSERT_EQ(surfaces.size(), 1u);
    EXPECT_EQ(surfaces[0].name, "S");
    EXPECT_EQ(surfaces[0].survey.fileElements,
              dtmtool::SurveyElements{
                  "<Surfaces><Surface name=\"G\"><Definition surfType=\"grid\"><Grid/>"
                  "</Definition></Surface><Surface name=\"D\"><SourceData/></Surface>"
                  "</Surfaces>"});
    EXPECT_EQ(dtmtool::DescribeKeptElements(surfaces[0].survey), "Surfaces");
}

TEST(LandXmlTest, SurfacesThatAreNotTinsGoOutOnceAndStayPutOverRoundTrips) {
    std::string text = TinBesideSurfacesThatAreNot();
    const std::string second = Tin(kCorners, "<F>1 2 3</F>", "T");
    const std::size_t from = second.find("<Surface ");
    text.insert(text.find("</Surfaces>"), second.substr(from, second.find("</Surfaces>") - from));
    const std::vector<TinSurface> read = Parse(text);
    ASSERT_EQ(read.size(), 2u);
    const std::string written = dtmtool::LandXmlText(read);
    pugi::xml_document document;
    ASSERT_TRUE(document.load_string(written.c_str())) << written;
    EXPECT_EQ(document.select_nodes("/LandXML/Surfaces").size(), 2u);
    EXPECT_EQ(document.select_nodes("//Surface[@name='G']/Definition/Grid").size(), 1u);
    EXPECT_EQ(document.select_nodes("//Surface[@name='D']/SourceData").size(), 1u);
    EXPECT_EQ(document.select_nodes("//Surface[Definition/@surfType='TIN']").size(), 2u);

    const std::vector<TinSurface> back = Parse(written);
    ASSERT_EQ(back.size(), 2u);
    EXPECT_EQ(back[0].survey.fileElements, read[0].survey.fileElements);
    EXPECT_EQ(back[1].survey.fileElements, read[0].survey.fileElements);
    const auto body = [](const std::string& xml) { return xml.substr(xml.find("\n  <")); };
    EXPECT_EQ(body(dtmtool::LandXmlText(back)), body(written));
}

TEST(LandXmlTest, AGroupWithoutATinIsKeptWholeWithItsNameAndFeaturesWhereItStood) {
    // A group of grids with a feature of its own, an empty group with only a feature, and the
    // TIN's group, which also holds a grid.
    const std::string grids =
        "<Surfaces name=\"grids\"><Surface name=\"G\"><Definition surfType=\"grid\"><Grid/>"
        "</Definition></Surface><Feature code=\"g\"><Property label=\"a\" value=\"1\"/>"
        "</Feature></Surfaces>";
    const std::string empty = "<Surfaces name=\"none\"><Feature code=\"e\"/></Surfaces>";
    std::string text = Tin(kCorners, "<F>1 2 3</F>", "S");
    text.insert(text.find("<Surfaces>"), grids + "\n" + empty + "\n");
    text.insert(text.find("<Surface name=\"S\""),
                "<Surface name=\"H\"><Definition surfType=\"grid\"/></Surface>");
    EXPECT_EQ(Warnings(text),
              (Lines{kFile + ": line 1: surface 'G' is a grid surface, not a TIN, and was kept "
                             "for export, not imported",
                     kFile + ": line 3: surface 'H' is a grid surface, not a TIN, and was kept "
                             "for export, not imported"}));
    const std::vector<TinSurface> read = Parse(text);
    ASSERT_EQ(read.size(), 1u);
    EXPECT_EQ(read[0].survey.fileElements,
              (dtmtool::SurveyElements{grids, empty,
                                       "<Surfaces><Surface name=\"H\"><Definition "
                                       "surfType=\"grid\"/></Surface></Surfaces>"}));
    EXPECT_TRUE(read[0].survey.groupElements.empty());

    // Exported and read again, every group comes back as it was.
    const std::string written = dtmtool::LandXmlText(read);
    pugi::xml_document document;
    ASSERT_TRUE(document.load_string(written.c_str())) << written;
    EXPECT_EQ(document.select_nodes("/LandXML/Surfaces").size(), 4u);
    EXPECT_EQ(document.select_nodes("/LandXML/Surfaces[@name='grids']/Feature[@code='g']").size(),
              1u);
    EXPECT_EQ(document.select_nodes("/LandXML/Surfaces[@name='none']/Feature[@code='e']").size(),
              1u);
    const std::vector<TinSurface> back = Parse(written);
    ASSERT_EQ(back.size(), 1u);
    EXPECT_EQ(back[0].survey.fileElements, read[0].survey.fileElements);
}

TEST(LandXmlTest, BoundariesWithoutA3DListAndKeptOnesThatCannotBeReadAreLeftOut) {
    const std::string text = Tin(kCorners, "<F>1 2 3</F>", "S",
                                 "<Boundaries>\n"
                                 "<Boundary bndType=\"outer\"><PntList2D>0 0 0 10 10 0"
                                 "</PntList2D></Boundary>\n"
                                 "<Boundary bndType=\"texture\"><PntList3D>0 0 1 1 nan 1"
                                 "</PntList3D></Boundary>\n"
                                 "<Boundary bndType=\"texture\"><PntList3D>0 0 1 1"
                                 "</PntList3D></Boundary>\n"
                                 "<Boundary bndType=\"texture\"><PntList3D>0 0 1</PntList3D>"
                                 "</Boundary>\n"
                                 "</Boundaries>");
    EXPECT_EQ(Warnings(text),
              (Lines{kFile + ": line 2: boundary 1 of surface 'S' has no PntList3D and was left "
                             "out",
                     kFile + ": line 3: a boundary of surface 'S' holds a value that is not a "
                             "number within 1e15 of zero, which every northing, easting and "
                             "elevation must be; it was left out",
                     kFile + ": line 4: a boundary of surface 'S' does not hold northing "
                             "easting elevation triples; it was left out"}));
    // The import goes on; only the last one, which is readable, is kept.
    const std::vector<TinSurface> surfaces = Parse(text);
    ASSERT_EQ(surfaces.at(0).survey.boundaries.size(), 1u);
    ExpectSamePoints(surfaces[0].survey.boundaries[0].points, {{0, 0, 1}});
    EXPECT_TRUE(surfaces[0].externalBoundaries.empty());
}

TEST(LandXmlTest, HiddenFacesThatCannotBeReadAreLeftOutAndTheOthersKept) {
    const std::string points = kCorners + "<P id=\"4\">10 10 2</P>";
    const std::string text = Tin(points,
                                 "<F i=\"1\">3 2 1</F>\n<F>1 2 3</F>\n<F i=\"1\">1 2 9</F>\n"
                                 "<F i=\"1\">1 2</F>\n<F i=\"1\">1 x 3</F>\n<F>2 4 3</F>\n"
                                 "<F i=\"1\">1 2 4 3</F>\n<F i=\"1\">1 2 3 4 1</F>");
    EXPECT_EQ(Warnings(text),
              (Lines{kFile + ": line 3: hidden face 3 of surface 'S' refers to point 9, which "
                             "the surface does not define; it was left out",
                     kFile + ": line 4: hidden face 4 of surface 'S' does not hold three point "
                             "ids; it was left out",
                     kFile + ": line 5: hidden face 5 of surface 'S' does not hold three point "
                             "ids; it was left out",
                     kFile + ": line 8: hidden face 8 of surface 'S' does not hold three point "
                             "ids; it was left out"}));
    const TinSurface surface = Parse(text).at(0);
    EXPECT_EQ(surface.faces, (std::vector<std::array<int, 3>>{{0, 1, 2}, {1, 3, 2}}));
    // A four-sided one keeps its four corners.
    EXPECT_EQ(surface.survey.hiddenFaces, (std::vector<std::vector<int>>{{2, 1, 0}, {0, 1, 3, 2}}));
}

// A surface of points only, or one whose faces are all hidden, still comes in (its points are
// the survey), but never without a word: its project will have no triangles.
TEST(LandXmlTest, ASurfaceWithoutAVisibleFaceIsImportedWithAWarning) {
    const std::string prefix = kFile + ": surface 'S': ";
    const std::vector<std::pair<std::string, std::string>> cases = {
        {"", "holds no face"},
        {"<F i=\"1\">1 2 3</F>", "its one face is hidden"},
        {"<F i=\"1\">1 2 3</F><F i=\"1\">3 2 1</F><F i=\"1\">1 2 9</F>",
         "all 2 of its faces are hidden"}};
    for (const auto& [faces, why] : cases) {
        SCOPED_TRACE(faces);
        const std::string text = Tin(kCorners, faces);
        const Lines warnings = Warnings(text);
        ASSERT_FALSE(warnings.empty());
        EXPECT_EQ(warnings.back(), prefix + why + ", so its project has no triangles");
        const TinSurface surface = Parse(text).at(0);
        EXPECT_EQ(surface.points.size(), 3u);
        EXPECT_TRUE(surface.faces.empty());
    }
    EXPECT_EQ(Warnings(Tin(kCorners, "<F>1 2 3</F>")), Lines{});
}

// The file's coordinate system goes to every surface, attributes as they stood, and an export
// states it once, after the units.
TEST(LandXmlTest, TheCoordinateSystemIsKeptAndWrittenBack) {
    // The <Surface> element of a one-surface file.
    const auto surfaceOf = [](const std::string& name) {
        const std::string file = Tin(kCorners, "<F>1 2 3</F>", name);
        const std::size_t start = file.find("<Surface ");
        return file.substr(start, file.find("</Surfaces>") - start);
    };
    const std::string text =
        "<LandXML><Units><Metric linearUnit=\"meter\"/></Units><CoordinateSystem "
        "epsgCode=\"25832\" name=\"ETRS89 &amp; UTM 32N\"><Start>0 0</Start>"
        "</CoordinateSystem><Surfaces>" +
        surfaceOf("A") + surfaceOf("B") + "</Surfaces></LandXML>";
    const std::vector<TinSurface> read = Parse(text);
    ASSERT_EQ(read.size(), 2u);
    const dtmtool::SurveyAttributes expected = {{"epsgCode", "25832"},
                                                {"name", "ETRS89 & UTM 32N"}};
    for (const TinSurface& surface : read) EXPECT_EQ(surface.survey.coordinateSystem, expected);
    EXPECT_EQ(dtmtool::DescribeCoordinateSystem(expected), "ETRS89 & UTM 32N, EPSG 25832");
    EXPECT_EQ(dtmtool::DescribeCoordinateSystem({}), "not recorded");
    // The description stands in for a missing name, and a system with neither name, code nor
    // vertical system is told by its attributes.
    EXPECT_EQ(dtmtool::DescribeCoordinateSystem({{"ogcWktCode", "PROJCS[...]"},
                                                 {"desc", "SWEREF 99 12 00"},
                                                 {"epsgCode", "3007"},
                                                 {"verticalCoordinateSystemName", "RH2000"}}),
              "SWEREF 99 12 00, EPSG 3007, vertical RH2000");
    EXPECT_EQ(dtmtool::DescribeCoordinateSystem({{"rotationAngle", "0"}, {"fileLocation", "x"}}),
              "rotationAngle 0, fileLocation x");

    const std::string written =
        dtmtool::LandXmlText(read, dtmtool::UnitsOfSurfaces(read, "doc.dtm"),
                             dtmtool::CoordinateSystemOfSurfaces(read, "doc.dtm"));
    EXPECT_NE(written.find("</Units>\n  <CoordinateSystem epsgCode=\"25832\" name=\"ETRS89 "
                           "&amp; UTM 32N\"/>\n"),
              std::string::npos)
        << written;
    for (const TinSurface& surface : Parse(written))
        EXPECT_EQ(surface.survey.coordinateSystem, expected);
    // Without one, the file states none.
    EXPECT_EQ(dtmtool::LandXmlText({SmallSurface()}).find("CoordinateSystem"), std::string::npos);
    EXPECT_TRUE(Parse(Tin(kCorners, "<F>1 2 3</F>")).at(0).survey.coordinateSystem.empty());
}

TEST(LandXmlTest, HiddenFacesGoBackHiddenAfterTheVisibleOnes) {
    const std::string points =
        "<P id=\"10\">0 0 1</P><P id=\"20\">0 10 1</P>"
        "<P id=\"30\">10 0 1</P><P id=\"40\">10 10 2</P>";
    const TinSurface read =
        Parse(Tin(points,
                  "<F i=\"1\">30 20 10</F><F>10 20 30</F><F i=\"1\">10 20 40 30</F>"
                  "<F>20 40 30</F>"))
            .at(0);
    const std::string written = dtmtool::LandXmlText({read});
    // The hidden faces are counted in the neighbours; they overlay the visible ones here, so
    // that most sides have two faces across and so no single neighbour.
    EXPECT_NE(
        written.find("        <Faces>\n          <F n=\"0 0 0\">10 20 30</F>\n"
                     "          <F n=\"4 4 0\">20 40 30</F>\n"
                     "          <F i=\"1\" n=\"0 0 0\">30 20 10</F>\n"
                     "          <F i=\"1\" n=\"0 2 2 0\">10 20 40 30</F>\n        </Faces>\n"),
        std::string::npos)
        << written;
    const TinSurface again = Parse(written).at(0);
    EXPECT_EQ(again.faces, read.faces);
    EXPECT_EQ(again.survey.hiddenFaces, read.survey.hiddenFaces);
}

TEST(LandXmlTest, TheSurfacesAttributesAreKeptAndWrittenBackWithTheProjectsName) {
    std::string text = Tin(kCorners, "<F>1 2 3</F>", "EG");
    text.replace(text.find("<Surface name=\"EG\">"), 19,
                 "<Surface desc=\"Existing &amp; ground\" name=\"EG\" state=\"existing\">");
    const TinSurface read = Parse(text).at(0);
    EXPECT_EQ(read.name, "EG");
    EXPECT_EQ(read.survey.surfaceAttributes,
              (dtmtool::SurveyAttributes{{"desc", "Existing & ground"}, {"state", "existing"}}));
    EXPECT_EQ(read.survey.SurfaceAttribute("desc"), "Existing & ground");
    EXPECT_EQ(read.survey.SurfaceAttribute("name"), "");

    TinSurface renamed = read;
    renamed.name = "Ground";
    const std::string written = dtmtool::LandXmlText({renamed});
    EXPECT_NE(written.find("<Surface name=\"Ground\" desc=\"Existing &amp; ground\" "
                           "state=\"existing\">"),
              std::string::npos)
        << written;
    const TinSurface back = Parse(written).at(0);
    EXPECT_EQ(back.name, "Ground");
    EXPECT_EQ(back.survey.surfaceAttributes, read.survey.surfaceAttributes);
}

// Every prefixed name in @p xml whose prefix no element around it declares (xml, which needs
// no declaration, aside): what a reader that knows namespaces refuses.
std::vector<std::string> UndeclaredPrefixes(const std::string& xml) {
    pugi::xml_document document;
    EXPECT_TRUE(document.load_string(xml.c_str()));
    std::vector<std::string> undeclared;
    const auto check = [&undeclared](const pugi::xml_node& element, const std::string& name) {
        const std::size_t colon = name.find(':');
        if (colon == std::string::npos || name.compare(0, colon, "xmlns") == 0 ||
            name.compare(0, colon, "xml") == 0)
            return;
        const std::string declaration = "xmlns:" + name.substr(0, colon);
        for (pugi::xml_node scope = element; scope; scope = scope.parent())
            if (scope.attribute(declaration.c_str())) return;
        undeclared.push_back(name);
    };
    for (pugi::xpath_node found : document.select_nodes("//*")) {
        const pugi::xml_node element = found.node();
        check(element, element.name());
        for (const pugi::xml_attribute attribute : element.attributes())
            check(element, attribute.name());
    }
    return undeclared;
}

// A file whose surfaces stand in two groups: "M3" with a feature and the TIN surfaces @p first
// and @p second, and "Y10" with the TIN surface "R".
std::string TwoGroupsOfSurfaces(const std::string& first, const std::string& second) {
    std::string text;
    for (const std::string& name : {first, second}) {
        const std::string one = Tin(kCorners, "<F>1 2 3</F>", name);
        const std::size_t from = one.find("<Surface ");
        text += one.substr(from, one.find("</Surfaces>") - from);
    }
    const std::string other = Tin(kCorners, "<F>1 2 3</F>", "R");
    const std::size_t from = other.find("<Surface ");
    return "<LandXML xmlns:ext=\"urn:ext\"><Surfaces name=\"M3\" ext:by=\"field\">" + text +
           "<Feature code=\"group\"/></Surfaces><Surfaces name=\"Y10\">" +
           other.substr(from, other.find("</Surfaces>") - from) + "</Surfaces></LandXML>";
}

TEST(LandXmlTest, TheGroupOfEachSurfaceIsKeptWithItsAttributesAndElements) {
    const std::vector<TinSurface> read = Parse(TwoGroupsOfSurfaces("EG", "FG"));
    ASSERT_EQ(read.size(), 3u);
    const dtmtool::SurveyAttributes m3{
        {"name", "M3"}, {"ext:by", "field"}, {"xmlns:ext", "urn:ext"}};
    for (std::size_t i : {0u, 1u}) {
        EXPECT_EQ(read[i].survey.groupAttributes, m3);
        EXPECT_EQ(read[i].survey.groupElements,
                  dtmtool::SurveyElements{"<Feature code=\"group\"/>"});
    }
    EXPECT_EQ(read[2].survey.groupAttributes, (dtmtool::SurveyAttributes{{"name", "Y10"}}));
    EXPECT_TRUE(read[2].survey.groupElements.empty());
    EXPECT_EQ(dtmtool::DescribeKeptElements(read[0].survey), "Feature");
    EXPECT_EQ(dtmtool::DescribeKeptElements(read[2].survey), "");

    // The surfaces of one group go out in a group named as it was, its feature once after them,
    // and stay put over round trips.
    const std::vector<TinSurface> group(read.begin(), read.begin() + 2);
    const std::string written = dtmtool::LandXmlText(group);
    EXPECT_EQ(UndeclaredPrefixes(written), std::vector<std::string>{}) << written;
    pugi::xml_document document;
    ASSERT_TRUE(document.load_string(written.c_str())) << written;
    EXPECT_EQ(document.select_nodes("/LandXML/Surfaces[@name='M3']/Surface").size(), 2u);
    EXPECT_EQ(document.select_nodes("/LandXML/Surfaces/Feature[@code='group']").size(), 1u);
    EXPECT_STREQ(document.select_node("/LandXML/Surfaces/*[3]").node().name(), "Feature");
    const std::vector<TinSurface> back = Parse(written);
    ASSERT_EQ(back.size(), 2u);
    for (const TinSurface& surface : back) {
        EXPECT_EQ(surface.survey.groupAttributes, m3);
        EXPECT_EQ(surface.survey.groupElements, read[0].survey.groupElements);
    }
    const auto body = [](const std::string& xml) { return xml.substr(xml.find("\n  <")); };
    EXPECT_EQ(body(dtmtool::LandXmlText(back)), body(written));
}

// One export writes one group: it keeps the attributes every surface that knows its group
// gives it alike, and every group's elements once.
TEST(LandXmlTest, SurfacesOfDifferentGroupsGoOutInOneGroupWithWhatTheyShare) {
    std::vector<TinSurface> read = Parse(TwoGroupsOfSurfaces("EG", "FG"));
    read[2].survey.groupAttributes.emplace_back("desc", "d");
    read[0].survey.groupAttributes.emplace_back("desc", "d");
    read[1].survey.groupAttributes.emplace_back("desc", "d");
    TinSurface unknown = read[2];
    unknown.name = "U";
    unknown.survey.groupAttributes.clear();
    read.push_back(unknown);
    const std::string written = dtmtool::LandXmlText(read);
    EXPECT_NE(written.find("  <Surfaces desc=\"d\">\n"), std::string::npos) << written;
    pugi::xml_document document;
    ASSERT_TRUE(document.load_string(written.c_str())) << written;
    EXPECT_EQ(document.select_nodes("/LandXML/Surfaces/Surface").size(), 4u);
    EXPECT_EQ(document.select_nodes("/LandXML/Surfaces/Feature").size(), 1u);

    // A group no surface knows goes out without attributes, as before groups were kept.
    for (TinSurface& surface : read) surface.survey.groupAttributes.clear();
    EXPECT_NE(dtmtool::LandXmlText(read).find("  <Surfaces>\n"), std::string::npos);
}

// Attributes in another namespace (xsi:type and the like) keep the declaration of their prefix,
// wherever the file made it, so that the export declares every prefix it writes.
TEST(LandXmlTest, PrefixedAttributesGoOutWithTheirNamespaceDeclaration) {
    const std::string kXsi = "http://www.w3.org/2001/XMLSchema-instance";
    std::string text = Tin(kCorners, "<F>1 2 3</F>", "EG",
                           "<Breaklines><Breakline q:kind=\"ridge\" xmlns:q=\"urn:q\">"
                           "<PntList3D>0 0 1 5 5 1</PntList3D></Breakline></Breaklines>");
    text.replace(text.find("<LandXML>"), 9, "<LandXML xmlns:xsi=\"" + kXsi + "\">");
    text.replace(text.find("<Surface name=\"EG\">"), 19,
                 "<Surface name=\"EG\" xsi:type=\"TIN\" xml:lang=\"en\" desc=\"d\" "
                 "xsi:nil=\"false\" z:odd=\"1\">");
    const TinSurface read = Parse(text).at(0);
    EXPECT_EQ(read.survey.surfaceAttributes, (dtmtool::SurveyAttributes{{"xsi:type", "TIN"},
                                                                        {"xml:lang", "en"},
                                                                        {"desc", "d"},
                                                                        {"xsi:nil", "false"},
                                                                        {"z:odd", "1"},
                                                                        {"xmlns:xsi", kXsi}}));
    ASSERT_EQ(read.survey.breaklines.size(), 1u);
    EXPECT_EQ(read.survey.breaklines[0].attributes,
              (dtmtool::SurveyAttributes{{"q:kind", "ridge"}, {"xmlns:q", "urn:q"}}));

    const std::string written = dtmtool::LandXmlText({read});
    // z was never declared in the file it came from, so it cannot be declared on the way out.
    EXPECT_EQ(UndeclaredPrefixes(written), std::vector<std::string>{"z:odd"}) << written;
    const TinSurface back = Parse(written).at(0);
    EXPECT_EQ(back.survey.surfaceAttributes, read.survey.surfaceAttributes);
    EXPECT_EQ(back.survey.breaklines.at(0).attributes, read.survey.breaklines[0].attributes);
    // Written again, it is the same file but for the date and time in the root element.
    const auto body = [](const std::string& xml) { return xml.substr(xml.find("\n  <")); };
    EXPECT_EQ(body(dtmtool::LandXmlText({back})), body(written));
}

TEST(LandXmlTest, ASoundTriangulationGivesNoWarnings) {
    EXPECT_EQ(Warnings(LandXmlOf({SmallSurface()})), Lines{});
    EXPECT_EQ(Warnings(Tin(kCorners, "<F>1 2 3</F>")), Lines{});
}

TEST(LandXmlTest, PointsAtTheNorthingAndEastingOfAnEarlierPointAreNamed) {
    // Point 30 comes first in the file, so 20 is the one that repeats it; the findings are
    // listed in file order.
    EXPECT_EQ(
        Warnings(Tin(kCorners + "<P id=\"30\">5 5 1</P><P id=\"20\">5 5 7</P>"
                                "<P id=\"40\">0 0 2</P>",
                     "<F>1 2 3</F>")),
        Lines{kFile + ": surface 'S': 2 points have the northing and easting of an earlier point: "
                      "20 (as 30), 40 (as 1)"});
    // Different elevations or not, what counts is the place in plan.
    EXPECT_EQ(
        Warnings(Tin(kCorners + "<P id=\"9\">0 10 1</P>", "<F>1 2 3</F>")),
        Lines{kFile + ": surface 'S': 1 point has the northing and easting of an earlier point: "
                      "9 (as 2)"});
}

TEST(LandXmlTest, FacesThatRepeatAPointAreNamed) {
    EXPECT_EQ(Warnings(Tin(kCorners, "<F>1 2 3</F><F>1 3 3</F>")),
              Lines{kFile + ": surface 'S': 1 face repeats a point: face 2 (1 3 3)"});
}

TEST(LandXmlTest, FacesListedAgainInAnyOrderAreNamedWithTheFirstCopy) {
    EXPECT_EQ(
        Warnings(Tin(kCorners + "<P id=\"4\">10 10 1</P>",
                     "<F>1 2 3</F><F>2 4 3</F><F>3 2 1</F><F>2 3 1</F>")),
        Lines{kFile + ": surface 'S': 2 faces repeat an earlier face: face 3 = face 1 (1 2 3), "
                      "face 4 = face 1 (1 2 3)"});
}

TEST(LandXmlTest, FacesWithoutAreaInPlanAreNamed) {
    // Corners on one line in decimal, which in binary they are only up to rounding, at the
    // size of real coordinates; and two corners at one place (which also repeats a place).
    const std::string points =
        "<P id=\"1\">6399000.1 148000.1 1</P><P id=\"2\">6399001.2 148001.2 2</P>"
        "<P id=\"3\">6399002.3 148002.3 3</P><P id=\"4\">6399000.1 148000.1 4</P>";
    EXPECT_EQ(
        Warnings(Tin(points, "<F>1 2 3</F><F>1 4 2</F>")),
        (Lines{kFile + ": surface 'S': 1 point has the northing and easting of an earlier point: "
                       "4 (as 1)",
               kFile +
                   ": surface 'S': 2 faces have no area in plan (their corners lie on one line): "
                   "face 1 (1 2 3), face 2 (1 4 2)"}));
    // A sliver a surveyor could have measured is a triangle: 1 mm off a 100 m side.
    const std::string sliver =
        "<P id=\"1\">6399000 148000 1</P><P id=\"2\">6399100 148000 2</P>"
        "<P id=\"3\">6399050 148000.001 3</P>";
    EXPECT_EQ(Warnings(Tin(sliver, "<F>1 2 3</F>")), Lines{});
}

TEST(LandXmlTest, ManyFindingsAreCountedButOnlyTheFirstFewNamed) {
    std::string faces;
    for (int i = 0; i < 1200; ++i) faces += "<F>1 2 2</F>";
    const Lines warnings = Warnings(Tin(kCorners, faces));
    ASSERT_EQ(warnings.size(), 2u);
    EXPECT_EQ(warnings[0], kFile +
                               ": surface 'S': 1,200 faces repeat a point: face 1 (1 2 2), face "
                               "2 (1 2 2), face 3 (1 2 2), face 4 (1 2 2), face 5 (1 2 2) and "
                               "1,195 more");
    EXPECT_EQ(warnings[1].rfind(kFile + ": surface 'S': 1,199 faces repeat an earlier face: face "
                                        "2 = face 1 (1 2 2), ",
                                0),
              0u)
        << warnings[1];
    EXPECT_NE(warnings[1].find(" and 1,194 more"), std::string::npos) << warnings[1];
}

TEST(LandXmlTest, HiddenFacesAreNotCheckedAndEachSurfaceIsNamed) {
    std::string text = Tin(kCorners, "<F>1 2 3</F><F i=\"1\">1 2 2</F><F i=\"1\">1 2 3</F>", "A");
    const std::string second = Tin(kCorners, "<F>1 2 3</F><F>2 2 1</F>", "B");
    const std::string surface = second.substr(second.find("<Surface "));
    text.insert(text.find("</Surfaces>"), surface.substr(0, surface.find("</Surfaces>")));
    EXPECT_EQ(Warnings(text),
              Lines{kFile + ": surface 'B': 1 face repeats a point: face 2 (2 2 1)"});
}

// A survey with something at every level that the model has no place for: the file's project,
// feature dictionary and the application that made it; a feature of the surface; data points
// and contours among the source data; feature codes on a breakline and a boundary, one of them
// in a namespace the root declares.
std::string SurveyWithElementsTheModelDoesNotUse() {
    std::string text = Tin(kCorners, "<F>1 2 3</F>", "EG",
                           "<Boundaries><Boundary bndType=\"outer\"><PntList3D>0 0 1 0 10 1 10 0 1"
                           "</PntList3D><Feature code=\"edge\"/></Boundary></Boundaries>"
                           "<DataPoints name=\"190\"><PntList3D>1 2 3</PntList3D></DataPoints>"
                           "<Breaklines><Breakline name=\"1\"><PntList3D>1 1 1 2 2 1</PntList3D>"
                           "<Feature code=\"IM_coding\"><Property label=\"terrainCoding\" "
                           "value=\"191\"/><ext:Note ext:by=\"field\">rock &amp; scree</ext:Note>"
                           "</Feature></Breakline></Breaklines><Contours/>");
    text.replace(text.find("<LandXML>"), 9,
                 "<LandXML xmlns:ext=\"urn:ext\"><Project name=\"Site\"><Feature code=\"P\"/>"
                 "</Project><FeatureDictionary name=\"inframodel\"/>"
                 "<Application name=\"Field\" manufacturer=\"Maker\"><Author createdBy=\"A\"/>"
                 "</Application>");
    text.insert(text.find("</Surface>"), "<Feature code=\"surface\"/>");
    return text;
}

TEST(LandXmlTest, ElementsTheModelDoesNotUseAreKeptWhereTheyStood) {
    const TinSurface read = Parse(SurveyWithElementsTheModelDoesNotUse()).at(0);
    const dtmtool::SurveyRecord& survey = read.survey;
    EXPECT_EQ(survey.fileElements,
              (dtmtool::SurveyElements{
                  "<Project name=\"Site\"><Feature code=\"P\"/></Project>",
                  "<FeatureDictionary name=\"inframodel\"/>",
                  "<Application name=\"Field\" manufacturer=\"Maker\"><Author createdBy=\"A\"/>"
                  "</Application>"}));
    EXPECT_EQ(survey.surfaceElements, dtmtool::SurveyElements{"<Feature code=\"surface\"/>"});
    EXPECT_EQ(
        survey.sourceElements,
        (dtmtool::SurveyElements{
            "<DataPoints name=\"190\"><PntList3D>1 2 3</PntList3D></DataPoints>", "<Contours/>"}));
    ASSERT_EQ(survey.boundaries.size(), 1u);
    EXPECT_EQ(survey.boundaries[0].elements, dtmtool::SurveyElements{"<Feature code=\"edge\"/>"});
    ASSERT_EQ(survey.breaklines.size(), 1u);
    // The prefix declared on the root goes with the element that uses it.
    EXPECT_EQ(survey.breaklines[0].elements,
              dtmtool::SurveyElements{
                  "<Feature code=\"IM_coding\" xmlns:ext=\"urn:ext\"><Property "
                  "label=\"terrainCoding\" value=\"191\"/><ext:Note ext:by=\"field\">rock &amp; "
                  "scree</ext:Note></Feature>"});
    EXPECT_EQ(dtmtool::DescribeKeptElements(survey),
              "Project, FeatureDictionary, Application, Feature (3), DataPoints, Contours");
}

TEST(LandXmlTest, KeptElementsGoBackWhereTheyStoodAndStayPutOverRoundTrips) {
    const TinSurface read = Parse(SurveyWithElementsTheModelDoesNotUse()).at(0);
    const std::string written = dtmtool::LandXmlText({read});
    EXPECT_EQ(UndeclaredPrefixes(written), std::vector<std::string>{}) << written;
    pugi::xml_document document;
    ASSERT_TRUE(document.load_string(written.c_str()));
    const auto count = [&document](const char* path) { return document.select_nodes(path).size(); };
    // This program's application first, the survey's after it, each once.
    EXPECT_EQ(count("/LandXML/Application"), 2u);
    EXPECT_STREQ(document.select_node("/LandXML/Application[1]/@name").attribute().value(), "dtm");
    EXPECT_EQ(count("/LandXML/Application[@name='Field']/Author"), 1u);
    EXPECT_EQ(count("/LandXML/Project/Feature"), 1u);
    EXPECT_EQ(count("/LandXML/FeatureDictionary"), 1u);
    EXPECT_EQ(count("//Surface/Feature[@code='surface']"), 1u);
    EXPECT_EQ(count("//Surface/SourceData/DataPoints/PntList3D"), 1u);
    EXPECT_EQ(count("//Surface/SourceData/Contours"), 1u);
    EXPECT_EQ(count("//Breakline/Feature/Property[@value='191']"), 1u);
    EXPECT_EQ(count("//Boundary/Feature[@code='edge']"), 1u);

    const TinSurface back = Parse(written).at(0);
    EXPECT_EQ(back.survey.fileElements, read.survey.fileElements);
    EXPECT_EQ(back.survey.surfaceElements, read.survey.surfaceElements);
    EXPECT_EQ(back.survey.sourceElements, read.survey.sourceElements);
    EXPECT_EQ(back.survey.breaklines, read.survey.breaklines);
    EXPECT_EQ(back.survey.boundaries, read.survey.boundaries);
    const auto body = [](const std::string& xml) { return xml.substr(xml.find("\n  <")); };
    EXPECT_EQ(body(dtmtool::LandXmlText({back})), body(written));
}

TEST(LandXmlTest, TheFilesElementsGoOutOnceForAllItsSurfaces) {
    std::string text = SurveyWithElementsTheModelDoesNotUse();
    const std::string surface =
        text.substr(text.find("<Surface "), text.find("</Surfaces>") - text.find("<Surface "));
    std::string second = surface;
    second.replace(second.find("name=\"EG\""), 9, "name=\"FG\"");
    text.insert(text.find("</Surfaces>"), second);
    const std::vector<TinSurface> read = Parse(text);
    ASSERT_EQ(read.size(), 2u);
    EXPECT_EQ(read[1].survey.fileElements, read[0].survey.fileElements);
    const std::string written = dtmtool::LandXmlText(read);
    pugi::xml_document document;
    ASSERT_TRUE(document.load_string(written.c_str()));
    EXPECT_EQ(document.select_nodes("/LandXML/Project").size(), 1u);
    EXPECT_EQ(document.select_nodes("/LandXML/Application").size(), 2u);
    EXPECT_EQ(document.select_nodes("//Surface/Feature").size(), 2u);
}

// Kept elements carry their text as every text of an export goes out: reserved characters as
// entities, line ends and tabs as references, what XML 1.0 cannot hold as U+FFFD; comments are
// left out.
TEST(LandXmlTest, KeptElementsAreEscapedAsTheyAreWritten) {
    std::string text = Tin(kCorners, "<F>1 2 3</F>");
    text.insert(text.find("</Surface>"),
                "<Feature desc=\"a&amp;b&#10;c &quot;q&quot;\"><!-- note -->x &lt; y&#9;z"
                "<![CDATA[<raw>]]></Feature>");
    const TinSurface read = Parse(text).at(0);
    EXPECT_EQ(read.survey.surfaceElements,
              dtmtool::SurveyElements{"<Feature desc=\"a&amp;b&#10;c &quot;q&quot;\">x &lt; "
                                      "y&#9;z&lt;raw&gt;</Feature>"});
    const TinSurface back = Parse(dtmtool::LandXmlText({read})).at(0);
    EXPECT_EQ(back.survey.surfaceElements, read.survey.surfaceElements);
}

// A file may nest elements as deep as it likes; keeping them must not run out of stack.
TEST(LandXmlTest, DeeplyNestedElementsAreKeptWhole) {
    const int depth = 200000;
    std::string nested;
    for (int i = 0; i < depth; ++i) nested += "<a>";
    nested += "x";
    for (int i = 0; i < depth; ++i) nested += "</a>";
    std::string text = Tin(kCorners, "<F>1 2 3</F>");
    text.insert(text.find("</Surface>"), nested);
    const TinSurface read = Parse(text).at(0);
    ASSERT_EQ(read.survey.surfaceElements.size(), 1u);
    EXPECT_EQ(read.survey.surfaceElements[0], nested);
    EXPECT_TRUE(dtmtool::IsXmlElement(nested));
}

TEST(LandXmlTest, IsXmlElementTakesOneElementAndNothingElse) {
    EXPECT_TRUE(dtmtool::IsXmlElement("<a b=\"1\"><c/>text</a>"));
    for (const char* text : {"", "text", "<a>", "<a/><b/>", "<a/>text", "<!-- c -->", "<a></b>"})
        EXPECT_FALSE(dtmtool::IsXmlElement(text)) << text;
}

// A survey may split its source data, breaklines and boundaries into several groups; every one
// of them counts, and a second set of units does not displace the first.
TEST(LandXmlTest, EveryGroupOfSourceDataBreaklinesAndBoundariesCounts) {
    std::string text = Tin(kCorners, "<F>1 2 3</F>", "S",
                           "<Breaklines><Breakline name=\"a\"><PntList3D>1 1 1 2 2 1</PntList3D>"
                           "</Breakline></Breaklines><Breaklines><Breakline name=\"b\"><PntList3D>"
                           "3 3 1 4 4 1</PntList3D></Breakline></Breaklines>");
    text.insert(text.find("</Surface>"),
                "<SourceData><Boundaries><Boundary bndType=\"void\" name=\"c\"><PntList3D>1 1 1 "
                "1 2 1 2 1 1</PntList3D></Boundary></Boundaries><Contours/></SourceData>");
    text.replace(text.find("<LandXML>"), 9,
                 "<LandXML><Units><Metric linearUnit=\"meter\"/></Units>"
                 "<Units><Imperial linearUnit=\"foot\"/></Units>");
    const TinSurface read = Parse(text).at(0);
    ASSERT_EQ(read.survey.breaklines.size(), 2u);
    EXPECT_EQ(read.survey.breaklines[1].attributes, (dtmtool::SurveyAttributes{{"name", "b"}}));
    ASSERT_EQ(read.internalBoundaries.size(), 1u);
    EXPECT_EQ(read.survey.sourceElements, dtmtool::SurveyElements{"<Contours/>"});
    EXPECT_TRUE(read.survey.surfaceElements.empty());
    EXPECT_EQ(read.survey.units.system, "Metric");
    EXPECT_TRUE(read.survey.fileElements.empty());
    // Written back, they come in one group each, and read the same.
    const TinSurface back = Parse(dtmtool::LandXmlText({read})).at(0);
    EXPECT_EQ(back.survey.breaklines, read.survey.breaklines);
    EXPECT_EQ(back.survey.boundaries, read.survey.boundaries);
    EXPECT_EQ(back.survey.sourceElements, read.survey.sourceElements);
}

}  // namespace
