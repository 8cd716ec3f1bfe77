// One effect as a frei0r filter: the plug-in and parameter descriptions, and instances
// that run the effect on the host's BGRA frames. Plugin.cpp binds it to one effect.
#pragma once

#include <cstdint>
#include <exception>
#include <memory>
#include <string>

extern "C" {
#include <frei0r.h>
}

#include "catalogue/Catalogue.h"
#include "libfilter/CVideoFrame.h"

namespace frei0r_adapter {

void GetPluginInfo(const catalogue::EffectDescription& entry, const char* pluginName,
                   f0r_plugin_info_t* info);
void GetParamInfo(const catalogue::EffectDescription& entry, f0r_param_info_t* info, int index);

// One effect instance for frames of a fixed size. Parameters are the effect's described
// properties in their order: numbers as doubles with 0..1 spanning the property's range, flags as
// bools, colours as colours.
class Filter {
public:
    // Null when the size cannot make a frame or the library refuses the effect.
    static std::unique_ptr<Filter> Create(const catalogue::EffectDescription& entry, unsigned width,
                                          unsigned height);

    void SetParam(f0r_param_t value, int index);
    void GetParam(f0r_param_t value, int index);
    // Copies `in` into `out` (unless they are the same frame) and runs the effect on `out`.
    void Update(const uint32_t* in, uint32_t* out);

private:
    Filter(const catalogue::EffectDescription& entry, catalogue::EffectPtr effect, unsigned width,
           unsigned height);
    const catalogue::PropertyDescription* Spec(int index) const;

    const catalogue::EffectDescription& entry_;
    catalogue::EffectPtr effect_;
    MediaCore::CVideoFrame frame_;
    MediaCore::CVideoFrame input_;  // over the host's input picture, when it is another
    unsigned width_;
    unsigned height_;
    int count_ = 0;
};

// Hands a failure that no effect reported to the engine's error sink, as the library does.
void ReportFailure(const char* what);

// Runs `call` so that nothing it throws reaches the host.
template <class Call>
void Guarded(Call call) noexcept {
    try {
        call();
    } catch (const std::exception& error) {
        ReportFailure(error.what());
    } catch (...) {
        ReportFailure("catch unknown all exception");
    }
}

}  // namespace frei0r_adapter
