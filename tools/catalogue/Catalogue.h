// What hosts need around the library's own effect descriptions: lookup by name or id, ranges
// for a frame size, showcase settings as property texts, and effects made with a controller that
// lends frame converters. Shared by lfx, the frei0r plug-ins, the tests and the benchmarks.
#pragma once

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "libfilter/EffectDescription.h"

namespace catalogue {

using MediaCore::EffectDescription;
using MediaCore::EffectMaking;
using MediaCore::PropertyDescription;
using MediaCore::PropertyKind;
using MediaCore::RangeBound;

using PropertyList = std::vector<std::pair<std::string, std::string>>;

// Every processor has this property; it does not change pictures.
constexpr const char* kDurationProperty = "duration";

// Every effect the library describes, in id order.
const std::vector<const EffectDescription*>& Effects();

// The effect with this short name or id number, or null.
const EffectDescription* FindEffect(const std::string& nameOrId);
// The effect's property with this name (not "duration"), or null.
const PropertyDescription* FindProperty(const EffectDescription& effect, const std::string& name);
// The position of a property in its effect's list, the order hosts show them in.
unsigned PropertyIndex(const EffectDescription& effect, const PropertyDescription& property);

// The property's upper end for frames of this size.
double UpperBound(const PropertyDescription& property, unsigned width, unsigned height);
// "-100..100", "0..frame width", "0 or 1" or "0xRRGGBB".
std::string RangeText(const PropertyDescription& property);
// "integer", "number", "flag" or "colour".
const char* KindName(PropertyKind kind);
// "factory id 13" or "class MediaCore::CMirageVideoImageEffect".
std::string MakingText(const EffectDescription& effect);

// The effect's showcase settings as property texts for a frame of this size.
PropertyList Showcase(const EffectDescription& effect, unsigned width, unsigned height);

// The controller handed to every effect: it lends frame converters to the effects that reshape
// frames (2d-to-3d, rotate90). Null while the build has no converter library.
MediaCore::GController* SharedController();

// Why this build cannot make the effect; null when it can.
const char* BuildGap(const EffectDescription& effect);

struct ProcessorDeleter {
    void operator()(MediaCore::GVideoProcessor* effect) const { effect->Free(); }
};
using EffectPtr = std::unique_ptr<MediaCore::GVideoProcessor, ProcessorDeleter>;

// A new instance with the shared controller; null when the build lacks what it needs or the
// library refuses (the library then reports why to its error sink).
EffectPtr Create(const EffectDescription& effect);

}  // namespace catalogue
