#include "Panoveer/Services/Intake/FFmpegFrameReader.h"

#include "FFmpegBridge/FFmpegBridge.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <limits>
#include <new>

namespace panoveer {

namespace {

// Status codes of the platform's pixel buffers, as reports know them.
constexpr std::int32_t invalidArgumentStatus = -6661;
constexpr std::int32_t allocationFailedStatus = -6662;

using ErrorBuffer = std::array<char, 1024>;

// A side of the maximum as the bridge takes it: 0 for no limit. One beyond 32 bits limits nothing.
std::int32_t maximumSide(double pixels) {
    constexpr double largest = std::numeric_limits<std::int32_t>::max();
    return pixels > 0 ? std::int32_t(std::min(std::floor(pixels), largest)) : 0;
}

const PixelPlane& writablePlane(const PixelBuffer& buffer, int index) {
    if (index >= buffer.planeCount() || !buffer.plane(index).data)
        throw FFmpegReaderError::pixelBufferCopyFailed(invalidArgumentStatus);
    return buffer.plane(index);
}

std::uint8_t* bytesOf(const PixelPlane& plane) { return reinterpret_cast<std::uint8_t*>(plane.data); }

std::unique_ptr<PixelBufferPool> makePixelBufferPool(FourCC format, int width, int height) {
    if (width < 1 || height < 1)
        throw FFmpegReaderError::readFailed("Invalid decoded frame size.");
    try {
        return std::make_unique<PixelBufferPool>(format, width, height);
    } catch (const Error& failure) {
        throw FFmpegReaderError::pixelBufferCreationFailed(failure.code());
    }
}

} // namespace

FFmpegReadCancellationToken::FFmpegReadCancellationToken() : token_(PNVFFmpegCancellationTokenCreate()) {
    if (!token_)
        throw std::bad_alloc();
}

FFmpegReadCancellationToken::~FFmpegReadCancellationToken() { PNVFFmpegCancellationTokenClose(token_); }

void FFmpegReadCancellationToken::cancel() { PNVFFmpegCancellationTokenCancel(token_); }

// What one read asks for, and where its result is judged.
struct FFmpegFrameReader::ReadContext {
    std::optional<double> targetSeconds;
    const PNVFFmpegCancellationToken* token;
    const std::stop_token& stop;
    mutable ErrorBuffer error{};

