#include "Panoveer/Services/Intake/DualFisheyeLensHint.h"
#include "Panoveer/Services/Intake/FileNameImmersiveHints.h"
#include "Support/MediaFactory.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <string_view>

namespace panoveer {
namespace {

using Projection = ProjectionFormat;
using Layout = StereoVideoLayout;

struct Name {
    const char* text;
    std::optional<Projection> projection = {};
    std::optional<Layout> layout = {};
    bool eyesSwapped = false;
    std::optional<double> degrees = {};
};

TEST(FileNameImmersiveHints, ReadWhatPeopleWrite) {
    const Name names[] = {
        {"holiday"},
        {""},
        {"beach_360_TB", Projection::equirectangular, Layout::overUnder},
        {"Beach.VR360.OU", Projection::equirectangular, Layout::overUnder},
        {"clip-vr180-sbs", Projection::halfEquirectangular, Layout::sideBySide},
        {"clip 180x160 3dh", Projection::halfEquirectangular, Layout::sideBySide},
        {"show_rl", {}, Layout::sideBySide, true},
        {"show_bt", {}, Layout::overUnder, true},
        {"show_rl_lr", {}, Layout::sideBySide, true}, // swapped once, swapped for good
        {"show_sbs_tb", {}, Layout::overUnder},
        {"dome eac", Projection::eac},
        {"a-cubemap", Projection::cubemap},
        // Words in contradiction: the last counts, but a fisheye of 180 degrees stays one.
        {"my-180-fisheye", Projection::domemaster},
        {"my-fisheye-180", Projection::domemaster},
        {"my-fisheye-360", Projection::equirectangular},
        {"my-360-180", Projection::halfEquirectangular},
        // Apertures.
        {"clip_fisheye210_sbs", Projection::domemaster, Layout::sideBySide, false, 210},
        {"clip_FISHEYE190", Projection::domemaster, {}, false, 190},
        {"fisheye90", Projection::domemaster, {}, false, 90},
        {"fisheye360", Projection::domemaster, {}, false, 360},
        {"fisheye89"},
        {"fisheye361"},
        {"fisheyes"},
        {"fisheye200x"},
        {"clip_MKX200", Projection::domemaster, {}, false, 200},
        {"mkx200 mkx220", Projection::domemaster, {}, false, 220},
        {"mkx220_fisheye190", Projection::domemaster, {}, false, 190},
        {"mkx220_360", Projection::equirectangular},
        {"a_rf52", Projection::domemaster},
        // A word is a word only by itself, in any script.
        {"2360x1180 lrx absurd outback"},
        {"球幕360", {}},
        {"球幕 360", Projection::equirectangular},
        {"é360"},
        {"e\u0301360"},
        {"\xff\xfe_360", Projection::equirectangular},
    };
    for (const auto& name : names) {
        const FileNameImmersiveHints hints(name.text);
        SCOPED_TRACE(name.text);
        EXPECT_EQ(hints.projection, name.projection);
        EXPECT_EQ(hints.stereoLayout, name.layout);
        EXPECT_EQ(hints.eyesSwapped, name.eyesSwapped);
        EXPECT_EQ(hints.fisheyeFieldOfView, name.degrees);
    }
}

class DualFisheyeLens : public testing::Test {
protected:
    static constexpr std::size_t chunk = std::size_t(4) << 20;

    bool isFound(std::size_t size, std::size_t at, std::string_view marker) {
        std::vector<std::uint8_t> bytes(size, 'R');
        std::ranges::copy(marker, bytes.begin() + std::ptrdiff_t(at));
        test::writeFile(folder / "clip.mp4", bytes);
        return DualFisheyeLensHint::isDualFisheye(URL::fromFilePath(folder / "clip.mp4"));
    }

    test::TemporaryFolder folder;
};

TEST_F(DualFisheyeLens, IsNamedNearEitherEnd) {
    for (const auto* marker : {"DUAL FISHEYE", "Dual Fisheye", "RF5.2mm", "RF-S3.9mm", "RF-S7.8mm"})
        EXPECT_TRUE(isFound(1000, 400, marker)) << marker;
    EXPECT_FALSE(isFound(1000, 400, "dual fisheye"));
    EXPECT_FALSE(isFound(1000, 400, "RF24mm"));
    EXPECT_TRUE(isFound(chunk, chunk - 7, "RF5.2mm"));
    EXPECT_TRUE(isFound(3 * chunk, chunk - 7, "RF5.2mm"));
    EXPECT_FALSE(isFound(3 * chunk, chunk - 6, "RF5.2mm")) << "beyond the end of the first part";
    EXPECT_FALSE(isFound(3 * chunk, 2 * chunk - 1, "RF5.2mm"));
    EXPECT_TRUE(isFound(3 * chunk, 2 * chunk, "RF5.2mm"));
    EXPECT_TRUE(isFound(chunk + 1, chunk - 6, "RF5.2mm")) << "the last byte is only in the last part";
}

TEST_F(DualFisheyeLens, IsNotNamedByWhatCannotBeRead) {
    test::writeFile(folder / "empty.mp4", {});
    ASSERT_EQ(mkfifo((folder / "pipe.mp4").c_str(), 0600), 0);
    for (const auto* name : {"empty.mp4", "gone.mp4", "pipe.mp4", "."})
        EXPECT_FALSE(DualFisheyeLensHint::isDualFisheye(URL::fromFilePath(folder / name))) << name;
}

} // namespace
} // namespace panoveer
