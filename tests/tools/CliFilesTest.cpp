// End to end: what the dtm program does with the files it is given to read and to write, and
// with inputs whose numbers or triangles are not what a surface should hold.

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>
#include <utility>
#include <vector>

#include "CliSupport.h"
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

// A small survey: a 4 × 3 grid of 5 m cells, with a breakline and an outer boundary.
dtmtool::TinSurface Survey() {
    dtmtool::TinSurface surface = tool_test::GridSurface(
        4, 3, 5.0, 2000.0, 7000.0, [](double x, double y) { return 0.1 * x - 0.05 * y; }, 0.2, 11);
    surface.name = "Field";
    surface.breaklines.push_back({surface.points[1], surface.points[6]});
    surface.externalBoundaries.push_back(
        {surface.points[0], surface.points[4], surface.points[19], surface.points[15]});
    return surface;
}

// A LandXML text of one surface "S" with the given <P> and <F> elements, one per line.
std::string Tin(const std::vector<std::string>& points, const std::vector<std::string>& faces) {
    std::string text =
        "<?xml version=\"1.0\"?>\n<LandXML>\n<Surfaces>\n<Surface name=\"S\">\n"
        "<Definition surfType=\"TIN\">\n<Pnts>\n";
    for (const std::string& point : points) text += point + "\n";
    text += "</Pnts>\n<Faces>\n";
    for (const std::string& face : faces) text += face + "\n";
    return text + "</Faces>\n</Definition>\n</Surface>\n</Surfaces>\n</LandXML>\n";
}

bool IsLink(const std::string& path) {
    struct stat info;
    return ::lstat(path.c_str(), &info) == 0 && S_ISLNK(info.st_mode);
}

// A folder with survey.xml and, after Import, survey.dtm.
class CliFilesTest : public ::testing::Test {
protected:
    void SetUp() override {
        WriteText(folder.File("survey.xml"), tool_test::LandXmlOf({Survey()}));
    }
    void Import() {
        const CliResult result =
            RunDtm({"import", "survey.xml", "-o", "survey.dtm"}, folder.Path());
        ASSERT_EQ(result.status, 0) << result.err;
    }
    // Expects @p command to fail with exit status 1 and the one line "dtm: @p message", and
    // to leave the folder as it was, every regular file with its content.
    void ExpectRefused(const Names& command, const std::string& message) {
        SCOPED_TRACE(command[0] + " -> " + command.back());
        const std::vector<std::pair<std::string, std::string>> before = Contents();
        const CliResult result = RunDtm(command, folder.Path());
        EXPECT_EQ(result.status, 1) << result.err;
        EXPECT_TRUE(IsOneLine(result.err)) << result.err;
        EXPECT_EQ(result.err, "dtm: " + message + "\n");
        EXPECT_EQ(result.out, "");
        EXPECT_EQ(Contents(), before);
    }
    // Every entry of the folder with the content of a regular file (reading a pipe would
    // wait for a writer).
    std::vector<std::pair<std::string, std::string>> Contents() const {
        std::vector<std::pair<std::string, std::string>> contents;
        for (const std::string& name : FolderEntries(folder.Path())) {
            struct stat info;
            const bool regular =
                ::lstat(folder.File(name).c_str(), &info) == 0 && S_ISREG(info.st_mode);
            contents.emplace_back(name, regular ? ReadText(folder.File(name)) : "");
        }
        return contents;
    }

    dtm_test::TempDir folder;
};

TEST_F(CliFilesTest, AnOutputThatIsTheInputIsRefusedHoweverItIsNamed) {
    Import();
    ASSERT_EQ(::symlink("survey.dtm", folder.File("alias.dtm").c_str()), 0);
    ASSERT_EQ(::link(folder.File("survey.xml").c_str(), folder.File("copy.xml").c_str()), 0);
    const std::string refused = ": is the input file; choose another output";
    ExpectRefused({"import", "survey.xml", "-o", "survey.xml"}, "survey.xml" + refused);
    ExpectRefused({"import", "survey.xml", "-o", "./survey.xml"}, "./survey.xml" + refused);
    ExpectRefused({"import", "copy.xml", "-o", "survey.xml"}, "survey.xml" + refused);
    ExpectRefused({"export", "survey.dtm", "-o", "survey.dtm"}, "survey.dtm" + refused);
    ExpectRefused({"export", "alias.dtm", "-o", "survey.dtm"}, "survey.dtm" + refused);
    ExpectRefused({"render", "survey.dtm", "-o", "./survey.dtm"}, "./survey.dtm" + refused);
    ExpectRefused({"render", "survey.dtm", "-o", folder.File("alias.dtm")},
                  folder.File("alias.dtm") + refused);
}

