#include "Gallery.h"

#include <algorithm>
#include <cstring>

#include "Available.h"
#include "EffectChain.h"
#include "Encoder.h"
#include "Errors.h"
#include "Font.h"
#include "Scaler.h"

namespace lfx {

namespace {

constexpr int kMargin = 8;
constexpr int kChecker = 8;
constexpr uint8_t kBackground = 32;

struct Grid {
    int tileWidth, tileHeight, columns, rows, scale, labelHeight;

    int CellWidth() const { return tileWidth + kMargin; }
    int CellHeight() const { return tileHeight + labelHeight + kMargin; }
    int Width() const { return kMargin + columns * CellWidth(); }
    int Height() const { return kMargin + rows * CellHeight(); }
    int Left(int index) const { return kMargin + (index % columns) * CellWidth(); }
    int Top(int index) const { return kMargin + (index / columns) * CellHeight(); }
};

// Puts a BGRA tile on the canvas over a checkerboard, so transparency shows.
void Place(const AVFrame& tile, AVFrame& canvas, int left, int top) {
    for (int y = 0; y < tile.height; ++y) {
        const uint8_t* in = tile.data[0] + static_cast<ptrdiff_t>(y) * tile.linesize[0];
        uint8_t* out = canvas.data[0] + static_cast<ptrdiff_t>(top + y) * canvas.linesize[0] +
                       4 * static_cast<ptrdiff_t>(left);
        for (int x = 0; x < tile.width; ++x) {
            const int checker = ((x / kChecker) + (y / kChecker)) % 2 == 0 ? 204 : 153;
            const int alpha = in[4 * x + 3];
            for (int c = 0; c < 3; ++c) {
                out[4 * x + c] = static_cast<uint8_t>(
                    (in[4 * x + c] * alpha + checker * (255 - alpha) + 127) / 255);
            }
            out[4 * x + 3] = 255;
        }
    }
}

std::string Label(const EffectDescription& entry) {
    return std::to_string(entry.id) + " " + entry.name;
}

FramePtr CopyOf(const AVFrame& frame) {
    FramePtr copy = MakeFrame(static_cast<AVPixelFormat>(frame.format), frame.width, frame.height);
    av_frame_copy(copy.get(), &frame);
    av_frame_copy_props(copy.get(), &frame);
    return copy;
}

FramePtr Blank(int width, int height) {
    FramePtr canvas = MakeFrame(AV_PIX_FMT_BGRA, width, height);
    for (int y = 0; y < height; ++y) {
        uint8_t* row = canvas->data[0] + static_cast<ptrdiff_t>(y) * canvas->linesize[0];
        std::memset(row, kBackground, 4 * static_cast<size_t>(width));
        for (int x = 0; x < width; ++x) {
            row[4 * x + 3] = 255;
        }
    }
    return canvas;
}

// Tiles as wide as asked (even, for 4:2:0) with the picture's shape; a tile for the original
// and one per effect.
Grid MakeGrid(const std::vector<AvailableEffect>& effects, const GallerySettings& settings,
              int width, int height) {
    const int count = static_cast<int>(effects.size()) + 1;
    Grid grid{};
    grid.tileWidth = settings.tileWidth & ~1;
    grid.tileHeight =
        std::max(2, static_cast<int>(static_cast<int64_t>(grid.tileWidth) * height / width) & ~1);
    grid.columns = std::min(settings.columns, count);
    grid.rows = (count + grid.columns - 1) / grid.columns;
    // Labels are drawn large when the longest fits its tile.
    grid.scale = 2;
    for (const AvailableEffect& effect : effects) {
        if (TextWidth(Label(*effect.entry), 2) > grid.tileWidth) grid.scale = 1;
    }
    grid.labelHeight = (kGlyphCellHeight + 2) * grid.scale;
    return grid;
}

}  // namespace

int WriteGallery(FramePtr picture, AVColorSpace space, const GallerySettings& settings) {
    if (settings.tileWidth < 16 || settings.tileWidth > 4096) {
        Fail("the gallery tile width must be 16 to 4096 pixels");
    }
    if (settings.columns < 1 || settings.columns > 64) Fail("the gallery needs 1 to 64 columns");
    const std::vector<AvailableEffect>& effects = AvailableEffects();
    const Grid grid = MakeGrid(effects, settings, picture->width, picture->height);
    space = EffectiveColorSpace(space, picture->height);

    // Opened first, so a name FFmpeg cannot write stops the run before any work.
    OutputSettings output;
    output.path = settings.output;
    output.width = grid.Width();
    output.height = grid.Height();
    output.timeBase = {1, 1};
    output.frameRate = {1, 1};
    output.colorSpace = space;
    Encoder encoder(output);

    Scaler scaler;
    const FramePtr tile =
        scaler.Convert(std::move(picture), AV_PIX_FMT_BGRA, space, grid.tileWidth, grid.tileHeight);
    FramePtr canvas = Blank(grid.Width(), grid.Height());
    auto show = [&](int index, const AVFrame& result, const std::string& label) {
        Place(result, *canvas, grid.Left(index), grid.Top(index));
        DrawText(*canvas, grid.Left(index), grid.Top(index) + grid.tileHeight + grid.scale, label,
                 grid.scale, 0xFFFFFF);
    };
    show(0, *tile, "original");
    for (size_t i = 0; i < effects.size(); ++i) {
        const EffectDescription& entry = *effects[i].entry;
        const PropertyList showcase = catalogue::Showcase(entry, grid.tileWidth, grid.tileHeight);
        EffectChain chain(ResolveChain({{entry.name, showcase}}));
        FramePtr frame = scaler.Convert(CopyOf(*tile), FfmpegFormat(settings.layout), space);
        chain.Apply(frame, 0);
        frame = scaler.Convert(std::move(frame), AV_PIX_FMT_BGRA, space);
        show(static_cast<int>(i) + 1, *frame, Label(entry));
    }

    StreamItem item;
    item.frame = scaler.Convert(std::move(canvas), encoder.PixelFormat(), space);
    item.frame->pts = 0;
    encoder.Write(item);
    encoder.Finish();
    return static_cast<int>(effects.size());
}

}  // namespace lfx
