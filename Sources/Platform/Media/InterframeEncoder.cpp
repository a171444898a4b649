#include "Platform/Media/InterframeEncoder.h"

#include "Platform/Core/Processors.h"
#include "Platform/Media/EncoderKernels.h"
#include "Platform/Media/EncoderSupport.h"

#include <unistd.h>

#include <algorithm>
#include <format>
#include <limits>
#include <new>
#include <string>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/dict.h>
}

namespace panoveer {

namespace {

constexpr int defaultKeyFrameInterval = 60;
// For settings without a bit rate: hard to tell from the source, with x264 as with x265.
constexpr const char* constantQuality = "18";

// Of the presets, measured on 1920 x 960 pictures of a 360° camera and of a zoom into a fractal with grain, on 2 cores,
// at one bit rate; SSIM in dB, CPU time for 60 and 90 pictures:
//
//   x264   veryfast  29.6  1.3 s   8.50  2.9 s      x265   ultrafast  19.6  2.8 s   8.47   4.9 s
//          faster    30.2  2.0 s   8.79  4.7 s             superfast  24.5  4.0 s   8.54   8.0 s
//          fast      30.4  2.5 s   8.61  6.5 s             veryfast   24.8  5.9 s   8.71  11.2 s
//          medium    30.7  3.1 s   8.52  8.5 s             fast       25.1  7.5 s   8.73  13.2 s
//                                                          medium     25.4  6.6 s   8.69  15.4 s
constexpr const char* presetOfX264 = "fast";
constexpr const char* presetOfX265 = "veryfast";

class Options {
public:
    Options() = default;
    Options(const Options&) = delete;
    Options& operator=(const Options&) = delete;
    ~Options() { av_dict_free(&dictionary_); }

    void set(const char* key, const std::string& value) { av_dict_set(&dictionary_, key, value.c_str(), 0); }
    AVDictionary** get() { return &dictionary_; }

private:
    AVDictionary* dictionary_ = nullptr;
};

// An average, with peaks of twice that for up to a second: room for what moves, within what players buffer.
void setRate(AVCodecContext& context, Options& options, const VideoSettings& settings) {
    if (!settings.averageBitRate)
        return options.set("crf", constantQuality);
    context.bit_rate = *settings.averageBitRate;
    context.rc_max_rate = 2 * context.bit_rate;
    context.rc_buffer_size = int(std::min<std::int64_t>(context.rc_max_rate, std::numeric_limits<int>::max()));
}

CodecContextPtr prepareH264(const EncoderConfiguration& configuration, Options& options) {
    auto context = makeEncoderContext("libx264", configuration);
    context->pix_fmt = AV_PIX_FMT_NV12; // the layout of "420v": read in place
    options.set("profile", "high");
    options.set("preset", presetOfX264);
    // A constant frame rate: the rate control and the stream's own clock go by it.
    std::string parameters = "force-cfr=1";
    if (configuration.isProbe)
        parameters += ":rc-lookahead=0:sync-lookahead=0:bframes=0:ref=1";
    options.set("x264-params", parameters);
    return context;
}

CodecContextPtr prepareHEVC(const EncoderConfiguration& configuration, Options& options) {
    auto context = makeEncoderContext("libx265", configuration);
    const bool isTenBit = configuration.pictureFormat == pixelFormat::yCbCr420TenBitVideoRange;
    context->pix_fmt = isTenBit ? AV_PIX_FMT_YUV420P10 : AV_PIX_FMT_YUV420P;
    options.set("profile", isTenBit ? "main10" : "main");
    options.set("preset", presetOfX265);
    std::string parameters = "log-level=none:info=0";
    const auto& color = configuration.settings.color;
    if (!color.masteringDisplayColorVolume.empty() || !color.contentLightLevelInfo.empty())
        parameters += ":hdr10=1";
    // x265 counts the machine's processors, not those that it may run on.
    const int processors = availableProcessors();
    if (configuration.isProbe)
        parameters += ":pools=none:wpp=0:rc-lookahead=1:bframes=0:ref=1";
    else if (processors < sysconf(_SC_NPROCESSORS_ONLN))
        parameters += std::format(":pools={}", processors);
    options.set("x265-params", parameters);
    return context;
}

CodecContextPtr openEncoder(const EncoderConfiguration& configuration) {
    const auto& settings = configuration.settings;
    const bool isH264 = codecFamily(settings.codec) == CodecFamily::h264;
    Options options;
    auto context = isH264 ? prepareH264(configuration, options) : prepareHEVC(configuration, options);
    context->gop_size = std::max(settings.maximumKeyFrameInterval.value_or(defaultKeyFrameInterval), 1);
    context->flags |= AV_CODEC_FLAG_CLOSED_GOP; // a fragment shall play without the one before it
    context->thread_count = configuration.isProbe ? 1 : 0;
    setRate(*context, options, settings);
    const int code = avcodec_open2(context.get(), nullptr, options.get());
    if (code < 0)
        throw Error(libavError(std::string(isH264 ? "x264" : "x265") + " does not open", code).what(),
                    std::string(mediaErrorDomain),
                    code == AVERROR(ENOMEM) ? mediaErrorCode::outOfMemory : mediaErrorCode::encoderNotFound);
    return context;
}

// A frame over the picture's own memory, which it keeps alive.
FramePtr frameOver(PixelBufferPtr picture) {
    auto frame = makeFrame();
    for (int i = 0; i < picture->planeCount(); ++i) {
        frame->data[i] = reinterpret_cast<std::uint8_t*>(picture->plane(i).data);
        frame->linesize[i] = int(picture->plane(i).rowBytes);
    }
    const auto size = picture->plane(0).rowBytes * std::size_t(picture->plane(0).height);
    auto owner = std::make_unique<PixelBufferPtr>(std::move(picture));
    frame->buf[0] = av_buffer_create(
        frame->data[0], size, [](void* reference, std::uint8_t*) { delete static_cast<PixelBufferPtr*>(reference); },
        owner.get(), AV_BUFFER_FLAG_READONLY);
    if (!frame->buf[0])
        throw std::bad_alloc();
    owner.release(); // NOLINT(bugprone-unused-return-value): the frame's buffer deletes it
    return frame;
}

} // namespace

InterframeEncoder::InterframeEncoder(const EncoderConfiguration& configuration, PacketSink sink)
    : configuration_(configuration), sink_(std::move(sink)), context_(openEncoder(configuration)) {}

CodecParametersPtr InterframeEncoder::parameters() const { return containerParameters(*context_, configuration_); }

void InterframeEncoder::encode(PixelBufferPtr picture, std::int64_t presentationTime, std::int64_t duration) {
    const auto send = [&](AVFrame& frame) {
        frame.format = context_->pix_fmt;
        frame.width = context_->width;
        frame.height = context_->height;
        frame.pts = presentationTime;
        frame.duration = duration;
        encodeFrame(*context_, &frame, sink_);
    };
    if (context_->pix_fmt == AV_PIX_FMT_NV12) {
        const auto frame = frameOver(std::move(picture));
        return send(*frame);
    }
    // x265 has copied the frame before this one when it returns; should it ever not have, that one stays with it.
    if (!planar_ || av_frame_is_writable(planar_.get()) == 0)
        planar_ = makeEncoderFrame(*context_);
    splitPlanes(*picture, planarPicture(*planar_));
    picture.reset();
    send(*planar_);
}

void InterframeEncoder::finish() { encodeFrame(*context_, nullptr, sink_); }

} // namespace panoveer
