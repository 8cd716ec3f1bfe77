// Throughput of every effect on full-HD and UHD frames, each beside memcpy of the same bytes in
// the same run. After the runs a table gives each effect's speed as a ratio to that memcpy.
#include <benchmark/benchmark.h>

#include <cstring>
#include <functional>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "Medians.h"
#include "core/Simd.h"
#include "libfilter/CVideoFrame.h"
#include "libfilter/Convert.h"
#include "libfilter/DirectEffects.h"
#include "libfilter/Siblings.h"
#include "libfilter/Stereo3D.h"
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
// An effect as a host meets it: how to make one, and the properties it is set to.
struct Effect {
    const char* name;
    std::function<GVideoProcessor*()> create;
    std::vector<std::pair<const char*, const char*>> properties;
    // Sets what depends on the frame size, after the fixed properties.
    std::function<void(GVideoProcessor*, Size)> sized = nullptr;
};

// Effects a host obtains from the factory by id.
std::function<GVideoProcessor*()> Factory(unsigned id) {
    return [id] { return libfilter_GetFilter(nullptr, id); };
}

// The mosaic rectangle over the whole frame.
void WholeFrameMosaic(GVideoProcessor* p, Size size) {
    p->SetProperty("mosaic_x2", std::to_string(size.width).c_str());
    p->SetProperty("mosaic_y2", std::to_string(size.height).c_str());
}

// Effects a host constructs itself.
template <class E>
GVideoProcessor* Direct() {
    return new E();
}

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

// A host whose converters hand back a frame of the asked format and size without converting,
// so an effect's rows with it leave out the conversion's share.
class PassThroughController : public CConverterController {
public:
    GFrameConverter* CreateFrameConverter(int format, unsigned w, unsigned h, int) override {
        return new Converter(format, w, h);
    }

private:
    class Converter final : public GFrameConverter {
    public:
        Converter(int format, unsigned w, unsigned h) : format_(format), w_(w), h_(h) {}
        void GetTarget(int* option, int* format) override {
            if (option != nullptr) *option = 0;
            if (format != nullptr) *format = format_;
        }
        GVideoFrame* Convert(GVideoFrame* in) override {
            unsigned w = 0, h = 0;
            in->GetDimension(&w, &h);
            if (w_ != 0) w = w_;
            if (h_ != 0) h = h_;
            if (!frame_ || frame_->Frame().GetPixelFormat() != format_ || w != width_ ||
                h != height_) {
                frame_ = std::make_unique<BenchFrame>(format_, w, h);
                width_ = w, height_ = h;
            }
            return &frame_->Frame();
        }
        void Release() override { delete this; }

    private:
        int format_;
        unsigned w_, h_, width_ = 0, height_ = 0;
        std::unique_ptr<BenchFrame> frame_;
    };
};

GController* Swscale() {
    static GController* controller = libconvert_CreateController();
    return controller;
}
GController* PassThrough() {
    static PassThroughController controller;
    return &controller;
}

// The stereo renderer alone, as an effect: renders two views of the frame's format and size
// into the frame.
class RenderEffect : public CImageEffectBase {
public:
    explicit RenderEffect(Type3D mode) : CImageEffectBase(AVPROCESSOR_2DTO3D), renderer_(nullptr) {
        renderer_.SetRenderMode(mode);
    }
    bool ProcFrameInner(ImagePostion*, int, GVideoFrame* frame) override {
        if (!left_) {
            unsigned w = 0, h = 0;
            frame->GetDimension(&w, &h);
            left_ = std::make_unique<BenchFrame>(frame->GetPixelFormat(), w, h);
            right_ = std::make_unique<BenchFrame>(frame->GetPixelFormat(), w, h);
        }
        return renderer_.Render(&left_->Frame(), &right_->Frame(), frame) != nullptr;
    }

private:
    C3DRender renderer_;
    std::unique_ptr<BenchFrame> left_, right_;
};

std::function<GVideoProcessor*()> Render(Type3D mode) {
    return [mode] { return new RenderEffect(mode); };
}
std::function<GVideoProcessor*()> WithHost(unsigned id, GController* (*host)()) {
    return [id, host] { return libfilter_GetFilter(host(), id); };
}

