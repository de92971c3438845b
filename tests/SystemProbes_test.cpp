// The processor and operating-system probes against what Linux says itself.
#include "CoreLib/SystemProbes.h"

#include <gtest/gtest.h>
#include <sys/sysinfo.h>
#include <unistd.h>

#include <cstring>

namespace zn::test {
namespace {

TEST(SystemProbes, RamInMebibytesAndGibibytes) {
    struct sysinfo facts;
    ASSERT_EQ(sysinfo(&facts), 0);
    double bytes = static_cast<double>(facts.totalram) * facts.mem_unit;
    EXPECT_NEAR(GetSystemRAM(RAM_MEGABYTES), bytes / 1048576.0, bytes / 1048576.0 * 1e-6);
    EXPECT_NEAR(GetSystemRAM(RAM_GIGABYTES), bytes / 1073741824.0, bytes / 1073741824.0 * 1e-6);
    EXPECT_EQ(GetSystemRAM(static_cast<RAMGranularity>(2)), 0.0f);
}

TEST(SystemProbes, SixtyFourBitProcessIsNotEmulated) {
    bool wow64 = true;
    EXPECT_TRUE(Is64BitOS(wow64));
    EXPECT_FALSE(wow64);
}

TEST(SystemProbes, InitCpuReadsCountVendorAndFeatures) {
    EXPECT_TRUE(initCPU());
    EXPECT_EQ(cpuCount, static_cast<int>(sysconf(_SC_NPROCESSORS_ONLN)));
    EXPECT_NE(cpuActiveProcessorMask, 0);
    CPUDescription cpu = GetCPUDescription();
    EXPECT_EQ(std::strlen(cpu.vendor), 12u);
    // Every x86-64 processor has these.
    EXPECT_TRUE(cpu.hasCMOV);
    EXPECT_TRUE(cpu.hasMMX);
    EXPECT_TRUE(cpu.hasSSE);
    EXPECT_TRUE(cpu.hasSSE2);
    EXPECT_LE(std::strlen(cpu.brand), 48u);
    EXPECT_LE(cpu.family, 15u);
}

TEST(SystemProbes, ClockRateIsPlausible) {
    uint64_t hertz = getHz();
    EXPECT_GT(hertz, 100000000ull);
    EXPECT_LT(hertz, 20000000000ull);
}

}  // namespace
}  // namespace zn::test
