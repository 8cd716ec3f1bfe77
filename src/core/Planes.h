// Format dispatch and plane iteration shared by the pixel effects.
#pragma once

#include <cstddef>
#include <cstdint>

#include "core/OnePass.h"
#include "libfilter/GVideoFrame.h"
#include "libfilter/PixelFormat.h"

#pragma GCC visibility push(hidden)

namespace MediaCore {

// The two layouts effects understand; every other format passes through untouched.
enum class FormatFamily { Other, PackedBgra, PlanarYuv };

// Planar 8-bit YUV formats the effects accept: 0, 4, 6, 7, 12, 13, 35 and 90.
constexpr uint64_t kPlanarYuvMask = (1ull << PIXFMT_YUV420P) | (1ull << PIXFMT_YUV422P) |
                                    (1ull << PIXFMT_YUV410P) | (1ull << PIXFMT_YUV411P) |
                                    (1ull << PIXFMT_YUV420P_12) | (1ull << PIXFMT_YUV422P_13) |
                                    (1ull << PIXFMT_YUVA420P);

constexpr bool IsPlanarYuv(int format) {
    return (static_cast<unsigned>(format) < 36 && ((kPlanarYuvMask >> format) & 1)) ||
           format == PIXFMT_PLANAR4_FULL;
}

constexpr FormatFamily FamilyOf(int format) {
    if (format == PIXFMT_BGRA32) return FormatFamily::PackedBgra;
    return IsPlanarYuv(format) ? FormatFamily::PlanarYuv : FormatFamily::Other;
}

// How a planar format's chroma is thinned, as the planar workers take it: 10 x horizontal shift
// + vertical shift (11 for 4:2:0, 0 for full-size chroma); -1 for formats that are not planar.
constexpr int SubsamplingCode(int format) {
    switch (format) {
        case PIXFMT_YUV420P:
        case PIXFMT_YUV420P_12:
        case PIXFMT_YUVA420P:
            return 11;
        case PIXFMT_YUV422P:
        case PIXFMT_YUV422P_13:
            return 10;
        case PIXFMT_YUV410P:
            return 22;
        case PIXFMT_YUV411P:
            return 20;
        case PIXFMT_PLANAR4_FULL:
            return 0;
        default:
            return -1;
    }
}

// Formats 35 and 90 carry a fourth (alpha or full-size) plane.
constexpr unsigned PlanarPlaneCount(int format) {
    return format == PIXFMT_YUVA420P || format == PIXFMT_PLANAR4_FULL ? 4 : 3;
}

// One plane as GetBuffer answers it: rows start `pitch` bytes apart in memory order.
struct Plane {
    uint8_t* data = nullptr;
    unsigned rowBytes = 0;
    unsigned pitch = 0;
    unsigned rows = 0;

    bool Empty() const { return data == nullptr || rows == 0 || rowBytes == 0; }
    uint8_t* Row(unsigned y) const { return data + size_t{y} * pitch; }
};

// A plane's memory is rows x pitch from its start, so a row never reaches past its pitch,
// whatever row width the frame declares (a frame without memory has pitch 0).
inline Plane GetPlane(GVideoFrame* frame, unsigned index) {
    Plane p;
    p.data = frame->GetBuffer(index, &p.rowBytes, &p.pitch, &p.rows);
    if (p.rowBytes > p.pitch) p.rowBytes = p.pitch;
    return p;
}

// Plane 0 of a BGRA frame cut to whole pixels; empty when a row holds none.
inline Plane GetPackedPlane(GVideoFrame* frame) {
    Plane p = GetPlane(frame, 0);
    p.rowBytes &= ~3u;
    return p;
}

// In a one-pass copy, brings row `row` of a plane over from the source before it is read or
// changed outside a span walk.
inline void StageRow(const uint8_t* row) {
    if (OnePassCopy* copy = OnePassCopy::Active()) copy->Stage(row);
}

// Calls fn(span, bytes) over the first `bytes` bytes of every row; rows that touch in memory
// are handed over as one span, which keeps short rows off the per-call overhead.
template <class Fn>
void ForEachSpan(const Plane& p, Fn&& fn) {
    if (p.Empty()) return;
    // In a one-pass copy each row comes over from the source just before it is changed.
    if (OnePassCopy* copy = OnePassCopy::Active()) {
        for (unsigned y = 0; y < p.rows; ++y) {
            copy->Stage(p.Row(y));
            fn(p.Row(y), size_t{p.rowBytes});
        }
        return;
    }
    if (p.pitch == p.rowBytes) {
        fn(p.data, size_t{p.rowBytes} * p.rows);
        return;
    }
    for (unsigned y = 0; y < p.rows; ++y)
        fn(p.Row(y), size_t{p.rowBytes});
}

// Where a walk that rewrites the first `bytes` bytes of `row` reads them from: in a one-pass
// copy the source's row (whose padding is then brought over), else the row itself. A walk that
// is answered its own row changes it in place.
inline const uint8_t* RowSource(uint8_t* row, size_t bytes) {
    OnePassCopy* copy = OnePassCopy::Active();
    return copy != nullptr ? copy->Take(row, bytes) : row;
}

// In a one-pass copy, the source's row for `row`, which a walk may read whatever it has written
// into the target; null outside a pass or for a plane without a source.
inline const uint8_t* SourceRow(const uint8_t* row) {
    const OnePassCopy* copy = OnePassCopy::Active();
    return copy != nullptr ? copy->SourceOf(row) : nullptr;
}

// ForEachSpan for walks that read a span and write it changed: calls fn(span, from, bytes),
// where `from` is where the span's bytes are read. That is the span itself, except in a
// one-pass copy, where it is the source's row, so the row is read once and written once.
template <class Fn>
void ForEachSpanFrom(const Plane& p, Fn&& fn) {
    OnePassCopy* copy = OnePassCopy::Active();
    if (copy == nullptr || p.Empty()) {
        ForEachSpan(p, [&](uint8_t* span, size_t bytes) { fn(span, span, bytes); });
        return;
    }
    for (unsigned y = 0; y < p.rows; ++y)
        fn(p.Row(y), copy->Take(p.Row(y), p.rowBytes), size_t{p.rowBytes});
}

}  // namespace MediaCore

#pragma GCC visibility pop
