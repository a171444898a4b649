#include "Platform/Media/AudioTracks.h"

#include "Platform/Media/AudioLayoutMapping.h"
#include "Platform/Media/MediaSupport.h"
#include "Platform/Media/SoundDescription.h"

#include <algorithm>
#include <new>
#include <span>
#include <string_view>
#include <utility>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
}

namespace panoveer {

namespace {

namespace Tags = AudioChannelLayoutTags;

// ISO 639-2 has two codes for these languages; containers hold either.
constexpr std::pair<std::string_view, std::string_view> terminologyCodes[] = {
    {"alb", "sqi"}, {"arm", "hye"}, {"baq", "eus"}, {"bur", "mya"}, {"chi", "zho"}, {"cze", "ces"}, {"dut", "nld"},
    {"fre", "fra"}, {"geo", "kat"}, {"ger", "deu"}, {"gre", "ell"}, {"ice", "isl"}, {"mac", "mkd"}, {"mao", "mri"},
    {"may", "msa"}, {"per", "fas"}, {"rum", "ron"}, {"slo", "slk"}, {"tib", "bod"}, {"wel", "cym"},
};

std::optional<std::string> languageCode(const AVStream& stream) {
    const auto* entry = av_dict_get(stream.metadata, "language", nullptr, 0);
    const std::string_view code = entry ? entry->value : "";
    if (code.empty() || code == "und")
        return std::nullopt;
    const auto* found = std::ranges::find(terminologyCodes, code, [](const auto& row) { return row.first; });
    return std::string(found == std::end(terminologyCodes) ? code : found->second);
}

// "AAC (Advanced Audio Coding), LC"
std::string codecDescription(const AVCodecParameters& parameters) {
    const auto* codec = avcodec_descriptor_get(parameters.codec_id);
    std::string text = codec && codec->long_name ? codec->long_name : avcodec_get_name(parameters.codec_id);
    if (const char* profile = avcodec_profile_name(parameters.codec_id, parameters.profile))
        text += std::string(", ") + profile;
    return text;
}

bool isLinearPCM(AVCodecID id) {
    const std::string_view name = avcodec_get_name(id);
    return name.starts_with("pcm_") && name != "pcm_alaw" && name != "pcm_mulaw" && name != "pcm_vidc";
}

// Says that the channels stand for no loudspeakers, in the order of their numbers.
bool isOrderedTag(AudioChannelLayoutTag tag) {
    const auto family = tag & 0xFFFF0000;
    return family == Tags::hoaACNSN3D || family == Tags::hoaACNN3D || family == Tags::discreteInOrder ||
           tag == Tags::ambisonicBFormat;
}

// PCM lies in the file as `chan` says. Any other codec orders loudspeakers in its own way, which libav knows.
std::optional<AudioChannelLayout> trackLayout(const AudioTrack& track, const AVCodecParameters& parameters,
                                              const std::optional<AudioChannelLayout>& chan) {
    if (chan && chan->channelCount() == track.channelCount && (track.isLinearPCM || isOrderedTag(chan->tag)))
        return chan;
    return audioChannelLayout(parameters.ch_layout);
}

AudioTrack audioTrack(const AVStream& stream, const SoundDescription* description) {
    const auto& parameters = *stream.codecpar;
    AudioTrack track;
    track.streamIndex = stream.index;
    track.codecType = fourCCFromTag(parameters.codec_tag);
    track.channelCount = parameters.ch_layout.nb_channels;
    track.sampleRate = parameters.sample_rate;
    track.codecDescription = codecDescription(parameters);
    track.isLinearPCM = isLinearPCM(parameters.codec_id);
    track.layout = trackLayout(track, parameters, description ? description->layout : std::nullopt);
    track.languageCode = languageCode(stream);
    if (description)
        track.extendedLanguageTag = description->extendedLanguageTag;
    track.isDecodable =
        track.channelCount > 0 && track.sampleRate > 0 && avcodec_find_decoder(parameters.codec_id) != nullptr;
    track.decoderParameters = copyOf(parameters);
    return track;
}

} // namespace

std::vector<AudioTrack> audioTracksOf(const AVFormatContext& input, const URL& url) {
    const bool isQuickTime = std::string_view(input.iformat->name).contains("mov");
    const auto descriptions = isQuickTime ? readSoundDescriptions(url) : std::vector<SoundDescription>();
    std::vector<AudioTrack> tracks;
    for (const auto* stream : std::span(input.streams, input.nb_streams)) {
        const auto& parameters = *stream->codecpar;
        if (parameters.codec_type != AVMEDIA_TYPE_AUDIO || parameters.codec_id == AV_CODEC_ID_NONE)
            continue;
        const auto found = std::ranges::find(descriptions, std::uint32_t(stream->id), &SoundDescription::trackID);
        tracks.push_back(audioTrack(*stream, found == descriptions.end() ? nullptr : &*found));
    }
    return tracks;
}

} // namespace panoveer
