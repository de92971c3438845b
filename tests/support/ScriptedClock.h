// ScriptedClock.h: a clock source whose counter and tick count the test sets, so that clock
// arithmetic can be checked exactly and frame waits run without real time passing.
#pragma once

#include "CoreLib/platform/ClockSource.h"

#include <cstdint>

namespace zn::test {

// What the scripted clock reads, in nanoseconds of its counter and milliseconds of its ticks.
struct ScriptedClockState {
    int64_t counter = 0;
    uint32_t ticks = 0;
    bool ticksFollowCounter = false;
    int64_t readStep = 0;
    int64_t oversleep = 0;
    int sleepCount = 0;
};

// Installs itself for the scope. The counter runs at 1e9 per second, like the system's. Each
// counter reading advances it by readStep; a sleep advances it by the sleep plus oversleep. The
// tick count is set by hand, or follows the counter in whole milliseconds.
class ScopedScriptedClock {
public:
    static constexpr int64_t kFrequency = 1000000000;

    using State = ScriptedClockState;

    ScopedScriptedClock() {
        s_State = State{};
        platform::InstallClockSource(&kSource);
    }
    ~ScopedScriptedClock() { platform::InstallClockSource(nullptr); }
    ScopedScriptedClock(const ScopedScriptedClock&) = delete;
    ScopedScriptedClock& operator=(const ScopedScriptedClock&) = delete;

    State& state() { return s_State; }
    // Sets the counter to the given milliseconds and the tick count to ticks.
    void Set(int64_t counterMilliseconds, uint32_t ticks) {
        s_State.counter = counterMilliseconds * 1000000;
        s_State.ticks = ticks;
    }

private:
    static int64_t Counter() {
        int64_t value = s_State.counter;
        s_State.counter += s_State.readStep;
        return value;
    }
    static int64_t Frequency() { return kFrequency; }
    static uint32_t Ticks() {
        return s_State.ticksFollowCounter ? static_cast<uint32_t>(s_State.counter / 1000000) : s_State.ticks;
    }
    static void Sleep(uint32_t milliseconds, bool) {
        s_State.counter += int64_t{milliseconds} * 1000000 + s_State.oversleep;
        ++s_State.sleepCount;
    }

    static inline State s_State;
    static constexpr platform::ClockSource kSource = {Counter, Frequency, Ticks, Sleep};
};

}  // namespace zn::test
