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

#include <CLI/CLI.hpp>
#include <dlfcn.h>
#include <nlohmann/json.hpp>

#include <cstdlib>
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
        const auto settings =
            videoSettings(codec, testWidth, testHeight, bitrate, std::nullopt, ExportColorMode::convertToSDR);
        std::string reason;
        const bool works = !properties(codec).isMultiviewStereo && writer.canApply(settings, &reason);
        JSON entry = {{"codec", rawValue(codec)}, {"works", works}};
        if (properties(codec).isMultiviewStereo)
            reason = "this version does not write multiview movies";
        if (!works)
            entry["reason"] = reason;
        list.push_back(std::move(entry));
    }
    return list;
}

// The x265 with multiview is opened, never linked; where it lies is told by the environment, else the loader searches.
JSON multiviewLibrary() {
    const char* named = std::getenv("PANOVEER_X265_LIBRARY");
    const std::string path = named && *named ? named : "libpanoveer-x265.so";
    void* library = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    JSON result = {{"library", path}, {"found", library != nullptr}};
    if (library)
        dlclose(library);
    else
        result["reason"] = "run ./dev once with a network, or set PANOVEER_X265_LIBRARY";
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
    std::cout << "Multiview library\n  " << multiview["library"].get<std::string>() << ": "
              << (multiview["found"].get<bool>() ? "found" : "not found; " + multiview["reason"].get<std::string>())
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
