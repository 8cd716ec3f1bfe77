// The three subcommands, with their options already parsed.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "EffectChain.h"
#include "Fit.h"
#include "Generator.h"
#include "Layout.h"
#include "Source.h"
#include "TempFile.h"

namespace lfx {

struct InputOptions {
    std::string path;        // empty: the generated clip
    ClipSettings clip;       // for the generated clip
    bool autorotate = true;  // turn frames upright as the file's display matrix says
};

struct ApplyOptions {
    InputOptions input;
    std::string output;
    std::vector<EffectRequest> effects;
    std::optional<Layout> layout;  // none: the source's own (LayoutFor)
    int64_t frames = -1;
    int threads = 1;
    std::string codec;
    int crf = -1;
    std::string preset;
    int64_t bitRate = 0;
    std::vector<std::pair<std::string, std::string>> codecOptions;
    Even even = Even::Refuse;  // what to do with an odd size an encoder refuses
    bool quiet = false;
    Overwrite overwrite = Overwrite::Ask;
};

struct GalleryOptions {
    InputOptions input;
    std::string output;
    std::optional<Layout> layout;
    int tileWidth = 320;
    int columns = 4;
    bool quiet = false;
    Overwrite overwrite = Overwrite::Ask;
};

// Each prints what it made (unless quiet) and returns the exit code; throws a UserError.
int RunList(const std::string& name);
int RunApply(const ApplyOptions& options);
int RunGallery(const GalleryOptions& options);

// The file, or the generated clip when no path is given.
std::unique_ptr<FrameSource> OpenSource(const InputOptions& input);

}  // namespace lfx
