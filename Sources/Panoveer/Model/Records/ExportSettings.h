#pragma once

#include "Panoveer/Model/Records/ExportCodec.h"
#include "Panoveer/Model/Records/OutputResolution.h"
#include "Panoveer/Model/Records/ProjectionFormat.h"
#include "Platform/Core/URL.h"

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace panoveer {

enum class ExportMode { singleMovie, separateClips };
enum class ExportBitrateMode { automatic, custom };
enum class ExportFrameRateMode { automatic, custom };
enum class ExportAudioMode { automatic, stereo, none };

// Whether spherical metadata is written. Only `automatic` and `off` are offered; the others stay readable for old
// projects and are mapped to `automatic` when one is loaded.
enum class VRMetadataMode {
    automatic,
    off,
    equirectangularMono,
    equirectangularStereoOverUnder,
    equirectangularStereoSideBySide,
    appleSpatialVideo,
};

// What a mode that is read from a document counts as.
constexpr VRMetadataMode migratedToSelectableMode(VRMetadataMode mode) {
    return mode == VRMetadataMode::off ? VRMetadataMode::off : VRMetadataMode::automatic;
}

enum class ExportDeliveryPreset;
struct ExportResolutionPreset;

// Every choice of an export. Stored in projects as it stands; consumers read the effective and validated values.
struct ExportSettings {
    ExportMode mode = ExportMode::separateClips;
    ExportCodec codec = ExportCodec::hevc10;
    ProjectionFormat outputFormat = ProjectionFormat::equirectangular;
    std::int64_t customWidth = 3840;  // whole frame, both eyes included
    std::int64_t customHeight = 1920; // whole frame, both eyes included
    std::optional<URL> mirrorDomeWarpMeshURL;
    std::optional<std::vector<std::uint8_t>> mirrorDomeWarpMeshBookmark;
    StereoVideoLayout stereoLayout = StereoVideoLayout::mono; // as asked for; see effectiveStereoLayout()
    VRMetadataMode vrMetadataMode = VRMetadataMode::automatic;
    ExportBitrateMode bitrateMode = ExportBitrateMode::automatic;
    double customBitrateMbps = 80.0; // as typed; see bitrateMbps()
    ExportFrameRateMode frameRateMode = ExportFrameRateMode::automatic;
    double customFrameRate = 30.0;
    ExportColorMode colorMode = ExportColorMode::convertToSDR;
    ExportAudioMode audioMode = ExportAudioMode::automatic;

    // Mono for a mirror dome, side by side for a multiview codec, else the layout asked for.
    StereoVideoLayout effectiveStereoLayout() const;
    // The size that is really written.
    OutputResolution validatedResolution() const;

    void normalizeResolution();
    // The eye size survives a change of packing, of either kind.
    void setStereoLayout(StereoVideoLayout layout);
    void setCodec(ExportCodec newCodec);
    // One side as typed, brought into range; the other follows by the format's proportion.
    void setWidth(std::int64_t width);
    void setHeight(std::int64_t height);
    // Sizes as the preset has them; a preset without a layout means mono, one without a codec leaves the codec.
    void applyPreset(const ExportResolutionPreset& preset);
    void applyPreset(ExportDeliveryPreset preset);

    // The rate that a single movie of differing sources is retimed to; none when nothing needs retiming.
    std::optional<double> singleMovieTargetFrameRate(std::span<const double> sourceFrameRates) const;
    std::string effectiveFrameRateText(std::span<const double> sourceFrameRates) const;
    // Mbit/s; none for ProRes, whose quality governs.
    std::optional<double> automaticBitrateMbps(double frameRate) const;
    // The rate to encode with: the custom one within 1 to 2000 Mbit/s, or the automatic one. None for ProRes.
    std::optional<double> bitrateMbps(double frameRate) const;
    // The user's mesh file, or the standard mesh of the output's shape.
    std::string mirrorDomeWarpMeshDisplayName() const;

    friend bool operator==(const ExportSettings&, const ExportSettings&) = default;

private:
    void setResolution(OutputResolution resolution);
    OutputResolution validatedEyeResolution() const;
    // Rebuilds the frame of two eyes, or one, of this size.
    void repack(OutputResolution eye);
};

} // namespace panoveer
