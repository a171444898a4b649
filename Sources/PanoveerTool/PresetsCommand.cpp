#include "Panoveer/Model/Records/ExportDeliveryPreset.h"
#include "Panoveer/Model/Records/ExportResolutionPreset.h"
#include "Panoveer/Model/Records/RecordEnums.h"
#include "PanoveerTool/Commands.h"
#include "PanoveerTool/JSONText.h"

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include <format>
#include <iostream>

namespace panoveer::tool {

namespace {

void printTable() {
    std::cout << "Delivery presets, for --preset:\n";
    for (auto preset : allCases<ExportDeliveryPreset>) {
        const auto recipe = panoveer::recipe(preset);
        std::cout << std::format("  {:18} {:20} {:20} {:>11}  {:10} {}\n", rawValue(preset), title(preset),
                                 rawValue(recipe.format),
                                 std::format("{}x{}", recipe.resolution.width, recipe.resolution.height),
                                 rawValue(recipe.codec), rawValue(recipe.stereoLayout));
    }
    std::cout << "\nUsual sizes, for --format and --size:\n";
    for (auto format : allCases<ProjectionFormat>)
        for (const auto& preset : ExportResolutionPreset::presets(format))
            std::cout << std::format("  {:20} {:16} {:>11}  {:10} {}\n", rawValue(format), preset.name,
                                     std::format("{}x{}", preset.resolution.width, preset.resolution.height),
                                     preset.codec ? rawValue(*preset.codec) : "",
                                     preset.stereoLayout ? rawValue(*preset.stereoLayout) : "");
}

void printJSON() {
    nlohmann::ordered_json delivery = nlohmann::ordered_json::array();
    for (auto preset : allCases<ExportDeliveryPreset>) {
        const auto recipe = panoveer::recipe(preset);
        delivery.push_back({{"name", rawValue(preset)},
                            {"title", title(preset)},
                            {"format", rawValue(recipe.format)},
                            {"width", recipe.resolution.width},
                            {"height", recipe.resolution.height},
                            {"codec", rawValue(recipe.codec)},
                            {"stereo", rawValue(recipe.stereoLayout)},
                            {"vrMetadata", rawValue(recipe.vrMetadataMode)}});
    }
    nlohmann::ordered_json sizes = nlohmann::ordered_json::array();
    for (auto format : allCases<ProjectionFormat>)
        for (const auto& preset : ExportResolutionPreset::presets(format))
            sizes.push_back({{"format", rawValue(format)},
                             {"name", preset.name},
                             {"width", preset.resolution.width},
                             {"height", preset.resolution.height}});
    std::cout << jsonText({{"delivery", delivery}, {"sizes", sizes}}, 2) << '\n';
}

} // namespace

void declarePresets(CLI::App& program) {
    auto json = std::make_shared<bool>(false);
    auto* command = program.add_subcommand("presets", "List delivery presets and usual sizes");
    command->add_flag("--json", *json, "Print JSON");
    command->callback([json] { *json ? printJSON() : printTable(); });
}

} // namespace panoveer::tool
