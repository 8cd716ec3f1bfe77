// The stereo renderer: its state (mode, depth, converter, output frame), the choice of
// presentation for a pair of views, and the column mapping and colour conversions it exports.
#include <cmath>
#include <cstdint>
#include <limits>

#include "base/ErrorReport.h"
#include "stereo/StereoRender.h"

namespace MediaCore {

using stereo::kRenderFile;

namespace {

// Lines the red-blue workers name when a frame call fails with a standard exception; hosts
// match reports on them, so they stay these numbers wherever the code sits.
constexpr unsigned kYuvRedBlueLine = 273;
constexpr unsigned kRgbRedBlueLine = 311;

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

void stereo::RequireFrames(GVideoFrame* left, GVideoFrame* right, GVideoFrame* out) {
    LF_REQUIRE(kRenderFile, left);
    LF_REQUIRE(kRenderFile, right);
    LF_REQUIRE(kRenderFile, out);
}

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
    return LF_GUARDED(kRenderFile, [&] { return RenderFrames(left, right, out); });
}

GVideoFrame* C3DRender::RenderFrames(GVideoFrame* left, GVideoFrame* right, GVideoFrame* out) {
    LF_REQUIRE(kRenderFile, left);
    LF_REQUIRE(kRenderFile, right);
    const int leftFormat = left->GetPixelFormat();
    if (right->GetPixelFormat() != leftFormat) {
        // Made once, for the first pair that differs; later pairs reuse it whatever their format.
        if (!converter_) {
            LF_REQUIRE(kRenderFile, controller_);
            converter_.reset(controller_->CreateFrameConverter(leftFormat, 0, 0, 0));
            LF_REQUIRE(kRenderFile, converter_.get());
        }
        right = converter_->Convert(right);
        LF_REQUIRE(kRenderFile, right);
    }
    if (out == nullptr) {
        if (!output_) {
            output_.reset(left->Clone());
            LF_REQUIRE(kRenderFile, output_.get());
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
        LF_GUARDED(kRenderFile, [&] { stereo::RenderBgra(mode_, left, right, out); });
    }
}

void C3DRender::ProcessYUV(GVideoFrame* left, GVideoFrame* right, GVideoFrame* out) {
    if (mode_ == TYPE3D_RED_BLUE) {
        ProcessYUVRedBlue(left, right, out);
    } else {
        LF_GUARDED(kRenderFile, [&] { stereo::RenderYuv(mode_, left, right, out); });
    }
}

bool C3DRender::ProcessYUVRedBlue(GVideoFrame* left, GVideoFrame* right, GVideoFrame* out) {
    return GuardedCallOr(kRenderFile, kYuvRedBlueLine, false, [&] {
        stereo::YuvRedBlue(left, right, out);
        return true;
    });
}

bool C3DRender::ProcessRGBRedBlue(GVideoFrame* left, GVideoFrame* right, GVideoFrame* out) {
    return GuardedCallOr(kRenderFile, kRgbRedBlueLine, false, [&] {
        stereo::RgbRedBlue(left, right, out);
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
