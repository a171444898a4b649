#include "Panoveer/Services/Export/ExportFileNaming.h"

#include "Panoveer/Services/Export/StagedName.h"
#include "Platform/Core/Text.h"

#include <algorithm>

namespace panoveer {

namespace {

std::string withReservedReplaced(std::string_view text) {
    constexpr std::string_view reserved = "/:\\?%*|\"<>";
    std::string result(text);
    std::ranges::replace_if(result, [&](char c) { return reserved.contains(c); }, '-');
    return result;
}

std::string sourceBaseName(const URL& source) {
    auto name = ExportFileNaming::folderSafe(source.baseName());
    return name.empty() ? "video" : name;
}

std::string_view formatLabel(ProjectionFormat format) {
    switch (format) {
    case ProjectionFormat::standard: return "standard";
    case ProjectionFormat::equirectangular: return "equirectangular";
    case ProjectionFormat::halfEquirectangular: return "vr180";
    case ProjectionFormat::domemaster: return "fisheye";
    case ProjectionFormat::cubemap: return "cubemap";
    case ProjectionFormat::eac: return "eac";
    case ProjectionFormat::mirrorDome: return "mirror dome";
    }
    return {};
}

} // namespace

std::string ExportFileNaming::folderSafe(std::string_view text) {
    std::string result;
    for (const auto& word : splitAtWhiteSpace(withReservedReplaced(text)))
        result += (result.empty() ? "" : " ") + word;
    return result;
}

std::string ExportFileNaming::suggestedBaseName(const URL& source, ProjectionFormat outputFormat) {
    // The label stays whole, whatever number and extension follow.
    constexpr std::string_view longestEnd = " (99999).mp4";
    return fittingFileName(sourceBaseName(source), std::string(" - ").append(formatLabel(outputFormat)),
                           longestEnd.size());
}

std::string ExportFileNaming::sanitizedCustomBaseName(std::string_view text) {
    auto name = trimmed(text);
    const auto lower = lowercased(name);
    if (lower.ends_with(".mov") || lower.ends_with(".mp4"))
        name.resize(name.size() - 4);
    return trimmed(trimmed(folderSafe(name), "."));
}

std::string ExportFileNaming::sanitizedMaskBaseName(const URL& source) {
    auto name = trimmed(withReservedReplaced(source.baseName()));
    return name.empty() ? "clip" : name;
}

std::string ExportFileNaming::batchFolderName(std::chrono::system_clock::time_point time, std::string_view locale,
                                              std::string_view calendar, std::string_view timeZone) {
    const auto place = std::string(locale).append("@calendar=").append(calendar);
    const auto formatted = [&](std::string_view skeleton) {
        return folderSafe(formatDate(time, skeleton, place, timeZone));
    };
    return "Panoveer - " + formatted("jmm") + " " + formatted("yyyyMMdd");
}

std::string ExportFileNaming::fileName(std::string_view base, std::string_view extension) {
    const auto settled = trimmed(extension, ".");
    return std::string(base).append(".").append(settled.empty() ? "mp4" : settled);
}

} // namespace panoveer
