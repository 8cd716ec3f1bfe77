// What every effect says of itself: its id and short name, how a host makes it, and what each
// of its properties means. Each effect's own source file holds its description; the library
// hands the whole table to hosts, which build their menus, plug-in lists, bindings and
// checks from it instead of keeping lists of their own.
#pragma once

#include "libfilter/CProcessor.h"
#include "libfilter/GController.h"
#include "libfilter/GVideoProcessor.h"

namespace MediaCore {

// How a host offers a property's value.
enum class PropertyKind : unsigned {
    Integer,  // a whole number within the range
    Real,     // any number within the range
    Flag,     // on only at exactly 1; offered as 0 or 1
    Color,    // 0xRRGGBB as one integer
};

// Where a range's upper end, or a showcase value, comes from.
enum class RangeBound : unsigned {
    Fixed,        // the number as written
    FrameWidth,   // the frame's width in pixels (times the number, for a showcase value)
    FrameHeight,  // the frame's height in pixels (likewise)
};

struct PropertyDescription {
    const char* name;
    PropertyType type;        // how the processor keeps the parsed text
    const char* defaultText;  // registered as is; the effect's fields keep their own start
    PropertyKind kind;
    double min;
    double max;  // the upper end when `upper` is Fixed
    RangeBound upper;
    const char* explanation;  // one line, for menus and help
};

// One property setting under which the effect visibly does its work.
struct ShowcaseSetting {
    const char* property;
    double value;  // with a frame bound: the fraction of the frame's width or height
    RangeBound scale;
};

// Whether hosts ask the factory for the effect by id or construct its exported class.
enum class EffectMaking : unsigned { Factory, ExportedClass };

struct EffectDescription {
    unsigned id;
    const char* name;     // the short name hosts offer ("mosaic")
    const char* summary;  // one line
    EffectMaking making;
    const char* className;  // the class behind it, as a C++ host names it
    bool needsConverters;   // does nothing without a controller that lends frame converters
    // A new instance with the controller (kept only by effects that need converters); null, with
    // one report to the error sink, when it cannot be made. Released with its Free.
    GVideoProcessor* (*create)(GController* controller);
    const PropertyDescription* properties;  // without "duration", in the order hosts list them
    unsigned propertyCount;
    const ShowcaseSetting* showcase;
    unsigned showcaseCount;
};

}  // namespace MediaCore

extern "C" {
// Every effect the library has, in id order; `count` receives their number. The table lives as
// long as the library is loaded. Null (and one report to the error sink) when `count` is null.
const MediaCore::EffectDescription* const* libfilter_GetEffectDescriptions(unsigned* count);
}
