// lfx end to end: its list, its files compared with the library's own result and with what the
// ffmpeg tools make of them, its errors and its exits.
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <numeric>
#include <thread>

#include "Available.h"
#include "libfilter/CVideoFrame.h"

extern "C" {
#include <libavutil/display.h>
}

namespace fs = std::filesystem;
using namespace lfx;

namespace {

std::string ReadAll(const fs::path& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

struct Outcome {
    int code;
    std::string out, err;
};

// Runs `command` in the working folder; what it prints goes beside the folder, not in it.
Outcome Run(const std::string& command) {
    const std::string out = fs::current_path().string() + ".out", err = out + ".err";
    const int status = std::system((command + " </dev/null >" + out + " 2>" + err).c_str());
    const Outcome run{WIFEXITED(status) ? WEXITSTATUS(status) : -1, ReadAll(out), ReadAll(err)};
    fs::remove(out);
    fs::remove(err);
    return run;
}
Outcome Lfx(const std::string& arguments) {
    return Run("'" LFX_PROGRAM "' " + arguments);
}
bool Ffmpeg(const std::string& arguments) {
    return Run("ffmpeg -v error -y " + arguments).code == 0;
}
// Every frame of a file as ffmpeg decodes it, in `format`, one after the other.
std::string Raw(const std::string& file, const char* format = "bgra") {
    return Run("ffmpeg -v error -i " + file + " -f rawvideo -pix_fmt " + format + " -").out;
}
// The `entries` ffprobe finds for a file's video stream or frames, comma separated.
std::string Probe(const std::string& file, const std::string& entries) {
    return Run("ffprobe -v error -select_streams v -count_frames -of csv=p=0 -show_entries " +
               entries + " " + file)
        .out;
}
// How many files the working folder holds.
long Files() {
    return std::distance(fs::directory_iterator("."), fs::directory_iterator());
}

// What the library itself makes of a w x h picture in BGRA, or in YUV 4:2:0 with its planes one
// after the other, rows unpadded.
std::string Library(const std::string& name, const PropertyList& properties, std::string bytes,
                    bool packed, int w, int h) {
    EffectPtr processor = CreateEffect(FindEffect(name));
    for (const auto& [key, value] : properties)
        EXPECT_TRUE(processor->SetProperty(key.c_str(), value.c_str())) << key;
    MediaCore::CVideoFrame view(
        false, packed ? MediaCore::PIXFMT_BGRA32 : MediaCore::PIXFMT_YUV420P, w, h, true);
    auto* base = reinterpret_cast<unsigned char*>(bytes.data());
    unsigned char* data[3] = {base, base + w * h, base + w * h * 5 / 4};
    int pitches[3] = {packed ? 4 * w : w, w / 2, w / 2};
    view.SetBuffer(data, pitches, nullptr);
    MediaCore::ImagePostion position{};
    processor->ProcFrameInPlace(&position, 0, &view);
    return bytes;
}

// `from`, an MP4 of one track, with its track header's display matrix turning the video
// `degrees` clockwise, mirrored left-right first with `mirror`, as cameras record.
void WriteTurned(const std::string& from, const std::string& to, int degrees, bool mirror) {
    std::string bytes = ReadAll(from);
    int32_t matrix[9];
    av_display_rotation_set(matrix, -degrees);
    av_display_matrix_flip(matrix, mirror, 0);
    // The matrix follows the box's version, flags, times, ids, duration, layer and volume.
    const size_t at = bytes.rfind("tkhd") + 4 + 40;
    for (int i = 0; i < 36; ++i)
        bytes[at + i] = static_cast<char>(static_cast<uint32_t>(matrix[i / 4]) >> (24 - i % 4 * 8));
    std::ofstream(to, std::ios::binary) << bytes;
}

// Each test, and every program it starts, works in a folder of its own.
class LfxTest : public testing::Test {
protected:
    void SetUp() override {
        std::string pattern = (fs::temp_directory_path() / "lfx-test-XXXXXX").string();
        ASSERT_NE(mkdtemp(pattern.data()), nullptr);
        fs::current_path(pattern);
    }
    void TearDown() override {
        const fs::path dir = fs::current_path();
        fs::current_path(dir.parent_path());
        fs::remove_all(dir);
    }
};

}  // namespace

// The list names every effect with its properties, commands have help, and the gallery is
// one picture with a tile per effect.
TEST_F(LfxTest, ListGalleryHelpAndVersion) {
    const Outcome list = Lfx("list");
    EXPECT_EQ(list.code, 0) << list.err;
    for (const AvailableEffect& effect : AvailableEffects()) {
        EXPECT_NE(list.out.find(effect.entry->name), std::string::npos) << effect.entry->name;
        for (unsigned i = 0; i < effect.entry->propertyCount; ++i) {
            const char* property = effect.entry->properties[i].name;
            EXPECT_NE(list.out.find(property), std::string::npos) << property;
        }
        EXPECT_EQ(Lfx(std::string("list ") + effect.entry->name).code, 0);
    }
    EXPECT_EQ(Lfx("--version").out.rfind("lfx ", 0), 0u);
    EXPECT_NE(Lfx("apply --help").out.find("Usage"), std::string::npos);
    const Outcome run = Lfx("gallery --size 64x36 --tile-width 32 --columns 2 -o gallery.png");
    ASSERT_EQ(run.code, 0) << run.err;
    // Two columns of 32-pixel tiles with their margins: the gallery has more than one tile.
    EXPECT_EQ(Probe("gallery.png", "stream=width,nb_read_frames"), "88,1\n");
    EXPECT_EQ(Files(), 1);
}

// Every effect on a picture, and colours written in any of their syntaxes alike.
TEST_F(LfxTest, PicturesInBgraMatchTheLibraryForEveryEffect) {
    ASSERT_EQ(Lfx("apply --size 64x36 -o in.png -q").code, 0);
    const std::string input = Raw("in.png");
    ASSERT_EQ(input.size(), 64u * 36 * 4);
    for (const AvailableEffect& effect : AvailableEffects()) {
        const std::string name = effect.entry->name;
        if (effect.entry->id == MediaCore::AVPROCESSOR_ADD_NOISE) continue;
        const PropertyList properties = catalogue::Showcase(*effect.entry, 64, 36);
        std::string arguments = "apply -i in.png -o out.png -y -q -e " + name;
        for (const auto& [key, value] : properties)
            arguments += " -p " + key + "=" + value;
        ASSERT_EQ(Lfx(arguments).code, 0) << name;
        EXPECT_TRUE(Raw("out.png") == Library(name, properties, input, true, 64, 36)) << name;
    }
    std::vector<std::string> outputs;
    for (const char* colour : {"16711680", "0xFF0000", "#ff0000"}) {
        const std::string filter = "-e color-filter -p filter_scope=90 -p filter_color=";
        EXPECT_EQ(Lfx("apply -i in.png -q -y -o out.png " + filter + colour).code, 0) << colour;
        outputs.push_back(Raw("out.png"));
    }
    EXPECT_TRUE(outputs[0] == outputs[1] && outputs[0] == outputs[2] && outputs[0] != input);
}

TEST_F(LfxTest, ErrorsSayOneLineExitNonZeroAndLeaveNoFiles) {
    ASSERT_EQ(Lfx("apply --size 64x36 --seconds 0.2 -o in.mkv --codec ffv1 -q").code, 0);
    std::ofstream("notes.txt") << "not a picture";
    fs::copy_file("in.mkv", "cut.mkv");
    fs::resize_file("cut.mkv", 600);
    ASSERT_TRUE(Ffmpeg("-f lavfi -i anullsrc -t 0.1 sound.wav"));  // sound without pictures
    ASSERT_TRUE(Ffmpeg("-f lavfi -i testsrc=size=1x40 -frames 1 line.png"));
    fs::create_symlink("in.mkv", "link.mkv");
    const long before = Files();
    const struct {
        const char* arguments;
        const char* says;
        int code;  // 1: the work failed, 2: the command line is wrong
    } cases[] = {
        {"apply -i line.png -o out.png -e rotate90", "this input is 1x40", 2},
        {"apply -i line.png -o out.mp4", "add --even crop to drop the last odd row", 1},
        {"apply -i line.png -o out.mp4 --even crop", "leaves nothing", 2},
        // The input is never written over, whatever path reaches it; outputs need -y to be
        // replaced.
        {"apply -i in.mkv -o ./in.mkv -y", "is the input", 1},
        {"apply -i in.mkv -o link.mkv -y", "is the input", 1},
        {"gallery -i in.mkv -o in.mkv -y", "is the input", 1},
        {"apply -i in.mkv -o cut.mkv", "exists; -y replaces it", 1},
        {"apply -i in.mkv -o cut.mkv -n", "exists", 1},
        {"apply -i in.mkv -o cut.mkv -n -y", "excludes", 2},
        {"apply -o out.mp4 --frames 0", "--frames: wants a count of 1 or more", 2},
        {"apply -o out.mp4 --codec-opt nosuch=1", "libx264 encoder has no option 'nosuch'", 2},
        {"apply -o out.mkv --codec ffv1 --crf 20", "ffv1 encoder has no option 'crf'", 2},
        {"apply -o out.png -e nosuch", "effects: ", 2},
        {"apply -o out.png -e invert -p nosuch=1", "no property 'nosuch'", 2},
        {"apply -o out.png -e invert -p duration=ten", "takes an integer", 2},
        {"apply -o out.png -e blur -p blur_count=2000000000", "an integer in 0..10, not", 2},
        {"apply -o out.png -e rotate90 -p rotate90_angle=400", "an integer in 0..360", 2},
        {"apply -o out.png -e brightness-contrast -p contrast=1e999", "a number in -100..100", 2},
        {"apply -o out.png -e mosaic -p mosaic_x2=99999", "0..1280 for this 1280x720 input", 2},
        {"apply -o out.png -e mirror -p vertical=2", "takes 0 or 1, not '2'", 2},
        {"apply -o out.png -e color-filter -p filter_color=0x1000000", "0xRRGGBB, #RRGGBB", 2},
        {"apply -o out.png -p duration=1", "must follow the -e", 2},
        {"apply -i missing.mp4 -o out.png", "cannot read 'missing.mp4'", 1},
        {"apply -i notes.txt -o out.png", "cannot read 'notes.txt'", 1},
        {"apply -i sound.wav -o out.png", "has no video", 1},
        {"apply -o out.xyz", "cannot write 'out.xyz'", 2},
        {"apply -o nofolder/out.png", "cannot write 'nofolder/out.png'", 1},
        {"apply -o out.png --frames 2", "holds one frame", 2},
        {"apply -o out.mp4 --codec nosuch", "no video encoder named 'nosuch'", 2},
        {"apply -i cut.mkv -o out.mkv", "cut.mkv", 1},
        {"apply --output", "lfx: ", 2},
    };
    for (const auto& c : cases) {
        const Outcome run = Lfx(c.arguments);
        EXPECT_EQ(run.code, c.code) << c.arguments;
        EXPECT_EQ(run.err.rfind("lfx: ", 0), 0u) << c.arguments << ": " << run.err;
        EXPECT_EQ(std::count(run.err.begin(), run.err.end(), '\n'), 1) << run.err;
        EXPECT_NE(run.err.find(c.says), std::string::npos) << run.err;
        EXPECT_EQ(Files(), before) << c.arguments;
    }
}

// A video whose display matrix turns it comes out as ffmpeg shows it, with or without turning.
TEST_F(LfxTest, TurnedVideosComeOutAsFfmpegShowsThem) {
    ASSERT_EQ(Lfx("apply -q --size 64x36 --frames 3 -o clip.mp4").code, 0);
    const struct {
        int degrees;
        bool mirror;
        const char *ours, *ffmpegs;
    } cases[] = {{90, false, "", ""},  {180, false, "", ""},
                 {270, false, "", ""}, {90, true, "", ""},
                 {0, true, "", ""},    {90, false, "--no-autorotate", "-noautorotate"}};
    for (const auto& c : cases) {
        SCOPED_TRACE(std::to_string(c.degrees) + (c.mirror ? " mirrored " : " ") + c.ours);
        WriteTurned("clip.mp4", "turned.mp4", c.degrees, c.mirror);
        ASSERT_TRUE(Ffmpeg(std::string(c.ffmpegs) + " -i turned.mp4 -c:v ffv1 ffmpeg.mkv"));
        const Outcome run =
            Lfx("apply -y -q -i turned.mp4 -o lfx.mkv --codec ffv1 --format yuv420p " +
                std::string(c.ours));
        ASSERT_EQ(run.code, 0) << run.err;
        const std::string expected = Raw("ffmpeg.mkv", "yuv420p");
        EXPECT_EQ(expected.size(), 3u * 64 * 36 * 3 / 2);
        EXPECT_EQ(expected == Raw("clip.mp4", "yuv420p"), *c.ours != '\0');  // turned or not
        EXPECT_TRUE(Raw("lfx.mkv", "yuv420p") == expected);
    }
}

// Whatever stops lfx mid-run, from a person, a closed terminal or a job runner, no file is left.
TEST_F(LfxTest, StoppingSignalsLeaveNoFile) {
    for (const int signal : {SIGTERM, SIGHUP, SIGINT, SIGQUIT}) {
        // Started as a job runner does, with every stopping signal at its default.
        const pid_t child = fork();
        if (child == 0) {
            for (const int stopping : {SIGTERM, SIGHUP, SIGINT, SIGQUIT})
                std::signal(stopping, SIG_DFL);
            execl(LFX_PROGRAM, LFX_PROGRAM, "apply", "-q", "-o", "long.mp4", "--size", "640x360",
                  "--seconds", "60", "-e", "blur", nullptr);
            _exit(127);
        }
        // Once the unfinished file exists, frames are on their way.
        for (int i = 0; i < 500 && Files() == 0; ++i)
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        std::this_thread::sleep_for(std::chrono::milliseconds(200));
        kill(child, signal);
        int status = 0;
        ASSERT_EQ(waitpid(child, &status, 0), child);
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 128 + signal) << signal;
        EXPECT_TRUE(Files() == 0) << signal;
    }
}

