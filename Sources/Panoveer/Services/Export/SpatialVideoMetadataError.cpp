#include "Panoveer/Services/Export/SpatialVideoMetadataError.h"

#include "Panoveer/Services/Export/MP4Box.h"
#include "Platform/Core/Localization.h"

namespace panoveer {

SpatialVideoMetadataError SpatialVideoMetadataError::emptyFile(const URL& url) {
    SpatialVideoMetadataError error(Kind::emptyFile,
                                    localized("error.spatial_metadata.empty_file", url.lastPathComponent()));
    error.url_ = url;
    return error;
}

SpatialVideoMetadataError SpatialVideoMetadataError::missingBox(FourCC tag, const URL& url) {
    SpatialVideoMetadataError error(
        Kind::missingBox, localized("error.spatial_metadata.missing_box", MP4Tag::text(tag), url.lastPathComponent()));
    error.tag_ = tag;
    error.url_ = url;
    return error;
}

SpatialVideoMetadataError SpatialVideoMetadataError::noVideoTrack(const URL& url) {
    SpatialVideoMetadataError error(Kind::noVideoTrack,
                                    localized("error.spatial_metadata.no_video_track", url.lastPathComponent()));
    error.url_ = url;
    return error;
}

SpatialVideoMetadataError SpatialVideoMetadataError::noVideoSampleEntry(const URL& url) {
    SpatialVideoMetadataError error(Kind::noVideoSampleEntry,
                                    localized("error.spatial_metadata.no_video_sample_entry", url.lastPathComponent()));
    error.url_ = url;
    return error;
}

SpatialVideoMetadataError SpatialVideoMetadataError::invalidBox(FourCC tag, std::uint64_t position) {
    SpatialVideoMetadataError error(Kind::invalidBox,
                                    localized("error.spatial_metadata.invalid_box", MP4Tag::text(tag), position));
    error.tag_ = tag;
    error.position_ = position;
    return error;
}

SpatialVideoMetadataError SpatialVideoMetadataError::boxOutOfBounds(FourCC tag, std::uint64_t position) {
    SpatialVideoMetadataError error(Kind::boxOutOfBounds,
                                    localized("error.spatial_metadata.box_out_of_bounds", MP4Tag::text(tag), position));
    error.tag_ = tag;
    error.position_ = position;
    return error;
}

SpatialVideoMetadataError SpatialVideoMetadataError::largeBoxRequiresExtendedHeader(FourCC tag) {
    SpatialVideoMetadataError error(Kind::largeBoxRequiresExtendedHeader,
                                    localized("error.spatial_metadata.extended_header_required", MP4Tag::text(tag)));
    error.tag_ = tag;
    return error;
}

SpatialVideoMetadataError SpatialVideoMetadataError::chunkOffsetOverflow() {
    return {Kind::chunkOffsetOverflow, localized("error.spatial_metadata.chunk_offset_overflow")};
}

SpatialVideoMetadataError SpatialVideoMetadataError::stcoOverflow() {
    return {Kind::stcoOverflow, localized("error.spatial_metadata.stco_overflow")};
}

SpatialVideoMetadataError SpatialVideoMetadataError::internalInconsistency() {
    return {Kind::internalInconsistency, localized("error.spatial_metadata.internal_inconsistency")};
}

} // namespace panoveer
