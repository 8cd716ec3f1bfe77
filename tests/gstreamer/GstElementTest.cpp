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

#include <atomic>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <memory>
#include <random>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "catalogue/Catalogue.h"
#include "libfilter/CVideoFrame.h"

namespace fs = std::filesystem;
using namespace catalogue;

namespace {

// The README's rule: "libfilter-" and the name `lfx list` prints; properties with '-' for '_'.
std::string ElementName(const EffectDescription& effect) {
    return std::string("libfilter-") + effect.name;
}
std::string PropertyName(const char* name) {
    std::string gobjectName = name;
    for (char& c : gobjectName)
        c = c == '_' ? '-' : c;
    return gobjectName;
}

std::vector<const EffectDescription*> BuiltEffects() {
    std::vector<const EffectDescription*> effects;
    for (const EffectDescription* effect : Effects()) {
        if (Create(*effect)) effects.push_back(effect);
    }
    return effects;
}

bool IsRandom(const EffectDescription& effect) {
    return effect.id == MediaCore::AVPROCESSOR_ADD_NOISE;
}

// The library format each GStreamer format is handed over as (planes in Y, U, V, A order).
int LibraryFormat(GstVideoFormat format) {
    switch (format) {
        case GST_VIDEO_FORMAT_I420:
        case GST_VIDEO_FORMAT_YV12:
            return MediaCore::PIXFMT_YUV420P;
        case GST_VIDEO_FORMAT_Y42B:
            return MediaCore::PIXFMT_YUV422P;
        case GST_VIDEO_FORMAT_Y41B:
            return MediaCore::PIXFMT_YUV411P;
        case GST_VIDEO_FORMAT_YUV9:
        case GST_VIDEO_FORMAT_YVU9:
            return MediaCore::PIXFMT_YUV410P;
        case GST_VIDEO_FORMAT_Y444:
            return MediaCore::PIXFMT_YUV444P;
        case GST_VIDEO_FORMAT_A420:
            return MediaCore::PIXFMT_YUVA420P;
        case GST_VIDEO_FORMAT_BGRA:
            return MediaCore::PIXFMT_BGRA32;
        default:
            return -1;
    }
}

struct ElementUnref {
    void operator()(GstElement* element) const { gst_object_unref(element); }
};
using ElementPtr = std::unique_ptr<GstElement, ElementUnref>;
struct HarnessTeardown {
    void operator()(GstHarness* harness) const { gst_harness_teardown(harness); }
};
using HarnessPtr = std::unique_ptr<GstHarness, HarnessTeardown>;

// The formats the element's sink pad takes.
std::vector<GstVideoFormat> SinkFormats(const EffectDescription& effect) {
    ElementPtr element(gst_element_factory_make(ElementName(effect).c_str(), nullptr));
    std::vector<GstVideoFormat> formats;
    if (!element) return formats;
    GstPad* pad = gst_element_get_static_pad(element.get(), "sink");
    GstCaps* caps = gst_pad_get_pad_template_caps(pad);
    const GValue* list = gst_structure_get_value(gst_caps_get_structure(caps, 0), "format");
    for (guint i = 0; list != nullptr && i < gst_value_list_get_size(list); ++i) {
        const char* name = g_value_get_string(gst_value_list_get_value(list, i));
        formats.push_back(gst_video_format_from_string(name));
    }
    gst_caps_unref(caps);
    gst_object_unref(pad);
    return formats;
}

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
    for (guint& stride : align.stride_align)
        stride = 31;
    gst_video_info_align(&picture.info, &align);
    picture.bytes.resize(picture.info.size);
    std::mt19937 random(seed);
    for (guint8& byte : picture.bytes)
        byte = static_cast<guint8>(random());
    return picture;
}

GstBuffer* ToBuffer(const Picture& picture, GstClockTime pts) {
    GstBuffer* buffer = gst_buffer_new_memdup(picture.bytes.data(), picture.bytes.size());
    const GstVideoInfo& info = picture.info;
    gst_buffer_add_video_meta_full(buffer, GST_VIDEO_FRAME_FLAG_NONE, GST_VIDEO_INFO_FORMAT(&info),
                                   GST_VIDEO_INFO_WIDTH(&info), GST_VIDEO_INFO_HEIGHT(&info),
                                   GST_VIDEO_INFO_N_PLANES(&info), const_cast<gsize*>(info.offset),
                                   const_cast<gint*>(info.stride));
    GST_BUFFER_PTS(buffer) = pts;
    GST_BUFFER_DURATION(buffer) = GST_SECOND / 25;
    return buffer;
}

