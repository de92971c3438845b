// Logger.cpp: the debug output sink.
#include "CoreLib/Logger.h"

#include "CoreLib/BoundedFormat.h"

namespace zn {

void DebugOutputLogger::ProcessMessage(ELogChannel /*channel*/, const char* time, const char* message,
                                       const char* file, int line, const char* function) {
    znOutputDebugString("%s(%d): [%s - %s] %s\n", file, line, time, function, message);
}

}  // namespace zn
