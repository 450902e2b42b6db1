// End to end: the built dtm program run as a person runs it, on files the tests make.

#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <pugixml.hpp>
#include <regex>
#include <sstream>
#include <utility>

#include "CliSupport.h"
#include "Document.h"
#include "LandXml.h"
#include "SurfaceProject.h"
#include "TempDir.h"
#include "ToolTestSupport.h"
#include "Workspace.h"

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

// The lines of @p text split at commas, without the line breaks.
std::vector<Names> CsvRows(const std::string& text) {
    std::vector<Names> rows;
    std::istringstream lines(text);
    std::string line;
    while (std::getline(lines, line)) {
        Names fields;
        std::size_t from = 0;
        for (std::size_t comma; (comma = line.find(',', from)) != std::string::npos;
             from = comma + 1)
            fields.push_back(line.substr(from, comma - from));
        fields.push_back(line.substr(from));
        rows.push_back(fields);
    }
    return rows;
}

// Two plane pieces, 20 × 20 m each, side by side along x with a 20 m gap between them, as one
// network in two parts.
dtmtool::TinSurface TwoPieces() {
    const auto plane = [](double x, double y) { return Plane(x, y); };
    dtmtool::TinSurface surface = tool_test::GridSurface(10, 10, 2.0, 1000.0, 5000.0, plane);
    const dtmtool::TinSurface east = tool_test::GridSurface(10, 10, 2.0, 1040.0, 5000.0, plane);
    const int offset = static_cast<int>(surface.points.size());
    surface.points.insert(surface.points.end(), east.points.begin(), east.points.end());
    for (const std::array<int, 3>& face : east.faces)
        surface.faces.push_back({face[0] + offset, face[1] + offset, face[2] + offset});
    surface.name = "Pieces";
    return surface;
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
    // Expects a command line refused: exit status 2, nothing on standard output, and the one
    // line "dtm: @p what" on standard error.
    static void ExpectUsageError(const CliResult& result, const std::string& what) {
        EXPECT_EQ(result.status, 2) << result.err;
        EXPECT_EQ(result.err, "dtm: " + what + "\n");
        EXPECT_EQ(result.out, "");
    }
    // Imports a LandXML file of @p surface as pieces.dtm.
    void ImportSurface(const dtmtool::TinSurface& surface) {
        WriteText(folder.File("pieces.xml"), tool_test::LandXmlOf({surface}));
        const CliResult result =
            RunDtm({"import", "pieces.xml", "-o", "pieces.dtm"}, folder.Path());
        ASSERT_EQ(result.status, 0) << result.err;
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

    // The profile's rows are the points at or just before evenly spaced distances, from the
    // start of the line to its end.
    const std::size_t profile = result.out.find("  profile      ");
    ASSERT_NE(profile, std::string::npos) << result.out;
    std::istringstream lines(result.out.substr(profile));
    std::string line;
    std::getline(lines, line);
    const double length = std::stod(line.substr(15));
    std::vector<double> rows;
    while (std::getline(lines, line) && line.find(" m: ") != std::string::npos)
        rows.push_back(std::stod(line));
    ASSERT_EQ(rows.size(), 9u) << result.out;
    for (std::size_t row = 0; row < rows.size(); ++row) {
        const double wanted = length * static_cast<double>(row) / 8.0;
        EXPECT_LE(rows[row], wanted + 0.05) << row;
        EXPECT_GT(rows[row], wanted - 30.0) << row;
    }
    EXPECT_EQ(rows.front(), 0.0);
    EXPECT_EQ(rows.back(), length);

    const CliResult info = RunDtm({"info", "demo.dtm"}, folder.Path());
    ASSERT_EQ(info.status, 0) << info.err;
    EXPECT_NE(info.out.find("project 'Demo terrain' (active)"), std::string::npos) << info.out;
    EXPECT_NE(info.out.find("1 external, 1 internal"), std::string::npos) << info.out;
}

// A surveyor's point names and codes go through the document and come out on the same points.
TEST_F(CliTest, PointNamesSurviveImportAndExport) {
    WriteText(folder.File("named.xml"),
              "<LandXML><Surfaces><Surface name=\"Named\"><Definition surfType=\"TIN\"><Pnts>"
              "<P id=\"7\" name=\"BM1\" code=\"bench\">0 0 1</P><P id=\"8\">0 10 2</P>"
              "<P id=\"9\" desc=\"kerb &amp; gutter\">10 0 3</P></Pnts><Faces><F>7 9 8</F>"
              "</Faces></Definition></Surface></Surfaces></LandXML>");
    ASSERT_EQ(RunDtm({"import", "named.xml", "-o", "named.dtm"}, folder.Path()).status, 0);
    const CliResult result = RunDtm({"export", "named.dtm", "-o", "back.xml"}, folder.Path());
    ASSERT_EQ(result.status, 0) << result.err;
    const std::string back = ReadText(folder.File("back.xml"));
    EXPECT_NE(back.find("<P id=\"7\" name=\"BM1\" code=\"bench\">"), std::string::npos) << back;
    EXPECT_NE(back.find("<P id=\"8\">"), std::string::npos) << back;
    EXPECT_NE(back.find("<P id=\"9\" desc=\"kerb &amp; gutter\">"), std::string::npos) << back;
}

// The coordinate system a survey states goes through the document, is shown, and goes out
// again: a receiving program must not have to guess the projection.
TEST_F(CliTest, TheCoordinateSystemSurvivesImportAndExport) {
    WriteText(folder.File("framed.xml"),
              "<LandXML><CoordinateSystem name=\"CH1903+ / LV95\" epsgCode=\"2056\" "
              "verticalDatum=\"LN02\"/><Surfaces><Surface name=\"Framed\"><Definition "
              "surfType=\"TIN\"><Pnts><P id=\"1\">0 0 1</P><P id=\"2\">0 10 2</P>"
              "<P id=\"3\">10 0 3</P></Pnts><Faces><F>1 3 2</F></Faces></Definition></Surface>"
              "</Surfaces></LandXML>");
    ASSERT_EQ(RunDtm({"import", "framed.xml", "-o", "framed.dtm"}, folder.Path()).status, 0);
    const CliResult info = RunDtm({"info", "framed.dtm"}, folder.Path());
    EXPECT_NE(info.out.find("\n  coordinates  CH1903+ / LV95, EPSG 2056, vertical LN02\n"),
              std::string::npos)
        << info.out;
    const CliResult result = RunDtm({"export", "framed.dtm", "-o", "back.xml"}, folder.Path());
    ASSERT_EQ(result.status, 0) << result.err;
    const std::string back = ReadText(folder.File("back.xml"));
    EXPECT_NE(back.find("\n  <CoordinateSystem name=\"CH1903+ / LV95\" epsgCode=\"2056\" "
                        "verticalDatum=\"LN02\"/>\n"),
              std::string::npos)
        << back;
    // A survey without one shows none and states none.
    Import();
    EXPECT_EQ(RunDtm({"info", "survey.dtm"}, folder.Path()).out.find("coordinates"),
              std::string::npos);
    ASSERT_EQ(RunDtm({"export", "survey.dtm", "-o", "plain.xml"}, folder.Path()).status, 0);
    EXPECT_EQ(ReadText(folder.File("plain.xml")).find("CoordinateSystem"), std::string::npos);
}

// What a survey says that the model has no place for (a breakline's feature code, the file's
// project) goes through the document, is listed, and goes out again where it stood.
TEST_F(CliTest, ElementsTheModelDoesNotUseSurviveImportAndExport) {
    WriteText(folder.File("coded.xml"),
              "<LandXML><Project name=\"Site\"/><Surfaces><Surface name=\"Coded\"><SourceData>"
              "<Breaklines><Breakline><PntList3D>0 0 1 5 5 2</PntList3D><Feature code=\"rock\"/>"
              "</Breakline></Breaklines></SourceData><Definition surfType=\"TIN\"><Pnts>"
              "<P id=\"1\">0 0 1</P><P id=\"2\">0 10 2</P><P id=\"3\">10 0 3</P></Pnts>"
              "<Faces><F>1 3 2</F></Faces></Definition></Surface></Surfaces></LandXML>");
    ASSERT_EQ(RunDtm({"import", "coded.xml", "-o", "coded.dtm"}, folder.Path()).status, 0);
    const CliResult info = RunDtm({"info", "coded.dtm"}, folder.Path());
    EXPECT_NE(info.out.find("\n  elements     Project, Feature kept for export\n"),
              std::string::npos)
        << info.out;
    const CliResult result = RunDtm({"export", "coded.dtm", "-o", "back.xml"}, folder.Path());
    ASSERT_EQ(result.status, 0) << result.err;
    const std::string back = ReadText(folder.File("back.xml"));
    EXPECT_NE(back.find("\n  <Project name=\"Site\"/>\n"), std::string::npos) << back;
    EXPECT_NE(back.find("</PntList3D><Feature code=\"rock\"/></Breakline>"), std::string::npos)
        << back;
    // A survey without any shows none.
    Import();
    EXPECT_EQ(RunDtm({"info", "survey.dtm"}, folder.Path()).out.find("elements"),
              std::string::npos);
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
    // Hidden faces come back hidden, on the same points.
    EXPECT_EQ(original[0].survey.hiddenFaces.size(), 2u);
    EXPECT_EQ(back[0].survey.hiddenFaces, original[0].survey.hiddenFaces);
    EXPECT_EQ(tool_test::CanonicalFaces(back[0].faces),
              tool_test::CanonicalFaces(original[0].faces));
    ASSERT_EQ(back[0].breaklines.size(), 1u);
    EXPECT_EQ(back[0].breaklines[0].size(), 3u);
    EXPECT_EQ(back[0].externalBoundaries.size(), 1u);
    EXPECT_EQ(back[0].internalBoundaries.size(), 1u);

    // The survey's own point ids (900, 903, ... written in reverse) and its units come back.
    EXPECT_EQ(back[0].survey.pointIds, original[0].survey.pointIds);
    EXPECT_EQ(back[0].survey.units, original[0].survey.units);
    EXPECT_EQ(back[0].survey.units.Describe(), "Metric, linearUnit meter");
    EXPECT_EQ(result.err, "");

    // Read back, the exported file makes the same document again.
    ASSERT_EQ(RunDtm({"import", "back.xml", "-o", "again.dtm"}, folder.Path()).status, 0);
    const CliResult first = RunDtm({"info", "survey.dtm"}, folder.Path());
    const CliResult second = RunDtm({"info", "again.dtm"}, folder.Path());
    EXPECT_EQ(first.out.substr(first.out.find('\n')), second.out.substr(second.out.find('\n')));
}

TEST_F(CliTest, ContouringKeepsTheSurveyRecordForALaterExport) {
    Import();
    ASSERT_EQ(RunDtm({"contours", "survey.dtm", "--interval", "1"}, folder.Path()).status, 0);
    const CliResult info = RunDtm({"info", "survey.dtm"}, folder.Path());
    EXPECT_NE(info.out.find("  units        Metric, linearUnit meter\n"), std::string::npos)
        << info.out;
    ASSERT_EQ(RunDtm({"export", "survey.dtm", "-o", "back.xml"}, folder.Path()).status, 0);
    EXPECT_EQ(dtmtool::ReadLandXml(folder.File("back.xml"))[0].survey.pointIds,
              dtmtool::ReadLandXml(folder.File("survey.xml"))[0].survey.pointIds);
}

// Projects in different units cannot share a LandXML file; each can go out alone.
TEST_F(CliTest, ExportOfOneProjectTakesItAloneWhateverTheOthersUnits) {
    dtmtool::TinSurface metric = PlaneSurface("Metric");
    metric.survey.units = {"Metric", {{"linearUnit", "meter"}}};
    dtmtool::TinSurface imperial = PlaneSurface("Imperial");
    imperial.survey.units = {"Imperial", {{"linearUnit", "USSurveyFoot"}}};
    {
        dtmtool::Workspace workspace;
        dtmtool::AddSurfaceProject(workspace, metric);
        dtmtool::AddSurfaceProject(workspace, imperial);
        dtmtool::SaveDocument(workspace, folder.File("mixed.dtm"));
    }
    ExpectFailure(RunDtm({"export", "mixed.dtm", "-o", "both.xml"}, folder.Path()), "mixed.dtm",
                  "projects 'Metric' and 'Imperial' are in different units (Metric, linearUnit "
                  "meter; Imperial, linearUnit USSurveyFoot), and a LandXML file has one set of "
                  "units: export them one at a time with --project",
                  Names{"mixed.dtm", "survey.xml"});

    const CliResult one =
        RunDtm({"export", "mixed.dtm", "--project", "IMPERIAL", "-o", "one.xml"}, folder.Path());
    ASSERT_EQ(one.status, 0) << one.err;
    EXPECT_EQ(one.out.substr(0, one.out.find(':')), "project 'Imperial'");
    EXPECT_EQ(one.out.substr(one.out.find('\n')), "\nsaved one.xml\n");
    const std::vector<dtmtool::TinSurface> read = dtmtool::ReadLandXml(folder.File("one.xml"));
    ASSERT_EQ(read.size(), 1u);
    EXPECT_EQ(read[0].name, "Imperial");
    EXPECT_EQ(read[0].survey.units, imperial.survey.units);
    EXPECT_EQ(read[0].points.size(), imperial.points.size());

    ExpectFailure(
        RunDtm({"export", "mixed.dtm", "--project", "Grid", "-o", "x.xml"}, folder.Path()),
        "mixed.dtm", "holds no project called 'Grid'", Names{"mixed.dtm", "one.xml", "survey.xml"});
}

TEST_F(CliTest, ExportOfADocumentWithoutUnitsWarnsAndStatesNone) {
    // A document written without a survey record, as one from before records were kept.
    {
        dtmtool::Workspace workspace;
        dtmtool::AddSurfaceProject(workspace, PlaneSurface("Plane"));
        dtmtool::SaveDocument(workspace.Library(), folder.File("old.dtm"));
    }
    const CliResult info = RunDtm({"info", "old.dtm"}, folder.Path());
    EXPECT_NE(info.out.find("  units        not recorded\n"), std::string::npos) << info.out;
    const CliResult result = RunDtm({"export", "old.dtm", "-o", "old.xml"}, folder.Path());
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.err,
              "dtm: warning: old.dtm: the document does not record its units, so old.xml states "
              "none\n");
    EXPECT_EQ(ReadText(folder.File("old.xml")).find("Units"), std::string::npos);
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
    EXPECT_EQ(list.err, "dtm: survey.dtm: 1 of 2 points lies outside every surface\n");
    const std::vector<Names> rows = CsvRows(list.out);
    ASSERT_EQ(rows.size(), 3u) << list.out;
    EXPECT_EQ(rows[0], (Names{"x", "y", "z"}));
    EXPECT_EQ(rows[2], (Names{"0", "0", ""}));
}

