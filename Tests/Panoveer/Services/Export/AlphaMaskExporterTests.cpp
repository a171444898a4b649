#include "Clips.h"
#include "Panoveer/Rendering/Projection/CPUProjectionRenderer.h"
#include "Panoveer/Services/Export/AlphaMaskExporter.h"
#include "Panoveer/Services/Export/ExportPlannerError.h"
#include "Panoveer/Services/Export/VRExportError.h"
#include "Platform/Core/Localization.h"
#include "Platform/Media/PictureFile.h"
#include "Support/MediaFactory.h"

#include <gmock/gmock.h>

#include <array>
#include <filesystem>
#include <set>

namespace panoveer {
namespace {

namespace fs = std::filesystem;
using test::TemporaryFolder;

std::set<std::string> namesIn(const fs::path& folder) {
    std::set<std::string> names;
    for (const auto& entry : fs::directory_iterator(folder))
        names.insert(entry.path().filename().string());
    return names;
}

class AlphaMasks : public testing::Test {
protected:
    AlphaMasks() {
        setLanguage("en");
        fs::create_directories(output_);
        settings_.outputFormat = ProjectionFormat::equirectangular;
        settings_.customWidth = 256;
        settings_.customHeight = 128;
    }

    VRClipSegment clip(const fs::path& movie, ProjectionFormat format) const {
        auto made = clipOf(movie.c_str(), 0, 0.5);
        made.transform.sourceFormat = format;
        made.transform.fovDegrees = 180;
        return made;
    }

    URL run(const std::vector<VRClipSegment>& clips, const AlphaMaskExporter::ProgressHandler& progress = {}) {
        const auto note = [&](const ExportProgress& step) {
            messages_.push_back(step.message);
            fractions_.push_back(step.fraction);
            if (progress)
                progress(step);
        };
        return AlphaMaskExporter(renderer_).exportAlphaMasks(clips, settings_, URL::fromFilePath(output_), note,
                                                             stop_.get_token());
    }

    // B, G, R, A of a pixel of a mask.
    static std::array<int, 4> pixel(const PixelBuffer& picture, int x, int y) {
        const auto* at = picture.plane(0).data + std::size_t(y) * picture.plane(0).rowBytes + std::size_t(x) * 4;
        return {std::to_integer<int>(at[0]), std::to_integer<int>(at[1]), std::to_integer<int>(at[2]),
                std::to_integer<int>(at[3])};
    }
    static constexpr std::array<int, 4> white{255, 255, 255, 255};
    static constexpr std::array<int, 4> nothing{0, 0, 0, 0};

