#pragma once

#include "Panoveer/Services/Export/ExportDiagnostics.h"
#include "Platform/Core/URL.h"
#include "Platform/Media/AssetWriter.h"

#include <cstdint>
#include <functional>
#include <optional>
#include <string_view>

namespace panoveer {

// Keeps what a cancelled or failed export has written, where it can be played: the staged movie becomes
// film.partial.mov beside the name that it was meant to have. On the export's thread, after the last picture. Nothing
// here throws: what cannot be kept is told to the diagnostics, and the first failure stays the one that counts.
class PartialOutputRecovery {
public:
    // Where a movie is written, what it was to become, and how many pictures the writer was given.
    struct Output {
        const URL& staged;
        const URL& final;
        std::int64_t framesWritten = 0;
    };
    enum class Need { wholeFile, completeFragment };

    explicit PartialOutputRecovery(ExportDiagnostics& diagnostics) : diagnostics_(diagnostics) {}

    // Completes the movie of a writer that still writes, and keeps what there is then. `markInputsFinished` ends what
    // feeds the writer. Returns the partial file.
    std::optional<URL> preserveRecoverablePartialOutput(AssetWriter& writer,
                                                        const std::function<void()>& markInputsFinished,
                                                        const Output& output) noexcept;

    // `recoveryMode` names the road in the diagnostics.
    std::optional<URL> preservePartialOutput(const Output& output, Need need, std::string_view recoveryMode) noexcept;

    // film.partial.mov, or film.partial-2.mov, film.partial-3.mov, … when names are taken.
    static URL uniquePartialOutputURL(const URL& final);

    // Whether a growing movie holds a `moof` with media behind it, both to their ends. False for what cannot be read.
    static bool containsCompleteMovieFragment(const URL& movie) noexcept;

private:
    std::optional<URL> finishAndPreserve(AssetWriter& writer, const std::function<void()>& markInputsFinished,
                                         const Output& output);
    std::optional<URL> preserve(const Output& output, Need need, std::string_view recoveryMode);

    ExportDiagnostics& diagnostics_;
};

} // namespace panoveer
