// The two base classes through which every effect is driven.
#pragma once

#include "libfilter/CProcessor.h"
#include "libfilter/GVideoProcessor.h"

namespace MediaCore {

// Joins the processor machinery with the host's GVideoProcessor face.
class CVideoEffectBase : public CProcessor, public GVideoProcessor {
public:
    // Both faces answer the same processor.
    void* GetInterface(const char* name) override { return CProcessor::GetInterface(name); }
    void Free() override { CProcessor::Free(); }
    unsigned GetType() override { return CProcessor::GetType(); }
    unsigned GetSubType() override { return CProcessor::GetSubType(); }
    unsigned GetID() override { return CProcessor::GetID(); }
    bool SetProperty(const char* name, const char* value) override {
        return CProcessor::SetProperty(name, value);
    }
    const char* GetProperty(const char* name, int* type) override {
        return CProcessor::GetProperty(name, type);
    }
    GStringList* GetPropertyNames() override { return CProcessor::GetPropertyNames(); }

    int OnSetProperty(const std::string& name, PropertyNode& node) override;
    bool Seek(unsigned int position) override;
    unsigned GetDuration() override;
    GVideoFrame* ProcFrame(ImagePostion* position, int n, GVideoFrame* frame) override;
    void ProcFrameInPlace(ImagePostion* position, int n, GVideoFrame* frame) override;
    void BlendFrame(const ImagePostion* position, int n, GVideoFrame* a, GVideoFrame* b) override;

protected:
    CVideoEffectBase(AVProcessorID id, unsigned subtype);
    using CProcessor::GetProperty;

private:
    unsigned duration_;
};

// Turns ProcFrame (on a copy) and ProcFrameInPlace (on the host's frame) into ProcFrameInner.
class CImageEffectBase : public CVideoEffectBase {
public:
    ~CImageEffectBase() override;
    GVideoFrame* ProcFrame(ImagePostion* position, int n, GVideoFrame* frame) override;
    void ProcFrameInPlace(ImagePostion* position, int n, GVideoFrame* frame) override;
    // Changes the frame's pixels in place. `frame` is null only when a copy failed silently.
    virtual bool ProcFrameInner(ImagePostion* position, int n, GVideoFrame* frame) = 0;

protected:
    explicit CImageEffectBase(AVProcessorID id);

private:
    FramePtr workFrame_;
};

}  // namespace MediaCore
