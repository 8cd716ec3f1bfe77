// One GStreamer element type per effect, made from the effect's own description: a video filter
// that runs the effect in place, with a GObject property for each of the effect's properties.
#pragma once

#include <gst/gst.h>

#include <string>

#include "catalogue/Catalogue.h"

namespace gst_adapter {

// "libfilter-" and the effect's short name as `lfx list` prints it: "libfilter-mosaic".
std::string ElementName(const catalogue::EffectDescription& effect);

// Registers the effect's element with the plug-in; false when this build cannot run the effect
// or it takes none of the formats the elements offer.
bool RegisterElement(GstPlugin* plugin, const catalogue::EffectDescription& effect);

}  // namespace gst_adapter
