#pragma once

#include "Platform/Media/ProResFrameCoder.h"
#include "Platform/Media/VideoEncoder.h"

#include <condition_variable>
#include <exception>
#include <map>
#include <mutex>
#include <optional>
#include <stop_token>
#include <thread>
#include <vector>

namespace panoveer {

// Null for a codec that is none of the family.
const ProResVariant* findProResVariant(FourCC codec);

// ProRes, one frame on each core. A frame has one quantiser step, found from the frames before it, so that the frame as
// a whole takes what the family publishes, and detail gets the bits that plain areas leave. libavcodec's prores_ks
// takes no more than ten bits, and its rate control gives every slice the same share. Even at one step, ProRes 422 HQ,
// CPU time for a frame, its size, peak signal-to-noise ratio of luma:
//                      a room, 1920 x 960             fine grain all over, 1920 x 1080
//   prores_ks          24 ms  708 kB  62.1 dB         53 ms  2.94 MB  58.7 dB
//   ProResFrameCoder    9 ms  686 kB  63.1 dB         30 ms  2.94 MB  62.2 dB
//
// Not for other layers.
class ProResEncoder final : public VideoEncoder {
public:
    // Throws std::bad_alloc, and std::system_error when there are no threads.
    ProResEncoder(const EncoderConfiguration& configuration, PacketSink sink);

    CodecParametersPtr parameters() const override;
    void encode(PixelBufferPtr picture, std::int64_t presentationTime, std::int64_t duration) override;
    void finish() override;

private:
    struct Job {
        std::int64_t index = 0;
        PixelBufferPtr picture;
        std::int64_t presentationTime = 0;
        std::int64_t duration = 0;
        int step = 0; // to try first
    };
    struct Compressed {
        PacketPtr packet;
        int nextStep = 0; // that would have met the target
    };

    void work(const std::stop_token& stop);
    std::optional<Job> takeJob(const std::stop_token& stop);
    Compressed compress(ProResFrameCoder& coder, const Job& job) const;
    void handOut(std::int64_t index, Compressed compressed);
    void throwIfFailed() const;

    const EncoderConfiguration configuration_;
    const ProResVariant& variant_;
    const double targetBits_; // for a frame, without its alpha
    const PacketSink sink_;
    CodecParametersPtr parameters_;
    std::size_t workerCount_ = 1;

    std::mutex mutex_; // guards all that follows
    std::condition_variable_any changed_;
    std::optional<Job> waiting_;
    std::int64_t jobCount_ = 0;
    std::int64_t handedOutCount_ = 0;
    // The step for frame n comes from frame n - workerCount_, so that the stream depends on how many threads there are,
    // but not on how they happen to run. It stands in place n mod workerCount_.
    struct KnownStep {
        std::int64_t index = 0; // of the frame that it is for
        int step = 0;
    };
    std::vector<KnownStep> steps_;
    std::map<std::int64_t, PacketPtr> done_; // compressed ahead of an earlier frame
    std::exception_ptr failure_;

    std::mutex handOutMutex_;           // held while packets go to the sink
    std::vector<std::jthread> workers_; // last: they are stopped and joined before the rest goes
};

} // namespace panoveer
