#pragma once

#include "Platform/Core/Error.h"
#include "Platform/Media/MediaAsset.h"

#include <limits>
#include <memory>
#include <stop_token>

namespace panoveer {

struct AssetImage {
    PixelBufferPtr picture;   // BGRA, square pixels; alpha, where the track has any, is straight
    double actualSeconds = 0; // presentation time of the frame that it shows
};

// Takes single pictures out of the first video track that the native road decodes. The decoder stays open between
// calls, and a picture a little later than the last one costs only the frames between. One thread at a time.
class AssetImageGenerator {
public:
    explicit AssetImageGenerator(std::shared_ptr<const MediaAsset> asset);
    ~AssetImageGenerator();
    AssetImageGenerator(AssetImageGenerator&&) noexcept;
    AssetImageGenerator& operator=(AssetImageGenerator&&) noexcept;

    // Whether pictures are turned and mirrored as the track asks, to the nearest quarter turn. Off at first.
    void setAppliesPreferredTrackTransform(bool applies);

    // Larger pictures are scaled down to fit, their shape kept. 0: no bound, as at first.
    void setMaximumSize(int width, int height);

    // How much earlier and later than asked a frame may be, in seconds: a key frame in that window is quicker than the
    // exact frame. 0, as at first: the frame displayed at the time.
    void setRequestedTimeTolerance(double beforeSeconds, double afterSeconds);

    // The picture at a time of the movie; a negative time counts as 0. Throws Error (mediaErrorDomain, or
    // posixErrorDomain for a file that cannot be read) when there is none, Cancelled once `stop` is requested.
    AssetImage copyImage(double seconds, std::stop_token stop = {});

private:
    struct State;
    std::unique_ptr<State> state_;
};

} // namespace panoveer
