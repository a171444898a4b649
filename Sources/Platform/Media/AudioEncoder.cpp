#include "Platform/Media/AudioEncoder.h"

#include "Platform/Media/AudioLayoutMapping.h"
#include "Platform/Media/EncoderSupport.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <format>
#include <new>
#include <string>
#include <utility>
#include <vector>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/channel_layout.h>
#include <libavutil/opt.h>
}

namespace panoveer {

namespace {

constexpr int mostChannels = 64;
constexpr int aacFrameLength = 1024;
constexpr int pcmPacketLength = 4800; // a tenth of a second: sound and pictures lie close together in the file
constexpr int bytesPerPCMSample = 3;

// The layouts that decoders of AAC read back as they were written, by their number of channels. Quad is described in
// the stream itself (ISO/IEC 14496-3, program_config_element) as two pairs, so that four channels of any meaning,
// ambisonics too, stay in their order.
constexpr std::pair<int, std::uint64_t> aacLayouts[] = {
    {1, AV_CH_LAYOUT_MONO},         {2, AV_CH_LAYOUT_STEREO},       {3, AV_CH_LAYOUT_SURROUND}, {4, AV_CH_LAYOUT_QUAD},
    {5, AV_CH_LAYOUT_5POINT0_BACK}, {6, AV_CH_LAYOUT_5POINT1_BACK}, {8, AV_CH_LAYOUT_7POINT1},
};

Error refusal(const std::string& message) {
    return Error(message, std::string(mediaErrorDomain), mediaErrorCode::operationNotSupported);
}

// For each channel that is written its place in the input.
std::vector<std::size_t> sourcePositions(int channelCount, const std::vector<AudioChannelLabel>& input,
                                         const std::vector<AudioChannelLabel>& output) {
    std::vector<std::size_t> positions;
    for (std::size_t i = 0; i < std::size_t(channelCount); ++i)
        positions.push_back(i);
    if (input.size() != positions.size() || !std::ranges::is_permutation(input, output))
        return positions;
    for (std::size_t i = 0; i < positions.size(); ++i)
        positions[i] = std::size_t(std::ranges::find(input, output[i]) - input.begin());
    return positions;
}

class AACEncoder final : public AudioEncoder {
public:
    AACEncoder(const AudioSettings& settings, PacketSink sink)
        : sink_(std::move(sink)), channelCount_(std::size_t(settings.channelCount)) {
        const auto* layout =
            std::ranges::find(aacLayouts, settings.channelCount, &std::pair<int, std::uint64_t>::first);
        if (layout == std::end(aacLayouts))
            throw refusal(std::format("AAC has no layout of {} channels", settings.channelCount));
        if (settings.bitRate <= 0)
            throw refusal("AAC needs a bit rate");
        const auto order = speakerOrder(settings.inputLayout.expandedLabels());
        if (order && order->mask == layout->second)
            positions_.assign(order->positions.begin(), order->positions.end());
        else
            positions_ = sourcePositions(settings.channelCount, {}, {});
        open(settings, layout->second);
        pending_ = makeFrame();
        parameters_.reset(avcodec_parameters_alloc());
        if (!parameters_ || avcodec_parameters_from_context(parameters_.get(), encoder_.get()) < 0)
            throw std::bad_alloc();
    }

    const AVCodecParameters& parameters() const override { return *parameters_; }

    void encode(std::span<const float> samples) override {
        for (auto rest = samples; !rest.empty();) {
            if (filled_ == 0)
                beginFrame();
            const auto count = std::min(rest.size() / channelCount_, std::size_t(aacFrameLength) - filled_);
            for (std::size_t channel = 0; channel < channelCount_; ++channel) {
                auto* plane = reinterpret_cast<float*>(pending_->extended_data[channel]) + filled_;
                const auto* source = rest.data() + positions_[channel];
                // The encoder fails on what is no number; far above full scale nothing is heard anyway.
                constexpr float loudest = 16;
                for (std::size_t i = 0; i < count; ++i) {
                    const float sample = source[i * channelCount_];
                    plane[i] = std::isnan(sample) ? 0 : std::clamp(sample, -loudest, loudest);
                }
            }
            filled_ += count;
            rest = rest.subspan(count * channelCount_);
            if (filled_ == aacFrameLength)
                sendFrame();
        }
    }

