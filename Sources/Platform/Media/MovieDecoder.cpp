#include "Platform/Media/MovieDecoder.h"

#include <algorithm>
#include <cmath>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
}

namespace panoveer {

namespace {

// Times come from rationals through doubles: nearer than this they are the same.
constexpr double timeTolerance = 1e-6;

} // namespace

MovieDecoder::MovieDecoder(const MediaAsset& asset, const VideoTrack& track, const std::atomic<bool>& interrupt)
    : TrackDecoder(asset, track.streamIndex, interrupt),
      frameSeconds_(track.nominalFrameRate > 0 ? 1 / track.nominalFrameRate : 1.0 / 30) {
    const auto* parameters = track.isDecodable ? track.decoderParameters.get() : nullptr;
    openDecoder(parameters, "video", [](AVCodecContext& decoder) {
        decoder.thread_count = 0;
        decoder.thread_type = FF_THREAD_FRAME | FF_THREAD_SLICE;
        // Cropping to the pixel, even where that puts rows off their alignment.
        decoder.flags |= AV_CODEC_FLAG_UNALIGNED;
    });
    takesDecodingTimes_ = !reader_.hasPresentationTimes() && parameters->video_delay > 0;
    if (AlphaLayerDecoder::isPresent(*parameters))
        alpha_.emplace(*parameters);
}

void MovieDecoder::resetTimes() {
    constexpr double longAgo = -std::numeric_limits<double>::infinity();
    ahead_.clear();
    decodingTimes_.clear();
    lastSeconds_ = latestCandidate_ = longAgo;
    wantedSeconds_.reset();
}

// Puts demuxer and decoder on the last key frame that is stored at or before a time.
void MovieDecoder::seek(double seconds) {
    reader_.throwIfInterrupted();
    resetTimes();
    if (reader_.isAtHead() && seconds <= 0)
        return;
    reader_.seek(seconds);
    avcodec_flush_buffers(decoder_.get());
    if (alpha_)
        alpha_->flush();
    isDraining_ = false;
}

void MovieDecoder::goTo(double seconds) {
    // Where the first frame to come out lies behind the time (an index in decoding order, pictures that lean on an
    // earlier group), the search begins again further back.
    for (double lead = 0;; lead = lead == 0 ? 1 : 4 * lead) {
        seek(seconds - lead);
        wantedSeconds_ = seconds;
        const auto* first = peek();
        if ((first && first->seconds <= seconds + timeTolerance) || seconds - lead <= 0)
            break;
    }
    skipTo(seconds);
}

void MovieDecoder::skipTo(double seconds) {
    wantedSeconds_ = seconds;
    auto shown = next();
    while (shown) {
        const auto* following = peek();
        if (!following || following->seconds > seconds + timeTolerance)
            break;
        shown = next();
    }
    if (shown)
        ahead_.push_front(std::move(*shown));
    wantedSeconds_.reset();
}

std::optional<DecodedFrame> MovieDecoder::keyFrame(double seconds) {
    seek(seconds);
    readPacket();
    while (!isDraining_ && (packet_->flags & AV_PKT_FLAG_KEY) == 0) {
        av_packet_unref(packet_.get());
        readPacket();
    }
    if (!isDraining_) {
        send(*packet_);
        av_packet_unref(packet_.get());
        // The end of the stream makes the decoder give its picture away without waiting for more.
        drain();
        isDraining_ = true;
    }
    return decodeNext();
}

std::optional<double> MovieDecoder::indexedKeyFrameSeconds(double seconds) const {
    const auto* entry =
        avformat_index_get_entry_from_timestamp(&reader_.stream(), reader_.streamTime(seconds), AVSEEK_FLAG_BACKWARD);
    if (!entry || (entry->flags & AVINDEX_KEYFRAME) == 0 || entry->timestamp == AV_NOPTS_VALUE)
        return std::nullopt;
    return reader_.movieSeconds(entry->timestamp);
}

std::optional<DecodedFrame> MovieDecoder::next() {
    if (ahead_.empty())
        return decodeNext();
    auto frame = std::move(ahead_.front());
    ahead_.pop_front();
    return frame;
}

const DecodedFrame* MovieDecoder::peek() {
    if (ahead_.empty())
        if (auto frame = decodeNext())
            ahead_.push_back(std::move(*frame));
    return ahead_.empty() ? nullptr : &ahead_.front();
}

std::optional<DecodedFrame> MovieDecoder::decodeNext() {
    while (auto frame = receive()) {
        if (alpha_)
            alpha_->addTo(*frame);
        auto result = timed(std::move(frame));
        // A stamp that does not rise is a fault of the file: presentation order has no place for it.
        if (result.seconds > lastSeconds_) {
            lastSeconds_ = result.seconds;
            return result;
        }
    }
    return std::nullopt;
}

void MovieDecoder::feed() {
    readPacket();
    if (isDraining_)
        return drain();
    decoder_->skip_frame = isSuperseded(*packet_) ? AVDISCARD_NONREF : AVDISCARD_DEFAULT;
    send(*packet_);
    av_packet_unref(packet_.get());
}

void MovieDecoder::drain() {
    avcodec_send_packet(decoder_.get(), nullptr);
    if (alpha_)
        alpha_->finish();
}

// Whether another picture takes the place of this one before the wanted time. It then needs no decoding, unless others
// refer to it.
bool MovieDecoder::isSuperseded(const AVPacket& packet) {
    if (!wantedSeconds_ || takesDecodingTimes_ || packet.pts == AV_NOPTS_VALUE)
        return false;
    const double seconds = reader_.movieSeconds(packet.pts);
    if (seconds < latestCandidate_)
        return true;
    if (seconds <= *wantedSeconds_)
        latestCandidate_ = seconds;
    return false;
}

void MovieDecoder::send(const AVPacket& packet) {
    const int code = avcodec_send_packet(decoder_.get(), &packet);
    if (alpha_)
        alpha_->send(packet);
    if (code < 0)
        noteDecodeError(code);
    else if (takesDecodingTimes_ && packet.dts != AV_NOPTS_VALUE)
        decodingTimes_.push_back(packet.dts);
}

// The track's next packet, or isDraining_.
void MovieDecoder::readPacket() {
    if (!isDraining_)
        isDraining_ = !reader_.read(*packet_);
}

DecodedFrame MovieDecoder::timed(FramePtr frame) {
    DecodedFrame result{std::move(frame), 0, frameSeconds_};
    const auto base = decoder_->pkt_timebase;
    if (result.frame->duration > 0)
        result.durationSeconds = double(result.frame->duration) * base.num / base.den;
    if (takesDecodingTimes_ && !decodingTimes_.empty()) {
        result.seconds = reader_.movieSeconds(decodingTimes_.front());
        decodingTimes_.pop_front();
    } else if (result.frame->best_effort_timestamp != AV_NOPTS_VALUE)
        result.seconds = reader_.movieSeconds(result.frame->best_effort_timestamp);
    else if (std::isfinite(lastSeconds_))
        result.seconds = lastSeconds_ + frameSeconds_;
    return result;
}

} // namespace panoveer
