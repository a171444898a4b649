#include "Panoveer/Services/Intake/MediaFileSupport.h"

#include "Platform/Core/Text.h"

namespace panoveer::MediaFileSupport {

LiveSyphonCompatibility liveSyphonCompatibility(const URL& url, bool requiresFFmpegDecode) {
    const auto extension = lowercased(url.pathExtension());
    const bool needsTranscode = requiresFFmpegDecode || extension == "avi" || extension == "mkv" || extension == "webm";
    return needsTranscode ? LiveSyphonCompatibility::transcodeRecommended : LiveSyphonCompatibility::compatible;
}

} // namespace panoveer::MediaFileSupport
