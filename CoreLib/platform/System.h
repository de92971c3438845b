// System.h: facts about the machine and the process, and the debug output sink.
#pragma once

#include <cstddef>
#include <cstdint>

namespace zn::platform {

// Writes the text to standard error in one write, so lines from several threads never interleave.
void OutputDebugStringA(const char* text);
// Writes the wide text (16-bit units in wchar_t) as UTF-8 in one write.
void OutputDebugStringW(const wchar_t* text);
// True while a tracer (a debugger) is attached to the process.
bool IsDebuggerPresent();
// Stops in the debugger; without one the process receives SIGTRAP.
void DebugBreak();

// Icons of a message box, the Win32 values.
enum : uint32_t { MB_ICONERROR = 16, MB_ICONQUESTION = 32, MB_ICONWARNING = 48, MB_ICONINFORMATION = 64 };
// Shows a modal message; here one line on standard error naming the kind, the title and the text.
void MessageBox(const char* title, const char* text, uint32_t iconFlags);

// The host name as 16-bit units. size: capacity in units in, length out; on a buffer that is too
// small returns false and size holds the units needed with the terminator (GetComputerNameW).
bool GetComputerNameW(wchar_t* name, uint32_t* size);

// Processors online and the mask of those this process may run on (GetSystemInfo).
struct SystemInfo {
    uint32_t numberOfProcessors;
    uint64_t activeProcessorMask;
};
void GetSystemInfo(SystemInfo* info);
// Installed physical memory in bytes (GlobalMemoryStatusEx's total).
uint64_t GetTotalPhysicalMemory();

// Runs CPUID for a leaf (sub-leaf 0); registers in the order eax, ebx, ecx, edx.
void CpuId(uint32_t leaf, uint32_t registers[4]);

// Answers whether this process runs a 32-bit image on a 64-bit kernel (IsWow64Process); false
// when the kernel cannot be asked.
bool QueryCompatibilityMode(bool* emulated);

}  // namespace zn::platform
