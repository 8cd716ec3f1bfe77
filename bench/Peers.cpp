#include "Peers.h"

extern "C" {
#include <libavfilter/buffersink.h>
#include <libavfilter/buffersrc.h>
}

#include <dlfcn.h>

#include <cstdlib>
#include <cstring>
#include <random>

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

Picture::Picture(int format, unsigned width, unsigned height)
    : frame_(av_frame_alloc()), view_(false, format, width, height, true) {
    frame_->format = AvFormat(format);
    frame_->width = static_cast<int>(width);
    frame_->height = static_cast<int>(height);
    if (av_frame_get_buffer(frame_, 64) < 0) std::abort();
    std::mt19937 random(1);
    for (unsigned i = 0; i < view_.GetBufferCount(); ++i) {
        const size_t bytes = size_t(frame_->linesize[i]) * view_.GetBuffer(i)->rows;
        for (size_t b = 0; b < bytes; ++b)
            frame_->data[i][b] = static_cast<uint8_t>(random());
    }
    view_.SetBuffer(frame_->data, frame_->linesize, nullptr);
}

Picture::~Picture() {
    av_frame_free(&frame_);
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
