// The effects hosts know by short name: how each one is made, what its properties mean and
// which settings show it off. Shared by lfx and the frei0r plug-ins; it needs only libfilter.
#pragma once

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "libfilter/GController.h"
#include "libfilter/GVideoProcessor.h"

namespace catalogue {

using PropertyList = std::vector<std::pair<std::string, std::string>>;

// Every processor has this property; it does not change pictures.
constexpr const char* kDurationProperty = "duration";

// How a host offers a property (frei0r parameter types; what lfx accepts).
enum class PropertyKind {
    Number,  // within [min, max]; integer properties take whole numbers
    Flag,    // on only at exactly 1
    Color,   // 0xRRGGBB as one integer
    Text,
};

// Where a number's upper end comes from: fixed, or the frame's size in pixels.
enum class Bound { Fixed, FrameWidth, FrameHeight };

struct PropertySpec {
    const char* name;
    PropertyKind kind;
    double min;
    double max;  // for Bound::Fixed
    Bound upper;
    const char* explanation;

    // The upper end of the range for frames of this size.
    double Max(unsigned width, unsigned height) const;
    // "-100..100", "0..frame width" or "" where no range applies.
    std::string RangeText() const;
};

// Makes the effect with this id; null when the library refuses.
using EffectCreator = MediaCore::GVideoProcessor* (*)(unsigned id,
                                                      MediaCore::GController* controller);
// Property settings that make an effect visible on a picture of the given size.
using ShowcaseProperties = PropertyList (*)(int width, int height);

struct CatalogueEntry {
    unsigned id;
    const char* name;
    const char* description;
    EffectCreator create;  // null: the class is not part of this build
    bool needsConverter;   // works only with a controller that lends frame converters
    ShowcaseProperties showcase;
    std::vector<PropertySpec> properties;  // without "duration", in the order hosts list them

    const PropertySpec* FindProperty(const std::string& propertyName) const;
};

// Every effect id hosts know, in id order, whether or not this build can make it.
const std::vector<CatalogueEntry>& Catalogue();

// The entry with this short name or id number, or null.
const CatalogueEntry* FindEntry(const std::string& nameOrId);

// The controller handed to every effect: it lends frame converters to the effects that reshape
// frames (2d-to-3d, rotate90). Null while the build has no converter library.
MediaCore::GController* SharedController();

// Why this build cannot make the entry, found without asking the library; null when it can try.
const char* BuildGap(const CatalogueEntry& entry);

struct ProcessorDeleter {
    void operator()(MediaCore::GVideoProcessor* effect) const { effect->Free(); }
};
using EffectPtr = std::unique_ptr<MediaCore::GVideoProcessor, ProcessorDeleter>;

// A new instance with the shared controller; null when the build lacks it or the library
// refuses (the library then reports why to its error sink).
EffectPtr Create(const CatalogueEntry& entry);

}  // namespace catalogue
