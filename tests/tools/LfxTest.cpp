// lfx end to end: its list, its files compared with the library's own result, its errors.
#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <thread>

#include "Available.h"
#include "Decoder.h"
#include "Scaler.h"
#include "catalogue/ReportSink.h"
#include "libfilter/CVideoFrame.h"

extern "C" {
#include <libavutil/display.h>
#include <libavutil/imgutils.h>
}

namespace fs = std::filesystem;
using namespace lfx;

namespace {

struct Outcome {
    int code;
    std::string out;
    std::string err;
};

std::string ReadAll(const fs::path& path) {
    std::ifstream file(path);
    std::stringstream text;
    text << file.rdbuf();
    return text.str();
}

class LfxTest : public testing::Test {
protected:
    void SetUp() override {
        std::string pattern = (fs::temp_directory_path() / "lfx-test-XXXXXX").string();
        ASSERT_NE(mkdtemp(pattern.data()), nullptr);
        dir_ = pattern;
    }
    void TearDown() override { fs::remove_all(dir_); }

    std::string In(const std::string& name) const { return (dir_ / name).string(); }

    // Runs lfx with `arguments` in the test's folder; its output goes beside the files.
    Outcome Lfx(const std::string& arguments) {
        const std::string command = std::string("cd '") + dir_.string() +
                                    "' && '" LFX_PROGRAM "' " + arguments + " </dev/null >../" +
                                    dir_.filename().string() + ".out 2>../" +
                                    dir_.filename().string() + ".err";
        const int status = std::system(command.c_str());
        const fs::path out = dir_.parent_path() / (dir_.filename().string() + ".out");
        const fs::path err = dir_.parent_path() / (dir_.filename().string() + ".err");
        Outcome run{WIFEXITED(status) ? WEXITSTATUS(status) : -1, ReadAll(out), ReadAll(err)};
        fs::remove(out);
        fs::remove(err);
        return run;
    }

    // Runs the ffmpeg program with `arguments` in the test's folder; true when it succeeds.
    bool Ffmpeg(const std::string& arguments) const {
        return std::system(
                   ("cd '" + dir_.string() + "' && ffmpeg -v error -y " + arguments).c_str()) == 0;
    }

    std::vector<std::string> Files() const {
        std::vector<std::string> names;
        for (const auto& entry : fs::directory_iterator(dir_)) {
            names.push_back(entry.path().filename().string());
        }
        std::sort(names.begin(), names.end());
        return names;
    }

