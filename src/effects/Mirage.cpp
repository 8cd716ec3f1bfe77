// Mirage: blends the frame with a copy of itself magnified about its centre.
#include <algorithm>
#include <optional>
#include <vector>

#include "core/Described.h"
#include "core/GatherPlan.h"
#include "core/Planes.h"
#include "core/SimdOps.h"
#include "libfilter/DirectEffects.h"
#include "libfilter/Siblings.h"

namespace MediaCore {

namespace {

// One blend step is (original * keep + current * take) >> 8 with keep + take = 256; a sample
// takes `repeat` steps, starting from its magnified value.
struct Blend {
    uint16_t keep;
    uint16_t take;
    unsigned repeat;
};

// Where each sample of a destination row takes its magnified value from.
GatherPlan GatherPlanOf(std::vector<uint32_t> source, unsigned elementSize, size_t sourceElements) {
    GatherPlan plan;
    plan.source = std::move(source);
    plan.Plan(elementSize, 16, sourceElements);
    return plan;
}

// The scalar rule: every sample starts from its magnified value and takes `repeat` blend
// steps toward the original; a BGRA pixel keeps the magnified copy's alpha.
inline uint8_t Blended(unsigned original, unsigned magnified, const Blend& b) {
    unsigned v = magnified;
    for (unsigned r = 0; r < b.repeat; ++r)
        v = (original * b.keep + v * b.take) >> 8;
    return static_cast<uint8_t>(v);
}

void BlendSamples(uint8_t* dst, const uint8_t* original, const uint8_t* magnified,
                  const uint32_t* source, unsigned count, unsigned elementSize, const Blend& b) {
    for (unsigned x = 0; x < count; ++x) {
        const uint8_t* z = magnified + size_t{source[x]} * elementSize;
        for (unsigned c = 0; c < elementSize; ++c) {
            const size_t i = size_t{x} * elementSize + c;
            dst[i] = c == 3 ? z[c] : Blended(original[i], z[c], b);
        }
    }
}

// One row: `count` elements of `dst` from the original row and the magnified source row.
using MirageRowFn = void (*)(uint8_t* dst, const uint8_t* original, const uint8_t* magnified,
                             const GatherPlan& plan, unsigned count, const Blend& blend);

void MirageRowScalar(uint8_t* dst, const uint8_t* original, const uint8_t* magnified,
                     const GatherPlan& plan, unsigned count, const Blend& blend) {
    BlendSamples(dst, original, magnified, plan.source.data(), count, plan.unit, blend);
}

#if LF_X86_64
// Blend steps in 16-bit lanes: both products and their sum stay below 65536. Lanes set in
// `keepMagnified` keep the magnified byte.
template <class I>
inline void BlendVector(typename I::V& r, const typename I::V& original,
                        const typename I::V& magnified, const Blend& b,
                        const typename I::V& keepMagnified) {
    typename I::V zero, keep, take, oLo, oHi, lo, hi;
    I::Zero(zero);
    I::Splat16(keep, b.keep);
    I::Splat16(take, b.take);
    I::UnpackLo8(oLo, original, zero);
    I::UnpackHi8(oHi, original, zero);
    I::MulLo16(oLo, oLo, keep);
    I::MulLo16(oHi, oHi, keep);
    I::UnpackLo8(lo, magnified, zero);
    I::UnpackHi8(hi, magnified, zero);
    for (unsigned step = 0; step < b.repeat; ++step) {
        I::MulLo16(lo, lo, take);
        I::MulLo16(hi, hi, take);
        I::Add16(lo, lo, oLo);
        I::Add16(hi, hi, oHi);
        I::template ShiftRight16<8>(lo, lo);
        I::template ShiftRight16<8>(hi, hi);
    }
    I::PackU8(r, lo, hi);
    I::AndNot(r, keepMagnified, r);
    I::And(zero, keepMagnified, magnified);
    I::Or(r, r, zero);
}

// The magnified values come by one load and a byte shuffle for each 16-byte block the plan
// has, element by element otherwise (and always without a byte shuffle). AVX-512's twice the
// lanes keep the blend steps' chain of multiplies busy.
struct MirageRow {
    template <class I>
    static void Run(uint8_t* dst, const uint8_t* original, const uint8_t* magnified,
                    const GatherPlan& plan, unsigned count, const Blend& blend) {
        using V = typename I::V;
        const unsigned e = plan.unit;
        const size_t bytes = size_t{count} * e;
        V keepMagnified;
        I::Splat32(keepMagnified, e == 4 ? 0xFF000000u : 0);
        size_t i = 0;
        for (; i + I::kBytes <= bytes; i += I::kBytes) {
            V z, o, out;
            if (!Simd::GatherBlocks<I>(z, magnified, plan, i / 16)) {
                I::FromBlocks(z, [&](size_t k) {
                    return Simd::GatherElements(magnified, &plan.source[(i + 16 * k) / e], e);
                });
            }
            I::Load(o, original + i);
            BlendVector<I>(out, o, z, blend, keepMagnified);
            I::Store(dst + i, out);
        }
        BlendSamples(dst + i, original + i, magnified, &plan.source[i / e], count - i / e, e,
                     blend);
    }
};
#endif

constexpr Simd::Variant<MirageRowFn> kMirageRow[] = {
    {Simd::kScalar, MirageRowScalar},
#if LF_X86_64
    {Simd::kSse2, Simd::RunSse2<MirageRow>},
    {Simd::kAvx2, Simd::RunAvx2<MirageRow>},
    {Simd::kAvx512, Simd::RunAvx512<MirageRow>},
#endif
};

// The magnified copy's geometry in 16.16 fixed point, with 32-bit unsigned arithmetic
// throughout; none when the frame is to stay as it is: a weight above 100, or a width at or
// below 0, which would shrink the copy or divide by zero.
struct Magnifier {
    uint32_t step;   // source advance per destination sample, 200 / (200 + width)
    uint32_t scale;  // (200 + width) / 200
    Blend blend;
};

std::optional<Magnifier> MagnifierOf(unsigned width, unsigned alpha) {
    if (alpha > 100 || static_cast<int>(width) <= 0) return std::nullopt;
    const uint32_t z = 200 + width;
    const uint32_t a = ((alpha << 7) + 5120) / 100;
    const Blend blend{static_cast<uint16_t>(256 - a), static_cast<uint16_t>(a), 1};
    return Magnifier{(200u << 16) / z, (z << 16) / 200, blend};
}

// Source positions along an axis of `length` samples, centred: (origin + i * step) >> 16,
// one addition a sample. Empty when a position would leave the axis, so the frame is kept.
std::vector<uint32_t> Positions(const Magnifier& m, uint32_t length) {
    const uint32_t origin = ((((m.scale * length) >> 16) - length) * m.step) >> 1;
    std::vector<uint32_t> positions(length);
    uint32_t at = origin;
    for (uint32_t i = 0; i < length; ++i, at += m.step) {
        positions[i] = at >> 16;
        if (positions[i] >= length) return {};
    }
    return positions;
}

// A chroma axis of `length` samples under luma positions: each chroma sample takes its
// magnified value from the last luma position over it (later writes win) and is blended once
// for every luma position over it. Luma positions past the chroma axis's end count for its
// last sample.
struct ChromaAxis {
    std::vector<uint32_t> source;
    std::vector<uint32_t> cover;
};

ChromaAxis ChromaAxisOf(const std::vector<uint32_t>& luma, unsigned shift, uint32_t length) {
    ChromaAxis axis{std::vector<uint32_t>(length), std::vector<uint32_t>(length)};
    for (size_t i = 0; i < luma.size(); ++i) {
        const size_t c = std::min<size_t>(i >> shift, length - 1);
        axis.source[c] = std::min<uint32_t>(luma[i] >> shift, length - 1);
        ++axis.cover[c];
    }
    return axis;
}

// One chroma plane: a sample covered by n luma pixels is blended n times in succession, each
// time from the current value and the unchanged chroma, which pulls it further toward the
// magnified value. The columns covered by a full 2^h luma columns share one count; the others
// (the last on odd sizes, or none at all) are blended one by one.
void BlendChroma(const Plane& dst, const uint8_t* src, const std::vector<uint32_t>& xs,
                 const std::vector<uint32_t>& ys, unsigned h, unsigned v, Blend blend,
                 MirageRowFn blendRow) {
    const ChromaAxis columns = ChromaAxisOf(xs, h, dst.rowBytes);
    const ChromaAxis rows = ChromaAxisOf(ys, v, dst.rows);
    const GatherPlan map = GatherPlanOf(columns.source, 1, dst.rowBytes);
    unsigned uniform = 0;
    while (uniform < dst.rowBytes && columns.cover[uniform] == 1u << h)
        ++uniform;
    for (unsigned cy = 0; cy < dst.rows; ++cy) {
        if (rows.cover[cy] == 0) continue;
        uint8_t* d = dst.Row(cy);
        const uint8_t* o = src + size_t{cy} * dst.pitch;
        const uint8_t* z = src + size_t{rows.source[cy]} * dst.pitch;
        blend.repeat = rows.cover[cy] << h;
        blendRow(d, o, z, map, uniform, blend);
        for (unsigned cx = uniform; cx < dst.rowBytes; ++cx) {
            blend.repeat = rows.cover[cy] * columns.cover[cx];
            if (blend.repeat != 0)
                BlendSamples(d + cx, o + cx, z, &columns.source[cx], 1, 1, blend);
        }
    }
}

// The copy the workers read is assumed laid out as the frame: one stride serves both.
bool SameLayout(const Plane& a, const Plane& b) {
    return a.rowBytes == b.rowBytes && a.pitch == b.pitch && a.rows == b.rows;
}

}  // namespace

// ---- What hosts are told of it ----

constexpr PropertyDescription kMirageProperties[] = {
    {"mirage_width", PROPERTY_INT32, "10", PropertyKind::Integer, 0, 200, RangeBound::Fixed,
     "the ghost is (200 + this) / 200 times as large"},
    {"mirage_alpha", PROPERTY_INT32, "10", PropertyKind::Integer, 0, 100, RangeBound::Fixed,
     "weight of the ghost in percent"},
};
constexpr ShowcaseSetting kMirageShowcase[] = {
    {"mirage_width", 20, RangeBound::Fixed},
    {"mirage_alpha", 50, RangeBound::Fixed},
};
constexpr EffectDescription kMirage = {
    AVPROCESSOR_MIRAGE,
    "mirage",
    "blends a magnified ghost over the picture (mirage_width, mirage_alpha)",
    EffectMaking::ExportedClass,
    "MediaCore::CMirageVideoImageEffect",
    false,
    MakeEffect<CMirageVideoImageEffect>,
    kMirageProperties,
    CountOf(kMirageProperties),
    kMirageShowcase,
    CountOf(kMirageShowcase)};
LF_DESCRIBE_EFFECT(kMirage);

CMirageVideoImageEffect::CMirageVideoImageEffect() : CImageEffectBase(AVPROCESSOR_MIRAGE) {
    libcore_GetCpuCapability();  // asked once; the kernels pick their own forms
}

int CMirageVideoImageEffect::OnSetProperty(const std::string& name, PropertyNode& node) {
    const int result = CVideoEffectBase::OnSetProperty(name, node);
    if (name == "mirage_width") width_ = static_cast<unsigned>(node.parsed.i32);
    if (name == "mirage_alpha") alpha_ = static_cast<unsigned>(node.parsed.i32);
    return result;
}

void CMirageVideoImageEffect::MirageRgba32Effect(unsigned char* dst, unsigned char* src,
                                                 unsigned int width, unsigned int stride,
                                                 unsigned int rows) {
    const std::optional<Magnifier> m = MagnifierOf(width_, alpha_);
    if (!m) return;
    const std::vector<uint32_t> ys = Positions(*m, rows);
    const GatherPlan columns = GatherPlanOf(Positions(*m, width), 4, width);
    if (ys.empty() || columns.source.empty()) return;
    const MirageRowFn blendRow = Simd::Pick(kMirageRow);
    for (unsigned y = 0; y < rows; ++y) {
        blendRow(dst + size_t{y} * stride, src + size_t{y} * stride, src + size_t{ys[y]} * stride,
                 columns, width, m->blend);
    }
}

void CMirageVideoImageEffect::MirageComponentEffect(unsigned char** dst, unsigned char** src,
                                                    unsigned int* width, unsigned int* strides,
                                                    unsigned int* rows, unsigned int subsampling) {
    const std::optional<Magnifier> m = MagnifierOf(width_, alpha_);
    if (!m) return;
    const std::vector<uint32_t> xs = Positions(*m, width[0]);
    const std::vector<uint32_t> ys = Positions(*m, rows[0]);
    if (xs.empty() || ys.empty()) return;
    const MirageRowFn blendRow = Simd::Pick(kMirageRow);
    const GatherPlan luma = GatherPlanOf(xs, 1, width[0]);
    for (unsigned y = 0; y < rows[0]; ++y) {
        blendRow(dst[0] + size_t{y} * strides[0], src[0] + size_t{y} * strides[0],
                 src[0] + size_t{ys[y]} * strides[0], luma, width[0], m->blend);
    }
    for (unsigned p = 1; p < 3; ++p) {
        const Plane chroma{dst[p], width[p], strides[p], rows[p]};
        if (chroma.Empty()) continue;
        BlendChroma(chroma, src[p], xs, ys, subsampling / 10, subsampling % 10, m->blend, blendRow);
    }
}

bool CMirageVideoImageEffect::ProcFrameInner(ImagePostion*, int, GVideoFrame* frame) {
    if (frame == nullptr) return true;
    // The unchanged picture that both the magnified values and the blend read from.
    const FramePtr copy(frame->Clone());
    if (!copy) return true;
    const int format = frame->GetPixelFormat();
    if (format == PIXFMT_BGRA32) {
        const Plane d = GetPackedPlane(frame), s = GetPackedPlane(copy.get());
        if (!d.Empty() && !s.Empty() && SameLayout(d, s))
            MirageRgba32Effect(d.data, s.data, d.rowBytes / 4, d.pitch, d.rows);
        return true;
    }
    const int code = SubsamplingCode(format);
    if (code < 0) return true;
    unsigned char* dst[3];
    unsigned char* src[3];
    unsigned widths[3], strides[3], rows[3];
    for (unsigned i = 0; i < 3; ++i) {
        const Plane d = GetPlane(frame, i), s = GetPlane(copy.get(), i);
        if (!SameLayout(d, s) || (d.Empty() != s.Empty()) || (i == 0 && d.Empty())) return true;
        dst[i] = d.data;
        src[i] = s.data;
        widths[i] = d.Empty() ? 0 : d.rowBytes;
        strides[i] = d.pitch;
        rows[i] = d.rows;
    }
    MirageComponentEffect(dst, src, widths, strides, rows, static_cast<unsigned>(code));
    return true;
}

}  // namespace MediaCore
