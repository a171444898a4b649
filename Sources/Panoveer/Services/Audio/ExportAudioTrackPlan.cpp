#include "Panoveer/Services/Audio/ExportAudioTrackPlan.h"

namespace panoveer {

AudioSettings ExportAudioTrackPlan::writerSettings() const {
    AudioSettings settings;
    settings.channelCount = channelCount;
    settings.inputLayout = bufferLayout;
    settings.writerLayout = writerLayout;
    settings.languageCode = languageCode;
    settings.extendedLanguageTag = extendedLanguageTag;
    if (const auto* aac = std::get_if<AAC>(&encoding)) {
        settings.codec = AudioSettings::Codec::aac;
        settings.bitRate = aac->bitRate;
    } else {
        settings.codec = AudioSettings::Codec::linearPCM24;
    }
    return settings;
}

} // namespace panoveer
