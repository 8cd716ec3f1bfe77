// 3x3 blur and Laplacian sharpen: repeated passes, each filtering every plane in place.
#include "libfilter/BlurSharpenEffects.h"

#include <algorithm>

#include "base/ErrorReport.h"
#include "core/Described.h"
#include "core/Planes.h"
#include "core/RowWindow.h"
#include "core/SimdOps.h"

namespace MediaCore {

namespace {

constexpr const char* kFile = ErrorFile::kCommonEffects;
// Hosts match this failure by the line it has always been reported from.
constexpr unsigned kScratchFailureLine = 183;

// Weights 1 2 1 / 2 4 2 / 1 2 1 sum to 16, so the shifted sum is always a byte.
LF_SCALAR_RULE void BlurRowScalar(const uint8_t* __restrict t, const uint8_t* __restrict m,
                                  const uint8_t* __restrict b, uint8_t* __restrict out,
                                  size_t count, size_t step) {
    const uint8_t *t1 = t + step, *m1 = m + step, *b1 = b + step;
    const uint8_t *t2 = t1 + step, *m2 = m1 + step, *b2 = b1 + step;
    for (size_t j = 0; j < count; ++j) {
        const unsigned sum = t[j] + 2u * t1[j] + t2[j] + 2u * m[j] + 4u * m1[j] + 2u * m2[j] +
                             b[j] + 2u * b1[j] + b2[j];
        out[j] = static_cast<uint8_t>(sum >> 4);
    }
}

// Nine times the centre less its eight neighbours, clamped to a byte.
LF_SCALAR_RULE void SharpenRowScalar(const uint8_t* __restrict t, const uint8_t* __restrict m,
                                     const uint8_t* __restrict b, uint8_t* __restrict out,
                                     size_t count, size_t step) {
    const uint8_t *t1 = t + step, *m1 = m + step, *b1 = b + step;
    const uint8_t *t2 = t1 + step, *m2 = m1 + step, *b2 = b1 + step;
    for (size_t j = 0; j < count; ++j) {
        const int neighbours = t[j] + t1[j] + t2[j] + m[j] + m2[j] + b[j] + b1[j] + b2[j];
        const int v = 9 * m1[j] - neighbours;
        out[j] = static_cast<uint8_t>(v < 0 ? 0 : v > 255 ? 255 : v);
    }
}

// The vector forms go column first: the vertical sums of a chunk of columns are taken once into
// a stack buffer and shared by the three outputs that use each. The integer sums are the same,
// so are the bytes. Neighbours are at most 4 bytes apart (packed pixels). Both kernels work in
// 16-bit lanes, half a vector of samples at a time; the rule's own loop finishes each part.
constexpr size_t kChunk = 512;
constexpr size_t kMaxStep = 4;

#if LF_X86_64
template <bool Sharpen>
struct Filter3x3Vectors {
    template <class I>
    static void Run(const uint8_t* t, const uint8_t* m, const uint8_t* b, uint8_t* out,
                    size_t count, size_t step) {
        using V = typename I::V;
        constexpr size_t kLanes = I::kBytes / 2;
        uint16_t columns[kChunk + 2 * kMaxStep];
        V ten;
        I::Splat16(ten, 10);
        for (size_t start = 0; start < count; start += kChunk) {
            const size_t n = std::min(kChunk, count - start);
            const size_t width = n + 2 * step;
            size_t i = 0;
            for (; i + kLanes <= width; i += kLanes) {
                V top, middle, bottom;
                I::LoadWiden8(top, t + start + i);
                I::LoadWiden8(middle, m + start + i);
                I::LoadWiden8(bottom, b + start + i);
                if (!Sharpen) I::Add16(middle, middle, middle);
                I::Add16(top, top, middle);
                I::Add16(top, top, bottom);
                I::Store(columns + i, top);
            }
            for (; i < width; ++i) {
                const unsigned middle = Sharpen ? m[start + i] : 2u * m[start + i];
                columns[i] = static_cast<uint16_t>(t[start + i] + middle + b[start + i]);
            }
            size_t j = 0;
            for (; j + kLanes <= n; j += kLanes) {
                V left, centre, right;
                I::Load(left, columns + j);
                I::Load(centre, columns + j + step);
                I::Load(right, columns + j + 2 * step);
                I::Add16(left, left, right);
                if (Sharpen) {
                    // Ten times the centre less the whole 3x3 sum, within -2295 .. 2550.
                    I::Add16(left, left, centre);
                    I::LoadWiden8(centre, m + start + step + j);
                    I::MulLo16(centre, centre, ten);
                    I::Sub16(left, centre, left);
                } else {
                    I::Add16(centre, centre, centre);
                    I::Add16(left, left, centre);
                    I::template ShiftRight16<4>(left, left);
                }
                I::StoreNarrowU8(out + start + j, left);
            }
            for (; j < n; ++j)
                out[start + j] = Sharpen ? SharpenColumns(columns + j, m[start + step + j], step)
                                         : BlurColumns(columns + j, step);
        }
    }

