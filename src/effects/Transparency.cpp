// Transparency: scales the alpha of every pixel by a percentage.
#include "core/Described.h"
#include "core/Planes.h"
#include "core/Simd.h"
#include "core/SimdOps.h"
#include "libfilter/DirectEffects.h"

namespace MediaCore {

namespace {

// Writes `bytes` bytes at `to` from those at `from` (the same span when in place).
using ScaleSpanFn = void (*)(uint8_t* to, const uint8_t* from, size_t bytes, uint32_t scale);

// The rule for one alpha sample: low 8 bits of (a * scale) >> 8 in 32-bit arithmetic, so a
// factor above 256 wraps large alphas instead of clamping them.
inline uint8_t Scaled(uint8_t a, uint32_t scale) {
    return static_cast<uint8_t>((a * scale) >> 8);
}

void ScaleBytesScalar(uint8_t* to, const uint8_t* from, size_t bytes, uint32_t scale) {
    for (size_t i = 0; i < bytes; ++i)
        to[i] = Scaled(from[i], scale);
}

// BGRA pixels: byte 3 of each; the rest is carried over.
void ScalePixelsScalar(uint8_t* to, const uint8_t* from, size_t bytes, uint32_t scale) {
    for (size_t i = 0; i < bytes; ++i)
        to[i] = i % 4 == 3 ? Scaled(from[i], scale) : from[i];
}

#if LF_X86_64
// Bits 8 to 15 of a * scale depend only on the low 16 bits of the scale, so a 16-bit multiply
// gives the result byte in its high half: for a byte at the bottom of a 16-bit lane the high
// half is shifted down, for a byte already at the top it is kept in place.
struct ScaleBytesVectors {
    template <class I>
    static void Run(uint8_t* to, const uint8_t* from, size_t bytes, uint32_t scale) {
        using V = typename I::V;
        V s, low, high;
        I::Splat16(s, static_cast<int>(scale));
        I::Splat16(low, 0x00FF);
        I::Splat16(high, 0xFF00);
        Simd::ForEachVector<I, Simd::Walk::Stream>(
            to, bytes,
            [&](uint8_t* q) {
                V v, bottom, top;
                I::Load(v, from + (q - to));
                I::And(bottom, v, low);
                I::MulLo16(bottom, bottom, s);
                I::template ShiftRight16<8>(bottom, bottom);
                I::template ShiftRight16<8>(top, v);
                I::MulLo16(top, top, s);
                I::And(top, top, high);
                I::Or(v, bottom, top);
                I::Store(q, v);
            },
            [&](uint8_t* q, size_t n) { ScaleBytesScalar(q, from + (q - to), n, scale); });
    }
};

// The alpha byte tops the high 16-bit lane of each pixel.
struct ScalePixelsVectors {
    template <class I>
    static void Run(uint8_t* to, const uint8_t* from, size_t bytes, uint32_t scale) {
        using V = typename I::V;
        V s, alpha;
        I::Splat16(s, static_cast<int>(scale));
        I::Splat32(alpha, 0xFF000000u);
        Simd::ForEachVector<I, Simd::Walk::Stream>(
            to, bytes,
            [&](uint8_t* q) {
                V v, scaled;
                I::Load(v, from + (q - to));
                I::template ShiftRight16<8>(scaled, v);
                I::MulLo16(scaled, scaled, s);
                I::And(scaled, scaled, alpha);
                I::AndNot(v, alpha, v);
                I::Or(v, v, scaled);
                I::Store(q, v);
            },
            [&](uint8_t* q, size_t n) { ScalePixelsScalar(q, from + (q - to), n, scale); });
    }
};
#endif

constexpr Simd::Variant<ScaleSpanFn> kScaleBytes[] = {
    {Simd::kScalar, ScaleBytesScalar},
#if LF_X86_64
    {Simd::kSse2, Simd::RunSse2<ScaleBytesVectors>},
    {Simd::kAvx2, Simd::RunAvx2<ScaleBytesVectors>},
#endif
};

constexpr Simd::Variant<ScaleSpanFn> kScalePixels[] = {
    {Simd::kScalar, ScalePixelsScalar},
#if LF_X86_64
    {Simd::kSse2, Simd::RunSse2<ScalePixelsVectors>},
    {Simd::kAvx2, Simd::RunAvx2<ScalePixelsVectors>},
#endif
};

void ScaleAlpha(const Plane& plane, ScaleSpanFn scale, uint32_t factor) {
    ForEachSpanFrom(plane, [&](uint8_t* span, const uint8_t* from, size_t bytes) {
        scale(span, from, bytes, factor);
    });
}

}  // namespace

// ---- What hosts are told of it ----

constexpr PropertyDescription kTransparencyProperties[] = {
    {"transparency_scale", PROPERTY_INT32, "0", PropertyKind::Integer, 0, 100, RangeBound::Fixed,
     "alpha scale in percent; 0 leaves the frame"},
};
constexpr ShowcaseSetting kTransparencyShowcase[] = {{"transparency_scale", 40, RangeBound::Fixed}};
constexpr EffectDescription kTransparency = {
    AVPROCESSOR_TRANSPARENCY,
    "transparency",
    "scales the alpha to transparency_scale percent (0 leaves it)",
    EffectMaking::ExportedClass,
    "MediaCore::CTransparencyAjustEffect",
    false,
    MakeEffect<CTransparencyAjustEffect>,
    kTransparencyProperties,
    CountOf(kTransparencyProperties),
    kTransparencyShowcase,
    CountOf(kTransparencyShowcase)};
LF_DESCRIBE_EFFECT(kTransparency);
LF_ONE_PASS_EFFECT(AVPROCESSOR_TRANSPARENCY);

CTransparencyAjustEffect::CTransparencyAjustEffect() : CImageEffectBase(AVPROCESSOR_TRANSPARENCY) {}

int CTransparencyAjustEffect::OnSetProperty(const std::string& name, PropertyNode& node) {
    const int result = CVideoEffectBase::OnSetProperty(name, node);
    if (name == "transparency_scale") scale_ = static_cast<unsigned>(node.parsed.i32);
    // The percentage becomes a factor in 1/256 units. This runs on every set, whatever the
    // property, so each later set converts the factor again (50 gives 128, then 327); the
    // compounding is deliberate.
    scale_ = (scale_ << 8) / 100;
    return result;
}

bool CTransparencyAjustEffect::ProcFrameInner(ImagePostion*, int, GVideoFrame* frame) {
    // A scale of 0 turns the effect off rather than making the picture transparent.
    if (frame == nullptr || scale_ == 0) return true;
    const int format = frame->GetPixelFormat();
    if (format == PIXFMT_BGRA32) {
        ScaleAlpha(GetPackedPlane(frame), Simd::Pick(kScalePixels), scale_);
    } else if (format == PIXFMT_YUVA420P || format == PIXFMT_PLANAR4_FULL) {
        ScaleAlpha(GetPlane(frame, 3), Simd::Pick(kScaleBytes), scale_);
    }
    return true;
}

}  // namespace MediaCore
