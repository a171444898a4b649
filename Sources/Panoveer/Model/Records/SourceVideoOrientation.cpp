#include "Panoveer/Model/Records/SourceVideoOrientation.h"

#include <cmath>
#include <limits>

namespace panoveer {

SourceVideoOrientation detectedOrientation(const AffineTransform& transform) {
    const double xLength = std::hypot(transform.a, transform.b);
    const double yLength = std::hypot(transform.c, transform.d);
    if (!(xLength > 0 && yLength > 0))
        return SourceVideoOrientation::up;

    struct Candidate {
        SourceVideoOrientation orientation;
        double a, b, c, d;
    };
    constexpr Candidate candidates[] = {
        {SourceVideoOrientation::up, 1, 0, 0, 1},
        {SourceVideoOrientation::right, 0, 1, -1, 0},
        {SourceVideoOrientation::down, -1, 0, 0, -1},
        {SourceVideoOrientation::left, 0, -1, 1, 0},
    };
    auto best = SourceVideoOrientation::up;
    double bestScore = std::numeric_limits<double>::infinity();
    for (const auto& candidate : candidates) {
        const double score =
            std::abs(transform.a / xLength - candidate.a) + std::abs(transform.b / xLength - candidate.b) +
            std::abs(transform.c / yLength - candidate.c) + std::abs(transform.d / yLength - candidate.d);
        if (score < bestScore) {
            best = candidate.orientation;
            bestScore = score;
        }
    }
    return best;
}

} // namespace panoveer
