#pragma once

#include "Platform/Core/MediaTime.h"
#include "Platform/Media/AssetWriter.h"
#include "Platform/Media/MediaSupport.h"
#include "Platform/Media/MovieFile.h"
#include "Platform/Media/SoundDescription.h"

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>
#include <vector>

struct AVCodecParameters;

namespace panoveer {

// Brings the packets of all tracks of a movie into its file, in the order of their decoding times. A track that is far
// ahead of another one waits for it in write(), so that memory holds a few seconds of a track at most. libavformat
// makes the sample tables; the layout of the file is ours:
//
//   .mp4   ftyp | moov | free | mdat          room for `moov` is kept free while the media is written
//   .mov   ftyp | moov | mdat | moof | mdat | moof | mdat …        while it grows
//          ftyp | mdat ( all of that ) | moov                      once it is finished
//
// In a growing .mov the first `moov` holds the first sample of every track, so that its edit lists are known; the first
// `moof` follows after initialMovieFragmentInterval. Any thread, except where told. Not for other layers.
class MovieMuxer {
public:
    struct Configuration {
        MovieFileType fileType = MovieFileType::mp4;
        std::int32_t movieTimeScale = 600;
        std::int32_t videoTimeScale = 600;
        // Of the first and of all further fragments; not valid: no fragments.
        MediaTime initialFragmentInterval;
        MediaTime fragmentInterval;
        // What the movie is meant to become; 0 or not valid: not known. Samples are those of all tracks.
        MediaTime plannedDuration;
        std::int64_t plannedSampleCount = 0;
    };

    // Makes the file. Throws Error in posixErrorDomain.
    MovieMuxer(const std::filesystem::path& path, const Configuration& configuration, int trackCount);
    ~MovieMuxer();

    // What the sample entry of a video track says beyond its codec parameters.
    struct VideoDescription {
        bool hasManyLayers = false;                      // parameter sets of a second layer go into `lhvC`
        std::vector<std::uint8_t> sampleEntryBoxes = {}; // whole boxes
    };
    // Ahead of the track's configureTrack().
    void describeVideo(int track, VideoDescription description);

    // What the packets of a track are, once for each track; `timescale` is their time unit, `sound` what else is to be
    // said of a track of sound. The header is written when the last track is told. Throws Error.
    void configureTrack(int track, const AVCodecParameters& parameters, std::int32_t timescale,
                        const std::optional<SoundDescription>& sound = std::nullopt);
    // In decoding order within the track. Blocks while the track is far ahead of another. Throws Error.
    void write(int track, PacketPtr packet);
    // From now on write() neither blocks nor writes.
    void release() noexcept;
    // Packets to be shown at or behind this time of the movie are left out from now on.
    void endAt(double seconds);
    // No packet follows in this track. Throws Error.
    void finishTrack(int track);

    // Completes the movie when all tracks are finished. Throws Error.
    void finish();

    // After a failure: leaves the file as a movie that plays as far as it was written, when it is fragmented, and
    // writes no more.
    void abandon() noexcept;

private:
    struct Track {
        std::int32_t timescale = 0;
        std::deque<PacketPtr> waiting;
        std::int64_t waitingBytes = 0;
        std::optional<SoundDescription> sound;
        VideoDescription description;
        std::optional<std::int64_t> firstDecodeTime;
        bool isVideo = false;
        bool isConfigured = false;
        bool isFinished = false;
    };
    struct FreeMuxer {
        void operator()(AVFormatContext* context) const noexcept;
    };

    bool isFragmented() const { return configuration_.fragmentInterval.isValid(); }
    bool isFarAhead(const Track& track) const;
    void writeHeader();
    std::int64_t descriptionRoom() const;
    void completeDescriptions(std::vector<std::uint8_t>& moov) const;
    void writeReadyPackets();
    void writeNow(int track, PacketPtr packet);
    void cutBefore(const Track& track, const AVPacket& packet);
    void cutFragment();
    void completeInitialHeader();
    void throwIfFailed(int code, std::string_view what) const;
    std::vector<std::uint8_t> takeMovieHeader();
    void layOutOrdinary(std::vector<std::uint8_t> moov);

    const Configuration configuration_;
    std::mutex mutex_; // guards all that follows
    std::condition_variable changed_;
    bool isReleased_ = false;
    MovieFile file_;
    std::unique_ptr<AVFormatContext, FreeMuxer> muxer_; // none once finished or abandoned
    std::vector<Track> tracks_;
    bool hasHeader_ = false;
    std::optional<double> endSeconds_;
    std::int64_t writtenSampleCount_ = 0;
    std::int64_t fileTypeEnd_ = 0; // where `ftyp` ends
    std::int64_t headerStart_ = 0; // fragmented: where the muxer puts the first `moov`
    std::int64_t mediaStart_ = 0;  // mp4: where the first sample lies
    std::int64_t mediaEnd_ = 0;
    // Fragments.
    bool hasFirstCut_ = false;
    bool hasCompleteHeader_ = false;
    double nextCutSeconds_ = 0;
    std::int64_t bytesInFragment_ = 0;
    std::int64_t lastFragmentEnd_ = 0;
};

} // namespace panoveer
