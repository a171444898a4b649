#include "FFmpegBridge/Common.h"
#include "Platform/Media/ChannelMixing.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <new>
#include <tuple>

extern "C" {
#include <libavutil/channel_layout.h>
#include <libavutil/log.h>
#include <libavutil/mem.h>
}

namespace {

constexpr int outputRate = 48'000;

// A decoder that begins in the middle needs some packets before its sound is right: overlapping transforms one, Opus
// 80 ms, the bit reservoir of MP3 up to ten. What they give before the start is dropped like any other sound there.
constexpr double prerollSeconds = 0.25;

//  reading --input ended--> flushing --decoder empty--> draining --resampler empty--> finished
enum class AudioState {
    reading = 0,
    flushing = 1, // the decoder gives what it still holds
    draining = 2, // the resampler gives what it still holds
    finished = 3,
};

// A channel layout that frees its own map.
class ChannelLayout {
public:
    ChannelLayout() = default;
    ~ChannelLayout() { av_channel_layout_uninit(&value_); }
    ChannelLayout(const ChannelLayout&) = delete;
    ChannelLayout& operator=(const ChannelLayout&) = delete;

    const AVChannelLayout& get() const { return value_; }
    int copy(const AVChannelLayout& other) { return av_channel_layout_copy(&value_, &other); }
    int setMask(uint64_t mask) {
        av_channel_layout_uninit(&value_);
        return av_channel_layout_from_mask(&value_, mask);
    }
    // So many channels, about whose places nothing is said.
    int setUnspecified(int channels) {
        av_channel_layout_uninit(&value_);
        value_.order = AV_CHANNEL_ORDER_UNSPEC;
        value_.nb_channels = channels;
        return 0;
    }

private:
    AVChannelLayout value_{};
};

} // namespace

// Members stand so that destruction, which goes backwards, frees every user of an object before the object.
struct PNVFFmpegAudioReader {
    std::atomic<bool> isCancelled = false;
    FormatContextPtr format; // watches isCancelled
    CodecContextPtr codec;
    ResamplerPtr resampler;
    PacketPtr packet;
    FramePtr frame;
    AllocatedPtr<uint8_t> buffer; // grows, never shrinks
    int bufferSize = 0;           // bytes

    // What the resampler was set up for.
    ChannelLayout inputLayout;
    int inputFormat = AV_SAMPLE_FMT_NONE;
    int inputRate = 0;
    ChannelLayout outputLayout;
    bool passesChannelsThrough = false; // by number, whatever they stand for

    int streamIndex = -1;
    AVRational timeBase{0, 1};
    double startOffset = 0; // container time of second 0
    double startSeconds = 0;
    double endSeconds = -1; // -1: no end
    int64_t emittedSamples = 0;
    int outputChannels = 0;
    double nextPtsSeconds = -1; // -1: nothing was read yet
    AudioState state = AudioState::reading;
};