    catalogue::ReportSink sink_;
    fs::path dir_;
};

// Every frame of a file in `format`.
std::vector<FramePtr> Decode(const std::string& path, AVPixelFormat format) {
    FileSource source(path);
    Scaler scaler;
    std::vector<FramePtr> frames;
    StreamItem item;
    while (source.Next(item)) {
        if (item.frame) {
            frames.push_back(
                scaler.Convert(std::move(item.frame), format, source.Info().colorSpace));
        }
    }
    return frames;
}

// A frame's size and format, then its picture bytes without row padding.
std::string Pixels(const AVFrame& frame) {
    const auto format = static_cast<AVPixelFormat>(frame.format);
    const std::string head = std::to_string(frame.width) + "x" + std::to_string(frame.height) +
                             " format " + std::to_string(frame.format) + ":";
    std::string bytes(av_image_get_buffer_size(format, frame.width, frame.height, 1), '\0');
    av_image_copy_to_buffer(reinterpret_cast<uint8_t*>(bytes.data()),
                            static_cast<int>(bytes.size()), frame.data, frame.linesize, format,
                            frame.width, frame.height, 1);
    return head + bytes;
}

// What the library itself makes of `frame`, driven through its processor interface.
void LibraryApply(const AvailableEffect& effect, const PropertyList& properties, AVFrame& frame) {
    EffectPtr processor = CreateEffect(effect);
    for (const auto& [key, value] : properties) {
        ASSERT_TRUE(processor->SetProperty(key.c_str(), value.c_str())) << key;
    }
    const bool packed = frame.format == AV_PIX_FMT_BGRA;
    MediaCore::CVideoFrame view(false,
                                packed ? MediaCore::PIXFMT_BGRA32 : MediaCore::PIXFMT_YUV420P,
                                frame.width, frame.height, true);
    view.SetBuffer(frame.data, frame.linesize, nullptr);
    MediaCore::ImagePostion position{};
    processor->ProcFrameInPlace(&position, 0, &view);
}

// `from`'s video copied packet by packet into an MP4 whose display matrix turns it `degrees`
// clockwise, mirrored left-right first with `mirror`, as cameras record.
void RemuxTurned(const std::string& from, const std::string& to, int degrees, bool mirror) {
    AVFormatContext* in = nullptr;
    ASSERT_EQ(avformat_open_input(&in, from.c_str(), nullptr, nullptr), 0);
    InputContextPtr input(in);
    AVFormatContext* out = nullptr;
    ASSERT_GE(avformat_alloc_output_context2(&out, nullptr, nullptr, to.c_str()), 0);
    AVStream* stream = avformat_new_stream(out, nullptr);
    ASSERT_GE(avcodec_parameters_copy(stream->codecpar, in->streams[0]->codecpar), 0);
    stream->codecpar->codec_tag = 0;
    stream->time_base = in->streams[0]->time_base;
    auto* matrix = reinterpret_cast<int32_t*>(
        av_stream_new_side_data(stream, AV_PKT_DATA_DISPLAYMATRIX, 9 * sizeof(int32_t)));
    av_display_rotation_set(matrix, -degrees);
    av_display_matrix_flip(matrix, mirror, 0);
    ASSERT_GE(avio_open(&out->pb, to.c_str(), AVIO_FLAG_WRITE), 0);
    ASSERT_GE(avformat_write_header(out, nullptr), 0);
    PacketPtr packet = MakePacket();
    while (av_read_frame(in, packet.get()) >= 0) {
        av_packet_rescale_ts(packet.get(), in->streams[0]->time_base, stream->time_base);
        ASSERT_GE(av_interleaved_write_frame(out, packet.get()), 0);
    }
    av_write_trailer(out);
    avio_closep(&out->pb);
    avformat_free_context(out);
}

// Mean absolute difference of two BGRA frames of one size, over every byte.
double MeanDifference(const AVFrame& a, const AVFrame& b) {
    double sum = 0;
    for (int y = 0; y < a.height; ++y) {
        for (int x = 0; x < 4 * a.width; ++x)
            sum += std::abs(a.data[0][y * a.linesize[0] + x] - b.data[0][y * b.linesize[0] + x]);
    }
    return sum / (4.0 * a.width * a.height);
}

bool IsRandom(const AvailableEffect& effect) {
    return effect.entry->id == MediaCore::AVPROCESSOR_ADD_NOISE;
}

}  // namespace

TEST_F(LfxTest, ListNamesEveryEffectWithItsPropertiesAndEveryCommandHasHelp) {
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
    for (const char* command : {"list", "apply", "gallery"}) {
        const Outcome help = Lfx(std::string(command) + " --help");
        EXPECT_EQ(help.code, 0);
        EXPECT_NE(help.out.find("Usage"), std::string::npos) << command;
    }
}

TEST_F(LfxTest, PictureInBgraMatchesTheLibraryForEveryEffect) {
    ASSERT_EQ(Lfx("apply --size 64x36 -o in.png -q").code, 0);
    const std::vector<FramePtr> input = Decode(In("in.png"), AV_PIX_FMT_BGRA);
    ASSERT_EQ(input.size(), 1u);
    for (const AvailableEffect& effect : AvailableEffects()) {
        if (IsRandom(effect)) continue;
        const std::string name = effect.entry->name;
        const PropertyList properties = catalogue::Showcase(*effect.entry, 64, 36);
        std::string arguments = "apply -i in.png -o out.png -y -q -e " + name;
        for (const auto& [key, value] : properties)
            arguments += " -p " + key + "=" + value;
        ASSERT_EQ(Lfx(arguments).code, 0) << name;

        FramePtr expected = MakeFrame(AV_PIX_FMT_BGRA, 64, 36);
        av_frame_copy(expected.get(), input[0].get());
        LibraryApply(effect, properties, *expected);
        const std::vector<FramePtr> output = Decode(In("out.png"), AV_PIX_FMT_BGRA);
        ASSERT_EQ(output.size(), 1u);
        EXPECT_TRUE(Pixels(*expected) == Pixels(*output[0])) << name;
    }
}

