#pragma once

// x265 as Environment/build-x265.sh builds it. Its declarations depend on what it was built with. Only for the files
// that call it.
#define ENABLE_MULTIVIEW 1
#define ENABLE_ALPHA 1
#include <x265.h>
