#include "Platform/Media/AssetImageGenerator.h"

#include "Platform/Media/FrameConverter.h"
#include "Platform/Media/MediaSupport.h"
#include "Platform/Media/MovieDecoder.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstring>
#include <optional>

extern "C" {
#include <libavutil/frame.h>
}

namespace panoveer {

namespace {

constexpr double timeTolerance = 1e-6;

// One of the eight ways in which a picture can lie on a pixel grid: x' = a x + c y, y' = b x + d y.
struct GridOrientation {
    int a = 1, b = 0, c = 0, d = 1;
    bool isUpright() const { return a == 1 && d == 1; }
    bool swapsSides() const { return a == 0; }
};

GridOrientation nearestGridOrientation(const AffineTransform& transform) {
    const auto sign = [](double value) { return value < 0 ? -1 : 1; };
    if (std::abs(transform.a) + std::abs(transform.d) >= std::abs(transform.b) + std::abs(transform.c))
        return {sign(transform.a), 0, 0, sign(transform.d)};
    return {0, sign(transform.b), sign(transform.c), 0};
}

PixelBufferPtr oriented(const PixelBuffer& picture, const GridOrientation& grid) {
    const auto& source = picture.plane(0);
    const bool swaps = grid.swapsSides();
    auto result = PixelBuffer::make(pixelFormat::bgra, swaps ? source.height : source.width,
                                    swaps ? source.width : source.height);
    const auto& target = result->plane(0);
    // The inverse of a signed permutation is its transpose: x = a x' + b y', y = c x' + d y', from the far edge where
    // the sign is negative.
    const auto rowStep = std::ptrdiff_t(source.rowBytes);
    constexpr std::ptrdiff_t pixelStep = 4;
    const auto* origin = source.data;
    if (grid.a + grid.b < 0)
        origin += (source.width - 1) * pixelStep;
    if (grid.c + grid.d < 0)
        origin += (source.height - 1) * rowStep;
    const auto stepX = grid.a * pixelStep + grid.c * rowStep, stepY = grid.b * pixelStep + grid.d * rowStep;
    for (int y = 0; y < target.height; ++y) {
        auto* out = target.data + std::size_t(y) * target.rowBytes;
        const auto* in = origin + y * stepY;
        for (int x = 0; x < target.width; ++x, out += pixelStep, in += stepX)
            std::memcpy(out, in, std::size_t(pixelStep));
    }
    result->color() = picture.color();
    return result;
}

} // namespace

struct AssetImageGenerator::State {
    std::shared_ptr<const MediaAsset> asset;
    bool appliesTransform = false;
    int maximumWidth = 0, maximumHeight = 0;
    double toleranceBefore = 0, toleranceAfter = 0;

    std::atomic<bool> interrupt = false; // what the decoder watches
    const VideoTrack* track = nullptr;   // of the asset
    std::optional<MovieDecoder> decoder;
    std::optional<double> positionSeconds; // time of the frame that the decoder has given last; none: it must seek
    std::optional<FrameConverter> converter;

    void open() {
        if (decoder)
            return;
        const auto found = std::ranges::find_if(asset->videoTracks(), &VideoTrack::isDecodable);
        if (found == asset->videoTracks().end())
            throw Error(nameInMessages(asset->url()) + ": no video track to take pictures from",
                        std::string(mediaErrorDomain), mediaErrorCode::decoderNotFound);
        track = &*found;
        decoder.emplace(*asset, *track, interrupt);
    }

    // The key frame before the time or the one after it, when the window holds it.
    std::optional<DecodedFrame> keyFrameInWindow(double seconds) {
        const double earliest = seconds - toleranceBefore, latest = seconds + toleranceAfter;
        for (double target : {seconds, latest}) {
            const auto indexed = decoder->indexedKeyFrameSeconds(target);
            // The index may be early by the reordering delay: a second lets such a key frame be tried.
            if (indexed && (*indexed < earliest - 1 || *indexed > latest))
                continue;
            positionSeconds.reset();
            auto frame = decoder->keyFrame(target);
            if (frame && frame->seconds >= earliest - timeTolerance && frame->seconds <= latest + timeTolerance)
                return frame;
            if (toleranceAfter <= 0)
                break;
        }
        return std::nullopt;
    }

