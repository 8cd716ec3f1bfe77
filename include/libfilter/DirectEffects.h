// Effects a host constructs itself instead of asking libfilter_GetFilter: mirage,
// transparency, colour key and grain. A host creates one with new, drives it through its
// GVideoProcessor face (SetProperty, ProcFrame, ProcFrameInPlace) and releases it with Free:
//
//     MediaCore::GVideoProcessor* effect = new MediaCore::CMirageVideoImageEffect();
//     effect->SetProperty("mirage_width", "20");
//     effect->ProcFrameInPlace(&position, 0, frame);
//     effect->Free();
//
// Every effect changes packed BGRA and planar YUV frames in place and leaves other formats
// untouched. The worker members take plane pointers, widths, strides and row counts as the
// frame's GetBuffer answers them.
#pragma once

#include <cstddef>
#include <string>

#include "libfilter/AlignedMemory.h"
#include "libfilter/EffectBase.h"

namespace MediaCore {

// Blends the frame with a copy of itself magnified about its centre, so edges appear doubled
// outward. Properties: "mirage_width" (magnification, (200 + width) / 200; 0 or less leaves
// the frame as it is) and "mirage_alpha" (weight of the magnified copy, 0 to 100; above 100
// leaves the frame as it is), both 10 by default.
class CMirageVideoImageEffect : public CImageEffectBase {
public:
    CMirageVideoImageEffect();
    int OnSetProperty(const std::string& name, PropertyNode& node) override;
    bool ProcFrameInner(ImagePostion* position, int n, GVideoFrame* frame) override;

    // BGRA worker: `src` holds the unchanged picture, `dst` receives the result; both planes
    // have `width` pixels a row, `rows` rows and `stride` bytes from row to row.
    void MirageRgba32Effect(unsigned char* dst, unsigned char* src, unsigned int width,
                            unsigned int stride, unsigned int rows);
    // Planar worker over Y, U and V: three plane pointers, row widths in bytes, strides and row
    // counts each; `subsampling` is 10 * horizontal + vertical chroma shift.
    void MirageComponentEffect(unsigned char** dst, unsigned char** src, unsigned int* width,
                               unsigned int* strides, unsigned int* rows, unsigned int subsampling);

private:
    unsigned width_ = 10;
    unsigned alpha_ = 10;
    [[maybe_unused]] unsigned capability_ = 0;  // kept for layout; nothing reads it
};

// Scales the alpha of every pixel by "transparency_scale" percent (100 keeps it, 0 turns the
// effect off). Colour is untouched; frames without alpha pass unchanged.
class CTransparencyAjustEffect : public CImageEffectBase {
public:
    CTransparencyAjustEffect();
    int OnSetProperty(const std::string& name, PropertyNode& node) override;
    bool ProcFrameInner(ImagePostion* position, int n, GVideoFrame* frame) override;

private:
    unsigned scale_ = 0;  // in 1/256 units
};

// Colour key: zeroes the alpha of every pixel within "filter_scope" of "filter_color"
// (0xRRGGBB). Packed frames compare the whole 24-bit colour number, planar frames with an
// alpha plane each of Y, U and V against the key's studio-swing YUV.
class CColorFilterEffect : public CImageEffectBase {
public:
    CColorFilterEffect();
    int OnSetProperty(const std::string& name, PropertyNode& node) override;
    bool ProcFrameInner(ImagePostion* position, int n, GVideoFrame* frame) override;

    // BGRA worker over `width` pixels a row.
    void FilterRGBA32Effect(unsigned char* pixels, unsigned int width, unsigned int stride,
                            unsigned int rows);
    // Planar worker over Y, U, V and alpha: four plane pointers, row widths, strides and row
    // counts each. A nonzero `chromaShift` reads chroma at half resolution both ways.
    void FilterComponentEffect(unsigned char** planes, unsigned int* widths, unsigned int* strides,
                               unsigned int* rows, unsigned char chromaShift);

private:
    unsigned scope_ = 0;
    unsigned color_ = 0;
    unsigned char keyY_ = 0;
    unsigned char keyU_ = 0;
    unsigned char keyV_ = 0;
};

// Static grain: scales each colour sample down and adds a random amount, clamped at 255. The
// random pattern is drawn at the first frame after construction or after a level change and
// then added unchanged to every later frame. "addnoise_level" (0 to 12, strongest at 0) sets
// the amount; a new effect works at level 4 until the level is first set.
class CAddNoiseVideoImageEffect : public CImageEffectBase {
public:
    CAddNoiseVideoImageEffect();
    ~CAddNoiseVideoImageEffect() override;
    int OnSetProperty(const std::string& name, PropertyNode& node) override;
    bool ProcFrameInner(ImagePostion* position, int n, GVideoFrame* frame) override;

    // BGRA workers over `width` pixels a row (colour bytes only): the First forms draw a new
    // pattern, the others reuse the drawn one (drawing it first when it is too small).
    void AddNoiseRgba32EffectFirst(unsigned char* pixels, unsigned int width, unsigned int stride,
                                   unsigned int rows);
    void AddNoiseRgba32Effect(unsigned char* pixels, unsigned int width, unsigned int stride,
                              unsigned int rows);
    // Workers over one 8-bit plane of `width` bytes a row.
    void AddNoiseComponentEffectFirst(unsigned char* plane, unsigned int width, unsigned int stride,
                                      unsigned int rows);
    void AddNoiseComponentEffect(unsigned char* plane, unsigned int width, unsigned int stride,
                                 unsigned int rows);

private:
    void Draw(size_t entries);

    unsigned shift_ = 8;
    AlignedBuffer noise_{32};  // one byte a noise value, capped at 255, plus read-ahead slack
    size_t noiseEntries_ = 0;
    unsigned drawn_ = 0;
};

}  // namespace MediaCore
