// The plug-in's entry point: one element per effect the library describes and this build makes.
#include <gst/gst.h>

#include "EffectElement.h"

namespace {

gboolean PluginInit(GstPlugin* plugin) {
    bool registered = false;
    for (const catalogue::EffectDescription* effect : catalogue::Effects()) {
        if (gst_adapter::RegisterElement(plugin, *effect)) registered = true;
    }
    return registered ? TRUE : FALSE;
}

}  // namespace

#define PACKAGE "libfilter"
GST_PLUGIN_DEFINE(GST_VERSION_MAJOR, GST_VERSION_MINOR, libfilter,
                  "libfilter's video effects, one element per effect", PluginInit, LF_VERSION,
                  GST_LICENSE_UNKNOWN, "libfilter", "libfilter")
