// Time.h: the clocks of the operating system, in the shapes the library's time code expects.
#pragma once

#include <cstdint>

namespace zn::platform {

// Calendar time split into fields, the layout of the Win32 SYSTEMTIME record.
struct SYSTEMTIME {
    uint16_t wYear;
    uint16_t wMonth;
    uint16_t wDayOfWeek;
    uint16_t wDay;
    uint16_t wHour;
    uint16_t wMinute;
    uint16_t wSecond;
    uint16_t wMilliseconds;
};

// Current time in UTC.
void GetSystemTime(SYSTEMTIME* time);
// Current time in the local time zone.
void GetLocalTime(SYSTEMTIME* time);

// Monotonic counter in nanoseconds; never goes back.
int64_t QueryPerformanceCounter();
// Ticks of QueryPerformanceCounter per second (1e9).
int64_t QueryPerformanceFrequency();
// Monotonic milliseconds, wrapping at 32 bits like the Win32 tick count.
uint32_t GetTickCount();
// The processor's time-stamp counter.
uint64_t ReadTimeStampCounter();
// Seconds since the epoch, as the run-time's _time64.
int64_t Time64();
// Suspends the calling thread for at least the given milliseconds; 0 gives up the time slice.
void Sleep(uint32_t milliseconds);

}  // namespace zn::platform
