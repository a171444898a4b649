#include "PanoveerTool/CommandLine.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>

namespace panoveer::test {
namespace {

namespace fs = std::filesystem;

constexpr int width = 512, height = 256;

// Rec. ITU-R BT.2100-2, tables 4 and 5; HLG as a display of 1000 cd/m2 shows it. Of greys: signals 0 … 1, cd/m2.
double pqLight(double signal) {
    constexpr double m1 = 2610.0 / 16384, m2 = 2523.0 / 32, c1 = 3424.0 / 4096, c2 = 2413.0 / 128, c3 = 2392.0 / 128;
    const double power = std::pow(signal, 1 / m2);
    return 10000 * std::pow(std::max(power - c1, 0.0) / (c2 - c3 * power), 1 / m1);
}

double hlgLight(double signal) {
    constexpr double a = 0.17883277, b = 1 - 4 * a, c = 0.55991073;
    const double scene = signal <= 0.5 ? signal * signal / 3 : (std::exp((signal - c) / a) + b) / 12;
    return 1000 * std::pow(scene, 1.2);
}

struct HDRCase {
    const char* name;
    const char* sourceTransfer; // FFmpeg's name
    const char* color;
    const char* codec;
    const char* format;   // of the output's samples
    double stepsOfACode;  // of those samples in one ten-bit code
    double toleratedCode; // ten-bit codes
};

class HDRMovie : public testing::TestWithParam<HDRCase> {
protected:
    TemporaryFolder folder;

    // Every ten-bit code of video range from left to right, without loss; PQ with what HDR10 says of the display.
    fs::path ramp(const std::string& transfer) {
        std::string parameters = "log-level=none:lossless=1";
        if (transfer == "smpte2084")
            parameters += ":hdr10=1:master-display=G(13250,34500)B(7500,3000)R(34000,16000)WP(15635,16450)"
                          "L(10000000,1):max-cll=1000,400";
        const auto filter = "format=yuv420p10le,geq=lum=64+X*876/511:cb=512:cr=512,setparams=color_primaries=bt2020:"
                            "colorspace=bt2020nc:range=tv:color_trc=" +
                            transfer;
        return makeMovie(folder, {.name = "ramp.mp4",
                                  .width = width,
                                  .height = height,
                                  .frameCount = 3,
                                  .codec = "libx265",
                                  .pixelFormat = "yuv420p10le",
                                  .outputOptions = {"-tag:v", "hvc1", "-x265-params", parameters, "-vf", filter}});
    }

    static std::vector<std::uint16_t> lumaOfFirst(const fs::path& movie, const std::string& format) {
        const auto result = runProgram({"ffmpeg", "-v", "error", "-i", movie.string(), "-frames:v", "1", "-f",
                                        "rawvideo", "-pix_fmt", format, "-"});
        std::vector<std::uint16_t> luma(std::size_t(width) * height);
        if (result.standardOutput.size() < 2 * luma.size())
            throw std::runtime_error("no picture: " + result.standardError);
        std::memcpy(luma.data(), result.standardOutput.data(), 2 * luma.size());
        return luma;
    }
};

TEST_P(HDRMovie, KeepsLightAndTags) {
    const auto& row = GetParam();
    const bool becomesPQ = row.color == std::string("hdr");
    const auto source = ramp(row.sourceTransfer);
    const auto target = folder / (std::string("out.") + (row.codec == std::string("hevc10") ? "mp4" : "mov"));
    const auto result = panoveer({"convert", source.string(), "-o", target.string(), "--codec", row.codec, "--color",
                                  row.color, "--source-format", "equirectangular", "--source-stereo", "mono",
                                  "--format", "equirectangular", "--size", "512x256", "--bitrate", "60"});
    ASSERT_EQ(result.exitCode, 0) << result.standardError;

    const auto stream = videoStream(target);
    EXPECT_EQ(stream["pix_fmt"], row.format);
    EXPECT_EQ(stream["color_transfer"], becomesPQ ? "smpte2084" : "arib-std-b67");
    EXPECT_EQ(stream["color_primaries"], "bt2020");
    EXPECT_EQ(stream["color_space"], "bt2020nc");
    const auto sideData = stream["side_data_list"].dump();
    const bool describesDisplay = becomesPQ && row.sourceTransfer == std::string("smpte2084");
    for (const char* part : {R"("green_x":"13250/50000")", R"("max_luminance":"10000000/10000")",
                             R"("min_luminance":"1/10000")", R"("max_content":1000)", R"("max_average":400)"})
        EXPECT_EQ(sideData.find(part) != std::string::npos, describesDisplay) << part << sideData;

    const auto light = row.sourceTransfer == std::string("smpte2084") ? pqLight : hlgLight;
    const auto outputLight = becomesPQ ? pqLight : hlgLight;
    const auto before = lumaOfFirst(source, "yuv420p10le");
    const auto after = lumaOfFirst(target, row.format);
    double worst = 0;
    for (std::size_t i = 0; i < before.size(); ++i) {
        const auto signal = (before[i] - 64) / 876.0;
        double expected = before[i];
        if (light != outputLight) { // by bisection: no inverse of the standard's formulae is trusted here
            const double nits = std::min(light(signal), 1000.0);
            double low = 0, high = 1;
            for (int step = 0; step < 40; ++step)
                (outputLight((low + high) / 2) < nits ? low : high) = (low + high) / 2;
            expected = 64 + 876 * low;
        }
        worst = std::max(worst, std::abs(after[i] / row.stepsOfACode - expected));
    }
    EXPECT_LE(worst, row.toleratedCode);
}

INSTANTIATE_TEST_SUITE_P(
    AllRoads, HDRMovie,
    testing::Values(HDRCase{"PQInHEVC", "smpte2084", "hdr", "hevc10", "yuv420p10le", 1, 1},
                    HDRCase{"HLGInHEVC", "arib-std-b67", "hlg", "hevc10", "yuv420p10le", 1, 1},
                    HDRCase{"PQInProRes422HQ", "smpte2084", "hdr", "proRes422HQ", "yuv422p10le", 1, 1},
                    // A quarter of a ten-bit code is one of twelve bits.
                    HDRCase{"HLGInProRes4444", "arib-std-b67", "hlg", "proRes4444", "yuva444p12le", 4, 0.25},
                    HDRCase{"PQInProRes4444", "smpte2084", "hdr", "proRes4444", "yuva444p12le", 4, 0.25},
                    // One code of rounding, and one of the encoder's.
                    HDRCase{"PQToHLG", "smpte2084", "hlg", "hevc10", "yuv420p10le", 1, 2},
                    HDRCase{"HLGToPQ", "arib-std-b67", "hdr", "proRes422HQ", "yuv422p10le", 1, 2},
                    HDRCase{"HLGToPQInProRes4444", "arib-std-b67", "hdr", "proRes4444", "yuva444p12le", 4, 0.5}),
    [](const auto& test) { return test.param.name; });

} // namespace
} // namespace panoveer::test
