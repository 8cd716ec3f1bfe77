// Colour key: zeroes the alpha of pixels near a key colour.
#include <algorithm>

#include "core/Described.h"
#include "core/Planes.h"
#include "core/Simd.h"
#include "core/SimdOps.h"
#include "libfilter/DirectEffects.h"

namespace MediaCore {

namespace {

// Packed pixels are keyed when their 24-bit colour number lies in [lo, hi]. Writes `bytes`
// bytes at `to` from those at `from` (the same span when in place).
using KeyPixelsFn = void (*)(uint8_t* to, const uint8_t* from, size_t bytes, uint32_t lo,
                             uint32_t hi);

// Spans hold whole pixels.
void KeyPixelsScalar(uint8_t* to, const uint8_t* from, size_t bytes, uint32_t lo, uint32_t hi) {
    for (size_t i = 0; i + 4 <= bytes; i += 4) {
        const uint32_t colour = from[i] | from[i + 1] << 8 | uint32_t{from[i + 2]} << 16;
        to[i] = from[i];
        to[i + 1] = from[i + 1];
        to[i + 2] = from[i + 2];
        to[i + 3] = lo <= colour && colour <= hi ? 0 : from[i + 3];
    }
}

// One planar row: the Y samples, the chroma rows covering them and the alpha row. Positions
// past a shorter chroma or alpha row read and write that row's last sample.
struct KeyRow {
    const uint8_t* y;
    const uint8_t* u;
    const uint8_t* v;
    uint8_t* a;
    unsigned count;        // Y samples
    unsigned chromaShift;  // 0: chroma at x, 1: at x >> 1
    unsigned chromaCount;
    unsigned alphaCount;
};

// Per-channel bounds, each inclusive.
struct KeyBounds {
    uint8_t lo[3], hi[3];
};

using KeyRowFn = void (*)(const KeyRow& row, const KeyBounds& b, unsigned begin);

inline bool Within(uint8_t value, const KeyBounds& b, int channel) {
    return b.lo[channel] <= value && value <= b.hi[channel];
}

void KeyRowScalar(const KeyRow& r, const KeyBounds& b, unsigned begin) {
    for (unsigned x = begin; x < r.count; ++x) {
        const unsigned c = std::min(x >> r.chromaShift, r.chromaCount - 1);
        if (Within(r.y[x], b, 0) && Within(r.u[c], b, 1) && Within(r.v[c], b, 2)) {
            r.a[std::min(x, r.alphaCount - 1)] = 0;
        }
    }
}

#if LF_X86_64
// The Y samples the vector forms may take: those whose chroma and alpha need no clamping.
inline unsigned VectorEnd(const KeyRow& r) {
    return std::min({r.count, r.chromaCount << r.chromaShift, r.alphaCount});
}

// The 24-bit colour number fits a signed compare; lo <= hi <= 0xFFFFFF is checked by the caller.
struct KeyPixelsVectors {
    template <class I>
    static void Run(uint8_t* to, const uint8_t* from, size_t bytes, uint32_t lo, uint32_t hi) {
        using V = typename I::V;
        V low, high, colourMask;
        I::Splat32(low, lo);
        I::Splat32(high, hi);
        I::Splat32(colourMask, 0x00FFFFFF);
        Simd::ForEachVector<I, Simd::Walk::Stream>(
            to, bytes,
            [&](uint8_t* q) {
                V px, colour, below, above;
                I::Load(px, from + (q - to));
                I::And(colour, px, colourMask);
                I::CmpGt32(below, low, colour);
                I::CmpGt32(above, colour, high);
                I::Or(below, below, above);
                I::Or(below, below, colourMask);
                I::And(px, px, below);
                I::Store(q, px);
            },
            [&](uint8_t* q, size_t n) { KeyPixelsScalar(q, from + (q - to), n, lo, hi); });
    }
};

struct KeyRowVectors {
    // All ones in each byte of v inside [lo, hi]: clamping it there changes nothing.
    template <class I>
    static void Inside(typename I::V& r, const typename I::V& v, const typename I::V (&bounds)[2]) {
        typename I::V clamped;
        I::MaxU8(clamped, v, bounds[0]);
        I::CmpEq8(clamped, clamped, v);
        I::MinU8(r, v, bounds[1]);
        I::CmpEq8(r, r, v);
        I::And(r, r, clamped);
    }