    static uint8_t BlurColumns(const uint16_t* c, size_t step) {
        return static_cast<uint8_t>((c[0] + 2u * c[step] + c[2 * step]) >> 4);
    }
    static uint8_t SharpenColumns(const uint16_t* c, uint8_t centre, size_t step) {
        const int v = 10 * centre - (c[0] + c[step] + c[2 * step]);
        return static_cast<uint8_t>(v < 0 ? 0 : v > 255 ? 255 : v);
    }
};
#endif

constexpr Simd::Variant<Filter3x3RowFn> kBlurRow[] = {
    {Simd::kScalar, BlurRowScalar},
#if LF_X86_64
    {Simd::kSse2, Simd::RunSse2<Filter3x3Vectors<false>>},
    {Simd::kAvx2, Simd::RunAvx2<Filter3x3Vectors<false>>},
    {Simd::kAvx512, Simd::RunAvx512<Filter3x3Vectors<false>>},
#endif
};

constexpr Simd::Variant<Filter3x3RowFn> kSharpenRow[] = {
    {Simd::kScalar, SharpenRowScalar},
#if LF_X86_64
    {Simd::kSse2, Simd::RunSse2<Filter3x3Vectors<true>>},
    {Simd::kAvx2, Simd::RunAvx2<Filter3x3Vectors<true>>},
    {Simd::kAvx512, Simd::RunAvx512<Filter3x3Vectors<true>>},
#endif
};

void FilterPlane(const Plane& plane, size_t step, Filter3x3RowFn filterRow) {
    if (!FilterRowsInPlace(plane, step, filterRow))
        Raise(kFile, kScratchFailureLine, ErrorText::kMallocFailed);
}

// Passes are the outer loop: every plane gets pass 1 before any gets pass 2. The count is kept
// unsigned as set, but one that reads negative means no pass rather than four billion.
void FilterFrame(GVideoFrame* frame, uint32_t passes, Filter3x3RowFn filterRow) {
    if (frame == nullptr || static_cast<int32_t>(passes) <= 0) return;
    const int format = frame->GetPixelFormat();
    switch (FamilyOf(format)) {
        case FormatFamily::PackedBgra: {
            // Each byte of a pixel is filtered with the same bytes of the pixels beside it.
            const Plane plane = GetPackedPlane(frame);
            for (uint32_t pass = 0; pass < passes; ++pass)
                FilterPlane(plane, 4, filterRow);
            break;
        }
        case FormatFamily::PlanarYuv: {
            const unsigned count = PlanarPlaneCount(format);
            for (uint32_t pass = 0; pass < passes; ++pass) {
                for (unsigned i = 0; i < count; ++i)
                    FilterPlane(GetPlane(frame, i), 1, filterRow);
            }
            break;
        }
        case FormatFamily::Other:
            break;
    }
}

}  // namespace

// ---- What hosts are told of it ----

constexpr PropertyDescription kBlurProperties[] = {
    {"blur_count", PROPERTY_INT32, "1", PropertyKind::Integer, 0, 10, RangeBound::Fixed,
     "how many times the 3x3 blur runs"},
};
constexpr ShowcaseSetting kBlurShowcase[] = {{"blur_count", 4, RangeBound::Fixed}};
constexpr EffectDescription kBlur = {AVPROCESSOR_GAUSS_BLUR,
                                     "blur",
                                     "3x3 Gaussian blur, blur_count passes",
                                     EffectMaking::Factory,
                                     "MediaCore::CSimpleGaussBlurEffect",
                                     false,
                                     MakeEffect<CSimpleGaussBlurEffect>,
                                     kBlurProperties,
                                     CountOf(kBlurProperties),
                                     kBlurShowcase,
                                     CountOf(kBlurShowcase)};
LF_DESCRIBE_EFFECT(kBlur);

constexpr PropertyDescription kSharpenProperties[] = {
    {"sharpen_count", PROPERTY_INT32, "1", PropertyKind::Integer, 0, 10, RangeBound::Fixed,
     "how many times the 3x3 sharpen runs"},
};
constexpr EffectDescription kSharpen = {AVPROCESSOR_LAPLACIAN_SHARPEN,
                                        "sharpen",
                                        "3x3 Laplacian sharpen, sharpen_count passes",
                                        EffectMaking::Factory,
                                        "MediaCore::CSimpleLaplacianSharpenEffect",
                                        false,
                                        MakeEffect<CSimpleLaplacianSharpenEffect>,
                                        kSharpenProperties,
                                        CountOf(kSharpenProperties),
                                        nullptr,
                                        0};
LF_DESCRIBE_EFFECT(kSharpen);

CSimpleGaussBlurEffect::CSimpleGaussBlurEffect() : CImageEffectBase(AVPROCESSOR_GAUSS_BLUR) {}

int CSimpleGaussBlurEffect::OnSetProperty(const std::string& name, PropertyNode& node) {
    const int result = CVideoEffectBase::OnSetProperty(name, node);
    if (name == "blur_count") passes_ = static_cast<uint32_t>(node.parsed.i32);
    return result;
}

bool CSimpleGaussBlurEffect::ProcFrameInner(ImagePostion*, int, GVideoFrame* frame) {
    FilterFrame(frame, passes_, Simd::Pick(kBlurRow));
    return true;
}

CSimpleLaplacianSharpenEffect::CSimpleLaplacianSharpenEffect()
    : CImageEffectBase(AVPROCESSOR_LAPLACIAN_SHARPEN) {}

int CSimpleLaplacianSharpenEffect::OnSetProperty(const std::string& name, PropertyNode& node) {
    const int result = CVideoEffectBase::OnSetProperty(name, node);
    if (name == "sharpen_count") passes_ = static_cast<uint32_t>(node.parsed.i32);
    return result;
}

bool CSimpleLaplacianSharpenEffect::ProcFrameInner(ImagePostion*, int, GVideoFrame* frame) {
    FilterFrame(frame, passes_, Simd::Pick(kSharpenRow));
    return true;
}

}  // namespace MediaCore
