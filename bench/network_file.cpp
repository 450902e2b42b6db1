// Writing and reading the network's file section, for about 10^5 and 10^6 triangles, against a
// plain write and read of the same number of bytes to and from the same kind of stream, measured
// in the same run. The section moves its values in blocks, so the plain copy in one call is the
// floor; the ratios say what putting the values together and the network's own work (triangle
// objects, a notification for every vertex and triangle, checks, the tree) cost on top of it.
// Two kinds of stream: a string buffer, the harshest baseline (a plain read is one copy within
// memory), and a file in the system's cache, where a document's sections come from.

#include <dtm/network/CTri.h>
#include <dtm/network/CTris.h>
#include <dtm/project/CDtmPrj.h>
#include <dtm/support/IdRemap.h>
#include <dtm/support/RefCounter.h>
#include <dtm/support/Streams.h>

#include <unistd.h>
#if defined(__GLIBC__)
#include <malloc.h>
#endif

#include <benchmark/benchmark.h>

#include "common/BenchNetwork.h"
#include "common/RatioReporter.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <sstream>
#include <stdexcept>
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

// A file in the system's temporary folder, removed when the program ends.
class ScratchFile {
public:
    explicit ScratchFile(const std::string& name)
        : m_path((std::filesystem::temp_directory_path() /
                  ("dtm_bench_" + std::to_string(::getpid()) + "_" + name))
                     .string()) {}
    ~ScratchFile() { std::filesystem::remove(m_path); }
    ScratchFile(const ScratchFile&) = delete;
    ScratchFile& operator=(const ScratchFile&) = delete;
    const std::string& Path() const { return m_path; }

private:
    std::string m_path;
};

// One network per size, built once, with its section, also written to a file (read through the
// system's cache once it is written).
struct Fixture {
    ProjectPtr prj;
    std::string section;
    std::unique_ptr<ScratchFile> sectionFile;
    std::unique_ptr<ScratchFile> writeTarget;
};

const Fixture& FixtureFor(int cells) {
    static std::map<int, Fixture> fixtures;
    auto found = fixtures.find(cells);
    if (found == fixtures.end()) {
        Fixture fixture{MakeGridProject(cells), {}, {}, {}};
        fixture.section = WriteSection(*fixture.prj->GetTris());
        const std::string size = std::to_string(cells);
        fixture.sectionFile = std::make_unique<ScratchFile>("section_" + size);
        std::ofstream(fixture.sectionFile->Path(), std::ios::binary) << fixture.section;
        fixture.writeTarget = std::make_unique<ScratchFile>("written_" + size);
        found = fixtures.emplace(cells, std::move(fixture)).first;
    }
    return found->second;
}

void SetBytes(benchmark::State& state, std::size_t bytes) {
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) *
                            static_cast<std::int64_t>(bytes));
    state.counters["MB"] = static_cast<double>(bytes) / 1e6;
}

// The two kinds of stream, each opened before the clock runs.
enum class StreamKind { Memory, File };

// The section to read: a string buffer holding its bytes, or its file.
std::unique_ptr<std::streambuf> OpenSection(const Fixture& fixture, StreamKind kind) {
    if (kind == StreamKind::Memory)
        return std::make_unique<std::stringbuf>(fixture.section, std::ios::in);
    auto file = std::make_unique<std::filebuf>();
    if (!file->open(fixture.sectionFile->Path(), std::ios::in | std::ios::binary))
        throw std::runtime_error("cannot open " + fixture.sectionFile->Path());
    return file;
}

// Where to write: an empty string buffer, or the scratch file, emptied.
std::unique_ptr<std::streambuf> OpenTarget(const Fixture& fixture, StreamKind kind) {
    if (kind == StreamKind::Memory) return std::make_unique<std::stringbuf>(std::ios::out);
    auto file = std::make_unique<std::filebuf>();
    if (!file->open(fixture.writeTarget->Path(),
                    std::ios::out | std::ios::trunc | std::ios::binary))
        throw std::runtime_error("cannot open " + fixture.writeTarget->Path());
    return file;
}

// Times @p write (given the fixture and an output stream) on a fresh target each time. What a
// file's buffer still holds goes to the system inside the clock; the written length is asked
// for, without copying the bytes, so that the compiler keeps the writes.
template <class Write>
void TimedWrites(benchmark::State& state, StreamKind kind, Write&& write) {
    const Fixture& fixture = FixtureFor(static_cast<int>(state.range(0)));
    for (auto _ : state) {
        state.PauseTiming();
        std::unique_ptr<std::streambuf> buffer = OpenTarget(fixture, kind);
        ofpstream out(buffer.get(), kVersion);
        state.ResumeTiming();
        write(fixture, out);
        out.flush();
        benchmark::DoNotOptimize(buffer->pubseekoff(0, std::ios::cur, std::ios::out));
        state.PauseTiming();
        if (!out) state.SkipWithError("the section could not be written");
        buffer.reset();
        state.ResumeTiming();
    }
    SetBytes(state, fixture.section.size());
}

