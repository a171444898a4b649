#include "Panoveer/Services/Export/ExportWaits.h"
#include "Panoveer/Services/Export/VRExportError.h"
#include "Support/Thrown.h"

#include <gtest/gtest.h>

#include <optional>
#include <vector>

namespace panoveer {
namespace {

// A clock that moves only when somebody sleeps on it.
class ExportWaitsTest : public testing::Test {
protected:
    ExportWaitClock clock() {
        return {.uptimeSeconds = [this] { return now; },
                .sleep =
                    [this](std::chrono::nanoseconds interval) {
                        now += std::chrono::duration<double>(interval).count();
                        if (onSleep)
                            onSleep();
                    }};
    }
    ExportWriterStatus writer() {
        return {.status = [this] { return status; }, .error = [this] { return error; }};
    }

    double now = 0;
    AssetWriter::Status status = AssetWriter::Status::writing;
    std::optional<Error> error;
    std::function<void()> onSleep;
    std::stop_source stop;
};

TEST_F(ExportWaitsTest, ReturnsAsSoonAsTheInputHasRoom) {
    waitUntilReady([this] { return now > 3; }, "video", writer(), stop.get_token(), clock());
    EXPECT_NEAR(now, 3, 0.01);
}

TEST_F(ExportWaitsTest, GivesUpOnAnInputThatIsNeverReady) {
    EXPECT_THROW(waitUntilReady([] { return false; }, "video", writer(), stop.get_token(), clock()), VRExportError);
    EXPECT_NEAR(now, 120, 0.01);
}

TEST_F(ExportWaitsTest, SurfacesTheWritersOwnErrorAtOnce) {
    onSleep = [this] {
        status = AssetWriter::Status::failed;
        error = Error("the disk is full");
    };
    const auto wait = [this] { waitUntilReady([] { return false; }, "video", writer(), stop.get_token(), clock()); };
    EXPECT_STREQ(test::thrown<Error>(wait).value().what(), "the disk is full");
    EXPECT_LT(now, 0.1);
}

TEST_F(ExportWaitsTest, StopsWhenCancelled) {
    onSleep = [this] { stop.request_stop(); };
    EXPECT_THROW(waitUntilReady([] { return false; }, "video", writer(), stop.get_token(), clock()), Cancelled);
}

TEST_F(ExportWaitsTest, WaitsForABufferToComeBackToAFullPool) {
    PixelBufferPool pool(pixelFormat::bgra, 4, 4);
    auto held = pool.acquire();
    onSleep = [&] {
        if (now > 2.5)
            held.reset();
    };
    EXPECT_TRUE(acquireEncoderPixelBuffer(pool, writer(), 1, stop.get_token(), clock()));
    EXPECT_GT(now, 2.5);
}

TEST_F(ExportWaitsTest, LeavesAFullPoolWhenTheWriterFailedOrTheExportWasCancelled) {
    PixelBufferPool pool(pixelFormat::bgra, 4, 4);
    const auto held = pool.acquire();
    onSleep = [this] { status = AssetWriter::Status::failed; };
    EXPECT_THROW(acquireEncoderPixelBuffer(pool, writer(), 1, stop.get_token(), clock()), VRExportError);
    status = AssetWriter::Status::writing;
    onSleep = [this] { stop.request_stop(); };
    EXPECT_THROW(acquireEncoderPixelBuffer(pool, writer(), 1, stop.get_token(), clock()), Cancelled);
}

} // namespace
} // namespace panoveer
