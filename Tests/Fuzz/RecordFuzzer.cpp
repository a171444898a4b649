// Records as JSON. What is read is written as a text that reads back as the same record.

#include "Fuzz/FuzzTarget.h"
#include "Panoveer/Model/Records/RecordJSON.h"

#include <string>

namespace panoveer::test {

namespace {

template<class Record>
void readAndWrite(std::string_view text) {
    Record record;
    try {
        record = decodeJSON<Record>(text);
    } catch (const RecordDecodingError&) {
        return;
    }
    const auto written = encodeJSON(record, JSONStyle::document);
    require(decodeJSON<Record>(written) == record, "a record reads back as it was written");
}

template<class Record>
Bytes seed(const Record& record) {
    const auto text = encodeJSON(record);
    return {text.begin(), text.end()};
}

} // namespace

std::vector<Bytes> fuzzSeeds() {
    VRClipSegment clip;
    clip.sourceURL = URL::fromFilePath("/films/été 100%/clip#1.mov");
    clip.end = 12.25;
    clip.markedInPoint = 1;
    clip.transform.fisheyeCircle = FisheyeCircle{0.5, 0.49, 0.47};
    clip.transform.sourceHorizontalFieldOfView = 71.3;
    clip.colorMetadata.masteringDisplayColorVolume = std::vector<std::uint8_t>(24, 7);
    VideoAsset asset;
    asset.url = clip.sourceURL;
    asset.formatDetection = ImmersiveFormatDetection{};
    ExportSettings settings;
    settings.customBitrateMbps = 87.5;
    return {seed(clip), seed(asset), seed(settings), seed(clip.transform), seed(FisheyeCircle{})};
}

void fuzzOne(std::span<const std::uint8_t> input) {
    const std::string_view text(reinterpret_cast<const char*>(input.data()), input.size());
    readAndWrite<VRClipSegment>(text);
    readAndWrite<VideoAsset>(text);
    readAndWrite<ExportSettings>(text);
    readAndWrite<VRTransform>(text);
    readAndWrite<VideoColorMetadata>(text);
}

} // namespace panoveer::test