std::vector<guint8> Bytes(GstBuffer* buffer) {
    std::vector<guint8> bytes(gst_buffer_get_size(buffer));
    gst_buffer_extract(buffer, 0, bytes.data(), bytes.size());
    return bytes;
}

std::string CapsText(const Picture& picture) {
    GstCaps* caps = gst_video_info_to_caps(&picture.info);
    gchar* text = gst_caps_to_string(caps);
    std::string result = text;
    g_free(text);
    gst_caps_unref(caps);
    return result;
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
        Picture& picture = pictures[n];
        const GstVideoInfo& info = picture.info;
        MediaCore::CVideoFrame view(false, LibraryFormat(GST_VIDEO_INFO_FORMAT(&info)),
                                    GST_VIDEO_INFO_WIDTH(&info), GST_VIDEO_INFO_HEIGHT(&info),
                                    true);
        const bool packed = GST_VIDEO_INFO_IS_RGB(&info);
        unsigned char* data[4] = {};
        int pitches[4] = {};
        for (unsigned i = 0; i < view.GetBufferCount(); ++i) {
            data[i] = picture.bytes.data() + (packed ? GST_VIDEO_INFO_PLANE_OFFSET(&info, i)
                                                     : GST_VIDEO_INFO_COMP_OFFSET(&info, i));
            pitches[i] = packed ? GST_VIDEO_INFO_PLANE_STRIDE(&info, i)
                                : GST_VIDEO_INFO_COMP_STRIDE(&info, i);
        }
        view.SetBuffer(data, pitches, nullptr);
        MediaCore::ImagePostion position{};
        processor->ProcFrameInPlace(&position, static_cast<int>(n), &view);
        results.push_back(picture.bytes);
    }
    return results;
}

void SetAll(GstElement* element, const PropertyList& settings) {
    for (const auto& [name, value] : settings)
        gst_util_set_object_arg(G_OBJECT(element), PropertyName(name.c_str()).c_str(),
                                value.c_str());
}

HarnessPtr Harness(const EffectDescription& effect, const Picture& picture) {
    HarnessPtr harness(gst_harness_new(ElementName(effect).c_str()));
    gst_harness_set_src_caps_str(harness.get(), CapsText(picture).c_str());
    return harness;
}

// The element's output for `pictures` pushed one after the other, and whether each came back in
// the buffer it went in with.
struct Pushed {
    std::vector<std::vector<guint8>> outputs;
    bool inPlace = true;
};

Pushed PushAll(GstHarness* harness, const std::vector<Picture>& pictures) {
    Pushed pushed;
    for (size_t n = 0; n < pictures.size(); ++n) {
        GstBuffer* input = ToBuffer(pictures[n], n * GST_SECOND / 25);
        EXPECT_EQ(gst_harness_push(harness, input), GST_FLOW_OK);
        GstBuffer* output = gst_harness_pull(harness);
        if (output == nullptr) return pushed;
        pushed.inPlace = pushed.inPlace && output == input;
        pushed.outputs.push_back(Bytes(output));
        gst_buffer_unref(output);
    }
    return pushed;
}

// The samples a picture shows, plane by plane without the row padding: what the effects that
// borrow frame converters leave in the padding is not theirs to define.
std::vector<std::vector<guint8>> Visible(const GstVideoInfo& info,
                                         const std::vector<std::vector<guint8>>& frames) {
    std::vector<std::vector<guint8>> visible;
    for (const std::vector<guint8>& bytes : frames) {
        std::vector<guint8> samples;
        for (guint plane = 0; plane < GST_VIDEO_INFO_N_PLANES(&info); ++plane) {
            int components[GST_VIDEO_MAX_COMPONENTS];
            gst_video_format_info_component(info.finfo, plane, components);
            const gsize rowBytes = GST_VIDEO_INFO_COMP_WIDTH(&info, components[0]) *
                                   GST_VIDEO_INFO_COMP_PSTRIDE(&info, components[0]);
            for (int y = 0; y < GST_VIDEO_INFO_COMP_HEIGHT(&info, components[0]); ++y) {
                const guint8* row = bytes.data() + GST_VIDEO_INFO_PLANE_OFFSET(&info, plane) +
                                    y * GST_VIDEO_INFO_PLANE_STRIDE(&info, plane);
                samples.insert(samples.end(), row, row + rowBytes);
            }
        }
        visible.push_back(std::move(samples));
    }
    return visible;
}

