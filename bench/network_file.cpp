// Writing and reading the network's file section, for about 10^5 and 10^6 triangles, against a
// plain write and read of the same number of bytes to and from the same kind of stream, measured
// in the same run. The section moves its values in blocks, so the plain copy in one call is the
// floor; the ratios say what putting the values together and the network's own work (triangle
// objects, a notification for every vertex and triangle, checks, the tree) cost on top of it.

#include <dtm/network/CTris.h>
#include <dtm/project/CDtmChangeContext.h>
#include <dtm/project/CDtmPrj.h>
#include <dtm/support/Events.h>
#include <dtm/support/IdRemap.h>
#include <dtm/support/RefCounter.h>
#include <dtm/support/Streams.h>

#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdio>
#include <map>
#include <random>
#include <sstream>
#include <string>
#include <vector>

namespace {

using kor::geom::PNT_3D;

constexpr short kVersion = 1502;

// Grid sizes: cells × cells × 2 triangles.
constexpr int kSmallCells = 224;  // 100 352 triangles
constexpr int kLargeCells = 708;  // 1 002 528 triangles

using ProjectPtr = kor::CRefPtr<CDtmPrj>;

ProjectPtr NewProject() {
    return ProjectPtr::Adopt(new CDtmPrj(nullptr, "Bench", true, false));
}

// A jittered grid over smooth relief with its octree, as a network is when it is saved.
ProjectPtr MakeGridProject(int cells) {
    ProjectPtr prj = NewProject();
    CTris& tris = *prj->GetTris();
    std::mt19937 random(2024);
    std::uniform_real_distribution<double> jitter(-0.3, 0.3);
    {
        kor::CEventGuard event(prj->GetContext());
        for (int row = 0; row <= cells; ++row) {
            for (int column = 0; column <= cells; ++column) {
                const double x = (column + jitter(random)) * 10.0;
                const double y = (row + jitter(random)) * 10.0;
                tris.AddTriVrt(
                    PNT_3D(x, y, 120.0 + 15.0 * std::sin(x / 300.0) * std::cos(y / 400.0)));
            }
        }
        const auto index = [cells](int row, int column) { return row * (cells + 1) + column; };
        for (int row = 0; row < cells; ++row) {
            for (int column = 0; column < cells; ++column) {
                tris.AddNewTri(1, index(row, column), index(row, column + 1),
                               index(row + 1, column + 1));
                tris.AddNewTri(2, index(row, column), index(row + 1, column + 1),
                               index(row + 1, column));
            }
        }
    }
    tris.CalcOcTree();
    return prj;
}

std::string WriteSection(const CTris& tris) {
    std::stringbuf buffer;
    ofpstream out(&buffer, kVersion);
    tris.SalvaInFile(out, nullptr);
    return buffer.str();
}

// One network per size, built once, with its section.
struct Fixture {
    ProjectPtr prj;
    std::string section;
};

const Fixture& FixtureFor(int cells) {
    static std::map<int, Fixture> fixtures;
    auto found = fixtures.find(cells);
    if (found == fixtures.end()) {
        Fixture fixture{MakeGridProject(cells), {}};
        fixture.section = WriteSection(*fixture.prj->GetTris());
        found = fixtures.emplace(cells, std::move(fixture)).first;
    }
    return found->second;
}

void SetBytes(benchmark::State& state, std::size_t bytes) {
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) *
                            static_cast<std::int64_t>(bytes));
    state.counters["MB"] = static_cast<double>(bytes) / 1e6;
}

// Baseline: the section's bytes written to the same kind of stream in one call.
void PlainWrite(benchmark::State& state) {
    const std::string& bytes = FixtureFor(static_cast<int>(state.range(0))).section;
    for (auto _ : state) {
        std::stringbuf buffer;
        ofpstream out(&buffer, kVersion);
        out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
        benchmark::DoNotOptimize(buffer.str().size());
    }
    SetBytes(state, bytes.size());
}

