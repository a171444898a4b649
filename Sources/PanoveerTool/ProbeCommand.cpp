#include "Panoveer/Model/Records/RecordEnums.h"
#include "Panoveer/Model/Records/RecordJSON.h"
#include "Panoveer/Services/Audio/SourceAudioInspector.h"
#include "Panoveer/Services/Intake/FFmpegRuntime.h"
#include "Panoveer/Services/Intake/VideoMetadataReader.h"
#include "PanoveerTool/AudioTrackText.h"
#include "PanoveerTool/Commands.h"
#include "PanoveerTool/DetectionText.h"
#include "PanoveerTool/JSONText.h"
#include "PanoveerTool/Sources.h"
#include "Platform/Core/Error.h"

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <format>
#include <iostream>
#include <optional>
#include <vector>

namespace panoveer::tool {

namespace {

using JSON = nlohmann::ordered_json;

// What the container says of projection and eyes; absent values are left out.
JSON containerJSON(const ContainerImmersiveMetadata& metadata) {
    JSON result = JSON::object();
    if (metadata.projection)
        result["projection"] = rawValue(*metadata.projection);
    if (metadata.stereoLayout)
        result["stereo"] = rawValue(*metadata.stereoLayout);
    result["eyesSwapped"] = metadata.eyesSwapped;
    if (metadata.horizontalFieldOfView)
        result["horizontalFieldOfView"] = *metadata.horizontalFieldOfView;
    if (metadata.stereoBaselineMillimeters)
        result["stereoBaselineMillimeters"] = *metadata.stereoBaselineMillimeters;
    return result;
}

JSON audioJSON(const FFmpegAudioStreamInfo& stream) {
    JSON result = {{"stream", stream.streamIndex},
                   {"codec", stream.codecName},
                   {"channels", stream.channelCount},
                   {"sampleRate", stream.sampleRate},
                   {"default", stream.isDefault}};
    return result;
}

struct ProbedFile {
    JSON facts;
    std::vector<SourceAudioTrack> audioTracks;
    ImmersiveFormatDetection detection;
};

ProbedFile probeFile(const URL& url, const std::stop_token& stop) {
    const auto asset = VideoMetadataReader::withFormatDetection(VideoMetadataReader::readStreams(url, stop), stop);
    if (stop.stop_requested())
        throw Cancelled();
    const auto& color = asset.colorMetadata;
    JSON result = {{"file", url.path().string()},
                   {"durationSeconds", asset.duration},
                   {"framesPerSecond", asset.frameRate},
                   {"width", asset.naturalSize.width},
                   {"height", asset.naturalSize.height},
                   {"orientation", rawValue(asset.sourceOrientation)},
                   {"alpha", asset.containsAlphaChannel},
                   {"decoder", rawValue(asset.videoDecodingBackend)},
                   {"color",
                    {{"primaries", rawValue(color.primaries)},
                     {"transfer", rawValue(color.transferFunction)},
                     {"matrix", rawValue(color.yCbCrMatrix)},
                     {"masteringDisplay", color.masteringDisplayColorVolume.has_value()},
                     {"contentLightLevel", color.contentLightLevelInfo.has_value()}}},
                   {"format", rawValue(asset.detectedFormat)},
                   {"detection", JSON::parse(encodeJSON(*asset.formatDetection))}};
    auto audioTracks = SourceAudioInspector::tracks(url, asset.videoDecodingBackend == VideoDecodingBackend::ffmpeg);
    try {
        const auto probe = FFmpegRuntime::probe(url);
        result["codec"] = probe.codecName;
        result["pixelFormat"] = probe.pixelFormatName;
        result["multiview"] = probe.isStereoMultiview;
        if (probe.containerImmersiveMetadata)
            result["container"] = containerJSON(*probe.containerImmersiveMetadata);
        result["audio"] = JSON::array();
        for (const auto& stream : FFmpegRuntime::probeAudioStreams(url)) {
            result["audio"].push_back(audioJSON(stream));
            const auto track = std::ranges::find(audioTracks, stream.streamIndex, streamIndex);
            if (track != audioTracks.end())
                addKind(result["audio"].back(), *track);
        }
    } catch (const Error&) {
        // A file that only the native road reads is told by that road alone.
    }
    return {result, std::move(audioTracks), *asset.formatDetection};
}

void printText(const ProbedFile& probed) {
    const auto& file = probed.facts;
    std::cout << file["file"].get<std::string>() << '\n';
    std::cout << std::format("  picture    {:g}x{:g}, {:.3f} fps, {:.3f} s, {} {}\n", file["width"].get<double>(),
                             file["height"].get<double>(), file["framesPerSecond"].get<double>(),
                             file["durationSeconds"].get<double>(), file.value("codec", ""),
                             file.value("pixelFormat", ""));
    std::cout << std::format("  color      {} primaries, {} transfer, {} matrix\n",
                             file["color"]["primaries"].get<std::string>(),
                             file["color"]["transfer"].get<std::string>(), file["color"]["matrix"].get<std::string>());
    std::cout << std::format("  read with  {}, orientation {}{}\n", file["decoder"].get<std::string>(),
                             file["orientation"].get<std::string>(), file["alpha"].get<bool>() ? ", with alpha" : "");
    std::cout << std::format("  format     {}\n", describe(probed.detection));
    if (file.contains("container"))
        std::cout << "  container  " << jsonText(file["container"]) << '\n';
    for (const auto& stream : file.value("audio", JSON::array())) {
        const auto index = stream["stream"].get<int>();
        const auto track = std::ranges::find(probed.audioTracks, index, streamIndex);
        std::cout << std::format("  sound      stream {}: {}\n", index,
                                 track != probed.audioTracks.end()
                                     ? describe(*track)
                                     : stream["codec"].get<std::string>() + ", which cannot be decoded");
    }
}

void probe(const std::vector<std::string>& paths, bool json, const std::stop_token& stop) {
    JSON files = JSON::array();
    std::optional<std::string> failure;
    for (const auto& path : paths) {
        const auto url = URL::fromFilePath(path);
        try {
            const auto probed = probeFile(url, stop);
            files.push_back(probed.facts);
            if (!json)
                printText(probed);
        } catch (const Error& error) {
            failure = failureText(url, error);
            if (paths.size() > 1)
                std::cerr << "panoveer: " << *failure << '\n';
        }
    }
    if (json)
        std::cout << jsonText({{"files", files}}, 2) << '\n';
    if (failure)
        throw Error(paths.size() > 1 ? "Not every file could be read." : *failure);
}

} // namespace

void declareProbe(CLI::App& program, std::stop_token stop) {
    struct Arguments {
        std::vector<std::string> paths;
        bool json = false;
    };
    auto arguments = std::make_shared<Arguments>();
    auto* command = program.add_subcommand("probe", "Tell what files are");
    command->add_option("FILE", arguments->paths, "Movies")->required();
    command->add_flag("--json", arguments->json, "Print JSON");
    command->callback([arguments, stop] { probe(arguments->paths, arguments->json, stop); });
}

} // namespace panoveer::tool
