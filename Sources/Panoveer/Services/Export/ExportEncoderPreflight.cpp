#include "Panoveer/Services/Export/ExportEncoderPreflight.h"

#include "Panoveer/Model/Records/RecordEnums.h"
#include "Panoveer/Services/Export/ExportVideoSettings.h"
#include "Platform/Media/EncoderCatalog.h"

#include <algorithm>

namespace panoveer {

namespace {

constexpr std::int64_t largestMultiviewSide = 4096; // of one eye

} // namespace

ExportEncoderPreflight& ExportEncoderPreflight::shared() {
    static ExportEncoderPreflight preflight;
    return preflight;
}

// Profile and alpha come with the codec; bit rate, rate and colours have no part in it.
bool ExportEncoderPreflight::asksEncoderCatalog(ExportCodec codec, std::int64_t width, std::int64_t height) {
    return !EncoderCatalog::shared().refusal(
        videoSettings(codec, width, height, std::nullopt, std::nullopt, ExportColorMode::convertToSDR));
}

bool ExportEncoderPreflight::isSupported(const ExportSettings& settings) {
    if (properties(settings.codec).isMultiviewStereo)
        return isMultiviewSupported(settings);
    const auto size = settings.validatedResolution();
    const CacheKey key{std::string(rawValue(settings.codec)), size.width, size.height};
    {
        std::lock_guard lock(mutex_);
        if (const auto known = answers_.find(key); known != answers_.end())
            return known->second;
    }
    // Outside the lock, since an encoder takes its time to open.
    const bool answer = canEncode_(settings.codec, size.width, size.height);
    std::lock_guard lock(mutex_);
    return answers_.emplace(key, answer).first->second;
}

bool ExportEncoderPreflight::isMultiviewSupported(const ExportSettings& settings) {
    if (settings.outputFormat == ProjectionFormat::mirrorDome || !isStereoEncodeSupported_())
        return false;
    const auto eye = settings.validatedResolution().eyeResolution(settings.effectiveStereoLayout());
    if (std::max(eye.width, eye.height) > largestMultiviewSide)
        return false;
    auto plain = settings;
    plain.codec = withoutMultiview(settings.codec);
    plain.stereoLayout = StereoVideoLayout::mono;
    plain.customWidth = eye.width;
    plain.customHeight = eye.height;
    return isSupported(plain);
}

} // namespace panoveer
