#include "Properties.h"

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdio>
#include <cstdlib>

namespace gst_adapter {

namespace {

using catalogue::PropertyDescription;
using catalogue::PropertyKind;
using catalogue::RangeBound;

// The upper end offered for a property that reaches the frame's width or height: the largest
// frame side the library's position record holds. The effect keeps the value within the frame.
constexpr double kFrameSideLimit = 65535;

double UpperEnd(const PropertyDescription& property) {
    return property.upper == RangeBound::Fixed ? property.max : kFrameSideLimit;
}

double DefaultOf(const PropertyDescription& property) {
    const char* text = property.defaultText != nullptr ? property.defaultText : "0";
    const double value = property.kind == PropertyKind::Color
                             ? static_cast<double>(std::strtoul(text, nullptr, 0))
                             : std::strtod(text, nullptr);
    return std::isfinite(value) ? value : 0.0;
}

std::string Blurb(const PropertyDescription& property) {
    std::string blurb = property.explanation != nullptr ? property.explanation : "";
    if (property.upper == RangeBound::FrameWidth) blurb += " (up to the frame's width)";
    if (property.upper == RangeBound::FrameHeight) blurb += " (up to the frame's height)";
    if (property.kind == PropertyKind::Color) blurb += " (0xRRGGBB)";
    return blurb;
}

int ToInt(double value) {
    return static_cast<int>(std::lround(std::clamp(value, double{INT_MIN}, double{INT_MAX})));
}

}  // namespace

std::string PropertyName(const PropertyDescription& property) {
    std::string name = property.name;
    std::replace(name.begin(), name.end(), '_', '-');
    return name;
}

GParamSpec* MakeSpec(const PropertyDescription& property) {
    const gchar* name = g_intern_string(PropertyName(property).c_str());
    const gchar* blurb = g_intern_string(Blurb(property).c_str());
    const auto flags = static_cast<GParamFlags>(G_PARAM_READWRITE | G_PARAM_STATIC_STRINGS |
                                                GST_PARAM_CONTROLLABLE | GST_PARAM_MUTABLE_PLAYING);
    const double low = property.min;
    const double high = std::max(low, UpperEnd(property));
    const double start = std::clamp(DefaultOf(property), low, high);
    switch (property.kind) {
        case PropertyKind::Integer:
            return g_param_spec_int(name, property.name, blurb, ToInt(low), ToInt(high),
                                    ToInt(start), flags);
        case PropertyKind::Real:
            return g_param_spec_double(name, property.name, blurb, low, high, start, flags);
        case PropertyKind::Flag:
            return g_param_spec_boolean(name, property.name, blurb, start == 1.0, flags);
        case PropertyKind::Color:
            return g_param_spec_uint(name, property.name, blurb, 0, 0xFFFFFF,
                                     static_cast<guint>(std::clamp(start, 0.0, 16777215.0)), flags);
    }
    return nullptr;
}

double FromValue(PropertyKind kind, const GValue* value) {
    switch (kind) {
        case PropertyKind::Integer:
            return g_value_get_int(value);
        case PropertyKind::Real:
            return g_value_get_double(value);
        case PropertyKind::Flag:
            return g_value_get_boolean(value) ? 1.0 : 0.0;
        case PropertyKind::Color:
            return g_value_get_uint(value);
    }
    return 0.0;
}

void ToValue(PropertyKind kind, double number, GValue* value) {
    switch (kind) {
        case PropertyKind::Integer:
            g_value_set_int(value, ToInt(number));
            break;
        case PropertyKind::Real:
            g_value_set_double(value, number);
            break;
        case PropertyKind::Flag:
            g_value_set_boolean(value, number == 1.0);
            break;
        case PropertyKind::Color:
            g_value_set_uint(value, static_cast<guint>(number));
            break;
    }
}

std::string PropertyText(PropertyKind kind, double number) {
    char text[32];
    if (kind == PropertyKind::Real) {
        std::snprintf(text, sizeof text, "%.17g", number);
    } else {
        std::snprintf(text, sizeof text, "%lld", static_cast<long long>(std::llround(number)));
    }
    return text;
}

}  // namespace gst_adapter
