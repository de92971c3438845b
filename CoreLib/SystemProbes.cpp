// SystemProbes.cpp: CPUID, clock rate, memory size and word size of the system.
#include "CoreLib/SystemProbes.h"

#include "CoreLib/platform/System.h"
#include "CoreLib/platform/Time.h"

#include <cstring>

int cpuCount = 0;
int cpuActiveProcessorMask = 0;

namespace {
char s_Vendor[13];
char s_Brand[49];
unsigned int s_Family;
bool s_CMOV, s_MMX, s_SSE, s_SSE2, s_3DNow, s_Extended3DNow, s_ExtendedMMX;

bool Bit(uint32_t value, int bit) {
    return (value >> bit) & 1u;
}

void ClearProcessorState() {
    s_CMOV = s_MMX = s_SSE = s_SSE2 = s_3DNow = s_Extended3DNow = s_ExtendedMMX = false;
    s_Family = 0;
    s_Vendor[0] = '\0';
    s_Brand[0] = '\0';
}

void ReadBrand(uint32_t highestExtended) {
    for (uint32_t leaf = 0x80000002; leaf <= 0x80000004 && leaf <= highestExtended; ++leaf) {
        uint32_t registers[4];
        zn::platform::CpuId(leaf, registers);
        size_t offset = (leaf - 0x80000002) * 16;
        std::memcpy(s_Brand + offset, registers, 16);
        s_Brand[offset + 16] = '\0';
    }
}
}  // namespace

bool initCPU() {
    zn::platform::SystemInfo info;
    zn::platform::GetSystemInfo(&info);
    cpuCount = info.numberOfProcessors < 1 ? 1 : static_cast<int>(info.numberOfProcessors);
    cpuActiveProcessorMask = static_cast<int>(info.activeProcessorMask);
    ClearProcessorState();

    uint32_t registers[4];
    zn::platform::CpuId(0, registers);
    uint32_t highest = registers[0];
    std::memcpy(s_Vendor, &registers[1], 4);
    std::memcpy(s_Vendor + 4, &registers[3], 4);
    std::memcpy(s_Vendor + 8, &registers[2], 4);
    s_Vendor[12] = '\0';
    if (highest == 0) {
        return true;
    }
    zn::platform::CpuId(1, registers);
    s_CMOV = Bit(registers[3], 15);
    s_MMX = Bit(registers[3], 23);
    s_SSE = Bit(registers[3], 25);
    s_SSE2 = Bit(registers[3], 26);
    s_Family = (registers[0] >> 8) & 0xF;

    zn::platform::CpuId(0x80000000, registers);
    uint32_t highestExtended = registers[0];
    if (highestExtended < 0x80000001) {
        return true;
    }
    zn::platform::CpuId(0x80000001, registers);
    s_3DNow = Bit(registers[3], 31);
    s_Extended3DNow = Bit(registers[3], 30);
    s_ExtendedMMX = Bit(registers[3], 22);
    if (highestExtended < 0x80000002) {
        return true;
    }
    ReadBrand(highestExtended);
    return true;
}

uint64_t getHz() {
    uint64_t frequency = static_cast<uint64_t>(zn::platform::QueryPerformanceFrequency());
    uint64_t counterStart = static_cast<uint64_t>(zn::platform::QueryPerformanceCounter());
    uint64_t stampStart = zn::platform::ReadTimeStampCounter();
    volatile int delay = 0;
    while (delay < 1000000) {
        delay = delay + 1;
    }
    uint64_t counterEnd = static_cast<uint64_t>(zn::platform::QueryPerformanceCounter());
    uint64_t stampEnd = zn::platform::ReadTimeStampCounter();
    uint64_t counterDelta = counterEnd - counterStart;
    if (counterDelta == 0) {
        return 0;
    }
    return (stampEnd - stampStart) * frequency / counterDelta;
}

float GetSystemRAM(RAMGranularity granularity) {
    auto bytes = static_cast<float>(zn::platform::GetTotalPhysicalMemory());
    switch (granularity) {
        case RAM_MEGABYTES:
            return bytes * (1.0f / 1048576.0f);
        case RAM_GIGABYTES:
            return bytes * (1.0f / 1073741824.0f);
    }
    return 0.0f;
}

bool Is64BitOS(bool& wow64) {
    bool emulated = false;
    if (!zn::platform::QueryCompatibilityMode(&emulated)) {
        return false;
    }
    wow64 = emulated;
    return true;
}

namespace zn {
CPUDescription GetCPUDescription() {
    return {s_Vendor, s_Brand, s_Family, s_CMOV,          s_MMX,
            s_SSE,    s_SSE2,  s_3DNow,  s_Extended3DNow, s_ExtendedMMX};
}
}  // namespace zn
