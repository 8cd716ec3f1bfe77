#include "Generator.h"

#include <algorithm>
#include <cmath>
#include <vector>

#include "Errors.h"

namespace lfx {

namespace {

constexpr double kPi = 3.14159265358979323846;

struct Rgb {
    int r, g, b;
};

// Studio-range bars in the classic order.
constexpr Rgb kBars[] = {{235, 235, 235}, {235, 235, 16}, {16, 235, 235}, {16, 235, 16},
                         {235, 16, 235},  {235, 16, 16},  {16, 16, 235},  {16, 16, 16}};

class Scene {
public:
    Scene(int width, int height, double seconds) : width_(width), height_(height) {
        barShift_ = seconds * width / 6.0;
        circleRadius_ = 0.12 * height;
        circleX_ = width * (0.5 + 0.35 * std::sin(2 * kPi * seconds / 3.0));
        circleY_ = height * (0.75 + 0.08 * std::cos(2 * kPi * seconds / 1.5));
        squareSide_ = 0.18 * height;
        squareX_ = std::fmod(seconds * width / 3.0, width + squareSide_) - squareSide_;
        squareY_ = 0.58 * height;
        // The hue gradient varies along x only (green also fades down); one sine per column.
        hue_.resize(static_cast<size_t>(width));
        for (int x = 0; x < width; ++x) {
            const double phase = 2 * kPi * ((x + 0.5) / width + seconds / 6.0);
            hue_[x] = {std::sin(phase), std::sin(phase + 2 * kPi / 3),
                       std::sin(phase + 4 * kPi / 3)};
        }
    }

    Rgb At(int x, int y) const {
        const double dx = x + 0.5 - circleX_;
        const double dy = y + 0.5 - circleY_;
        const double distance2 = dx * dx + dy * dy;
        const double inner = circleRadius_ * 0.55;
        if (distance2 < inner * inner) return {255, 140, 0};
        if (distance2 < circleRadius_ * circleRadius_) return {250, 250, 250};
        if (x >= squareX_ && x < squareX_ + squareSide_ && y >= squareY_ &&
            y < squareY_ + squareSide_) {
            return {90, 220, 60};
        }
        return Background(x, y);
    }

private:
    struct Hue {
        double r, g, b;
    };

    Rgb Background(int x, int y) const {
        const double u = (x + 0.5) / width_;
        const double v = (y + 0.5) / height_;
        if (v < 0.45) return kBars[static_cast<int>((x + barShift_) * 8 / width_) % 8];
        if (v < 0.52) {
            const int level = width_ > 1 ? x * 255 / (width_ - 1) : 0;
            return {level, level, level};
        }
        if (u < 0.2 && v > 0.8) {
            const int cell = std::max(1, height_ / 90);
            const bool light = ((x / cell) + (y / cell)) % 2 == 0;
            return light ? Rgb{230, 230, 230} : Rgb{30, 30, 30};
        }
        const Hue& hue = hue_[x];
        return {static_cast<int>(127.5 + 127.5 * hue.r),
                static_cast<int>(127.5 + 127.5 * hue.g * (1.2 - v)),
                static_cast<int>(127.5 + 127.5 * hue.b)};
    }

    int width_, height_;
    double barShift_;
    double circleX_, circleY_, circleRadius_;
    double squareX_, squareY_, squareSide_;
    std::vector<Hue> hue_;
};

uint8_t Clamp(int value) {
    return static_cast<uint8_t>(std::clamp(value, 0, 255));
}

}  // namespace

GeneratedSource::GeneratedSource(const ClipSettings& settings) : settings_(settings) {
    if (settings.width < 2 || settings.height < 2 || settings.width > 16384 ||
        settings.height > 16384) {
        FailUsage("the generated clip needs a size between 2x2 and 16384x16384");
    }
    if (settings.rate < 1 || settings.rate > 1000)
        FailUsage("the generated clip needs 1 to 1000 fps");
    if (!(settings.seconds > 0) || settings.seconds > 3600) {
        FailUsage("the generated clip needs a length above 0 and up to 3600 seconds");
    }
    info_.width = settings.width;
    info_.height = settings.height;
    info_.timeBase = {1, settings.rate};
    info_.frameRate = {settings.rate, 1};
    info_.frameCount = std::max<int64_t>(1, std::llround(settings.seconds * settings.rate));
    info_.name = "the generated clip";
}

bool GeneratedSource::Next(StreamItem& item) {
    if (next_ >= info_.frameCount) return false;
    item.frame = Draw(next_++);
    return true;
}

FramePtr GeneratedSource::Draw(int index) const {
    FramePtr frame = MakeFrame(AV_PIX_FMT_BGRA, settings_.width, settings_.height);
    const Scene scene(settings_.width, settings_.height,
                      static_cast<double>(index) / settings_.rate);
    for (int y = 0; y < settings_.height; ++y) {
        uint8_t* row = frame->data[0] + static_cast<ptrdiff_t>(y) * frame->linesize[0];
        for (int x = 0; x < settings_.width; ++x) {
            const Rgb colour = scene.At(x, y);
            row[4 * x + 0] = Clamp(colour.b);
            row[4 * x + 1] = Clamp(colour.g);
            row[4 * x + 2] = Clamp(colour.r);
            row[4 * x + 3] = 255;
        }
    }
    frame->pts = index;
    return frame;
}

}  // namespace lfx
