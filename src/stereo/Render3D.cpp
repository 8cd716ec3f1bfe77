// The stereo renderer: combines a left and a right view into one frame in one of the stereo
// presentations, and the exported fixed-point trigonometric tables.
#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <utility>

#include "base/ErrorReport.h"
#include "core/LoopForms.h"
#include "core/Planes.h"
#include "core/Simd.h"
#include "libfilter/Stereo3D.h"

#if LF_X86_64
#include <immintrin.h>
#endif

namespace MediaCore {

const int32_t sin_map[92] = {
    0,     572,   1144,  1715,  2286,  2856,  3425,  3993,  4560,  5126,  5690,  6252,
    6813,  7371,  7927,  8481,  9032,  9580,  10126, 10668, 11207, 11743, 12275, 12803,
    13328, 13848, 14365, 14876, 15384, 15886, 16384, 16877, 17364, 17847, 18324, 18795,
    19261, 19720, 20174, 20622, 21063, 21498, 21926, 22348, 22763, 23170, 23571, 23965,
    24351, 24730, 25102, 25466, 25822, 26170, 26510, 26842, 27166, 27482, 27789, 28088,
    28378, 28660, 28932, 29197, 29452, 29698, 29935, 30163, 30382, 30592, 30792, 30983,
    31164, 31336, 31499, 31651, 31795, 31928, 32052, 32166, 32270, 32365, 32449, 32524,
    32588, 32643, 32688, 32723, 32748, 32763, 32768, 0,
};

const int32_t tan_map[184] = {
    0,       0,       -938353, -625251, -468604, -374540, -311766, -266874, -233156, -206889,
    -185837, -168577, -154161, -141934, -131425, -122292, -114276, -107179, -100850, -95165,
    -90029,  -85364,  -81104,  -77197,  -73598,  -70271,  -67184,  -64311,  -61628,  -59115,
    -56756,  -54535,  -52440,  -50458,  -48581,  -46798,  -45101,  -43485,  -41941,  -40465,
    -39051,  -37695,  -36393,  -35139,  -33932,  -32768,  -31644,  -30557,  -29504,  -28485,
    -27496,  -26535,  -25601,  -24693,  -23807,  -22944,  -22102,  -21280,  -20476,  -19689,
    -18919,  -18164,  -17423,  -16696,  -15982,  -15280,  -14589,  -13909,  -13239,  -12579,
    -11927,  -11283,  -10647,  -10018,  -9396,   -8780,   -8170,   -7565,   -6965,   -6369,
    -5778,   -5190,   -4605,   -4023,   -3444,   -2867,   -2291,   -1717,   -1144,   -572,
    0,       572,     1144,    1717,    2291,    2867,    3444,    4023,    4605,    5190,
    5778,    6369,    6965,    7565,    8170,    8780,    9396,    10018,   10647,   11283,
    11927,   12579,   13239,   13909,   14589,   15280,   15982,   16696,   17423,   18164,
    18919,   19689,   20476,   21280,   22102,   22944,   23807,   24693,   25601,   26535,
    27496,   28485,   29504,   30557,   31644,   32768,   33932,   35139,   36393,   37695,
    39051,   40465,   41941,   43485,   45101,   46798,   48581,   50458,   52440,   54535,
    56756,   59115,   61628,   64311,   67184,   70271,   73598,   77197,   81104,   85364,
    90029,   95165,   100850,  107179,  114276,  122292,  131425,  141934,  154161,  168577,
    185837,  206889,  233156,  266874,  311766,  374540,  468604,  625251,  938353,  0,
    0,       0,       0,       0,
};

namespace {

constexpr const char kFile[] = "Render3D.cpp";
// Lines the red-blue workers name when a frame call fails with a standard exception.
constexpr unsigned kYuvRedBlueLine = 273;
constexpr unsigned kRgbRedBlueLine = 311;

// ---------------------------------------------------------------------------------------------
// Side by side: every second element of a row. The scalar rule walks forward, so it also holds
// when the destination is the source row itself (reads stay at or ahead of writes).

using DecimateFn = void (*)(uint8_t* dst, const uint8_t* src, size_t count);

void DecimateBytesScalar(uint8_t* dst, const uint8_t* src, size_t count) {
    for (size_t i = 0; i < count; ++i)
        dst[i] = src[2 * i];
}

void DecimatePixelsScalar(uint8_t* dst, const uint8_t* src, size_t count) {
    for (size_t i = 0; i < count; ++i) {
        uint32_t pixel;
        std::memcpy(&pixel, src + 8 * i, 4);
        std::memcpy(dst + 4 * i, &pixel, 4);
    }
}

#if LF_X86_64
// The vector forms stop one element short of the end, so a block never reads the byte after
// the last element it needs (which an odd row does not have), and leave the rest to the rule.
void DecimateBytesSse2(uint8_t* dst, const uint8_t* src, size_t count) {
    const __m128i low = _mm_set1_epi16(0x00FF);
    size_t i = 0;
    for (; i + 16 < count; i += 16) {
        const __m128i a = _mm_loadu_si128(reinterpret_cast<const __m128i*>(src + 2 * i));
        const __m128i b = _mm_loadu_si128(reinterpret_cast<const __m128i*>(src + 2 * i + 16));
        const __m128i packed = _mm_packus_epi16(_mm_and_si128(a, low), _mm_and_si128(b, low));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + i), packed);
    }
    DecimateBytesScalar(dst + i, src + 2 * i, count - i);
}

