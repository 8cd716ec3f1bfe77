// The frei0r entry points. One plug-in is built, and the build copies it once per effect as
// libfilter_<name>.so; each copy finds its effect from its own file name, so the list of
// plug-ins is the library's list of effects and nothing else.
#include <dlfcn.h>

#include <string>

#include "Frei0rFilter.h"

using frei0r_adapter::Filter;
using frei0r_adapter::Guarded;

namespace {

constexpr char kPrefix[] = "libfilter_";
constexpr char kSuffix[] = ".so";

// "…/libfilter_mosaic.so" names "mosaic"; any other file name names nothing.
std::string EffectNameOf(const std::string& path) {
    const std::string file = path.substr(path.find_last_of('/') + 1);
    const size_t prefix = sizeof kPrefix - 1;
    const size_t suffix = sizeof kSuffix - 1;
    if (file.size() <= prefix + suffix || file.compare(0, prefix, kPrefix) != 0 ||
        file.compare(file.size() - suffix, suffix, kSuffix) != 0) {
        return "";
    }
    return file.substr(prefix, file.size() - prefix - suffix);
}

struct Identity {
    const catalogue::EffectDescription* effect = nullptr;
    std::string pluginName;  // libfilter_<name>, as hosts list it
};

const Identity& Self() {
    static const Identity identity = [] {
        Identity found;
        Dl_info info{};
        if (dladdr(reinterpret_cast<void*>(&f0r_init), &info) == 0 || info.dli_fname == nullptr) {
            return found;
        }
        const std::string name = EffectNameOf(info.dli_fname);
        const catalogue::EffectDescription* effect =
            name.empty() ? nullptr : catalogue::FindEffect(name);
        if (effect != nullptr && catalogue::BuildGap(*effect) == nullptr) {
            found.effect = effect;
            found.pluginName = kPrefix + name;
        }
        return found;
    }();
    return identity;
}

const catalogue::EffectDescription* Effect() {
    return Self().effect;
}

// Runs `call` on the instance's filter, unless the host hands no instance.
template <class Call>
void WithFilter(f0r_instance_t instance, Call call) {
    if (instance != nullptr) Guarded([&] { call(*static_cast<Filter*>(instance)); });
}

}  // namespace

int f0r_init() {
    return Effect() != nullptr ? 1 : 0;
}

void f0r_deinit() {}

void f0r_get_plugin_info(f0r_plugin_info_t* info) {
    if (Effect() != nullptr) {
        frei0r_adapter::GetPluginInfo(*Effect(), Self().pluginName.c_str(), info);
    }
}

void f0r_get_param_info(f0r_param_info_t* info, int index) {
    if (Effect() != nullptr) frei0r_adapter::GetParamInfo(*Effect(), info, index);
}

f0r_instance_t f0r_construct(unsigned width, unsigned height) {
    Filter* filter = nullptr;
    if (Effect() != nullptr) {
        Guarded([&] { filter = Filter::Create(*Effect(), width, height).release(); });
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
