// Throughput of every effect on full-HD and UHD frames, each beside memcpy of the same bytes in
// the same run. After the runs a table gives each effect's speed as a ratio to that memcpy.
#include <benchmark/benchmark.h>

#include <cstring>
#include <map>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "core/Simd.h"
#include "libfilter/CVideoFrame.h"
#include "libfilter/Siblings.h"
#include "libfilter/libfilter.h"

using namespace MediaCore;

namespace {

struct Size {
    unsigned width, height;
};
struct Format {
    int number;
    const char* name;
};
struct Effect {
    unsigned id;
    const char* name;
    std::vector<std::pair<const char*, const char*>> properties;
};

const Size kSizes[] = {{1920, 1080}, {3840, 2160}};
const Format kFormats[] = {{PIXFMT_BGRA32, "BGRA"}, {PIXFMT_YUV420P, "YUV420P"}};
const Effect kEffects[] = {
    {AVPROCESSOR_INVERT, "invert", {}},
};

// A frame over one contiguous, 64-byte aligned block of random pixels.
class BenchFrame {
public:
    BenchFrame(int format, unsigned w, unsigned h) : frame_(false, format, w, h, true) {
        // Planes packed back to back, each starting on a 64-byte boundary.
        std::vector<size_t> offsets;
        std::vector<int> pitches;
        size_t total = 0;
        for (unsigned i = 0; i < frame_.GetBufferCount(); ++i) {
            const auto* plane = frame_.GetBuffer(i);
            offsets.push_back(total);
            pitches.push_back(static_cast<int>(plane->rowBytes));
            total += (size_t{plane->rowBytes} * plane->rows + 63) & ~size_t{63};
        }
        block_.Resize(static_cast<unsigned>(total), "bench", __LINE__);
        std::mt19937 rng(1);
        for (size_t i = 0; i < total; ++i)
            block_.Data()[i] = static_cast<unsigned char>(rng());
        std::vector<unsigned char*> data;
        for (size_t offset : offsets)
            data.push_back(block_.Data() + offset);
        frame_.SetBuffer(data.data(), pitches.data(), nullptr);
        bytes_ = frame_.GetRequireSize();
    }
    CVideoFrame& Frame() { return frame_; }
    size_t Bytes() const { return bytes_; }
    unsigned char* Data() { return block_.Data(); }

private:
    CVideoFrame frame_;
    AlignedBuffer block_{64};
    size_t bytes_ = 0;
};

std::string Key(const Format& f, const Size& s) {
    return std::string(f.name) + "/" + std::to_string(s.width) + "x" + std::to_string(s.height);
}

void BenchMemcpy(benchmark::State& state, Format format, Size size) {
    BenchFrame frame(format.number, size.width, size.height);
    AlignedBuffer target(64);
    target.Resize(static_cast<unsigned>(frame.Bytes()), "bench", __LINE__);
    for (auto _ : state) {
        std::memcpy(target.Data(), frame.Data(), frame.Bytes());
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(frame.Bytes()));
}

void BenchEffect(benchmark::State& state, Effect effect, Format format, Size size,
                 Simd::Level level) {
    BenchFrame frame(format.number, size.width, size.height);
    GVideoProcessor* processor = libfilter_GetFilter(nullptr, effect.id);
    for (const auto& [name, value] : effect.properties)
        processor->SetProperty(name, value);
    ImagePostion position{};
    Simd::SetLevelLimit(level);
    for (auto _ : state) {
        processor->ProcFrameInPlace(&position, 0, &frame.Frame());
        benchmark::ClobberMemory();
    }
    Simd::SetLevelLimit(Simd::kAvx512);
    processor->Free();
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(frame.Bytes()));
}

// Prints the usual console report, then each run's throughput over memcpy's for its frame.
class RatioReporter : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run>& runs) override {
        ConsoleReporter::ReportRuns(runs);
        // One rate per benchmark: the median when repeated, else the single run.
        for (const Run& run : runs) {
            if (run.error_occurred) continue;
            const bool median = run.run_type == Run::RT_Aggregate && run.aggregate_name == "median";
            if (!median && run.run_type != Run::RT_Iteration) continue;
            const std::string name = run.run_name.str();
            if (!median && medians_.count(name) != 0) continue;
            if (median) medians_.insert(name);
            const auto it = run.counters.find("bytes_per_second");
            if (it != run.counters.end()) rates_[name] = it->second.value;
        }
    }
    void Finalize() override {
        ConsoleReporter::Finalize();
        std::printf("\n%-44s %12s %10s\n", "effect/format/size", "GB/s", "x memcpy");
        for (const auto& [name, rate] : rates_) {
            const std::string frame = name.substr(name.find('/') + 1);  // Format/WxH
            const auto copy = rates_.find("memcpy/" + frame);
            if (name.rfind("memcpy/", 0) == 0 || copy == rates_.end()) continue;
            std::printf("%-44s %12.2f %10.2f\n", name.c_str(), rate / 1e9, rate / copy->second);
        }
    }

private:
    std::map<std::string, double> rates_;
    std::set<std::string> medians_;
};

}  // namespace

int main(int argc, char** argv) {
    GetLogger()->SetLevel(LOG_LEVEL_OFF);
    for (const Size& size : kSizes) {
        for (const Format& format : kFormats) {
            benchmark::RegisterBenchmark(("memcpy/" + Key(format, size)).c_str(), BenchMemcpy,
                                         format, size);
            for (const Effect& effect : kEffects) {
                // The widest form under the effect's own name, then each narrower one.
                const std::string name = std::string(effect.name) + "/" + Key(format, size);
                benchmark::RegisterBenchmark(name.c_str(), BenchEffect, effect, format, size,
                                             Simd::kAvx512);
                for (int level = Simd::kScalar; level < Simd::HostLevel(); ++level) {
                    const auto l = static_cast<Simd::Level>(level);
                    const std::string narrower = std::string(effect.name) + "@" +
                                                 Simd::LevelName(l) + "/" + Key(format, size);
                    benchmark::RegisterBenchmark(narrower.c_str(), BenchEffect, effect, format,
                                                 size, l);
                }
            }
        }
    }
    benchmark::Initialize(&argc, argv);
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();
    return 0;
}
