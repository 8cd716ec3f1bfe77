#include "EffectElement.h"

#include <gst/video/gstvideofilter.h>
#include <gst/video/video.h>

#include <algorithm>
#include <cctype>
#include <climits>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <memory>
#include <mutex>
#include <utility>
#include <vector>

#include "Formats.h"
#include "Properties.h"

namespace gst_adapter {

namespace {

using catalogue::EffectDescription;
using catalogue::PropertyDescription;
using catalogue::PropertyKind;
using catalogue::RangeBound;
using MediaCore::CVideoFrame;

GST_DEBUG_CATEGORY_STATIC(g_debug);
#define GST_CAT_DEFAULT g_debug

// What one element keeps beside its GObject: the effect, and the property values the user set,
// which reach the effect on the streaming thread just before the next frame.
struct EffectState {
    std::mutex mutex;            // guards the three vectors; the effect is the streaming thread's
    std::vector<double> values;  // by property index, as the GObject properties hold them
    std::vector<bool> set;       // set at least once: handed to every new instance of the effect
    std::vector<bool> pending;   // not yet handed to the current instance
    bool anyPending = false;
    catalogue::EffectPtr processor;
    std::unique_ptr<CVideoFrame> view;  // the negotiated format and size, over each frame's planes
    int count = 0;
};

struct GstLibfilterEffect {
    GstVideoFilter parent;
    EffectState* state;
};

struct GstLibfilterEffectClass {
    GstVideoFilterClass parent;
    const EffectDescription* effect;
};

// What the registration hands each effect's class_init; lives as long as the type.
struct ClassData {
    const EffectDescription* effect;
    std::vector<GstVideoFormat> formats;
};

GstLibfilterEffect* Self(gpointer instance) {
    return reinterpret_cast<GstLibfilterEffect*>(instance);
}

const EffectDescription& EffectOf(gpointer instance) {
    return *reinterpret_cast<GstLibfilterEffectClass*>(G_OBJECT_GET_CLASS(instance))->effect;
}

void SetPropertyCallback(GObject* object, guint id, const GValue* value, GParamSpec* spec) {
    const EffectDescription& effect = EffectOf(object);
    if (id == 0 || id > effect.propertyCount) {
        G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, spec);
        return;
    }
    const unsigned index = id - 1;
    const double number = FromValue(effect.properties[index].kind, value);
    EffectState& state = *Self(object)->state;
    const std::lock_guard<std::mutex> lock(state.mutex);
    state.values[index] = number;
    state.set[index] = state.pending[index] = true;
    state.anyPending = true;
}

void GetPropertyCallback(GObject* object, guint id, GValue* value, GParamSpec* spec) {
    const EffectDescription& effect = EffectOf(object);
    if (id == 0 || id > effect.propertyCount) {
        G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, spec);
        return;
    }
    EffectState& state = *Self(object)->state;
    const std::lock_guard<std::mutex> lock(state.mutex);
    ToValue(effect.properties[id - 1].kind, state.values[id - 1], value);
}

// Hands the effect the values set since the last frame; runs on the streaming thread.
void ApplyPending(const EffectDescription& effect, EffectState& state) {
    std::vector<std::pair<unsigned, double>> changes;
    {
        const std::lock_guard<std::mutex> lock(state.mutex);
        if (!state.anyPending) return;
        for (unsigned i = 0; i < effect.propertyCount; ++i) {
            if (state.pending[i]) changes.emplace_back(i, state.values[i]);
            state.pending[i] = false;
        }
        state.anyPending = false;
    }
    for (const auto& [index, number] : changes) {
        const PropertyDescription& property = effect.properties[index];
        state.processor->SetProperty(property.name, PropertyText(property.kind, number).c_str());
    }
}

// --- The element -----------------------------------------------------------------------------

gboolean Start(GstBaseTransform* transform) {
    const EffectDescription& effect = EffectOf(transform);
    EffectState& state = *Self(transform)->state;
    catalogue::EffectPtr processor = catalogue::Create(effect);
    if (!processor) {
        const char* gap = catalogue::BuildGap(effect);
        GST_ELEMENT_ERROR(
            transform, LIBRARY, INIT, ("Could not make the effect \"%s\".", effect.name),
            ("%s", gap != nullptr ? gap : "the library refused it (see its error sink)"));
        return FALSE;
    }
    const std::lock_guard<std::mutex> lock(state.mutex);
    state.processor = std::move(processor);
    state.pending = state.set;
    state.anyPending = true;
    state.count = 0;
    return TRUE;
}

