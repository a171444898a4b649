#include "Panoveer/Services/Export/AlphaMaskExporter.h"

#include "Panoveer/Rendering/Projection/SourceLattice.h"
#include "Panoveer/Services/Export/ExportArtifactTransaction.h"
#include "Panoveer/Services/Export/ExportArtifactValidator.h"
#include "Panoveer/Services/Export/ExportPlanner.h"
#include "Panoveer/Services/Export/VRExportError.h"
#include "Panoveer/Services/Intake/FFmpegRuntime.h"
#include "Platform/Core/FileLock.h"
#include "Platform/Core/Localization.h"
#include "Platform/Media/MediaAsset.h"
#include "Platform/Media/PictureFile.h"

#include <cstring>
#include <filesystem>
#include <format>
#include <set>
#include <vector>

namespace panoveer {

namespace {

// A folder that is gone with the value, unless it has moved to its final name.
class StagedDirectory {
public:
    explicit StagedDirectory(const URL& parent) {
        // Until it is locked another process may take it for one that was left behind.
        do {
            url_ = ExportArtifactTransaction::createStagedDirectory(parent);
            inUse_ = FileLock::shared(url_.path());
        } while (!std::filesystem::exists(url_.path()));
    }
    ~StagedDirectory() {
        std::error_code ignored;
        std::filesystem::remove_all(url_.path(), ignored);
    }
    StagedDirectory(const StagedDirectory&) = delete;
    StagedDirectory& operator=(const StagedDirectory&) = delete;

    const URL& url() const { return url_; }

private:
    URL url_;
    FileLock inUse_;
};

// As the road delivers it that an export of the clip takes: before its orientation is settled.
PictureSize decodedSourceSize(const VRClipSegment& segment) {
    if (segment.videoDecodingBackend != VideoDecodingBackend::ffmpeg) {
        try {
            const auto asset = MediaAsset::load(segment.sourceURL);
            if (!asset->videoTracks().empty() && asset->videoTracks().front().isDecodable) {
                const auto& format = asset->videoTracks().front().formatDescriptions.front();
                return {format.width, format.height};
            }
        } catch (const Error&) { // the other road may read it
        }
    }
    const auto metadata = FFmpegRuntime::probe(segment.sourceURL);
    return {metadata.width, metadata.height};
}

PixelBufferPtr makeOpaqueWhitePicture(PictureSize size) {
    auto picture = PixelBuffer::make(pixelFormat::bgra, size.width, size.height);
    const auto& plane = picture->plane(0);
    std::memset(plane.data, 0xff, plane.rowBytes * std::size_t(plane.height));
    return picture;
}

void writeMask(const PixelBuffer& picture, const URL& url) {
    try {
        writePNG(picture, url.path());
    } catch (const Error& error) {
        VRExportError failure(VRExportError::Case::pngMaskWriteFailed, url);
        failure.setUnderlying(std::make_shared<Error>(error));
        throw failure;
    }
}

void validateMasks(const URL& directory, std::span<const ExportAlphaMaskDescriptor> masks) {
    std::vector<std::string> names;
    for (const auto& mask : masks)
        names.push_back(mask.url.lastPathComponent());
    const auto& size = masks.front().resolution;
    try {
        ExportArtifactValidator::validatePNGDirectory(directory, names, size.width, size.height);
    } catch (const Error& error) {
        VRExportError failure(VRExportError::Case::alphaMaskValidationFailed, std::string(error.what()));
        failure.setUnderlying(std::make_shared<Error>(error));
        throw failure;
    }
}

} // namespace

URL AlphaMaskExporter::exportAlphaMasks(std::span<const VRClipSegment> segments, const ExportSettings& settings,
                                        const URL& destinationDirectory, const ProgressHandler& progress,
                                        std::stop_token stop) {
    const StagedDirectory staged(destinationDirectory);
    const auto masks = ExportPlanner::alphaMaskPlan(segments, settings, staged.url());
    std::size_t done = 0;
    for (const auto& mask : masks) {
        if (stop.stop_requested())
            throw Cancelled();
        const auto message = std::format("Exporting alpha mask {} of {}", done + 1, masks.size());
        const std::set<UUID> item{mask.segment.queueItemID};
        progress({double(done) / double(masks.size()), message, item});
        exportAlphaMask(mask);
        progress({double(++done) / double(masks.size()), message, item});
    }
    validateMasks(staged.url(), masks);
    if (stop.stop_requested())
        throw Cancelled();
    const auto folder = ExportArtifactTransaction::commitUniqueDirectory(staged.url(), destinationDirectory,
                                                                         localized("export.alpha_masks.folder_name"));
    progress({1, "Alpha masks exported to " + folder.lastPathComponent(), {}});
    return folder;
}

// With two taps: white is white with any number of them.
void AlphaMaskExporter::exportAlphaMask(const ExportAlphaMaskDescriptor& descriptor) {
    auto output =
        PixelBuffer::make(pixelFormat::bgra, int(descriptor.resolution.width), int(descriptor.resolution.height));
    renderer_
        .render(makeOpaqueWhitePicture(decodedSourceSize(descriptor.segment)),
                {.orientation = descriptor.segment.sourceOrientation}, descriptor.segment.transform, output,
                VRColorOutputMode::sdr, VRResamplingQuality::interactive, true)
        ->wait();
    writeMask(*output, descriptor.url);
}

} // namespace panoveer
