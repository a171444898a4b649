#include "Panoveer/Model/Records/ProjectionFormat.h"

#include <cmath>

namespace panoveer {

ProjectionFormat detectedProjectionFormat(int width, int height) {
    if (height < 1)
        return ProjectionFormat::standard;
    constexpr double tolerance = 0.08;
    const double aspect = double(width) / double(height);
    if (std::abs(aspect - 2.0) < tolerance)
        return ProjectionFormat::equirectangular;
    if (std::abs(aspect - 1.0) < tolerance)
        return ProjectionFormat::domemaster;
    if (std::abs(aspect - 1.5) < tolerance)
        return ProjectionFormat::eac;
    return ProjectionFormat::standard;
}

} // namespace panoveer
