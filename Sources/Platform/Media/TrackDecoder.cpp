#include "Platform/Media/TrackDecoder.h"

#include <new>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
}

namespace panoveer {

TrackDecoder::TrackDecoder(const MediaAsset& asset, int streamIndex, const std::atomic<bool>& interrupt)
    : reader_(asset, streamIndex, interrupt), packet_(makePacket()) {}

void TrackDecoder::openDecoder(const AVCodecParameters* parameters, std::string_view medium,
                               const std::function<void(AVCodecContext&)>& setUp) {
    const auto* codec = parameters ? avcodec_find_decoder(parameters->codec_id) : nullptr;
    if (!codec)
        throw Error(reader_.name() + ": no decoder for the " + std::string(medium) + " track",
                    std::string(mediaErrorDomain), mediaErrorCode::decoderNotFound);
    decoder_.reset(avcodec_alloc_context3(codec));
    if (!decoder_)
        throw std::bad_alloc();
    int code = avcodec_parameters_to_context(decoder_.get(), parameters);
    decoder_->pkt_timebase = reader_.stream().time_base;
    setUp(*decoder_);
    if (code >= 0)
        code = avcodec_open2(decoder_.get(), codec, nullptr);
    if (code < 0)
        throw libavError(reader_.name() + ": cannot open the " + std::string(medium) + " decoder", code,
                         mediaErrorCode::decoderNotFound);
}

FramePtr TrackDecoder::receive() {
    auto frame = makeFrame();
    for (;;) {
        reader_.throwIfInterrupted();
        const int code = avcodec_receive_frame(decoder_.get(), frame.get());
        if (code >= 0) {
            ++decodedFrameCount_;
            return frame;
        }
        if (code == AVERROR(EAGAIN))
            feed();
        else if (code != AVERROR_EOF)
            noteDecodeError(code);
        else if (reader_.endError())
            throw *reader_.endError();
        else
            return nullptr;
    }
}

void TrackDecoder::noteDecodeError(int code) {
    if (code == AVERROR(ENOMEM))
        throw std::bad_alloc();
    ++decodeErrorCount_;
    if (!decodeError_)
        decodeError_ = libavError(reader_.name(), code, mediaErrorCode::decodeFailed);
}

} // namespace panoveer
