// Encodes frames into a file whose kind follows its name (.png/.jpg: one picture; .mp4/.mkv
// and other containers: H.264 video where the container takes it), copying an audio stream
// where the container allows. The file appears only after Finish.
#pragma once

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "Ffmpeg.h"
#include "Source.h"
#include "TempFile.h"

namespace lfx {

struct OutputSettings {
    std::string path;
    int width = 0;
    int height = 0;
    AVRational timeBase{1, 25};
    AVRational frameRate{25, 1};
    AVRational sampleAspect{1, 1};
    AVColorSpace colorSpace = AVCOL_SPC_UNSPECIFIED;  // YUV matrix of the pictures
    AVPixelFormat sourceFormat = AV_PIX_FMT_BGRA;     // what the frames are in before encoding
    const AVCodecParameters* audio = nullptr;         // stream to copy, or null
    AVRational audioTimeBase{1, 1};
    std::string codec;                           // encoder name; empty: chosen by the container
    AVPixelFormat keepChroma = AV_PIX_FMT_NONE;  // YUV format to encode in where the encoder can
    int crf = -1;                                // constant quality, -1: the encoder's default
    std::string preset;                          // speed against size, for encoders that have it
    int64_t bitRate = 0;                         // bits a second, 0: quality-driven
    std::vector<std::pair<std::string, std::string>> codecOptions;  // passed to the encoder
};

class Encoder {
public:
    // Opens the encoder and writes the file's header; throws a UserError when it cannot.
    explicit Encoder(const OutputSettings& settings);
    ~Encoder();
    Encoder(const Encoder&) = delete;
    Encoder& operator=(const Encoder&) = delete;

    // True for picture files, which hold one frame.
    bool IsPicture() const { return picture_; }
    // The format Write wants frames in.
    AVPixelFormat PixelFormat() const { return encoder_->pix_fmt; }
    AVColorSpace ColorSpace() const { return colorSpace_; }
    // The encoder's name and pixel format, and what became of the audio.
    std::string Description() const;

    // Encodes a frame (in PixelFormat) or copies an audio packet.
    void Write(StreamItem& item);
    // Flushes the encoder, completes the file and moves it to its name.
    void Finish();

private:
    struct OutputContextDeleter {
        void operator()(AVFormatContext* context) const;
    };

    void OpenEncoder(const OutputSettings& settings);
    bool TryEncoder(const AVCodec* codec, const OutputSettings& settings, int& failure);
    void AddAudio(const OutputSettings& settings);
    void WriteHeader();
    void Drain();

    std::string path_;
    std::unique_ptr<TempFile> file_;
    std::unique_ptr<AVFormatContext, OutputContextDeleter> output_;
    CodecContextPtr encoder_;
    AVStream* videoStream_ = nullptr;
    AVStream* audioStream_ = nullptr;
    AVRational audioTimeBase_{1, 1};
    AVRational frameTimeBase_{1, 1};  // of the frames Write is given
    std::string audioNote_;
    AVColorSpace colorSpace_ = AVCOL_SPC_UNSPECIFIED;
    PacketPtr packet_;
    int64_t lastPts_ = AV_NOPTS_VALUE;
    bool picture_ = false;
    bool finished_ = false;
};

}  // namespace lfx
