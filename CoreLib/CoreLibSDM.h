// CoreLibSDM.h: brings the library's services up in their fixed order and takes them down in the
// exact reverse.
#pragma once

namespace zn {

class CoreLibSDM {
public:
    // Counts the instance; the first one registers Init and Shutdown with StaticDataManager.
    CoreLibSDM();

    // Starts every service, once; a second call while started does nothing.
    static void Init();
    // Stops every service in reverse order, once; a call while stopped does nothing.
    static void Shutdown();

    static bool IsInitialized() { return ms_bInitialized; }
    static unsigned int GetInstanceCount() { return ms_uiInstanceCount; }

    // Diagnostics: called with each step's name as Init runs it (starting true) and as Shutdown
    // undoes it (starting false). Null turns it off.
    using StepObserver = void (*)(const char* step, bool starting);
    static void SetStepObserver(StepObserver observer);

    static unsigned int ms_uiInstanceCount;

protected:
    static bool ms_bInitialized;
};

}  // namespace zn