double NumberOf(const GValue* value) {
    if (G_VALUE_HOLDS_BOOLEAN(value)) return g_value_get_boolean(value) ? 1 : 0;
    if (G_VALUE_HOLDS_INT(value)) return g_value_get_int(value);
    if (G_VALUE_HOLDS_UINT(value)) return g_value_get_uint(value);
    return g_value_get_double(value);
}

// Copies the w x h picture at (x, y) of `from` to (toX, toY) of `to`, plane by plane; corners and
// sizes even, so that they fall on whole chroma samples.
void CopyRegion(const Picture& from, unsigned x, unsigned y, Picture& to, unsigned toX,
                unsigned toY, unsigned w, unsigned h) {
    const GstVideoInfo& info = from.info;
    for (guint plane = 0; plane < GST_VIDEO_INFO_N_PLANES(&info); ++plane) {
        int components[GST_VIDEO_MAX_COMPONENTS];
        gst_video_format_info_component(info.finfo, plane, components);
        const int wSub = GST_VIDEO_FORMAT_INFO_W_SUB(info.finfo, components[0]);
        const int hSub = GST_VIDEO_FORMAT_INFO_H_SUB(info.finfo, components[0]);
        const int pixel = GST_VIDEO_INFO_COMP_PSTRIDE(&info, components[0]);
        for (unsigned row = 0; row < (h >> hSub); ++row) {
            std::memcpy(to.bytes.data() + GST_VIDEO_INFO_PLANE_OFFSET(&to.info, plane) +
                            ((toY >> hSub) + row) * GST_VIDEO_INFO_PLANE_STRIDE(&to.info, plane) +
                            (toX >> wSub) * pixel,
                        from.bytes.data() + GST_VIDEO_INFO_PLANE_OFFSET(&info, plane) +
                            ((y >> hSub) + row) * GST_VIDEO_INFO_PLANE_STRIDE(&info, plane) +
                            (x >> wSub) * pixel,
                        (w >> wSub) * pixel);
        }
    }
}

struct Size {
    unsigned width;
    unsigned height;
};

}  // namespace

TEST(GstElementTest, EveryEffectTheBuildMakesIsAnElementAndNothingElseIs) {
    std::set<std::string> expected;
    for (const EffectDescription* effect : BuiltEffects())
        expected.insert(ElementName(*effect));
    std::set<std::string> registered;
    GList* features = gst_registry_get_feature_list_by_plugin(gst_registry_get(), "libfilter");
    for (GList* item = features; item != nullptr; item = item->next)
        registered.insert(gst_plugin_feature_get_name(GST_PLUGIN_FEATURE(item->data)));
    gst_plugin_feature_list_free(features);
    EXPECT_EQ(registered, expected);
}

