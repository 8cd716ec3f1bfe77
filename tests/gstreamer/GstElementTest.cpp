// The GStreamer elements as pipelines see them: found through GST_PLUGIN_PATH, documented by
// their properties, byte for byte the library's own result on every format they take, in place,
// animated by a control source, and in a decode-filter-encode pipeline run by gst-launch-1.0.
#include <gst/check/gstharness.h>
#include <gst/controller/gstdirectcontrolbinding.h>
#include <gst/controller/gstinterpolationcontrolsource.h>
#include <gst/gst.h>
#include <gst/video/video.h>
#include <gtest/gtest.h>
#include <stdlib.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <random>
#include <set>

#include "catalogue/Catalogue.h"
#include "libfilter/CVideoFrame.h"

namespace fs = std::filesystem;
using namespace catalogue;

namespace {

using HarnessPtr = std::unique_ptr<GstHarness, decltype(&gst_harness_teardown)>;
using Rectangle = std::array<guint, 4>;  // x, y, width, height; all zero: none

// The README's rule: each property is the library's with '-' for '_'.
std::string PropertyName(std::string name) {
    std::replace(name.begin(), name.end(), '_', '-');
    return name;
}

// A harness around `element`, its source caps those of `info`.
HarnessPtr Harness(const char* element, const GstVideoInfo& info) {
    HarnessPtr harness(gst_harness_new(element), gst_harness_teardown);
    gst_harness_set_src_caps(harness.get(), gst_video_info_to_caps(&info));
    return harness;
}

// A picture of noise 69 pixels wide, so that GStreamer pads the rows of its planes (all but
// BGRA's).
struct Picture {
    GstVideoInfo info;
    std::vector<guint8> bytes;
};

Picture Noise(GstVideoFormat format, unsigned seed) {
    Picture picture;
    gst_video_info_set_format(&picture.info, format, 69, 37);
    picture.bytes.resize(picture.info.size);
    std::mt19937 random(seed);
    for (guint8& byte : picture.bytes)
        byte = static_cast<guint8>(random());
    return picture;
}

// The samples a picture shows, without the row padding: what the effects that borrow frame
// converters leave there is not theirs to define.
std::vector<guint8> Visible(const GstVideoInfo& info, const std::vector<guint8>& bytes) {
    std::vector<guint8> samples;
    for (guint i = 0; i < GST_VIDEO_INFO_N_PLANES(&info); ++i)  // its first component's sizes
        for (int y = 0; y < GST_VIDEO_INFO_COMP_HEIGHT(&info, i); ++y) {
            const guint8* row = bytes.data() + GST_VIDEO_INFO_PLANE_OFFSET(&info, i) +
                                y * GST_VIDEO_INFO_PLANE_STRIDE(&info, i);
            samples.insert(
                samples.end(), row,
                row + GST_VIDEO_INFO_COMP_WIDTH(&info, i) * GST_VIDEO_INFO_COMP_PSTRIDE(&info, i));
        }
    return samples;
}

// The library's own result, what the picture shows: `effect` run as frame `n`, in place, over
// the `crop` of the picture (all of it when none), planes handed over in Y, U, V, A order.
std::vector<guint8> Library(MediaCore::GVideoProcessor* effect, Picture picture, int n,
                            Rectangle crop = {}) {
    using namespace MediaCore;
    const std::pair<GstVideoFormat, int> formats[] = {
        {GST_VIDEO_FORMAT_I420, PIXFMT_YUV420P}, {GST_VIDEO_FORMAT_YV12, PIXFMT_YUV420P},
        {GST_VIDEO_FORMAT_Y42B, PIXFMT_YUV422P}, {GST_VIDEO_FORMAT_Y41B, PIXFMT_YUV411P},
        {GST_VIDEO_FORMAT_YUV9, PIXFMT_YUV410P}, {GST_VIDEO_FORMAT_YVU9, PIXFMT_YUV410P},
        {GST_VIDEO_FORMAT_Y444, PIXFMT_YUV444P}, {GST_VIDEO_FORMAT_A420, PIXFMT_YUVA420P},
        {GST_VIDEO_FORMAT_BGRA, PIXFMT_BGRA32}};
    const GstVideoInfo& info = picture.info;
    const int format = std::find_if(std::begin(formats), std::end(formats), [&](auto& pair) {
                           return pair.first == GST_VIDEO_INFO_FORMAT(&info);
                       })->second;
    if (crop == Rectangle{}) crop = {0, 0, guint(info.width), guint(info.height)};
    CVideoFrame view(false, format, crop[2], crop[3], true);
    unsigned char* data[4] = {};
    int pitches[4] = {};
    for (unsigned i = 0; i < view.GetBufferCount(); ++i) {
        pitches[i] = GST_VIDEO_INFO_COMP_STRIDE(&info, i);
        data[i] =
            picture.bytes.data() +
            (GST_VIDEO_INFO_IS_RGB(&info) ? info.offset[0] : GST_VIDEO_INFO_COMP_OFFSET(&info, i)) +
            (crop[1] >> GST_VIDEO_FORMAT_INFO_H_SUB(info.finfo, i)) * pitches[i] +
            (crop[0] >> GST_VIDEO_FORMAT_INFO_W_SUB(info.finfo, i)) *
                GST_VIDEO_INFO_COMP_PSTRIDE(&info, i);
    }
    view.SetBuffer(data, pitches, nullptr);
    ImagePostion position{};
    effect->ProcFrameInPlace(&position, n, &view);
    return Visible(info, picture.bytes);
}

// What the element shows for `picture` pushed at `pts` with `crop`, changed in the buffer itself
// (so its time stamps and metadata stay).
std::vector<guint8> Push(GstHarness* harness, const Picture& picture, GstClockTime pts,
                         Rectangle crop = {}) {
    const GstVideoInfo& info = picture.info;
    GstBuffer* input = gst_buffer_new_memdup(picture.bytes.data(), picture.bytes.size());
    GST_BUFFER_PTS(input) = pts;
    if (crop != Rectangle{}) {
        GstVideoCropMeta* meta = gst_buffer_add_video_crop_meta(input);
        std::tie(meta->x, meta->y, meta->width, meta->height) =
            std::tuple(crop[0], crop[1], crop[2], crop[3]);
    }
    EXPECT_EQ(gst_harness_push(harness, input), GST_FLOW_OK);
    GstBuffer* output = gst_harness_pull(harness);
    EXPECT_EQ(output, input);
    std::vector<guint8> bytes(gst_buffer_get_size(output));
    gst_buffer_extract(output, 0, bytes.data(), bytes.size());
    gst_buffer_unref(output);
    return Visible(info, bytes);
}

}  // namespace

