// Writes the seed corpora of the fuzz targets: small, valid inputs of every layout, produced by
// the library's own writers (and the host's, for the document and LandXML), so that the fuzzers
// start from what real files look like instead of having to discover the layouts.
//
// Usage: dtm_fuzz_make_seeds CORPUS_FOLDER. Each target's seeds go to CORPUS_FOLDER/<target>/,
// replacing files of the same name. A seed of a versioned section starts with the version as a
// little-endian int16, the way the targets cut their input.

#include <dtm/dtm.h>

#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iostream>
#include <sstream>
#include <string>
#include <vector>

#ifdef DTM_FUZZ_WITH_TOOLS
#include "Document.h"
#include "LandXml.h"
#include "SurfaceProject.h"
#include "Workspace.h"
#endif

namespace fs = std::filesystem;

namespace {

using kor::geom::LINE_3D;
using kor::geom::PNT_3D;

// The versions at which a section's layout changes, and one on each side: 690 and 720 add
// values to the network options' old automatic-triangulation group, 800 brings colours, ranges,
// the colour classes and the later contour records, 812 the point collections and 1502 the
// cloud identifier, the octree block and the int16 colour type.
const short kLayoutVersions[] = {689, 720, 799, 800, 812, 1501, 1502};
// The identifier under which the network target's document holds its cloud.
constexpr std::int32_t kCloudId = 1;
constexpr int kCloudPoints = 6;

fs::path g_corpus;
// The INI file that option objects read while the seeds are made: one that does not exist.
std::string g_noIniFile;

void Save(const std::string& target, const std::string& name, const std::string& bytes) {
    const fs::path folder = g_corpus / target;
    fs::create_directories(folder);
    std::ofstream file(folder / name, std::ios::binary | std::ios::trunc);
    file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    if (!file) throw std::runtime_error("cannot write " + (folder / name).string());
}

std::string VersionBytes(short version) {
    const auto bits = static_cast<std::uint16_t>(version);
    return std::string{static_cast<char>(bits & 0xFFu), static_cast<char>(bits >> 8)};
}

// A seed of a versioned section: the version, then what @p write puts on a stream of it.
std::string VersionedSeed(short version, const std::function<void(ofpstream&)>& write) {
    std::stringbuf buffer(std::ios::out);
    ofpstream stream(&buffer, version);
    write(stream);
    return VersionBytes(version) + buffer.str();
}

std::string SectionOnly(const std::function<void(ofpstream&)>& write) {
    std::stringbuf buffer(std::ios::out);
    ofpstream stream(&buffer, 1502);
    write(stream);
    return buffer.str();
}

std::string Named(const char* kind, short version) {
    return std::string(kind) + "-v" + std::to_string(version);
}

kor::CRefPtr<CDtmPrj> NewProject() {
    return kor::CRefPtr<CDtmPrj>::Adopt(new CDtmPrj(nullptr, "Seed", true, false));
}

// A small network: a square of four vertices cut into two triangles, its tree built.
void FillNetwork(CTris& tris) {
    {
        kor::CEventGuard event(tris.GetContext());
        for (const PNT_3D& p : {PNT_3D(0.0, 0.0, 10.0), PNT_3D(10.0, 0.0, 11.0),
                                PNT_3D(10.0, 10.0, 12.5), PNT_3D(0.0, 10.0, 9.0)})
            tris.AddTriVrt(p);
        tris.AddNewTri(3, 0, 1, 2);
        tris.AddNewTri(256, 0, 2, 3);
    }
    tris.CalcOcTree();
}

void FillBoundaries(CCnts& cnts) {
    auto ring = kor::CRefPtr<CCnt>::Adopt(new CCnt());
    ring->SetRealVrts({PNT_3D(0.0, 0.0, 1.0), PNT_3D(5.0, 0.0, 2.0), PNT_3D(5.0, 5.0, 3.0)});
    cnts.AddCnt(ring.Get());
    auto single = kor::CRefPtr<CCnt>::Adopt(new CCnt());
    single->SetRealVrts({PNT_3D(1.0, 1.0, 1.0)});
    cnts.AddCnt(single.Get());
}

void FillBreaklines(CVncs& vncs) {
    vncs.AddNewVnc(LINE_3D(PNT_3D(0.0, 0.0, 1.0), PNT_3D(4.0, 3.0, 2.0)));
    vncs.AddNewVnc(LINE_3D(PNT_3D(4.0, 3.0, 2.0), PNT_3D(9.0, 3.0, 2.5)));
}

void FillContours(CCvLvs& cvlvs) {
    const double x[] = {0.0, 5.0, 9.0, 12.0};
    const double y[] = {0.0, 2.0, 1.0, 4.0};
    CCvLv* line = cvlvs.AddNewCvLv(100.0, -1.0, 3, 4, x, y);
    line->AddInterval(2.0, 4.0, 1);
    cvlvs.AddNewCvLv(105.0, 2.5, 256, 3, x, y);
}

// Old contour records with a label node, so that the conversion into intervals has a seed.
std::string OldContourSection(short version) {
    return VersionedSeed(version, [](ofpstream& stream) {
        auto project = NewProject();
        CCvLvs& cvlvs = *project->GetCvLvs();
        const TOldVrtPol nodes[] = {{1, -1, 0.0, 0.0, 0.0, 0.0, 5.0},
                                    {2, 30, 5.0, 0.0, 0.0, 0.0, 5.0},
                                    {1, -1, 10.0, 0.0, 0.0, 0.0, 0.0}};
        cvlvs.AddNewCvLv(cvlvs.GetOpzCvLv(), 50.0, -1.0, 0.2, 3, nodes);
        cvlvs.SalvaInFile(stream);
    });
}

CColorClassComputer CustomClasses() {
    CColorClassComputer classes;
    classes.AddEntry(0, 10.0, 1);
    classes.AddEntry(1, 20.0, 3);
    classes.AddEntry(2, 30.0, 5);
    return classes;
}

CColorClassComputer GradedClasses() {
    CColorClassComputer classes;
    classes.AddEntry(0, 1);
    classes.AddEntry(1, 2);
    classes.AddEntry(2, 3);
    return classes;
}

COpzTri NetworkOptions() {
    COpzTri options;
    TDtmPointCollectionIdentifier byName;
    byName.id = 4;
    byName.byName = true;
    byName.name = kor::String("Rilievo");
    TDtmPointCollectionIdentifier byId;
    byId.id = 5;
    byId.secondId = 9;
    options.SetAutoTriOptions({byName, byId}, true, false, true, false, true, true, false,
                              COpzTri::TRI_COLOR_BY_CLASSES, 3, 7, CustomClasses(),
                              COpzTri::TRI_SYMBOL_2, 1.5, 2.0);
    return options;
}

COpzCvLv ContourOptions() {
    COpzCvLv options;
    options.SetTextOptions(1.25, 0.5, 2, kor::String("h="), kor::String(" m"), TEXT_VALIGN_2,
                           TEXT_ORIENTATION_1);
    options.SetVisOptions(true, false, true, true, false, 1, 2, 3, 65535, GradedClasses());
    return options;
}

// @p tris's section as files of a @p version below 1502 hold it: no cloud identifier and no
// tree block, which the library's writer puts out at every version but a reader takes only from
// 1502 on.
std::string OlderNetworkSection(const CTris& tris, short version) {
    return VersionedSeed(version, [&](ofpstream& stream) {
        dtm::io::WriteRaw<std::int32_t>(stream, tris.GetNoTriVrts());
        for (const PNT_3D& p : tris.GetPnts()) {
            dtm::io::WriteRaw(stream, p.x);
            dtm::io::WriteRaw(stream, p.y);
            dtm::io::WriteRaw(stream, p.z);
        }
        dtm::io::WriteRaw<std::int32_t>(stream, tris.GetNoTris());
        for (int i = 0; i < tris.GetNoTris(); ++i) {
            const CTri* tri = tris.GetTriAt(i);
            for (int k = 0; k < 3; ++k)
                dtm::io::WriteRaw<std::int32_t>(stream, tri->GetVerIndex(k));
            if (version >= 800) dtm::io::WriteRaw<std::int32_t>(stream, tri->GetColor());
        }
        if (version >= 800) {
            dtm::io::WriteRaw(stream, tris.GetMinQuota());
            dtm::io::WriteRaw(stream, tris.GetMaxQuota());
        }
    });
}

void NetworkSeeds() {
    auto project = NewProject();
    FillNetwork(*project->GetTris());
    kor::CPtr64Mapper mapper;
    for (const short version : {short{799}, short{800}, short{1501}})
        Save("network", Named("square", version),
             OlderNetworkSection(*project->GetTris(), version));
    Save("network", Named("square", 1502), VersionedSeed(1502, [&](ofpstream& stream) {
             project->GetTris()->SalvaInFile(stream, &mapper);
         }));
    Save("network", "empty-v1502", VersionedSeed(1502, [](ofpstream& stream) {
             dtm::io::WriteRaw<std::int32_t>(stream, 0);
         }));

    // A network over the cloud that the target's document holds under kCloudId: the same
    // points, so that the section's indices can be served.
    auto cloud = kor::CRefPtr<CMemCld>::Adopt(new CMemCld);
    for (int i = 0; i < kCloudPoints; ++i)
        cloud->AddPnt(PNT_3D(i * 10.0, (i % 3) * 7.0, 100.0 + i));
    auto cloudProject = NewProject();
    CTris& tris = *cloudProject->GetTris();
    tris.SetCld(cloud.Get());
    {
        kor::CEventGuard event(tris.GetContext());
        for (int i = 0; i < 4; ++i) tris.AddTriVrt(i);
        tris.AddNewTri(1, 0, 1, 2);
        tris.AddNewTri(1, 1, 2, 3);
    }
    tris.CalcOcTree();
    kor::CPtr64Mapper cloudMapper;
    cloudMapper.SetId(cloud.Get(), kCloudId);
    Save("network", "cloud-v1502",
         VersionedSeed(1502, [&](ofpstream& stream) { tris.SalvaInFile(stream, &cloudMapper); }));
}

void ContourSeeds() {
    auto project = NewProject();
    FillContours(*project->GetCvLvs());
    for (const short version : {short{799}, short{800}, short{1502}}) {
        Save("contours", Named("lines", version), VersionedSeed(version, [&](ofpstream& stream) {
                 project->GetCvLvs()->SalvaInFile(stream);
             }));
    }
    Save("contours", "old-labels-v799", OldContourSection(799));
}

void BoundarySeeds() {
    auto project = NewProject();
    FillBoundaries(*project->GetCnts(false));
    Save("boundaries", "two",
         SectionOnly([&](ofpstream& stream) { project->GetCnts(false)->SalvaInFile(stream); }));
    Save("boundaries", "none",
         SectionOnly([&](ofpstream& stream) { project->GetCnts(true)->SalvaInFile(stream); }));
}

void BreaklineSeeds() {
    auto project = NewProject();
    FillBreaklines(*project->GetVncs());
    Save("breaklines", "two",
         SectionOnly([&](ofpstream& stream) { project->GetVncs()->SalvaInFile(stream); }));
}

void ColourClassSeeds() {
    for (const short version : {short{799}, short{800}, short{1502}}) {
        Save(
            "colour_classes", Named("custom", version),
            VersionedSeed(version, [](ofpstream& stream) { CustomClasses().SalvaInFile(stream); }));
        Save(
            "colour_classes", Named("graded", version),
            VersionedSeed(version, [](ofpstream& stream) { GradedClasses().SalvaInFile(stream); }));
    }
}

void OptionSeeds() {
    const COpzTri network = NetworkOptions();
    const COpzCvLv contours = ContourOptions();
    auto project = NewProject();
    project->GetTris()->GetOptions() = network;
    project->GetCvLvs()->GetOpzCvLv() = contours;
    project->SetVisOptions(true, false, true, 5, 6, 7);
    for (const short version : kLayoutVersions) {
        Save("network_options", Named("options", version),
             VersionedSeed(version, [&](ofpstream& stream) {
                 network.SalvaInFile(stream);
                 network.SalvaVisInFile(stream);
             }));
        Save("contour_options", Named("options", version),
             VersionedSeed(version, [&](ofpstream& stream) {
                 contours.SalvaInFile(stream);
                 contours.SalvaVisInFile(stream);
             }));
        Save("project_options", Named("options", version),
             VersionedSeed(version, [&](ofpstream& stream) { project->SalvaOpzInFile(stream); }));
    }
}

std::string ReadText(const fs::path& path) {
    std::ifstream file(path, std::ios::binary);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

// The INI file as the library writes it: every option of a project, colour classes included.
void IniSeeds() {
    const fs::path folder = fs::temp_directory_path() / "dtm-fuzz-seeds";
    fs::create_directories(folder);
    const fs::path path = folder / "dtm.ini";
    fs::remove(path);
    CIniFile::SetDefaultPath(path.string());
    {
        auto project = NewProject();
        project->GetTris()->GetOptions() = NetworkOptions();
        project->GetCvLvs()->GetOpzCvLv() = ContourOptions();
        project->SetOpzDtmInIni();
    }
    Save("ini", "options", ReadText(path));
    CIniFile::SetDefaultPath(g_noIniFile);
    fs::remove_all(folder);
}

#ifdef DTM_FUZZ_WITH_TOOLS
void FillProject(CDtmPrj& prj) {
    FillNetwork(*prj.GetTris());
    FillBoundaries(*prj.GetCnts(false));
    FillBreaklines(*prj.GetVncs());
    FillContours(*prj.GetCvLvs());
}

// The survey facts an import keeps of @p surface: its point ids, units and coordinate system,
// a name for each outer boundary and a texture region over the first one, which the terrain
// model does not use, with elements it does not use either at every level they are kept.
void AddSurveyFacts(dtmtool::TinSurface& surface) {
    for (std::size_t i = 0; i < surface.points.size(); ++i)
        surface.survey.pointIds.push_back(static_cast<long long>(100 + 3 * i));
    surface.survey.units = {"Metric", {{"linearUnit", "meter"}}};
    surface.survey.coordinateSystem = {{"name", "Monte Mario / Italy zone 1"},
                                       {"epsgCode", "3003"}};
    surface.survey.surfaceAttributes = {{"desc", "Rilievo di prova"}};
    for (std::size_t i = 0; i < surface.externalBoundaries.size(); ++i)
        surface.survey.boundaries.push_back(
            {dtmtool::BoundaryRole::External,
             {{"name", "Lotto " + std::to_string(i + 1)}, {"bndType", "outer"}},
             {}});
    if (!surface.externalBoundaries.empty())
        surface.survey.boundaries.push_back({dtmtool::BoundaryRole::Kept,
                                             {{"bndType", "texture"}, {"m", "1"}},
                                             surface.externalBoundaries.front(),
                                             {"<Feature code=\"prato\"/>"}});
    surface.survey.sourceElements = {
        "<DataPoints name=\"punti\"><PntList3D>1 2 3 4 5 6</PntList3D></DataPoints>"};
    surface.survey.surfaceElements = {"<Feature code=\"superficie\"/>"};
    surface.survey.fileElements = {
        "<Project name=\"Rilievo\"><Feature code=\"c\" xmlns:q=\"urn:q\" q:v=\"1\"/></Project>"};
    surface.survey.groupAttributes = {{"name", "Rilievi"}};
    surface.survey.groupElements = {"<Feature code=\"gruppo\"/>"};
    // A hidden triangle and a hidden four-sided face over the first points.
    if (surface.points.size() >= 4) surface.survey.hiddenFaces = {{2, 1, 0}, {0, 1, 3, 2}};
}

void DocumentSeeds() {
    dtmtool::Workspace workspace;
    CDtmPrj* prj = workspace.AddProject("Rilievo");
    FillProject(*prj);
    workspace.AddProject("Vuoto");
    dtmtool::TinSurface surface = dtmtool::SurfaceOfProject(*prj);
    AddSurveyFacts(surface);
    workspace.Surveys()[prj] = surface.survey;
    const std::vector<char> bytes = dtmtool::SerializeDocument(
        workspace.Library(), dtmtool::kNewestDocumentVersion, &workspace.Surveys());
    Save("document", Named("two-projects", dtmtool::kNewestDocumentVersion),
         std::string(bytes.begin(), bytes.end()));

    // Older documents, for the older layouts of every section but the network's: below 1502 the
    // network's writer does not give the layout that its version reads, so their project has
    // no network.
    dtmtool::Workspace older;
    CDtmPrj* olderPrj = older.AddProject("Rilievo");
    FillBoundaries(*olderPrj->GetCnts(false));
    FillBreaklines(*olderPrj->GetVncs());
    FillContours(*olderPrj->GetCvLvs());
    older.AddProject("Vuoto");
    for (const short version : {short{799}, short{800}}) {
        const std::vector<char> olderBytes = dtmtool::SerializeDocument(older.Library(), version);
        Save("document", Named("two-projects", version),
             std::string(olderBytes.begin(), olderBytes.end()));
    }
}

void LandXmlSeeds() {
    dtmtool::Workspace workspace;
    CDtmPrj* prj = workspace.AddProject("Rilievo");
    FillNetwork(*prj->GetTris());
    FillBoundaries(*prj->GetCnts(false));
    FillBreaklines(*prj->GetVncs());
    dtmtool::TinSurface surface = dtmtool::SurfaceOfProject(*prj);
    AddSurveyFacts(surface);
    Save("landxml", "surface.xml",
         dtmtool::LandXmlText({surface}, surface.survey.units, surface.survey.coordinateSystem));
}
#endif

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::cerr << "usage: dtm_fuzz_make_seeds CORPUS_FOLDER\n";
        return 2;
    }
    g_corpus = argv[1];
    // Option objects read the INI file when they are built: none, so that every seed holds the
    // defaults and the same seeds come out on every machine.
    g_noIniFile = (fs::temp_directory_path() / "dtm-fuzz-no-such-folder" / "dtm.ini").string();
    CIniFile::SetDefaultPath(g_noIniFile);
    try {
        NetworkSeeds();
        ContourSeeds();
        BoundarySeeds();
        BreaklineSeeds();
        ColourClassSeeds();
        OptionSeeds();
        IniSeeds();
#ifdef DTM_FUZZ_WITH_TOOLS
        DocumentSeeds();
        LandXmlSeeds();
#endif
    } catch (const std::exception& error) {
        std::cerr << "dtm_fuzz_make_seeds: " << error.what() << "\n";
        return 1;
    }
    return 0;
}