    void finish() override {
        if (filled_ > 0)
            sendFrame();
        encodeFrame(*encoder_, nullptr, sink_);
    }

private:
    void open(const AudioSettings& settings, std::uint64_t mask) {
        const auto* codec = avcodec_find_encoder_by_name("aac");
        if (!codec)
            throw Error("This FFmpeg has no AAC encoder", std::string(mediaErrorDomain),
                        mediaErrorCode::encoderNotFound);
        encoder_.reset(avcodec_alloc_context3(codec));
        if (!encoder_)
            throw std::bad_alloc();
        av_channel_layout_from_mask(&encoder_->ch_layout, mask);
        encoder_->sample_fmt = AV_SAMPLE_FMT_FLTP;
        encoder_->sample_rate = audioSampleRate;
        encoder_->time_base = {1, audioSampleRate};
        encoder_->bit_rate = settings.bitRate;
        encoder_->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
        // Above stereo, where the channels may be the parts of one sound field, they keep their waveforms: noise in
        // place of sound, and one waveform for two channels, would blur where it comes from.
        if (settings.channelCount > 2) {
            av_opt_set_int(encoder_->priv_data, "aac_pns", 0, 0);
            av_opt_set_int(encoder_->priv_data, "aac_is", 0, 0);
        }
        if (const int code = avcodec_open2(encoder_.get(), codec, nullptr); code < 0)
            throw libavError("Cannot open the AAC encoder", code, mediaErrorCode::operationNotSupported);
    }

    void beginFrame() {
        av_frame_unref(pending_.get());
        pending_->format = encoder_->sample_fmt;
        pending_->nb_samples = aacFrameLength;
        pending_->sample_rate = audioSampleRate;
        if (av_channel_layout_copy(&pending_->ch_layout, &encoder_->ch_layout) < 0 ||
            av_frame_get_buffer(pending_.get(), 0) < 0)
            throw std::bad_alloc();
        pending_->pts = position_;
    }

    void sendFrame() {
        pending_->nb_samples = int(std::exchange(filled_, 0));
        position_ += pending_->nb_samples;
        encodeFrame(*encoder_, pending_.get(), sink_);
    }

    PacketSink sink_;
    std::size_t channelCount_;
    std::vector<std::size_t> positions_; // in the input, of the encoder's channels
    CodecContextPtr encoder_;
    CodecParametersPtr parameters_;
    FramePtr pending_;
    std::size_t filled_ = 0;    // frames in pending_
    std::int64_t position_ = 0; // of pending_
};

// 24-bit little-endian. MP4 orders loudspeakers as libav does, QuickTime as `chan` says.
class PCMEncoder final : public AudioEncoder {
public:
    PCMEncoder(const AudioSettings& settings, MovieFileType fileType, PacketSink sink)
        : sink_(std::move(sink)),
          channelCount_(std::size_t(settings.channelCount)),
          positions_(sourcePositions(settings.channelCount, settings.inputLayout.expandedLabels(),
                                     settings.writerLayout.expandedLabels())),
          parameters_(avcodec_parameters_alloc()) {
        if (!parameters_)
            throw std::bad_alloc();
        parameters_->codec_type = AVMEDIA_TYPE_AUDIO;
        parameters_->codec_id = AV_CODEC_ID_PCM_S24LE;
        parameters_->format = AV_SAMPLE_FMT_S32;
        parameters_->bits_per_coded_sample = parameters_->bits_per_raw_sample = 8 * bytesPerPCMSample;
        parameters_->sample_rate = audioSampleRate;
        parameters_->block_align = bytesPerPCMSample * settings.channelCount;
        parameters_->bit_rate = std::int64_t(8) * parameters_->block_align * audioSampleRate;
        setLayout(settings, fileType);
        packetSize_ = std::size_t(pcmPacketLength) * std::size_t(parameters_->block_align);
    }

