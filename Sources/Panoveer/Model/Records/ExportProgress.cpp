#include "Panoveer/Model/Records/ExportProgress.h"

#include <algorithm>
#include <cmath>

namespace panoveer {

int ExportProgress::displayedPercent() const {
    if (!std::isfinite(fraction) || fraction <= 0)
        return 0;
    if (fraction >= 1)
        return 100;
    return int(std::floor(std::min(fraction, 0.999) * 100));
}

} // namespace panoveer
