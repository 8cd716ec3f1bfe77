// Frame converters built on libyuv where it has the conversion or scaling (BGRA, RGB24 and
// YUV 4:2:0 / 4:2:2 / 4:4:4 between each other and at any size, but not planar YUV scaled in
// its own kind), on libswscale for the rest.
//
// libyuv reads and writes exactly the pixels of the frame's size, so host planes that hold them
// are read in place. libswscale below is driven as follows.
//
// The scaling library reads and writes whole rows of its own geometry: chroma planes rounded
// up at odd sizes, and vector code that may touch a few bytes past a row's end. Frames it writes
// are ours and sized for that. Frames it reads are the host's, so a source whose planes are
// smaller than the library's geometry is copied into padded memory first, and otherwise only the
// last rows (where a read past the end would leave the plane) are fed from a padded copy.
#include "libfilter/Convert.h"

#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstring>
#include <memory>
#include <new>
#include <vector>

#include "libfilter/CVideoFrame.h"
#include "libfilter/Stereo3D.h"

#include <libyuv/convert.h>
#include <libyuv/convert_argb.h>
#include <libyuv/convert_from.h>
#include <libyuv/convert_from_argb.h>
#include <libyuv/planar_functions.h>
#include <libyuv/scale.h>
#include <libyuv/scale_argb.h>
#include <libyuv/scale_rgb.h>

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

// The formats libyuv converts and scales, as it names them. Its ARGB is our BGRA byte order,
// its RAW our R, G, B order and its RGB24 our B, G, R order.
enum class Yuv { kNone, kI420, kI422, kI444, kArgb, kRaw, kRgb24 };

Yuv ToYuv(int format) {
    switch (format) {
        case PIXFMT_YUV420P:
        case PIXFMT_YUV420P_12:
            return Yuv::kI420;
        case PIXFMT_YUV422P:
        case PIXFMT_YUV422P_13:
            return Yuv::kI422;
        case PIXFMT_YUV444P:
            return Yuv::kI444;
        case PIXFMT_BGRA32:
            return Yuv::kArgb;
        case PIXFMT_PACKED24_2:
            return Yuv::kRaw;
        case PIXFMT_PACKED24_3:
            return Yuv::kRgb24;
        default:
            return Yuv::kNone;
    }
}

// One of our formats laid out as `kind`, for staging memory.
int FormatOf(Yuv kind) {
    switch (kind) {
        case Yuv::kI420:
            return PIXFMT_YUV420P;
        case Yuv::kI422:
            return PIXFMT_YUV422P;
        case Yuv::kI444:
            return PIXFMT_YUV444P;
        case Yuv::kArgb:
            return PIXFMT_BGRA32;
        case Yuv::kRaw:
            return PIXFMT_PACKED24_2;
        default:
            return PIXFMT_PACKED24_3;
    }
}

bool Packed(Yuv kind) {
    return kind == Yuv::kArgb || kind == Yuv::kRaw || kind == Yuv::kRgb24;
}

// Bytes per pixel, in eighths, to weigh where a two-step conversion scales.
int Eighths(Yuv kind) {
    switch (kind) {
        case Yuv::kI420:
            return 12;
        case Yuv::kI422:
            return 16;
        case Yuv::kArgb:
            return 32;
        default:
            return 24;
    }
}

// Planes as libyuv takes them.
struct Planes {
    const uint8_t* data[3] = {};
    uint8_t* out[3] = {};
    int pitch[3] = {};
};

// The bytes and rows libyuv touches in plane `i` of `kind` at w x h.
void Needs(Yuv kind, int i, int w, int h, int64_t* bytes, int64_t* rows) {
    const int64_t half = (int64_t{w} + 1) / 2;
    *rows = kind == Yuv::kI420 && i > 0 ? (int64_t{h} + 1) / 2 : h;
    switch (kind) {
        case Yuv::kArgb:
            *bytes = int64_t{w} * 4;
            break;
        case Yuv::kRaw:
        case Yuv::kRgb24:
            *bytes = int64_t{w} * 3;
            break;
        case Yuv::kI444:
            *bytes = w;
            break;
        default:
            *bytes = i > 0 ? half : w;
    }
}

