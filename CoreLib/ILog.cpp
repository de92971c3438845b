// ILog.cpp: flushing a built message to the debug output.
#include "CoreLib/ILog.h"

#include "CoreLib/platform/System.h"

namespace zn {

void ILog::Flush() {
    platform::OutputDebugStringA(str().c_str());
    clear();
}

}  // namespace zn
