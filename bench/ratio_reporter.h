#pragma once
// Benchmarks here always run a baseline beside our code in the same run; this reporter prints, after
// the usual table, each of our benchmarks' speed as a ratio of its baseline's, matched by argument.
// Use: VELMORA_BENCH_MAIN_WITH_RATIOS({"Ours", "Baseline"}, ...) instead of BENCHMARK_MAIN().

#include <benchmark/benchmark.h>

#include <cstdio>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace velmora::bench {

class RatioReporter : public benchmark::ConsoleReporter {
public:
    explicit RatioReporter(std::vector<std::pair<std::string, std::string>> pairs) : pairs_(std::move(pairs)) {}

    void ReportRuns(const std::vector<Run>& runs) override {
        ConsoleReporter::ReportRuns(runs);
        for (const auto& run : runs) {
            if (run.error_occurred) continue;
            // With --benchmark_repetitions the median stands for the benchmark; otherwise the run.
            const bool median = run.run_type == Run::RT_Aggregate && run.aggregate_name == "median";
            if (run.run_type != Run::RT_Iteration && !median) continue;
            std::string name = run.run_name.str();
            if (!median && medians_.count(name)) continue;
            if (median) medians_.insert(name);
            auto slash = name.find('/');
            std::string family = name.substr(0, slash);
            std::string argument = slash == std::string::npos ? "" : name.substr(slash);
            // Time per iteration: a ratio above 1 means ours is faster than the baseline.
            times_[{family, argument}] = run.GetAdjustedRealTime();
        }
    }

    void Finalize() override {
        ConsoleReporter::Finalize();
        std::printf("\nSpeed relative to the baseline (baseline time / our time; above 1 = ours faster):\n");
        for (const auto& [ours, baseline] : pairs_) {
            for (const auto& [key, ourTime] : times_) {
                if (key.first != ours) continue;
                auto base = times_.find({baseline, key.second});
                if (base == times_.end() || ourTime <= 0) continue;
                std::printf("  %s%s vs %s: %.2fx\n", ours.c_str(), key.second.c_str(), baseline.c_str(),
                            base->second / ourTime);
            }
        }
    }

private:
    std::vector<std::pair<std::string, std::string>> pairs_;
    std::map<std::pair<std::string, std::string>, double> times_;
    std::set<std::string> medians_;
};

inline int runWithRatios(int argc, char** argv, std::vector<std::pair<std::string, std::string>> pairs) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    RatioReporter reporter(std::move(pairs));
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();
    return 0;
}

}  // namespace velmora::bench
