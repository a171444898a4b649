#include "FFmpegBridge/ViewPairing.h"

#include <gtest/gtest.h>

extern "C" {
#include <libavutil/stereo3d.h>
}

namespace panoveer::test {
namespace {

constexpr int left = AV_STEREO3D_VIEW_LEFT, right = AV_STEREO3D_VIEW_RIGHT, unknown = -1;

// What became of one decoded view: the names of the views in the picture, or "" when it waits.
class ViewPairing : public testing::Test {
protected:
    ViewPairing() {
        reader_.isStereoMultiview = true;
        reader_.timeBase = {1, 10};
        reader_.frameRate = 10;
        reader_.decoded.reset(av_frame_alloc());
        reader_.scratch.reset(av_frame_alloc());
        reader_.held.frame.reset(av_frame_alloc());
    }

    std::string decode(char name, int64_t timestamp, int eye) {
        AVFrame& frame = *reader_.decoded;
        frame.width = frame.height = 16;
        frame.format = AV_PIX_FMT_GRAY8;
        EXPECT_EQ(av_frame_get_buffer(&frame, 0), 0);
        frame.data[0][0] = std::uint8_t(name);
        frame.best_effort_timestamp = timestamp;
        if (eye != unknown)
            av_stereo3d_create_side_data(&frame)->view = AVStereo3DView(eye);
        PNVPicture picture;
        return pnv_take_decoded_frame(reader_, picture) ? describe(picture) : "";
    }

    std::string end() {
        if (!pnv_holds_view(reader_))
            return "";
        PNVPicture picture;
        pnv_release_held_view(reader_, picture);
        return describe(picture);
    }

private:
    // "LR@1.0": left and right half, and the time in seconds; one letter for a view that fills both.
    static std::string describe(const PNVPicture& picture) {
        std::string text(1, char(picture.primary->data[0][0]));
        if (picture.secondary)
            text += char(picture.secondary->data[0][0]);
        char seconds[16];
        std::snprintf(seconds, sizeof seconds, "@%.1f", picture.seconds);
        return text + seconds;
    }

    PNVFFmpegReader reader_;
};

TEST_F(ViewPairing, PutsTheLeftEyeFirstInWhateverOrderTheViewsCome) {
    EXPECT_EQ(decode('L', 0, left), "");
    EXPECT_EQ(decode('R', 0, right), "LR@0.0");
    EXPECT_EQ(decode('R', 1, right), "");
    EXPECT_EQ(decode('L', 1, left), "LR@0.1");
    EXPECT_EQ(end(), "");
}

TEST_F(ViewPairing, TakesWhatIsKnownOfOneEyeForBoth) {
    EXPECT_EQ(decode('a', 0, unknown), "");
    EXPECT_EQ(decode('L', 0, left), "La@0.0");
    EXPECT_EQ(decode('R', 1, right), "");
    EXPECT_EQ(decode('b', 1, unknown), "bR@0.1");
    EXPECT_EQ(decode('c', 2, unknown), "");
    EXPECT_EQ(decode('R', 2, right), "cR@0.2");
    EXPECT_EQ(decode('d', 3, unknown), "");
    EXPECT_EQ(decode('e', 3, unknown), "de@0.3");
}

TEST_F(ViewPairing, LetsAViewWithoutAPartnerStandAlone) {
    EXPECT_EQ(decode('L', 0, left), "");
    EXPECT_EQ(decode('M', 0, left), "L@0.0"); // the same eye again is no partner
    EXPECT_EQ(decode('R', 0, right), "MR@0.0");
    EXPECT_EQ(decode('L', 1, left), "");
    EXPECT_EQ(decode('R', 2, right), "L@0.1"); // nor is another time
    EXPECT_EQ(end(), "R@0.2");
    EXPECT_EQ(end(), "");
}

TEST_F(ViewPairing, CountsOnWhereTimesAreMissing) {
    EXPECT_EQ(decode('L', AV_NOPTS_VALUE, left), "");
    EXPECT_EQ(decode('R', AV_NOPTS_VALUE, right), "LR@0.0");
    EXPECT_EQ(decode('L', AV_NOPTS_VALUE, left), "");
    EXPECT_EQ(end(), "L@0.2"); // the third frame from the decoder
}

} // namespace
} // namespace panoveer::test
