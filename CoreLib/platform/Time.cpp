// Time.cpp: the clocks of the operating system.
#include "CoreLib/platform/Time.h"

#include <sched.h>
#include <time.h>
#include <x86intrin.h>

namespace zn::platform {

namespace {
void FillSystemTime(const struct tm& calendar, long nanoseconds, SYSTEMTIME* time) {
    time->wYear = static_cast<uint16_t>(calendar.tm_year + 1900);
    time->wMonth = static_cast<uint16_t>(calendar.tm_mon + 1);
    time->wDayOfWeek = static_cast<uint16_t>(calendar.tm_wday);
    time->wDay = static_cast<uint16_t>(calendar.tm_mday);
    time->wHour = static_cast<uint16_t>(calendar.tm_hour);
    time->wMinute = static_cast<uint16_t>(calendar.tm_min);
    // A leap second reads as the last second of the minute, as the Win32 clock never shows 60.
    time->wSecond = static_cast<uint16_t>(calendar.tm_sec > 59 ? 59 : calendar.tm_sec);
    time->wMilliseconds = static_cast<uint16_t>(nanoseconds / 1000000);
}

int64_t MonotonicNanoseconds() {
    struct timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<int64_t>(now.tv_sec) * 1000000000 + now.tv_nsec;
}
}  // namespace

void GetSystemTime(SYSTEMTIME* time) {
    struct timespec now;
    clock_gettime(CLOCK_REALTIME, &now);
    struct tm calendar;
    gmtime_r(&now.tv_sec, &calendar);
    FillSystemTime(calendar, now.tv_nsec, time);
}

void GetLocalTime(SYSTEMTIME* time) {
    struct timespec now;
    clock_gettime(CLOCK_REALTIME, &now);
    struct tm calendar;
    localtime_r(&now.tv_sec, &calendar);
    FillSystemTime(calendar, now.tv_nsec, time);
}

int64_t QueryPerformanceCounter() {
    return MonotonicNanoseconds();
}

int64_t QueryPerformanceFrequency() {
    return 1000000000;
}

uint32_t GetTickCount() {
    return static_cast<uint32_t>(MonotonicNanoseconds() / 1000000);
}

uint64_t ReadTimeStampCounter() {
    return __rdtsc();
}

int64_t Time64() {
    return static_cast<int64_t>(::time(nullptr));
}

void Sleep(uint32_t milliseconds) {
    if (milliseconds == 0) {
        sched_yield();
        return;
    }
    struct timespec remaining;
    remaining.tv_sec = milliseconds / 1000;
    remaining.tv_nsec = static_cast<long>(milliseconds % 1000) * 1000000;
    while (nanosleep(&remaining, &remaining) != 0) {
        // Interrupted by a signal: sleep what is left.
    }
}

}  // namespace zn::platform