// The main job's path: the built-in clip through a chain into H.264 in MP4, then that MP4 read
// back as input; both decode at the clip's size with every frame asked for.
TEST_F(LfxTest, DefaultClipToMp4AndBack) {
    const Outcome first = Lfx("apply -o clip.mp4 --frames 6 -q -e mirror -p mirror=1 -e gray");
    ASSERT_EQ(first.code, 0) << first.err;
    const std::vector<FramePtr> clip = Decode(In("clip.mp4"), AV_PIX_FMT_YUV420P);
    ASSERT_EQ(clip.size(), 6u);
    EXPECT_EQ(clip[0]->width, 1280);
    EXPECT_EQ(clip[0]->height, 720);
    ASSERT_EQ(Lfx("apply -i clip.mp4 -o again.mp4 -q -e invert --format yuv420p").code, 0);
    const std::vector<FramePtr> again = Decode(In("again.mp4"), AV_PIX_FMT_YUV420P);
    ASSERT_EQ(again.size(), 6u);
    EXPECT_EQ(again[5]->width, 1280);
}

TEST_F(LfxTest, ClipInYuvKeepsFramesAndTimesAndMatchesTheLibrary) {
    ASSERT_EQ(
        Lfx("apply --size 64x36 --seconds 0.28 -o in.mkv --codec ffv1 --format yuv420p -q").code,
        0);
    const Outcome run =
        Lfx("apply -i in.mkv -o out.mkv --codec ffv1 --format yuv420p --threads 3 "
            "-e invert -e invert -e invert");
    ASSERT_EQ(run.code, 0) << run.err;
    EXPECT_NE(run.out.find("7 frames"), std::string::npos) << run.out;

    const std::vector<FramePtr> input = Decode(In("in.mkv"), AV_PIX_FMT_YUV420P);
    const std::vector<FramePtr> output = Decode(In("out.mkv"), AV_PIX_FMT_YUV420P);
    ASSERT_EQ(input.size(), 7u);
    ASSERT_EQ(output.size(), input.size());
    for (size_t i = 0; i < input.size(); ++i) {
        EXPECT_EQ(output[i]->pts, input[i]->pts) << i;
        LibraryApply(FindEffect("invert"), {}, *input[i]);
        EXPECT_TRUE(Pixels(*input[i]) == Pixels(*output[i])) << "frame " << i;
    }
}

