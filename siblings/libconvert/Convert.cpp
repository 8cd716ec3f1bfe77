// Frame converters built on libswscale.
//
// The scaling library reads and writes whole rows of its own geometry: chroma planes rounded
// up at odd sizes, and vector code that may touch a few bytes past a row's end. Frames it writes
// are ours and sized for that. Frames it reads are the host's, so a source whose planes are
// smaller than the library's geometry is copied into padded memory first, and otherwise only the
// last rows (where a read past the end would leave the plane) are fed from a padded copy.
#include "libfilter/Convert.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <memory>
#include <new>
#include <vector>

#include "libfilter/CVideoFrame.h"
#include "libfilter/Stereo3D.h"

extern "C" {
#include <libavutil/imgutils.h>
#include <libavutil/mem.h>
#include <libavutil/pixdesc.h>
#include <libswscale/swscale.h>
}

namespace MediaCore {

namespace {

constexpr int kMaxPlanes = 4;
// Bytes kept readable and writable past every row the scaling library touches.
constexpr size_t kSlack = 64;
// Rows fed from a padded copy must hold at least this many bytes in every plane.
constexpr size_t kTailBytes = 256;

AVPixelFormat ToAv(int format) {
    switch (format) {
        case PIXFMT_YUV420P:
        case PIXFMT_YUV420P_12:
            return AV_PIX_FMT_YUV420P;
        case PIXFMT_PACKED24_2:
            return AV_PIX_FMT_RGB24;
        case PIXFMT_PACKED24_3:
            return AV_PIX_FMT_BGR24;
        case PIXFMT_YUV422P:
        case PIXFMT_YUV422P_13:
            return AV_PIX_FMT_YUV422P;
        case PIXFMT_YUV444P:
            return AV_PIX_FMT_YUV444P;
        case PIXFMT_YUV410P:
            return AV_PIX_FMT_YUV410P;
        case PIXFMT_YUV411P:
            return AV_PIX_FMT_YUV411P;
        case PIXFMT_BGRA32:
            return AV_PIX_FMT_BGRA;
        case PIXFMT_YUV440P:
            return AV_PIX_FMT_YUV440P;
        case PIXFMT_YUVA420P:
            return AV_PIX_FMT_YUVA420P;
        case PIXFMT_PLANAR4_FULL:
            return AV_PIX_FMT_YUVA444P;
        default:
            return AV_PIX_FMT_NONE;
    }
}

// The rows and row bytes the scaling library uses for each plane of `format` at w x h.
struct Geometry {
    int planes = 0;
    int rowBytes[kMaxPlanes] = {};
    int rows[kMaxPlanes] = {};
    int chromaStep = 1;  // luma rows per chroma row

    Geometry(AVPixelFormat format, int w, int h) {
        const AVPixFmtDescriptor* desc = av_pix_fmt_desc_get(format);
        planes = av_pix_fmt_count_planes(format);
        av_image_fill_linesizes(rowBytes, format, w);
        chromaStep = 1 << desc->log2_chroma_h;
        for (int i = 0; i < planes; ++i) {
            const bool chroma = (i == 1 || i == 2) && planes > 1;
            rows[i] = chroma ? -((-h) >> desc->log2_chroma_h) : h;
        }
    }
    int RowsIn(int plane, int lumaRows) const {
        return (plane == 1 || plane == 2) && planes > 1 ? lumaRows / chromaStep : lumaRows;
    }
};

struct AvFree {
    void operator()(uint8_t* p) const { av_free(p); }
};
using AvBuffer = std::unique_ptr<uint8_t, AvFree>;

// Plane memory laid out for the scaling library: aligned pitches and slack after the last row.
// Kept between frames and remade only when a plane needs more.
struct PlaneSet {
    AvBuffer memory[kMaxPlanes];
    size_t size[kMaxPlanes] = {};
    uint8_t* data[kMaxPlanes] = {};
    int pitch[kMaxPlanes] = {};

