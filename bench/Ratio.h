#pragma once

#include <benchmark/benchmark.h>

#include <cstdio>
#include <set>
#include <string>
#include <utility>
#include <vector>

// Holds what is measured against what it should cost: two benchmarks of one program whose repetitions are run in random
// turns, so that both meet the same machine, and whose medians are set in relation at the end:
//
//     int main(int argc, char** argv) {
//         const Ratio ratio{.m_pszGoal = "1.05", .m_nRounds = 200, .m_nIterations = 500};
//         return RunRatio(argc, argv, ratio, {"ours", [](benchmark::State& state) { ... }}, {"the bare calls", ...});
//     }
//
// A benchmark is called once per round and loops over its state; what it does before and after the loop is not timed.
// Google Benchmark's own options apply, --benchmark_repetitions excepted.
struct Ratio {
    const char* m_pszGoal; // what the ratio should not exceed; printed beside it
    int m_nRounds;
    int m_nIterations; // per round
};

struct Measured {
    const char* m_pszName;
    void (*m_pRun)(benchmark::State&);
};

// Prints what the console reporter prints, and keeps the medians.
class MedianReporter : public benchmark::ConsoleReporter {
public:
    MedianReporter() : ConsoleReporter(OO_Tabular) {} // without colours, which would stand in files too

    void ReportRuns(const std::vector<Run>& runs) override {
        ConsoleReporter::ReportRuns(runs);
        for (const Run& run : runs) {
            if (run.aggregate_name == "median" && !run.error_occurred) {
                m_Medians.emplace_back(run.run_name.function_name, run.GetAdjustedRealTime());
            }
        }
    }

    // In nanoseconds; 0 when there is none.
    double GetMedian(const std::string& name) const {
        for (const auto& [of, median] : m_Medians) {
            if (of == name) {
                return median;
            }
        }
        return 0;
    }

private:
    std::vector<std::pair<std::string, double>> m_Medians;
};

struct Comparison {
    Ratio m_Ratio;
    Measured m_Ours;
    Measured m_Reference;
    int m_nThreads = 1; // that run each of the two at once; times are then those of all threads' calls together
};

// A row of the table that scripts/bench prints.
inline void PrintRatio(const char* measured, const char* beside, double ours, double reference, const char* unit,
                       const char* goal) {
    std::printf("| %s | %s | %.3g | %s | %.0f / %.0f %s |\n", measured, beside, ours / reference, goal, ours, reference,
                unit);
}

// The program's exit code.
inline int RunRatios(int argc, char** argv, const std::vector<Comparison>& comparisons) {
    std::string inTurns = "--benchmark_enable_random_interleaving=true";
    std::vector<char*> arguments(argv, argv + argc);
    arguments.insert(arguments.begin() + 1, inTurns.data());
    int count = static_cast<int>(arguments.size());
    benchmark::Initialize(&count, arguments.data());
    if (benchmark::ReportUnrecognizedArguments(count, arguments.data())) {
        return 2;
    }
    std::set<std::string> registered; // what is held against two others is measured once
    for (const Comparison& comparison : comparisons) {
        for (const Measured& measured : {comparison.m_Ours, comparison.m_Reference}) {
            if (!registered.insert(measured.m_pszName).second) {
                continue;
            }
            benchmark::RegisterBenchmark(measured.m_pszName, measured.m_pRun)
                ->Iterations(comparison.m_Ratio.m_nIterations)
                ->Repetitions(comparison.m_Ratio.m_nRounds)
                ->Threads(comparison.m_nThreads)
                ->ReportAggregatesOnly()
                ->UseRealTime();
        }
    }
    MedianReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    bool complete = true;
    for (const auto& [ratio, ours, reference, threads] : comparisons) {
        const double measured = reporter.GetMedian(ours.m_pszName);
        const double expected = reporter.GetMedian(reference.m_pszName);
        complete = complete && measured > 0 && expected > 0;
        if (measured > 0 && expected > 0) {
            PrintRatio(ours.m_pszName, reference.m_pszName, measured, expected, "ns", ratio.m_pszGoal);
        }
    }
    return complete ? 0 : 1;
}

inline int RunRatio(int argc, char** argv, const Ratio& ratio, const Measured& ours, const Measured& reference) {
    return RunRatios(argc, argv, {{ratio, ours, reference}});
}
