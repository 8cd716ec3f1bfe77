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
#include <atomic>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <random>
#include <set>
#include <thread>

#include "catalogue/Catalogue.h"
#include "libfilter/CVideoFrame.h"

namespace fs = std::filesystem;
using namespace catalogue;

namespace {

// The README's rule: "libfilter-" and the name `lfx list` prints; properties with '-' for '_'.
std::string ElementName(const EffectDescription& effect) {
    return std::string("libfilter-") + effect.name;
}
std::string PropertyName(std::string name) {
    std::replace(name.begin(), name.end(), '_', '-');
    return name;
}

// The library format each GStreamer format is handed over as (planes in Y, U, V, A order).
int LibraryFormat(GstVideoFormat format) {
    using namespace MediaCore;
    const std::pair<GstVideoFormat, int> formats[] = {
        {GST_VIDEO_FORMAT_I420, PIXFMT_YUV420P}, {GST_VIDEO_FORMAT_YV12, PIXFMT_YUV420P},
        {GST_VIDEO_FORMAT_Y42B, PIXFMT_YUV422P}, {GST_VIDEO_FORMAT_Y41B, PIXFMT_YUV411P},
        {GST_VIDEO_FORMAT_YUV9, PIXFMT_YUV410P}, {GST_VIDEO_FORMAT_YVU9, PIXFMT_YUV410P},
        {GST_VIDEO_FORMAT_Y444, PIXFMT_YUV444P}, {GST_VIDEO_FORMAT_A420, PIXFMT_YUVA420P},
        {GST_VIDEO_FORMAT_BGRA, PIXFMT_BGRA32}};
    for (const auto& [gst, library] : formats)
        if (gst == format) return library;
    return -1;
}

using HarnessPtr = std::unique_ptr<GstHarness, decltype(&gst_harness_teardown)>;
using Rectangle = std::array<guint, 4>;  // x, y, width, height

// A frame of noise whose rows end in padding, as GStreamer lays it out.
struct Picture {
    GstVideoInfo info;
    std::vector<guint8> bytes;
};

Picture NoisePicture(GstVideoFormat format, unsigned width, unsigned height, unsigned seed) {
    Picture picture;
    gst_video_info_set_format(&picture.info, format, width, height);
    GstVideoAlignment align;
    gst_video_alignment_reset(&align);
    align.padding_right = 5;
    std::fill(std::begin(align.stride_align), std::end(align.stride_align), 31);
    gst_video_info_align(&picture.info, &align);
    picture.bytes.resize(picture.info.size);
    std::mt19937 random(seed);
    for (guint8& byte : picture.bytes)
        byte = static_cast<guint8>(random());
    return picture;
}

// The `crop` of `picture`, over the same bytes; corner and size fall on whole
// chroma samples.
Picture Cropped(Picture picture, const Rectangle& crop) {
    GstVideoInfo& info = picture.info;
    const auto [x, y, width, height] = crop;
    for (guint plane = 0; plane < GST_VIDEO_INFO_N_PLANES(&info); ++plane) {
        int c[GST_VIDEO_MAX_COMPONENTS];
        gst_video_format_info_component(info.finfo, plane, c);
        info.offset[plane] +=
            (y >> GST_VIDEO_FORMAT_INFO_H_SUB(info.finfo, c[0])) * info.stride[plane] +
            (x >> GST_VIDEO_FORMAT_INFO_W_SUB(info.finfo, c[0])) *
                GST_VIDEO_INFO_COMP_PSTRIDE(&info, c[0]);
    }
    std::tie(info.width, info.height) = std::tuple(width, height);
    return picture;
}

std::vector<guint8> Bytes(GstBuffer* buffer) {
    std::vector<guint8> bytes(gst_buffer_get_size(buffer));
    gst_buffer_extract(buffer, 0, bytes.data(), bytes.size());
    return bytes;
}

// The library's own result: one instance of the effect over the pictures in order, each with
// the property texts given for it (set before that picture).
std::vector<std::vector<guint8>> LibraryResult(const EffectDescription& effect,
                                               std::vector<Picture> pictures,
                                               const std::vector<PropertyList>& settings) {
    EffectPtr processor = Create(effect);
    std::vector<std::vector<guint8>> results;
    for (size_t n = 0; n < pictures.size(); ++n) {
        for (const auto& [name, value] : settings[n])
            EXPECT_TRUE(processor->SetProperty(name.c_str(), value.c_str())) << name;
        const GstVideoInfo& info = pictures[n].info;
        MediaCore::CVideoFrame view(false, LibraryFormat(GST_VIDEO_INFO_FORMAT(&info)),
                                    GST_VIDEO_INFO_WIDTH(&info), GST_VIDEO_INFO_HEIGHT(&info),
                                    true);
        const bool packed = GST_VIDEO_INFO_IS_RGB(&info);
        unsigned char* data[4] = {};
        int pitches[4] = {};
        for (unsigned i = 0; i < view.GetBufferCount(); ++i) {
            data[i] = pictures[n].bytes.data() + (packed ? GST_VIDEO_INFO_PLANE_OFFSET(&info, i)
                                                         : GST_VIDEO_INFO_COMP_OFFSET(&info, i));
            pitches[i] = packed ? GST_VIDEO_INFO_PLANE_STRIDE(&info, i)
                                : GST_VIDEO_INFO_COMP_STRIDE(&info, i);
        }
        view.SetBuffer(data, pitches, nullptr);
        MediaCore::ImagePostion position{};
        processor->ProcFrameInPlace(&position, static_cast<int>(n), &view);
        results.push_back(pictures[n].bytes);
    }
    return results;
}

// A harness around the effect's element, its source caps those of `info`, with `settings`.
HarnessPtr Harness(const EffectDescription& effect, const GstVideoInfo& info,
                   const PropertyList& settings = {}) {
    HarnessPtr harness(gst_harness_new(ElementName(effect).c_str()), gst_harness_teardown);
    gst_harness_set_src_caps(harness.get(), gst_video_info_to_caps(&info));
    for (const auto& [name, value] : settings)
        gst_util_set_object_arg(G_OBJECT(harness->element), PropertyName(name).c_str(),
                                value.c_str());
    return harness;
}

// The element's output for `picture`, pushed with time stamps, a flag and `crop` (none when
// empty); `held` here as well, so that the element must not write into it. Whatever the element
// does, they all come out with the picture.
std::vector<guint8> Push(GstHarness* harness, const Picture& picture, GstClockTime pts = 0,
                         bool held = false, Rectangle crop = {}) {
    const GstVideoInfo& info = picture.info;
    GstBuffer* input = gst_buffer_new_memdup(picture.bytes.data(), picture.bytes.size());
    gst_buffer_add_video_meta_full(input, GST_VIDEO_FRAME_FLAG_NONE, GST_VIDEO_INFO_FORMAT(&info),
                                   GST_VIDEO_INFO_WIDTH(&info), GST_VIDEO_INFO_HEIGHT(&info),
                                   GST_VIDEO_INFO_N_PLANES(&info), const_cast<gsize*>(info.offset),
                                   const_cast<gint*>(info.stride));
    std::tie(GST_BUFFER_PTS(input), GST_BUFFER_DTS(input), GST_BUFFER_DURATION(input),
             GST_BUFFER_OFFSET(input)) = std::tuple(pts, pts + 1, GST_SECOND / 25, 175);
    GST_BUFFER_FLAG_SET(input, GST_BUFFER_FLAG_DISCONT);
    if (crop != Rectangle{}) {
        GstVideoCropMeta* meta = gst_buffer_add_video_crop_meta(input);
        std::tie(meta->x, meta->y, meta->width, meta->height) =
            std::tuple(crop[0], crop[1], crop[2], crop[3]);
    }
    if (held) gst_buffer_ref(input);
    EXPECT_EQ(gst_harness_push(harness, input), GST_FLOW_OK);
    GstBuffer* output = gst_harness_pull(harness);
    if (output == nullptr) {
        ADD_FAILURE() << "no output";
        return std::vector<guint8>(picture.bytes.size());
    }
    EXPECT_EQ(output == input, !held);  // in place when it may be
    if (held) {
        EXPECT_EQ(Bytes(input), picture.bytes);
        gst_buffer_unref(input);
    }
    EXPECT_EQ(std::tuple(GST_BUFFER_PTS(output), GST_BUFFER_DTS(output),
                         GST_BUFFER_DURATION(output), GST_BUFFER_OFFSET(output)),
              std::tuple(pts, pts + 1, GstClockTime{GST_SECOND / 25}, guint64{175}));
    EXPECT_TRUE(GST_BUFFER_FLAG_IS_SET(output, GST_BUFFER_FLAG_DISCONT));
    const GstVideoCropMeta* meta = gst_buffer_get_video_crop_meta(output);
    EXPECT_EQ((meta ? Rectangle{meta->x, meta->y, meta->width, meta->height} : Rectangle{}), crop);
    std::vector<guint8> bytes = Bytes(output);
    gst_buffer_unref(output);
    return bytes;
}

// The samples a picture shows, plane by plane without the row padding: what the effects that
// borrow frame converters leave in the padding is not theirs to define.
std::vector<guint8> Visible(const GstVideoInfo& info, const std::vector<guint8>& bytes) {
    std::vector<guint8> samples;
    for (guint plane = 0; plane < GST_VIDEO_INFO_N_PLANES(&info); ++plane) {
        int c[GST_VIDEO_MAX_COMPONENTS];
        gst_video_format_info_component(info.finfo, plane, c);
        const gsize rowBytes =
            GST_VIDEO_INFO_COMP_WIDTH(&info, c[0]) * GST_VIDEO_INFO_COMP_PSTRIDE(&info, c[0]);
        for (int y = 0; y < GST_VIDEO_INFO_COMP_HEIGHT(&info, c[0]); ++y) {
            const guint8* row = bytes.data() + GST_VIDEO_INFO_PLANE_OFFSET(&info, plane) +
                                y * GST_VIDEO_INFO_PLANE_STRIDE(&info, plane);
            samples.insert(samples.end(), row, row + rowBytes);
        }
    }
    return samples;
}

}  // namespace

