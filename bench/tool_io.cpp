// The command-line host's file work on a surface of about 10^6 triangles: importing it from
// LandXML, saving the document, loading it again and exporting it. Each is timed against copying
// the same number of bytes through the same kind of file in one call, measured in the same run; the
// absolute seconds are reported too, since "seconds, not minutes" is what a surveyor waits.

#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdio>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "Document.h"
#include "LandXml.h"
#include "SurfaceProject.h"
#include "SurveyRecord.h"
#include "Workspace.h"
#include "common/RatioReporter.h"

namespace {

// 708 × 708 cells of two triangles: 1,002,528 triangles on 502,681 vertices.
constexpr int kCells = 708;

std::string TemporaryPath(const char* name) {
    const char* base = std::getenv("TMPDIR");
    return std::string(base && *base ? base : "/tmp") + "/dtm-bench-" + name;
}

// A jittered grid over smooth relief in projected coordinates, as a survey program exports it.
dtmtool::TinSurface BenchSurface() {
    dtmtool::TinSurface surface;
    surface.name = "Bench";
    for (int row = 0; row <= kCells; ++row)
        for (int column = 0; column <= kCells; ++column) {
            const double jitterX = 0.3 * std::sin(row * 12.9898 + column * 78.233);
            const double jitterY = 0.3 * std::cos(row * 39.3468 + column * 11.135);
            const double x = 512000.0 + (column + jitterX) * 2.0;
            const double y = 5031000.0 + (row + jitterY) * 2.0;
            surface.points.emplace_back(x, y,
                                        150.0 + 20.0 * std::sin(x / 300.0) * std::cos(y / 400.0));
        }
    const auto index = [](int row, int column) { return row * (kCells + 1) + column; };
    for (int row = 0; row < kCells; ++row)
        for (int column = 0; column < kCells; ++column) {
            surface.faces.push_back(
                {index(row, column), index(row, column + 1), index(row + 1, column + 1)});
            surface.faces.push_back(
                {index(row, column), index(row + 1, column + 1), index(row + 1, column)});
        }
    return surface;
}

// The LandXML file and the document, made once.
struct Files {
    std::string landXml = TemporaryPath("surface.xml");
    std::string document = TemporaryPath("surface.dtm");
    std::size_t landXmlBytes = 0;
    std::size_t documentBytes = 0;

    Files() {
        dtmtool::WriteLandXml(landXml, {BenchSurface()});
        dtmtool::Workspace workspace;
        dtmtool::AddSurfaceProject(workspace, dtmtool::ReadLandXml(landXml).front());
        dtmtool::SaveDocument(workspace.Library(), document);
        landXmlBytes = dtmtool::ReadWholeFile(landXml).size();
        documentBytes = dtmtool::ReadWholeFile(document).size();
    }
    ~Files() {
        std::remove(landXml.c_str());
        std::remove(document.c_str());
    }
};

const Files& TheFiles() {
    static const Files files;
    return files;
}

void Report(benchmark::State& state, std::size_t bytes) {
    state.counters["MB"] = static_cast<double>(bytes) / 1e6;
    state.counters["triangles"] = 2.0 * kCells * kCells;
}

// Baseline: the document's bytes written to a file and read back, one call each.
void PlainFileCopy(benchmark::State& state) {
    const std::vector<char> bytes = dtmtool::ReadWholeFile(TheFiles().document);
    const std::string path = TemporaryPath("plain.bin");
    for (auto _ : state) {
        {
            std::ofstream out(path, std::ios::binary);
            out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
        }
        benchmark::DoNotOptimize(dtmtool::ReadWholeFile(path).size());
    }
    std::remove(path.c_str());
    Report(state, bytes.size());
}

// The host's commands import and load with undo recording suspended (a file just read is where
// the user's history starts), and so do these.

// Reading the LandXML file, with the triangulation checks whose warnings "dtm import" prints,
// and filling a project with it, in one change event.
void ImportLandXml(benchmark::State& state) {
    const Files& files = TheFiles();
    for (auto _ : state) {
        auto workspace = std::make_unique<dtmtool::Workspace>();
        {
            const dtmtool::UndoSuspension quiet(workspace->Undo());
            std::vector<std::string> warnings;
            dtmtool::AddSurfaceProject(*workspace,
                                       dtmtool::ReadLandXml(files.landXml, &warnings).front());
            if (!warnings.empty()) {
                state.SkipWithError(warnings.front().c_str());
                break;
            }
        }
        // Tearing the projects down is not part of the import.
        state.PauseTiming();
        workspace.reset();
        state.ResumeTiming();
    }
    Report(state, files.landXmlBytes);
}

void SaveDocument(benchmark::State& state) {
    const Files& files = TheFiles();
    dtmtool::Workspace workspace;
    dtmtool::LoadDocument(workspace.Library(), files.document);
    const std::string path = TemporaryPath("saved.dtm");
    for (auto _ : state) dtmtool::SaveDocument(workspace.Library(), path);
    std::remove(path.c_str());
    Report(state, files.documentBytes);
}

void LoadDocument(benchmark::State& state) {
    const Files& files = TheFiles();
    for (auto _ : state) {
        auto workspace = std::make_unique<dtmtool::Workspace>();
        {
            const dtmtool::UndoSuspension quiet(workspace->Undo());
            dtmtool::LoadDocument(workspace->Library(), files.document);
        }
        state.PauseTiming();
        workspace.reset();
        state.ResumeTiming();
    }
    Report(state, files.documentBytes);
}

// What "dtm export" does once the document is loaded: the project turned back into a surface,
// its faces' neighbours and breakline sides and its areas worked out, and the file written.
void ExportLandXml(benchmark::State& state) {
    const Files& files = TheFiles();
    dtmtool::Workspace workspace;
    {
        const dtmtool::UndoSuspension quiet(workspace.Undo());
        dtmtool::LoadDocument(workspace, files.document);
    }
    const CDtmPrj& prj = *workspace.Library().GetPrj(0);
    const std::string path = TemporaryPath("exported.xml");
    for (auto _ : state) {
        dtmtool::WriteLandXml(
            path,
            {dtmtool::SurfaceOfProject(prj, dtmtool::FindSurveyRecord(workspace.Surveys(), prj))},
            {}, {});
    }
    Report(state, dtmtool::ReadWholeFile(path).size());
    std::remove(path.c_str());
}

BENCHMARK(PlainFileCopy)->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(ImportLandXml)->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(SaveDocument)->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(LoadDocument)->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(ExportLandXml)->Unit(benchmark::kMillisecond)->Iterations(3);

}  // namespace

int main(int argc, char** argv) {
    return dtm_bench::RunWithRatios(argc, argv, "PlainFileCopy/iterations:3",
                                    "writing and reading the document's bytes in one call each");
}