// Baseline: the section's bytes written to the same kind of stream in one call.
void PlainWrite(benchmark::State& state, StreamKind kind) {
    TimedWrites(state, kind, [](const Fixture& fixture, ofpstream& out) {
        out.write(fixture.section.data(), static_cast<std::streamsize>(fixture.section.size()));
    });
}

void WriteNetwork(benchmark::State& state, StreamKind kind) {
    TimedWrites(state, kind, [](const Fixture& fixture, ofpstream& out) {
        fixture.prj->GetTris()->SalvaInFile(out, nullptr);
    });
}

// Baseline: the section's bytes read from the same kind of stream in one call. As for the
// readers, the stream is opened before the clock runs (a string buffer is filled then: filling
// it is a copy of the whole section, as long as the read itself, and would double the baseline).
void PlainRead(benchmark::State& state, StreamKind kind) {
    const Fixture& fixture = FixtureFor(static_cast<int>(state.range(0)));
    std::string target(fixture.section.size(), '\0');
    for (auto _ : state) {
        state.PauseTiming();
        std::unique_ptr<std::streambuf> buffer = OpenSection(fixture, kind);
        ifpstream in(buffer.get(), kVersion);
        state.ResumeTiming();
        in.read(&target[0], static_cast<std::streamsize>(target.size()));
        benchmark::DoNotOptimize(target.data());
        state.PauseTiming();
        if (!in) state.SkipWithError("the section's bytes did not read back");
        buffer.reset();
        state.ResumeTiming();
    }
    SetBytes(state, fixture.section.size());
}

// Memory for a read: warm, as in a program that read a network before and whose allocator kept
// the pages (every repetition after the first), or cold, as in a program opening its first
// document, where every page written is new to the process and costs the system a fault.
enum class Memory { Warm, Cold };

// Before a cold repetition: the allocator gives the pages it keeps back to the system, so that
// the repetition gets its memory from the system as a fresh program does.
void PrepareMemory(Memory memory) {
#if defined(__GLIBC__)
    if (memory == Memory::Cold) malloc_trim(0);
#else
    (void)memory;
#endif
}

// Baseline for a cold read: the section's bytes read in one call into memory taken for them
// inside the clock, after the allocator gave its kept pages back.
void PlainReadCold(benchmark::State& state, StreamKind kind) {
    const Fixture& fixture = FixtureFor(static_cast<int>(state.range(0)));
    for (auto _ : state) {
        state.PauseTiming();
        std::unique_ptr<std::streambuf> buffer = OpenSection(fixture, kind);
        ifpstream in(buffer.get(), kVersion);
        PrepareMemory(Memory::Cold);
        state.ResumeTiming();
        std::unique_ptr<char[]> target(new char[fixture.section.size()]);
        in.read(target.get(), static_cast<std::streamsize>(fixture.section.size()));
        benchmark::DoNotOptimize(target.get());
        state.PauseTiming();
        if (!in) state.SkipWithError("the section's bytes did not read back");
        target.reset();
        buffer.reset();
        state.ResumeTiming();
    }
    SetBytes(state, fixture.section.size());
}

// Reading into a fresh project's network: the stream is opened and the project made before the
// clock runs, and the project is destroyed after it stops.
void ReadSection(benchmark::State& state, StreamKind kind, bool load,
                 Memory memory = Memory::Warm) {
    const Fixture& fixture = FixtureFor(static_cast<int>(state.range(0)));
    const kor::CRefObjIdRemapper remapper;
    for (auto _ : state) {
        state.PauseTiming();
        ProjectPtr prj = NewProject();
        std::unique_ptr<std::streambuf> buffer = OpenSection(fixture, kind);
        ifpstream in(buffer.get(), kVersion);
        PrepareMemory(memory);
        state.ResumeTiming();
        prj->GetTris()->LeggeDaFile(in, remapper, load);
        state.PauseTiming();
        if (!in) state.SkipWithError("the section did not read back");
        prj.Reset();
        buffer.reset();
        state.ResumeTiming();
    }
    SetBytes(state, fixture.section.size());
}

void ReadNetwork(benchmark::State& state, StreamKind kind) {
    ReadSection(state, kind, true);
}

void SkipNetwork(benchmark::State& state, StreamKind kind) {
    ReadSection(state, kind, false);
}

void ReadNetworkCold(benchmark::State& state, StreamKind kind) {
    ReadSection(state, kind, true, Memory::Cold);
}

