// PreciseClock: start/stop/restart bookkeeping and its reports, the conversions, and the drift
// correction against the tick count, on a scripted clock source.
#include "CoreLib/PreciseClock.h"

#include "tests/support/CapturingLogger.h"
#include "tests/support/CoreLibFixture.h"
#include "tests/support/ScriptedClock.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <thread>

namespace zn::test {
namespace {

using ::testing::ElementsAre;

class PreciseClockTest : public CoreLibFixture {
protected:
    // A clock started at counter 1000 ms and tick 1000, then read at the given values.
    uint64_t MicrosecondsAt(int64_t counterMilliseconds, uint32_t ticks) {
        m_Script.Set(1000, 1000);
        PreciseClock clock(true);
        m_Script.Set(counterMilliseconds, ticks);
        return clock.getTimeMicroseconds();
    }
    ScopedScriptedClock m_Script;
};

TEST_F(PreciseClockTest, AccumulatesAcrossStopAndStartAndRestartsFromZero) {
    m_Script.Set(0, 0);
    PreciseClock clock(false);
    EXPECT_TRUE(clock.isStopped());
    m_Script.Set(5000, 5000);
    EXPECT_EQ(clock.getTimeMicroseconds(), 0u);

    clock.start();
    m_Script.Set(7000, 7000);
    EXPECT_FLOAT_EQ(clock.stop(), 2.0f);
    m_Script.Set(20000, 20000);  // time while stopped does not count
    EXPECT_EQ(clock.getTimeMicroseconds(), 2000000u);

    clock.start();
    m_Script.Set(21250, 21250);
    EXPECT_EQ(clock.getTimeMilliseconds(), 3250u);
    EXPECT_FLOAT_EQ(clock.restart(), 3.25f);
    EXPECT_FALSE(clock.isStopped());
    EXPECT_EQ(clock.getTimeMicroseconds(), 0u);
    m_Script.Set(21750, 21750);
    EXPECT_EQ(clock.getTimeMicroseconds(), 500000u);

    clock.stop();
    clock.reset();
    EXPECT_TRUE(clock.isStopped());
    EXPECT_EQ(clock.getTimeMicroseconds(), 0u);
}

TEST_F(PreciseClockTest, StartingTwiceAndStoppingTwiceReportExactly) {
    ScopedCapture capture;
    PreciseClock clock(true);
    clock.start();
    clock.stop();
    clock.stop();
    EXPECT_THAT(capture.Messages(), ElementsAre("Timer already started", "Timer already stopped"));
    auto reports = capture.Reports();
    ASSERT_EQ(reports.size(), 2u);
    EXPECT_EQ(reports[0].function, "zn::PreciseClock::start");
    EXPECT_EQ(reports[1].function, "zn::PreciseClock::stop");
    ExpectAllOnChannel(capture, LogAssertProgrammer);

    capture.Logger().Clear();
    clock.start();
    clock.restart();
    clock.stop();
    EXPECT_TRUE(capture.Messages().empty());
}

TEST_F(PreciseClockTest, MillisecondsRoundAndLongRunsDoNotOverflow) {
    m_Script.Set(0, 0);
    PreciseClock clock(true);
    m_Script.state().counter = 1499000;
    EXPECT_EQ(clock.getTimeMilliseconds(), 1u);
    m_Script.state().counter = 1500000;
    EXPECT_EQ(clock.getTimeMilliseconds(), 2u);
    // Three hours of nanoseconds: the counter times a million is past 2^63.
    m_Script.Set(3 * 3600 * 1000, 3 * 3600 * 1000);
    EXPECT_EQ(clock.getTimeMicroseconds(), 10800000000u);
    EXPECT_FLOAT_EQ(clock.getTimeSeconds(), 10800.0f);
}

TEST_F(PreciseClockTest, CounterAheadOfTicksBeyondTheToleranceIsCutBackToTheTicks) {
    ASSERT_EQ(PreciseClock::kDriftToleranceMilliseconds, 100u);
    // 5 s on the counter, 0.5 s on the ticks: the counter leapt; the ticks are believed.
    EXPECT_EQ(MicrosecondsAt(6000, 1500), 500000u);
    // Exactly at the tolerance the counter stands; one past, it is cut back.
    EXPECT_EQ(MicrosecondsAt(1600, 1500), 600000u);
    EXPECT_EQ(MicrosecondsAt(1601, 1500), 500000u);
    // The sub-millisecond part of the counter survives the cut.
    m_Script.Set(1000, 1000);
    PreciseClock clock(true);
    m_Script.state().counter = 1601250000;
    m_Script.state().ticks = 1500;
    EXPECT_EQ(clock.getTimeMicroseconds(), 500250u);
    // A counter behind the ticks is never corrected.
    EXPECT_EQ(MicrosecondsAt(1400, 1900), 400000u);
}

TEST_F(PreciseClockTest, TicksBeforeTheStartReportAndACounterGoingBackGivesZero) {
    ScopedCapture capture;
    EXPECT_EQ(MicrosecondsAt(1250, 999), 250000u);
    EXPECT_THAT(capture.Messages(), ElementsAre("Start time comes from a later time than current time"));
    EXPECT_EQ(capture.Reports()[0].function, "zn::PreciseClock::GetElapsedValues");

    // The accumulated time is not added to a reading that went back.
    m_Script.Set(0, 0);
    PreciseClock clock(true);
    m_Script.Set(2000, 2000);
    clock.stop();
    clock.start();
    m_Script.Set(1500, 2000);
    EXPECT_EQ(clock.getTimeMicroseconds(), 0u);
}

TEST(PreciseClockSystem, MeasuresRealTimeAgainstTheStandardClock) {
    PreciseClock clock(true);
    auto begin = std::chrono::steady_clock::now();
    std::this_thread::sleep_for(std::chrono::milliseconds(40));
    uint64_t measured = clock.getTimeMicroseconds();
    auto outside =
        std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::steady_clock::now() - begin);
    EXPECT_GE(measured, 40000u);
    EXPECT_LE(measured, static_cast<uint64_t>(outside.count()) + 1000);
}

}  // namespace
}  // namespace zn::test
