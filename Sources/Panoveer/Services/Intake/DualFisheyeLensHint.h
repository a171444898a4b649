#pragma once

#include "Platform/Core/URL.h"

namespace panoveer::DualFisheyeLensHint {

// Whether a movie names, near its start or end, a lens that puts two fisheyes side by side on one sensor. Cameras write
// the lens into metadata of their own kinds, so the bytes are searched as they are: at most 4 MiB at either end. False
// for what is no file or cannot be read. Never throws but for want of memory; any thread.
bool isDualFisheye(const URL& url);

} // namespace panoveer::DualFisheyeLensHint