namespace {

// The stream asked for and its decoder, or the best one. The index of the stream, or a negative code.
int chooseStream(AVFormatContext& format, int requested, const AVCodec*& decoder, ErrorText error) {
    if (requested < 0) {
        const int index = av_find_best_stream(&format, AVMEDIA_TYPE_AUDIO, -1, -1, &decoder, 0);
        return index < 0 ? pnv_set_av_error(error, "Could not find audio stream", index) : index;
    }
    if (unsigned(requested) >= format.nb_streams ||
        format.streams[requested]->codecpar->codec_type != AVMEDIA_TYPE_AUDIO)
        return pnv_set_error(error, "Requested stream is not an audio stream", AVERROR_STREAM_NOT_FOUND);
    decoder = avcodec_find_decoder(format.streams[requested]->codecpar->codec_id);
    if (!decoder)
        return pnv_set_error(error, "No decoder for the requested audio stream", AVERROR_DECODER_NOT_FOUND);
    return requested;
}

int openDecoder(PNVFFmpegAudioReader& reader, const AVCodec* decoder, const AVStream& stream, ErrorText error) {
    reader.codec.reset(avcodec_alloc_context3(decoder));
    if (!reader.codec)
        return pnv_set_error(error, "Could not allocate audio codec context", AVERROR(ENOMEM));
    if (const int result = avcodec_parameters_to_context(reader.codec.get(), stream.codecpar); result < 0)
        return pnv_set_av_error(error, "Could not copy audio codec parameters", result);
    reader.codec->pkt_timebase = stream.time_base;
    // One thread: sound is cheap, and threads would only hold frames back.
    reader.codec->thread_count = 0;
    reader.codec->thread_type = 0;
    if (const int result = avcodec_open2(reader.codec.get(), decoder, nullptr); result < 0)
        return pnv_set_av_error(error, "Could not open audio decoder", result);
    return 0;
}

// A native layout keeps its places. Ambisonic and discrete channels have none that a resampler could mix by: they pass
// through by number.
int chooseLayouts(PNVFFmpegAudioReader& reader, uint64_t outputMask, ErrorText error) {
    const AVChannelLayout& decoded = reader.codec->ch_layout;
    reader.passesChannelsThrough = outputMask == 0 && decoded.order != AV_CHANNEL_ORDER_NATIVE;
    int result = reader.passesChannelsThrough ? reader.outputLayout.setUnspecified(decoded.nb_channels)
                 : outputMask != 0            ? reader.outputLayout.setMask(outputMask)
                                              : reader.outputLayout.copy(decoded);
    if (result >= 0 && (decoded.nb_channels < 1 || reader.outputLayout.get().nb_channels < 1))
        result = AVERROR(EINVAL);
    if (result < 0)
        return pnv_set_error(error, "Unsupported audio channel layout", result);
    reader.outputChannels = reader.outputLayout.get().nb_channels;
    return 0;
}

int configureResampler(PNVFFmpegAudioReader& reader, const AVChannelLayout& layout, int format, int rate,
                       ErrorText error) {
    const int copied = reader.passesChannelsThrough ? reader.inputLayout.setUnspecified(layout.nb_channels)
                                                    : reader.inputLayout.copy(layout);
    if (copied < 0)
        return pnv_set_error(error, "Unsupported audio channel layout", copied);
    reader.inputFormat = format;
    reader.inputRate = rate;
    SwrContext* resampler = nullptr;
    const int result = swr_alloc_set_opts2(&resampler, &reader.outputLayout.get(), AV_SAMPLE_FMT_FLT, outputRate,
                                           &reader.inputLayout.get(), AVSampleFormat(format), rate, 0, nullptr);
    reader.resampler.reset(resampler);
    if (result < 0 || !resampler)
        return pnv_set_av_error(error, "Could not configure audio conversion", result < 0 ? result : AVERROR(ENOMEM));
    const int opened = panoveer::openResampler(*resampler, reader.inputLayout.get(), reader.outputLayout.get());
    if (opened < 0)
        return pnv_set_av_error(error, "Could not initialize audio conversion", opened);
    return 0;
}

// A broadcast may change its audio on the way; the resampler follows, and what it gives out stays the same.
int followDecodedFormat(PNVFFmpegAudioReader& reader, ErrorText error) {
    const AVFrame& frame = *reader.frame;
    const bool hasSameChannels = reader.passesChannelsThrough
                                     ? frame.ch_layout.nb_channels == reader.inputLayout.get().nb_channels
                                     : av_channel_layout_compare(&frame.ch_layout, &reader.inputLayout.get()) == 0;
    if (hasSameChannels && frame.format == reader.inputFormat && frame.sample_rate == reader.inputRate)
        return 0;
    return configureResampler(reader, frame.ch_layout, frame.format, frame.sample_rate, error);
}

int seekToStart(PNVFFmpegAudioReader& reader, ErrorText error) {
    const double seconds = std::max(reader.startSeconds - prerollSeconds, 0.0) + reader.startOffset;
    const int64_t timestamp = pnv_truncated(seconds / av_q2d(reader.timeBase));
    const int result = av_seek_frame(reader.format.get(), reader.streamIndex, timestamp, AVSEEK_FLAG_BACKWARD);
    if (result < 0)
        return pnv_set_av_error(error, "Could not seek audio", result);
    avcodec_flush_buffers(reader.codec.get());
    return 0;
}

int pnv_reserve_audio_output(PNVFFmpegAudioReader& reader, int samples, ErrorText error) {
    int size = av_samples_get_buffer_size(nullptr, reader.outputChannels, std::max(samples, 1), AV_SAMPLE_FMT_FLT, 1);
    if (size > reader.bufferSize) {
        auto* grown = static_cast<uint8_t*>(av_realloc(reader.buffer.get(), size_t(size)));
        if (grown) {
            std::ignore = reader.buffer.release();
            reader.buffer.reset(grown);
            reader.bufferSize = size;
        } else {
            size = AVERROR(ENOMEM);
        }
    }
    return size < 0 ? pnv_set_av_error(error, "Could not allocate converted audio buffer", size) : 0;
}

// Converts `input`, or what the resampler still holds when that is null. The number of samples, or a negative code.
int convert(PNVFFmpegAudioReader& reader, const AVFrame* input, const char* failure, ErrorText error) {
    const int expected = swr_get_out_samples(reader.resampler.get(), input ? input->nb_samples : 0);
    if (expected < 0)
        return pnv_set_av_error(error, failure, expected);
    if (const int result = pnv_reserve_audio_output(reader, expected, error); result < 0)
        return result;
    uint8_t* output[] = {reader.buffer.get()};
    const int samples =
        swr_convert(reader.resampler.get(), output, std::max(expected, 1),
                    input ? const_cast<const uint8_t**>(input->extended_data) : nullptr, input ? input->nb_samples : 0);
    return samples < 0 ? pnv_set_av_error(error, failure, samples) : samples;
}

// Samples at the output's rate, to the nearest. Distances that no block can span stop far beyond any length.
int64_t samplesIn(double seconds) { return pnv_truncated(std::round(seconds * outputRate)); }

enum class Emitted { nothing, block, finished };

// Cuts a block of converted samples to the window and hands it out.
//
//      seconds            startSeconds                 endSeconds
//         |------ drop ------|========= count ============|-- cut --|
Emitted pnv_emit_audio(PNVFFmpegAudioReader& reader, int length, double seconds, PNVFFmpegAudioFrame& frame) {
    int64_t drop = 0;
    if (seconds < reader.startSeconds) {
        drop = samplesIn(reader.startSeconds - seconds);
        if (drop >= length) {
            reader.nextPtsSeconds = seconds + double(length) / outputRate;
            return Emitted::nothing;
        }
        seconds += double(drop) / outputRate;
    }
    int64_t count = length - drop;
    if (reader.endSeconds >= 0)
        count = std::min(count, samplesIn(reader.endSeconds - seconds));
    if (count < 1) {
        reader.state = AudioState::finished;
        return Emitted::finished;
    }
    frame = {.samples = reinterpret_cast<float*>(reader.buffer.get()) + drop * reader.outputChannels,
             .sampleCount = int32_t(count),
             .sampleRate = outputRate,
             .channelCount = reader.outputChannels,
             .ptsSeconds = seconds};
    reader.emittedSamples += count;
    reader.nextPtsSeconds = seconds + double(count) / outputRate;
    return Emitted::block;
}

// One decoded frame through the resampler and out.
int emitDecodedFrame(PNVFFmpegAudioReader& reader, PNVFFmpegAudioFrame& out, Emitted& emitted, ErrorText error) {
    if (const int result = followDecodedFormat(reader, error); result < 0)
        return result;
    const AVFrame& frame = *reader.frame;
    const double delay = double(swr_get_delay(reader.resampler.get(), outputRate)) / outputRate;
    const int samples = convert(reader, &frame, "Could not convert decoded audio", error);
    if (samples <= 0)
        return samples;
    const double seconds = frame.best_effort_timestamp == AV_NOPTS_VALUE
                               ? -1
                               : double(frame.best_effort_timestamp) * av_q2d(reader.timeBase) - reader.startOffset;
    const double expected = reader.nextPtsSeconds >= 0
                                ? reader.nextPtsSeconds
                                : reader.startSeconds + double(reader.emittedSamples) / outputRate;
    emitted = pnv_emit_audio(reader, samples, seconds < 0 ? expected : seconds - delay, out);
    return 0;
}

// What the resampler holds when no more input comes.
int emitResamplerRest(PNVFFmpegAudioReader& reader, PNVFFmpegAudioFrame& out, Emitted& emitted, ErrorText error) {
    const bool holdsSamples = swr_get_out_samples(reader.resampler.get(), 0) >= 1;
    const int samples = holdsSamples ? convert(reader, nullptr, "Could not drain converted audio", error) : 0;
    if (samples < 0)
        return samples;
    if (samples == 0) {
        reader.state = AudioState::finished;
        return 0;
    }
    const double seconds = reader.nextPtsSeconds >= 0 ? reader.nextPtsSeconds : reader.startSeconds;
    emitted = pnv_emit_audio(reader, samples, seconds, out);
    return 0;
}

// Gives the decoder the next packet, or tells it that there are none. A packet that it refuses for now is lost.
int feedDecoder(PNVFFmpegAudioReader& reader, ErrorText error) {
    AVPacket* packet = reader.packet.get();
    if (const int result = av_read_frame(reader.format.get(), packet); result == AVERROR_EOF) {
        const int sent = avcodec_send_packet(reader.codec.get(), nullptr);
        reader.state = sent == 0 || sent == AVERROR_EOF ? AudioState::flushing : AudioState::draining;
        return 0;
    } else if (result < 0) {
        return pnv_set_av_error(error, "Could not read audio packet", result);
    }
    int sent = 0;
    if (packet->stream_index == reader.streamIndex)
        sent = avcodec_send_packet(reader.codec.get(), packet);
    av_packet_unref(packet);
    return sent < 0 && sent != AVERROR(EAGAIN) ? pnv_set_av_error(error, "Could not send packet to audio decoder", sent)
                                               : 0;
}

// One step of the state machine: 0, or a negative code.
int advance(PNVFFmpegAudioReader& reader, PNVFFmpegAudioFrame& out, Emitted& emitted, ErrorText error) {
    if (reader.state == AudioState::draining)
        return emitResamplerRest(reader, out, emitted, error);

    const int result = avcodec_receive_frame(reader.codec.get(), reader.frame.get());
    if (result == AVERROR(EAGAIN) && reader.state == AudioState::reading)
        return feedDecoder(reader, error);
    if (result == AVERROR_EOF || result == AVERROR(EAGAIN)) {
        reader.state = AudioState::draining;
        return 0;
    }
    if (result < 0)
        return pnv_set_av_error(error, "Could not decode audio frame", result);
    const int emittedResult = emitDecodedFrame(reader, out, emitted, error);
    av_frame_unref(reader.frame.get());
    return emittedResult;
}

} // namespace

