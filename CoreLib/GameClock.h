// GameClock.h: the frame clock a host ticks once a frame, with an optional cap on the frame rate.
#pragma once

#include "CoreLib/PreciseClock.h"

#include <cstdint>

namespace zn {

// Times frames on the performance counter. With a cap, Tick holds each frame to the target length:
// it sleeps most of the rest and spins the remainder, and a wait that overran is taken off the next.
class GameClock : public PreciseClock {
public:
    // name is kept, not copied: pass a text that outlives the clock.
    explicit GameClock(const char* name);

    // Starts the clock's time at zero with a cap of framesPerSecond (0: no cap).
    void Init(unsigned short framesPerSecond);
    // Marks the end of a frame; with a cap, waits until the frame has lasted its target length.
    void Tick();
    // Seconds from Init to the last Tick.
    double GetTickCount() const;
    // Seconds between the two last ticks.
    float GetDeltaTime() const;
    // 0 turns the cap off.
    void SetFrameCap(unsigned short framesPerSecond);

    const char* GetName() const { return m_Name; }
    // Target microseconds per frame; 0 without a cap.
    int32_t GetFrameTime() const { return m_FrameTime; }
    // Microseconds by which the last wait overran.
    int64_t GetOvershoot() const { return m_Overshoot; }

private:
    // Waits the given microseconds less the last overshoot.
    void LockFrame(int32_t microseconds);
    double CounterToSeconds(int64_t counterDelta) const;

    const char* m_Name;
    int32_t m_FrameTime;
    int64_t m_Overshoot;
    int64_t m_Frequency;
    int64_t m_StartTime;
    int64_t m_Now;
    int64_t m_Previous;
};

}  // namespace zn
