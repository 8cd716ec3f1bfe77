// Add noise: static grain drawn once and added to every frame.
#include <algorithm>
#include <cstdint>
#include <cstring>

#include "base/ErrorReport.h"
#include "core/Described.h"
#include "core/NoiseRandom.h"
#include "core/Planes.h"
#include "core/Simd.h"
#include "libfilter/DirectEffects.h"

#if LF_X86_64
#include <immintrin.h>
#endif

namespace MediaCore {

namespace {

constexpr const char* kFile = ErrorFile::kCommonEffects;

// Bytes after the drawn pattern that vector forms may load but never use.
constexpr size_t kSlack = 32;

// Adds the pattern to a span of samples: bytes of one plane, or BGRA pixels whose colour bytes
// take three pattern entries each (red, green, blue in that order).
using GrainSpanFn = void (*)(uint8_t* p, size_t bytes, const uint8_t* noise, uint32_t gain);

// The rule for one sample, in 32-bit arithmetic. The pattern holds noise values capped at
// 255, which gives the same sum once it is clamped.
inline uint8_t Grain(uint8_t v, uint32_t gain, unsigned noise) {
    return static_cast<uint8_t>(std::min<uint32_t>(255, ((v * gain) >> 8) + noise));
}

void GrainBytesScalar(uint8_t* p, size_t bytes, const uint8_t* noise, uint32_t gain) {
    for (size_t i = 0; i < bytes; ++i)
        p[i] = Grain(p[i], gain, noise[i]);
}

void GrainPixelsScalar(uint8_t* p, size_t bytes, const uint8_t* noise, uint32_t gain) {
    for (size_t i = 0; i + 4 <= bytes; i += 4, noise += 3) {
        p[i + 2] = Grain(p[i + 2], gain, noise[0]);
        p[i + 1] = Grain(p[i + 1], gain, noise[1]);
        p[i] = Grain(p[i], gain, noise[2]);
    }
}

#if LF_X86_64
// The vector forms take (v * gain) >> 8 as the high half of (v << 8) * gain in 16-bit lanes,
// which holds for gains below 32768 (the levels a host uses give 40 to 280); larger gains go
// to the scalar rule.
constexpr uint32_t kVectorGainLimit = 32768;

// Odd bytes sit in the high half of a 16-bit lane, even bytes are moved there, so no
// unpacking is needed; min then adds_epu8 gives min(255, t + noise).
inline __m128i GrainVector(__m128i v, __m128i noise, __m128i gain) {
    const __m128i top = _mm_set1_epi16(255);
    const __m128i even = _mm_min_epi16(_mm_mulhi_epu16(_mm_slli_epi16(v, 8), gain), top);
    const __m128i odd =
        _mm_min_epi16(_mm_mulhi_epu16(_mm_and_si128(v, _mm_set1_epi16(-256)), gain), top);
    return _mm_adds_epu8(_mm_or_si128(even, _mm_slli_epi16(odd, 8)), noise);
}

LF_TARGET_AVX2 inline __m256i GrainVector(__m256i v, __m256i noise, __m256i gain) {
    const __m256i top = _mm256_set1_epi16(255);
    const __m256i even = _mm256_min_epi16(_mm256_mulhi_epu16(_mm256_slli_epi16(v, 8), gain), top);
    const __m256i odd = _mm256_min_epi16(
        _mm256_mulhi_epu16(_mm256_and_si256(v, _mm256_set1_epi16(-256)), gain), top);
    return _mm256_adds_epu8(_mm256_or_si256(even, _mm256_slli_epi16(odd, 8)), noise);
}

void GrainBytesSse2(uint8_t* p, size_t bytes, const uint8_t* noise, uint32_t gain) {
    if (gain >= kVectorGainLimit) return GrainBytesScalar(p, bytes, noise, gain);
    const __m128i g = _mm_set1_epi16(static_cast<short>(gain));
    size_t i = 0;
    for (; i + 16 <= bytes; i += 16) {
        auto* q = reinterpret_cast<__m128i*>(p + i);
        const __m128i n = _mm_loadu_si128(reinterpret_cast<const __m128i*>(noise + i));
        _mm_storeu_si128(q, GrainVector(_mm_loadu_si128(q), n, g));
    }
    GrainBytesScalar(p + i, bytes - i, noise + i, gain);
}

// Without a byte shuffle, four pixels' entries are laid out as blue, green, red, 0 by hand.
void GrainPixelsSse2(uint8_t* p, size_t bytes, const uint8_t* noise, uint32_t gain) {
    if (gain >= kVectorGainLimit) return GrainPixelsScalar(p, bytes, noise, gain);
    const __m128i g = _mm_set1_epi16(static_cast<short>(gain));
    const __m128i alpha = _mm_set1_epi32(static_cast<int>(0xFF000000u));
    alignas(16) uint8_t spread[16] = {};
    size_t i = 0;
    for (; i + 16 <= bytes; i += 16, noise += 12) {
        for (int k = 0; k < 4; ++k) {
            spread[4 * k] = noise[3 * k + 2];
            spread[4 * k + 1] = noise[3 * k + 1];
            spread[4 * k + 2] = noise[3 * k];
        }
        auto* q = reinterpret_cast<__m128i*>(p + i);
        const __m128i v = _mm_loadu_si128(q);
        const __m128i r = GrainVector(v, _mm_load_si128(reinterpret_cast<__m128i*>(spread)), g);
        _mm_storeu_si128(q, _mm_or_si128(_mm_and_si128(alpha, v), _mm_andnot_si128(alpha, r)));
    }
    GrainPixelsScalar(p + i, bytes - i, noise, gain);
}

LF_TARGET_AVX2 void GrainBytesAvx2(uint8_t* p, size_t bytes, const uint8_t* noise, uint32_t gain) {
    if (gain >= kVectorGainLimit) return GrainBytesScalar(p, bytes, noise, gain);
    const __m256i g = _mm256_set1_epi16(static_cast<short>(gain));
    size_t i = 0;
    for (; i + 32 <= bytes; i += 32) {
        auto* q = reinterpret_cast<__m256i*>(p + i);
        const __m256i n = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(noise + i));
        _mm256_storeu_si256(q, GrainVector(_mm256_loadu_si256(q), n, g));
    }
    GrainBytesSse2(p + i, bytes - i, noise + i, gain);
}

// Eight pixels take 24 entries: twelve a 128-bit lane, spread by a byte shuffle (the loads
// may reach into the pattern's slack).
LF_TARGET_AVX2 void GrainPixelsAvx2(uint8_t* p, size_t bytes, const uint8_t* noise, uint32_t gain) {
    if (gain >= kVectorGainLimit) return GrainPixelsScalar(p, bytes, noise, gain);
    const __m256i g = _mm256_set1_epi16(static_cast<short>(gain));
    const __m256i alpha = _mm256_set1_epi32(static_cast<int>(0xFF000000u));
    const __m256i spread = _mm256_setr_epi8(2, 1, 0, -1, 5, 4, 3, -1, 8, 7, 6, -1, 11, 10, 9, -1, 2,
                                            1, 0, -1, 5, 4, 3, -1, 8, 7, 6, -1, 11, 10, 9, -1);
    size_t i = 0;
    for (; i + 32 <= bytes; i += 32, noise += 24) {
        const __m128i lo = _mm_loadu_si128(reinterpret_cast<const __m128i*>(noise));
        const __m128i hi = _mm_loadu_si128(reinterpret_cast<const __m128i*>(noise + 12));
        const __m256i n = _mm256_shuffle_epi8(_mm256_set_m128i(hi, lo), spread);
        auto* q = reinterpret_cast<__m256i*>(p + i);
        const __m256i v = _mm256_loadu_si256(q);
        _mm256_storeu_si256(q, _mm256_blendv_epi8(GrainVector(v, n, g), v, alpha));
    }
    GrainPixelsSse2(p + i, bytes - i, noise, gain);
}
#endif

constexpr Simd::Variant<GrainSpanFn> kGrainBytes[] = {
    {Simd::kScalar, GrainBytesScalar},
#if LF_X86_64
    {Simd::kSse2, GrainBytesSse2},
    {Simd::kAvx2, GrainBytesAvx2},
#endif
};

constexpr Simd::Variant<GrainSpanFn> kGrainPixels[] = {
    {Simd::kScalar, GrainPixelsScalar},
#if LF_X86_64
    {Simd::kSse2, GrainPixelsSse2},
    {Simd::kAvx2, GrainPixelsAvx2},
#endif
};

// Adds the pattern from its start over a plane, `entries` pattern entries per `bytes` bytes;
// the pattern runs on from row to row.
void AddPattern(const Plane& plane, const uint8_t* noise, uint32_t gain, GrainSpanFn grain,
                size_t entriesPerPixel, size_t bytesPerPixel) {
    ForEachSpan(plane, [&](uint8_t* span, size_t bytes) {
        grain(span, bytes, noise, gain);
        noise += bytes / bytesPerPixel * entriesPerPixel;
    });
}

}  // namespace