TEST(GstElementTest, PropertiesAreTheDescribedOnesAndRoundTripAcrossTheirRanges) {
    const GType types[] = {G_TYPE_INT, G_TYPE_DOUBLE, G_TYPE_BOOLEAN, G_TYPE_UINT};
    for (const EffectDescription* effect : BuiltEffects()) {
        ElementPtr element(gst_element_factory_make(ElementName(*effect).c_str(), nullptr));
        ASSERT_TRUE(element) << effect->name;
        for (unsigned i = 0; i < effect->propertyCount; ++i) {
            const PropertyDescription& property = effect->properties[i];
            const std::string name = PropertyName(property.name);
            SCOPED_TRACE(name);
            GParamSpec* spec =
                g_object_class_find_property(G_OBJECT_GET_CLASS(element.get()), name.c_str());
            ASSERT_NE(spec, nullptr);
            EXPECT_EQ(G_PARAM_SPEC_VALUE_TYPE(spec), types[static_cast<int>(property.kind)]);
            EXPECT_TRUE(spec->flags & GST_PARAM_CONTROLLABLE);
            EXPECT_EQ(std::string(g_param_spec_get_blurb(spec)).rfind(property.explanation, 0), 0u);

            GValue value = G_VALUE_INIT;
            g_value_init(&value, G_PARAM_SPEC_VALUE_TYPE(spec));
            g_object_get_property(G_OBJECT(element.get()), name.c_str(), &value);
            EXPECT_EQ(NumberOf(&value), std::strtod(property.defaultText, nullptr));
            // Both ends of the range, as gst-launch-1.0 writes them, come back unchanged.
            const double top = property.upper == RangeBound::Fixed ? property.max : 1920;
            const std::vector<std::string> ends =
                property.kind == PropertyKind::Flag ? std::vector<std::string>{"true", "false"}
                : property.kind == PropertyKind::Color
                    ? std::vector<std::string>{"0xFF8000", "0"}
                    : std::vector<std::string>{std::to_string(std::lround(property.min)),
                                               std::to_string(std::lround(top))};
            for (const std::string& end : ends) {
                gst_util_set_object_arg(G_OBJECT(element.get()), name.c_str(), end.c_str());
                GValue expected = G_VALUE_INIT;
                g_value_init(&expected, G_PARAM_SPEC_VALUE_TYPE(spec));
                ASSERT_TRUE(gst_value_deserialize(&expected, end.c_str()));
                g_object_get_property(G_OBJECT(element.get()), name.c_str(), &value);
                EXPECT_EQ(gst_value_compare(&value, &expected), GST_VALUE_EQUAL) << end;
                g_value_unset(&expected);
            }
            g_value_unset(&value);
        }
    }
}

TEST(GstElementTest, OutputIsTheLibrarysOwnOnEveryFormatTakenWithPaddedRows) {
    for (const EffectDescription* effect : BuiltEffects()) {
        const std::vector<GstVideoFormat> formats = SinkFormats(*effect);
        EXPECT_FALSE(formats.empty()) << effect->name;
        for (GstVideoFormat format : formats) {
            for (const Size size : {Size{70, 38}, Size{33, 17}}) {
                SCOPED_TRACE(std::string(effect->name) + " " + gst_video_format_to_string(format) +
                             " " + std::to_string(size.width) + "x" + std::to_string(size.height));
                const std::vector<Picture> pictures = {
                    NoisePicture(format, size.width, size.height, 1),
                    NoisePicture(format, size.width, size.height, 2)};
                const PropertyList showcase = Showcase(*effect, size.width, size.height);
                HarnessPtr harness = Harness(*effect, pictures[0]);
                SetAll(harness->element, showcase);
                const Pushed pushed = PushAll(harness.get(), pictures);
                ASSERT_EQ(pushed.outputs.size(), pictures.size());
                EXPECT_TRUE(pushed.inPlace);
                if (IsRandom(*effect)) {
                    // Grain is drawn once per instance: the same picture again gets the same.
                    EXPECT_NE(pushed.outputs[0], pictures[0].bytes);
                    EXPECT_EQ(PushAll(harness.get(), {pictures[0]}).outputs.at(0),
                              pushed.outputs[0]);
                    continue;
                }
                EXPECT_EQ(
                    Visible(pictures[0].info, pushed.outputs),
                    Visible(pictures[0].info, LibraryResult(*effect, pictures, {showcase, {}})));
            }
        }
    }
}

