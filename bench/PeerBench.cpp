// Each of our effects beside its nearest peers among the filters hosts use today: FFmpeg's
// libavfilter (a filter graph on one thread), frei0r plugins and OpenCV's nearest calls (on one
// thread, and again on OpenCV's own threads), in the same process on the same frames. Every side
// works through a stream of distinct frames, as playback does, so frames come from memory and
// not from the caches; memcpy of the same stream is the yardstick. After the runs a table gives
// our processor time per frame over the peer's for every pair: below 1 we are faster. Pairs
// whose effect this build lacks, or whose peer does not take the frame's format as it is
// (libavfilter would convert it), are left out and listed.
#include <benchmark/benchmark.h>

extern "C" {
#include <libavutil/log.h>
}

#include <cstdio>
#include <cstring>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "Medians.h"
#include "Peers.h"
#include "libfilter/Siblings.h"
#include "libfilter/libfilter.h"
#include "support/EffectRoster.h"

using namespace MediaCore;
using testing_support::PropertyList;

namespace {

struct FrameKind {
    int format;
    const char* name;
    unsigned width, height;
};

const FrameKind kFrames[] = {
    {PIXFMT_BGRA32, "BGRA", 1920, 1080},
    {PIXFMT_YUV420P, "YUV420P", 1920, 1080},
    {PIXFMT_BGRA32, "BGRA", 3840, 2160},
    {PIXFMT_YUV420P, "YUV420P", 3840, 2160},
};

// A frei0r parameter; with perWidth its value is divided by the frame's width.
struct Param {
    const char* name;
    double value;
    bool perWidth = false;
};

// A libavfilter chain or a frei0r plugin. Chains may hold {W} and {H}, the frame's size, and
// {FW} and {FX}: the width a quarter-turned frame is scaled to so that it fits, and its offset.
struct Peer {
    enum Kind { kLavfi, kFrei0r, kOpenCv } kind;
    std::string text;
    std::vector<Param> params;
    const char* note = nullptr;  // shown beside the peer, for peers that do no pixel work
};

Peer Lavfi(std::string chain, const char* note = nullptr) {
    return {Peer::kLavfi, std::move(chain), {}, note};
}
Peer Frei0r(std::string plugin, std::vector<Param> params = {}) {
    return {Peer::kFrei0r, std::move(plugin), std::move(params)};
}
// OpenCV's work by its name in peers::OpenCvPeer.
Peer OpenCv(std::string work) {
    return {Peer::kOpenCv, std::move(work), {}};
}

// One 3x3 kernel on the three planes of a YUV frame.
std::string Convolution(const std::string& kernel, const std::string& divisor) {
    std::string chain = "convolution=";
    for (const char* plane : {"0", "1", "2"}) {
        chain += std::string(plane == std::string("0") ? "" : ":") + plane + "m='" + kernel +
                 "':" + plane + "rdiv=" + divisor;
    }
    return chain;
}

// One row of the table: our effect (by id; settings may use {W} and {H}, none means its usual
// work) and a peer. New effects need one row per peer here and nothing else.
struct Pair {
    unsigned id;
    PropertyList ours;
    Peer peer;
};

// Blocks of 16 pixels over the whole frame.
const PropertyList kWholeFrameMosaic = {{"mosaic_x1", "0"},
                                        {"mosaic_y1", "0"},
                                        {"mosaic_x2", "{W}"},
                                        {"mosaic_y2", "{H}"},
                                        {"mosaic_step", "4"}};

const std::string kSepia = "colorchannelmixer=.393:.769:.189:0:.349:.686:.168:0:.272:.534:.131";

const std::vector<Pair> kPairs = {
    {AVPROCESSOR_INVERT, {}, Lavfi("negate")},
    {AVPROCESSOR_INVERT, {}, Frei0r("invert0r")},
    {AVPROCESSOR_GRAY, {}, Lavfi("hue=s=0")},
    {AVPROCESSOR_GRAY, {}, Frei0r("bw0r")},
    {AVPROCESSOR_FLIP_COLOR, {}, Lavfi("colorchannelmixer=rr=0:rb=1:br=1:bb=0")},
    {AVPROCESSOR_FLIP_COLOR, {}, Lavfi("swapuv", "swaps the plane pointers, moves no pixel")},
    {AVPROCESSOR_AGED_FILM, {}, Lavfi(kSepia)},
    {AVPROCESSOR_BRIGHTNESS_CONTRAST,
     {{"brightness", "20"}, {"contrast", "40"}, {"saturation", "60"}},
     Lavfi("eq=brightness=0.2:contrast=1.4:saturation=1.6")},
    {AVPROCESSOR_BRIGHTNESS_CONTRAST,
     {{"brightness", "20"}},
     Frei0r("brightness", {{"Brightness", 0.6}})},
    {AVPROCESSOR_BRIGHTNESS_CONTRAST,
     {{"contrast", "40"}},
     Frei0r("contrast0r", {{"Contrast", 0.7}})},
    {AVPROCESSOR_BRIGHTNESS_CONTRAST,
     {{"saturation", "60"}},
     Frei0r("saturat0r", {{"Saturation", 0.2}})},
    {AVPROCESSOR_REVERSE, {{"mirror", "1"}}, Lavfi("hflip")},
    {AVPROCESSOR_REVERSE, {{"vertical", "1"}}, Lavfi("vflip", "negates the pitch, moves no pixel")},
    {AVPROCESSOR_REVERSE, {{"mirror", "1"}}, Frei0r("flippo", {{"X axis", 1}})},
    {AVPROCESSOR_GAUSS_BLUR,
     {{"blur_count", "1"}},
     Lavfi(Convolution("1 2 1 2 4 2 1 2 1", "1/16"))},
    {AVPROCESSOR_GAUSS_BLUR, {{"blur_count", "1"}}, Lavfi("boxblur=1:1")},
    {AVPROCESSOR_GAUSS_BLUR, {{"blur_count", "1"}}, Frei0r("IIRblur", {{"Amount", 0.1}})},
    {AVPROCESSOR_GAUSS_BLUR,
     {{"blur_count", "1"}},
     Frei0r("squareblur", {{"Kernel size", 3, true}})},
    {AVPROCESSOR_LAPLACIAN_SHARPEN,
     {{"sharpen_count", "1"}},
     Lavfi(Convolution("-1 -1 -1 -1 9 -1 -1 -1 -1", "1"))},
    {AVPROCESSOR_LAPLACIAN_SHARPEN, {{"sharpen_count", "1"}}, Lavfi("unsharp=3:3:1:3:3:1")},
    {AVPROCESSOR_LAPLACIAN_SHARPEN,
     {{"sharpen_count", "1"}},
     Frei0r("sharpness", {{"Amount", 0.5}, {"Size", 0.1}})},
    {AVPROCESSOR_EMBOSS, {}, Lavfi(Convolution("-2 -1 0 -1 1 1 0 1 2", "1"))},
    {AVPROCESSOR_EMBOSS, {}, Frei0r("emboss")},
    {AVPROCESSOR_MOSAIC, kWholeFrameMosaic, Lavfi("pixelize=w=16:h=16")},
    {AVPROCESSOR_MOSAIC, kWholeFrameMosaic,
     Frei0r("pixeliz0r", {{"Block width", 30, true}, {"Block height", 30, true}})},
    {AVPROCESSOR_TRANSPARENCY, {}, Lavfi("colorchannelmixer=aa=0.4")},
    {AVPROCESSOR_COLOR_FILTER, {}, Lavfi("colorkey=color=0xFFFFFF:similarity=0.2")},
    {AVPROCESSOR_ADD_NOISE, {{"addnoise_level", "4"}}, Lavfi("noise=alls=20")},
    {AVPROCESSOR_ROTATE90,
     {},
     Lavfi("transpose=clock,scale={FW}:{H}:threads=1,pad={W}:{H}:{FX}:0")},
    {AVPROCESSOR_INVERT, {}, OpenCv("invert")},
    {AVPROCESSOR_GRAY, {}, OpenCv("gray")},
    {AVPROCESSOR_FLIP_COLOR, {}, OpenCv("flip-color")},
    {AVPROCESSOR_AGED_FILM, {}, OpenCv("sepia")},
    {AVPROCESSOR_BRIGHTNESS_CONTRAST, {{"brightness", "20"}}, OpenCv("brightness")},
    {AVPROCESSOR_BRIGHTNESS_CONTRAST, {{"contrast", "40"}}, OpenCv("contrast")},
    {AVPROCESSOR_BRIGHTNESS_CONTRAST, {{"saturation", "60"}}, OpenCv("saturation")},
    {AVPROCESSOR_BRIGHTNESS_CONTRAST,
     {{"brightness", "20"}, {"contrast", "40"}, {"saturation", "60"}},
     OpenCv("eq")},
    {AVPROCESSOR_REVERSE, {{"mirror", "1"}}, OpenCv("mirror")},
    {AVPROCESSOR_REVERSE, {{"vertical", "1"}}, OpenCv("vflip")},
    {AVPROCESSOR_REVERSE, {{"mirror", "1"}, {"vertical", "1"}}, OpenCv("rotate180")},
    {AVPROCESSOR_GAUSS_BLUR, {{"blur_count", "1"}}, OpenCv("blur")},
    {AVPROCESSOR_LAPLACIAN_SHARPEN, {{"sharpen_count", "1"}}, OpenCv("sharpen")},
    {AVPROCESSOR_EMBOSS, {}, OpenCv("emboss")},
    {AVPROCESSOR_MOSAIC, kWholeFrameMosaic, OpenCv("mosaic")},
    {AVPROCESSOR_TRANSPARENCY, {}, OpenCv("transparency")},
    {AVPROCESSOR_COLOR_FILTER, {}, OpenCv("colorkey")},
    {AVPROCESSOR_ADD_NOISE, {{"addnoise_level", "4"}}, OpenCv("grain")},
    {AVPROCESSOR_ROTATE90, {}, OpenCv("rotate90")},
    {AVPROCESSOR_2DTO3D, {{"type", "1"}}, Lavfi("stereo3d=sbsl:arcd")},
    {AVPROCESSOR_2DTO3D, {{"type", "2"}}, Lavfi("stereo3d=sbsl:agmd")},
    {AVPROCESSOR_2DTO3D, {{"type", "3"}}, Lavfi("stereo3d=abl:sbsl")},
    {AVPROCESSOR_2DTO3D, {{"type", "4"}}, Lavfi("stereo3d=sbsl:abl")},
};

std::string Resolve(std::string text, const FrameKind& frame) {
    // A quarter-turned frame scaled to the frame's height, to an even width, and centred.
    const unsigned fitted = (frame.height * frame.height / frame.width + 1) & ~1u;
    const std::pair<const char*, unsigned> tokens[] = {
        {"{W}", frame.width},
        {"{H}", frame.height},
        {"{FW}", fitted},
        {"{FX}", (frame.width - fitted) / 2},
    };
    for (const auto& [token, value] : tokens) {
        for (size_t at; (at = text.find(token)) != std::string::npos;)
            text.replace(at, std::strlen(token), std::to_string(value));
    }
    return text;
}

PropertyList OurSettings(const Pair& pair, const FrameKind& frame) {
    PropertyList settings =
        pair.ours.empty()
            ? catalogue::Showcase(*testing_support::FindServedEffect(pair.id)->description,
                                  frame.width, frame.height)
            : pair.ours;
    for (auto& setting : settings)
        setting.second = Resolve(setting.second, frame);
    return settings;
}

std::string Describe(const PropertyList& settings) {
    std::string text;
    for (const auto& [name, value] : settings)
        text += (text.empty() ? "" : " ") + name + "=" + value;
    return text;
}

peers::Frei0rPeer::Params Frei0rParams(const Peer& peer, const FrameKind& frame) {
    peers::Frei0rPeer::Params params;
    for (const Param& p : peer.params)
        params.emplace_back(p.name, p.perWidth ? p.value / frame.width : p.value);
    return params;
}

std::string Number(double value) {
    char text[32];
    std::snprintf(text, sizeof text, "%.4g", value);
    return text;
}

std::string DescribePeer(const Peer& peer, const FrameKind& frame) {
    if (peer.kind == Peer::kLavfi) {
        const std::string note = peer.note != nullptr ? std::string(" (") + peer.note + ")" : "";
        return "libavfilter `" + Resolve(peer.text, frame) + "`" + note;
    }
    if (peer.kind == Peer::kOpenCv) {
        const peers::OpenCvPeer probe(peer.text, frame.format, frame.width, frame.height);
        return "OpenCV `" + (probe.Available() ? probe.Calls() : peer.text) + "`";
    }
    std::string text = "frei0r `" + peer.text + "`";
    for (const auto& [name, value] : Frei0rParams(peer, frame))
        text += " " + name + "=" + Number(value);
    return text;
}

std::string FrameName(const FrameKind& frame) {
    return std::string(frame.name) + "/" + std::to_string(frame.width) + "x" +
           std::to_string(frame.height);
}

// In place on each frame of a stream; or, `outOfPlace`, from each frame of one stream into the
// next of a second (libfilter_ProcFrameInto, the way frei0r's update and lfx run it).
void BenchOurs(benchmark::State& state, unsigned id, PropertyList settings, FrameKind frame,
               bool outOfPlace) {
    peers::Stream in(frame.format, frame.width, frame.height, 1);
    std::unique_ptr<peers::Stream> out;
    if (outOfPlace)
        out = std::make_unique<peers::Stream>(frame.format, frame.width, frame.height, 2);
    GVideoProcessor* effect = testing_support::FindServedEffect(id)->Create();
    for (const auto& [name, value] : settings)
        effect->SetProperty(name.c_str(), value.c_str());
    ImagePostion position{};
    const auto run = [&] {
        if (out) {
            libfilter_ProcFrameInto(effect, &position, 0, &in.Next().View(), &out->Next().View());
        } else {
            effect->ProcFrameInPlace(&position, 0, &in.Next().View());
        }
    };
    // One untimed frame, so what an effect makes once (converters, tables) is not timed.
    run();
    for (auto _ : state) {
        run();
        benchmark::ClobberMemory();
    }
    effect->Free();
}

void BenchMemcpy(benchmark::State& state, FrameKind frame) {
    peers::Stream in(frame.format, frame.width, frame.height, 1);
    peers::Stream out(frame.format, frame.width, frame.height, 2);
    for (auto _ : state) {
        peers::CopyFrame(in.Next().Frame(), out.Next().Frame());
        benchmark::ClobberMemory();
    }
}

void BenchLavfi(benchmark::State& state, std::string chain, FrameKind frame) {
    peers::Stream stream(frame.format, frame.width, frame.height);
    peers::LavfiPeer peer(chain, frame.format, frame.width, frame.height);
    peer.Run(stream.Next().Frame());  // lets the graph fill its frame pools
    for (auto _ : state) {
        if (!peer.Run(stream.Next().Frame())) {
            state.SkipWithError("the graph refused a frame");
            break;
        }
    }
}

void BenchFrei0r(benchmark::State& state, std::string plugin, peers::Frei0rPeer::Params params,
                 FrameKind frame) {
    peers::Stream in(frame.format, frame.width, frame.height, 1);
    peers::Stream out(frame.format, frame.width, frame.height, 2);
    peers::Frei0rPeer peer(plugin, params, frame.width, frame.height);
    if (!peer.Loaded()) {
        state.SkipWithError("the plugin did not load");
        return;
    }
    for (auto _ : state) {
        peer.Run(reinterpret_cast<const uint32_t*>(in.Next().Frame()->data[0]),
                 reinterpret_cast<uint32_t*>(out.Next().Frame()->data[0]));
        benchmark::ClobberMemory();
    }
}

// threads: 1, or 0 for OpenCV's own choice.
void BenchOpenCv(benchmark::State& state, std::string work, int threads, FrameKind frame) {
    peers::Stream stream(frame.format, frame.width, frame.height);
    peers::OpenCvPeer peer(work, frame.format, frame.width, frame.height);
    peers::OpenCvPeer::SetThreads(threads);
    peer.Run(stream.Next().Frame());  // lets OpenCV make its scratch matrices
    for (auto _ : state) {
        peer.Run(stream.Next().Frame());
        benchmark::ClobberMemory();
    }
    peers::OpenCvPeer::SetThreads(1);
}

// Whether a peer can run on this frame as it is; else why not.
std::string Unavailable(const Peer& peer, const FrameKind& frame) {
    if (peer.kind == Peer::kLavfi) {
        peers::LavfiPeer probe(Resolve(peer.text, frame), frame.format, frame.width, frame.height);
        return probe.Native() ? "" : "does not take " + std::string(frame.name) + " as it is";
    }
    if (peer.kind == Peer::kOpenCv) {
        if (!peers::OpenCvPeer::Built()) return "OpenCV not in this build";
        const peers::OpenCvPeer probe(peer.text, frame.format, frame.width, frame.height);
        return probe.Available() ? "" : "no OpenCV form for " + std::string(frame.name);
    }
    if (frame.format != PIXFMT_BGRA32) return "packed 32-bit frames only";
    peers::Frei0rPeer probe(peer.text, Frei0rParams(peer, frame), frame.width, frame.height);
    return probe.Loaded() ? "" : "plugin not installed";
}

// Benchmark names: ours (in place and out of place), the peer's, the peer's on its own threads
// (OpenCV only), memcpy's.
struct Row {
    std::string effect, peer, frame, ours, oursOut, theirs, threaded, copy;
};

std::string Fixed(double value) {
    char text[32];
    std::snprintf(text, sizeof text, "%.2f", value);
    return text;
}

// Prints the usual console report, then our time over the peer's for every pair.
class PeerReporter : public benchmark::ConsoleReporter {
public:
    PeerReporter(std::vector<Row> rows, std::vector<std::string> skipped)
        : rows_(std::move(rows)), skipped_(std::move(skipped)) {}

