// Our GStreamer elements in whole pipelines beside GStreamer's own elements for the same job and
// beside our frei0r plug-ins through GStreamer's frei0r wrapper, in the same run:
//   videotestsrc num-buffers=N ! <caps> ! <element> ! fakesink sync=false
// Each pipeline is built and prerolled outside the timed region; inside it runs from PLAYING to
// end of stream. Times are processor time of the whole process (every streaming thread) per
// frame. The table also gives the bare source-to-sink pipeline's time, the share of every row
// that is the test source drawing its frames.
#include <benchmark/benchmark.h>
#include <gst/gst.h>
#include <stdlib.h>

#include <cstdio>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "Medians.h"
#include "catalogue/Catalogue.h"

namespace {

struct FrameKind {
    const char* format;  // our elements' caps format
    unsigned width, height;
    unsigned frames;  // buffers per pipeline run, the prerolled first one untimed
};

const FrameKind kFrames[] = {
    {"I420", 1920, 1080, 41},
    {"BGRA", 1920, 1080, 41},
    {"I420", 3840, 2160, 16},
    {"BGRA", 3840, 2160, 16},
};

// One of our elements beside a GStreamer element. `peer` may hold {W} and {H}; `peerFormat` is
// the format the peer takes in place of ours (same bytes a pixel), null for ours.
struct Pair {
    const char* effect;
    catalogue::PropertyList settings;  // property texts as the library takes them
    const char* peer;
    const char* peerFormats[2];  // for I420 and BGRA frames; "" leaves the pair out
};

const Pair kPairs[] = {
    {"brightness-contrast",
     {{"brightness", "20"}, {"contrast", "40"}, {"saturation", "60"}},
     "videobalance brightness=0.2 contrast=1.4 saturation=1.6",
     {"I420", "BGRA"}},
    {"mirror", {{"mirror", "1"}}, "videoflip video-direction=horiz", {"I420", "BGRA"}},
    {"aged-film", {}, "coloreffects preset=sepia", {"", "BGRA"}},
    {"aged-film", {}, "agingtv", {"", "BGRx"}},
    {"blur", {{"blur_count", "1"}}, "gaussianblur", {"", "AYUV"}},
    {"color-filter",
     {{"filter_color", "65280"}, {"filter_scope", "48"}},
     "alpha method=custom target-r=0 target-g=255 target-b=0 ! video/x-raw,format=BGRA",
     {"", "BGRA"}},
    {"mirage", {{"mirage_width", "20"}, {"mirage_alpha", "50"}}, "vertigotv", {"", "BGRx"}},
    {"emboss", {}, "edgetv", {"", "BGRx"}},
    {"invert", {}, "frei0r-filter-invert0r", {"", "RGBA"}},
    {"gray", {}, "frei0r-filter-bw0r", {"", "RGBA"}},
    {"emboss", {}, "frei0r-filter-emboss", {"", "RGBA"}},
    {"mirror", {{"mirror", "1"}}, "frei0r-filter-flippo x-axis=true", {"", "RGBA"}},
    {"blur", {{"blur_count", "1"}}, "frei0r-filter-squareblur kernel-size={3/W}", {"", "RGBA"}},
    {"mosaic",
     {{"mosaic_x2", "{W}"}, {"mosaic_y2", "{H}"}, {"mosaic_step", "4"}},
     "frei0r-filter-pixeliz0r block-width={16/W} block-height={16/W}",
     {"", "RGBA"}},
};

std::string Replace(std::string text, const std::string& from, const std::string& to) {
    for (size_t at = text.find(from); at != std::string::npos; at = text.find(from, at + to.size()))
        text.replace(at, from.size(), to);
    return text;
}

std::string Number(double value) {
    char text[32];
    std::snprintf(text, sizeof text, "%.6g", value);
    return text;
}

std::string Sized(const std::string& text, const FrameKind& frame) {
    std::string sized = Replace(text, "{16/W}", Number(16.0 / frame.width));
    sized = Replace(sized, "{3/W}", Number(3.0 / frame.width));
    sized = Replace(sized, "{W}", std::to_string(frame.width));
    return Replace(sized, "{H}", std::to_string(frame.height));
}

std::string Caps(const char* format, const FrameKind& frame) {
    return std::string("video/x-raw,format=") + format + ",width=" + std::to_string(frame.width) +
           ",height=" + std::to_string(frame.height) + ",framerate=30/1";
}

std::string Source(const char* format, const FrameKind& frame) {
    return "videotestsrc num-buffers=" + std::to_string(frame.frames) + " ! " +
           Caps(format, frame) + " ! ";
}

// Our element with its properties under their GObject names.
std::string OurElement(const Pair& pair, const FrameKind& frame) {
    std::string element = std::string("libfilter-") + pair.effect;
    for (const auto& [name, value] : pair.settings)
        element += " " + Replace(name, "_", "-") + "=" + Sized(value, frame);
    return element;
}

// Our frei0r plug-in in GStreamer's wrapper: numbers as 0..1 across their range, colours as
// three channels.
std::string Frei0rElement(const catalogue::EffectDescription& effect,
                          const catalogue::PropertyList& settings, const FrameKind& frame) {
    std::string element = std::string("frei0r-filter-libfilter-") + effect.name;
    for (const auto& [name, text] : settings) {
        const catalogue::PropertyDescription* property = catalogue::FindProperty(effect, name);
        if (property == nullptr) continue;
        const std::string gobject = Replace(name, "_", "-");
        const double value = std::strtod(Sized(text, frame).c_str(), nullptr);
        switch (property->kind) {
            case catalogue::PropertyKind::Flag:
                element += " " + gobject + (value == 1 ? "=true" : "=false");
                break;
            case catalogue::PropertyKind::Color: {
                const auto rgb = static_cast<unsigned>(value);
                element += " " + gobject + "-r=" + Number(((rgb >> 16) & 0xFF) / 255.0) + " " +
                           gobject + "-g=" + Number(((rgb >> 8) & 0xFF) / 255.0) + " " + gobject +
                           "-b=" + Number((rgb & 0xFF) / 255.0);
                break;
            }
            default: {
                const double top = catalogue::UpperBound(*property, frame.width, frame.height);
                element +=
                    " " + gobject + "=" + Number((value - property->min) / (top - property->min));
            }
        }
    }
    return element;
}

// A pipeline from PLAYING to end of stream, prerolled first; false on an error.
bool RunOnce(benchmark::State& state, const std::string& launch) {
    GError* error = nullptr;
    GstElement* pipeline = gst_parse_launch(launch.c_str(), &error);
    if (error != nullptr) {
        state.SkipWithError(error->message);
        g_error_free(error);
        if (pipeline != nullptr) gst_object_unref(pipeline);
        return false;
    }
    gst_element_set_state(pipeline, GST_STATE_PAUSED);
    gst_element_get_state(pipeline, nullptr, nullptr, GST_CLOCK_TIME_NONE);
    GstBus* bus = gst_element_get_bus(pipeline);
    state.ResumeTiming();
    gst_element_set_state(pipeline, GST_STATE_PLAYING);
    GstMessage* message = gst_bus_timed_pop_filtered(
        bus, GST_CLOCK_TIME_NONE, static_cast<GstMessageType>(GST_MESSAGE_EOS | GST_MESSAGE_ERROR));
    state.PauseTiming();
    const bool ok = GST_MESSAGE_TYPE(message) == GST_MESSAGE_EOS;
    if (!ok) state.SkipWithError(("pipeline failed: " + launch).c_str());
    gst_message_unref(message);
    gst_object_unref(bus);
    gst_element_set_state(pipeline, GST_STATE_NULL);
    gst_object_unref(pipeline);
    return ok;
}

void BenchPipeline(benchmark::State& state, const std::string& launch) {
    for (auto _ : state) {
        state.PauseTiming();
        if (!RunOnce(state, launch)) break;
        state.ResumeTiming();
    }
}

bool HasElement(const std::string& launch) {
    const std::string name = launch.substr(0, launch.find(' '));
    GstElementFactory* factory = gst_element_factory_find(name.c_str());
    if (factory != nullptr) gst_object_unref(factory);
    return factory != nullptr;
}

struct Row {
    std::string effect, peer, frame, ours, theirs, bare;
    unsigned frames;
};

// The usual console report, then our time per frame beside the peer's for every pair.
class PipelineReporter : public benchmark::ConsoleReporter {
public:
    PipelineReporter(std::vector<Row> rows, std::vector<std::string> skipped)
        : rows_(std::move(rows)), skipped_(std::move(skipped)) {}

