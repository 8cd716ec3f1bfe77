// Brightness, contrast and saturation: properties, table and kernels.
#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <limits>

#include "base/ErrorReport.h"
#include "core/Described.h"
#include "core/Planes.h"
#include "core/Simd.h"
#include "core/SimdOps.h"
#include "libfilter/BrightnessContrastEffect.h"

namespace MediaCore {

namespace {

constexpr const char kBrightness[] = "brightness";
constexpr const char kContrast[] = "contrast";
constexpr const char kSaturation[] = "saturation";

constexpr unsigned kTableEntries = 256;
// Hosts know a failed table allocation by this line of the effects' source.
constexpr unsigned kTableAllocationLine = 231;

// Held to -100..100, infinities included; texts that parse to NaN count as 0.
double ClampLevel(double value) {
    if (std::isnan(value)) return 0.0;
    return std::clamp(value, -100.0, 100.0);
}

// Truncation toward zero, first held to the 32-bit range.
int32_t TruncInt32(double value) {
    constexpr double kLow = std::numeric_limits<int32_t>::min();
    constexpr double kHigh = std::numeric_limits<int32_t>::max();
    return static_cast<int32_t>(std::clamp(value, kLow, kHigh));
}

uint8_t ClampByte(int v) {
    return static_cast<uint8_t>(std::clamp(v, 0, 255));
}

// The one shape of every brightness, contrast and saturation step: a value moves away from a
// centre by `scale` 256ths of its distance (the product shifted arithmetically, so it rounds
// toward minus infinity), lands at `offset` plus that, and is clamped to a byte by the caller.
int Scaled(int value, int centre, int scale, int offset) {
    return ((value - centre) * scale >> 8) + offset;
}

// ---- Scaling about 127: planar luma and chroma, and packed colours without saturation ----

// Byte i of a span scales about 127 by the scale and offset of its position i % 4, so packed
// pixels can give alpha a step that keeps it (scale 256, offset 127).
struct ByteScale {
    int16_t scale[4];
    int16_t offset[4];
};

ByteScale Uniform(int scale, int offset) {
    const auto s = static_cast<int16_t>(scale);
    const auto o = static_cast<int16_t>(offset);
    return {{s, s, s, s}, {o, o, o, o}};
}

// The packed table's rule on blue, green and red; alpha scales by 1 about itself.
ByteScale TableScale(int16_t contrastScale, int16_t tableOffset) {
    const int16_t k = contrastScale, b = tableOffset;
    return {{k, k, k, 256}, {b, b, b, 127}};
}

// Kernels write `bytes` bytes at `to` from those at `from` (the same span when in place).
using ScaleSpanFn = void (*)(uint8_t* to, const uint8_t* from, size_t bytes, const ByteScale& rule);

void ScaleScalar(uint8_t* to, const uint8_t* from, size_t bytes, const ByteScale& rule) {
    for (size_t i = 0; i < bytes; ++i)
        to[i] = ClampByte(Scaled(from[i], 127, rule.scale[i % 4], rule.offset[i % 4]));
}

// ---- Packed saturation: the table, then colours scaled about the pixel's mean ----

struct Saturation {
    const int32_t* table;
    int16_t contrastScale, tableOffset;  // the table's own rule, for the vector forms
    int16_t scale;
};

using SaturateSpanFn = void (*)(uint8_t* to, const uint8_t* from, size_t bytes,
                                const Saturation& rule);

// Spans hold whole pixels; alpha is kept.
void SaturateScalar(uint8_t* to, const uint8_t* from, size_t bytes, const Saturation& rule) {
    for (size_t i = 0; i + 4 <= bytes; i += 4) {
        const int l[3] = {rule.table[from[i]], rule.table[from[i + 1]], rule.table[from[i + 2]]};
        const int mean = (l[0] + l[1] + l[2]) / 3;
        for (int c = 0; c < 3; ++c)
            to[i + c] = ClampByte(Scaled(l[c], mean, rule.scale, mean));
        to[i + 3] = from[i + 3];
    }
}

#if LF_X86_64
// The scaling step on 16-bit lanes, exact because the distance times 128 (at most 255 * 128)
// and twice the scale (at most 2048) both fit 16 bits: the high half of their product is
// floor(distance * scale / 256), the arithmetic shift of the scalar rule.
template <class I>
void ScaleLanes(typename I::V& r, const typename I::V& v, const typename I::V& centre,
                const typename I::V& twiceScale, const typename I::V& offset) {
    I::Sub16(r, v, centre);
    I::template ShiftLeft16<7>(r, r);
    I::MulHi16(r, r, twiceScale);
    I::Add16(r, r, offset);
}

// A ByteScale on the bytes of a vector. Bytes widen into the high half of 16-bit lanes, so
// x * 256; averaging with 0x80FF gives (x - 127) * 128 + 32768, the distance to 127 times 128
// made positive. Its unsigned high product half with twice the scale is then
// floor((x - 127) * scale / 256) + scale, and the offset less the scale completes the step.
template <class I>
struct ScaleLaneRule {
    typename I::V bias, twiceScale, offsetLessScale;
    explicit ScaleLaneRule(const ByteScale& rule) {
        int16_t twice[4], offset[4];
        for (int i = 0; i < 4; ++i) {
            twice[i] = static_cast<int16_t>(2 * rule.scale[i]);
            offset[i] = static_cast<int16_t>(rule.offset[i] - rule.scale[i]);
        }
        I::Splat16(bias, 0x80FF);
        Simd::SplatPixel16<I>(twiceScale, twice);
        Simd::SplatPixel16<I>(offsetLessScale, offset);
    }
    void Widened(typename I::V& lanes) const {
        I::AverageU16(lanes, lanes, bias);
        I::MulHiU16(lanes, lanes, twiceScale);
        I::Add16(lanes, lanes, offsetLessScale);
    }
    // Bytes widened, scaled and packed back with the clamp to 0..255.
    void Apply(typename I::V& bytes, const typename I::V& zero) const {
        typename I::V lo, hi;
        I::UnpackLo8(lo, zero, bytes);
        I::UnpackHi8(hi, zero, bytes);
        Widened(lo);
        Widened(hi);
        I::PackU8(bytes, lo, hi);
    }
};

struct ScaleVectors {
    template <class I>
    static void Run(uint8_t* to, const uint8_t* from, size_t bytes, const ByteScale& rule) {
        const ScaleLaneRule<I> lanes(rule);
        typename I::V zero;
        I::Zero(zero);
        Simd::ForEachVector<I>(
            to, bytes,
            [&](uint8_t* q) {
                typename I::V x;
                I::Load(x, from + (q - to));
                lanes.Apply(x, zero);
                I::Store(q, x);
            },
            [&](uint8_t* q, size_t n) { ScaleScalar(q, from + (q - to), n, rule); });
    }
};

// Shuffle orders taking the byte at 0 of each pixel's 32-bit lane (a mean) to the colour lanes
// of that pixel widened to 16 bits, for the pixels of the low (half 0) or the high (half 1)
// 8 bytes of each 128-bit block.
constexpr std::array<uint8_t, 64> SpreadOrder(int half) {
    std::array<uint8_t, 64> order{};
    for (int i = 0; i < 64; ++i) {
        const int pixel = (i % 16) / 8, lane = (i % 8) / 2;
        order[i] = i % 2 == 0 && lane < 3 ? static_cast<uint8_t>(8 * half + 4 * pixel) : 0x80;
    }
    return order;
}
alignas(64) constexpr std::array<uint8_t, 64> kSpreadLo = SpreadOrder(0);
alignas(64) constexpr std::array<uint8_t, 64> kSpreadHi = SpreadOrder(1);

// Each pixel's mean colour (l0 + l1 + l2) / 3 in its blue, green and red 16-bit lanes and 0 in
// its alpha lane, for pixel bytes l widened to halves lo and hi. The division is the high
// product half of the sum with 21846, exact for every sum up to 765.
template <class I>
struct PixelMeans {
    using V = typename I::V;
    V third, colour, spreadLo, spreadHi;
    PixelMeans() {
        I::Splat16(third, 21846);
        if constexpr (I::kByteShuffle) {
            // Byte sums by pixel: pairs weighted 1, 1 / 1, 0, then the pairs added.
            I::Splat32(colour, 0x00010101);
            I::Load(spreadLo, kSpreadLo.data());
            I::Load(spreadHi, kSpreadHi.data());
        } else {
            Simd::SplatPixel16<I>(colour, {-1, -1, -1, 0});
        }
    }
    void Of(const V& l, const V& lo, const V& hi, V& meanLo, V& meanHi) const {
        if constexpr (I::kByteShuffle) {
            V sums, ones;
            I::MulAddBytes(sums, l, colour);
            I::Splat16(ones, 1);
            I::MulAddPairs16(sums, sums, ones);
            I::MulHiU16(sums, sums, third);
            I::ShuffleBytes(meanLo, sums, spreadLo);
            I::ShuffleBytes(meanHi, sums, spreadHi);
        } else {
            OfHalf(lo, meanLo);
            OfHalf(hi, meanHi);
        }
    }
    // One pixel per 64-bit lane: the byte sum of its colour lanes lands in lane 0.
    void OfHalf(const V& lanes, V& mean) const {
        I::And(mean, lanes, colour);
        I::SumBytes64(mean, mean);
        I::MulHiU16(mean, mean, third);
        I::template Shuffle16In64<0, 0, 0, 1>(mean, mean);
    }
};

// Alpha passes both steps unchanged: the table step scales it by 1 about itself, and the
// saturation step scales its distance to a mean lane of 0 by 1.
struct SaturateVectors {
    template <class I>
    static void Run(uint8_t* to, const uint8_t* from, size_t bytes, const Saturation& rule) {
        using V = typename I::V;
        const auto twice = static_cast<int16_t>(2 * rule.scale);
        const ScaleLaneRule<I> table(TableScale(rule.contrastScale, rule.tableOffset));
        const PixelMeans<I> means;
        V zero, twiceScale;
        I::Zero(zero);
        Simd::SplatPixel16<I>(twiceScale, {twice, twice, twice, 512});
        Simd::ForEachVector<I>(
            to, bytes,
            [&](uint8_t* q) {
                V l, lo, hi, meanLo, meanHi;
                I::Load(l, from + (q - to));
                table.Apply(l, zero);
                I::UnpackLo8(lo, l, zero);
                I::UnpackHi8(hi, l, zero);
                means.Of(l, lo, hi, meanLo, meanHi);
                ScaleLanes<I>(lo, lo, meanLo, twiceScale, meanLo);
                ScaleLanes<I>(hi, hi, meanHi, twiceScale, meanHi);
                I::PackU8(l, lo, hi);
                I::Store(q, l);
            },
            [&](uint8_t* q, size_t n) { SaturateScalar(q, from + (q - to), n, rule); });
    }
};
#endif

constexpr Simd::Variant<ScaleSpanFn> kScaleSpan[] = {
    {Simd::kScalar, ScaleScalar},
#if LF_X86_64
    {Simd::kSse2, Simd::RunSse2<ScaleVectors>},
    {Simd::kAvx2, Simd::RunAvx2<ScaleVectors>},
    {Simd::kAvx512, Simd::RunAvx512<ScaleVectors>},
#endif
};

constexpr Simd::Variant<SaturateSpanFn> kSaturateSpan[] = {
    {Simd::kScalar, SaturateScalar},
#if LF_X86_64
    {Simd::kSse2, Simd::RunSse2<SaturateVectors>},
    {Simd::kAvx2, Simd::RunAvx2<SaturateVectors>},
    {Simd::kAvx512, Simd::RunAvx512<SaturateVectors>},
#endif
};

void ScalePlane(const Plane& plane, const ByteScale& rule) {
    const ScaleSpanFn scale = Simd::Pick(kScaleSpan);
    ForEachSpanFrom(plane, [&](uint8_t* span, const uint8_t* from, size_t bytes) {
        scale(span, from, bytes, rule);
    });
}

}  // namespace

// ---- What hosts are told of it ----

constexpr PropertyDescription kBrightnessContrastProperties[] = {
    {"brightness", PROPERTY_DOUBLE, "0", PropertyKind::Real, -100, 100, RangeBound::Fixed,
     "lightens (up) or darkens (down) every colour"},
    {"contrast", PROPERTY_DOUBLE, "0", PropertyKind::Real, -100, 100, RangeBound::Fixed,
     "-100 flattens to gray, 100 doubles the contrast"},
    {"saturation", PROPERTY_DOUBLE, "0", PropertyKind::Real, -100, 100, RangeBound::Fixed,
     "colour strength: -100 gray, -50 and 0 unchanged, 100 four times as strong"},
};
constexpr ShowcaseSetting kBrightnessContrastShowcase[] = {
    {"brightness", 20, RangeBound::Fixed},
    {"contrast", 40, RangeBound::Fixed},
    {"saturation", 60, RangeBound::Fixed},
};
constexpr EffectDescription kBrightnessContrast = {
    AVPROCESSOR_BRIGHTNESS_CONTRAST,
    "brightness-contrast",
    "brightness, contrast and saturation, each -100 to 100",
    EffectMaking::Factory,
    "MediaCore::CBrightnessContrastEffect",
    false,
    MakeEffect<CBrightnessContrastEffect>,
    kBrightnessContrastProperties,
    CountOf(kBrightnessContrastProperties),
    kBrightnessContrastShowcase,
    CountOf(kBrightnessContrastShowcase)};
LF_DESCRIBE_EFFECT(kBrightnessContrast);
LF_ONE_PASS_EFFECT(AVPROCESSOR_BRIGHTNESS_CONTRAST);

CBrightnessContrastEffect::CBrightnessContrastEffect()
    : CImageEffectBase(AVPROCESSOR_BRIGHTNESS_CONTRAST) {
    table_.Resize(kTableEntries * sizeof(int32_t), ErrorFile::kCommonEffects, kTableAllocationLine);
    Rebuild();
}

int CBrightnessContrastEffect::OnSetProperty(const std::string& name, PropertyNode& node) {
    const int result = CVideoEffectBase::OnSetProperty(name, node);
    // Only this effect's own values are held to their range; the stored text stays as set.
    if (name == kBrightness || name == kContrast || name == kSaturation) {
        node.parsed.d = ClampLevel(node.parsed.d);
    }
    Rebuild();
    return result;
}

void CBrightnessContrastEffect::Rebuild() {
    brightness_ = GetProperty(kBrightness)->parsed.d;
    contrast_ = GetProperty(kContrast)->parsed.d;
    saturation_ = GetProperty(kSaturation)->parsed.d;
    active_ = contrast_ != 0.0 || brightness_ != 0.0;
    contrastScale_ = TruncInt32((contrast_ / 100.0 + 1.0) * 256.0);
    tableOffset_ = TruncInt32(brightness_ * 255.0 / 100.0) + 127;
    lumaOffset_ = TruncInt32(brightness_ * 1.27) + 127;
    saturationScale_ = TruncInt32((saturation_ + 100.0) * 5.12);
    auto* table = reinterpret_cast<int32_t*>(table_.Data());
    for (unsigned i = 0; i < kTableEntries; ++i)
        table[i] = ClampByte(Scaled(static_cast<int>(i), 127, contrastScale_, tableOffset_));
}

bool CBrightnessContrastEffect::ProcFrameInner(ImagePostion*, int, GVideoFrame* frame) {
    if (frame == nullptr) return false;
    switch (FamilyOf(frame->GetPixelFormat())) {
        case FormatFamily::PackedBgra: {
            const Plane plane = GetPackedPlane(frame);
            const auto k = static_cast<int16_t>(contrastScale_);
            const auto b = static_cast<int16_t>(tableOffset_);
            if (saturation_ != 0.0) {
                const SaturateSpanFn saturate = Simd::Pick(kSaturateSpan);
                const Saturation rule{Table(), k, b, static_cast<int16_t>(saturationScale_)};
                ForEachSpanFrom(plane, [&](uint8_t* span, const uint8_t* from, size_t bytes) {
                    saturate(span, from, bytes, rule);
                });
            } else if (active_) {
                ScalePlane(plane, TableScale(k, b));  // T[c] for each colour byte c
            }
            break;
        }
        case FormatFamily::PlanarYuv:
            if (active_) ScalePlane(GetPlane(frame, 0), Uniform(contrastScale_, lumaOffset_));
            if (saturation_ != 0.0) {
                for (unsigned i : {1u, 2u})
                    ScalePlane(GetPlane(frame, i), Uniform(saturationScale_, 127));
            }
            break;
        case FormatFamily::Other:
            break;
    }
    return true;
}

}  // namespace MediaCore