    template <class I>
    static void Run(const KeyRow& r, const KeyBounds& b, unsigned begin) {
        using V = typename I::V;
        V bounds[3][2];
        for (int c = 0; c < 3; ++c) {
            I::Splat8(bounds[c][0], b.lo[c]);
            I::Splat8(bounds[c][1], b.hi[c]);
        }
        const unsigned end = VectorEnd(r);
        unsigned x = begin;
        for (; x + I::kBytes <= end; x += I::kBytes) {
            V y, u, v, keyed, inside, alpha;
            if (r.chromaShift == 0) {
                I::Load(u, r.u + x);
                I::Load(v, r.v + x);
            } else {
                I::LoadDoubledBytes(u, r.u + x / 2);
                I::LoadDoubledBytes(v, r.v + x / 2);
            }
            I::Load(y, r.y + x);
            Inside<I>(keyed, y, bounds[0]);
            Inside<I>(inside, u, bounds[1]);
            I::And(keyed, keyed, inside);
            Inside<I>(inside, v, bounds[2]);
            I::And(keyed, keyed, inside);
            I::Load(alpha, r.a + x);
            I::AndNot(alpha, keyed, alpha);
            I::Store(r.a + x, alpha);
        }
        KeyRowScalar(r, b, x);
    }
};
#endif

constexpr Simd::Variant<KeyPixelsFn> kKeyPixels[] = {
    {Simd::kScalar, KeyPixelsScalar},
#if LF_X86_64
    {Simd::kSse2, Simd::RunSse2<KeyPixelsVectors>},
    {Simd::kAvx2, Simd::RunAvx2<KeyPixelsVectors>},
#endif
};

constexpr Simd::Variant<KeyRowFn> kKeyRow[] = {
    {Simd::kScalar, KeyRowScalar},
#if LF_X86_64
    {Simd::kSse2, Simd::RunSse2<KeyRowVectors>},
    {Simd::kAvx2, Simd::RunAvx2<KeyRowVectors>},
#endif
};

// Bounds clamped to a byte after 32-bit signed arithmetic, so a scope read back as a negative
// number gives bounds that cross and key nothing, or wrap into a byte.
inline void ChannelBounds(uint8_t key, unsigned scope, uint8_t& lo, uint8_t& hi) {
    const auto low = static_cast<int32_t>(key - scope);
    const auto high = static_cast<int32_t>(key + scope);
    lo = static_cast<uint8_t>(std::max(0, low));
    hi = static_cast<uint8_t>(std::min(255, high));
}

}  // namespace

// ---- What hosts are told of it ----

constexpr PropertyDescription kColorFilterProperties[] = {
    {"filter_scope", PROPERTY_INT32, "0", PropertyKind::Integer, 0, 255, RangeBound::Fixed,
     "tolerance around the key colour"},
    {"filter_color", PROPERTY_INT32, "0", PropertyKind::Color, 0, 0xFFFFFF, RangeBound::Fixed,
     "key colour whose neighbourhood becomes transparent"},
};
constexpr ShowcaseSetting kColorFilterShowcase[] = {
    {"filter_color", 0xFFFFFF, RangeBound::Fixed},
    {"filter_scope", 48, RangeBound::Fixed},
};
constexpr EffectDescription kColorFilter = {
    AVPROCESSOR_COLOR_FILTER,
    "color-filter",
    "colour key: clears the alpha near filter_color (0xRRGGBB) within filter_scope",
    EffectMaking::ExportedClass,
    "MediaCore::CColorFilterEffect",
    false,
    MakeEffect<CColorFilterEffect>,
    kColorFilterProperties,
    CountOf(kColorFilterProperties),
    kColorFilterShowcase,
    CountOf(kColorFilterShowcase)};
LF_DESCRIBE_EFFECT(kColorFilter);
LF_ONE_PASS_EFFECT(AVPROCESSOR_COLOR_FILTER);

CColorFilterEffect::CColorFilterEffect() : CImageEffectBase(AVPROCESSOR_COLOR_FILTER) {}

int CColorFilterEffect::OnSetProperty(const std::string& name, PropertyNode& node) {
    const int result = CVideoEffectBase::OnSetProperty(name, node);
    if (name == "filter_scope") {
        scope_ = static_cast<unsigned>(node.parsed.i32);
    } else if (name == "filter_color") {
        color_ = static_cast<unsigned>(node.parsed.i32);
        const double r = (color_ >> 16) & 0xFF, g = (color_ >> 8) & 0xFF, b = color_ & 0xFF;
        // Studio-swing YUV of the key, truncated toward zero.
        keyY_ = static_cast<uint8_t>(static_cast<int>(0.257 * r + 0.504 * g + 0.098 * b + 16.0));
        keyU_ = static_cast<uint8_t>(static_cast<int>(-0.148 * r - 0.291 * g + 0.439 * b + 128.0));
        keyV_ = static_cast<uint8_t>(static_cast<int>(0.439 * r - 0.368 * g - 0.071 * b + 128.0));
    }
    return result;
}

void CColorFilterEffect::FilterRGBA32Effect(unsigned char* pixels, unsigned int width,
                                            unsigned int stride, unsigned int rows) {
    // One range over the whole 24-bit number (blue lowest), not one per channel: a scope
    // spills from channel to channel, and above 255 into the next byte.
    const uint32_t colour = color_ & 0xFFFFFF;
    const uint32_t spread = scope_ | scope_ << 8 | scope_ << 16;
    const uint32_t hi = std::min<uint32_t>(spread + colour, 0xFFFFFF);
    const uint32_t lo = colour - spread;  // wraps past every colour when the spread is larger
    if (lo > hi) return;
    const KeyPixelsFn key = Simd::Pick(kKeyPixels);
    ForEachSpanFrom(
        Plane{pixels, width * 4, stride, rows},
        [&](uint8_t* p, const uint8_t* from, size_t bytes) { key(p, from, bytes, lo, hi); });
}

void CColorFilterEffect::FilterComponentEffect(unsigned char** planes, unsigned int* widths,
                                               unsigned int* strides, unsigned int* rows,
                                               unsigned char chromaShift) {
    for (unsigned i = 1; i < 4; ++i) {
        if (widths[i] == 0 || rows[i] == 0) return;  // nothing to compare with or to key
    }
    KeyBounds bounds;
    const uint8_t key[3] = {keyY_, keyU_, keyV_};
    for (int c = 0; c < 3; ++c)
        ChannelBounds(key[c], scope_, bounds.lo[c], bounds.hi[c]);
    const KeyRowFn keyRow = Simd::Pick(kKeyRow);
    const unsigned shift = chromaShift != 0 ? 1 : 0;
    for (unsigned y = 0; y < rows[0]; ++y) {
        const unsigned cy = std::min(y >> shift, std::min(rows[1], rows[2]) - 1);
        const unsigned ay = std::min(y, rows[3] - 1);
        const KeyRow row{planes[0] + size_t{y} * strides[0],
                         planes[1] + size_t{cy} * strides[1],
                         planes[2] + size_t{cy} * strides[2],
                         planes[3] + size_t{ay} * strides[3],
                         widths[0],
                         shift,
                         std::min(widths[1], widths[2]),
                         widths[3]};
        for (const uint8_t* read : {row.y, row.u, row.v, static_cast<const uint8_t*>(row.a)})
            StageRow(read);
        keyRow(row, bounds, 0);
    }
}

bool CColorFilterEffect::ProcFrameInner(ImagePostion*, int, GVideoFrame* frame) {
    if (frame == nullptr) return true;
    const int format = frame->GetPixelFormat();
    if (format == PIXFMT_BGRA32) {
        const Plane p = GetPackedPlane(frame);
        if (!p.Empty()) FilterRGBA32Effect(p.data, p.rowBytes / 4, p.pitch, p.rows);
    } else if (format == PIXFMT_YUVA420P || format == PIXFMT_PLANAR4_FULL) {
        unsigned char* planes[4];
        unsigned widths[4], strides[4], rows[4];
        for (unsigned i = 0; i < 4; ++i) {
            const Plane p = GetPlane(frame, i);
            if (p.Empty()) return true;
            planes[i] = p.data;
            widths[i] = p.rowBytes;
            strides[i] = p.pitch;
            rows[i] = p.rows;
        }
        FilterComponentEffect(planes, widths, strides, rows, format == PIXFMT_YUVA420P);
    }
    return true;
}

}  // namespace MediaCore
