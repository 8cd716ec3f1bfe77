// Red-blue on planar YUV: red from the left view, green and blue from the right, back to YUV.
// Chroma is addressed as 4:2:0 whatever the format; a position past a chroma row or plane is
// clamped to its last sample.
#include <algorithm>
#include <cstring>

#include "core/SimdOps.h"
#include "stereo/StereoRender.h"

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
// and the terms of the chroma alone are formed once for the two.
struct YuvRedBlueVectors {
    template <class I>
    struct Weights {
        using V = typename I::V;
        V w42, w153, w100, w48, w66, w129, w25, w112, w38, w74, w94, w18;
    };
    // What a chroma sample adds to its two pixels' colours.
    template <class I>
    struct Chroma {
        using V = typename I::V;
        V rWhole, rPart, vr, gPart, bWhole, bPart;
    };
    // One vector of pixels: colours, and the sum whose second byte is the output luma.
    template <class I>
    struct Colours {
        using V = typename I::V;
        V r, g, b, luma;
    };

    // A weight the compiler cannot see, so its products stay multiplies where the compiler
    // would trade a multiply by a known constant for a longer chain of shifts and adds.
    template <class I>
    static void Weight(typename I::V& r, int weight) {
        __asm__("" : "+r"(weight));
        I::Splat16(r, weight);
    }

    template <class I>
    static void Constant(typename I::V& r, int value) {
        I::Splat16(r, value);
    }

    template <class I, class V = typename I::V>
    static void MakeColours(Colours<I>& c, const V& yl, const V& yr, const Chroma<I>& k,
                            const Weights<I>& w) {
        V t, part;
        I::MulLo16(t, yr, w.w42);
        I::MulLo16(part, yl, w.w42);
        I::Add16(part, part, k.rPart);
        I::template ShiftRight16<8>(part, part);
        I::Add16(c.r, yl, k.rWhole);
        I::Add16(c.r, c.r, part);
        I::Add16(part, t, k.gPart);
        I::template ShiftRight16<8>(part, part);
        I::Sub16(c.g, yr, k.vr);
        I::Add16(c.g, c.g, part);
        I::Add16(part, t, k.bPart);
        I::template ShiftRight16<8>(part, part);
        I::Add16(c.b, yr, k.bWhole);
        I::Add16(c.b, c.b, part);
        Sum<I>(c.luma, c, w.w66, w.w129, w.w25, 128 + (16 << 8), false);
    }

    // r wr + g wg + b wb + offset, the b or the r term subtracted as the weights' signs say.
    template <class I, class V = typename I::V>
    static void Sum(V& s, const Colours<I>& c, const V& wr, const V& wg, const V& wb, int offset,
                    bool chroma, bool vRow = false) {
        V term, o;
        Constant<I>(o, offset);
        if (!chroma) {
            I::MulLo16(s, c.r, wr);
            I::MulLo16(term, c.g, wg);
            I::Add16(s, s, term);
            I::MulLo16(term, c.b, wb);
            I::Add16(s, s, term);
        } else if (!vRow) {  // 112 b - 38 r - 74 g
            I::MulLo16(s, c.b, wb);
            I::MulLo16(term, c.r, wr);
            I::Sub16(s, s, term);
            I::MulLo16(term, c.g, wg);
            I::Sub16(s, s, term);
        } else {  // 112 r - 94 g - 18 b
            I::MulLo16(s, c.r, wr);
            I::MulLo16(term, c.g, wg);
            I::Sub16(s, s, term);
            I::MulLo16(term, c.b, wb);
            I::Sub16(s, s, term);
        }
        I::Add16(s, s, o);
    }

    // Pixels [begin, end) from an even start, two vectors a block, then the rule. The chroma
    // samples the blocks reach are inside every chroma row (the caller's `end` sees to it).
    template <class I>
    static void Run(const YuvRedBlueRow& row, unsigned begin, unsigned end) {
        using V = typename I::V;
        constexpr unsigned kLanes = I::kBytes / 2;
        Weights<I> w;
        Weight<I>(w.w42, 42), Weight<I>(w.w153, 153), Weight<I>(w.w100, 100);
        Weight<I>(w.w48, 48), Weight<I>(w.w66, 66), Weight<I>(w.w129, 129);
        Weight<I>(w.w25, 25), Weight<I>(w.w112, 112), Weight<I>(w.w38, 38);
        Weight<I>(w.w74, 74), Weight<I>(w.w94, 94), Weight<I>(w.w18, 18);
        V low, high, c223, c96, c34784, c277, c224;
        Constant<I>(low, 0x00FF), Constant<I>(high, 0xFF00), Constant<I>(c223, 223);
        Constant<I>(c96, 96), Constant<I>(c34784, 34784), Constant<I>(c277, 277);
        Constant<I>(c224, 224);
        unsigned x = begin;
        for (; x + 2 * kLanes <= end; x += 2 * kLanes) {
            const unsigned cx = x >> 1;
            V vl, ur, vr, term;
            I::LoadWiden8(vl, row.vl.data + cx);
            I::LoadWiden8(ur, row.ur.data + cx);
            I::LoadWiden8(vr, row.vr.data + cx);
            Chroma<I> k;
            I::Sub16(k.rWhole, vl, c223);
            I::MulLo16(k.rPart, vl, w.w153);
            I::Add16(k.rPart, k.rPart, c96);
            k.vr = vr;
            I::MulLo16(k.gPart, vr, w.w48);
            I::MulLo16(term, ur, w.w100);
            I::Sub16(k.gPart, k.gPart, term);
            I::Add16(k.gPart, k.gPart, c34784);
            I::Add16(k.bWhole, ur, ur);
            I::Sub16(k.bWhole, k.bWhole, c277);
            I::template ShiftLeft16<2>(k.bPart, ur);
            I::Add16(k.bPart, k.bPart, c224);
            V yl, yr, ylOdd, yrOdd;
            I::Load(yl, row.yl + x);
            I::Load(yr, row.yr + x);
            I::template ShiftRight16<8>(ylOdd, yl);
            I::template ShiftRight16<8>(yrOdd, yr);
            I::And(yl, yl, low);
            I::And(yr, yr, low);
            Colours<I> even, odd;
            MakeColours<I>(even, yl, yr, k, w);
            MakeColours<I>(odd, ylOdd, yrOdd, k, w);
            I::template ShiftRight16<8>(even.luma, even.luma);
            I::And(odd.luma, odd.luma, high);
            I::Or(even.luma, even.luma, odd.luma);
            I::Store(row.yo + x, even.luma);
            if (!row.writesChroma) continue;
            V u, v;
            Sum<I>(u, even, w.w38, w.w74, w.w112, 128 + (128 << 8), true);
            Sum<I>(v, even, w.w112, w.w94, w.w18, 128 + (128 << 8), true, true);
            I::template ShiftRight16<8>(u, u);
            I::template ShiftRight16<8>(v, v);
            I::StoreNarrowU8(row.uo.data + cx, u);
            I::StoreNarrowU8(row.vo.data + cx, v);
        }
        YuvRedBlueScalar(row, x, end);
    }
};
#endif

constexpr Simd::Variant<YuvRedBlueFn> kYuvRedBlue[] = {
    {Simd::kScalar, YuvRedBlueScalar},
#if LF_X86_64
    {Simd::kSse2, Simd::RunSse2<YuvRedBlueVectors>},
    {Simd::kAvx2, Simd::RunAvx2<YuvRedBlueVectors>},
    {Simd::kAvx512, Simd::RunAvx512<YuvRedBlueVectors>},
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
