// The abstract picture that flows between a host and the effects.
#pragma once

#include <memory>

namespace MediaCore {

// Slot order is ABI: the operations below in this order, then the destructor.
class GVideoFrame {
public:
    virtual int GetPixelFormat() = 0;
    virtual void GetDimension(unsigned* w, unsigned* h) = 0;
    virtual int GetTimeStamp() = 0;
    virtual void SetTimeStamp(int stamp) = 0;
    virtual bool IsTopDown() = 0;
    virtual bool IsPacked() = 0;
    virtual unsigned GetBufferCount() = 0;
    virtual unsigned GetTotalSize() = 0;
    virtual unsigned char* GetBuffer(unsigned index, unsigned* rowBytes, unsigned* pitch,
                                     unsigned* rows) = 0;
    virtual double GetDAR() = 0;
    virtual bool CropRightAndBottom(unsigned right, unsigned bottom) = 0;
    virtual void Free() = 0;
    virtual unsigned GetDuration() = 0;
    virtual void SetDuration(unsigned duration) = 0;
    virtual unsigned GetDuplicatedCount(unsigned* second) = 0;
    virtual void SetDuplicatedCount(unsigned count, unsigned second) = 0;
    virtual GVideoFrame* Clone() = 0;
    virtual bool CanBeModified() = 0;
    virtual void SetCanBeModified(bool canBeModified) = 0;
    virtual bool IsInterlaced() = 0;
    virtual void SetInterlaced(bool interlaced) = 0;
    virtual bool IsTopFieldFirst() = 0;
    virtual void SetTopFieldFirst(bool topFieldFirst) = 0;
    virtual void SetBorderData(void* data, int length) = 0;
    virtual int GetBorderData(void** data, int* length) = 0;
    virtual void* GetInterface(const char* name) = 0;
    virtual ~GVideoFrame() = default;
};

// Owning pointer for frames, which are released through their own Free.
struct FrameFree {
    void operator()(GVideoFrame* frame) const { frame->Free(); }
};
using FramePtr = std::unique_ptr<GVideoFrame, FrameFree>;

// Interface name under which a frame answers its attached second view.
constexpr const char* kSubVideoFrameInterface = "GSubVideoFrame";

}  // namespace MediaCore
