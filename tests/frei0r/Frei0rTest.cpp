// The frei0r plug-ins as hosts see them: loaded here through dlopen, and run by ffmpeg's frei0r
// filter; every result is compared byte for byte with the library's own.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/wait.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
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
constexpr unsigned kWidth = 64;
constexpr unsigned kHeight = 48;

using Frame = std::vector<uint32_t>;

fs::path PluginPath(const EffectDescription& entry) {
    return fs::path(LF_FREI0R_DIR) / ("libfilter_" + std::string(entry.name) + ".so");
}

// The effects this build makes, by asking the library.
std::vector<const EffectDescription*> BuiltEffects() {
    std::vector<const EffectDescription*> effects;
    for (const EffectDescription* entry : Effects()) {
        if (Create(*entry)) effects.push_back(entry);
    }
    return effects;
}

bool IsRandom(const EffectDescription& entry) {
    return entry.id == MediaCore::AVPROCESSOR_ADD_NOISE;
}

// One plug-in loaded as a host loads it, and its entry points.
using Plugin = std::unique_ptr<void, int (*)(void*)>;
Plugin Load(const EffectDescription& entry) {
    return Plugin(dlopen(PluginPath(entry).c_str(), RTLD_NOW | RTLD_LOCAL), dlclose);
}
template <class Function>
Function* Get(const Plugin& plugin, const char* name) {
    return reinterpret_cast<Function*>(dlsym(plugin.get(), name));
}

// A value for each parameter: as frei0r takes it, as ffmpeg's filter_params writes it, and the
// property text the effect should then hold. Numbers are whole values inside the range.
struct Setting {
    const PropertyDescription* spec = nullptr;
    double number = 0;
    f0r_param_color_t color{};
    std::string ffmpeg;
    std::string property;

    void* Value() {
        if (spec->kind == PropertyKind::Color) return &color;
        return &number;
    }
};

std::vector<Setting> SettingsFor(const EffectDescription& entry) {
    static const double kFractions[] = {0.1, 0.2, 0.9, 0.8, 0.3};
    std::vector<Setting> settings;
    for (unsigned i = 0; i < entry.propertyCount; ++i) {
        Setting setting;
        setting.spec = &entry.properties[i];
        const PropertyDescription& spec = *setting.spec;
        char text[32];
        switch (spec.kind) {
            case PropertyKind::Integer:
            case PropertyKind::Real: {
                const double span = UpperBound(spec, kWidth, kHeight) - spec.min;
                const double whole = std::round(kFractions[i % 5] * span);
                setting.number = whole / span;
                setting.property = std::to_string(static_cast<long long>(spec.min + whole));
                std::snprintf(text, sizeof text, "%.17g", setting.number);
                setting.ffmpeg = text;
                break;
            }
            case PropertyKind::Flag:
                setting.number = i % 2 == 0;
                setting.property = setting.number ? "1" : "0";
                setting.ffmpeg = setting.number ? "y" : "n";
                break;
            case PropertyKind::Color:
                setting.color = {1.0f, 128 / 255.0f, 0.0f};
                setting.property = std::to_string(0xFF8000);
                setting.ffmpeg = "0xFF8000";
                break;
        }
        settings.push_back(setting);
    }
    return settings;
}

Frame RandomFrame(unsigned seed) {
    std::mt19937 random(seed);
    Frame frame(size_t{kWidth} * kHeight);
    for (uint32_t& pixel : frame)
        pixel = static_cast<uint32_t>(random());
    return frame;
}

