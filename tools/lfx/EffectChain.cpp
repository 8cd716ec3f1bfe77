#include "EffectChain.h"

#include <cerrno>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <limits>

extern "C" {
#include <libavutil/frame.h>
}

#include "Errors.h"
#include "Layout.h"
#include "QuietSink.h"
#include "libfilter/CVideoFrame.h"

namespace lfx {

namespace {

// Whether `text` is a whole number the effect's type tag can hold. The library itself would
// read "12abc" as 12 and "abc" as 0 without complaint.
bool ParsesAs(int type, const std::string& text) {
    if (text.empty()) return false;
    char* end = nullptr;
    errno = 0;
    if (type == 1) {
        const double value = std::strtod(text.c_str(), &end);
        return *end == '\0' && errno == 0 && std::isfinite(value);
    }
    if (type < 2 || type > 4) return true;
    const long long value = std::strtoll(text.c_str(), &end, 10);
    if (*end != '\0' || errno != 0) return false;
    if (type == 3) {
        return value >= std::numeric_limits<int32_t>::min() &&
               value <= std::numeric_limits<int32_t>::max();
    }
    if (type == 4) {
        return value >= std::numeric_limits<int16_t>::min() &&
               value <= std::numeric_limits<int16_t>::max();
    }
    return true;
}

std::string Quoted(const std::string& text) {
    return "'" + text + "'";
}

void CheckProperty(const AvailableEffect& effect, const std::string& name,
                   const std::string& value) {
    const std::string effectName = Quoted(effect.entry->name);
    const PropertyInfo* property = effect.FindProperty(name);
    if (property == nullptr && name != kDurationProperty) {
        const std::string names = effect.PropertyNames();
        Fail("effect " + effectName + " has no property " + Quoted(name) +
             (names.empty() ? " (it has none)" : " (its properties: " + names + ")"));
    }
    const int type = property != nullptr ? property->type : 3;
    if (!ParsesAs(type, value)) {
        Fail("effect " + effectName + ": property " + Quoted(name) + " wants " +
             (type == 1 ? "a number" : "an integer") + ", not " + Quoted(value));
    }
    // Any other value of a flag means off, which is more likely a slip than a wish.
    const bool flag = property != nullptr && property->spec != nullptr &&
                      property->spec->kind == catalogue::PropertyKind::Flag;
    if (flag && value != "0" && value != "1") {
        Fail("effect " + effectName + ": property " + Quoted(name) + " is a flag, 0 or 1, not " +
             Quoted(value));
    }
}

}  // namespace

std::vector<ChainStep> ResolveChain(const std::vector<EffectRequest>& requests) {
    std::vector<ChainStep> steps;
    for (const EffectRequest& request : requests) {
        const AvailableEffect& effect = FindEffect(request.name);
        for (const auto& [name, value] : request.properties)
            CheckProperty(effect, name, value);
        steps.push_back({&effect, request.properties});
    }
    return steps;
}

EffectChain::EffectChain(const std::vector<ChainStep>& steps) {
    for (const ChainStep& step : steps) {
        EffectPtr processor = CreateEffect(*step.effect);
        for (const auto& [name, value] : step.properties) {
            QuietSink::TakeReport();
            if (!processor->SetProperty(name.c_str(), value.c_str())) {
                Fail("effect " + Quoted(step.effect->entry->name) + " refused " + name + "=" +
                     value + ": " + QuietSink::TakeReport().value_or("no reason given"));
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
    QuietSink::TakeReport();
    for (const Instance& effect : effects_) {
        effect.processor->ProcFrameInPlace(&position, index, &view);
        if (auto report = QuietSink::TakeReport()) {
            Fail("effect " + Quoted(effect.effect->entry->name) + " failed on frame " +
                 std::to_string(index) + ": " + *report);
        }
    }
}

}  // namespace lfx
