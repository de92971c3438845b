// StringTableFixture.h: a started library whose string table must end each test as it began.
#pragma once

#include "CoreLib/GlobalStringTable.h"
#include "tests/support/CoreLibFixture.h"

namespace zn::test {

class StringTableFixture : public CoreLibFixture {
protected:
    void SetUp() override {
        CoreLibFixture::SetUp();
        m_StringsAtStart = GlobalStringTable::s_NbStrings;
    }
    void TearDown() override {
        ExpectTableAsAtStart();
        CoreLibFixture::TearDown();
    }
    void ExpectTableAsAtStart() {
        EXPECT_TRUE(GlobalStringTable::Validate());
        EXPECT_EQ(GlobalStringTable::s_NbStrings, m_StringsAtStart) << "a test left strings behind";
    }
    unsigned int m_StringsAtStart = 0;
};

}  // namespace zn::test
