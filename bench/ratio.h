#pragma once

// Shared main for the benchmark programs: each registers a baseline and a candidate; after
// the run the candidate's time is printed as a ratio of the baseline's, measured in the same
// run on the same data, so the figure does not depend on the machine. Benchmarks that call
// SetBytesProcessed() also get both throughputs printed in MB/s.

#include <benchmark/benchmark.h>

#include <cstdio>
#include <map>
#include <string>
#include <vector>

namespace kvnbench {

struct Comparison {
    std::string candidate;
    std::string baseline;
    double target; // the ratio the candidate must not exceed
};

class RatioReporter : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run> &runs) override
    {
        ConsoleReporter::ReportRuns(runs);
        for (const Run &run : runs)
            if (run.run_type == Run::RT_Iteration && !run.error_occurred) {
                times[run.benchmark_name()] = run.GetAdjustedRealTime();
                // Counters reach the reporter finished: a rate is already per second.
                if (const auto rate = run.counters.find("bytes_per_second"); rate != run.counters.end())
                    bytesPerSecond[run.benchmark_name()] = rate->second.value;
            }
    }
    std::map<std::string, double> times;
    std::map<std::string, double> bytesPerSecond;
};

inline int runWithRatios(int argc, char **argv, const std::vector<Comparison> &comparisons)
{
    benchmark::Initialize(&argc, argv);
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();
    int status = 0;
    for (const Comparison &comparison : comparisons) {
        const auto candidate = reporter.times.find(comparison.candidate);
        const auto baseline = reporter.times.find(comparison.baseline);
        if (candidate == reporter.times.end() || baseline == reporter.times.end() || baseline->second <= 0) {
            std::printf("ratio %s / %s: not measured\n", comparison.candidate.c_str(), comparison.baseline.c_str());
            continue;
        }
        const double ratio = candidate->second / baseline->second;
        std::printf("ratio %s / %s: %.3f (target <= %.2f) %s\n", comparison.candidate.c_str(),
                    comparison.baseline.c_str(), ratio, comparison.target,
                    ratio <= comparison.target ? "ok" : "OVER TARGET");
        if (ratio > comparison.target)
            status = 1;
        const auto candidateRate = reporter.bytesPerSecond.find(comparison.candidate);
        const auto baselineRate = reporter.bytesPerSecond.find(comparison.baseline);
        if (candidateRate != reporter.bytesPerSecond.end() && baselineRate != reporter.bytesPerSecond.end())
            std::printf("throughput %s: %.1f MB/s, %s: %.1f MB/s\n", comparison.candidate.c_str(),
                        candidateRate->second / 1e6, comparison.baseline.c_str(), baselineRate->second / 1e6);
    }
    return status;
}

} // namespace kvnbench
