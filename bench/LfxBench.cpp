// lfx end to end beside ffmpeg: both decode the same 1920x1080 H.264 clip, invert it (lfx's
// invert effect, ffmpeg's negate filter) and encode it with the same libx264 settings (fast,
// CRF 20, yuv420p). Each run is one process; its wall time is the benchmark's time and the
// processor time it used a counter. The closing table gives lfx over ffmpeg (below 1: lfx is
// faster).   lfx_vs_ffmpeg [--benchmark_repetitions=3] ; LFX_BENCH_SECONDS sets the clip length.
#include <benchmark/benchmark.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "Medians.h"

extern char** environ;

namespace {

using Command = std::vector<std::string>;

struct Cost {
    double wall;  // seconds
    double cpu;   // processor seconds, every thread
};

// Runs `command` to its end; nothing when it cannot start or fails.
std::optional<Cost> Run(const Command& command) {
    std::vector<char*> argv;
    for (const std::string& argument : command)
        argv.push_back(const_cast<char*>(argument.c_str()));
    argv.push_back(nullptr);
    const auto start = std::chrono::steady_clock::now();
    pid_t child = 0;
    if (posix_spawnp(&child, argv[0], nullptr, nullptr, argv.data(), environ) != 0) return {};
    int status = 0;
    rusage usage{};
    if (wait4(child, &status, 0, &usage) != child || !WIFEXITED(status) ||
        WEXITSTATUS(status) != 0) {
        return {};
    }
    const auto seconds = [](const timeval& t) { return t.tv_sec + t.tv_usec * 1e-6; };
    return Cost{std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count(),
                seconds(usage.ru_utime) + seconds(usage.ru_stime)};
}

void Measure(benchmark::State& state, const Command& command) {
    double cpu = 0;
    for (auto _ : state) {
        const std::optional<Cost> cost = Run(command);
        if (!cost) {
            state.SkipWithError(("failed: " + command.front()).c_str());
            return;
        }
        state.SetIterationTime(cost->wall);
        cpu += cost->cpu;
    }
    state.counters["cpu_s"] = benchmark::Counter(cpu, benchmark::Counter::kAvgIterations);
}

class RatioReporter : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run>& runs) override {
        ConsoleReporter::ReportRuns(runs);
        for (const Run& run : runs) {
            const std::string name = run.run_name.function_name;
            if (!medians_.Takes(run, name)) continue;
            const auto cpu = run.counters.find("cpu_s");
            costs_[name] = {run.GetAdjustedRealTime() / 1e3,
                            cpu != run.counters.end() ? cpu->second.value : 0};
        }
    }

    void Finalize() override {
        ConsoleReporter::Finalize();
        const auto peer = costs_.find("ffmpeg -vf negate");
        if (peer == costs_.end()) return;
        std::printf("\n| command | wall s | x ffmpeg | processor s | x ffmpeg |\n");
        std::printf("|---|---:|---:|---:|---:|\n");
        for (const auto& [name, cost] : costs_) {
            std::printf("| %s | %.2f | %.2f | %.2f | %.2f |\n", name.c_str(), cost.wall,
                        cost.wall / peer->second.wall, cost.cpu, cost.cpu / peer->second.cpu);
        }
    }

private:
    std::map<std::string, Cost> costs_;
    MedianRuns medians_;
};

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    const std::string folder = LFX_BENCH_FOLDER;
    std::filesystem::create_directories(folder);
    const char* length = std::getenv("LFX_BENCH_SECONDS");
    const std::string seconds = length != nullptr ? length : "10";
    const std::string input = folder + "/input-" + seconds + "s.mp4";
    const Command x264 = {"-c:v", "libx264", "-preset",  "fast",
                          "-crf", "20",      "-pix_fmt", "yuv420p"};
    if (!std::filesystem::exists(input)) {
        Command make = {
            "ffmpeg", "-v",    "error", "-y",
            "-f",     "lavfi", "-i",    "testsrc2=size=1920x1080:rate=25:duration=" + seconds};
        make.insert(make.end(), x264.begin(), x264.end());
        make.push_back(input);
        if (!Run(make)) {
            std::fprintf(stderr, "cannot make the clip with ffmpeg\n");
            return 1;
        }
    }
    Command ffmpeg = {"ffmpeg", "-v", "error", "-y", "-i", input, "-vf", "negate"};
    ffmpeg.insert(ffmpeg.end(), x264.begin(), x264.end());
    ffmpeg.push_back(folder + "/ffmpeg.mp4");
    const Command lfx = {LFX_PROGRAM,         "apply", "-y",    "-q", "-i", input, "-o",
                         folder + "/lfx.mp4", "-e",    "invert"};
    Command bgra = lfx;
    bgra.insert(bgra.end(), {"--format", "bgra"});
    const std::pair<const char*, Command> commands[] = {{"ffmpeg -vf negate", ffmpeg},
                                                        {"lfx -e invert", lfx},
                                                        {"lfx -e invert --format bgra", bgra}};
    for (const auto& [name, command] : commands) {
        benchmark::RegisterBenchmark(name, Measure, command)
            ->UseManualTime()
            ->Iterations(1)
            ->Unit(benchmark::kMillisecond);
    }
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    return 0;
}