// What the library itself makes of `frames`, in order, with these property texts.
std::vector<Frame> LibraryResult(const EffectDescription& entry,
                                 const std::vector<Setting>& settings, std::vector<Frame> frames) {
    EffectPtr effect = Create(entry);
    for (const Setting& setting : settings) {
        EXPECT_TRUE(effect->SetProperty(setting.spec->name, setting.property.c_str()));
    }
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

TEST(Frei0rTest, EveryEffectTheBuildMakesHasAPluginAndNoOtherDoes) {
    std::set<std::string> expected;
    for (const EffectDescription* entry : BuiltEffects())
        expected.insert(PluginPath(*entry).filename());
    std::set<std::string> built;
    for (const auto& file : fs::directory_iterator(LF_FREI0R_DIR))
        built.insert(file.path().filename());
    EXPECT_EQ(built, expected);
}

TEST(Frei0rTest, PluginsDescribeThemselvesAndTheirParameters) {
    for (const EffectDescription* entry : BuiltEffects()) {
        Plugin plugin = Load(*entry);
        ASSERT_TRUE(plugin) << dlerror();
        EXPECT_EQ(Get<decltype(f0r_init)>(plugin, "f0r_init")(), 1);
        f0r_plugin_info_t info{};
        Get<decltype(f0r_get_plugin_info)>(plugin, "f0r_get_plugin_info")(&info);
        EXPECT_EQ(std::string(info.name), "libfilter_" + std::string(entry->name));
        EXPECT_EQ(std::make_tuple(std::string(info.author), info.plugin_type, info.color_model,
                                  info.frei0r_version, info.major_version, info.minor_version),
                  std::make_tuple(std::string("libfilter"), F0R_PLUGIN_TYPE_FILTER,
                                  F0R_COLOR_MODEL_BGRA8888, FREI0R_MAJOR_VERSION, LF_VERSION_MAJOR,
                                  LF_VERSION_MINOR));
        EXPECT_STREQ(info.explanation, entry->summary);
        ASSERT_EQ(info.num_params, static_cast<int>(entry->propertyCount));
        const int types[] = {F0R_PARAM_DOUBLE, F0R_PARAM_DOUBLE, F0R_PARAM_BOOL, F0R_PARAM_COLOR};
        for (int i = 0; i < info.num_params; ++i) {
            const PropertyDescription& spec = entry->properties[i];
            f0r_param_info_t param{};
            Get<decltype(f0r_get_param_info)>(plugin, "f0r_get_param_info")(&param, i);
            EXPECT_STREQ(param.name, spec.name);
            EXPECT_EQ(param.type, types[static_cast<int>(spec.kind)]) << spec.name;
            EXPECT_STREQ(param.explanation, spec.explanation);
        }
        // Only the frei0r entry points are visible to the host: not catalogue::Effects().
        EXPECT_EQ(Get<void>(plugin, "_ZN9catalogue7EffectsEv"), nullptr);
    }
}

TEST(Frei0rTest, UpdateRunsTheEffectWithItsParametersLikeTheLibrary) {
    for (const EffectDescription* entry : BuiltEffects()) {
        SCOPED_TRACE(entry->name);
        Plugin plugin = Load(*entry);
        ASSERT_TRUE(plugin) << dlerror();
        auto* construct = Get<decltype(f0r_construct)>(plugin, "f0r_construct");
        auto* destruct = Get<decltype(f0r_destruct)>(plugin, "f0r_destruct");
        auto* set = Get<decltype(f0r_set_param_value)>(plugin, "f0r_set_param_value");
        auto* get = Get<decltype(f0r_get_param_value)>(plugin, "f0r_get_param_value");
        auto* update = Get<decltype(f0r_update)>(plugin, "f0r_update");
        EXPECT_EQ(construct(0, kHeight), nullptr);

        std::vector<Setting> settings = SettingsFor(*entry);
        for (bool inPlace : {false, true}) {
            f0r_instance_t instance = construct(kWidth, kHeight);
            ASSERT_NE(instance, nullptr);
            for (size_t i = 0; i < settings.size(); ++i) {
                set(instance, settings[i].Value(), static_cast<int>(i));
                Setting back = settings[i];
                get(instance, back.Value(), static_cast<int>(i));
                EXPECT_EQ(back.number, settings[i].number) << back.spec->name;
                EXPECT_EQ(std::memcmp(&back.color, &settings[i].color, sizeof back.color), 0);
            }
            const Frame input = RandomFrame(entry->id);
            Frame output = inPlace ? input : Frame(input.size());
            update(instance, 0.0, inPlace ? output.data() : input.data(), output.data());
            if (!IsRandom(*entry)) {
                EXPECT_TRUE(output == LibraryResult(*entry, settings, {input})[0]) << inPlace;
            }
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
            destruct(instance);
        }
    }
}

// ffmpeg's frei0r filter running the plug-ins on its test pattern, BGRA from end to end so that
// no conversion stands between the plug-in and the comparison.
class FfmpegTest : public testing::Test {
protected:
    void SetUp() override {
        if (std::system("ffmpeg -hide_banner -filters 2>/dev/null | grep -q ' frei0r '") != 0) {
            GTEST_SKIP() << "ffmpeg with its frei0r filter is not installed";
        }
        if (std::string(LF_SANITIZER_RUNTIME) == "none") {
            GTEST_SKIP() << "no sanitizer runtime that ffmpeg could load before the plug-ins";
        }
        std::string pattern = (fs::temp_directory_path() / "frei0r-test-XXXXXX").string();
        ASSERT_NE(mkdtemp(pattern.data()), nullptr);
        dir_ = pattern;
    }
    void TearDown() override {
        if (!dir_.empty()) fs::remove_all(dir_);
    }

    // Three frames of the test pattern in BGRA, through `filters` (after the conversion).
    std::vector<Frame> Run(const std::string& filters) {
        const fs::path out = dir_ / "out.raw";
        const std::string size = std::to_string(kWidth) + "x" + std::to_string(kHeight);
        std::string command = "FREI0R_PATH='" LF_FREI0R_DIR "' ";
        // ffmpeg is not instrumented: plug-ins built with the sanitizers need their runtime first.
        if (const std::string runtime = LF_SANITIZER_RUNTIME; !runtime.empty())
            command += "LD_PRELOAD='" + runtime + "' ASAN_OPTIONS=detect_leaks=0 ";
        command +=
            "ffmpeg -hide_banner -loglevel error -nostdin -y -f lavfi -i testsrc=size=" + size +
            ":rate=10 -frames:v 3 -vf 'format=bgra" + filters + "' -f rawvideo -pix_fmt bgra '" +
            out.string() + "' 2>'" + (dir_ / "err").string() + "'";
        const int status = std::system(command.c_str());
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0)
            << command << "\n"
            << std::ifstream(dir_ / "err").rdbuf();
        std::ifstream file(out, std::ios::binary);
        std::vector<Frame> frames;
        Frame frame(size_t{kWidth} * kHeight);
        while (file.read(reinterpret_cast<char*>(frame.data()), frame.size() * 4))
            frames.push_back(frame);
        EXPECT_EQ(frames.size(), 3u) << command;
        return frames;
    }

    // Runs `entry`'s plug-in with `settings` and compares every frame with the library's.
    void ExpectSameAsLibrary(const EffectDescription& entry, const std::vector<Setting>& settings) {
        std::string filter = ",frei0r=filter_name=libfilter_" + std::string(entry.name);
        for (size_t i = 0; i < settings.size(); ++i) {
            filter += (i == 0 ? ":filter_params=" : "|") + settings[i].ffmpeg;
        }
        const std::vector<Frame> expected = LibraryResult(entry, settings, Run(""));
        const std::vector<Frame> output = Run(filter);
        ASSERT_EQ(output.size(), expected.size());
        for (size_t i = 0; i < output.size(); ++i)
            EXPECT_TRUE(output[i] == expected[i]) << filter << ": frame " << i;
    }

    fs::path dir_;
};

// Every effect whose result repeats, with a value for each parameter where it has any.
TEST_F(FfmpegTest, EveryEffectRunsInFfmpegWithItsParametersLikeTheLibrary) {
    for (const EffectDescription* entry : BuiltEffects()) {
        if (IsRandom(*entry)) continue;
        SCOPED_TRACE(entry->name);
        ExpectSameAsLibrary(*entry, SettingsFor(*entry));
    }
}