TEST_F(CliTest, TheCountOfPointsOutsideAgreesInNumber) {
    Import();
    const std::vector<std::pair<std::string, std::string>> cases = {
        {"0,0\n", "1 of 1 point lies outside"},
        {"0,0\n1,1\n", "2 of 2 points lie outside"},
        {"0,0\n1001,5001\n1,1\n", "2 of 3 points lie outside"}};
    for (const auto& [input, words] : cases) {
        const CliResult list = RunDtm({"elev", "survey.dtm"}, folder.Path(), input);
        EXPECT_EQ(list.status, 1);
        EXPECT_EQ(list.err, "dtm: survey.dtm: " + words + " every surface\n");
    }
}

TEST_F(CliTest, AListHeaderIsEchoedWithZAddedAndWithoutOneTheAnswerIsHeadedXYZ) {
    Import();
    const CliResult named = RunDtm({"elev", "survey.dtm"}, folder.Path(),
                                   "# from the field book\nE;N\r\n1021.5;5013.25\r\n");
    ASSERT_EQ(named.status, 0) << named.err;
    const std::vector<Names> rows = CsvRows(named.out);
    ASSERT_EQ(rows.size(), 2u) << named.out;
    EXPECT_EQ(rows[0], (Names{"E;N", "z"}));
    EXPECT_NEAR(std::stod(rows[1][2]), Plane(1021.5, 5013.25), 1e-9);

    const CliResult quoted =
        RunDtm({"elev", "survey.dtm"}, folder.Path(), "\"Easting\",\"Northing\"\n1021.5,5013.25\n");
    ASSERT_EQ(quoted.status, 0) << quoted.err;
    EXPECT_EQ(CsvRows(quoted.out)[0], (Names{"\"Easting\"", "\"Northing\"", "z"}));

    const CliResult bare = RunDtm({"elev", "survey.dtm"}, folder.Path(), "1021.5,5013.25\n");
    ASSERT_EQ(bare.status, 0) << bare.err;
    EXPECT_EQ(CsvRows(bare.out).size(), 2u);
    EXPECT_EQ(CsvRows(bare.out)[0], (Names{"x", "y", "z"}));
}

