#include "Panoveer/Services/Export/ExportWaits.h"

#include "Panoveer/Services/Export/VRExportError.h"
#include "Platform/Core/Log.h"

#include <algorithm>
#include <array>
#include <new>
#include <thread>

namespace panoveer {

namespace {

using namespace std::chrono_literals;

constexpr Logger logger("Export");
constexpr double noticeableWaitSeconds = 0.005;
constexpr double stallSeconds = 120.0;
constexpr std::array slowWaitSeconds = {2.0, 10.0, 30.0};
constexpr auto writerPollInterval = 5ms;
constexpr auto poolPollInterval = 1ms;
constexpr std::array slowPoolAttempts = {2000, 10000, 30000}; // at one attempt a millisecond

void throwIfStopped(const std::stop_token& stop) {
    if (stop.stop_requested())
        throw Cancelled();
}

} // namespace

ExportWaitClock ExportWaitClock::system() {
    return {
        .uptimeSeconds =
            [] { return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count(); },
        .sleep = [](std::chrono::nanoseconds interval) { std::this_thread::sleep_for(interval); }};
}

void throwWriterError(const ExportWriterStatus& writer) {
    if (const auto error = writer.error())
        throw Error(*error);
    throw VRExportError(VRExportError::Case::writerFailed);
}

void waitUntilReady(const std::function<bool()>& isReadyForMoreMediaData, std::string_view kind,
                    const ExportWriterStatus& writer, const std::stop_token& stop, const ExportWaitClock& clock) {
    const double begin = clock.uptimeSeconds();
    auto nextNotice = slowWaitSeconds.begin();
    while (true) {
        const double elapsed = clock.uptimeSeconds() - begin;
        if (isReadyForMoreMediaData()) {
            if (elapsed >= noticeableWaitSeconds)
                logger.info("{} writer input ready after {}s", kind, elapsed);
            return;
        }
        throwIfStopped(stop);
        if (writer.sample)
            writer.sample("waiting_for_" + std::string(kind) + "_writer");
        const auto status = writer.status();
        if (status != AssetWriter::Status::writing)
            throwWriterError(writer);
        if (elapsed >= stallSeconds) {
            logger.error("{} writer input stalled for {}s status={}", kind, elapsed, int(status));
            throwWriterError(writer);
        }
        if (nextNotice != slowWaitSeconds.end() && elapsed >= *nextNotice) {
            logger.error("waiting for {} writer input {}s status={}", kind, elapsed, int(status));
            ++nextNotice;
        }
        clock.sleep(writerPollInterval);
    }
}

PixelBufferPtr takeEncoderPixelBuffer(PixelBufferPool& pool, int maximumCount) {
    try {
        return pool.acquire(std::max(maximumCount, 1));
    } catch (const std::bad_alloc&) {
        throw VRExportError(VRExportError::Case::pixelBufferCreationFailed, outOfMemoryStatus);
    } catch (const Error& error) {
        throw VRExportError(VRExportError::Case::pixelBufferCreationFailed, std::int64_t(error.code()));
    }
}

PixelBufferPtr acquireEncoderPixelBuffer(PixelBufferPool& pool, const ExportWriterStatus& writer, int maximumCount,
                                         const std::stop_token& stop, const ExportWaitClock& clock) {
    for (int attempts = 0;; ++attempts) {
        if (writer.sample)
            writer.sample("waiting_for_pixel_buffer");
        if (auto buffer = takeEncoderPixelBuffer(pool, maximumCount)) {
            if (attempts >= 1)
                logger.info("encoder pixel buffer available after {}s", attempts / 1000.0);
            return buffer;
        }
        throwIfStopped(stop);
        const auto status = writer.status();
        if (status == AssetWriter::Status::failed || status == AssetWriter::Status::cancelled)
            throwWriterError(writer);
        if (std::ranges::find(slowPoolAttempts, attempts) != slowPoolAttempts.end())
            logger.error("waiting for encoder pixel buffer {}s status={}", attempts / 1000.0, int(status));
        clock.sleep(poolPollInterval);
    }
}

} // namespace panoveer
