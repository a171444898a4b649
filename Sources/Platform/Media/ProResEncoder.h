#pragma once

#include "Platform/Media/VideoEncoder.h"

#include <condition_variable>
#include <exception>
#include <map>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

namespace panoveer {

// A member of the ProRes family.
struct ProResVariant {
    FourCC codec;
    const char* profile;      // libavcodec's name
    double megabitsPerSecond; // published target at 1920 x 1080 and 29.97 frames a second, without alpha
    int finestQuantiser;      // the least scale of its quantisation matrix that makes sense
    bool hasAlpha;            // 4:4:4 with alpha; else 4:2:2
};

// Null for a codec that is none of the family.
const ProResVariant* findProResVariant(FourCC codec);

// ProRes through libavcodec's prores_ks, one frame on each core. That encoder's own rate control gives every slice the
// same share of the data and tries every quantiser on it. Here a frame has one quantiser, found from the frames before
// it, so that the frame as a whole takes what the family publishes, and detail gets the bits that plain areas leave.
// ProRes 422 at 2048 x 2048 and 30 frames a second (published: 297 Mbit/s), CPU time for a frame, rate, peak
// signal-to-noise ratio of luma:
//                                   fine grain all over              detail at a few places
//   prores_ks, its own rate control   1.21 s  306 Mbit/s  34.5 dB      0.70 s  312 Mbit/s  35.6 dB
//   prores_aw                         0.13 s  767 Mbit/s  43.1 dB      0.13 s  417 Mbit/s  50.7 dB
//   prores_ks, one quantiser          0.09 s  278 Mbit/s  34.4 dB      0.07 s  269 Mbit/s  50.1 dB
//
// Not for other layers.
class ProResEncoder final : public VideoEncoder {
public:
    // Throws Error when the encoder does not open.
    ProResEncoder(const EncoderConfiguration& configuration, PacketSink sink);
    ~ProResEncoder() override;

    CodecParametersPtr parameters() const override;
    void encode(PixelBufferPtr picture, std::int64_t presentationTime, std::int64_t duration) override;
    void finish() override;

private:
    struct Job {
        std::int64_t index = 0;
        PixelBufferPtr picture;
        std::int64_t presentationTime = 0;
        std::int64_t duration = 0;
    };
    // One thread's encoder; a change of quantiser opens it anew, which costs nothing beside a frame.
    struct Engine {
        CodecContextPtr context;
        int quantiser = 0;
        FramePtr frame;
    };
    struct Compressed {
        PacketPtr packet;
        int nextQuantiser = 0; // that would have met the target
    };

    void work();
    bool takeJob(Job& job, int& quantiser);
    Compressed compress(Engine& engine, Job job, int quantiser) const;
    PacketPtr compressOnce(Engine& engine, int quantiser) const;
    void open(Engine& engine, int quantiser) const;
    void handOut(std::int64_t index, Compressed compressed);
    void throwIfFailed() const;

    const EncoderConfiguration configuration_;
    const ProResVariant& variant_;
    const double targetBits_; // for a frame, without its alpha
    const PacketSink sink_;
    CodecParametersPtr parameters_;
    std::size_t workerCount_ = 1;

    std::mutex mutex_; // guards all that follows
    std::condition_variable changed_;
    std::optional<Job> waiting_;
    std::int64_t jobCount_ = 0;
    std::int64_t handedOutCount_ = 0;
    // The quantiser for frame n comes from frame n - workerCount_, so that the stream does not depend on how the
    // threads happen to run: frame n leaves it in place n mod workerCount_, and frame n + workerCount_ takes it from
    // there.
    std::vector<std::optional<int>> quantisers_;
    std::map<std::int64_t, PacketPtr> done_; // compressed ahead of an earlier frame
    std::exception_ptr failure_;
    bool isStopping_ = false;

    std::mutex handOutMutex_;           // held while packets go to the sink
    std::vector<std::jthread> workers_; // last: they are joined before the rest goes
};

} // namespace panoveer
