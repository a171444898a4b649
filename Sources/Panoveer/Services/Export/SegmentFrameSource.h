#pragma once

#include "Panoveer/Model/Records/VRClipSegment.h"
#include "Panoveer/Rendering/Projection/ProjectionRenderer.h"
#include "Platform/Media/PixelBuffer.h"

#include <functional>
#include <memory>
#include <optional>
#include <stop_token>
#include <string>

namespace panoveer {

class ExportDiagnostics;

// One decoded picture of a segment, ready for the renderer.
struct SegmentFrame {
    PixelBufferPtr picture;
    SourcePictureDescription description;
    double relativeSeconds = 0; // presentation time within the segment; the first may lie a little before 0
};

// The pictures of one segment in presentation order, from either road. One thread at a time.
class SegmentFrameSource {
public:
    virtual ~SegmentFrameSource() = default;

    // None at the end of the segment. Throws the reader's error, and Cancelled when the export was stopped.
    virtual std::optional<SegmentFrame> next() = 0;
};

// The native road. Null when it cannot read the file, with `reason` saying why: the FFmpeg road is then to be taken.
std::unique_ptr<SegmentFrameSource> openNativeSource(const VRClipSegment& segment, std::stop_token stop,
                                                     ExportDiagnostics& diagnostics, std::string& reason);

// The FFmpeg road: BGRA pictures from any container and codec. Throws FFmpegReaderError. A blocked read ends when the
// export is stopped; before each read it gives way to a preview that is decoding.
std::unique_ptr<SegmentFrameSource> openFFmpegSource(const VRClipSegment& segment, std::stop_token stop);

// The two roads of an export; tests bring their own.
struct SegmentFrameRoads {
    std::function<std::unique_ptr<SegmentFrameSource>(const VRClipSegment&, std::stop_token, ExportDiagnostics&,
                                                      std::string& reason)>
        openNative = openNativeSource;
    std::function<std::unique_ptr<SegmentFrameSource>(const VRClipSegment&, std::stop_token)> openFFmpeg =
        openFFmpegSource;
};

} // namespace panoveer