// Every effect built, and nothing else, is an element; its properties are the described ones and
// round-trip across their ranges. On each format it takes it makes the library's own output of
// two pictures: the first with a crop that does not fit (so the effect covers the whole picture),
// the second with one that does (so the effect sees only that part).
TEST(GstElementTest, EveryEffectIsAnElementWithItsPropertiesAndTheLibrarysOutputInEveryFormat) {
    std::set<std::string> built, registered;
    GList* features = gst_registry_get_feature_list_by_plugin(gst_registry_get(), "libfilter");
    for (GList* item = features; item != nullptr; item = item->next)
        registered.insert(gst_plugin_feature_get_name(GST_PLUGIN_FEATURE(item->data)));
    gst_plugin_feature_list_free(features);
    const GType types[] = {G_TYPE_INT, G_TYPE_DOUBLE, G_TYPE_BOOLEAN, G_TYPE_UINT};
    for (const EffectDescription* effect : Effects()) {
        if (BuildGap(*effect) != nullptr) continue;  // not in this build
        // The README's rule: "libfilter-" and the name `lfx list` prints.
        const std::string name = std::string("libfilter-") + effect->name;
        built.insert(name);
        SCOPED_TRACE(name);
        GstElement* element = gst_element_factory_make(name.c_str(), nullptr);
        ASSERT_NE(element, nullptr);
        for (unsigned i = 0; i < effect->propertyCount; ++i) {
            const PropertyDescription& property = effect->properties[i];
            const std::string key = PropertyName(property.name);
            SCOPED_TRACE(key);
            GParamSpec* spec =
                g_object_class_find_property(G_OBJECT_GET_CLASS(element), key.c_str());
            ASSERT_NE(spec, nullptr);
            const GType type = G_PARAM_SPEC_VALUE_TYPE(spec);
            EXPECT_EQ(type, types[static_cast<int>(property.kind)]);
            EXPECT_TRUE(spec->flags & GST_PARAM_CONTROLLABLE);
            EXPECT_EQ(std::string(g_param_spec_get_blurb(spec)).rfind(property.explanation, 0), 0u);
            // The default, then both ends of the range as gst-launch-1.0 writes them.
            const auto holds = [&](const std::string& text) {
                GValue value = G_VALUE_INIT, expected = G_VALUE_INIT;
                g_object_get_property(G_OBJECT(element), key.c_str(), g_value_init(&value, type));
                const bool same =
                    gst_value_deserialize(g_value_init(&expected, type), text.c_str()) &&
                    gst_value_compare(&value, &expected) == GST_VALUE_EQUAL;
                g_value_unset(&value);
                g_value_unset(&expected);
                return same;
            };
            EXPECT_TRUE(holds(property.defaultText)) << property.defaultText;
            const double top = property.upper == RangeBound::Fixed ? property.max : 1920;
            std::vector<std::string> ends = {std::to_string(std::lround(property.min)),
                                             std::to_string(std::lround(top))};
            if (property.kind == PropertyKind::Flag) ends = {"true", "false"};
            if (property.kind == PropertyKind::Color) ends = {"0xFF8000", "0"};
            for (const std::string& end : ends) {
                gst_util_set_object_arg(G_OBJECT(element), key.c_str(), end.c_str());
                EXPECT_TRUE(holds(end)) << end;
            }
        }
        GstCaps* caps = gst_pad_template_get_caps(gst_element_get_pad_template(element, "sink"));
        const GValue* formats = gst_structure_get_value(gst_caps_get_structure(caps, 0), "format");
        ASSERT_TRUE(formats != nullptr && gst_value_list_get_size(formats) > 0);
        for (guint f = 0; f < gst_value_list_get_size(formats); ++f) {
            const char* format = g_value_get_string(gst_value_list_get_value(formats, f));
            SCOPED_TRACE(format);
            const Picture first = Noise(gst_video_format_from_string(format), 1);
            const Picture second = Noise(gst_video_format_from_string(format), 2);
            HarnessPtr harness = Harness(name.c_str(), first.info);
            const PropertyList showcase = Showcase(*effect, first.info.width, first.info.height);
            for (const auto& [key, value] : showcase)
                gst_util_set_object_arg(G_OBJECT(harness->element), PropertyName(key).c_str(),
                                        value.c_str());
            const Rectangle outside = {0, 0, 32, 0}, inside = {4, 4, 61, 31};
            const std::vector<guint8> out1 = Push(harness.get(), first, 0, outside);
            const std::vector<guint8> out2 = Push(harness.get(), second, 40, inside);
            if (effect->id == MediaCore::AVPROCESSOR_ADD_NOISE)
                continue;  // grain differs per instance
            EffectPtr library = Create(*effect);
            for (const auto& [key, value] : showcase)
                EXPECT_TRUE(library->SetProperty(key.c_str(), value.c_str())) << key;
            EXPECT_EQ(out1, Library(library.get(), first, 0));
            EXPECT_EQ(out2, Library(library.get(), second, 1, inside));
        }
        gst_caps_unref(caps);
        gst_object_unref(element);
    }
    EXPECT_EQ(registered, built);  // and nothing else is
}

