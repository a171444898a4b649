#include "PanoveerTool/AudioTrackText.h"

#include "Panoveer/Services/Audio/FFmpegChannel.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <format>

namespace panoveer::tool {

namespace {

using Track = SourceAudioTrack;

std::string_view name(AmbisonicNormalization normalization) {
    switch (normalization) {
    case AmbisonicNormalization::sn3d: return "SN3D";
    case AmbisonicNormalization::n3d: return "N3D";
    case AmbisonicNormalization::fuma: break;
    }
    return "FuMa";
}

// "mono", "stereo", or as "5.1" counts loudspeakers.
std::string speakersText(const Track::Speakers& speakers) {
    const auto channels = ffmpegChannels(speakers.labels).value_or(std::vector<FFmpegChannel>());
    const auto low = std::ranges::count_if(channels, [](FFmpegChannel channel) {
        return channel == FFmpegChannel::lowFrequency || channel == FFmpegChannel::lowFrequency2;
    });
    const auto count = std::ptrdiff_t(speakers.labels.size());
    if (low == 0 && count <= 2)
        return count == 1 ? "mono" : "stereo";
    return std::format("{}.{} speakers", count - low, low);
}

struct KindText {
    std::string operator()(const Track::Speakers& speakers) const { return speakersText(speakers); }
    std::string operator()(const Track::Ambisonic& field) const {
        auto text = std::format("ambisonic order {} ({})", field.order, name(field.normalization));
        if (field.extraChannels > 0)
            text += std::format(" with {} head-locked", field.extraChannels);
        return text;
    }
    std::string operator()(const Track::Discrete&) const { return "discrete"; }
};

} // namespace

std::int32_t streamIndex(const SourceAudioTrack& track) {
    const auto* ffmpeg = std::get_if<Track::FFmpegBackend>(&track.backend);
    return ffmpeg ? ffmpeg->streamIndex : std::get<Track::AVFoundationBackend>(track.backend).trackID;
}

std::string describe(const SourceAudioTrack& track) {
    auto text = std::format("{}, {} channel{}, {}", std::visit(KindText{}, track.kind), track.channelCount,
                            track.channelCount == 1 ? "" : "s", track.codecDescription);
    if (track.extendedLanguageTag || track.languageCode)
        text += ", " + track.extendedLanguageTag.value_or(track.languageCode.value_or(""));
    return text;
}

void addKind(nlohmann::ordered_json& stream, const SourceAudioTrack& track) {
    stream["description"] = track.codecDescription;
    if (track.languageCode)
        stream["language"] = *track.languageCode;
    if (track.extendedLanguageTag)
        stream["languageTag"] = *track.extendedLanguageTag;
    if (const auto* field = std::get_if<Track::Ambisonic>(&track.kind)) {
        stream["kind"] = "ambisonic";
        stream["ambisonicOrder"] = field->order;
        stream["normalization"] = name(field->normalization);
        stream["headLockedChannels"] = field->extraChannels;
    } else {
        stream["kind"] = std::holds_alternative<Track::Speakers>(track.kind) ? "speakers" : "discrete";
    }
}

} // namespace panoveer::tool
