// ClockSource.h: where the library's stopwatches and frame clocks read time and wait. It is the
// operating system's clocks unless a test installs scripted readers.
#pragma once

#include <cstdint>

namespace zn::platform {

// The four operations a clock needs, with the meanings of their Win32 namesakes.
struct ClockSource {
    // Monotonic counter, in ticks of queryPerformanceFrequency.
    int64_t (*queryPerformanceCounter)();
    int64_t (*queryPerformanceFrequency)();
    // Milliseconds, wrapping at 32 bits.
    uint32_t (*getTickCount)();
    // Suspends the calling thread for at least the given milliseconds.
    void (*sleepEx)(uint32_t milliseconds, bool alertable);
};

// The readers in use.
const ClockSource& CurrentClockSource();
// Puts source in place of the operating system's clocks; null puts them back. The source must
// outlive its use; switching while a clock runs on another thread gives that clock mixed readings.
void InstallClockSource(const ClockSource* source);
// The operating system's readers.
const ClockSource& SystemClockSource();

}  // namespace zn::platform
