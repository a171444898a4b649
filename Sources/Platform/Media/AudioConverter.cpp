#include "Platform/Media/AudioConverter.h"

#include "Platform/Media/AudioSampleBuffer.h"
#include "Platform/Media/ChannelMixing.h"
#include "Platform/Media/MediaSupport.h"

#include <algorithm>
#include <array>

extern "C" {
#include <libavutil/frame.h>
#include <libavutil/samplefmt.h>
#include <libswresample/swresample.h>
}

namespace panoveer {

namespace {

// The addresses of the planes from a sample on.
std::vector<const std::uint8_t*> planesFrom(const AVFrame& frame, int first) {
    const auto format = AVSampleFormat(frame.format);
    const int channels = frame.ch_layout.nb_channels;
    const bool isPlanar = av_sample_fmt_is_planar(format) != 0;
    const int stride = av_get_bytes_per_sample(format) * (isPlanar ? 1 : channels);
    std::vector<const std::uint8_t*> planes;
    for (int i = 0; i < (isPlanar ? channels : 1); ++i)
        planes.push_back(frame.extended_data[i] + std::ptrdiff_t(first) * stride);
    return planes;
}

} // namespace

void AudioConverter::FreeResampler::operator()(SwrContext* context) const noexcept { swr_free(&context); }

AudioConverter::AudioConverter(const LibAVChannelLayout& own, const std::optional<AudioChannelLayout>& wanted) {
    if (!wanted) {
        output_ = LibAVChannelLayout::unspecified(own.channelCount());
    } else {
        const auto order = speakerOrder(wanted->expandedLabels());
        if (!order)
            throw Error("Sound cannot be mixed to a layout that is not of loudspeakers", std::string(mediaErrorDomain),
                        mediaErrorCode::operationNotSupported);
        output_ = LibAVChannelLayout::ofMask(order->mask);
        passesThrough_ = false;
        if (!std::ranges::is_sorted(order->positions))
            targets_.assign(order->positions.begin(), order->positions.end());
    }
    channelCount_ = std::size_t(output_.channelCount());
}

bool AudioConverter::follows(const AVFrame& frame) const {
    return resampler_ && frame.format == inputFormat_ && frame.sample_rate == inputRate_ &&
           input_ == LibAVChannelLayout(frame.ch_layout);
}

void AudioConverter::open(const AVFrame& frame) {
    input_ = LibAVChannelLayout(frame.ch_layout);
    inputFormat_ = frame.format;
    inputRate_ = frame.sample_rate;
    auto from = input_, to = output_;
    if (passesThrough_ && from.channelCount() == to.channelCount())
        from = to;
    else if (passesThrough_)
        to = LibAVChannelLayout::ordinary(to.channelCount());
    if (!passesThrough_ && from.isUnspecified())
        from = LibAVChannelLayout::ordinary(from.channelCount());
    SwrContext* context = nullptr;
    int code = swr_alloc_set_opts2(&context, &to.get(), AV_SAMPLE_FMT_FLT, audioSampleRate, &from.get(),
                                   AVSampleFormat(inputFormat_), inputRate_, 0, nullptr);
    resampler_.reset(context);
    if (code >= 0)
        code = openResampler(*context, from.get(), to.get());
    if (code < 0) {
        resampler_.reset();
        throw libavError("Cannot convert the channels of the sound", code, mediaErrorCode::operationNotSupported);
    }
}

void AudioConverter::convert(const AVFrame& frame, int first, int count, std::vector<float>& output) {
    if (!follows(frame)) {
        drain(output);
        open(frame);
    }
    auto planes = planesFrom(frame, first);
    run(planes.data(), count, output);
}

void AudioConverter::drain(std::vector<float>& output) {
    if (resampler_)
        run(nullptr, 0, output);
    resampler_.reset();
}

void AudioConverter::run(const std::uint8_t** input, int count, std::vector<float>& output) {
    const int most = swr_get_out_samples(resampler_.get(), count);
    if (most < 0)
        throw libavError("Cannot convert the sound", most, mediaErrorCode::decodeFailed);
    const auto before = output.size();
    output.resize(before + std::size_t(most) * channelCount_);
    std::array<std::uint8_t*, 1> target{reinterpret_cast<std::uint8_t*>(output.data() + before)};
    const int made = most > 0 ? swr_convert(resampler_.get(), target.data(), most, input, count) : 0;
    if (made < 0)
        throw libavError("Cannot convert the sound", made, mediaErrorCode::decodeFailed);
    output.resize(before + std::size_t(made) * channelCount_);
    if (!targets_.empty())
        reorder(output, before);
}

void AudioConverter::reorder(std::vector<float>& output, std::size_t from) const {
    std::vector<float> frame(channelCount_);
    for (auto at = from; at < output.size(); at += channelCount_) {
        for (std::size_t channel = 0; channel < channelCount_; ++channel)
            frame[targets_[channel]] = output[at + channel];
        std::ranges::copy(frame, output.begin() + std::ptrdiff_t(at));
    }
}

} // namespace panoveer
