// One figure per benchmark from Google Benchmark's runs: the median when the runs are
// repeated, else the single run.
#pragma once

#include <benchmark/benchmark.h>

#include <set>
#include <string>

class MedianRuns {
public:
    using Run = benchmark::BenchmarkReporter::Run;

    // Whether `run` gives the figure of the benchmark called `name`: a median, or a single run
    // that no median has replaced. Runs with errors and other aggregates give none.
    bool Takes(const Run& run, const std::string& name) {
        if (run.error_occurred) return false;
        const bool median = run.run_type == Run::RT_Aggregate && run.aggregate_name == "median";
        if (!median && run.run_type != Run::RT_Iteration) return false;
        if (!median && medians_.count(name) != 0) return false;
        if (median) medians_.insert(name);
        return true;
    }

private:
    std::set<std::string> medians_;
};
