#pragma once

#include "Fuzz/FuzzTarget.h"
#include "Support/MediaFactory.h"

namespace panoveer::test {

// A movie of some kilobytes.
inline Bytes smallMovie(MovieSpec spec) {
    const TemporaryFolder folder;
    spec.width = spec.height = 64;
    spec.frameCount = 2;
    return readFile(makeMovie(folder, spec));
}

} // namespace panoveer::test