// ---- What hosts are told of it ----

constexpr PropertyDescription kAddNoiseProperties[] = {
    {"addnoise_level", PROPERTY_INT32, "2", PropertyKind::Integer, 0, 8, RangeBound::Fixed,
     "grain strength"},
};
constexpr EffectDescription kAddNoise = {AVPROCESSOR_ADD_NOISE,
                                         "add-noise",
                                         "static grain, stronger with a higher addnoise_level",
                                         EffectMaking::ExportedClass,
                                         "MediaCore::CAddNoiseVideoImageEffect",
                                         false,
                                         MakeEffect<CAddNoiseVideoImageEffect>,
                                         kAddNoiseProperties,
                                         CountOf(kAddNoiseProperties),
                                         nullptr,
                                         0};
LF_DESCRIBE_EFFECT(kAddNoise);

CAddNoiseVideoImageEffect::CAddNoiseVideoImageEffect() : CImageEffectBase(AVPROCESSOR_ADD_NOISE) {}

CAddNoiseVideoImageEffect::~CAddNoiseVideoImageEffect() = default;

int CAddNoiseVideoImageEffect::OnSetProperty(const std::string& name, PropertyNode& node) {
    const int result = CVideoEffectBase::OnSetProperty(name, node);
    if (name == "addnoise_level") {
        const unsigned shift = 12u - static_cast<unsigned>(node.parsed.i32);
        if (shift != shift_) {
            drawn_ = 0;
            NoiseRandom::SeedFromClock();
        }
        shift_ = shift;
    }
    return result;
}

