// Red-blue on planar YUV: red from the left view, green and blue from the right, back to YUV.
// Chroma is addressed as 4:2:0 whatever the format; a position past a chroma row or plane is
// clamped to its last sample.
#include <algorithm>
#include <cstring>

#include "core/LoopForms.h"
#include "core/Simd.h"
#include "stereo/StereoRender.h"

#if LF_X86_64
#include <immintrin.h>
#endif

namespace MediaCore::stereo {

namespace {

struct ChromaRow {
    uint8_t* data;
    unsigned last;  // last sample of the row
    uint8_t& At(unsigned cx) const { return data[std::min(cx, last)]; }
};

struct YuvRedBlueRow {
    const uint8_t* yl;
    const uint8_t* yr;
    uint8_t* yo;
    ChromaRow vl, ur, vr, uo, vo;
    bool writesChroma;  // even rows give the chroma of their even pixels
};

// 32-bit signed arithmetic with arithmetic shifts; stored results keep their low 8 bits.
inline void RedBluePixel(const YuvRedBlueRow& row, unsigned x) {
    const unsigned cx = x >> 1;
    const int yl = row.yl[x] - 16, vl = row.vl.At(cx) - 128;
    const int yr = row.yr[x] - 16, ur = row.ur.At(cx) - 128, vr = row.vr.At(cx) - 128;
    const int r = (298 * yl + 409 * vl + 128) >> 8;
    const int g = (298 * yr - 100 * ur - 208 * vr + 128) >> 8;
    const int b = (298 * yr + 516 * ur + 128) >> 8;
    row.yo[x] = static_cast<uint8_t>(((66 * r + 129 * g + 25 * b + 128) >> 8) + 16);
    if (row.writesChroma && (x & 1) == 0) {
        row.uo.At(cx) = static_cast<uint8_t>(((-38 * r - 74 * g + 112 * b + 128) >> 8) + 128);
        row.vo.At(cx) = static_cast<uint8_t>(((112 * r - 94 * g - 18 * b + 128) >> 8) + 128);
    }
}

// Pixels [begin, end) of one row, in order.
using YuvRedBlueFn = void (*)(const YuvRedBlueRow& row, unsigned begin, unsigned end);

void YuvRedBlueScalar(const YuvRedBlueRow& row, unsigned begin, unsigned end) {
    for (unsigned x = begin; x < end; ++x)
        RedBluePixel(row, x);
}

#if LF_X86_64
// The vector forms work in 16-bit lanes whose sums wrap, which keeps the low 16 bits of every
// sum exact. A stored output is the low byte of floor(X / 256) + offset for the rule's sum X,
// that is the second byte of X + 256 offset: exact. The colours R, G and B are needed only modulo
// 2^16 by those sums, so they are exact too, provided the floor(x / 256) in each is taken of its
// true x. With the biases folded in and 298 = 256 + 42, 409 = 256 + 153, -208 = -256 + 48 and
// 516 = 512 + 4, each colour is a whole part plus a remainder whose true value fits 16 unsigned
// bits for every input, so that a logical shift divides it (the red-blue range test runs every
// input):
//   R = Yl + Vl - 223 + ((42 Yl + 153 Vl + 96) >> 8)          remainder 96 .. 49821
//   G = Yr - Vr + ((42 Yr - 100 Ur + 48 Vr + 34784) >> 8)     remainder 9284 .. 57734
//   B = Yr + 2 Ur - 277 + ((42 Yr + 4 Ur + 224) >> 8)         remainder 224 .. 11954
// Even and odd pixels go in separate vectors, so both meet their chroma sample in the same lane
// and the terms of the chroma alone are formed once for the two. Vectors travel by reference:
// these bodies are inlined into each form, compiled for its instruction set.
template <unsigned Bytes>
struct RedBlueLanes {
    typedef uint16_t U __attribute__((vector_size(Bytes)));
    typedef uint8_t Narrow __attribute__((vector_size(Bytes / 2)));
    static constexpr unsigned kLanes = Bytes / 2;

