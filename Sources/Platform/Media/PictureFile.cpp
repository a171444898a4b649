#include "Platform/Media/PictureFile.h"

#include "Platform/Core/UUID.h"
#include "Platform/Media/FrameConverter.h"
#include "Platform/Media/MediaSupport.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <new>
#include <span>
#include <vector>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/crc.h>
#include <libavutil/opt.h>
}

namespace panoveer {

namespace {

constexpr std::array<std::uint8_t, 8> signature = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1a, '\n'};

Error invalid(const std::filesystem::path& path, const char* what) {
    return Error(path.filename().string() + ": " + what, std::string(mediaErrorDomain),
                 mediaErrorCode::fileFailedToParse);
}

std::vector<std::uint8_t> readWhole(const std::filesystem::path& path) {
    std::error_code failure;
    const auto size = std::filesystem::file_size(path, failure); // refuses folders
    if (failure)
        throw posixError(path.filename().string(), failure.value());
    std::vector<std::uint8_t> bytes(size);
    std::ifstream file(path, std::ios::binary);
    if (!file.read(reinterpret_cast<char*>(bytes.data()), std::streamsize(size)))
        throw posixError(path.filename().string(), EIO);
    return bytes;
}

FramePtr straightRGBA(const PixelBuffer& picture) {
    auto frame = makeFrame();
    frame->format = AV_PIX_FMT_RGBA;
    frame->width = picture.width();
    frame->height = picture.height();
    // Together these make the encoder write an sRGB chunk.
    frame->color_primaries = AVCOL_PRI_BT709;
    frame->color_trc = AVCOL_TRC_IEC61966_2_1;
    frame->color_range = AVCOL_RANGE_JPEG;
    if (av_frame_get_buffer(frame.get(), 0) < 0)
        throw std::bad_alloc();
    const auto& plane = picture.plane(0);
    for (int y = 0; y < plane.height; ++y) {
        const auto* in = reinterpret_cast<const std::uint8_t*>(plane.data) + std::size_t(y) * plane.rowBytes;
        auto* out = frame->data[0] + y * std::ptrdiff_t(frame->linesize[0]);
        for (int x = 0; x < plane.width; ++x, in += 4, out += 4) {
            out[0] = in[2];
            out[1] = in[1];
            out[2] = in[0];
            out[3] = in[3];
        }
    }
    return frame;
}

PacketPtr encoded(const AVFrame& frame) {
    const auto* codec = avcodec_find_encoder(AV_CODEC_ID_PNG);
    const CodecContextPtr encoder(codec ? avcodec_alloc_context3(codec) : nullptr);
    if (!encoder)
        throw Error("No PNG encoder", std::string(mediaErrorDomain), mediaErrorCode::operationNotSupported);
    encoder->width = frame.width;
    encoder->height = frame.height;
    encoder->pix_fmt = AVPixelFormat(frame.format);
    encoder->time_base = {1, 1};
    encoder->color_range = frame.color_range;
    av_opt_set(encoder->priv_data, "pred", "mixed", 0); // the row filter that packs each row best
    auto packet = makePacket();
    int code = avcodec_open2(encoder.get(), codec, nullptr);
    if (code >= 0)
        code = avcodec_send_frame(encoder.get(), &frame);
    if (code >= 0)
        code = avcodec_send_frame(encoder.get(), nullptr);
    if (code >= 0)
        code = avcodec_receive_packet(encoder.get(), packet.get());
    if (code < 0)
        throw libavError("Cannot encode the picture", code);
    return packet;
}

// Writes all bytes and flushes them to the disk. Answers an errno, or 0.
int writeDurably(const std::filesystem::path& path, std::span<const std::uint8_t> bytes) {
    constexpr mode_t everybodyAsUmaskAllows = 0666;
    const int file = ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, everybodyAsUmaskAllows);
    if (file < 0)
        return errno;
    int failure = 0;
    while (!bytes.empty() && failure == 0) {
        const auto count = ::write(file, bytes.data(), bytes.size());
        if (count >= 0)
            bytes = bytes.subspan(std::size_t(count));
        else if (errno != EINTR)
            failure = errno;
    }
    if (failure == 0 && ::fsync(file) != 0)
        failure = errno;
    if (::close(file) != 0 && failure == 0)
        failure = errno;
    return failure;
}