void CAddNoiseVideoImageEffect::Draw(size_t entries) {
    noiseEntries_ = 0;
    if (entries > UINT32_MAX - kSlack) LF_RAISE(kFile, ErrorText::kMallocFailed);
    noise_.Resize(static_cast<unsigned>(entries + kSlack), kFile, __LINE__);
    uint8_t* out = noise_.Data();
    const unsigned shift = shift_ & 31;  // the shift count's low five bits, as the CPU takes it
    NoiseRandom::Draw(entries, [&](unsigned value) {
        *out++ = static_cast<uint8_t>(std::min(value >> shift, 255u));
    });
    std::memset(out, 0, kSlack);
    noiseEntries_ = entries;
}

void CAddNoiseVideoImageEffect::AddNoiseRgba32EffectFirst(unsigned char* pixels, unsigned int width,
                                                          unsigned int stride, unsigned int rows) {
    Draw(size_t{width} * rows * 3);
    AddPattern(Plane{pixels, width * 4, stride, rows}, noise_.Data(), 40 + 20 * shift_,
               Simd::Pick(kGrainPixels), 3, 4);
}

void CAddNoiseVideoImageEffect::AddNoiseRgba32Effect(unsigned char* pixels, unsigned int width,
                                                     unsigned int stride, unsigned int rows) {
    if (width == 0 || rows == 0) return;
    // A frame larger than the drawn pattern draws a new one rather than reading past it.
    if (noiseEntries_ < size_t{width} * rows * 3) {
        return AddNoiseRgba32EffectFirst(pixels, width, stride, rows);
    }
    AddPattern(Plane{pixels, width * 4, stride, rows}, noise_.Data(), 40 + 20 * shift_,
               Simd::Pick(kGrainPixels), 3, 4);
}

void CAddNoiseVideoImageEffect::AddNoiseComponentEffectFirst(unsigned char* plane,
                                                             unsigned int width,
                                                             unsigned int stride,
                                                             unsigned int rows) {
    Draw(size_t{width} * rows);
    AddPattern(Plane{plane, width, stride, rows}, noise_.Data(), 40 + 20 * shift_,
               Simd::Pick(kGrainBytes), 1, 1);
}

void CAddNoiseVideoImageEffect::AddNoiseComponentEffect(unsigned char* plane, unsigned int width,
                                                        unsigned int stride, unsigned int rows) {
    if (width == 0 || rows == 0) return;
    if (noiseEntries_ < size_t{width} * rows) {
        return AddNoiseComponentEffectFirst(plane, width, stride, rows);
    }
    AddPattern(Plane{plane, width, stride, rows}, noise_.Data(), 40 + 20 * shift_,
               Simd::Pick(kGrainBytes), 1, 1);
}

bool CAddNoiseVideoImageEffect::ProcFrameInner(ImagePostion*, int, GVideoFrame* frame) {
    if (frame == nullptr) return true;
    const bool first = drawn_ != 1;
    switch (FamilyOf(frame->GetPixelFormat())) {
        case FormatFamily::PackedBgra: {
            Plane p = GetPackedPlane(frame);
            if (p.Empty()) p = Plane{};
            if (first) {
                AddNoiseRgba32EffectFirst(p.data, p.rowBytes / 4, p.pitch, p.rows);
            } else {
                AddNoiseRgba32Effect(p.data, p.rowBytes / 4, p.pitch, p.rows);
            }
            break;
        }
        case FormatFamily::PlanarYuv: {
            // Luma only; chroma and alpha keep their values.
            Plane p = GetPlane(frame, 0);
            if (p.Empty()) p = Plane{};
            if (first) {
                AddNoiseComponentEffectFirst(p.data, p.rowBytes, p.pitch, p.rows);
            } else {
                AddNoiseComponentEffect(p.data, p.rowBytes, p.pitch, p.rows);
            }
            break;
        }
        case FormatFamily::Other:
            break;
    }
    // Also after an unsupported frame, so the next supported one reuses the pattern (and
    // draws one, since there is none yet).
    drawn_ = 1;
    return true;
}

}  // namespace MediaCore