    void ReportRuns(const std::vector<Run>& runs) override {
        ConsoleReporter::ReportRuns(runs);
        for (const Run& run : runs) {
            const std::string name = run.run_name.function_name;
            if (medians_.Takes(run, name)) milliseconds_[name] = run.GetAdjustedCPUTime();
        }
    }

    void Finalize() override {
        ConsoleReporter::Finalize();
        std::printf(
            "\n| effect (our settings) | peer | frame | ours ms | peer ms | ours / peer "
            "| bare ms |\n");
        std::printf("|---|---|---|---:|---:|---:|---:|\n");
        for (const Row& row : rows_) {
            const double played = row.frames - 1.0;
            const auto ours = milliseconds_.find(row.ours);
            const auto theirs = milliseconds_.find(row.theirs);
            const auto bare = milliseconds_.find(row.bare);
            if (ours == milliseconds_.end() || theirs == milliseconds_.end() ||
                bare == milliseconds_.end())
                continue;
            const double o = ours->second / played, t = theirs->second / played;
            const double b = bare->second / played;
            std::printf("| %s | %s | %s | %.2f | %.2f | %.2f | %.2f |\n", row.effect.c_str(),
                        row.peer.c_str(), row.frame.c_str(), o, t, o / t, b);
        }
        if (!skipped_.empty()) std::printf("\nLeft out:\n");
        for (const std::string& line : skipped_)
            std::printf("- %s\n", line.c_str());
    }

private:
    std::vector<Row> rows_;
    std::vector<std::string> skipped_;
    std::map<std::string, double> milliseconds_;
    MedianRuns medians_;
};

std::string FrameName(const FrameKind& frame) {
    return std::string(frame.format) + "/" + std::to_string(frame.width) + "x" +
           std::to_string(frame.height);
}

}  // namespace

