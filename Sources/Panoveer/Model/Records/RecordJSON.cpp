#include "Panoveer/Model/Records/RecordJSON.h"

#include "Panoveer/Model/Records/RecordTables.h"

namespace panoveer {

JSONValue parsedJSON(std::string_view text) {
    try {
        return JSONValue::parse(text);
    } catch (const JSONValue::exception& failure) {
        throw RecordDecodingError(RecordDecodingError::Problem::malformedDocument, {},
                                  std::string("is not valid JSON: ") + failure.what());
    }
}

std::string jsonText(const JSONValue& value, JSONStyle style) {
    // File names may hold bytes that are no UTF-8; JSON cannot, and a document must always be writable.
    constexpr auto replace = JSONValue::error_handler_t::replace;
    if (style == JSONStyle::compact)
        return value.dump(-1, ' ', false, replace);
    return nlohmann::json(value).dump(2, ' ', false, replace) + "\n";
}

#define PANOVEER_CODABLE(Record)                                                                                       \
    template std::string encodeJSON(const Record&, JSONStyle);                                                         \
    template Record decodeJSON<Record>(std::string_view);

PANOVEER_CODABLE(OutputResolution)
PANOVEER_CODABLE(FisheyeCircle)
PANOVEER_CODABLE(CGSizeValue)
PANOVEER_CODABLE(VideoColorMetadata)
PANOVEER_CODABLE(VRTransform)
PANOVEER_CODABLE(VRClipSegment)
PANOVEER_CODABLE(ImmersiveFormatDetection)
PANOVEER_CODABLE(VideoAsset)
PANOVEER_CODABLE(ExportSettings)

#undef PANOVEER_CODABLE

} // namespace panoveer