using ConvertFn = int (*)(const Planes& from, Planes& to, int w, int h);

constexpr int Pair(Yuv from, Yuv to) {
    return int(from) * 8 + int(to);
}

#define LF_PLANAR(i) from.data[i], from.pitch[i]
#define LF_PLANAR_OUT(i) to.out[i], to.pitch[i]

// The same-size conversions libyuv has between two kinds, or none.
ConvertFn FindConversion(Yuv from, Yuv to) {
    using Y = Yuv;
    switch (Pair(from, to)) {
        case Pair(Y::kI420, Y::kArgb):
            return [](const Planes& from, Planes& to, int w, int h) {
                return libyuv::I420ToARGB(LF_PLANAR(0), LF_PLANAR(1), LF_PLANAR(2),
                                          LF_PLANAR_OUT(0), w, h);
            };
        case Pair(Y::kI422, Y::kArgb):
            return [](const Planes& from, Planes& to, int w, int h) {
                return libyuv::I422ToARGB(LF_PLANAR(0), LF_PLANAR(1), LF_PLANAR(2),
                                          LF_PLANAR_OUT(0), w, h);
            };
        case Pair(Y::kI444, Y::kArgb):
            return [](const Planes& from, Planes& to, int w, int h) {
                return libyuv::I444ToARGB(LF_PLANAR(0), LF_PLANAR(1), LF_PLANAR(2),
                                          LF_PLANAR_OUT(0), w, h);
            };
        case Pair(Y::kArgb, Y::kI420):
            return [](const Planes& from, Planes& to, int w, int h) {
                return libyuv::ARGBToI420(LF_PLANAR(0), LF_PLANAR_OUT(0), LF_PLANAR_OUT(1),
                                          LF_PLANAR_OUT(2), w, h);
            };
        case Pair(Y::kArgb, Y::kI422):
            return [](const Planes& from, Planes& to, int w, int h) {
                return libyuv::ARGBToI422(LF_PLANAR(0), LF_PLANAR_OUT(0), LF_PLANAR_OUT(1),
                                          LF_PLANAR_OUT(2), w, h);
            };
        case Pair(Y::kArgb, Y::kI444):
            return [](const Planes& from, Planes& to, int w, int h) {
                return libyuv::ARGBToI444(LF_PLANAR(0), LF_PLANAR_OUT(0), LF_PLANAR_OUT(1),
                                          LF_PLANAR_OUT(2), w, h);
            };
        case Pair(Y::kI420, Y::kRaw):
            return [](const Planes& from, Planes& to, int w, int h) {
                return libyuv::I420ToRAW(LF_PLANAR(0), LF_PLANAR(1), LF_PLANAR(2), LF_PLANAR_OUT(0),
                                         w, h);
            };
        case Pair(Y::kI420, Y::kRgb24):
            return [](const Planes& from, Planes& to, int w, int h) {
                return libyuv::I420ToRGB24(LF_PLANAR(0), LF_PLANAR(1), LF_PLANAR(2),
                                           LF_PLANAR_OUT(0), w, h);
            };
        case Pair(Y::kRaw, Y::kI420):
            return [](const Planes& from, Planes& to, int w, int h) {
                return libyuv::RAWToI420(LF_PLANAR(0), LF_PLANAR_OUT(0), LF_PLANAR_OUT(1),
                                         LF_PLANAR_OUT(2), w, h);
            };
        case Pair(Y::kRgb24, Y::kI420):
            return [](const Planes& from, Planes& to, int w, int h) {
                return libyuv::RGB24ToI420(LF_PLANAR(0), LF_PLANAR_OUT(0), LF_PLANAR_OUT(1),
                                           LF_PLANAR_OUT(2), w, h);
            };
        case Pair(Y::kArgb, Y::kRaw):
            return [](const Planes& from, Planes& to, int w, int h) {
                return libyuv::ARGBToRAW(LF_PLANAR(0), LF_PLANAR_OUT(0), w, h);
            };
        case Pair(Y::kArgb, Y::kRgb24):
            return [](const Planes& from, Planes& to, int w, int h) {
                return libyuv::ARGBToRGB24(LF_PLANAR(0), LF_PLANAR_OUT(0), w, h);
            };
        case Pair(Y::kRaw, Y::kArgb):
            return [](const Planes& from, Planes& to, int w, int h) {
                return libyuv::RAWToARGB(LF_PLANAR(0), LF_PLANAR_OUT(0), w, h);
            };
        case Pair(Y::kRgb24, Y::kArgb):
            return [](const Planes& from, Planes& to, int w, int h) {
                return libyuv::RGB24ToARGB(LF_PLANAR(0), LF_PLANAR_OUT(0), w, h);
            };
        case Pair(Y::kRaw, Y::kRgb24):
        case Pair(Y::kRgb24, Y::kRaw):  // the same swap of the outer bytes either way
            return [](const Planes& from, Planes& to, int w, int h) {
                return libyuv::RAWToRGB24(LF_PLANAR(0), LF_PLANAR_OUT(0), w, h);
            };
        case Pair(Y::kI420, Y::kI422):
            return [](const Planes& from, Planes& to, int w, int h) {
                return libyuv::I420ToI422(LF_PLANAR(0), LF_PLANAR(1), LF_PLANAR(2),
                                          LF_PLANAR_OUT(0), LF_PLANAR_OUT(1), LF_PLANAR_OUT(2), w,
                                          h);
            };
        case Pair(Y::kI420, Y::kI444):
            return [](const Planes& from, Planes& to, int w, int h) {
                return libyuv::I420ToI444(LF_PLANAR(0), LF_PLANAR(1), LF_PLANAR(2),
                                          LF_PLANAR_OUT(0), LF_PLANAR_OUT(1), LF_PLANAR_OUT(2), w,
                                          h);
            };
        case Pair(Y::kI422, Y::kI420):
            return [](const Planes& from, Planes& to, int w, int h) {
                return libyuv::I422ToI420(LF_PLANAR(0), LF_PLANAR(1), LF_PLANAR(2),
                                          LF_PLANAR_OUT(0), LF_PLANAR_OUT(1), LF_PLANAR_OUT(2), w,
                                          h);
            };
        case Pair(Y::kI444, Y::kI420):
            return [](const Planes& from, Planes& to, int w, int h) {
                return libyuv::I444ToI420(LF_PLANAR(0), LF_PLANAR(1), LF_PLANAR(2),
                                          LF_PLANAR_OUT(0), LF_PLANAR_OUT(1), LF_PLANAR_OUT(2), w,
                                          h);
            };
        default:
            return nullptr;
    }
}

