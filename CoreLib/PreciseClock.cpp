// PreciseClock.cpp: elapsed time from the performance counter, with the tick count as a check.
#include "CoreLib/PreciseClock.h"

#include "CoreLib/Report.h"
#include "CoreLib/platform/ClockSource.h"

namespace zn {

namespace {
// value * multiplier / divisor without the overflow of the 64-bit product: a nanosecond counter
// times a million passes 2^63 after two and a half hours.
int64_t ScaleTicks(int64_t value, int64_t multiplier, int64_t divisor) {
    return static_cast<int64_t>(static_cast<__int128>(value) * multiplier / divisor);
}
}  // namespace

PreciseClock::PreciseClock(bool startNow)
    : m_StartCounter(0), m_Accumulated(0), m_StartTicks(0), m_Running(false) {
    TakeStartingValues();
    if (startNow) {
        start();
    }
}

void PreciseClock::TakeStartingValues() {
    const platform::ClockSource& source = platform::CurrentClockSource();
    m_StartCounter = source.queryPerformanceCounter();
    m_StartTicks = source.getTickCount();
}

void PreciseClock::reset() {
    m_Accumulated = 0;
    TakeStartingValues();
}

void PreciseClock::start() {
    if (m_Running) {
        ZN_REPORT("Timer already started");
    }
    TakeStartingValues();
    m_Running = true;
}

float PreciseClock::stop() {
    m_Accumulated = getTimeMicroseconds();
    if (!m_Running) {
        ZN_REPORT("Timer already stopped");
    }
    m_Running = false;
    return getTimeSeconds();
}

float PreciseClock::restart() {
    float seconds = getTimeSeconds();
    if (m_Running) {
        stop();
    }
    reset();
    start();
    return seconds;
}

void PreciseClock::GetElapsedValues(int64_t& counterDelta, uint64_t& tickDelta) const {
    if (!m_Running) {
        counterDelta = 0;
        tickDelta = 0;
        return;
    }
    const platform::ClockSource& source = platform::CurrentClockSource();
    counterDelta = source.queryPerformanceCounter() - m_StartCounter;
    uint32_t ticks = source.getTickCount();
    if (ticks < m_StartTicks) {
        ZN_REPORT("Start time comes from a later time than current time");
    }
    // Unsigned 32-bit difference: correct across the wrap of the tick count.
    tickDelta = static_cast<uint32_t>(ticks - m_StartTicks);
}

uint64_t PreciseClock::getTimeMicroseconds() const {
    int64_t counterDelta = 0;
    uint64_t tickDelta = 0;
    GetElapsedValues(counterDelta, tickDelta);
    int64_t frequency = platform::CurrentClockSource().queryPerformanceFrequency();
    if (counterDelta < 0) {
        return 0;
    }
    if (frequency <= 0) {
        // A counter without a rate cannot be converted; only what stop kept is known.
        return m_Accumulated;
    }
    uint64_t counterMilliseconds = static_cast<uint64_t>(ScaleTicks(counterDelta, 1000, frequency));
    if (counterMilliseconds > tickDelta && counterMilliseconds - tickDelta > kDriftToleranceMilliseconds) {
        int64_t excess = static_cast<int64_t>(counterMilliseconds - tickDelta);
        counterDelta -= ScaleTicks(excess, frequency, 1000);
    }
    return static_cast<uint64_t>(ScaleTicks(counterDelta, 1000000, frequency)) + m_Accumulated;
}

float PreciseClock::getTimeSeconds() const {
    uint64_t microseconds = getTimeMicroseconds();
    // Whole seconds and the rest apart, so neither half loses the other's digits in the conversion.
    double wholeSeconds = static_cast<double>(microseconds / 1000000);
    double fraction = static_cast<double>(microseconds % 1000000) / 1000000.0;
    return static_cast<float>(wholeSeconds + fraction);
}

uint64_t PreciseClock::getTimeMilliseconds() const {
    return (getTimeMicroseconds() + 500) / 1000;
}

}  // namespace zn
