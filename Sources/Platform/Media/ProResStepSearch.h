#pragma once

#include <optional>

namespace panoveer {

// Finds the step with which a ProRes frame takes its share of the data, from tries: usually one is enough, since the
// frames before it have told the step; scene changes take more. A value. Not for other layers.
class ProResStepSearch {
public:
    // Steps finer than `finestStep` are never asked for.
    explicit ProResStepSearch(int finestStep) : finestStep_(finestStep) {}

    // A frame made with this step came to so much of what it should take. True when there is none better so far: the
    // finest one that is not too large, or the smallest.
    bool note(int step, double share);

    // The step to try next; none when the best one is good enough, or the last that is worth while.
    std::optional<int> next() const;

    // With which the same frame would have come to just below what it should take.
    int aimedStep() const;

private:
    struct Try {
        int step = 0;
        double share = 0;
    };

    static double slopeBetween(const Try& a, const Try& b);

    int finestStep_;
    int count_ = 0;
    std::optional<Try> tooLarge_; // the coarsest of those
    std::optional<Try> fitting_;  // the finest of those
    // Size falls with the step s as s^-slope: seen between 0.55 (fine) and 0.9 (coarse), and far steeper where grain
    // sinks below half a level. Two tries tell.
    double slope_ = 0.75;
};

} // namespace panoveer
