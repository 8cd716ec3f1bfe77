// Stereo 3D: the renderer that combines two views, the colour anaglyph made from one frame, and
// the 2D-to-3D effect that drives both. The renderer and the colour anaglyph are plain objects a
// host may also build and drive on its own.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "libfilter/EffectBase.h"
#include "libfilter/GController.h"

namespace MediaCore {

// Q15 fixed-point sine of 0..90 degrees (entry 91 is 0).
extern const int32_t sin_map[92];
// Q15 fixed-point tan(i - 90 degrees) for i = 2..178; entries 0, 1 and 179..183 are 0.
extern const int32_t tan_map[184];

// Owning pointer for host converters, which are released through their own Release.
struct ConverterRelease {
    void operator()(GFrameConverter* converter) const { converter->Release(); }
};
using ConverterPtr = std::unique_ptr<GFrameConverter, ConverterRelease>;

// A host controller that offers frame converters only: the operations the library never calls
// do nothing.
class CConverterController : public GController {
public:
    void Reserved0() override {}
    void Reserved1() override {}
    void Reserved2() override {}
    void Reserved3() override {}
    void Reserved4() override {}
    void Reserved5() override {}
    void Reserved6() override {}
};

// Combines a left and a right view into one frame: red-blue anaglyph, side by side at half
// width or top-bottom at half height.
class C3DRender {
public:
    explicit C3DRender(GController* controller);
    C3DRender(const C3DRender&) = delete;
    C3DRender& operator=(const C3DRender&) = delete;
    virtual ~C3DRender();

    // A depth of 0 keeps the previous one.
    void SetDepth(unsigned int depth);
    void SetRenderMode(Type3D mode);
    // Writes the two views into `out`, or into a frame the renderer keeps when `out` is null,
    // and answers the frame written (null after a report when the views cannot be combined).
    GVideoFrame* Render(GVideoFrame* left, GVideoFrame* right, GVideoFrame* out);

    void ProcessBGRA(GVideoFrame* left, GVideoFrame* right, GVideoFrame* out);
    void ProcessYUV(GVideoFrame* left, GVideoFrame* right, GVideoFrame* out);
    bool ProcessYUVRedBlue(GVideoFrame* left, GVideoFrame* right, GVideoFrame* out);
    bool ProcessRGBRedBlue(GVideoFrame* left, GVideoFrame* right, GVideoFrame* out);

    // Source column of output column x in the left view (columns [0, width - depth)) and in the
    // right view (columns [depth, width)). Both answer true.
    bool MapResultVFFromLeft(int x, int y, int width, int& srcX, int& srcY);
    bool MapResultVFFromRight(int x, int y, int width, int& srcX, int y2);
    // Single-pixel colour conversions. Both answer true.
    bool ConvertRGB2YUV(int r, int g, int b, int& y, int& u, int& v);
    bool ConvertYUV2RGB(int y, int u, int v, int& r, int& g, int& b);

private:
    GVideoFrame* RenderFrames(GVideoFrame* left, GVideoFrame* right, GVideoFrame* out);

    unsigned depth_ = 0;
    Type3D mode_ = TYPE3D_NONE;
    GController* controller_;
    ConverterPtr converter_;
    FramePtr output_;
};

// Colour anaglyph of one frame: one channel from each pixel, the other two from a pixel a few
// columns to the right of a slightly widened copy.
class C2DToColor3D {
public:
    explicit C2DToColor3D(GController* controller);
    C2DToColor3D(const C2DToColor3D&) = delete;
    C2DToColor3D& operator=(const C2DToColor3D&) = delete;
    ~C2DToColor3D();

    void SetProperty(Type3D type, unsigned int depth);
    // Renders the anaglyph into `frame`; false after a report.
    bool ProcFrameInner(ImagePostion* position, int count, GVideoFrame* frame);
    // Writes BGRA pixels into `dst` from the last widened copy; false when there is none.
    bool ProcessColor3DBGRA(unsigned char* dst, unsigned int width, unsigned int stride,
                            unsigned int rows);

private:
    void Render(GVideoFrame* frame);
    GVideoFrame* WorkFrame(GVideoFrame* frame, unsigned width, unsigned height);
    void ConvertBack(GVideoFrame* frame, int format, unsigned width, unsigned height);

    int depth_ = 60;
    Type3D type_ = TYPE3D_RED_BLUE;
    GController* controller_;
    ConverterPtr forward_;
    GVideoFrame* converted_ = nullptr;  // owned by forward_
    unsigned convertedWidth_ = 0;
    FramePtr work_;
    std::vector<uint8_t> workPixels_;
    ConverterPtr back_;
};

// The 2D-to-3D effect (factory id 5): synthesises a left and a right view from each frame and
// renders them side by side or top-bottom, or hands the frame to the colour anaglyph.
class C2DTo3D : public CImageEffectBase {
public:
    explicit C2DTo3D(GController* controller);
    ~C2DTo3D() override;

    int OnSetProperty(const std::string& name, PropertyNode& node) override;
    bool ProcFrameInner(ImagePostion* position, int count, GVideoFrame* frame) override;
    // The left view shows source columns [0, W - depth), the right view [depth, W), each
    // stretched to the full width. Null after a report.
    GVideoFrame* PrepareLV(GVideoFrame* frame);
    GVideoFrame* PrepareRV(GVideoFrame* frame);

private:
    struct ViewMaps;

    bool RenderFromFrame(GVideoFrame* frame);
    GVideoFrame* SynthesiseLeft(GVideoFrame* frame);
    GVideoFrame* SynthesiseRight(GVideoFrame* frame);
    bool UpdateRatio(GVideoFrame* frame);

    unsigned type_ = TYPE3D_SIDE_BY_SIDE;
    unsigned depth_ = 60;
    unsigned swap_ = 0;
    C3DRender renderer_;
    C2DToColor3D colour_;
    double ratio_ = 0.0;
    FramePtr left_;
    FramePtr right_;
    // The geometry the ratio was computed for; a change recomputes it.
    unsigned ratioWidth_ = 0;
    unsigned ratioHeight_ = 0;
    unsigned ratioDepth_ = 0;
    std::unique_ptr<ViewMaps> maps_;
};

}  // namespace MediaCore