std::uint32_t bigEndian(const std::uint8_t* bytes) {
    return std::uint32_t(bytes[0]) << 24 | std::uint32_t(bytes[1]) << 16 | std::uint32_t(bytes[2]) << 8 | bytes[3];
}

} // namespace

void writePNG(const PixelBuffer& picture, const std::filesystem::path& path) {
    if (picture.format() != pixelFormat::bgra)
        throw Error("Only BGRA pictures become PNG files, not " + picture.format().text(),
                    std::string(mediaErrorDomain), mediaErrorCode::operationNotSupported);
    const auto packet = encoded(*straightRGBA(picture));
    auto staged = path;
    staged.replace_filename(".panoveer-" + UUID::random().text() + ".tmp"); // short, whatever the name
    int failure = writeDurably(staged, {packet->data, std::size_t(packet->size)});
    if (failure == 0 && ::rename(staged.c_str(), path.c_str()) != 0)
        failure = errno;
    if (failure != 0) {
        ::unlink(staged.c_str());
        throw posixError(path.filename().string(), failure);
    }
}

// A PNG file is the signature and a row of chunks: length, type, data, CRC-32 over type and data (ISO/IEC 15948, 5).
PictureInfo readPNGInfo(const std::filesystem::path& path) {
    const auto bytes = readWhole(path);
    if (bytes.size() < signature.size() || std::memcmp(bytes.data(), signature.data(), signature.size()) != 0)
        throw invalid(path, "not a PNG file");
    const auto* table = av_crc_get_table(AV_CRC_32_IEEE_LE);
    PictureInfo info;
    bool hasData = false;
    constexpr std::size_t frameOfChunk = 12; // length, type and checksum
    for (std::size_t at = signature.size(); at + frameOfChunk <= bytes.size();) {
        const auto* chunk = bytes.data() + at;
        const std::size_t length = bigEndian(chunk);
        if (length > bytes.size() - at - frameOfChunk)
            break;
        const FourCC type(bigEndian(chunk + 4));
        const auto checksum = av_crc(table, UINT32_MAX, chunk + 4, length + 4) ^ UINT32_MAX;
        if (checksum != bigEndian(chunk + 8 + length))
            throw invalid(path, "a PNG chunk is damaged");
        if (type == FourCC("IHDR") && length >= 8) {
            info = {int(bigEndian(chunk + 8)), int(bigEndian(chunk + 12)), 1};
        } else if (type == FourCC("acTL") && length >= 4) {
            info.frameCount = int(bigEndian(chunk + 8));
        } else if (type == FourCC("IDAT")) {
            hasData = true;
        } else if (type == FourCC("IEND")) {
            if (info.width < 1 || info.height < 1 || !hasData)
                throw invalid(path, "the PNG file has no picture");
            return info;
        }
        at += length + frameOfChunk;
    }
    throw invalid(path, "the PNG file is cut short");
}

PixelBufferPtr readPNG(const std::filesystem::path& path) {
    const auto bytes = readWhole(path);
    auto packet = makePacket();
    if (av_new_packet(packet.get(), int(bytes.size())) < 0)
        throw std::bad_alloc();
    std::memcpy(packet->data, bytes.data(), bytes.size());

    const auto* codec = avcodec_find_decoder(AV_CODEC_ID_PNG);
    const CodecContextPtr decoder(codec ? avcodec_alloc_context3(codec) : nullptr);
    if (!decoder)
        throw Error("No PNG decoder", std::string(mediaErrorDomain), mediaErrorCode::decoderNotFound);
    auto frame = makeFrame();
    int code = avcodec_open2(decoder.get(), codec, nullptr);
    if (code >= 0)
        code = avcodec_send_packet(decoder.get(), packet.get());
    if (code >= 0)
        code = avcodec_send_packet(decoder.get(), nullptr);
    if (code >= 0)
        code = avcodec_receive_frame(decoder.get(), frame.get());
    if (code < 0)
        throw libavError(path.filename().string(), code, mediaErrorCode::fileFailedToParse);
    return FrameConverter(pixelFormat::bgra, {}).convert(std::move(frame));
}

} // namespace panoveer
