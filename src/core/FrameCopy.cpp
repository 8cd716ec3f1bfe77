// The two plain C frame functions hosts call directly.
#include <algorithm>
#include <cstdint>

#include "base/ErrorReport.h"
#include "core/OnePass.h"
#include "libfilter/Siblings.h"
#include "libfilter/libfilter.h"

namespace MediaCore {

namespace {

constexpr const char* kFile = ErrorFile::kVideoFrame;

struct PlaneView {
    unsigned char* data;
    size_t size;  // pitch x rows: the plane's whole memory
};

PlaneView Plane(GVideoFrame* frame, unsigned index) {
    unsigned rowBytes = 0, pitch = 0, rows = 0;
    unsigned char* data = frame->GetBuffer(index, &rowBytes, &pitch, &rows);
    return {data, data != nullptr ? size_t{pitch} * rows : 0};
}

// The source plane goes over as one block whatever the destination's pitch, so planes of
// different pitches are not re-aligned row by row; the block stops at the destination's end.
void CopyPlane(GVideoFrame* dst, GVideoFrame* src, unsigned index) {
    const PlaneView from = Plane(src, index);
    const PlaneView to = Plane(dst, index);
    const size_t size = std::min(from.size, to.size);
    if (size == 0 || from.data == to.data) return;
    libcore_memcpy(to.data, from.data, size);
}

void CopyAttributes(GVideoFrame* dst, GVideoFrame* src) {
    dst->SetTimeStamp(src->GetTimeStamp());
    dst->SetInterlaced(src->IsInterlaced());
    void* border = nullptr;
    int length = 0;
    src->GetBorderData(&border, &length);
    dst->SetBorderData(border, length);
}

}  // namespace

bool CopyFrame(GVideoFrame* dst, GVideoFrame* src, bool pixels) {
    LF_REQUIRE(kFile, dst);
    LF_REQUIRE(kFile, src);
    if (dst->GetPixelFormat() != src->GetPixelFormat()) LF_RAISE(kFile, "pixel format not match");
    unsigned dstWidth = 0, dstHeight = 0, srcWidth = 0, srcHeight = 0;
    dst->GetDimension(&dstWidth, &dstHeight);
    src->GetDimension(&srcWidth, &srcHeight);
    if (dstWidth != srcWidth || dstHeight != srcHeight) LF_RAISE(kFile, "dimension not match");
    if (dst == src) return true;  // a frame already holds itself
    CopyAttributes(dst, src);
    const unsigned planes = pixels ? src->GetBufferCount() : 0;
    for (unsigned i = 0; i < planes; ++i)
        CopyPlane(dst, src, i);
    return true;
}

namespace {

uint8_t ClampByte(double value) {
    const int truncated = static_cast<int>(value);  // toward zero
    return static_cast<uint8_t>(std::clamp(truncated, 0, 255));
}

// (sum >> 8) as an unsigned 32-bit value plus `offset`, kept to 8 bits.
uint8_t Scaled(int sum, unsigned offset) {
    return static_cast<uint8_t>((static_cast<uint32_t>(sum) >> 8) + offset);
}

}  // namespace

}  // namespace MediaCore

extern "C" bool CopyVideoFrame(MediaCore::GVideoFrame* dst, MediaCore::GVideoFrame* src) {
    using namespace MediaCore;
    return LF_GUARDED(kFile, [&] { return CopyFrame(dst, src, true); });
}

// Chroma is used as stored, not re-centred on 128, and G takes +0.436 V. Both are kept as they
// are: changing them would change every red-blue picture hosts already produce.
extern "C" bool MergeYUVRedBlue(const unsigned char* y, const unsigned char* u,
                                const unsigned char* v, const unsigned char* /*unused0*/,
                                const unsigned char* /*unused1*/, const unsigned char* /*unused2*/,
                                unsigned char* outY, unsigned char* outU, unsigned char* outV) {
    using namespace MediaCore;
    return LF_GUARDED(kFile, [&] {
        for (const void* p : {static_cast<const void*>(y), static_cast<const void*>(u),
                              static_cast<const void*>(v), static_cast<const void*>(outY),
                              static_cast<const void*>(outU), static_cast<const void*>(outV)}) {
            LF_REQUIRE(kFile, p);
        }
        const double luma = *y, cb = *u, cr = *v;
        const int r = ClampByte(luma + 1.13983 * cr);
        const int g = ClampByte(luma - 0.395 * cb + 0.436 * cr);
        const int b = ClampByte(luma + 2.032 * cb);
        *outY = Scaled(66 * r + 129 * g + 25 * b + 128, 16);
        *outU = Scaled(-38 * r - 74 * g + 112 * b + 128, 128);
        *outV = Scaled(112 * r - 94 * g - 18 * b + 128, 128);
        return true;
    });
}