const Size kSizes[] = {{1920, 1080}, {3840, 2160}};
const Format kFormats[] = {{PIXFMT_BGRA32, "BGRA"}, {PIXFMT_YUV420P, "YUV420P"}};
const Effect kEffects[] = {
    {"invert", Factory(AVPROCESSOR_INVERT), {}},
    {"brightness", Factory(AVPROCESSOR_BRIGHTNESS_CONTRAST), {}},
    {"brightness_30_20_40",
     Factory(AVPROCESSOR_BRIGHTNESS_CONTRAST),
     {{"brightness", "30"}, {"contrast", "20"}, {"saturation", "40"}}},
    {"gray", Factory(AVPROCESSOR_GRAY), {}},
    {"flip_color", Factory(AVPROCESSOR_FLIP_COLOR), {}},
    {"aged_film", Factory(AVPROCESSOR_AGED_FILM), {}},
    {"mirage", Direct<CMirageVideoImageEffect>, {}},
    {"mirage40", Direct<CMirageVideoImageEffect>, {{"mirage_width", "40"}, {"mirage_alpha", "60"}}},
    {"transparency", Direct<CTransparencyAjustEffect>, {}},
    {"transparency50", Direct<CTransparencyAjustEffect>, {{"transparency_scale", "50"}}},
    {"colorfilter", Direct<CColorFilterEffect>, {}},
    {"addnoise", Direct<CAddNoiseVideoImageEffect>, {}},
    {"addnoise0", Direct<CAddNoiseVideoImageEffect>, {{"addnoise_level", "0"}}},
    {"colorfilter64",
     Direct<CColorFilterEffect>,
     {{"filter_scope", "64"}, {"filter_color", "8421504"}}},
    {"blur", Factory(AVPROCESSOR_GAUSS_BLUR), {}},
    {"blur_x3", Factory(AVPROCESSOR_GAUSS_BLUR), {{"blur_count", "3"}}},
    {"sharpen", Factory(AVPROCESSOR_LAPLACIAN_SHARPEN), {}},
    {"sharpen_x2", Factory(AVPROCESSOR_LAPLACIAN_SHARPEN), {{"sharpen_count", "2"}}},
    {"emboss", Factory(AVPROCESSOR_EMBOSS), {}},
    {"emboss_9", Factory(AVPROCESSOR_EMBOSS), {{"emboss_level", "9"}}},
    {"mirror", Factory(AVPROCESSOR_REVERSE), {}},
    {"mirror_h", Factory(AVPROCESSOR_REVERSE), {{"mirror", "1"}}},
    {"mirror_v", Factory(AVPROCESSOR_REVERSE), {{"vertical", "1"}}},
    {"mirror_hv", Factory(AVPROCESSOR_REVERSE), {{"mirror", "1"}, {"vertical", "1"}}},
    {"mosaic", Factory(AVPROCESSOR_MOSAIC), {}},
    {"mosaic_frame", Factory(AVPROCESSOR_MOSAIC), {{"mosaic_step", "3"}}, WholeFrameMosaic},
    {"render-side-by-side", Render(TYPE3D_SIDE_BY_SIDE), {}},
    {"render-top-bottom", Render(TYPE3D_TOP_BOTTOM), {}},
    {"render-red-blue", Render(TYPE3D_RED_BLUE), {}},
    {"2dto3d-side-by-side", Factory(AVPROCESSOR_2DTO3D), {{"type", "3"}}},
    {"2dto3d-top-bottom", Factory(AVPROCESSOR_2DTO3D), {{"type", "4"}}},
    // Rows with the libswscale host, and the same without the conversions' share.
    {"color3d-red-cyan", WithHost(AVPROCESSOR_2DTO3D, Swscale), {{"type", "1"}}},
    {"color3d-red-cyan-nocvt", WithHost(AVPROCESSOR_2DTO3D, PassThrough), {{"type", "1"}}},
    {"rotate90", WithHost(AVPROCESSOR_ROTATE90, Swscale), {}},
    {"rotate90-nocvt", WithHost(AVPROCESSOR_ROTATE90, PassThrough), {}},
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

// In place; out of place through ProcFrame (a copy the library makes and changes); or into a
// frame of the host's through libfilter_ProcFrameInto, as the frei0r plug-ins and lfx do. The
// out-of-place forms write the result in one walk over memory for the effects that allow it.
enum class Mode { InPlace, Out, Into };

void BenchEffect(benchmark::State& state, Effect effect, Format format, Size size,
                 Simd::Level level, Mode mode = Mode::InPlace) {
    BenchFrame frame(format.number, size.width, size.height);
    std::unique_ptr<BenchFrame> target;
    if (mode == Mode::Into)
        target = std::make_unique<BenchFrame>(format.number, size.width, size.height);
    GVideoProcessor* processor = effect.create();
    for (const auto& [name, value] : effect.properties)
        processor->SetProperty(name, value);
    if (effect.sized) effect.sized(processor, size);
    ImagePostion position{};
    Simd::SetLevelLimit(level);
    // One untimed frame, so what an effect makes once (converters, held frames, the grain
    // pattern) is not timed.
    processor->ProcFrameInPlace(&position, 0, &frame.Frame());
    for (auto _ : state) {
        if (mode == Mode::Out) {
            benchmark::DoNotOptimize(processor->ProcFrame(&position, 0, &frame.Frame()));
        } else if (mode == Mode::Into) {
            libfilter_ProcFrameInto(processor, &position, 0, &frame.Frame(), &target->Frame());
        } else {
            processor->ProcFrameInPlace(&position, 0, &frame.Frame());
        }
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
        for (const Run& run : runs) {
            const std::string name = run.run_name.str();
            if (!medians_.Takes(run, name)) continue;
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
    MedianRuns medians_;
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
                                             Simd::kAvx512, Mode::InPlace);
                for (const auto& [suffix, mode] :
                     {std::pair{"@out/", Mode::Out}, {"@into/", Mode::Into}}) {
                    benchmark::RegisterBenchmark(
                        (std::string(effect.name) + suffix + Key(format, size)).c_str(),
                        BenchEffect, effect, format, size, Simd::kAvx512, mode);
                }
                for (int level = Simd::kScalar; level < Simd::HostLevel(); ++level) {
                    const auto l = static_cast<Simd::Level>(level);
                    const std::string narrower = std::string(effect.name) + "@" +
                                                 Simd::LevelName(l) + "/" + Key(format, size);
                    benchmark::RegisterBenchmark(narrower.c_str(), BenchEffect, effect, format,
                                                 size, l, Mode::InPlace);
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