// The library leaves 4:4:4 to every effect but the converting ones, and alpha-only effects
// change nothing in frames without alpha: pipelines offering them fail to link.
TEST(GstElementTest, FormatsTheEffectDoesNotTakeFailNegotiation) {
    for (const char* pipeline :
         {"video/x-raw,format=Y444 ! libfilter-invert", "video/x-raw,format=RGB ! libfilter-invert",
          "video/x-raw,format=I420 ! libfilter-transparency"}) {
        GError* error = nullptr;
        GstElement* launched = gst_parse_launch(
            ("videotestsrc num-buffers=1 ! " + std::string(pipeline) + " ! fakesink").c_str(),
            &error);
        ASSERT_NE(error, nullptr) << pipeline;
        EXPECT_NE(std::string(error->message).find("can't handle caps"), std::string::npos)
            << error->message;
        g_error_free(error);
        if (launched != nullptr) gst_object_unref(launched);
    }
}

// A control source sets a property at each buffer's stream time, before that frame is made.
TEST(GstElementTest, AControlSourceReachesTheNextFrame) {
    const Picture picture = Noise(GST_VIDEO_FORMAT_I420, 4);
    HarnessPtr harness = Harness("libfilter-brightness-contrast", picture.info);
    GstObject* element = GST_OBJECT(harness->element);
    g_object_set(element, "contrast", 30.0, nullptr);
    GstControlSource* source = gst_interpolation_control_source_new();
    g_object_set(source, "mode", GST_INTERPOLATION_MODE_LINEAR, nullptr);
    gst_timed_value_control_source_set(GST_TIMED_VALUE_CONTROL_SOURCE(source), 0, -60.0);
    gst_timed_value_control_source_set(GST_TIMED_VALUE_CONTROL_SOURCE(source), 2 * GST_SECOND,
                                       60.0);
    gst_object_add_control_binding(
        element, gst_direct_control_binding_new_absolute(element, "brightness", source));
    gst_object_unref(source);
    EffectPtr library = Create(*FindEffect("brightness-contrast"));
    library->SetProperty("contrast", "30");
    for (int n = 0; n < 3; ++n) {
        library->SetProperty("brightness", std::to_string(60 * (n - 1)).c_str());
        EXPECT_EQ(Push(harness.get(), picture, n * GST_SECOND), Library(library.get(), picture, n))
            << n;
    }
}

