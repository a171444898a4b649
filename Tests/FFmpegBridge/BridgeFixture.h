#pragma once

#include "FFmpegBridge/FFmpegBridge.h"
#include "Support/MediaFactory.h"

#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace panoveer::test {

struct OpenOptions {
    int maximumWidth = 0, maximumHeight = 0;
    bool fastDecode = false;
    double start = 0, duration = 0;
};

// One frame as a read left it, in memory of its own: tight rows unless `padding` bytes are asked for.
struct ReadFrame {
    int result = 0;
    double seconds = 0;
    int width = 0, height = 0, stride = 0;
    std::vector<std::uint8_t> pixels = {}; // BGRA, or luma
    std::vector<std::uint8_t> chroma = {};

    int index() const { return frameIndex(pixels.data(), std::size_t(stride), width, height, chroma.empty() ? 4 : 1); }
};

// A bridge reader that throws what went wrong.
class BridgeReader {
public:
    explicit BridgeReader(const std::filesystem::path& path, const OpenOptions& options = {}) {
        PNVFFmpegReader* opened = nullptr;
        const int result = PNVFFmpegOpen(path.c_str(), options.maximumWidth, options.maximumHeight, options.fastDecode,
                                         &opened, error_, sizeof error_, options.start, options.duration);
        reader_.reset(opened);
        check(result);
    }

    PNVFFmpegReader* get() const { return reader_.get(); }
    int width() const { return PNVFFmpegOutputWidth(get()); }
    int height() const { return PNVFFmpegOutputHeight(get()); }

    void seek(double seconds) { check(PNVFFmpegSeek(get(), error_, sizeof error_, seconds)); }

    ReadFrame next(int padding = 0) {
        auto frame = room(4 * width() + padding);
        return finish(frame, PNVFFmpegReadFrameIntoBGRA(get(), frame.pixels.data(), frame.stride, &record_, error_,
                                                        sizeof error_));
    }

    ReadFrame atOrAfter(double seconds, const PNVFFmpegCancellationToken* token = nullptr) {
        auto frame = room(4 * width());
        return finish(frame, PNVFFmpegReadFrameAtOrAfterIntoBGRA(get(), frame.pixels.data(), frame.stride, &record_,
                                                                 error_, sizeof error_, token, seconds));
    }

    ReadFrame nextNV12(int padding = 0) {
        const int rowBytes = (width() + 1) / 2 * 2 + padding;
        auto frame = room(rowBytes);
        frame.chroma.resize(std::size_t(rowBytes) * std::size_t((height() + 1) / 2));
        return finish(frame, PNVFFmpegReadFrameIntoNV12(get(), frame.pixels.data(), rowBytes, frame.chroma.data(),
                                                        rowBytes, &record_, error_, sizeof error_));
    }

    // The numbers of all frames to the end.
    std::vector<int> remainingFrames() {
        std::vector<int> shown;
        for (auto frame = next(); frame.result == 1; frame = next())
            shown.push_back(frame.index());
        return shown;
    }

    const PNVFFmpegFrame& record() const { return record_; }

private:
    struct Close {
        void operator()(PNVFFmpegReader* reader) const { PNVFFmpegClose(reader); }
    };

    void check(int result) const {
        if (result < 0)
            throw std::runtime_error(error_);
    }

    ReadFrame room(int stride) const {
        return {.stride = stride, .pixels = std::vector<std::uint8_t>(std::size_t(stride) * std::size_t(height()))};
    }

    ReadFrame finish(ReadFrame& frame, int result) {
        check(result);
        frame.result = result;
        frame.seconds = record_.ptsSeconds;
        frame.width = record_.width;
        frame.height = record_.height;
        return std::move(frame);
    }

    std::unique_ptr<PNVFFmpegReader, Close> reader_;
    PNVFFmpegFrame record_{};
    char error_[1024] = {};
};

inline PNVFFmpegVideoInfo probeVideo(const std::filesystem::path& path) {
    PNVFFmpegVideoInfo info;
    char error[1024] = {};
    if (PNVFFmpegProbe(path.c_str(), &info, error, sizeof error) < 0)
        throw std::runtime_error(error);
    return info;
}

} // namespace panoveer::test
