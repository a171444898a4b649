#pragma once

#include "Panoveer/Model/Records/ProjectionFormat.h"
#include "Platform/Core/URL.h"

#include <chrono>
#include <string>
#include <string_view>

namespace panoveer {

// Names of files and folders that an export makes. Pure functions, any thread; all texts are UTF-8.
struct ExportFileNaming {
    // "clip - vr180"
    static std::string suggestedBaseName(const URL& source, ProjectionFormat outputFormat);
    // What a user typed, without a movie extension and without what no file name may hold. May be empty.
    static std::string sanitizedCustomBaseName(std::string_view text);
    // The source's name as part of a mask's name; "clip" when nothing is left.
    static std::string sanitizedMaskBaseName(const URL& source);
    // "Panoveer - 3-45 PM 11-24-2025", in the order of a locale ("en_US"), a calendar ("gregorian") and an Olson time
    // zone.
    static std::string batchFolderName(std::chrono::system_clock::time_point time, std::string_view locale,
                                       std::string_view calendar, std::string_view timeZone);

    // "film" and "mov" to "film.mov". Dots around the extension go; with nothing left it is "mp4".
    static std::string fileName(std::string_view base, std::string_view extension);

    // Without the characters that file systems reserve, white space settled to single blanks.
    static std::string folderSafe(std::string_view text);
};

} // namespace panoveer
