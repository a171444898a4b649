#pragma once

#include <functional>

namespace panoveer {

// Calls `work(row)` for every row 0…count-1, spread over the processor's cores, and returns when all are done. The
// calls come from several threads at once; the first exception of any is thrown again here.
void forEachRowInParallel(int count, const std::function<void(int row)>& work);

} // namespace panoveer