gboolean Stop(GstBaseTransform* transform) {
    EffectState& state = *Self(transform)->state;
    state.processor.reset();
    state.view.reset();
    return TRUE;
}

// Controlled properties take the value their control source has at the buffer's stream time.
void BeforeTransform(GstBaseTransform* transform, GstBuffer* buffer) {
    const GstClockTime time =
        gst_segment_to_stream_time(&transform->segment, GST_FORMAT_TIME, GST_BUFFER_PTS(buffer));
    if (GST_CLOCK_TIME_IS_VALID(time)) gst_object_sync_values(GST_OBJECT(transform), time);
}

gboolean SetInfo(GstVideoFilter* filter, GstCaps*, GstVideoInfo* in, GstCaps*, GstVideoInfo*) {
    EffectState& state = *Self(filter)->state;
    const int format = LibraryFormat(GST_VIDEO_INFO_FORMAT(in));
    if (format < 0) return FALSE;
    try {
        state.view = std::make_unique<CVideoFrame>(false, format, GST_VIDEO_INFO_WIDTH(in),
                                                   GST_VIDEO_INFO_HEIGHT(in), true);
    } catch (...) {
        state.view.reset();
        return FALSE;
    }
    return TRUE;
}

GstFlowReturn TransformFrameInPlace(GstVideoFilter* filter, GstVideoFrame* frame) {
    const EffectDescription& effect = EffectOf(filter);
    EffectState& state = *Self(filter)->state;
    if (!state.processor || !state.view) return GST_FLOW_NOT_NEGOTIATED;
    try {
        ApplyPending(effect, state);
        Attach(*frame, *state.view);
        state.view->SetTimeStamp(state.count);
        MediaCore::ImagePostion position{};
        state.processor->ProcFrameInPlace(&position, state.count, state.view.get());
        state.count = state.count == INT_MAX ? 0 : state.count + 1;
    } catch (const std::exception& error) {
        GST_ELEMENT_ERROR(filter, STREAM, FAILED, ("Effect \"%s\" failed.", effect.name),
                          ("%s", error.what()));
        return GST_FLOW_ERROR;
    }
    return GST_FLOW_OK;
}

void Finalize(GObject* object);

GstElementClass* g_parentClass = nullptr;

void BaseClassInit(gpointer klass, gpointer) {
    g_parentClass = GST_ELEMENT_CLASS(g_type_class_peek_parent(klass));
    G_OBJECT_CLASS(klass)->finalize = Finalize;
    GstBaseTransformClass* transform = GST_BASE_TRANSFORM_CLASS(klass);
    transform->start = Start;
    transform->stop = Stop;
    transform->before_transform = BeforeTransform;
    GstVideoFilterClass* filter = GST_VIDEO_FILTER_CLASS(klass);
    filter->set_info = SetInfo;
    filter->transform_frame_ip = TransformFrameInPlace;
}

void Finalize(GObject* object) {
    delete Self(object)->state;
    Self(object)->state = nullptr;
    G_OBJECT_CLASS(g_parentClass)->finalize(object);
}

GType EffectBaseType() {
    static const GType type = [] {
        GTypeInfo info{};
        info.class_size = sizeof(GstLibfilterEffectClass);
        info.class_init = BaseClassInit;
        info.instance_size = sizeof(GstLibfilterEffect);
        return g_type_register_static(GST_TYPE_VIDEO_FILTER, "GstLibfilterEffect", &info,
                                      G_TYPE_FLAG_ABSTRACT);
    }();
    return type;
}