// The whole way through gst-launch-1.0: the frames of an H.264 stream, decoded, put through two
// elements and encoded and decoded again, keep their time stamps.
TEST(GstLaunchTest, DecodeFilterEncodeKeepsEveryFrameAndItsTimeStamp) {
    for (const char* needed : {"x264enc", "avdec_h264"})
        if (!gst_registry_check_feature_version(gst_registry_get(), needed, 1, 0, 0))
            GTEST_SKIP() << needed << " is missing (scripts/setup installs GStreamer's plug-ins)";
    // gst-launch-1.0 is not instrumented: a plug-in built with the sanitizers needs their runtime
    // loaded first, and its own leaks at exit are not ours.
    const std::string runtime = LF_SANITIZER_RUNTIME;
    if (!runtime.empty() && !fs::exists(runtime)) GTEST_SKIP() << "no sanitizer runtime";
    // The time stamps fakesink reports at the end of `filters`.
    const auto times = [&](const std::string& filters) {
        const std::string command =
            (runtime.empty() ? "" : "ASAN_OPTIONS=detect_leaks=0 LD_PRELOAD=" + runtime + " ") +
            "gst-launch-1.0 -v videotestsrc num-buffers=30 pattern=ball ! video/x-raw,format=I420,"
            "width=322,height=182,framerate=30000/1001 ! x264enc ! decodebin" +
            filters + " ! fakesink silent=false 2>&1";
        FILE* output = popen(command.c_str(), "r");
        std::vector<std::string> found;
        char line[4096];
        while (output != nullptr && std::fgets(line, sizeof line, output) != nullptr)
            if (const char* pts = std::strstr(line, " pts: "))
                found.emplace_back(pts, std::strcspn(pts, ","));
        EXPECT_TRUE(output != nullptr && pclose(output) == 0) << command;
        return found;
    };
    const std::vector<std::string> before = times("");
    EXPECT_EQ(before.size(), 30u);
    EXPECT_EQ(times(" ! libfilter-mosaic mosaic-x2=160 mosaic-y2=90 ! libfilter-invert ! x264enc "
                    "! decodebin"),
              before);
}

// Under the sanitizers: what GLib allocates for good as it loads, and what the system's plug-ins
// leak while GStreamer loads them to list them (the text renderers' font set-up runs on a thread
// of its own), is not this program's; full stacks let the suppressions see where an allocation
// was made.
extern "C" const char* __lsan_default_suppressions() {
    return "leak:_dl_init\nleak:gst_update_registry\nleak:libfontconfig.so\n";
}
extern "C" const char* __asan_default_options() {
    return "fast_unwind_on_malloc=0";
}

// GStreamer starts only when tests run, not when ctest lists them. It finds the plug-in through
// GST_PLUGIN_PATH (as the gst-launch-1.0 runs do), keeps a registry of its own, and loads
// plug-ins in this process to list them: a scanner process would not carry the sanitizers'
// runtime that a sanitized plug-in needs.
int main(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);
    if (!testing::GTEST_FLAG(list_tests)) {
        setenv("GST_PLUGIN_PATH", LF_GST_PLUGIN_DIR, 1);
        setenv("GST_REGISTRY", LF_GST_REGISTRY, 1);
        setenv("GST_REGISTRY_FORK", "no", 1);
        gst_init(nullptr, nullptr);
    }
    return RUN_ALL_TESTS();
}
