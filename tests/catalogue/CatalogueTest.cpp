// The effect descriptions against the effects themselves, and the helpers hosts read them with.
#include <gtest/gtest.h>

#include <cstdlib>
#include <map>
#include <regex>
#include <set>

#include "catalogue/Catalogue.h"
#include "libfilter/Siblings.h"
#include "libfilter/libfilter.h"

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

}  // namespace

TEST(CatalogueTest, DescriptionsHaveUniqueIdsAndNamesHostsCanUse) {
    std::set<std::string> names;
    unsigned previous = 0;
    for (const EffectDescription* effect : Effects()) {
        EXPECT_GT(effect->id, previous) << effect->name;
        previous = effect->id;
        // Plug-in file names and element names are made of these.
        EXPECT_TRUE(std::regex_match(effect->name, std::regex("[a-z0-9-]+"))) << effect->name;
        EXPECT_TRUE(names.insert(effect->name).second) << effect->name;
        EXPECT_EQ(FindEffect(effect->name), effect);
        EXPECT_EQ(FindEffect(std::to_string(effect->id)), effect);
        for (unsigned i = 0; i < effect->propertyCount; ++i) {
            const PropertyDescription& property = effect->properties[i];
            EXPECT_TRUE(property.upper != RangeBound::Fixed || property.min <= property.max);
            EXPECT_NE(std::string(property.explanation), "") << property.name;
        }
    }
    EXPECT_GE(Effects().size(), 16u);  // the interface's sixteen, and any a build adds
    EXPECT_EQ(FindEffect("nosuch"), nullptr);
    EXPECT_EQ(FindEffect("18"), nullptr);
}

TEST(CatalogueTest, EveryEffectIsMadeAndReportsItselfAsDescribed) {
    for (const EffectDescription* description : Effects()) {
        EffectPtr effect = Create(*description);
        if (BuildGap(*description) != nullptr) continue;
        ASSERT_TRUE(effect) << description->name;
        EXPECT_EQ(effect->GetID(), description->id) << description->name;
        const auto reported = Reported(*effect);
        EXPECT_EQ(reported.size(), description->propertyCount) << description->name;
        for (unsigned i = 0; i < description->propertyCount; ++i) {
            const PropertyDescription& property = description->properties[i];
            const auto found = reported.find(property.name);
            ASSERT_NE(found, reported.end()) << description->name << ": " << property.name;
            EXPECT_EQ(found->second.first, static_cast<int>(property.type)) << property.name;
            EXPECT_EQ(found->second.second, property.defaultText) << property.name;
            const double value = std::atof(property.defaultText);
            EXPECT_GE(value, property.min) << property.name;
            EXPECT_LE(value, UpperBound(property, 64, 36)) << property.name;
        }
        for (const auto& [name, value] : Showcase(*description, 64, 36)) {
            EXPECT_NE(FindProperty(*description, name), nullptr) << name;
            EXPECT_TRUE(effect->SetProperty(name.c_str(), value.c_str())) << name;
        }
    }
}

// Hosts ask the factory for factory-made effects and construct the others; the factory refuses
// those, and every id between that nothing describes.
// The documented properties and defaults of the interface's effects, worked from their
// documentation rather than read from the descriptions: a description that drifts from them
// fails here, where the test above would follow it.
TEST(CatalogueTest, DescriptionsCarryTheDocumentedDefaults) {
    const std::map<unsigned, std::map<std::string, std::string>> documented = {
        {3, {{"brightness", "0"}, {"contrast", "0"}, {"saturation", "0"}}},
        {4, {{"mirror", "0"}, {"vertical", "0"}}},
        {6, {{"blur_count", "1"}}},
        {7, {{"sharpen_count", "1"}}},
        {8, {}},
        {9, {}},
        {10, {}},
        {11, {}},
        {12, {{"emboss_level", "5"}}},
        {13,
         {{"mosaic_x1", "0"},
          {"mosaic_y1", "0"},
          {"mosaic_x2", "0"},
          {"mosaic_y2", "0"},
          {"mosaic_step", "3"}}},
        {14, {{"mirage_width", "10"}, {"mirage_alpha", "10"}}},
        {15, {{"transparency_scale", "0"}}},
        {16, {{"filter_scope", "0"}, {"filter_color", "0"}}},
        {17, {{"addnoise_level", "2"}}},
        {19, {{"rotate90_angle", "0"}}},
    };
    for (const auto& [id, properties] : documented) {
        const EffectDescription* effect = FindEffect(std::to_string(id));
        ASSERT_NE(effect, nullptr) << id;
        std::map<std::string, std::string> described;
        for (unsigned i = 0; i < effect->propertyCount; ++i)
            described[effect->properties[i].name] = effect->properties[i].defaultText;
        EXPECT_EQ(described, properties) << effect->name;
    }
}

TEST(CatalogueTest, TheFactoryServesExactlyTheFactoryMadeEffects) {
    liblog_GetReportCount();
    for (unsigned id = 0; id < 32; ++id) {
        const EffectDescription* description = FindEffect(std::to_string(id));
        const bool served = description != nullptr &&
                            description->making == EffectMaking::Factory &&
                            BuildGap(*description) == nullptr;
        const unsigned before = liblog_GetReportCount();
        MediaCore::GVideoProcessor* effect = libfilter_GetFilter(SharedController(), id);
        EXPECT_EQ(effect != nullptr, served) << id;
        EXPECT_EQ(liblog_GetReportCount() - before, served ? 0u : 1u) << id;
        if (effect != nullptr) effect->Free();
    }
    const unsigned before = liblog_GetReportCount();
    EXPECT_EQ(libfilter_GetEffectDescriptions(nullptr), nullptr);
    EXPECT_EQ(liblog_GetReportCount() - before, 1u);
}

TEST(CatalogueTest, RangesAndShowcasesFollowTheFrame) {
    const EffectDescription& mosaic = *FindEffect("mosaic");
    const PropertyDescription& x2 = *FindProperty(mosaic, "mosaic_x2");
    EXPECT_EQ(RangeText(x2), "0..frame width");
    EXPECT_EQ(UpperBound(x2, 640, 360), 640);
    EXPECT_EQ(UpperBound(*FindProperty(mosaic, "mosaic_y1"), 640, 360), 360);
    EXPECT_EQ(
        Showcase(mosaic, 66, 38),
        (PropertyList{
            {"mosaic_x1", "16"}, {"mosaic_y1", "9"}, {"mosaic_x2", "49"}, {"mosaic_y2", "28"}}));
    EXPECT_EQ(Showcase(*FindEffect("color-filter"), 1, 1),
              (PropertyList{{"filter_color", "16777215"}, {"filter_scope", "48"}}));
    EXPECT_EQ(RangeText(*FindProperty(*FindEffect("brightness-contrast"), "contrast")),
              "-100..100");
    EXPECT_EQ(MakingText(*FindEffect("mirage")), "class MediaCore::CMirageVideoImageEffect");
    EXPECT_EQ(MakingText(*FindEffect("blur")), "factory id 6");
}
