#include "Panoveer/Model/Records/VRClipSegment.h"

#include <algorithm>

namespace panoveer {

VRClipSegment VRClipSegment::normalized(double minimumDuration) const {
    auto copy = *this;
    copy.start = std::max(0.0, copy.start);
    copy.end = std::max(copy.start + minimumDuration, copy.end);
    copy.transform = copy.transform.normalized();
    return copy;
}

std::optional<std::pair<VRClipSegment, VRClipSegment>> VRClipSegment::split(double atSeconds,
                                                                            double minimumDuration) const {
    const double time = std::min(std::max(atSeconds, start), end);
    const auto isTooShort = [&](double side) { return side < minimumDuration || !(side > 0); };
    if (isTooShort(time - start) || isTooShort(end - time))
        return std::nullopt;
    auto left = *this;
    left.id = UUID::random();
    left.end = time;
    auto right = *this;
    right.id = UUID::random();
    right.start = time;
    return std::pair(left.normalized(minimumDuration), right.normalized(minimumDuration));
}

} // namespace panoveer