void DecimatePixelsSse2(uint8_t* dst, const uint8_t* src, size_t count) {
    size_t i = 0;
    for (; i + 4 < count; i += 4) {
        const __m128 a = _mm_loadu_ps(reinterpret_cast<const float*>(src + 8 * i));
        const __m128 b = _mm_loadu_ps(reinterpret_cast<const float*>(src + 8 * i + 16));
        _mm_storeu_ps(reinterpret_cast<float*>(dst + 4 * i), _mm_shuffle_ps(a, b, 0x88));
    }
    DecimatePixelsScalar(dst + 4 * i, src + 8 * i, count - i);
}

LF_TARGET_AVX2 void DecimateBytesAvx2(uint8_t* dst, const uint8_t* src, size_t count) {
    const __m256i low = _mm256_set1_epi16(0x00FF);
    size_t i = 0;
    for (; i + 32 < count; i += 32) {
        const __m256i a = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(src + 2 * i));
        const __m256i b = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(src + 2 * i + 32));
        const __m256i packed =
            _mm256_packus_epi16(_mm256_and_si256(a, low), _mm256_and_si256(b, low));
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(dst + i),
                            _mm256_permute4x64_epi64(packed, 0xD8));
    }
    DecimateBytesSse2(dst + i, src + 2 * i, count - i);
}

LF_TARGET_AVX2 void DecimatePixelsAvx2(uint8_t* dst, const uint8_t* src, size_t count) {
    size_t i = 0;
    for (; i + 8 < count; i += 8) {
        const __m256 a = _mm256_loadu_ps(reinterpret_cast<const float*>(src + 8 * i));
        const __m256 b = _mm256_loadu_ps(reinterpret_cast<const float*>(src + 8 * i + 32));
        const __m256d picked = _mm256_castps_pd(_mm256_shuffle_ps(a, b, 0x88));
        _mm256_storeu_ps(reinterpret_cast<float*>(dst + 4 * i),
                         _mm256_castpd_ps(_mm256_permute4x64_pd(picked, 0xD8)));
    }
    DecimatePixelsSse2(dst + 4 * i, src + 8 * i, count - i);
}
#endif

constexpr Simd::Variant<DecimateFn> kDecimateBytes[] = {
    {Simd::kScalar, DecimateBytesScalar},
#if LF_X86_64
    {Simd::kSse2, DecimateBytesSse2},
    {Simd::kAvx2, DecimateBytesAvx2},
#endif
};

constexpr Simd::Variant<DecimateFn> kDecimatePixels[] = {
    {Simd::kScalar, DecimatePixelsScalar},
#if LF_X86_64
    {Simd::kSse2, DecimatePixelsSse2},
    {Simd::kAvx2, DecimatePixelsAvx2},
#endif
};

// Writes `count` elements of `unit` bytes taken from every second element of `src`. A source
// that starts before the destination and reaches into it is being rewritten as it is read (the
// right view is the output frame itself); only the element-by-element rule gives that result.
void Decimate(uint8_t* dst, const uint8_t* src, size_t count, unsigned unit) {
    if (count == 0) return;
    const bool rewritten = src < dst && src + 2 * count * unit > dst;
    if (unit == 4) {
        (rewritten ? DecimatePixelsScalar : Simd::Pick(kDecimatePixels))(dst, src, count);
    } else {
        (rewritten ? DecimateBytesScalar : Simd::Pick(kDecimateBytes))(dst, src, count);
    }
}

