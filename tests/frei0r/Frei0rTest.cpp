// The frei0r plug-ins as hosts see them: loaded here through dlopen, and run by ffmpeg's frei0r
// filter; every result is compared byte for byte with the library's own.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <random>
#include <set>
#include <tuple>

extern "C" {
#include <frei0r.h>
}

#include "catalogue/Catalogue.h"
#include "libfilter/CVideoFrame.h"

namespace fs = std::filesystem;
using namespace catalogue;

namespace {

// Multiples of 16 pixels, so ffmpeg's rows carry no padding, as frei0r frames must not.
constexpr unsigned kWidth = 64, kHeight = 48;
using Frame = std::vector<uint32_t>;

std::string PluginName(const EffectDescription& entry) {
    return "libfilter_" + std::string(entry.name);
}

// A value for each parameter: as frei0r takes it, as ffmpeg's filter_params writes it, and the
// property text the effect should then hold. Numbers are whole values inside the range.
struct Setting {
    double number;
    f0r_param_color_t color;
    std::string ffmpeg, property;
};

std::vector<Setting> SettingsFor(const EffectDescription& entry) {
    static const double kFractions[] = {0.1, 0.2, 0.9, 0.8, 0.3};
    std::vector<Setting> settings;
    for (unsigned i = 0; i < entry.propertyCount; ++i) {
        const PropertyDescription& spec = entry.properties[i];
        const bool on = i % 2 == 0;
        const double span = UpperBound(spec, kWidth, kHeight) - spec.min;
        const double whole = std::round(kFractions[i % 5] * span);
        char text[32];
        std::snprintf(text, sizeof text, "%.17g", whole / span);
        if (spec.kind == PropertyKind::Flag)
            settings.push_back({double(on), {}, on ? "y" : "n", on ? "1" : "0"});
        else if (spec.kind == PropertyKind::Color)
            settings.push_back({0, {1.0f, 128 / 255.0f, 0.0f}, "0xFF8000", "16744448"});
        else
            settings.push_back({whole / span, {}, text, std::to_string(int64_t(spec.min + whole))});
    }
    return settings;
}

// What the library itself makes of `frames`, in order, with these settings.
std::vector<Frame> LibraryResult(const EffectDescription& entry,
                                 const std::vector<Setting>& settings, std::vector<Frame> frames) {
    EffectPtr effect = Create(entry);
    for (size_t i = 0; i < settings.size(); ++i)
        EXPECT_TRUE(effect->SetProperty(entry.properties[i].name, settings[i].property.c_str()));
    MediaCore::CVideoFrame view(false, MediaCore::PIXFMT_BGRA32, kWidth, kHeight, true);
    int pitch = kWidth * 4;
    for (size_t i = 0; i < frames.size(); ++i) {
        auto* data = reinterpret_cast<unsigned char*>(frames[i].data());
        view.SetBuffer(&data, &pitch, nullptr);
        view.SetTimeStamp(static_cast<int>(i));
        MediaCore::ImagePostion position{};
        effect->ProcFrameInPlace(&position, static_cast<int>(i), &view);
    }
    return frames;
}

}  // namespace

// Three frames of ffmpeg's test pattern in BGRA through `filters` (none when ffmpeg or its frei0r
// filter is missing): BGRA from end to end, so that no conversion stands between the plug-in and
// the comparison. ffmpeg is not instrumented: plug-ins built with the sanitizers need their
// runtime loaded first.
std::vector<Frame> Ffmpeg(const std::string& filters) {
    static const bool present =
        std::system("ffmpeg -hide_banner -filters 2>/dev/null | grep -q ' frei0r '") == 0 &&
        (*LF_SANITIZER_RUNTIME == '\0' || fs::exists(LF_SANITIZER_RUNTIME));
    std::vector<Frame> frames;
    if (!present) return frames;
    const std::string
        runtime = LF_SANITIZER_RUNTIME,
        command =
            "FREI0R_PATH='" LF_FREI0R_DIR "' " +
            (runtime.empty() ? "" : "LD_PRELOAD='" + runtime + "' ASAN_OPTIONS=detect_leaks=0 ") +
            "ffmpeg -loglevel error -nostdin -f lavfi -i testsrc=size=64x48:rate=10 -frames:v 3 "
            "-vf 'format=bgra" +
            filters + "' -f rawvideo -pix_fmt bgra -";
    FILE* pipe = popen(command.c_str(), "r");
    Frame frame(size_t{kWidth} * kHeight);
    while (pipe != nullptr && std::fread(frame.data(), 4, frame.size(), pipe) == frame.size())
        frames.push_back(frame);
    EXPECT_TRUE(pipe != nullptr && pclose(pipe) == 0 && frames.size() == 3) << command;
    return frames;
}

