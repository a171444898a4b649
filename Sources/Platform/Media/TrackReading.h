#pragma once

#include "Platform/Core/Log.h"
#include "Platform/Media/AssetReader.h"
#include "Platform/Media/MediaSupport.h"

#include <algorithm>
#include <atomic>
#include <exception>
#include <utility>

namespace panoveer {

// How the reading of a track begins and ends: what AssetReader and AssetAudioReader have in common. One thread at a
// time, except cancel(). Not for other layers.
//
//   unknown --start--> reading --complete, a failure--> completed, failed
//      +-------cancel-----+----> cancelled: stands against whatever comes later
template<class Decoder>
struct TrackReading {
    using Status = AssetReader::Status;

    // No number at all counts as the head, like a negative one.
    TrackReading(std::shared_ptr<const MediaAsset> movie, double start)
        : asset(std::move(movie)), startSeconds(start > 0 ? std::min(start, latestStart) : 0) {}

    // Runs what opens the decoder. False when that failed.
    template<class Open>
    bool start(const Open& open) {
        auto expected = Status::unknown;
        return status.compare_exchange_strong(expected, Status::reading) && guarded([&] {
                   open();
                   return true;
               });
    }

    // What `read` gives, or nothing at the end.
    template<class Read>
    auto next(const Read& read) -> decltype(read()) {
        return status == Status::reading ? guarded(read) : std::nullopt;
    }

    // The end of the track or of the range.
    void complete() {
        if (decoder->decodedFrameCount() == 0 && decoder->decodeError())
            throw *decoder->decodeError();
        end(Status::completed);
    }

    void cancel() {
        interrupt = true;
        for (auto from : {Status::unknown, Status::reading})
            if (auto expected = from; status.compare_exchange_strong(expected, Status::cancelled))
                return;
    }

    std::shared_ptr<const MediaAsset> asset;
    double startSeconds;
    std::atomic<bool> interrupt = false; // what the decoder watches
    std::optional<Decoder> decoder;
    std::atomic<Status> status = Status::unknown;
    std::optional<Error> error;

private:
    static constexpr double latestStart = 1e9; // seconds: behind the end of any movie

    void end(Status how) {
        auto expected = Status::reading;
        status.compare_exchange_strong(expected, how);
        if (decoder && decoder->decodeErrorCount() > 0)
            Logger("Media").warning("{}: {} faulty packets were passed over", nameInMessages(asset->url()),
                                    decoder->decodeErrorCount());
        decoder.reset();
    }

    template<class Work>
    auto guarded(const Work& work) -> decltype(work()) {
        try {
            return work();
        } catch (const Cancelled&) {
            end(Status::cancelled);
        } catch (const std::exception&) {
            error = currentError();
            end(Status::failed);
        }
        return {};
    }
};

} // namespace panoveer
