#include "Panoveer/Services/Intake/FFmpegPreviewPlaybackActivity.h"

namespace panoveer {

namespace {

constexpr auto coolDown = std::chrono::milliseconds(300);

} // namespace

FFmpegPreviewPlaybackActivity& FFmpegPreviewPlaybackActivity::shared() {
    static FFmpegPreviewPlaybackActivity instance;
    return instance;
}

bool FFmpegPreviewPlaybackActivity::isActive(Clock::time_point now) const {
    std::lock_guard lock(mutex_);
    return decodingCount_ > 0 || (lastEnd_ && now - *lastEnd_ < coolDown);
}

void FFmpegPreviewPlaybackActivity::begin() {
    std::lock_guard lock(mutex_);
    ++decodingCount_;
}

void FFmpegPreviewPlaybackActivity::end(Clock::time_point now) {
    std::lock_guard lock(mutex_);
    --decodingCount_;
    lastEnd_ = now;
}

} // namespace panoveer
