// End to end: the built dtm program run as a person runs it, on files the tests make.

#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <pugixml.hpp>

#include "CliSupport.h"
#include "LandXml.h"
#include "TempDir.h"
#include "ToolTestSupport.h"

namespace {

using tool_test::CliResult;
using tool_test::FolderEntries;
using tool_test::IsOneLine;
using tool_test::ReadText;
using tool_test::RunDtm;
using tool_test::WriteText;
using Names = std::vector<std::string>;

// A plane z = 0.01 x + 0.02 y + 100 over 30 × 20 cells of 2 m, with what a survey file may
// hold: ids out of order and not 1..n, hidden faces, breaklines and both kinds of boundary.
dtmtool::TinSurface PlaneSurface(const std::string& name) {
    dtmtool::TinSurface surface = tool_test::GridSurface(
        30, 20, 2.0, 1000.0, 5000.0, [](double x, double y) { return 0.01 * x + 0.02 * y + 100.0; },
        0.25, 17);
    surface.name = name;
    surface.breaklines.push_back({surface.points[33], surface.points[34], surface.points[35]});
    surface.externalBoundaries.push_back(
        {surface.points[0], surface.points[30], surface.points[650], surface.points[620]});
    surface.internalBoundaries.push_back(
        {surface.points[100], surface.points[102], surface.points[164]});
    return surface;
}

double Plane(double x, double y) {
    return 0.01 * x + 0.02 * y + 100.0;
}

tool_test::LandXmlStyle SurveyStyle() {
    tool_test::LandXmlStyle style;
    style.firstId = 900;
    style.idStep = 3;
    style.reversed = true;
    style.hiddenFaces = {{0, 1, 2}, {5, 6, 7}};
    return style;
}

// A folder with survey.xml (one surface) and, after Import, survey.dtm.
class CliTest : public ::testing::Test {
protected:
    void SetUp() override {
        WriteText(folder.File("survey.xml"),
                  tool_test::LandXmlOf({PlaneSurface("Plane")}, SurveyStyle()));
    }
    void Import() {
        const CliResult result =
            RunDtm({"import", "survey.xml", "-o", "survey.dtm"}, folder.Path());
        ASSERT_EQ(result.status, 0) << result.err;
    }
    // Expects a failure: exit status 1, one line on standard error that starts with the program
    // and the file, and no file in the folder besides @p left.
    void ExpectFailure(const CliResult& result, const std::string& file, const std::string& what,
                       const Names& left) {
        EXPECT_EQ(result.status, 1) << result.err;
        EXPECT_TRUE(IsOneLine(result.err)) << result.err;
        EXPECT_EQ(result.err, "dtm: " + file + ": " + what + "\n");
        EXPECT_EQ(FolderEntries(folder.Path()), left);
    }

    dtm_test::TempDir folder;
};

TEST_F(CliTest, DemoWritesItsDocumentAndPictureAndSaysWhereThePictureIs) {
    const CliResult result = RunDtm({"demo", "--dir", folder.Path()}, folder.Path());
    ASSERT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.err, "");
    const std::string picture = std::filesystem::canonical(folder.Path()).string() + "/demo.svg";
    EXPECT_NE(result.out.find("\npicture: " + picture + "\n"), std::string::npos) << result.out;
    EXPECT_NE(result.out.find("read back and written again byte for byte"), std::string::npos);
    EXPECT_NE(result.out.find("no surface"), std::string::npos);  // the pond
    EXPECT_EQ(FolderEntries(folder.Path()), (Names{"demo.dtm", "demo.svg", "survey.xml"}));
    pugi::xml_document svg;
    EXPECT_TRUE(svg.load_file(picture.c_str()));

    const CliResult info = RunDtm({"info", "demo.dtm"}, folder.Path());
    ASSERT_EQ(info.status, 0) << info.err;
    EXPECT_NE(info.out.find("project 'Demo terrain' (active)"), std::string::npos) << info.out;
    EXPECT_NE(info.out.find("1 external, 1 internal"), std::string::npos) << info.out;
}

