#include "Panoveer/Services/Export/ExportDestinationPreflight.h"

#include "Platform/Core/Localization.h"

#include <sys/statvfs.h>

#include <algorithm>
#include <cerrno>

namespace panoveer {

namespace {

constexpr double shareAboveEstimate = 1.05;
constexpr double reservedBytes = 1e9;

} // namespace

ExportDestinationPreflight::CapacityReadError::CapacityReadError(const URL& url)
    : Error(localized("error.export.capacity_unavailable", url.path().string())) {}

double ExportDestinationPreflight::requiredBytes(double estimatedOutputBytes) {
    return std::max(estimatedOutputBytes, 0.0) * shareAboveEstimate + reservedBytes;
}

ExportDestinationPreflightResult ExportDestinationPreflight::evaluate(double estimatedOutputBytes,
                                                                      const URL& destination,
                                                                      const CapacityReader& capacity) {
    using Result = ExportDestinationPreflightResult;
    try {
        const auto available = double(capacity(destination));
        const auto required = requiredBytes(estimatedOutputBytes);
        if (required <= available)
            return {Result::Sufficient{required, available}};
        return {Result::Insufficient{estimatedOutputBytes, required, available}};
    } catch (const Error&) {
        return {Result::Unavailable{destination}};
    }
}

std::int64_t ExportDestinationPreflight::availableCapacity(const URL& url) {
    for (auto path = url.path();; path = path.parent_path()) {
        struct statvfs volume{};
        if (statvfs(path.c_str(), &volume) == 0) {
            // A volume of no blocks is one that keeps no count.
            if (volume.f_blocks == 0)
                throw CapacityReadError(url);
            return std::int64_t(volume.f_bavail) * std::int64_t(volume.f_frsize);
        }
        // The export makes the folders that are missing, and says itself what is wrong with a name.
        if ((errno != ENOENT && errno != ENOTDIR && errno != ENAMETOOLONG) || !path.has_relative_path())
            throw CapacityReadError(url);
    }
}

} // namespace panoveer
