#include "Encoder.h"

#include <cstring>
#include <vector>

extern "C" {
#include <libavutil/opt.h>
#include <libavutil/pixdesc.h>
}

#include "Errors.h"
#include "Scaler.h"

namespace lfx {

namespace {

bool Holds(const AVOutputFormat* format, AVCodecID codec) {
    // Negative: the container does not say; try it.
    return avformat_query_codec(format, codec, FF_COMPLIANCE_NORMAL) != 0;
}

// Encoders to try in order: the one asked for, or H.264 (libx264 first) where the container
// takes it, then the container's own choice.
std::vector<const AVCodec*> Candidates(const AVOutputFormat* format, const std::string& path,
                                       bool picture, const std::string& requested) {
    if (!requested.empty()) {
        const AVCodec* codec = avcodec_find_encoder_by_name(requested.c_str());
        if (codec == nullptr || codec->type != AVMEDIA_TYPE_VIDEO) {
            FailUsage("FFmpeg has no video encoder named '" + requested + "'");
        }
        if (!Holds(format, codec->id)) {
            FailUsage("'" + path + "' cannot hold " + requested + " video");
        }
        return {codec};
    }
    std::vector<const AVCodec*> codecs;
    auto add = [&](const AVCodec* codec) {
        if (codec == nullptr || !Holds(format, codec->id)) return;
        for (const AVCodec* known : codecs) {
            if (known == codec) return;
        }
        codecs.push_back(codec);
    };
    if (picture) {
        add(avcodec_find_encoder(
            av_guess_codec(format, nullptr, path.c_str(), nullptr, AVMEDIA_TYPE_VIDEO)));
        return codecs;
    }
    add(avcodec_find_encoder_by_name("libx264"));
    add(avcodec_find_encoder(AV_CODEC_ID_H264));
    add(avcodec_find_encoder(format->video_codec));
    return codecs;
}

// JPEG pictures are full range, so a studio-range YUV layout is encoded in its full-range form.
AVPixelFormat FullRangeForm(AVPixelFormat format) {
    switch (format) {
        case AV_PIX_FMT_YUV420P:
            return AV_PIX_FMT_YUVJ420P;
        case AV_PIX_FMT_YUV422P:
            return AV_PIX_FMT_YUVJ422P;
        case AV_PIX_FMT_YUV444P:
            return AV_PIX_FMT_YUVJ444P;
        default:
            return format;
    }
}

bool Offers(const AVCodec* codec, AVPixelFormat wanted) {
    for (const AVPixelFormat* format = codec->pix_fmts; *format != AV_PIX_FMT_NONE; ++format) {
        if (*format == wanted) return true;
    }
    return false;
}

AVPixelFormat ChooseFormat(const AVCodec* codec, AVPixelFormat source, AVPixelFormat keep) {
    if (codec->id == AV_CODEC_ID_MJPEG) {
        source = FullRangeForm(source);
        keep = FullRangeForm(keep);
    }
    if (codec->pix_fmts == nullptr) return source;
    if (keep != AV_PIX_FMT_NONE && Offers(codec, keep)) return keep;
    for (const AVPixelFormat* format = codec->pix_fmts; *format != AV_PIX_FMT_NONE; ++format) {
        if (*format == source) return source;
    }
    // H.264 players expect 4:2:0.
    if (codec->id == AV_CODEC_ID_H264) {
        for (const AVPixelFormat* format = codec->pix_fmts; *format != AV_PIX_FMT_NONE; ++format) {
            if (*format == AV_PIX_FMT_YUV420P) return AV_PIX_FMT_YUV420P;
        }
    }
    return avcodec_find_best_pix_fmt_of_list(codec->pix_fmts, source, 1, nullptr);
}

// Whether width x height splits into whole chroma samples of `format`.
bool WholeChroma(AVPixelFormat format, int width, int height) {
    const AVPixFmtDescriptor* descriptor = av_pix_fmt_desc_get(format);
    return descriptor == nullptr || ((descriptor->log2_chroma_w == 0 || width % 2 == 0) &&
                                     (descriptor->log2_chroma_h == 0 || height % 2 == 0));
}

bool IsYuv(AVPixelFormat format) {
    const AVPixFmtDescriptor* descriptor = av_pix_fmt_desc_get(format);
    return descriptor != nullptr && (descriptor->flags & AV_PIX_FMT_FLAG_RGB) == 0 &&
           descriptor->nb_components >= 3;
}

}  // namespace

void Encoder::OutputContextDeleter::operator()(AVFormatContext* context) const {
    if (context->pb != nullptr && (context->oformat->flags & AVFMT_NOFILE) == 0) {
        avio_closep(&context->pb);
    }
    avformat_free_context(context);
}

Encoder::Encoder(const OutputSettings& settings)
    : path_(settings.path), frameTimeBase_(settings.timeBase), packet_(MakePacket()) {
    const AVOutputFormat* format = av_guess_format(nullptr, path_.c_str(), nullptr);
    if (format == nullptr || format->video_codec == AV_CODEC_ID_NONE) {
        FailUsage("cannot write '" + path_ +
                  "': FFmpeg writes no video or picture format by that name (try .mp4, .mkv, .png "
                  "or .jpg)");
    }
    picture_ = std::strcmp(format->name, "image2") == 0;
    file_ = std::make_unique<TempFile>(path_);
    AVFormatContext* output = nullptr;
    const int result =
        avformat_alloc_output_context2(&output, format, nullptr, file_->Path().c_str());
    if (result < 0) Fail("cannot write '" + path_ + "'", result);
    output_.reset(output);
    OpenEncoder(settings);
    if (!picture_) AddAudio(settings);
    WriteHeader();
}

Encoder::~Encoder() = default;

void Encoder::OpenEncoder(const OutputSettings& settings) {
    const std::vector<const AVCodec*> codecs =
        Candidates(output_->oformat, path_, picture_, settings.codec);
    int failure = AVERROR_ENCODER_NOT_FOUND;
    for (const AVCodec* codec : codecs) {
        if (TryEncoder(codec, settings, failure)) break;
    }
    if (!encoder_) {
        std::string hint;
        if (!picture_ && (settings.width % 2 != 0 || settings.height % 2 != 0)) {
            hint = " (it needs an even width and height and the picture is " +
                   std::to_string(settings.width) + "x" + std::to_string(settings.height) +
                   ": add --even crop to drop the last odd row or column, or --even pad to "
                   "repeat it)";
        }
        const std::string what = codecs.empty()
                                     ? "FFmpeg has no encoder for '" + path_ + "'"
                                     : "cannot encode '" + path_ + "' with " + codecs.front()->name;
        Fail(what + ": " + ErrorText(failure) + hint);
    }
    videoStream_ = avformat_new_stream(output_.get(), nullptr);
    if (videoStream_ == nullptr) throw std::bad_alloc();
    const int result = avcodec_parameters_from_context(videoStream_->codecpar, encoder_.get());
    if (result < 0) Fail("cannot write '" + path_ + "'", result);
    videoStream_->time_base = encoder_->time_base;
    videoStream_->avg_frame_rate = settings.frameRate;
    videoStream_->sample_aspect_ratio = settings.sampleAspect;
}

bool Encoder::TryEncoder(const AVCodec* codec, const OutputSettings& settings, int& failure) {
    CodecContextPtr encoder = MakeCodecContext(codec);
    encoder->width = settings.width;
    encoder->height = settings.height;
    // AVI declares its frame rate by the time base, so it gets one tick a frame.
    const bool constantRate = std::strcmp(output_->oformat->name, "avi") == 0;
    encoder->time_base = constantRate ? av_inv_q(settings.frameRate) : settings.timeBase;
    encoder->framerate = settings.frameRate;
    encoder->sample_aspect_ratio = settings.sampleAspect;
    encoder->pix_fmt = ChooseFormat(codec, settings.sourceFormat, settings.keepChroma);
    if (IsYuv(encoder->pix_fmt)) {
        colorSpace_ = EffectiveColorSpace(settings.colorSpace, settings.height);
        encoder->colorspace = colorSpace_;
        if (codec->id == AV_CODEC_ID_MJPEG) encoder->color_range = AVCOL_RANGE_JPEG;
    }
    // H.264 refuses thinned chroma at an odd size; not asking spares the encoder's failed start.
    if (codec->id == AV_CODEC_ID_H264 &&
        !WholeChroma(encoder->pix_fmt, settings.width, settings.height)) {
        if (failure == AVERROR_ENCODER_NOT_FOUND) failure = AVERROR(EINVAL);
        return false;
    }
    encoder->thread_count = 0;
    if (output_->oformat->flags & AVFMT_GLOBALHEADER) {
        encoder->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
    }
    AVDictionary* options = nullptr;
    const bool quality = settings.bitRate == 0;
    if (std::strcmp(codec->name, "libx264") == 0) {
        av_dict_set(&options, "preset", "fast", 0);
        if (quality) av_dict_set(&options, "crf", "20", 0);
    } else if (codec->id == AV_CODEC_ID_PNG) {
        av_dict_set(&options, "pred", "mixed", 0);
    } else if (quality && (codec->id == AV_CODEC_ID_MJPEG || codec->id == AV_CODEC_ID_MPEG4)) {
        encoder->flags |= AV_CODEC_FLAG_QSCALE;
        encoder->global_quality = FF_QP2LAMBDA * 3;
    }
    encoder->bit_rate = settings.bitRate;
    if (!settings.preset.empty()) av_dict_set(&options, "preset", settings.preset.c_str(), 0);
    if (settings.crf >= 0) av_dict_set_int(&options, "crf", settings.crf, 0);
    for (const auto& [key, value] : settings.codecOptions)
        av_dict_set(&options, key.c_str(), value.c_str(), 0);
    const int result = avcodec_open2(encoder.get(), codec, &options);
    // What the encoder did not take is named, not silently dropped.
    const AVDictionaryEntry* unused = av_dict_get(options, "", nullptr, AV_DICT_IGNORE_SUFFIX);
    const std::string unusedKey = unused != nullptr ? unused->key : "";
    av_dict_free(&options);
    if (result < 0) {
        if (failure == AVERROR_ENCODER_NOT_FOUND) failure = result;
        return false;
    }
    if (!unusedKey.empty()) {
        FailUsage(std::string("the ") + codec->name + " encoder has no option '" + unusedKey +
                  "' (ffmpeg -h encoder=" + codec->name + " lists them)");
    }
    encoder_ = std::move(encoder);
    return true;
}

void Encoder::AddAudio(const OutputSettings& settings) {
    if (settings.audio == nullptr) return;
    if (!Holds(output_->oformat, settings.audio->codec_id)) {
        audioNote_ = std::string(", audio left out (") +
                     avcodec_get_name(settings.audio->codec_id) + " does not fit this container)";
        return;
    }
    audioNote_ = ", audio copied";
    audioStream_ = avformat_new_stream(output_.get(), nullptr);
    if (audioStream_ == nullptr) throw std::bad_alloc();
    const int result = avcodec_parameters_copy(audioStream_->codecpar, settings.audio);
    if (result < 0) Fail("cannot copy the audio into '" + path_ + "'", result);
    audioStream_->codecpar->codec_tag = 0;
    audioStream_->time_base = settings.audioTimeBase;
    audioTimeBase_ = settings.audioTimeBase;
}

void Encoder::WriteHeader() {
    if ((output_->oformat->flags & AVFMT_NOFILE) == 0) {
        const int result = avio_open(&output_->pb, file_->Path().c_str(), AVIO_FLAG_WRITE);
        if (result < 0) Fail("cannot write '" + path_ + "'", result);
    }
    AVDictionary* options = nullptr;
    // A picture is written under its given name, never read as a numbered pattern.
    if (picture_) av_dict_set(&options, "update", "1", 0);
    if (std::strstr(output_->oformat->name, "mp4") != nullptr) {
        av_dict_set(&options, "movflags", "+faststart", 0);
    }
    const int result = avformat_write_header(output_.get(), &options);
    av_dict_free(&options);
    if (result < 0) Fail("cannot write '" + path_ + "'", result);
}

std::string Encoder::Description() const {
    return std::string(encoder_->codec->name) + " " + av_get_pix_fmt_name(encoder_->pix_fmt) +
           audioNote_;
}

void Encoder::Write(StreamItem& item) {
    if (item.packet) {
        if (audioStream_ == nullptr) return;
        AVPacket* packet = item.packet.get();
        av_packet_rescale_ts(packet, audioTimeBase_, audioStream_->time_base);
        packet->stream_index = audioStream_->index;
        packet->pos = -1;
        const int result = av_interleaved_write_frame(output_.get(), packet);
        if (result < 0) Fail("cannot write '" + path_ + "'", result);
        return;
    }
    AVFrame* frame = item.frame.get();
    frame->pts = av_rescale_q(frame->pts, frameTimeBase_, encoder_->time_base);
    if (lastPts_ != AV_NOPTS_VALUE && frame->pts <= lastPts_) frame->pts = lastPts_ + 1;
    lastPts_ = frame->pts;
    frame->pict_type = AV_PICTURE_TYPE_NONE;
    const int result = avcodec_send_frame(encoder_.get(), frame);
    if (result < 0) Fail("cannot encode '" + path_ + "'", result);
    Drain();
}

void Encoder::Drain() {
    for (;;) {
        int result = avcodec_receive_packet(encoder_.get(), packet_.get());
        if (result == AVERROR(EAGAIN) || result == AVERROR_EOF) return;
        if (result < 0) Fail("cannot encode '" + path_ + "'", result);
        av_packet_rescale_ts(packet_.get(), encoder_->time_base, videoStream_->time_base);
        packet_->stream_index = videoStream_->index;
        result = av_interleaved_write_frame(output_.get(), packet_.get());
        if (result < 0) Fail("cannot write '" + path_ + "'", result);
    }
}

void Encoder::Finish() {
    if (finished_) return;
    int result = avcodec_send_frame(encoder_.get(), nullptr);
    if (result < 0) Fail("cannot encode '" + path_ + "'", result);
    Drain();
    result = av_write_trailer(output_.get());
    if (result < 0) Fail("cannot write '" + path_ + "'", result);
    output_.reset();
    file_->Commit();
    finished_ = true;
}

}  // namespace lfx
