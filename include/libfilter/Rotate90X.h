// Rotation by a quarter turn (factory id 19): the picture is scaled so that its turned form fits
// the frame, turned, centred on black and written back into the frame.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "libfilter/CVideoFrame.h"
#include "libfilter/EffectBase.h"
#include "libfilter/Stereo3D.h"

namespace MediaCore {

class CRotate90X : public CImageEffectBase {
public:
    explicit CRotate90X(GController* controller);
    ~CRotate90X() override;

    int OnSetProperty(const std::string& name, PropertyNode& node) override;
    // Turns the frame in place and fills `position` with where the turned picture lies.
    bool ProcFrameInner(ImagePostion* position, int n, GVideoFrame* frame) override;

    // Each of these reports its own failure and answers false.
    bool PrepareImageCvt(GVideoFrame* frame);
    bool PrepareRstFrame(unsigned format, GVideoFrame* input);
    bool ProcessYUV90(GVideoFrame* result, int direction);
    bool ProcessBGRA90(GVideoFrame* result, int direction);
    // Releases pixel memory of the effect's own result frame only.
    void FreeVideoFrameBuffer(CVideoFrame* frame);

private:
    struct ResultFree {
        void operator()(CVideoFrame* frame) const { frame->Free(); }
    };

    bool Rotate(ImagePostion* position, GVideoFrame* frame);
    bool RotateYuv(ImagePostion* position, GVideoFrame* frame);
    bool RotateConverted(ImagePostion* position, GVideoFrame* frame, ConverterPtr& toYuv,
                         ConverterPtr& back, int format);
    void PrepareConverters(ConverterPtr& toYuv, ConverterPtr& back, int format);
    void MakeResultFrame(unsigned format, GVideoFrame* input);
    void ReleaseResult();
    bool ResultReady() const;
    void Turn(GVideoFrame* result, int direction, bool packed);

    GController* controller_;
    ConverterPtr scaler_;
    std::unique_ptr<CVideoFrame, ResultFree> result_;
    std::vector<std::unique_ptr<uint8_t[]>> resultPlanes_;
    GVideoFrame* scaled_ = nullptr;  // owned by scaler_
    int direction_ = 1;
    int workingFormat_ = PIXFMT_YUV420P;
    ConverterPtr toYuv_;
    ConverterPtr fromYuv_;
    int otherFormat_ = -1;
    ConverterPtr bgraToYuv_;
    ConverterPtr yuvToBgra_;
    unsigned inputWidth_ = 0;
    unsigned inputHeight_ = 0;
    int sw_ = 0;
    int sh_ = 0;
    int x0_ = 0;
    int y0_ = 0;
    // Source row of each output column and source column of each output row, per plane.
    std::vector<const uint8_t*> rowTable_;
    std::vector<uint32_t> columnTable_;
};

}  // namespace MediaCore
