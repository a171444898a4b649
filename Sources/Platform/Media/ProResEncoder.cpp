#include "Platform/Media/ProResEncoder.h"

#include "Platform/Media/EncoderKernels.h"
#include "Platform/Media/EncoderSupport.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <new>
#include <string>
#include <utility>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/cpu.h>
#include <libavutil/opt.h>
}

namespace panoveer {

namespace {

constexpr std::array variants{
    ProResVariant{"apco", "proxy", 45, 4, false},     ProResVariant{"apcs", "lt", 102, 1, false},
    ProResVariant{"apcn", "standard", 147, 1, false}, ProResVariant{"apch", "hq", 220, 1, false},
    ProResVariant{"ap4h", "4444", 330, 1, true},      ProResVariant{"ap4x", "4444xq", 500, 1, true}};

constexpr int coarsestQuantiser = 64; // that the encoder takes
constexpr int firstQuantiser = 6;

// A frame is compressed again when its size is outside this band around the target, up to so many times; within it only
// the quantiser of later frames moves. Scene changes alone leave it.
constexpr double largestShare = 1.10;
constexpr double smallestShare = 0.75;
constexpr int largestTryCount = 4;
// Frames aim a little below the target, and a size up to it is left as it is, so that the quantiser comes to rest.
constexpr double aimedShare = 0.97;

// Size falls with the quantiser q as q^-slope; seen between 0.55 (fine) and 0.9 (coarse).
constexpr double slope = 0.75;

std::int64_t macroblockCount(int width, int height) { return std::int64_t((width + 15) / 16) * ((height + 15) / 16); }

// A macroblock has the same share at every size and frame rate.
double targetBitsOf(const ProResVariant& variant, int width, int height) {
    constexpr double framesPerSecond = 30000.0 / 1001;
    const auto bitsPerMacroblock =
        variant.megabitsPerSecond * 1e6 / framesPerSecond / double(macroblockCount(1920, 1080));
    return bitsPerMacroblock * double(macroblockCount(width, height));
}

std::uint32_t readBigEndian(const AVPacket& packet, int offset, int count) {
    std::uint32_t value = 0;
    for (int i = offset; i < offset + count; ++i)
        value = value << 8 | (i < packet.size ? packet.data[i] : 0U);
    return value;
}

// How many bytes of a frame are its alpha plane, which is kept without loss whatever it takes. Each slice has a header
// with the sizes of Y', Cb and Cr; the rest of the slice is alpha (SMPTE RDD 36, 5.3).
std::int64_t alphaBytes(const AVPacket& packet) {
    constexpr int containerHeader = 8;
    constexpr int pictureHeader = 8;
    constexpr int sliceHeader = 8;
    const int picture = containerHeader + int(readBigEndian(packet, containerHeader, 2));
    const int sliceCount = int(readBigEndian(packet, picture + 5, 2));
    const int table = picture + pictureHeader;
    std::int64_t total = 0;
    for (int i = 0, slice = table + 2 * sliceCount; i < sliceCount; ++i) {
        const int size = int(readBigEndian(packet, table + 2 * i, 2));
        total += size - sliceHeader;
        for (int component = 0; component < 3; ++component)
            total -= readBigEndian(packet, slice + 2 + 2 * component, 2);
        slice += size;
    }
    return total;
}

// Every worker holds a frame, its transform and a packet: their sum stays within an eighth of the memory.
std::size_t affordableWorkerCount(const EncoderConfiguration& configuration, bool hasAlpha) {
    const auto pixels = std::int64_t(configuration.settings.width) * configuration.settings.height;
    const auto bytes = pixels * (hasAlpha ? 16 : 8);
    const auto budget = std::int64_t(sysconf(_SC_PHYS_PAGES)) * sysconf(_SC_PAGESIZE) / 8;
    return std::size_t(std::clamp<std::int64_t>(budget / bytes, 1, std::max(av_cpu_count(), 1)));
}

} // namespace

const ProResVariant* findProResVariant(FourCC codec) {
    const auto* found = std::ranges::find(variants, codec, &ProResVariant::codec);
    return found == variants.end() ? nullptr : found;
}

ProResEncoder::ProResEncoder(const EncoderConfiguration& configuration, PacketSink sink)
    : configuration_(configuration),
      variant_(*findProResVariant(configuration.settings.codec)),
      targetBits_(targetBitsOf(variant_, configuration.settings.width, configuration.settings.height)),
      sink_(std::move(sink)) {
    Engine engine;
    open(engine, firstQuantiser);
    parameters_ = containerParameters(*engine.context, configuration_);
    parameters_->field_order = AV_FIELD_PROGRESSIVE;
    if (configuration_.isProbe)
        return;
    workerCount_ = affordableWorkerCount(configuration, variant_.hasAlpha);
    quantisers_.assign(workerCount_, firstQuantiser);
    for (std::size_t i = 0; i < workerCount_; ++i)
        workers_.emplace_back([this] { work(); });
}

ProResEncoder::~ProResEncoder() {
    std::lock_guard lock(mutex_);
    isStopping_ = true;
    changed_.notify_all();
}

CodecParametersPtr ProResEncoder::parameters() const {
    CodecParametersPtr copy(avcodec_parameters_alloc());
    if (!copy || avcodec_parameters_copy(copy.get(), parameters_.get()) < 0)
        throw std::bad_alloc();
    return copy;
}

void ProResEncoder::throwIfFailed() const {
    if (failure_)
        std::rethrow_exception(failure_);
}

void ProResEncoder::encode(PixelBufferPtr picture, std::int64_t presentationTime, std::int64_t duration) {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [&] { return !waiting_ || failure_; });
    throwIfFailed();
    waiting_ = Job{jobCount_++, std::move(picture), presentationTime, duration};
    changed_.notify_all();
}

