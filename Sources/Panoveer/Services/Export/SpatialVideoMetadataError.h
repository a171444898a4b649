#pragma once

#include "Platform/Core/Error.h"
#include "Platform/Core/FourCC.h"
#include "Platform/Core/URL.h"

#include <cstdint>

namespace panoveer {

// Why the spatial boxes of a file could not be written, read or confirmed. The text is localised when the error is
// made.
class SpatialVideoMetadataError : public Error {
public:
    enum class Kind {
        emptyFile,
        missingBox,
        noVideoTrack,
        noVideoSampleEntry,
        invalidBox,
        boxOutOfBounds,
        largeBoxRequiresExtendedHeader,
        chunkOffsetOverflow,
        stcoOverflow,
        internalInconsistency,
    };

    static SpatialVideoMetadataError emptyFile(const URL& url);
    static SpatialVideoMetadataError missingBox(FourCC tag, const URL& url);
    static SpatialVideoMetadataError noVideoTrack(const URL& url);
    static SpatialVideoMetadataError noVideoSampleEntry(const URL& url);
    static SpatialVideoMetadataError invalidBox(FourCC tag, std::uint64_t position);
    static SpatialVideoMetadataError boxOutOfBounds(FourCC tag, std::uint64_t position);
    static SpatialVideoMetadataError largeBoxRequiresExtendedHeader(FourCC tag);
    static SpatialVideoMetadataError chunkOffsetOverflow();
    static SpatialVideoMetadataError stcoOverflow();
    static SpatialVideoMetadataError internalInconsistency();

    Kind kind() const noexcept { return kind_; }
    // Of the cases that have them; else empty, or 0.
    FourCC tag() const noexcept { return tag_; }
    std::uint64_t position() const noexcept { return position_; }
    const URL& url() const noexcept { return url_; }

private:
    SpatialVideoMetadataError(Kind kind, const std::string& message) : Error(message), kind_(kind) {}

    Kind kind_;
    FourCC tag_;
    std::uint64_t position_ = 0;
    URL url_;
};

} // namespace panoveer