    bool Allocate(const Geometry& g, const int* minRowBytes, const int* minRows) {
        for (int i = 0; i < g.planes; ++i) {
            const int bytes = std::max(g.rowBytes[i], minRowBytes[i]);
            const int rows = std::max(g.rows[i], minRows[i]);
            pitch[i] = (bytes + 63) & ~63;
            const size_t needed = size_t(pitch[i]) * rows + kSlack;
            if (needed > size[i]) {
                size[i] = 0;
                memory[i].reset(static_cast<uint8_t*>(av_malloc(needed)));
                if (!memory[i]) return false;
                size[i] = needed;
            }
            data[i] = memory[i].get();
        }
        return true;
    }
};

// Copies `rows` rows of a host plane into `to`, widening each to `bytes` and adding rows up to
// `allRows` by repeating the last byte and row the host has.
void CopyPadded(uint8_t* to, int toPitch, const uint8_t* from, unsigned fromPitch,
                unsigned fromBytes, unsigned fromRows, int bytes, int allRows) {
    for (int y = 0; y < allRows; ++y) {
        uint8_t* line = to + size_t(y) * toPitch;
        const unsigned source = std::min<unsigned>(y, fromRows - 1);
        const unsigned copied = std::min<unsigned>(fromBytes, bytes);
        std::memcpy(line, from + size_t(source) * fromPitch, copied);
        std::memset(line + copied, copied ? line[copied - 1] : 0, bytes - copied);
    }
}

// How the scaling library is driven for one size pair. Its filters for large shrink ratios
// outgrow what its vector code handles (it faults from about 128x on), and a frame fed in two
// slices trips its own line-buffer checks once rows shrink by more than a few times. So frames
// are filtered bilinearly up to kMaxFilteredShrink, sampled at the nearest pixel beyond it, and
// fed in slices (most rows straight from the host) only while rows shrink by at most
// kMaxSlicedShrink. Ratios compare the input's full size with the output's smallest planes,
// which bounds the ratio of every plane pair.
constexpr int64_t kMaxFilteredShrink = 64;
constexpr int64_t kMaxSlicedShrink = 2;

struct ScalePlan {
    int flags;
    bool sliced;
};

ScalePlan PlanScale(AVPixelFormat to, int inWidth, int inHeight, int outWidth, int outHeight) {
    const AVPixFmtDescriptor* desc = av_pix_fmt_desc_get(to);
    const int64_t chromaWidth = -((-outWidth) >> desc->log2_chroma_w);
    const int64_t chromaHeight = -((-outHeight) >> desc->log2_chroma_h);
    const bool extreme =
        inWidth > chromaWidth * kMaxFilteredShrink || inHeight > chromaHeight * kMaxFilteredShrink;
    return {extreme ? SWS_POINT : SWS_BILINEAR, inHeight <= chromaHeight * kMaxSlicedShrink};
}

class CFrameConverter final : public GFrameConverter {
public:
    CFrameConverter(int format, unsigned width, unsigned height, int option)
        : format_(format), width_(width), height_(height), option_(option) {}
    ~CFrameConverter() { sws_freeContext(context_); }

    void GetTarget(int* option, int* pixelFormat) override {
        if (option != nullptr) *option = option_;
        if (pixelFormat != nullptr) *pixelFormat = format_;
    }

    GVideoFrame* Convert(GVideoFrame* in) override {
        try {
            return in != nullptr ? ConvertFrame(in) : nullptr;
        } catch (...) {
            return nullptr;  // out of memory, or a frame the host cannot describe
        }
    }

    void Release() override { delete this; }

private:
    GVideoFrame* ConvertFrame(GVideoFrame* in);
    bool PrepareOutput(GVideoFrame* in, int width, int height);
    int DirectRows(GVideoFrame* in, const Geometry& g, int height, const uint8_t** data,
                   int* pitch);

