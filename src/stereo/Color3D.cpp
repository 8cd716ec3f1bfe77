// The colour anaglyph: one frame, widened a little, gives one colour channel from each pixel and
// the other two from a pixel a few columns to its right.
#include <algorithm>
#include <cstring>
#include <new>

#include "base/ErrorReport.h"
#include "core/PlaneCopy.h"
#include "core/Planes.h"
#include "core/SimdOps.h"
#include "libfilter/CVideoFrame.h"
#include "libfilter/Stereo3D.h"

namespace MediaCore {

namespace {

constexpr const char kFile[] = "2DTo3D.cpp";
// Lines the reports name: the two converters, the widened copy, and the catch of the frame call.
constexpr unsigned kForwardConverterLine = 140;
constexpr unsigned kForwardConvertLine = 143;
constexpr unsigned kBackConverterLine = 160;
constexpr unsigned kBackConvertLine = 162;
constexpr unsigned kCatchLine = 180;
// Work frames from this size on are streamed to memory (see ProcessColor3DBGRA).
constexpr size_t kStreamBytes = size_t{16} << 20;

// One output row: `near` is the widened row at the output's own column, `far` the same row
// `shift` pixels on (3 bytes a pixel, red, green, blue). Red-blue takes the red of the near
// pixel and the green and blue of the far one; green-magenta takes the near green and the far
// red and blue. Alpha is kept. With `stream` the row is one of the work frame's, whose alpha is
// zero: a vector form may then store whole pixels past the caches.
using AnaglyphRowFn = void (*)(uint8_t* dst, const uint8_t* near, const uint8_t* far,
                               unsigned pixels, unsigned farBytes, bool redBlue, bool stream);

void AnaglyphRowScalar(uint8_t* dst, const uint8_t* near, const uint8_t* far, unsigned pixels,
                       unsigned, bool redBlue, bool) {
    for (unsigned x = 0; x < pixels; ++x, dst += 4, near += 3, far += 3) {
        dst[0] = far[2];
        dst[1] = redBlue ? far[1] : near[1];
        dst[2] = redBlue ? near[0] : far[0];
    }
}

#if LF_X86_64
// Eight pixels a block: each 128-bit half picks its four pixels from 16 loaded bytes, so a
// block needs 28 readable bytes from the far pixel (`farBytes` says how many there are). A
// streamed row starts its blocks where the destination is 32-byte aligned; the caller fences the
// streamed stores once the frame is done.
struct AnaglyphRowVectors {
    static constexpr int8_t Z = -1;  // shuffle index that writes zero
    // Where each output byte of a block half comes from, in the far and in the near pixels.
    static constexpr int8_t kFarPick[2][16] = {
        {2, Z, 0, Z, 5, Z, 3, Z, 8, Z, 6, Z, 11, Z, 9, Z},    // green-magenta
        {2, 1, Z, Z, 5, 4, Z, Z, 8, 7, Z, Z, 11, 10, Z, Z}};  // red-blue
    static constexpr int8_t kNearPick[2][16] = {{Z, 1, Z, Z, Z, 4, Z, Z, Z, 7, Z, Z, Z, 10, Z, Z},
                                                {Z, Z, 0, Z, Z, Z, 3, Z, Z, Z, 6, Z, Z, Z, 9, Z}};