// Every effect built, and nothing else, is an element; its properties are the described ones and
// round-trip across their ranges. On each format it takes, at two sizes, it makes the library's
// own output of two pictures: the first read-only with a crop that does not fit (so the effect
// covers the whole picture, in a copy), the second in place with one that does (so the effect
// sees only that part of it).
TEST(GstElementTest, EveryEffectIsAnElementWithItsPropertiesAndTheLibrarysOutputInEveryFormat) {
    std::set<std::string> built, registered;
    GList* features = gst_registry_get_feature_list_by_plugin(gst_registry_get(), "libfilter");
    for (GList* item = features; item != nullptr; item = item->next)
        registered.insert(gst_plugin_feature_get_name(GST_PLUGIN_FEATURE(item->data)));
    gst_plugin_feature_list_free(features);
    const GType types[] = {G_TYPE_INT, G_TYPE_DOUBLE, G_TYPE_BOOLEAN, G_TYPE_UINT};
    for (const EffectDescription* effect : Effects()) {
        if (BuildGap(*effect) != nullptr) continue;  // not in this build
        built.insert(ElementName(*effect));
        GstElement* element = gst_element_factory_make(ElementName(*effect).c_str(), nullptr);
        ASSERT_NE(element, nullptr) << effect->name;
        for (unsigned i = 0; i < effect->propertyCount; ++i) {
            const PropertyDescription& property = effect->properties[i];
            const std::string name = PropertyName(property.name);
            SCOPED_TRACE(name);
            GParamSpec* spec =
                g_object_class_find_property(G_OBJECT_GET_CLASS(element), name.c_str());
            ASSERT_NE(spec, nullptr);
            const GType type = G_PARAM_SPEC_VALUE_TYPE(spec);
            EXPECT_EQ(type, types[static_cast<int>(property.kind)]);
            EXPECT_TRUE(spec->flags & GST_PARAM_CONTROLLABLE);
            EXPECT_EQ(std::string(g_param_spec_get_blurb(spec)).rfind(property.explanation, 0), 0u);
            // The default, then both ends of the range as gst-launch-1.0 writes them.
            const auto holds = [&](const std::string& text) {
                GValue value = G_VALUE_INIT, expected = G_VALUE_INIT;
                g_value_init(&value, type);
                g_value_init(&expected, type);
                g_object_get_property(G_OBJECT(element), name.c_str(), &value);
                const bool same = gst_value_deserialize(&expected, text.c_str()) &&
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
                gst_util_set_object_arg(G_OBJECT(element), name.c_str(), end.c_str());
                EXPECT_TRUE(holds(end)) << end;
            }
        }
        GstCaps* caps = gst_pad_template_get_caps(gst_element_get_pad_template(element, "sink"));
        const GValue* formats = gst_structure_get_value(gst_caps_get_structure(caps, 0), "format");
        ASSERT_TRUE(formats != nullptr && gst_value_list_get_size(formats) > 0) << effect->name;
        for (guint f = 0; f < gst_value_list_get_size(formats); ++f) {
            const std::string format = g_value_get_string(gst_value_list_get_value(formats, f));
            for (const auto& [width, height] : {std::pair{70u, 38u}, std::pair{33u, 17u}}) {
                SCOPED_TRACE(std::string(effect->name) + " " + format + " " +
                             std::to_string(width) + "x" + std::to_string(height));
                const GstVideoFormat id = gst_video_format_from_string(format.c_str());
                const Picture first = NoisePicture(id, width, height, 1);
                const Picture second = NoisePicture(id, width, height, 2);
                const PropertyList showcase = Showcase(*effect, width, height);
                HarnessPtr harness = Harness(*effect, first.info, showcase);
                const Rectangle outside = {0, 0, 32, 0}, inside = {4, 4, width - 8, height - 6};
                const std::vector<guint8> out1 = Push(harness.get(), first, 0, true, outside);
                const std::vector<guint8> out2 = Push(harness.get(), second, 40, false, inside);
                if (effect->id == MediaCore::AVPROCESSOR_ADD_NOISE) {
                    // Grain is drawn once per instance: the same picture again gets the same.
                    EXPECT_NE(out1, first.bytes);
                    EXPECT_EQ(Push(harness.get(), first, 0, true, outside), out1);
                    continue;
                }
                const auto expected =
                    LibraryResult(*effect, {first, Cropped(second, inside)}, {showcase, {}});
                EXPECT_EQ(Visible(first.info, out1), Visible(first.info, expected[0]));
                EXPECT_EQ(Visible(first.info, out2), Visible(first.info, expected[1]));
            }
        }
        gst_caps_unref(caps);
        gst_object_unref(element);
    }
    EXPECT_EQ(registered, built);  // and nothing else is
}

