// Writing and reading the network's file section, for about 10^5 and 10^6 triangles, against a
// plain write and read of the same number of bytes to and from the same kind of stream, measured
// in the same run. The section moves its values in blocks, so the plain copy in one call is the
// floor; the ratios say what putting the values together and the network's own work (triangle
// objects, a notification for every vertex and triangle, checks, the tree) cost on top of it.

#include <dtm/network/CTri.h>
#include <dtm/network/CTris.h>
#include <dtm/project/CDtmPrj.h>
#include <dtm/support/IdRemap.h>
#include <dtm/support/RefCounter.h>
#include <dtm/support/Streams.h>

#include <benchmark/benchmark.h>

#include "common/BenchNetwork.h"
#include "common/RatioReporter.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <map>
#include <sstream>
#include <string>
#include <vector>

namespace {

using kor::geom::PNT_3D;

constexpr short kVersion = 1502;

// Grid sizes: cells × cells × 2 triangles.
constexpr int kSmallCells = dtm_bench::kHundredThousandCells;  // 100 352 triangles
constexpr int kLargeCells = dtm_bench::kMillionCells;          // 1 002 528 triangles

using dtm_bench::ProjectPtr;

ProjectPtr NewProject() {
    return ProjectPtr::Adopt(new CDtmPrj(nullptr, "Bench", true, false));
}

// A surveyed grid with its octree, as a network is when it is saved.
ProjectPtr MakeGridProject(int cells) {
    ProjectPtr prj = dtm_bench::FilledProject(dtm_bench::SurveyGrid(cells), false);
    prj->GetTris()->CalcOcTree();
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

// Baseline: the section's bytes read from the same kind of stream in one call. As for the
// readers, the stream's buffer is filled before the clock runs: filling it is a copy of the
// whole section, as long as the read itself, and would double the baseline.
void PlainRead(benchmark::State& state) {
    const std::string& bytes = FixtureFor(static_cast<int>(state.range(0))).section;
    std::string target(bytes.size(), '\0');
    for (auto _ : state) {
        state.PauseTiming();
        std::stringbuf buffer(bytes, std::ios::in);
        ifpstream in(&buffer, kVersion);
        state.ResumeTiming();
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

// The floor under any reader that builds the network's objects: the same bytes from the same
// kind of stream in blocks of the reader's size, the points copied into an array, and for each
// triangle one triangle object made and listed twice, as the network's array and the event's
// list of added triangles list it. Nothing else: no checks, no announcements, no tree. What the
// reader takes beyond this is the network's own work; what this takes beyond a plain read is
// the price of a triangle being an object of its own.
void ObjectsOnly(benchmark::State& state) {
    const std::string& bytes = FixtureFor(static_cast<int>(state.range(0))).section;
    constexpr std::size_t kBlockBytes = std::size_t{1} << 16;
    std::vector<unsigned char> block(kBlockBytes);
    const auto readBlocks = [&block](std::istream& in, std::int64_t count, std::size_t itemBytes,
                                     auto&& take) {
        const std::int64_t perBlock = static_cast<std::int64_t>(kBlockBytes / itemBytes);
        while (count > 0) {
            const std::int64_t items = std::min(count, perBlock);
            in.read(reinterpret_cast<char*>(block.data()),
                    static_cast<std::streamsize>(static_cast<std::size_t>(items) * itemBytes));
            for (std::int64_t i = 0; i < items; ++i)
                take(block.data() + static_cast<std::size_t>(i) * itemBytes);
            count -= items;
        }
    };
    for (auto _ : state) {
        state.PauseTiming();
        std::stringbuf buffer(bytes, std::ios::in);
        ifpstream in(&buffer, kVersion);
        std::vector<PNT_3D> points;
        std::vector<CTri*> triangles;
        std::vector<CTri*> listed;
        state.ResumeTiming();
        std::int32_t pointCount = 0;
        std::int64_t cloudId = 0;
        in.read(reinterpret_cast<char*>(&pointCount), sizeof(pointCount));
        in.read(reinterpret_cast<char*>(&cloudId), sizeof(cloudId));
        points.reserve(static_cast<std::size_t>(pointCount));
        readBlocks(in, pointCount, sizeof(PNT_3D), [&points](const unsigned char* item) {
            PNT_3D p;
            std::memcpy(&p, item, sizeof(p));
            points.push_back(p);
        });
        std::int32_t triCount = 0;
        in.read(reinterpret_cast<char*>(&triCount), sizeof(triCount));
        triangles.reserve(static_cast<std::size_t>(triCount));
        listed.reserve(static_cast<std::size_t>(triCount));
        readBlocks(in, triCount, 4 * sizeof(std::int32_t), [&](const unsigned char* item) {
            std::int32_t values[4];
            std::memcpy(values, item, sizeof(values));
            CTri* tri = new CTri(values[3], values[0], values[1], values[2]);
            triangles.push_back(tri);
            listed.push_back(tri);
        });
        state.PauseTiming();
        if (!in || triangles.size() != static_cast<std::size_t>(triCount))
            state.SkipWithError("the section's points and triangles did not read back");
        for (CTri* tri : triangles) tri->SubReference();
        state.ResumeTiming();
    }
    SetBytes(state, bytes.size());
}

void Sizes(benchmark::internal::Benchmark* benchmark) {
    benchmark->Arg(kSmallCells)->Arg(kLargeCells)->Unit(benchmark::kMillisecond);
}

BENCHMARK(PlainWrite)->Apply(Sizes);
BENCHMARK(WriteNetwork)->Apply(Sizes);
BENCHMARK(PlainRead)->Apply(Sizes);
BENCHMARK(ReadNetwork)->Apply(Sizes);
BENCHMARK(SkipNetwork)->Apply(Sizes);
BENCHMARK(ObjectsOnly)->Apply(Sizes);

// Prints, after the usual table, each writer's and reader's time as a multiple of the plain
// write or read of the same bytes.
class SectionRatioReporter : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run>& runs) override {
        benchmark::ConsoleReporter::ReportRuns(runs);
        for (const Run& run : runs)
            m_times[run.benchmark_name()] = dtm_bench::SecondsPerIteration(run);
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
            Print("ObjectsOnly" + size, "PlainRead" + size);
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
