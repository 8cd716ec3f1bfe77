// The frei0r plug-ins as hosts see them: loaded here through dlopen, and run by ffmpeg's frei0r
// filter; every result is compared byte for byte with the library's own.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <memory>
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

// One plug-in loaded as a host loads it, and its entry points by name.
using Plugin = std::unique_ptr<void, int (*)(void*)>;
Plugin Load(const EffectDescription& entry) {
    const fs::path path = fs::path(LF_FREI0R_DIR) / (PluginName(entry) + ".so");
    return Plugin(dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL), dlclose);
}
#define ENTRY(plugin, name) reinterpret_cast<decltype(&name)>(dlsym((plugin).get(), #name))

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
    for (size_t i = 0; i < frames.size(); ++i) {
        unsigned char* data = reinterpret_cast<unsigned char*>(frames[i].data());
        int pitch = kWidth * 4;
        view.SetBuffer(&data, &pitch, nullptr);
        view.SetTimeStamp(static_cast<int>(i));
        MediaCore::ImagePostion position{};
        effect->ProcFrameInPlace(&position, static_cast<int>(i), &view);
    }
    return frames;
}

}  // namespace

// Every effect built, and no other, has a plug-in that describes itself and its parameters, keeps
// the values it is given, runs like the library in place and out of place, and shrugs off a
// host's slips.
TEST(Frei0rTest, EveryEffectBuiltHasAPluginThatDescribesItselfAndRunsLikeTheLibrary) {
    std::set<std::string> expected, built;
    for (const auto& file : fs::directory_iterator(LF_FREI0R_DIR))
        built.insert(file.path().filename());
    const int types[] = {F0R_PARAM_DOUBLE, F0R_PARAM_DOUBLE, F0R_PARAM_BOOL, F0R_PARAM_COLOR};
    for (const EffectDescription* entry : Effects()) {
        if (BuildGap(*entry) != nullptr) continue;  // not in this build
        expected.insert(PluginName(*entry) + ".so");
        SCOPED_TRACE(entry->name);
        Plugin plugin = Load(*entry);
        ASSERT_TRUE(plugin) << dlerror();
        EXPECT_EQ(ENTRY(plugin, f0r_init)(), 1);
        f0r_plugin_info_t info{};
        ENTRY(plugin, f0r_get_plugin_info)(&info);
        EXPECT_EQ(std::make_tuple(std::string(info.name), std::string(info.author),
                                  info.plugin_type, info.color_model, info.frei0r_version,
                                  info.major_version, info.minor_version),
                  std::make_tuple(PluginName(*entry), std::string("libfilter"),
                                  F0R_PLUGIN_TYPE_FILTER, F0R_COLOR_MODEL_BGRA8888,
                                  FREI0R_MAJOR_VERSION, LF_VERSION_MAJOR, LF_VERSION_MINOR));
        EXPECT_STREQ(info.explanation, entry->summary);
        ASSERT_EQ(info.num_params, static_cast<int>(entry->propertyCount));
        for (int i = 0; i < info.num_params; ++i) {
            const PropertyDescription& spec = entry->properties[i];
            f0r_param_info_t param{};
            ENTRY(plugin, f0r_get_param_info)(&param, i);
            EXPECT_STREQ(param.name, spec.name);
            EXPECT_EQ(param.type, types[static_cast<int>(spec.kind)]) << spec.name;
            EXPECT_STREQ(param.explanation, spec.explanation);
        }
        // Only the frei0r entry points are visible to the host: not catalogue::Effects().
        EXPECT_EQ(dlsym(plugin.get(), "_ZN9catalogue7EffectsEv"), nullptr);

        auto* construct = ENTRY(plugin, f0r_construct);
        auto* set = ENTRY(plugin, f0r_set_param_value);
        auto* get = ENTRY(plugin, f0r_get_param_value);
        auto* update = ENTRY(plugin, f0r_update);
        EXPECT_EQ(construct(0, kHeight), nullptr);
        std::vector<Setting> settings = SettingsFor(*entry);
        for (bool inPlace : {false, true}) {
            f0r_instance_t instance = construct(kWidth, kHeight);
            ASSERT_NE(instance, nullptr);
            for (int i = 0; i < static_cast<int>(settings.size()); ++i) {
                const bool color = entry->properties[i].kind == PropertyKind::Color;
                Setting back = settings[i];
                set(instance, color ? static_cast<void*>(&settings[i].color) : &settings[i].number,
                    i);
                get(instance, color ? static_cast<void*>(&back.color) : &back.number, i);
                EXPECT_EQ(back.number, settings[i].number) << entry->properties[i].name;
                EXPECT_EQ(std::memcmp(&back.color, &settings[i].color, sizeof back.color), 0);
            }
            std::mt19937 random(entry->id);
            Frame input(size_t{kWidth} * kHeight);
            for (uint32_t& pixel : input)
                pixel = static_cast<uint32_t>(random());
            Frame output = inPlace ? input : Frame(input.size());
            update(instance, 0.0, inPlace ? output.data() : input.data(), output.data());
            EXPECT_TRUE(entry->id == MediaCore::AVPROCESSOR_ADD_NOISE ||
                        output == LibraryResult(*entry, settings, {input})[0])
                << inPlace;
            // A host's slips change nothing: no instance, no value, no such parameter.
            double untouched = -1.0;
            for (int index : {-1, static_cast<int>(settings.size())}) {
                set(instance, &untouched, index);
                get(instance, &untouched, index);
            }
            EXPECT_EQ(untouched, -1.0);
            set(nullptr, &untouched, 0);
            set(instance, nullptr, 0);
            get(instance, nullptr, 0);
            update(nullptr, 0.0, input.data(), output.data());
            update(instance, 0.0, input.data(), nullptr);
            ENTRY(plugin, f0r_destruct)(instance);
        }
    }
    EXPECT_EQ(built, expected);
}