TEST(GstElementTest, TimeStampsFlagsAndMetadataPassThroughAndReadOnlyInputIsLeftAlone) {
    const EffectDescription* effect = FindEffect("invert");
    ASSERT_NE(effect, nullptr);
    const Picture picture = NoisePicture(GST_VIDEO_FORMAT_I420, 70, 38, 3);
    HarnessPtr harness = Harness(*effect, picture);
    GstBuffer* input = ToBuffer(picture, 7 * GST_SECOND);
    GST_BUFFER_DTS(input) = 6 * GST_SECOND;
    GST_BUFFER_OFFSET(input) = 175;
    GST_BUFFER_FLAG_SET(input, GST_BUFFER_FLAG_DISCONT);
    gst_buffer_add_video_crop_meta(input)->width = 32;
    gst_buffer_ref(input);  // held here as well, so the element must not write into it

    ASSERT_EQ(gst_harness_push(harness.get(), input), GST_FLOW_OK);
    GstBuffer* output = gst_harness_pull(harness.get());
    ASSERT_NE(output, nullptr);
    EXPECT_NE(output, input);
    EXPECT_EQ(Bytes(input), picture.bytes);
    EXPECT_EQ(GST_BUFFER_PTS(output), 7 * GST_SECOND);
    EXPECT_EQ(GST_BUFFER_DTS(output), 6 * GST_SECOND);
    EXPECT_EQ(GST_BUFFER_DURATION(output), GST_SECOND / 25);
    EXPECT_EQ(GST_BUFFER_OFFSET(output), 175u);
    EXPECT_TRUE(GST_BUFFER_FLAG_IS_SET(output, GST_BUFFER_FLAG_DISCONT));
    const GstVideoCropMeta* crop = gst_buffer_get_video_crop_meta(output);
    ASSERT_NE(crop, nullptr);
    EXPECT_EQ(crop->width, 32u);
    EXPECT_EQ(Bytes(output), LibraryResult(*effect, {picture}, {{}}).at(0));
    gst_buffer_unref(output);
    gst_buffer_unref(input);
}

TEST(GstElementTest, ACropMetaLimitsTheEffectToThePictureShown) {
    // A whole-picture mirror shows whether the effect saw the crop or the full frame.
    const EffectDescription* effect = FindEffect("mirror");
    ASSERT_NE(effect, nullptr);
    const PropertyList settings = {{"mirror", "1"}, {"vertical", "1"}};
    for (GstVideoFormat format : {GST_VIDEO_FORMAT_I420, GST_VIDEO_FORMAT_BGRA}) {
        SCOPED_TRACE(gst_video_format_to_string(format));
        const Picture picture = NoisePicture(format, 70, 38, 6);
        HarnessPtr harness = Harness(*effect, picture);
        SetAll(harness->element, settings);
        GstBuffer* input = ToBuffer(picture, 0);
        GstVideoCropMeta* crop = gst_buffer_add_video_crop_meta(input);
        crop->x = 6;
        crop->y = 4;
        crop->width = 40;
        crop->height = 20;
        ASSERT_EQ(gst_harness_push(harness.get(), input), GST_FLOW_OK);
        GstBuffer* output = gst_harness_pull(harness.get());
        ASSERT_NE(output, nullptr);

        Picture shown = NoisePicture(format, 40, 20, 0);
        CopyRegion(picture, 6, 4, shown, 0, 0, 40, 20);
        shown.bytes = LibraryResult(*effect, {shown}, {settings}).at(0);
        Picture expected = picture;
        CopyRegion(shown, 0, 0, expected, 6, 4, 40, 20);
        EXPECT_EQ(Visible(picture.info, {Bytes(output)}), Visible(picture.info, {expected.bytes}));
        gst_buffer_unref(output);
    }
}

TEST(GstElementTest, FormatsTheEffectDoesNotTakeFailNegotiation) {
    struct Refusal {
        const char* effect;
        const char* format;
    };
    // The library leaves 4:4:4 to every effect but the converting ones, and alpha-only effects
    // change nothing in frames without alpha.
    for (const Refusal refusal :
         {Refusal{"invert", "Y444"}, Refusal{"transparency", "I420"}, Refusal{"invert", "RGB"}}) {
        SCOPED_TRACE(std::string(refusal.effect) + " " + refusal.format);
        const std::string launch = std::string("videotestsrc num-buffers=1 ! video/x-raw,format=") +
                                   refusal.format + " ! libfilter-" + refusal.effect +
                                   " ! fakesink";
        GError* error = nullptr;
        GstElement* pipeline = gst_parse_launch(launch.c_str(), &error);
        ASSERT_NE(error, nullptr);
        EXPECT_NE(std::string(error->message).find("can't handle caps"), std::string::npos)
            << error->message;
        g_error_free(error);
        if (pipeline != nullptr) gst_object_unref(pipeline);

        HarnessPtr harness(gst_harness_new((std::string("libfilter-") + refusal.effect).c_str()));
        gst_harness_set_src_caps_str(harness.get(),
                                     (std::string("video/x-raw,format=") + refusal.format +
                                      ",width=16,height=16,framerate=25/1")
                                         .c_str());
        EXPECT_EQ(gst_harness_push(harness.get(), gst_buffer_new_and_alloc(16 * 16 * 4)),
                  GST_FLOW_NOT_NEGOTIATED);
    }
}

