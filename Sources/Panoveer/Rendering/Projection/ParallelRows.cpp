#include "Panoveer/Rendering/Projection/ParallelRows.h"

#include "Platform/Core/Processors.h"

#include <algorithm>
#include <atomic>
#include <exception>
#include <mutex>
#include <thread>
#include <vector>

namespace panoveer {

void forEachRowInParallel(int count, const std::function<void(int row)>& work) {
    std::atomic<int> next = 0;
    std::mutex mutex;
    std::exception_ptr failure; // guarded by mutex
    const auto take = [&] {
        try {
            for (int row = next++; row < count; row = next++)
                work(row);
        } catch (...) {
            next = count;
            std::lock_guard lock(mutex);
            if (!failure)
                failure = std::current_exception();
        }
    };
    {
        const int threads = std::clamp(availableProcessors(), 1, std::max(count, 1));
        std::vector<std::jthread> helpers;
        for (int i = 1; i < threads; ++i)
            helpers.emplace_back(take);
        take();
    }
    if (failure)
        std::rethrow_exception(failure);
}

} // namespace panoveer
