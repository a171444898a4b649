#pragma once

#include <cstdint>
#include <optional>

namespace panoveer {

// Keeps the sound of one segment in step with its picture: says of each decoded block how much silence goes in front of
// it, and which of its frames are taken.
//
//   wanted     |--------- written ---------|----------- room -----------|
//   late                                     silence |### block ###|
//   early                           |### skip ###|## taken ##|
//
// Distances of one or two frames are the rounding of a container's clock and are let be. A value of one thread.
class AudioSegmentSink {
public:
    struct Placement {
        std::int64_t silence = 0; // frames of silence in front
        std::int64_t skipped = 0; // frames of the block that are left out at its beginning
        std::int64_t taken = 0;   // frames of the block behind those
    };

    // The frames that the segment may yield, and its start in the source, in seconds.
    AudioSegmentSink(std::int64_t frameLimit, double sourceStart)
        : frameLimit_(frameLimit), sourceStart_(sourceStart) {}

    // Counts the silence and the frames taken as written. A block without a time follows the one before.
    Placement place(std::optional<double> sourceSeconds, std::int64_t frames);

    std::int64_t written() const { return written_; }
    std::int64_t room() const { return frameLimit_ - written_; }

private:
    std::int64_t frameLimit_;
    double sourceStart_;
    std::int64_t written_ = 0;
};

} // namespace panoveer
