// A host program as a user writes it: one include, start-up, a report, shutdown.
#include "CoreLib/CoreLib.h"

#include <cstdio>

int main() {
    zn::CoreLibSDM::Init();
    zn::LogManager::GetInstance()->Log(zn::LogInfo, __FILE__, __LINE__, "main", "host says %d", 42);
    bool started = zn::CoreLibSDM::IsInitialized();
    zn::CoreLibSDM::Shutdown();
    if (!started || zn::CoreLibSDM::IsInitialized()) {
        return 1;
    }
    std::printf("host: started and stopped\n");
    return 0;
}
