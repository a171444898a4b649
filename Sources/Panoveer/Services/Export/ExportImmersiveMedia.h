#pragma once

#include "Panoveer/Services/Export/ExportOutputDescriptor.h"
#include "Platform/Media/ImmersiveMediaProperties.h"

// What a planned movie tells players of immersive media. Pure functions.
namespace panoveer {

// Of a movie with a layer for each eye. Field of view and baseline are those of the first clip, as far as they are
// known, unless the movie is to say nothing of its kind.
MultiviewProperties multiviewProperties(const ExportOutputDescriptor& descriptor);

// Of any movie: its projection and the packing of its eyes where it is to say them, and the above where it applies. A
// flat movie of one eye stays unmarked.
ImmersiveMediaProperties immersiveMediaProperties(const ExportOutputDescriptor& descriptor);

// The size that the encoder is opened with: of one eye where each has a layer, else of the whole frame.
OutputResolution encodedResolution(const ExportOutputDescriptor& descriptor);

} // namespace panoveer
