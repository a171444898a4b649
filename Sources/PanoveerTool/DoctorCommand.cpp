#include "Panoveer/Model/Records/ExportCodec.h"
#include "Panoveer/Model/Records/RecordEnums.h"
#include "Panoveer/Services/Export/ExportSizeEstimator.h"
#include "Panoveer/Services/Export/ExportVideoSettings.h"
#include "PanoveerTool/Commands.h"
#include "PanoveerTool/JSONText.h"
#include "PanoveerTool/RenderEngine.h"
#include "Platform/Core/Error.h"
#include "Platform/Core/Processors.h"
#include "Platform/GPU/GPUDevice.h"
#include "Platform/Media/AssetWriter.h"
#include "Platform/Media/EncoderCatalog.h"

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include <filesystem>
#include <format>
#include <iostream>

namespace panoveer::tool {

namespace fs = std::filesystem;

namespace {

using JSON = nlohmann::ordered_json;

constexpr int testWidth = 1920;
constexpr int testHeight = 1080;
constexpr double testMegabitsPerSecond = 20;

JSON devices() {
    JSON list = JSON::array();
    for (const auto& device : GPUDevice::available())
        list.push_back({{"name", device.name},
                        {"software", device.isSoftware},
                        {"vulkan", device.apiVersion},
                        {"driver", device.driver}});
    return list;
}

// Opens each encoder once; what a codec says when it is refused tells what is missing.
JSON encoders() {
    JSON list = JSON::array();
    const AssetWriter writer(URL::fromFilePath("/dev/null"), MovieFileType::quickTimeMovie);
    for (auto codec : allCases<ExportCodec>) {
        std::optional<double> bitrate;
        if (!properties(codec).isProRes())
            bitrate = testMegabitsPerSecond;
        ImmersiveMediaProperties immersiveMedia;
        if (properties(codec).isMultiviewStereo)
            immersiveMedia.multiview.emplace();
        const auto settings = videoSettings(codec, testWidth, testHeight, bitrate, std::nullopt,
                                            ExportColorMode::convertToSDR, immersiveMedia);
        std::string reason;
        const bool works = writer.canApply(settings, &reason);
        JSON entry = {{"codec", rawValue(codec)}, {"works", works}};
        if (!works)
            entry["reason"] = reason;
        list.push_back(std::move(entry));
    }
    return list;
}

// Opened at run time, so that everything else works without it.
JSON multiviewLibrary() {
    const auto [path, absence] = EncoderCatalog::layerLibrary();
    JSON result = {{"library", path}, {"found", absence.empty()}};
    if (!absence.empty())
        result["reason"] = absence;
    return result;
}

JSON freeSpace() {
    std::error_code failure;
    const auto space = fs::space(fs::current_path(), failure);
    return {{"folder", fs::current_path().string()}, {"freeBytes", failure ? 0 : space.available}};
}

void printText(const JSON& report) {
    std::cout << "Rendering\n  " << report["renderer"].get<std::string>() << " is taken unless told otherwise\n";
    for (const auto& device : report["devices"])
        std::cout << std::format("  {}{}  Vulkan {}\n", device["name"].get<std::string>(),
                                 device["software"].get<bool>() ? " (software)" : "",
                                 device["vulkan"].get<std::string>());
    if (report["devices"].empty())
        std::cout << "  no Vulkan driver: install mesa-vulkan-drivers, or the driver of your GPU\n";
    std::cout << "Encoders\n";
    for (const auto& encoder : report["encoders"])
        std::cout << std::format("  {:16} {}\n", encoder["codec"].get<std::string>(),
                                 encoder["works"].get<bool>() ? "works"
                                                              : "no: " + encoder["reason"].get<std::string>());
    const auto& multiview = report["multiviewLibrary"];
    std::cout << "Multiview and alpha library\n  "
              << (multiview["found"].get<bool>() ? multiview["library"].get<std::string>() + ": found"
                                                 : multiview["reason"].get<std::string>())
              << '\n';
    std::cout << std::format("Machine\n  {} processors\n  {} free in {}\n", report["processors"].get<unsigned>(),
                             ExportSizeEstimator::formattedDecimalSize(report["space"]["freeBytes"].get<double>()),
                             report["space"]["folder"].get<std::string>());
}

} // namespace

void declareDoctor(CLI::App& program) {
    auto json = std::make_shared<bool>(false);
    auto* command = program.add_subcommand("doctor", "Tell what works on this machine");
    command->add_flag("--json", *json, "Print JSON");
    command->callback([json] {
        const JSON report = {{"renderer", makeRenderer("auto")->name()},
                             {"devices", devices()},
                             {"encoders", encoders()},
                             {"multiviewLibrary", multiviewLibrary()},
                             {"processors", availableProcessors()},
                             {"space", freeSpace()}};
        if (*json)
            std::cout << jsonText(report, 2) << '\n';
        else
            printText(report);
    });
}

} // namespace panoveer::tool
