#include "Ffmpeg.h"

#include <new>

namespace lfx {

FramePtr MakeFrame() {
    FramePtr frame(av_frame_alloc());
    if (!frame) throw std::bad_alloc();
    return frame;
}

FramePtr MakeFrame(AVPixelFormat format, int width, int height) {
    FramePtr frame = MakeFrame();
    frame->format = format;
    frame->width = width;
    frame->height = height;
    if (av_frame_get_buffer(frame.get(), 0) < 0) throw std::bad_alloc();
    return frame;
}

PacketPtr MakePacket() {
    PacketPtr packet(av_packet_alloc());
    if (!packet) throw std::bad_alloc();
    return packet;
}

CodecContextPtr MakeCodecContext(const AVCodec* codec) {
    CodecContextPtr context(avcodec_alloc_context3(codec));
    if (!context) throw std::bad_alloc();
    return context;
}

std::string ErrorText(int code) {
    char text[AV_ERROR_MAX_STRING_SIZE] = {};
    av_strerror(code, text, sizeof text);
    return text;
}

}  // namespace lfx