TEST_F(CliTest, ImportAndExportKeepVerticesFacesBreaklinesAndBoundaries) {
    Import();
    const CliResult result = RunDtm({"export", "survey.dtm", "-o", "back.xml"}, folder.Path());
    ASSERT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(FolderEntries(folder.Path()), (Names{"back.xml", "survey.dtm", "survey.xml"}));

    // The file as written lists the points in reverse; the exported surface has them in the
    // order they were read, so compare as the reader sees both.
    const std::vector<dtmtool::TinSurface> original =
        dtmtool::ReadLandXml(folder.File("survey.xml"));
    const std::vector<dtmtool::TinSurface> back = dtmtool::ReadLandXml(folder.File("back.xml"));
    ASSERT_EQ(back.size(), 1u);
    EXPECT_EQ(back[0].name, "Plane");
    ASSERT_EQ(back[0].points.size(), original[0].points.size());
    for (std::size_t i = 0; i < back[0].points.size(); ++i) {
        EXPECT_EQ(back[0].points[i].x, original[0].points[i].x);
        EXPECT_EQ(back[0].points[i].y, original[0].points[i].y);
        EXPECT_EQ(back[0].points[i].z, original[0].points[i].z);
    }
    EXPECT_EQ(original[0].hiddenFaces, 2u);
    EXPECT_EQ(back[0].hiddenFaces, 0u);
    EXPECT_EQ(tool_test::CanonicalFaces(back[0].faces),
              tool_test::CanonicalFaces(original[0].faces));
    ASSERT_EQ(back[0].breaklines.size(), 1u);
    EXPECT_EQ(back[0].breaklines[0].size(), 3u);
    EXPECT_EQ(back[0].externalBoundaries.size(), 1u);
    EXPECT_EQ(back[0].internalBoundaries.size(), 1u);

    // Read back, the exported file makes the same document again.
    ASSERT_EQ(RunDtm({"import", "back.xml", "-o", "again.dtm"}, folder.Path()).status, 0);
    const CliResult first = RunDtm({"info", "survey.dtm"}, folder.Path());
    const CliResult second = RunDtm({"info", "again.dtm"}, folder.Path());
    EXPECT_EQ(first.out.substr(first.out.find('\n')), second.out.substr(second.out.find('\n')));
}

TEST_F(CliTest, EachSurfaceBecomesAProject) {
    WriteText(folder.File("two.xml"),
              tool_test::LandXmlOf({PlaneSurface("North"), PlaneSurface("South")}));
    const CliResult result = RunDtm({"import", "two.xml", "-o", "two.dtm"}, folder.Path());
    ASSERT_EQ(result.status, 0) << result.err;
    const CliResult info = RunDtm({"info", "two.dtm"}, folder.Path());
    EXPECT_NE(info.out.find("2 projects"), std::string::npos);
    EXPECT_NE(info.out.find("project 'North' (active)"), std::string::npos) << info.out;
    EXPECT_NE(info.out.find("project 'South'"), std::string::npos);
}

TEST_F(CliTest, ElevationsAtAPointAndForAListOnStandardInput) {
    Import();
    const CliResult one = RunDtm({"elev", "survey.dtm", "1021.5", "5013.25"}, folder.Path());
    ASSERT_EQ(one.status, 0) << one.err;
    EXPECT_NEAR(std::stod(one.out), Plane(1021.5, 5013.25), 1e-9);

    const CliResult list = RunDtm({"elev", "survey.dtm"}, folder.Path(),
                                  "x,y\n1001,5001\n1059.5 5039.5\n# a comment\n\n1030;5020\n");
    ASSERT_EQ(list.status, 0) << list.err;
    std::istringstream lines(list.out);
    std::string line;
    std::getline(lines, line);
    EXPECT_EQ(line, "x,y,z");
    int count = 0;
    while (std::getline(lines, line)) {
        double x = 0, y = 0, z = 0;
        ASSERT_EQ(std::sscanf(line.c_str(), "%lf,%lf,%lf", &x, &y, &z), 3) << line;
        EXPECT_NEAR(z, Plane(x, y), 1e-9);
        ++count;
    }
    EXPECT_EQ(count, 3);
}

TEST_F(CliTest, APointOutsideEverySurfaceIsAnError) {
    Import();
    ExpectFailure(RunDtm({"elev", "survey.dtm", "-5", "7"}, folder.Path()), "survey.dtm",
                  "the point (-5, 7) lies outside every surface", {"survey.dtm", "survey.xml"});
    ExpectFailure(
        RunDtm({"elev", "survey.dtm", "--project", "Plane", "--", "-5", "7"}, folder.Path()),
        "survey.dtm", "the point (-5, 7) lies outside surface 'Plane'",
        {"survey.dtm", "survey.xml"});
    const CliResult list = RunDtm({"elev", "survey.dtm"}, folder.Path(), "1001,5001\n0,0\n");
    EXPECT_EQ(list.status, 1);
    EXPECT_EQ(list.err, "dtm: survey.dtm: 1 of 2 points lie outside every surface\n");
    EXPECT_EQ(list.out.substr(list.out.find('\n') + 1), "0,0,\n");
}

