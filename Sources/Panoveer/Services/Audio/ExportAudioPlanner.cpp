#include "Panoveer/Services/Audio/ExportAudioPlanner.h"

#include "Panoveer/Services/Audio/AACSpeakerTarget.h"
#include "Panoveer/Services/Audio/AudioChannelLayouts.h"

#include <algorithm>

namespace panoveer {

namespace {

namespace Tags = AudioChannelLayoutTags;
using Plan = ExportAudioTrackPlan;
using Source = SourceAudioTrack;
using TrackLists = std::span<const std::vector<SourceAudioTrack>>;

constexpr std::int64_t firstOrderBitRate = 384'000;

int ambisonicChannels(int order) { return (order + 1) * (order + 1); }

Plan targetPlan(const AACSpeakerTarget& target, Plan::Content content) {
    Plan plan;
    plan.encoding = Plan::AAC{target.bitRate};
    plan.content = content;
    plan.channelCount = target.channelCount;
    plan.bufferLayout = AudioChannelLayouts::ofTag(target.bufferLayout);
    plan.writerLayout = AudioChannelLayouts::ofTag(target.writerLayout);
    return plan;
}

Plan firstOrderPlan() {
    Plan plan;
    plan.encoding = Plan::AAC{firstOrderBitRate};
    plan.content = Plan::Ambisonic{1, 0};
    plan.channelCount = ambisonicChannels(1);
    // AAC knows no sound fields. Four channels that no player mixes go by this name, and a box of their own says more.
    plan.bufferLayout = plan.writerLayout = AudioChannelLayouts::ofTag(Tags::quadraphonic);
    plan.spatialAudio = SpatialAudioDescriptor{1, plan.channelCount, false};
    return plan;
}

Plan deliveryPlan(const Source& source) {
    if (const auto* speakers = std::get_if<Source::Speakers>(&source.kind))
        return ExportAudioPlanner::speakerDeliveryPlan(int(speakers->labels.size()));
    if (const auto* field = std::get_if<Source::Ambisonic>(&source.kind))
        return field->order >= 1 ? firstOrderPlan() : ExportAudioPlanner::speakerDeliveryPlan(1);
    return targetPlan(AACSpeakerTarget::forChannelCount(source.channelCount), Plan::Discrete{});
}

Plan uncompressed(Plan::Content content, int channelCount, AudioChannelLayout layout) {
    Plan plan;
    plan.encoding = Plan::PCM24{};
    plan.content = content;
    plan.channelCount = channelCount;
    plan.bufferLayout = layout;
    plan.writerLayout = std::move(layout);
    return plan;
}

Plan speakerMaster(const Source::Speakers& speakers) {
    auto labels = speakers.labels;
    if (auto channels = ffmpegChannels(labels)) {
        std::ranges::sort(*channels);
        std::ranges::transform(*channels, labels.begin(), [](FFmpegChannel channel) { return label(channel); });
    }
    if (labels.size() == 1)
        labels = {AudioChannelLabels::mono};
    return uncompressed(Plan::Speakers{AudioChannelLayouts::ffmpegMask(labels)}, int(labels.size()),
                        AudioChannelLayouts::ofLabels(labels));
}

Plan soundFieldMaster(const Source::Ambisonic& field) {
    const bool hasHeadLocked = field.extraChannels == 2;
    const int total = ambisonicChannels(field.order) + (hasHeadLocked ? 2 : 0);
    auto plan =
        uncompressed(Plan::Ambisonic{field.order, hasHeadLocked ? 2 : 0}, total,
                     AudioChannelLayouts::ofTag(hasHeadLocked ? Tags::discreteInOrder : Tags::hoaACNSN3D, total));
    plan.spatialAudio = SpatialAudioDescriptor{field.order, total, hasHeadLocked};
    return plan;
}

Plan masterPlan(const Source& source) {
    if (const auto* speakers = std::get_if<Source::Speakers>(&source.kind))
        return speakerMaster(*speakers);
    if (const auto* field = std::get_if<Source::Ambisonic>(&source.kind))
        return soundFieldMaster(*field);
    return uncompressed(Plan::Discrete{}, source.channelCount,
                        AudioChannelLayouts::ofTag(Tags::discreteInOrder, source.channelCount));
}

Plan inLanguageOf(const Source& source, Plan plan) {
    plan.languageCode = source.languageCode;
    plan.extendedLanguageTag = source.extendedLanguageTag;
    return plan;
}

// Track `index` of the first source that has so many.
const Source* firstTrack(TrackLists trackLists, std::size_t index) {
    const auto list = std::ranges::find_if(trackLists, [&](const auto& tracks) { return tracks.size() > index; });
    return list == trackLists.end() ? nullptr : &(*list)[index];
}

} // namespace

ExportAudioTrackPlan ExportAudioPlanner::speakerDeliveryPlan(int sourceChannelCount) {
    const auto& target = AACSpeakerTarget::forChannelCount(sourceChannelCount);
    return targetPlan(target, Plan::Speakers{target.ffmpegMask});
}

ExportAudioTrackPlan ExportAudioPlanner::stereoFallback(const ExportAudioTrackPlan& refused) {
    auto plan = speakerDeliveryPlan(2);
    if (std::holds_alternative<Plan::PCM24>(refused.encoding))
        plan.encoding = Plan::PCM24{};
    plan.languageCode = refused.languageCode;
    plan.extendedLanguageTag = refused.extendedLanguageTag;
    return plan;
}

std::vector<ExportAudioTrackPlan> ExportAudioPlanner::plan(TrackLists trackLists, ExportCodec codec,
                                                           ExportAudioMode mode) {
    const bool isMaster = properties(codec).isProRes();
    std::vector<ExportAudioTrackPlan> plans;
    if (mode == ExportAudioMode::none)
        return plans;
    if (mode == ExportAudioMode::stereo) {
        if (const auto* source = firstTrack(trackLists, 0)) {
            plans.push_back(inLanguageOf(*source, speakerDeliveryPlan(2)));
            if (isMaster)
                plans.front().encoding = Plan::PCM24{};
        }
        return plans;
    }
    while (const auto* source = firstTrack(trackLists, plans.size()))
        plans.push_back(inLanguageOf(*source, isMaster ? masterPlan(*source) : deliveryPlan(*source)));
    return plans;
}

} // namespace panoveer
