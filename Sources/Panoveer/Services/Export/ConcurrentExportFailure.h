#pragma once

#include <exception>
#include <mutex>

namespace panoveer {

// The first failure of whatever works beside the frame loop of an export, for that loop to find. Any thread.
class ConcurrentExportFailure {
public:
    // Keeps the failure if it is the first.
    void record(std::exception_ptr failure) noexcept;
    // Throws the failure if there is one.
    void rethrow() const;

private:
    mutable std::mutex lock_;
    std::exception_ptr error_; // guarded by lock_
};

} // namespace panoveer
