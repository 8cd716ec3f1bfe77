#include "Decoder.h"

#include <cstdlib>
#include <utility>

#include "Errors.h"

namespace lfx {

FileSource::FileSource(const std::string& path, bool autorotate) : path_(path) {
    info_.name = "'" + path + "'";
    AVFormatContext* input = nullptr;
    int result = avformat_open_input(&input, path.c_str(), nullptr, nullptr);
    if (result < 0) Fail("cannot read " + info_.name, result);
    input_.reset(input);
    result = avformat_find_stream_info(input, nullptr);
    if (result < 0) Fail("cannot read " + info_.name, result);
    OpenVideoDecoder();
    if (autorotate) ReadOrientation(*input->streams[videoIndex_]);
    audioIndex_ = av_find_best_stream(input, AVMEDIA_TYPE_AUDIO, -1, videoIndex_, nullptr, 0);
    if (audioIndex_ >= 0) {
        info_.audio = input->streams[audioIndex_]->codecpar;
        info_.audioTimeBase = input->streams[audioIndex_]->time_base;
    }
    info_.frameCount = EstimateFrameCount();
}

void FileSource::OpenVideoDecoder() {
    const AVCodec* codec = nullptr;
    videoIndex_ = av_find_best_stream(input_.get(), AVMEDIA_TYPE_VIDEO, -1, -1, &codec, 0);
    if (videoIndex_ == AVERROR_STREAM_NOT_FOUND) Fail(info_.name + " has no video");
    if (videoIndex_ < 0) Fail("cannot decode the video of " + info_.name, videoIndex_);
    AVStream* stream = input_->streams[videoIndex_];
    decoder_ = MakeCodecContext(codec);
    int result = avcodec_parameters_to_context(decoder_.get(), stream->codecpar);
    if (result < 0) Fail("cannot decode the video of " + info_.name, result);
    decoder_->pkt_timebase = stream->time_base;
    decoder_->thread_count = 0;  // as many as FFmpeg sees fit
    result = avcodec_open2(decoder_.get(), codec, nullptr);
    if (result < 0) Fail("cannot decode the video of " + info_.name, result);
    if (decoder_->width <= 0 || decoder_->height <= 0) Fail(info_.name + " has a video of no size");

    info_.width = decoder_->width;
    info_.height = decoder_->height;
    info_.timeBase = stream->time_base;
    info_.colorSpace = decoder_->colorspace;
    info_.pixelFormat = decoder_->pix_fmt;
    const AVRational aspect = av_guess_sample_aspect_ratio(input_.get(), stream, nullptr);
    if (aspect.num > 0 && aspect.den > 0) info_.sampleAspect = aspect;
    const AVRational rate = av_guess_frame_rate(input_.get(), stream, nullptr);
    if (rate.num > 0 && rate.den > 0) info_.frameRate = rate;
}

void FileSource::ReadOrientation(const AVStream& stream) {
    size_t size = 0;
    const uint8_t* matrix = av_stream_get_side_data(&stream, AV_PKT_DATA_DISPLAYMATRIX, &size);
    const AVDictionaryEntry* tag = av_dict_get(stream.metadata, "rotate", nullptr, 0);
    if (matrix != nullptr && size >= 9 * sizeof(int32_t)) {
        info_.orientation = FromDisplayMatrix(reinterpret_cast<const int32_t*>(matrix));
    } else if (tag != nullptr) {
        info_.orientation = FromDegrees(std::atoi(tag->value));
    }
    if (info_.orientation.transpose) {
        std::swap(info_.width, info_.height);
        std::swap(info_.sampleAspect.num, info_.sampleAspect.den);
    }
}

int64_t FileSource::EstimateFrameCount() const {
    const AVStream* stream = input_->streams[videoIndex_];
    if (stream->nb_frames > 0) return stream->nb_frames;
    double seconds = 0;
    if (stream->duration > 0) {
        seconds = static_cast<double>(stream->duration) * av_q2d(stream->time_base);
    } else if (input_->duration > 0) {
        seconds = static_cast<double>(input_->duration) / AV_TIME_BASE;
    }
    if (seconds <= 0) return -1;
    return static_cast<int64_t>(seconds * av_q2d(info_.frameRate) + 0.5);
}

bool FileSource::Next(StreamItem& item) {
    FramePtr frame = MakeFrame();
    PacketPtr packet = MakePacket();
    for (;;) {
        int result = avcodec_receive_frame(decoder_.get(), frame.get());
        if (result == 0) {
            // Streams without time stamps get them from the frame rate.
            int64_t pts = frame->best_effort_timestamp;
            if (pts == AV_NOPTS_VALUE) pts = nextPts_;
            const int64_t step = av_rescale_q(1, av_inv_q(info_.frameRate), info_.timeBase);
            nextPts_ = pts + (step > 0 ? step : 1);
            frame->pts = pts;
            item.frame = std::move(frame);
            return true;
        }
        if (result == AVERROR_EOF) return false;
        if (result != AVERROR(EAGAIN)) Fail("cannot decode the video of " + info_.name, result);

        result = av_read_frame(input_.get(), packet.get());
        if (result == AVERROR_EOF) {
            if (draining_) return false;
            draining_ = true;
            avcodec_send_packet(decoder_.get(), nullptr);
            continue;
        }
        if (result < 0) Fail("cannot read " + info_.name, result);
        if (packet->stream_index == audioIndex_) {
            item.packet = std::move(packet);
            return true;
        }
        if (packet->stream_index == videoIndex_) {
            result = avcodec_send_packet(decoder_.get(), packet.get());
            // A damaged packet loses its frame, not the whole run.
            if (result < 0 && result != AVERROR_INVALIDDATA) {
                Fail("cannot decode the video of " + info_.name, result);
            }
        }
        av_packet_unref(packet.get());
    }
}

}  // namespace lfx
