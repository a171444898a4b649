#pragma once

#include "Platform/Core/Error.h"
#include "Platform/Core/FourCC.h"
#include "Platform/Core/URL.h"

#include <atomic>
#include <cstdint>
#include <memory>
#include <string_view>

struct AVCodecContext;
struct AVCodecParameters;
struct AVFormatContext;
struct AVFrame;
struct AVPacket;
struct SwsContext;

// What the files of this folder share in their dealings with libav. Not for other layers.
namespace panoveer {

// Codes in mediaErrorDomain, by the situation that they stand for.
namespace mediaErrorCode {
inline constexpr int unknown = -11800;
inline constexpr int outOfMemory = -11801;
inline constexpr int decodeFailed = -11821;
inline constexpr int invalidSourceMedia = -11822;
inline constexpr int fileFormatNotRecognized = -11828;
inline constexpr int fileFailedToParse = -11829;
inline constexpr int noImageAtTime = -11832;
inline constexpr int decoderNotFound = -11833;
inline constexpr int encoderNotFound = -11834;
inline constexpr int operationNotSupported = -11849;
} // namespace mediaErrorCode

struct LibAVDeleter {
    void operator()(AVCodecContext* context) const noexcept;
    void operator()(AVCodecParameters* parameters) const noexcept;
    void operator()(AVFormatContext* input) const noexcept; // an input: closes the file too
    void operator()(AVFrame* frame) const noexcept;
    void operator()(AVPacket* packet) const noexcept;
    void operator()(SwsContext* context) const noexcept;
};

using CodecContextPtr = std::unique_ptr<AVCodecContext, LibAVDeleter>;
using CodecParametersPtr = std::unique_ptr<AVCodecParameters, LibAVDeleter>;
using InputPtr = std::unique_ptr<AVFormatContext, LibAVDeleter>;
using FramePtr = std::unique_ptr<AVFrame, LibAVDeleter>;
using PacketPtr = std::unique_ptr<AVPacket, LibAVDeleter>;
using ScalerPtr = std::unique_ptr<SwsContext, LibAVDeleter>;

// Throw std::bad_alloc.
FramePtr makeFrame();
PacketPtr makePacket();
std::shared_ptr<const AVCodecParameters> copyOf(const AVCodecParameters& parameters);

// The failure of a libav call, "WHAT: libav's own text". A code that stands for an errno becomes an error in
// posixErrorDomain, any other one in mediaErrorDomain with `mediaCode`.
Error libavError(std::string_view what, int code, int mediaCode = mediaErrorCode::unknown);

Error outOfMemoryError();

// The exception that is being handled, as an Error. Only within a catch block.
Error currentError();

// Keeps libav's own log on standard error to errors.
void limitLibAVLog();

// The name that messages give to a file: its last component.
std::string nameInMessages(const URL& url);

// Opens a file with one of the demuxers of the native road and no other. Blocking reads end with an error once
// `*interrupt` is true. Throws Error, or Cancelled when interrupted.
InputPtr openMovie(const URL& url, const std::atomic<bool>* interrupt = nullptr);

// A little-endian codec tag of libav; 0 stays 0.
FourCC fourCCFromTag(std::uint32_t tag);

} // namespace panoveer
