#include "Cli.h"

#include <CLI/CLI.hpp>
#include <cstdio>
#include <cstdlib>
#include <new>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/log.h>
#include <libswscale/swscale.h>
}

#include "Commands.h"
#include "Errors.h"
#include "Signals.h"
#include "catalogue/ReportSink.h"

namespace lfx {

namespace {

const char* const kLayoutHelp =
    "pixel layout the effects work in: bgra (packed B, G, R, A) or yuv420p (planar 4:2:0); by "
    "default yuv420p for 4:2:0 video and bgra for RGB pictures and 4:2:2/4:4:4 sources";

struct CommonFlags {
    bool quiet = false;
    bool verbose = false;
    bool overwrite = false;
    bool keep = false;

    Overwrite OverwritePolicy() const {
        return overwrite ? Overwrite::Always : keep ? Overwrite::Never : Overwrite::Ask;
    }
};

void AddCommonFlags(CLI::App& command, CommonFlags& flags) {
    command.add_flag("-q,--quiet", flags.quiet, "print nothing but errors");
    command.add_flag("-v,--verbose", flags.verbose, "show FFmpeg's own warnings");
    CLI::Option* yes = command.add_flag("-y,--overwrite", flags.overwrite,
                                        "replace an existing output without asking");
    command
        .add_flag("-n,--no-overwrite", flags.keep,
                  "never replace an existing output (without -y or -n lfx asks on a terminal "
                  "and refuses otherwise)")
        ->excludes(yes);
}

// Options of the input: a file, or the generated clip and its shape.
struct InputFlags {
    std::string path;
    std::string size;
    double seconds = 0;
    int rate = 0;
    bool keepOrientation = false;
};

void AddInputFlags(CLI::App& command, InputFlags& flags) {
    command.add_option("-i,--input", flags.path,
                       "picture or video to read (default: a generated 1280x720 clip of 3 s at "
                       "25 fps)");
    command.add_option("--size", flags.size, "size of the generated clip, WIDTHxHEIGHT");
    command.add_option("--seconds", flags.seconds, "length of the generated clip in seconds")
        ->check(CLI::Range(0.01, 3600.0));
    command.add_option("--rate", flags.rate, "frames a second of the generated clip")
        ->check(CLI::Range(1, 1000));
    command.add_flag("--no-autorotate", flags.keepOrientation,
                     "keep the stored orientation of a video its display matrix says to turn "
                     "(phone videos); by default frames are turned upright first");
}

InputOptions ToInput(const InputFlags& flags) {
    InputOptions input;
    input.path = flags.path;
    input.autorotate = !flags.keepOrientation;
    const bool shaped = !flags.size.empty() || flags.seconds > 0 || flags.rate > 0;
    if (!input.path.empty() && shaped) {
        FailUsage("--size, --seconds and --rate shape the generated clip; leave them out with -i");
    }
    if (!flags.size.empty()) {
        char rest = 0;
        if (std::sscanf(flags.size.c_str(), "%dx%d%c", &input.clip.width, &input.clip.height,
                        &rest) != 2) {
            FailUsage("--size wants WIDTHxHEIGHT such as 640x360, not '" + flags.size + "'");
        }
    }
    if (flags.seconds > 0) input.clip.seconds = flags.seconds;
    if (flags.rate > 0) input.clip.rate = flags.rate;
    return input;
}

std::optional<Layout> ToLayout(const std::string& name) {
    if (name.empty()) return {};
    return name == "yuv420p" ? Layout::Yuv420p : Layout::Bgra;
}

// "key=value" split at its first '='; throws a UsageError naming `option` otherwise.
std::pair<std::string, std::string> KeyValue(const std::string& option, const std::string& text) {
    const size_t equals = text.find('=');
    if (equals == std::string::npos || equals == 0) {
        FailUsage(option + " wants key=value, not '" + text + "'");
    }
    return {text.substr(0, equals), text.substr(equals + 1)};
}

// Bits a second from "4M", "800k" or "2500000".
int64_t ToBitRate(const std::string& text) {
    char* end = nullptr;
    const double number = std::strtod(text.c_str(), &end);
    const std::string suffix = end;
    const double scale = suffix == "k" || suffix == "K" ? 1e3
                         : suffix == "M"                ? 1e6
                         : suffix == "G"                ? 1e9
                         : suffix.empty()               ? 1
                                                        : 0;
    if (end == text.c_str() || scale == 0 || !(number > 0) || number * scale > 1e12) {
        FailUsage("--bitrate wants bits a second such as 4M, 800k or 2500000, not '" + text + "'");
    }
    return static_cast<int64_t>(number * scale);
}

// Pairs each -p with the -e before it, in the order they were given.
std::vector<EffectRequest> ToEffects(const CLI::App& command, const CLI::Option* effectOption,
                                     const std::vector<std::string>& effects,
                                     const CLI::Option* propertyOption,
                                     const std::vector<std::string>& properties) {
    std::vector<EffectRequest> requests;
    size_t nextEffect = 0;
    size_t nextProperty = 0;
    for (const CLI::Option* option : command.parse_order()) {
        if (option == effectOption && nextEffect < effects.size()) {
            requests.push_back({effects[nextEffect++], {}});
        } else if (option == propertyOption && nextProperty < properties.size()) {
            const std::string& text = properties[nextProperty++];
            if (requests.empty()) FailUsage("-p " + text + " must follow the -e it sets");
            requests.back().properties.push_back(KeyValue("-p", text));
        }
    }
    return requests;
}

std::string VersionText() {
    const auto version = [](unsigned number) {
        return std::to_string(AV_VERSION_MAJOR(number)) + "." +
               std::to_string(AV_VERSION_MINOR(number)) + "." +
               std::to_string(AV_VERSION_MICRO(number));
    };
    return std::string("lfx ") + LFX_VERSION + " (libavformat " + version(avformat_version()) +
           ", libavcodec " + version(avcodec_version()) + ", libswscale " +
           version(swscale_version()) + ")";
}

std::string FailureLine(const CLI::App*, const CLI::Error& error) {
    return std::string("lfx: ") + error.what() + "\n";
}

}  // namespace

int RunCli(int argc, char** argv) {
    CLI::App app{"Runs libfilter's effects on pictures and video.", "lfx"};
    app.require_subcommand(1);
    app.set_version_flag("--version", VersionText());
    app.footer(
        "Exit codes: 0 done, 1 the work failed (a file could not be read or written), 2 the "
        "command line is wrong, 128+N stopped by signal N (130 for Ctrl-C).");
    app.failure_message(FailureLine);

    CommonFlags common;
    std::string listName;
    CLI::App* list = app.add_subcommand(
        "list", "List the effects this build can run, with their properties and defaults.");
    list->add_option("effect", listName, "one effect, by name or id");

    InputFlags applyInput;
    ApplyOptions apply;
    std::string applyLayout;
    std::string bitRate;
    std::vector<std::string> codecOptions;
    std::string evenName;
    std::vector<std::string> effects;
    std::vector<std::string> properties;
    CLI::App* applyCommand = app.add_subcommand(
        "apply",
        "Run a chain of effects on every frame of a picture or video and encode the result "
        "by the output's extension (.png/.jpg: one picture; .mp4/.mkv: H.264 video, audio "
        "copied).");
    AddInputFlags(*applyCommand, applyInput);
    applyCommand->add_option("-o,--output", apply.output, "file to write")->required();
    CLI::Option* effectOption = applyCommand
                                    ->add_option("-e,--effect", effects,
                                                 "effect to run, by name or id (repeat "
                                                 "for a chain; lfx list names them)")
                                    ->type_size(1)
                                    ->allow_extra_args(false);
    CLI::Option* propertyOption =
        applyCommand
            ->add_option("-p,--property", properties,
                         "property=value for the -e before it (repeat for more)")
            ->type_size(1)
            ->allow_extra_args(false);
    applyCommand->add_option("--format", applyLayout, kLayoutHelp)
        ->check(CLI::IsMember({"bgra", "yuv420p"}));
    applyCommand->add_option("--frames", apply.frames, "stop after this many frames (1 or more)")
        ->check(CLI::Validator(
            [](const std::string& text) {
                return std::atoll(text.c_str()) >= 1 ? "" : "wants a count of 1 or more";
            },
            "COUNT"));
    applyCommand
        ->add_option("--threads", apply.threads,
                     "effect-chain workers, each with its own effects; frames keep their order "
                     "(codecs pick their own threads)")
        ->check(CLI::Range(1, 64));
    applyCommand
        ->add_option("--even", evenName,
                     "crop: drop, pad: repeat the last column or row of an odd-sized picture "
                     "for encoders that need an even size (H.264 in 4:2:0)")
        ->check(CLI::IsMember({"crop", "pad"}));
    applyCommand->add_option("--codec", apply.codec,
                             "video encoder to use, such as libx264, ffv1 or mpeg4");
    applyCommand
        ->add_option("--crf", apply.crf,
                     "constant quality of libx264 and the like, lower is better (lfx's default for "
                     "libx264: 20)")
        ->check(CLI::Range(0, 63));
    applyCommand->add_option("--preset", apply.preset,
                             "encoder speed preset, such as ultrafast .. veryslow for libx264 "
                             "(lfx's default: fast)");
    applyCommand->add_option("--bitrate", bitRate,
                             "target bits a second, such as 4M or 800k, instead of a quality");
    applyCommand
        ->add_option("--codec-opt", codecOptions,
                     "key=value option of the encoder, as ffmpeg -h encoder=NAME lists them "
                     "(repeat for more)")
        ->type_size(1)
        ->allow_extra_args(false);
    AddCommonFlags(*applyCommand, common);

    InputFlags galleryInput;
    GalleryOptions gallery;
    std::string galleryLayout;
    CLI::App* galleryCommand = app.add_subcommand(
        "gallery", "Write one picture with every effect applied to the same frame, labelled.");
    AddInputFlags(*galleryCommand, galleryInput);
    galleryCommand->add_option("-o,--output", gallery.output, "picture to write (.png, .jpg)")
        ->required();
    galleryCommand->add_option("--format", galleryLayout, kLayoutHelp)
        ->check(CLI::IsMember({"bgra", "yuv420p"}));
    galleryCommand->add_option("--tile-width", gallery.tileWidth, "width of each picture")
        ->check(CLI::Range(16, 4096));
    galleryCommand->add_option("--columns", gallery.columns, "pictures a row")
        ->check(CLI::Range(1, 64));
    AddCommonFlags(*galleryCommand, common);

    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        // --help and --version end here too, with 0.
        return app.exit(error) == 0 ? 0 : kExitUsage;
    }

