#include "Platform/Media/MediaAsset.h"

#include "Platform/Core/Log.h"
#include "Platform/Media/AlphaLayerDecoder.h"
#include "Platform/Media/AudioTracks.h"
#include "Platform/Media/ColorDescription.h"
#include "Platform/Media/MediaSupport.h"
#include "Platform/Media/MovieDecoder.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <new>
#include <span>
#include <string_view>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/opt.h>
#include <libavutil/parseutils.h>
#include <libavutil/pixdesc.h>
#include <libavutil/stereo3d.h>
}

namespace panoveer {

namespace {

constexpr Logger logger("Media");

// The codecs of the native road, and the code of each where the container gives none.
struct NativeCodec {
    AVCodecID id;
    FourCC code;
};
constexpr NativeCodec nativeCodecs[] = {
    {AV_CODEC_ID_H264, "avc1"},  {AV_CODEC_ID_HEVC, "hvc1"},  {AV_CODEC_ID_PRORES, "apcn"},
    {AV_CODEC_ID_MJPEG, "jpeg"}, {AV_CODEC_ID_MPEG4, "mp4v"}, {AV_CODEC_ID_DVVIDEO, "dvc "},
};

const NativeCodec* nativeCodec(AVCodecID id) {
    const auto* found = std::ranges::find(nativeCodecs, id, &NativeCodec::id);
    return found == std::end(nativeCodecs) ? nullptr : found;
}

bool isMatroska(const AVFormatContext& input) {
    return std::string_view(input.iformat->name).find("matroska") != std::string_view::npos;
}

bool isQuickTime(const AVFormatContext& input) {
    return std::string_view(input.iformat->name).find("mov") != std::string_view::npos;
}

FourCC codecType(const AVCodecParameters& parameters, FourCC otherwise) {
    return parameters.codec_tag != 0 ? fourCCFromTag(parameters.codec_tag) : otherwise;
}

template<class Data>
const Data* codedSideData(const AVCodecParameters& parameters, AVPacketSideDataType type, std::size_t size) {
    const auto* entry = av_packet_side_data_get(parameters.coded_side_data, parameters.nb_coded_side_data, type);
    return entry && entry->size >= size ? reinterpret_cast<const Data*>(entry->data) : nullptr;
}

// In microsecond ticks the container's start loses what the stream that starts first says exactly.
double startOffsetSeconds(const AVFormatContext& input) {
    if (input.start_time == AV_NOPTS_VALUE || input.start_time < 1)
        return 0;
    for (unsigned i = 0; i < input.nb_streams; ++i) {
        const auto& stream = *input.streams[i];
        if (stream.start_time != AV_NOPTS_VALUE &&
            std::abs(av_rescale_q(stream.start_time, stream.time_base, AV_TIME_BASE_Q) - input.start_time) <= 1)
            return double(stream.start_time) * stream.time_base.num / stream.time_base.den;
    }
    return double(input.start_time) / AV_TIME_BASE;
}

double durationSeconds(const AVFormatContext& input) {
    if (input.duration < 1)
        return 0;
    double seconds = double(input.duration) / AV_TIME_BASE;
    // A Matroska file states where it ends, not how long it runs.
    if (isMatroska(input) && input.duration_estimation_method != AVFMT_DURATION_FROM_PTS)
        seconds -= startOffsetSeconds(input);
    return std::max(seconds, 0.0);
}

// On the container's axis; 0 when not known.
double endSeconds(const AVStream& stream) {
    double duration = double(stream.duration) * av_q2d(stream.time_base);
    if (stream.duration == AV_NOPTS_VALUE) {
        // Matroska tells it in a tag, "00:00:02.040000000".
        const auto* tag = av_dict_get(stream.metadata, "DURATION", nullptr, AV_DICT_IGNORE_SUFFIX);
        std::int64_t microseconds = 0;
        if (!tag || av_parse_time(&microseconds, tag->value, 1) < 0)
            return 0;
        duration = double(microseconds) / AV_TIME_BASE;
    }
    const bool hasStart = stream.start_time != AV_NOPTS_VALUE;
    return std::max(duration, 0.0) + (hasStart ? double(stream.start_time) * av_q2d(stream.time_base) : 0);
}

// libav's display matrix is the one of a QuickTime track header: a b u, c d v, tx ty w in 16.16 fixed point, points
// being row vectors. Its scale is taken out, since the pixel aspect ratio accounts for it already.
AffineTransform preferredTransform(const AVCodecParameters& parameters) {
    const auto* matrix = codedSideData<std::int32_t>(parameters, AV_PKT_DATA_DISPLAYMATRIX, 9 * sizeof(std::int32_t));
    if (!matrix)
        return {};
    constexpr double one = 65536;
    const double horizontal = std::hypot(matrix[0], matrix[1]), vertical = std::hypot(matrix[3], matrix[4]);
    if (horizontal == 0 || vertical == 0)
        return {};
    // Adding 0 turns a negative zero into a plain one.
    return {matrix[0] / horizontal + 0,
            matrix[1] / horizontal + 0,
            matrix[3] / vertical + 0,
            matrix[4] / vertical + 0,
            matrix[6] / one,
            matrix[7] / one};
}

// The number of views that the decoder finds in the parameter sets.
unsigned viewCount(const AVCodecParameters& parameters) {
    const auto* codec = avcodec_find_decoder(parameters.codec_id);
    const CodecContextPtr context(avcodec_alloc_context3(codec));
    if (!codec || !context || avcodec_parameters_to_context(context.get(), &parameters) < 0 ||
        avcodec_open2(context.get(), codec, nullptr) < 0)
        return 0;
    unsigned count = 0;
    av_opt_get_array_size(context->priv_data, "view_ids_available", 0, &count);
    return count;
}

bool isMultiview(const AVStream& stream) {
    return stream.codecpar->codec_id == AV_CODEC_ID_HEVC && (stream.disposition & AV_DISPOSITION_MULTILAYER) != 0 &&
           viewCount(*stream.codecpar) > 1;
}

VideoFormatDescription formatDescription(const AVStream& stream, FourCC code, bool hasManyViews) {
    const auto& parameters = *stream.codecpar;
    VideoFormatDescription description;
    description.codecType = codecType(parameters, code);
    description.codecName = avcodec_get_name(parameters.codec_id);
    description.width = parameters.width;
    description.height = parameters.height;
    description.color = colorAttachments(parameters);
    description.isFullRange = parameters.color_range == AVCOL_RANGE_JPEG;
    if (const auto* pixels = av_pix_fmt_desc_get(AVPixelFormat(parameters.format))) {
        description.pixelFormatName = pixels->name;
        description.containsAlpha = (pixels->flags & AV_PIX_FMT_FLAG_ALPHA) != 0;
        description.isFullRange |= description.pixelFormatName.starts_with("yuvj");
    }
    if (AlphaLayerDecoder::isPresent(parameters)) {
        description.containsAlpha = true;
        description.pixelFormatName = av_get_pix_fmt_name(AV_PIX_FMT_YUVA420P);
    }
    // The eyes are those that the sample entry names; without its word the views of a stream are just views.
    const auto* stereo = codedSideData<AVStereo3D>(parameters, AV_PKT_DATA_STEREO3D, sizeof(AVStereo3D));
    if (hasManyViews && stereo && stereo->type != AV_STEREO3D_2D) {
        const bool hasBoth = stereo->view == AV_STEREO3D_VIEW_PACKED;
        description.hasLeftStereoEyeView = hasBoth || stereo->view == AV_STEREO3D_VIEW_LEFT;
        description.hasRightStereoEyeView = hasBoth || stereo->view == AV_STEREO3D_VIEW_RIGHT;
    }
    return description;
}

// The rate of the frames that follow, from their time stamps; 0 when there are not enough of them.
double measuredFrameRate(AVFormatContext& input, int streamIndex) {
    constexpr std::size_t enough = 120;
    constexpr int mostPackets = 2000; // of all streams
    std::vector<double> times;
    const auto packet = makePacket();
    for (int i = 0; i < mostPackets && times.size() < enough && av_read_frame(&input, packet.get()) >= 0; ++i) {
        if (packet->stream_index == streamIndex && packet->pts != AV_NOPTS_VALUE)
            times.push_back(double(packet->pts) * av_q2d(input.streams[streamIndex]->time_base));
        av_packet_unref(packet.get());
    }
    if (times.size() < 2)
        return 0;
    const auto [first, last] = std::ranges::minmax(times);
    if (last <= first)
        return 0;
    const double intervals = double(times.size() - 1);
    // Time stamps in milliseconds hide the exact rate: the usual one nearest to it explains them as well.
    constexpr double usual[] = {24000.0 / 1001, 24, 25, 30000.0 / 1001, 30, 48, 50, 60000.0 / 1001, 60, 90, 120};
    const auto error = [&](double rate) { return std::abs(intervals / rate - (last - first)); };
    const double nearest = *std::ranges::min_element(usual, {}, error);
    constexpr double stampTolerance = 0.0011;
    return error(nearest) <= stampTolerance ? nearest : intervals / (last - first);
}

double nominalFrameRate(AVFormatContext& input, const AVStream& stream) {
    const auto rate = [](AVRational value) { return value.num > 0 && value.den > 0 ? av_q2d(value) : 0.0; };
    const double average = rate(stream.avg_frame_rate);
    // QuickTime sample tables count every frame; elsewhere the average is an estimate from the first few.
    constexpr double highestBelieved = 240;
    if (average > 0 && (isQuickTime(input) || average <= highestBelieved))
        return average;
    if (const double measured = measuredFrameRate(input, stream.index); measured > 0)
        return measured;
    return rate(stream.r_frame_rate);
}

VideoTrack videoTrack(AVFormatContext& input, AVStream& stream, FourCC code) {
    const auto& parameters = *stream.codecpar;
    const bool hasManyViews = isMultiview(stream);
    VideoTrack track;
    track.streamIndex = stream.index;
    const auto aspect = av_guess_sample_aspect_ratio(&input, &stream, nullptr);
    track.naturalWidth = parameters.width * (aspect.num > 0 && aspect.den > 0 ? av_q2d(aspect) : 1.0);
    track.naturalHeight = parameters.height;
    track.preferredTransform = preferredTransform(parameters);
    track.formatDescriptions.push_back(formatDescription(stream, code, hasManyViews));
    track.isDecodable = !hasManyViews && parameters.width > 0 && parameters.height > 0 &&
                        avcodec_find_decoder(parameters.codec_id) != nullptr;
    track.decoderParameters = copyOf(parameters);
    return track;
}

// An encoder may state mastering display and light level in the stream alone, where only decoding finds them.
void completeFromFirstPicture(const MediaAsset& asset, VideoTrack& track) {
    try {
        const std::atomic<bool> interrupt = false;
        MovieDecoder decoder(asset, track, interrupt);
        if (const auto first = decoder.keyFrame(0)) {
            auto& color = track.formatDescriptions.front().color;
            color = completed(std::move(color), colorAttachments(*first->frame));
        }
    } catch (const Error& failure) {
        logger.info("no first picture: {}", failure.what());
    }
}

} // namespace

bool MediaAsset::isPlayable() const {
    return std::ranges::any_of(videoTracks_, [](const VideoTrack& track) {
        const auto& description = track.formatDescriptions.front();
        return track.isDecodable || (description.hasLeftStereoEyeView && description.hasRightStereoEyeView);
    });
}

std::shared_ptr<const MediaAsset> MediaAsset::load(const URL& url) {
    const auto input = openMovie(url);
    if (const int code = avformat_find_stream_info(input.get(), nullptr); code < 0)
        throw libavError(nameInMessages(url), code, mediaErrorCode::fileFailedToParse);

    const std::shared_ptr<MediaAsset> asset(new MediaAsset);
    asset->url_ = url;
    asset->startOffsetSeconds_ = panoveer::startOffsetSeconds(*input);
    asset->durationSeconds_ = panoveer::durationSeconds(*input);
    asset->audioTracks_ = audioTracksOf(*input, url);
    for (auto* stream : std::span(input->streams, input->nb_streams)) {
        const auto& parameters = *stream->codecpar;
        constexpr int stills = AV_DISPOSITION_ATTACHED_PIC | AV_DISPOSITION_TIMED_THUMBNAILS;
        if (parameters.codec_type != AVMEDIA_TYPE_VIDEO || (stream->disposition & stills) != 0)
            continue;
        asset->videoEndSeconds_ = std::max(asset->videoEndSeconds_, endSeconds(*stream) - asset->startOffsetSeconds_);
        if (const auto* codec = nativeCodec(parameters.codec_id))
            asset->videoTracks_.push_back(videoTrack(*input, *stream, codec->code));
    }
    // Measuring reads on in the file, so it comes after all that the head of the file tells.
    for (auto& track : asset->videoTracks_) {
        track.nominalFrameRate = panoveer::nominalFrameRate(*input, *input->streams[track.streamIndex]);
        const auto& color = track.formatDescriptions.front().color;
        if (track.isDecodable && color.transfer == AVCOL_TRC_SMPTE2084 && color.masteringDisplayColorVolume.empty())
            completeFromFirstPicture(*asset, track);
    }
    return asset;
}

} // namespace panoveer
