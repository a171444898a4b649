#include "Platform/Media/FrameConverter.h"

#include "Platform/Media/ColorDescription.h"

#include <cstdlib>
#include <cstring>
#include <new>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/opt.h>
#include <libavutil/pixdesc.h>
#include <libswscale/swscale.h>
}

namespace panoveer {

namespace {

constexpr std::size_t alignment = 64;
constexpr int unspecifiedMatrix = 2;

// The frame format with exactly the layout of a picture format.
AVPixelFormat libavFormat(FourCC format) {
    using namespace pixelFormat;
    if (format == bgra)
        return AV_PIX_FMT_BGRA;
    if (format == yCbCr420VideoRange || format == yCbCr420FullRange)
        return AV_PIX_FMT_NV12;
    if (format == yCbCr420TenBitVideoRange || format == yCbCr420TenBitFullRange)
        return AV_PIX_FMT_P010LE;
    if (format == yCbCr422TenBitVideoRange)
        return AV_PIX_FMT_P210LE;
    if (format == yCbCr444TenBitVideoRange)
        return AV_PIX_FMT_P410LE;
    return AV_PIX_FMT_NONE;
}

// The "J" formats name the full range in the format; it is told apart from the layout here.
AVPixelFormat withoutRange(AVPixelFormat format) {
    switch (format) {
    case AV_PIX_FMT_YUVJ420P: return AV_PIX_FMT_YUV420P;
    case AV_PIX_FMT_YUVJ422P: return AV_PIX_FMT_YUV422P;
    case AV_PIX_FMT_YUVJ444P: return AV_PIX_FMT_YUV444P;
    case AV_PIX_FMT_YUVJ440P: return AV_PIX_FMT_YUV440P;
    case AV_PIX_FMT_YUVJ411P: return AV_PIX_FMT_YUV411P;
    default: return format;
    }
}

bool isFullRange(const AVFrame& frame) {
    const auto format = AVPixelFormat(frame.format);
    return frame.color_range == AVCOL_RANGE_JPEG || withoutRange(format) != format;
}

bool isAligned(const void* data, int rowBytes) {
    return reinterpret_cast<std::uintptr_t>(data) % alignment == 0 && rowBytes > 0 &&
           std::size_t(rowBytes) % alignment == 0;
}

// Planes of native words, nothing packed, nothing shifted: Y', Cb, Cr, and alpha where the format has it.
bool isPlanarYCbCr(const AVPixFmtDescriptor& format) {
    const auto barred = AV_PIX_FMT_FLAG_RGB | AV_PIX_FMT_FLAG_HWACCEL | AV_PIX_FMT_FLAG_BE | AV_PIX_FMT_FLAG_FLOAT |
                        AV_PIX_FMT_FLAG_PAL | AV_PIX_FMT_FLAG_BITSTREAM;
    if (format.nb_components < 3 || (format.flags & barred) != 0)
        return false;
    for (int i = 0; i < format.nb_components; ++i)
        if (format.comp[i].plane != i || format.comp[i].shift != 0 || format.comp[i].depth != format.comp[0].depth)
            return false;
    return true;
}

bool hasAlpha(const AVPixFmtDescriptor& format) { return (format.flags & AV_PIX_FMT_FLAG_ALPHA) != 0; }

// Left and midway between rows is what MPEG codecs mean when they say nothing.
AVChromaLocation chromaLocation(const AVFrame& frame) {
    return frame.chroma_location == AVCHROMA_LOC_UNSPECIFIED ? AVCHROMA_LOC_LEFT : frame.chroma_location;
}

// The matrix that Y'CbCr without a matrix is taken to have: that of its generation, as players do.
int matrixOf(const AVFrame& frame, const ColorAttachments& color) {
    if (color.matrix != unspecifiedMatrix)
        return color.matrix;
    constexpr int tallestStandardDefinition = 576;
    return frame.height <= tallestStandardDefinition ? int(AVCOL_SPC_SMPTE170M) : int(AVCOL_SPC_BT709);
}

PixelPlane planeOf(const AVFrame& frame, int index, int width, int height) {
    return {reinterpret_cast<std::byte*>(frame.data[index]), std::size_t(frame.linesize[index]), width, height};
}

} // namespace

// Memory for single planes, reused. The planes may outlive the pool.
class FrameConverter::PlanePool {
public:
    explicit PlanePool(std::size_t bytes) : bytes_(bytes), pool_(av_buffer_pool_init(bytes, allocate)) {
        if (!pool_)
            throw std::bad_alloc();
    }
    ~PlanePool() { av_buffer_pool_uninit(&pool_); }
    PlanePool(const PlanePool&) = delete;
    PlanePool& operator=(const PlanePool&) = delete;

