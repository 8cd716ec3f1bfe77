// The raw video formats the elements offer, how their planes become a library frame, and which
// of them each effect works on.
#pragma once

#include <gst/video/video.h>

#include <vector>

#include "catalogue/Catalogue.h"
#include "libfilter/CVideoFrame.h"

namespace gst_adapter {

// The library's pixel format for a GStreamer format, or -1 when the library has none for it.
int LibraryFormat(GstVideoFormat format);

// Points `view` (made for the frame's library format) at the frame's planes: luma, the two
// chroma planes in U, V order whatever their order in memory, then alpha. The view takes the
// size of the picture the frame maps.
void Attach(GstVideoFrame& frame, MediaCore::CVideoFrame& view);

// The formats on which the effect, set as its showcase says, changes a frame: the formats it
// takes. The library leaves the others untouched, so offering them would only hide a conversion
// the pipeline should make where it is cheapest.
std::vector<GstVideoFormat> FormatsTakenBy(const catalogue::EffectDescription& effect);

}  // namespace gst_adapter
