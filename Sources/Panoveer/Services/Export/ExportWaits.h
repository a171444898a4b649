#pragma once

#include "Platform/Media/AssetWriter.h"
#include "Platform/Media/PixelBuffer.h"

#include <chrono>
#include <functional>
#include <stop_token>
#include <string_view>

namespace panoveer {

// The writer as the waits see it.
struct ExportWriterStatus {
    std::function<AssetWriter::Status()> status;
    std::function<std::optional<Error>()> error;
    // Called while waiting, with what is waited for; may be empty, and may throw to end the wait.
    std::function<void(std::string_view context)> sample;
};

// The clock that the waits measure with; tests bring their own.
struct ExportWaitClock {
    std::function<double()> uptimeSeconds;
    std::function<void(std::chrono::nanoseconds)> sleep;

    static ExportWaitClock system();
};

// Waits until an input of the writer has room. `kind` is "video" or "audio", for the log. Throws Cancelled, the
// writer's error, or VRExportError::writerFailed: at once when the writer stops writing, and after 120 s without room.
void waitUntilReady(const std::function<bool()>& isReadyForMoreMediaData, std::string_view kind,
                    const ExportWriterStatus& writer, const std::stop_token& stop, const ExportWaitClock& clock);

// Takes an output picture from the encoder's pool; null while `maximumCount` are in use. Throws
// VRExportError::pixelBufferCreationFailed when one cannot be made.
PixelBufferPtr takeEncoderPixelBuffer(PixelBufferPool& pool, int maximumCount);

// The same, waiting while they are in use. There is no deadline: the wait ends by a picture, by cancellation
// (Cancelled) or by the writer failing (its error, or VRExportError::writerFailed).
PixelBufferPtr acquireEncoderPixelBuffer(PixelBufferPool& pool, const ExportWriterStatus& writer, int maximumCount,
                                         const std::stop_token& stop, const ExportWaitClock& clock);

// The writer's own error, or the given case when it has none.
[[noreturn]] void throwWriterError(const ExportWriterStatus& writer);

} // namespace panoveer
