#pragma once

#include "Panoveer/Model/Records/ExportDeliveryPreset.h"
#include "Panoveer/Model/Records/ExportSettings.h"
#include "Panoveer/Model/Records/MirrorDomeProjectorAspect.h"
#include "Panoveer/Model/Records/TimelineTool.h"
#include "Panoveer/Model/Records/VideoAsset.h"

#include <array>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

// The raw strings of every enumeration, as documents and the command line spell them, and the keys of the texts that
// people see. One table per enumeration, in declared order, which is also the order of pickers.
namespace panoveer {

template<class Enum>
struct EnumCase {
    Enum value;
    std::string_view rawValue;
    std::string_view labelKey = {}; // empty where the case is never shown
};

// Every case that a document may hold.
template<class Enum>
inline constexpr std::array<EnumCase<Enum>, 0> enumCases{};

template<>
inline constexpr auto enumCases<ProjectionFormat> = std::to_array<EnumCase<ProjectionFormat>>({
    {ProjectionFormat::standard, "standard", "projection.standard"},
    {ProjectionFormat::equirectangular, "equirectangular", "projection.equirectangular"},
    {ProjectionFormat::halfEquirectangular, "halfEquirectangular", "projection.half_equirectangular"},
    {ProjectionFormat::domemaster, "domemaster", "projection.domemaster"},
    {ProjectionFormat::cubemap, "cubemap", "projection.cubemap"},
    {ProjectionFormat::eac, "eac", "projection.eac"},
    {ProjectionFormat::mirrorDome, "mirrorDome", "projection.mirror_dome"},
});

// The short label of `domemaster` where it names a source: there it stands for any fisheye camera.
inline constexpr std::string_view fisheyeSourceLabelKey = "projection.fisheye.short";

template<>
inline constexpr auto enumCases<SourceVideoOrientation> = std::to_array<EnumCase<SourceVideoOrientation>>({
    {SourceVideoOrientation::up, "up"},
    {SourceVideoOrientation::right, "right"},
    {SourceVideoOrientation::down, "down"},
    {SourceVideoOrientation::left, "left"},
});

template<>
inline constexpr auto enumCases<StereoVideoLayout> = std::to_array<EnumCase<StereoVideoLayout>>({
    {StereoVideoLayout::mono, "mono"},
    {StereoVideoLayout::sideBySide, "sideBySide"},
    {StereoVideoLayout::overUnder, "overUnder"},
});

template<>
inline constexpr auto enumCases<StereoEye> = std::to_array<EnumCase<StereoEye>>({
    {StereoEye::left, "left"},
    {StereoEye::right, "right"},
});

template<>
inline constexpr auto enumCases<VRSourcePreset> = std::to_array<EnumCase<VRSourcePreset>>({
    {VRSourcePreset::manual, "manual"},
    {VRSourcePreset::canonDualFisheye, "canonDualFisheye", "source_preset.canon_dual_fisheye"},
});

template<>
inline constexpr auto enumCases<VideoDecodingBackend> = std::to_array<EnumCase<VideoDecodingBackend>>({
    {VideoDecodingBackend::automatic, "automatic"},
    {VideoDecodingBackend::avFoundation, "avFoundation"},
    {VideoDecodingBackend::ffmpeg, "ffmpeg"},
});

template<>
inline constexpr auto enumCases<VideoPlaybackStatus> = std::to_array<EnumCase<VideoPlaybackStatus>>({
    {VideoPlaybackStatus::playable, "playable"},
    {VideoPlaybackStatus::conversionRequired, "conversionRequired"},
});

template<>
inline constexpr auto enumCases<LiveSyphonCompatibility> = std::to_array<EnumCase<LiveSyphonCompatibility>>({
    {LiveSyphonCompatibility::compatible, "compatible"},
    {LiveSyphonCompatibility::transcodeRecommended, "transcodeRecommended"},
});

template<>
inline constexpr auto enumCases<TimelineTool> = std::to_array<EnumCase<TimelineTool>>({
    {TimelineTool::select, "select"},
    {TimelineTool::blade, "blade"},
});

template<>
inline constexpr auto enumCases<VideoColorPrimaries> = std::to_array<EnumCase<VideoColorPrimaries>>({
    {VideoColorPrimaries::bt709, "bt709"},
    {VideoColorPrimaries::bt2020, "bt2020"},
    {VideoColorPrimaries::p3D65, "p3D65"},
});

template<>
inline constexpr auto enumCases<VideoTransferFunction> = std::to_array<EnumCase<VideoTransferFunction>>({
    {VideoTransferFunction::bt709, "bt709"},
    {VideoTransferFunction::pq, "pq"},
    {VideoTransferFunction::hlg, "hlg"},
    {VideoTransferFunction::sRGB, "sRGB"},
    {VideoTransferFunction::linear, "linear"},
});

template<>
inline constexpr auto enumCases<VideoYCbCrMatrix> = std::to_array<EnumCase<VideoYCbCrMatrix>>({
    {VideoYCbCrMatrix::bt601, "bt601"},
    {VideoYCbCrMatrix::bt709, "bt709"},
    {VideoYCbCrMatrix::bt2020, "bt2020"},
});

template<>
inline constexpr auto enumCases<ImmersiveFormatDetection::Source> =
    std::to_array<EnumCase<ImmersiveFormatDetection::Source>>({
        {ImmersiveFormatDetection::Source::metadata, "metadata"},
        {ImmersiveFormatDetection::Source::fileName, "fileName"},
        {ImmersiveFormatDetection::Source::imageAnalysis, "imageAnalysis"},
        {ImmersiveFormatDetection::Source::aspectRatio, "aspectRatio"},
    });

template<>
inline constexpr auto enumCases<ExportMode> = std::to_array<EnumCase<ExportMode>>({
    {ExportMode::singleMovie, "singleMovie"},
    {ExportMode::separateClips, "separateClips"},
});

template<>
inline constexpr auto enumCases<ExportBitrateMode> = std::to_array<EnumCase<ExportBitrateMode>>({
    {ExportBitrateMode::automatic, "automatic"},
    {ExportBitrateMode::custom, "custom"},
});

template<>
inline constexpr auto enumCases<ExportFrameRateMode> = std::to_array<EnumCase<ExportFrameRateMode>>({
    {ExportFrameRateMode::automatic, "automatic"},
    {ExportFrameRateMode::custom, "custom"},
});

template<>
inline constexpr auto enumCases<ExportAudioMode> = std::to_array<EnumCase<ExportAudioMode>>({
    {ExportAudioMode::automatic, "automatic", "export_audio_mode.automatic"},
    {ExportAudioMode::stereo, "stereo", "export_audio_mode.stereo"},
    {ExportAudioMode::none, "none", "export_audio_mode.none"},
});

template<>
inline constexpr auto enumCases<ExportColorMode> = std::to_array<EnumCase<ExportColorMode>>({
    {ExportColorMode::convertToSDR, "convertToSDR", "export.color_mode.sdr"},
    {ExportColorMode::preserveHDR, "preserveHDR", "export.color_mode.hdr"},
    {ExportColorMode::hdrHLG, "hdrHLG", "export.color_mode.hlg"},
});

template<>
inline constexpr auto enumCases<VRMetadataMode> = std::to_array<EnumCase<VRMetadataMode>>({
    {VRMetadataMode::automatic, "automatic", "vr_metadata_mode.auto"},
    {VRMetadataMode::off, "off", "vr_metadata_mode.off"},
    {VRMetadataMode::equirectangularMono, "equirectangularMono", "vr_metadata_mode.equirectangular_mono"},
    {VRMetadataMode::equirectangularStereoOverUnder, "equirectangularStereoOverUnder",
     "vr_metadata_mode.equirectangular_stereo_over_under"},
    {VRMetadataMode::equirectangularStereoSideBySide, "equirectangularStereoSideBySide",
     "vr_metadata_mode.equirectangular_stereo_side_by_side"},
    {VRMetadataMode::appleSpatialVideo, "appleSpatialVideo", "vr_metadata_mode.apple_spatial_video"},
});

// Labels of codecs are texts of their own: see displayName(ExportCodec).
template<>
inline constexpr auto enumCases<ExportCodec> = std::to_array<EnumCase<ExportCodec>>({
    {ExportCodec::hevc8, "hevc8"},
    {ExportCodec::hevc10, "hevc10"},
    {ExportCodec::mvhevc8, "mvhevc8"},
    {ExportCodec::mvhevc10, "mvhevc10"},
    {ExportCodec::hevcWithAlpha, "hevcWithAlpha"},
    {ExportCodec::h264, "h264"},
    {ExportCodec::proRes, "proRes"},
    {ExportCodec::proRes422Proxy, "proRes422Proxy"},
    {ExportCodec::proRes422LT, "proRes422LT"},
    {ExportCodec::proRes422HQ, "proRes422HQ"},
    {ExportCodec::proRes4444, "proRes4444"},
    {ExportCodec::proRes4444XQ, "proRes4444XQ"},
});

// Titles of delivery presets are literals: see title(ExportDeliveryPreset).
template<>
inline constexpr auto enumCases<ExportDeliveryPreset> = std::to_array<EnumCase<ExportDeliveryPreset>>({
    {ExportDeliveryPreset::youtube360, "youtube360"},
    {ExportDeliveryPreset::stereo360, "stereo360"},
    {ExportDeliveryPreset::questLocal, "questLocal"},
    {ExportDeliveryPreset::vr180Stereo, "vr180Stereo"},
    {ExportDeliveryPreset::fulldome4K, "fulldome4K"},
    {ExportDeliveryPreset::fulldome8K, "fulldome8K"},
    {ExportDeliveryPreset::mirrorDome, "mirrorDome"},
    {ExportDeliveryPreset::archiveMaster, "archiveMaster"},
    {ExportDeliveryPreset::standardMP4, "standardMP4"},
    {ExportDeliveryPreset::appleSpatialVideo, "appleSpatialVideo"},
    {ExportDeliveryPreset::visionProVR180, "visionProVR180"},
});

template<>
inline constexpr auto enumCases<MirrorDomeProjectorAspect> = std::to_array<EnumCase<MirrorDomeProjectorAspect>>({
    {MirrorDomeProjectorAspect::sixteenNine, "sixteenNine"},
    {MirrorDomeProjectorAspect::sixteenTen, "sixteenTen"},
});

template<class Enum>
concept RecordEnum = !enumCases<Enum>.empty();

// How many of the cases, from the first, are offered to people. The rest are only read from old documents.
template<RecordEnum Enum>
inline constexpr std::size_t offeredCaseCount = enumCases<Enum>.size();
template<>
inline constexpr std::size_t offeredCaseCount<VRMetadataMode> = 2;

// The cases that pickers and the command line offer, in order.
template<RecordEnum Enum>
inline constexpr auto allCases = [] {
    std::array<Enum, offeredCaseCount<Enum>> cases{};
    for (std::size_t i = 0; i < cases.size(); ++i)
        cases[i] = enumCases<Enum>[i].value;
    return cases;
}();

template<RecordEnum Enum>
constexpr const EnumCase<Enum>& enumCase(Enum value) {
    static_assert(
        [] {
            for (std::size_t i = 0; i < enumCases<Enum>.size(); ++i)
                if (std::size_t(enumCases<Enum>[i].value) != i)
                    return false;
            return true;
        }(),
        "the table must list the cases in declared order");
    return enumCases<Enum>[std::size_t(value)];
}

template<RecordEnum Enum>
constexpr std::string_view rawValue(Enum value) {
    return enumCase(value).rawValue;
}

// No value for a string that is none of the raw values; letter case counts.
template<RecordEnum Enum>
constexpr std::optional<Enum> fromRawValue(std::string_view text) {
    for (const auto& entry : enumCases<Enum>)
        if (entry.rawValue == text)
            return entry.value;
    return std::nullopt;
}

template<RecordEnum Enum>
constexpr std::string_view labelKey(Enum value) {
    return enumCase(value).labelKey;
}

// The key of the sentence that explains a case, for colour modes, metadata modes and source presets.
template<RecordEnum Enum>
std::string detailKey(Enum value) {
    return std::string(labelKey(value)) + ".detail";
}

} // namespace panoveer
