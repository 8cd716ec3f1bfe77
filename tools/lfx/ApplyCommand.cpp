#include <cstdio>
#include <string>

#include "Commands.h"
#include "Decoder.h"
#include "Encoder.h"
#include "Errors.h"
#include "Pipeline.h"
#include "Signals.h"

namespace lfx {

std::unique_ptr<FrameSource> OpenSource(const InputOptions& input) {
    if (input.path.empty()) return std::make_unique<GeneratedSource>(input.clip);
    return std::make_unique<FileSource>(input.path, input.autorotate);
}

int RunApply(const ApplyOptions& options) {
    const std::vector<ChainStep> steps = ResolveChain(options.effects);
    ClaimOutput(options.output, options.input.path, options.overwrite);
    // After any question on the terminal, where Ctrl-C simply ends lfx.
    StopSignals stopSignals;
    std::unique_ptr<FrameSource> source = OpenSource(options.input);
    const SourceInfo& info = source->Info();
    int width = info.width;
    int height = info.height;
    EvenSize(options.even, width, height);
    if (width < 1 || height < 1)
        FailUsage("--even crop leaves nothing of a picture one pixel wide or high");
    CheckFrameBounds(steps, width, height);
    const Layout layout = options.layout.value_or(LayoutFor(info.pixelFormat));

    OutputSettings output;
    output.path = options.output;
    output.width = width;
    output.height = height;
    output.timeBase = info.timeBase;
    output.frameRate = info.frameRate;
    output.sampleAspect = info.sampleAspect;
    output.colorSpace = info.colorSpace;
    output.sourceFormat = FfmpegFormat(layout);
    output.keepChroma = ChromaToKeep(info.pixelFormat, layout);
    output.crf = options.crf;
    output.preset = options.preset;
    output.bitRate = options.bitRate;
    output.codecOptions = options.codecOptions;
    output.audio = info.audio;
    output.audioTimeBase = info.audioTimeBase;
    output.codec = options.codec;
    Encoder encoder(output);

    PipelineSettings settings;
    settings.layout = layout;
    settings.width = width;
    settings.height = height;
    settings.workers = options.threads;
    settings.frameLimit = options.frames;
    if (encoder.IsPicture()) {
        if (options.frames > 1) {
            FailUsage("'" + options.output +
                      "' is a picture and holds one frame; write a video "
                      "(.mp4, .mkv) for more");
        }
        settings.frameLimit = 1;
    }
    int64_t total = info.frameCount;
    if (settings.frameLimit > 0 && (total < 0 || total > settings.frameLimit)) {
        total = settings.frameLimit;
    }

    Progress progress(total, !options.quiet);
    const int64_t frames = RunPipeline(*source, steps, encoder, settings, progress);
    encoder.Finish();
    progress.Finish();
    if (!options.quiet) {
        const double seconds = progress.Seconds();
        // Effects work on 8-bit samples, so deeper sources are written in 8 bits.
        const int depth = BitDepth(info.pixelFormat);
        const std::string note =
            depth > 8 ? ", the " + std::to_string(depth) + "-bit source in 8 bits" : "";
        std::printf("lfx: wrote %s: %lld frame%s %dx%d (%s, %s%s) in %.2f s, %.1f fps\n",
                    options.output.c_str(), static_cast<long long>(frames), frames == 1 ? "" : "s",
                    width, height, LayoutName(layout), encoder.Description().c_str(), note.c_str(),
                    seconds, seconds > 0 ? frames / seconds : 0.0);
    }
    return 0;
}

}  // namespace lfx