    TemporaryFolder folder_;
    fs::path output_ = folder_ / "out";
    ExportSettings settings_;
    CPUProjectionRenderer renderer_;
    std::stop_source stop_;
    std::vector<std::string> messages_;
    std::vector<double> fractions_;
};

TEST_F(AlphaMasks, ShowWhatEachClipCoversInAFolderOfTheirOwn) {
    const auto movie = test::makeMovie(folder_, {.name = "a.mov", .width = 128, .height = 128, .frameCount = 15});
    const std::vector clips{clip(movie, ProjectionFormat::halfEquirectangular),
                            clip(movie, ProjectionFormat::domemaster)};
    const auto first = run(clips);
    EXPECT_EQ(first.path(), output_ / "Alpha Masks");
    EXPECT_EQ(namesIn(first.path()), (std::set<std::string>{"a-1.png", "a-2.png"}));
    EXPECT_THAT(messages_, testing::ElementsAre("Exporting alpha mask 1 of 2", "Exporting alpha mask 1 of 2",
                                                "Exporting alpha mask 2 of 2", "Exporting alpha mask 2 of 2",
                                                "Alpha masks exported to Alpha Masks"));
    EXPECT_THAT(fractions_, testing::ElementsAre(0, 0.5, 0.5, 1, 1));

    // Half a sphere is the middle half of a whole one, up to the poles; so is a fisheye of 180 degrees.
    for (const char* name : {"a-1.png", "a-2.png"}) {
        const auto mask = readPNG(first.path() / name);
        ASSERT_EQ(mask->width(), 256);
        ASSERT_EQ(mask->height(), 128);
        for (int y = 0; y < 128; ++y)
            for (int x = 0; x < 256; ++x)
                ASSERT_EQ(pixel(*mask, x, y), x >= 64 && x < 192 ? white : nothing) << name << " " << x << ", " << y;
    }

    EXPECT_EQ(run(clips).lastPathComponent(), "Alpha Masks 2");
    EXPECT_EQ(namesIn(output_), (std::set<std::string>{"Alpha Masks", "Alpha Masks 2"}));
}

TEST_F(AlphaMasks, FollowTheFramingTheSourceAndTheMesh) {
    // Stored upright, shown on its side: the circle of a fisheye stays round.
    const auto wide = test::makeMovie(folder_, {.name = "wide.mov", .width = 192, .height = 128, .frameCount = 15});
    auto turned = clip(wide, ProjectionFormat::domemaster);
    turned.sourceOrientation = SourceVideoOrientation::right;
    turned.transform.yawDegrees = 90;
    settings_.outputFormat = ProjectionFormat::mirrorDome;
    settings_.customWidth = 320;
    settings_.customHeight = 180;
    const auto folder = run({turned});
    const auto mask = readPNG(folder.path() / "wide-1.png");
    EXPECT_EQ(pixel(*mask, 2, 2), nothing) << "outside of the mesh";
    // The source lies to the left then, which the mirror exchanges with the right.
    EXPECT_EQ(pixel(*mask, 100, 130), nothing);
    EXPECT_EQ(pixel(*mask, 220, 130)[3], 255);
    int shaded = 0;
    for (int y = 0; y < 180; ++y)
        for (int x = 0; x < 320; ++x) {
            const auto value = pixel(*mask, x, y);
            EXPECT_TRUE(value[3] == 0 || value[3] == 255);
            shaded += value[3] == 255 && value[0] < 255;
        }
    EXPECT_GT(shaded, 0) << "a mesh dims";
}

TEST_F(AlphaMasks, LeaveNothingWhenStopped) {
    const auto movie = test::makeMovie(folder_, {.name = "a.mov", .frameCount = 15});
    const std::vector clips(3, clip(movie, ProjectionFormat::equirectangular));
    EXPECT_THROW(run(clips,
                     [&](const ExportProgress& step) {
                         if (step.fraction > 0)
                             stop_.request_stop();
                     }),
                 Cancelled);
    EXPECT_EQ(messages_.size(), 2u) << "after the first mask";
    EXPECT_TRUE(fs::is_empty(output_));
}

TEST_F(AlphaMasks, LeaveNothingWhenAnyFails) {
    const auto movie = test::makeMovie(folder_, {.name = "a.mov", .frameCount = 15});
    const auto good = clip(movie, ProjectionFormat::equirectangular);
    auto empty = good;
    empty.markedInPoint = empty.markedOutPoint = 0;
    EXPECT_THROW(run({empty}), ExportPlannerError);
    EXPECT_THROW(run({good, clip(folder_ / "gone.mov", ProjectionFormat::equirectangular)}), Error);

    const auto failureOf = [&](const std::function<void(const fs::path& staged)>& spoil) {
        try {
            run({good}, [&](const ExportProgress&) { spoil(fs::directory_iterator(output_)->path()); });
        } catch (const VRExportError& error) {
            return error.which();
        }
        return VRExportError::Case::writerFailed;
    };
    EXPECT_EQ(failureOf([](const fs::path& staged) { fs::remove(staged); }), VRExportError::Case::pngMaskWriteFailed);
    EXPECT_EQ(failureOf([](const fs::path& staged) { test::writeFile(staged / "stray.png", {}); }),
              VRExportError::Case::alphaMaskValidationFailed);
    EXPECT_TRUE(fs::is_empty(output_));
}

} // namespace
} // namespace panoveer
