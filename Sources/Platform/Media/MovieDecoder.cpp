#include "Platform/Media/MovieDecoder.h"

#include <algorithm>
#include <cmath>
#include <new>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
}

namespace panoveer {

namespace {

// Times come from rationals through doubles: nearer than this they are the same.
constexpr double timeTolerance = 1e-6;

bool containerHasPresentationTimes(const AVFormatContext& input) {
    return std::string_view(input.iformat->name) != "avi";
}

} // namespace

MovieDecoder::MovieDecoder(const MediaAsset& asset, const VideoTrack& track, const std::atomic<bool>& interrupt)
    : name_(nameInMessages(asset.url())),
      startOffset_(asset.startOffsetSeconds()),
      frameSeconds_(track.nominalFrameRate > 0 ? 1 / track.nominalFrameRate : 1.0 / 30),
      interrupt_(&interrupt),
      input_(openMovie(asset.url(), &interrupt)),
      packet_(makePacket()),
      streamIndex_(track.streamIndex) {
    // The asset has analysed the streams already. Only where the container stores no presentation times does the
    // demuxer need to know the codec's reordering.
    if (!containerHasPresentationTimes(*input_))
        if (const int code = avformat_find_stream_info(input_.get(), nullptr); code < 0)
            throw libavError(name_, code, mediaErrorCode::fileFailedToParse);
    takesDecodingTimes_ =
        !containerHasPresentationTimes(*input_) && track.decoderParameters && track.decoderParameters->video_delay > 0;
    if (streamIndex_ >= int(input_->nb_streams) || !track.decoderParameters)
        throw Error(name_ + ": the video track is missing", std::string(mediaErrorDomain),
                    mediaErrorCode::invalidSourceMedia);
    for (unsigned i = 0; i < input_->nb_streams; ++i)
        input_->streams[i]->discard = int(i) == streamIndex_ ? AVDISCARD_DEFAULT : AVDISCARD_ALL;
    openDecoder(track);
}

void MovieDecoder::openDecoder(const VideoTrack& track) {
    const auto* codec = track.isDecodable ? avcodec_find_decoder(track.decoderParameters->codec_id) : nullptr;
    if (!codec)
        throw Error(name_ + ": no decoder for the video track", std::string(mediaErrorDomain),
                    mediaErrorCode::decoderNotFound);
    decoder_.reset(avcodec_alloc_context3(codec));
    if (!decoder_)
        throw std::bad_alloc();
    int code = avcodec_parameters_to_context(decoder_.get(), track.decoderParameters.get());
    decoder_->pkt_timebase = input_->streams[streamIndex_]->time_base;
    decoder_->thread_count = 0;
    decoder_->thread_type = FF_THREAD_FRAME | FF_THREAD_SLICE;
    // Cropping to the pixel, even where that puts rows off their alignment.
    decoder_->flags |= AV_CODEC_FLAG_UNALIGNED;
    if (code >= 0)
        code = avcodec_open2(decoder_.get(), codec, nullptr);
    if (code < 0)
        throw libavError(name_ + ": cannot open the video decoder", code, mediaErrorCode::decoderNotFound);
    if (AlphaLayerDecoder::isPresent(*track.decoderParameters))
        alpha_.emplace(*track.decoderParameters);
}

std::int64_t MovieDecoder::streamTime(double seconds) const {
    const auto base = input_->streams[streamIndex_]->time_base;
    return std::int64_t(std::floor((seconds + startOffset_) / av_q2d(base) + timeTolerance));
}

double MovieDecoder::movieSeconds(std::int64_t streamTime) const {
    const auto base = input_->streams[streamIndex_]->time_base;
    return double(streamTime) * base.num / base.den - startOffset_;
}

void MovieDecoder::throwIfInterrupted() const {
    if (interrupt_->load(std::memory_order_relaxed))
        throw Cancelled();
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
    throwIfInterrupted();
    resetTimes();
    if (isAtHead_ && seconds <= 0)
        return;
    int code = av_seek_frame(input_.get(), streamIndex_, streamTime(std::max(seconds, 0.0)), AVSEEK_FLAG_BACKWARD);
    // A file without an index may know its head only.
    if (code < 0)
        code = avformat_seek_file(input_.get(), -1, INT64_MIN, INT64_MIN, INT64_MAX, 0);
    throwIfInterrupted();
    if (code < 0)
        throw libavError(name_ + ": cannot seek", code, mediaErrorCode::decodeFailed);
    avcodec_flush_buffers(decoder_.get());
    if (alpha_)
        alpha_->flush();
    isDraining_ = false;
    readError_.reset();
    isAtHead_ = false;
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
    const auto* entry = avformat_index_get_entry_from_timestamp(input_->streams[streamIndex_], streamTime(seconds),
                                                                AVSEEK_FLAG_BACKWARD);
    if (!entry || (entry->flags & AVINDEX_KEYFRAME) == 0 || entry->timestamp == AV_NOPTS_VALUE)
        return std::nullopt;
    return movieSeconds(entry->timestamp);
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
    auto frame = makeFrame();
    for (;;) {
        throwIfInterrupted();
        const int code = avcodec_receive_frame(decoder_.get(), frame.get());
        if (code >= 0) {
            ++decodedFrameCount_;
            if (alpha_)
                alpha_->addTo(*frame);
            auto result = timed(std::move(frame));
            // A stamp that does not rise is a fault of the file: presentation order has no place for it.
            if (result.seconds > lastSeconds_) {
                lastSeconds_ = result.seconds;
                return result;
            }
            frame = makeFrame();
        } else if (code == AVERROR(EAGAIN)) {
            feed();
        } else if (code == AVERROR_EOF) {
            if (readError_)
                throw *readError_;
            return std::nullopt;
        } else {
            noteDecodeError(code);
        }
    }
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
    const double seconds = movieSeconds(packet.pts);
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
    isAtHead_ = false;
    while (!isDraining_) {
        throwIfInterrupted();
        const int code = av_read_frame(input_.get(), packet_.get());
        if (code == AVERROR(EAGAIN))
            continue;
        if (code < 0)
            noteEndOfInput(code);
        else if (packet_->stream_index == streamIndex_)
            return;
        else
            av_packet_unref(packet_.get());
    }
}

void MovieDecoder::noteEndOfInput(int code) {
    throwIfInterrupted();
    isDraining_ = true;
    const int ioError = input_->pb ? input_->pb->error : 0;
    if (code != AVERROR_EOF)
        readError_ = libavError(name_, code, mediaErrorCode::fileFailedToParse);
    else if (ioError < 0 && ioError != AVERROR_EOF)
        readError_ = libavError(name_, ioError, mediaErrorCode::fileFailedToParse);
    else if (isTruncated())
        readError_ = Error(name_ + ": the file ends before its media does", std::string(mediaErrorDomain),
                           mediaErrorCode::fileFailedToParse);
}

// Whether the index promises media behind the end of the file.
bool MovieDecoder::isTruncated() const {
    const auto size = input_->pb ? avio_size(input_->pb) : -1;
    if (size < 0)
        return false;
    auto* stream = input_->streams[streamIndex_];
    for (int i = avformat_index_get_entries_count(stream) - 1; i >= 0; --i)
        if (const auto* entry = avformat_index_get_entry(stream, i); entry->pos + entry->size > size)
            return true;
    return false;
}

void MovieDecoder::noteDecodeError(int code) {
    if (code == AVERROR(ENOMEM))
        throw std::bad_alloc();
    ++decodeErrorCount_;
    if (!decodeError_)
        decodeError_ = libavError(name_, code, mediaErrorCode::decodeFailed);
}

DecodedFrame MovieDecoder::timed(FramePtr frame) {
    DecodedFrame result{std::move(frame), 0, frameSeconds_};
    const auto base = decoder_->pkt_timebase;
    if (result.frame->duration > 0)
        result.durationSeconds = double(result.frame->duration) * base.num / base.den;
    if (takesDecodingTimes_ && !decodingTimes_.empty()) {
        result.seconds = movieSeconds(decodingTimes_.front());
        decodingTimes_.pop_front();
    } else if (result.frame->best_effort_timestamp != AV_NOPTS_VALUE)
        result.seconds = movieSeconds(result.frame->best_effort_timestamp);
    else if (std::isfinite(lastSeconds_))
        result.seconds = lastSeconds_ + frameSeconds_;
    return result;
}

} // namespace panoveer