TEST_F(LfxTest, ErrorsSayOneLineExitNonZeroAndLeaveNoFiles) {
    ASSERT_EQ(Lfx("apply --size 64x36 --seconds 0.2 -o in.mkv --codec ffv1 -q").code, 0);
    std::ofstream(In("notes.txt")) << "not a picture";
    fs::copy_file(In("in.mkv"), In("cut.mkv"));
    fs::resize_file(In("cut.mkv"), 600);
    {
        // Sound without pictures: a WAV header and a few silent samples.
        std::ofstream wav(In("sound.wav"), std::ios::binary);
        const char header[] =
            "RIFF\x2c\x01\0\0WAVEfmt \x10\0\0\0\x01\0\x01\0\x40\x1f\0\0"
            "\x80\x3e\0\0\x02\0\x10\0data\x08\x01\0\0";
        wav.write(header, sizeof header - 1);
        wav << std::string(264, '\0');
    }
    ASSERT_TRUE(Ffmpeg("-f lavfi -i testsrc=size=1x40 -frames 1 line.png"));
    fs::create_symlink("in.mkv", In("link.mkv"));
    const std::vector<std::string> before = Files();
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
        {"apply -o out.png -e blur -p blur_count=-5", "an integer in 0..10, not", 2},
        {"apply -o out.png -e rotate90 -p rotate90_angle=400", "an integer in 0..360", 2},
        {"apply -o out.png -e brightness-contrast -p contrast=1e999", "a number in -100..100", 2},
        {"apply -o out.png -e mosaic -p mosaic_x2=99999", "0..1280 for this 1280x720 input", 2},
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
        {"gallery -o out.xyz", "cannot write 'out.xyz'", 2},
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

TEST_F(LfxTest, ColoursTakeHexadecimalAndDecimalAlike) {
    ASSERT_EQ(Lfx("apply --size 64x36 -o in.png -q").code, 0);
    std::vector<std::vector<uint8_t>> outputs;
    for (const char* colour : {"16711680", "0xFF0000", "#ff0000"}) {
        const std::string out = std::string("out") + std::to_string(outputs.size()) + ".png";
        const Outcome run = Lfx("apply -i in.png -q -o " + out +
                                " -e color-filter -p filter_scope=90 -p filter_color=" + colour);
        ASSERT_EQ(run.code, 0) << colour << ": " << run.err;
        const std::vector<FramePtr> frames = Decode(In(out), AV_PIX_FMT_BGRA);
        ASSERT_EQ(frames.size(), 1u);
        outputs.emplace_back(frames[0]->data[0], frames[0]->data[0] + 64 * 4);
    }
    EXPECT_EQ(outputs[1], outputs[0]);
    EXPECT_EQ(outputs[2], outputs[0]);
}

TEST_F(LfxTest, GalleryWritesOnePictureWithATilePerEffect) {
    const Outcome run = Lfx("gallery --size 64x36 --tile-width 32 --columns 2 -o gallery.png");
    ASSERT_EQ(run.code, 0) << run.err;
    const std::vector<FramePtr> gallery = Decode(In("gallery.png"), AV_PIX_FMT_BGRA);
    ASSERT_EQ(gallery.size(), 1u);
    const int tiles = static_cast<int>(AvailableEffects().size()) + 1;
    EXPECT_EQ(gallery[0]->width, tiles > 1 ? 2 * 40 + 8 : 48);
    EXPECT_EQ(Files(), std::vector<std::string>{"gallery.png"});
}

TEST_F(LfxTest, FlagsTakeOnlyZeroOrOne) {
    for (const AvailableEffect& effect : AvailableEffects()) {
        for (unsigned i = 0; i < effect.entry->propertyCount; ++i) {
            const PropertyDescription& property = effect.entry->properties[i];
            if (property.kind != catalogue::PropertyKind::Flag) continue;
            const Outcome run = Lfx("apply -o out.png -e " + std::string(effect.entry->name) +
                                    " -p " + property.name + "=2");
            EXPECT_NE(run.code, 0);
            EXPECT_NE(run.err.find("takes 0 or 1, not '2'"), std::string::npos) << run.err;
            return;
        }
    }
    GTEST_SKIP() << "no effect in this build has a flag yet";
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
        const std::string where =
            std::to_string(c.degrees) + (c.mirror ? " mirrored " : " ") + c.ours;
        RemuxTurned(In("clip.mp4"), In("turned.mp4"), c.degrees, c.mirror);
        ASSERT_TRUE(Ffmpeg(std::string(c.ffmpegs) + " -i turned.mp4 -c:v ffv1 ffmpeg.mkv"));
        const Outcome run =
            Lfx(std::string("apply -y -q -i turned.mp4 -o lfx.mkv --codec ffv1 --format yuv420p ") +
                c.ours);
        ASSERT_EQ(run.code, 0) << where << ": " << run.err;
        const std::vector<FramePtr> expected = Decode(In("ffmpeg.mkv"), AV_PIX_FMT_YUV420P);
        const std::vector<FramePtr> output = Decode(In("lfx.mkv"), AV_PIX_FMT_YUV420P);
        ASSERT_EQ(output.size(), expected.size());
        EXPECT_TRUE(Pixels(*expected.back()) == Pixels(*output.back())) << where;
    }
}