void WriteNetwork(benchmark::State& state) {
    const Fixture& fixture = FixtureFor(static_cast<int>(state.range(0)));
    for (auto _ : state) {
        std::stringbuf buffer;
        ofpstream out(&buffer, kVersion);
        fixture.prj->GetTris()->SalvaInFile(out, nullptr);
        benchmark::DoNotOptimize(buffer.str().size());
    }
    SetBytes(state, fixture.section.size());
}

// Baseline: the section's bytes read from the same kind of stream in one call.
void PlainRead(benchmark::State& state) {
    const std::string& bytes = FixtureFor(static_cast<int>(state.range(0))).section;
    std::string target(bytes.size(), '\0');
    for (auto _ : state) {
        std::stringbuf buffer(bytes, std::ios::in);
        ifpstream in(&buffer, kVersion);
        in.read(&target[0], static_cast<std::streamsize>(target.size()));
        benchmark::DoNotOptimize(target.data());
    }
    SetBytes(state, bytes.size());
}

// Reading into a fresh project's network: the stream's buffer is filled and the project made
// before the clock runs, and the project is destroyed after it stops.
void ReadSection(benchmark::State& state, bool load) {
    const std::string& bytes = FixtureFor(static_cast<int>(state.range(0))).section;
    const kor::CRefObjIdRemapper remapper;
    for (auto _ : state) {
        state.PauseTiming();
        ProjectPtr prj = NewProject();
        std::stringbuf buffer(bytes, std::ios::in);
        ifpstream in(&buffer, kVersion);
        state.ResumeTiming();
        prj->GetTris()->LeggeDaFile(in, remapper, load);
        state.PauseTiming();
        if (!in) state.SkipWithError("the section did not read back");
        prj.Reset();
        state.ResumeTiming();
    }
    SetBytes(state, bytes.size());
}

void ReadNetwork(benchmark::State& state) {
    ReadSection(state, true);
}

void SkipNetwork(benchmark::State& state) {
    ReadSection(state, false);
}

void Sizes(benchmark::internal::Benchmark* benchmark) {
    benchmark->Arg(kSmallCells)->Arg(kLargeCells)->Unit(benchmark::kMillisecond);
}

BENCHMARK(PlainWrite)->Apply(Sizes);
BENCHMARK(WriteNetwork)->Apply(Sizes);
BENCHMARK(PlainRead)->Apply(Sizes);
BENCHMARK(ReadNetwork)->Apply(Sizes);
BENCHMARK(SkipNetwork)->Apply(Sizes);

// Prints, after the usual table, each writer's and reader's time as a multiple of the plain
// write or read of the same bytes.
class SectionRatioReporter : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run>& runs) override {
        benchmark::ConsoleReporter::ReportRuns(runs);
        for (const Run& run : runs) m_times[run.benchmark_name()] = run.GetAdjustedRealTime();
    }
    void Finalize() override {
        benchmark::ConsoleReporter::Finalize();
        std::printf("\nTime relative to a plain copy of the same bytes on the same stream kind:\n");
        for (const int cells : {kSmallCells, kLargeCells}) {
            const std::string size = "/" + std::to_string(cells);
            std::printf("  %d triangles\n", 2 * cells * cells);
            Print("WriteNetwork" + size, "PlainWrite" + size);
            Print("ReadNetwork" + size, "PlainRead" + size);
            Print("SkipNetwork" + size, "PlainRead" + size);
        }
    }

private:
    void Print(const std::string& name, const std::string& baseline) const {
        const auto time = m_times.find(name);
        const auto base = m_times.find(baseline);
        if (time == m_times.end() || base == m_times.end() || base->second <= 0.0) return;
        std::printf("    %-28s %10.1f x %s\n", name.c_str(), time->second / base->second,
                    baseline.c_str());
    }

    std::map<std::string, double> m_times;
};

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    SectionRatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();
    return 0;
}
