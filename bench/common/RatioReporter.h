#pragma once

// Benchmarks report their figures as ratios against a baseline measured in the same run, so that
// results compare across machines. Each program names its baseline and calls RunWithRatios from
// main.

#include <benchmark/benchmark.h>

#include <cstdio>
#include <map>
#include <string>

namespace dtm_bench {

/// A run's wall time per iteration in seconds. Google Benchmark reports it in the unit each
/// benchmark asked for, so two benchmarks timed in different units only compare after this.
inline double SecondsPerIteration(const benchmark::BenchmarkReporter::Run& run) {
    return run.GetAdjustedRealTime() / benchmark::GetTimeUnitMultiplier(run.time_unit);
}

/// Prints, after the usual table, each benchmark's time as a multiple of the baseline's.
class RatioReporter : public benchmark::ConsoleReporter {
public:
    RatioReporter(std::string baseline, std::string description)
        : m_baseline(std::move(baseline)), m_description(std::move(description)) {}

    void ReportRuns(const std::vector<Run>& runs) override {
        benchmark::ConsoleReporter::ReportRuns(runs);
        for (const Run& run : runs) {
            if (run.run_type != Run::RT_Aggregate) {
                m_times[run.benchmark_name()] = SecondsPerIteration(run);
                continue;
            }
            // Of a repeated benchmark only the median stands for it, under the name the
            // benchmark has without repetitions: the mean and the spread are no times to
            // compare with.
            if (run.aggregate_name != "median") continue;
            std::string name = run.run_name.function_name;
            if (!run.run_name.args.empty()) name += "/" + run.run_name.args;
            m_times[name] = SecondsPerIteration(run);
        }
    }

    void Finalize() override {
        benchmark::ConsoleReporter::Finalize();
        const auto baseline = m_times.find(m_baseline);
        if (baseline == m_times.end() || baseline->second <= 0.0) return;
        std::printf("\nTime relative to %s:\n", m_description.c_str());
        for (const auto& [name, time] : m_times)
            std::printf("  %-40s %12.3f\n", name.c_str(), time / baseline->second);
    }

private:
    std::string m_baseline;
    std::string m_description;
    std::map<std::string, double> m_times;
};

/// The body of a benchmark program's main: runs every registered benchmark and prints the ratios
/// against the benchmark named @p baseline.
inline int RunWithRatios(int argc, char** argv, const std::string& baseline,
                         const std::string& description) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    RatioReporter reporter(baseline, description);
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();
    return 0;
}

}  // namespace dtm_bench