    const AVCodecParameters& parameters() const override { return *parameters_; }

    void encode(std::span<const float> samples) override {
        constexpr float fullScale = 1 << 23;
        for (; !samples.empty(); samples = samples.subspan(channelCount_)) {
            for (auto position : positions_) {
                // What is no number at all becomes silence.
                const float scaled = std::clamp(samples[position] * fullScale, -fullScale, fullScale - 1);
                const auto value = std::uint32_t(std::isnan(scaled) ? 0 : std::lrint(scaled));
                for (int shift = 0; shift < 8 * bytesPerPCMSample; shift += 8)
                    pending_.push_back(std::uint8_t(value >> shift));
            }
            if (pending_.size() == packetSize_)
                sendPacket();
        }
    }

    void finish() override {
        if (!pending_.empty())
            sendPacket();
    }

private:
    void setLayout(const AudioSettings& settings, MovieFileType fileType) {
        auto& layout = parameters_->ch_layout;
        const auto order = speakerOrder(settings.writerLayout.expandedLabels());
        // The muxer of MP4 takes loudspeakers only. What it says of channels that are none is put right afterwards.
        const bool needsPlaces = fileType != MovieFileType::quickTimeMovie;
        if (!order && !needsPlaces) {
            layout = LibAVChannelLayout::unspecified(settings.channelCount).get();
            return;
        }
        if (av_channel_layout_custom_init(&layout, settings.channelCount) < 0)
            throw std::bad_alloc();
        for (int i = 0; i < settings.channelCount; ++i)
            layout.u.map[i].id = AV_CHAN_FRONT_CENTER;
        std::uint64_t rest = order ? order->mask : 0;
        for (std::size_t i = 0; rest != 0; ++i, rest &= rest - 1)
            layout.u.map[order->positions[i]].id = AVChannel(std::countr_zero(rest));
        av_channel_layout_retype(&layout, AV_CHANNEL_ORDER_NATIVE, 0);
    }

    void sendPacket() {
        auto packet = makePacket();
        if (av_new_packet(packet.get(), int(pending_.size())) < 0)
            throw std::bad_alloc();
        std::ranges::copy(pending_, packet->data);
        packet->pts = packet->dts = position_;
        packet->duration = std::int64_t(pending_.size()) / parameters_->block_align;
        packet->flags |= AV_PKT_FLAG_KEY;
        position_ += packet->duration;
        pending_.clear();
        sink_(std::move(packet));
    }

    PacketSink sink_;
    std::size_t channelCount_;
    std::vector<std::size_t> positions_; // in the input, of the channels that are written
    CodecParametersPtr parameters_;
    std::size_t packetSize_ = 0; // bytes
    std::vector<std::uint8_t> pending_;
    std::int64_t position_ = 0; // of pending_
};

} // namespace

std::unique_ptr<AudioEncoder> makeAudioEncoder(const AudioSettings& settings, MovieFileType fileType,
                                               AudioEncoder::PacketSink sink) {
    if (settings.channelCount < 1 || settings.channelCount > mostChannels)
        throw refusal(std::format("A track of {} channels", settings.channelCount));
    if (settings.inputLayout.channelCount() != settings.channelCount ||
        settings.writerLayout.channelCount() != settings.channelCount)
        throw refusal("A channel layout for another number of channels than the track's");
    if (settings.codec == AudioSettings::Codec::aac)
        return std::make_unique<AACEncoder>(settings, std::move(sink));
    return std::make_unique<PCMEncoder>(settings, fileType, std::move(sink));
}

std::int64_t plannedPacketCount(const AudioSettings& settings, std::int64_t frameCount) {
    const int length = settings.codec == AudioSettings::Codec::aac ? aacFrameLength : pcmPacketLength;
    constexpr int furtherPackets = 3; // ahead of the sound, behind it, and a short one
    return frameCount / length + furtherPackets;
}

} // namespace panoveer
