#include "Panoveer/Model/Records/RecordEnums.h"
#include "Platform/Core/Localization.h"

#include <gtest/gtest.h>

#include <set>

namespace panoveer {
namespace {

template<class Enum>
class RecordEnums : public testing::Test {};

using AllEnums =
    testing::Types<ProjectionFormat, SourceVideoOrientation, StereoVideoLayout, StereoEye, VRSourcePreset,
                   VideoDecodingBackend, VideoPlaybackStatus, LiveSyphonCompatibility, TimelineTool,
                   VideoColorPrimaries, VideoTransferFunction, VideoYCbCrMatrix, ImmersiveFormatDetection::Source,
                   ExportMode, ExportBitrateMode, ExportFrameRateMode, ExportAudioMode, ExportColorMode, VRMetadataMode,
                   ExportCodec, ExportDeliveryPreset, MirrorDomeProjectorAspect>;
TYPED_TEST_SUITE(RecordEnums, AllEnums);

TYPED_TEST(RecordEnums, RawStringsAreDistinctReadBackAndHaveTexts) {
    std::set<std::string_view> seen;
    for (const auto& entry : enumCases<TypeParam>) {
        EXPECT_TRUE(seen.insert(entry.rawValue).second) << entry.rawValue;
        EXPECT_EQ(fromRawValue<TypeParam>(rawValue(entry.value)), entry.value);
        EXPECT_TRUE(entry.labelKey.empty() || localized(entry.labelKey) != entry.labelKey) << entry.labelKey;
    }
    EXPECT_FALSE(fromRawValue<TypeParam>("Standard"));
    EXPECT_FALSE(fromRawValue<TypeParam>(""));
}

template<class Enum>
void expectDetails() {
    for (const auto& entry : enumCases<Enum>)
        EXPECT_TRUE(entry.labelKey.empty() || localized(detailKey(entry.value)) != detailKey(entry.value))
            << detailKey(entry.value);
}

TEST(RecordEnums, ModesAndPresetsAreExplained) {
    expectDetails<ExportColorMode>();
    expectDetails<VRMetadataMode>();
    expectDetails<VRSourcePreset>();
    EXPECT_NE(localized(fisheyeSourceLabelKey), fisheyeSourceLabelKey);
}

TEST(RecordEnums, OnlyTheSelectableMetadataModesAreOffered) {
    EXPECT_EQ(allCases<VRMetadataMode>, (std::array{VRMetadataMode::automatic, VRMetadataMode::off}));
    for (const auto& entry : enumCases<VRMetadataMode>)
        EXPECT_EQ(migratedToSelectableMode(entry.value),
                  entry.value == VRMetadataMode::off ? VRMetadataMode::off : VRMetadataMode::automatic);
}

} // namespace
} // namespace panoveer
