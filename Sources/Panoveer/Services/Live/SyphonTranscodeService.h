#pragma once

#include "Panoveer/Services/Export/ExportWaits.h"
#include "Platform/Core/URL.h"
#include "Platform/Media/AssetWriter.h"

#include <cstdint>
#include <functional>
#include <stop_token>
#include <string>

namespace panoveer {

// Makes a quiet working copy of a movie that decodes too slowly for live output: HEVC, video only, BT.709, at the
// source's size and rate, with key frames so close that players seek and loop at once. Stateless; blocking, any thread.
//
// The copy grows under a staged name and is renamed when it is whole and checked, so that not even a killed process
// leaves a half-made one to be found.
struct SyphonTranscodeService {
    // How far the copy is, 0 … 1 and 1 only when it is done, what is going on, for the person, and pictures written.
    // Called on the thread of the transcode.
    using ProgressHandler = std::function<void(double fraction, const std::string& text, std::int64_t framesWritten)>;

    // Beside the source: "clip Syphon.mp4", or "clip Syphon 2.mp4" and so on, the first name that is free.
    static URL defaultDestination(const URL& source);

    // Returns the destination. A file that stands there goes as soon as the source has proved to be a movie; after any
    // failure from then on there is none. Sides of an odd source are evened up by repeating its last column or row,
    // since the codec has half of each for its chroma.
    // Throws Cancelled, FFmpegReaderError, VRExportError, ExportArtifactValidationError and the writer's Error.
    static URL transcode(const URL& sourceURL, const URL& destinationURL, const ProgressHandler& progress,
                         std::stop_token stop = {});

    // What the copy's video track is to be; the rate in frames per second.
    static VideoSettings videoSettings(int width, int height, double frameRate);

    // Waits until the writer's input has room. Throws Cancelled, and when the writer has failed its error or
    // VRExportError::writerFailed.
    static void waitUntilReady(const std::function<bool()>& isReadyForMoreMediaData, const ExportWriterStatus& writer,
                               const std::stop_token& stop, const ExportWaitClock& clock);
};

} // namespace panoveer