    av_log_set_level(common.verbose ? AV_LOG_WARNING : AV_LOG_QUIET);
    // Reports go to lfx, which words them for the person; probing for effects stays silent.
    catalogue::ReportSink sink;
    try {
        if (list->parsed()) return RunList(listName);
        if (applyCommand->parsed()) {
            apply.input = ToInput(applyInput);
            apply.layout = ToLayout(applyLayout);
            apply.even = evenName.empty()     ? Even::Refuse
                         : evenName == "crop" ? Even::Crop
                                              : Even::Pad;
            if (!bitRate.empty()) apply.bitRate = ToBitRate(bitRate);
            for (const std::string& option : codecOptions)
                apply.codecOptions.push_back(KeyValue("--codec-opt", option));
            apply.quiet = common.quiet;
            apply.overwrite = common.OverwritePolicy();
            apply.effects =
                ToEffects(*applyCommand, effectOption, effects, propertyOption, properties);
            return RunApply(apply);
        }
        gallery.input = ToInput(galleryInput);
        gallery.layout = ToLayout(galleryLayout);
        gallery.quiet = common.quiet;
        gallery.overwrite = common.OverwritePolicy();
        return RunGallery(gallery);
    } catch (const Interrupted& error) {
        std::fprintf(stderr, "lfx: %s\n", error.what());
        return 128 + error.Signal();
    } catch (const UsageError& error) {
        std::fprintf(stderr, "lfx: %s\n", error.what());
        return kExitUsage;
    } catch (const UserError& error) {
        std::fprintf(stderr, "lfx: %s\n", error.what());
    } catch (const std::bad_alloc&) {
        std::fprintf(stderr, "lfx: out of memory\n");
    } catch (const std::exception& error) {
        std::fprintf(stderr, "lfx: %s\n", error.what());
    }
    return kExitFailure;
}

}  // namespace lfx