void EffectClassInit(gpointer klass, gpointer data) {
    const auto& classData = *static_cast<const ClassData*>(data);
    const EffectDescription& effect = *classData.effect;
    reinterpret_cast<GstLibfilterEffectClass*>(klass)->effect = &effect;

    // GObject gives every class its own property accessors, the ones its properties call.
    GObjectClass* object = G_OBJECT_CLASS(klass);
    object->set_property = SetPropertyCallback;
    object->get_property = GetPropertyCallback;
    for (unsigned i = 0; i < effect.propertyCount; ++i) {
        // A name an ancestor already has ("name", "qos") would hide that one: left out.
        if (g_object_class_find_property(object, PropertyName(effect.properties[i]).c_str())) {
            GST_WARNING("%s: property %s clashes with an element property", effect.name,
                        effect.properties[i].name);
            continue;
        }
        GParamSpec* spec = MakeSpec(effect.properties[i]);
        if (spec != nullptr) g_object_class_install_property(object, i + 1, spec);
    }

    GstElementClass* element = GST_ELEMENT_CLASS(klass);
    GstCaps* caps = gst_video_make_raw_caps(classData.formats.data(),
                                            static_cast<guint>(classData.formats.size()));
    gst_element_class_add_pad_template(
        element, gst_pad_template_new("sink", GST_PAD_SINK, GST_PAD_ALWAYS, caps));
    gst_element_class_add_pad_template(
        element, gst_pad_template_new("src", GST_PAD_SRC, GST_PAD_ALWAYS, caps));
    gst_caps_unref(caps);
    const std::string longName = std::string("libfilter ") + effect.name;
    gst_element_class_set_metadata(element, longName.c_str(), "Filter/Effect/Video",
                                   effect.summary != nullptr ? effect.summary : effect.name,
                                   "libfilter");
}

// Every property starts at its default; the effect hears only of the ones the user sets.
void EffectInstanceInit(GTypeInstance* instance, gpointer klass) {
    const EffectDescription& effect = *static_cast<GstLibfilterEffectClass*>(klass)->effect;
    auto state = std::make_unique<EffectState>();
    state->values.resize(effect.propertyCount);
    state->set.assign(effect.propertyCount, false);
    state->pending.assign(effect.propertyCount, false);
    for (unsigned i = 0; i < effect.propertyCount; ++i) {
        const PropertyDescription& property = effect.properties[i];
        GParamSpec* spec =
            g_object_class_find_property(G_OBJECT_CLASS(klass), PropertyName(property).c_str());
        if (spec != nullptr && spec->owner_type == G_TYPE_FROM_CLASS(klass))
            state->values[i] = FromValue(property.kind, g_param_spec_get_default_value(spec));
    }
    Self(instance)->state = state.release();
}

// "GstLibfilter" and the name's words capitalised: "2d-to-3d" is "GstLibfilter2dTo3d".
std::string TypeName(const EffectDescription& effect) {
    std::string name = "GstLibfilter";
    bool wordStart = true;
    for (const char* c = effect.name; *c != '\0'; ++c) {
        if (!std::isalnum(static_cast<unsigned char>(*c))) {
            wordStart = true;
            continue;
        }
        name += wordStart ? static_cast<char>(std::toupper(static_cast<unsigned char>(*c))) : *c;
        wordStart = false;
    }
    return name;
}

}  // namespace

std::string ElementName(const EffectDescription& effect) {
    std::string name = "libfilter-";
    for (const char* c = effect.name; *c != '\0'; ++c) {
        const auto byte = static_cast<unsigned char>(*c);
        name += std::isalnum(byte) ? static_cast<char>(std::tolower(byte)) : '-';
    }
    return name;
}

bool RegisterElement(GstPlugin* plugin, const EffectDescription& effect) {
    static const bool debugReady = [] {
        GST_DEBUG_CATEGORY_INIT(g_debug, "libfilter", 0, "libfilter effects");
        return true;
    }();
    (void)debugReady;
    if (catalogue::BuildGap(effect) != nullptr) {
        GST_INFO("no element for %s: %s", effect.name, catalogue::BuildGap(effect));
        return false;
    }
    const std::string typeName = TypeName(effect);
    GType type = g_type_from_name(typeName.c_str());
    if (type == 0) {
        std::vector<GstVideoFormat> formats = FormatsTakenBy(effect);
        if (formats.empty()) {
            GST_WARNING("no element for %s: it changes none of the offered formats", effect.name);
            return false;
        }
        GTypeInfo info{};
        info.class_size = sizeof(GstLibfilterEffectClass);
        info.class_init = EffectClassInit;
        info.class_data = new ClassData{&effect, std::move(formats)};  // as long as the type
        info.instance_size = sizeof(GstLibfilterEffect);
        info.instance_init = EffectInstanceInit;
        type = g_type_register_static(EffectBaseType(), typeName.c_str(), &info, GTypeFlags(0));
    }
    return gst_element_register(plugin, ElementName(effect).c_str(), GST_RANK_NONE, type) == TRUE;
}

}  // namespace gst_adapter