TEST(GstElementTest, FormatsTheEffectDoesNotTakeFailNegotiation) {
    // The library leaves 4:4:4 to every effect but the converting ones, and alpha-only effects
    // change nothing in frames without alpha.
    for (const auto& [effect, format] :
         {std::pair{"invert", "Y444"}, std::pair{"transparency", "I420"},
          std::pair{"invert", "RGB"}}) {
        const std::string element = std::string("libfilter-") + effect;
        const std::string caps = std::string("video/x-raw,format=") + format;
        SCOPED_TRACE(element + " " + format);
        GError* error = nullptr;
        GstElement* pipeline = gst_parse_launch(
            ("videotestsrc num-buffers=1 ! " + caps + " ! " + element + " ! fakesink").c_str(),
            &error);
        ASSERT_NE(error, nullptr);
        EXPECT_NE(std::string(error->message).find("can't handle caps"), std::string::npos)
            << error->message;
        g_error_free(error);
        if (pipeline != nullptr) gst_object_unref(pipeline);
        HarnessPtr harness(gst_harness_new(element.c_str()), gst_harness_teardown);
        gst_harness_set_src_caps_str(harness.get(),
                                     (caps + ",width=16,height=16,framerate=25/1").c_str());
        EXPECT_EQ(gst_harness_push(harness.get(), gst_buffer_new_and_alloc(16 * 16 * 4)),
                  GST_FLOW_NOT_NEGOTIATED);
    }
}