int main(int argc, char** argv) {
    // Our plug-in and our frei0r plug-ins from this build, beside the system's.
    setenv("GST_PLUGIN_PATH", LF_GST_PLUGIN_DIR, 0);
    setenv("GST_REGISTRY", LF_GST_REGISTRY, 0);
    setenv("FREI0R_PATH", LF_FREI0R_DIR ":/usr/lib/frei0r-1:/usr/local/lib/frei0r-1", 0);
    gst_init(&argc, &argv);
    benchmark::Initialize(&argc, argv);

    std::vector<Row> rows;
    std::vector<std::string> skipped;
    std::set<std::string> registered;
    const auto add = [&](const std::string& name, const std::string& launch) {
        if (!registered.insert(name).second) return;
        benchmark::RegisterBenchmark(name.c_str(), BenchPipeline, launch)
            ->Unit(benchmark::kMillisecond)
            ->Iterations(1)
            ->MeasureProcessCPUTime();
    };
    for (const FrameKind& frame : kFrames) {
        const int column = std::string(frame.format) == "I420" ? 0 : 1;
        const std::string bare = "bare/" + FrameName(frame);
        add(bare, Source(frame.format, frame) + "fakesink sync=false");
        const auto pairUp = [&](const std::string& effect, const std::string& ours,
                                const std::string& peer, const std::string& theirs) {
            if (!HasElement(ours) || !HasElement(peer)) {
                skipped.push_back(ours + " beside " + peer + ": element missing");
                return;
            }
            const std::string oursName = "ours/" + ours + "/" + FrameName(frame);
            const std::string theirsName = "peer/" + theirs + "/" + FrameName(frame);
            add(oursName, Source(frame.format, frame) + ours + " ! fakesink sync=false");
            add(theirsName, theirs);
            rows.push_back(
                {effect, peer, FrameName(frame), oursName, theirsName, bare, frame.frames});
        };
        for (const Pair& pair : kPairs) {
            const char* peerFormat = pair.peerFormats[column];
            if (*peerFormat == '\0') continue;
            const std::string peer = Sized(pair.peer, frame);
            std::string effect = pair.effect;
            for (const auto& [name, value] : pair.settings)
                effect += " " + name + "=" + Sized(value, frame);
            const std::string peerLabel = peer + (std::string(peerFormat) != frame.format
                                                      ? std::string(" (on ") + peerFormat + ")"
                                                      : "");
            pairUp(effect, OurElement(pair, frame), peerLabel,
                   Source(peerFormat, frame) + peer + " ! fakesink sync=false");
        }
        // Every effect beside its own frei0r plug-in, which takes BGRA only: an I420 pipeline
        // converts to and from it.
        for (const catalogue::EffectDescription* effect : catalogue::Effects()) {
            if (catalogue::BuildGap(*effect) != nullptr) continue;
            const catalogue::PropertyList showcase =
                catalogue::Showcase(*effect, frame.width, frame.height);
            std::string ours = std::string("libfilter-") + effect->name;
            std::string label = effect->name;
            for (const auto& [name, value] : showcase) {
                ours += " " + Replace(name, "_", "-") + "=" + value;
                label += " " + name + "=" + value;
            }
            const std::string frei0r = Frei0rElement(*effect, showcase, frame);
            const bool convert = column == 0;
            const std::string through =
                convert
                    ? "videoconvert ! " + frei0r + " ! videoconvert ! " + Caps(frame.format, frame)
                    : frei0r;
            pairUp(label, ours,
                   frei0r.substr(0, frei0r.find(' ')) + (convert ? " (videoconvert pair)" : ""),
                   Source(frame.format, frame) + through + " ! fakesink sync=false");
        }
    }
    PipelineReporter reporter(std::move(rows), std::move(skipped));
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();
    return 0;
}