namespace {

// Three frames of ffmpeg's test pattern in BGRA through `filters`: BGRA from end to end, so that
// no conversion stands between the plug-in and the comparison.
std::vector<Frame> Ffmpeg(const std::string& filters) {
    std::string command = "FREI0R_PATH='" LF_FREI0R_DIR "' ";
    // ffmpeg is not instrumented: plug-ins built with the sanitizers need their runtime first.
    if (const std::string runtime = LF_SANITIZER_RUNTIME; !runtime.empty())
        command += "LD_PRELOAD='" + runtime + "' ASAN_OPTIONS=detect_leaks=0 ";
    command += "ffmpeg -hide_banner -loglevel error -nostdin -f lavfi -i testsrc=size=" +
               std::to_string(kWidth) + "x" + std::to_string(kHeight) +
               ":rate=10 -frames:v 3 -vf 'format=bgra" + filters + "' -f rawvideo -pix_fmt bgra -";
    FILE* pipe = popen(command.c_str(), "r");
    std::vector<Frame> frames;
    Frame frame(size_t{kWidth} * kHeight);
    while (pipe != nullptr && std::fread(frame.data(), 4, frame.size(), pipe) == frame.size())
        frames.push_back(frame);
    EXPECT_TRUE(pipe != nullptr && pclose(pipe) == 0) << command;
    EXPECT_EQ(frames.size(), 3u) << command;
    return frames;
}

}  // namespace

// Every effect whose result repeats, with a value for each parameter it has, in ffmpeg's filter.
TEST(FfmpegTest, EveryEffectRunsInFfmpegWithItsParametersLikeTheLibrary) {
    if (std::system("ffmpeg -hide_banner -filters 2>/dev/null | grep -q ' frei0r '") != 0)
        GTEST_SKIP() << "ffmpeg with its frei0r filter is not installed";
    if (const std::string runtime = LF_SANITIZER_RUNTIME; !runtime.empty() && !fs::exists(runtime))
        GTEST_SKIP() << "no sanitizer runtime that ffmpeg could load before the plug-ins";
    const std::vector<Frame> pattern = Ffmpeg("");
    for (const EffectDescription* entry : Effects()) {
        // Not in this build, or not repeatable.
        if (BuildGap(*entry) != nullptr || entry->id == MediaCore::AVPROCESSOR_ADD_NOISE) continue;
        const std::vector<Setting> settings = SettingsFor(*entry);
        std::string filter = ",frei0r=filter_name=" + PluginName(*entry);
        for (size_t i = 0; i < settings.size(); ++i)
            filter += (i == 0 ? ":filter_params=" : "|") + settings[i].ffmpeg;
        SCOPED_TRACE(filter);
        EXPECT_TRUE(Ffmpeg(filter) == LibraryResult(*entry, settings, pattern));
    }
}
