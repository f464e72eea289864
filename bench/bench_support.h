// Benchmarks compare the library with a baseline measured in the same
// process and print the ratio next to its target.
#pragma once

#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstring>
#include <map>
#include <string>
#include <vector>

namespace ksdb_bench {

struct Ratio {
    std::string subject;
    std::string baseline;
    double target;
    bool guide = false;
};

// A ratio a benchmark measured itself (memory at two points of a run, for
// one), printed with the others.  Register with measured().
struct Measured {
    std::string subject;
    std::string baseline;
    double ratio;
    double target;
    bool guide = false;
};
inline std::vector<Measured> &measured() {
    static std::vector<Measured> list;
    return list;
}

// A ratio over its target is "MISSED", or only "over" when the target is
// a guide (set for larger sizes than the run's).
inline const char *verdict(bool ok, bool guide) {
    return ok ? "ok" : guide ? "over (the target is set for larger sizes)" : "MISSED";
}

// Collects the time per iteration of every run while printing as usual.
class RatioReporter : public benchmark::ConsoleReporter {
  public:
    void ReportRuns(const std::vector<Run> &runs) override {
        for (const auto &run : runs) {
            if (run.run_type == Run::RT_Iteration && run.iterations > 0)
                ns_[run.benchmark_name()] = run.GetAdjustedRealTime();
            // With --benchmark_repetitions the median of the repetitions
            // (reported after them) stands for the benchmark: steadier on a
            // busy machine than the last repetition alone.
            else if (run.run_type == Run::RT_Aggregate && run.aggregate_name == "median")
                ns_[run.run_name.str()] = run.GetAdjustedRealTime();
        }
        ConsoleReporter::ReportRuns(runs);
    }
    // Prints each ratio; returns the number of targets missed.
    int print(const std::vector<Ratio> &ratios) const {
        int missed = 0;
        std::printf("\n%-48s %-32s %8s %8s\n", "subject", "baseline", "ratio", "target");
        for (const auto &r : ratios) {
            auto s = ns_.find(r.subject), b = ns_.find(r.baseline);
            if (s == ns_.end() || b == ns_.end() || b->second <= 0) continue;
            double ratio = s->second / b->second;
            bool ok = ratio <= r.target;
            if (!ok && !r.guide) ++missed;
            std::printf("%-48s %-32s %8.3f %8.2f %s\n", r.subject.c_str(), r.baseline.c_str(),
                        ratio, r.target, verdict(ok, r.guide));
        }
        for (const auto &m : measured()) {
            bool ok = m.ratio <= m.target;
            if (!ok && !m.guide) ++missed;
            std::printf("%-48s %-32s %8.3f %8.2f %s\n", m.subject.c_str(), m.baseline.c_str(),
                        m.ratio, m.target, verdict(ok, m.guide));
        }
        return missed;
    }

  private:
    std::map<std::string, double> ns_;
};

// Runs the benchmarks and prints the ratios.  With `repetitions` > 0 each
// benchmark is repeated that often unless the command line says otherwise,
// and only the aggregates are shown: the ratios then compare medians, which
// a busy machine disturbs far less than a single run.
inline int run_with_ratios(int argc, char **argv, const std::vector<Ratio> &ratios,
                           int repetitions = 0) {
    std::vector<char *> args(argv, argv + argc);
    bool given = false;
    for (char *a : args)
        if (std::strncmp(a, "--benchmark_repetitions", 23) == 0) given = true;
    std::string repeat = "--benchmark_repetitions=" + std::to_string(repetitions);
    static char aggregates[] = "--benchmark_display_aggregates_only=true";
    if (repetitions > 0 && !given) {
        args.push_back(repeat.data());
        args.push_back(aggregates);
    }
    argc = static_cast<int>(args.size());
    args.push_back(nullptr);
    argv = args.data();
    benchmark::Initialize(&argc, argv);
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    reporter.print(ratios);
    benchmark::Shutdown();
    return 0;
}

}  // namespace ksdb_bench
