// Assert.cpp: building the dialog texts and acting on the user's choice.
#include "CoreLib/Assert.h"

#include "CoreLib/BoundedFormat.h"
#include "CoreLib/LogManager.h"
#include "CoreLib/assert/AssertDialog.h"
#include "CoreLib/platform/System.h"

#include <string>

namespace zn {
CriticalSection* AssertLock = nullptr;
}  // namespace zn

namespace {
constexpr unsigned int kMessageCapacity = 1024;
constexpr size_t kCallStackCapacity = 2048;

// The dialog's details; the function line is shown for programmer assertions only.
std::string DetailsText(const char* file, const char* function, int line, const char* callStack) {
    std::string details = "File: ";
    details += file != nullptr ? file : "";
    if (function != nullptr) {
        details += "\nFunction: ";
        details += function;
    }
    details += "\nLine: ";
    details += std::to_string(line);
    details += "\n\nCallStack:\n----------\n";
    details += callStack;
    return details;
}

bool RunAssertion(int kind, const char* file, int line, const char* function, const char* message) {
    zn::CSLockIfAny guard(zn::AssertLock);
    char messageCopy[kMessageCapacity];
    unsigned int size = kMessageCapacity - 1;
    znsnprintf_s(messageCopy, size, "%s", message);
    // Nothing collects a call stack, so that section of the details stays empty.
    char callStack[kCallStackCapacity] = {};
    std::string details = DetailsText(file, function, line, callStack);
    zn::g_DebugMessageActive = true;
    int result = ShowAssertDialog(kind, messageCopy, details.c_str(), zn::platform::IsDebuggerPresent());
    if (result == zn::AssertResultDebug) {
        zn::platform::DebugBreak();
        zn::g_DebugBreakActive = false;
    }
    zn::g_DebugMessageActive = false;
    return result == zn::AssertResultIgnore;
}
}  // namespace

bool znProgrammerAssert(const char* file, int line, const char* function, char* message) {
    return RunAssertion(zn::AssertKindProgrammer, file, line, function, message);
}

bool znArtAssert(const char* file, int line, char* message) {
    return RunAssertion(zn::AssertKindArt, file, line, nullptr, message);
}

bool znDesignAssert(const char* file, int line, char* message) {
    return RunAssertion(zn::AssertKindDesign, file, line, nullptr, message);
}

void znDebugBreak() {
    zn::platform::DebugBreak();
    zn::g_DebugBreakActive = false;
}
