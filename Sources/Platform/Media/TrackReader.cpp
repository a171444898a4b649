#include "Platform/Media/TrackReader.h"

#include <algorithm>
#include <cmath>

extern "C" {
#include <libavcodec/packet.h>
#include <libavformat/avformat.h>
}

namespace panoveer {

namespace {

// Times come from rationals through doubles: nearer than this they are the same, in units of the stream.
constexpr double timeTolerance = 1e-6;

} // namespace

TrackReader::TrackReader(const MediaAsset& asset, int streamIndex, const std::atomic<bool>& interrupt)
    : name_(nameInMessages(asset.url())),
      startOffset_(asset.startOffsetSeconds()),
      interrupt_(&interrupt),
      input_(openMovie(asset.url(), &interrupt)),
      streamIndex_(streamIndex) {
    // The asset has analysed the streams already. Only where the container stores no presentation times does the
    // demuxer need to know the codec's reordering.
    if (!hasPresentationTimes())
        if (const int code = avformat_find_stream_info(input_.get(), nullptr); code < 0)
            throw libavError(name_, code, mediaErrorCode::fileFailedToParse);
    if (streamIndex_ >= int(input_->nb_streams))
        throw Error(name_ + ": the track is missing", std::string(mediaErrorDomain),
                    mediaErrorCode::invalidSourceMedia);
    for (unsigned i = 0; i < input_->nb_streams; ++i)
        input_->streams[i]->discard = int(i) == streamIndex_ ? AVDISCARD_DEFAULT : AVDISCARD_ALL;
}

bool TrackReader::hasPresentationTimes() const { return std::string_view(input_->iformat->name) != "avi"; }

AVStream& TrackReader::stream() const { return *input_->streams[streamIndex_]; }

std::int64_t TrackReader::streamTime(double seconds) const {
    return std::int64_t(std::floor((seconds + startOffset_) / av_q2d(stream().time_base) + timeTolerance));
}

double TrackReader::movieSeconds(std::int64_t streamTime) const {
    const auto base = stream().time_base;
    return double(streamTime) * base.num / base.den - startOffset_;
}

void TrackReader::throwIfInterrupted() const {
    if (interrupt_->load(std::memory_order_relaxed))
        throw Cancelled();
}

void TrackReader::seek(double seconds) {
    throwIfInterrupted();
    int code = av_seek_frame(input_.get(), streamIndex_, streamTime(std::max(seconds, 0.0)), AVSEEK_FLAG_BACKWARD);
    // A file without an index may know its head only.
    if (code < 0)
        code = avformat_seek_file(input_.get(), -1, INT64_MIN, INT64_MIN, INT64_MAX, 0);
    throwIfInterrupted();
    if (code < 0)
        throw libavError(name_ + ": cannot seek", code, mediaErrorCode::decodeFailed);
    endError_.reset();
    isAtHead_ = false;
}

bool TrackReader::read(AVPacket& packet) {
    isAtHead_ = false;
    for (;;) {
        throwIfInterrupted();
        const int code = av_read_frame(input_.get(), &packet);
        if (code == AVERROR(EAGAIN))
            continue;
        if (code < 0) {
            noteEnd(code);
            return false;
        }
        if (packet.stream_index == streamIndex_)
            return true;
        av_packet_unref(&packet);
    }
}

void TrackReader::noteEnd(int code) {
    throwIfInterrupted();
    const int ioError = input_->pb ? input_->pb->error : 0;
    if (code != AVERROR_EOF)
        endError_ = libavError(name_, code, mediaErrorCode::fileFailedToParse);
    else if (ioError < 0 && ioError != AVERROR_EOF)
        endError_ = libavError(name_, ioError, mediaErrorCode::fileFailedToParse);
    else if (isTruncated())
        endError_ = Error(name_ + ": the file ends before its media does", std::string(mediaErrorDomain),
                          mediaErrorCode::fileFailedToParse);
}

// Whether the index promises media behind the end of the file.
bool TrackReader::isTruncated() const {
    const auto size = input_->pb ? avio_size(input_->pb) : -1;
    if (size < 0)
        return false;
    auto& track = stream();
    for (int i = avformat_index_get_entries_count(&track) - 1; i >= 0; --i)
        if (const auto* entry = avformat_index_get_entry(&track, i); entry->pos + entry->size > size)
            return true;
    return false;
}

} // namespace panoveer