TEST(GstElementTest, AControlSourceAnimatesAPropertyFrameByFrame) {
    const EffectDescription* effect = FindEffect("brightness-contrast");
    ASSERT_NE(effect, nullptr);
    const Picture picture = NoisePicture(GST_VIDEO_FORMAT_I420, 70, 38, 4);
    HarnessPtr harness = Harness(*effect, picture);
    GstControlSource* source = gst_interpolation_control_source_new();
    g_object_set(source, "mode", GST_INTERPOLATION_MODE_LINEAR, nullptr);
    GstTimedValueControlSource* timed = GST_TIMED_VALUE_CONTROL_SOURCE(source);
    gst_timed_value_control_source_set(timed, 0, -60.0);
    gst_timed_value_control_source_set(timed, 2 * GST_SECOND, 60.0);
    gst_object_add_control_binding(GST_OBJECT(harness->element),
                                   gst_direct_control_binding_new_absolute(
                                       GST_OBJECT(harness->element), "brightness", source));
    gst_object_unref(source);

    const double expected[] = {-60, 0, 60};
    std::vector<std::vector<guint8>> outputs;
    std::vector<PropertyList> held;
    for (int n = 0; n < 3; ++n) {
        GstBuffer* input = ToBuffer(picture, n * GST_SECOND);
        ASSERT_EQ(gst_harness_push(harness.get(), input), GST_FLOW_OK);
        GstBuffer* output = gst_harness_pull(harness.get());
        outputs.push_back(Bytes(output));
        gst_buffer_unref(output);
        double brightness = 0;
        g_object_get(harness->element, "brightness", &brightness, nullptr);
        EXPECT_NEAR(brightness, expected[n], 1e-9);
        char text[32];
        std::snprintf(text, sizeof text, "%.17g", brightness);
        held.push_back({{"brightness", text}});
    }
    EXPECT_NE(outputs[0], outputs[2]);
    EXPECT_TRUE(outputs == LibraryResult(*effect, {picture, picture, picture}, held));
}

TEST(GstElementTest, PropertiesSetFromAnotherThreadReachTheNextFrame) {
    const EffectDescription* effect = FindEffect("mosaic");
    ASSERT_NE(effect, nullptr);
    const Picture picture = NoisePicture(GST_VIDEO_FORMAT_BGRA, 70, 38, 5);
    HarnessPtr harness = Harness(*effect, picture);
    g_object_set(harness->element, "mosaic-x2", 70, "mosaic-y2", 38, nullptr);
    std::atomic<bool> done{false};
    std::thread setter([&] {
        for (int i = 0; !done; i = (i + 1) % 9)
            g_object_set(harness->element, "mosaic-step", i, "mosaic-x1", i * 4, nullptr);
    });
    for (int n = 0; n < 40; ++n)
        PushAll(harness.get(), {picture});
    done = true;
    setter.join();
    g_object_set(harness->element, "mosaic-step", 2, "mosaic-x1", 10, nullptr);
    const Pushed last = PushAll(harness.get(), {picture});
    ASSERT_EQ(last.outputs.size(), 1u);
    const PropertyList settings = {
        {"mosaic_x2", "70"}, {"mosaic_y2", "38"}, {"mosaic_step", "2"}, {"mosaic_x1", "10"}};
    EXPECT_EQ(last.outputs[0], LibraryResult(*effect, {picture}, {settings}).at(0));
}

