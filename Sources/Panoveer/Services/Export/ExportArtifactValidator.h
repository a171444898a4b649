#pragma once

#include "Panoveer/Services/Export/ExportArtifactValidationError.h"
#include "Panoveer/Services/Export/ExportMovieValidationExpectation.h"
#include "Platform/Core/FourCC.h"
#include "Platform/Core/URL.h"

#include <cstdint>
#include <span>
#include <string>

namespace panoveer {

// Proves that what an export staged is what was asked for, before it gets its final name. Stateless, any thread;
// blocking. Throws ExportArtifactValidationError for the first thing that is wrong, and Error in posixErrorDomain where
// the file system does not let it look.
struct ExportArtifactValidator {
    // Reads the movie on the native road and once more through FFmpeg.
    static void validateMovie(const URL& url, const ExportMovieValidationExpectation& expectation);

    // The folder holds exactly these PNG files, each one picture of this size in pixels. Files of other kinds do not
    // matter.
    static void validatePNGDirectory(const URL& url, std::span<const std::string> expectedFileNames, std::int64_t width,
                                     std::int64_t height);

    // A four-character code as a person reads it.
    static std::string fourCC(FourCC code);
};

} // namespace panoveer
