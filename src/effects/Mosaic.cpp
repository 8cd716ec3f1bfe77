// Mosaic. A block's colour is its top-left sample, so the rows of a block below its first are
// copies of the first: only one row in each block row is filled block by block.
//
// Only the far edges of the rectangle are rounded to whole blocks, so the last block of a row
// may reach past the rectangle and past the row's last pixel. Such writes land where the row's
// memory continues (its pitch padding) and are cut at the end of the plane's memory, rows x
// pitch from its start; nothing outside that is read or written.
#include "libfilter/MosaicEffect.h"

#include <algorithm>
#include <cstring>

#include "core/Described.h"
#include "core/Planes.h"
#include "core/SimdOps.h"
#include "libfilter/Siblings.h"

namespace MediaCore {

namespace {

// Fills blocks in place: byte i takes the byte at the same place in the first unit (sample or
// pixel) of its block, p[(i & ~(block - 1)) | (i & (unit - 1))], with blocks of 2^logBlock
// bytes and units of 2^logUnit bytes (at most 4).
using FillBlocksFn = void (*)(uint8_t* p, size_t bytes, unsigned logBlock, unsigned logUnit);

// Thinned chroma: byte i of `dst`, for every i that is a multiple of 2^logStride (at most 4),
// takes the first byte of its block of 2^logBlock bytes in `src`; the bytes between keep their
// values. `src` is `dst` or a row that does not overlap it.
using FillChromaFn = void (*)(uint8_t* dst, const uint8_t* src, size_t bytes, unsigned logBlock,
                              unsigned logStride);

void FillBlocksScalar(uint8_t* p, size_t bytes, unsigned logBlock, unsigned logUnit) {
    const size_t keep = ~((size_t{1} << logBlock) - 1) | ((size_t{1} << logUnit) - 1);
    for (size_t i = 0; i < bytes; ++i)
        p[i] = p[i & keep];
}

void FillChromaScalar(uint8_t* dst, const uint8_t* src, size_t bytes, unsigned logBlock,
                      unsigned logStride) {
    const size_t block = size_t{1} << logBlock, stride = size_t{1} << logStride;
    for (size_t k = 0; k < bytes; k += block) {
        const uint8_t value = src[k];
        for (size_t m = k; m < std::min(k + block, bytes); m += stride)
            dst[m] = value;
    }
}

#if LF_X86_64
// Which bytes of each 4 a chroma stride of 1, 2 or 4 writes.
constexpr uint32_t kStrideBytes[] = {0xFFFFFFFF, 0x00FF00FF, 0x000000FF};

// A block's first unit repeated over 32 bits: a pixel, or a sample four times.
uint32_t LoadUnit(const uint8_t* p, unsigned logUnit) {
    if (logUnit != 2) return p[0] * 0x01010101u;
    uint32_t v;
    std::memcpy(&v, p, 4);
    return v;
}

// The bytes of a 128-bit block by their place in it.
alignas(16) constexpr uint8_t kBlockBytes[16] = {0, 1, 2,  3,  4,  5,  6,  7,
                                                 8, 9, 10, 11, 12, 13, 14, 15};

// Spreads each block's first unit over its block, for blocks narrower than a vector: with a
// byte shuffle inside 128-bit blocks (byte j takes byte j & keep), else inside 64-bit lanes by
// keeping the first units and doubling them by shifts.
template <class I>
class Spread {
public:
    Spread(unsigned logBlock, unsigned logUnit) : from_(8u << logUnit), to_(8u << logBlock) {
        if constexpr (I::kByteShuffle) {
            typename I::V keep;
            I::Splat8(keep, static_cast<uint8_t>(~((1u << logBlock) - 1) | ((1u << logUnit) - 1)));
            I::FromBlocks(pattern_, [](size_t) {
                return _mm_load_si128(reinterpret_cast<const __m128i*>(kBlockBytes));
            });
            I::And(pattern_, pattern_, keep);
        } else {
            uint64_t first = 0;
            for (unsigned k = 0; k < 64; k += to_)
                first |= (~0ull >> (64 - from_)) << k;
            I::FromBlocks(pattern_,
                          [&](size_t) { return _mm_set1_epi64x(static_cast<long long>(first)); });
        }
    }
    void operator()(typename I::V& r, const typename I::V& a) const {
        if constexpr (I::kByteShuffle) {
            I::ShuffleBytes(r, a, pattern_);
        } else {
            I::And(r, a, pattern_);
            for (unsigned s = from_; s < to_; s <<= 1) {
                typename I::V t;
                I::ShiftLeft64By(t, r, static_cast<int>(s));
                I::Or(r, r, t);
            }
        }
    }

private:
    unsigned from_, to_;
    typename I::V pattern_;
};

// Blocks narrower than a vector are spread in place, wider ones filled with their first unit.
// AVX-512 has no form: a 32-byte block is neither.
struct FillBlocks {
    template <class I>
    static void Run(uint8_t* p, size_t bytes, unsigned logBlock, unsigned logUnit) {
        const size_t block = size_t{1} << logBlock;
        size_t i = 0;
        if (block < I::kBytes) {
            const Spread<I> spread(logBlock, logUnit);
            for (; i + I::kBytes <= bytes; i += I::kBytes) {
                typename I::V v;
                I::Load(v, p + i);
                spread(v, v);
                I::Store(p + i, v);
            }
        } else {
            for (; i + block <= bytes; i += block) {
                typename I::V v;
                I::Splat32(v, LoadUnit(p + i, logUnit));
                for (size_t k = 0; k < block; k += I::kBytes)
                    I::Store(p + i + k, v);
            }
        }
        FillBlocksScalar(p + i, bytes - i, logBlock, logUnit);
    }
};

// The same for thinned chroma, where the stride's bytes are written and the others kept.
struct FillChroma {
    template <class I>
    static void Run(uint8_t* dst, const uint8_t* src, size_t bytes, unsigned logBlock,
                    unsigned logStride) {
        const size_t block = size_t{1} << logBlock;
        typename I::V write, v, old;
        I::Splat32(write, kStrideBytes[logStride]);
        size_t i = 0;
        if (block < I::kBytes) {
            const Spread<I> spread(logBlock, 0);
            for (; i + I::kBytes <= bytes; i += I::kBytes) {
                I::Load(v, src + i);
                spread(v, v);
                I::Load(old, dst + i);
                I::Select(v, write, v, old);
                I::Store(dst + i, v);
            }
        } else {
            for (; i + block <= bytes; i += block) {
                I::Splat8(v, src[i]);
                for (size_t k = 0; k < block; k += I::kBytes) {
                    I::Load(old, dst + i + k);
                    I::Select(old, write, v, old);
                    I::Store(dst + i + k, old);
                }
            }
        }
        FillChromaScalar(dst + i, src + i, bytes - i, logBlock, logStride);
    }
};
#endif

constexpr Simd::Variant<FillBlocksFn> kFillBlocks[] = {
    {Simd::kScalar, FillBlocksScalar},
#if LF_X86_64
    {Simd::kSse2, Simd::RunSse2<FillBlocks>},
    {Simd::kAvx2, Simd::RunAvx2<FillBlocks>},
#endif
};

constexpr Simd::Variant<FillChromaFn> kFillChroma[] = {
    {Simd::kScalar, FillChromaScalar},
#if LF_X86_64
    {Simd::kSse2, Simd::RunSse2<FillChroma>},
    {Simd::kAvx2, Simd::RunAvx2<FillChroma>},
#endif
};

// A plane's memory: `size` bytes from `data`.
struct Memory {
    uint8_t* data;
    size_t size;

