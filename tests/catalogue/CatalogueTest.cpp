// The catalogue against the library: every effect the build makes is described as it reports
// itself, so hosts that read the catalogue (lfx, the frei0r plug-ins) offer what is there.
#include <gtest/gtest.h>

#include <cstdlib>
#include <map>
#include <regex>
#include <set>

#include "catalogue/Catalogue.h"

using namespace catalogue;

namespace {

// Every property the effect reports, but "duration", with its type tag and default text.
std::map<std::string, std::pair<int, std::string>> Reported(MediaCore::GVideoProcessor& effect) {
    std::map<std::string, std::pair<int, std::string>> properties;
    MediaCore::GStringList* names = effect.GetPropertyNames();
    for (unsigned i = 0; names != nullptr && i < names->GetCount(); ++i) {
        const std::string name = names->GetAt(i)->GetString();
        int type = -1;
        const char* text = effect.GetProperty(name.c_str(), &type);
        if (name != kDurationProperty) properties[name] = {type, text != nullptr ? text : ""};
    }
    if (names != nullptr) names->Free();
    return properties;
}

bool KindFitsTag(PropertyKind kind, int tag) {
    const bool integer = tag >= 2 && tag <= 4;
    switch (kind) {
        case PropertyKind::Number:
            return tag == 1 || integer;
        case PropertyKind::Text:
            return tag == 0;
        default:
            return integer;
    }
}

}  // namespace

TEST(CatalogueTest, RowsHaveUniqueIdsAndNamesTheBuildCanRead) {
    std::set<std::string> names;
    unsigned previous = 0;
    for (const CatalogueEntry& entry : Catalogue()) {
        EXPECT_GT(entry.id, previous) << entry.name;
        previous = entry.id;
        // Plug-in file names are made of these.
        EXPECT_TRUE(std::regex_match(entry.name, std::regex("[a-z0-9-]+"))) << entry.name;
        EXPECT_TRUE(names.insert(entry.name).second) << entry.name;
        EXPECT_EQ(FindEntry(entry.name), &entry);
        EXPECT_EQ(FindEntry(std::to_string(entry.id)), &entry);
        for (const PropertySpec& property : entry.properties) {
            EXPECT_LE(property.min, property.max) << property.name;
            EXPECT_NE(std::string(property.explanation), "") << property.name;
        }
    }
    EXPECT_EQ(FindEntry("nosuch"), nullptr);
    EXPECT_EQ(FindEntry("18"), nullptr);
}

TEST(CatalogueTest, EveryEffectTheBuildMakesIsDescribedAsItReportsItself) {
    for (const CatalogueEntry& entry : Catalogue()) {
        EffectPtr effect = Create(entry);
        if (!effect) continue;
        EXPECT_EQ(effect->GetID(), entry.id) << entry.name;
        const auto reported = Reported(*effect);
        EXPECT_EQ(reported.size(), entry.properties.size()) << entry.name;
        for (const PropertySpec& property : entry.properties) {
            const auto found = reported.find(property.name);
            ASSERT_NE(found, reported.end()) << entry.name << ": " << property.name;
            const auto& [tag, defaultText] = found->second;
            EXPECT_TRUE(KindFitsTag(property.kind, tag)) << property.name << " has tag " << tag;
            if (property.kind == PropertyKind::Number && property.upper == Bound::Fixed) {
                const double value = std::atof(defaultText.c_str());
                EXPECT_TRUE(value >= property.min && value <= property.max) << property.name;
            }
        }
        const PropertyList shown = entry.showcase ? entry.showcase(64, 36) : PropertyList{};
        for (const auto& [name, value] : shown) {
            EXPECT_TRUE(effect->SetProperty(name.c_str(), value.c_str())) << name;
        }
    }
}
