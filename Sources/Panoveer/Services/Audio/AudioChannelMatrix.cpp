#include "Panoveer/Services/Audio/AudioChannelMatrix.h"

#include "Panoveer/Services/Audio/FFmpegChannel.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <numbers>

namespace panoveer {

namespace {

using Row = AudioChannelMatrix::Row;
using Source = SourceAudioTrack;
using Plan = ExportAudioTrackPlan;

int squared(int value) { return value * value; }

int ambisonicChannels(int order) { return squared(order + 1); }

// Input `channel` of a source at this gain; nothing when it has no such channel.
void addTap(Row& row, std::span<const int> canonicalOrder, int channel, float gain) {
    if (channel >= 0 && std::size_t(channel) < canonicalOrder.size())
        row.push_back({canonicalOrder[std::size_t(channel)], gain});
}

void addScaled(Row& row, Row taps, float gain) {
    for (auto& tap : taps) {
        tap.gain *= gain;
        row.push_back(tap);
    }
}

AudioChannelMatrix silence(int channelCount) {
    AudioChannelMatrix matrix;
    matrix.rows.resize(std::size_t(std::max(channelCount, 0)));
    return matrix;
}

// A sound field has no place for sound without a direction but its omnidirectional channel.
AudioChannelMatrix intoW(const Source& source, const Plan& plan) {
    auto matrix = silence(plan.channelCount);
    for (int channel = 0; channel < source.channelCount && !matrix.rows.empty(); ++channel)
        matrix.rows.front().push_back({channel, 1.0f / float(std::max(source.channelCount, 1))});
    return matrix;
}

AudioChannelMatrix betweenSoundFields(const Source& source, const Source::Ambisonic& from, const Plan& plan,
                                      const Plan::Ambisonic& to) {
    auto matrix = silence(plan.channelCount);
    const int outputs = std::min(ambisonicChannels(to.order), plan.channelCount);
    for (int acn = 0; acn < std::min(outputs, ambisonicChannels(from.order)); ++acn)
        matrix.rows[std::size_t(acn)] =
            AudioChannelMatrix::ambisonicTaps(acn, from.normalization, source.canonicalOrder);
    for (int extra = 0; extra < std::min(from.extraChannels, plan.channelCount - outputs); ++extra)
        addTap(matrix.rows[std::size_t(outputs + extra)], source.canonicalOrder, ambisonicChannels(from.order) + extra,
               1);
    return matrix;
}

AudioChannelMatrix channelByChannel(const Source& source, const Plan& plan) {
    auto matrix = silence(plan.channelCount);
    for (int channel = 0; channel < std::min(plan.channelCount, source.channelCount); ++channel)
        addTap(matrix.rows[std::size_t(channel)], source.canonicalOrder, channel, 1);
    return matrix;
}

// Where a speaker stands, as ITU-R BS.775 and BS.2051 place it: degrees to the left of the front, and above the ears.
struct Direction {
    double azimuth = 0;
    double elevation = 0;
};

Direction directionOf(FFmpegChannel channel) {
    using enum FFmpegChannel;
    switch (channel) {
    case frontLeft: return {30};
    case frontRight: return {-30};
    case frontLeftOfCenter: return {15};
    case frontRightOfCenter: return {-15};
    case backLeft: return {110};
    case backRight: return {-110};
    case backCenter: return {180};
    case sideLeft:
    case surroundDirectLeft: return {90};
    case sideRight:
    case surroundDirectRight: return {-90};
    case stereoLeft: return {30};
    case stereoRight: return {-30};
    case wideLeft: return {60};
    case wideRight: return {-60};
    case topCenter: return {0, 90};
    case topFrontLeft: return {30, 45};
    case topFrontCenter: return {0, 45};
    case topFrontRight: return {-30, 45};
    case topBackLeft: return {110, 45};
    case topBackCenter: return {180, 45};
    case topBackRight: return {-110, 45};
    case frontCenter:
    case lowFrequency:
    case lowFrequency2: break;
    }
    return {};
}

bool isLowFrequency(FFmpegChannel channel) {
    return channel == FFmpegChannel::lowFrequency || channel == FFmpegChannel::lowFrequency2;
}

std::vector<FFmpegChannel> channelsOf(std::uint64_t channelMask) {
    std::vector<FFmpegChannel> channels;
    for (const auto channel : allFFmpegChannels())
        if ((channelMask & mask(channel)) != 0)
            channels.push_back(channel);
    return channels;
}

// A cardioid that points at the speaker, of the first order of the field: (W + d . (X, Y, Z)) / 2. The speakers of a
// pair stand at the sides, so that nothing of the field is lost between them and their sum is W.
void addMicrophone(Row& row, Direction direction, float gain, const Source& source, AmbisonicNormalization scaling) {
    constexpr double radians = std::numbers::pi / 180;
    const double azimuth = direction.azimuth * radians, elevation = direction.elevation * radians;
    const std::array<double, 4> components = {1, std::sin(azimuth) * std::cos(elevation), std::sin(elevation),
                                              std::cos(azimuth) * std::cos(elevation)}; // W, Y, Z, X
    for (int acn = 0; acn < int(components.size()); ++acn)
        if (const auto component = float(components[std::size_t(acn)]); std::abs(component) > 1e-6f)
            addScaled(row, AudioChannelMatrix::ambisonicTaps(acn, scaling, source.canonicalOrder),
                      gain * component / 2);
}

AudioChannelMatrix soundFieldToSpeakers(const Source& source, const Source::Ambisonic& from, const Plan& plan,
                                        const Plan::Speakers& to) {
    auto matrix = silence(plan.channelCount);
    const auto channels = channelsOf(to.ffmpegMask);
    const auto count = channels.size() - std::size_t(std::ranges::count_if(channels, isLowFrequency));
    const int headLocked = ambisonicChannels(from.order);
    for (std::size_t index = 0; index < std::min(channels.size(), matrix.rows.size()); ++index) {
        auto& row = matrix.rows[index];
        const auto channel = channels[index];
        if (isLowFrequency(channel))
            continue;
        if (count == 1 || from.order < 1) {
            addScaled(row, AudioChannelMatrix::ambisonicTaps(0, from.normalization, source.canonicalOrder),
                      1.0f / float(count));
        } else {
            auto direction = directionOf(channel);
            if (count == 2)
                direction.azimuth = direction.azimuth < 0 ? -90 : 90;
            addMicrophone(row, direction, 2.0f / float(count), source, from.normalization);
        }
        // Head-locked sound is stereo already.
        if (from.extraChannels != 2)
            continue;
        if (count == 1 || channel == FFmpegChannel::frontLeft)
            addTap(row, source.canonicalOrder, headLocked, count == 1 ? 0.5f : 1.0f);
        if (count == 1 || channel == FFmpegChannel::frontRight)
            addTap(row, source.canonicalOrder, headLocked + 1, count == 1 ? 0.5f : 1.0f);
    }
    return matrix;
}

} // namespace

AudioChannelMatrix AudioChannelMatrix::identity(int channelCount) {
    auto matrix = silence(channelCount);
    for (int channel = 0; channel < channelCount; ++channel)
        matrix.rows[std::size_t(channel)] = {{channel, 1}};
    return matrix;
}

AudioChannelMatrix::Conformed AudioChannelMatrix::conform(const SourceAudioTrack& source,
                                                          const ExportAudioTrackPlan& plan) {
    const auto* field = std::get_if<Source::Ambisonic>(&source.kind);
    if (const auto* wanted = std::get_if<Plan::Ambisonic>(&plan.content))
        return {false, field ? betweenSoundFields(source, *field, plan, *wanted) : intoW(source, plan)};
    if (const auto* wanted = std::get_if<Plan::Speakers>(&plan.content)) {
        if (std::holds_alternative<Source::Speakers>(source.kind))
            return {true, identity(plan.channelCount)};
        if (field)
            return {false, soundFieldToSpeakers(source, *field, plan, *wanted)};
    }
    return {false, channelByChannel(source, plan)};
}

AudioChannelMatrix::Row AudioChannelMatrix::ambisonicTaps(int acn, AmbisonicNormalization normalization,
                                                          std::span<const int> canonicalOrder) {
    Row row;
    switch (normalization) {
    case AmbisonicNormalization::sn3d: addTap(row, canonicalOrder, acn, 1); break;
    case AmbisonicNormalization::n3d: {
        // N3D is SN3D times the square root of 2l + 1, l being the degree of the harmonic.
        const int degree = int(std::sqrt(double(acn)));
        addTap(row, canonicalOrder, acn, float(1 / std::sqrt(2.0 * degree + 1)));
        break;
    }
    case AmbisonicNormalization::fuma: {
        // W, X, Y, Z, with W 3 dB down.
        constexpr std::array positions = {0, 2, 3, 1};
        if (std::size_t(acn) < positions.size())
            addTap(row, canonicalOrder, positions[std::size_t(acn)], acn == 0 ? std::numbers::sqrt2_v<float> : 1.0f);
        break;
    }
    }
    return row;
}

bool AudioChannelMatrix::isIdentity() const {
    for (std::size_t channel = 0; channel < rows.size(); ++channel)
        if (rows[channel] != Row{{int(channel), 1}})
            return false;
    return true;
}

void AudioChannelMatrix::apply(std::span<const float> input, int inputChannels, std::int64_t frames,
                               std::vector<float>& output) const {
    const auto inputs = std::size_t(std::max(inputChannels, 1)), outputs = rows.size();
    const auto count = std::min(std::size_t(std::max<std::int64_t>(frames, 0)), input.size() / inputs);
    output.assign(count * outputs, 0);
    for (std::size_t channel = 0; channel < outputs; ++channel)
        for (const auto& tap : rows[channel]) {
            if (tap.input < 0 || std::size_t(tap.input) >= inputs)
                continue;
            const float* from = input.data() + tap.input;
            float* to = output.data() + channel;
            for (std::size_t frame = 0; frame < count; ++frame)
                to[frame * outputs] += tap.gain * from[frame * inputs];
        }
}

} // namespace panoveer
