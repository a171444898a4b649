#include "Platform/Media/ProResStepSearch.h"

#include "Platform/Media/ProResFrameCoder.h"

#include <algorithm>
#include <cmath>

namespace panoveer {

namespace {

// A frame is compressed again when its size is outside this band around the target, up to so many times; within it only
// the step of later frames moves.
constexpr double largestShare = 1.10;
constexpr double smallestShare = 0.75;
constexpr int largestTryCount = 6;
// Frames aim a little below the target, and a size up to it is left as it is, so that the step comes to rest.
constexpr double aimedShare = 0.97;

constexpr double gentlestSlope = 0.3, steepestSlope = 16;

} // namespace

double ProResStepSearch::slopeBetween(const Try& a, const Try& b) {
    const double slope = std::log(a.share / b.share) / std::log(double(b.step) / a.step);
    return std::clamp(slope, gentlestSlope, steepestSlope);
}

bool ProResStepSearch::note(int step, double share) {
    ++count_;
    const Try made{step, share};
    const auto& before = fitting_ ? fitting_ : tooLarge_;
    if (before && before->step != step)
        slope_ = slopeBetween(*before, made);
    if (share > largestShare) {
        if (tooLarge_ && step <= tooLarge_->step)
            return false;
        tooLarge_ = made;
        return !fitting_;
    }
    if (fitting_ && step >= fitting_->step)
        return false;
    fitting_ = made;
    return true;
}

int ProResStepSearch::aimedStep() const {
    const auto& best = fitting_ ? *fitting_ : *tooLarge_;
    if (best.share <= 1 && best.share >= aimedShare)
        return best.step;
    auto slope = slope_;
    if (fitting_ && tooLarge_ && tooLarge_->step < fitting_->step) // what lies between is on the line through both
        slope = slopeBetween(*tooLarge_, *fitting_);
    const double exact = best.step * std::pow(std::max(best.share, 1e-3) / aimedShare, 1 / slope);
    const double limited = std::clamp(exact, double(finestStep_), double(ProResFrameCoder::coarsestStep));
    return ProResFrameCoder::codableStep(int(std::ceil(limited)));
}

std::optional<int> ProResStepSearch::next() const {
    if (count_ == largestTryCount || (fitting_ && fitting_->share >= smallestShare))
        return std::nullopt;
    int step = aimedStep();
    if (tooLarge_)
        step = std::max(step, ProResFrameCoder::codableStep(tooLarge_->step + 1));
    const bool isNew = fitting_ ? step < fitting_->step : step > tooLarge_->step;
    return isNew ? std::optional(step) : std::nullopt;
}

} // namespace panoveer
