// The effects' properties as GObject properties: their specs, made from the descriptions, and
// values between GObject and the texts the effects read.
#pragma once

#include <gst/gst.h>

#include <string>

#include "catalogue/Catalogue.h"

namespace gst_adapter {

// The property's GObject name: '_' becomes '-' ("blur_count" is "blur-count").
std::string PropertyName(const catalogue::PropertyDescription& property);

// A controllable spec with the property's type, range, default and meaning: an int, a double, a
// boolean for a flag, a uint 0xRRGGBB for a colour.
GParamSpec* MakeSpec(const catalogue::PropertyDescription& property);

// A value of the kind's GObject type as a number, and back.
double FromValue(catalogue::PropertyKind kind, const GValue* value);
void ToValue(catalogue::PropertyKind kind, double number, GValue* value);

// The text the effect reads for a value: whole numbers for integers, flags and colours.
std::string PropertyText(catalogue::PropertyKind kind, double number);

}  // namespace gst_adapter
