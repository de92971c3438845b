// SystemProbes.h: what the host may ask of the processor and the operating system.
#pragma once

#include <cstdint>

// Processors online and the mask of those this process may run on, filled by initCPU.
extern int cpuCount;
extern int cpuActiveProcessorMask;

enum RAMGranularity { RAM_MEGABYTES = 0, RAM_GIGABYTES = 1 };

// Reads the processor count, vendor, family, features and brand; always true.
bool initCPU();
// The time-stamp counter's ticks per second, measured against the performance counter.
uint64_t getHz();
// Installed physical memory in mebibytes (0) or gibibytes (1); 0.0 for any other granularity.
float GetSystemRAM(RAMGranularity granularity);
// True when the question could be answered; wow64 then tells whether this process runs as a
// 32-bit image on a 64-bit system. On false, wow64 is left alone.
bool Is64BitOS(bool& wow64);

namespace zn {
// What initCPU found, for hosts that show or log it.
struct CPUDescription {
    const char* vendor;  // 12 characters, empty when CPUID has no leaf 0
    const char* brand;   // up to 48 characters
    unsigned int family;
    bool hasCMOV, hasMMX, hasSSE, hasSSE2, has3DNow, hasExtended3DNow, hasExtendedMMX;
};
CPUDescription GetCPUDescription();
}  // namespace zn
