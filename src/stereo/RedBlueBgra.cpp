// Red-blue on packed BGRA: blue and green from the right view, red from the left, alpha kept.
#include <algorithm>

#include "core/SimdOps.h"
#include "stereo/StereoRender.h"

namespace MediaCore::stereo {

namespace {

using RgbRedBlueFn = void (*)(uint8_t* out, const uint8_t* left, const uint8_t* right,
                              size_t pixels);

void RgbRedBlueScalar(uint8_t* out, const uint8_t* left, const uint8_t* right, size_t pixels) {
    for (size_t x = 0; x < pixels; ++x) {
        out[4 * x + 0] = right[4 * x + 0];
        out[4 * x + 1] = right[4 * x + 1];
        out[4 * x + 2] = left[4 * x + 2];
    }
}

#if LF_X86_64
// Each block loads all three before it stores, so an output that is one of the views still
// reads that view's own pixel, as the rule does.
struct RgbRedBlueVectors {
    template <class I>
    static void Run(uint8_t* out, const uint8_t* left, const uint8_t* right, size_t pixels) {
        using V = typename I::V;
        V fromRight, fromLeft, kept;
        I::Splat32(fromRight, 0x0000FFFF);
        I::Splat32(fromLeft, 0x00FF0000);
        I::Splat32(kept, 0xFF000000u);
        constexpr size_t kStep = I::kBytes / 4;
        size_t x = 0;
        for (; x + kStep <= pixels; x += kStep) {
            V l, r, o;
            I::Load(l, left + 4 * x);
            I::Load(r, right + 4 * x);
            I::Load(o, out + 4 * x);
            I::And(r, r, fromRight);
            I::And(l, l, fromLeft);
            I::And(o, o, kept);
            I::Or(o, o, r);
            I::Or(o, o, l);
            I::Store(out + 4 * x, o);
        }
        RgbRedBlueScalar(out + 4 * x, left + 4 * x, right + 4 * x, pixels - x);
    }
};
#endif

constexpr Simd::Variant<RgbRedBlueFn> kRgbRedBlue[] = {
    {Simd::kScalar, RgbRedBlueScalar},
#if LF_X86_64
    {Simd::kSse2, Simd::RunSse2<RgbRedBlueVectors>},
    {Simd::kAvx2, Simd::RunAvx2<RgbRedBlueVectors>},
#endif
};
}  // namespace

void RgbRedBlue(GVideoFrame* left, GVideoFrame* right, GVideoFrame* out) {
    RequireFrames(left, right, out);
    const Plane l = GetPackedPlane(left), r = GetPackedPlane(right), o = GetPackedPlane(out);
    unsigned width = 0, height = 0;
    left->GetDimension(&width, &height);
    if (width == 0 || height == 0) return;
    width = std::min({width, l.rowBytes / 4, r.rowBytes / 4, o.rowBytes / 4});
    height = std::min({height, RowsOf(l), RowsOf(r), RowsOf(o)});
    const RgbRedBlueFn mix = Simd::Pick(kRgbRedBlue);
    for (unsigned y = 0; y < height; ++y)
        mix(o.Row(y), l.Row(y), r.Row(y), width);
}

}  // namespace MediaCore::stereo
