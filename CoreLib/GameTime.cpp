// GameTime.cpp: the shared "time does not matter" value, built at compile time so that it exists
// before any start-up code runs.
#include "CoreLib/GameTime.h"

namespace zn {

constinit const GameTime GameTime::DONT_CARE{};

}  // namespace zn
