#pragma once

#include "Platform/Core/Error.h"
#include "Platform/Core/URL.h"

namespace panoveer {

// Why a Canon raw movie could not be read. what() is the text for the person in the language of the throw.
class CanonRawMetadataError : public Error {
public:
    enum class Case {
        invalidBox,   // the file's box structure is damaged
        noVideoTrack, // it is no movie, or has no video track with a size
    };

    explicit CanonRawMetadataError(Case reason);

    Case reason() const noexcept { return reason_; }

private:
    Case reason_;
};

struct CanonRawVideoMetadata {
    double width = 0;      // pixels, as the track header asks to show it
    double height = 0;     // pixels
    double duration = 0;   // seconds
    double frameRate = 30; // frames per second

    friend bool operator==(const CanonRawVideoMetadata&, const CanonRawVideoMetadata&) = default;
};

// Says what a Canon raw movie (.crm) holds when no decoder knows its codec: a walk over the boxes of ISO/IEC 14496-12
// that reads headers and tables alone, never samples, in pieces of at most 64 KiB. Safe on damaged and hostile files:
// every size is checked against its parent's end, and the number of boxes and table entries has a bound. Blocking, any
// thread.
class CanonRawMetadataReader {
public:
    // Throws CanonRawMetadataError, and Error in posixErrorDomain when the file cannot be opened or read.
    static CanonRawVideoMetadata read(const URL& url);
};

} // namespace panoveer