    void ReportRuns(const std::vector<Run>& runs) override {
        ConsoleReporter::ReportRuns(runs);
        for (const Run& run : runs) {
            const std::string name = run.run_name.function_name;
            if (!medians_.Takes(run, name)) continue;
            // Processor time: on a shared machine it counts the work, not the waits. OpenCV on its
            // own threads is timed by the wall clock, which is what more threads shorten.
            milliseconds_[name] = name.rfind("/threads:own") != std::string::npos
                                      ? run.GetAdjustedRealTime()
                                      : run.GetAdjustedCPUTime();
        }
    }

    void Finalize() override {
        ConsoleReporter::Finalize();
        std::printf(
            "\n| effect (our settings) | peer | frame | ours ms | peer ms | ours / peer | "
            "peer ms, own threads | ours / memcpy |\n");
        std::printf("|---|---|---|---:|---:|---:|---:|---:|\n");
        for (const Row& row : rows_) {
            const auto ours = milliseconds_.find(row.ours);
            const auto theirs = milliseconds_.find(row.theirs);
            if (ours == milliseconds_.end() || theirs == milliseconds_.end()) continue;
            const auto threaded = milliseconds_.find(row.threaded);
            const auto copy = milliseconds_.find(row.copy);
            const std::string threadedText =
                threaded == milliseconds_.end() ? "" : Fixed(threaded->second);
            const std::string copyText =
                copy == milliseconds_.end() ? "" : Fixed(ours->second / copy->second);
            std::printf("| %s | %s | %s | %.2f | %.2f | %.2f | %s | %s |\n", row.effect.c_str(),
                        row.peer.c_str(), row.frame.c_str(), ours->second, theirs->second,
                        ours->second / theirs->second, threadedText.c_str(), copyText.c_str());
        }
        PrintPlaces();
        if (!skipped_.empty()) std::printf("\nLeft out:\n");
        for (const std::string& line : skipped_)
            std::printf("- %s\n", line.c_str());
    }

private:
    double Ms(const std::string& name) const {
        const auto found = milliseconds_.find(name);
        return found == milliseconds_.end() ? 0.0 : found->second;
    }