    struct Weights {
        U w42, w153, w100, w48, w66, w129, w25, w112, w38, w74, w94, w18;
    };
    // What a chroma sample adds to its two pixels' colours.
    struct Chroma {
        U rWhole, rPart, vr, gPart, bWhole, bPart;
    };
    // One vector of pixels: colours, and the sum whose second byte is the output luma.
    struct Colours {
        U r, g, b, luma;
    };
};

// Every lane 1, hidden from the compiler: weights made from it stay multiplies, where the
// compiler would trade a multiply by a known constant for a chain of shifts and adds. GCC takes
// the whole vector through an empty asm, which measured fastest; clang checks a vector operand
// against the caller's instruction set before inlining, so there the lane goes through a
// general register instead.
template <class U>
LF_LOOP_BODY void SetHiddenOne(U& one) {
#if defined(__clang__)
    uint16_t lane = 1;
    __asm__("" : "+r"(lane));
    one = U{} + lane;
#else
    one = U{} + 1;
    __asm__("" : "+x"(one));
#endif
}

// A vector's worth of chroma bytes, zero-extended to 16-bit lanes: one instruction in each form,
// where the compiler's own widening of a byte vector takes three. Plain inline, so that they are
// inlined once the block body sits in a form of their instruction set.
inline void LoadChroma(RedBlueLanes<16>::U& v, const uint8_t* p) {
    const __m128i bytes = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(p));
    v = reinterpret_cast<RedBlueLanes<16>::U>(_mm_unpacklo_epi8(bytes, _mm_setzero_si128()));
}

LF_TARGET_AVX2 inline void LoadChroma(RedBlueLanes<32>::U& v, const uint8_t* p) {
    const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
    v = reinterpret_cast<RedBlueLanes<32>::U>(_mm256_cvtepu8_epi16(bytes));
}

LF_TARGET_AVX512 inline void LoadChroma(RedBlueLanes<64>::U& v, const uint8_t* p) {
    const __m256i bytes = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p));
    v = reinterpret_cast<RedBlueLanes<64>::U>(_mm512_cvtepu8_epi16(bytes));
}

// The second byte of each lane.
template <class L>
LF_LOOP_BODY void StoreSecondBytes(uint8_t* p, const typename L::U& v) {
    const auto bytes = __builtin_convertvector(v >> 8, typename L::Narrow);
    std::memcpy(p, &bytes, sizeof bytes);
}

template <class L>
LF_LOOP_BODY void RedBlueColours(typename L::Colours& c, const typename L::U& yl,
                                 const typename L::U& yr, const typename L::Chroma& k,
                                 const typename L::Weights& w) {
    const typename L::U t = yr * w.w42;
    c.r = yl + k.rWhole + ((yl * w.w42 + k.rPart) >> 8);
    c.g = yr - k.vr + ((t + k.gPart) >> 8);
    c.b = yr + k.bWhole + ((t + k.bPart) >> 8);
    c.luma = c.r * w.w66 + c.g * w.w129 + c.b * w.w25 + (128 + (16 << 8));
}

// Pixels [begin, end) from an even start, two vectors a block; answers where the blocks stop.
// The chroma samples the blocks reach are inside every chroma row (the caller's `end` sees to
// it).
template <unsigned Bytes>
LF_LOOP_BODY unsigned YuvRedBlueBlocks(const YuvRedBlueRow& row, unsigned begin, unsigned end) {
    using L = RedBlueLanes<Bytes>;
    using U = typename L::U;
    U one;
    SetHiddenOne(one);
    const typename L::Weights w{42 * one, 153 * one, 100 * one, 48 * one, 66 * one, 129 * one,
                                25 * one, 112 * one, 38 * one,  74 * one, 94 * one, 18 * one};
    unsigned x = begin;
    for (; x + 2 * L::kLanes <= end; x += 2 * L::kLanes) {
        const unsigned cx = x >> 1;
        U vl, ur, vr;
        LoadChroma(vl, row.vl.data + cx);
        LoadChroma(ur, row.ur.data + cx);
        LoadChroma(vr, row.vr.data + cx);
        typename L::Chroma k;
        k.rWhole = vl - 223;
        k.rPart = vl * w.w153 + 96;
        k.vr = vr;
        k.gPart = vr * w.w48 - ur * w.w100 + 34784;
        k.bWhole = ur + ur - 277;
        k.bPart = (ur << 2) + 224;
        U yl, yr;
        std::memcpy(&yl, row.yl + x, Bytes);
        std::memcpy(&yr, row.yr + x, Bytes);
        typename L::Colours even, odd;
        RedBlueColours<L>(even, yl & 0xFF, yr & 0xFF, k, w);
        RedBlueColours<L>(odd, yl >> 8, yr >> 8, k, w);
        const U y = (even.luma >> 8) | (odd.luma & 0xFF00);
        std::memcpy(row.yo + x, &y, Bytes);
        if (!row.writesChroma) continue;
        const typename L::Colours& c = even;
        const U chromaOffset = U{} + (128 + (128 << 8));
        StoreSecondBytes<L>(row.uo.data + cx,
                            c.b * w.w112 - c.r * w.w38 - c.g * w.w74 + chromaOffset);
        StoreSecondBytes<L>(row.vo.data + cx,
                            c.r * w.w112 - c.g * w.w94 - c.b * w.w18 + chromaOffset);
    }
    return x;
}

