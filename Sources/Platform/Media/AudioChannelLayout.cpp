#include "Platform/Media/AudioChannelLayout.h"

#include <algorithm>
#include <array>
#include <bit>

namespace panoveer {

namespace {

namespace Tags = AudioChannelLayoutTags;

constexpr std::size_t headSize = 12;
constexpr std::size_t descriptionSize = 20;

// As the tags' names tell them, in the letters of the header.
enum Letter : AudioChannelLabel {
    L = AudioChannelLabels::left,
    R = AudioChannelLabels::right,
    C = AudioChannelLabels::center,
    LFE = AudioChannelLabels::lfeScreen,
    Ls = AudioChannelLabels::leftSurround,
    Rs = AudioChannelLabels::rightSurround,
    Lc = AudioChannelLabels::leftCenter,
    Rc = AudioChannelLabels::rightCenter,
    Cs = AudioChannelLabels::centerSurround,
    Rls = AudioChannelLabels::rearSurroundLeft,
    Rrs = AudioChannelLabels::rearSurroundRight,
    Lw = AudioChannelLabels::leftWide,
    Rw = AudioChannelLabels::rightWide,
    Lt = AudioChannelLabels::leftTotal,
    Rt = AudioChannelLabels::rightTotal,
    Mono = AudioChannelLabels::mono,
};

struct TagRow {
    AudioChannelLayoutTag tag;
    std::array<Letter, 8> letters; // as many as the tag counts
};

constexpr TagRow tagTable[] = {
    {Tags::mono, {{Mono}}},
    {Tags::stereo, {{L, R}}},
    {Tags::matrixStereo, {{Lt, Rt}}},
    {Tags::quadraphonic, {{L, R, Ls, Rs}}},
    {Tags::pentagonal, {{L, R, Ls, Rs, C}}},
    {Tags::hexagonal, {{L, R, Ls, Rs, C, Cs}}},
    {Tags::octagonal, {{L, R, Ls, Rs, C, Cs, Lw, Rw}}},
    {Tags::mpeg30A, {{L, R, C}}},
    {Tags::mpeg30B, {{C, L, R}}},
    {Tags::mpeg40A, {{L, R, C, Cs}}},
    {Tags::mpeg40B, {{C, L, R, Cs}}},
    {Tags::mpeg50A, {{L, R, C, Ls, Rs}}},
    {Tags::mpeg50B, {{L, R, Ls, Rs, C}}},
    {Tags::mpeg50C, {{L, C, R, Ls, Rs}}},
    {Tags::mpeg50D, {{C, L, R, Ls, Rs}}},
    {Tags::mpeg51A, {{L, R, C, LFE, Ls, Rs}}},
    {Tags::mpeg51B, {{L, R, Ls, Rs, C, LFE}}},
    {Tags::mpeg51C, {{L, C, R, Ls, Rs, LFE}}},
    {Tags::mpeg51D, {{C, L, R, Ls, Rs, LFE}}},
    {Tags::mpeg61A, {{L, R, C, LFE, Ls, Rs, Cs}}},
    {Tags::mpeg71A, {{L, R, C, LFE, Ls, Rs, Lc, Rc}}},
    {Tags::mpeg71B, {{C, Lc, Rc, L, R, Ls, Rs, LFE}}},
    {Tags::mpeg71C, {{L, R, C, LFE, Ls, Rs, Rls, Rrs}}},
    {Tags::emagicDefault71, {{L, R, Ls, Rs, C, LFE, Lc, Rc}}},
    {Tags::smpteDTV, {{L, R, C, LFE, Ls, Rs, Lt, Rt}}},
    {Tags::itu21, {{L, R, Cs}}},
    {Tags::itu22, {{L, R, Ls, Rs}}},
    {Tags::dvd4, {{L, R, LFE}}},
    {Tags::dvd5, {{L, R, LFE, Cs}}},
    {Tags::dvd6, {{L, R, LFE, Ls, Rs}}},
    {Tags::dvd10, {{L, R, C, LFE}}},
    {Tags::dvd11, {{L, R, C, LFE, Cs}}},
    {Tags::dvd18, {{L, R, Ls, Rs, LFE}}},
    {Tags::audioUnit60, {{L, R, Ls, Rs, C, Cs}}},
    {Tags::audioUnit70, {{L, R, Ls, Rs, C, Rls, Rrs}}},
    {Tags::aac60, {{C, L, R, Ls, Rs, Cs}}},
    {Tags::aac61, {{C, L, R, Ls, Rs, Cs, LFE}}},
    {Tags::aac70, {{C, L, R, Ls, Rs, Rls, Rrs}}},
    {Tags::aacOctagonal, {{C, L, R, Ls, Rs, Rls, Rrs, Cs}}},
    {Tags::audioUnit70Front, {{L, R, Ls, Rs, C, Lc, Rc}}},
    {Tags::ac3101, {{C, LFE}}},
    {Tags::ac330, {{L, C, R}}},
    {Tags::ac331, {{L, C, R, Cs}}},
    {Tags::ac3301, {{L, C, R, LFE}}},
    {Tags::ac3211, {{L, R, Cs, LFE}}},
    {Tags::ac3311, {{L, C, R, Cs, LFE}}},
    {Tags::eac60A, {{L, C, R, Ls, Rs, Cs}}},
    {Tags::eac70A, {{L, C, R, Ls, Rs, Rls, Rrs}}},
    {Tags::eac361A, {{L, C, R, Ls, Rs, LFE, Cs}}},
    {Tags::eac371A, {{L, C, R, Ls, Rs, LFE, Rls, Rrs}}},
    {Tags::aac71B, {{C, L, R, Ls, Rs, Rls, Rrs, LFE}}},
};

void put(std::vector<std::uint8_t>& bytes, std::uint32_t value) {
    for (int shift = 0; shift < 32; shift += 8)
        bytes.push_back(std::uint8_t(value >> shift));
}

std::uint32_t take(std::span<const std::uint8_t> bytes) {
    return std::uint32_t(bytes[0]) | std::uint32_t(bytes[1]) << 8 | std::uint32_t(bytes[2]) << 16 |
           std::uint32_t(bytes[3]) << 24;
}

} // namespace

std::vector<std::uint8_t> AudioChannelLayout::data() const {
    std::vector<std::uint8_t> bytes;
    put(bytes, tag);
    put(bytes, bitmap);
    put(bytes, std::uint32_t(labels.size()));
    for (auto label : labels) {
        put(bytes, label);
        bytes.resize(bytes.size() + descriptionSize - 4);
    }
    return bytes;
}

std::optional<AudioChannelLayout> AudioChannelLayout::parse(std::span<const std::uint8_t> data) {
    if (data.size() < headSize)
        return std::nullopt;
    AudioChannelLayout layout{take(data), take(data.subspan(4)), {}};
    const std::size_t count = take(data.subspan(8));
    if (count > (data.size() - headSize) / descriptionSize)
        return std::nullopt;
    for (std::size_t i = 0; i < count; ++i)
        layout.labels.push_back(take(data.subspan(headSize + i * descriptionSize)));
    return layout;
}

int AudioChannelLayout::channelCount() const {
    if (tag == Tags::useChannelDescriptions)
        return int(labels.size());
    return tag == Tags::useChannelBitmap ? std::popcount(bitmap) : int(tag & 0xFFFF);
}

std::vector<AudioChannelLabel> AudioChannelLayout::expandedLabels() const {
    if (tag == Tags::useChannelDescriptions)
        return labels;
    std::vector<AudioChannelLabel> expanded;
    if (tag == Tags::useChannelBitmap) {
        for (AudioChannelLabel bit = 0; bit < 32; ++bit)
            if ((bitmap >> bit & 1) != 0)
                expanded.push_back(bit + 1);
    } else if (const auto* row = std::ranges::find(tagTable, tag, &TagRow::tag); row != std::end(tagTable)) {
        expanded.assign(row->letters.begin(), row->letters.begin() + channelCount());
    }
    return expanded;
}

} // namespace panoveer
