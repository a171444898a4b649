#include "Platform/Media/MovieMuxer.h"

#include "Platform/Media/MovieHeader.h"

#include <algorithm>
#include <array>
#include <limits>
#include <new>
#include <utility>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
}

namespace panoveer {

namespace {

// Per sample, the largest that each table takes: stsz 4, ctts 8, stts 8, stss 4, stsc 12, co64 8 bytes.
constexpr std::int64_t headerBytesPerSample = 44;
// Everything else in `moov`, and spare room in which metadata can be added later without moving the media.
constexpr std::int64_t headerBytesBesides = 1 << 14;
constexpr std::int64_t boxHeaderSize = 8;
constexpr std::int64_t largeBoxHeaderSize = 16;

// The muxer keeps a fragment in memory until it is cut, and cannot hold 2 GiB of one track.
constexpr std::int64_t largestFragment = 256 << 20;

// How far a track may be ahead of another. An encoder of pictures holds some seconds of them.
constexpr double longestLead = 10;              // seconds
constexpr std::int64_t largestLead = 128 << 20; // bytes

Error mediaError(const std::string& message) {
    return Error(message, std::string(mediaErrorDomain), mediaErrorCode::unknown);
}

void requireMovieHeader(std::span<const std::uint8_t> box) {
    if (box.size() < boxHeaderSize || !std::ranges::equal(box.subspan(4, 4), std::string_view("moov")) ||
        boxSize(box) < boxHeaderSize)
        throw mediaError("The sample tables are not where they were expected");
}

bool isKeyFrame(const AVPacket& packet) { return (packet.flags & AV_PKT_FLAG_KEY) != 0; }

} // namespace

void MovieMuxer::FreeMuxer::operator()(AVFormatContext* context) const noexcept { avformat_free_context(context); }

MovieMuxer::MovieMuxer(const std::filesystem::path& path, const Configuration& configuration, int trackCount)
    : configuration_(configuration), file_(path), tracks_(std::size_t(trackCount)) {
    limitLibAVLog();
    AVFormatContext* context = nullptr;
    const bool isQuickTime = configuration.fileType == MovieFileType::quickTimeMovie;
    throwIfFailed(avformat_alloc_output_context2(&context, nullptr, isQuickTime ? "mov" : "mp4", nullptr),
                  "Cannot make a movie");
    muxer_.reset(context);
    context->pb = file_.context();
    for (int i = 0; i < trackCount; ++i)
        if (!avformat_new_stream(context, nullptr))
            throw std::bad_alloc();
    if (isFragmented())
        nextCutSeconds_ = (configuration.initialFragmentInterval.isValid() ? configuration.initialFragmentInterval
                                                                           : configuration.fragmentInterval)
                              .seconds();
}

MovieMuxer::~MovieMuxer() = default;

void MovieMuxer::throwIfFailed(int code, std::string_view what) const {
    if (file_.error())
        throw *file_.error();
    if (code < 0)
        throw libavError(what, code);
}

void MovieMuxer::describeVideo(int index, VideoDescription description) {
    std::lock_guard lock(mutex_);
    tracks_.at(std::size_t(index)).description = std::move(description);
}

void MovieMuxer::configureTrack(int index, const AVCodecParameters& parameters, std::int32_t timescale,
                                const std::optional<SoundDescription>& sound) {
    std::lock_guard lock(mutex_);
    if (!muxer_)
        return;
    auto& track = tracks_.at(std::size_t(index));
    auto* stream = muxer_->streams[index];
    throwIfFailed(avcodec_parameters_copy(stream->codecpar, &parameters), "Cannot describe a track");
    stream->time_base = {1, timescale};
    if (track.description.hasManyLayers)
        stream->disposition |= AV_DISPOSITION_MULTILAYER;
    track.timescale = timescale;
    track.isVideo = parameters.codec_type == AVMEDIA_TYPE_VIDEO;
    track.sound = sound;
    if (track.sound)
        track.sound->trackID = std::uint32_t(index + 1);
    track.isConfigured = true;
    if (std::ranges::all_of(tracks_, &Track::isConfigured))
        writeHeader();
}

void MovieMuxer::writeHeader() {
    AVDictionary* options = nullptr;
    av_dict_set_int(&options, "movie_timescale", configuration_.movieTimeScale, 0);
    av_dict_set_int(&options, "video_track_timescale", configuration_.videoTimeScale, 0);
    if (configuration_.fileType == MovieFileType::m4a)
        av_dict_set(&options, "brand", "M4A ", 0);
    if (isFragmented()) {
        av_dict_set(&options, "movflags", "hybrid_fragmented+frag_custom", 0);
        av_dict_set(&options, "use_editlist", "1", 0);
    }
    av_dict_set(&muxer_->metadata, "creation_time", "now", 0);
    // Times are as they should be: nothing is to be shifted.
    muxer_->avoid_negative_ts = AVFMT_AVOID_NEG_TS_DISABLED;
    const int code = avformat_write_header(muxer_.get(), &options);
    av_dict_free(&options);
    throwIfFailed(code, "Cannot write the head of the movie");

    const auto headerEnd = file_.flush();
    std::array<std::uint8_t, 4> size{};
    file_.readAt(0, size);
    fileTypeEnd_ = std::int64_t(boxSize(size));
    if (!isFragmented()) {
        // The first sample leaves room in front of it: for `moov`, the rest of the room, and the header of `mdat`.
        mediaStart_ = fileTypeEnd_ + headerBytesBesides + headerBytesPerSample * configuration_.plannedSampleCount +
                      descriptionRoom() + boxHeaderSize + largeBoxHeaderSize;
        mediaStart_ = std::max(mediaStart_, headerEnd);
        avio_seek(file_.context(), mediaStart_, SEEK_SET);
    } else if (const auto room = descriptionRoom(); room > 0) {
        file_.writeAt(headerEnd, freeBoxHeader(room + boxHeaderSize));
        avio_seek(file_.context(), headerEnd + room + boxHeaderSize, SEEK_SET);
    }
    headerStart_ = avio_tell(file_.context());
    lastFragmentEnd_ = headerEnd;
    hasHeader_ = true;
}

// By how much completeDescriptions() makes a `moov` larger, at most.
std::int64_t MovieMuxer::descriptionRoom() const {
    std::int64_t room = 0;
    for (const auto& track : tracks_) {
        room += std::int64_t(track.description.sampleEntryBoxes.size());
        room += track.sound ? std::int64_t(largestGrowth(*track.sound)) : 0;
    }
    return room;
}

// Adds what libavformat does not say of the tracks.
void MovieMuxer::completeDescriptions(std::vector<std::uint8_t>& moov) const {
    for (std::size_t i = 0; i < tracks_.size(); ++i) {
        appendToSampleEntry(moov, i, tracks_[i].description.sampleEntryBoxes);
        if (tracks_[i].sound)
            describeSound(moov, *tracks_[i].sound);
    }
}

void MovieMuxer::write(int index, PacketPtr packet) {
    std::unique_lock lock(mutex_);
    auto& track = tracks_.at(std::size_t(index));
    changed_.wait(lock, [&] { return !muxer_ || isReleased_ || !isFarAhead(track); });
    if (!muxer_ || isReleased_)
        return;
    track.waitingBytes += packet->size;
    track.waiting.push_back(std::move(packet));
    writeReadyPackets();
    changed_.notify_all();
}

// Packets wait only while another track has none, so that the track that is behind all others never does.
bool MovieMuxer::isFarAhead(const Track& track) const {
    if (track.waiting.empty())
        return false;
    const auto lead = track.waiting.back()->dts - track.waiting.front()->dts;
    return track.waitingBytes > largestLead || double(lead) > longestLead * track.timescale;
}

void MovieMuxer::release() noexcept {
    std::lock_guard lock(mutex_);
    isReleased_ = true;
    changed_.notify_all();
}

void MovieMuxer::endAt(double seconds) {
    std::lock_guard lock(mutex_);
    endSeconds_ = seconds;
}

void MovieMuxer::finishTrack(int index) {
    std::lock_guard lock(mutex_);
    if (!muxer_)
        return;
    tracks_.at(std::size_t(index)).isFinished = true;
    writeReadyPackets();
    changed_.notify_all();
}

// A packet is next when every track that may still bring an earlier one has shown its own next packet.
void MovieMuxer::writeReadyPackets() {
    const auto isKnown = [](const Track& track) { return track.isFinished || !track.waiting.empty(); };
    while (hasHeader_ && std::ranges::all_of(tracks_, isKnown)) {
        int next = -1;
        for (int i = 0; i < int(tracks_.size()); ++i) {
            const auto& track = tracks_[std::size_t(i)];
            if (track.waiting.empty())
                continue;
            const auto* best = next < 0 ? nullptr : &tracks_[std::size_t(next)];
            if (!best || av_compare_ts(track.waiting.front()->dts, {1, track.timescale}, best->waiting.front()->dts,
                                       {1, best->timescale}) < 0)
                next = i;
        }
        if (next < 0)
            return;
        auto& track = tracks_[std::size_t(next)];
        auto packet = std::move(track.waiting.front());
        track.waiting.pop_front();
        track.waitingBytes -= packet->size;
        if (!endSeconds_ || double(packet->pts) < *endSeconds_ * track.timescale)
            writeNow(next, std::move(packet));
    }
}

void MovieMuxer::writeNow(int index, PacketPtr packet) {
    auto& track = tracks_[std::size_t(index)];
    if (isFragmented())
        cutBefore(track, *packet);
    if (!track.firstDecodeTime)
        track.firstDecodeTime = packet->dts;
    bytesInFragment_ += packet->size;
    ++writtenSampleCount_;
    packet->stream_index = index;
    packet->time_base = {1, track.timescale};
    av_packet_rescale_ts(packet.get(), packet->time_base, muxer_->streams[index]->time_base);
    throwIfFailed(av_write_frame(muxer_.get(), packet.get()), "Cannot write a sample");
}

// Fragments begin with a key frame of a video track, where there is one, so that each can be decoded by itself.
void MovieMuxer::cutBefore(const Track& track, const AVPacket& packet) {
    const auto hasBegun = [](const Track& each) { return each.isFinished || each.firstDecodeTime; };
    if (!hasFirstCut_ && std::ranges::all_of(tracks_, hasBegun)) {
        hasFirstCut_ = true;
        return cutFragment();
    }
    const auto seconds = double(packet.dts - track.firstDecodeTime.value_or(packet.dts)) / track.timescale;
    const bool canLead = (track.isVideo || std::ranges::none_of(tracks_, &Track::isVideo)) && isKeyFrame(packet);
    if (canLead && seconds >= nextCutSeconds_) {
        hasFirstCut_ = true;
        while (nextCutSeconds_ <= seconds)
            nextCutSeconds_ += configuration_.fragmentInterval.seconds();
        cutFragment();
    } else if (bytesInFragment_ > 0 && bytesInFragment_ + packet.size > largestFragment) {
        cutFragment();
    }
}

void MovieMuxer::cutFragment() {
    throwIfFailed(av_write_frame(muxer_.get(), nullptr), "Cannot write a fragment");
    lastFragmentEnd_ = file_.flush();
    bytesInFragment_ = 0;
    if (!std::exchange(hasCompleteHeader_, true))
        completeInitialHeader();
}

// The muxer leaves the edits of the first `moov` open ("to the end", duration 0). libavformat's demuxer, for one, drops
// the samples in that `moov` then; an edit as long as the movie is meant to become shows them all. What the muxer does
// not say of the tracks needs room, which is in front of the box.
//
//   ftyp | place for the size of mdat | free ( room )       | moov | mdat …      as the muxer leaves it
//   ftyp | place for the size of mdat | moov ( more ) | free ( the rest ) | mdat …
void MovieMuxer::completeInitialHeader() {
    std::array<std::uint8_t, boxHeaderSize> header{};
    file_.readAt(headerStart_, header);
    requireMovieHeader(header);
    std::vector<std::uint8_t> moov(boxSize(header));
    file_.readAt(headerStart_, moov);
    const auto mediaStart = headerStart_ + std::int64_t(moov.size());
    const auto& planned = configuration_.plannedDuration;
    constexpr std::int64_t longest = std::numeric_limits<std::uint32_t>::max() - 1;
    const auto duration =
        planned.isValid() && planned.value > 0
            ? av_rescale_rnd(planned.value, configuration_.movieTimeScale, planned.timescale, AV_ROUND_UP)
            : longest;
    boundEdits(moov, std::uint64_t(std::min(duration, longest)));
    completeDescriptions(moov);
    const auto start = fileTypeEnd_ + boxHeaderSize; // behind the place that is kept for the size of `mdat`
    const auto left = mediaStart - start - std::int64_t(moov.size());
    if (left > 0) {
        const auto rest = freeBoxHeader(left);
        moov.insert(moov.end(), rest.begin(), rest.end());
    }
    file_.writeAt(start, moov);
}

void MovieMuxer::finish() {
    std::lock_guard lock(mutex_);
    if (!muxer_)
        throw mediaError("The movie was given up");
    if (writtenSampleCount_ == 0)
        throw mediaError("A movie without a single sample");
    if (isFragmented())
        cutFragment();
    mediaEnd_ = file_.flush();
    auto moov = takeMovieHeader();
    muxer_.reset();
    if (isFragmented()) {
        makeOrdinary(moov);
        layOutOrdinary(std::move(moov));
        return;
    }
    const auto room = mediaStart_ - largeBoxHeaderSize - fileTypeEnd_;
    const auto left = room - std::int64_t(moov.size());
    if (left >= boxHeaderSize) {
        file_.writeAt(fileTypeEnd_, moov);
        file_.writeAt(fileTypeEnd_ + std::int64_t(moov.size()), freeBoxHeader(left));
    } else {
        file_.writeAt(mediaEnd_, moov);
        file_.writeAt(fileTypeEnd_, freeBoxHeader(room));
    }
    file_.writeAt(fileTypeEnd_ + room, largeBoxHeader(FourCC("mdat"), mediaEnd_ - fileTypeEnd_ - room));
}

// The sample tables are complete before the file is touched again.
std::vector<std::uint8_t> MovieMuxer::takeMovieHeader() {
    file_.divertTail(mediaEnd_);
    throwIfFailed(av_write_trailer(muxer_.get()), "Cannot complete the movie");
    file_.flush();
    auto moov = file_.takeTail();
    requireMovieHeader(moov);
    completeDescriptions(moov);
    return moov;
}

// The movie header goes behind the last fragment first: should the disk be full now, the fragments still stand. Then
// one small write makes all of them the payload of a single `mdat`.
void MovieMuxer::layOutOrdinary(std::vector<std::uint8_t> moov) {
    try {
        file_.writeAt(mediaEnd_, moov);
    } catch (const Error&) {
        file_.truncate(mediaEnd_);
        throw;
    }
    file_.writeAt(fileTypeEnd_, largeBoxHeader(FourCC("mdat"), mediaEnd_ - fileTypeEnd_));
}

void MovieMuxer::abandon() noexcept {
    std::lock_guard lock(mutex_);
    if (!muxer_)
        return;
    try {
        if (isFragmented() && hasHeader_) {
            if (!file_.error() && writtenSampleCount_ > 0)
                cutFragment();
        }
    } catch (const std::exception&) {
        // The disk is full or gone: what is cut already must do.
    }
    try {
        if (isFragmented() && hasHeader_)
            file_.truncate(lastFragmentEnd_);
    } catch (const std::exception&) {
        // Readers pass over a fragment that is cut short.
    }
    muxer_.reset();
    changed_.notify_all();
}

} // namespace panoveer