TEST_F(CliFilesTest, ContoursMayWriteBackToTheirDocumentWithOrWithoutTheOption) {
    Import();
    for (const Names& command :
         {Names{"contours", "survey.dtm", "--interval", "0.5"},
          Names{"contours", "survey.dtm", "--interval", "0.5", "-o", "./survey.dtm"}}) {
        const CliResult result = RunDtm(command, folder.Path());
        EXPECT_EQ(result.status, 0) << result.err;
    }
    const CliResult info = RunDtm({"info", "survey.dtm"}, folder.Path());
    EXPECT_EQ(info.out.find("contours     none"), std::string::npos) << info.out;
    EXPECT_EQ(FolderEntries(folder.Path()), (Names{"survey.dtm", "survey.xml"}));
}

TEST_F(CliFilesTest, AnOutputThatIsALinkIsWrittenThroughAndTheLinkStays) {
    WriteText(folder.File("target.txt"), "not yet a document");
    ASSERT_EQ(::symlink("target.txt", folder.File("link.dtm").c_str()), 0);
    const CliResult result = RunDtm({"import", "survey.xml", "-o", "link.dtm"}, folder.Path());
    ASSERT_EQ(result.status, 0) << result.err;
    EXPECT_NE(result.out.find("saved link.dtm\n"), std::string::npos) << result.out;
    EXPECT_TRUE(IsLink(folder.File("link.dtm")));
    EXPECT_EQ(FolderEntries(folder.Path()), (Names{"link.dtm", "survey.xml", "target.txt"}));
    const CliResult info = RunDtm({"info", "target.txt"}, folder.Path());
    EXPECT_EQ(info.status, 0) << info.err;
    EXPECT_NE(info.out.find("project 'Field'"), std::string::npos) << info.out;
}

TEST_F(CliFilesTest, AnOutputThatIsNotARegularFileIsRefusedAndLeftAlone) {
    Import();
    ASSERT_EQ(::mkfifo(folder.File("pipe").c_str(), 0644), 0);
    ASSERT_EQ(::mkdir(folder.File("sub").c_str(), 0755), 0);
    ASSERT_EQ(::symlink("pipe", folder.File("pipe.dtm").c_str()), 0);
    const std::string pipe = ": is a pipe, not a regular file; choose another output";
    ExpectRefused({"import", "survey.xml", "-o", "pipe"}, "pipe" + pipe);
    ExpectRefused({"import", "survey.xml", "-o", "pipe.dtm"}, "pipe.dtm" + pipe);
    ExpectRefused({"export", "survey.dtm", "-o", "pipe"}, "pipe" + pipe);
    ExpectRefused({"render", "survey.dtm", "-o", "sub"},
                  "sub: is a folder, not a regular file; choose another output");
    ExpectRefused({"contours", "survey.dtm", "--interval", "1", "-o", "pipe"}, "pipe" + pipe);
    EXPECT_TRUE(IsLink(folder.File("pipe.dtm")));
    EXPECT_TRUE(FolderEntries(folder.File("sub")).empty());
}

TEST_F(CliFilesTest, AHyphenIsNotStandardOutput) {
    Import();
    const std::string message =
        "-: the output cannot be standard output; name a file (./- for a file called -)";
    ExpectRefused({"import", "survey.xml", "-o", "-"}, message);
    ExpectRefused({"export", "survey.dtm", "-o", "-"}, message);
    ExpectRefused({"render", "survey.dtm", "-o", "-"}, message);
    const CliResult dashed = RunDtm({"export", "survey.dtm", "-o", "./-"}, folder.Path());
    EXPECT_EQ(dashed.status, 0) << dashed.err;
    EXPECT_EQ(FolderEntries(folder.Path()), (Names{"-", "survey.dtm", "survey.xml"}));
}

TEST_F(CliFilesTest, AnOutputNameAsLongAsTheFileSystemAllowsIsWritten) {
    const std::string name = std::string(246, 'd') + ".dtm";
    const CliResult result = RunDtm({"import", "survey.xml", "-o", name}, folder.Path());
    ASSERT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(FolderEntries(folder.Path()), (Names{name, "survey.xml"}));
    EXPECT_EQ(RunDtm({"info", name}, folder.Path()).status, 0);
}

