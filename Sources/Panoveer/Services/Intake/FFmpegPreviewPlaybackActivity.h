#pragma once

#include <chrono>
#include <memory>
#include <mutex>
#include <optional>

namespace panoveer {

// Counts the previews that decode through FFmpeg right now, so that an export leaves the processor to them: active
// while one decodes and for 0.3 s after the last one ended. Any thread.
class FFmpegPreviewPlaybackActivity {
public:
    using Clock = std::chrono::steady_clock;

    static FFmpegPreviewPlaybackActivity& shared();

    // A preview decodes while the lease lives.
    class [[nodiscard]] Lease {
    public:
        explicit Lease(FFmpegPreviewPlaybackActivity& activity) : activity_(&activity) { activity.begin(); }
        Lease(Lease&&) = default;
        Lease& operator=(Lease&&) = default;

    private:
        struct End {
            void operator()(FFmpegPreviewPlaybackActivity* activity) const { activity->end(Clock::now()); }
        };
        std::unique_ptr<FFmpegPreviewPlaybackActivity, End> activity_;
    };

    bool isActive(Clock::time_point now = Clock::now()) const;

private:
    void begin();
    void end(Clock::time_point now);

    mutable std::mutex mutex_;
    int decodingCount_ = 0;                    // guarded by mutex_
    std::optional<Clock::time_point> lastEnd_; // guarded by mutex_
};

} // namespace panoveer
