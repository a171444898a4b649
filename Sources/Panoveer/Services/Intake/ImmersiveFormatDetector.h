#pragma once

#include "Panoveer/Model/Records/ImmersiveFormatDetection.h"
#include "Panoveer/Services/Intake/ContainerImmersiveMetadata.h"
#include "Panoveer/Services/Intake/GrayscaleImage.h"

#include <optional>
#include <span>
#include <string_view>

namespace panoveer {

// What a person says of a file. It goes before all evidence and leaves the rest to it.
struct StatedImmersiveFormat {
    std::optional<ProjectionFormat> projection = {};
    std::optional<StereoVideoLayout> stereoLayout = {};
    std::optional<bool> eyesSwapped = {}; // for a source of two eyes

    friend bool operator==(const StatedImmersiveFormat&, const StatedImmersiveFormat&) = default;
};

// Says what a file is by the evidence at hand, the trustworthy before the rest:
//
//   container metadata  >  file name  >  sample frames  >  shape
//
// Each kind fills in what the ones before it left open. Pure functions, any thread; they fail for no input.
namespace ImmersiveFormatDetector {

// Width and height are those of the displayed picture, the file name comes without its extension. Without frames the
// shape has the last word. The source of the result is the first kind of evidence that decided anything; the word of a
// person is not counted.
ImmersiveFormatDetection detect(int width, int height, const std::optional<ContainerImmersiveMetadata>& container,
                                std::string_view fileName, bool isDualFisheyeLens,
                                std::span<const GrayscaleImage> frames, const StatedImmersiveFormat& stated = {});

// The layout that one frame speaks for, by how well its halves match (StereoMatch::correlation); absent where they
// cannot be compared. No value where the frame leaves it open.
std::optional<StereoVideoLayout> stereoVote(std::optional<double> sideBySide, std::optional<double> overUnder);

// Whether an eye of that layout has a shape that pictures of the projection have.
bool isPlausible(StereoVideoLayout layout, int width, int height, std::optional<ProjectionFormat> projection);

} // namespace ImmersiveFormatDetector

} // namespace panoveer
