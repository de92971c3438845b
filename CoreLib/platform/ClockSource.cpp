// ClockSource.cpp: the replaceable readers of the counters, over the operating system's clocks.
#include "CoreLib/platform/ClockSource.h"

#include "CoreLib/platform/Time.h"

#include <atomic>

namespace zn::platform {

namespace {
// An alertable wait exists to run queued asynchronous procedure calls, which this platform does
// not have: the wait is a plain sleep.
void SystemSleepEx(uint32_t milliseconds, bool /*alertable*/) {
    Sleep(milliseconds);
}

constexpr ClockSource kSystemClockSource = {QueryPerformanceCounter, QueryPerformanceFrequency, GetTickCount,
                                            SystemSleepEx};

// Acquire and release pair an installation with the readings taken on other threads after it.
std::atomic<const ClockSource*> s_CurrentSource{&kSystemClockSource};
}  // namespace

const ClockSource& CurrentClockSource() {
    return *s_CurrentSource.load(std::memory_order_acquire);
}

void InstallClockSource(const ClockSource* source) {
    s_CurrentSource.store(source != nullptr ? source : &kSystemClockSource, std::memory_order_release);
}

const ClockSource& SystemClockSource() {
    return kSystemClockSource;
}

}  // namespace zn::platform
