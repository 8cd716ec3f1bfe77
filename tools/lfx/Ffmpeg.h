// Owning handles for the FFmpeg objects lfx uses, and error texts for FFmpeg result codes.
#pragma once

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/frame.h>
#include <libswscale/swscale.h>
}

#include <memory>
#include <string>

namespace lfx {

struct InputContextDeleter {
    void operator()(AVFormatContext* context) const { avformat_close_input(&context); }
};
struct CodecContextDeleter {
    void operator()(AVCodecContext* context) const { avcodec_free_context(&context); }
};
struct FrameDeleter {
    void operator()(AVFrame* frame) const { av_frame_free(&frame); }
};
struct PacketDeleter {
    void operator()(AVPacket* packet) const { av_packet_free(&packet); }
};
struct ScaleContextDeleter {
    void operator()(SwsContext* context) const { sws_freeContext(context); }
};

using InputContextPtr = std::unique_ptr<AVFormatContext, InputContextDeleter>;
using CodecContextPtr = std::unique_ptr<AVCodecContext, CodecContextDeleter>;
using FramePtr = std::unique_ptr<AVFrame, FrameDeleter>;
using PacketPtr = std::unique_ptr<AVPacket, PacketDeleter>;
using ScaleContextPtr = std::unique_ptr<SwsContext, ScaleContextDeleter>;

// A frame of the given format and size with its own pixel memory; throws when out of memory.
FramePtr MakeFrame(AVPixelFormat format, int width, int height);
FramePtr MakeFrame();
PacketPtr MakePacket();
// A codec context for `codec`; throws when out of memory.
CodecContextPtr MakeCodecContext(const AVCodec* codec);

// FFmpeg's text for a negative result code.
std::string ErrorText(int code);

}  // namespace lfx
