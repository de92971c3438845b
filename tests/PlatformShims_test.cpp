// Locks, atomics, thread ids, clocks, the message box and the original run-time's rand.
#include "CoreLib/PlatformShims.h"

#include "CoreLib/CriticalSection.h"
#include "CoreLib/platform/Crt.h"
#include "CoreLib/platform/Time.h"
#include "tests/support/CapturingLogger.h"
#include "tests/support/CoreLibFixture.h"
#include "tests/support/StderrCapture.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <ctime>
#include <set>
#include <string>
#include <thread>
#include <vector>

namespace zn::test {
namespace {

TEST(Interlocked, CompareExchangeSwapsOnlyOnMatchAndReturnsTheFlag) {
    alignas(4) int target = 10;
    EXPECT_EQ(ZNInterlockedCompareExchange(&target, 20, 11), 0);
    EXPECT_EQ(target, 10);
    EXPECT_EQ(ZNInterlockedCompareExchange(&target, 20, 10), 1);
    EXPECT_EQ(target, 20);
}

TEST(Interlocked, SixtyFourBitCompareExchangeInHalves) {
    alignas(8) uint64_t target = 0x0000000200000001ull;
    EXPECT_EQ(ZNInterlockedCompareExchange(&target, 5, 6, 1, 3), 0);
    EXPECT_EQ(target, 0x0000000200000001ull);
    EXPECT_EQ(ZNInterlockedCompareExchange(&target, 5, -1, 1, 2), 1);
    EXPECT_EQ(target, 0xFFFFFFFF00000005ull);
}

TEST(Interlocked, ExchangeIsNeverTornUnderContention) {
    alignas(8) int64_t target = 0;
    constexpr int64_t kPatternA = 0x1111111111111111;
    constexpr int64_t kPatternB = static_cast<int64_t>(0xEEEEEEEEEEEEEEEEull);
    std::atomic<bool> stop{false};
    std::vector<std::thread> writers;
    for (int64_t pattern : {kPatternA, kPatternB}) {
        writers.emplace_back([&, pattern] {
            while (!stop.load()) {
                ZNInterlockedExchange(&target, pattern);
            }
        });
    }
    for (int read = 0; read < 200000; ++read) {
        int64_t seen = __atomic_load_n(&target, __ATOMIC_RELAXED);
        ASSERT_TRUE(seen == 0 || seen == kPatternA || seen == kPatternB) << std::hex << seen;
    }
    stop = true;
    for (std::thread& writer : writers) {
        writer.join();
    }
}

TEST(CriticalSectionTest, IsRecursiveForItsOwner) {
    CriticalSection section;
    EXPECT_EQ(section.GetSpinCount(), 4000u);
    section.Lock();
    section.Lock();
    EXPECT_TRUE(section.TryLock());
    EXPECT_TRUE(section.IsOwnedByCurrentThread());
    section.Unlock();
    section.Unlock();
    bool otherGotIt = true;
    std::thread([&] { otherGotIt = section.TryLock(); }).join();
    EXPECT_FALSE(otherGotIt) << "still held once";
    section.Unlock();
    EXPECT_FALSE(section.IsOwnedByCurrentThread());
    std::thread([&] {
        otherGotIt = section.TryLock();
        if (otherGotIt) {
            section.Unlock();
        }
    }).join();
    EXPECT_TRUE(otherGotIt);
}

TEST(CriticalSectionTest, ExcludesUnderContention) {
    CriticalSection section(100);
    constexpr int kThreads = 4;
    constexpr int kRounds = 100000;
    long counter = 0;
    std::vector<std::thread> threads;
    for (int thread = 0; thread < kThreads; ++thread) {
        threads.emplace_back([&] {
            for (int round = 0; round < kRounds; ++round) {
                CSLock outer(&section);
                CSLock inner(&section);
                long seen = counter;
                counter = seen + 1;
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(counter, static_cast<long>(kThreads) * kRounds);
}

TEST(CriticalSectionTest, WaiterSleepsAndIsWokenWithoutSpinning) {
    CriticalSection section(0);
    section.Lock();
    std::atomic<bool> entered{false};
    std::thread waiter([&] {
        section.Lock();
        entered = true;
        section.Unlock();
    });
    YieldThread(20);
    EXPECT_FALSE(entered.load());
    section.Unlock();
    waiter.join();
    EXPECT_TRUE(entered.load());
}

TEST(ThreadIds, DistinctPerThreadAndNeverTheNoThreadValue) {
    ThreadID none;
    EXPECT_EQ(none.Get(), 0xFFFFFFFFu);
    EXPECT_FALSE(none.IsValid());
    ThreadID mine = getCurrentThreadID();
    EXPECT_TRUE(mine.IsValid());
    EXPECT_EQ(mine.Get(), static_cast<uint32_t>(gettid()));
    EXPECT_EQ(getCurrentThreadID(), mine);
    ThreadID other;
    std::thread([&] { other = getCurrentThreadID(); }).join();
    EXPECT_NE(other, mine);
}

TEST(SystemTimeTest, UtcFieldsAndTheYearByte) {
    std::time_t before = std::time(nullptr);
    SystemTime now{};
    GetSystemTime(now);
    std::tm calendar;
    gmtime_r(&before, &calendar);
    EXPECT_EQ(now.year, static_cast<uint8_t>(calendar.tm_year + 1900 + 148));
    EXPECT_EQ(now.year, static_cast<uint8_t>(calendar.tm_year));
    EXPECT_EQ(now.month, calendar.tm_mon + 1);
    EXPECT_EQ(now.day, calendar.tm_mday);
    EXPECT_LT(now.milliseconds, 1000);
    EXPECT_LT(now.hour, 24);
    EXPECT_LT(now.second, 60);
    SystemTime local{};
    GetLocalTime(local);
    EXPECT_EQ(local.year, now.year);
}

TEST(PlatformClocks, CountersAreMonotonicAndTickCountIsMilliseconds) {
    EXPECT_EQ(platform::QueryPerformanceFrequency(), 1000000000);
    int64_t counterBefore = platform::QueryPerformanceCounter();
    uint32_t ticksBefore = platform::GetTickCount();
    uint64_t stampBefore = platform::ReadTimeStampCounter();
    YieldThread(30);
    int64_t counterAfter = platform::QueryPerformanceCounter();
    uint32_t ticksAfter = platform::GetTickCount();
    EXPECT_GE(counterAfter - counterBefore, 30000000);
    EXPECT_GE(ticksAfter - ticksBefore, 29u);
    EXPECT_LT(ticksAfter - ticksBefore, 5000u);
    EXPECT_GT(platform::ReadTimeStampCounter(), stampBefore);
    EXPECT_NEAR(static_cast<double>(platform::Time64()), static_cast<double>(std::time(nullptr)), 2.0);
}

TEST(ComputerName, MatchesTheHostNameAndReportsTheNeededSize) {
    char host[256] = {};
    ASSERT_EQ(gethostname(host, sizeof(host) - 1), 0);
    std::wstring expected(host, host + std::string(host).size());
    wchar_t name[256];
    uint32_t size = 256;
    ASSERT_TRUE(RetreiveComputerName(name, &size));
    EXPECT_EQ(size, expected.size());
    EXPECT_EQ(std::wstring(name), expected);
    uint32_t tooSmall = 1;
    EXPECT_FALSE(RetreiveComputerName(name, &tooSmall));
    EXPECT_EQ(tooSmall, expected.size() + 1);
}

TEST(MessageBoxTest, KindsShowTheirIconAndUnknownKindIsPlain) {
    StderrCapture err;
    znMessageBox("Title", "Text", ZnMessageError);
    znMessageBox("T", "info", ZnMessageInformation);
    znMessageBox("T", "warn", ZnMessageWarning);
    znMessageBox("T", "ask", ZnMessageQuestion);
    znMessageBox("Plain", "seven", static_cast<ZnMessageType>(7));
    EXPECT_EQ(err.Text(),
              "[error] Title: Text\n[information] T: info\n[warning] T: warn\n[question] T: ask\n"
              "[message] Plain: seven\n");
}

TEST(CrtRand, FifteenBitLinearCongruentialSequence) {
    platform::CrtSrand(1);
    EXPECT_EQ(platform::CrtRand(), 41);
    EXPECT_EQ(platform::CrtRand(), 18467);
    EXPECT_EQ(platform::CrtRand(), 6334);
    EXPECT_EQ(platform::CrtRand(), 26500);
    platform::CrtSrand(12345);
    uint32_t state = 12345;
    for (int draw = 0; draw < 10000; ++draw) {
        state = state * 214013u + 2531011u;
        int value = platform::CrtRand();
        ASSERT_EQ(value, static_cast<int>((state >> 16) & 0x7fff));
        ASSERT_LE(value, platform::kCrtRandMax);
    }
}

TEST(CrtBoundedCopies, RefuseWhatDoesNotFit) {
    char destination[4] = {'a', 'b', 'c', 'd'};
    EXPECT_EQ(platform::MemcpyS(destination, 4, "wxyz!", 5), platform::kCrtRange);
    EXPECT_EQ(std::string(destination, 4), std::string(4, '\0'));
    EXPECT_EQ(platform::MemcpyS(destination, 4, "wxyz", 4), platform::kCrtOk);
    EXPECT_EQ(std::string(destination, 4), "wxyz");
    EXPECT_EQ(platform::StrcpyS(destination, 4, "abcd"), platform::kCrtRange);
    EXPECT_STREQ(destination, "");
    EXPECT_EQ(platform::StrcpyS(destination, 4, "abc"), platform::kCrtOk);
    EXPECT_STREQ(destination, "abc");
}

}  // namespace
}  // namespace zn::test
