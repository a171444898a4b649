#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <utility>
#include <vector>

namespace panoveer {

// Which channels a stream has, and in which order: the high 16 bits name the layout, the low 16 count its channels.
using AudioChannelLayoutTag = std::uint32_t;

// Where the sound of a channel belongs.
using AudioChannelLabel = std::uint32_t;

// The letters of the comments: L, R, C, LFE; Ls, Rs beside or behind, Rls, Rrs behind; Lc, Rc between centre and side;
// Cs behind in the middle; Lw, Rw wide; Lsd, Rsd straight beside; Ts above; Vhl, Vhc, Vhr high in front.
namespace AudioChannelLayoutTags {
inline constexpr AudioChannelLayoutTag useChannelDescriptions = 0;
inline constexpr AudioChannelLayoutTag useChannelBitmap = 1 << 16;
inline constexpr AudioChannelLayoutTag mono = 100 << 16 | 1;
inline constexpr AudioChannelLayoutTag stereo = 101 << 16 | 2;
inline constexpr AudioChannelLayoutTag stereoHeadphones = 102 << 16 | 2;
inline constexpr AudioChannelLayoutTag matrixStereo = 103 << 16 | 2;
inline constexpr AudioChannelLayoutTag midSide = 104 << 16 | 2;
inline constexpr AudioChannelLayoutTag xy = 105 << 16 | 2;
inline constexpr AudioChannelLayoutTag binaural = 106 << 16 | 2;
inline constexpr AudioChannelLayoutTag ambisonicBFormat = 107 << 16 | 4; // W X Y Z
inline constexpr AudioChannelLayoutTag quadraphonic = 108 << 16 | 4;     // L R Ls Rs
inline constexpr AudioChannelLayoutTag pentagonal = 109 << 16 | 5;       // L R Ls Rs C
inline constexpr AudioChannelLayoutTag hexagonal = 110 << 16 | 6;        // L R Ls Rs C Cs
inline constexpr AudioChannelLayoutTag octagonal = 111 << 16 | 8;        // L R Ls Rs C Cs Lw Rw
inline constexpr AudioChannelLayoutTag mpeg30A = 113 << 16 | 3;          // L R C
inline constexpr AudioChannelLayoutTag mpeg30B = 114 << 16 | 3;          // C L R
inline constexpr AudioChannelLayoutTag mpeg40A = 115 << 16 | 4;          // L R C Cs
inline constexpr AudioChannelLayoutTag mpeg40B = 116 << 16 | 4;          // C L R Cs
inline constexpr AudioChannelLayoutTag mpeg50A = 117 << 16 | 5;          // L R C Ls Rs
inline constexpr AudioChannelLayoutTag mpeg50B = 118 << 16 | 5;          // L R Ls Rs C
inline constexpr AudioChannelLayoutTag mpeg50C = 119 << 16 | 5;          // L C R Ls Rs
inline constexpr AudioChannelLayoutTag mpeg50D = 120 << 16 | 5;          // C L R Ls Rs
inline constexpr AudioChannelLayoutTag mpeg51A = 121 << 16 | 6;          // L R C LFE Ls Rs
inline constexpr AudioChannelLayoutTag mpeg51B = 122 << 16 | 6;          // L R Ls Rs C LFE
inline constexpr AudioChannelLayoutTag mpeg51C = 123 << 16 | 6;          // L C R Ls Rs LFE
inline constexpr AudioChannelLayoutTag mpeg51D = 124 << 16 | 6;          // C L R Ls Rs LFE
inline constexpr AudioChannelLayoutTag mpeg61A = 125 << 16 | 7;          // L R C LFE Ls Rs Cs
inline constexpr AudioChannelLayoutTag mpeg71A = 126 << 16 | 8;          // L R C LFE Ls Rs Lc Rc
inline constexpr AudioChannelLayoutTag mpeg71B = 127 << 16 | 8;          // C Lc Rc L R Ls Rs LFE
inline constexpr AudioChannelLayoutTag mpeg71C = 128 << 16 | 8;          // L R C LFE Ls Rs Rls Rrs
inline constexpr AudioChannelLayoutTag emagicDefault71 = 129 << 16 | 8;  // L R Ls Rs C LFE Lc Rc
inline constexpr AudioChannelLayoutTag smpteDTV = 130 << 16 | 8;         // L R C LFE Ls Rs Lt Rt
inline constexpr AudioChannelLayoutTag itu21 = 131 << 16 | 3;            // L R Cs
inline constexpr AudioChannelLayoutTag itu22 = 132 << 16 | 4;            // L R Ls Rs
inline constexpr AudioChannelLayoutTag dvd4 = 133 << 16 | 3;             // L R LFE
inline constexpr AudioChannelLayoutTag dvd5 = 134 << 16 | 4;             // L R LFE Cs
inline constexpr AudioChannelLayoutTag dvd6 = 135 << 16 | 5;             // L R LFE Ls Rs
inline constexpr AudioChannelLayoutTag dvd10 = 136 << 16 | 4;            // L R C LFE
inline constexpr AudioChannelLayoutTag dvd11 = 137 << 16 | 5;            // L R C LFE Cs
inline constexpr AudioChannelLayoutTag dvd18 = 138 << 16 | 5;            // L R Ls Rs LFE
inline constexpr AudioChannelLayoutTag audioUnit60 = 139 << 16 | 6;      // L R Ls Rs C Cs
inline constexpr AudioChannelLayoutTag audioUnit70 = 140 << 16 | 7;      // L R Ls Rs C Rls Rrs
inline constexpr AudioChannelLayoutTag aac60 = 141 << 16 | 6;            // C L R Ls Rs Cs
inline constexpr AudioChannelLayoutTag aac61 = 142 << 16 | 7;            // C L R Ls Rs Cs LFE
inline constexpr AudioChannelLayoutTag aac70 = 143 << 16 | 7;            // C L R Ls Rs Rls Rrs
inline constexpr AudioChannelLayoutTag aacOctagonal = 144 << 16 | 8;     // C L R Ls Rs Rls Rrs Cs
inline constexpr AudioChannelLayoutTag discreteInOrder = 147 << 16;      // or the number of channels
inline constexpr AudioChannelLayoutTag audioUnit70Front = 148 << 16 | 7; // L R Ls Rs C Lc Rc
inline constexpr AudioChannelLayoutTag ac3101 = 149 << 16 | 2;           // C LFE
inline constexpr AudioChannelLayoutTag ac330 = 150 << 16 | 3;            // L C R
inline constexpr AudioChannelLayoutTag ac331 = 151 << 16 | 4;            // L C R Cs
inline constexpr AudioChannelLayoutTag ac3301 = 152 << 16 | 4;           // L C R LFE
inline constexpr AudioChannelLayoutTag ac3211 = 153 << 16 | 4;           // L R Cs LFE
inline constexpr AudioChannelLayoutTag ac3311 = 154 << 16 | 5;           // L C R Cs LFE
inline constexpr AudioChannelLayoutTag eac60A = 155 << 16 | 6;           // L C R Ls Rs Cs
inline constexpr AudioChannelLayoutTag eac70A = 156 << 16 | 7;           // L C R Ls Rs Rls Rrs
inline constexpr AudioChannelLayoutTag eac361A = 157 << 16 | 7;          // L C R Ls Rs LFE Cs
inline constexpr AudioChannelLayoutTag eac371A = 160 << 16 | 8;          // L C R Ls Rs LFE Rls Rrs
inline constexpr AudioChannelLayoutTag aac71B = 183 << 16 | 8;           // C L R Ls Rs Rls Rrs LFE
inline constexpr AudioChannelLayoutTag hoaACNSN3D = 190 << 16;           // or the number of channels
inline constexpr AudioChannelLayoutTag hoaACNN3D = 191 << 16;            // or the number of channels
inline constexpr AudioChannelLayoutTag unknown = 0xFFFF0000;             // or the number of channels
} // namespace AudioChannelLayoutTags

namespace AudioChannelLabels {
inline constexpr AudioChannelLabel unknown = 0xFFFFFFFF;
inline constexpr AudioChannelLabel unused = 0;
inline constexpr AudioChannelLabel left = 1;
inline constexpr AudioChannelLabel right = 2;
inline constexpr AudioChannelLabel center = 3;
inline constexpr AudioChannelLabel lfeScreen = 4;
inline constexpr AudioChannelLabel leftSurround = 5;
inline constexpr AudioChannelLabel rightSurround = 6;
inline constexpr AudioChannelLabel leftCenter = 7;
inline constexpr AudioChannelLabel rightCenter = 8;
inline constexpr AudioChannelLabel centerSurround = 9;
inline constexpr AudioChannelLabel leftSurroundDirect = 10;
inline constexpr AudioChannelLabel rightSurroundDirect = 11;
inline constexpr AudioChannelLabel topCenterSurround = 12;
inline constexpr AudioChannelLabel verticalHeightLeft = 13;
inline constexpr AudioChannelLabel verticalHeightCenter = 14;
inline constexpr AudioChannelLabel verticalHeightRight = 15;
inline constexpr AudioChannelLabel topBackLeft = 16;
inline constexpr AudioChannelLabel topBackCenter = 17;
inline constexpr AudioChannelLabel topBackRight = 18;
inline constexpr AudioChannelLabel rearSurroundLeft = 33;
inline constexpr AudioChannelLabel rearSurroundRight = 34;
inline constexpr AudioChannelLabel leftWide = 35;
inline constexpr AudioChannelLabel rightWide = 36;
inline constexpr AudioChannelLabel lfe2 = 37;
inline constexpr AudioChannelLabel leftTotal = 38;
inline constexpr AudioChannelLabel rightTotal = 39;
inline constexpr AudioChannelLabel hearingImpaired = 40;
inline constexpr AudioChannelLabel narration = 41;
inline constexpr AudioChannelLabel mono = 42;
inline constexpr AudioChannelLabel dialogCentricMix = 43;
inline constexpr AudioChannelLabel centerSurroundDirect = 44;
inline constexpr AudioChannelLabel ambisonicW = 200;
inline constexpr AudioChannelLabel ambisonicX = 201;
inline constexpr AudioChannelLabel ambisonicY = 202;
inline constexpr AudioChannelLabel ambisonicZ = 203;
inline constexpr AudioChannelLabel headphonesLeft = 301;
inline constexpr AudioChannelLabel headphonesRight = 302;
inline constexpr AudioChannelLabel discrete = 400;
inline constexpr AudioChannelLabel discrete0 = 1 << 16; // or the number of the channel
} // namespace AudioChannelLabels

// Core Audio's published channel layout, as QuickTime's `chan` box carries it too: a tag, or a bitmap (tag
// useChannelBitmap; bit i stands for label i + 1, in that order), or one label a channel (tag useChannelDescriptions).
struct AudioChannelLayout {
    AudioChannelLayoutTag tag = AudioChannelLayoutTags::unknown;
    std::uint32_t bitmap = 0;
    std::vector<AudioChannelLabel> labels;

    bool operator==(const AudioChannelLayout&) const = default;

    static AudioChannelLayout ofLabels(std::vector<AudioChannelLabel> labels) {
        return {AudioChannelLayoutTags::useChannelDescriptions, 0, std::move(labels)};
    }

    // The structure as memory holds it on a little-endian machine: tag, bitmap, number of labels, then 20 bytes for
    // each label: the label, flags and three coordinates, which are 0 here.
    std::vector<std::uint8_t> data() const;
    // Reads that back; no value when it is cut short. Flags and coordinates are dropped.
    static std::optional<AudioChannelLayout> parse(std::span<const std::uint8_t> data);

    int channelCount() const;
    // One label for each channel, of a tag or a bitmap too; empty when they are not known.
    std::vector<AudioChannelLabel> expandedLabels() const;
};

} // namespace panoveer
