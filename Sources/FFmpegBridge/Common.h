#pragma once

// Shared by the bridge's sources only.

#include "FFmpegBridge/FFmpegBridge.h"

#include <atomic>
#include <cstdint>
#include <limits>
#include <memory>
#include <type_traits>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/frame.h>
#include <libswresample/swresample.h>
#include <libswscale/swscale.h>
}

// Most of FFmpeg's objects are freed through a pointer to the pointer; the others take the pointer itself.
template<auto function>
struct FreeWith {
    template<class T>
    void operator()(T* object) const noexcept {
        if constexpr (std::is_invocable_v<decltype(function), T*>)
            function(object);
        else
            function(&object);
    }
};

using FormatContextPtr = std::unique_ptr<AVFormatContext, FreeWith<avformat_close_input>>;
using CodecContextPtr = std::unique_ptr<AVCodecContext, FreeWith<avcodec_free_context>>;
using FramePtr = std::unique_ptr<AVFrame, FreeWith<av_frame_free>>;
using PacketPtr = std::unique_ptr<AVPacket, FreeWith<av_packet_free>>;
using BufferPtr = std::unique_ptr<AVBufferRef, FreeWith<av_buffer_unref>>;
using ScalerPtr = std::unique_ptr<SwsContext, FreeWith<sws_freeContext>>;
using ResamplerPtr = std::unique_ptr<SwrContext, FreeWith<swr_free>>;
// Memory of av_malloc and its kin.
template<class T>
using AllocatedPtr = std::unique_ptr<T, FreeWith<av_free>>;

// Where a function's failures are written.
struct ErrorText {
    char* buffer;
    int32_t length;

    explicit operator bool() const { return buffer && length >= 1; }
};

// Both write the text, where there is room for one, and return the code.
int pnv_set_error(ErrorText error, const char* text, int code);
// "text: what FFmpeg says of the code"
int pnv_set_av_error(ErrorText error, const char* text, int code);

struct OpeningTexts {
    const char* open;
    const char* streamInfo;
};
inline constexpr OpeningTexts videoOpeningTexts{"Could not open media", "Could not read stream info"};
inline constexpr OpeningTexts audioOpeningTexts{"Could not open audio media", "Could not read audio stream info"};

// Opens a file, leaving its stream info unread. All reading of it fails soon after `*interrupt` has become true.
int pnv_open_input(const char* path, FormatContextPtr& format, OpeningTexts texts, ErrorText error,
                   std::atomic<bool>* interrupt = nullptr);
int pnv_read_stream_info(AVFormatContext& format, OpeningTexts texts, ErrorText error);
// Both of the above, then the best video stream and its decoder. The index of the stream, or a negative code.
int pnv_open_video_input(const char* path, FormatContextPtr& format, const AVCodec*& decoder, ErrorText error);

// Seconds that the container's times start at; 0 when it says nothing.
double pnv_start_offset(const AVFormatContext& format);

// HEVC with the second eye in a further layer of the same stream.
bool pnv_is_stereo_multiview(const AVStream* stream);

bool pnv_has_alpha(int pixelFormat);

// Truncated toward zero; times outside the range of 64 bits stop at its ends, and not-a-number counts as 0.
constexpr int64_t pnv_truncated(double value) {
    // 2^63, which a double holds exactly while the largest 64-bit integer it does not.
    constexpr double limit = 9223372036854775808.0;
    if (!(value > -limit))
        return value == value ? std::numeric_limits<int64_t>::min() : 0;
    return value < limit ? int64_t(value) : std::numeric_limits<int64_t>::max();
}
