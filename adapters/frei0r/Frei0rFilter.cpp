#include "Frei0rFilter.h"

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "libfilter/Siblings.h"
#include "libfilter/libfilter.h"

namespace frei0r_adapter {

namespace {

using catalogue::PropertyDescription;
using catalogue::PropertyKind;

int ParamType(PropertyKind kind) {
    switch (kind) {
        case PropertyKind::Flag:
            return F0R_PARAM_BOOL;
        case PropertyKind::Color:
            return F0R_PARAM_COLOR;
        default:
            return F0R_PARAM_DOUBLE;
    }
}

// frei0r values live in 0..1; anything else (NaN included) is held to that.
double Unit(double value) {
    return value >= 0.0 ? std::min(value, 1.0) : 0.0;
}

std::string NumberText(double value, bool integer) {
    if (integer) return std::to_string(std::llround(value));
    char text[32];
    std::snprintf(text, sizeof text, "%.10g", value);
    return text;
}

unsigned ColorByte(float channel) {
    return static_cast<unsigned>(std::lround(Unit(channel) * 255.0));
}

}  // namespace

void GetPluginInfo(const catalogue::EffectDescription& entry, const char* pluginName,
                   f0r_plugin_info_t* info) {
    if (info == nullptr) return;
    info->name = pluginName;
    info->author = "libfilter";
    info->plugin_type = F0R_PLUGIN_TYPE_FILTER;
    info->color_model = F0R_COLOR_MODEL_BGRA8888;
    info->frei0r_version = FREI0R_MAJOR_VERSION;
    info->major_version = LF_VERSION_MAJOR;
    info->minor_version = LF_VERSION_MINOR;
    info->num_params = static_cast<int>(entry.propertyCount);
    info->explanation = entry.summary;
}

void GetParamInfo(const catalogue::EffectDescription& entry, f0r_param_info_t* info, int index) {
    if (info == nullptr || index < 0 || static_cast<unsigned>(index) >= entry.propertyCount) return;
    const PropertyDescription& property = entry.properties[index];
    info->name = property.name;
    info->type = ParamType(property.kind);
    info->explanation = property.explanation;
}

std::unique_ptr<Filter> Filter::Create(const catalogue::EffectDescription& entry, unsigned width,
                                       unsigned height) {
    if (width == 0 || height == 0 || width > INT_MAX / 4) return nullptr;
    catalogue::EffectPtr effect = catalogue::Create(entry);
    if (!effect) return nullptr;
    return std::unique_ptr<Filter>(new Filter(entry, std::move(effect), width, height));
}

Filter::Filter(const catalogue::EffectDescription& entry, catalogue::EffectPtr effect,
               unsigned width, unsigned height)
    : entry_(entry),
      effect_(std::move(effect)),
      frame_(false, MediaCore::PIXFMT_BGRA32, width, height, true),
      input_(false, MediaCore::PIXFMT_BGRA32, width, height, true),
      width_(width),
      height_(height) {}

const PropertyDescription* Filter::Spec(int index) const {
    if (index < 0 || static_cast<unsigned>(index) >= entry_.propertyCount) return nullptr;
    return &entry_.properties[index];
}

void Filter::SetParam(f0r_param_t value, int index) {
    const PropertyDescription* property = Spec(index);
    if (property == nullptr || value == nullptr) return;
    std::string text;
    switch (property->kind) {
        case PropertyKind::Integer:
        case PropertyKind::Real: {
            const double max = catalogue::UpperBound(*property, width_, height_);
            const double number = property->min + Unit(*static_cast<f0r_param_double*>(value)) *
                                                      (max - property->min);
            text = NumberText(number, property->kind == PropertyKind::Integer);
            break;
        }
        case PropertyKind::Flag:
            text = *static_cast<f0r_param_bool*>(value) >= 0.5 ? "1" : "0";
            break;
        case PropertyKind::Color: {
            const auto* color = static_cast<f0r_param_color_t*>(value);
            text = std::to_string(ColorByte(color->r) << 16 | ColorByte(color->g) << 8 |
                                  ColorByte(color->b));
            break;
        }
    }
    effect_->SetProperty(property->name, text.c_str());
}

void Filter::GetParam(f0r_param_t value, int index) {
    const PropertyDescription* property = Spec(index);
    if (property == nullptr || value == nullptr) return;
    const char* found = effect_->GetProperty(property->name, nullptr);
    const char* text = found != nullptr ? found : "";
    switch (property->kind) {
        case PropertyKind::Integer:
        case PropertyKind::Real: {
            const double span = catalogue::UpperBound(*property, width_, height_) - property->min;
            const double number = std::strtod(text, nullptr);
            *static_cast<f0r_param_double*>(value) =
                span > 0.0 ? Unit((number - property->min) / span) : 0.0;
            break;
        }
        case PropertyKind::Flag:
            *static_cast<f0r_param_bool*>(value) = std::atoi(text) == 1 ? 1.0 : 0.0;
            break;
        case PropertyKind::Color: {
            const auto rgb = static_cast<unsigned>(std::atoi(text));
            auto* color = static_cast<f0r_param_color_t*>(value);
            color->r = static_cast<float>((rgb >> 16) & 0xFF) / 255.0f;
            color->g = static_cast<float>((rgb >> 8) & 0xFF) / 255.0f;
            color->b = static_cast<float>(rgb & 0xFF) / 255.0f;
            break;
        }
    }
}

void Filter::Update(const uint32_t* in, uint32_t* out) {
    if (out == nullptr) return;
    int pitch = static_cast<int>(width_ * 4);
    unsigned char* data = reinterpret_cast<unsigned char*>(out);
    frame_.SetBuffer(&data, &pitch, nullptr);
    frame_.SetTimeStamp(count_);
    MediaCore::ImagePostion position{};
    const size_t bytes = size_t{width_} * height_ * 4;
    const auto from = reinterpret_cast<uintptr_t>(in), to = reinterpret_cast<uintptr_t>(out);
    if (in == nullptr || in == out) {
        effect_->ProcFrameInPlace(&position, count_, &frame_);
    } else if (from + bytes <= to || to + bytes <= from) {
        // Read from the input, write the output: one walk over memory where the effect can.
        auto* source = reinterpret_cast<unsigned char*>(const_cast<uint32_t*>(in));
        input_.SetBuffer(&source, &pitch, nullptr);
        input_.SetTimeStamp(count_);
        libfilter_ProcFrameInto(effect_.get(), &position, count_, &input_, &frame_);
    } else {
        std::memmove(out, in, bytes);  // overlapping pictures: copy, then change in place
        effect_->ProcFrameInPlace(&position, count_, &frame_);
    }
    count_ = count_ == INT_MAX ? 0 : count_ + 1;
}

void ReportFailure(const char* what) {
    IException* sink = GetGException();
    if (sink == nullptr) return;
    sink->SetError(what, 0, "frei0r");
    sink->Report(nullptr);
}

}  // namespace frei0r_adapter