// A frame without memory for a plane is read as having no rows.
unsigned RowsOf(const Plane& p) {
    return p.Empty() ? 0 : p.rows;
}

// Every second element of each row of `left`, then of `right`, into the halves of `out`'s row.
// An odd row gets one element more than it holds, which lands in its padding when it has some.
void SideBySidePlane(const Plane& out, const Plane& left, const Plane& right, unsigned unit) {
    const unsigned rows = std::min({RowsOf(out), RowsOf(left), RowsOf(right)});
    const unsigned elements = out.rowBytes / unit;
    const unsigned half = (elements + 1) / 2;
    const unsigned leftCount = std::min(half, (left.rowBytes / unit + 1) / 2);
    const unsigned room = out.pitch / unit - half;
    const unsigned rightCount = std::min({half, (right.rowBytes / unit + 1) / 2, room});
    for (unsigned r = 0; r < rows; ++r) {
        Decimate(out.Row(r), left.Row(r), leftCount, unit);
        Decimate(out.Row(r) + size_t{half} * unit, right.Row(r), rightCount, unit);
    }
}

// Even rows of `left` fill the top half of `out`, even rows of `right` the bottom half (one row
// more for an odd height).
void TopBottomPlane(const Plane& out, const Plane& left, const Plane& right) {
    if (out.Empty()) return;
    const unsigned half = out.rows >> 1;
    auto copyRow = [&](const Plane& from, unsigned fromRow, unsigned toRow) {
        const unsigned bytes = std::min(out.rowBytes, from.rowBytes);
        if (from.Row(fromRow) != out.Row(toRow))
            std::memmove(out.Row(toRow), from.Row(fromRow), bytes);
    };
    for (unsigned k = 0; k < half && 2 * k < RowsOf(left); ++k)
        copyRow(left, 2 * k, k);
    for (unsigned k = 0; k < out.rows - half && 2 * k < RowsOf(right); ++k)
        copyRow(right, 2 * k, half + k);
}

// ---------------------------------------------------------------------------------------------
// Red-blue on packed BGRA: blue and green from the right view, red from the left, alpha kept.

using RgbRedBlueFn = void (*)(uint8_t* out, const uint8_t* left, const uint8_t* right,
                              size_t pixels);

void RgbRedBlueScalar(uint8_t* out, const uint8_t* left, const uint8_t* right, size_t pixels) {
    for (size_t x = 0; x < pixels; ++x) {
        out[4 * x + 0] = right[4 * x + 0];
        out[4 * x + 1] = right[4 * x + 1];
        out[4 * x + 2] = left[4 * x + 2];
    }
}

#if LF_X86_64
// Each block loads all three before it stores, so an output that is one of the views still
// reads that view's own pixel, as the rule does.
void RgbRedBlueSse2(uint8_t* out, const uint8_t* left, const uint8_t* right, size_t pixels) {
    const __m128i fromRight = _mm_set1_epi32(0x0000FFFF);
    const __m128i fromLeft = _mm_set1_epi32(0x00FF0000);
    const __m128i kept = _mm_set1_epi32(static_cast<int>(0xFF000000u));
    size_t x = 0;
    for (; x + 4 <= pixels; x += 4) {
        const __m128i l = _mm_loadu_si128(reinterpret_cast<const __m128i*>(left + 4 * x));
        const __m128i r = _mm_loadu_si128(reinterpret_cast<const __m128i*>(right + 4 * x));
        auto* o = reinterpret_cast<__m128i*>(out + 4 * x);
        const __m128i mixed = _mm_or_si128(_mm_and_si128(r, fromRight), _mm_and_si128(l, fromLeft));
        _mm_storeu_si128(o, _mm_or_si128(mixed, _mm_and_si128(_mm_loadu_si128(o), kept)));
    }
    RgbRedBlueScalar(out + 4 * x, left + 4 * x, right + 4 * x, pixels - x);
}

LF_TARGET_AVX2 void RgbRedBlueAvx2(uint8_t* out, const uint8_t* left, const uint8_t* right,
                                   size_t pixels) {
    const __m256i fromRight = _mm256_set1_epi32(0x0000FFFF);
    const __m256i fromLeft = _mm256_set1_epi32(0x00FF0000);
    const __m256i kept = _mm256_set1_epi32(static_cast<int>(0xFF000000u));
    size_t x = 0;
    for (; x + 8 <= pixels; x += 8) {
        const __m256i l = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(left + 4 * x));
        const __m256i r = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(right + 4 * x));
        auto* o = reinterpret_cast<__m256i*>(out + 4 * x);
        const __m256i mixed =
            _mm256_or_si256(_mm256_and_si256(r, fromRight), _mm256_and_si256(l, fromLeft));
        _mm256_storeu_si256(o,
                            _mm256_or_si256(mixed, _mm256_and_si256(_mm256_loadu_si256(o), kept)));
    }
    RgbRedBlueSse2(out + 4 * x, left + 4 * x, right + 4 * x, pixels - x);
}
#endif

