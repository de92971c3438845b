// CoreLibSDM.cpp: the start-up and shutdown order of the library's services.
#include "CoreLib/CoreLibSDM.h"

#include "CoreLib/Allocator.h"
#include "CoreLib/Assert.h"
#include "CoreLib/FileSystem.h"
#include "CoreLib/GlobalStringTable.h"
#include "CoreLib/Localization.h"
#include "CoreLib/LogManager.h"
#include "CoreLib/MemoryManager.h"
#include "CoreLib/PackedFileManager.h"
#include "CoreLib/Path.h"
#include "CoreLib/StaticDataManager.h"
#include "CoreLib/UnitVector3.h"
#include "CoreLib/WellKnownStrings.h"
#include "CoreLib/platform/Crt.h"
#include "CoreLib/platform/Time.h"

#include <iterator>
#include <new>

namespace zn {

bool CoreLibSDM::ms_bInitialized = false;
unsigned int CoreLibSDM::ms_uiInstanceCount = 0;

namespace {
CoreLibSDM::StepObserver s_StepObserver = nullptr;

void SeedRandom() {
    platform::CrtSrand(static_cast<uint32_t>(platform::Time64()));
}

void CreateAssertLock() {
    AssertLock = new (std::nothrow) CriticalSection(CriticalSection::kDefaultSpinCount);
}

void DeleteAssertLock() {
    delete AssertLock;
    AssertLock = nullptr;
}

// The result of Create is not checked: start-up has no failure path.
void CreateMemoryManager() {
    MemoryManager::Create();
}
void DestroyMemoryManager() {
    MemoryManager::Destroy();
}
// The XML log seeks in its file, which needs the memory system; it goes with the log manager.
void AddXmlLogger() {
    if (LogManager* manager = LogManager::GetInstance()) {
        manager->AddMemoryManagerDependentLoggers();
    }
}
void CreateGlobalAllocator() {
    Singleton<GlobalAllocator>::_SDMInit();
}
void DestroyGlobalAllocator() {
    Singleton<GlobalAllocator>::_SDMShutdown();
}
void CreateLocalization() {
    Singleton<Localization>::_SDMInit();
}
void DestroyLocalization() {
    Singleton<Localization>::_SDMShutdown();
}
void CreatePackedFileManager() {
    Singleton<PackedFileManager>::_SDMInit();
}
void DestroyPackedFileManager() {
    Singleton<PackedFileManager>::_SDMShutdown();
}
void CreateLargeBlockAllocator() {
    Singleton<LargeBlockAllocater>::_SDMInit();
}
void DestroyLargeBlockAllocator() {
    Singleton<LargeBlockAllocater>::_SDMShutdown();
}

// One service: how it comes up and how it goes down (null when there is nothing to undo).
// Shutdown walks this table backwards, so the two orders can never drift apart.
struct Step {
    const char* name;
    void (*start)();
    void (*stop)();
};

const Step kSteps[] = {
    {"SeedRandom", SeedRandom, nullptr},
    {"AssertLock", CreateAssertLock, DeleteAssertLock},
    {"LogManager", LogManager::Create, LogManager::Destroy},
    // The table stays filled until the process ends: nothing to undo.
    {"UnitVector3", UnitVector3::_SDMInit, nullptr},
    {"MemoryManager", CreateMemoryManager, DestroyMemoryManager},
    {"XmlLogger", AddXmlLogger, nullptr},
    {"GlobalAllocator", CreateGlobalAllocator, DestroyGlobalAllocator},
    {"LargeBlockAllocater", CreateLargeBlockAllocator, DestroyLargeBlockAllocator},
    {"GlobalStringTable", GlobalStringTable::_SDMInit, GlobalStringTable::_SDMShutdown},
    {"WellKnownStrings", WellKnownStringsInit, WellKnownStringsShutdown},
    {"Localization", CreateLocalization, DestroyLocalization},
    {"Path", Path::_SDMInit, Path::_SDMShutDown},
    {"FileSystem", FileSystem::_SDMInit, FileSystem::_SDMShutDown},
    {"PackedFileManager", CreatePackedFileManager, DestroyPackedFileManager},
};

void Notify(const char* step, bool starting) {
    if (s_StepObserver != nullptr) {
        s_StepObserver(step, starting);
    }
}
}  // namespace

CoreLibSDM::CoreLibSDM() {
    if (ms_uiInstanceCount++ == 0) {
        StaticDataManager::AddLibrary(CoreLibSDM::Init, CoreLibSDM::Shutdown, 0);
    }
}

void CoreLibSDM::SetStepObserver(StepObserver observer) {
    s_StepObserver = observer;
}

void CoreLibSDM::Init() {
    if (ms_bInitialized) {
        return;
    }
    ms_bInitialized = true;
    for (const Step& step : kSteps) {
        Notify(step.name, true);
        step.start();
    }
}

void CoreLibSDM::Shutdown() {
    if (!ms_bInitialized) {
        return;
    }
    ms_bInitialized = false;
    for (auto step = std::rbegin(kSteps); step != std::rend(kSteps); ++step) {
        if (step->stop != nullptr) {
            Notify(step->name, false);
            step->stop();
        }
    }
}

}  // namespace zn