    int format_;
    unsigned width_, height_;
    int option_;
    SwsContext* context_ = nullptr;
    std::unique_ptr<CVideoFrame> out_;
    PlaneSet outPlanes_;
    PlaneSet staged_;
};

// Our frame of the target format and size, over memory sized for the library's geometry.
bool CFrameConverter::PrepareOutput(GVideoFrame* in, int width, int height) {
    unsigned w = 0, h = 0;
    if (out_) out_->GetDimension(&w, &h);
    if (out_ && int(w) == width && int(h) == height && out_->IsTopDown() == in->IsTopDown()) {
        return true;
    }
    out_.reset();
    auto frame = std::make_unique<CVideoFrame>(false, format_, width, height, in->IsTopDown());
    const Geometry g(ToAv(format_), width, height);
    int rowBytes[kMaxPlanes] = {}, rows[kMaxPlanes] = {};
    for (int i = 0; i < g.planes && i < int(frame->GetBufferCount()); ++i) {
        rowBytes[i] = int(frame->GetBuffer(unsigned(i))->rowBytes);
        rows[i] = int(frame->GetBuffer(unsigned(i))->rows);
    }
    if (!outPlanes_.Allocate(g, rowBytes, rows)) return false;
    for (int i = 0; i < g.planes && i < int(frame->GetBufferCount()); ++i) {
        CVideoFrame::PlaneRecord* record = frame->GetBuffer(unsigned(i));
        record->data = outPlanes_.data[i];
        record->pitch = unsigned(outPlanes_.pitch[i]);
    }
    out_ = std::move(frame);
    return true;
}

// How many leading rows the library may read straight from the host's planes (the rest come
// from padded copies): none when a plane is smaller than the library's geometry, else all but
// enough last rows that a read past a row's end stays inside the plane.
int CFrameConverter::DirectRows(GVideoFrame* in, const Geometry& g, int height,
                                const uint8_t** data, int* pitch) {
    if (height % g.chromaStep != 0) return 0;
    int tail = g.chromaStep;
    for (int i = 0; i < g.planes; ++i) {
        unsigned rowBytes = 0, planePitch = 0, rows = 0;
        data[i] = in->GetBuffer(unsigned(i), &rowBytes, &planePitch, &rows);
        pitch[i] = int(planePitch);
        if (data[i] == nullptr || int(rowBytes) < g.rowBytes[i] || int(rows) < g.rows[i] ||
            planePitch < rowBytes) {
            return 0;
        }
        while (size_t(g.RowsIn(i, tail)) * planePitch < kTailBytes && tail < height)
            tail *= 2;
    }
    return std::max(height - tail, 0);
}

GVideoFrame* CFrameConverter::ConvertFrame(GVideoFrame* in) {
    if (in == out_.get()) return out_.get();  // already in our format and size
    const AVPixelFormat from = ToAv(in->GetPixelFormat()), to = ToAv(format_);
    unsigned w = 0, h = 0;
    in->GetDimension(&w, &h);
    if (from == AV_PIX_FMT_NONE || to == AV_PIX_FMT_NONE || w == 0 || h == 0) return nullptr;
    const int outWidth = int(width_ ? width_ : w), outHeight = int(height_ ? height_ : h);
    const Geometry g(from, int(w), int(h));
    if (!PrepareOutput(in, outWidth, outHeight)) return nullptr;
    const ScalePlan plan = PlanScale(to, int(w), int(h), outWidth, outHeight);
    context_ = sws_getCachedContext(context_, int(w), int(h), from, outWidth, outHeight, to,
                                    plan.flags, nullptr, nullptr, nullptr);
    if (context_ == nullptr) return nullptr;

    const uint8_t* data[kMaxPlanes] = {};
    int pitch[kMaxPlanes] = {};
    const int start = plan.sliced ? DirectRows(in, g, int(h), data, pitch) : 0;
    const int staged = int(h) - start;
    int stagedRows[kMaxPlanes] = {};
    for (int i = 0; i < g.planes; ++i)
        stagedRows[i] = g.rows[i] - g.RowsIn(i, start);
    if (!staged_.Allocate(g, g.rowBytes, stagedRows)) return nullptr;
    for (int i = 0; i < g.planes; ++i) {
        unsigned rowBytes = 0, planePitch = 0, rows = 0;
        const uint8_t* plane = in->GetBuffer(unsigned(i), &rowBytes, &planePitch, &rows);
        const auto first = unsigned(g.RowsIn(i, start));
        rowBytes = std::min(rowBytes, planePitch);
        if (plane == nullptr || rows <= first || rowBytes == 0) return nullptr;
        CopyPadded(staged_.data[i], staged_.pitch[i], plane + size_t(first) * planePitch,
                   planePitch, rowBytes, rows - first, g.rowBytes[i], stagedRows[i]);
    }
    if (start > 0 &&
        sws_scale(context_, data, pitch, 0, start, outPlanes_.data, outPlanes_.pitch) < 0) {
        return nullptr;
    }
    if (sws_scale(context_, staged_.data, staged_.pitch, start, staged, outPlanes_.data,
                  outPlanes_.pitch) < 0) {
        return nullptr;
    }
    out_->SetTimeStamp(in->GetTimeStamp());
    return out_.get();
}

class CController final : public CConverterController {
public:
    GFrameConverter* CreateFrameConverter(int format, unsigned width, unsigned height,
                                          int option) override {
        if (ToAv(format) == AV_PIX_FMT_NONE) return nullptr;
        return new (std::nothrow) CFrameConverter(format, width, height, option);
    }
};

}  // namespace

}  // namespace MediaCore

extern "C" MediaCore::GController* libconvert_CreateController() {
    return new (std::nothrow) MediaCore::CController();
}

extern "C" void libconvert_DestroyController(MediaCore::GController* controller) {
    delete static_cast<MediaCore::CController*>(controller);
}
