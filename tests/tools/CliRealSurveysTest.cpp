// End to end on real surveys: every LandXML file beside the repository is imported, queried and
// drawn. Skipped where the survey folder is absent (a user's clone).

#include <dtm/dtm.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <fstream>
#include <map>
#include <pugixml.hpp>
#include <sstream>

#include "CliSupport.h"
#include "Document.h"
#include "LandXml.h"
#include "SurveyRecord.h"
#include "TempDir.h"
#include "TestPaths.h"
#include "TextFormat.h"
#include "ToolTestSupport.h"
#include "Workspace.h"

namespace {

using tool_test::CliResult;
using tool_test::RunDtm;

class CliRealSurveysTest : public ::testing::TestWithParam<const char*> {};

double Seconds(std::chrono::steady_clock::time_point since) {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - since).count();
}

TEST_P(CliRealSurveysTest, ImportsQueriesAndDraws) {
    const std::string path = dtm_test::SharedDataDir() + "/landxml/" + GetParam() + ".xml";
    if (!dtm_test::FileExists(path)) GTEST_SKIP() << path << " is not here";
    dtm_test::TempDir folder;

    const auto start = std::chrono::steady_clock::now();
    const CliResult imported = RunDtm({"import", path, "-o", "survey.dtm"}, folder.Path());
    const double importSeconds = Seconds(start);
    ASSERT_EQ(imported.status, 0) << imported.err;
    RecordProperty("import", imported.out);

    // Ask for the elevation at the centroid of the first visible face of the first surface:
    // inside exactly one triangle, where the surface is the mean of its three corners.
    const std::vector<dtmtool::TinSurface> surfaces = dtmtool::ReadLandXml(path);
    const dtmtool::TinSurface& first = surfaces.front();
    ASSERT_FALSE(first.faces.empty());
    double x = 0, y = 0, z = 0;
    for (const int v : first.faces.front()) {
        x += first.points[static_cast<std::size_t>(v)].x / 3.0;
        y += first.points[static_cast<std::size_t>(v)].y / 3.0;
        z += first.points[static_cast<std::size_t>(v)].z / 3.0;
    }
    char xText[40], yText[40];
    std::snprintf(xText, sizeof(xText), "%.17g", x);
    std::snprintf(yText, sizeof(yText), "%.17g", y);
    const CliResult elevation =
        RunDtm({"elev", "survey.dtm", "--project", first.name, "--", xText, yText}, folder.Path());
    ASSERT_EQ(elevation.status, 0) << elevation.err;
    EXPECT_NEAR(std::stod(elevation.out), z, 1e-6 * std::max(1.0, std::fabs(z)));

    const CliResult info = RunDtm({"info", "survey.dtm"}, folder.Path());
    ASSERT_EQ(info.status, 0) << info.err;
    for (const dtmtool::TinSurface& surface : surfaces)
        EXPECT_NE(info.out.find(dtmtool::Count(surface.faces.size()) + " triangles"),
                  std::string::npos)
            << info.out;
    if (!first.survey.coordinateSystem.empty()) {
        EXPECT_NE(
            info.out.find("  coordinates  " +
                          dtmtool::DescribeCoordinateSystem(first.survey.coordinateSystem) + "\n"),
            std::string::npos)
            << info.out;
    }
    const std::string kept = dtmtool::DescribeKeptElements(first.survey);
    if (!kept.empty()) {
        EXPECT_NE(info.out.find("  elements     " + kept + " kept for export\n"), std::string::npos)
            << info.out;
    }

    // An export gives the survey back: its points under their own ids, its units and
    // coordinate system, the surface's attributes (its description and the like), its breaklines
    // one by one with their attributes, its boundaries in their order with theirs, those of kinds
    // the model does not use included, its hidden faces, and the elements the model does not
    // use (feature codes, data points, the file's project and the like) where they stood.
    const CliResult exported = RunDtm({"export", "survey.dtm", "-o", "back.xml"}, folder.Path());
    ASSERT_EQ(exported.status, 0) << exported.err;
    EXPECT_EQ(exported.err, "");
    const std::vector<dtmtool::TinSurface> back = dtmtool::ReadLandXml(folder.File("back.xml"));
    ASSERT_EQ(back.size(), surfaces.size());
    for (std::size_t s = 0; s < surfaces.size(); ++s) {
        EXPECT_EQ(back[s].points.size(), surfaces[s].points.size());
        EXPECT_EQ(back[s].survey.pointIds, surfaces[s].survey.pointIds);
        EXPECT_EQ(back[s].survey.units, surfaces[s].survey.units);
        EXPECT_EQ(back[s].survey.coordinateSystem, surfaces[s].survey.coordinateSystem);
        EXPECT_EQ(back[s].survey.surfaceAttributes, surfaces[s].survey.surfaceAttributes);
        EXPECT_EQ(back[s].breaklines.size(), surfaces[s].breaklines.size());
        EXPECT_EQ(back[s].survey.breaklines, surfaces[s].survey.breaklines);
        EXPECT_EQ(back[s].survey.boundaries, surfaces[s].survey.boundaries);
        EXPECT_EQ(tool_test::CanonicalFaces(back[s].faces),
                  tool_test::CanonicalFaces(surfaces[s].faces));
        EXPECT_EQ(back[s].survey.hiddenFaces, surfaces[s].survey.hiddenFaces);
        EXPECT_EQ(back[s].survey.sourceElements, surfaces[s].survey.sourceElements);
        EXPECT_EQ(back[s].survey.surfaceElements, surfaces[s].survey.surfaceElements);
        EXPECT_EQ(back[s].survey.fileElements, surfaces[s].survey.fileElements);
    }

    const auto renderStart = std::chrono::steady_clock::now();
    const CliResult render = RunDtm({"render", "survey.dtm", "-o", "survey.svg"}, folder.Path());
    const double renderSeconds = Seconds(renderStart);
    ASSERT_EQ(render.status, 0) << render.err;
    pugi::xml_document svg;
    EXPECT_TRUE(svg.load_file(folder.File("survey.svg").c_str()));
    std::printf("%s: %s  import %.2f s, render %.2f s\n", GetParam(), imported.out.c_str(),
                importSeconds, renderSeconds);
}

