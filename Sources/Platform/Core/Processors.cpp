#include "Platform/Core/Processors.h"

#include <sched.h>

#include <algorithm>
#include <thread>

namespace panoveer {

int availableProcessors() {
    cpu_set_t set;
    if (sched_getaffinity(0, sizeof set, &set) == 0)
        return std::max(CPU_COUNT(&set), 1);
    return std::max(int(std::thread::hardware_concurrency()), 1);
}

void limitProcessors(int count) {
    cpu_set_t available;
    if (count < 1 || sched_getaffinity(0, sizeof available, &available) != 0)
        return;
    cpu_set_t chosen;
    CPU_ZERO(&chosen);
    for (int processor = 0; processor < CPU_SETSIZE && CPU_COUNT(&chosen) < count; ++processor)
        if (CPU_ISSET(processor, &available))
            CPU_SET(processor, &chosen);
    // A system that refuses leaves the work on all processors, as it was before.
    sched_setaffinity(0, sizeof chosen, &chosen);
}

} // namespace panoveer