// Whatever stops lfx mid-run, from a person, a closed terminal or a job runner, no file is left.
TEST_F(LfxTest, StoppingSignalsLeaveNoFile) {
    // Started as a job runner does, with every stopping signal at its default.
    const int stopping[] = {SIGTERM, SIGHUP, SIGINT, SIGQUIT};
    sigset_t defaults;
    sigemptyset(&defaults);
    for (const int signal : stopping)
        sigaddset(&defaults, signal);
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    posix_spawnattr_setsigdefault(&attributes, &defaults);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGDEF);
    const std::string output = In("long.mp4");
    const char* argv[] = {LFX_PROGRAM, "apply",     "-q", "-o", output.c_str(), "--size",
                          "640x360",   "--seconds", "60", "-e", "blur",         nullptr};
    for (const int signal : stopping) {
        pid_t child = 0;
        ASSERT_EQ(posix_spawn(&child, LFX_PROGRAM, nullptr, &attributes,
                              const_cast<char* const*>(argv), environ),
                  0);
        // Once the unfinished file exists, frames are on their way.
        for (int i = 0; i < 500 && Files().empty(); ++i)
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        std::this_thread::sleep_for(std::chrono::milliseconds(200));
        kill(child, signal);
        int status = 0;
        ASSERT_EQ(waitpid(child, &status, 0), child);
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 128 + signal) << signal;
        EXPECT_TRUE(Files().empty()) << signal;
    }
    posix_spawnattr_destroy(&attributes);
}

// Pictures and videos in either layout decode at the size asked for; JPEG stays full range.
TEST_F(LfxTest, EveryOutputWorksInEitherLayout) {
    ASSERT_EQ(Lfx("apply -q --size 63x35 --frames 3 -o odd.mkv --codec ffv1").code, 0);
    const std::vector<FramePtr> input = Decode(In("odd.mkv"), AV_PIX_FMT_BGRA);
    const struct {
        const char* output;
        const char* arguments;
        int width, height, frames;
    } cases[] = {{"out.jpg", "--format bgra", 63, 35, 1},
                 {"out.jpg", "--format yuv420p", 63, 35, 1},
                 {"out.mp4", "--even crop", 62, 34, 3},
                 {"out.mp4", "--even pad --format yuv420p", 64, 36, 3},
                 {"out.avi", "--even pad", 64, 36, 3}};
    for (const auto& c : cases) {
        const std::string where = std::string(c.output) + " " + c.arguments;
        const Outcome run = Lfx("apply -y -q -i odd.mkv -o " + where);
        ASSERT_EQ(run.code, 0) << where << ": " << run.err;
        const std::vector<FramePtr> output = Decode(In(c.output), AV_PIX_FMT_BGRA);
        ASSERT_EQ(output.size(), static_cast<size_t>(c.frames)) << where;
        EXPECT_EQ(output[0]->width, c.width) << where;
        EXPECT_EQ(output[0]->height, c.height) << where;
        const bool video = c.frames > 1;
        EXPECT_EQ(video ? av_q2d(FileSource(In(c.output)).Info().frameRate) : 25, 25) << where;
        EXPECT_LT(video ? 0 : MeanDifference(*input[0], *output[0]), 8) << where;
    }
}

// The layout and the encoded chroma follow the source by default; quality settings reach x264.
TEST_F(LfxTest, EncodingFollowsTheSourceAndTheSettings) {
    const struct {
        const char* source;
        const char* says;
        const char* written;
    } cases[] = {{"yuv420p", "(yuv420p, libx264 yuv420p)", "yuv420p"},
                 {"yuv422p", "(bgra, libx264 yuv422p)", "yuv422p"},
                 {"yuv444p", "(bgra, libx264 yuv444p)", "yuv444p"},
                 {"yuv420p10le", "yuv420p, the 10-bit source in 8 bits)", "yuv420p"}};
    for (const auto& c : cases) {
        ASSERT_TRUE(Ffmpeg(std::string("-f lavfi -i testsrc2=size=64x36 -frames 3 -pix_fmt ") +
                           c.source + " in.mp4"));
        const Outcome run = Lfx("apply -y -i in.mp4 -o out.mp4 -e invert");
        EXPECT_NE(run.out.find(c.says), std::string::npos) << run.out << run.err;
        EXPECT_STREQ(av_get_pix_fmt_name(FileSource(In("out.mp4")).Info().pixelFormat), c.written);
    }
    std::vector<uintmax_t> sizes;
    for (const char* settings : {"--crf 10", "--crf 45 --preset veryfast", "--bitrate 20k"}) {
        ASSERT_EQ(Lfx(std::string("apply -y -q -i in.mp4 -o out.mp4 ") + settings).code, 0);
        sizes.push_back(fs::file_size(In("out.mp4")));
    }
    EXPECT_GT(sizes[0], sizes[1]);
    EXPECT_GT(sizes[0], sizes[2]);
}
