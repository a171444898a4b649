#pragma once

#include "Panoveer/Rendering/Projection/ProjectionRenderer.h"
#include "Panoveer/Services/Export/ExportDiagnostics.h"
#include "Panoveer/Services/Export/ExportOutputDescriptor.h"
#include "Panoveer/Services/Export/ExportSegmentFrameSlots.h"
#include "Panoveer/Services/Export/ExportVideoTrack.h"
#include "Panoveer/Services/Export/FixedFrameRateVideoRetimer.h"
#include "Panoveer/Services/Export/SegmentFrameSource.h"

#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <stop_token>
#include <string>

namespace panoveer {

// The pictures of one segment of a movie:
//
//   source -> decode (ahead) -> render (ahead) -> [retime] -> append
//
// A source that the native road does not open, or gets no picture from, is read by FFmpeg. Without a rate of the
// movie's own each picture takes the slot of its time; what the source leaves empty at its end shows its last picture.
// Made for one segment and run once, on the export's thread; decoder, renderer and encoder work beside it.
class SegmentExport {
public:
    // What the segments of a movie share; it outlives them.
    struct Movie {
        const ExportOutputDescriptor& descriptor;
        ProjectionRenderer& renderer;
        const SegmentFrameRoads& roads;
        ExportDiagnostics& diagnostics;
        ExportVideoTrack& track;
        int inFlightFrameLimit;               // frames that rendering may run ahead
        std::stop_token stop;                 // ends reads
        std::function<void()> throwIfStopped; // with Cancelled, or the failure of what works beside
    };

    // The segment and its slots in the movie.
    SegmentExport(const Movie& movie, const VRClipSegment& segment, const ExportSegmentFrameSlots& slots);
    SegmentExport(const SegmentExport&) = delete;
    SegmentExport& operator=(const SegmentExport&) = delete;

    // Throws Cancelled, an Error that says so when the source has no picture there, and what reader, renderer and
    // writer throw. Pictures that were not appended by then are lost.
    void run();

private:
    // A rendered frame that the engine may not have finished.
    struct PendingNativeVideoFrame {
        PixelBufferPtr outputPixelBuffer;
        std::unique_ptr<PendingRender> render;
        ColorAttachments sourceColor;
        std::optional<std::int64_t> frameIndex; // its slot; absent when the retimer decides later
        double safeRelativeSeconds = 0;         // finite and not negative
    };

    void noteSource();
    void read();
    bool readNatively(std::string& reason);
    void readThroughFFmpeg();
    void readAllFrames(SegmentFrameSource& source);
    bool render(SegmentFrame frame);
    PixelBufferPtr acquireOutput();
    void drainPending(std::size_t keep);
    void appendPendingNativeFrame(PendingNativeVideoFrame frame);
    void appendAtSlot(const PixelBufferPtr& picture, std::int64_t slot);
    void hold(const PixelBufferPtr& picture);

    const Movie& movie_;
    const VRClipSegment& segment_;
    ExportSegmentFrameSlots slots_;
    std::optional<FixedFrameRateVideoRetimer> retimer_; // only with a target rate
    std::deque<PendingNativeVideoFrame> pending_;
    bool readsThroughFFmpeg_ = false;
    std::int64_t framesRead_ = 0;
    std::int64_t framesWritten_ = 0;
    std::int64_t nextSlot_ = 0; // slots below it are done with
};

} // namespace panoveer
