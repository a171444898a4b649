#pragma once

#include "Platform/Core/Error.h"
#include "Platform/Core/URL.h"

#include <cstdint>
#include <functional>
#include <variant>

namespace panoveer {

// Whether a destination has room. All sizes are bytes.
struct ExportDestinationPreflightResult {
    struct Sufficient {
        double requiredBytes = 0, availableBytes = 0;
        friend bool operator==(const Sufficient&, const Sufficient&) = default;
    };
    struct Insufficient {
        double estimatedOutputBytes = 0, requiredBytes = 0, availableBytes = 0;
        friend bool operator==(const Insufficient&, const Insufficient&) = default;
    };
    struct Unavailable {
        URL destination;
        friend bool operator==(const Unavailable&, const Unavailable&) = default;
    };
    std::variant<Sufficient, Insufficient, Unavailable> answer;

    friend bool operator==(const ExportDestinationPreflightResult&, const ExportDestinationPreflightResult&) = default;
};

// Compares what an export will need with the free space of its volume. Any thread, blocking.
struct ExportDestinationPreflight {
    // The volume does not tell.
    class CapacityReadError : public Error {
    public:
        enum class Case { unavailable };
        explicit CapacityReadError(const URL& url);
    };

    using CapacityReader = std::function<std::int64_t(const URL&)>;

    // Five per cent above the estimate, and a gigabyte for the staged and temporary copies.
    static double requiredBytes(double estimatedOutputBytes);

    static ExportDestinationPreflightResult evaluate(double estimatedOutputBytes, const URL& destination,
                                                     const CapacityReader& capacity = availableCapacity);

    // Bytes that this user may still write where the file or folder is, or will be made. Throws CapacityReadError.
    static std::int64_t availableCapacity(const URL& url);
};

} // namespace panoveer