// A first line that holds a number is a point, however it is written: a byte-order mark before
// it and double quotes around its fields are read past, not taken for a header.
TEST_F(CliTest, AFirstPointAfterAByteOrderMarkOrInQuotesIsAnswered) {
    Import();
    for (const std::string& first :
         {std::string("\xEF\xBB\xBF") + "1021.5,5013.25\n", std::string("\"1021.5\",\"5013.25\"\n"),
          std::string("\"1021.5\"\t \"5013.25\"\r\n")}) {
        const CliResult list = RunDtm({"elev", "survey.dtm"}, folder.Path(), first + "1030;5020\n");
        ASSERT_EQ(list.status, 0) << list.err;
        const std::vector<Names> rows = CsvRows(list.out);
        ASSERT_EQ(rows.size(), 3u) << list.out;
        EXPECT_EQ(rows[0], (Names{"x", "y", "z"}));
        EXPECT_EQ(rows[1][0], "1021.5");
        EXPECT_NEAR(std::stod(rows[1][2]), Plane(1021.5, 5013.25), 1e-9);
        EXPECT_NEAR(std::stod(rows[2][2]), Plane(1030, 5020), 1e-9);
    }
}

// A line that is not two coordinates stops the list with its line number, on the first line
// as on any other: it is never taken for a header when it holds a number.
TEST_F(CliTest, AListLineThatIsNotTwoCoordinatesIsNamedByItsNumber) {
    Import();
    const std::vector<std::pair<std::string, std::string>> cases = {
        {"835560,l068540\n1001,5001\n",
         "line 1 is not a point x,y of two numbers within 1e15 of zero: "
         "'835560,l068540'"},
        {"1e999,5\n1001,5001\n",
         "line 1 is not a point x,y of two numbers within 1e15 of zero: '1e999,5'"},
        {"x,y\n1001,5001\n\nnan,5001\n",
         "line 4 is not a point x,y of two numbers within 1e15 of zero: "
         "'nan,5001'"},
        {"1001,inf\n", "line 1 is not a point x,y of two numbers within 1e15 of zero: '1001,inf'"},
        {"1001,5001\n1.0000000000000002e15,5001\n",
         "line 2 is not a point x,y of two numbers within 1e15 of zero: "
         "'1.0000000000000002e15,5001'"},
        {"1001,5001,130.5\n",
         "line 1 is not a point x,y of two numbers within 1e15 of zero: "
         "'1001,5001,130.5'"},
        {"1001,5;5001,5\n",
         "line 1 is not a point x,y of two numbers within 1e15 of zero: '1001,5;5001,5'"}};
    for (const auto& [input, what] : cases) {
        const CliResult list = RunDtm({"elev", "survey.dtm"}, folder.Path(), input);
        EXPECT_EQ(list.status, 1) << input;
        EXPECT_EQ(list.err, "dtm: standard input: " + what + "\n");
        EXPECT_EQ(list.out.find("z\n"), list.out.find('\n') - 1) << list.out;  // headed
    }
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

// A line that nowhere meets the surface, such as one whose ends were given as northing easting,
// has nothing to plot and is told as a point off the surface is; one that meets it at a single
// corner is answered.
TEST_F(CliTest, AProfileThatNeverMeetsTheSurfaceIsAnError) {
    Import();
    ExpectFailure(RunDtm({"profile", "survey.dtm", "5002", "1002", "5030", "1050"}, folder.Path()),
                  "survey.dtm",
                  "the line from (5002, 1002) to (5030, 1050) lies outside surface 'Plane'",
                  {"survey.dtm", "survey.xml"});
    const CliResult corner =
        RunDtm({"profile", "survey.dtm", "990", "4990", "1000", "5000"}, folder.Path());
    ASSERT_EQ(corner.status, 0) << corner.err;
    const std::vector<Names> rows = CsvRows(corner.out);
    ASSERT_GE(rows.size(), 2u) << corner.out;
    EXPECT_NEAR(std::stod(rows.back()[3]), Plane(1000, 5000), 1e-9) << corner.out;
}

// Between two pieces of the network the profile has a row without elevation, so that a plot
// of it breaks there instead of drawing a straight line across the gap.
TEST_F(CliTest, AProfileAcrossAGapBetweenPiecesHasARowWithoutElevationInIt) {
    ImportSurface(TwoPieces());
    const CliResult result =
        RunDtm({"profile", "pieces.dtm", "1001", "5005", "1059", "5005"}, folder.Path());
    ASSERT_EQ(result.status, 0) << result.err;
    const std::vector<Names> rows = CsvRows(result.out);
    ASSERT_GT(rows.size(), 3u);
    std::vector<std::size_t> gaps;
    for (std::size_t i = 1; i < rows.size(); ++i) {
        ASSERT_EQ(rows[i].size(), 4u) << result.out;
        const double x = std::stod(rows[i][1]);
        EXPECT_NEAR(std::stod(rows[i][0]), x - 1001.0, 1e-9) << result.out;
        if (rows[i][3].empty())
            gaps.push_back(i);
        else
            EXPECT_NEAR(std::stod(rows[i][3]), Plane(x, 5005), 1e-9);
    }
    // The west piece ends at x = 1020 and the east one starts at x = 1040: the row without
    // elevation lies half way, in place as in distance, between the rows of those two ends.
    ASSERT_EQ(gaps.size(), 1u) << result.out;
    const std::size_t gap = gaps[0];
    ASSERT_TRUE(gap > 1 && gap + 1 < rows.size()) << result.out;
    EXPECT_EQ(rows[gap - 1][1], "1020");
    EXPECT_EQ(rows[gap], (Names{"29", "1030", "5005", ""}));
    EXPECT_EQ(rows[gap + 1][1], "1040");
}

TEST_F(CliTest, AProfileWithinOnePieceHasNoRowWithoutElevation) {
    ImportSurface(TwoPieces());
    const CliResult result =
        RunDtm({"profile", "pieces.dtm", "1001", "5001", "1019", "5019.5"}, folder.Path());
    ASSERT_EQ(result.status, 0) << result.err;
    const std::vector<Names> rows = CsvRows(result.out);
    ASSERT_GT(rows.size(), 10u);
    for (std::size_t i = 1; i < rows.size(); ++i) EXPECT_NE(rows[i][3], "") << result.out;
}

// At projected coordinates of 2e7 the same edge met from its two triangles is found at two
// distances a few 1e-10 apart; the profile writes that place once.
TEST_F(CliTest, AProfileAtLargeCoordinatesWritesEachCrossingOnce) {
    const double x0 = 20000000.0, y0 = 20000000.0;
    dtmtool::TinSurface surface = tool_test::GridSurface(
        30, 20, 2.0, x0, y0, [](double x, double y) { return 0.01 * (x - 2e7) + 0.02 * (y - 2e7); },
        0.25, 17);
    ImportSurface(surface);
    const CliResult result =
        RunDtm({"profile", "pieces.dtm", "20000000.7", "20000000.3", "20000059.1", "20000039.9"},
               folder.Path());
    ASSERT_EQ(result.status, 0) << result.err;
    const std::vector<Names> rows = CsvRows(result.out);
    ASSERT_GT(rows.size(), 40u);
    for (std::size_t i = 2; i < rows.size(); ++i) {
        const double step = std::stod(rows[i][0]) - std::stod(rows[i - 1][0]);
        EXPECT_GE(step, 1e-6) << "rows " << i - 1 << " and " << i << ":\n" << result.out;
        EXPECT_NE(rows[i][3], "");
    }
}

TEST_F(CliTest, ContoursWithoutAnIntervalTakeARoundOneAndSayWhich) {
    Import();
    const CliResult contours = RunDtm({"contours", "survey.dtm"}, folder.Path());
    ASSERT_EQ(contours.status, 0) << contours.err;
    // The plane rises from about 210 to about 211.4: a tenth gives 14 or 15 levels.
    EXPECT_NE(contours.out.find("elevations (interval 0.1), "), std::string::npos) << contours.out;
    const CliResult given = RunDtm({"contours", "survey.dtm", "--interval", "0.25"}, folder.Path());
    EXPECT_NE(given.out.find("elevations (interval 0.25), "), std::string::npos) << given.out;
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

// The picture's width takes both ends of its range, and nothing beyond them.
TEST_F(CliTest, ThePictureWidthRangeIncludesBothEnds) {
    Import();
    for (const std::string width : {"200", "20000"}) {
        const CliResult render =
            RunDtm({"render", "survey.dtm", "-o", "map.svg", "--width", width}, folder.Path());
        ASSERT_EQ(render.status, 0) << width << ": " << render.err;
        pugi::xml_document svg;
        ASSERT_TRUE(svg.load_file(folder.File("map.svg").c_str()));
        EXPECT_TRUE(svg.child("svg").attribute("width")) << width;
    }
    for (const std::string width : {"199", "20001"})
        ExpectUsageError(
            RunDtm({"render", "survey.dtm", "-o", "x.svg", "--width", width}, folder.Path()),
            "--width must be a whole number from 200 to 20000, not '" + width + "'");
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
    // The last block is the survey record the import keeps (units and point ids).
    bytes[bytes.size() - 5] ^= 0x10;
    WriteText(folder.File("survey.dtm"), bytes);
    ExpectFailure(RunDtm({"render", "survey.dtm", "-o", "x.svg"}, folder.Path()), "survey.dtm",
                  "is damaged: the checksum of the survey record of project 'Plane' does not "
                  "match",
                  {"survey.dtm", "survey.xml"});
}

// A block whose tag was damaged is stepped over as one from a newer writer, and the surveyor
// is told what was left out.
TEST_F(CliTest, ABlockItDoesNotKnowIsLeftOutWithAWarning) {
    Import();
    std::string bytes = ReadText(folder.File("survey.dtm"));
    const std::size_t tag = bytes.rfind("SRVY");
    ASSERT_NE(tag, std::string::npos);
    bytes[tag] = 'R';
    WriteText(folder.File("survey.dtm"), bytes);
    const CliResult result = RunDtm({"info", "survey.dtm"}, folder.Path());
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.err,
              "dtm: warning: survey.dtm: section 7 of project 'Plane' (tagged 'RRVY') is not one "
              "this program knows; it was left out\n");
    EXPECT_NE(result.out.find("units        not recorded"), std::string::npos) << result.out;
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

TEST_F(CliTest, EveryUsageErrorIsOneLineThatNamesWhatIsWrong) {
    const std::string commands =
        "the commands are demo, import, export, info, elev, profile, contours, render, undo-demo";
    const std::string longNumber(400, '7');
    const std::vector<std::pair<Names, std::string>> cases = {
        {{}, "a command is needed; " + commands},
        {{"bogus"}, "unknown command 'bogus'; " + commands},
        {{"--bogus"}, "unknown option '--bogus'"},
        {{"elev", "survey.dtm", "--bogus"}, "unknown option '--bogus' for 'elev'"},
        {{"import", "a.xml", "b.xml", "-o", "c.dtm"}, "unexpected argument 'b.xml' for 'import'"},
        {{"import", "survey.xml"}, "--output is required"},
        {{"contours", "survey.dtm", "--interval"}, "--interval needs a value"},
        {{"contours", "survey.dtm", "--interval", "1", "--interval", "2"},
         "--interval is given more than once"},
        {{"contours", "survey.dtm", "--interval", "0"},
         "--interval must be a positive number, not '0'"},
        {{"contours", "survey.dtm", "--interval", "-1"},
         "--interval must be a positive number, not '-1'"},
        {{"contours", "survey.dtm", "--interval", "inf"},
         "--interval must be a positive number, not 'inf'"},
        {{"contours", "survey.dtm", "--interval", "nan"},
         "--interval must be a positive number, not 'nan'"},
        {{"contours", "survey.dtm", "--interval", "abc"},
         "--interval must be a positive number, not 'abc'"},
        {{"contours", "survey.dtm", "--interval", "1", "--index-every", "0"},
         "--index-every must be a whole number of at least 1, not '0'"},
        {{"contours", "survey.dtm", "--interval", "1", "--index-every", "2.5"},
         "--index-every must be a whole number of at least 1, not '2.5'"},
        {{"render", "survey.dtm", "-o", "x.svg", "--width", "5"},
         "--width must be a whole number from 200 to 20000, not '5'"},
        {{"elev", "survey.dtm", "1"}, "give both X and Y, or neither"},
        {{"elev", "survey.dtm", "nan", "nan"}, "X must be a number within 1e15 of zero, not 'nan'"},
        {{"elev", "survey.dtm", "--", "1021", "-inf"},
         "Y must be a number within 1e15 of zero, not '-inf'"},
        {{"elev", "survey.dtm", longNumber, "5013"},
         "X must be a number within 1e15 of zero, not '" + longNumber.substr(0, 37) + "...'"},
        {{"profile", "survey.dtm", "1002", "5002", "inf", "5002"},
         "X2 must be a number within 1e15 of zero, not 'inf'"},
        {{"profile", "survey.dtm", "nan", "1", "2", "3"},
         "X1 must be a number within 1e15 of zero, not 'nan'"},
        {{"profile", "survey.dtm", "--", "-1e300", "5002", "1e300", "5002"},
         "X1 must be a number within 1e15 of zero, not '-1e300'"},
        {{"profile", "survey.dtm", "1002", "5002", "1002", "1.0000000000000002e15"},
         "Y2 must be a number within 1e15 of zero, not '1.0000000000000002e15'"},
        {{"elev", "survey.dtm", "2e15", "5013"},
         "X must be a number within 1e15 of zero, not '2e15'"},
        {{"profile", "survey.dtm", "1", "2", "3"}, "Y2 is required"}};
    for (const auto& [arguments, what] : cases) {
        SCOPED_TRACE(testing::PrintToString(arguments));
        ExpectUsageError(RunDtm(arguments, folder.Path()), what);
    }
    EXPECT_EQ(FolderEntries(folder.Path()), Names{"survey.xml"});
}

// The height of the labels is asked for only by giving it: 0, a negative or a non-finite
// height is an error, not a request for the automatic one.
TEST_F(CliTest, ATextHeightThatIsNotAPositiveNumberIsRefused) {
    Import();
    for (const std::string height : {"0", "-5", "nan", "inf"})
        ExpectUsageError(
            RunDtm({"contours", "survey.dtm", "--interval", "1", "--text-height", height},
                   folder.Path()),
            "--text-height must be a positive number, not '" + height + "'");
    const CliResult automatic =
        RunDtm({"contours", "survey.dtm", "--interval", "1"}, folder.Path());
    ASSERT_EQ(automatic.status, 0) << automatic.err;
    EXPECT_NE(automatic.out.find("labels of height 0.40\n"), std::string::npos)  // 60 / 150
        << automatic.out;
}

// Labels stand 50 text heights apart, so a tiny height once asked for millions of them and ran
// for many minutes; one below a hundred-thousandth of the surface's extent is refused before
// any line is traced, with the least height that would do, and at that height the labels stay
// few.
TEST_F(CliTest, ATextHeightFarBelowTheSurfacesExtentIsRefusedAtOnce) {
    Import();
    const std::string before = ReadText(folder.File("survey.dtm"));
    const CliResult tiny = RunDtm(
        {"contours", "survey.dtm", "--interval", "0.2", "--text-height", "1e-9", "-o", "x.dtm"},
        folder.Path());
    EXPECT_EQ(tiny.status, 2);
    EXPECT_TRUE(IsOneLine(tiny.err)) << tiny.err;
    const std::smatch least = [&] {
        std::smatch match;
        std::regex_match(tiny.err, match,
                         std::regex("dtm: --text-height 1e-09 is too small for project 'Plane', "
                                    "60 across: give at least ([0-9.]+), or leave the option out "
                                    "for a height from the extent\n"));
        return match;
    }();
    ASSERT_EQ(least.size(), 2u) << tiny.err;
    EXPECT_GE(std::stod(least[1]), 60 * 1e-5);
    EXPECT_LT(std::stod(least[1]), 60 * 1e-5 * 1.1);
    EXPECT_EQ(ReadText(folder.File("survey.dtm")), before);
    EXPECT_EQ(FolderEntries(folder.Path()), (Names{"survey.dtm", "survey.xml"}));

    const CliResult smallest = RunDtm({"contours", "survey.dtm", "--interval", "0.2",
                                       "--index-every", "1", "--text-height", least[1]},
                                      folder.Path());
    ASSERT_EQ(smallest.status, 0) << smallest.err;
    std::smatch counts;
    ASSERT_TRUE(std::regex_search(smallest.out, counts,
                                  std::regex("([0-9,]+) contour lines .* ([0-9,]+) labels")))
        << smallest.out;
    const auto number = [](std::string text) {
        text.erase(std::remove(text.begin(), text.end(), ','), text.end());
        return std::stoul(text);
    };
    EXPECT_GT(number(counts[2]), 0u);
    EXPECT_LE(number(counts[2]), 300 * number(counts[1]));
}

// An interval far below the elevations once looped for ever (its level numbers passed 2^53 and
// stopped stepping), and one that asks for too many levels was refused only after the projects
// before it had been traced: both are refused before any work, naming the option.
TEST_F(CliTest, AnIntervalTooSmallForTheElevationsIsRefusedAtOnce) {
    Import();
    const std::string before = ReadText(folder.File("survey.dtm"));
    // The interval given, and as the message writes it back.
    for (const auto& interval : {std::pair<std::string, std::string>{"1e-308", "1e-308"},
                                 std::pair<std::string, std::string>{"1e-9", "1e-09"}}) {
        SCOPED_TRACE(interval.first);
        const CliResult result =
            RunDtm({"contours", "survey.dtm", "--interval", interval.first}, folder.Path());
        EXPECT_EQ(result.status, 2);
        EXPECT_TRUE(IsOneLine(result.err)) << result.err;
        EXPECT_TRUE(std::regex_match(
            result.err, std::regex("dtm: --interval " + interval.second +
                                   " is too small for project 'Plane', elevations [-0-9.e]+ to "
                                   "[-0-9.e]+: give at least [0-9.e-]+\\n")))
            << result.err;
        EXPECT_EQ(result.out, "");
        EXPECT_EQ(ReadText(folder.File("survey.dtm")), before);
    }
}

TEST_F(CliTest, VersionAndHelpAreAnswered) {
    const CliResult version = RunDtm({"--version"}, folder.Path());
    EXPECT_EQ(version.status, 0);
    EXPECT_TRUE(std::regex_match(version.out, std::regex("dtm [0-9]+\\.[0-9]+\\.[0-9]+\n")))
        << version.out;
    EXPECT_EQ(version.err, "");
    const CliResult help = RunDtm({"profile", "--help"}, folder.Path());
    EXPECT_EQ(help.status, 0);
    EXPECT_NE(help.out.find("a row with an empty\nelevation is put halfway"), std::string::npos)
        << help.out;
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