int32_t PNVFFmpegOpenAudioStream(const char* path, int32_t streamIndex, uint64_t outputChannelMask,
                                 PNVFFmpegAudioReader** readerOut, char* errorBuffer, int32_t errorLength,
                                 double startSeconds, double durationSeconds) {
    const ErrorText error{errorBuffer, errorLength};
    av_log_set_level(AV_LOG_ERROR);
    if (!path || !readerOut)
        return pnv_set_error(error, "Invalid FFmpeg audio open arguments", AVERROR(EINVAL));
    *readerOut = nullptr;

    // Whatever fails below, the reader's own destructor frees what there is by then.
    std::unique_ptr<PNVFFmpegAudioReader> reader(new (std::nothrow) PNVFFmpegAudioReader);
    if (!reader)
        return pnv_set_error(error, "Could not allocate FFmpeg audio reader", AVERROR(ENOMEM));
    if (const int result = pnv_open_input(path, reader->format, audioOpeningTexts, error, &reader->isCancelled);
        result < 0)
        return result;
    if (const int result = pnv_read_stream_info(*reader->format, audioOpeningTexts, error); result < 0)
        return result;
    const AVCodec* decoder = nullptr;
    reader->streamIndex = chooseStream(*reader->format, streamIndex, decoder, error);
    if (reader->streamIndex < 0)
        return reader->streamIndex;
    for (unsigned index = 0; index < reader->format->nb_streams; ++index)
        if (int(index) != reader->streamIndex)
            reader->format->streams[index]->discard = AVDISCARD_ALL;

    const AVStream& stream = *reader->format->streams[reader->streamIndex];
    reader->timeBase = stream.time_base;
    reader->startOffset = pnv_start_offset(*reader->format);
    if (const int result = openDecoder(*reader, decoder, stream, error); result < 0)
        return result;
    reader->packet.reset(av_packet_alloc());
    reader->frame.reset(av_frame_alloc());
    if (!reader->packet || !reader->frame)
        return pnv_set_error(error, "Could not allocate audio decode buffers", AVERROR(ENOMEM));
    if (const int result = chooseLayouts(*reader, outputChannelMask, error); result < 0)
        return result;
    const AVCodecContext& codec = *reader->codec;
    if (const int result = configureResampler(*reader, codec.ch_layout, codec.sample_fmt, codec.sample_rate, error);
        result < 0)
        return result;

    reader->startSeconds = startSeconds > 0 ? startSeconds : 0;
    reader->endSeconds = durationSeconds > 0 ? reader->startSeconds + durationSeconds : -1;
    if (startSeconds > 0)
        if (const int result = seekToStart(*reader, error); result < 0)
            return result;
    *readerOut = reader.release();
    return 0;
}

int32_t PNVFFmpegAudioReaderChannelCount(const PNVFFmpegAudioReader* reader) {
    return reader ? reader->outputChannels : 0;
}

int32_t PNVFFmpegReadAudio(PNVFFmpegAudioReader* reader, PNVFFmpegAudioFrame* frame, char* errorBuffer,
                           int32_t errorLength) {
    const ErrorText error{errorBuffer, errorLength};
    if (!reader || !frame)
        return pnv_set_error(error, "Invalid FFmpeg audio read arguments", AVERROR(EINVAL));
    *frame = {};
    while (reader->state != AudioState::finished && !reader->isCancelled) {
        Emitted emitted = Emitted::nothing;
        if (const int result = advance(*reader, *frame, emitted, error); result < 0)
            return reader->isCancelled ? 0 : result;
        if (emitted == Emitted::block)
            return 1;
    }
    return 0;
}

void PNVFFmpegCancelAudio(PNVFFmpegAudioReader* reader) {
    if (reader)
        reader->isCancelled = true;
}

void PNVFFmpegCloseAudio(PNVFFmpegAudioReader* reader) { delete reader; }
