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
#include <tuple>

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
    // the model does not use included, its hidden faces, the name of its group of surfaces, and
    // the elements the model does not use (feature codes, data points, the file's project and
    // the like) where they stood.
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
        EXPECT_EQ(back[s].survey.groupAttributes, surfaces[s].survey.groupAttributes);
        EXPECT_EQ(back[s].survey.groupElements, surfaces[s].survey.groupElements);
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

// What a LandXML file states of the sides of its surfaces' faces, read with nothing of the
// tool's code: for each side, the corner ids of the face across it (none for "0") and whether it
// lies on a breakline. A side is named by its face's corner ids and its own two, each sorted, so
// that files listing faces or corners in other orders compare equal.
struct StatedSide {
    using Face = std::array<long long, 4>;  // sorted, unused places at the end hold -1
    Face face;
    std::array<long long, 2> ends;
    Face across;  // all -1 where no face is across
    bool onBreakline;

    auto Key() const { return std::tie(face, ends); }
    bool operator<(const StatedSide& o) const { return Key() < o.Key(); }
};

struct StatedSurface {
    std::vector<StatedSide> sides;  // sorted
    bool statesNeighbours = false;
    bool statesBreaklineSides = false;
    // The definition's attributes, empty where the file leaves them out.
    std::string planArea, surfaceArea;
};

// The numbers of a space-separated list.
std::vector<long long> Numbers(const char* text) {
    std::vector<long long> numbers;
    for (char* end = nullptr;; text = end) {
        const long long value = std::strtoll(text, &end, 10);
        if (end == text) return numbers;
        numbers.push_back(value);
    }
}

StatedSide::Face SortedFace(const std::vector<long long>& ids) {
    StatedSide::Face face;
    face.fill(-1);
    std::copy(ids.begin(),
              ids.begin() + static_cast<std::ptrdiff_t>(std::min<std::size_t>(ids.size(), 4)),
              face.begin());
    std::sort(face.begin(),
              face.begin() + static_cast<std::ptrdiff_t>(std::min<std::size_t>(ids.size(), 4)));
    return face;
}

std::vector<StatedSurface> ReadStatedSurfaces(const std::string& path) {
    pugi::xml_document doc;
    EXPECT_TRUE(doc.load_file(path.c_str())) << path;
    std::vector<StatedSurface> surfaces;
    for (const pugi::xpath_node& surface : doc.select_nodes("//Surface")) {
        const pugi::xml_node definition = surface.node().child("Definition");
        StatedSurface stated;
        stated.planArea = definition.attribute("area2DSurf").value();
        stated.surfaceArea = definition.attribute("area3DSurf").value();
        std::vector<std::vector<long long>> faces;
        for (const pugi::xml_node f : definition.child("Faces").children("F"))
            faces.push_back(Numbers(f.child_value()));
        std::size_t index = 0;
        for (const pugi::xml_node f : definition.child("Faces").children("F")) {
            const std::vector<long long>& ids = faces[index++];
            const std::vector<long long> across = Numbers(f.attribute("n").value());
            const unsigned bits = f.attribute("b").as_uint(0);
            stated.statesNeighbours |= !f.attribute("n").empty();
            stated.statesBreaklineSides |= bits != 0;
            for (std::size_t k = 0; k < ids.size(); ++k) {
                StatedSide side{SortedFace(ids),
                                {std::min(ids[k], ids[(k + 1) % ids.size()]),
                                 std::max(ids[k], ids[(k + 1) % ids.size()])},
                                SortedFace({}),
                                ((bits >> k) & 1u) != 0};
                const long long neighbour = k < across.size() ? across[k] : 0;
                if (neighbour > 0 && neighbour <= static_cast<long long>(faces.size()))
                    side.across = SortedFace(faces[static_cast<std::size_t>(neighbour - 1)]);
                stated.sides.push_back(side);
            }
        }
        std::sort(stated.sides.begin(), stated.sides.end());
        surfaces.push_back(stated);
    }
    return surfaces;
}

// Whether two files state the same of every side: the same face across (@p across) or the same
// breakline flag.
bool SameSides(const StatedSurface& a, const StatedSurface& b, bool across) {
    return std::equal(a.sides.begin(), a.sides.end(), b.sides.begin(), b.sides.end(),
                      [across](const StatedSide& x, const StatedSide& y) {
                          return x.Key() == y.Key() &&
                                 (across ? x.across == y.across : x.onBreakline == y.onBreakline);
                      });
}

// The files that state them tell each face's neighbours, the sides on their breaklines and the
// surface's areas; an export works all of them out anew and must come to what the file said.
TEST_P(CliRealSurveysTest, AnExportStatesTheNeighboursBreaklineSidesAndAreasTheSurveyStated) {
    const std::string path = dtm_test::SharedDataDir() + "/landxml/" + GetParam() + ".xml";
    if (!dtm_test::FileExists(path)) GTEST_SKIP() << path << " is not here";
    dtm_test::TempDir folder;
    ASSERT_EQ(RunDtm({"import", path, "-o", "survey.dtm"}, folder.Path()).status, 0);
    ASSERT_EQ(RunDtm({"export", "survey.dtm", "-o", "back.xml"}, folder.Path()).status, 0);

    const std::vector<StatedSurface> source = ReadStatedSurfaces(path);
    const std::vector<StatedSurface> back = ReadStatedSurfaces(folder.File("back.xml"));
    ASSERT_EQ(back.size(), source.size());
    for (std::size_t s = 0; s < source.size(); ++s) {
        EXPECT_TRUE(back[s].statesNeighbours);
        if (source[s].statesNeighbours) {
            EXPECT_TRUE(SameSides(back[s], source[s], true));
        }
        if (source[s].statesBreaklineSides) {
            EXPECT_TRUE(SameSides(back[s], source[s], false));
        }
        // The files give their areas rounded to a few decimals, and one of them has two digits
        // swapped (3348805.6532 where its faces make 3348805.6352): hence the relative
        // tolerance.
        for (const auto& [stated, worked] :
             {std::pair(source[s].planArea, back[s].planArea),
              std::pair(source[s].surfaceArea, back[s].surfaceArea)}) {
            if (stated.empty()) continue;
            ASSERT_FALSE(worked.empty());
            EXPECT_NEAR(std::stod(worked), std::stod(stated), 1e-8 * std::stod(stated));
        }
    }
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