INSTANTIATE_TEST_SUITE_P(
    Surveys, CliRealSurveysTest,
    ::testing::Values("abrman_S1", "abrman_S2", "abrman_S3", "abrman_S4", "abrman_S5",
                      "inframodel_M3_Highest_Comb_rev2_Highest_combination_of_surface.mm",
                      "inframodel_M3_Rockbed_survey.mm", "inframodel_M3_Terrain.mm",
                      "inframodel_Y10_Lowest_Comb_rev2_201200.mm", "lx2gltf_olympus-new",
                      "lx2gltf_subdivision", "qgismesh_3D_modell_underlag_skyfall_20230915",
                      "qgismesh_Example_Clean", "qgismesh_Example_Clean_without_schema",
                      "qgismesh_Total_topp"),
    [](const ::testing::TestParamInfo<const char*>& info) {
        std::string name = info.param;
        for (char& c : name)
            if (!std::isalnum(static_cast<unsigned char>(c))) c = '_';
        return name;
    });

// A mesh in the plain text layout that a mesh plugin wrote from the same survey, read here
// without any of the tool's code: "ND id x y z" nodes and "E3T id n1 n2 n3 material" triangles.
struct TextMesh {
    std::map<long long, kor::geom::PNT_3D> nodes;
    std::vector<std::array<long long, 3>> triangles;
};

TextMesh ReadTextMesh(const std::string& path) {
    std::ifstream in(path);
    TextMesh mesh;
    std::string line;
    while (std::getline(in, line)) {
        std::istringstream fields(line);
        std::string card;
        long long id = 0;
        fields >> card >> id;
        if (card == "ND") {
            kor::geom::PNT_3D p;
            fields >> p.x >> p.y >> p.z;
            mesh.nodes[id] = p;
        } else if (card == "E3T") {
            std::array<long long, 3> nodes{};
            fields >> nodes[0] >> nodes[1] >> nodes[2];
            mesh.triangles.push_back(nodes);
        }
    }
    return mesh;
}

