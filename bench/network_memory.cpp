// The memory a loaded network of about 10^6 triangles takes: the growth of the process's peak
// resident memory while a fresh process reads the network's section from a file, then after the
// first elevation query and the first profile (which build the network's search index) and
// after the first edge search (whose octree traversal finds the boxes of the tree's nodes).
//
// Each figure comes from a child process started for the purpose (this program, run again with
// --dtm-memory-child), so that nothing the measuring process did before (building the network,
// writing the file) is counted or hides a growth. Figures are bytes per triangle, compared with
// the target of 64; the benchmark's time is only that of the child.

#include <dtm/network/CTris.h>
#include <dtm/profile/CCalcIntersect.h>
#include <dtm/support/IdRemap.h>
#include <dtm/support/Streams.h>

#include <benchmark/benchmark.h>

#include "common/BenchNetwork.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include <sys/wait.h>
#include <unistd.h>

namespace {

constexpr char kChildFlag[] = "--dtm-memory-child=";

// A value of /proc/self/status in bytes ("VmRSS:", "VmHWM:"), or -1.
long long StatusBytes(const char* key) {
    std::FILE* status = std::fopen("/proc/self/status", "r");
    if (!status) return -1;
    char line[256];
    long long kib = -1;
    const std::size_t length = std::strlen(key);
    while (std::fgets(line, sizeof(line), status)) {
        if (std::strncmp(line, key, length) == 0) kib = std::atoll(line + length);
    }
    std::fclose(status);
    return kib < 0 ? -1 : kib * 1024;
}

// The child: reads the section from @p path into a fresh project and prints four figures, the
// peak growth after the load, after a query, after a profile and after an edge search, in bytes
// per triangle.
int RunChild(const char* path) {
    auto prj = dtm_bench::ProjectPtr::Adopt(new CDtmPrj(nullptr, "Memory", true, false));
    { kor::CEventGuard arm(prj->GetContext()); }
    std::filebuf file;
    if (!file.open(path, std::ios::in | std::ios::binary)) return 2;
    ifpstream in(&file, 1502);
    const kor::CRefObjIdRemapper remapper;
    // Resets the peak to the current resident size, so that the growth is measured from here.
    { std::ofstream("/proc/self/clear_refs") << "5"; }
    const long long before = StatusBytes("VmRSS:");
    CTris& tris = *prj->GetTris();
    tris.LeggeDaFile(in, remapper, true);
    if (!in) return 3;
    const double triangles = tris.GetNoTris();
    const double loaded = static_cast<double>(StatusBytes("VmHWM:") - before) / triangles;
    volatile double z = tris.GetCoordZQ(3003.0, 2007.0);
    (void)z;
    const double queried = static_cast<double>(StatusBytes("VmHWM:") - before) / triangles;
    std::vector<TLineProgPnt> profile;
    CCalcIntersect(*prj).CalcQuotedPnts(
        kor::geom::LINE_2D(kor::geom::PNT_2D(1503.7, 2011.3), kor::geom::PNT_2D(5396.7, 4404.5)),
        profile);
    const double profiled = static_cast<double>(StatusBytes("VmHWM:") - before) / triangles;
    int tri1 = 0, tri2 = 0, edgeStart = 0, edgeEnd = 0, opposite1 = 0, opposite2 = 0;
    volatile bool found = tris.FindTri(kor::geom::PNT_2D(3003.0, 2007.0), 0.5, tri1, tri2,
                                       edgeStart, edgeEnd, opposite1, opposite2);
    (void)found;
    const double searched = static_cast<double>(StatusBytes("VmHWM:") - before) / triangles;
    std::printf("%.0f %.3f %.3f %.3f %.3f\n", triangles, loaded, queried, profiled, searched);
    return 0;
}

// The section of the 10^6 network, written once to a temporary file.
const std::string& SectionFile() {
    static const std::string path = [] {
        char name[] = "/tmp/dtm_bench_memory_XXXXXX";
        const int descriptor = mkstemp(name);
        if (descriptor < 0) return std::string();
        close(descriptor);
        {
            dtm_bench::ProjectPtr prj =
                dtm_bench::FilledProject(dtm_bench::RandomNetwork(dtm_bench::kMillionCells), true);
            std::filebuf file;
            file.open(name, std::ios::out | std::ios::binary | std::ios::trunc);
            ofpstream out(&file, 1502);
            prj->GetTris()->SalvaInFile(out, nullptr);
        }
        return std::string(name);
    }();
    return path;
}

struct TFigures {
    double triangles = 0, loaded = 0, queried = 0, profiled = 0, searched = 0;
};

// Runs this program as a child on the section file and reads its figures.
bool MeasureInChild(TFigures& figures) {
    const std::string& path = SectionFile();
    if (path.empty()) return false;
    int pipeEnds[2];
    if (pipe(pipeEnds) != 0) return false;
    const pid_t child = fork();
    if (child == 0) {
        dup2(pipeEnds[1], STDOUT_FILENO);
        close(pipeEnds[0]);
        close(pipeEnds[1]);
        const std::string flag = std::string(kChildFlag) + path;
        execl("/proc/self/exe", "dtm_bench_network_memory", flag.c_str(),
              static_cast<char*>(nullptr));
        _exit(127);
    }
    close(pipeEnds[1]);
    char text[256] = {};
    std::size_t got = 0;
    for (ssize_t n;
         got + 1 < sizeof(text) && (n = read(pipeEnds[0], text + got, sizeof(text) - 1 - got)) > 0;)
        got += static_cast<std::size_t>(n);
    close(pipeEnds[0]);
    int status = 0;
    waitpid(child, &status, 0);
    return WIFEXITED(status) && WEXITSTATUS(status) == 0 &&
           std::sscanf(text, "%lf %lf %lf %lf %lf", &figures.triangles, &figures.loaded,
                       &figures.queried, &figures.profiled, &figures.searched) == 5;
}

TFigures g_figures;

void LoadedNetworkMemory(benchmark::State& state) {
    for (auto _ : state) {
        if (!MeasureInChild(g_figures)) {
            state.SkipWithError("the measuring child process failed");
            return;
        }
    }
    state.counters["triangles"] = g_figures.triangles;
    state.counters["B_per_tri_loaded"] = g_figures.loaded;
    state.counters["B_per_tri_queried"] = g_figures.queried;
    state.counters["B_per_tri_profiled"] = g_figures.profiled;
    state.counters["B_per_tri_searched"] = g_figures.searched;
}
BENCHMARK(LoadedNetworkMemory)->Iterations(1)->Unit(benchmark::kMillisecond);

}  // namespace

int main(int argc, char** argv) {
    if (argc == 2 && std::strncmp(argv[1], kChildFlag, std::strlen(kChildFlag)) == 0)
        return RunChild(argv[1] + std::strlen(kChildFlag));
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    benchmark::RunSpecifiedBenchmarks();
    if (g_figures.triangles > 0) {
        std::printf(
            "\nGrowth of the peak resident memory, bytes per triangle (target: at most 64):\n");
        std::printf("  after loading %.0f triangles from a file     %8.1f\n", g_figures.triangles,
                    g_figures.loaded);
        std::printf("  after the first elevation query (index)     %8.1f\n", g_figures.queried);
        std::printf("  after the first profile                     %8.1f\n", g_figures.profiled);
        std::printf("  after the first edge search (octree boxes)  %8.1f\n", g_figures.searched);
    }
    benchmark::Shutdown();
    if (!SectionFile().empty()) std::remove(SectionFile().c_str());
    return 0;
}
