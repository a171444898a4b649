#include "Panoveer/Services/Intake/MediaImportReport.h"

#include "Platform/Core/Localization.h"

#include <algorithm>

namespace panoveer {

MediaImportSkipReason MediaImportSkipReason::imageSequence(std::int64_t frameCount) {
    MediaImportSkipReason reason(Case::imageSequence);
    reason.frameCount = frameCount;
    return reason;
}

MediaImportSkipReason MediaImportSkipReason::unreadable(std::string message) {
    MediaImportSkipReason reason(Case::unreadable);
    reason.message = std::move(message);
    return reason;
}

std::string describe(const MediaImportSkipReason& reason) {
    using enum MediaImportSkipReason::Case;
    switch (reason.value) {
    case imageSequence: return localized("import.skip.image_sequence", reason.frameCount);
    case unreadable: return reason.message;
    case unstitchedCameraOriginal: return localized("import.skip.unstitched");
    case photo: return localized("import.skip.photo");
    case noVideo: return localized("import.skip.no_video");
    case emptyFolder: return localized("import.skip.empty_folder");
    }
    return {};
}

std::string MediaImportReport::title() const {
    if (importedCount == 0)
        return localized("import.report.nothing_imported");
    return localized("import.report.partial", importedCount, skipped.size());
}

std::optional<std::string> MediaImportReport::message() const {
    if (skipped.empty())
        return std::nullopt;
    const auto listed = std::min(skipped.size(), listedItemLimit);
    std::string lines;
    for (std::size_t i = 0; i < listed; ++i) {
        if (i > 0)
            lines += '\n';
        lines += localized("import.report.line", skipped[i].name, describe(skipped[i].reason));
    }
    if (skipped.size() > listed)
        lines += '\n' + localized("import.report.more", skipped.size() - listed);
    return lines;
}

} // namespace panoveer
