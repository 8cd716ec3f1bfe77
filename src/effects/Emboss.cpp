// Emboss: every sample replaced by its difference from the one above, scaled and centred.
#include "core/Described.h"
#include "libfilter/EmbossEffect.h"

#include <cstring>
#include <utility>

#include "core/Planes.h"
#include "core/RowWindow.h"
#include "core/SimdOps.h"
#include "libfilter/Siblings.h"

namespace MediaCore {

namespace {

// Row kernels: rewrite `row` from itself and `above` (still unembossed) over `bytes` bytes.
using PixelRowFn = void (*)(uint8_t* row, const uint8_t* above, size_t bytes, int level);
using ByteRowFn = void (*)(uint8_t* row, const uint8_t* above, size_t bytes, uint32_t level);

// Packed rule: d = (c - a) x level, taken in 64 bits so no level overflows; below -128 gives 0,
// above 127 gives 255, else d + 128. Alpha (byte 3) is kept.
LF_SCALAR_RULE void EmbossPixelsRule(uint8_t* row, const uint8_t* above, size_t bytes, int level) {
    for (size_t j = 0; j < bytes; ++j) {
        if ((j & 3) == 3) continue;
        const int64_t d = int64_t{row[j] - above[j]} * level;
        row[j] = static_cast<uint8_t>(d < -128 ? 0 : d > 127 ? 255 : d + 128);
    }
}

// Plane rule: v = (c - a) x level + 128 in wrapping unsigned 32-bit arithmetic, 255 from 255 up.
// A negative product wraps to a large number and so gives 255, unlike the packed rule's 0.
LF_SCALAR_RULE void EmbossBytesRule(uint8_t* row, const uint8_t* above, size_t bytes,
                                    uint32_t level) {
    for (size_t j = 0; j < bytes; ++j) {
        const uint32_t v = static_cast<uint32_t>(row[j] - above[j]) * level + 128u;
        row[j] = v >= 255u ? 255 : static_cast<uint8_t>(v);
    }
}

// The vector forms multiply 16-bit lanes. Both rules only ask on which side of -128, 0, 127 and
// 255 around the centre a product falls, and a nonzero product with a factor beyond +-129 falls
// on the same side as the product with that factor cut to +-129 (both exceed 128 in size with
// the same sign). So difference and level are clamped to +-129 and the product fits 16 bits.
constexpr int kReach = 129;

constexpr int16_t ReducedLevel(int64_t level) {
    return static_cast<int16_t>(level < -kReach ? -kReach : level > kReach ? kReach : level);
}

// The plane rule equals the clamped one only while the true product cannot wrap 32 bits
// (|level| below 2^23 read as signed); larger levels take the rule itself.
constexpr bool PlaneLevelReduces(uint32_t level) {
    constexpr int32_t kNoWrapLevel = 1 << 23;
    const auto l = static_cast<int32_t>(level);
    return l > -kNoWrapLevel && l < kNoWrapLevel;
}

// The clamped forms one byte at a time, for the tails the vector blocks leave.
template <bool kPacked>
void EmbossReducedTail(uint8_t* row, const uint8_t* above, size_t bytes, int16_t level) {
    for (size_t j = 0; j < bytes; ++j) {
        const int d = row[j] - above[j];
        const int t = (d < -kReach ? -kReach : d > kReach ? kReach : d) * level;
        if (kPacked) {
            if ((j & 3) != 3)
                row[j] = static_cast<uint8_t>((t < -128 ? -128 : t > 127 ? 127 : t) + 128);
        } else {
            row[j] = t + 128 < 0 || t + 128 > 255 ? 255 : static_cast<uint8_t>(t + 128);
        }
    }
}

#if LF_X86_64
// One vector form for every level. Each vector: widen to 16 bits, clamp the difference, multiply
// by the clamped level; packed: saturate to -128 .. 127, add 128 and keep alpha; plane: add 128
// and saturate to 0 .. 255, with negative results forced to 255. The clamped rule finishes the
// tail; vectors are a multiple of 4 bytes, so the tail starts on a pixel and alpha stays in
// phase.
template <bool kPacked>
struct EmbossVectors {
    template <class I>
    static void Run(uint8_t* row, const uint8_t* above, size_t bytes, int16_t level) {
        using V = typename I::V;
        V zero, scale, reach, reachBelow;
        I::Zero(zero);
        I::Splat16(scale, level);
        I::Splat16(reach, kReach);
        I::Splat16(reachBelow, -kReach);
        // Lanes of one half: (clamp(c - a)) x level.
        auto product = [&](V& r, const V& c, const V& a) {
            I::Sub16(r, c, a);
            I::Min16(r, r, reach);
            I::Max16(r, r, reachBelow);
            I::MulLo16(r, r, scale);
        };
        size_t j = 0;
        for (; j + I::kBytes <= bytes; j += I::kBytes) {
            V c, a, lo, hi, wideC, wideA, out;
            I::Load(c, row + j);
            I::Load(a, above + j);
            I::UnpackLo8(wideC, c, zero);
            I::UnpackLo8(wideA, a, zero);
            product(lo, wideC, wideA);
            I::UnpackHi8(wideC, c, zero);
            I::UnpackHi8(wideA, a, zero);
            product(hi, wideC, wideA);
            if constexpr (kPacked) {
                V flip, colour, alpha;
                I::Splat16(flip, 0x8080);
                I::Splat32(colour, 0x00FFFFFFu);
                I::Splat32(alpha, 0xFF000000u);
                I::PackS8(out, lo, hi);
                I::Xor(out, out, flip);
                I::And(out, out, colour);
                I::And(c, c, alpha);
                I::Or(out, out, c);
            } else {
                V centre, negative;
                I::Splat16(centre, 128);
                I::Add16(lo, lo, centre);
                I::Add16(hi, hi, centre);
                I::PackU8(out, lo, hi);
                I::template ShiftRightSigned16<15>(lo, lo);
                I::template ShiftRightSigned16<15>(hi, hi);
                I::PackS8(negative, lo, hi);
                I::Or(out, out, negative);
            }
            I::Store(row + j, out);
        }
        EmbossReducedTail<kPacked>(row + j, above + j, bytes - j, level);
    }
};
#endif

using ReducedFn = void (*)(uint8_t* row, const uint8_t* above, size_t bytes, int16_t level);

// A vector form over the level clamped as above.
template <ReducedFn kForm>
void EmbossPixelsVector(uint8_t* row, const uint8_t* above, size_t bytes, int level) {
    kForm(row, above, bytes, ReducedLevel(level));
}

template <ReducedFn kForm>
void EmbossBytesVector(uint8_t* row, const uint8_t* above, size_t bytes, uint32_t level) {
    if (!PlaneLevelReduces(level)) return EmbossBytesRule(row, above, bytes, level);
    kForm(row, above, bytes, ReducedLevel(static_cast<int32_t>(level)));
}

constexpr Simd::Variant<PixelRowFn> kPixelRow[] = {
    {Simd::kScalar, EmbossPixelsRule},
#if LF_X86_64
    {Simd::kSse2, EmbossPixelsVector<Simd::RunSse2<EmbossVectors<true>>>},
    {Simd::kAvx2, EmbossPixelsVector<Simd::RunAvx2<EmbossVectors<true>>>},
    {Simd::kAvx512, EmbossPixelsVector<Simd::RunAvx512<EmbossVectors<true>>>},
#endif
};

constexpr Simd::Variant<ByteRowFn> kByteRow[] = {
    {Simd::kScalar, EmbossBytesRule},
#if LF_X86_64
    {Simd::kSse2, EmbossBytesVector<Simd::RunSse2<EmbossVectors<false>>>},
    {Simd::kAvx2, EmbossBytesVector<Simd::RunAvx2<EmbossVectors<false>>>},
    {Simd::kAvx512, EmbossBytesVector<Simd::RunAvx512<EmbossVectors<false>>>},
#endif
};

// Each row from the row above while that one is still unembossed; row 0 is never rewritten.
// Nothing happens for a single row or an empty width. The walk goes top down with the row
// above kept in scratch, so the plane is one rising stream of memory that the hardware follows
// (bottom up, each row against the walk, it ran well behind a copy on frames not in cache);
// without scratch it goes bottom up, which needs none.
template <class Level>
void EmbossRows(uint8_t* data, size_t bytes, unsigned pitch, unsigned height, Level level,
                void (*row)(uint8_t*, const uint8_t*, size_t, Level)) {
    if (data == nullptr || bytes == 0 || height < 2) return;
    uint8_t* above = ThreadScratch(2 * bytes);
    if (above == nullptr) {
        for (unsigned y = height - 1; y > 0; --y)
            row(data + size_t{y} * pitch, data + size_t{y - 1} * pitch, bytes, level);
        return;
    }
    uint8_t* saved = above + bytes;
    std::memcpy(above, data, bytes);
    for (unsigned y = 1; y < height; ++y) {
        uint8_t* current = data + size_t{y} * pitch;
        if (y + 1 < height) std::memcpy(saved, current, bytes);
        row(current, above, bytes, level);
        std::swap(above, saved);
    }
}

void EmbossRgba32(unsigned int* pixels, int width, unsigned int pitch, unsigned int height,
                  int level) {
    if (width <= 0) return;
    EmbossRows(reinterpret_cast<uint8_t*>(pixels), size_t(width) * 4, pitch, height, level,
               Simd::Pick(kPixelRow));
}

void EmbossComponent(unsigned char* plane, int width, unsigned int pitch, unsigned int height,
                     unsigned int level) {
    if (width <= 0) return;
    EmbossRows(plane, size_t(width), pitch, height, level, Simd::Pick(kByteRow));
}

// A plane without memory or rows is never handed to a kernel.
bool Reachable(const Plane& plane) {
    return plane.data != nullptr && plane.rows != 0;
}

}  // namespace

EmbossRgba32Kernel emboss_effect_rgba32 = EmbossRgba32;
EmbossComponentKernel emboss_effect_component = EmbossComponent;

// ---- What hosts are told of it ----

constexpr PropertyDescription kEmbossProperties[] = {
    {"emboss_level", PROPERTY_INT32, "5", PropertyKind::Integer, 0, 20, RangeBound::Fixed,
     "how strongly differences lift off mid-gray"},
};
constexpr EffectDescription kEmboss = {
    AVPROCESSOR_EMBOSS,
    "emboss",
    "relief from each row's difference to the one above, strength emboss_level",
    EffectMaking::Factory,
    "MediaCore::CEmbossVideoImageEffect",
    false,
    MakeEffect<CEmbossVideoImageEffect>,
    kEmbossProperties,
    CountOf(kEmbossProperties),
    nullptr,
    0};
LF_DESCRIBE_EFFECT(kEmboss);

CEmbossVideoImageEffect::CEmbossVideoImageEffect() : CImageEffectBase(AVPROCESSOR_EMBOSS) {
    libcore_GetCpuCapability();  // asked as the engine expects; the kernels pick their own forms
}

int CEmbossVideoImageEffect::OnSetProperty(const std::string& name, PropertyNode& node) {
    const int result = CVideoEffectBase::OnSetProperty(name, node);
    if (name == "emboss_level") level_ = static_cast<uint32_t>(node.parsed.i32);
    return result;
}

bool CEmbossVideoImageEffect::ProcFrameInner(ImagePostion*, int, GVideoFrame* frame) {
    if (frame == nullptr) return false;
    switch (FamilyOf(frame->GetPixelFormat())) {
        case FormatFamily::PackedBgra: {
            const Plane plane = GetPackedPlane(frame);
            if (Reachable(plane)) {
                emboss_effect_rgba32(reinterpret_cast<unsigned int*>(plane.data),
                                     static_cast<int>(plane.rowBytes / 4), plane.pitch, plane.rows,
                                     static_cast<int>(level_));
            }
            break;
        }
        case FormatFamily::PlanarYuv:
            // A fourth plane, where there is one, is left as it is.
            for (unsigned i = 0; i < 3; ++i) {
                const Plane plane = GetPlane(frame, i);
                if (Reachable(plane)) {
                    emboss_effect_component(plane.data, static_cast<int>(plane.rowBytes),
                                            plane.pitch, plane.rows, level_);
                }
            }
            break;
        case FormatFamily::Other:
            break;
    }
    return true;
}

}  // namespace MediaCore
