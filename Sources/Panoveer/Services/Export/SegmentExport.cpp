#include "Panoveer/Services/Export/SegmentExport.h"

#include "Panoveer/Model/Records/ExportCodec.h"
#include "Panoveer/Services/Export/DecodeAheadSource.h"
#include "Panoveer/Services/Export/ExportVideoSettings.h"
#include "Panoveer/Services/Export/SegmentDuration.h"
#include "Panoveer/Services/Export/VRExportError.h"
#include "Panoveer/Services/Intake/FFmpegRuntime.h"
#include "Platform/Core/Localization.h"
#include "Platform/Core/Log.h"

#include <algorithm>
#include <cmath>

namespace panoveer {

namespace {

constexpr Logger logger("Export");

// Where a container does not tell how long its video lasts, this is the first to know.
[[noreturn]] void throwNoPicture(const VRClipSegment& segment) {
    if (segment.start > 0)
        throw Error(localized("error.export.no_picture_from", segment.sourceURL.path().string(), segment.start));
    throw VRExportError(VRExportError::Case::noVideoTrack, segment.sourceURL);
}

} // namespace

SegmentExport::SegmentExport(const Movie& movie, const VRClipSegment& segment, const ExportSegmentFrameSlots& slots)
    : movie_(movie), segment_(segment), slots_(slots) {
    if (movie.descriptor.targetFrameRate)
        retimer_.emplace(slots, segmentDuration(segment),
                         [this](const PixelBufferPtr& picture, std::int64_t slot) { appendAtSlot(picture, slot); });
}

void SegmentExport::run() {
    noteSource();
    read();
    // The last picture is always among those: it fills the slots that the source leaves empty.
    const auto last = pending_.empty() ? nullptr : pending_.back().outputPixelBuffer;
    if (!last && nextSlot_ < slots_.frameCount)
        throwNoPicture(segment_);
    drainPending(0);
    if (retimer_)
        retimer_->finish();
    else
        hold(last);
    movie_.diagnostics.record("segment_completed", {{"source", segment_.sourceURL.path().string()},
                                                    {"frames_written", framesWritten_},
                                                    {"total_frames_written", movie_.track.framesWritten()}});
}

void SegmentExport::noteSource() {
    DiagnosticFields fields = {{"source", segment_.sourceURL.path().string()},
                               {"source_start_seconds", segment_.start},
                               {"source_end_seconds", segment_.end}};
    try {
        const auto probe = FFmpegRuntime::probe(segment_.sourceURL);
        fields["source_width"] = std::int64_t(probe.width);
        fields["source_height"] = std::int64_t(probe.height);
        fields["source_codec"] = probe.codecName;
        fields["source_codec_description"] = probe.codecLongName;
        fields["source_pixel_format"] = probe.pixelFormatName;
        fields["source_contains_alpha"] = probe.containsAlphaChannel;
        fields["source_frame_rate"] = probe.frameRate;
    } catch (const Error&) {
        // The reader will say what is wrong with the file; the trace goes without these.
    }
    movie_.diagnostics.markStage("reading_source", std::move(fields));
}

void SegmentExport::read() {
    if (segment_.videoDecodingBackend == VideoDecodingBackend::ffmpeg) {
        movie_.diagnostics.record("ffmpeg_video_selected", {{"reason", std::string("import_backend")}});
        return readThroughFFmpeg();
    }
    std::string reason;
    if (readNatively(reason))
        return;
    movie_.diagnostics.record("ffmpeg_video_fallback", {{"avfoundation_diagnostic", reason}});
    logger.info("AVFoundation video reader failed for {}; trying FFmpeg", segment_.sourceURL.lastPathComponent());
    readThroughFFmpeg();
}

// False when this road gave no picture, with the reason.
bool SegmentExport::readNatively(std::string& reason) {
    const auto open = [&](std::stop_token stop) {
        return movie_.roads.openNative(segment_, std::move(stop), movie_.diagnostics, reason);
    };
    const auto source = DecodeAheadSource::open(open, movie_.stop, movie_.inFlightFrameLimit);
    if (!source)
        return false;
    readAllFrames(*source);
    reason = "no frames delivered";
    return framesRead_ > 0;
}

void SegmentExport::readThroughFFmpeg() {
    readsThroughFFmpeg_ = true;
    const auto open = [&](std::stop_token stop) { return movie_.roads.openFFmpeg(segment_, std::move(stop)); };
    readAllFrames(*DecodeAheadSource::open(open, movie_.stop, movie_.inFlightFrameLimit));
}

void SegmentExport::readAllFrames(SegmentFrameSource& source) {
    while (auto frame = source.next()) {
        movie_.throwIfStopped();
        ++framesRead_;
        if (!render(std::move(*frame)))
            return;
        drainPending(std::size_t(movie_.inFlightFrameLimit));
    }
}

// False when the segment is full.
bool SegmentExport::render(SegmentFrame frame) {
    std::optional<std::int64_t> slot;
    if (!retimer_) {
        slot = slots_.frameIndex(frame.relativeSeconds);
        if (!slot)
            return false;
    }
    const auto& descriptor = movie_.descriptor;
    auto output = acquireOutput();
    auto sourceColor = frame.picture->color();
    auto render = movie_.renderer.render(std::move(frame.picture), frame.description, segment_.transform, output,
                                         VRColorOutputMode(descriptor.colorMode), VRResamplingQuality::final,
                                         properties(descriptor.codec).keepsAlpha);
    pending_.push_back(
        {.outputPixelBuffer = std::move(output),
         .render = std::move(render),
         .sourceColor = std::move(sourceColor),
         .frameIndex = slot,
         .safeRelativeSeconds = std::isfinite(frame.relativeSeconds) ? std::max(frame.relativeSeconds, 0.0) : 0.0});
    return true;
}

// Rendered pictures are handed on before anybody waits for a buffer: of a small pool they and the picture that the
// retimer keeps may be all there is.
PixelBufferPtr SegmentExport::acquireOutput() {
    while (!pending_.empty()) {
        if (auto buffer = movie_.track.takeBuffer())
            return buffer;
        drainPending(pending_.size() - 1);
    }
    return movie_.track.waitForBuffer();
}

void SegmentExport::drainPending(std::size_t keep) {
    while (pending_.size() > keep) {
        auto frame = std::move(pending_.front());
        pending_.pop_front();
        appendPendingNativeFrame(std::move(frame));
    }
}

void SegmentExport::appendPendingNativeFrame(PendingNativeVideoFrame frame) {
    frame.render->wait();
    attachColorMetadata(*frame.outputPixelBuffer, movie_.descriptor.colorMode, frame.sourceColor);
    if (retimer_)
        return retimer_->append(std::move(frame.outputPixelBuffer), frame.safeRelativeSeconds);
    // A movie starts with a picture: one whose first frame comes late shows it from the beginning.
    if (movie_.track.framesWritten() == 0)
        for (std::int64_t slot = 0; slot < *frame.frameIndex; ++slot)
            appendAtSlot(frame.outputPixelBuffer, slot);
    appendAtSlot(frame.outputPixelBuffer, *frame.frameIndex);
}

void SegmentExport::appendAtSlot(const PixelBufferPtr& picture, std::int64_t slot) {
    movie_.track.append(picture, slots_.startFrame + slot);
    nextSlot_ = slot + 1;
    if (++framesWritten_ > 1)
        return;
    logger.info("first {}video frame appended file={}", readsThroughFFmpeg_ ? "FFmpeg " : "",
                movie_.descriptor.url.lastPathComponent());
    movie_.diagnostics.record("video_frame_appended");
}

// A source whose pictures end before its sound, or whose last pictures are damaged, keeps its length: players, too,
// show the last picture until the end.
void SegmentExport::hold(const PixelBufferPtr& picture) {
    const auto missing = slots_.frameCount - nextSlot_;
    if (missing <= 0)
        return;
    movie_.diagnostics.record("last_frame_held", {{"frames", missing}});
    while (nextSlot_ < slots_.frameCount)
        appendAtSlot(picture, nextSlot_);
}

} // namespace panoveer