#define ENTRY(name) reinterpret_cast<decltype(&name)>(dlsym(plugin.get(), #name))

// Every effect built, and no other, has a plug-in that describes itself and its parameters, keeps
// the values it is given, and runs like the library out of place and then in place; and in
// ffmpeg's filter, where there is one, with a value for each parameter it has.
TEST(Frei0rTest, EveryEffectBuiltHasAPluginThatDescribesItselfAndRunsLikeTheLibrary) {
    std::set<std::string> expected, built;
    for (const auto& file : fs::directory_iterator(LF_FREI0R_DIR))
        built.insert(file.path().filename());
    const int types[] = {F0R_PARAM_DOUBLE, F0R_PARAM_DOUBLE, F0R_PARAM_BOOL, F0R_PARAM_COLOR};
    const std::vector<Frame> pattern = Ffmpeg("");
    for (const EffectDescription* entry : Effects()) {
        if (BuildGap(*entry) != nullptr) continue;  // not in this build
        expected.insert(PluginName(*entry) + ".so");
        SCOPED_TRACE(entry->name);
        const fs::path path = fs::path(LF_FREI0R_DIR) / (PluginName(*entry) + ".so");
        std::unique_ptr<void, int (*)(void*)> plugin(dlopen(path.c_str(), RTLD_NOW), dlclose);
        ASSERT_TRUE(plugin) << dlerror();
        EXPECT_EQ(ENTRY(f0r_init)(), 1);
        f0r_plugin_info_t info{};
        ENTRY(f0r_get_plugin_info)(&info);
        EXPECT_EQ(std::make_tuple(std::string(info.name), std::string(info.author),
                                  info.plugin_type, info.color_model, info.frei0r_version,
                                  info.major_version, info.minor_version),
                  std::make_tuple(PluginName(*entry), std::string("libfilter"),
                                  F0R_PLUGIN_TYPE_FILTER, F0R_COLOR_MODEL_BGRA8888,
                                  FREI0R_MAJOR_VERSION, LF_VERSION_MAJOR, LF_VERSION_MINOR));
        EXPECT_STREQ(info.explanation, entry->summary);
        ASSERT_EQ(info.num_params, static_cast<int>(entry->propertyCount));
        // Only the frei0r entry points are visible to the host: not catalogue::Effects().
        EXPECT_EQ(dlsym(plugin.get(), "_ZN9catalogue7EffectsEv"), nullptr);
        EXPECT_EQ(ENTRY(f0r_construct)(0, kHeight), nullptr);
        f0r_instance_t instance = ENTRY(f0r_construct)(kWidth, kHeight);
        ASSERT_NE(instance, nullptr);
        std::vector<Setting> settings = SettingsFor(*entry);
        std::string filter = ",frei0r=filter_name=" + PluginName(*entry);
        for (int i = 0; i < info.num_params; ++i) {
            const PropertyDescription& spec = entry->properties[i];
            f0r_param_info_t param{};
            ENTRY(f0r_get_param_info)(&param, i);
            EXPECT_EQ(std::make_tuple(std::string(param.name), param.type,
                                      std::string(param.explanation)),
                      std::make_tuple(std::string(spec.name), types[int(spec.kind)],
                                      std::string(spec.explanation)));
            const auto value = [&](Setting& s) {
                return spec.kind == PropertyKind::Color ? static_cast<void*>(&s.color) : &s.number;
            };
            Setting back = settings[i];
            ENTRY(f0r_set_param_value)(instance, value(settings[i]), i);
            ENTRY(f0r_get_param_value)(instance, value(back), i);
            EXPECT_EQ(back.number, settings[i].number) << spec.name;
            EXPECT_EQ(std::memcmp(&back.color, &settings[i].color, sizeof back.color), 0);
            filter += (i == 0 ? ":filter_params=" : "|") + settings[i].ffmpeg;
        }
        std::mt19937 random(entry->id);
        Frame input(size_t{kWidth} * kHeight), output(input.size());
        for (uint32_t& pixel : input)
            pixel = static_cast<uint32_t>(random());
        Frame inPlace = input;
        ENTRY(f0r_update)(instance, 0.0, input.data(), output.data());
        ENTRY(f0r_update)(instance, 0.1, inPlace.data(), inPlace.data());
        ENTRY(f0r_destruct)(instance);
        if (entry->id == MediaCore::AVPROCESSOR_ADD_NOISE) continue;  // not repeatable
        EXPECT_TRUE(LibraryResult(*entry, settings, {input, input}) ==
                    std::vector<Frame>({output, inPlace}));
        if (!pattern.empty())
            EXPECT_TRUE(Ffmpeg(filter) == LibraryResult(*entry, settings, pattern)) << filter;
    }
    EXPECT_EQ(built, expected);
}
