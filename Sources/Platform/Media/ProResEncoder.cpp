#include "Platform/Media/ProResEncoder.h"

#include "Platform/Media/EncoderSupport.h"
#include "Platform/Media/ProResStepSearch.h"

#include <unistd.h>

#include <algorithm>
#include <array>
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

constexpr int firstStep = 24;

// Adds at most half as much noise as the rounding of the pictures to 8 or ten bits has put into them; for more bits
// there is none finer.
int finestStep(FourCC pictureFormat) {
    return pictureFormat == pixelFormat::bgra ? 2 * ProResFrameCoder::finestStep : ProResFrameCoder::finestStep;
}

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
    for (std::size_t i = 0; i < workerCount_; ++i)
        steps_.push_back({std::int64_t(i), firstStep});
    for (std::size_t i = 0; i < workerCount_; ++i)
        workers_.emplace_back([this](const std::stop_token& stop) { work(stop); });
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

void ProResEncoder::work(const std::stop_token& stop) {
    try {
        ProResFrameCoder coder(variant_, configuration_);
        while (const auto job = takeJob(stop))
            handOut(job->index, compress(coder, *job));
    } catch (...) {
        std::lock_guard lock(mutex_);
        if (!failure_)
            failure_ = std::current_exception();
        changed_.notify_all();
    }
}

// None when there is nothing more to do.
std::optional<ProResEncoder::Job> ProResEncoder::takeJob(const std::stop_token& stop) {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, stop, [&] { return waiting_ || failure_; });
    if (stop.stop_requested() || failure_)
        return std::nullopt;
    auto job = std::exchange(waiting_, std::nullopt);
    changed_.notify_all();
    const auto& known = steps_[std::size_t(job->index) % workerCount_];
    changed_.wait(lock, stop, [&] { return known.index == job->index || failure_; });
    if (stop.stop_requested() || failure_)
        return std::nullopt;
    job->step = known.step;
    return job;
}

ProResEncoder::Compressed ProResEncoder::compress(ProResFrameCoder& coder, const Job& job) const {
    ProResStepSearch search(finestStep(configuration_.pictureFormat));
    PacketPtr best;
    for (std::optional step = job.step; step; step = search.next()) {
        const auto frame = coder.code(*job.picture, *step);
        if (search.note(*step, double(coder.colorByteCount()) * 8 / targetBits_))
            best = packetOf(frame, job.presentationTime, job.duration);
    }
    return {std::move(best), search.aimedStep()};
}

void ProResEncoder::handOut(std::int64_t index, Compressed compressed) {
    {
        std::lock_guard lock(mutex_);
        steps_[std::size_t(index) % workerCount_] = {index + std::int64_t(workerCount_), compressed.nextStep};
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
