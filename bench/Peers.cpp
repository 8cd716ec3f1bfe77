#include "Peers.h"

extern "C" {
#include <libavfilter/buffersink.h>
#include <libavfilter/buffersrc.h>
}

#include <dlfcn.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <functional>

#if PEERS_OPENCV
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#endif

#if __has_include(<frei0r.h>)
#include <frei0r.h>
#define PEERS_FREI0R 1
#endif

namespace peers {

namespace {

AVPixelFormat AvFormat(int format) {
    switch (format) {
        case MediaCore::PIXFMT_BGRA32:
            return AV_PIX_FMT_BGRA;
        case MediaCore::PIXFMT_YUV420P:
            return AV_PIX_FMT_YUV420P;
        default:
            return AV_PIX_FMT_NONE;
    }
}

AVFilterInOut* Endpoint(const char* name, AVFilterContext* filter) {
    AVFilterInOut* endpoint = avfilter_inout_alloc();
    endpoint->name = av_strdup(name);
    endpoint->filter_ctx = filter;
    endpoint->pad_idx = 0;
    endpoint->next = nullptr;
    return endpoint;
}

}  // namespace

Picture::Picture(int format, unsigned width, unsigned height, uint64_t seed)
    : frame_(av_frame_alloc()), view_(false, format, width, height, true) {
    frame_->format = AvFormat(format);
    frame_->width = static_cast<int>(width);
    frame_->height = static_cast<int>(height);
    if (av_frame_get_buffer(frame_, 64) < 0) std::abort();
    // splitmix64: fast enough to fill hundreds of megabytes of streamed frames.
    uint64_t state = seed * 0x9E3779B97F4A7C15u;
    for (unsigned i = 0; i < view_.GetBufferCount(); ++i) {
        const size_t bytes = size_t(frame_->linesize[i]) * view_.GetBuffer(i)->rows;
        for (size_t b = 0; b < bytes; b += 8) {
            uint64_t z = (state += 0x9E3779B97F4A7C15u);
            z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9u;
            z = (z ^ (z >> 27)) * 0x94D049BB133111EBu;
            z ^= z >> 31;
            std::memcpy(frame_->data[i] + b, &z, std::min<size_t>(8, bytes - b));
        }
    }
    view_.SetBuffer(frame_->data, frame_->linesize, nullptr);
}

Picture::~Picture() {
    av_frame_free(&frame_);
}

size_t Stream::Frames(int format, unsigned width, unsigned height) {
    const size_t bytes = format == MediaCore::PIXFMT_BGRA32 ? size_t{width} * height * 4
                                                            : size_t{width} * height * 3 / 2;
    return std::clamp<size_t>((kStreamBytes + bytes - 1) / bytes, 2, kStreamFrames);
}

Stream::Stream(int format, unsigned width, unsigned height, uint64_t seed) {
    const size_t frames = Frames(format, width, height);
    for (size_t i = 0; i < frames; ++i)
        pictures_.push_back(std::make_unique<Picture>(format, width, height, seed * 1000 + i));
}

void CopyFrame(const AVFrame* from, AVFrame* to) {
    av_frame_copy(to, from);
}

LavfiPeer::LavfiPeer(const std::string& chain, int format, unsigned width, unsigned height)
    : graph_(avfilter_graph_alloc()), out_(av_frame_alloc()) {
    graph_->nb_threads = 1;  // before any filter exists: it sizes the graph's thread pool
    const AVPixelFormat pixels = AvFormat(format);
    const std::string args = "video_size=" + std::to_string(width) + "x" + std::to_string(height) +
                             ":pix_fmt=" + std::to_string(pixels) +
                             ":time_base=1/25:pixel_aspect=1/1";
    if (avfilter_graph_create_filter(&source_, avfilter_get_by_name("buffer"), "in", args.c_str(),
                                     nullptr, graph_) < 0 ||
        avfilter_graph_create_filter(&sink_, avfilter_get_by_name("buffersink"), "out", nullptr,
                                     nullptr, graph_) < 0) {
        return;
    }
    AVFilterInOut* outputs = Endpoint("in", source_);
    AVFilterInOut* inputs = Endpoint("out", sink_);
    const int parsed = avfilter_graph_parse_ptr(graph_, chain.c_str(), &inputs, &outputs, nullptr);
    avfilter_inout_free(&inputs);
    avfilter_inout_free(&outputs);
    if (parsed < 0 || avfilter_graph_config(graph_, nullptr) < 0) return;
    native_ = true;
    resizes_ = av_buffersink_get_w(sink_) != static_cast<int>(width) ||
               av_buffersink_get_h(sink_) != static_cast<int>(height) ||
               av_buffersink_get_format(sink_) != pixels;
    for (unsigned i = 0; i < graph_->nb_filters; ++i) {
        // Negotiation inserts scalers named so when the chain does not take the format.
        if (std::strncmp(graph_->filters[i]->name, "auto_", 5) == 0) native_ = false;
    }
}

LavfiPeer::~LavfiPeer() {
    av_frame_free(&out_);
    avfilter_graph_free(&graph_);
}

bool LavfiPeer::Run(AVFrame* frame) {
    frame->pts = pts_++;
    // A result of another size or format cannot go round again: the frame is lent (its pixels stay
    // shared, and such filters write a new frame anyway) and the result dropped.
    if (av_buffersrc_add_frame_flags(source_, frame, resizes_ ? AV_BUFFERSRC_FLAG_KEEP_REF : 0) <
        0) {
        return false;
    }
    if (av_buffersink_get_frame(sink_, out_) < 0) return false;
    if (resizes_) {
        av_frame_unref(out_);
    } else {
        av_frame_move_ref(frame, out_);
    }
    return true;
}

#if PEERS_FREI0R
struct Frei0rPeer::Api {
    decltype(&f0r_init) init;
    decltype(&f0r_deinit) deinit;
    decltype(&f0r_get_plugin_info) pluginInfo;
    decltype(&f0r_get_param_info) paramInfo;
    decltype(&f0r_construct) construct;
    decltype(&f0r_destruct) destruct;
    decltype(&f0r_set_param_value) setParam;
    decltype(&f0r_update) update;

