#include "Platform/Media/X265Library.h"

#include "Platform/Media/X265.h"

#include <dlfcn.h>

#include <cstdlib>

namespace panoveer {

namespace {

#define PANOVEER_TEXT_OF(macro) PANOVEER_TEXT(macro)
#define PANOVEER_TEXT(name) #name
constexpr const char* entryPoint = PANOVEER_TEXT_OF(x265_api_get);

std::string libraryPath() {
    const char* named = std::getenv("PANOVEER_X265_LIBRARY");
    return named && *named ? named : "libpanoveer-x265.so";
}

// The structures that are shared with it must be those that this was compiled with.
bool fits(const x265_api& api) {
    return api.api_major_version == X265_MAJOR_VERSION && api.api_build_number == X265_BUILD &&
           api.sizeof_param == int(sizeof(x265_param)) && api.sizeof_picture == int(sizeof(x265_picture)) &&
           api.sizeof_stats == int(sizeof(x265_stats)) && api.sizeof_zone == int(sizeof(x265_zone)) &&
           api.sizeof_analysis_data == int(sizeof(x265_analysis_data)) &&
           api.sizeof_frame_stats == int(sizeof(x265_frame_stats));
}

// One that was built without layers does not know their parameters.
bool hasLayers(const x265_api& api) {
    auto* parameters = api.param_alloc();
    if (!parameters)
        return false;
    api.param_default(parameters);
    const bool knowsAll = api.param_parse(parameters, "num-views", "2") == 0 &&
                          api.param_parse(parameters, "alpha", "1") == 0 && parameters->numViews == 2 &&
                          parameters->bEnableAlpha == 1;
    api.param_free(parameters);
    return knowsAll;
}

} // namespace

const X265Library& X265Library::shared() {
    static const X265Library library;
    return library;
}

X265Library::X265Library() : path_(libraryPath()) {
    constexpr auto remedy = "; ./dev builds it once, and PANOVEER_X265_LIBRARY names it";
    void* handle = dlopen(path_.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (!handle) {
        absence_ = "x265 with multiview (" + path_ + ") is not there" + remedy;
        return;
    }
    const auto get = reinterpret_cast<decltype(&x265_api_get)>(dlsym(handle, entryPoint));
    const auto usable = [&](int bitDepth) -> const x265_api* {
        const auto* api = get ? get(bitDepth) : nullptr;
        return api && api->bit_depth == bitDepth && fits(*api) && hasLayers(*api) ? api : nullptr;
    };
    eightBit_ = usable(8);
    tenBit_ = usable(10);
    if (!eightBit_)
        absence_ = path_ + " is not the x265 with multiview that this program was built for" + remedy;
    if (!eightBit_ && !tenBit_)
        dlclose(handle);
}

} // namespace panoveer
