// Assert.h: the assertion functions behind LogManager::Assert, and the lock that keeps one
// assertion dialog at a time.
#pragma once

#include "CoreLib/CriticalSection.h"

namespace zn {

// Held while an assertion dialog is open; made by CoreLibSDM::Init, null before and after.
extern CriticalSection* AssertLock;

// Kinds of assertion dialog.
enum EAssertKind { AssertKindProgrammer = 0, AssertKindArt = 1, AssertKindDesign = 2 };

// Choices of an assertion dialog.
enum EAssertResult { AssertResultDebug = 0, AssertResultSkip = 1, AssertResultIgnore = 2 };

}  // namespace zn

// Shows the programmer's assertion dialog; true when the user chose Ignore.
bool znProgrammerAssert(const char* file, int line, const char* function, char* message);
// Shows the art assertion dialog; true when the user chose Ignore.
bool znArtAssert(const char* file, int line, char* message);
// Shows the design assertion dialog; true when the user chose Ignore.
bool znDesignAssert(const char* file, int line, char* message);
// A processor breakpoint; clears g_DebugBreakActive when it returns.
void znDebugBreak();
