#include "Panoveer/Services/Export/SpatialVideoMetadataInjector.h"

#include "Panoveer/Services/Export/MP4Movie.h"
#include "Panoveer/Services/Export/MP4Writer.h"
#include "Panoveer/Services/Export/SpatialMetadataBoxes.h"
#include "Panoveer/Services/Export/SpatialVideoMetadataError.h"
#include "Panoveer/Services/Export/StagedName.h"
#include "Platform/Core/UUID.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <limits>
#include <vector>

namespace panoveer {

namespace {

using Request = SpatialVideoMetadataRequest;
using Failure = SpatialVideoMetadataError;

// Removes a file on the way out unless it has been given its final place.
class TemporaryFile {
public:
    explicit TemporaryFile(URL url) : url_(std::move(url)) {}
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;
    ~TemporaryFile() {
        if (!url_.empty())
            unlink(url_.path().c_str());
    }

    void replace(const URL& target) {
        if (rename(url_.path().c_str(), target.path().c_str()) != 0)
            throw posixError(target.path().native(), errno);
        url_ = {};
    }

private:
    URL url_;
};

bool isSphericalUUID(const ByteSource& source, const MP4Box& box) {
    const auto& uuid = SpatialMetadataBoxes::firstGenerationUUID;
    return box.type == FourCC("uuid") && std::ranges::equal(MP4Parser::readContent(source, box, 0, uuid.size()), uuid);
}

void removeSphericalUUIDs(const ByteSource& source, MP4Box& track) {
    std::erase_if(*track.children, [&](const MP4Box& box) { return isSphericalUUID(source, box); });
}

void removeChildren(MP4Box& box, FourCC tag) {
    std::erase_if(*box.children, [tag](const MP4Box& child) { return child.type == tag; });
}

void patchV2Metadata(MP4Movie& movie, const Request& request) {
    auto& entry = movie.videoSampleEntry();
    removeChildren(entry, "st3d");
    removeChildren(entry, "sv3d");
    // Ahead of the encoder's own word on the picture: libavformat believes the last, and that one knows half a sphere.
    const auto append = [&](MP4Box box) {
        entry.children->insert(std::ranges::find(*entry.children, FourCC("vexu"), &MP4Box::type), std::move(box));
    };
    if (request.hasStereo())
        append(SpatialMetadataBoxes::stereo3D(request.stereoMode));
    if (request.hasProjection())
        append(SpatialMetadataBoxes::sphericalVideo(request.projection));
}

void patchVideoTrack(const ByteSource& source, MP4Movie& movie, const Request& request) {
    auto& track = movie.videoTrack();
    removeSphericalUUIDs(source, track);
    if (request.hasFirstGeneration())
        track.children->push_back(SpatialMetadataBoxes::sphericalUUID(request.stereoMode));
    patchV2Metadata(movie, request);
}

void patchSpatialAudio(MP4Movie& movie, const URL& url, SpatialVideoMetadataInjector::AudioDescriptors descriptors) {
    const auto tracks = movie.audioTracks();
    for (std::size_t index = 0; index < descriptors.size(); ++index) {
        if (!descriptors[index])
            continue;
        auto* entry = index < tracks.size() ? MP4Movie::audioSampleEntry(*tracks[index]) : nullptr;
        if (!entry)
            throw Failure::missingBox("SA3D", url);
        removeChildren(*entry, "SA3D");
        entry->children->push_back(SpatialMetadataBoxes::spatialAudio(*descriptors[index]));
    }
}

// How far each box moves once those ahead of it have their new sizes.
std::vector<std::int64_t> shifts(const std::vector<MP4Box>& boxes) {
    std::vector<std::int64_t> result;
    std::uint64_t position = 0;
    for (const auto& box : boxes) {
        const auto limit = std::uint64_t(std::numeric_limits<std::int64_t>::max());
        if (position > limit || box.position > limit)
            throw Failure::internalInconsistency();
        result.push_back(std::int64_t(position) - std::int64_t(box.position));
        position += box.totalSize();
    }
    return result;
}

// The one distance by which all media data moves.
std::int64_t mediaDataDelta(MP4Movie& movie) {
    const auto& boxes = movie.boxes();
    const auto distances = shifts(boxes);
    const auto delta = distances[movie.mediaDataIndex()];
    // Media data on both sides of the movie box would move by two distances, which one delta cannot express.
    for (std::size_t index = 0; index < boxes.size(); ++index)
        if (boxes[index].type == FourCC("mdat") && distances[index] != delta)
            throw Failure::internalInconsistency();
    return delta;
}

// A box that must be there with exactly this content, and so must every box below it.
void expect(const ByteSource& source, const MP4Box* box, const MP4Box& expected, const URL& url) {
    if (!box)
        throw Failure::missingBox(expected.type, url);
    if (expected.children) {
        for (const auto& child : *expected.children)
            expect(source, box->child(child.type), child, url);
        return;
    }
    if (MP4Parser::readContent(source, *box, 0, expected.payload->size() + 1) != *expected.payload)
        throw Failure::invalidBox(box->type, box->position);
}

void expectStereo(const ByteSource& source, MP4Movie& movie, Request::StereoMode mode, const URL& url) {
    const auto expected = SpatialMetadataBoxes::stereo3D(mode);
    const auto* box = movie.videoSampleEntry().child("st3d");
    // A mono picture may say so, and need not.
    if (box || mode != Request::StereoMode::mono)
        expect(source, box, expected, url);
}

void expectSphericalUUID(const ByteSource& source, MP4Movie& movie, const Request& request, const URL& url) {
    std::vector<const MP4Box*> found;
    for (const auto& box : *movie.videoTrack().children)
        if (isSphericalUUID(source, box))
            found.push_back(&box);
    if (found.size() > (request.hasFirstGeneration() ? 1 : 0))
        throw Failure::invalidBox("uuid", found.back()->position);
    if (request.hasFirstGeneration())
        expect(source, found.empty() ? nullptr : found.front(), SpatialMetadataBoxes::sphericalUUID(request.stereoMode),
               url);
}

} // namespace

void SpatialVideoMetadataInjector::rewrite(const ByteSource& input, const URL& url, const Request& video,
                                           AudioDescriptors spatialAudio, ByteSink& output, std::stop_token stop) {
    MP4Movie movie(input, url);
    if (video.hasVideo())
        patchVideoTrack(input, movie, video);
    patchSpatialAudio(movie, url, spatialAudio);
    movie.moov().recomputeSize();

    MP4Writer writer(input, output, mediaDataDelta(movie), std::move(stop));
    for (const auto& box : movie.boxes())
        writer.write(box);
}

void SpatialVideoMetadataInjector::injectMetadata(const URL& url, const Request& video, AudioDescriptors spatialAudio,
                                                  std::stop_token stop,
                                                  const std::function<void(const URL& copy)>& beforeReplacing) {
    const FileByteSource input(url);
    struct stat status{};
    if (fstat(input.fileDescriptor(), &status) != 0)
        throw posixError(url.path().native(), errno);

    const auto copy = url.deletingLastPathComponent().appendingPathComponent(
        fittingFileName(url.lastPathComponent(), ".spatial-" + UUID::random().text() + ".tmp"));
    FileByteSink output(copy, status.st_mode);
    TemporaryFile temporary(copy);
    rewrite(input, url, video, spatialAudio, output, std::move(stop));
    output.close();
    if (beforeReplacing)
        beforeReplacing(copy);
    temporary.replace(url);
}

void SpatialVideoMetadataInjector::validateMetadata(const URL& url, const Request& video) {
    if (!video.hasVideo())
        return;
    const FileByteSource source(url);
    MP4Movie movie(source, url);
    expectStereo(source, movie, video.stereoMode, url);
    expectSphericalUUID(source, movie, video, url);

    const auto* spherical = movie.videoSampleEntry().child("sv3d");
    if (video.hasProjection())
        expect(source, spherical, SpatialMetadataBoxes::sphericalVideo(video.projection), url);
    else if (spherical)
        throw Failure::invalidBox("sv3d", spherical->position);
}

void SpatialVideoMetadataInjector::validateStereoMetadata(const URL& url, StereoMode mode) {
    const FileByteSource source(url);
    MP4Movie movie(source, url);
    expectStereo(source, movie, mode, url);
}

void SpatialVideoMetadataInjector::validateSpatialAudio(const URL& url, AudioDescriptors expected) {
    const FileByteSource source(url);
    MP4Movie movie(source, url);
    const auto tracks = movie.audioTracks();
    for (std::size_t index = 0; index < std::max(tracks.size(), expected.size()); ++index) {
        const auto* entry = index < tracks.size() ? MP4Movie::audioSampleEntry(*tracks[index]) : nullptr;
        const auto count =
            entry ? std::ranges::count(*entry->children, FourCC("SA3D"), &MP4Box::type) : std::ptrdiff_t(0);
        const bool wanted = index < expected.size() && expected[index];
        if (count != (wanted ? 1 : 0))
            throw Failure::missingBox("SA3D", url);
        if (!wanted)
            continue;
        const auto box = SpatialMetadataBoxes::spatialAudio(*expected[index]);
        if (MP4Parser::readContent(source, *entry->child("SA3D"), 0, box.payload->size() + 1) != *box.payload)
            throw Failure::missingBox("SA3D", url);
    }
}

} // namespace panoveer
