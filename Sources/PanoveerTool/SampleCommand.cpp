#include "Panoveer/Model/Records/ClipDefaults.h"
#include "Panoveer/Rendering/Projection/ParallelRows.h"
#include "Panoveer/Rendering/Projection/PictureWriter.h"
#include "Panoveer/Rendering/Projection/SphericalTestChart.h"
#include "Panoveer/Rendering/Projection/VRProjectionMath.h"
#include "Panoveer/Services/Export/ExportArtifactTransaction.h"
#include "Panoveer/Services/Export/VRNativeExporter.h"
#include "Panoveer/Services/Intake/VideoMetadataReader.h"
#include "PanoveerTool/Commands.h"
#include "PanoveerTool/Exit.h"
#include "PanoveerTool/ProgressDisplay.h"
#include "PanoveerTool/RenderEngine.h"
#include "PanoveerTool/Targets.h"
#include "Platform/Core/Error.h"
#include "Platform/Core/FileLock.h"
#include "Platform/Media/AssetWriter.h"

#include <CLI/CLI.hpp>

#include <cmath>
#include <cstring>
#include <filesystem>
#include <format>
#include <iostream>
#include <numbers>

namespace panoveer::tool {

namespace fs = std::filesystem;

namespace {

constexpr int sampleWidth = 1536;
constexpr int sampleHeight = 768;
constexpr int sampleFramesPerSecond = 30;
constexpr int sampleFrameCount = 60;
constexpr std::int64_t sampleBitRate = 12'000'000;

struct SampleArguments {
    std::string folder = "sample";
    bool overwrite = false;
};

// Of all that the chart shows only the yellow disc moves, between these two latitudes.
constexpr double discBandTopDegrees = -31;
constexpr double discBandBottomDegrees = -44;

void copyPicture(const PixelBuffer& from, PixelBuffer& to) {
    for (int plane = 0; plane < from.planeCount(); ++plane)
        std::memcpy(to.plane(plane).data, from.plane(plane).data,
                    from.plane(plane).rowBytes * std::size_t(from.plane(plane).height));
}

// Paints the chart into rows of an equirectangular picture; both bounds are even.
void paintRows(const SphericalTestChart& chart, int top, int bottom, PixelBuffer& picture) {
    const double pixelAngle = std::numbers::pi / sampleHeight;
    PictureWriter writer(picture, VideoYCbCrMatrix::bt709);
    const auto color = [&](double x, double y, double footprint) {
        return chart(VRProjectionMath::directionForEquirectUV({x / sampleWidth, y / sampleHeight}), footprint,
                     StereoEye::left);
    };
    forEachRowInParallel(bottom - top, [&](int row) {
        for (int x = 0; x < sampleWidth; ++x)
            writer.writeLuma(x, top + row, color(x + 0.5, top + row + 0.5, pixelAngle));
    });
    forEachRowInParallel((bottom - top) / 2, [&](int row) {
        for (int column = 0; column < writer.chromaColumns(); ++column)
            writer.writeChroma(column, top / 2 + row,
                               color(writer.chromaX(column), writer.chromaY(top / 2 + row), 2 * pixelAngle));
    });
}

constexpr int evenRow(double latitudeDegrees) { return int((90 - latitudeDegrees) / 180 * sampleHeight) / 2 * 2; }

// An equirectangular movie of a spherical chart: graticule, named directions and a marker that moves along the equator.
void writeChartMovie(const URL& url, const std::stop_token& stop) {
    const auto staged = ExportArtifactTransaction::stagedFileURL(url);
    AssetWriter writer(staged, MovieFileType::mp4);
    VideoSettings settings;
    settings.codec = FourCC("avc1");
    settings.width = sampleWidth;
    settings.height = sampleHeight;
    settings.profile = VideoProfile::h264High;
    settings.averageBitRate = sampleBitRate;
    settings.maximumKeyFrameInterval = sampleFramesPerSecond;
    settings.color = {
        .primaries = 1, .transfer = 1, .matrix = 1, .masteringDisplayColorVolume = {}, .contentLightLevelInfo = {}};
    writer.setMovieTimeScale(sampleFramesPerSecond);
    const auto require = [&](bool done) {
        if (done)
            return;
        writer.cancelWriting();
        throw writer.error().value_or(Error("The sample movie cannot be written."));
    };
    auto* input =
        writer.addVideoInput(settings, pixelFormat::yCbCr420VideoRange, sampleFramesPerSecond, sampleFrameCount);
    require(input != nullptr);
    require(writer.startWriting());
    const auto inUse = FileLock::shared(staged.path());
    writer.startSession({0, sampleFramesPerSecond});

    const auto still = PixelBuffer::make(pixelFormat::yCbCr420VideoRange, sampleWidth, sampleHeight);
    paintRows({}, 0, sampleHeight, *still);
    PixelBufferPool pool(pixelFormat::yCbCr420VideoRange, sampleWidth, sampleHeight);
    for (int frame = 0; frame < sampleFrameCount; ++frame) {
        if (stop.stop_requested()) {
            writer.cancelWriting();
            throw Cancelled();
        }
        auto picture = pool.acquire();
        copyPicture(*still, *picture);
        paintRows({.seconds = double(frame) / sampleFramesPerSecond}, evenRow(discBandTopDegrees),
                  evenRow(discBandBottomDegrees), *picture);
        require(input->append(std::move(picture), {frame, sampleFramesPerSecond}));
    }
    input->markAsFinished();
    require(writer.finishWriting());
    ExportArtifactTransaction::commitFile(staged, url);
}

struct SampleConversion {
    std::string fileName;
    std::string what;
    ExportSettings settings;
    double yawDegrees = 0;
    double pitchDegrees = 0;
};

std::vector<SampleConversion> conversions() {
    ExportSettings dome;
    dome.mode = ExportMode::singleMovie;
    dome.outputFormat = ProjectionFormat::domemaster;
    dome.codec = ExportCodec::proRes;
    dome.customWidth = dome.customHeight = 1024;

    ExportSettings flat;
    flat.mode = ExportMode::singleMovie;
    flat.outputFormat = ProjectionFormat::standard;
    flat.codec = ExportCodec::h264;
    flat.customWidth = 1280;
    flat.customHeight = 720;
    return {{"fulldome.mov", "the same as a fulldome movie", dome},
            {"reframed.mp4", "the same reframed for a flat screen", flat, 30, 10}};
}

void makeSample(const SampleArguments& arguments, const std::stop_token& stop) {
    const auto folder = URL::fromFilePath(arguments.folder);
    fs::create_directories(folder.path());
    const auto source = folder.appendingPathComponent("equirectangular.mp4");
    auto planned = conversions();
    for (const auto& name : {std::string("equirectangular.mp4"), planned[0].fileName, planned[1].fileName})
        checkTarget(folder.path() / name, arguments.overwrite);

    writeChartMovie(source, stop);
    std::cout << std::format("{}  {}x{}, a spherical test chart\n", source.path().string(), sampleWidth, sampleHeight);

    const auto asset = VideoMetadataReader::readStreams(source);
    const auto renderer = makeRenderer("auto");
    for (const auto& conversion : planned) {
        auto clip = makeClip(asset, conversion.settings);
        clip.transform.sourceFormat = ProjectionFormat::equirectangular;
        clip.transform.yawDegrees = conversion.yawDegrees;
        clip.transform.pitchDegrees = conversion.pitchDegrees;
        VRNativeExporter exporter(*renderer);
        {
            ProgressDisplay display(ProgressDisplay::automaticStyle());
            exporter.exportClips(
                {{clip}}, conversion.settings, folder.appendingPathComponent(conversion.fileName),
                {{asset.url, asset.frameRate}},
                [&](const ExportProgress& progress) { display.show(progress, exporter.framesWritten()); }, stop);
        }
        std::cout << std::format("{}  {}x{}, {}\n", (folder.path() / conversion.fileName).string(),
                                 conversion.settings.customWidth, conversion.settings.customHeight, conversion.what);
    }
}

} // namespace

void declareSample(CLI::App& program, std::stop_token stop) {
    auto arguments = std::make_shared<SampleArguments>();
    auto* command = program.add_subcommand("sample", "Make a test movie and convert it");
    command->add_option("-o,--output", arguments->folder, "The folder to write to")->capture_default_str();
    command->add_flag("--overwrite", arguments->overwrite, "Replace movies that exist");
    command->callback([arguments, stop] { makeSample(*arguments, stop); });
}

} // namespace panoveer::tool
