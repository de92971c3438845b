// CoreLibFixture.h: runs each test between CoreLibSDM::Init and CoreLibSDM::Shutdown.
#pragma once

#include "CoreLib/CoreLibSDM.h"
#include "tests/support/CapturingLogger.h"

#include <gtest/gtest.h>

namespace zn::test {

class CoreLibFixture : public ::testing::Test {
protected:
    void SetUp() override { CoreLibSDM::Init(); }
    void TearDown() override { CoreLibSDM::Shutdown(); }
};

// Every report the capture holds came on channel.
inline void ExpectAllOnChannel(const ScopedCapture& capture, ELogChannel channel) {
    for (const CapturedReport& report : capture.Reports()) {
        EXPECT_EQ(report.channel, channel) << report.message;
    }
}

}  // namespace zn::test
