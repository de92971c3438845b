// GameTime: the frame time value and its shared "time does not matter" instance.
#include "CoreLib/GameTime.h"

#include <gtest/gtest.h>

namespace zn {
namespace {

TEST(GameTime, DefaultIsTheStartWithUnitScaleAndDontCareEqualsIt) {
    GameTime start;
    EXPECT_EQ(start.m_Time, 0.0);
    EXPECT_EQ(start.m_DeltaTime, 0.0f);
    EXPECT_EQ(start.m_TimeScale, 1.0f);
    EXPECT_EQ(GameTime::DONT_CARE.m_Time, 0.0);
    EXPECT_EQ(GameTime::DONT_CARE.m_DeltaTime, 0.0f);
    EXPECT_EQ(GameTime::DONT_CARE.m_TimeScale, 1.0f);

    GameTime frame(12.5, 0.016f, 0.5f);
    EXPECT_EQ(frame.m_Time, 12.5);
    EXPECT_EQ(frame.m_DeltaTime, 0.016f);
    EXPECT_EQ(frame.m_TimeScale, 0.5f);
}

}  // namespace
}  // namespace zn