    // How many of `bytes` bytes from `offset` lie inside.
    size_t Fit(size_t offset, size_t bytes) const {
        return offset >= size ? 0 : std::min(bytes, size - offset);
    }
    void Set(size_t offset, size_t bytes, uint8_t value) const {
        std::memset(data + offset, value, Fit(offset, bytes));
    }
};

// The rectangle with its far edges rounded down to whole blocks of side 2^logb.
struct BlockGrid {
    size_t left = 0, right = 0, top = 0, bottom = 0;
    unsigned logb = 0;

    bool Empty() const { return left >= right || top >= bottom; }
    // Samples from `left` to the end of a row's last block.
    size_t Span() const { return ((right - left + (size_t{1} << logb) - 1) >> logb) << logb; }
    // The first row of y's block row.
    size_t BlockRow(size_t y) const { return top + (((y - top) >> logb) << logb); }
};

// A corner past the frame leaves it alone: the rectangle is not clipped.
BlockGrid MakeGrid(uint32_t x1, uint32_t y1, uint32_t x2, uint32_t y2, uint32_t step,
                   unsigned width, unsigned height) {
    BlockGrid g;
    if (x1 > width || x2 > width || y1 > height || y2 > height) return g;
    g.logb = step % 32;
    const uint32_t mask = ~((uint32_t{1} << g.logb) - 1);
    g.left = std::min(x1, x2);
    g.right = std::max(x1, x2) & mask;
    g.top = std::min(y1, y2);
    g.bottom = std::max(y1, y2) & mask;
    return g;
}

// Shifts that may exceed the word (an unusual subsampling code) give 0.
size_t Shr(size_t v, unsigned s) {
    return s >= 64 ? 0 : v >> s;
}

// Fills a plane of units of 2^logUnit bytes: the first row of each block row block by block,
// the rows below as copies of it. The copy never overlaps its source: a row's last block
// reaches past the row's pitch by at most `left` units, into the part of the next row the
// rectangle leaves alone.
void FillRows(const Memory& m, size_t pitch, const BlockGrid& g, unsigned logUnit) {
    const FillBlocksFn fill = Simd::Pick(kFillBlocks);
    const size_t left = g.left << logUnit, span = g.Span() << logUnit;
    for (size_t y = g.top; y < g.bottom; ++y) {
        const size_t at = y * pitch + left;
        const size_t bytes = m.Fit(at, span);
        if (bytes == 0) break;
        const size_t r = g.BlockRow(y);
        if (y == r) {
            fill(m.data + at, bytes, g.logb + logUnit, logUnit);
        } else {
            std::memmove(m.data + at, m.data + r * pitch + left, bytes);
        }
    }
}

// Chroma of luma blocks of at least 4 samples: luma row y writes chroma row y >> vs, every
// (4 >> hs)-th sample of each block, from chroma row r >> vs of its block row r. Rows are
// walked in order, since a chroma row may be read after an earlier luma row wrote it. A luma
// row that writes the same chroma row as the one before writes the same bytes again (in the
// same block row it reads the same samples; a block row starting there reads the samples the
// row before just wrote) and is skipped, unless chroma rows lie so close that they overlap.
void FillChromaRows(const Memory& m, size_t pitch, const BlockGrid& g, unsigned hs, unsigned vs) {
    if (m.data == nullptr) return;
    const unsigned logBlock = g.logb - hs, logStride = 2 - hs;
    const size_t left = g.left >> hs;
    const size_t span = (g.Span() >> hs) - (size_t{1} << logStride) + 1;  // to the last write
    const bool overlap = pitch < span;
    const FillChromaFn fill = overlap ? FillChromaScalar : Simd::Pick(kFillChroma);
    for (size_t y = g.top; y < g.bottom; ++y) {
        const size_t r = g.BlockRow(y);
        if (!overlap && y > g.top && (y >> vs) == ((y - 1) >> vs)) continue;
        const size_t at = (y >> vs) * pitch + left;
        const size_t bytes = m.Fit(at, span);
        if (bytes == 0) break;
        fill(m.data + at, m.data + (r >> vs) * pitch + left, bytes, logBlock, logStride);
    }
}

// The planar rule block by block as stated, for blocks narrower than a luma group (steps 32
// and 33) and for chroma shifts above 2: there a block's writes reach the samples later blocks
// read, so the walk keeps its order.
void MosaicBlockByBlock(const Memory& luma, size_t lumaPitch, const Memory (&chroma)[2],
                        size_t chromaPitch, const BlockGrid& g, unsigned hs, unsigned vs) {
    const size_t b = size_t{1} << g.logb;
    for (size_t y = g.top; y < g.bottom; ++y) {
        const size_t r = g.BlockRow(y);
        for (size_t x = g.left; x < g.right; x += b) {
            const uint8_t value = luma.data[r * lumaPitch + x];
            for (size_t k = 0; k < b; k += 4)
                luma.Set(y * lumaPitch + x + k, 4, value);
            for (const Memory& c : chroma) {
                // Every write of the block lies at or past its read.
                const size_t from = Shr(r, vs) * chromaPitch + Shr(x, hs);
                if (from >= c.size) continue;
                const uint8_t v = c.data[from];
                for (size_t k = 0; k < b; k += 4)
                    c.Set(Shr(y, vs) * chromaPitch + Shr(x + k, hs), 1, v);
            }
        }
    }
}

Memory PlaneMemory(unsigned char* data, unsigned pitch, unsigned rows) {
    return {data, data == nullptr ? 0 : size_t{rows} * pitch};
}

}  // namespace

// ---- What hosts are told of it ----

constexpr PropertyDescription kMosaicProperties[] = {
    {"mosaic_x1", PROPERTY_INT32, "0", PropertyKind::Integer, 0, 0, RangeBound::FrameWidth,
     "left or right edge of the rectangle"},
    {"mosaic_y1", PROPERTY_INT32, "0", PropertyKind::Integer, 0, 0, RangeBound::FrameHeight,
     "top or bottom edge of the rectangle"},
    {"mosaic_x2", PROPERTY_INT32, "0", PropertyKind::Integer, 0, 0, RangeBound::FrameWidth,
     "the other of the left and right edges"},
    {"mosaic_y2", PROPERTY_INT32, "0", PropertyKind::Integer, 0, 0, RangeBound::FrameHeight,
     "the other of the top and bottom edges"},
    {"mosaic_step", PROPERTY_INT32, "3", PropertyKind::Integer, 0, 8, RangeBound::Fixed,
     "blocks are 2 to this power pixels wide (3: 8 pixels)"},
};
constexpr ShowcaseSetting kMosaicShowcase[] = {
    {"mosaic_x1", 0.25, RangeBound::FrameWidth},
    {"mosaic_y1", 0.25, RangeBound::FrameHeight},
    {"mosaic_x2", 0.75, RangeBound::FrameWidth},
    {"mosaic_y2", 0.75, RangeBound::FrameHeight},
};
constexpr EffectDescription kMosaic = {
    AVPROCESSOR_MOSAIC,
    "mosaic",
    "blocks of 2^mosaic_step pixels over the rectangle mosaic_x1,y1 to x2,y2",
    EffectMaking::Factory,
    "MediaCore::CMosaicVideoImageEffect",
    false,
    MakeEffect<CMosaicVideoImageEffect>,
    kMosaicProperties,
    CountOf(kMosaicProperties),
    kMosaicShowcase,
    CountOf(kMosaicShowcase)};
LF_DESCRIBE_EFFECT(kMosaic);

CMosaicVideoImageEffect::CMosaicVideoImageEffect() : CImageEffectBase(AVPROCESSOR_MOSAIC) {
    // Asked once as the engine expects; kernels pick their own forms.
    (void)libcore_GetCpuCapability();
}

int CMosaicVideoImageEffect::OnSetProperty(const std::string& name, PropertyNode& node) {
    const int result = CVideoEffectBase::OnSetProperty(name, node);
    const auto value = static_cast<uint32_t>(node.parsed.i32);
    if (name == "mosaic_x1") {
        x1_ = value;
    } else if (name == "mosaic_y1") {
        y1_ = value;
    } else if (name == "mosaic_x2") {
        x2_ = value;
    } else if (name == "mosaic_y2") {
        y2_ = value;
    } else if (name == "mosaic_step") {
        step_ = value;
    }
    return result;
}

bool CMosaicVideoImageEffect::ProcFrameInner(ImagePostion*, int, GVideoFrame* frame) {
    if (frame == nullptr) return false;
    const int format = frame->GetPixelFormat();
    switch (FamilyOf(format)) {
        case FormatFamily::PackedBgra: {
            const Plane p = GetPlane(frame, 0);
            MosaicRgba32Effect(p.data, p.rowBytes / 4, p.pitch, p.rows);
            break;
        }
        case FormatFamily::PlanarYuv: {
            unsigned char* planes[3];
            unsigned widths[3], pitches[3], heights[3];
            for (unsigned i = 0; i < 3; ++i) {
                const Plane p = GetPlane(frame, i);
                planes[i] = p.data;
                widths[i] = p.rowBytes;
                pitches[i] = p.pitch;
                heights[i] = p.rows;
            }
            MosaicComponentEffect(planes, widths, pitches, heights,
                                  static_cast<unsigned>(SubsamplingCode(format)));
            break;
        }
        case FormatFamily::Other:
            break;
    }
    return true;
}

void CMosaicVideoImageEffect::MosaicRgba32Effect(unsigned char* pixels, unsigned width,
                                                 unsigned pitch, unsigned height) {
    // A row never reaches past its pitch.
    const BlockGrid g = MakeGrid(x1_, y1_, x2_, y2_, step_, std::min(width, pitch / 4), height);
    // Blocks of one pixel would copy every pixel onto itself.
    if (pixels == nullptr || step_ == 0 || g.Empty() || g.logb == 0) return;
    FillRows(PlaneMemory(pixels, pitch, height), pitch, g, 2);
}

void CMosaicVideoImageEffect::MosaicComponentEffect(unsigned char* const planes[3],
                                                    const unsigned widths[3],
                                                    const unsigned pitches[3],
                                                    const unsigned heights[3], unsigned code) {
    if (planes == nullptr || widths == nullptr || pitches == nullptr || heights == nullptr) return;
    const BlockGrid g =
        MakeGrid(x1_, y1_, x2_, y2_, step_, std::min(widths[0], pitches[0]), heights[0]);
    // Luma is written four samples at a time, so blocks narrower than that are refused.
    if (planes[0] == nullptr || step_ < 2 || g.Empty()) return;
    const unsigned hs = code / 10, vs = code % 10;
    const Memory luma = PlaneMemory(planes[0], pitches[0], heights[0]);
    const Memory chroma[2] = {PlaneMemory(planes[1], pitches[1], heights[1]),
                              PlaneMemory(planes[2], pitches[2], heights[2])};
    if (g.logb < 2 || hs > 2) {
        MosaicBlockByBlock(luma, pitches[0], chroma, pitches[1], g, hs, vs);
        return;
    }
    FillRows(luma, pitches[0], g, 0);
    for (const Memory& c : chroma)
        FillChromaRows(c, pitches[1], g, hs, vs);
}

}  // namespace MediaCore
