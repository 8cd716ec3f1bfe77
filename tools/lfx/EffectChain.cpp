#include "EffectChain.h"

#include <cctype>
#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <optional>

extern "C" {
#include <libavutil/frame.h>
#include <libavutil/pixdesc.h>
}

#include "Errors.h"
#include "Layout.h"
#include "Signals.h"
#include "catalogue/ReportSink.h"
#include "libfilter/CVideoFrame.h"
#include "libfilter/libfilter.h"

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

namespace {

// The library's frame over an AVFrame's planes (BGRA or YUV420P). Held in place: a copy of
// a CVideoFrame is a deep one.
struct FrameView {
    FrameView(AVFrame& frame, int index)
        : view(false,
               LibraryFormat(frame.format == AV_PIX_FMT_BGRA ? Layout::Bgra : Layout::Yuv420p),
               static_cast<unsigned>(frame.width), static_cast<unsigned>(frame.height), true) {
        view.SetBuffer(frame.data, frame.linesize, nullptr);
        view.SetTimeStamp(index);
    }
    MediaCore::CVideoFrame view;
};

// A frame of `in`'s format and size with memory of its own laid out with `in`'s pitches, its
// pixels left for an effect to write; null when `in`'s pitches cannot be kept.
FramePtr SameLayout(const AVFrame& in) {
    const AVPixFmtDescriptor* format = av_pix_fmt_desc_get(static_cast<AVPixelFormat>(in.format));
    FramePtr out = MakeFrame();
    out->format = in.format;
    out->width = in.width;
    out->height = in.height;
    for (int i = 0; i < AV_NUM_DATA_POINTERS && in.data[i] != nullptr; ++i) {
        if (in.linesize[i] <= 0 || format == nullptr) return nullptr;
        const int rows =
            i == 1 || i == 2 ? AV_CEIL_RSHIFT(in.height, format->log2_chroma_h) : in.height;
        out->buf[i] = av_buffer_alloc(static_cast<size_t>(in.linesize[i]) * rows);
        if (out->buf[i] == nullptr) throw std::bad_alloc();
        out->data[i] = out->buf[i]->data;
        out->linesize[i] = in.linesize[i];
    }
    if (av_frame_copy_props(out.get(), &in) < 0) throw std::bad_alloc();
    return out;
}

}  // namespace

void EffectChain::Apply(FramePtr& frame, int index) {
    if (effects_.empty()) return;
    MediaCore::ImagePostion position{};
    catalogue::ReportSink::TakeReport();
    auto step = [&](const Instance& effect, auto run) {
        CheckStop();  // a long chain on a big frame stops between effects
        run();
        if (auto report = catalogue::ReportSink::TakeReport()) {
            Fail("effect " + Quoted(effect.effect->entry->name) + " failed on frame " +
                 std::to_string(index) + ": " + *report);
        }
    };
    size_t first = 0;
    if (!av_frame_is_writable(frame.get())) {
        // The decoder still holds this frame: the first effect reads it and writes a frame of
        // our own, in one walk over memory, instead of a copy followed by its own pass.
        FramePtr out = SameLayout(*frame);
        if (out == nullptr) {
            if (av_frame_make_writable(frame.get()) < 0) throw std::bad_alloc();
        } else {
            FrameView source(*frame, index), target(*out, index);
            step(effects_[0], [&] {
                libfilter_ProcFrameInto(effects_[0].processor.get(), &position, index, &source.view,
                                        &target.view);
            });
            frame = std::move(out);
            first = 1;
        }
    }
    FrameView view(*frame, index);
    for (size_t i = first; i < effects_.size(); ++i)
        step(effects_[i],
             [&] { effects_[i].processor->ProcFrameInPlace(&position, index, &view.view); });
}

}  // namespace lfx
