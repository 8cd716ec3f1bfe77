// The library's frame: plane records over external memory, or one owned aligned block.
#pragma once

#include <vector>

#include "libfilter/AlignedMemory.h"
#include "libfilter/GVideoFrame.h"
#include "libfilter/PixelFormat.h"

namespace MediaCore {

class CVideoFrame : public GVideoFrame {
public:
    // One plane: pointer to the row lowest in memory, then its geometry.
    struct PlaneRecord {
        unsigned char* data = nullptr;
        unsigned rowBytes = 0;
        unsigned pitch = 0;
        unsigned rows = 0;
        unsigned cropRatio = 0;
        unsigned divisor = 0;
    };

    // Geometry only: no pixel memory until SetBuffer. Raises "Bad pixel format:%d".
    CVideoFrame(bool freeDeletes, int format, unsigned width, unsigned height, bool topDown);
    // Deep copy into one 16-byte-aligned block owned by the new frame.
    CVideoFrame(const CVideoFrame& other);
    CVideoFrame& operator=(const CVideoFrame&) = delete;
    ~CVideoFrame() override;

    void SetSize(unsigned width, unsigned height);
    // Attaches external memory; a negative first pitch means the caller's rows run bottom-up.
    void SetBuffer(unsigned char** data, int* pitches, void* userData);
    void SetDAR(double dar);
    void SetTopDown(bool topDown);
    unsigned GetRequireSize();
    PlaneRecord* GetBuffer(unsigned index);
    GVideoFrame* CopySubsetFrame(GVideoFrame* frame);

    int GetPixelFormat() override { return format_; }
    void GetDimension(unsigned* w, unsigned* h) override;
    int GetTimeStamp() override { return timeStamp_; }
    void SetTimeStamp(int stamp) override { timeStamp_ = stamp; }
    bool IsTopDown() override { return topDown_; }
    bool IsPacked() override { return packed_; }
    unsigned GetBufferCount() override { return static_cast<unsigned>(planes_.size()); }
    unsigned GetTotalSize() override;
    unsigned char* GetBuffer(unsigned index, unsigned* rowBytes, unsigned* pitch,
                             unsigned* rows) override;
    double GetDAR() override { return dar_; }
    bool CropRightAndBottom(unsigned right, unsigned bottom) override;
    void Free() override;
    unsigned GetDuration() override { return duration_; }
    void SetDuration(unsigned duration) override { duration_ = duration; }
    unsigned GetDuplicatedCount(unsigned* second) override;
    void SetDuplicatedCount(unsigned count, unsigned second) override;
    GVideoFrame* Clone() override;
    bool CanBeModified() override { return canBeModified_; }
    void SetCanBeModified(bool canBeModified) override { canBeModified_ = canBeModified; }
    bool IsInterlaced() override { return interlaced_; }
    void SetInterlaced(bool interlaced) override { interlaced_ = interlaced; }
    bool IsTopFieldFirst() override { return topFieldFirst_; }
    void SetTopFieldFirst(bool topFieldFirst) override { topFieldFirst_ = topFieldFirst; }
    void SetBorderData(void* data, int length) override;
    int GetBorderData(void** data, int* length) override;
    void* GetInterface(const char* name) override;

private:
    void ApplyLayout(const PixelFormatLayout& layout);

    int format_;
    unsigned width_;
    unsigned height_;
    int timeStamp_ = 0;
    bool topDown_;
    bool packed_ = true;
    bool canBeModified_ = true;
    bool freeDeletes_;
    bool topFieldFirst_ = false;
    bool interlaced_ = false;
    std::vector<PlaneRecord> planes_;
    double dar_ = 0.0;
    unsigned cropRight_ = 0;
    unsigned cropBottom_ = 0;
    unsigned duration_ = 1;
    unsigned duplicatedCount_ = 1;
    unsigned duplicatedSecond_ = 0;
    [[maybe_unused]] bool ownsMemory_ = false;  // set by copies, which own their block
    AlignedBuffer block_{16};
    std::vector<unsigned char> borderData_;
    FramePtr subFrame_;
    void* userData_ = nullptr;
};

}  // namespace MediaCore
