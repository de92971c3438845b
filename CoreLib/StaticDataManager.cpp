// StaticDataManager.cpp: ordering, starting and stopping registered libraries.
#include "CoreLib/StaticDataManager.h"

#include "CoreLib/CoreLibSDM.h"
#include "CoreLib/Report.h"

#include <utility>

namespace zn {

unsigned int StaticDataManager::ms_apOrder[s_NbLibraries] = {};
StaticDataManager::Function StaticDataManager::ms_apfnShutdownFunctions[s_NbLibraries] = {};
StaticDataManager::Function StaticDataManager::ms_apfnInitFunctions[s_NbLibraries] = {};
unsigned int StaticDataManager::ms_uiNumLibraries = 0;
unsigned int StaticDataManager::ms_uiNumInitializedLibraries = 0;
StaticDataManager::Function StaticDataManager::ms_pfnRootInitFunction = nullptr;
StaticDataManager::Function StaticDataManager::ms_pfnRootShutdownFunction = nullptr;
bool StaticDataManager::ms_bInitialized = false;

void StaticDataManager::Init() {
    if (ms_bInitialized) {
        return;
    }
    CoreLibSDM::Init();
    if (ms_pfnRootInitFunction != nullptr) {
        ms_pfnRootInitFunction();
    }
    ms_bInitialized = true;
    ProcessAccumulatedLibraries();
}

void StaticDataManager::Shutdown() {
    for (unsigned int index = s_NbLibraries; index-- > 0;) {
        if (ms_apfnShutdownFunctions[index] != nullptr) {
            ms_apfnShutdownFunctions[index]();
        }
    }
    ms_uiNumInitializedLibraries = 0;
    if (ms_pfnRootShutdownFunction != nullptr) {
        ms_pfnRootShutdownFunction();
    }
    CoreLibSDM::Shutdown();
    ms_bInitialized = false;
}

void StaticDataManager::SetRootLibrary(Function init, Function shutdown) {
    ms_pfnRootInitFunction = init;
    ms_pfnRootShutdownFunction = shutdown;
}

void StaticDataManager::AddLibrary(Function init, Function shutdown, int order) {
    if (ms_uiNumLibraries >= s_NbLibraries) {
        ZN_REPORT("Running out of library space. Increase the list of SDM's that can be loaded.");
        // The table has no seventeenth slot: the entry is dropped rather than written behind it.
        return;
    }
    ms_apOrder[ms_uiNumLibraries] = static_cast<unsigned int>(order);
    ms_apfnShutdownFunctions[ms_uiNumLibraries] = shutdown;
    ms_apfnInitFunctions[ms_uiNumLibraries] = init;
    ++ms_uiNumLibraries;
}

void StaticDataManager::RemoveLibrary(Function init, Function shutdown) {
    unsigned int index = 0;
    while (index < ms_uiNumLibraries &&
           !(ms_apfnInitFunctions[index] == init && ms_apfnShutdownFunctions[index] == shutdown)) {
        ++index;
    }
    if (index == ms_uiNumLibraries) {
        ZN_REPORT(
            "Error. More libraries got removed than there were in the list. Check your shutdown process.");
    }
    if (index < ms_uiNumInitializedLibraries) {
        if (shutdown != nullptr) {
            shutdown();
        }
        --ms_uiNumInitializedLibraries;
    }
    // An unknown pair in an empty registry must not wrap the count around.
    if (ms_uiNumLibraries == 0) {
        return;
    }
    --ms_uiNumLibraries;
    // Orders stay at their old indices on purpose: only the functions move down.
    for (unsigned int later = index; later < ms_uiNumLibraries; ++later) {
        ms_apfnShutdownFunctions[later] = ms_apfnShutdownFunctions[later + 1];
        ms_apfnInitFunctions[later] = ms_apfnInitFunctions[later + 1];
    }
    // The vacated last slot is emptied, or the walks over all 16 slots would run it again.
    if (index <= ms_uiNumLibraries) {
        ms_apfnShutdownFunctions[ms_uiNumLibraries] = nullptr;
        ms_apfnInitFunctions[ms_uiNumLibraries] = nullptr;
    }
}

void StaticDataManager::SwapEntries(unsigned int first, unsigned int second) {
    std::swap(ms_apOrder[first], ms_apOrder[second]);
    std::swap(ms_apfnShutdownFunctions[first], ms_apfnShutdownFunctions[second]);
    std::swap(ms_apfnInitFunctions[first], ms_apfnInitFunctions[second]);
}

void StaticDataManager::ProcessAccumulatedLibraries() {
    if (!ms_bInitialized) {
        return;
    }
    unsigned int done = ms_uiNumInitializedLibraries;
    for (unsigned int place = 1; place <= s_NbLibraries; ++place) {
        for (unsigned int index = done; index < ms_uiNumLibraries; ++index) {
            if (ms_apOrder[index] == place && index != place - 1) {
                SwapEntries(index, place - 1);
                break;
            }
        }
    }
    for (unsigned int index = done; index < s_NbLibraries; ++index) {
        if (ms_apfnInitFunctions[index] != nullptr) {
            ms_apfnInitFunctions[index]();
        }
    }
    ms_uiNumInitializedLibraries = ms_uiNumLibraries;
}

}  // namespace zn
