// AssertDialog.h: the entry point of the assertion dialog.
#pragma once

// Shows an assertion of the given kind (0 programmer, 1 art, 2 design) and blocks until the user
// has chosen: 0 Debug, 1 Skip, 2 Ignore. Tabs in message become spaces. Where no dialog can be
// shown, the message and details go to standard error and the answer is Skip.
int ShowAssertDialog(int kind, char* message, const char* details, bool debuggerAttached);

namespace zn {
// Replaces how assertions are answered, for hosts without a display and for tests; null restores
// the default. The handler receives the arguments of ShowAssertDialog after the tab replacement.
using AssertDialogHandler = int (*)(int kind, const char* message, const char* details,
                                    bool debuggerAttached);
void SetAssertDialogHandler(AssertDialogHandler handler);
}  // namespace zn
