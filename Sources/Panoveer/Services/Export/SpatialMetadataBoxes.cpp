#include "Panoveer/Services/Export/SpatialMetadataBoxes.h"

#include "Panoveer/Services/Export/BigEndian.h"
#include "Panoveer/Services/Export/SpatialVideoMetadataError.h"

#include <limits>

namespace panoveer::SpatialMetadataBoxes {

namespace {

using Request = SpatialVideoMetadataRequest;
using Bytes = std::vector<std::uint8_t>;

constexpr std::string_view programName = "Panoveer Studio";
constexpr std::uint32_t quarterOfWidth = 0x40000000; // as a fraction of 2^32

// The start of every full box: version 0, no flags.
Bytes fullBox() { return Bytes(4); }

} // namespace

MP4Box stereo3D(Request::StereoMode mode) {
    return MP4Box::leaf("st3d", {0, 0, 0, 0, std::uint8_t(mode)}); // version and flags, mode
}

MP4Box projection(const Request::Projection& projection) {
    auto payload = fullBox();
    if (projection.kind == Request::ProjectionKind::cubemap) {
        appendBigEndian<std::uint32_t>(payload, 0); // layout: right, left, up, down, front, back in 3 x 2
        appendBigEndian<std::uint32_t>(payload, 0); // padding around a face, pixels
        return MP4Box::leaf("cbmp", std::move(payload));
    }
    const auto side = projection.hemisphere ? quarterOfWidth : 0;
    for (const auto bound : {0u, 0u, side, side}) // top, bottom, left, right
        appendBigEndian<std::uint32_t>(payload, bound);
    return MP4Box::leaf("equi", std::move(payload));
}

MP4Box sphericalVideo(const Request::Projection& projection) {
    auto metadataSource = fullBox();
    appendText(metadataSource, programName);
    metadataSource.push_back(0);
    auto pose = fullBox();
    pose.resize(16); // yaw, pitch, roll: 16.16 fixed point, degrees
    return MP4Box::container("sv3d", {MP4Box::leaf("svhd", std::move(metadataSource)),
                                      MP4Box::container("proj", {MP4Box::leaf("prhd", std::move(pose)),
                                                                 SpatialMetadataBoxes::projection(projection)})});
}

MP4Box sphericalUUID(Request::StereoMode mode) {
    Bytes payload(firstGenerationUUID.begin(), firstGenerationUUID.end());
    appendText(payload, "<?xml version=\"1.0\"?>"
                        "<rdf:SphericalVideo\n"
                        "xmlns:rdf=\"http://www.w3.org/1999/02/22-rdf-syntax-ns#\"\n"
                        "xmlns:GSpherical=\"http://ns.google.com/videos/1.0/spherical/\">"
                        "<GSpherical:Spherical>true</GSpherical:Spherical>"
                        "<GSpherical:Stitched>true</GSpherical:Stitched>"
                        "<GSpherical:StitchingSoftware>");
    appendText(payload, programName);
    appendText(payload, "</GSpherical:StitchingSoftware>"
                        "<GSpherical:ProjectionType>equirectangular</GSpherical:ProjectionType>");
    if (mode == Request::StereoMode::topBottom || mode == Request::StereoMode::leftRight) {
        appendText(payload, "<GSpherical:StereoMode>");
        appendText(payload, mode == Request::StereoMode::topBottom ? "top-bottom" : "left-right");
        appendText(payload, "</GSpherical:StereoMode>");
    }
    appendText(payload, "</rdf:SphericalVideo>");
    return MP4Box::leaf("uuid", std::move(payload));
}

MP4Box spatialAudio(const SpatialAudioDescriptor& descriptor) {
    // The channel counts of sample entries have 16 bits.
    constexpr std::int64_t maximumChannelCount = std::numeric_limits<std::uint16_t>::max();
    if (descriptor.ambisonicOrder < 0 || descriptor.ambisonicOrder > maximumChannelCount ||
        descriptor.channelCount < 1 || descriptor.channelCount > maximumChannelCount)
        throw SpatialVideoMetadataError::internalInconsistency();

    Bytes payload;
    payload.push_back(0); // version
    payload.push_back(descriptor.headLockedStereo ? 0x80 : 0);
    appendBigEndian(payload, std::uint32_t(descriptor.ambisonicOrder));
    payload.push_back(0); // channel ordering: ACN
    payload.push_back(0); // normalisation: SN3D
    appendBigEndian(payload, std::uint32_t(descriptor.channelCount));
    for (std::uint32_t channel = 0; channel < descriptor.channelCount; ++channel)
        appendBigEndian(payload, channel);
    return MP4Box::leaf("SA3D", std::move(payload));
}

} // namespace panoveer::SpatialMetadataBoxes