// The floor under any reader that builds the network's objects: the same bytes from the same
// kind of stream in blocks of the reader's size, the points copied into an array a block at a
// time, and for each triangle one triangle object made and listed twice, as the network's array
// and the event's list of added triangles list it. Nothing else: no checks, no announcements, no
// tree. What the reader takes beyond this is the network's own work; what this takes beyond a
// plain read is the price of a triangle being an object of its own.
void ObjectsOnly(benchmark::State& state, StreamKind kind) {
    const Fixture& fixture = FixtureFor(static_cast<int>(state.range(0)));
    constexpr std::size_t kBlockBytes = std::size_t{1} << 16;
    std::vector<unsigned char> block(kBlockBytes);
    // Hands @p take each block read, with the number of items in it.
    const auto readBlocks = [&block](std::istream& in, std::int64_t count, std::size_t itemBytes,
                                     auto&& take) {
        const std::int64_t perBlock = static_cast<std::int64_t>(kBlockBytes / itemBytes);
        while (count > 0) {
            const std::int64_t items = std::min(count, perBlock);
            in.read(reinterpret_cast<char*>(block.data()),
                    static_cast<std::streamsize>(static_cast<std::size_t>(items) * itemBytes));
            take(block.data(), static_cast<std::size_t>(items));
            count -= items;
        }
    };
    for (auto _ : state) {
        state.PauseTiming();
        std::unique_ptr<std::streambuf> buffer = OpenSection(fixture, kind);
        ifpstream in(buffer.get(), kVersion);
        std::vector<PNT_3D> points;
        std::vector<CTri*> triangles;
        std::vector<CTri*> listed;
        state.ResumeTiming();
        std::int32_t pointCount = 0;
        std::int64_t cloudId = 0;
        in.read(reinterpret_cast<char*>(&pointCount), sizeof(pointCount));
        in.read(reinterpret_cast<char*>(&cloudId), sizeof(cloudId));
        points.reserve(static_cast<std::size_t>(pointCount));
        readBlocks(in, pointCount, sizeof(PNT_3D),
                   [&points](const unsigned char* bytes, std::size_t items) {
                       const std::size_t at = points.size();
                       points.resize(at + items);
                       std::memcpy(&points[at], bytes, items * sizeof(PNT_3D));
                   });
        std::int32_t triCount = 0;
        in.read(reinterpret_cast<char*>(&triCount), sizeof(triCount));
        triangles.reserve(static_cast<std::size_t>(triCount));
        listed.reserve(static_cast<std::size_t>(triCount));
        constexpr std::size_t kTriBytes = 4 * sizeof(std::int32_t);
        readBlocks(in, triCount, kTriBytes, [&](const unsigned char* bytes, std::size_t items) {
            for (std::size_t i = 0; i < items; ++i) {
                std::int32_t values[4];
                std::memcpy(values, bytes + i * kTriBytes, sizeof(values));
                CTri* tri = new CTri(values[3], values[0], values[1], values[2]);
                triangles.push_back(tri);
                listed.push_back(tri);
            }
        });
        state.PauseTiming();
        if (!in || triangles.size() != static_cast<std::size_t>(triCount))
            state.SkipWithError("the section's points and triangles did not read back");
        for (CTri* tri : triangles) tri->SubReference();
        buffer.reset();
        state.ResumeTiming();
    }
    SetBytes(state, fixture.section.size());
}

void Sizes(benchmark::internal::Benchmark* benchmark) {
    benchmark->Arg(kSmallCells)->Arg(kLargeCells)->Unit(benchmark::kMillisecond);
}

// Each benchmark on both kinds of stream, named by the kind: "ReadNetwork/file/1002528".
#define DTM_SECTION_BENCHMARK(function)                                    \
    BENCHMARK_CAPTURE(function, memory, StreamKind::Memory)->Apply(Sizes); \
    BENCHMARK_CAPTURE(function, file, StreamKind::File)->Apply(Sizes)

DTM_SECTION_BENCHMARK(PlainWrite);
DTM_SECTION_BENCHMARK(WriteNetwork);
DTM_SECTION_BENCHMARK(PlainRead);
DTM_SECTION_BENCHMARK(ReadNetwork);
DTM_SECTION_BENCHMARK(SkipNetwork);
DTM_SECTION_BENCHMARK(ObjectsOnly);
DTM_SECTION_BENCHMARK(PlainReadCold);
DTM_SECTION_BENCHMARK(ReadNetworkCold);

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
        for (const char* kind : {"memory", "file"}) {
            for (const int cells : {kSmallCells, kLargeCells}) {
                const std::string name = std::string("/") + kind + "/" + std::to_string(cells);
                std::printf("  %d triangles, %s stream\n", 2 * cells * cells, kind);
                Print("WriteNetwork" + name, "PlainWrite" + name);
                Print("ReadNetwork" + name, "PlainRead" + name);
                Print("SkipNetwork" + name, "PlainRead" + name);
                Print("ObjectsOnly" + name, "PlainRead" + name);
                Print("ReadNetworkCold" + name, "PlainReadCold" + name);
            }
        }
    }

private:
    void Print(const std::string& name, const std::string& baseline) const {
        const auto time = m_times.find(name);
        const auto base = m_times.find(baseline);
        if (time == m_times.end() || base == m_times.end() || base->second <= 0.0) return;
        std::printf("    %-28s %10.2f x %s\n", name.c_str(), time->second / base->second,
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
