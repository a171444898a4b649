#include "Panoveer/Services/Export/Clips.h"
#include "Panoveer/Services/Export/ExportSizeEstimator.h"

#include <gtest/gtest.h>

namespace panoveer {
namespace {

TEST(ExportSizeEstimator, CountsBitrateTimesDuration) {
    ExportSettings settings;
    settings.bitrateMode = ExportBitrateMode::custom;
    settings.customBitrateMbps = 80;
    EXPECT_EQ(ExportSizeEstimator::estimatedBytes(settings, 10, 30), 100e6);
    settings.customBitrateMbps = 5000; // encoded with 2000
    EXPECT_EQ(ExportSizeEstimator::estimatedBytes(settings, 10, 30), 2500e6);
    EXPECT_EQ(ExportSizeEstimator::estimatedBytes(settings, 0, 30), 0);
    EXPECT_EQ(ExportSizeEstimator::estimatedBytes(settings, -5, 30), 0);
}

TEST(ExportSizeEstimator, ScalesProResFromFullHD) {
    ExportSettings settings;
    settings.codec = ExportCodec::proRes;
    settings.outputFormat = ProjectionFormat::standard;
    settings.customWidth = 1920;
    EXPECT_DOUBLE_EQ(ExportSizeEstimator::estimatedBytes(settings, 8, 29.97), 147e6);
    EXPECT_DOUBLE_EQ(ExportSizeEstimator::estimatedBytes(settings, 8, 59.94), 2 * 147e6);
    settings.customWidth = 3840;
    EXPECT_DOUBLE_EQ(ExportSizeEstimator::estimatedBytes(settings, 8, 29.97), 4 * 147e6);
    EXPECT_DOUBLE_EQ(ExportSizeEstimator::estimatedBytes(settings, 8, 0), 4 * 147e6 / 29.97);
}

TEST(ExportSizeEstimator, SumsWhatIsLeftOfTheClips) {
    auto marked = clipOf("/films/a.mov", 0, 10);
    marked.markedOutPoint = 4;
    const std::vector clips = {marked, clipOf("/films/b.mov", 0, 6), clipOf("/films/c.mov", 0, 1),
                               clipOf("/films/d.mov", 5, 2)};
    const SourceFrameRates rates = {{clips[0].sourceURL, 60}, {clips[1].sourceURL, 24}};
    ExportSettings settings;
    const auto bytes = [&](double duration, double rate) {
        return ExportSizeEstimator::estimatedBytes(settings, duration, rate);
    };
    EXPECT_DOUBLE_EQ(ExportSizeEstimator::estimatedBytes(settings, clips, rates),
                     bytes(4, 60) + bytes(6, 24) + bytes(1, 30));
    settings.mode = ExportMode::singleMovie;
    EXPECT_DOUBLE_EQ(ExportSizeEstimator::estimatedBytes(settings, clips, rates), bytes(11, 60));
    EXPECT_DOUBLE_EQ(ExportSizeEstimator::estimatedBytes(settings, clips, {}), bytes(11, 30));
    EXPECT_EQ(ExportSizeEstimator::estimatedBytes(settings, {}, rates), 0);
}

} // namespace
} // namespace panoveer