    bool Resolve(void* library) {
        const auto find = [library](auto& function, const char* name) {
            function =
                reinterpret_cast<std::remove_reference_t<decltype(function)>>(dlsym(library, name));
            return function != nullptr;
        };
        return find(init, "f0r_init") && find(deinit, "f0r_deinit") &&
               find(pluginInfo, "f0r_get_plugin_info") && find(paramInfo, "f0r_get_param_info") &&
               find(construct, "f0r_construct") && find(destruct, "f0r_destruct") &&
               find(setParam, "f0r_set_param_value") && find(update, "f0r_update");
    }
};

Frei0rPeer::Frei0rPeer(const std::string& plugin, const Params& params, unsigned width,
                       unsigned height)
    : api_(std::make_unique<Api>()) {
    for (const std::string& directory : Frei0rDirectories()) {
        library_ = dlopen((directory + "/" + plugin + ".so").c_str(), RTLD_NOW | RTLD_LOCAL);
        if (library_ != nullptr) break;
    }
    if (library_ == nullptr || !api_->Resolve(library_) || api_->init() == 0) return;
    f0r_plugin_info_t info{};
    api_->pluginInfo(&info);
    if (info.plugin_type != F0R_PLUGIN_TYPE_FILTER) return;
    instance_ = api_->construct(width, height);
    for (const auto& [name, value] : params) {
        int index = info.num_params - 1;
        for (; index >= 0; --index) {
            f0r_param_info_t param{};
            api_->paramInfo(&param, index);
            if (name == param.name) break;
        }
        if (index < 0 || instance_ == nullptr) {
            Release();
            return;
        }
        double v = value;
        api_->setParam(instance_, &v, index);
    }
}

void Frei0rPeer::Release() {
    if (instance_ != nullptr) api_->destruct(instance_);
    instance_ = nullptr;
}

void Frei0rPeer::Run(const uint32_t* in, uint32_t* out) {
    api_->update(instance_, time_, in, out);
    time_ += 0.04;
}

Frei0rPeer::~Frei0rPeer() {
    Release();
    if (library_ != nullptr) {
        if (api_->deinit != nullptr) api_->deinit();
        dlclose(library_);
    }
}
#else
struct Frei0rPeer::Api {};
Frei0rPeer::Frei0rPeer(const std::string&, const Params&, unsigned, unsigned) {}
Frei0rPeer::~Frei0rPeer() = default;
void Frei0rPeer::Release() {}
void Frei0rPeer::Run(const uint32_t*, uint32_t*) {}
#endif

#if PEERS_OPENCV
struct OpenCvPeer::Work {
    std::string calls;
    std::function<void(std::vector<cv::Mat>&)> run;
    int format;
};

namespace {

using Planes = std::vector<cv::Mat>;
using Work = std::function<void(Planes&)>;

// A 4x4 colour matrix over B, G, R, A whose alpha row keeps alpha.
cv::Mat ColourMatrix(std::initializer_list<float> bgr) {
    cv::Mat m = cv::Mat::zeros(4, 4, CV_32F);
    auto v = bgr.begin();
    for (int r = 0; r < 3; ++r) {
        for (int c = 0; c < 3; ++c)
            m.at<float>(r, c) = *v++;
    }
    m.at<float>(3, 3) = 1;
    return m;
}

// Rows are output B, G, R; columns input B, G, R.
cv::Mat Gray() {
    return ColourMatrix({.114f, .587f, .299f, .114f, .587f, .299f, .114f, .587f, .299f});
}
cv::Mat Sepia() {
    return ColourMatrix({.131f, .534f, .272f, .168f, .686f, .349f, .189f, .769f, .393f});
}
cv::Mat Saturation(float s) {
    const float b = .114f * (1 - s), g = .587f * (1 - s), r = .299f * (1 - s);
    return ColourMatrix({b + s, g, r, b, g + s, r, b, g, r + s});
}

// Brightness +20%, then contrast 1.4 about the middle, on every colour byte; alpha kept.
cv::Mat BrightnessLut(int channels) {
    cv::Mat lut(1, 256, CV_8UC(channels));
    for (int i = 0; i < 256; ++i) {
        const auto v = cv::saturate_cast<uint8_t>((i + 51 - 128) * 1.4 + 128);
        for (int c = 0; c < channels; ++c)
            lut.ptr<uint8_t>()[i * channels + c] = c == 3 ? uint8_t(i) : v;
    }
    return lut;
}

cv::Mat Kernel(std::initializer_list<float> values) {
    cv::Mat k(3, 3, CV_32F);
    std::copy(values.begin(), values.end(), k.ptr<float>());
    return k;
}

// Noise drawn once, as our grain is: 0..15 on every colour byte, alpha untouched.
cv::Mat Noise(const cv::Mat& like) {
    cv::Mat noise(like.size(), like.type());
    cv::randu(noise, 0, 16);
    if (like.channels() == 4) {
        const int fromTo[] = {0, 3};
        const cv::Mat zero = cv::Mat::zeros(like.size(), CV_8U);
        cv::mixChannels(&zero, 1, &noise, 1, fromTo, 1);
    }
    return noise;
}

std::pair<std::string, Work> EachPlane(const char* calls, std::function<void(cv::Mat&)> f) {
    return {calls, [f](Planes& planes) {
                for (cv::Mat& p : planes)
                    f(p);
            }};
}

// The works by name; an empty result has no form for the format.
std::pair<std::string, Work> MakeWork(const std::string& name, const Planes& planes, bool bgra) {
    if (name == "invert") {
        if (bgra) {
            return {"bitwise_xor with (255,255,255,0)",
                    [](Planes& p) { cv::bitwise_xor(p[0], cv::Scalar(255, 255, 255, 0), p[0]); }};
        }
        return EachPlane("bitwise_not", [](cv::Mat& p) { cv::bitwise_not(p, p); });
    }
    if (name == "gray") {
        if (bgra) {
            return {"transform (gray matrix)",
                    [m = Gray()](Planes& p) { cv::transform(p[0], p[0], m); }};
        }
        return {"setTo(128) on U and V", [](Planes& p) {
                    p[1].setTo(128);
                    p[2].setTo(128);
                }};
    }
    if (name == "flip-color" && bgra) {
        return {"cvtColor BGRA2RGBA",
                [](Planes& p) { cv::cvtColor(p[0], p[0], cv::COLOR_BGRA2RGBA); }};
    }
    if (name == "sepia" && bgra) {
        return {"transform (sepia matrix)",
                [m = Sepia()](Planes& p) { cv::transform(p[0], p[0], m); }};
    }
    if (name == "brightness") {
        return {"LUT", [lut = BrightnessLut(planes[0].channels())](Planes& p) {
                    cv::LUT(p[0], lut, p[0]);
                }};
    }
    if (name == "contrast") {
        return {"convertTo (x1.4, -51)", [](Planes& p) { p[0].convertTo(p[0], -1, 1.4, -51); }};
    }
    if (name == "saturation") {
        if (bgra) {
            return {"transform (saturation matrix)",
                    [m = Saturation(1.6f)](Planes& p) { cv::transform(p[0], p[0], m); }};
        }
        return {"convertTo on U and V", [](Planes& p) {
                    p[1].convertTo(p[1], -1, 1.6, -76.8);
                    p[2].convertTo(p[2], -1, 1.6, -76.8);
                }};
    }
    if (name == "eq") {
        if (bgra) {
            return {"LUT + transform (saturation matrix)",
                    [lut = BrightnessLut(4), m = Saturation(1.6f)](Planes& p) {
                        cv::LUT(p[0], lut, p[0]);
                        cv::transform(p[0], p[0], m);
                    }};
        }
        return {"LUT on Y, convertTo on U and V", [lut = BrightnessLut(1)](Planes& p) {
                    cv::LUT(p[0], lut, p[0]);
                    p[1].convertTo(p[1], -1, 1.6, -76.8);
                    p[2].convertTo(p[2], -1, 1.6, -76.8);
                }};
    }
    if (name == "mirror") return EachPlane("flip (y axis)", [](cv::Mat& p) { cv::flip(p, p, 1); });
    if (name == "vflip") return EachPlane("flip (x axis)", [](cv::Mat& p) { cv::flip(p, p, 0); });
    if (name == "rotate180") {
        return EachPlane("flip (both axes)", [](cv::Mat& p) { cv::flip(p, p, -1); });
    }
    if (name == "blur") {
        return EachPlane("GaussianBlur 3x3", [](cv::Mat& p) {
            cv::GaussianBlur(p, p, cv::Size(3, 3), 0, 0, cv::BORDER_REPLICATE);
        });
    }
    if (name == "sharpen" || name == "emboss") {
        const cv::Mat k = name == "sharpen" ? Kernel({-1, -1, -1, -1, 9, -1, -1, -1, -1})
                                            : Kernel({-2, -1, 0, -1, 1, 1, 0, 1, 2});
        return EachPlane("filter2D 3x3", [k](cv::Mat& p) {
            cv::filter2D(p, p, -1, k, cv::Point(-1, -1), 0, cv::BORDER_REPLICATE);
        });
    }
    if (name == "mosaic") {
        return EachPlane(
            "resize nearest to 1/16 and back", [small = cv::Mat()](cv::Mat& p) mutable {
                cv::resize(p, small, cv::Size(p.cols / 16, p.rows / 16), 0, 0, cv::INTER_NEAREST);
                cv::resize(small, p, p.size(), 0, 0, cv::INTER_NEAREST);
            });
    }
    if (name == "transparency" && bgra) {
        return {"multiply by (1,1,1,0.4)",
                [](Planes& p) { cv::multiply(p[0], cv::Scalar(1, 1, 1, 0.4), p[0]); }};
    }
    if (name == "colorkey" && bgra) {
        return {"inRange + setTo", [mask = cv::Mat()](Planes& p) mutable {
                    cv::inRange(p[0], cv::Scalar(207, 207, 207, 0), cv::Scalar(255, 255, 255, 255),
                                mask);
                    p[0].setTo(cv::Scalar(0, 0, 0, 0), mask);
                }};
    }
    if (name == "grain") {
        return {bgra ? "addWeighted of a drawn noise frame" : "addWeighted of drawn noise on Y",
                [noise = Noise(planes[0])](Planes& p) {
                    cv::addWeighted(p[0], 120 / 256.0, noise, 1, 0, p[0]);
                }};
    }
    if (name == "rotate90") {
        // Scaled so the quarter-turned picture fits the frame's height, turned into the middle,
        // black bars either side: resize, then rotate into the frame, then setTo on the bars.
        return EachPlane("resize + rotate + setTo (bars)", [small = cv::Mat()](cv::Mat& p) mutable {
            const int fitted = (p.rows * p.rows / p.cols + 1) & ~1, x = (p.cols - fitted) / 2;
            cv::resize(p, small, cv::Size(p.rows, fitted), 0, 0, cv::INTER_LINEAR);
            cv::Mat middle = p.colRange(x, x + fitted);
            cv::rotate(small, middle, cv::ROTATE_90_CLOCKWISE);
            p.colRange(0, x).setTo(0);
            p.colRange(x + fitted, p.cols).setTo(0);
        });
    }
    return {};
}

Planes Wrap(AVFrame* frame) {
    if (frame->format == AV_PIX_FMT_BGRA)
        return {cv::Mat(frame->height, frame->width, CV_8UC4, frame->data[0], frame->linesize[0])};
    const int cw = (frame->width + 1) / 2, ch = (frame->height + 1) / 2;
    return {cv::Mat(frame->height, frame->width, CV_8UC1, frame->data[0], frame->linesize[0]),
            cv::Mat(ch, cw, CV_8UC1, frame->data[1], frame->linesize[1]),
            cv::Mat(ch, cw, CV_8UC1, frame->data[2], frame->linesize[2])};
}

}  // namespace

OpenCvPeer::OpenCvPeer(const std::string& work, int format, unsigned width, unsigned height) {
    if (AvFormat(format) == AV_PIX_FMT_NONE) return;
    Picture shape(format, width, height);
    auto [calls, run] = MakeWork(work, Wrap(shape.Frame()), format == MediaCore::PIXFMT_BGRA32);
    if (run) work_.reset(new Work{std::move(calls), std::move(run), format});
}

std::string OpenCvPeer::Calls() const {
    return work_ ? work_->calls : std::string();
}

void OpenCvPeer::Run(AVFrame* frame) {
    Planes planes = Wrap(frame);
    work_->run(planes);
}

void OpenCvPeer::SetThreads(int threads) {
    cv::setNumThreads(threads > 0 ? threads : -1);
}

bool OpenCvPeer::Built() {
    return true;
}
#else
struct OpenCvPeer::Work {};
OpenCvPeer::OpenCvPeer(const std::string&, int, unsigned, unsigned) {}
std::string OpenCvPeer::Calls() const {
    return {};
}
void OpenCvPeer::Run(AVFrame*) {}
void OpenCvPeer::SetThreads(int) {}
bool OpenCvPeer::Built() {
    return false;
}
#endif

OpenCvPeer::~OpenCvPeer() = default;

std::vector<std::string> Frei0rDirectories() {
    std::vector<std::string> directories;
    if (const char* path = std::getenv("FREI0R_PATH")) {
        std::string list = path;
        for (size_t start = 0, end; start <= list.size(); start = end + 1) {
            end = list.find(':', start);
            if (end == std::string::npos) end = list.size();
            if (end > start) directories.push_back(list.substr(start, end - start));
        }
    }
    for (const char* directory :
         {"/usr/lib/frei0r-1", "/usr/lib/x86_64-linux-gnu/frei0r-1", "/usr/local/lib/frei0r-1"}) {
        directories.push_back(directory);
    }
    return directories;
}

}  // namespace peers