    std::optional<DecodedFrame> displayedFrame(double seconds) {
        // Going on from here pays until a later key frame offers itself.
        const auto keyFrame = decoder->indexedKeyFrameSeconds(seconds);
        const auto* following = positionSeconds ? decoder->peek() : nullptr;
        const bool canGoOn = following && following->seconds <= seconds + timeTolerance &&
                             keyFrame.value_or(seconds) <= following->seconds;
        positionSeconds.reset();
        canGoOn ? decoder->skipTo(seconds) : decoder->goTo(seconds);
        auto frame = decoder->next();
        if (frame)
            positionSeconds = frame->seconds;
        return frame;
    }

    DecodedFrame frameAt(double seconds) {
        std::optional<DecodedFrame> frame;
        if (toleranceBefore > 0 || toleranceAfter > 0)
            frame = keyFrameInWindow(seconds);
        if (!frame)
            frame = displayedFrame(seconds);
        if (frame)
            return std::move(*frame);
        if (decoder->decodeError())
            throw *decoder->decodeError();
        throw noPicture(seconds);
    }

    Error noPicture(double seconds) const {
        return Error(nameInMessages(asset->url()) + ": no picture at " + std::to_string(seconds) + " s",
                     std::string(mediaErrorDomain), mediaErrorCode::noImageAtTime);
    }

    PixelBufferPtr picture(FramePtr frame) {
        const auto grid = appliesTransform ? nearestGridOrientation(track->preferredTransform) : GridOrientation();
        // The track's shape on the frame's own pixels, should a stream change its size on the way.
        const auto& description = track->formatDescriptions.front();
        const double fullWidth = frame->width * track->naturalWidth / description.width;
        const double fullHeight = frame->height * track->naturalHeight / description.height;
        const double shownWidth = grid.swapsSides() ? fullHeight : fullWidth;
        const double shownHeight = grid.swapsSides() ? fullWidth : fullHeight;
        double scale = 1;
        if (maximumWidth > 0)
            scale = std::min(scale, maximumWidth / shownWidth);
        if (maximumHeight > 0)
            scale = std::min(scale, maximumHeight / shownHeight);
        if (!converter)
            converter.emplace(pixelFormat::bgra, description.color);
        converter->setOutputSize(std::max(int(std::lround(fullWidth * scale)), 1),
                                 std::max(int(std::lround(fullHeight * scale)), 1));
        auto result = converter->convert(std::move(frame));
        return grid.isUpright() ? result : oriented(*result, grid);
    }
};

AssetImageGenerator::AssetImageGenerator(std::shared_ptr<const MediaAsset> asset) : state_(std::make_unique<State>()) {
    state_->asset = std::move(asset);
}

AssetImageGenerator::~AssetImageGenerator() = default;
AssetImageGenerator::AssetImageGenerator(AssetImageGenerator&&) noexcept = default;
AssetImageGenerator& AssetImageGenerator::operator=(AssetImageGenerator&&) noexcept = default;

void AssetImageGenerator::setAppliesPreferredTrackTransform(bool applies) { state_->appliesTransform = applies; }

void AssetImageGenerator::setMaximumSize(int width, int height) {
    state_->maximumWidth = width;
    state_->maximumHeight = height;
}

void AssetImageGenerator::setRequestedTimeTolerance(double beforeSeconds, double afterSeconds) {
    state_->toleranceBefore = std::max(beforeSeconds, 0.0);
    state_->toleranceAfter = std::max(afterSeconds, 0.0);
}

AssetImage AssetImageGenerator::copyImage(double seconds, std::stop_token stop) {
    auto& state = *state_;
    state.interrupt = false;
    const std::stop_callback interruption(stop, [&state] { state.interrupt = true; });
    seconds = std::max(seconds, 0.0);
    const double last = state.asset->durationSeconds();
    if (!std::isfinite(seconds) || (last > 0 && seconds > last + state.toleranceBefore + timeTolerance))
        throw state.noPicture(seconds);
    try {
        state.open();
        auto frame = state.frameAt(seconds);
        return {state.picture(std::move(frame.frame)), frame.seconds};
    } catch (...) {
        state.positionSeconds.reset();
        // What a stop interrupts in the middle of opening or reading is told as a failure of the file.
        if (stop.stop_requested())
            throw Cancelled();
        throw;
    }
}

} // namespace panoveer
