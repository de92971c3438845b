// GameClock: the frame cap's arithmetic, the overshoot carry on a scripted clock, and the cap
// holding a real frame rate.
#include "CoreLib/GameClock.h"

#include "tests/support/CapturingLogger.h"
#include "tests/support/CoreLibFixture.h"
#include "tests/support/ScriptedClock.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>

namespace zn::test {
namespace {

using ::testing::ElementsAre;

using GameClockTest = CoreLibFixture;

TEST_F(GameClockTest, FrameCapIsTheFlooredFrameLengthAndZeroTurnsItOff) {
    GameClock clock("Frames");
    EXPECT_STREQ(clock.GetName(), "Frames");
    const struct {
        unsigned short fps;
        int32_t microseconds;
    } cases[] = {{30, 33333}, {60, 16666}, {7, 142857}, {1, 1000000}, {1000, 1000}, {0, 0}};
    for (const auto& c : cases) {
        clock.SetFrameCap(c.fps);
        EXPECT_EQ(clock.GetFrameTime(), c.microseconds) << c.fps;
    }
}

TEST_F(GameClockTest, TimeSinceInitAndFrameDeltasFollowTheCounter) {
    ScopedScriptedClock script;
    script.Set(4000, 4000);
    GameClock clock("Main");
    clock.Init(0);
    EXPECT_EQ(clock.GetTickCount(), 0.0);
    script.Set(4250, 4250);
    clock.Tick();
    script.Set(6500, 6500);
    clock.Tick();
    EXPECT_DOUBLE_EQ(clock.GetTickCount(), 2.5);
    EXPECT_FLOAT_EQ(clock.GetDeltaTime(), 2.25f);
    EXPECT_EQ(script.state().sleepCount, 0);
}

// Every sleep overruns by 3 ms. The first frame pays for it (a 9 ms sleep for a 9.999 ms wait
// lasts 12 ms); from then on the overrun is taken off the next wait and the frames keep their
// length, where without the carry each would last 12 ms.
TEST_F(GameClockTest, OvershootIsCarriedIntoTheNextFrame) {
    ScopedScriptedClock script;
    script.state().ticksFollowCounter = true;
    script.state().readStep = 1000;  // 1 microsecond per reading, so the spin ends
    script.state().oversleep = 3000000;
    GameClock clock("Capped");
    clock.Init(100);
    clock.Tick();
    EXPECT_NEAR(clock.GetDeltaTime(), 0.012, 0.00005);
    EXPECT_NEAR(static_cast<double>(clock.GetOvershoot()), 2000.0, 10.0);
    for (int frame = 0; frame < 10; ++frame) {
        clock.Tick();
        EXPECT_NEAR(clock.GetDeltaTime(), 0.010, 0.00005) << frame;
    }
    EXPECT_EQ(script.state().sleepCount, 11);

    // A late frame waits for nothing.
    script.state().counter += 25000000;
    int sleepsBefore = script.state().sleepCount;
    clock.Tick();
    EXPECT_EQ(script.state().sleepCount, sleepsBefore);
}

TEST_F(GameClockTest, InitOfARunningClockReports) {
    ScopedCapture capture;
    GameClock clock("Main");
    clock.Init(1000);
    EXPECT_TRUE(capture.Messages().empty());
    clock.Tick();  // the wait runs the clock's stopwatch
    clock.Init(1000);
    EXPECT_THAT(capture.Messages(), ElementsAre("Clock wasn't stopped @ init"));
    EXPECT_EQ(capture.Reports()[0].function, "zn::GameClock::Init");
}

TEST_F(GameClockTest, WithoutACapTicksDoNotWaitAndTheFirstDeltaIsNearZero) {
    GameClock clock("Free");
    clock.Init(60);
    clock.SetFrameCap(0);
    auto begin = std::chrono::steady_clock::now();
    clock.Tick();
    EXPECT_LT(clock.GetDeltaTime(), 0.005f);
    for (int frame = 0; frame < 200; ++frame) {
        clock.Tick();
    }
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(100));
    EXPECT_GE(clock.GetTickCount(), 0.0);
}

TEST_F(GameClockTest, ThirtyFramesAtACapOfThirtyTakeASecond) {
    GameClock clock("Capped");
    clock.Init(30);
    auto begin = std::chrono::steady_clock::now();
    for (int frame = 0; frame < 30; ++frame) {
        clock.Tick();
    }
    double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
    double measured = 30.0 / seconds;
    EXPECT_GE(measured, 25.0);
    EXPECT_LE(measured, 31.0);
    EXPECT_NEAR(clock.GetTickCount(), seconds, 0.005);
}

}  // namespace
}  // namespace zn::test
