// The clock of the program benchmarks: CLOCK_MONOTONIC in nanoseconds, the
// same clock the program's timing lines use, so times compare across
// processes.
#pragma once

#include <ctime>

inline long long MonotonicNanoseconds()
{
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<long long>(now.tv_sec) * 1000000000LL + now.tv_nsec;
}
