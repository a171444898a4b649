#include "Platform/Media/AlphaLayerDecoder.h"

#include "Platform/Media/MovieBox.h"

#include <algorithm>
#include <cstring>
#include <functional>
#include <new>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/frame.h>
#include <libavutil/mem.h>
#include <libavutil/pixdesc.h>
}

namespace panoveer {

namespace {

// More than any decoder holds back: 16 pictures in its buffer, and one for each of its threads.
constexpr std::size_t mostPictures = 64;

using Bytes = std::vector<std::uint8_t>;
using View = std::span<const std::uint8_t>;

// Rec. ITU-T H.265, tables 7-1 and D.2.
constexpr int videoParameterSet = 32;
constexpr int sequenceParameterSet = 33;
constexpr int pictureParameterSet = 34;
constexpr int prefixSEI = 39;
constexpr std::uint8_t alphaChannelInformation = 165;

constexpr std::size_t unitHeaderSize = 2;

int typeOf(View unit) { return unit[0] >> 1 & 63; }
int layerOf(View unit) { return (unit[0] & 1) << 5 | unit[1] >> 3; }

// The head of HEVCDecoderConfigurationRecord (ISO/IEC 14496-15, 8.3.3.1) up to its arrays, and where it tells the size
// of lengths. libavformat appends the arrays of `lhvC`.
constexpr std::size_t recordSize = 23;
constexpr std::size_t lengthSizeOffset = 21;

View extradata(const AVCodecParameters& parameters) {
    return {parameters.extradata, parameters.extradata ? std::size_t(std::max(parameters.extradata_size, 0)) : 0};
}

// Calls with each NAL unit of the arrays, as far as they are whole.
void forEachParameterUnit(View record, const std::function<void(View)>& call) {
    if (record.size() < recordSize || record[0] != 1)
        return;
    auto rest = record.subspan(recordSize);
    for (int arrays = record[recordSize - 1]; arrays > 0 && rest.size() >= 3; --arrays) {
        auto units = readBigEndian(rest.subspan(1, 2));
        rest = rest.subspan(3);
        for (; units > 0 && rest.size() >= 2; --units) {
            const auto size = readBigEndian(rest.first(2));
            rest = rest.subspan(2);
            if (size > rest.size())
                return;
            if (size > unitHeaderSize)
                call(rest.first(size));
            rest = rest.subspan(size);
        }
    }
}

bool isAlphaInformation(View unit) {
    return typeOf(unit) == prefixSEI && unit[unitHeaderSize] == alphaChannelInformation;
}

// Behind the message's type and size: alpha_channel_cancel_flag, then alpha_channel_use_idc in three bits, which is 1
// for colour that is multiplied with alpha.
bool saysPremultiplied(View unit) {
    constexpr std::size_t use = unitHeaderSize + 2;
    return isAlphaInformation(unit) && unit.size() > use && unit[use] >> 4 == 1;
}

// A sequence parameter set that takes its size from the video parameter set's extension cannot stand alone: it says 7
// where a base layer's counts its sub-layers.
bool standsAlone(View sequence) { return (sequence[unitHeaderSize] >> 1 & 7) != 7; }

// As a unit of a base layer, behind a start code.
void appendAsBase(Bytes& stream, View unit) {
    constexpr std::uint8_t startCode[] = {0, 0, 0, 1};
    stream.insert(stream.end(), std::begin(startCode), std::end(startCode));
    stream.push_back(unit[0] & 0xfe);
    stream.push_back(unit[1] & 0x07);
    stream.insert(stream.end(), unit.begin() + unitHeaderSize, unit.end());
}

Bytes layerParameters(View record) {
    Bytes stream;
    forEachParameterUnit(record, [&](View unit) {
        if (typeOf(unit) == videoParameterSet ||
            (layerOf(unit) == 1 && (typeOf(unit) == sequenceParameterSet || typeOf(unit) == pictureParameterSet)))
            appendAsBase(stream, unit);
    });
    return stream;
}

// Fully visible, of the size of a picture's luma.
AVBufferRef* opaquePlane(const AVFrame& color) {
    auto* plane = av_buffer_alloc(std::size_t(color.linesize[0]) * std::size_t(color.height));
    if (!plane)
        throw std::bad_alloc();
    std::memset(plane->data, 255, plane->size);
    return plane;
}

// A sample whose distance from `zero` was multiplied with alpha of `opaque`.
std::uint8_t divided(std::uint8_t sample, int zero, int alpha, int opaque) {
    if (alpha == opaque || alpha == 0)
        return sample;
    const int distance = (sample - zero) * opaque;
    return std::uint8_t(std::clamp(zero + (distance + (distance < 0 ? -alpha : alpha) / 2) / alpha, 0, 255));
}

// Y'CbCr depends on R'G'B' by an affine map that takes black to its zero, so it is divided as they would be; chroma by
// the alpha of all that share it.
void divideByAlpha(AVFrame& color, const AVFrame& alpha) {
    if (av_frame_make_writable(&color) < 0)
        throw std::bad_alloc();
    const int black = color.color_range == AVCOL_RANGE_JPEG ? 0 : 16;
    const auto alphaAt = [&](int x, int y) {
        return int(alpha.data[0][std::min(y, color.height - 1) * alpha.linesize[0] + std::min(x, color.width - 1)]);
    };
    for (int y = 0; y < color.height; ++y)
        for (int x = 0; x < color.width; ++x) {
            auto& luma = color.data[0][y * color.linesize[0] + x];
            luma = divided(luma, black, alphaAt(x, y), 255);
        }
    for (int y = 0; y < color.height; y += 2)
        for (int x = 0; x < color.width; x += 2) {
            const int sum = alphaAt(x, y) + alphaAt(x + 1, y) + alphaAt(x, y + 1) + alphaAt(x + 1, y + 1);
            for (const int plane : {1, 2}) {
                auto& chroma = color.data[plane][y / 2 * color.linesize[plane] + x / 2];
                chroma = divided(chroma, 128, sum, 4 * 255);
            }
        }
}

// YUVJ420P is what libavcodec calls it in full range.
bool isEightBit420(int format) { return format == AV_PIX_FMT_YUV420P || format == AV_PIX_FMT_YUVJ420P; }

int depthOf(const AVFrame& picture) {
    const auto* description = av_pix_fmt_desc_get(AVPixelFormat(picture.format));
    return description ? description->comp[0].depth : 0;
}

} // namespace

bool AlphaLayerDecoder::isPresent(const AVCodecParameters& parameters) {
    if (parameters.codec_id != AV_CODEC_ID_HEVC || !isEightBit420(parameters.format))
        return false;
    bool saysAlpha = false, hasSequence = false;
    forEachParameterUnit(extradata(parameters), [&](View unit) {
        saysAlpha |= isAlphaInformation(unit);
        hasSequence |= typeOf(unit) == sequenceParameterSet && layerOf(unit) == 1 && standsAlone(unit);
    });
    return saysAlpha && hasSequence;
}

AlphaLayerDecoder::AlphaLayerDecoder(const AVCodecParameters& parameters)
    : lengthSize_((extradata(parameters)[lengthSizeOffset] & 3) + 1),
      decoder_(avcodec_alloc_context3(avcodec_find_decoder(AV_CODEC_ID_HEVC))) {
    const auto stream = layerParameters(extradata(parameters));
    forEachParameterUnit(extradata(parameters), [&](View unit) { isPremultiplied_ |= saysPremultiplied(unit); });
    if (!decoder_)
        throw std::bad_alloc();
    decoder_->extradata = static_cast<std::uint8_t*>(av_mallocz(stream.size() + AV_INPUT_BUFFER_PADDING_SIZE));
    if (!decoder_->extradata)
        throw std::bad_alloc();
    std::ranges::copy(stream, decoder_->extradata);
    decoder_->extradata_size = int(stream.size());
    // Threads that each decode a picture would give it out later than the colour's decoder does.
    decoder_->thread_type = FF_THREAD_SLICE;
    decoder_->flags |= AV_CODEC_FLAG_UNALIGNED;
    if (const int code = avcodec_open2(decoder_.get(), nullptr, nullptr); code < 0)
        throw libavError("Cannot open the decoder of the alpha layer", code, mediaErrorCode::decoderNotFound);
}

void AlphaLayerDecoder::send(const AVPacket& packet) {
    Bytes stream;
    const auto lengthSize = std::size_t(lengthSize_);
    for (View rest(packet.data, std::size_t(packet.size)); rest.size() > lengthSize;) {
        const auto size = readBigEndian(rest.first(lengthSize));
        rest = rest.subspan(lengthSize);
        if (size > rest.size())
            break;
        if (size > unitHeaderSize && layerOf(rest) == 1)
            appendAsBase(stream, rest.first(size));
        rest = rest.subspan(size);
    }
    if (stream.empty())
        return;
    auto layer = makePacket();
    if (av_new_packet(layer.get(), int(stream.size())) < 0)
        throw std::bad_alloc();
    std::ranges::copy(stream, layer->data);
    layer->pts = packet.pts;
    layer->dts = packet.dts;
    layer->flags = packet.flags;
    // A packet that does not decode leaves its picture opaque.
    avcodec_send_packet(decoder_.get(), layer.get());
    receive();
}

void AlphaLayerDecoder::finish() {
    avcodec_send_packet(decoder_.get(), nullptr);
    receive();
}

void AlphaLayerDecoder::flush() {
    avcodec_flush_buffers(decoder_.get());
    pictures_.clear();
}

void AlphaLayerDecoder::receive() {
    for (auto picture = makeFrame(); avcodec_receive_frame(decoder_.get(), picture.get()) >= 0; picture = makeFrame())
        pictures_.push_back(std::move(picture));
    // Without pictures of colour to fetch them they would pile up.
    while (pictures_.size() > mostPictures)
        pictures_.pop_front();
}

void AlphaLayerDecoder::addTo(AVFrame& color) {
    if (!isEightBit420(color.format))
        return;
    if (color.format == AV_PIX_FMT_YUVJ420P)
        color.color_range = AVCOL_RANGE_JPEG;
    const auto time = color.best_effort_timestamp;
    while (!pictures_.empty() && pictures_.front()->best_effort_timestamp < time)
        pictures_.pop_front();
    const bool hasPicture = !pictures_.empty() && pictures_.front()->best_effort_timestamp == time &&
                            pictures_.front()->width == color.width && pictures_.front()->height == color.height &&
                            depthOf(*pictures_.front()) == 8;
    if (hasPicture && isPremultiplied_)
        divideByAlpha(color, *pictures_.front());
    constexpr int alphaPlane = 3;
    color.format = AV_PIX_FMT_YUVA420P;
    if (hasPicture) {
        const auto& picture = *pictures_.front();
        color.buf[alphaPlane] = av_buffer_ref(picture.buf[0]);
        color.data[alphaPlane] = picture.data[0];
        color.linesize[alphaPlane] = picture.linesize[0];
    } else {
        color.buf[alphaPlane] = opaquePlane(color);
        color.data[alphaPlane] = color.buf[alphaPlane]->data;
        color.linesize[alphaPlane] = color.linesize[0];
    }
    if (!color.buf[alphaPlane])
        throw std::bad_alloc();
}

} // namespace panoveer