constexpr Simd::Variant<RgbRedBlueFn> kRgbRedBlue[] = {
    {Simd::kScalar, RgbRedBlueScalar},
#if LF_X86_64
    {Simd::kSse2, RgbRedBlueSse2},
    {Simd::kAvx2, RgbRedBlueAvx2},
#endif
};

// ---------------------------------------------------------------------------------------------
// Red-blue on planar YUV: red from the left view, green and blue from the right, back to YUV.
// Chroma is addressed as 4:2:0 whatever the format; a position past a chroma row or plane is
// clamped to its last sample.

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

void RequireFrames(GVideoFrame* left, GVideoFrame* right, GVideoFrame* out) {
    LF_REQUIRE(kFile, left);
    LF_REQUIRE(kFile, right);
    LF_REQUIRE(kFile, out);
}

bool Overlaps(const Plane& a, const Plane& b) {
    if (a.Empty() || b.Empty()) return false;
    const uint8_t* aEnd = a.data + size_t{a.rows} * a.pitch;
    const uint8_t* bEnd = b.data + size_t{b.rows} * b.pitch;
    return a.data < bEnd && b.data < aEnd;
}

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

void RgbRedBlue(GVideoFrame* left, GVideoFrame* right, GVideoFrame* out) {
    RequireFrames(left, right, out);
    const Plane l = GetPackedPlane(left), r = GetPackedPlane(right), o = GetPackedPlane(out);
    unsigned width = 0, height = 0;
    left->GetDimension(&width, &height);
    if (width == 0 || height == 0) return;
    width = std::min({width, l.rowBytes / 4, r.rowBytes / 4, o.rowBytes / 4});
    height = std::min({height, RowsOf(l), RowsOf(r), RowsOf(o)});
    const RgbRedBlueFn mix = Simd::Pick(kRgbRedBlue);
    for (unsigned y = 0; y < height; ++y)
        mix(o.Row(y), l.Row(y), r.Row(y), width);
}

void RenderYuv(Type3D mode, GVideoFrame* left, GVideoFrame* right, GVideoFrame* out) {
    RequireFrames(left, right, out);
    // A fourth plane, where the format has one, is left as it is.
    for (unsigned i = 0; i < 3; ++i) {
        const Plane o = GetPlane(out, i), l = GetPlane(left, i), r = GetPlane(right, i);
        if (mode == TYPE3D_SIDE_BY_SIDE) SideBySidePlane(o, l, r, 1);
        if (mode == TYPE3D_TOP_BOTTOM) TopBottomPlane(o, l, r);
    }
}

void RenderBgra(Type3D mode, GVideoFrame* left, GVideoFrame* right, GVideoFrame* out) {
    RequireFrames(left, right, out);
    if (mode == TYPE3D_SIDE_BY_SIDE) {
        SideBySidePlane(GetPackedPlane(out), GetPackedPlane(left), GetPackedPlane(right), 4);
    } else if (mode == TYPE3D_TOP_BOTTOM) {
        TopBottomPlane(GetPlane(out, 0), GetPlane(left, 0), GetPlane(right, 0));
    }
}

// trunc(value) as an int; values outside int (a width of 0 makes them infinite) saturate.
int TruncToInt(double value) {
    if (std::isnan(value)) return 0;
    if (value >= 2147483647.0) return std::numeric_limits<int>::max();
    if (value <= -2147483648.0) return std::numeric_limits<int>::min();
    return static_cast<int>(value);
}

// x * (width - depth) / width in double precision, the difference formed in 32 bits.
int MapColumn(int x, int width, unsigned depth) {
    const auto span = static_cast<int32_t>(static_cast<uint32_t>(width) - depth);
    return TruncToInt(static_cast<double>(x) * span / width);
}

}  // namespace

C3DRender::C3DRender(GController* controller) : controller_(controller) {}

// The converter goes before the output frame.
C3DRender::~C3DRender() {
    converter_.reset();
    output_.reset();
}

void C3DRender::SetDepth(unsigned int depth) {
    if (depth != 0) depth_ = depth;
}

