// CoreLib.h: every public header of the library, for hosts that want one include.
#pragma once

#include "CoreLib/Assert.h"
#include "CoreLib/BoundedFormat.h"
#include "CoreLib/CoreLibSDM.h"
#include "CoreLib/CriticalSection.h"
#include "CoreLib/FunctionName.h"
#include "CoreLib/ILog.h"
#include "CoreLib/LogManager.h"
#include "CoreLib/Logger.h"
#include "CoreLib/PlatformShims.h"
#include "CoreLib/Report.h"
#include "CoreLib/Singleton.h"
#include "CoreLib/StaticDataManager.h"
#include "CoreLib/SystemProbes.h"
#include "CoreLib/TypeWrap.h"
#include "CoreLib/assert/AssertDialog.h"