// Scales `from` (w x h) into `to` (outW x outH), both of `kind`: bilinear, which libyuv does at
// any ratio. Equal sizes copy.
int Scale(Yuv kind, const Planes& from, int w, int h, Planes& to, int outW, int outH) {
    constexpr auto filter = libyuv::kFilterBilinear;
    switch (kind) {
        case Yuv::kI420:
            return libyuv::I420Scale(LF_PLANAR(0), LF_PLANAR(1), LF_PLANAR(2), w, h,
                                     LF_PLANAR_OUT(0), LF_PLANAR_OUT(1), LF_PLANAR_OUT(2), outW,
                                     outH, filter);
        case Yuv::kI422:
            return libyuv::I422Scale(LF_PLANAR(0), LF_PLANAR(1), LF_PLANAR(2), w, h,
                                     LF_PLANAR_OUT(0), LF_PLANAR_OUT(1), LF_PLANAR_OUT(2), outW,
                                     outH, filter);
        case Yuv::kI444:
            return libyuv::I444Scale(LF_PLANAR(0), LF_PLANAR(1), LF_PLANAR(2), w, h,
                                     LF_PLANAR_OUT(0), LF_PLANAR_OUT(1), LF_PLANAR_OUT(2), outW,
                                     outH, filter);
        case Yuv::kArgb:
            return libyuv::ARGBScale(LF_PLANAR(0), w, h, LF_PLANAR_OUT(0), outW, outH, filter);
        default:
            return libyuv::RGBScale(LF_PLANAR(0), w, h, LF_PLANAR_OUT(0), outW, outH, filter);
    }
}

