// Transparency: scales the alpha of every pixel by a percentage.
#include "core/Described.h"
#include "core/Planes.h"
#include "core/Simd.h"
#include "core/VectorMap.h"
#include "libfilter/DirectEffects.h"

namespace MediaCore {

namespace {

using ScaleSpanFn = void (*)(uint8_t* p, size_t bytes, uint32_t scale);

// The rule for one alpha sample: low 8 bits of (a * scale) >> 8 in 32-bit arithmetic, so a
// factor above 256 wraps large alphas instead of clamping them.
inline uint8_t Scaled(uint8_t a, uint32_t scale) {
    return static_cast<uint8_t>((a * scale) >> 8);
}

void ScaleBytesScalar(uint8_t* p, size_t bytes, uint32_t scale) {
    for (size_t i = 0; i < bytes; ++i)
        p[i] = Scaled(p[i], scale);
}

// BGRA pixels: byte 3 of each.
void ScalePixelsScalar(uint8_t* p, size_t bytes, uint32_t scale) {
    for (size_t i = 3; i < bytes; i += 4)
        p[i] = Scaled(p[i], scale);
}

#if LF_X86_64
// Bits 8 to 15 of a * scale depend only on the low 16 bits of the scale, so a 16-bit multiply
// gives the result byte in its high half: for a byte at the bottom of a 16-bit lane the high
// half is shifted down, for a byte already at the top it is kept in place.
struct ScaleBytes128 {
    __m128i s;
    __m128i operator()(__m128i v) const {
        const __m128i low = _mm_and_si128(v, _mm_set1_epi16(0x00FF));
        const __m128i lowScaled = _mm_srli_epi16(_mm_mullo_epi16(low, s), 8);
        const __m128i highScaled = _mm_mullo_epi16(_mm_srli_epi16(v, 8), s);
        return _mm_or_si128(lowScaled, _mm_and_si128(highScaled, _mm_set1_epi16(-256)));
    }
};

// The alpha byte tops the high 16-bit lane of each pixel.
struct ScalePixels128 {
    __m128i s;
    __m128i operator()(__m128i v) const {
        const __m128i scaled = _mm_mullo_epi16(_mm_srli_epi16(v, 8), s);
        const __m128i alpha = _mm_set1_epi32(static_cast<int>(0xFF000000u));
        return _mm_or_si128(_mm_andnot_si128(alpha, v), _mm_and_si128(scaled, alpha));
    }
};

struct ScaleBytes256 {
    __m256i s;
    LF_TARGET_AVX2 __m256i operator()(__m256i v) const {
        const __m256i low = _mm256_and_si256(v, _mm256_set1_epi16(0x00FF));
        const __m256i lowScaled = _mm256_srli_epi16(_mm256_mullo_epi16(low, s), 8);
        const __m256i highScaled = _mm256_mullo_epi16(_mm256_srli_epi16(v, 8), s);
        return _mm256_or_si256(lowScaled, _mm256_and_si256(highScaled, _mm256_set1_epi16(-256)));
    }
};

struct ScalePixels256 {
    __m256i s;
    LF_TARGET_AVX2 __m256i operator()(__m256i v) const {
        const __m256i scaled = _mm256_mullo_epi16(_mm256_srli_epi16(v, 8), s);
        const __m256i alpha = _mm256_set1_epi32(static_cast<int>(0xFF000000u));
        return _mm256_or_si256(_mm256_andnot_si256(alpha, v), _mm256_and_si256(scaled, alpha));
    }
};

template <class Op, ScaleSpanFn Tail>
void ScaleSse2(uint8_t* p, size_t bytes, uint32_t scale) {
    const size_t done = Simd::MapSse2(p, bytes, Op{_mm_set1_epi16(static_cast<short>(scale))});
    Tail(p + done, bytes - done, scale);
}

template <class Op, ScaleSpanFn Tail>
LF_TARGET_AVX2 void ScaleAvx2(uint8_t* p, size_t bytes, uint32_t scale) {
    const size_t done = Simd::MapAvx2(p, bytes, Op{_mm256_set1_epi16(static_cast<short>(scale))});
    Tail(p + done, bytes - done, scale);
}
#endif

constexpr Simd::Variant<ScaleSpanFn> kScaleBytes[] = {
    {Simd::kScalar, ScaleBytesScalar},
#if LF_X86_64
    {Simd::kSse2, ScaleSse2<ScaleBytes128, ScaleBytesScalar>},
    {Simd::kAvx2, ScaleAvx2<ScaleBytes256, ScaleBytesScalar>},
#endif
};

constexpr Simd::Variant<ScaleSpanFn> kScalePixels[] = {
    {Simd::kScalar, ScalePixelsScalar},
#if LF_X86_64
    {Simd::kSse2, ScaleSse2<ScalePixels128, ScalePixelsScalar>},
    {Simd::kAvx2, ScaleAvx2<ScalePixels256, ScalePixelsScalar>},
#endif
};

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
        const ScaleSpanFn scale = Simd::Pick(kScalePixels);
        ForEachSpan(GetPackedPlane(frame),
                    [&](uint8_t* p, size_t bytes) { scale(p, bytes, scale_); });
    } else if (format == PIXFMT_YUVA420P || format == PIXFMT_PLANAR4_FULL) {
        const ScaleSpanFn scale = Simd::Pick(kScaleBytes);
        ForEachSpan(GetPlane(frame, 3), [&](uint8_t* p, size_t bytes) { scale(p, bytes, scale_); });
    }
    return true;
}

}  // namespace MediaCore
