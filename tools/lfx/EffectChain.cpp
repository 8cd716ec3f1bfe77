#include "EffectChain.h"

#include <cctype>
#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <optional>

extern "C" {
#include <libavutil/frame.h>
}

#include "Errors.h"
#include "Layout.h"
#include "Signals.h"
#include "catalogue/ReportSink.h"
#include "libfilter/CVideoFrame.h"

namespace lfx {

namespace {

std::string Quoted(const std::string& text) {
    return "'" + text + "'";
}

// The whole text as a number: no blanks, no trailing junk, nothing the library would quietly
// read as 0 or cut short ("12abc" would be 12 to it).
std::optional<double> WholeNumber(const std::string& text, bool integer) {
    if (text.empty() || std::isspace(static_cast<unsigned char>(text.front()))) return {};
    char* end = nullptr;
    errno = 0;
    const double value = integer ? static_cast<double>(std::strtoll(text.c_str(), &end, 10))
                                 : std::strtod(text.c_str(), &end);
    if (*end != '\0' || errno != 0 || !std::isfinite(value)) return {};
    return value;
}

// A colour as 0xRRGGBB, #RRGGBB or a decimal number, answered as the decimal the effect reads.
std::optional<std::string> ColourText(const std::string& text) {
    std::string digits = text;
    int base = 10;
    if (text.size() == 8 && (text.compare(0, 2, "0x") == 0 || text.compare(0, 2, "0X") == 0)) {
        digits = text.substr(2);
        base = 16;
    } else if (text.size() == 7 && text[0] == '#') {
        digits = text.substr(1);
        base = 16;
    }
    if (digits.empty() || !std::isxdigit(static_cast<unsigned char>(digits[0]))) return {};
    char* end = nullptr;
    errno = 0;
    const unsigned long value = std::strtoul(digits.c_str(), &end, base);
    if (*end != '\0' || errno != 0 || value > 0xFFFFFF) return {};
    return std::to_string(value);
}

// What a property takes, in words: "an integer in 0..10", "0 or 1".
std::string Describe(const PropertyDescription& property) {
    switch (property.kind) {
        case PropertyKind::Flag:
            return "0 or 1";
        case PropertyKind::Color:
            return "a colour as 0xRRGGBB, #RRGGBB or a decimal number";
        case PropertyKind::Integer:
            return "an integer in " + catalogue::RangeText(property);
        default:
            return "a number in " + catalogue::RangeText(property);
    }
}

// The text the effect is given for `value`; throws a UserError naming what the property takes.
std::string CheckProperty(const AvailableEffect& effect, const std::string& name,
                          const std::string& value) {
    const std::string where = "effect " + Quoted(effect.entry->name) + ": property " + Quoted(name);
    if (name == kDurationProperty) {
        if (!WholeNumber(value, true)) FailUsage(where + " takes an integer, not " + Quoted(value));
        return value;
    }
    const PropertyDescription* property = effect.FindProperty(name);
    if (property == nullptr) {
        const std::string names = effect.PropertyNames();
        FailUsage("effect " + Quoted(effect.entry->name) + " has no property " + Quoted(name) +
                  (names.empty() ? " (it has none)" : " (its properties: " + names + ")"));
    }
    const std::string takes = where + " takes " + Describe(*property) + ", not " + Quoted(value);
    if (property->kind == PropertyKind::Color) {
        std::optional<std::string> colour = ColourText(value);
        if (!colour) FailUsage(takes);
        return *colour;
    }
    // Any other value of a flag would mean off, which is more likely a slip than a wish.
    if (property->kind == PropertyKind::Flag) {
        if (value != "0" && value != "1") FailUsage(takes);
        return value;
    }
    const std::optional<double> number =
        WholeNumber(value, property->kind == PropertyKind::Integer);
    // A bound from the frame's size is checked once the input's size is known.
    const bool fixedTop = property->upper == catalogue::RangeBound::Fixed;
    if (!number || *number < property->min || (fixedTop && *number > property->max))
        FailUsage(takes);
    return value;
}

}  // namespace

std::vector<ChainStep> ResolveChain(const std::vector<EffectRequest>& requests) {
    std::vector<ChainStep> steps;
    for (const EffectRequest& request : requests) {
        const AvailableEffect& effect = FindEffect(request.name);
        PropertyList properties;
        for (const auto& [name, value] : request.properties)
            properties.emplace_back(name, CheckProperty(effect, name, value));
        steps.push_back({&effect, std::move(properties)});
    }
    return steps;
}

void CheckFrameBounds(const std::vector<ChainStep>& steps, unsigned width, unsigned height) {
    for (const ChainStep& step : steps) {
        // The quarter turn scales the turned picture to fit, which leaves nothing of a line.
        if (step.effect->entry->id == MediaCore::AVPROCESSOR_ROTATE90 &&
            (width < 2 || height < 2)) {
            FailUsage(
                "effect 'rotate90' turns pictures at least 2 pixels wide and high; this "
                "input is " +
                std::to_string(width) + "x" + std::to_string(height));
        }
        for (const auto& [name, value] : step.properties) {
            const PropertyDescription* property = step.effect->FindProperty(name);
            if (property == nullptr || property->upper == catalogue::RangeBound::Fixed) continue;
            const double top = catalogue::UpperBound(*property, width, height);
            if (std::strtod(value.c_str(), nullptr) > top) {
                FailUsage("effect " + Quoted(step.effect->entry->name) + ": property " +
                          Quoted(name) + " takes " + catalogue::RangeText(*property) + " (0.." +
                          std::to_string(static_cast<long>(top)) + " for this " +
                          std::to_string(width) + "x" + std::to_string(height) + " input), not " +
                          Quoted(value));
            }
        }
    }
}

EffectChain::EffectChain(const std::vector<ChainStep>& steps) {
    for (const ChainStep& step : steps) {
        EffectPtr processor = CreateEffect(*step.effect);
        for (const auto& [name, value] : step.properties) {
            catalogue::ReportSink::TakeReport();
            if (!processor->SetProperty(name.c_str(), value.c_str())) {
                Fail("effect " + Quoted(step.effect->entry->name) + " refused " + name + "=" +
                     value + ": " +
                     catalogue::ReportSink::TakeReport().value_or("no reason given"));
            }
        }
        effects_.push_back({step.effect, std::move(processor)});
    }
}

void EffectChain::Apply(AVFrame& frame, int index) {
    if (effects_.empty()) return;
    const Layout layout = frame.format == AV_PIX_FMT_BGRA ? Layout::Bgra : Layout::Yuv420p;
    MediaCore::CVideoFrame view(false, LibraryFormat(layout), static_cast<unsigned>(frame.width),
                                static_cast<unsigned>(frame.height), true);
    view.SetBuffer(frame.data, frame.linesize, nullptr);
    view.SetTimeStamp(index);
    MediaCore::ImagePostion position{};
    catalogue::ReportSink::TakeReport();
    for (const Instance& effect : effects_) {
        CheckStop();  // a long chain on a big frame stops between effects
        effect.processor->ProcFrameInPlace(&position, index, &view);
        if (auto report = catalogue::ReportSink::TakeReport()) {
            Fail("effect " + Quoted(effect.effect->entry->name) + " failed on frame " +
                 std::to_string(index) + ": " + *report);
        }
    }
}

}  // namespace lfx
