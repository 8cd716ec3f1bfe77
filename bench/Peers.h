// The filters the peer benchmark sets beside ours: FFmpeg's libavfilter, driven through a filter
// graph on one thread, frei0r plugins loaded from their shared objects, and OpenCV's nearest
// calls where the build found OpenCV. Each is set up outside the timed region; Run does one
// frame's work and nothing else.
#pragma once

#include <cstdint>

extern "C" {
#include <libavfilter/avfilter.h>
#include <libavutil/frame.h>
}

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "libfilter/CVideoFrame.h"

namespace peers {

// One frame of random pixels (the same for a given format, size and seed, whoever asks) in a
// reference-counted FFmpeg frame, with a libfilter frame over the same memory.
class Picture {
public:
    Picture(int format, unsigned width, unsigned height, uint64_t seed = 1);
    ~Picture();
    Picture(const Picture&) = delete;
    Picture& operator=(const Picture&) = delete;

    AVFrame* Frame() { return frame_; }
    MediaCore::CVideoFrame& View() { return view_; }

private:
    AVFrame* frame_;
    MediaCore::CVideoFrame view_;
};

// Distinct frames taken in turn, as playback streams them: together far more than the caches hold,
// so every frame comes from memory. As many as make kStreamBytes, at most kStreamFrames.
class Stream {
public:
    static constexpr size_t kStreamBytes = size_t{256} << 20;
    static constexpr size_t kStreamFrames = 30;

    Stream(int format, unsigned width, unsigned height, uint64_t seed = 1);
    static size_t Frames(int format, unsigned width, unsigned height);

    size_t Size() const { return pictures_.size(); }
    Picture& operator[](size_t i) { return *pictures_[i]; }
    // The next frame, round the stream.
    Picture& Next() {
        Picture& picture = *pictures_[next_];
        next_ = next_ + 1 == pictures_.size() ? 0 : next_ + 1;
        return picture;
    }

private:
    std::vector<std::unique_ptr<Picture>> pictures_;
    size_t next_ = 0;
};

// Copies every plane of `from` into `to` (same format and size), the yardstick of the table.
void CopyFrame(const AVFrame* from, AVFrame* to);

// buffer -> the filter chain -> buffersink, single-threaded.
class LavfiPeer {
public:
    LavfiPeer(const std::string& chain, int format, unsigned width, unsigned height);
    ~LavfiPeer();
    LavfiPeer(const LavfiPeer&) = delete;
    LavfiPeer& operator=(const LavfiPeer&) = delete;

    // False when the graph cannot be built, or only with a format conversion inserted (the
    // chain does not take the format as it is; a chain may still answer in another format).
    bool Native() const { return native_; }
    // Pushes the frame's reference in and takes the result back into it, so the filter may
    // work in place: no pixel is copied unless the filter itself does. False when the graph
    // refuses the frame.
    bool Run(AVFrame* frame);

private:
    AVFilterGraph* graph_ = nullptr;
    AVFilterContext* source_ = nullptr;
    AVFilterContext* sink_ = nullptr;
    AVFrame* out_ = nullptr;
    int64_t pts_ = 0;
    bool native_ = false;
    bool resizes_ = false;  // the result's size or format differs from the frame's
};

// A frei0r filter plugin on packed 32-bit frames.
class Frei0rPeer {
public:
    // Parameters are by name; doubles (booleans as 0 or 1).
    using Params = std::vector<std::pair<std::string, double>>;
    Frei0rPeer(const std::string& plugin, const Params& params, unsigned width, unsigned height);
    ~Frei0rPeer();
    Frei0rPeer(const Frei0rPeer&) = delete;
    Frei0rPeer& operator=(const Frei0rPeer&) = delete;

    // False when the plugin is not installed, is not a filter, or lacks a named parameter.
    bool Loaded() const { return instance_ != nullptr; }
    // From `in` into `out`, both width x height packed pixels.
    void Run(const uint32_t* in, uint32_t* out);

private:
    struct Api;
    void Release();

    void* library_ = nullptr;
    std::unique_ptr<Api> api_;
    void* instance_ = nullptr;
    double time_ = 0;
};

// OpenCV's nearest work to one of our effects on the planes of a frame, in place where OpenCV
// takes the same matrix in and out: a BGRA frame is one four-channel matrix, a YUV 4:2:0 frame
// three one-channel ones. Scratch matrices, tables, kernels and drawn noise are made up front.
class OpenCvPeer {
public:
    OpenCvPeer(const std::string& work, int format, unsigned width, unsigned height);
    ~OpenCvPeer();
    OpenCvPeer(const OpenCvPeer&) = delete;
    OpenCvPeer& operator=(const OpenCvPeer&) = delete;

    // False when OpenCV is not in this build or the work has no form for the frame's format.
    bool Available() const { return work_ != nullptr; }
    // The OpenCV calls, as shown in the table.
    std::string Calls() const;
    void Run(AVFrame* frame);
    // 1 for one thread; 0 for OpenCV's own choice. Global to OpenCV.
    static void SetThreads(int threads);
    static bool Built();

private:
    struct Work;
    std::unique_ptr<Work> work_;
};

// Where the frei0r plugins of this system live (FREI0R_PATH first).
std::vector<std::string> Frei0rDirectories();

}  // namespace peers
