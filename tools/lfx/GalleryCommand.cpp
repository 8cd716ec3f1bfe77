#include <cstdio>

#include "Commands.h"
#include "Errors.h"
#include "Gallery.h"
#include "Scaler.h"
#include "Signals.h"

namespace lfx {

int RunGallery(const GalleryOptions& options) {
    ClaimOutput(options.output, options.input.path, options.overwrite);
    StopSignals stopSignals;
    std::unique_ptr<FrameSource> source = OpenSource(options.input);
    FramePtr picture;
    if (options.input.path.empty()) {
        // Half a second in, the shapes have moved off the clip's edges.
        picture = GeneratedSource(options.input.clip).Draw(options.input.clip.rate / 2);
    } else {
        StreamItem item;
        while (!item.frame) {
            if (!source->Next(item)) Fail(source->Info().name + " has no video frames");
        }
        picture = std::move(item.frame);
        const SourceInfo& info = source->Info();
        if (!info.orientation.Identity()) {
            Scaler scaler;
            picture = Orient(*scaler.Convert(std::move(picture), AV_PIX_FMT_BGRA, info.colorSpace),
                             info.orientation);
        }
    }
    GallerySettings settings;
    settings.output = options.output;
    settings.tileWidth = options.tileWidth;
    settings.columns = options.columns;
    settings.layout = options.layout.value_or(LayoutFor(source->Info().pixelFormat));
    const int shown = WriteGallery(std::move(picture), source->Info().colorSpace, settings);
    if (!options.quiet) {
        std::printf("lfx: wrote %s: %d effect%s on %s (%s)\n", options.output.c_str(), shown,
                    shown == 1 ? "" : "s", source->Info().name.c_str(),
                    LayoutName(settings.layout));
    }
    return 0;
}

}  // namespace lfx
