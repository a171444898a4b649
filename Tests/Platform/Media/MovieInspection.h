#pragma once

#include "Platform/Media/PixelBuffer.h"

#include <sys/wait.h>
#include <unistd.h>

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

// Pictures with content that a codec has to work for, and a look into movies that does not go through our own reader.
namespace panoveer::test {

// Waves that move with the index, each component of its own, and fine texture; alpha falls off towards the edges.
// Components are R, G, B, A or Y', Cb, Cr, whatever the format holds, each between 0.1 and 0.9 of its nominal range.
PixelBufferPtr makePatternPicture(FourCC format, int width, int height, int index);

// A texture that drifts under noise that is new in each picture: nothing that an encoder can skip. "420v".
PixelBufferPtr makeBusyPicture(int width, int height, int index);

// All pictures of a movie by the `ffmpeg` program, in one of its pixel formats, one behind the other. Throws with the
// program's words when it finds anything to complain about.
std::string decodeRaw(const std::filesystem::path& movie, const std::string& pixelFormat);

// Peak signal-to-noise ratio in dB of two runs of samples of 1 or 2 bytes, of the given largest value.
double signalToNoise(const std::string& samples, const std::string& original, int bytesPerSample, double peak);

// The samples of a picture without the padding of its rows, planes one behind the other.
std::string packedSamples(const PixelBuffer& picture);

// The types of the boxes at the top of a file, as far as they are whole.
std::vector<std::string> topLevelBoxes(const std::filesystem::path& movie);

// How many boxes of a type a file has, at its top or below "moov".
int countInMovieHeader(const std::filesystem::path& movie, const std::string& type);

// The payload of the box at a path, as appendBox() takes it.
std::vector<std::uint8_t> boxPayload(const std::filesystem::path& movie, const std::vector<std::string>& path);

// Runs the work in a process of its own that ends without any cleaning up; whether it ended and answered true.
template<class Work>
bool succeedsInProcess(const Work& work) {
    const auto child = fork();
    if (child == 0)
        _exit(work() ? 0 : 1);
    int status = 0;
    waitpid(child, &status, 0);
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

} // namespace panoveer::test
