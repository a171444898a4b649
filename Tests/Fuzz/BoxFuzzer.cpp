// Spatial boxes: reads any bytes as a movie, and writes every kind of metadata into them.

#include "Fuzz/FuzzMovies.h"
#include "Panoveer/Services/Export/BoxBuilding.h"
#include "Panoveer/Services/Export/SpatialBoxInspector.h"
#include "Panoveer/Services/Export/SpatialVideoMetadataError.h"
#include "Panoveer/Services/Export/SpatialVideoMetadataInjector.h"

#include <array>

namespace panoveer::test {

namespace {

using Request = SpatialVideoMetadataRequest;

const std::array requests{
    Request{},
    Request{.stereoMode = Request::StereoMode::topBottom},
    Request{.projection = {.hemisphere = true}, .stereoMode = Request::StereoMode::leftRight},
    Request{.projection = {.kind = Request::ProjectionKind::cubemap}},
    Request{.stereoOnly = true, .stereoMode = Request::StereoMode::leftRight},
    Request::audioOnly(),
};

constexpr std::array<std::optional<SpatialAudioDescriptor>, 1> ambisonics{
    SpatialAudioDescriptor{.ambisonicOrder = 1, .channelCount = 4}};

const URL name = URL::fromFilePath("/movie.mp4");

std::optional<Bytes> rewritten(std::span<const std::uint8_t> movie, const Request& request) {
    MemoryByteSink sink;
    try {
        SpatialVideoMetadataInjector::rewrite(MemoryByteSource(movie), name, request, ambisonics, sink);
    } catch (const SpatialVideoMetadataError&) {
        return std::nullopt;
    }
    return sink.bytes;
}

} // namespace

std::vector<Bytes> fuzzSeeds() {
    const AudioSpec sound{.codec = "aac", .layout = "quad"};
    std::vector<Bytes> movies = {
        smallMovie({.name = "a.mp4", .audio = {sound}}),
        smallMovie({.name = "b.mov", .codec = "prores_ks", .pixelFormat = "yuv422p10le", .audio = {{}}}),
        smallMovie({.name = "c.mp4", .codec = "libx265", .outputOptions = {"-tag:v", "hvc1"}}),
        smallMovie({.name = "d.mp4", .outputOptions = {"-movflags", "+frag_keyframe+empty_moov"}})};
    std::vector<Bytes> seeds;
    for (std::uint8_t kind = 0; kind < requests.size(); ++kind)
        for (const auto& movie : movies) {
            auto seed = rewritten(movie, requests[kind]).value_or(movie);
            seed.insert(seed.begin(), std::uint8_t((kind + 1U) % requests.size()));
            seeds.push_back(std::move(seed));
        }
    return seeds;
}

// The first byte chooses what is asked for.
void fuzzOne(std::span<const std::uint8_t> input) {
    if (input.empty())
        return;
    const auto& request = requests[input[0] % requests.size()];
    const auto movie = input.subspan(1);
    bool isSound = true;
    try {
        SpatialBoxInspector::inspect(MemoryByteSource(movie), name);
    } catch (const SpatialVideoMetadataError&) {
        isSound = false;
    }
    const auto once = rewritten(movie, request);
    if (!once)
        return;
    if (isSound)
        SpatialBoxInspector::inspect(MemoryByteSource(*once), name);
    const auto twice = rewritten(*once, request);
    require(twice && twice->size() == once->size(), "writing the same metadata again adds nothing");
}

} // namespace panoveer::test
