#include <cstdio>

#include "Available.h"
#include "Commands.h"

namespace lfx {

namespace {

void PrintEffect(const AvailableEffect& effect) {
    const EffectDescription& entry = *effect.entry;
    std::printf("%3u  %-20s %s\n", entry.id, entry.name, entry.summary);
    std::printf("       hosts make it by %s\n", catalogue::MakingText(entry).c_str());
    for (unsigned i = 0; i < entry.propertyCount; ++i) {
        const PropertyDescription& property = entry.properties[i];
        std::printf("       %-20s %-8s default %-6s %s; %s\n", property.name,
                    catalogue::KindName(property.kind), property.defaultText,
                    catalogue::RangeText(property).c_str(), property.explanation);
    }
}

}  // namespace

int RunList(const std::string& name) {
    if (!name.empty()) {
        PrintEffect(FindEffect(name));
        return 0;
    }
    std::printf("Effects (lfx apply -e NAME -p property=value):\n\n");
    for (const AvailableEffect& effect : AvailableEffects())
        PrintEffect(effect);
    std::string missing;
    for (const EffectDescription* entry : catalogue::Effects()) {
        if (UnavailableReason(*entry).empty()) continue;
        missing += (missing.empty() ? "" : ", ") + std::string(entry->name) + " (" +
                   std::to_string(entry->id) + ")";
    }
    std::printf(
        "\nEvery effect also has the integer property %s (default 1), which does not "
        "change pictures.\n",
        kDurationProperty);
    if (!missing.empty()) {
        std::printf("Not in this build: %s; lfx list NAME says why.\n", missing.c_str());
    }
    return 0;
}

}  // namespace lfx
