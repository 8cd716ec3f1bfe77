#include <cstdio>

#include "Available.h"
#include "Commands.h"

namespace lfx {

namespace {

void PrintEffect(const AvailableEffect& effect) {
    std::printf("%3u  %-20s %s\n", effect.entry->id, effect.entry->name, effect.entry->description);
    for (const PropertyInfo& property : effect.properties) {
        std::printf("       %-20s %-8s default %-6s", property.name.c_str(),
                    PropertyTypeName(property.type), property.defaultText.c_str());
        if (property.spec != nullptr) {
            std::printf(" %s; %s", property.spec->RangeText().c_str(), property.spec->explanation);
        }
        std::printf("\n");
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
    for (const CatalogueEntry& entry : catalogue::Catalogue()) {
        if (UnavailableReason(entry).empty()) continue;
        missing += (missing.empty() ? "" : ", ") + std::string(entry.name) + " (" +
                   std::to_string(entry.id) + ")";
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
