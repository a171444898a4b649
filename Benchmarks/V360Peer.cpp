#include "Benchmarks/V360Peer.h"

#include <format>
#include <stdexcept>

extern "C" {
#include <libavfilter/avfilter.h>
#include <libavfilter/buffersink.h>
#include <libavfilter/buffersrc.h>
#include <libavutil/frame.h>
}

namespace panoveer::bench {

namespace {

void require(int result, const char* what) {
    if (result < 0)
        throw std::runtime_error(std::string("v360: ") + what);
}

struct FreeGraph {
    void operator()(AVFilterGraph* graph) const { avfilter_graph_free(&graph); }
};

struct FreeFrame {
    void operator()(AVFrame* frame) const { av_frame_free(&frame); }
};

} // namespace

struct V360Peer::State {
    std::unique_ptr<AVFilterGraph, FreeGraph> graph{avfilter_graph_alloc()};
    std::unique_ptr<AVFrame, FreeFrame> frame{av_frame_alloc()};
    std::unique_ptr<AVFrame, FreeFrame> result{av_frame_alloc()};
    AVFilterContext* source = nullptr; // owned by graph
    AVFilterContext* sink = nullptr;   // owned by graph
    std::int64_t next = 0;
};

V360Peer::V360Peer(int width, int height, const std::string& options) : state_(std::make_unique<State>()) {
    auto& state = *state_;
    const auto arguments = std::format("video_size={}x{}:pix_fmt={}:time_base=1/30:pixel_aspect=1/1", width, height,
                                       int(AV_PIX_FMT_YUV420P));
    require(avfilter_graph_create_filter(&state.source, avfilter_get_by_name("buffer"), "in", arguments.c_str(),
                                         nullptr, state.graph.get()),
            "no source");
    require(avfilter_graph_create_filter(&state.sink, avfilter_get_by_name("buffersink"), "out", nullptr, nullptr,
                                         state.graph.get()),
            "no sink");
    AVFilterContext* filter = nullptr;
    require(avfilter_graph_create_filter(&filter, avfilter_get_by_name("v360"), "v360", options.c_str(), nullptr,
                                         state.graph.get()),
            "options refused");
    require(avfilter_link(state.source, 0, filter, 0), "link");
    require(avfilter_link(filter, 0, state.sink, 0), "link");
    require(avfilter_graph_config(state.graph.get(), nullptr), "configuration");

    auto* frame = state.frame.get();
    frame->format = AV_PIX_FMT_YUV420P;
    frame->width = width;
    frame->height = height;
    require(av_frame_get_buffer(frame, 0), "memory");
    for (int plane = 0; plane < 3; ++plane)
        for (int y = 0; y < (plane == 0 ? height : height / 2); ++y)
            for (int x = 0; x < (plane == 0 ? width : width / 2); ++x)
                frame->data[plane][y * frame->linesize[plane] + x] = std::uint8_t(16 + (x * 7 + y * 13) % 220);
}

V360Peer::~V360Peer() = default;

void V360Peer::renderFrame() {
    auto& state = *state_;
    state.frame->pts = state.next++;
    require(av_buffersrc_add_frame_flags(state.source, state.frame.get(), AV_BUFFERSRC_FLAG_KEEP_REF), "push");
    require(av_buffersink_get_frame(state.sink, state.result.get()), "pull");
    av_frame_unref(state.result.get());
}

} // namespace panoveer::bench
