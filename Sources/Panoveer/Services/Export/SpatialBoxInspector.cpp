#include "Panoveer/Services/Export/SpatialBoxInspector.h"

#include "Panoveer/Services/Export/BigEndian.h"
#include "Panoveer/Services/Export/MP4Parser.h"
#include "Panoveer/Services/Export/SpatialMetadataBoxes.h"
#include "Panoveer/Services/Export/SpatialVideoMetadataError.h"
#include "Platform/Core/Text.h"

#include <algorithm>
#include <array>
#include <charconv>

namespace panoveer {

namespace {

// No box that is read here is longer in an honest file.
constexpr std::size_t maximumContentSize = 65536;

// The boxes of an extended usage tree that hold boxes themselves.
constexpr FourCC usageContainers[] = {"vexu", "eyes", "cams", "cmfy", "pack"};

// A box's content with reads that give 0 beyond its end.
class Fields {
public:
    Fields(const ByteSource& source, const MP4Box& box)
        : bytes_(MP4Parser::readContent(source, box, 0, maximumContentSize)) {}

    template<std::unsigned_integral Integer>
    Integer at(std::size_t offset) const {
        return has(offset, sizeof(Integer)) ? readBigEndian<Integer>(bytes_, offset) : Integer(0);
    }
    FourCC code(std::size_t offset) const { return FourCC(at<std::uint32_t>(offset)); }
    bool has(std::size_t offset, std::size_t count) const {
        return offset <= bytes_.size() && count <= bytes_.size() - offset;
    }
    std::string_view text(std::size_t offset) const {
        return offset < bytes_.size()
                   ? std::string_view(reinterpret_cast<const char*>(bytes_.data()), bytes_.size()).substr(offset)
                   : std::string_view();
    }

private:
    std::vector<std::uint8_t> bytes_;
};

// The text between <GSpherical:NAME> and its end tag.
std::optional<std::string> element(std::string_view document, std::string_view name) {
    const auto tag = "GSpherical:" + std::string(name) + ">";
    const auto start = document.find("<" + tag);
    if (start == std::string_view::npos)
        return std::nullopt;
    const auto content = document.substr(start + 1 + tag.size());
    const auto end = content.find("</" + tag);
    return end == std::string_view::npos ? std::nullopt : std::optional(trimmed(content.substr(0, end)));
}

template<class Number>
std::optional<Number> number(std::string_view document, std::string_view name) {
    const auto text = element(document, name);
    Number value{};
    if (!text || std::from_chars(text->data(), text->data() + text->size(), value).ec != std::errc())
        return std::nullopt;
    return value;
}

std::optional<bool> boolean(std::string_view document, std::string_view name) {
    const auto text = element(document, name);
    return text ? std::optional(lowercased(*text) == "true") : std::nullopt;
}

SphericalVideoV1Report sphericalV1(std::string_view document) {
    const auto integer = [&](std::string_view name) { return number<std::int64_t>(document, name); };
    SphericalVideoV1Report report;
    report.spherical = boolean(document, "Spherical");
    report.stitched = boolean(document, "Stitched");
    report.stitchingSoftware = element(document, "StitchingSoftware");
    report.projectionType = element(document, "ProjectionType");
    report.stereoMode = element(document, "StereoMode");
    report.sourceCount = integer("SourceCount");
    report.initialViewHeading = number<double>(document, "InitialViewHeadingDegrees");
    report.initialViewPitch = number<double>(document, "InitialViewPitchDegrees");
    report.initialViewRoll = number<double>(document, "InitialViewRollDegrees");
    report.croppedAreaWidth = integer("CroppedAreaImageWidthPixels");
    report.croppedAreaHeight = integer("CroppedAreaImageHeightPixels");
    report.croppedAreaLeft = integer("CroppedAreaLeftPixels");
    report.croppedAreaTop = integer("CroppedAreaTopPixels");
    report.fullPanoramaWidth = integer("FullPanoWidthPixels");
    report.fullPanoramaHeight = integer("FullPanoHeightPixels");
    return report;
}

SphericalVideoV2Report sphericalV2(const ByteSource& source, const MP4Box& box) {
    SphericalVideoV2Report report;
    if (const auto* header = box.child("svhd")) {
        const Fields fields(source, *header);
        const auto text = fields.text(4);
        report.metadataSource = trimmed(text.substr(0, text.find('\0')));
    }
    const auto* projection = box.child("proj");
    if (!projection)
        return report;
    if (const auto* pose = projection->child("prhd")) {
        const Fields fields(source, *pose);
        const auto degrees = [&](std::size_t offset) {
            return std::int32_t(fields.at<std::uint32_t>(offset)) / 65536.0;
        };
        report.yawDegrees = degrees(4);
        report.pitchDegrees = degrees(8);
        report.rollDegrees = degrees(12);
    }
    for (const auto& child : projection->children.value_or(std::vector<MP4Box>())) {
        const Fields fields(source, child);
        if (child.type == FourCC("prhd"))
            continue;
        report.projection = child.type;
        if (child.type == FourCC("equi")) {
            report.boundTop = fields.at<std::uint32_t>(4);
            report.boundBottom = fields.at<std::uint32_t>(8);
            report.boundLeft = fields.at<std::uint32_t>(12);
            report.boundRight = fields.at<std::uint32_t>(16);
        } else if (child.type == FourCC("cbmp")) {
            report.cubemapLayout = fields.at<std::uint32_t>(4);
            report.cubemapPadding = fields.at<std::uint32_t>(8);
        }
        break;
    }
    return report;
}

SpatialAudioReport spatialAudio(const ByteSource& source, const MP4Box& box) {
    const Fields fields(source, box);
    SpatialAudioReport report;
    report.version = fields.at<std::uint8_t>(0);
    report.headLockedStereo = fields.at<std::uint8_t>(1) & 0x80;
    report.ambisonicType = fields.at<std::uint8_t>(1) & 0x7f;
    report.ambisonicOrder = fields.at<std::uint32_t>(2);
    report.channelOrdering = fields.at<std::uint8_t>(6);
    report.normalization = fields.at<std::uint8_t>(7);
    report.channelCount = fields.at<std::uint32_t>(8);
    for (std::uint32_t channel = 0; channel < report.channelCount && fields.has(12 + 4ull * channel, 4); ++channel)
        report.channelMap.push_back(fields.at<std::uint32_t>(12 + 4ull * channel));
    return report;
}

// Adds what one box of the tree says, and the boxes below it. All of the known leaves are full boxes: their fields
// stand behind four bytes of version and flags.
void readUsage(const ByteSource& source, const MP4Box& box, VideoExtendedUsageReport& report) {
    if (box.children) {
        for (const auto& child : *box.children)
            readUsage(source, child, report);
        return;
    }
    const Fields fields(source, box);
    if (box.type == FourCC("stri")) {
        const auto flags = fields.at<std::uint8_t>(4);
        report.hasStereoViewInformation = true;
        report.hasLeftEyeView = flags & 1;
        report.hasRightEyeView = flags & 2;
        report.hasAdditionalViews = flags & 4;
        report.eyeViewsReversed = flags & 8;
    } else if (box.type == FourCC("hero"))
        report.heroEye = fields.at<std::uint8_t>(4);
    else if (box.type == FourCC("blin"))
        report.baselineMicrometers = fields.at<std::uint32_t>(4);
    else if (box.type == FourCC("dadj"))
        report.disparityAdjustment = std::int32_t(fields.at<std::uint32_t>(4));
    else if (box.type == FourCC("prji"))
        report.projection = fields.code(4);
    else if (box.type == FourCC("pkin"))
        report.viewPacking = fields.code(4);
    else if (box.type == FourCC("must"))
        for (std::size_t offset = 4; fields.has(offset, 4); offset += 4)
            report.requiredBoxes.push_back(fields.code(offset));
    else
        report.otherBoxes.push_back(box.type);
}

VideoExtendedUsageReport extendedUsage(const ByteSource& source, const MP4Box& box) {
    VideoExtendedUsageReport report;
    for (const auto& tree :
         MP4Parser::parseBoxes(source, box.position, box.position + box.totalSize(), usageContainers))
        readUsage(source, tree, report);
    return report;
}

// NAL unit types (Rec. ITU-T H.265, table 7-1), and an SEI message's payload type (D.2.1).
constexpr int sequenceParameterSet = 33;
constexpr int pictureParameterSet = 34;
constexpr int prefixSEI = 39;
constexpr int alphaChannelInformation = 165;

// Calls with the type, the offset and the size of each NAL unit of a decoder configuration record (ISO/IEC 14496-15,
// 8.3.3.1 and 9.5.3.1) whose arrays are counted at an offset.
template<class Call>
void forEachParameterUnit(const Fields& fields, std::size_t countOffset, const Call& call) {
    auto offset = countOffset + 1;
    for (int arrays = fields.at<std::uint8_t>(countOffset); arrays > 0 && fields.has(offset, 3); --arrays) {
        const int type = fields.at<std::uint8_t>(offset) & 63;
        int units = fields.at<std::uint16_t>(offset + 1);
        for (offset += 3; units > 0 && fields.has(offset, 2); --units) {
            const std::size_t size = fields.at<std::uint16_t>(offset);
            call(type, offset + 2, size);
            offset += 2 + size;
        }
    }
}

LayerConfigurationReport layerConfiguration(const Fields& fields) {
    LayerConfigurationReport report;
    const auto packed = fields.at<std::uint8_t>(4);
    report.version = fields.at<std::uint8_t>(0);
    report.lengthSize = (packed & 3) + 1;
    report.temporalLayerCount = packed >> 3 & 7;
    forEachParameterUnit(fields, 5, [&](int type, std::size_t, std::size_t) {
        report.sequenceParameterSets += type == sequenceParameterSet;
        report.pictureParameterSets += type == pictureParameterSet;
    });
    return report;
}

bool saysAlpha(const Fields& fields) {
    bool found = false;
    forEachParameterUnit(fields, 22, [&](int type, std::size_t offset, std::size_t) {
        found |= type == prefixSEI && fields.at<std::uint8_t>(offset + 2) == alphaChannelInformation;
    });
    return found;
}

void readVideoEntry(const ByteSource& source, const MP4Box& entry, SpatialTrackReport& report) {
    const Fields fields(source, entry);
    report.width = fields.at<std::uint16_t>(24);
    report.height = fields.at<std::uint16_t>(26);
    if (const auto* box = entry.child("hvcC")) {
        report.hasBaseLayer = true;
        report.hasAlphaLayer = saysAlpha(Fields(source, *box));
    }
    if (const auto* box = entry.child("lhvC"))
        report.secondaryLayer = layerConfiguration(Fields(source, *box));
    if (const auto* box = entry.child("st3d"))
        report.stereoMode = Fields(source, *box).at<std::uint8_t>(4);
    if (const auto* box = entry.child("sv3d"))
        report.sphericalV2 = sphericalV2(source, *box);
    if (const auto* box = entry.child("vexu"))
        report.extendedUsage = extendedUsage(source, *box);
    if (const auto* box = entry.child("hfov"))
        report.horizontalFieldOfViewDegrees = Fields(source, *box).at<std::uint32_t>(0) / 1000.0;
}

void readAudioEntry(const ByteSource& source, const MP4Box& entry, SpatialTrackReport& report) {
    const Fields fields(source, entry);
    // Version 2 holds the true count in a field of its own.
    report.channelCount =
        fields.at<std::uint16_t>(8) == 2 ? int(fields.at<std::uint32_t>(40) & 0xffff) : fields.at<std::uint16_t>(16);
    if (const auto* box = entry.child("SA3D"))
        report.spatialAudio = spatialAudio(source, *box);
}

SpatialTrackReport readTrack(const ByteSource& source, const MP4Box& track) {
    SpatialTrackReport report;
    report.handler = MP4Parser::handlerType(source, track).value_or(FourCC());
    if (const auto* header = track.child("tkhd")) {
        const Fields fields(source, *header);
        report.trackID = fields.at<std::uint32_t>(fields.at<std::uint8_t>(0) == 1 ? 20 : 12);
    }
    constexpr auto uuidSize = SpatialMetadataBoxes::firstGenerationUUID.size();
    for (const auto& box : *track.children)
        if (box.type == FourCC("uuid") && !report.sphericalV1 &&
            std::ranges::equal(MP4Parser::readContent(source, box, 0, uuidSize),
                               SpatialMetadataBoxes::firstGenerationUUID))
            report.sphericalV1 = sphericalV1(Fields(source, box).text(uuidSize));

    const auto* descriptions = track.descendant({"mdia", "minf", "stbl", "stsd"});
    if (!descriptions || !descriptions->children || descriptions->children->empty())
        return report;
    const auto& entry = descriptions->children->front();
    report.sampleEntry = entry.type;
    if (MP4Tag::isVideoSampleEntry(entry.type))
        readVideoEntry(source, entry, report);
    else if (MP4Tag::isAudioSampleEntry(entry.type))
        readAudioEntry(source, entry, report);
    return report;
}

// What does not is no damaged movie but a file of another kind.
bool startsWithBox(const ByteSource& source) {
    std::array<std::uint8_t, 8> header{};
    if (source.read(0, header) < header.size())
        return false;
    const auto size = readBigEndian<std::uint32_t>(header);
    const auto isPrintable = [](std::uint8_t byte) { return byte >= ' ' && byte <= '~'; };
    return (size <= 1 || size >= header.size()) && std::ranges::all_of(std::span(header).subspan(4), isPrintable);
}

} // namespace

SpatialBoxReport SpatialBoxInspector::inspect(const URL& url) { return inspect(FileByteSource(url), url); }

SpatialBoxReport SpatialBoxInspector::inspect(const ByteSource& source, const URL& url) {
    if (source.length() == 0)
        throw SpatialVideoMetadataError::emptyFile(url);
    if (!startsWithBox(source))
        throw SpatialVideoMetadataError::missingBox("moov", url);
    const auto boxes = MP4Parser::parseBoxes(source, 0, source.length());
    const auto moov = std::ranges::find(boxes, FourCC("moov"), &MP4Box::type);
    if (moov == boxes.end())
        throw SpatialVideoMetadataError::missingBox("moov", url);

    SpatialBoxReport report;
    report.isFragmented = std::ranges::contains(boxes, FourCC("moof"), &MP4Box::type);
    for (const auto& box : *moov->children)
        if (box.type == FourCC("trak"))
            report.tracks.push_back(readTrack(source, box));
    return report;
}

} // namespace panoveer
