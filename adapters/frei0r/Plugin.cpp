// The frei0r entry points of one plug-in. The build compiles this file once per effect, naming
// the effect's short name in LF_FREI0R_EFFECT; everything else is Frei0rFilter's.
#include "Frei0rFilter.h"

using frei0r_adapter::Filter;
using frei0r_adapter::Guarded;

namespace {

const catalogue::CatalogueEntry* Entry() {
    static const catalogue::CatalogueEntry* entry = catalogue::FindEntry(LF_FREI0R_EFFECT);
    return entry;
}

// Runs `call` on the instance's filter, unless the host hands no instance.
template <class Call>
void WithFilter(f0r_instance_t instance, Call call) {
    if (instance != nullptr) Guarded([&] { call(*static_cast<Filter*>(instance)); });
}

}  // namespace

int f0r_init() {
    return Entry() != nullptr ? 1 : 0;
}

void f0r_deinit() {}

void f0r_get_plugin_info(f0r_plugin_info_t* info) {
    if (Entry() != nullptr) {
        frei0r_adapter::GetPluginInfo(*Entry(), "libfilter_" LF_FREI0R_EFFECT, info);
    }
}

void f0r_get_param_info(f0r_param_info_t* info, int index) {
    if (Entry() != nullptr) frei0r_adapter::GetParamInfo(*Entry(), info, index);
}

f0r_instance_t f0r_construct(unsigned width, unsigned height) {
    Filter* filter = nullptr;
    if (Entry() != nullptr) {
        Guarded([&] { filter = Filter::Create(*Entry(), width, height).release(); });
    }
    return filter;
}

void f0r_destruct(f0r_instance_t instance) {
    delete static_cast<Filter*>(instance);
}

void f0r_set_param_value(f0r_instance_t instance, f0r_param_t value, int index) {
    WithFilter(instance, [&](Filter& filter) { filter.SetParam(value, index); });
}

void f0r_get_param_value(f0r_instance_t instance, f0r_param_t value, int index) {
    WithFilter(instance, [&](Filter& filter) { filter.GetParam(value, index); });
}

void f0r_update(f0r_instance_t instance, double, const uint32_t* in, uint32_t* out) {
    WithFilter(instance, [&](Filter& filter) { filter.Update(in, out); });
}
