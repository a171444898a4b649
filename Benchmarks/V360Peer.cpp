#include "Benchmarks/V360Peer.h"

#include <algorithm>
#include <cstdint>
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

// The filter knows no interleaved chroma.
void copyPlanes(const PixelBuffer& source, AVFrame& frame) {
    const auto row = [](const PixelPlane& plane, int y) {
        return reinterpret_cast<const std::uint8_t*>(plane.data + std::size_t(y) * plane.rowBytes);
    };
    const auto& luma = source.plane(0);
    for (int y = 0; y < luma.height; ++y)
        std::copy_n(row(luma, y), luma.width, frame.data[0] + y * frame.linesize[0]);
    const auto& chroma = source.plane(1);
    for (int plane = 1; plane < 3 && frame.data[plane]; ++plane)
        for (int y = 0; y < chroma.height; ++y)
            for (int x = 0; x < chroma.width; ++x)
                frame.data[plane][y * frame.linesize[plane] + x] = row(chroma, y)[2 * x + plane - 1];
}

} // namespace

struct V360Peer::State {
    std::unique_ptr<AVFilterGraph, FreeGraph> graph{avfilter_graph_alloc()};
    std::unique_ptr<AVFrame, FreeFrame> frame{av_frame_alloc()};
    std::unique_ptr<AVFrame, FreeFrame> result{av_frame_alloc()};
    AVFilterContext* source = nullptr; // owned by graph
    AVFilterContext* sink = nullptr;   // owned by graph
    std::int64_t next = 0;
};

V360Peer::V360Peer(const PixelBuffer& source, const std::string& options, Planes planes)
    : state_(std::make_unique<State>()) {
    auto& state = *state_;
    const auto format = planes == Planes::lumaOnly ? AV_PIX_FMT_GRAY8 : AV_PIX_FMT_YUV420P;
    const auto arguments = std::format("video_size={}x{}:pix_fmt={}:time_base=1/30:pixel_aspect=1/1", source.width(),
                                       source.height(), int(format));
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
    frame->format = format;
    frame->width = source.width();
    frame->height = source.height();
    require(av_frame_get_buffer(frame, 0), "memory");
    copyPlanes(source, *frame);
}

V360Peer::~V360Peer() = default;

PixelPlane V360Peer::render() {
    auto& state = *state_;
    av_frame_unref(state.result.get());
    state.frame->pts = state.next++;
    require(av_buffersrc_add_frame_flags(state.source, state.frame.get(), AV_BUFFERSRC_FLAG_KEEP_REF), "push");
    require(av_buffersink_get_frame(state.sink, state.result.get()), "pull");
    const auto& result = *state.result;
    return {reinterpret_cast<std::byte*>(result.data[0]), std::size_t(result.linesize[0]), result.width, result.height};
}

} // namespace panoveer::bench
