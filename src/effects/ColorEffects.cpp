// Parameterless recolouring effects: gray, flip colour, invert and aged film.
#include "libfilter/ColorEffects.h"

#include <algorithm>
#include <cstring>

#include "core/Described.h"
#include "core/Exchange.h"
#include "core/PlaneFill.h"
#include "core/Planes.h"
#include "core/Simd.h"
#include "core/SimdOps.h"

namespace MediaCore {

namespace {

// Runs `packed` on plane 0 of a BGRA frame and `planar` on a planar YUV frame; every other
// format passes untouched.
template <class PackedRule, class PlanarRule>
bool Recolour(GVideoFrame* frame, PackedRule&& packed, PlanarRule&& planar) {
    if (frame == nullptr) return false;
    switch (FamilyOf(frame->GetPixelFormat())) {
        case FormatFamily::PackedBgra:
            packed(GetPackedPlane(frame));
            break;
        case FormatFamily::PlanarYuv:
            planar();
            break;
        case FormatFamily::Other:
            break;
    }
    return true;
}

// Neutral chroma of the colour effects is 127, one below the usual centre.
constexpr uint8_t kNeutralChroma = 127;
// Aged film's planar tint.
constexpr uint8_t kAgedU = 117;
constexpr uint8_t kAgedV = 136;

void FillChroma(GVideoFrame* frame, uint8_t u, uint8_t v) {
    FillPlaneMemory(GetPlane(frame, 1), u);
    FillPlaneMemory(GetPlane(frame, 2), v);
}

// ---- Gray and aged film, packed: a tone from each pixel's mean ----

// A pixel's mean g = (c0 + c1 + c2) / 3 (truncated), raised to at least `floor`, is written to
// blue, green and red less each channel's own amount; alpha is kept. No channel can go below 0:
// every amount is at most the floor.
struct Tone {
    uint8_t floor;
    uint8_t lessBlue, lessGreen, lessRed;
    // The three amounts as one subtrahend of a pixel word g * 0x010101 (no byte borrows).
    uint32_t Lessened() const {
        return lessBlue | uint32_t{lessGreen} << 8 | uint32_t{lessRed} << 16;
    }
};
constexpr Tone kGrayTone{0, 0, 0, 0};
constexpr Tone kAgedTone{35, 35, 15, 0};

// Writes `bytes` bytes at `to` from those at `from` (the same span when in place).
using ToneSpanFn = void (*)(uint8_t* to, const uint8_t* from, size_t bytes, const Tone& tone);

// Spans hold whole pixels.
void ToneScalar(uint8_t* to, const uint8_t* from, size_t bytes, const Tone& tone) {
    for (size_t i = 0; i + 4 <= bytes; i += 4) {
        const unsigned g =
            std::max<unsigned>((from[i] + from[i + 1] + from[i + 2]) / 3, tone.floor);
        to[i + 3] = from[i + 3];
        to[i] = static_cast<uint8_t>(g - tone.lessBlue);
        to[i + 1] = static_cast<uint8_t>(g - tone.lessGreen);
        to[i + 2] = static_cast<uint8_t>(g - tone.lessRed);
    }
}

#if LF_X86_64
// Per 32-bit pixel: the sum comes from a pair multiply-add of blue and red plus green; the
// division is the high half of sum * 21846, exact for every sum up to 765.
struct ToneVectors {
    template <class I>
    static void Run(uint8_t* to, const uint8_t* from, size_t bytes, const Tone& tone) {
        using V = typename I::V;
        V blueRed, ones, low, alpha, third, floor, spread, lessened;
        I::Splat32(blueRed, 0x00FF00FF);
        I::Splat32(ones, 0x00010001);
        I::Splat32(low, 0xFF);
        I::Splat32(alpha, 0xFF000000);
        I::Splat32(third, 21846);
        I::Splat32(floor, tone.floor);
        I::Splat32(spread, 0x0101);
        I::Splat32(lessened, tone.Lessened());
        Simd::ForEachVector<I>(
            to, bytes,
            [&](uint8_t* q) {
                V px, sum, green, g, g01;
                I::Load(px, from + (q - to));
                I::And(sum, px, blueRed);
                I::MulAddPairs16(sum, sum, ones);
                I::template ShiftRight32<8>(green, px);
                I::And(green, green, low);
                I::Add32(sum, sum, green);
                I::MulHiU16(g, sum, third);
                I::Max16(g, g, floor);
                I::MulLo16(g01, g, spread);  // g in bytes 0 and 1
                I::template ShiftLeft32<16>(g, g);
                I::Or(g, g, g01);
                I::Sub32(g, g, lessened);
                I::And(px, px, alpha);
                I::Or(px, px, g);
                I::Store(q, px);
            },
            [&](uint8_t* q, size_t n) { ToneScalar(q, from + (q - to), n, tone); });
    }
};

#endif

constexpr Simd::Variant<ToneSpanFn> kToneSpan[] = {
    {Simd::kScalar, ToneScalar},
#if LF_X86_64
    {Simd::kSse2, Simd::RunSse2<ToneVectors>},
    {Simd::kAvx2, Simd::RunAvx2<ToneVectors>},
    {Simd::kAvx512, Simd::RunAvx512<ToneVectors>},
#endif
};

bool ToneFrame(GVideoFrame* frame, const Tone& tone, uint8_t u, uint8_t v) {
    const ToneSpanFn toneSpan = Simd::Pick(kToneSpan);
    return Recolour(
        frame,
        [&](const Plane& plane) {
            ForEachSpanFrom(plane, [&](uint8_t* span, const uint8_t* from, size_t bytes) {
                toneSpan(span, from, bytes, tone);
            });
        },
        [&] { FillChroma(frame, u, v); });
}

// ---- Flip colour: red and blue exchanged (packed), the chroma planes exchanged (planar) ----

// Writes `bytes` bytes at `to` from those at `from` (the same span when in place).
using SwapRedBlueFn = void (*)(uint8_t* to, const uint8_t* from, size_t bytes);

// Spans hold whole pixels.
void SwapRedBlueScalar(uint8_t* to, const uint8_t* from, size_t bytes) {
    for (size_t i = 0; i + 4 <= bytes; i += 4) {
        const uint8_t blue = from[i], green = from[i + 1], red = from[i + 2], alpha = from[i + 3];
        to[i] = red;
        to[i + 1] = green;
        to[i + 2] = blue;
        to[i + 3] = alpha;
    }
}

#if LF_X86_64
// Turning each 32-bit pixel by 16 bits brings red to byte 0 and blue to byte 2. AVX-512
// measured no faster than AVX2 here, so it has no form.
struct SwapRedBlueVectors {
    template <class I>
    static void Run(uint8_t* to, const uint8_t* from, size_t bytes) {
        using V = typename I::V;
        V blueRed, greenAlpha;
        I::Splat32(blueRed, 0x00FF00FF);
        I::Splat32(greenAlpha, 0xFF00FF00);
        Simd::ForEachVector<I>(
            to, bytes,
            [&](uint8_t* q) {
                V px, up, down;
                I::Load(px, from + (q - to));
                I::template ShiftLeft32<16>(up, px);
                I::template ShiftRight32<16>(down, px);
                I::Or(up, up, down);
                I::And(up, up, blueRed);
                I::And(px, px, greenAlpha);
                I::Or(px, px, up);
                I::Store(q, px);
            },
            [&](uint8_t* q, size_t n) { SwapRedBlueScalar(q, from + (q - to), n); });
    }
};

#endif

constexpr Simd::Variant<SwapRedBlueFn> kSwapRedBlue[] = {
    {Simd::kScalar, SwapRedBlueScalar},
#if LF_X86_64
    {Simd::kSse2, Simd::RunSse2<SwapRedBlueVectors>},
    {Simd::kAvx2, Simd::RunAvx2<SwapRedBlueVectors>},
#endif
};

// Plane 1's rows and row width set the extent, each plane walking by its own pitch; the
// exchange stops where plane 2's memory ends.
void ExchangeChroma(GVideoFrame* frame) {
    const Plane u = GetPlane(frame, 1);
    const Plane v = GetPlane(frame, 2);
    if (u.Empty() || v.data == nullptr) return;
    const ExchangeFn exchange = PickExchange();
    const unsigned rows = std::min(u.rows, v.rows);
    const size_t bytes = std::min(u.rowBytes, v.pitch);
    // Out of place each row is written once, from the source's other chroma row.
    if (SourceRow(u.data) != nullptr && SourceRow(v.data) != nullptr) {
        for (unsigned y = 0; y < rows; ++y) {
            uint8_t* uRow = u.Row(y);
            uint8_t* vRow = v.Row(y);
            const uint8_t* fromU = SourceRow(uRow);
            const uint8_t* fromV = SourceRow(vRow);
            RowSource(uRow, bytes);
            RowSource(vRow, bytes);
            std::memcpy(uRow, fromV, bytes);
            std::memcpy(vRow, fromU, bytes);
        }
        return;
    }
    for (unsigned y = 0; y < rows; ++y) {
        StageRow(u.Row(y));
        StageRow(v.Row(y));
        exchange(u.Row(y), v.Row(y), bytes);
    }
}

// ---- Invert ----

// Writes `bytes` bytes at `to` from those at `from` (the same span when in place).
using XorSpanFn = void (*)(uint8_t* to, const uint8_t* from, size_t bytes, uint32_t mask);

// Packed BGRA inverts blue, green and red and keeps alpha; planar bytes invert whole.
constexpr uint32_t kBgrMask = 0x00FFFFFFu;
constexpr uint32_t kAllMask = 0xFFFFFFFFu;

// Scalar rule: byte i becomes itself XOR byte (i % 4) of the little-endian mask, so inverting
// is 255 - v where the mask byte is 0xFF and nothing where it is 0.
void XorSpanScalar(uint8_t* to, const uint8_t* from, size_t bytes, uint32_t mask) {
    for (size_t i = 0; i < bytes; ++i)
        to[i] = from[i] ^ static_cast<uint8_t>(mask >> (8 * (i & 3)));
}

#if LF_X86_64
// Inverting streams memory; AVX-512 measured no faster than AVX2 here, so it has no form.
// The vector forms walk whole blocks from the span start, so the mask stays in phase with
// i % 4 and the scalar rule finishes the tail.
struct XorVectors {
    template <class I>
    static void Run(uint8_t* to, const uint8_t* from, size_t bytes, uint32_t mask) {
        typename I::V m;
        I::Splat32(m, mask);
        Simd::ForEachVector<I, Simd::Walk::Stream>(
            to, bytes,
            [&](uint8_t* q) {
                typename I::V v;
                I::Load(v, from + (q - to));
                I::Xor(v, v, m);
                I::Store(q, v);
            },
            [&](uint8_t* q, size_t n) { XorSpanScalar(q, from + (q - to), n, mask); });
    }
};
#endif

constexpr Simd::Variant<XorSpanFn> kXorSpan[] = {
    {Simd::kScalar, XorSpanScalar},
#if LF_X86_64
    {Simd::kSse2, Simd::RunSse2<XorVectors>},
    {Simd::kAvx2, Simd::RunAvx2<XorVectors>},
#endif
};

}  // namespace

// ---- What hosts are told of it ----

constexpr EffectDescription kGray = {AVPROCESSOR_GRAY,
                                     "gray",
                                     "removes the colour",
                                     EffectMaking::Factory,
                                     "MediaCore::CGrayEffect",
                                     false,
                                     MakeEffect<CGrayEffect>,
                                     nullptr,
                                     0,
                                     nullptr,
                                     0};
LF_DESCRIBE_EFFECT(kGray);
LF_ONE_PASS_EFFECT(AVPROCESSOR_GRAY);
constexpr EffectDescription kFlipColor = {AVPROCESSOR_FLIP_COLOR,
                                          "flip-color",
                                          "swaps red and blue (the two chroma planes in YUV)",
                                          EffectMaking::Factory,
                                          "MediaCore::CFlipColorEffect",
                                          false,
                                          MakeEffect<CFlipColorEffect>,
                                          nullptr,
                                          0,
                                          nullptr,
                                          0};
LF_DESCRIBE_EFFECT(kFlipColor);
LF_ONE_PASS_EFFECT(AVPROCESSOR_FLIP_COLOR);
constexpr EffectDescription kInvert = {AVPROCESSOR_INVERT,
                                       "invert",
                                       "negative: every colour sample becomes 255 minus itself",
                                       EffectMaking::Factory,
                                       "MediaCore::CInvertEffect",
                                       false,
                                       MakeEffect<CInvertEffect>,
                                       nullptr,
                                       0,
                                       nullptr,
                                       0};
LF_DESCRIBE_EFFECT(kInvert);
LF_ONE_PASS_EFFECT(AVPROCESSOR_INVERT);
constexpr EffectDescription kAgedFilm = {AVPROCESSOR_AGED_FILM,
                                         "aged-film",
                                         "sepia tone of an old film",
                                         EffectMaking::Factory,
                                         "MediaCore::CAgedFilmEffect",
                                         false,
                                         MakeEffect<CAgedFilmEffect>,
                                         nullptr,
                                         0,
                                         nullptr,
                                         0};
LF_DESCRIBE_EFFECT(kAgedFilm);
LF_ONE_PASS_EFFECT(AVPROCESSOR_AGED_FILM);

CGrayEffect::CGrayEffect() : CImageEffectBase(AVPROCESSOR_GRAY) {}

bool CGrayEffect::ProcFrameInner(ImagePostion*, int, GVideoFrame* frame) {
    return ToneFrame(frame, kGrayTone, kNeutralChroma, kNeutralChroma);
}

CFlipColorEffect::CFlipColorEffect() : CImageEffectBase(AVPROCESSOR_FLIP_COLOR) {}

bool CFlipColorEffect::ProcFrameInner(ImagePostion*, int, GVideoFrame* frame) {
    const SwapRedBlueFn swapRedBlue = Simd::Pick(kSwapRedBlue);
    return Recolour(
        frame, [&](const Plane& plane) { ForEachSpanFrom(plane, swapRedBlue); },
        [&] { ExchangeChroma(frame); });
}

CInvertEffect::CInvertEffect() : CImageEffectBase(AVPROCESSOR_INVERT) {}

bool CInvertEffect::ProcFrameInner(ImagePostion*, int, GVideoFrame* frame) {
    const XorSpanFn invert = Simd::Pick(kXorSpan);
    return Recolour(
        frame,
        [&](const Plane& plane) {
            ForEachSpanFrom(plane, [&](uint8_t* span, const uint8_t* from, size_t bytes) {
                invert(span, from, bytes, kBgrMask);
            });
        },
        [&] {
            for (unsigned i = 0; i < 3; ++i) {
                ForEachSpanFrom(GetPlane(frame, i),
                                [&](uint8_t* span, const uint8_t* from, size_t bytes) {
                                    invert(span, from, bytes, kAllMask);
                                });
            }
        });
}

CAgedFilmEffect::CAgedFilmEffect() : CImageEffectBase(AVPROCESSOR_AGED_FILM) {}

bool CAgedFilmEffect::ProcFrameInner(ImagePostion*, int, GVideoFrame* frame) {
    return ToneFrame(frame, kAgedTone, kAgedU, kAgedV);
}

}  // namespace MediaCore
