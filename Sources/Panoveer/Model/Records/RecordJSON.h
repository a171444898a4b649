#pragma once

#include "Panoveer/Model/Records/ExportSettings.h"
#include "Panoveer/Model/Records/RecordDecodingError.h"
#include "Panoveer/Model/Records/VideoAsset.h"

#include <string>
#include <string_view>

namespace panoveer {

enum class JSONStyle {
    compact,  // one line, keys in the order of the record's fields
    document, // indented, keys sorted: stable under comparison
};

// A record as JSON text, and back. For OutputResolution, FisheyeCircle, CGSizeValue, VideoColorMetadata, VRTransform,
// VRClipSegment, ImmersiveFormatDetection, VideoAsset and ExportSettings. Pure functions, any thread.
//
// Writing leaves absent optionals out and throws RecordEncodingError for a number that is not finite. Reading takes
// defaults for missing keys that are not required, ignores keys that it does not know, corrects what the record's
// table corrects, and throws RecordDecodingError for everything else.
template<class Record>
std::string encodeJSON(const Record& record, JSONStyle style = JSONStyle::compact);

template<class Record>
Record decodeJSON(std::string_view text);

} // namespace panoveer
