// GlobalSwitches_test.cpp: the defaults of the host's settings records, their copies, and the
// exported pointers the library leaves to the host.
#include "CoreLib/GlobalSwitches.h"

#include "tests/support/CoreLibFixture.h"

#include <gtest/gtest.h>

#include <type_traits>

namespace zn {
namespace {

using test::CoreLibFixture;

static_assert(std::is_base_of_v<TrackedObject<GlobalSwitches>, GlobalSwitches>);
static_assert(std::is_base_of_v<TrackedObject<GraphicSettingsRecord>, GraphicSettingsRecord>);
static_assert(std::has_virtual_destructor_v<GlobalSwitches>);
static_assert(std::has_virtual_destructor_v<struct zn::GraphicSettings>);
static_assert(std::is_same_v<decltype(zn::Global), GlobalSwitches*>);
static_assert(std::is_same_v<decltype(zn::GraphicSettings), struct zn::GraphicSettings*>);

TEST(GlobalSwitchesDefaults, EveryFieldAsListed) {
    GlobalSwitches switches;
    for (int index = 0; index < 19; ++index) {
        EXPECT_EQ(switches.flags[index], index == 17) << index;
    }
    EXPECT_EQ(switches.distances[0], 32.0f);
    EXPECT_EQ(switches.distances[1], 128.0f);
    EXPECT_EQ(switches.distances[2], 384.0f);
    EXPECT_EQ(switches.distances[3], 1024.0f);
    EXPECT_FALSE(switches.logLoadTimes);
    EXPECT_FALSE(switches.logSerializerTimes);
    EXPECT_EQ(switches.frameRate, 30.0f);
    for (bool flag : switches.moreFlags) {
        EXPECT_FALSE(flag);
    }
    EXPECT_TRUE(switches.languageFolder.IsEmpty());
    EXPECT_TRUE(switches.markMissingTranslations);
    EXPECT_EQ(switches.reserved16, 0);
    EXPECT_TRUE(switches.enabledFlag);
    EXPECT_EQ(switches.values[0], 0u);
    EXPECT_EQ(switches.values[1], 0u);
    EXPECT_EQ(switches.values[2], 0u);
    EXPECT_TRUE(switches.flagPair[0]);
    EXPECT_TRUE(switches.flagPair[1]);
    EXPECT_TRUE(switches.text.IsEmpty());
    EXPECT_TRUE(switches.lastFlags[0]);
    EXPECT_TRUE(switches.lastFlags[1]);
    EXPECT_TRUE(switches.lastFlags[2]);
}

TEST(GlobalSwitchesDefaults, FieldsInTheListedOrder) {
    GlobalSwitches switches;
    auto at = [&](const auto& field) { return reinterpret_cast<const char*>(&field); };
    EXPECT_LT(at(switches.flags), at(switches.distances));
    EXPECT_LT(at(switches.distances), at(switches.logLoadTimes));
    EXPECT_LT(at(switches.logLoadTimes), at(switches.logSerializerTimes));
    EXPECT_LT(at(switches.logSerializerTimes), at(switches.frameRate));
    EXPECT_LT(at(switches.frameRate), at(switches.moreFlags));
    EXPECT_LT(at(switches.moreFlags), at(switches.languageFolder));
    EXPECT_LT(at(switches.languageFolder), at(switches.markMissingTranslations));
    EXPECT_LT(at(switches.markMissingTranslations), at(switches.reserved16));
    EXPECT_LT(at(switches.reserved16), at(switches.enabledFlag));
    EXPECT_LT(at(switches.enabledFlag), at(switches.values));
    EXPECT_LT(at(switches.values), at(switches.flagPair));
    EXPECT_LT(at(switches.flagPair), at(switches.text));
    EXPECT_LT(at(switches.text), at(switches.lastFlags));
}

TEST(GraphicSettingsDefaults, EveryFieldAsListed) {
    GraphicSettingsRecord settings;
    EXPECT_FALSE(settings.flagA);
    EXPECT_FALSE(settings.flagB);
    EXPECT_EQ(settings.valueA, 0u);
    EXPECT_EQ(settings.valueB, 0u);
    EXPECT_FALSE(settings.flagC);
    EXPECT_EQ(settings.valueC, 1u);
    EXPECT_EQ(settings.scale, 1.0f);
    EXPECT_EQ(settings.valueD, 0u);
    EXPECT_EQ(settings.valueE, 0u);
    EXPECT_TRUE(settings.flagD);
    EXPECT_EQ(settings.valueF, 0u);
    EXPECT_EQ(settings.valueG, 100u);
    EXPECT_EQ(settings.valueH, 2u);
    for (int index = 0; index < 9; ++index) {
        EXPECT_EQ(settings.options[index], index != 6) << index;
    }
    EXPECT_EQ(settings.valueI, 1u);
    EXPECT_FALSE(settings.flagE);
    EXPECT_FALSE(settings.flagF);
    EXPECT_EQ(settings.valueJ, 60);
    EXPECT_LT(reinterpret_cast<const char*>(&settings.options),
              reinterpret_cast<const char*>(&settings.valueI));
    EXPECT_LT(reinterpret_cast<const char*>(&settings.flagF),
              reinterpret_cast<const char*>(&settings.valueJ));
}

TEST(GlobalSwitchesCopies, CopyAndAssignMemberByMember) {
    GlobalSwitches source;
    source.flags[3] = true;
    source.distances[2] = 5.5f;
    source.logLoadTimes = true;
    source.frameRate = 60.0f;
    source.languageFolder = L"French";
    source.values[1] = 7;
    source.text = "host text";
    source.lastFlags[2] = false;
    GlobalSwitches copy(source);
    EXPECT_TRUE(copy.flags[3]);
    EXPECT_TRUE(copy.flags[17]);
    EXPECT_EQ(copy.distances[2], 5.5f);
    EXPECT_TRUE(copy.logLoadTimes);
    EXPECT_EQ(copy.frameRate, 60.0f);
    EXPECT_EQ(copy.languageFolder, L"French");
    EXPECT_EQ(copy.values[1], 7u);
    EXPECT_EQ(copy.text, "host text");
    EXPECT_FALSE(copy.lastFlags[2]);
    GlobalSwitches assigned;
    assigned = source;
    EXPECT_TRUE(assigned.flags[3]);
    EXPECT_EQ(assigned.languageFolder, L"French");
    EXPECT_EQ(assigned.text, "host text");
    // The copies own their strings.
    source.text = "changed";
    EXPECT_EQ(copy.text, "host text");
    EXPECT_EQ(assigned.text, "host text");

    GraphicSettingsRecord settings;
    settings.valueG = 3;
    settings.options[6] = true;
    settings.valueJ = 144;
    GraphicSettingsRecord settingsCopy(settings);
    EXPECT_EQ(settingsCopy.valueG, 3u);
    EXPECT_TRUE(settingsCopy.options[6]);
    EXPECT_EQ(settingsCopy.valueJ, 144);
    struct zn::GraphicSettings settingsAssigned;
    settingsAssigned = settings;
    EXPECT_EQ(settingsAssigned.valueG, 3u);
    EXPECT_EQ(settingsAssigned.valueJ, 144);
}

class GlobalSwitchesPointers : public CoreLibFixture {};

TEST_F(GlobalSwitchesPointers, NullAfterStartUpAndSetByTheHost) {
    EXPECT_EQ(zn::Global, nullptr);
    EXPECT_EQ(zn::GraphicSettings, nullptr);
    // The host makes and owns the records.
    zn::Global = new GlobalSwitches;
    zn::GraphicSettings = new GraphicSettingsRecord;
    ASSERT_NE(zn::Global, nullptr);
    ASSERT_NE(zn::GraphicSettings, nullptr);
    EXPECT_TRUE(zn::Global->markMissingTranslations);
    EXPECT_EQ(zn::GraphicSettings->valueG, 100u);
    delete zn::Global;
    delete zn::GraphicSettings;
    zn::Global = nullptr;
    zn::GraphicSettings = nullptr;
    CoreLibSDM::Shutdown();
    CoreLibSDM::Init();
    EXPECT_EQ(zn::Global, nullptr);
    EXPECT_EQ(zn::GraphicSettings, nullptr);
}

}  // namespace
}  // namespace zn
