// GlobalSwitches.cpp: the defaults of the host's settings records and the two exported pointers.
#include "CoreLib/GlobalSwitches.h"

namespace zn {

GlobalSwitches* Global = nullptr;
GraphicSettingsRecord* GraphicSettings = nullptr;

GlobalSwitches::GlobalSwitches()
    : flags{false, false, false, false, false, false, false, false, false, false,
            false, false, false, false, false, false, false, true,  false},
      distances{32.0f, 128.0f, 384.0f, 1024.0f},
      logLoadTimes(false),
      logSerializerTimes(false),
      frameRate(30.0f),
      moreFlags{false, false, false, false, false, false},
      languageFolder(),
      markMissingTranslations(true),
      reserved16(0),
      enabledFlag(true),
      values{0, 0, 0},
      flagPair{true, true},
      text(),
      lastFlags{true, true, true} {}

// Member by member, arrays element by element.
GlobalSwitches::GlobalSwitches(const GlobalSwitches& other) = default;
GlobalSwitches& GlobalSwitches::operator=(const GlobalSwitches& other) = default;
GlobalSwitches::~GlobalSwitches() = default;

GraphicSettingsRecord::GraphicSettings()
    : flagA(false),
      flagB(false),
      valueA(0),
      valueB(0),
      flagC(false),
      valueC(1),
      scale(1.0f),
      valueD(0),
      valueE(0),
      flagD(true),
      valueF(0),
      valueG(100),
      valueH(2),
      options{true, true, true, true, true, true, false, true, true},
      valueI(1),
      flagE(false),
      flagF(false),
      valueJ(60) {}

GraphicSettingsRecord::GraphicSettings(const GraphicSettingsRecord& other) = default;
GraphicSettingsRecord& GraphicSettingsRecord::operator=(const GraphicSettingsRecord& other) = default;
GraphicSettingsRecord::~GraphicSettings() = default;

}  // namespace zn