namespace {

// The time stamps of the frames a file decodes to.
std::vector<GstClockTime> DecodedTimes(const fs::path& file) {
    const std::string launch =
        "filesrc location=\"" + file.string() + "\" ! decodebin ! appsink name=sink sync=false";
    GstElement* pipeline = gst_parse_launch(launch.c_str(), nullptr);
    std::vector<GstClockTime> times;
    if (pipeline == nullptr) return times;
    GstElement* sink = gst_bin_get_by_name(GST_BIN(pipeline), "sink");
    gst_element_set_state(pipeline, GST_STATE_PLAYING);
    GstSample* sample = nullptr;
    g_signal_emit_by_name(sink, "pull-preroll", &sample);  // waits for the pipeline to start
    if (sample != nullptr) gst_sample_unref(sample);
    while (true) {
        sample = nullptr;
        g_signal_emit_by_name(sink, "try-pull-sample", GST_SECOND * 10, &sample);
        if (sample == nullptr) break;
        times.push_back(GST_BUFFER_PTS(gst_sample_get_buffer(sample)));
        gst_sample_unref(sample);
    }
    gst_element_set_state(pipeline, GST_STATE_NULL);
    gst_object_unref(sink);
    gst_object_unref(pipeline);
    return times;
}

int Launch(const std::string& arguments) {
    std::string preload;
    // gst-launch-1.0's own leaks at exit are not ours to report.
    if (std::string(LF_SANITIZER_RUNTIME) != "")
        preload = "ASAN_OPTIONS=detect_leaks=0 LD_PRELOAD=" LF_SANITIZER_RUNTIME " ";
    return std::system((preload + "gst-launch-1.0 -q " + arguments + " >/dev/null").c_str());
}

}  // namespace

TEST(GstLaunchTest, DecodeFilterEncodeKeepsEveryFrameAndItsTimeStamp) {
    for (const char* needed : {"x264enc", "avdec_h264"}) {
        GstPluginFeature* feature = gst_registry_lookup_feature(gst_registry_get(), needed);
        if (feature == nullptr)
            GTEST_SKIP() << needed << " is missing (scripts/setup installs GStreamer's plug-ins)";
        gst_object_unref(feature);
    }
    if (std::string(LF_SANITIZER_RUNTIME) == "none") GTEST_SKIP() << "no sanitizer runtime";
    const fs::path folder = fs::temp_directory_path() / ("lf-gst-" + std::to_string(getpid()));
    fs::create_directories(folder);
    const fs::path input = folder / "in.mp4";
    const fs::path output = folder / "out.mp4";
    ASSERT_EQ(Launch("videotestsrc num-buffers=30 pattern=ball ! "
                     "video/x-raw,format=I420,width=322,height=182,framerate=30000/1001 ! x264enc "
                     "! mp4mux ! "
                     "filesink location=" +
                     input.string()),
              0);
    ASSERT_EQ(Launch("filesrc location=" + input.string() +
                     " ! decodebin ! libfilter-mosaic "
                     "mosaic-x2=160 mosaic-y2=90 ! libfilter-invert ! x264enc ! mp4mux ! "
                     "filesink location=" +
                     output.string()),
              0);
    const std::vector<GstClockTime> before = DecodedTimes(input);
    EXPECT_EQ(before.size(), 30u);
    EXPECT_EQ(DecodedTimes(output), before);
    fs::remove_all(folder);
}

namespace {

// GStreamer starts only when tests run, not when ctest lists them. It finds the plug-in through
// GST_PLUGIN_PATH (as the gst-launch-1.0 runs do), keeps a registry of its own, and loads
// plug-ins in this process to list them: a scanner process would not carry the sanitizers'
// runtime that a sanitized plug-in needs.
class GstreamerEnvironment : public testing::Environment {
public:
    void SetUp() override {
        setenv("GST_PLUGIN_PATH", LF_GST_PLUGIN_DIR, 1);
        setenv("GST_REGISTRY", LF_GST_REGISTRY, 1);
        setenv("GST_REGISTRY_FORK", "no", 1);
        gst_init(nullptr, nullptr);
    }
};

}  // namespace

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

int main(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);
    testing::AddGlobalTestEnvironment(new GstreamerEnvironment);
    return RUN_ALL_TESTS();
}
