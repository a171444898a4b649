#include "Platform/Media/ProResEncoder.h"

#include "Platform/Media/EncoderSupport.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <new>
#include <utility>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/cpu.h>
}

namespace panoveer {

namespace {

constexpr std::array variants{ProResVariant{"apco", 45, false},  ProResVariant{"apcs", 102, false},
                              ProResVariant{"apcn", 147, false}, ProResVariant{"apch", 220, false},
                              ProResVariant{"ap4h", 330, true},  ProResVariant{"ap4x", 500, true}};

constexpr int firstQuantiser = 12;

// Adds at most half as much noise as the rounding of the pictures to 8 or ten bits has put into them; for more bits
// there is none finer.
int finestQuantiser(FourCC pictureFormat) { return pictureFormat == pixelFormat::bgra ? 2 : 1; }

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

// Every worker holds a picture and its frame twice: their sum stays within an eighth of the memory.
std::size_t affordableWorkerCount(const EncoderConfiguration& configuration, bool hasAlpha) {
    const auto pixels = std::int64_t(configuration.settings.width) * configuration.settings.height;
    const auto bytes = pixels * (hasAlpha ? 16 : 8);
    const auto budget = std::int64_t(sysconf(_SC_PHYS_PAGES)) * sysconf(_SC_PAGESIZE) / 8;
    return std::size_t(std::clamp<std::int64_t>(budget / bytes, 1, std::max(av_cpu_count(), 1)));
}

PacketPtr packetOf(std::span<const std::uint8_t> frame, std::int64_t presentationTime, std::int64_t duration) {
    auto packet = makePacket();
    if (av_new_packet(packet.get(), int(frame.size())) < 0)
        throw std::bad_alloc();
    std::ranges::copy(frame, packet->data);
    packet->pts = packet->dts = presentationTime;
    packet->duration = duration;
    packet->flags |= AV_PKT_FLAG_KEY;
    return packet;
}

CodecParametersPtr parametersOf(const EncoderConfiguration& configuration, const ProResVariant& variant) {
    CodecParametersPtr parameters(avcodec_parameters_alloc());
    if (!parameters)
        throw std::bad_alloc();
    const auto& settings = configuration.settings;
    parameters->codec_type = AVMEDIA_TYPE_VIDEO;
    parameters->codec_id = AV_CODEC_ID_PRORES;
    parameters->codec_tag = __builtin_bswap32(settings.codec.value);
    parameters->format = variant.hasAlpha ? AV_PIX_FMT_YUVA444P12 : AV_PIX_FMT_YUV422P10;
    parameters->bits_per_coded_sample = variant.hasAlpha ? 32 : 24;
    parameters->width = settings.width;
    parameters->height = settings.height;
    parameters->color_primaries = AVColorPrimaries(settings.color.primaries);
    parameters->color_trc = AVColorTransferCharacteristic(settings.color.transfer);
    parameters->color_space = AVColorSpace(settings.color.matrix);
    parameters->color_range = AVCOL_RANGE_MPEG;
    parameters->field_order = AV_FIELD_PROGRESSIVE;
    tellContainer(*parameters, settings);
    return parameters;
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
    parameters_ = parametersOf(configuration_, variant_);
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
        ProResFrameCoder coder(variant_, configuration_);
        Job job;
        int quantiser = 0;
        while (takeJob(job, quantiser)) {
            const auto index = job.index;
            handOut(index, compress(coder, std::exchange(job, {}), quantiser));
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

ProResEncoder::Compressed ProResEncoder::compress(ProResFrameCoder& coder, const Job& job, int quantiser) const {
    for (int attempt = 1;; ++attempt) {
        const auto frame = coder.code(*job.picture, quantiser);
        const double share = double(frame.size() - coder.alphaByteCount()) * 8 / targetBits_;
        int better = quantiser;
        if (share > 1 || share < aimedShare)
            better = std::clamp(int(std::ceil(quantiser * std::pow(share / aimedShare, 1 / slope))),
                                finestQuantiser(configuration_.pictureFormat), ProResFrameCoder::coarsestQuantiser);
        const bool isFit = share <= largestShare && share >= smallestShare;
        if (isFit || better == quantiser || attempt == largestTryCount)
            return {packetOf(frame, job.presentationTime, job.duration), better};
        quantiser = better;
    }
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
