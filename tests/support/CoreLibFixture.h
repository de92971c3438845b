// CoreLibFixture.h: runs each test between CoreLibSDM::Init and CoreLibSDM::Shutdown.
#pragma once

#include "CoreLib/CoreLibSDM.h"

#include <gtest/gtest.h>

namespace zn::test {

class CoreLibFixture : public ::testing::Test {
protected:
    void SetUp() override { CoreLibSDM::Init(); }
    void TearDown() override { CoreLibSDM::Shutdown(); }
};

}  // namespace zn::test
