#pragma once

#include "Panoveer/Model/Records/VideoAsset.h"
#include "Panoveer/Services/Intake/FFmpegReaderError.h"
#include "Platform/Core/URL.h"
#include "Platform/Media/PixelBuffer.h"

#include <memory>
#include <optional>
#include <stop_token>

struct PNVFFmpegReader;
struct PNVFFmpegCancellationToken;

namespace panoveer {

struct FFmpegDecodedFrame {
    PixelBufferPtr pixelBuffer;
    double ptsSeconds = 0; // from the start of the file
};

// Stops reads that wait for a time, from any thread. One token may serve any number of reads: a cancel stops those
// under way and leaves later ones alone.
class FFmpegReadCancellationToken {
public:
    FFmpegReadCancellationToken();
    ~FFmpegReadCancellationToken();
    FFmpegReadCancellationToken(const FFmpegReadCancellationToken&) = delete;
    FFmpegReadCancellationToken& operator=(const FFmpegReadCancellationToken&) = delete;

    void cancel();

private:
    friend class FFmpegFrameReader;
    PNVFFmpegCancellationToken* token_;
};

// Decodes one file's video into pictures of a pool of its own: BGRA; or "420v" for a fast preview of a source without
// alpha. The eyes of a multiview stream come side by side, left first. There is no reopening: another time range takes
// another reader. One thread, or one serial queue, at a time. A failed read leaves the reader usable.
class FFmpegFrameReader {
public:
    // Reads from `start` seconds for `duration` seconds; none, or not positive, means to the end of the file. The
    // picture is made smaller to fit `maximumOutputSize`, in pixels, never larger. `fastPreviewDecode` gives up quality
    // for speed. Throws FFmpegReaderError: openFailed, readFailed for a file without a picture size,
    // pixelBufferCreationFailed.
    explicit FFmpegFrameReader(const URL& url, double start = 0, std::optional<double> duration = std::nullopt,
                               std::optional<CGSizeValue> maximumOutputSize = std::nullopt,
                               bool fastPreviewDecode = false);
    ~FFmpegFrameReader();
    FFmpegFrameReader(FFmpegFrameReader&&) noexcept;
    FFmpegFrameReader& operator=(FFmpegFrameReader&&) noexcept;

    // Pixels of the pictures to come.
    int outputWidth() const;
    int outputHeight() const;

    // Goes to the key frame at or before a time. Throws FFmpegReaderError: readFailed, unavailable.
    void seek(double seconds);

    // The next frame, or the first at or after a time. No value when the file or the time range has ended, or when
    // `cancellation` stopped the wait. Throws Cancelled when a stop was requested by the end of the read, even if a
    // frame had been decoded, and FFmpegReaderError.
    std::optional<FFmpegDecodedFrame> copyFrame(std::optional<double> targetSeconds = std::nullopt,
                                                const FFmpegReadCancellationToken* cancellation = nullptr,
                                                std::stop_token stop = {});

private:
    struct CloseReader {
        void operator()(PNVFFmpegReader* reader) const noexcept;
    };
    struct ReadContext;

    PixelBufferPtr makePixelBuffer();
    std::optional<FFmpegDecodedFrame> copyBGRAFrame(const ReadContext& context);
    std::optional<FFmpegDecodedFrame> copySoftwareNV12PreviewFrame(const ReadContext& context);
    std::optional<FFmpegDecodedFrame> copyPreviewFrame(const ReadContext& context);

    std::unique_ptr<PNVFFmpegReader, CloseReader> reader_; // null in a reader that was moved from
    std::unique_ptr<PixelBufferPool> pixelBufferPool_;
    bool allowsDirectVideoToolboxFrames_ = false;
    bool softwarePreviewUsesNV12_ = false;
};

} // namespace panoveer
