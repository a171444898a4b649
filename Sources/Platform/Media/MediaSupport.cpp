#include "Platform/Media/MediaSupport.h"

#include "Platform/Media/LibAVMessages.h"

#include <cerrno>
#include <filesystem>
#include <new>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libswscale/swscale.h>
}

namespace panoveer {

namespace {

// Whoever opens one of these may wait for ever, and it can be read only once.
bool isPipeOrDevice(const std::filesystem::path& path) {
    std::error_code unknown;
    const auto status = std::filesystem::status(path, unknown);
    return std::filesystem::is_other(status);
}

} // namespace

void LibAVDeleter::operator()(AVCodecContext* context) const noexcept { avcodec_free_context(&context); }
void LibAVDeleter::operator()(AVCodecParameters* parameters) const noexcept { avcodec_parameters_free(&parameters); }
void LibAVDeleter::operator()(AVFormatContext* input) const noexcept { avformat_close_input(&input); }
void LibAVDeleter::operator()(AVFrame* frame) const noexcept { av_frame_free(&frame); }
void LibAVDeleter::operator()(AVPacket* packet) const noexcept { av_packet_free(&packet); }
void LibAVDeleter::operator()(SwsContext* context) const noexcept { sws_freeContext(context); }

FramePtr makeFrame() {
    FramePtr frame(av_frame_alloc());
    if (!frame)
        throw std::bad_alloc();
    return frame;
}

PacketPtr makePacket() {
    PacketPtr packet(av_packet_alloc());
    if (!packet)
        throw std::bad_alloc();
    return packet;
}

std::shared_ptr<const AVCodecParameters> copyOf(const AVCodecParameters& parameters) {
    CodecParametersPtr copy(avcodec_parameters_alloc());
    if (!copy || avcodec_parameters_copy(copy.get(), &parameters) < 0)
        throw std::bad_alloc();
    return std::shared_ptr<AVCodecParameters>(std::move(copy));
}

Error libavError(std::string_view what, int code, int mediaCode) {
    char text[AV_ERROR_MAX_STRING_SIZE] = {};
    av_strerror(code, text, sizeof text);
    const auto message = std::string(what) + ": " + text;
    // libav's own codes are negated four-character tags, far beyond any errno.
    constexpr int largestErrno = 4095;
    const int errorNumber = AVUNERROR(code);
    if (errorNumber > 0 && errorNumber <= largestErrno)
        return Error(message, std::string(posixErrorDomain), errorNumber);
    return Error(message, std::string(mediaErrorDomain), mediaCode);
}

Error outOfMemoryError() { return Error("Out of memory", std::string(mediaErrorDomain), mediaErrorCode::outOfMemory); }

Error currentError() {
    try {
        throw;
    } catch (const Error& error) {
        return error;
    } catch (const std::bad_alloc&) {
        return outOfMemoryError();
    } catch (const std::exception& error) {
        return Error(error.what(), std::string(mediaErrorDomain), mediaErrorCode::unknown);
    }
}

void limitLibAVLog() { av_log_set_level(AV_LOG_ERROR); }

std::string nameInMessages(const URL& url) { return url.lastPathComponent(); }

InputPtr openMovie(const URL& url, const std::atomic<bool>* interrupt) {
    if (!url.isFileURL())
        throw Error("Not a file: " + url.absoluteString(), std::string(mediaErrorDomain),
                    mediaErrorCode::fileFormatNotRecognized);
    sendLibAVMessagesToLog();
    const auto name = nameInMessages(url);
    if (isPipeOrDevice(url.path()))
        throw Error(name + " is a pipe or a device. Save the movie as a file first.", std::string(mediaErrorDomain),
                    mediaErrorCode::fileFormatNotRecognized);
    auto* context = avformat_alloc_context();
    if (!context)
        throw std::bad_alloc();
    if (interrupt) {
        context->interrupt_callback.opaque = const_cast<std::atomic<bool>*>(interrupt);
        context->interrupt_callback.callback = [](void* flag) {
            return int(static_cast<const std::atomic<bool>*>(flag)->load(std::memory_order_relaxed));
        };
    }
    AVDictionary* options = nullptr;
    av_dict_set(&options, "format_whitelist", "mov,avi,matroska", 0);
    // Playlists and external references inside a movie must not reach out to the network.
    av_dict_set(&options, "protocol_whitelist", "file", 0);
    // The prefix keeps a colon in a file name from being taken for a protocol.
    const int code = avformat_open_input(&context, ("file:" + url.path().string()).c_str(), nullptr, &options);
    av_dict_free(&options);
    if (code >= 0)
        return InputPtr(context);
    // The context is freed already. EINVAL tells of a container that is not on the list.
    if (code == AVERROR_INVALIDDATA || code == AVERROR_EOF || code == AVERROR(EINVAL))
        throw Error(name + " is damaged, or no movie of a known kind. Check that it is complete and plays elsewhere.",
                    std::string(mediaErrorDomain), mediaErrorCode::fileFormatNotRecognized);
    throw libavError(name, code, mediaErrorCode::fileFormatNotRecognized);
}

FourCC fourCCFromTag(std::uint32_t tag) { return FourCC(__builtin_bswap32(tag)); }

} // namespace panoveer
