#include "support/EffectRoster.h"

#include "libfilter/Siblings.h"

namespace testing_support {

using namespace MediaCore;

GVideoProcessor* ServedEffect::Create() const {
    // The converter library's controller when the build has one: the stereo and rotation
    // effects need it to do anything.
    return description->create(catalogue::SharedController());
}

const std::vector<ServedEffect>& ServedEffects() {
    static const std::vector<ServedEffect> served = [] {
        std::vector<ServedEffect> effects;
        for (const EffectDescription* description : catalogue::Effects()) {
            if (catalogue::BuildGap(*description) != nullptr) continue;
            effects.push_back({description->id, description->name, description});
        }
        return effects;
    }();
    return served;
}

const ServedEffect* FindServedEffect(unsigned id) {
    for (const ServedEffect& effect : ServedEffects()) {
        if (effect.id == id) return &effect;
    }
    return nullptr;
}

bool RepeatsWork(const std::string& property) {
    const std::string suffix = "_count";
    return property.size() >= suffix.size() &&
           property.compare(property.size() - suffix.size(), suffix.size(), suffix) == 0;
}

const std::vector<std::string>& EdgeTexts() {
    // clang-format off
    static const std::vector<std::string> texts = {
        "0", "1", "-1", "2", "3", "4", "255", "256", "100", "-100",
        "2147483647", "-2147483648", "4294967295", "99999999999999",
        "nan", "inf", "-inf", "1e308", "-1e308", "0.5", "-0.5", "0x10", " 7", "7abc", "abc", ""};
    // clang-format on
    return texts;
}

SilentSink::SilentSink() : previous_(liblog_SetGException(this)) {}

SilentSink::~SilentSink() {
    liblog_SetGException(previous_);
}

}  // namespace testing_support
