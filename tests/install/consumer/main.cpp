// Uses an installed libfilter as a host would: makes the invert effect by id, runs it on a small
// BGRA frame and checks the bytes. Given the path of an installed frei0r plug-in, it also loads
// the plug-in and checks its name. Prints "ok" and exits 0 when all holds.
#include <dlfcn.h>

#include <cstdio>
#include <cstring>

#if __has_include(<frei0r.h>)
extern "C" {
#include <frei0r.h>
}
#endif

#include "libfilter/CVideoFrame.h"
#include "libfilter/libfilter.h"

namespace {

bool Fail(const char* what) {
    std::fprintf(stderr, "consumer: %s\n", what);
    return false;
}

bool InvertWorks() {
    MediaCore::GVideoProcessor* invert =
        libfilter_GetFilter(nullptr, MediaCore::AVPROCESSOR_INVERT);
    if (invert == nullptr) return Fail("the library made no invert effect");
    unsigned char pixels[4 * 4 * 2];  // 4 x 2 BGRA pixels
    for (unsigned i = 0; i < sizeof pixels; ++i)
        pixels[i] = static_cast<unsigned char>(i * 7);
    MediaCore::CVideoFrame frame(false, MediaCore::PIXFMT_BGRA32, 4, 2, true);
    unsigned char* data = pixels;
    int pitch = 16;
    frame.SetBuffer(&data, &pitch, nullptr);
    MediaCore::ImagePostion position{};
    invert->ProcFrameInPlace(&position, 0, &frame);
    invert->Free();
    // Colour bytes become 255 minus themselves; alpha stays.
    if (pixels[5] != 255 - 35 || pixels[7] != 49) return Fail("invert changed the wrong bytes");
    return true;
}

bool PluginLoads(const char* path) {
#if __has_include(<frei0r.h>)
    void* plugin = dlopen(path, RTLD_NOW | RTLD_LOCAL);
    if (plugin == nullptr) return Fail(dlerror());
    auto init = reinterpret_cast<decltype(&f0r_init)>(dlsym(plugin, "f0r_init"));
    auto getInfo =
        reinterpret_cast<decltype(&f0r_get_plugin_info)>(dlsym(plugin, "f0r_get_plugin_info"));
    f0r_plugin_info_t info{};
    if (init != nullptr && getInfo != nullptr && init() == 1) getInfo(&info);
    const bool named = info.name != nullptr && std::strcmp(info.name, "libfilter_invert") == 0;
    dlclose(plugin);
    return named || Fail("the plug-in does not call itself libfilter_invert");
#else
    return path != nullptr;
#endif
}

}  // namespace

int main(int argc, char** argv) {
    if (!InvertWorks()) return 1;
    if (argc > 1 && !PluginLoads(argv[1])) return 1;
    std::puts("ok");
    return 0;
}
