#include "Panoveer/Services/Export/PartialOutputRecovery.h"

#include "Panoveer/Services/Diagnostics/GenerationFailureDescriber.h"
#include "Panoveer/Services/Export/BigEndian.h"
#include "Panoveer/Services/Export/ByteStreams.h"
#include "Panoveer/Services/Export/ExportArtifactTransaction.h"
#include "Panoveer/Services/Export/StagedName.h"
#include "Platform/Core/Log.h"

#include <array>
#include <filesystem>
#include <string>

namespace panoveer {

namespace fs = std::filesystem;

namespace {

constexpr Logger logger("Export");

// The top-level boxes of a file, one after the other (ISO/IEC 14496-12, clause 4.2).
class BoxWalk {
public:
    explicit BoxWalk(const ByteSource& source) : source_(source), length_(source.length()) {}

    // The type of the next box that lies in the file to its end; none at the end, at a box of open size and at one
    // that is damaged.
    std::optional<FourCC> next() {
        std::array<std::uint8_t, 16> header{};
        const auto got = source_.read(position_, header);
        if (got < 8)
            return std::nullopt;
        const auto tag = readBigEndian<std::uint32_t>(header);
        const std::uint64_t headerSize = tag == 1 ? 16 : 8;
        const auto size = tag == 1 ? readBigEndian<std::uint64_t>(header, 8) : tag;
        if (got < headerSize || size < headerSize || size > length_ - position_)
            return std::nullopt;
        position_ += size;
        return FourCC(readBigEndian<std::uint32_t>(header, 4));
    }

private:
    const ByteSource& source_;
    const std::uint64_t length_;
    std::uint64_t position_ = 0;
};

} // namespace

std::optional<URL> PartialOutputRecovery::preserveRecoverablePartialOutput(
    AssetWriter& writer, const std::function<void()>& markInputsFinished, const Output& output) noexcept {
    try {
        return finishAndPreserve(writer, markInputsFinished, output);
    } catch (const std::exception& error) {
        logger.error("partial recovery of {} failed: {}", output.staged.lastPathComponent(), error.what());
        return std::nullopt;
    }
}

std::optional<URL> PartialOutputRecovery::preservePartialOutput(const Output& output, Need need,
                                                                std::string_view recoveryMode) noexcept {
    try {
        return preserve(output, need, recoveryMode);
    } catch (const std::exception& error) {
        logger.error("partial recovery of {} failed: {}", output.staged.lastPathComponent(), error.what());
        return std::nullopt;
    }
}

std::optional<URL> PartialOutputRecovery::finishAndPreserve(AssetWriter& writer,
                                                            const std::function<void()>& markInputsFinished,
                                                            const Output& output) {
    const auto statusValue = [&] { return std::int64_t(writer.status()); };
    if (output.framesWritten <= 0) {
        diagnostics_.record("partial_recovery_skipped",
                            {{"reason", std::string("no_video_frames_written")}, {"writer_status", statusValue()}});
        return std::nullopt;
    }
    if (writer.status() != AssetWriter::Status::writing)
        return writer.status() == AssetWriter::Status::completed
                   ? preserve(output, Need::wholeFile, "already_finalized_container")
                   : preserve(output, Need::completeFragment, "complete_movie_fragment");

    markInputsFinished();
    diagnostics_.record("partial_finalization_started",
                        {{"frames_written", output.framesWritten}, {"writer_status", statusValue()}});
    const bool isComplete = writer.finishWriting();
    DiagnosticFields fields = {{"frames_written", output.framesWritten}, {"writer_status", statusValue()}};
    if (const auto error = writer.error())
        fields["writer_diagnostic"] = GenerationFailureDescriber::diagnosticMessage(*error);
    diagnostics_.record("partial_finalization_finished", fields);
    return isComplete ? preserve(output, Need::wholeFile, "finalized_container")
                      : preserve(output, Need::completeFragment, "complete_movie_fragment");
}

std::optional<URL> PartialOutputRecovery::preserve(const Output& output, Need need, std::string_view recoveryMode) {
    const auto skip = [&](const char* reason, DiagnosticFields fields = {}) {
        fields["reason"] = std::string(reason);
        fields["recovery_mode"] = std::string(recoveryMode);
        fields["frames_written"] = output.framesWritten;
        diagnostics_.record("partial_recovery_skipped", fields);
        return std::nullopt;
    };
    std::error_code failure;
    const auto path = output.staged.path();
    if (!fs::exists(path, failure))
        return skip("output_file_missing");
    const auto bytes = std::int64_t(fs::file_size(path, failure));
    if (failure || bytes < 1)
        return skip("output_file_empty_or_unreadable");
    if (need == Need::completeFragment && !containsCompleteMovieFragment(output.staged))
        return skip("no_complete_movie_fragment", {{"bytes", bytes}});

    auto partial = uniquePartialOutputURL(output.final);
    try {
        // Somebody else may have taken the name since.
        while (!ExportArtifactTransaction::moveToFreeName(output.staged, partial))
            partial = uniquePartialOutputURL(output.final);
    } catch (const Error& error) {
        diagnostics_.record("fragmented_partial_rename_failed",
                            {{"original_path", path.string()},
                             {"requested_partial_path", partial.path().string()},
                             {"diagnostic", GenerationFailureDescriber::diagnosticMessage(error)}});
        return std::nullopt;
    }
    ExportArtifactTransaction::synchronizeDirectoryBestEffort(partial.deletingLastPathComponent());
    diagnostics_.record("fragmented_partial_preserved", {{"partial_path", partial.path().string()},
                                                         {"bytes", bytes},
                                                         {"frames_written", output.framesWritten},
                                                         {"recovery_mode", std::string(recoveryMode)}});
    return partial;
}

URL PartialOutputRecovery::uniquePartialOutputURL(const URL& final) {
    const auto folder = final.deletingLastPathComponent();
    const auto extension = final.pathExtension().empty() ? "" : "." + final.pathExtension();
    for (int number = 1;; ++number) {
        const auto suffix = ".partial" + (number == 1 ? "" : "-" + std::to_string(number)) + extension;
        auto candidate = folder.appendingPathComponent(fittingFileName(final.baseName(), suffix));
        std::error_code ignored;
        if (!fs::exists(fs::symlink_status(candidate.path(), ignored)))
            return candidate;
    }
}

bool PartialOutputRecovery::containsCompleteMovieFragment(const URL& movie) noexcept {
    try {
        const FileByteSource source(movie);
        BoxWalk boxes(source);
        bool hasFragmentHeader = false;
        while (const auto type = boxes.next()) {
            if (*type == FourCC("mdat") && hasFragmentHeader)
                return true;
            hasFragmentHeader |= *type == FourCC("moof");
        }
    } catch (const std::exception&) {
        // What cannot be read cannot be played.
    }
    return false;
}

} // namespace panoveer
