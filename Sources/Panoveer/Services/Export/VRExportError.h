#pragma once

#include "Panoveer/Model/Records/ExportSettings.h"
#include "Platform/Core/Error.h"
#include "Platform/Core/Localization.h"
#include "Platform/Core/URL.h"

#include <cstdint>

namespace panoveer {

// The status of pixelBufferCreationFailed when memory has run out, as the platform's pixel buffers number it.
inline constexpr std::int64_t outOfMemoryStatus = -6662;

// What can go wrong while an export writes its files. what() is the localised text, with the payload in it.
class VRExportError : public Error {
public:
    enum class Case {
        pixelBufferCreationFailed, // status
        sampleRetimingFailed,      // status
        noVideoTrack,              // URL
        unsupportedVideoSettings,  // codec, width, height
        cancelledPartialSaved,     // URL
        failedPartialSaved,        // URL, text
        codecExportFailed,         // codec, text
        pngMaskWriteFailed,        // URL
        outputValidationFailed,    // text
        alphaMaskValidationFailed, // text
        cannotAddWriterInput,
        cannotAddAudioInput,
        cannotAddReaderOutput,
        writerStartFailed,
        readerStartFailed,
        readerFailed,
        writerFailed,
        appendFailed,
        audioAppendFailed,
        pixelBufferPoolUnavailable,
    };

    // The payload of a case, in the order given above.
    template<class... Payload>
    explicit VRExportError(Case which, const Payload&... payload)
        : Error(localized(key(which), asArgument(payload)...)), case_(which) {
        (keep(payload), ...);
        if (isEndOfExport())
            setSpeaksForUnderlying();
    }

    // unsupportedVideoSettings, in other words: what is missing is the library that encodes pictures in layers.
    static VRExportError withoutLayerEncoder(ExportCodec codec);
    // readerFailed, in other words: what cannot be read is the sound of a source, and why.
    static VRExportError soundUnreadable(const URL& source, const Error& cause);

    Case which() const noexcept { return case_; }
    // The payload's file; empty for cases without one.
    const URL& url() const noexcept { return url_; }
    // One of the ways in which a whole export ends. Their text tells all that the person has to know.
    bool isEndOfExport() const noexcept {
        return case_ == Case::cancelledPartialSaved || case_ == Case::failedPartialSaved ||
               case_ == Case::codecExportFailed;
    }

    static std::string_view key(Case which);

private:
    struct Wording {
        std::string text;
    };
    VRExportError(Case which, const Wording& wording) : Error(wording.text), case_(which) {}

    static std::string asArgument(const URL& url) { return url.path().string(); }
    static std::string asArgument(ExportCodec codec);
    static std::string asArgument(const std::string& text) { return text; }
    static std::int64_t asArgument(std::int64_t number) { return number; }

    void keep(const URL& url) { url_ = url; }
    template<class Payload>
    void keep(const Payload&) {}

    Case case_;
    URL url_;
};

} // namespace panoveer
