// PreciseClock.h: a stopwatch on the performance counter, checked against the tick count.
#pragma once

#include "CoreLib/TrackedObject.h"

#include <cstdint>

namespace zn {

// Measures running time across start and stop. The performance counter gives the resolution; the
// coarse tick count keeps a counter that leaps ahead from reaching the result.
class PreciseClock : public TrackedObject<PreciseClock> {
public:
    // How far the counter may run ahead of the tick count before the excess is taken off.
    static constexpr uint64_t kDriftToleranceMilliseconds = 100;

    // A stopped clock at zero, or one already running when startNow is true.
    explicit PreciseClock(bool startNow);

    // Clears the accumulated time and takes new starting values; a running clock keeps running.
    void reset();
    // Starts measuring from now. Starting a running clock reports and starts again from now.
    void start();
    // Keeps the time measured so far and stops; returns it in seconds.
    float stop();
    // Returns the seconds measured so far and starts again from zero, running.
    float restart();
    bool isStopped() const { return !m_Running; }

    float getTimeSeconds() const;
    // Rounded to the nearest millisecond.
    uint64_t getTimeMilliseconds() const;
    uint64_t getTimeMicroseconds() const;

private:
    // Counter ticks and milliseconds since the start; both 0 when the clock is stopped.
    void GetElapsedValues(int64_t& counterDelta, uint64_t& tickDelta) const;
    void TakeStartingValues();

    int64_t m_StartCounter;
    // Microseconds kept by stop.
    uint64_t m_Accumulated;
    uint32_t m_StartTicks;
    bool m_Running;
};

}  // namespace zn