    // Whether the bridge's result is a frame.
    bool hasFrame(std::int32_t result) const {
        if (result < 0)
            throw FFmpegReaderError::readFailed(error.data());
        if (stop.stop_requested())
            throw Cancelled();
        return result > 0;
    }
};

void FFmpegFrameReader::CloseReader::operator()(PNVFFmpegReader* reader) const noexcept { PNVFFmpegClose(reader); }

FFmpegFrameReader::FFmpegFrameReader(const URL& url, double start, std::optional<double> duration,
                                     std::optional<CGSizeValue> maximumOutputSize, bool fastPreviewDecode) {
    const auto maximum = maximumOutputSize.value_or(CGSizeValue{});
    PNVFFmpegReader* reader = nullptr;
    ErrorBuffer error{};
    const auto result =
        PNVFFmpegOpen(url.path().c_str(), maximumSide(maximum.width), maximumSide(maximum.height), fastPreviewDecode,
                      &reader, error.data(), std::int32_t(error.size()), start, duration.value_or(0));
    reader_.reset(reader);
    if (result < 0 || !reader_)
        throw FFmpegReaderError::openFailed(error.data());

    if (fastPreviewDecode) {
        allowsDirectVideoToolboxFrames_ = PNVFFmpegCanUseVideoToolboxDecode(reader) != 0;
        softwarePreviewUsesNV12_ = !allowsDirectVideoToolboxFrames_ && PNVFFmpegHasAlphaChannel(reader) == 0;
    }
    pixelBufferPool_ = makePixelBufferPool(
        softwarePreviewUsesNV12_ ? pixelFormat::yCbCr420VideoRange : pixelFormat::bgra, outputWidth(), outputHeight());
}

FFmpegFrameReader::~FFmpegFrameReader() = default;
FFmpegFrameReader::FFmpegFrameReader(FFmpegFrameReader&&) noexcept = default;
FFmpegFrameReader& FFmpegFrameReader::operator=(FFmpegFrameReader&&) noexcept = default;

int FFmpegFrameReader::outputWidth() const { return PNVFFmpegOutputWidth(reader_.get()); }

int FFmpegFrameReader::outputHeight() const { return PNVFFmpegOutputHeight(reader_.get()); }

void FFmpegFrameReader::seek(double seconds) {
    if (!reader_)
        throw FFmpegReaderError::unavailable();
    ErrorBuffer error{};
    if (PNVFFmpegSeek(reader_.get(), error.data(), std::int32_t(error.size()), seconds) < 0)
        throw FFmpegReaderError::readFailed(error.data());
}

std::optional<FFmpegDecodedFrame> FFmpegFrameReader::copyFrame(std::optional<double> targetSeconds,
                                                               const FFmpegReadCancellationToken* cancellation,
                                                               std::stop_token stop) {
    if (!reader_)
        throw FFmpegReaderError::unavailable();
    if (outputWidth() < 1 || outputHeight() < 1)
        throw FFmpegReaderError::readFailed("Invalid decoded frame size.");
    const ReadContext context{targetSeconds, cancellation ? cancellation->token_ : nullptr, stop};
    auto frame = allowsDirectVideoToolboxFrames_ ? copyPreviewFrame(context)
                 : softwarePreviewUsesNV12_      ? copySoftwareNV12PreviewFrame(context)
                                                 : copyBGRAFrame(context);
    if (frame && !std::isfinite(frame->ptsSeconds))
        frame->ptsSeconds = 0;
    return frame;
}

PixelBufferPtr FFmpegFrameReader::makePixelBuffer() {
    if (!pixelBufferPool_)
        throw FFmpegReaderError::unavailable();
    PixelBufferPtr buffer;
    try {
        buffer = pixelBufferPool_->acquire();
    } catch (const std::bad_alloc&) {
    }
    if (!buffer)
        throw FFmpegReaderError::pixelBufferCreationFailed(allocationFailedStatus);
    return buffer;
}

std::optional<FFmpegDecodedFrame> FFmpegFrameReader::copyBGRAFrame(const ReadContext& context) {
    auto buffer = makePixelBuffer();
    const auto& plane = writablePlane(*buffer, 0);
    PNVFFmpegFrame frame{};
    auto* reader = reader_.get();
    auto& error = context.error;
    const auto result = context.targetSeconds
                            ? PNVFFmpegReadFrameAtOrAfterIntoBGRA(reader, bytesOf(plane), std::int32_t(plane.rowBytes),
                                                                  &frame, error.data(), std::int32_t(error.size()),
                                                                  context.token, *context.targetSeconds)
                            : PNVFFmpegReadFrameIntoBGRA(reader, bytesOf(plane), std::int32_t(plane.rowBytes), &frame,
                                                         error.data(), std::int32_t(error.size()));
    if (!context.hasFrame(result))
        return std::nullopt;
    return FFmpegDecodedFrame{std::move(buffer), frame.ptsSeconds};
}

std::optional<FFmpegDecodedFrame> FFmpegFrameReader::copySoftwareNV12PreviewFrame(const ReadContext& context) {
    auto buffer = makePixelBuffer();
    const auto& luma = writablePlane(*buffer, 0);
    const auto& chroma = writablePlane(*buffer, 1);
    PNVFFmpegFrame frame{};
    auto* reader = reader_.get();
    auto& error = context.error;
    const auto result =
        context.targetSeconds
            ? PNVFFmpegReadFrameAtOrAfterIntoNV12(reader, bytesOf(luma), std::int32_t(luma.rowBytes), bytesOf(chroma),
                                                  std::int32_t(chroma.rowBytes), &frame, error.data(),
                                                  std::int32_t(error.size()), context.token, *context.targetSeconds)
            : PNVFFmpegReadFrameIntoNV12(reader, bytesOf(luma), std::int32_t(luma.rowBytes), bytesOf(chroma),
                                         std::int32_t(chroma.rowBytes), &frame, error.data(),
                                         std::int32_t(error.size()));
    if (!context.hasFrame(result))
        return std::nullopt;
    return FFmpegDecodedFrame{std::move(buffer), frame.ptsSeconds};
}

// The road of a source that a hardware decoder takes. The platform has no pixel buffer type to take its frames over by
// reference, so the bridge is asked for none and copies them down into its own image, which is copied once more here.
std::optional<FFmpegDecodedFrame> FFmpegFrameReader::copyPreviewFrame(const ReadContext& context) {
    PNVFFmpegFrame frame{};
    auto* reader = reader_.get();
    auto& error = context.error;
    const auto result =
        context.targetSeconds
            ? PNVFFmpegReadFrameAtOrAfterPreferVideoToolbox(reader, nullptr, &frame, error.data(),
                                                            std::int32_t(error.size()), context.token,
                                                            *context.targetSeconds)
            : PNVFFmpegReadFramePreferVideoToolbox(reader, nullptr, &frame, error.data(), std::int32_t(error.size()));
    if (!context.hasFrame(result))
        return std::nullopt;
    if (!frame.data || frame.width < 1 || frame.height < 1 || frame.stride < 1)
        throw FFmpegReaderError::readFailed("Invalid decoded preview frame.");
    auto buffer = makePixelBuffer();
    const auto& plane = writablePlane(*buffer, 0);
    const auto rowBytes = std::min(plane.rowBytes, std::size_t(frame.stride));
    for (int row = 0; row < std::min(plane.height, frame.height); ++row)
        std::memcpy(plane.data + std::size_t(row) * plane.rowBytes,
                    frame.data + std::size_t(row) * std::size_t(frame.stride), rowBytes);
    return FFmpegDecodedFrame{std::move(buffer), frame.ptsSeconds};
}

} // namespace panoveer