    std::size_t bytes() const { return bytes_; }

    std::shared_ptr<AVBufferRef> acquire() {
        auto* buffer = av_buffer_pool_get(pool_);
        if (!buffer)
            throw std::bad_alloc();
        return {buffer, [](AVBufferRef* reference) { av_buffer_unref(&reference); }};
    }

private:
    static AVBufferRef* allocate(std::size_t bytes) {
        auto* memory = static_cast<std::uint8_t*>(std::aligned_alloc(alignment, bytes));
        auto* buffer = memory ? av_buffer_create(
                                    memory, bytes, [](void*, std::uint8_t* data) { std::free(data); }, nullptr, 0)
                              : nullptr;
        if (!buffer)
            std::free(memory);
        return buffer;
    }

    std::size_t bytes_;
    AVBufferPool* pool_;
};

struct FrameConverter::Scaling {
    struct Key {
        int sourceWidth, sourceHeight, sourceFormat, width, height, matrix, chromaLocation;
        bool isFullRange;
        friend bool operator==(const Key&, const Key&) = default;
    };
    Key key;
    ScalerPtr context;
};

FrameConverter::FrameConverter(FourCC format, ColorAttachments color)
    : format_(format), layout_(layoutOf(format).value_or(PixelFormatLayout())), color_(std::move(color)) {
    if (!canDeliver(format))
        throw Error("Cannot decode into pixel format " + format.text(), std::string(mediaErrorDomain),
                    mediaErrorCode::operationNotSupported);
}

FrameConverter::~FrameConverter() = default;

bool FrameConverter::canDeliver(FourCC format) { return libavFormat(format) != AV_PIX_FMT_NONE; }

void FrameConverter::setOutputSize(int width, int height) { outputSize_ = {width, height}; }

PixelBufferPtr FrameConverter::convert(FramePtr frame) {
    auto color = completed(color_, colorAttachments(*frame));
    PixelBufferPtr picture;
    if (!outputSize_ || outputSize_ == std::pair(frame->width, frame->height)) {
        picture = adopt(frame);
        if (!picture)
            picture = rewrite(frame);
        if (!picture)
            picture = makeBGRA(*frame);
    }
    if (!picture)
        picture = scale(*frame);
    picture->color() = std::move(color);
    return picture;
}

PixelBufferPtr FrameConverter::adopt(FramePtr& frame) const {
    const auto wanted = libavFormat(format_);
    if (AVPixelFormat(frame->format) != wanted || (layout_.isYCbCr() && isFullRange(*frame) != layout_.isFullRange))
        return nullptr;
    std::vector<PixelPlane> planes;
    for (int i = 0; i < layout_.planeCount; ++i) {
        if (!isAligned(frame->data[i], frame->linesize[i]))
            return nullptr;
        planes.push_back(planeOf(*frame, i,
                                 i == 0 ? frame->width : AV_CEIL_RSHIFT(frame->width, layout_.chromaWidthShift),
                                 i == 0 ? frame->height : AV_CEIL_RSHIFT(frame->height, layout_.chromaHeightShift)));
    }
    const int width = frame->width, height = frame->height;
    return PixelBuffer::adopt(format_, width, height, std::move(planes), std::shared_ptr<AVFrame>(std::move(frame)));
}

void FrameConverter::interleaveChroma(const AVFrame& frame, const SampleMapper& mapper,
                                      const PixelPlane& target) const {
    for (int y = 0; y < target.height; ++y)
        mapper.interleaveRow(reinterpret_cast<const std::byte*>(frame.data[1] + y * std::ptrdiff_t(frame.linesize[1])),
                             reinterpret_cast<const std::byte*>(frame.data[2] + y * std::ptrdiff_t(frame.linesize[2])),
                             target.data + std::size_t(y) * target.rowBytes, std::size_t(target.width));
}

PixelBufferPtr FrameConverter::rewrite(FramePtr& frame) {
    const auto* source = av_pix_fmt_desc_get(withoutRange(AVPixelFormat(frame->format)));
    if (!source || !layout_.isYCbCr() || !isPlanarYCbCr(*source) || source->log2_chroma_w != layout_.chromaWidthShift ||
        source->log2_chroma_h != layout_.chromaHeightShift)
        return nullptr;
    const SampleScale from{source->comp[0].depth, isFullRange(*frame), false};
    const SampleScale to{layout_.bytesPerSample == 1 ? 8 : 10, layout_.isFullRange, false};
    if (!mappers_ || mappers_->source != from) {
        auto fromChroma = from, toChroma = to;
        fromChroma.isChroma = toChroma.isChroma = true;
        mappers_.emplace(from, SampleMapper(from, to), SampleMapper(fromChroma, toChroma));
    }

    if (from != to || to.depth != 8 || !isAligned(frame->data[0], frame->linesize[0])) {
        auto picture = acquire(frame->width, frame->height);
        const auto& luma = picture->plane(0);
        for (int y = 0; y < luma.height; ++y)
            mappers_->luma.mapRow(
                reinterpret_cast<const std::byte*>(frame->data[0] + y * std::ptrdiff_t(frame->linesize[0])),
                luma.data + std::size_t(y) * luma.rowBytes, std::size_t(luma.width));
        interleaveChroma(*frame, mappers_->chroma, picture->plane(1));
        return picture;
    }

    PixelPlane chroma{nullptr, 0, AV_CEIL_RSHIFT(frame->width, layout_.chromaWidthShift),
                      AV_CEIL_RSHIFT(frame->height, layout_.chromaHeightShift)};
    chroma.rowBytes = (2 * std::size_t(chroma.width) + alignment - 1) / alignment * alignment;
    // SIMD kernels may read one vector past the last row.
    const auto bytes = chroma.rowBytes * std::size_t(chroma.height) + alignment;
    if (!chromaPool_ || chromaPool_->bytes() != bytes)
        chromaPool_ = std::make_unique<PlanePool>(bytes);
    auto memory = chromaPool_->acquire();
    chroma.data = reinterpret_cast<std::byte*>(memory->data);
    interleaveChroma(*frame, mappers_->chroma, chroma);

    const int width = frame->width, height = frame->height;
    const auto luma = planeOf(*frame, 0, width, height);
    struct Owner {
        FramePtr luma;
        std::shared_ptr<AVBufferRef> chroma;
    };
    return PixelBuffer::adopt(format_, width, height, {luma, chroma},
                              std::make_shared<Owner>(std::move(frame), std::move(memory)));
}

PixelBufferPtr FrameConverter::makeBGRA(const AVFrame& frame) {
    const auto* source = av_pix_fmt_desc_get(AVPixelFormat(frame.format));
    YCbCrShape shape;
    if (format_ != pixelFormat::bgra || !source || !isPlanarYCbCr(*source) || source->log2_chroma_w > 1 ||
        source->log2_chroma_h > 1 ||
        !lumaWeights(matrixOf(frame, completed(color_, colorAttachments(frame))), shape.kr, shape.kb) ||
        av_chroma_location_enum_to_pos(&shape.chromaX, &shape.chromaY, chromaLocation(frame)) < 0)
        return nullptr;
    shape.depth = source->comp[0].depth;
    shape.isFullRange = isFullRange(frame);
    shape.hasAlpha = hasAlpha(*source);
    shape.chromaWidthShift = source->log2_chroma_w;
    shape.chromaHeightShift = source->log2_chroma_h;
    if (!bgraKernel_ || bgraKernel_->shape() != shape)
        bgraKernel_.emplace(shape);

    YCbCrPlanes planes{.width = frame.width, .height = frame.height};
    for (int i = 0; i < source->nb_components; ++i) {
        planes.data[i] = reinterpret_cast<const std::byte*>(frame.data[i]);
        planes.rowBytes[i] = frame.linesize[i];
    }
    auto picture = acquire(frame.width, frame.height);
    bgraKernel_->convert(planes, picture->plane(0).data, picture->plane(0).rowBytes);
    return picture;
}

PixelBufferPtr FrameConverter::acquire(int width, int height) {
    if (!pool_ || pool_->width() != width || pool_->height() != height)
        pool_.emplace(format_, width, height);
    return pool_->acquire();
}

namespace {

ScalerPtr makeScaler(const AVFrame& frame, AVPixelFormat format, int width, int height, bool resultIsFullRange,
                     int matrix) {
    ScalerPtr context(sws_alloc_context());
    if (!context)
        throw std::bad_alloc();
    const auto set = [&](const char* name, std::int64_t value) { av_opt_set_int(context.get(), name, value, 0); };
    const bool isMuchSmaller = 2 * width <= frame.width;
    set("srcw", frame.width);
    set("srch", frame.height);
    set("src_format", withoutRange(AVPixelFormat(frame.format)));
    set("dstw", width);
    set("dsth", height);
    set("dst_format", format);
    set("sws_flags", (isMuchSmaller ? SWS_AREA : SWS_BICUBIC) | SWS_ACCURATE_RND | SWS_FULL_CHR_H_INT);
    set("threads", 0);
    // Where chroma samples lie beside luma ones, in 1/256 of a luma pixel.
    const auto setSiting = [&](AVPixelFormat pixels, AVChromaLocation location, const char* xName, const char* yName) {
        const auto* description = av_pix_fmt_desc_get(pixels);
        int x = 0, y = 0;
        if (av_chroma_location_enum_to_pos(&x, &y, location) < 0)
            return;
        if (description->log2_chroma_w != 0)
            set(xName, x);
        if (description->log2_chroma_h != 0)
            set(yName, y);
    };
    setSiting(AVPixelFormat(frame.format), chromaLocation(frame), "src_h_chr_pos", "src_v_chr_pos");
    setSiting(format, AVCHROMA_LOC_LEFT, "dst_h_chr_pos", "dst_v_chr_pos");
    if (const int code = sws_init_context(context.get(), nullptr, nullptr); code < 0)
        throw libavError("Cannot convert the picture", code, mediaErrorCode::operationNotSupported);
    // libswscale numbers matrices as H.273 does, as far as it knows them.
    const int* coefficients = sws_getCoefficients(matrix == AVCOL_SPC_BT2020_CL ? int(AVCOL_SPC_BT2020_NCL) : matrix);
    constexpr int one = 1 << 16;
    sws_setColorspaceDetails(context.get(), coefficients, isFullRange(frame), coefficients, resultIsFullRange, 0, one,
                             one);
    return context;
}

} // namespace

PixelBufferPtr FrameConverter::scale(const AVFrame& frame) {
    const auto [width, height] = outputSize_.value_or(std::pair(frame.width, frame.height));
    const int matrix = matrixOf(frame, completed(color_, colorAttachments(frame)));
    const Scaling::Key key{frame.width, frame.height, frame.format,          width,
                           height,      matrix,       frame.chroma_location, isFullRange(frame)};
    const bool resultIsFullRange = !layout_.isYCbCr() || layout_.isFullRange;
    if (!scaling_ || scaling_->key != key)
        scaling_ = std::make_unique<Scaling>(
            key, makeScaler(frame, libavFormat(format_), width, height, resultIsFullRange, matrix));

    auto picture = acquire(width, height);
    auto target = makeFrame();
    target->width = width;
    target->height = height;
    target->format = libavFormat(format_);
    for (int i = 0; i < picture->planeCount(); ++i) {
        target->data[i] = reinterpret_cast<std::uint8_t*>(picture->plane(i).data);
        target->linesize[i] = int(picture->plane(i).rowBytes);
    }
    // libswscale allocates planes of its own for a frame that names no owner.
    target->buf[0] = av_buffer_create(
        target->data[0], picture->plane(0).rowBytes * std::size_t(height), [](void*, std::uint8_t*) {}, nullptr, 0);
    if (!target->buf[0])
        throw std::bad_alloc();
    if (const int code = sws_scale_frame(scaling_->context.get(), target.get(), &frame); code < 0)
        throw libavError("Cannot convert the picture", code, mediaErrorCode::operationNotSupported);
    return picture;
}

} // namespace panoveer
