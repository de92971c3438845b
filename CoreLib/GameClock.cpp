// GameClock.cpp: frame timing and the frame cap's sleep-then-spin wait.
#include "CoreLib/GameClock.h"

#include "CoreLib/Report.h"
#include "CoreLib/platform/ClockSource.h"
#include "CoreLib/platform/Sync.h"

#include <cmath>

namespace zn {

GameClock::GameClock(const char* name)
    : PreciseClock(false),
      m_Name(name),
      m_FrameTime(0),
      m_Overshoot(0),
      m_Frequency(platform::CurrentClockSource().queryPerformanceFrequency()),
      m_StartTime(0),
      m_Now(0),
      m_Previous(0) {}

void GameClock::Init(unsigned short framesPerSecond) {
    if (!isStopped()) {
        ZN_REPORT("Clock wasn't stopped @ init");
    }
    SetFrameCap(framesPerSecond);
    const platform::ClockSource& source = platform::CurrentClockSource();
    m_Frequency = source.queryPerformanceFrequency();
    m_StartTime = source.queryPerformanceCounter();
    m_Now = m_StartTime;
    m_Previous = m_StartTime;
}

void GameClock::SetFrameCap(unsigned short framesPerSecond) {
    if (framesPerSecond == 0) {
        m_FrameTime = 0;
        return;
    }
    m_FrameTime = static_cast<int32_t>(std::floor(1000000.0f / static_cast<float>(framesPerSecond)));
}

void GameClock::Tick() {
    const platform::ClockSource& source = platform::CurrentClockSource();
    m_Previous = m_Now;
    m_Now = source.queryPerformanceCounter();
    if (m_FrameTime <= 0) {
        return;
    }
    double frameMicroseconds = std::floor(CounterToSeconds(m_Now - m_Previous) * 1000000.0);
    if (frameMicroseconds < 0.0) {
        // Only a scripted counter runs back; such a frame counts as empty.
        frameMicroseconds = 0.0;
    }
    if (frameMicroseconds <= m_FrameTime) {
        LockFrame(m_FrameTime - static_cast<int32_t>(frameMicroseconds));
        m_Now = source.queryPerformanceCounter();
    }
}

void GameClock::LockFrame(int32_t microseconds) {
    restart();
    int64_t realWait = microseconds - m_Overshoot;
    if (realWait < 0) {
        realWait = 0;
    }
    platform::CurrentClockSource().sleepEx(static_cast<uint32_t>(realWait / 1000), true);
    // The sleep ends on a scheduler tick; the spin takes the clock the rest of the way.
    uint64_t elapsed = getTimeMicroseconds();
    while (elapsed <= static_cast<uint64_t>(realWait)) {
        platform::PauseHint();
        elapsed = getTimeMicroseconds();
    }
    m_Overshoot = static_cast<int64_t>(elapsed) - realWait;
    ZN_ASSERT(m_Overshoot >= 0);
}

double GameClock::GetTickCount() const {
    return CounterToSeconds(m_Now - m_StartTime);
}

float GameClock::GetDeltaTime() const {
    return static_cast<float>(CounterToSeconds(m_Now - m_Previous));
}

double GameClock::CounterToSeconds(int64_t counterDelta) const {
    return m_Frequency > 0 ? static_cast<double>(counterDelta) / static_cast<double>(m_Frequency) : 0.0;
}

}  // namespace zn
