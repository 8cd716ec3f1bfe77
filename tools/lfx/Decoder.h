// Frames and audio packets of any file FFmpeg reads.
#pragma once

#include "Source.h"

namespace lfx {

class FileSource final : public FrameSource {
public:
    // Opens the file and its best video stream; throws a UserError when it cannot. With
    // `autorotate` the frames are to be shown turned as the stream's display matrix says.
    explicit FileSource(const std::string& path, bool autorotate = true);

    const SourceInfo& Info() const override { return info_; }
    bool Next(StreamItem& item) override;

private:
    void OpenVideoDecoder();
    void ReadOrientation(const AVStream& stream);
    int64_t EstimateFrameCount() const;

    std::string path_;
    InputContextPtr input_;
    CodecContextPtr decoder_;
    SourceInfo info_;
    int videoIndex_ = -1;
    int audioIndex_ = -1;
    bool draining_ = false;
    int64_t nextPts_ = 0;
};

}  // namespace lfx
