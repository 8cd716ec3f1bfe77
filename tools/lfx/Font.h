// A small built-in bitmap font (5x7 glyphs in 6x8 cells) for labels on BGRA pictures.
#pragma once

#include <cstdint>
#include <string>

struct AVFrame;

namespace lfx {

constexpr int kGlyphCellWidth = 6;
constexpr int kGlyphCellHeight = 8;

// Width in pixels of `text` drawn at `scale`.
int TextWidth(const std::string& text, int scale);

// Draws `text` with its top-left corner at (x, y), each font pixel a scale x scale square, in
// the colour given as 0xRRGGBB; clipped to the frame. Letters are drawn lower case; characters
// the font lacks show as '?'.
void DrawText(AVFrame& bgra, int x, int y, const std::string& text, int scale, uint32_t rgb);

}  // namespace lfx
