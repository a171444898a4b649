#include "Panoveer/Services/Export/VRExportError.h"

#include "Panoveer/Model/Records/ExportCodec.h"

namespace panoveer {

std::string VRExportError::asArgument(ExportCodec codec) { return displayName(codec); }

VRExportError VRExportError::withoutLayerEncoder(ExportCodec codec) {
    return {Case::unsupportedVideoSettings,
            Wording{localized("error.export.layer_encoder_missing", asArgument(codec))}};
}

VRExportError VRExportError::soundUnreadable(const URL& source, const Error& cause) {
    VRExportError error(Case::readerFailed,
                        Wording{localized("error.export.sound_unreadable", source.lastPathComponent(), cause.what())});
    error.keep(source);
    error.setUnderlying(std::make_shared<Error>(cause));
    error.setSpeaksForUnderlying();
    return error;
}

std::string_view VRExportError::key(Case which) {
    switch (which) {
    case Case::pixelBufferCreationFailed: return "error.export.pixel_buffer_creation_failed";
    case Case::sampleRetimingFailed: return "error.export.sample_retiming_failed";
    case Case::noVideoTrack: return "error.export.no_video_track";
    case Case::unsupportedVideoSettings: return "error.export.unsupported_video_settings";
    case Case::cancelledPartialSaved: return "error.export.cancelled_partial_saved";
    case Case::failedPartialSaved: return "error.export.failed_partial_saved";
    case Case::codecExportFailed: return "error.export.codec_failed";
    case Case::pngMaskWriteFailed: return "error.export.png_mask_write_failed";
    case Case::outputValidationFailed: return "error.export.output_validation_failed";
    case Case::alphaMaskValidationFailed: return "error.export.alpha_mask_validation_failed";
    case Case::cannotAddWriterInput: return "error.export.cannot_add_writer_input";
    case Case::cannotAddAudioInput: return "error.export.cannot_add_audio_input";
    case Case::cannotAddReaderOutput: return "error.export.cannot_add_reader_output";
    case Case::writerStartFailed: return "error.export.writer_start_failed";
    case Case::readerStartFailed: return "error.export.reader_start_failed";
    case Case::readerFailed: return "error.export.reader_failed";
    case Case::writerFailed: return "error.export.writer_failed";
    case Case::appendFailed: return "error.export.append_failed";
    case Case::audioAppendFailed: return "error.export.audio_append_failed";
    case Case::pixelBufferPoolUnavailable: return "error.export.pixel_buffer_pool_unavailable";
    }
    return "error.export.writer_failed";
}

} // namespace panoveer
