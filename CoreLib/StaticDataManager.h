// StaticDataManager.h: the registry of engine libraries whose start-up and shutdown functions run
// after the core's.
#pragma once

namespace zn {

class StaticDataManager {
public:
    using Function = void (*)();
    static const unsigned int s_NbLibraries = 16;

    // Starts the core, the root library and every registered library, once.
    static void Init();
    // Stops every registered library (slot 15 down to 0), the root library, then the core.
    static void Shutdown();
    // Stores the root library's pair; the last call wins.
    static void SetRootLibrary(Function init, Function shutdown);
    // Registers a library; order 1 to 16 asks for that place, 0 for none. Nothing runs yet.
    static void AddLibrary(Function init, Function shutdown, int order);
    // Unregisters the first entry with this pair, stopping it first if it has started.
    static void RemoveLibrary(Function init, Function shutdown);
    // Moves entries to the places they asked for and starts those not started yet.
    static void ProcessAccumulatedLibraries();

    static bool IsInitialized() { return ms_bInitialized; }

    static unsigned int ms_apOrder[s_NbLibraries];
    static Function ms_apfnShutdownFunctions[s_NbLibraries];
    static Function ms_apfnInitFunctions[s_NbLibraries];
    static unsigned int ms_uiNumLibraries;
    static unsigned int ms_uiNumInitializedLibraries;
    static Function ms_pfnRootInitFunction;
    static Function ms_pfnRootShutdownFunction;
    static bool ms_bInitialized;

private:
    static void SwapEntries(unsigned int first, unsigned int second);
};

}  // namespace zn
