// How an effect's source file describes the effect and joins the library's table.
//
// An effect file defines its properties and showcase as arrays and its description as a
// constant, and registers it with LF_DESCRIBE_EFFECT. The image effect base registers the
// described properties of its id, so an effect's constructor names none itself. Nothing else in
// the library lists effects: the factory, libfilter_GetEffectDescriptions and every host read
// this table.
#pragma once

#include "base/ErrorReport.h"
#include "libfilter/EffectDescription.h"

#define LF_INTERNAL __attribute__((visibility("hidden")))

namespace MediaCore {

// Adds a description to the table while the library loads.
struct LF_INTERNAL EffectRegistration {
    explicit EffectRegistration(const EffectDescription& description);
};

// The table, in id order; `count` receives its length.
LF_INTERNAL const EffectDescription* const* DescribedEffects(unsigned* count);
// The description with this id, or null.
LF_INTERNAL const EffectDescription* FindDescription(unsigned id);

// The property node an effect registers for a described property: its default text, parsed by
// its type tag.
LF_INTERNAL CProcessor::PropertyNode DefaultNode(const PropertyDescription& property);

template <unsigned N>
constexpr unsigned CountOf(const PropertyDescription (&)[N]) {
    return N;
}
template <unsigned N>
constexpr unsigned CountOf(const ShowcaseSetting (&)[N]) {
    return N;
}

// Creators for a description. A constructor's failure becomes one report and a null result.
template <class Effect>
LF_INTERNAL GVideoProcessor* MakeEffect(GController*) {
    return LF_GUARDED(ErrorFile::kCommonEffects,
                      [&]() -> GVideoProcessor* { return new Effect(); });
}
template <class Effect>
LF_INTERNAL GVideoProcessor* MakeEffectWithController(GController* controller) {
    return LF_GUARDED(ErrorFile::kCommonEffects,
                      [&]() -> GVideoProcessor* { return new Effect(controller); });
}

}  // namespace MediaCore

#define LF_DESCRIBE_EFFECT_JOIN(a, b) a##b
#define LF_DESCRIBE_EFFECT_NAME(a, b) LF_DESCRIBE_EFFECT_JOIN(a, b)
// Registers `description` (a constant of this file) in the library's table.
#define LF_DESCRIBE_EFFECT(description)                                               \
    static const ::MediaCore::EffectRegistration LF_DESCRIBE_EFFECT_NAME(kRegistered, \
                                                                         __LINE__)(description)
