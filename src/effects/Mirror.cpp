// Mirror: every move is an exchange of two units (a byte of a planar plane, or a whole BGRA
// pixel), so the frame is turned in place without scratch memory.
#include "libfilter/MirrorEffect.h"

#include <algorithm>
#include <cstring>

#include "core/Described.h"
#include "core/Exchange.h"
#include "core/Planes.h"
#include "core/SimdOps.h"

namespace MediaCore {

namespace {

// Exchanges unit i of `front` with the i-th unit counted back from `backEnd`, for i < count.
// The two ranges never overlap.
using SwapReversedFn = void (*)(uint8_t* front, uint8_t* backEnd, size_t count);

void SwapReversed8Scalar(uint8_t* front, uint8_t* backEnd, size_t count) {
    for (size_t i = 0; i < count; ++i)
        std::swap(front[i], *(backEnd - 1 - i));
}

void SwapReversed32Scalar(uint8_t* front, uint8_t* backEnd, size_t count) {
    for (size_t i = 0; i < count; ++i) {
        uint8_t* a = front + 4 * i;
        uint8_t* b = backEnd - 4 * (i + 1);
        uint32_t va, vb;
        std::memcpy(&va, a, 4);
        std::memcpy(&vb, b, 4);
        std::memcpy(a, &vb, 4);
        std::memcpy(b, &va, 4);
    }
}

#if LF_X86_64
// Takes a vector from each end, reverses both in register and stores them crosswise. Units are
// bytes (Unit 1) or BGRA pixels (Unit 4).
template <unsigned Unit>
struct SwapReversedVectors {
    template <class I>
    static void Run(uint8_t* front, uint8_t* backEnd, size_t count) {
        const size_t bytes = count * Unit;
        size_t i = 0;
        for (; i + I::kBytes <= bytes; i += I::kBytes) {
            typename I::V x, y;
            I::Load(x, front + i);
            I::Load(y, backEnd - i - I::kBytes);
            if constexpr (Unit == 1) {
                I::ReverseBytes(x, x);
                I::ReverseBytes(y, y);
            } else {
                I::ReverseLanes32(x, x);
                I::ReverseLanes32(y, y);
            }
            I::Store(front + i, y);
            I::Store(backEnd - i - I::kBytes, x);
        }
        (Unit == 1 ? SwapReversed8Scalar : SwapReversed32Scalar)(front + i, backEnd - i,
                                                                 (bytes - i) / Unit);
    }
};
#endif

constexpr Simd::Variant<SwapReversedFn> kSwapReversed8[] = {
    {Simd::kScalar, SwapReversed8Scalar},
#if LF_X86_64
    {Simd::kSse2, Simd::RunSse2<SwapReversedVectors<1>>},
    {Simd::kAvx2, Simd::RunAvx2<SwapReversedVectors<1>>},
#endif
};

constexpr Simd::Variant<SwapReversedFn> kSwapReversed32[] = {
    {Simd::kScalar, SwapReversed32Scalar},
#if LF_X86_64
    {Simd::kSse2, Simd::RunSse2<SwapReversedVectors<4>>},
    {Simd::kAvx2, Simd::RunAvx2<SwapReversedVectors<4>>},
#endif
};

// Asks for a row's cache lines two rows ahead of the walk. A reversed half runs against the
// hardware's own guess of the next line, which left mirrored planes well behind a copy on
// frames that are not in cache. (BGRA rows turned both ways lose a little by it: not asked
// there.)
inline void PrefetchRow(const Plane& p, unsigned y) {
    if (y >= p.rows) return;
    const uint8_t* row = p.Row(y);
    for (size_t i = 0; i < p.rowBytes; i += 64)
        __builtin_prefetch(row + i, 1);
}

// Turns one plane seen as rows of n units of `unit` bytes. Units past the last whole one and
// the pitch padding stay where they are.
void MirrorPlane(const Plane& p, size_t unit, bool horizontal, bool vertical) {
    if (p.Empty()) return;
    const SwapReversedFn swapReversed = Simd::Pick(unit == 1 ? kSwapReversed8 : kSwapReversed32);
    const size_t n = p.rowBytes / unit;
    const size_t hn = n / 2, on = n % 2;
    const unsigned hh = p.rows / 2, oh = p.rows % 2;
    if (horizontal && n < 2) return;
    if (vertical && (p.rows < 2 || n < 1)) return;
    if (horizontal && vertical) {
        // Each unit of a row pair goes to its point reflection; the middle column (odd n)
        // and the middle row (odd height) are not visited at all.
        for (unsigned i = 0; i < hh; ++i) {
            uint8_t* top = p.Row(hh - 1 - i);
            uint8_t* bottom = p.Row(hh + oh + i);
            if (unit == 1 && i + 2 < hh) {
                PrefetchRow(p, hh - 3 - i);
                PrefetchRow(p, hh + oh + i + 2);
            }
            StageRow(top);
            StageRow(bottom);
            swapReversed(top, bottom + n * unit, hn);
            swapReversed(top + (hn + on) * unit, bottom + hn * unit, hn);
        }
    } else if (horizontal) {
        for (unsigned y = 0; y < p.rows; ++y) {
            PrefetchRow(p, y + 2);
            StageRow(p.Row(y));
            swapReversed(p.Row(y), p.Row(y) + n * unit, hn);
        }
    } else if (vertical) {
        const ExchangeFn swapRows = PickExchange();
        for (unsigned i = 0; i < hh; ++i) {
            StageRow(p.Row(hh - 1 - i));
            StageRow(p.Row(hh + oh + i));
            swapRows(p.Row(hh - 1 - i), p.Row(hh + oh + i), n * unit);
        }
    }
}

}  // namespace

// ---- What hosts are told of it ----

constexpr PropertyDescription kMirrorProperties[] = {
    {"mirror", PROPERTY_INT32, "0", PropertyKind::Flag, 0, 1, RangeBound::Fixed,
     "reverse the columns (left and right)"},
    {"vertical", PROPERTY_INT32, "0", PropertyKind::Flag, 0, 1, RangeBound::Fixed,
     "reverse the rows (top and bottom)"},
};
constexpr ShowcaseSetting kMirrorShowcase[] = {{"mirror", 1, RangeBound::Fixed}};
constexpr EffectDescription kMirror = {
    AVPROCESSOR_REVERSE,
    "mirror",
    "reverses the columns (mirror=1), the rows (vertical=1) or both",
    EffectMaking::Factory,
    "MediaCore::CReverseVideoImageEffect",
    false,
    MakeEffect<CReverseVideoImageEffect>,
    kMirrorProperties,
    CountOf(kMirrorProperties),
    kMirrorShowcase,
    CountOf(kMirrorShowcase)};
LF_DESCRIBE_EFFECT(kMirror);
LF_ONE_PASS_EFFECT(AVPROCESSOR_REVERSE);

CReverseVideoImageEffect::CReverseVideoImageEffect() : CImageEffectBase(AVPROCESSOR_REVERSE) {}

int CReverseVideoImageEffect::OnSetProperty(const std::string& name, PropertyNode& node) {
    const int result = CVideoEffectBase::OnSetProperty(name, node);
    if (name == "mirror") {
        mirror_ = node.parsed.i32;
    } else if (name == "vertical") {
        vertical_ = node.parsed.i32;
    }
    return result;
}

bool CReverseVideoImageEffect::ProcFrameInner(ImagePostion*, int, GVideoFrame* frame) {
    if (frame == nullptr) return false;
    const bool horizontal = mirror_ == 1;
    const bool vertical = vertical_ == 1;
    if (!horizontal && !vertical) return true;
    const int format = frame->GetPixelFormat();
    switch (FamilyOf(format)) {
        case FormatFamily::PackedBgra:
            MirrorPlane(GetPackedPlane(frame), 4, horizontal, vertical);
            break;
        case FormatFamily::PlanarYuv:
            for (unsigned i = 0; i < PlanarPlaneCount(format); ++i)
                MirrorPlane(GetPlane(frame, i), 1, horizontal, vertical);
            break;
        case FormatFamily::Other:
            break;
    }
    return true;
}

}  // namespace MediaCore