void ProResEncoder::finish() {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [&] { return handedOutCount_ == jobCount_ || failure_; });
    throwIfFailed();
}

void ProResEncoder::work() {
    try {
        Engine engine;
        Job job;
        int quantiser = 0;
        while (takeJob(job, quantiser)) {
            const auto index = job.index;
            handOut(index, compress(engine, std::move(job), quantiser));
        }
    } catch (...) {
        std::lock_guard lock(mutex_);
        if (!failure_)
            failure_ = std::current_exception();
        changed_.notify_all();
    }
}

// False when there is nothing more to do.
bool ProResEncoder::takeJob(Job& job, int& quantiser) {
    std::unique_lock lock(mutex_);
    const auto isOver = [&] { return isStopping_ || failure_; };
    changed_.wait(lock, [&] { return waiting_ || isOver(); });
    if (isOver())
        return false;
    job = *std::exchange(waiting_, std::nullopt);
    changed_.notify_all();
    auto& known = quantisers_[std::size_t(job.index) % workerCount_];
    changed_.wait(lock, [&] { return known || isOver(); });
    if (isOver())
        return false;
    quantiser = *std::exchange(known, std::nullopt);
    return true;
}

void ProResEncoder::open(Engine& engine, int quantiser) const {
    auto context = makeEncoderContext("prores_ks", configuration_);
    context->pix_fmt = variant_.hasAlpha ? AV_PIX_FMT_YUVA444P10 : AV_PIX_FMT_YUV422P10;
    context->global_quality = quantiser * FF_QP2LAMBDA;
    context->flags |= AV_CODEC_FLAG_QSCALE;
    context->thread_count = 1; // each worker is one
    av_opt_set(context->priv_data, "profile", variant_.profile, 0);
    // As deep as the pictures' own alpha.
    av_opt_set_int(context->priv_data, "alpha_bits", configuration_.pictureFormat == pixelFormat::bgra ? 8 : 16, 0);
    const int code = avcodec_open2(context.get(), nullptr, nullptr);
    if (code < 0)
        throw Error(libavError("The ProRes encoder does not open", code).what(), std::string(mediaErrorDomain),
                    code == AVERROR(ENOMEM) ? mediaErrorCode::outOfMemory : mediaErrorCode::encoderNotFound);
    engine.context = std::move(context);
    engine.quantiser = quantiser;
}

ProResEncoder::Compressed ProResEncoder::compress(Engine& engine, Job job, int quantiser) const {
    if (!engine.context)
        open(engine, quantiser);
    if (!engine.frame)
        engine.frame = makeEncoderFrame(*engine.context);
    if (variant_.hasAlpha)
        convertToYCbCrA(*job.picture, planarPicture(*engine.frame), configuration_.settings.color.matrix);
    else
        splitPlanes(*job.picture, planarPicture(*engine.frame));
    job.picture.reset();
    engine.frame->pts = job.presentationTime;
    engine.frame->duration = job.duration;

    for (int attempt = 1;; ++attempt) {
        auto packet = compressOnce(engine, quantiser);
        const auto bytes = packet->size - (variant_.hasAlpha ? alphaBytes(*packet) : 0);
        const double share = double(bytes) * 8 / targetBits_;
        int better = quantiser;
        if (share > 1 || share < aimedShare)
            better = std::clamp(int(std::ceil(quantiser * std::pow(share / aimedShare, 1 / slope))),
                                variant_.finestQuantiser, coarsestQuantiser);
        const bool isFit = share <= largestShare && share >= smallestShare;
        if (isFit || better == quantiser || attempt == largestTryCount)
            return {std::move(packet), better};
        quantiser = better;
    }
}

PacketPtr ProResEncoder::compressOnce(Engine& engine, int quantiser) const {
    if (engine.quantiser != quantiser)
        open(engine, quantiser);
    PacketPtr result;
    encodeFrame(*engine.context, engine.frame.get(), [&](PacketPtr packet) { result = std::move(packet); });
    if (!result)
        throw Error("The ProRes encoder gave no frame", std::string(mediaErrorDomain), mediaErrorCode::unknown);
    return result;
}

void ProResEncoder::handOut(std::int64_t index, Compressed compressed) {
    {
        std::lock_guard lock(mutex_);
        quantisers_[std::size_t(index) % workerCount_] = compressed.nextQuantiser;
        done_.emplace(index, std::move(compressed.packet));
        changed_.notify_all();
    }
    std::lock_guard handOutLock(handOutMutex_);
    while (true) {
        PacketPtr packet;
        {
            std::lock_guard lock(mutex_);
            const auto next = done_.find(handedOutCount_);
            if (next == done_.end())
                return;
            packet = std::move(next->second);
            done_.erase(next);
        }
        sink_(std::move(packet));
        std::lock_guard lock(mutex_);
        ++handedOutCount_;
        changed_.notify_all();
    }
}

} // namespace panoveer
