#include "PanoveerTool/Sources.h"

#include "Panoveer/Services/Intake/MediaImportReport.h"
#include "Panoveer/Services/Intake/MediaImportScanner.h"
#include "Panoveer/Services/Intake/VideoMetadataReader.h"
#include "PanoveerTool/Exit.h"
#include "Platform/Media/MediaAsset.h"

#include <algorithm>
#include <format>
#include <iostream>

namespace panoveer::tool {

std::vector<VideoAsset> readSources(const std::vector<std::string>& paths, const StatedImmersiveFormat& stated,
                                    const std::stop_token& stop) {
    std::vector<URL> urls;
    for (const auto& path : paths)
        urls.push_back(URL::fromFilePath(path));
    const auto scan = MediaImportScanner::scan(urls, MediaImportScanner::containsMovingPictures, stop);
    // Of a single file the last line tells all.
    const bool isSingle = scan.skipped.size() + scan.videoURLs.size() == 1;
    std::string lastFailure;
    const auto leaveOut = [&](std::string text) {
        if (!isSingle)
            std::cerr << "panoveer: left out " << text << '\n';
        lastFailure = std::move(text);
    };
    for (const auto& item : scan.skipped)
        leaveOut(item.name + ": " + describe(item.reason));
    for (const auto& project : scan.projectURLs)
        std::cerr << "panoveer: left out " << project.lastPathComponent() << ": a project is not a source\n";

    std::vector<VideoAsset> assets;
    for (const auto& url : scan.videoURLs) {
        try {
            auto asset = VideoMetadataReader::readStreams(url, stop);
            if (asset.playbackStatus == VideoPlaybackStatus::conversionRequired)
                throw Error("Canon raw movies must be converted to another format first.");
            if (!(asset.duration > 0))
                throw Error("It does not say how long it lasts. Check that it is complete, or put it into an MP4 or "
                            "MKV file first.");
            assets.push_back(VideoMetadataReader::withFormatDetection(std::move(asset), stop, stated));
        } catch (const Error& error) {
            leaveOut(failureText(url, error));
        }
    }
    if (stop.stop_requested())
        throw Cancelled();
    if (assets.empty())
        throw Error(isSingle ? lastFailure : "No movie was given that can be read.");
    return assets;
}

void requirePictureAt(double seconds, const VideoAsset& asset, std::string_view option) {
    if (!(seconds >= 0))
        throw UsageError(std::format("{}: {} is no time in seconds", option, seconds));
    double end = 0;
    try {
        end = MediaAsset::load(asset.url)->videoEndSeconds();
    } catch (const Error&) { // what only FFmpeg reads
    }
    end = end > 0 ? std::min(end, asset.duration) : asset.duration;
    // Some writers of Matroska leave the last picture out of the length that they tell.
    const double lastPicture = asset.frameRate > 0 ? 1 / asset.frameRate : 0;
    if (seconds >= std::min(end + lastPicture, asset.duration))
        throw UsageError(std::format("{}: the video of {} lasts only {:.3f} s. Choose an earlier second.", option,
                                     asset.url.lastPathComponent(), end));
}

std::string failureText(const URL& url, const Error& error) {
    const std::string text = error.what();
    return text.starts_with(url.lastPathComponent()) ? text : url.path().string() + ": " + text;
}

} // namespace panoveer::tool
