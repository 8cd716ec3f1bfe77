// The effect descriptions against the effects themselves, and the helpers hosts read them with.
#include <gtest/gtest.h>

#include <cstdlib>
#include <regex>
#include <set>

#include "catalogue/Catalogue.h"
#include "libfilter/Siblings.h"
#include "libfilter/libfilter.h"

using namespace catalogue;

// Descriptions hosts can use (unique ids in order; names plug-in files and elements are made
// of), and effects that report themselves as described, "duration" besides.
TEST(CatalogueTest, EveryEffectIsDescribedForHostsAndMadeAsDescribed) {
    std::set<std::string> names;
    unsigned previous = 0;
    for (const EffectDescription* description : Effects()) {
        const std::string name = description->name;
        EXPECT_GT(description->id, previous) << name;
        previous = description->id;
        EXPECT_TRUE(std::regex_match(name, std::regex("[a-z0-9-]+"))) << name;
        EXPECT_TRUE(names.insert(name).second) << name;
        EXPECT_EQ(FindEffect(name), description);
        EXPECT_EQ(FindEffect(std::to_string(description->id)), description);
        EffectPtr effect = Create(*description);
        if (BuildGap(*description) != nullptr) continue;
        ASSERT_TRUE(effect) << name;
        EXPECT_EQ(effect->GetID(), description->id) << name;
        MediaCore::GStringList* reported = effect->GetPropertyNames();
        ASSERT_NE(reported, nullptr) << name;
        EXPECT_EQ(reported->GetCount(), description->propertyCount + 1) << name;
        reported->Free();
        // The face every effect shares: its interface, and a duration of 1 it can be given.
        EXPECT_EQ(effect->GetInterface("libcorevideoprocinterface"), effect.get()) << name;
        int durationType = -1;
        EXPECT_STREQ(effect->GetProperty(kDurationProperty, &durationType), "1");
        EXPECT_EQ(durationType, MediaCore::PROPERTY_INT32);
        EXPECT_EQ(effect->GetDuration(), 1u);
        EXPECT_TRUE(effect->SetProperty(kDurationProperty, "25"));
        EXPECT_EQ(effect->GetDuration(), 25u);
        EXPECT_TRUE(effect->Seek(12345));
        for (unsigned i = 0; i < description->propertyCount; ++i) {
            const PropertyDescription& property = description->properties[i];
            EXPECT_TRUE(property.upper != RangeBound::Fixed || property.min <= property.max);
            EXPECT_NE(std::string(property.explanation), "") << property.name;
            int type = -1;
            const char* text = effect->GetProperty(property.name, &type);
            ASSERT_NE(text, nullptr) << name << ": " << property.name;
            EXPECT_EQ(type, static_cast<int>(property.type)) << property.name;
            EXPECT_STREQ(text, property.defaultText) << property.name;
            const double value = std::atof(property.defaultText);
            EXPECT_GE(value, property.min) << property.name;
            EXPECT_LE(value, UpperBound(property, 64, 36)) << property.name;
        }
        for (const auto& [setting, value] : Showcase(*description, 64, 36)) {
            EXPECT_NE(FindProperty(*description, setting), nullptr) << setting;
            EXPECT_TRUE(effect->SetProperty(setting.c_str(), value.c_str())) << setting;
        }
    }
    EXPECT_GE(Effects().size(), 16u);  // the interface's sixteen, and any a build adds
    EXPECT_EQ(FindEffect("nosuch"), nullptr);
    EXPECT_EQ(FindEffect("18"), nullptr);
}

// The documented properties and defaults of the interface's effects, worked from their
// documentation rather than read from the descriptions: a description that drifts from them
// fails here, where the test above would follow it.
TEST(CatalogueTest, DescriptionsCarryTheDocumentedDefaults) {
    // clang-format off
    const std::pair<unsigned, std::string> documented[] = {
        {3, "brightness=0 contrast=0 saturation=0"}, {4, "mirror=0 vertical=0"},
        {6, "blur_count=1"}, {7, "sharpen_count=1"}, {8, ""}, {9, ""}, {10, ""}, {11, ""},
        {12, "emboss_level=5"},
        {13, "mosaic_x1=0 mosaic_y1=0 mosaic_x2=0 mosaic_y2=0 mosaic_step=3"},
        {14, "mirage_width=10 mirage_alpha=10"}, {15, "transparency_scale=0"},
        {16, "filter_scope=0 filter_color=0"}, {17, "addnoise_level=2"}, {19, "rotate90_angle=0"}};
    // clang-format on
    for (const auto& [id, properties] : documented) {
        const EffectDescription* effect = FindEffect(std::to_string(id));
        ASSERT_NE(effect, nullptr) << id;
        std::string described;
        for (unsigned i = 0; i < effect->propertyCount; ++i) {
            described += std::string(i > 0 ? " " : "") + effect->properties[i].name + "=" +
                         effect->properties[i].defaultText;
        }
        EXPECT_EQ(described, properties) << effect->name;
    }
    // Hosts read the descriptions through the library too; a null count is refused and reported.
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