TEST_F(CliTest, AProfileIsCsvOfDistanceAndElevationAlongTheLine) {
    Import();
    const CliResult result =
        RunDtm({"profile", "survey.dtm", "1002", "5002", "1050", "5030"}, folder.Path());
    ASSERT_EQ(result.status, 0) << result.err;
    std::istringstream lines(result.out);
    std::string line;
    std::getline(lines, line);
    EXPECT_EQ(line, "distance,x,y,elevation");
    double previous = -1.0, last = 0.0;
    int rows = 0;
    while (std::getline(lines, line)) {
        double d = 0, x = 0, y = 0, z = 0;
        ASSERT_EQ(std::sscanf(line.c_str(), "%lf,%lf,%lf,%lf", &d, &x, &y, &z), 4) << line;
        EXPECT_GT(d, previous);
        EXPECT_NEAR(z, Plane(x, y), 1e-9);
        EXPECT_NEAR(d, std::hypot(x - 1002, y - 5002), 1e-9);
        previous = last = d;
        ++rows;
    }
    EXPECT_GT(rows, 20);
    EXPECT_NEAR(last, std::hypot(48.0, 28.0), 1e-9);
}

TEST_F(CliTest, ContoursAreStoredInTheDocumentAndRendered) {
    Import();
    const CliResult contours = RunDtm(
        {"contours", "survey.dtm", "--interval", "0.2", "--index-every", "5"}, folder.Path());
    ASSERT_EQ(contours.status, 0) << contours.err;
    EXPECT_NE(contours.out.find("contour lines"), std::string::npos);
    const CliResult info = RunDtm({"info", "survey.dtm"}, folder.Path());
    EXPECT_NE(info.out.find("contours     "), std::string::npos);
    EXPECT_EQ(info.out.find("contours     none"), std::string::npos) << info.out;

    const CliResult render = RunDtm({"render", "survey.dtm", "-o", "map.svg"}, folder.Path());
    ASSERT_EQ(render.status, 0) << render.err;
    EXPECT_EQ(render.out, "picture: map.svg\n");
    pugi::xml_document svg;
    ASSERT_TRUE(svg.load_file(folder.File("map.svg").c_str()));
    EXPECT_TRUE(svg.child("svg").find_child_by_attribute("path", "stroke", "#7a4a26"));
    EXPECT_EQ(FolderEntries(folder.Path()), (Names{"map.svg", "survey.dtm", "survey.xml"}));
}

TEST_F(CliTest, AMissingInputIsNamed) {
    ExpectFailure(RunDtm({"import", "missing.xml", "-o", "out.dtm"}, folder.Path()), "missing.xml",
                  "cannot be opened: No such file or directory", {"survey.xml"});
    ExpectFailure(RunDtm({"render", "missing.dtm", "-o", "out.svg"}, folder.Path()), "missing.dtm",
                  "cannot be opened: No such file or directory", {"survey.xml"});
}

TEST_F(CliTest, ATruncatedDocumentIsNamedAndLeftAsItWas) {
    Import();
    std::string bytes = ReadText(folder.File("survey.dtm"));
    bytes.resize(bytes.size() / 2);
    WriteText(folder.File("survey.dtm"), bytes);
    for (const Names& command :
         {Names{"info", "survey.dtm"}, Names{"export", "survey.dtm", "-o", "x.xml"},
          Names{"render", "survey.dtm", "-o", "x.svg"},
          Names{"contours", "survey.dtm", "--interval", "1"}}) {
        const CliResult result = RunDtm(command, folder.Path());
        EXPECT_EQ(result.status, 1) << command[0];
        EXPECT_TRUE(IsOneLine(result.err)) << result.err;
        EXPECT_EQ(result.err.rfind("dtm: survey.dtm: is truncated: the network of project 'Plane' "
                                   "ends after ",
                                   0),
                  0u)
            << result.err;
        EXPECT_EQ(FolderEntries(folder.Path()), (Names{"survey.dtm", "survey.xml"}));
    }
    EXPECT_EQ(ReadText(folder.File("survey.dtm")), bytes);
}

TEST_F(CliTest, ACorruptDocumentIsNamed) {
    Import();
    std::string bytes = ReadText(folder.File("survey.dtm"));
    bytes[bytes.size() - 5] ^= 0x10;
    WriteText(folder.File("survey.dtm"), bytes);
    ExpectFailure(RunDtm({"render", "survey.dtm", "-o", "x.svg"}, folder.Path()), "survey.dtm",
                  "is damaged: the checksum of the breaklines of project 'Plane' does not match",
                  {"survey.dtm", "survey.xml"});
}