    template <class I>
    static void Run(uint8_t* dst, const uint8_t* near, const uint8_t* far, unsigned pixels,
                    unsigned farBytes, bool redBlue, bool stream) {
        static_assert(I::kBytes == 32, "a block is two 16-byte halves");
        using V = typename I::V;
        V farPick, nearPick, alpha;
        I::LoadBlocks(farPick, kFarPick[redBlue], kFarPick[redBlue]);
        I::LoadBlocks(nearPick, kNearPick[redBlue], kNearPick[redBlue]);
        I::Splat32(alpha, 0xFF000000u);
        unsigned x = 0;
        if (stream) {
            x = std::min(pixels, static_cast<unsigned>(-reinterpret_cast<uintptr_t>(dst) % 32 / 4));
            AnaglyphRowScalar(dst, near, far, x, 0, redBlue, false);
        }
        for (; x + 8 <= pixels && 3 * x + 28 <= farBytes; x += 8) {
            V farPixels, nearPixels, colour;
            I::LoadBlocks(farPixels, far + 3 * x, far + 3 * x + 12);
            I::LoadBlocks(nearPixels, near + 3 * x, near + 3 * x + 12);
            I::ShuffleBytes(farPixels, farPixels, farPick);
            I::ShuffleBytes(nearPixels, nearPixels, nearPick);
            I::Or(colour, farPixels, nearPixels);
            if (stream) {
                I::StoreStreaming(dst + 4 * x, colour);
            } else {
                V kept;
                I::Load(kept, dst + 4 * x);
                I::And(kept, kept, alpha);
                I::Or(colour, colour, kept);
                I::Store(dst + 4 * x, colour);
            }
        }
        AnaglyphRowScalar(dst + 4 * x, near + 3 * x, far + 3 * x, pixels - x, 0, redBlue, false);
    }
};
#endif

constexpr Simd::Variant<AnaglyphRowFn> kAnaglyphRow[] = {
    {Simd::kScalar, AnaglyphRowScalar},
#if LF_X86_64
    {Simd::kAvx2, Simd::RunAvx2<AnaglyphRowVectors>},
#endif
};

}  // namespace

C2DToColor3D::C2DToColor3D(GController* controller) : controller_(controller) {}

C2DToColor3D::~C2DToColor3D() {
    if (converted_ != nullptr) converted_->Free();
    converted_ = nullptr;
    forward_.reset();
    work_.reset();
    back_.reset();
}

void C2DToColor3D::SetProperty(Type3D type, unsigned int depth) {
    type_ = type;
    depth_ = static_cast<int>(depth);
}

bool C2DToColor3D::ProcFrameInner(ImagePostion*, int, GVideoFrame* frame) {
    return GuardedCallOr(kFile, kCatchLine, false, [&] {
        Render(frame);
        return true;
    });
}

void C2DToColor3D::Render(GVideoFrame* frame) {
    LF_REQUIRE(kFile, frame);
    const int format = frame->GetPixelFormat();
    unsigned width = 0, height = 0;
    frame->GetDimension(&width, &height);
    if (width == 0 || height == 0) return;  // no pixel to draw
    GVideoFrame* target = format == PIXFMT_BGRA32 ? frame : WorkFrame(frame, width, height);

    // The copy is widened by W / (100 - depth) pixels; the sums are unsigned, as the depth is.
    const unsigned widened =
        depth_ <= 99 ? width + width / (100u - static_cast<unsigned>(depth_)) : width;
    if (widened != convertedWidth_ || !forward_) {
        convertedWidth_ = widened;
        converted_ = nullptr;  // belonged to the converter being replaced
        forward_.reset();
        if (controller_ != nullptr) {
            forward_.reset(
                controller_->CreateFrameConverter(PIXFMT_PACKED24_2, widened, height, 4));
        }
        if (!forward_) Raise(kFile, kForwardConverterLine, ErrorText::kNullPointer);
    }
    converted_ = forward_->Convert(frame);
    if (converted_ == nullptr) Raise(kFile, kForwardConvertLine, ErrorText::kNullPointer);

    const Plane t = GetPackedPlane(target);
    if (!t.Empty()) ProcessColor3DBGRA(t.data, t.rowBytes / 4, t.pitch, t.rows);
    if (format != PIXFMT_BGRA32) ConvertBack(frame, format, width, height);
}

// A BGRA frame of the input's size over memory of our own, kept while the size holds.
GVideoFrame* C2DToColor3D::WorkFrame(GVideoFrame* frame, unsigned width, unsigned height) {
    if (work_) {
        unsigned w = 0, h = 0;
        work_->GetDimension(&w, &h);
        if (w != width || h != height) work_.reset();
    }
    if (!work_) {
        const size_t pitch = size_t{4} * width;
        if (pitch > UINT32_MAX) Raise(kFile, __LINE__, ErrorText::kMallocFailed);
        auto made =
            std::make_unique<CVideoFrame>(true, PIXFMT_BGRA32, width, height, frame->IsTopDown());
        try {
            workPixels_.assign(pitch * height, 0);
        } catch (const std::bad_alloc&) {
            Raise(kFile, __LINE__, ErrorText::kMallocFailed);
        }
        CVideoFrame::PlaneRecord* plane = made->GetBuffer(0u);
        plane->data = workPixels_.data();
        plane->rowBytes = plane->pitch = static_cast<unsigned>(pitch);
        plane->rows = height;
        work_.reset(made.release());
    }
    return work_.get();
}

// Brings the BGRA result back into the frame's own format and copies it in, plane by plane.
void C2DToColor3D::ConvertBack(GVideoFrame* frame, int format, unsigned width, unsigned height) {
    if (back_) {
        int option = 0, target = -1;
        back_->GetTarget(&option, &target);
        if (target != format) back_.reset();
    }
    if (!back_) {
        if (controller_ != nullptr) {
            back_.reset(controller_->CreateFrameConverter(format, width, height, 4));
        }
        if (!back_) Raise(kFile, kBackConverterLine, ErrorText::kNullPointer);
    }
    GVideoFrame* result = back_->Convert(work_.get());
    if (result == nullptr) Raise(kFile, kBackConvertLine, ErrorText::kNullPointer);
    CopyPlanesInto(frame, result, frame->GetBufferCount());
    result->Free();
}

bool C2DToColor3D::ProcessColor3DBGRA(unsigned char* dst, unsigned int width, unsigned int stride,
                                      unsigned int rows) {
    return GuardedCallOr(kFile, kCatchLine, false, [&] {
        if (dst == nullptr || converted_ == nullptr) return false;
        if (type_ != TYPE3D_RED_BLUE && type_ != TYPE3D_GREEN_MAGENTA) return true;
        // Half the widening, so the far pixel stays inside the widened row.
        const unsigned divisor = 200u - 2u * static_cast<unsigned>(depth_);
        const unsigned shift = depth_ <= 99 && divisor != 0 ? width / divisor : 0;
        // A widened copy narrower or shorter than asked is read only as far as it goes.
        const Plane src = GetPlane(converted_, 0);
        if (src.Empty()) return true;
        const unsigned srcPixels = src.rowBytes / 3;
        const unsigned pixels = srcPixels > shift ? std::min(width, srcPixels - shift) : 0;
        const unsigned height = std::min(rows, src.rows);
        const AnaglyphRowFn row = Simd::Pick(kAnaglyphRow);
        const bool redBlue = type_ == TYPE3D_RED_BLUE;
        // The work frame's alpha is zero from its allocation and nothing writes it, so its
        // pixels may be stored whole. One larger than the caches is streamed: it would not stay
        // cached for the back converter anyway, and its rows are then not read before they are
        // written, which is most of what they cost.
        const bool stream = dst == workPixels_.data() && workPixels_.size() >= kStreamBytes &&
                            reinterpret_cast<uintptr_t>(dst) % 4 == 0 && stride % 4 == 0;
        for (unsigned y = 0; y < height; ++y) {
            const uint8_t* near = src.Row(y);
            const uint8_t* far = near + size_t{3} * shift;
            row(dst + size_t{y} * stride, near, far, pixels, src.rowBytes - 3 * shift, redBlue,
                stream);
        }
#if LF_X86_64
        // Streamed stores are weakly ordered: they are made visible before the frame moves on.
        if (stream) Simd::StreamFence();
#endif
        return true;
    });
}

}  // namespace MediaCore