#undef LF_PLANAR
#undef LF_PLANAR_OUT

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
                // Cleared: a row's padding is never written, and frames go back to hosts whole.
                memory[i].reset(static_cast<uint8_t*>(av_mallocz(needed)));
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
    bool ConvertWithYuv(GVideoFrame* in, int w, int h, int outWidth, int outHeight);
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
    PlaneSet between_;  // the middle frame of a conversion libyuv does in two steps
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

// libyuv's way, when it has one and the host's planes hold every pixel it reads: a conversion,
// a scaling, or both in two steps through a middle frame (scaled in whichever kind makes it
// smaller). False, with nothing written, when libswscale must do it.
bool CFrameConverter::ConvertWithYuv(GVideoFrame* in, int w, int h, int outWidth, int outHeight) {
    const Yuv from = ToYuv(in->GetPixelFormat()), to = ToYuv(format_);
    if (from == Yuv::kNone || to == Yuv::kNone) return false;
    constexpr int kLargest = INT32_MAX / 8;  // libyuv's sizes and pitches are int
    if (w > kLargest || h > kLargest || outWidth > kLargest || outHeight > kLargest) return false;
    const bool scales = w != outWidth || h != outHeight;
    // Planar YUV scaled in its own kind goes to libswscale: its bilinear filter took 0.8 times
    // libyuv's time on full-HD 4:2:0 frames here (the turn of rotate90), and the same at 4K.
    if (from == to && !Packed(from)) return false;
    const ConvertFn convert = from == to ? nullptr : FindConversion(from, to);
    if (from != to && convert == nullptr) return false;

    Planes source;
    const int planes = Packed(from) ? 1 : 3;
    if (int(in->GetBufferCount()) < planes) return false;
    for (int i = 0; i < planes; ++i) {
        unsigned rowBytes = 0, pitch = 0, rows = 0;
        source.data[i] = in->GetBuffer(unsigned(i), &rowBytes, &pitch, &rows);
        int64_t bytes = 0, needed = 0;
        Needs(from, i, w, h, &bytes, &needed);
        if (source.data[i] == nullptr || rowBytes < bytes || pitch < bytes || rows < needed ||
            pitch > unsigned(INT32_MAX)) {
            return false;
        }
        source.pitch[i] = int(pitch);
    }
    Planes target;
    for (int i = 0; i < 3; ++i) {
        target.out[i] = outPlanes_.data[i];
        target.pitch[i] = outPlanes_.pitch[i];
    }
    if (from == to) return Scale(from, source, w, h, target, outWidth, outHeight) == 0;
    if (!scales) return convert(source, target, w, h) == 0;

    // Scale first (the middle frame is the source's kind at the output's size) or convert first
    // (the target's kind at the input's size), whichever middle frame is smaller.
    const bool scaleFirst =
        int64_t{Eighths(from)} * outWidth * outHeight < int64_t{Eighths(to)} * w * h;
    const Yuv middleKind = scaleFirst ? from : to;
    const int middleW = scaleFirst ? outWidth : w, middleH = scaleFirst ? outHeight : h;
    const Geometry g(ToAv(FormatOf(middleKind)), middleW, middleH);
    const int none[kMaxPlanes] = {};
    if (!between_.Allocate(g, none, none)) return false;
    Planes middle;
    for (int i = 0; i < 3; ++i) {
        middle.data[i] = middle.out[i] = between_.data[i];
        middle.pitch[i] = between_.pitch[i];
    }
    if (scaleFirst) {
        return Scale(from, source, w, h, middle, outWidth, outHeight) == 0 &&
               convert(middle, target, outWidth, outHeight) == 0;
    }
    return convert(source, middle, w, h) == 0 &&
           Scale(to, middle, w, h, target, outWidth, outHeight) == 0;
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
    if (ConvertWithYuv(in, int(w), int(h), outWidth, outHeight)) {
        out_->SetTimeStamp(in->GetTimeStamp());
        return out_.get();
    }
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
