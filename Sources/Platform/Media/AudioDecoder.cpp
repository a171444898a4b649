#include "Platform/Media/AudioDecoder.h"

#include <algorithm>
#include <cmath>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/intreadwrite.h>
}

namespace panoveer {

namespace {

// What a decoder needs to settle after a jump: Opus asks for 80 ms (RFC 7845, clause 4.6), a bit reservoir and the
// overlapping windows of the others for less.
constexpr double prerollSeconds = 0.25;

// Time stamps that some recorders write wander about the true ones. Sound that seems to jump by less runs on; a lost
// packet leaves a larger gap.
constexpr double jitterSeconds = 0.010;

} // namespace

AudioDecoder::AudioDecoder(const MediaAsset& asset, const AudioTrack& track, const std::atomic<bool>& interrupt)
    : TrackDecoder(asset, track.streamIndex, interrupt) {
    openDecoder(track.isDecodable ? track.decoderParameters.get() : nullptr, "audio", [](AVCodecContext& decoder) {
        // What is to be skipped comes with the frames, so that their times stay those of the packets, unrounded.
        decoder.flags2 |= AV_CODEC_FLAG2_SKIP_MANUAL;
    });
}

// A unit of time is longer than a sample: Matroska counts milliseconds.
bool AudioDecoder::hasCoarseTimes() const { return av_q2d(reader_.stream().time_base) * decoder_->sample_rate > 1.5; }

void AudioDecoder::goTo(double seconds) {
    if (hasCoarseTimes())
        readHead();
    if (seconds > prerollSeconds) {
        reader_.seek(seconds - prerollSeconds);
        av_packet_unref(packet_.get());
        hasPacket_ = isDraining_ = false;
    }
}

void AudioDecoder::readHead() {
    hasPacket_ = reader_.read(*packet_);
    isDraining_ = !hasPacket_;
    if (!hasPacket_ || packet_->pts == AV_NOPTS_VALUE)
        return;
    headSeconds_ = reader_.movieSeconds(packet_->pts);
    // What the codec puts in front of the sound makes it begin before 0, exactly so far.
    const double exact = -double(reader_.stream().codecpar->initial_padding) / decoder_->sample_rate;
    if (std::abs(*headSeconds_ - exact) <= av_q2d(reader_.stream().time_base))
        headSeconds_ = exact;
}

std::optional<DecodedSound> AudioDecoder::next() {
    while (auto frame = receive())
        if (auto sound = trimmed(std::move(frame)); sound.count > 0)
            return sound;
    return std::nullopt;
}

void AudioDecoder::feed() {
    if (!hasPacket_ && !isDraining_)
        isDraining_ = !reader_.read(*packet_);
    if (isDraining_) {
        avcodec_send_packet(decoder_.get(), nullptr);
        return;
    }
    if (const int code = avcodec_send_packet(decoder_.get(), packet_.get()); code < 0)
        noteDecodeError(code);
    av_packet_unref(packet_.get());
    hasPacket_ = false;
}

// Cuts off what the container says is not to be heard: samples that the codec needs before and behind the sound, and
// those of a frame that lasts longer than its packet.
DecodedSound AudioDecoder::trimmed(FramePtr frame) {
    DecodedSound sound{nullptr, 0, frame->nb_samples, secondsOf(*frame)};
    if (sound.seconds)
        nextSeconds_ = *sound.seconds + double(frame->nb_samples) / frame->sample_rate;
    int discarded = 0;
    // Two little-endian 32-bit counts: at the start, at the end.
    if (const auto* skip = av_frame_get_side_data(frame.get(), AV_FRAME_DATA_SKIP_SAMPLES); skip && skip->size >= 8) {
        sound.first = int(std::min(AV_RL32(skip->data), std::uint32_t(frame->nb_samples)));
        discarded = int(std::min(AV_RL32(skip->data + 4), std::uint32_t(frame->nb_samples)));
    }
    if (frame->duration > 0 && !hasCoarseTimes()) {
        const double played = double(frame->duration) * av_q2d(decoder_->pkt_timebase) * frame->sample_rate;
        discarded = std::max(discarded, frame->nb_samples - int(std::min(std::lround(played), long(INT32_MAX))));
    }
    sound.count = frame->nb_samples - sound.first - discarded;
    if (sound.seconds)
        *sound.seconds += double(sound.first) / frame->sample_rate;
    sound.frame = std::move(frame);
    return sound;
}

// Of the frame's first sample. Sound that runs on is timed by its samples; only a jump is believed to the time stamps.
std::optional<double> AudioDecoder::secondsOf(const AVFrame& frame) {
    if (frame.pts == AV_NOPTS_VALUE)
        return nextSeconds_;
    const double stated = reader_.movieSeconds(frame.pts);
    const double tolerance = std::max(2 * av_q2d(reader_.stream().time_base),
                                      std::min(jitterSeconds, 0.5 * frame.nb_samples / frame.sample_rate));
    if (nextSeconds_ && std::abs(stated - *nextSeconds_) <= tolerance)
        return nextSeconds_;
    return onGrid(stated, frame);
}

// The exact time behind a coarse one, when all frames of the track are of one length: a whole number of them lies
// between it and the head.
double AudioDecoder::onGrid(double seconds, const AVFrame& frame) const {
    if (!headSeconds_ || frame.nb_samples < 1)
        return seconds;
    const double length = double(frame.nb_samples) / frame.sample_rate;
    const double exact = *headSeconds_ + std::round((seconds - *headSeconds_) / length) * length;
    return std::abs(exact - seconds) <= av_q2d(reader_.stream().time_base) ? exact : seconds;
}

} // namespace panoveer