// Each form finishes the row with the next narrower one.
void YuvRedBlueSse2(const YuvRedBlueRow& row, unsigned begin, unsigned end) {
    YuvRedBlueScalar(row, YuvRedBlueBlocks<16>(row, begin, end), end);
}

LF_TARGET_AVX2 void YuvRedBlueAvx2(const YuvRedBlueRow& row, unsigned begin, unsigned end) {
    YuvRedBlueSse2(row, YuvRedBlueBlocks<32>(row, begin, end), end);
}

LF_TARGET_AVX512 void YuvRedBlueAvx512(const YuvRedBlueRow& row, unsigned begin, unsigned end) {
    YuvRedBlueAvx2(row, YuvRedBlueBlocks<64>(row, begin, end), end);
}
#endif

constexpr Simd::Variant<YuvRedBlueFn> kYuvRedBlue[] = {
    {Simd::kScalar, YuvRedBlueScalar},
#if LF_X86_64
    {Simd::kSse2, YuvRedBlueSse2},
    {Simd::kAvx2, YuvRedBlueAvx2},
    {Simd::kAvx512, YuvRedBlueAvx512},
#endif
};

// A chroma row of `p` at row cy, clamped to the plane; null data when the plane has none.
ChromaRow ChromaAt(const Plane& p, unsigned cy) {
    if (p.Empty()) return {nullptr, 0};
    return {p.Row(std::min(cy, p.rows - 1)), p.rowBytes - 1};
}

bool Overlaps(const Plane& a, const Plane& b) {
    if (a.Empty() || b.Empty()) return false;
    const uint8_t* aEnd = a.data + size_t{a.rows} * a.pitch;
    const uint8_t* bEnd = b.data + size_t{b.rows} * b.pitch;
    return a.data < bEnd && b.data < aEnd;
}

}  // namespace

void YuvRedBlue(GVideoFrame* left, GVideoFrame* right, GVideoFrame* out) {
    RequireFrames(left, right, out);
    Plane l[3], r[3], o[3];
    for (unsigned i = 0; i < 3; ++i) {
        l[i] = GetPlane(left, i);
        r[i] = GetPlane(right, i);
        o[i] = GetPlane(out, i);
    }
    unsigned width = 0, height = 0;
    left->GetDimension(&width, &height);
    if (height == 0) return;
    // Every pixel needs the left V and the right U and V, and writes all three output planes.
    for (const Plane* p : {&l[2], &r[1], &r[2], &o[1], &o[2]}) {
        if (p->Empty()) return;
    }
    width = std::min({width, l[0].rowBytes, r[0].rowBytes, o[0].rowBytes});
    height = std::min({height, RowsOf(l[0]), RowsOf(r[0]), RowsOf(o[0])});
    // Where the output is one of the views, later pixels read what earlier ones wrote: only the
    // rule's pixel order gives that result.
    bool inPlace = false;
    for (unsigned i = 0; i < 3; ++i)
        for (unsigned j = 0; j < 3; ++j)
            inPlace = inPlace || Overlaps(o[i], l[j]) || Overlaps(o[i], r[j]);
    const YuvRedBlueFn blocks = inPlace ? YuvRedBlueScalar : Simd::Pick(kYuvRedBlue);
    // Pixels whose chroma position is inside every chroma row go in blocks.
    const unsigned chroma =
        std::min({l[2].rowBytes, r[1].rowBytes, r[2].rowBytes, o[1].rowBytes, o[2].rowBytes});
    const unsigned unclamped = std::min(width, 2 * chroma) & ~1u;
    for (unsigned y = 0; y < height; ++y) {
        const unsigned cy = y >> 1;
        const YuvRedBlueRow row{l[0].Row(y),        r[0].Row(y),        o[0].Row(y),
                                ChromaAt(l[2], cy), ChromaAt(r[1], cy), ChromaAt(r[2], cy),
                                ChromaAt(o[1], cy), ChromaAt(o[2], cy), (y & 1) == 0};
        blocks(row, 0, unclamped);
        YuvRedBlueScalar(row, unclamped, width);
    }
}

}  // namespace MediaCore::stereo
