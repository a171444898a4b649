#include "Panoveer/Services/Export/ConcurrentExportFailure.h"

#include <utility>

namespace panoveer {

void ConcurrentExportFailure::record(std::exception_ptr failure) noexcept {
    const std::lock_guard lock(lock_);
    if (!error_)
        error_ = std::move(failure);
}

void ConcurrentExportFailure::rethrow() const {
    std::exception_ptr error;
    {
        const std::lock_guard lock(lock_);
        error = error_;
    }
    if (error)
        std::rethrow_exception(error);
}

} // namespace panoveer
