#pragma once

#include "Panoveer/Services/Export/ExportFrameClock.h"
#include "Panoveer/Services/Export/ExportVideoFrameSink.h"
#include "Panoveer/Services/Export/ExportWaits.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <stop_token>

namespace panoveer {

// The pictures of one movie of an export: lends the buffers that they are rendered into, and appends them at their
// frames. On the export's thread.
class ExportVideoTrack {
public:
    struct Plan {
        VideoSettings settings;
        FourCC pixelFormat; // of the pictures to append
        ExportFrameClock clock;
        std::int64_t frameCount = 0; // pictures to expect
        int bufferLimit = 2;         // buffers out at a time
    };

    // Gives the writer, which outlives this, its input. Throws VRExportError::cannotAddWriterInput, and Error as
    // PixelBufferPool does. `onAppended` is called after each picture.
    ExportVideoTrack(AssetWriter& writer, const Plan& plan, ExportWriterStatus status, std::stop_token stop,
                     std::function<void()> onAppended);

    // A buffer to render into; null while all are out. Throws as takeEncoderPixelBuffer does.
    PixelBufferPtr takeBuffer();
    // Waits until one is back, as acquireEncoderPixelBuffer does.
    PixelBufferPtr waitForBuffer();

    // Waits until the input has room, as waitUntilReady does. Frames rise. Throws the writer's error, or
    // VRExportError::appendFailed.
    void append(const PixelBufferPtr& picture, std::int64_t frame);
    // No picture follows.
    void markAsFinished() { input_->markAsFinished(); }

    std::int64_t framesWritten() const { return framesWritten_; }
    double secondsWritten() const { return secondsWritten_; } // of the movie, at the picture appended last

private:
    PixelBufferPool& pool();

    const ExportFrameClock clock_;
    const int bufferLimit_;
    const ExportWriterStatus status_;
    const std::stop_token stop_;
    const ExportWaitClock waitClock_ = ExportWaitClock::system();
    const std::function<void()> onAppended_;
    VideoInput* input_; // the writer's
    std::unique_ptr<ExportVideoFrameSink> sink_;
    std::int64_t framesWritten_ = 0;
    double secondsWritten_ = 0;
};

} // namespace panoveer
