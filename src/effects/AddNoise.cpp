// Add noise: static grain drawn once and added to every frame.
#include <algorithm>
#include <cstdint>
#include <cstring>

#include "base/ErrorReport.h"
#include "core/Described.h"
#include "core/NoiseRandom.h"
#include "core/Planes.h"
#include "core/SimdOps.h"
#include "libfilter/DirectEffects.h"

namespace MediaCore {

namespace {

constexpr const char* kFile = ErrorFile::kCommonEffects;

// Bytes after the drawn pattern that vector forms may load but never use.
constexpr size_t kSlack = 32;

// Adds the pattern to a span of samples: bytes of one plane, or BGRA pixels whose colour bytes
// take three pattern entries each (red, green, blue in that order). Writes `bytes` bytes at
// `to` from those at `from` (the same span when in place).
using GrainSpanFn = void (*)(uint8_t* to, const uint8_t* from, size_t bytes, const uint8_t* noise,
                             uint32_t gain);

// The rule for one sample, in 32-bit arithmetic. The pattern holds noise values capped at
// 255, which gives the same sum once it is clamped.
inline uint8_t Grain(uint8_t v, uint32_t gain, unsigned noise) {
    return static_cast<uint8_t>(std::min<uint32_t>(255, ((v * gain) >> 8) + noise));
}

void GrainBytesScalar(uint8_t* to, const uint8_t* from, size_t bytes, const uint8_t* noise,
                      uint32_t gain) {
    for (size_t i = 0; i < bytes; ++i)
        to[i] = Grain(from[i], gain, noise[i]);
}

// Spans hold whole pixels; alpha is kept.
void GrainPixelsScalar(uint8_t* to, const uint8_t* from, size_t bytes, const uint8_t* noise,
                       uint32_t gain) {
    for (size_t i = 0; i + 4 <= bytes; i += 4, noise += 3) {
        to[i + 2] = Grain(from[i + 2], gain, noise[0]);
        to[i + 1] = Grain(from[i + 1], gain, noise[1]);
        to[i] = Grain(from[i], gain, noise[2]);
        to[i + 3] = from[i + 3];
    }
}

#if LF_X86_64
// The vector forms take (v * gain) >> 8 as the high half of (v << 8) * gain in 16-bit lanes,
// which holds for gains below 32768 (the levels a host uses give 40 to 280); larger gains go
// to the scalar rule.
constexpr uint32_t kVectorGainLimit = 32768;

// Odd bytes sit in the high half of a 16-bit lane, even bytes are moved there, so no
// unpacking is needed; min then a saturating add gives min(255, t + noise).
template <class I>
inline void GrainVector(typename I::V& r, const typename I::V& v, const typename I::V& noise,
                        const typename I::V& gain) {
    typename I::V top, odd;
    I::Splat16(top, 255);
    I::Splat16(odd, -256);
    I::And(odd, v, odd);
    I::MulHiU16(odd, odd, gain);
    I::Min16(odd, odd, top);
    I::template ShiftLeft16<8>(odd, odd);
    I::template ShiftLeft16<8>(r, v);
    I::MulHiU16(r, r, gain);
    I::Min16(r, r, top);
    I::Or(r, r, odd);
    I::AddSaturateU8(r, r, noise);
}

struct GrainBytes {
    template <class I>
    static void Run(uint8_t* to, const uint8_t* from, size_t bytes, const uint8_t* noise,
                    uint32_t gain) {
        if (gain >= kVectorGainLimit) return GrainBytesScalar(to, from, bytes, noise, gain);
        typename I::V g;
        I::Splat16(g, static_cast<int>(gain));
        size_t i = 0;
        for (; i + I::kBytes <= bytes; i += I::kBytes) {
            typename I::V v, n;
            I::Load(v, from + i);
            I::Load(n, noise + i);
            GrainVector<I>(v, v, n, g);
            I::Store(to + i, v);
        }
        GrainBytesScalar(to + i, from + i, bytes - i, noise + i, gain);
    }
};

// Byte 4k + c of a 128-bit block takes entry 3k + 2 - c; the top bit of 0xFF gives 0.
alignas(16) constexpr uint8_t kSpreadEntries[16] = {2, 1, 0, 0xFF, 5,  4,  3, 0xFF,
                                                    8, 7, 6, 0xFF, 11, 10, 9, 0xFF};

// Two pixels' entries as blue, green, red, 0 each: a pixel's three entries reversed, from a
// 4-byte load (which may reach into the next pixel's entries or the pattern's slack).
inline uint64_t PixelPair(const uint8_t* noise) {
    uint32_t entries[2];
    std::memcpy(entries, noise, 4);
    std::memcpy(entries + 1, noise + 3, 4);
    return __builtin_bswap32(entries[0]) >> 8 | uint64_t{__builtin_bswap32(entries[1]) >> 8} << 32;
}

// A pixel's three entries spread to blue, green, red, 0: by a byte shuffle of twelve entries a
// 128-bit block (the loads may reach into the pattern's slack), or word by word without one.
struct GrainPixels {
    template <class I>
    static void Run(uint8_t* to, const uint8_t* from, size_t bytes, const uint8_t* noise,
                    uint32_t gain) {
        if (gain >= kVectorGainLimit) return GrainPixelsScalar(to, from, bytes, noise, gain);
        using V = typename I::V;
        V g, alpha, spread;
        I::Splat16(g, static_cast<int>(gain));
        I::Splat32(alpha, 0xFF000000u);
        I::FromBlocks(spread, [](size_t) {
            return _mm_load_si128(reinterpret_cast<const __m128i*>(kSpreadEntries));
        });
        size_t i = 0;
        for (; i + I::kBytes <= bytes; i += I::kBytes, noise += I::kBytes / 4 * 3) {
            V n, v, r;
            if constexpr (I::kByteShuffle) {
                I::FromBlocks(n, [&](size_t k) {
                    return _mm_loadu_si128(reinterpret_cast<const __m128i*>(noise + 12 * k));
                });
                I::ShuffleBytes(n, n, spread);
            } else {
                I::FromBlocks(n, [&](size_t) {
                    return _mm_set_epi64x(static_cast<long long>(PixelPair(noise + 6)),
                                          static_cast<long long>(PixelPair(noise)));
                });
            }
            I::Load(v, from + i);
            GrainVector<I>(r, v, n, g);
            I::Select(r, alpha, v, r);
            I::Store(to + i, r);
        }
        GrainPixelsScalar(to + i, from + i, bytes - i, noise, gain);
    }
};
#endif

constexpr Simd::Variant<GrainSpanFn> kGrainBytes[] = {
    {Simd::kScalar, GrainBytesScalar},
#if LF_X86_64
    {Simd::kSse2, Simd::RunSse2<GrainBytes>},
    {Simd::kAvx2, Simd::RunAvx2<GrainBytes>},
    {Simd::kAvx512, Simd::RunAvx512<GrainBytes>},
#endif
};

constexpr Simd::Variant<GrainSpanFn> kGrainPixels[] = {
    {Simd::kScalar, GrainPixelsScalar},
#if LF_X86_64
    {Simd::kSse2, Simd::RunSse2<GrainPixels>},
    {Simd::kAvx2, Simd::RunAvx2<GrainPixels>},
    {Simd::kAvx512, Simd::RunAvx512<GrainPixels>},
#endif
};

// Adds the pattern from its start over a plane, `entries` pattern entries per `bytes` bytes;
// the pattern runs on from row to row.
void AddPattern(const Plane& plane, const uint8_t* noise, uint32_t gain, GrainSpanFn grain,
                size_t entriesPerPixel, size_t bytesPerPixel) {
    ForEachSpanFrom(plane, [&](uint8_t* span, const uint8_t* from, size_t bytes) {
        grain(span, from, bytes, noise, gain);
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
LF_ONE_PASS_EFFECT(AVPROCESSOR_ADD_NOISE);

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
