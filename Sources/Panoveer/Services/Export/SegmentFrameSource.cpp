#include "Panoveer/Services/Export/SegmentFrameSource.h"

#include "Panoveer/Services/Export/ExportDiagnostics.h"
#include "Panoveer/Services/Export/ExportVideoSettings.h"
#include "Panoveer/Services/Export/VRExportError.h"
#include "Panoveer/Services/Intake/FFmpegFrameReader.h"
#include "Panoveer/Services/Intake/FFmpegPreviewPlaybackActivity.h"
#include "Panoveer/Services/Intake/FFmpegRuntime.h"
#include "Platform/Media/AssetReader.h"

#include <algorithm>
#include <chrono>
#include <thread>
#include <utility>

namespace panoveer {

namespace {

constexpr auto previewPollInterval = std::chrono::milliseconds(20);

SourcePictureDescription describe(const PixelBuffer& picture, const VRClipSegment& segment, bool containsAlpha) {
    const auto color = colorMetadata(picture.color(), segment.colorMetadata);
    return {.yCbCrMatrix = color.yCbCrMatrix,
            .colorPrimaries = color.primaries,
            .transferFunction = color.transferFunction,
            .orientation = segment.sourceOrientation,
            // libavcodec hands colour out as it was encoded, not multiplied with alpha.
            .alphaMode = containsAlpha && !picture.layout().isYCbCr() ? AlphaMode::straight : AlphaMode::opaque};
}

class NativeSegmentSource final : public SegmentFrameSource {
public:
    NativeSegmentSource(const VRClipSegment& segment, AssetReader reader, bool containsAlpha, std::stop_token stop)
        : segment_(segment), reader_(std::move(reader)), containsAlpha_(containsAlpha), stop_(std::move(stop)) {}

    std::optional<SegmentFrame> next() override {
        const std::stop_callback cancel(stop_, [this] { reader_.cancelReading(); });
        while (auto sample = reader_.copyNextSampleBuffer()) {
            if (stop_.stop_requested())
                throw Cancelled();
            if (!sample->imageBuffer)
                continue;
            const auto description = describe(*sample->imageBuffer, segment_, containsAlpha_);
            return SegmentFrame{std::move(sample->imageBuffer), description,
                                sample->presentationSeconds - segment_.start};
        }
        if (stop_.stop_requested())
            throw Cancelled();
        if (reader_.status() == AssetReader::Status::failed) {
            if (reader_.error())
                throw Error(*reader_.error());
            throw VRExportError(VRExportError::Case::readerFailed);
        }
        return std::nullopt;
    }

private:
    const VRClipSegment& segment_;
    AssetReader reader_;
    bool containsAlpha_;
    std::stop_token stop_;
};

class FFmpegSegmentSource final : public SegmentFrameSource {
public:
    FFmpegSegmentSource(const VRClipSegment& segment, const FFmpegVideoMetadata& metadata, std::stop_token stop)
        : segment_(segment),
          reader_(segment.sourceURL, segment.start, std::max(segment.end - segment.start, 0.0)),
          containsAlpha_(metadata.containsAlphaChannel),
          frameSeconds_(1 / metadata.frameRate),
          // The decoder starts at the key frame before the segment: what lies between is decoded and dropped.
          earliestSeconds_(std::max(segment.start - 0.5 * frameSeconds_, 0.0)),
          stop_(std::move(stop)) {}

    std::optional<SegmentFrame> next() override {
        giveWayToPreview();
        const std::stop_callback cancel(stop_, [this] { token_.cancel(); });
        throwIfStopped(); // a token stops no read that begins later
        auto frame = read(reader_);
        if (!std::exchange(hasBegun_, true))
            goBackForFirst(frame);
        if (!frame)
            return std::nullopt;
        const auto description = describe(*frame->pixelBuffer, segment_, containsAlpha_);
        return SegmentFrame{std::move(frame->pixelBuffer), description, frame->ptsSeconds - segment_.start};
    }

private:
    void giveWayToPreview() const {
        while (FFmpegPreviewPlaybackActivity::shared().isActive()) {
            throwIfStopped();
            std::this_thread::sleep_for(previewPollInterval);
        }
    }

    std::optional<FFmpegDecodedFrame> read(FFmpegFrameReader& reader) {
        // Only a read that waits for a time can be stopped; every picture of the segment is late enough.
        auto frame = reader.copyFrame(earliestSeconds_, &token_, stop_);
        throwIfStopped();
        return frame;
    }

    // Without an index (MPEG-TS) the reader starts between key frames, where nothing decodes until the next one. Others
    // that start earlier look for what is missing; what there is already stays when they find nothing better.
    void goBackForFirst(std::optional<FFmpegDecodedFrame>& frame) {
        for (const double leadSeconds : {4.0, 16.0}) {
            if (segment_.start <= 0 || (frame && frame->ptsSeconds <= segment_.start + frameSeconds_))
                return;
            try {
                const double start = std::max(segment_.start - leadSeconds, 0.0);
                FFmpegFrameReader earlier(segment_.sourceURL, start, segment_.end - start);
                auto found = read(earlier);
                if (!found || (frame && found->ptsSeconds >= frame->ptsSeconds))
                    continue;
                frame = std::move(found);
                reader_ = std::move(earlier);
            } catch (const FFmpegReaderError&) {
                return;
            }
        }
    }

    void throwIfStopped() const {
        if (stop_.stop_requested())
            throw Cancelled();
    }

    const VRClipSegment& segment_;
    FFmpegFrameReader reader_;
    bool containsAlpha_;
    bool hasBegun_ = false;
    double frameSeconds_;
    double earliestSeconds_;
    FFmpegReadCancellationToken token_;
    std::stop_token stop_;
};

} // namespace

std::unique_ptr<SegmentFrameSource> openNativeSource(const VRClipSegment& segment, std::stop_token stop,
                                                     ExportDiagnostics& diagnostics, std::string& reason) {
    std::shared_ptr<const MediaAsset> asset;
    try {
        asset = MediaAsset::load(segment.sourceURL);
    } catch (const Error& error) {
        reason = error.what();
        return nullptr;
    }
    if (asset->videoTracks().empty() || !asset->videoTracks().front().isDecodable) {
        reason = "video track unavailable";
        return nullptr;
    }
    const auto& track = asset->videoTracks().front();
    const auto& format = track.formatDescriptions.front();
    const auto pixelFormat = preferredNativeSourcePixelFormat(format.codecName, format.pixelFormatName);
    diagnostics.record("source_decoder_configured", {{"requested_pixel_format", pixelFormat.text()},
                                                     {"source_codec_description", format.codecType.text()},
                                                     {"source_pixel_format", format.pixelFormatName},
                                                     {"source_contains_alpha", format.containsAlpha},
                                                     {"source_frame_rate", track.nominalFrameRate}});
    AssetReader reader(asset, segment.start, segment.end);
    if (!reader.canAddOutput(track, pixelFormat))
        throw VRExportError(VRExportError::Case::cannotAddReaderOutput);
    reader.addOutput(track, pixelFormat);
    if (!reader.startReading()) {
        reason = "reader did not start";
        return nullptr;
    }
    return std::make_unique<NativeSegmentSource>(segment, std::move(reader), format.containsAlpha, std::move(stop));
}

std::unique_ptr<SegmentFrameSource> openFFmpegSource(const VRClipSegment& segment, std::stop_token stop) {
    return std::make_unique<FFmpegSegmentSource>(segment, FFmpegRuntime::probe(segment.sourceURL), std::move(stop));
}

} // namespace panoveer