TEST_F(CliFilesTest, CoordinatesThatAreNotFiniteAreRefusedWithTheFileLineAndPoint) {
    // Finite values too large for a survey overflow the computations made of them.
    for (const char* value : {"nan", "inf", "-inf", "1e300", "-1.0000001e15"}) {
        WriteText(folder.File("odd.xml"), Tin({"<P id=\"1\">0 0 1</P>", "<P id=\"2\">0 10 1</P>",
                                               "<P id=\"17\">10 0 " + std::string(value) + "</P>"},
                                              {"<F>1 2 17</F>"}));
        ExpectRefused({"import", "odd.xml", "-o", "odd.dtm"},
                      "odd.xml: line 9: point 17 of surface 'S' holds a value that is not a "
                      "number within 1e15 of zero, which every northing, easting and elevation "
                      "must be");
    }
    WriteText(folder.File("odd.xml"),
              Tin({"<P id=\"1\">0 0 1</P>", "<P id=\"5\">nan 10 1</P>"}, {}));
    ExpectRefused({"import", "odd.xml", "-o", "odd.dtm"},
                  "odd.xml: line 8: point 5 of surface 'S' holds a value that is not a number "
                  "within 1e15 of zero, which every northing, easting and elevation must be");
}

TEST_F(CliFilesTest, ADoubtfulTriangulationIsImportedWithWarnings) {
    WriteText(
        folder.File("odd.xml"),
        Tin({"<P id=\"1\">0 0 1</P>", "<P id=\"2\">0 10 1</P>", "<P id=\"3\">10 0 1</P>",
             "<P id=\"4\">10 10 1</P>", "<P id=\"8\">0 0 2</P>", "<P id=\"7\">5 5 1</P>",
             "<P id=\"9\">20 20 1</P>"},
            {"<F>1 2 3</F>", "<F>2 4 3</F>", "<F>3 2 1</F>", "<F>7 9 9</F>", "<F>1 7 4</F>"}));
    const CliResult result = RunDtm({"import", "odd.xml", "-o", "odd.dtm"}, folder.Path());
    ASSERT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.err,
              "dtm: warning: odd.xml: surface 'S': 1 point has the northing and easting of an "
              "earlier point: 8 (as 1)\n"
              "dtm: warning: odd.xml: surface 'S': 1 face repeats a point: face 4 (7 9 9)\n"
              "dtm: warning: odd.xml: surface 'S': 1 face repeats an earlier face: face 3 = "
              "face 1 (1 2 3)\n"
              "dtm: warning: odd.xml: surface 'S': 1 face has no area in plan (its corners lie "
              "on one line): face 5 (1 7 4)\n");
    EXPECT_NE(result.out.find("7 points, 5 triangles"), std::string::npos) << result.out;
    EXPECT_NE(result.out.find("saved odd.dtm\n"), std::string::npos) << result.out;
    const CliResult info = RunDtm({"info", "odd.dtm"}, folder.Path());
    EXPECT_NE(info.out.find("7 vertices, 5 triangles"), std::string::npos) << info.out;

    // A sound survey imports without a word on standard error.
    const CliResult sound = RunDtm({"import", "survey.xml", "-o", "survey.dtm"}, folder.Path());
    EXPECT_EQ(sound.status, 0);
    EXPECT_EQ(sound.err, "");
}