// Pictures and videos come out at the size asked for, in the layout asked for or else the
// source's, with the source's chroma where the encoder has it; JPEG stays full range; x264 takes
// quality settings; a chain in YUV keeps the frames' times and makes the library's bytes.
TEST_F(LfxTest, OutputsFollowTheSourceAndTheSettings) {
    ASSERT_EQ(Lfx("apply -q --size 63x35 --frames 3 -o odd.mkv --codec ffv1").code, 0);
    const struct {
        const char *source, *arguments, *says, *probed;  // width, height, format, frames
    } cases[] = {
        {"", "out.jpg --format bgra", "(bgra, mjpeg yuvj444p)", "63,35,yuvj444p,1"},
        {"", "out.jpg --format yuv420p", "(yuv420p, mjpeg yuvj420p)", "63,35,yuvj420p,1"},
        {"", "out.mp4 --even crop", "", "62,34,yuv420p,3"},
        {"", "out.mp4 --even pad --format yuv420p", "", "64,36,yuv420p,3"},
        {"", "out.avi --even pad", "", "64,36,yuv420p,3"},
        {"yuv420p", "out.mp4", "(yuv420p, libx264 yuv420p)", "64,36,yuv420p,3"},
        {"yuv422p", "out.mp4", "(bgra, libx264 yuv422p)", "64,36,yuv422p,3"},
        {"yuv444p", "out.mp4", "(bgra, libx264 yuv444p)", "64,36,yuv444p,3"},
        {"yuv420p10le", "out.mp4", "yuv420p, the 10-bit source in 8 bits)", "64,36,yuv420p,3"},
        {"yuv420p", "out.mp4 --crf 45 --preset veryfast --bitrate 20k", "", "64,36,yuv420p,3"},
        {"yuv420p", "out.mkv --codec ffv1 --threads 3 -e invert -e invert -e invert",
         "3 frames 64x36 (yuv420p, ffv1 yuv420p)", "64,36,yuv420p,3"},
    };
    for (const auto& c : cases) {
        const std::string arguments = c.arguments,
                          output = arguments.substr(0, arguments.find(' '));
        SCOPED_TRACE(std::string(c.source) + " to " + arguments);
        const std::string input = *c.source ? "in.mkv" : "odd.mkv";
        if (*c.source) {
            ASSERT_TRUE(Ffmpeg("-f lavfi -i testsrc=duration=0.12:size=64x36 -c:v ffv1 -pix_fmt " +
                               std::string(c.source) + " in.mkv"));
        }
        const Outcome run = Lfx("apply -y -i " + input + " -o " + arguments);
        ASSERT_EQ(run.code, 0) << run.err;
        EXPECT_NE(run.out.find(c.says), std::string::npos) << run.out;
        EXPECT_EQ(Probe(output, "stream=width,height,pix_fmt,nb_read_frames"),
                  std::string(c.probed) + "\n");
        if (output == "out.mkv") {  // a chain in YUV on threads: times and the library's bytes
            EXPECT_EQ(Probe(output, "frame=pts"), Probe(input, "frame=pts"));
            const std::string in = Raw(input, "yuv420p"), out = Raw(output, "yuv420p");
            const size_t frame = 64 * 36 * 3 / 2;
            ASSERT_EQ(out.size(), 3 * frame);
            for (size_t i = 0; i < 3; ++i)
                EXPECT_TRUE(out.substr(i * frame, frame) ==
                            Library("invert", {}, in.substr(i * frame, frame), false, 64, 36));
        }
        if (output != "out.jpg") continue;
        const std::string picture = Raw(output), first = Raw(input).substr(0, picture.size());
        ASSERT_EQ(picture.size(), 63u * 35 * 4);
        const double difference = std::transform_reduce(  // mean, over every byte
            picture.begin(), picture.end(), first.begin(), 0.0, std::plus<>(),
            [](char a, char b) { return std::abs(uint8_t(a) - uint8_t(b)); });
        EXPECT_LT(difference / picture.size(), 8);
    }
}
