// One picture with every available effect applied to the same frame, in a labelled grid.
#pragma once

#include <string>

#include "Ffmpeg.h"
#include "Layout.h"

namespace lfx {

struct GallerySettings {
    std::string output;
    int tileWidth = 320;
    int columns = 4;
    Layout layout = Layout::Bgra;  // the layout effects work in
};

// Writes the gallery of `picture` (any format FFmpeg frames come in); `space` is its YUV
// matrix. Returns the number of effects shown. Throws a UserError.
int WriteGallery(FramePtr picture, AVColorSpace space, const GallerySettings& settings);

}  // namespace lfx