void C3DRender::SetRenderMode(Type3D mode) {
    mode_ = mode;
}

GVideoFrame* C3DRender::Render(GVideoFrame* left, GVideoFrame* right, GVideoFrame* out) {
    return LF_GUARDED(kFile, [&] { return RenderFrames(left, right, out); });
}

GVideoFrame* C3DRender::RenderFrames(GVideoFrame* left, GVideoFrame* right, GVideoFrame* out) {
    LF_REQUIRE(kFile, left);
    LF_REQUIRE(kFile, right);
    const int leftFormat = left->GetPixelFormat();
    if (right->GetPixelFormat() != leftFormat) {
        // Made once, for the first pair that differs; later pairs reuse it whatever their format.
        if (!converter_) {
            LF_REQUIRE(kFile, controller_);
            converter_.reset(controller_->CreateFrameConverter(leftFormat, 0, 0, 0));
            LF_REQUIRE(kFile, converter_.get());
        }
        right = converter_->Convert(right);
        LF_REQUIRE(kFile, right);
    }
    if (out == nullptr) {
        if (!output_) {
            output_.reset(left->Clone());
            LF_REQUIRE(kFile, output_.get());
        }
        output_->SetTimeStamp(left->GetTimeStamp());
        out = output_.get();
    }
    switch (FamilyOf(leftFormat)) {
        case FormatFamily::PlanarYuv:
            ProcessYUV(left, right, out);
            break;
        case FormatFamily::PackedBgra:
            ProcessBGRA(left, right, out);
            break;
        case FormatFamily::Other:
            break;
    }
    return out;
}

void C3DRender::ProcessBGRA(GVideoFrame* left, GVideoFrame* right, GVideoFrame* out) {
    if (mode_ == TYPE3D_RED_BLUE) {
        ProcessRGBRedBlue(left, right, out);
    } else {
        LF_GUARDED(kFile, [&] { RenderBgra(mode_, left, right, out); });
    }
}

void C3DRender::ProcessYUV(GVideoFrame* left, GVideoFrame* right, GVideoFrame* out) {
    if (mode_ == TYPE3D_RED_BLUE) {
        ProcessYUVRedBlue(left, right, out);
    } else {
        LF_GUARDED(kFile, [&] { RenderYuv(mode_, left, right, out); });
    }
}

bool C3DRender::ProcessYUVRedBlue(GVideoFrame* left, GVideoFrame* right, GVideoFrame* out) {
    return GuardedCallOr(kFile, kYuvRedBlueLine, false, [&] {
        YuvRedBlue(left, right, out);
        return true;
    });
}

bool C3DRender::ProcessRGBRedBlue(GVideoFrame* left, GVideoFrame* right, GVideoFrame* out) {
    return GuardedCallOr(kFile, kRgbRedBlueLine, false, [&] {
        RgbRedBlue(left, right, out);
        return true;
    });
}

bool C3DRender::MapResultVFFromLeft(int x, int y, int width, int& srcX, int& srcY) {
    srcX = MapColumn(x, width, depth_);
    srcY = y;
    return true;
}

bool C3DRender::MapResultVFFromRight(int x, int, int width, int& srcX, int) {
    srcX = static_cast<int>(static_cast<uint32_t>(MapColumn(x, width, depth_)) + depth_);
    return true;
}

// 64-bit sums kept to 32 bits, so any input is defined; in range they are the 32-bit sums.
bool C3DRender::ConvertRGB2YUV(int r, int g, int b, int& y, int& u, int& v) {
    const int64_t R = r, G = g, B = b;
    y = static_cast<int32_t>(((66 * R + 129 * G + 25 * B + 128) >> 8) + 16);
    u = static_cast<int32_t>(((-38 * R - 74 * G + 112 * B + 128) >> 8) + 128);
    v = static_cast<int32_t>(((112 * R - 94 * G - 18 * B + 128) >> 8) + 128);
    return true;
}

// The luma term of g and b is not scaled and they get no rounding constant: hosts depend on
// these exact values.
bool C3DRender::ConvertYUV2RGB(int y, int u, int v, int& r, int& g, int& b) {
    const int64_t Y = int64_t{y} - 16, U = int64_t{u} - 128, V = int64_t{v} - 128;
    r = static_cast<int32_t>((298 * Y + 409 * V + 128) >> 8);
    g = static_cast<int32_t>((Y - 100 * U - 208 * V) >> 8);
    b = static_cast<int32_t>((Y + 516 * U) >> 8);
    return true;
}

}  // namespace MediaCore
