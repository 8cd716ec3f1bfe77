#include "catalogue/Catalogue.h"

#include <cstdio>
#include <cstdlib>

#include "libfilter/libfilter.h"

// The classes a host constructs itself join the catalogue as soon as the library declares them.
#if __has_include("libfilter/DirectEffects.h")
#include "libfilter/DirectEffects.h"
#define LF_DIRECT(Class) Construct<MediaCore::Class>
#else
#define LF_DIRECT(Class) nullptr
#endif

#ifdef LF_HAVE_CONVERT
#include "libfilter/Convert.h"
#endif

namespace catalogue {

namespace {

using namespace MediaCore;

// Effects the factory builds by id.
GVideoProcessor* FromFactory(unsigned id, GController* controller) {
    return libfilter_GetFilter(controller, id);
}

// Effects a host constructs itself; the library's constructors may throw, which counts as a
// refusal.
template <class Effect>
[[maybe_unused]] GVideoProcessor* Construct(unsigned, GController*) {
    try {
        return new Effect();
    } catch (...) {
        return nullptr;
    }
}

// Rows of the table. The build reads each row's kind, id and name from this file to decide which
// frei0r plug-ins to make, so every row starts `Kind(id, "name",`.
CatalogueEntry Factory(unsigned id, const char* name, const char* description,
                       std::vector<PropertySpec> properties = {},
                       ShowcaseProperties showcase = nullptr) {
    return {id, name, description, FromFactory, false, showcase, std::move(properties)};
}
CatalogueEntry FactoryWithConverter(unsigned id, const char* name, const char* description,
                                    std::vector<PropertySpec> properties,
                                    ShowcaseProperties showcase = nullptr) {
    return {id, name, description, FromFactory, true, showcase, std::move(properties)};
}
CatalogueEntry Direct(unsigned id, const char* name, EffectCreator create, const char* description,
                      std::vector<PropertySpec> properties, ShowcaseProperties showcase = nullptr) {
    return {id, name, description, create, false, showcase, std::move(properties)};
}

PropertySpec Number(const char* name, double min, double max, const char* explanation) {
    return {name, PropertyKind::Number, min, max, Bound::Fixed, explanation};
}
PropertySpec Pixels(const char* name, Bound upper, const char* explanation) {
    return {name, PropertyKind::Number, 0, 0, upper, explanation};
}
PropertySpec Flag(const char* name, const char* explanation) {
    return {name, PropertyKind::Flag, 0, 1, Bound::Fixed, explanation};
}
PropertySpec Color(const char* name, const char* explanation) {
    return {name, PropertyKind::Color, 0, 0xFFFFFF, Bound::Fixed, explanation};
}

PropertyList BrightnessShowcase(int, int) {
    return {{"brightness", "20"}, {"contrast", "40"}, {"saturation", "60"}};
}
PropertyList MirrorShowcase(int, int) {
    return {{"mirror", "1"}};
}
PropertyList AnaglyphShowcase(int, int) {
    return {{"type", "1"}};
}
PropertyList BlurShowcase(int, int) {
    return {{"blur_count", "4"}};
}
PropertyList MosaicShowcase(int width, int height) {
    return {{"mosaic_x1", std::to_string(width / 4)},
            {"mosaic_y1", std::to_string(height / 4)},
            {"mosaic_x2", std::to_string(width * 3 / 4)},
            {"mosaic_y2", std::to_string(height * 3 / 4)}};
}
PropertyList TransparencyShowcase(int, int) {
    return {{"transparency_scale", "40"}};
}
PropertyList ColorKeyShowcase(int, int) {
    return {{"filter_color", "16777215"}, {"filter_scope", "48"}};
}

// Every effect id; adding an effect is one row here. Factory rows ask libfilter_GetFilter for
// their id; Direct rows construct LF_DIRECT(Class), which stays null until the library declares
// the class.
const std::vector<CatalogueEntry> kCatalogue = {
    Factory(3, "brightness-contrast", "brightness, contrast and saturation, each -100 to 100",
            {Number("brightness", -100, 100, "lightens (up) or darkens (down) every colour"),
             Number("contrast", -100, 100, "-100 flattens to gray, 100 doubles the contrast"),
             Number("saturation", -100, 100,
                    "colour strength: -100 gray, -50 and 0 unchanged, 100 four times as strong")},
            BrightnessShowcase),
    Factory(4, "mirror", "reverses the columns (mirror=1), the rows (vertical=1) or both",
            {Flag("mirror", "reverse the columns (left and right)"),
             Flag("vertical", "reverse the rows (top and bottom)")},
            MirrorShowcase),
    FactoryWithConverter(
        5, "2d-to-3d",
        "stereo pair from one view: type 1 red-blue, 2 green-magenta, 3 side by side, 4 top-bottom",
        {Number("depth", 0, 100, "disparity between the views in pixels, in steps of 10"),
         Number("type", 0, 4,
                "1 red-blue, 2 green-magenta, 3 side by side, 4 top-bottom (0 draws nothing)"),
         Flag("swap", "exchange the left and right views")},
        AnaglyphShowcase),
    Factory(6, "blur", "3x3 Gaussian blur, blur_count passes",
            {Number("blur_count", 0, 10, "how many times the 3x3 blur runs")}, BlurShowcase),
    Factory(7, "sharpen", "3x3 Laplacian sharpen, sharpen_count passes",
            {Number("sharpen_count", 0, 10, "how many times the 3x3 sharpen runs")}),
    Factory(8, "gray", "removes the colour"),
    Factory(9, "flip-color", "swaps red and blue (the two chroma planes in YUV)"),
    Factory(10, "invert", "negative: every colour sample becomes 255 minus itself"),
    Factory(11, "aged-film", "sepia tone of an old film"),
    Factory(12, "emboss",
            "relief from each row's difference to the one above, strength emboss_level",
            {Number("emboss_level", 0, 20, "how strongly differences lift off mid-gray")}),
    Factory(13, "mosaic", "blocks of 2^mosaic_step pixels over the rectangle mosaic_x1,y1 to x2,y2",
            {Pixels("mosaic_x1", Bound::FrameWidth, "left or right edge of the rectangle"),
             Pixels("mosaic_y1", Bound::FrameHeight, "top or bottom edge of the rectangle"),
             Pixels("mosaic_x2", Bound::FrameWidth, "the other of the left and right edges"),
             Pixels("mosaic_y2", Bound::FrameHeight, "the other of the top and bottom edges"),
             Number("mosaic_step", 0, 8, "blocks are 2 to this power pixels wide (3: 8 pixels)")},
            MosaicShowcase),
    Direct(14, "mirage", LF_DIRECT(CMirageVideoImageEffect),
           "blends a magnified ghost over the picture (mirage_width, mirage_alpha)",
           {Number("mirage_width", 0, 200, "the ghost is (200 + this) / 200 times as large"),
            Number("mirage_alpha", 0, 100, "weight of the ghost in percent")}),
    Direct(15, "transparency", LF_DIRECT(CTransparencyAjustEffect),
           "scales the alpha to transparency_scale percent (0 leaves it)",
           {Number("transparency_scale", 0, 100, "alpha scale in percent; 0 leaves the frame")},
           TransparencyShowcase),
    Direct(16, "color-filter", LF_DIRECT(CColorFilterEffect),
           "colour key: clears the alpha near filter_color (0xRRGGBB) within filter_scope",
           {Number("filter_scope", 0, 255, "tolerance around the key colour"),
            Color("filter_color", "key colour whose neighbourhood becomes transparent")},
           ColorKeyShowcase),
    Direct(17, "add-noise", LF_DIRECT(CAddNoiseVideoImageEffect),
           "static grain, stronger with a higher addnoise_level",
           {Number("addnoise_level", 0, 8, "grain strength")}),
    FactoryWithConverter(19, "rotate90",
                         "quarter turn (rotate90_angle 90 or 270), scaled to fit the frame",
                         {Number("rotate90_angle", 0, 360,
                                 "90 or 270 picks the turn; other angles keep the last one")}),
};

std::string Decimal(double value) {
    char text[32];
    std::snprintf(text, sizeof text, "%g", value);
    return text;
}

}  // namespace

double PropertySpec::Max(unsigned width, unsigned height) const {
    switch (upper) {
        case Bound::FrameWidth:
            return width;
        case Bound::FrameHeight:
            return height;
        default:
            return max;
    }
}

std::string PropertySpec::RangeText() const {
    switch (kind) {
        case PropertyKind::Number:
            if (upper == Bound::FrameWidth) return Decimal(min) + "..frame width";
            if (upper == Bound::FrameHeight) return Decimal(min) + "..frame height";
            return Decimal(min) + ".." + Decimal(max);
        case PropertyKind::Flag:
            return "0 or 1";
        case PropertyKind::Color:
            return "0xRRGGBB";
        default:
            return "";
    }
}

const PropertySpec* CatalogueEntry::FindProperty(const std::string& propertyName) const {
    for (const PropertySpec& property : properties) {
        if (propertyName == property.name) return &property;
    }
    return nullptr;
}

const std::vector<CatalogueEntry>& Catalogue() {
    return kCatalogue;
}

const CatalogueEntry* FindEntry(const std::string& nameOrId) {
    char* end = nullptr;
    const unsigned long id = std::strtoul(nameOrId.c_str(), &end, 10);
    const bool byId = !nameOrId.empty() && *end == '\0';
    for (const CatalogueEntry& entry : kCatalogue) {
        if (byId ? entry.id == id : nameOrId == entry.name) return &entry;
    }
    return nullptr;
}

GController* SharedController() {
#ifdef LF_HAVE_CONVERT
    static const std::unique_ptr<GController, void (*)(GController*)> controller(
        libconvert_CreateController(), libconvert_DestroyController);
    return controller.get();
#else
    return nullptr;
#endif
}

const char* BuildGap(const CatalogueEntry& entry) {
    if (entry.create == nullptr) return "this build's library does not have it";
    if (entry.needsConverter && SharedController() == nullptr) {
        return "it needs frame converters, which this build lacks";
    }
    return nullptr;
}

EffectPtr Create(const CatalogueEntry& entry) {
    if (BuildGap(entry) != nullptr) return nullptr;
    return EffectPtr(entry.create(entry.id, SharedController()));
}

}  // namespace catalogue
