// AssertDialog.cpp: the non-interactive answer to an assertion, for processes without a display.
#include "CoreLib/assert/AssertDialog.h"

#include "CoreLib/platform/System.h"

#include <atomic>
#include <string>

namespace {
std::atomic<zn::AssertDialogHandler> s_Handler{nullptr};

const char* KindName(int kind) {
    switch (kind) {
        case 0:
            return "programmer";
        case 1:
            return "art";
        case 2:
            return "design";
        default:
            return "unknown";
    }
}

int PrintAndSkip(int kind, const char* message, const char* details, bool /*debuggerAttached*/) {
    std::string text = "Assertion (";
    text += KindName(kind);
    text += "): ";
    text += message;
    text += "\n";
    text += details;
    text += "\n";
    zn::platform::OutputDebugStringA(text.c_str());
    return 1;
}
}  // namespace

namespace zn {
void SetAssertDialogHandler(AssertDialogHandler handler) {
    s_Handler.store(handler);
}
}  // namespace zn

int ShowAssertDialog(int kind, char* message, const char* details, bool debuggerAttached) {
    for (char* cursor = message; *cursor != '\0'; ++cursor) {
        if (*cursor == '\t') {
            *cursor = ' ';
        }
    }
    zn::AssertDialogHandler handler = s_Handler.load();
    if (handler == nullptr) {
        handler = PrintAndSkip;
    }
    return handler(kind, message, details != nullptr ? details : "", debuggerAttached);
}
