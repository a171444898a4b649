#include "Panoveer/Services/Audio/SourceAudioInspector.h"

#include "Panoveer/Services/Audio/AudioChannelLayouts.h"
#include "Panoveer/Services/Audio/FFmpegAudioReader.h"
#include "Platform/Core/Log.h"

#include <algorithm>
#include <cmath>
#include <exception>
#include <numeric>

namespace panoveer {

namespace {

using Track = SourceAudioTrack;
namespace Tags = AudioChannelLayoutTags;

constexpr Logger logger("Audio");
constexpr AudioChannelLayoutTag layoutNumber = 0xFFFF0000; // the high half of a tag; the low one is a count

std::vector<int> countingOrder(int channelCount) {
    std::vector<int> order(std::size_t(std::max(channelCount, 0)));
    std::iota(order.begin(), order.end(), 0);
    return order;
}

Track::Ambisonic soundField(int order, AmbisonicNormalization normalization, int channelCount) {
    return {order, normalization, std::max(channelCount - (order + 1) * (order + 1), 0)};
}

// What one or two channels are taken for about which nothing is said.
std::vector<AudioChannelLabel> ordinaryLabels(int channelCount) {
    if (channelCount == 1)
        return {AudioChannelLabels::mono};
    return channelCount == 2 ? std::vector{AudioChannelLabels::left, AudioChannelLabels::right}
                             : std::vector<AudioChannelLabel>();
}

Track::Kind kindOf(const FFmpegAudioStreamInfo& stream) {
    if (stream.ambisonicOrder)
        return soundField(*stream.ambisonicOrder, AmbisonicNormalization::sn3d, stream.channelCount);
    if (stream.channelMask == 0) {
        if (stream.channelCount >= 3)
            return Track::Discrete{};
        return Track::Speakers{ordinaryLabels(stream.channelCount)};
    }
    Track::Speakers speakers;
    for (const auto id : stream.channelIDs)
        if (const auto channel = ffmpegChannel(id))
            speakers.labels.push_back(label(*channel));
    if (int(speakers.labels.size()) != stream.channelCount)
        return Track::Discrete{};
    return speakers;
}

std::vector<FFmpegAudioStreamInfo> probeStreams(const URL& url) {
    try {
        return FFmpegRuntime::probeAudioStreams(url);
    } catch (const Error&) {
        return {};
    }
}

std::vector<AudioTrack> nativeTracks(const URL& url) {
    try {
        return MediaAsset::load(url)->audioTracks();
    } catch (const Error&) {
        return {};
    }
}

// A stream that no decoder opens is as good as none.
bool canOpen(const URL& url, const FFmpegAudioStreamInfo& stream) {
    try {
        FFmpegAudioReader(url, stream.streamIndex, 0, 0, 0);
        return true;
    } catch (const FFmpegReaderError& error) {
        logger.warning("audio left out file={} stream={} error={}", url.lastPathComponent(), stream.streamIndex,
                       error.what());
        return false;
    }
}

// The scaling that the tag names, when it names one.
std::optional<AmbisonicNormalization> normalizationOf(AudioChannelLayoutTag tag) {
    if ((tag & layoutNumber) == Tags::hoaACNSN3D)
        return AmbisonicNormalization::sn3d;
    if ((tag & layoutNumber) == Tags::hoaACNN3D)
        return AmbisonicNormalization::n3d;
    return std::nullopt;
}

} // namespace

std::vector<SourceAudioTrack> SourceAudioInspector::tracks(const URL& url, bool usesFFmpegDecode) noexcept {
    try {
        const auto streams = probeStreams(url);
        const auto natives = usesFFmpegDecode ? std::vector<AudioTrack>{} : nativeTracks(url);
        std::vector<SourceAudioTrack> result;
        for (const auto& track : natives)
            if (track.isDecodable)
                result.push_back(inspect(track, streams));
        if (natives.empty())
            for (const auto& stream : streams)
                if (canOpen(url, stream))
                    result.push_back(inspect(stream));
        return result;
    } catch (const std::exception& error) {
        logger.error("audio of {} could not be inspected: {}", url.lastPathComponent(), error.what());
        return {};
    }
}

SourceAudioTrack SourceAudioInspector::inspect(const FFmpegAudioStreamInfo& stream) {
    SourceAudioTrack track;
    track.backend = Track::FFmpegBackend{stream.streamIndex};
    track.channelCount = stream.channelCount;
    track.kind = kindOf(stream);
    track.canonicalOrder = countingOrder(stream.channelCount);
    track.codecDescription = stream.codecName;
    return track;
}

SourceAudioTrack SourceAudioInspector::inspect(const AudioTrack& native,
                                               std::span<const FFmpegAudioStreamInfo> ffmpegStreams) {
    const auto stream = std::ranges::find(ffmpegStreams, native.streamIndex, &FFmpegAudioStreamInfo::streamIndex);
    const bool isSeenByFFmpeg = stream != ffmpegStreams.end();
    auto found = classify(native.channelCount, native.layout, isSeenByFFmpeg ? stream->ambisonicOrder : std::nullopt,
                          native.isLinearPCM);
    SourceAudioTrack track;
    track.backend = Track::AVFoundationBackend{native.streamIndex};
    track.channelCount = native.channelCount;
    track.kind = std::move(found.kind);
    track.canonicalOrder = std::move(found.canonicalOrder);
    if (isSeenByFFmpeg)
        track.ffmpegFallbackStreamIndex = stream->streamIndex;
    track.languageCode = native.languageCode;
    track.extendedLanguageTag = native.extendedLanguageTag;
    track.codecDescription = native.codecDescription;
    return track;
}

SourceAudioInspector::Classification SourceAudioInspector::classify(int channelCount,
                                                                    const std::optional<AudioChannelLayout>& layout,
                                                                    std::optional<int> ffmpegAmbisonicOrder,
                                                                    bool isLinearPCM) {
    Classification result{Track::Discrete{}, countingOrder(channelCount)};
    const auto tag = layout ? layout->tag : Tags::unknown;
    const auto labels = layout ? AudioChannelLayouts::labels(*layout) : ordinaryLabels(channelCount);
    const auto channels = ffmpegChannels(labels);
    const bool namesAllPlaces = channels && !channels->empty() && int(channels->size()) == channelCount;
    // Compressed sound decodes in an order of its own, which readers see differently.
    if (!isLinearPCM && namesAllPlaces)
        std::ranges::stable_sort(result.canonicalOrder, {},
                                 [&](int position) { return (*channels)[std::size_t(position)]; });

    if (ffmpegAmbisonicOrder) {
        result.kind = soundField(*ffmpegAmbisonicOrder, AmbisonicNormalization::sn3d, channelCount);
    } else if (const auto normalization = normalizationOf(tag)) {
        const int order = std::max(int(std::sqrt(double(channelCount))) - 1, 0);
        result.kind = soundField(order, *normalization, channelCount);
    } else if (channelCount == 4 && tag == Tags::ambisonicBFormat) {
        result.kind = Track::Ambisonic{1, AmbisonicNormalization::fuma, 0};
    } else if (namesAllPlaces) {
        Track::Speakers speakers;
        for (const int position : result.canonicalOrder)
            speakers.labels.push_back(labels[std::size_t(position)]);
        result.kind = std::move(speakers);
    }
    return result;
}

} // namespace panoveer