TEST_F(CliFilesTest, CountsAgreeWithTheirNouns) {
    // One visible and one hidden face, one breakline, one outer boundary and one of another
    // kind; a description.
    WriteText(folder.File("one.xml"),
              "<LandXML><Surfaces><Surface name=\"T\" desc=\"Test ground\"><Definition "
              "surfType=\"TIN\"><Pnts>"
              "<P id=\"1\">0 0 10</P><P id=\"2\">0 10 12</P><P id=\"3\">10 0 11</P>"
              "<P id=\"4\">10 10 11</P></Pnts><Faces><F>1 2 3</F><F i=\"1\">2 4 3</F></Faces>"
              "</Definition><SourceData><Breaklines><Breakline><PntList3D>0 0 10 0 10 12"
              "</PntList3D></Breakline></Breaklines><Boundaries><Boundary bndType=\"outer\">"
              "<PntList3D>0 0 10 0 10 12 10 0 11</PntList3D></Boundary>"
              "<Boundary bndType=\"texture\"><PntList3D>0 0 10 0 10 12 10 0 11</PntList3D>"
              "</Boundary></Boundaries></SourceData></Surface></Surfaces></LandXML>");
    const CliResult imported = RunDtm({"import", "one.xml", "-o", "one.dtm"}, folder.Path());
    ASSERT_EQ(imported.status, 0) << imported.err;
    EXPECT_EQ(imported.out,
              "surface 'T' -> project 'T': 4 points, 1 triangle (1 hidden face kept for export), "
              "1 breakline (1 segment), 2 boundaries (1 of another kind kept for export), "
              "elevations 10.000 .. 12.000\nsaved one.dtm\n");
    const CliResult info = RunDtm({"info", "one.dtm"}, folder.Path());
    EXPECT_NE(info.out.find("  network      4 vertices, 1 triangle (1 hidden face kept for "
                            "export)\n"),
              std::string::npos)
        << info.out;
    EXPECT_NE(info.out.find("  breaklines   1 segment\n"), std::string::npos) << info.out;
    // The visible face has legs of 10 in plan that rise 2 and 1 along them, so its area in
    // space is half the length of (-20, -10, 100), half the root of 10 500.
    EXPECT_NE(info.out.find("  area         50.000 in plan, 51.235 on the ground\n"),
              std::string::npos)
        << info.out;
    EXPECT_NE(info.out.find("(active)\n  description  Test ground\n  units  "), std::string::npos)
        << info.out;
    EXPECT_NE(info.out.find("  boundaries   1 external, 0 internal, 1 of another kind kept for "
                            "export\n"),
              std::string::npos)
        << info.out;
    const CliResult exported = RunDtm({"export", "one.dtm", "-o", "back.xml"}, folder.Path());
    EXPECT_EQ(exported.out,
              "project 'T': 4 points, 1 triangle and 1 hidden face\nsaved back.xml\n");
    // The texture region, which the model never used, comes back after the outer boundary.
    const std::string back = ReadText(folder.File("back.xml"));
    const std::size_t outer = back.find(
        "<Boundary bndType=\"outer\"><PntList3D>0 0 10 0 10 12 "
        "10 0 11 0 0 10</PntList3D></Boundary>");
    const std::size_t texture = back.find(
        "<Boundary bndType=\"texture\"><PntList3D>0 0 10 0 10 "
        "12 10 0 11</PntList3D></Boundary>");
    EXPECT_NE(outer, std::string::npos) << back;
    EXPECT_NE(texture, std::string::npos) << back;
    EXPECT_LT(outer, texture);
    // The hidden face comes back hidden, after the visible one. They are each other's
    // neighbours across 2 to 3, and the visible face's side 1 to 2 lies on the breakline.
    const std::size_t visible = back.find("<F n=\"0 2 0\" b=\"1\">1 2 3</F>");
    const std::size_t hidden = back.find("<F i=\"1\" n=\"0 0 1\">2 4 3</F>");
    EXPECT_NE(visible, std::string::npos) << back;
    EXPECT_NE(hidden, std::string::npos) << back;
    EXPECT_LT(visible, hidden);
    // The areas and elevations of the visible face alone: the hidden one would double the area.
    EXPECT_NE(back.find("<Definition surfType=\"TIN\" area2DSurf=\"50\" "
                        "area3DSurf=\"51.234753829797995\" elevMax=\"12\" elevMin=\"10\">"),
              std::string::npos)
        << back;
    EXPECT_NE(back.find("<Surface name=\"T\" desc=\"Test ground\">"), std::string::npos) << back;

    // However many lines, levels and labels the tracer makes, a count of one takes the
    // singular.
    for (const char* interval : {"0.7", "1", "1.5", "3"}) {
        const CliResult contours = RunDtm(
            {"contours", "one.dtm", "--interval", interval, "--index-every", "5", "-o", "c.dtm"},
            folder.Path());
        ASSERT_EQ(contours.status, 0) << contours.err;
        for (const char* wrong : {" 1 contour lines ", " 1 elevations,", " 1 labels "})
            EXPECT_EQ(contours.out.find(wrong), std::string::npos) << contours.out;
    }
    const CliResult one =
        RunDtm({"contours", "one.dtm", "--interval", "1", "--index-every", "5"}, folder.Path());
    EXPECT_EQ(one.out.rfind("project 'T': 1 contour line (0 closed) at ", 0), 0u) << one.out;
    const CliResult described = RunDtm({"info", "one.dtm"}, folder.Path());
    EXPECT_NE(described.out.find("  contours     1 line from "), std::string::npos)
        << described.out;
}

}  // namespace
