#pragma once

#include "Clips.h"
#include "CopyingRenderer.h"
#include "Panoveer/Services/Export/VRExportError.h"
#include "Panoveer/Services/Export/VRNativeExporter.h"
#include "Support/MediaFactory.h"
#include "Support/Thrown.h"

#include <gmock/gmock.h>

#include <chrono>
#include <condition_variable>
#include <filesystem>
#include <mutex>
#include <set>

namespace panoveer {

// The events of an export with their fields, from all of its threads.
class KeptEvents {
public:
    void add(std::string_view event, const DiagnosticFields& fields) {
        const std::lock_guard lock(mutex_);
        events_.emplace_back(event, fields);
        added_.notify_all();
    }
    std::ptrdiff_t count(const std::string& event) const {
        const std::lock_guard lock(mutex_);
        return std::ranges::count(events_, event, &Event::first);
    }
    DiagnosticFields fieldsOf(const std::string& event) const {
        const std::lock_guard lock(mutex_);
        const auto found = std::ranges::find(events_, event, &Event::first);
        return found == events_.end() ? DiagnosticFields() : found->second;
    }
    void waitFor(const std::string& event) const {
        std::unique_lock lock(mutex_);
        added_.wait_for(lock, std::chrono::seconds(20),
                        [&] { return std::ranges::contains(events_, event, &Event::first); });
    }

private:
    using Event = std::pair<std::string, DiagnosticFields>;

    mutable std::mutex mutex_;
    mutable std::condition_variable added_;
    std::vector<Event> events_; // guarded by mutex_
};

// Exports clips of made movies, rendered without a projection, into a folder of its own.
class ExportFixture : public testing::Test {
protected:
    static constexpr double rate = 30;

    explicit ExportFixture(ProjectionFormat format = ProjectionFormat::standard, std::int64_t height = 90) {
        std::filesystem::create_directories(out);
        settings.mode = ExportMode::singleMovie;
        settings.codec = ExportCodec::h264;
        settings.outputFormat = format;
        settings.customWidth = 160;
        settings.customHeight = height;
    }

    // A clip of a movie of its own, from its head on.
    VRClipSegment clip(const test::MovieSpec& spec, double framesPerSecond = rate) {
        const auto path = test::makeMovie(folder, spec);
        rates[URL::fromFilePath(path)] = framesPerSecond;
        return clipOf(path.c_str(), 0, spec.frameCount / framesPerSecond);
    }

    // The first movie of the export.
    std::filesystem::path run(const std::vector<VRClipSegment>& clips) {
        const auto makeDiagnostics = [&](const URL&) { return std::make_unique<Diagnostics>(events); };
        const auto target = settings.mode == ExportMode::singleMovie ? out / "movie.mp4" : out;
        return VRNativeExporter(renderer, makeDiagnostics, roads, readings)
            .exportClips(
                clips, settings, URL::fromFilePath(target), rates,
                [&](const ExportProgress& progress) {
                    if (onProgress)
                        onProgress(progress);
                },
                stop.get_token())
            .front()
            .path();
    }

    // With what an export ends that does not succeed.
    VRExportError endOf(const std::vector<VRClipSegment>& clips) {
        const auto end = test::thrown<VRExportError>([&] { run(clips); });
        EXPECT_TRUE(end) << "the export ended as if all was well";
        return end.value();
    }

    std::set<std::string> written() const { return test::namesIn(out); }

    test::TemporaryFolder folder;
    std::filesystem::path out = folder / "out";
    CopyingRenderer renderer;
    SegmentFrameRoads roads;
    ExportSystemReadings readings = ExportSystemReadings::system();
    ExportSettings settings;
    SourceFrameRates rates;
    std::function<void(const ExportProgress&)> onProgress;
    std::stop_source stop;
    KeptEvents events;

private:
    class Diagnostics final : public ExportDiagnostics {
    public:
        explicit Diagnostics(KeptEvents& events) : events_(events) {}
        void record(std::string_view event, const DiagnosticFields& fields) override { events_.add(event, fields); }

    private:
        KeptEvents& events_;
    };
};

} // namespace panoveer
