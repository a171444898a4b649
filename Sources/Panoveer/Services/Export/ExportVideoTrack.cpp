#include "Panoveer/Services/Export/ExportVideoTrack.h"

#include "Panoveer/Services/Export/StereoMultiviewFrameSink.h"
#include "Panoveer/Services/Export/VRExportError.h"

namespace panoveer {

ExportVideoTrack::ExportVideoTrack(AssetWriter& writer, const Plan& plan, ExportWriterStatus status,
                                   std::stop_token stop, std::function<void()> onAppended)
    : clock_(plan.clock),
      bufferLimit_(plan.bufferLimit),
      status_(std::move(status)),
      stop_(std::move(stop)),
      onAppended_(std::move(onAppended)),
      input_(writer.addVideoInput(plan.settings, plan.pixelFormat, plan.clock.timescale, plan.frameCount)) {
    if (!input_)
        throw VRExportError(VRExportError::Case::cannotAddWriterInput);
    const auto& settings = plan.settings;
    if (settings.isMultiview())
        sink_ = std::make_unique<StereoMultiviewFrameSink>(*input_, plan.pixelFormat, settings.width, settings.height);
    else
        sink_ = std::make_unique<PixelBufferAdaptor>(*input_, plan.pixelFormat, settings.width, settings.height);
}

PixelBufferPool& ExportVideoTrack::pool() {
    if (auto* pool = sink_->pixelBufferPool())
        return *pool;
    throw VRExportError(VRExportError::Case::pixelBufferPoolUnavailable);
}

PixelBufferPtr ExportVideoTrack::takeBuffer() { return takeEncoderPixelBuffer(pool(), bufferLimit_); }

PixelBufferPtr ExportVideoTrack::waitForBuffer() {
    return acquireEncoderPixelBuffer(pool(), status_, bufferLimit_, stop_, waitClock_);
}

void ExportVideoTrack::append(const PixelBufferPtr& picture, std::int64_t frame) {
    waitUntilReady([this] { return input_->isReadyForMoreMediaData(); }, "video", status_, stop_, waitClock_);
    const auto time = clock_.time(frame);
    if (!sink_->append(picture, time)) {
        if (const auto error = status_.error())
            throw Error(*error);
        throw VRExportError(VRExportError::Case::appendFailed);
    }
    ++framesWritten_;
    secondsWritten_ = time.seconds();
    onAppended_();
}

} // namespace panoveer