// Properties set from another thread while frames flow, and animated by a control source, reach
// the next frame.
TEST(GstElementTest, PropertiesFromAnotherThreadOrAControlSourceReachTheNextFrame) {
    const EffectDescription& effect = *FindEffect("brightness-contrast");
    const Picture picture = NoisePicture(GST_VIDEO_FORMAT_I420, 70, 38, 4);
    HarnessPtr harness = Harness(effect, picture.info);
    std::atomic<bool> done{false};
    std::thread setter([&] {
        for (int i = 0; !done; i = (i + 1) % 9)
            g_object_set(harness->element, "contrast", i * 10.0, "brightness", i * -5.0, nullptr);
    });
    for (int n = 0; n < 40; ++n)
        Push(harness.get(), picture);
    done = true;
    setter.join();
    g_object_set(harness->element, "contrast", 30.0, nullptr);
    GstControlSource* source = gst_interpolation_control_source_new();
    g_object_set(source, "mode", GST_INTERPOLATION_MODE_LINEAR, nullptr);
    gst_timed_value_control_source_set(GST_TIMED_VALUE_CONTROL_SOURCE(source), 0, -60.0);
    gst_timed_value_control_source_set(GST_TIMED_VALUE_CONTROL_SOURCE(source), 2 * GST_SECOND,
                                       60.0);
    gst_object_add_control_binding(GST_OBJECT(harness->element),
                                   gst_direct_control_binding_new_absolute(
                                       GST_OBJECT(harness->element), "brightness", source));
    gst_object_unref(source);
    std::vector<std::vector<guint8>> outputs;
    std::vector<PropertyList> held;
    for (int n = 0; n < 3; ++n) {
        outputs.push_back(Push(harness.get(), picture, n * GST_SECOND));
        double brightness = 0;
        g_object_get(harness->element, "brightness", &brightness, nullptr);
        EXPECT_NEAR(brightness, 60.0 * (n - 1), 1e-9);
        char text[32];
        std::snprintf(text, sizeof text, "%.17g", brightness);
        held.push_back({{"contrast", "30"}, {"brightness", text}});
    }
    EXPECT_NE(outputs[0], outputs[2]);
    EXPECT_TRUE(outputs == LibraryResult(effect, {picture, picture, picture}, held));
}