// A triangle turned so that its smallest id comes first, its winding kept.
std::array<long long, 3> Canonical(std::array<long long, 3> ids) {
    std::rotate(ids.begin(), std::min_element(ids.begin(), ids.end()), ids.end());
    return ids;
}

// The mesh was made from the three surfaces of Example_Clean without their hidden faces, each
// node numbered by its survey id plus 10000 times its surface's position, x = easting and
// y = northing, every triangle counter-clockwise. A document the tool imported from that survey
// must hold exactly those vertices and triangles, with the same winding.
TEST(CliRealSurveysCrossCheck, ExampleCleanHoldsTheTrianglesOfTheMeshMadeFromIt) {
    const std::string survey = dtm_test::SharedDataDir() + "/landxml/qgismesh_Example_Clean.xml";
    const std::string meshPath = dtm_test::SharedDataDir() + "/other/qgismesh_Example_Clean.2dm";
    if (!dtm_test::FileExists(survey) || !dtm_test::FileExists(meshPath))
        GTEST_SKIP() << "the Example_Clean survey or its mesh is not here";
    const TextMesh mesh = ReadTextMesh(meshPath);
    ASSERT_EQ(mesh.nodes.size(), 264u);
    ASSERT_EQ(mesh.triangles.size(), 362u);

    dtm_test::TempDir folder;
    const CliResult imported = RunDtm({"import", survey, "-o", "survey.dtm"}, folder.Path());
    ASSERT_EQ(imported.status, 0) << imported.err;
    dtmtool::Workspace workspace;
    dtmtool::LoadDocument(workspace, folder.File("survey.dtm"));
    ASSERT_EQ(workspace.Library().GetNoPrj(), 3u);

    std::vector<std::array<long long, 3>> fromDocument;
    for (unsigned int s = 0; s < workspace.Library().GetNoPrj(); ++s) {
        const CDtmPrj& prj = *workspace.Library().GetPrj(s);
        const dtmtool::SurveyRecord* record = dtmtool::FindSurveyRecord(workspace.Surveys(), prj);
        ASSERT_NE(record, nullptr) << "project " << s;
        const CTris& tris = *prj.GetTris();
        ASSERT_EQ(record->pointIds.size(), static_cast<std::size_t>(tris.GetNoTriVrts()));
        const auto meshId = [&](int vertex) {
            return record->pointIds[static_cast<std::size_t>(vertex)] + 10000LL * s;
        };
        for (int v = 0; v < tris.GetNoTriVrts(); ++v) {
            const auto node = mesh.nodes.find(meshId(v));
            ASSERT_NE(node, mesh.nodes.end()) << "vertex " << v << " of project " << s;
            const kor::geom::PNT_3D& p = tris.GetTriVrtAt(v);
            EXPECT_EQ(p.x, node->second.x) << "vertex " << v << " of project " << s;
            EXPECT_EQ(p.y, node->second.y) << "vertex " << v << " of project " << s;
            EXPECT_EQ(p.z, node->second.z) << "vertex " << v << " of project " << s;
        }
        for (int t = 0; t < tris.GetNoTris(); ++t) {
            const CTri& tri = *tris.GetTriAt(t);
            fromDocument.push_back(
                Canonical({meshId(tri.GetVerIndex(0)), meshId(tri.GetVerIndex(1)),
                           meshId(tri.GetVerIndex(2))}));
        }
    }
    std::vector<std::array<long long, 3>> fromMesh;
    for (const auto& triangle : mesh.triangles) fromMesh.push_back(Canonical(triangle));
    std::sort(fromDocument.begin(), fromDocument.end());
    std::sort(fromMesh.begin(), fromMesh.end());
    EXPECT_EQ(fromDocument, fromMesh);
}

}  // namespace