    // Our in-place time beside our out-of-place time, once per effect setting and frame.
    void PrintPlaces() const {
        std::printf(
            "\n| effect (our settings) | frame | in place ms | out of place ms | in / out | "
            "in place / memcpy | out of place / memcpy |\n");
        std::printf("|---|---|---:|---:|---:|---:|---:|\n");
        std::set<std::string> printed;
        for (const Row& row : rows_) {
            const double in = Ms(row.ours), out = Ms(row.oursOut), copy = Ms(row.copy);
            if (in == 0.0 || out == 0.0 || copy == 0.0 || !printed.insert(row.ours).second) {
                continue;
            }
            std::printf("| %s | %s | %.2f | %.2f | %.2f | %.2f | %.2f |\n", row.effect.c_str(),
                        row.frame.c_str(), in, out, in / out, in / copy, out / copy);
        }
    }

    std::vector<Row> rows_;
    std::vector<std::string> skipped_;
    std::map<std::string, double> milliseconds_;
    MedianRuns medians_;
};

}  // namespace

int main(int argc, char** argv) {
    GetLogger()->SetLevel(LOG_LEVEL_OFF);
    av_log_set_level(AV_LOG_QUIET);
    testing_support::SilentSink quiet;
    std::vector<Row> rows;
    std::vector<std::string> skipped;
    std::set<std::string> registered;
    const auto add = [&](const std::string& name, auto&&... args) {
        if (!registered.insert(name).second) return;
        benchmark::RegisterBenchmark(name.c_str(), args...)->Unit(benchmark::kMillisecond);
    };
    for (const FrameKind& frame : kFrames) {
        const std::string copy = "memcpy/" + FrameName(frame);
        add(copy, BenchMemcpy, frame);
        for (const Pair& pair : kPairs) {
            const std::string effect = catalogue::FindEffect(std::to_string(pair.id))->name;
            const PropertyList settings = OurSettings(pair, frame);
            const std::string described =
                effect + (settings.empty() ? "" : " (" + Describe(settings) + ")");
            const std::string peerText = DescribePeer(pair.peer, frame);
            if (testing_support::FindServedEffect(pair.id) == nullptr) {
                if (&frame == &kFrames[0])
                    skipped.push_back(effect + " beside " + peerText + ": not in this build");
                continue;
            }
            if (const std::string why = Unavailable(pair.peer, frame); !why.empty()) {
                skipped.push_back(described + " beside " + peerText + " on " + FrameName(frame) +
                                  ": " + why);
                continue;
            }
            // Pairs that share a side share its benchmark.
            const std::string ours = "ours/" + described + "/" + FrameName(frame);
            const std::string oursOut = "ours-out/" + described + "/" + FrameName(frame);
            const std::string theirs = "peer/" + peerText + "/" + FrameName(frame);
            std::string threaded;
            add(ours, BenchOurs, pair.id, settings, frame, false);
            add(oursOut, BenchOurs, pair.id, settings, frame, true);
            if (pair.peer.kind == Peer::kLavfi) {
                add(theirs, BenchLavfi, Resolve(pair.peer.text, frame), frame);
            } else if (pair.peer.kind == Peer::kFrei0r) {
                add(theirs, BenchFrei0r, pair.peer.text, Frei0rParams(pair.peer, frame), frame);
            } else {
                add(theirs, BenchOpenCv, pair.peer.text, 1, frame);
                threaded = "peer/" + peerText + "/threads:own/" + FrameName(frame);
                add(threaded, BenchOpenCv, pair.peer.text, 0, frame);
            }
            rows.push_back(
                {described, peerText, FrameName(frame), ours, oursOut, theirs, threaded, copy});
        }
    }
    benchmark::Initialize(&argc, argv);
    PeerReporter reporter(std::move(rows), std::move(skipped));
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();
    return 0;
}