namespace {

// Runs `pipeline` in gst-launch-1.0 and returns the time stamps fakesink reports at its end, if
// it has one. gst-launch-1.0 is not instrumented: a plug-in built with the sanitizers needs their
// runtime loaded first, and its own leaks at exit are not ours.
std::vector<std::string> Launch(const std::string& pipeline) {
    const std::string runtime = LF_SANITIZER_RUNTIME;
    const std::string command =
        (runtime.empty() ? "" : "ASAN_OPTIONS=detect_leaks=0 LD_PRELOAD=" + runtime + " ") +
        "gst-launch-1.0 -v " + pipeline + " 2>&1";
    FILE* output = popen(command.c_str(), "r");
    std::vector<std::string> times;
    char line[4096];
    while (output != nullptr && std::fgets(line, sizeof line, output) != nullptr)
        if (const char* pts = std::strstr(line, " pts: "))
            times.emplace_back(pts, std::strcspn(pts, ","));
    EXPECT_TRUE(output != nullptr && pclose(output) == 0) << command;
    return times;
}

}  // namespace

TEST(GstLaunchTest, DecodeFilterEncodeKeepsEveryFrameAndItsTimeStamp) {
    for (const char* needed : {"x264enc", "avdec_h264"})
        if (!gst_registry_check_feature_version(gst_registry_get(), needed, 1, 0, 0))
            GTEST_SKIP() << needed << " is missing (scripts/setup installs GStreamer's plug-ins)";
    if (const std::string runtime = LF_SANITIZER_RUNTIME; !runtime.empty() && !fs::exists(runtime))
        GTEST_SKIP() << "no sanitizer runtime";
    const fs::path folder = fs::temp_directory_path() / ("lf-gst-" + std::to_string(getpid()));
    fs::create_directories(folder);
    const std::string input = (folder / "in.mp4").string(), output = (folder / "out.mp4").string();
    Launch(
        "videotestsrc num-buffers=30 pattern=ball ! video/x-raw,format=I420,width=322,"
        "height=182,framerate=30000/1001 ! x264enc ! mp4mux ! filesink location=" +
        input);
    Launch("filesrc location=" + input + " ! decodebin ! libfilter-mosaic mosaic-x2=160 " +
           "mosaic-y2=90 ! libfilter-invert ! x264enc ! mp4mux ! filesink location=" + output);
    const std::string decode = " ! decodebin ! fakesink silent=false";
    const std::vector<std::string> before = Launch("filesrc location=" + input + decode);
    EXPECT_EQ(before.size(), 30u);
    EXPECT_EQ(Launch("filesrc location=" + output + decode), before);
    fs::remove_all(folder);
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
