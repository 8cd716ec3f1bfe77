// The filters the peer benchmark sets beside ours: FFmpeg's libavfilter, driven through a filter
// graph on one thread, and frei0r plugins loaded from their shared objects. Each is set up
// outside the timed region; Run does one frame's work and nothing else.
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

// One frame of random pixels (the same for a given format and size, whoever asks) in a
// reference-counted FFmpeg frame, with a libfilter frame over the same memory.
class Picture {
public:
    Picture(int format, unsigned width, unsigned height);
    ~Picture();
    Picture(const Picture&) = delete;
    Picture& operator=(const Picture&) = delete;

    AVFrame* Frame() { return frame_; }
    MediaCore::CVideoFrame& View() { return view_; }

private:
    AVFrame* frame_;
    MediaCore::CVideoFrame view_;
};

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

// Where the frei0r plugins of this system live (FREI0R_PATH first).
std::vector<std::string> Frei0rDirectories();

}  // namespace peers