TEST_F(CliTest, AForeignFileIsNamed) {
    ExpectFailure(RunDtm({"info", "survey.xml"}, folder.Path()), "survey.xml",
                  "is not a dtm document", {"survey.xml"});
    WriteText(folder.File("picture.png"), "\x89PNG\r\n\x1a\n....");
    const CliResult result = RunDtm({"import", "picture.png", "-o", "out.dtm"}, folder.Path());
    EXPECT_EQ(result.status, 1);
    EXPECT_TRUE(IsOneLine(result.err)) << result.err;
    EXPECT_EQ(result.err.rfind("dtm: picture.png: ", 0), 0u) << result.err;
    EXPECT_NE(result.err.find("is not valid XML"), std::string::npos) << result.err;
    EXPECT_EQ(FolderEntries(folder.Path()), (Names{"picture.png", "survey.xml"}));
}

TEST_F(CliTest, ALandXmlFileWithoutATinSurfaceIsNamed) {
    WriteText(
        folder.File("roads.xml"),
        "<LandXML xmlns=\"http://www.landxml.org/schema/LandXML-1.2\"><Alignments/></LandXML>");
    ExpectFailure(RunDtm({"import", "roads.xml", "-o", "out.dtm"}, folder.Path()), "roads.xml",
                  "holds no TIN surface", {"roads.xml", "survey.xml"});
}

TEST_F(CliTest, AFaceOnAMissingPointIsNamedAndThePreviousDocumentStays) {
    Import();
    const std::string before = ReadText(folder.File("survey.dtm"));
    std::string text = tool_test::LandXmlOf({PlaneSurface("Plane")});
    const std::size_t face = text.find("<F>1 2 ");
    ASSERT_NE(face, std::string::npos);
    text.replace(face, 7, "<F>1 9999 ");
    WriteText(folder.File("broken.xml"), text);
    const CliResult result = RunDtm({"import", "broken.xml", "-o", "survey.dtm"}, folder.Path());
    EXPECT_EQ(result.status, 1);
    EXPECT_TRUE(IsOneLine(result.err)) << result.err;
    EXPECT_NE(result.err.find("face 1 of surface 'Plane' refers to point 9999, which the surface "
                              "does not define"),
              std::string::npos)
        << result.err;
    EXPECT_EQ(result.err.rfind("dtm: broken.xml: line ", 0), 0u) << result.err;
    EXPECT_EQ(ReadText(folder.File("survey.dtm")), before);
    EXPECT_EQ(FolderEntries(folder.Path()), (Names{"broken.xml", "survey.dtm", "survey.xml"}));
}

TEST_F(CliTest, AnOutputThatCannotBeWrittenLeavesNothing) {
    const CliResult result =
        RunDtm({"import", "survey.xml", "-o", "no/such/folder/out.dtm"}, folder.Path());
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.err.rfind("dtm: no/such/folder/out.dtm: cannot be written: ", 0), 0u)
        << result.err;
    EXPECT_EQ(FolderEntries(folder.Path()), Names{"survey.xml"});
}

TEST_F(CliTest, ACommandLineThatDoesNotParseExitsWithTwo) {
    EXPECT_EQ(RunDtm({}, folder.Path()).status, 2);
    EXPECT_EQ(RunDtm({"frobnicate"}, folder.Path()).status, 2);
    EXPECT_EQ(RunDtm({"import", "survey.xml"}, folder.Path()).status, 2);
    EXPECT_EQ(RunDtm({"elev", "survey.dtm", "1"}, folder.Path()).status, 2);
    EXPECT_EQ(RunDtm({"contours", "survey.dtm", "--interval", "-1"}, folder.Path()).status, 2);
    const CliResult help = RunDtm({"--help"}, folder.Path());
    EXPECT_EQ(help.status, 0);
    EXPECT_NE(help.out.find("contours"), std::string::npos);
    EXPECT_EQ(FolderEntries(folder.Path()), Names{"survey.xml"});
}

TEST_F(CliTest, UndoDemoUndoesAndRedoesAnEdit) {
    const CliResult result = RunDtm({"undo-demo"}, folder.Path());
    ASSERT_EQ(result.status, 0) << result.err;
    EXPECT_NE(result.out.find("undo: project 'Survey' is back"), std::string::npos) << result.out;
    EXPECT_NE(result.out.find("redo: project 'Survey' is removed again"), std::string::npos);
    EXPECT_NE(result.out.find("undo: the end is back at (50.0, 50.0, 14.0)"), std::string::npos)
        << result.out;
    EXPECT_NE(result.out.find("redo: the end is at (60.0, 40.0, 13.5) again"), std::string::npos);
}

}  // namespace
