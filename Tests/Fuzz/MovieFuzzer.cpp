// Movies as they are opened: both roads, the Canon reader, colours, HDR payloads and the first picture.

#include "Fuzz/FuzzMovies.h"
#include "Panoveer/Services/Intake/CanonRawMetadataReader.h"
#include "Panoveer/Services/Intake/FFmpegFrameReader.h"
#include "Panoveer/Services/Intake/FFmpegRuntime.h"
#include "Platform/Media/AssetReader.h"
#include "Platform/Media/MediaAsset.h"

#include <cmath>

namespace panoveer::test {

namespace {

constexpr int largestSide = 512; // of pictures that are decoded: what goes wrong does so in small ones

void readNatively(const URL& file) {
    const auto asset = MediaAsset::load(file);
    require(std::isfinite(asset->durationSeconds()) && asset->durationSeconds() >= 0, "a duration is a duration");
    for (const auto& track : asset->videoTracks()) {
        const auto& format = track.formatDescriptions.front();
        const auto mastering = format.color.masteringDisplayColorVolume.size();
        const auto light = format.color.contentLightLevelInfo.size();
        require((mastering == 0 || mastering == 24) && (light == 0 || light == 4), "HDR payloads are whole");
        if (!track.isDecodable || format.width > largestSide || format.height > largestSide)
            continue;
        AssetReader reader(asset, 0, 1);
        if (!reader.canAddOutput(track, pixelFormat::bgra))
            continue;
        reader.addOutput(track, pixelFormat::bgra);
        if (reader.startReading())
            reader.copyNextSampleBuffer();
    }
}

void readThroughFFmpeg(const URL& file) {
    const auto metadata = FFmpegRuntime::probe(file);
    require(std::isfinite(metadata.duration) && metadata.duration >= 0, "a duration is a duration");
    require(std::isfinite(metadata.frameRate) && metadata.frameRate > 0, "a rate is a rate");
    if (metadata.width <= largestSide && metadata.height <= largestSide)
        FFmpegFrameReader(file).copyFrame();
}

template<class Work>
void expectOnlyErrors(const Work& work) {
    try {
        work();
    } catch (const Error&) {
    }
}

} // namespace

std::vector<Bytes> fuzzSeeds() {
    const std::vector<std::string> hdr = {
        "-tag:v", "hvc1", "-x265-params",
        "log-level=none:hdr10=1:master-display=G(13250,34500)B(7500,3000)R(34000,16000)WP(15635,16450)"
        "L(10000000,1):max-cll=1000,400"};
    return {smallMovie({.name = "a.mp4",
                        .codec = "libx265",
                        .pixelFormat = "yuv420p10le",
                        .primaries = "bt2020",
                        .transfer = "smpte2084",
                        .matrix = "bt2020nc",
                        .outputOptions = hdr}),
            smallMovie({.name = "b.mov", .codec = "prores_ks", .pixelFormat = "yuva444p10le", .rotationDegrees = 90}),
            smallMovie({.name = "c.mkv", .startSeconds = 1, .audio = {{}}}),
            smallMovie({.name = "d.avi", .codec = "mjpeg", .pixelFormat = "yuvj420p"}),
            smallMovie({.name = "e.mov", .codec = "mpeg4", .audio = {{}}}),
            smallMovie({.name = "f.mp4", .outputOptions = {"-movflags", "+frag_keyframe+empty_moov"}})};
}

void fuzzOne(std::span<const std::uint8_t> input) {
    const auto file = memoryFile(input);
    expectOnlyErrors([&] { readNatively(file); });
    expectOnlyErrors([&] { readThroughFFmpeg(file); });
    expectOnlyErrors([&] { CanonRawMetadataReader::read(file); });
}

} // namespace panoveer::test
