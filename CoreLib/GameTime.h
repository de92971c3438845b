// GameTime.h: the frame time value that the clock hands to input, events and timed services.
#pragma once

namespace zn {

// The time of one frame: where the game stands, how long the frame lasted, and how fast game time
// runs against real time.
class GameTime {
public:
    constexpr GameTime() : m_Time(0.0), m_DeltaTime(0.0f), m_TimeScale(1.0f) {}
    constexpr GameTime(double time, float deltaTime, float timeScale)
        : m_Time(time), m_DeltaTime(deltaTime), m_TimeScale(timeScale) {}

    // For calls whose time does not matter: 0, 0, 1.
    static const GameTime DONT_CARE;

    // Seconds.
    double m_Time;
    // Seconds of this frame.
    float m_DeltaTime;
    float m_TimeScale;
};

}  // namespace zn
