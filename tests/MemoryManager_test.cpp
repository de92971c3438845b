// The named heaps, the allocation routes, tracked objects and the trace vocabulary.
#include "CoreLib/MemoryManager.h"

#include "CoreLib/Allocator.h"
#include "CoreLib/LogManager.h"
#include "CoreLib/Report.h"
#include "CoreLib/TrackedObject.h"
#include "tests/support/CapturingLogger.h"
#include "tests/support/CoreLibFixture.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <random>
#include <sstream>
#include <thread>
#include <vector>

namespace zn::test {
namespace {

using MemoryManagerTest = CoreLibFixture;

TEST_F(MemoryManagerTest, NamedHeapsHaveTheirIdsNamesAndSizes) {
    ASSERT_TRUE(MemoryManager::IsCreated());
    EXPECT_EQ(GetHeapGLOBAL().GetHeapID(), 0);
    EXPECT_EQ(GetHeapLARGEBLOCK().GetHeapID(), 1);
    EXPECT_EQ(GetHeapMEMSYSTEM().GetHeapID(), 2);
    EXPECT_EQ(GetHeapDEBUGHEAP().GetHeapID(), 3);
    EXPECT_EQ(HeapDefinitions::MEM_HEAPID_GLOBAL, 0);
    EXPECT_EQ(HeapDefinitions::MEM_HEAPID_DEBUGHEAP, 3);
    EXPECT_EQ(HeapDefinitions::MEM_HEAPID_EXTERN, 0xFFFF);
    EXPECT_STREQ(GetHeapGLOBAL().GetHeapName(), "GLOBAL");
    EXPECT_STREQ(GetHeapMEMSYSTEM().GetHeapName(), "MEMSYSTEM");
    EXPECT_FALSE(GetHeapGLOBAL().IsHeapFixedSize());
    EXPECT_TRUE(GetHeapMEMSYSTEM().IsHeapFixedSize());
    EXPECT_TRUE(GetHeapDEBUGHEAP().IsHeapFixedSize());
    EXPECT_EQ(GetHeapGLOBAL().GetHandle(), platform::GetProcessHeap());
    EXPECT_EQ(GetHeapGLOBAL().GetAlignment(), 4u);
    for (Heap* heap : {&GetHeapGLOBAL(), &GetHeapLARGEBLOCK(), &GetHeapMEMSYSTEM(), &GetHeapDEBUGHEAP()}) {
        EXPECT_TRUE(heap->IsHeapValid()) << heap->GetHeapName();
    }
}

TEST_F(MemoryManagerTest, TheManagerLivesInTheClosedMemSystemHeap) {
    Heap& memSystem = GetHeapMEMSYSTEM();
    EXPECT_EQ(memSystem.GetAllocAccess(), AllocAccessNone);
    EXPECT_FALSE(memSystem.IsAllocAccess(AllocAccessFull));
    EXPECT_GE(memSystem.GetMemoryInUse(), sizeof(void*));
    EXPECT_TRUE(memSystem.IsPtrOwned(&MemoryManager::GetInstance()));
    EXPECT_EQ(GetHeapLARGEBLOCK().GetAllocAccess(), AllocAccessFull);
}

TEST_F(MemoryManagerTest, OnlyAllocatingKindsAllocateAndOnlyFreeingKindsFree) {
    MemoryManager& manager = MemoryManager::GetInstance();
    Heap& global = GetHeapGLOBAL();
    for (AllocType kind : {AllocTypeUnknown, AllocTypeDelete, AllocTypeDeleteArray, AllocTypeRealloc,
                           AllocTypeFree, AllocTypeExternNew}) {
        EXPECT_EQ(manager.Allocate(kind, 32, global, 0), nullptr) << kind;
    }
    for (AllocType kind : {AllocTypeNew, AllocTypeNewArray, AllocTypeMalloc}) {
        void* p = manager.Allocate(kind, 32, global, 16);
        ASSERT_NE(p, nullptr);
        EXPECT_EQ(reinterpret_cast<uintptr_t>(p) % 16, 0u);
        size_t inUse = global.GetMemoryInUse();
        size_t size = 0;
        EXPECT_TRUE(manager.Deallocate(p, AllocTypeNew, global, size, 16));
        EXPECT_EQ(global.GetMemoryInUse(), inUse) << "kind 1 frees nothing";
        EXPECT_TRUE(manager.Deallocate(p, AllocTypeFree, global, size, 16));
        EXPECT_EQ(global.GetMemoryInUse(), inUse - size);
    }
    size_t oldSize = 0;
    void* p = manager.Reallocate(nullptr, AllocTypeUnknown, 10, global, oldSize, 0);
    EXPECT_NE(p, nullptr) << "Reallocate serves every kind";
    EXPECT_EQ(manager.SizeOf(p, global, 0), 10u);
    size_t size = 0;
    manager.Deallocate(p, AllocTypeFree, global, size, 0);
    EXPECT_TRUE(manager.TrackAllocate(p, AllocTypeNew, 1, global, 0));
    EXPECT_TRUE(manager.TrackDeallocate(p, AllocTypeDelete, global));
}

TEST_F(MemoryManagerTest, GlobalAndLargeBlockRoutesKeepTheirAccounts) {
    size_t globalBefore = GetHeapGLOBAL().GetMemoryInUse();
    size_t largeBefore = GetHeapLARGEBLOCK().GetMemoryInUse();
    void* small = MemoryManager::GlobalMalloc(100, 32);
    ASSERT_NE(small, nullptr);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(small) % 32, 0u);
    EXPECT_EQ(MemoryManager::GlobalSizeOf(small, 32), 100u + 32 + 7);
    small = MemoryManager::GlobalRealloc(small, 5000, 32);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(small) % 32, 0u);
    void* large = MemoryManager::LargeBlockMalloc(0x200000, 0);
    ASSERT_NE(large, nullptr);
    std::memset(large, 3, 0x200000);
    EXPECT_EQ(GetHeapLARGEBLOCK().GetMemoryInUse(), largeBefore + 0x200000);
    large = MemoryManager::LargeBlockRealloc(large, 0x300000, 0);
    EXPECT_EQ(static_cast<char*>(large)[0x1FFFFF], 3);
    EXPECT_TRUE(MemoryManager::GlobalFree(small, 32));
    EXPECT_TRUE(MemoryManager::LargeBlockFree(large, 0));
    EXPECT_TRUE(MemoryManager::GlobalFree(nullptr, 0));
    EXPECT_TRUE(MemoryManager::LargeBlockFree(nullptr, 0));
    EXPECT_EQ(GetHeapGLOBAL().GetMemoryInUse(), globalBefore);
    EXPECT_EQ(GetHeapLARGEBLOCK().GetMemoryInUse(), largeBefore);
}

TEST_F(MemoryManagerTest, SmartReallocMovesBlocksAcrossTheThreshold) {
    Heap& global = GetHeapGLOBAL();
    Heap& large = GetHeapLARGEBLOCK();
    size_t largeBefore = large.GetMemoryInUse();

    auto* up = static_cast<char*>(MemoryManager::GlobalMalloc(0xFFFFF, 0));
    std::memset(up, 'u', 0xFFFFF);
    auto* moved = static_cast<char*>(MemoryManager::SmartRealloc(up, 0xFFFFF, 0x100000, 0));
    ASSERT_NE(moved, nullptr);
    EXPECT_EQ(large.GetMemoryInUse(), largeBefore + 0x100000) << "now in LARGEBLOCK";
    EXPECT_EQ(moved[0], 'u');
    EXPECT_EQ(moved[0xFFFFE], 'u') << "growth keeps the content";

    auto* stays = static_cast<char*>(MemoryManager::SmartRealloc(moved, 0x100000, 0x100000, 0));
    EXPECT_EQ(large.GetMemoryInUse(), largeBefore + 0x100000);

    size_t globalBefore = global.GetMemoryInUse();
    auto* down = static_cast<char*>(MemoryManager::SmartRealloc(stays, 0x100000, 0xFFFFF, 0));
    ASSERT_NE(down, nullptr);
    EXPECT_EQ(large.GetMemoryInUse(), largeBefore);
    EXPECT_EQ(global.GetMemoryInUse(), globalBefore + 0xFFFFF);
    // The bounded copy of 0x100000 bytes into 0xFFFFF is refused and clears the destination.
    EXPECT_EQ(down[0], 0);
    EXPECT_EQ(down[0xFFFFE], 0);
    MemoryManager::GlobalFree(down, 0);
}

TEST_F(MemoryManagerTest, StatisticsSumTheHeaps) {
    size_t inUse = 0;
    size_t available = 0;
    for (Heap* heap : {&GetHeapGLOBAL(), &GetHeapLARGEBLOCK(), &GetHeapMEMSYSTEM(), &GetHeapDEBUGHEAP()}) {
        inUse += heap->GetMemoryInUse();
        available += heap->GetMemoryReserved() - heap->GetMemoryInUse();
    }
    EXPECT_EQ(MemoryManager::GetMemoryInUse(), inUse);
    EXPECT_EQ(MemoryManager::GetMemoryAvailable(), available);
    EXPECT_TRUE(MemoryManager::RunConsistencyCheck());
    MemoryManager::SetLogging(0xFFFFFFFF);
    EXPECT_FALSE(MemoryManager::IsLogging(HeapLoggingNone));
    EXPECT_FALSE(MemoryManager::IsLogging(static_cast<HeapLogging>(7)));
}

TEST_F(MemoryManagerTest, AllocatorsServeTheirHeaps) {
    GlobalAllocator* global = Singleton<GlobalAllocator>::GetInstance();
    LargeBlockAllocater* large = Singleton<LargeBlockAllocater>::GetInstance();
    ASSERT_NE(global, nullptr);
    ASSERT_NE(large, nullptr);
    size_t largeBefore = GetHeapLARGEBLOCK().GetMemoryInUse();
    void* block = large->Malloc(64);
    EXPECT_EQ(GetHeapLARGEBLOCK().GetMemoryInUse(), largeBefore + 64);
    block = large->Realloc(block, 128);
    large->Free(block);
    EXPECT_EQ(GetHeapLARGEBLOCK().GetMemoryInUse(), largeBefore);
    size_t globalBefore = GetHeapGLOBAL().GetMemoryInUse();
    block = global->Malloc(24);
    block = global->Realloc(block, 48);
    EXPECT_EQ(GetHeapGLOBAL().GetMemoryInUse(), globalBefore + 48);
    global->Free(block);
    EXPECT_EQ(GetHeapGLOBAL().GetMemoryInUse(), globalBefore);

    Allocator allocator;
    EXPECT_EQ(allocator.GetHeap(), nullptr);
    allocator.SetHeap(&GetHeapDEBUGHEAP());
    Allocator copy(allocator);
    EXPECT_EQ(copy.GetHeap(), &GetHeapDEBUGHEAP());
}

// A tracked object that counts its constructions.
struct Tracked : public TrackedObject<Tracked> {
    Tracked() { ++s_Constructed; }
    ~Tracked() { ++s_Destroyed; }
    double m_Payload[5] = {};
    // Objects are made and destroyed on several threads at once in the stress test.
    static std::atomic<int> s_Constructed;
    static std::atomic<int> s_Destroyed;
};
std::atomic<int> Tracked::s_Constructed{0};
std::atomic<int> Tracked::s_Destroyed{0};

TEST_F(MemoryManagerTest, TrackedObjectCarriesItsHeapInAHeader) {
    Heap& global = GetHeapGLOBAL();
    size_t before = global.GetMemoryInUse();
    Tracked* object = new Tracked;
    ASSERT_NE(object, nullptr);
    EXPECT_EQ(*reinterpret_cast<Heap**>(reinterpret_cast<char*>(object) - sizeof(void*)), &global);
    EXPECT_EQ(global.GetMemoryInUse(), before + sizeof(Tracked) + sizeof(void*));
    EXPECT_EQ(reinterpret_cast<uintptr_t>(object) % alignof(Tracked), 0u);
    delete object;
    EXPECT_EQ(global.GetMemoryInUse(), before);

    Tracked* inDebug = new (GetHeapDEBUGHEAP()) Tracked;
    EXPECT_EQ(*reinterpret_cast<Heap**>(reinterpret_cast<char*>(inDebug) - sizeof(void*)),
              &GetHeapDEBUGHEAP());
    size_t debugInUse = GetHeapDEBUGHEAP().GetMemoryInUse();
    delete inDebug;
    EXPECT_EQ(GetHeapDEBUGHEAP().GetMemoryInUse(), debugInUse - sizeof(Tracked) - sizeof(void*));

    Tracked* many = new Tracked[3];
    EXPECT_EQ(Tracked::s_Constructed, 5);
    delete[] many;
    EXPECT_EQ(Tracked::s_Destroyed, 5);
    EXPECT_EQ(global.GetMemoryInUse(), before);
}

TEST_F(MemoryManagerTest, SizeOfAllocPassesThePointerAsGiven) {
    void* block = MemObject::operator new(40, GetHeapGLOBAL());
    EXPECT_EQ(MemObject::SizeOfAlloc(nullptr, 0), 0u);
    // The object pointer is not a block start, so the platform rejects it.
    EXPECT_EQ(MemObject::SizeOfAlloc(block, 0), SIZE_MAX);
    EXPECT_EQ(MemObject::SizeOfElement(block, 0), SIZE_MAX - sizeof(void*));
    MemObject::operator delete(block, 40);
}

TEST_F(MemoryManagerTest, ExhaustedHeapMakesNewYieldNullWithoutConstructing) {
    unsigned short id = 0;
    Heap* tiny = MemoryManager::AllocateHeap(false, "TINY", id, 8192, 4);
    ASSERT_NE(tiny, nullptr);
    int constructed = Tracked::s_Constructed.load();
    std::vector<Tracked*> objects;
    Tracked* object = nullptr;
    while ((object = new (*tiny) Tracked) != nullptr) {
        objects.push_back(object);
        ASSERT_LT(objects.size(), 10000u);
    }
    EXPECT_EQ(Tracked::s_Constructed, constructed + static_cast<int>(objects.size()));
    for (Tracked* made : objects) {
        delete made;
    }
    EXPECT_EQ(tiny->GetMemoryInUse(), 0u);
    platform::PlatformHeap* handle = tiny->GetHandle();
    MemoryManager::FreeHeap(id);
    platform::HeapDestroy(handle);
}

TEST_F(MemoryManagerTest, GlobalPlacementFormsUseTheRunTimeAndNoHeader) {
    size_t before = GetHeapGLOBAL().GetMemoryInUse();
    int* value = new (GetHeapGLOBAL()) int(42);
    EXPECT_EQ(*value, 42);
    EXPECT_EQ(GetHeapGLOBAL().GetMemoryInUse(), before);
    ::operator delete(value, GetHeapGLOBAL());
}

TEST_F(MemoryManagerTest, ObjectsFreedByOtherThreadsBalanceTheAccount) {
    constexpr int kThreads = 3;
    constexpr int kRounds = 20000;
    size_t before = GetHeapGLOBAL().GetMemoryInUse();
    // Each thread makes objects and hands every other one to its neighbour to delete.
    std::vector<std::vector<Tracked*>> handOver(kThreads);
    std::vector<std::atomic<bool>> done(kThreads);
    std::vector<std::thread> threads;
    for (int thread = 0; thread < kThreads; ++thread) {
        threads.emplace_back([&, thread] {
            std::mt19937 random(thread);
            std::vector<Tracked*> mine;
            for (int round = 0; round < kRounds; ++round) {
                mine.push_back(new Tracked);
                if (random() % 3 == 0) {
                    delete mine.back();
                    mine.pop_back();
                }
            }
            handOver[thread] = std::move(mine);
            done[thread] = true;
            int neighbour = (thread + 1) % kThreads;
            while (!done[neighbour].load()) {
                std::this_thread::yield();
            }
            for (Tracked* object : handOver[neighbour]) {
                delete object;
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(GetHeapGLOBAL().GetMemoryInUse(), before);
    EXPECT_TRUE(GetHeapGLOBAL().Validate());
}

TEST_F(MemoryManagerTest, ReportsWaitForTheMemoryLock) {
    ScopedCapture capture;
    std::atomic<bool> logged{false};
    CriticalSection& memoryLock = MemoryManager::GetInstance().GetCriticalSection();
    memoryLock.Lock();
    std::thread reporter([&] {
        ZN_LOG(LogInfo, "after the lock");
        logged = true;
    });
    for (int poll = 0; poll < 50; ++poll) {
        ASSERT_FALSE(logged.load()) << "Log took the log lock without the memory lock";
        std::this_thread::yield();
    }
    memoryLock.Unlock();
    reporter.join();
    EXPECT_TRUE(logged.load());
    EXPECT_EQ(capture.Messages().back(), "after the lock");
}

TEST_F(MemoryManagerTest, DebugPrintWritesEachHeapsTotals) {
    testing::internal::CaptureStderr();
    MemoryManager::DebugPrint();
    std::string text = testing::internal::GetCapturedStderr();
    EXPECT_NE(text.find("GLOBAL\t[\t0\t] Total\t"), std::string::npos) << text;
    EXPECT_NE(text.find("DEBUGHEAP\t[\t3\t] Total\t"), std::string::npos) << text;
}

TEST(MemoryManagerLifetime, StatisticsWithoutAManager) {
    ASSERT_FALSE(MemoryManager::IsCreated());
    EXPECT_EQ(MemoryManager::GetMemoryInUse(), 0u);
    EXPECT_EQ(MemoryManager::GetMemoryAvailable(), 0u);
    EXPECT_TRUE(MemoryManager::RunConsistencyCheck());
    Tracked* none = nullptr;
    delete none;  // touches neither the lock nor a heap: neither exists
    CoreLibSDM::Init();
    CoreLibSDM::Shutdown();
    EXPECT_FALSE(MemoryManager::IsCreated());
    EXPECT_EQ(MemoryManager::GetMemoryInUse(), 0u);
    EXPECT_TRUE(MemoryManager::RunConsistencyCheck());
}

TEST(MemoryTraceTest, LinesHaveTheirExactShapes) {
    Heap heap("TRACE", 4, 0, 16, false);
    const void* p = reinterpret_cast<const void*>(0x1234);
    const void* q = reinterpret_cast<const void*>(0xabc0);
    std::ostringstream allocation;
    MemoryTrace::WriteAllocation(allocation, &heap, AllocTypeMalloc, p, 48);
    EXPECT_EQ(allocation.str(), "TRACE[0]\tmalloc   \t:\t0x1234\t[\t48\t,Align:\t16\t]");
    std::ostringstream release;
    MemoryTrace::WriteRelease(release, &heap, AllocTypeExternFree, p, -1);
    EXPECT_EQ(release.str(), "TRACE[0]\textern free    \t:\t0x1234\t[\tn/a\t,Align:\t16\t]");
    std::ostringstream reallocation;
    MemoryTrace::WriteReallocation(reallocation, &heap, q, 64, p, 32);
    EXPECT_EQ(reallocation.str(),
              "TRACE[0]\trealloc  \t:\t0xabc0\t[\t64\t,alignment:\t16\t]\t<-\t0x1234\t[\t32\t,Align:\t16\t]");
    std::ostringstream unnamed;
    MemoryTrace::WriteAllocation(unnamed, nullptr, AllocTypeNew, p, 1);
    EXPECT_EQ(unnamed.str(), "new      \t:\t0x1234\t[\t1\t,Align:\t0\t]");
    std::ostringstream totals;
    MemoryTrace::WriteHeapTotals(totals, heap, 100, 28);
    EXPECT_EQ(totals.str(), "TRACE\t[\t4\t] Total\t128\t Committed\t100\t, Uncommitted\t28");
    std::ostringstream range;
    MemoryTrace::WriteHeapRange(range, heap, p, q, "cache", 9);
    EXPECT_EQ(range.str(), "TRACE\t[\t0x1234\t]\t0xabc0\tin\tcache\t[\t9\t]");
    std::ostringstream block;
    MemoryTrace::WriteHeapBlock(block, heap, 2, p, p, q, 16, 8);
    EXPECT_EQ(
        block.str(),
        "TRACE\t[\t2\t] Data:\t0x1234\t, First: \t0x1234\t, Last: \t0xabc0\t, Size: \t16\t, Overhead: \t8");
    EXPECT_STREQ(MemoryTrace::TraceName(AllocTypeExternDeleteArray), "extern delete[]");
    EXPECT_STREQ(MemoryTrace::TraceName(AllocTypeNewArray), "new[]    ");
}

}  // namespace
}  // namespace zn::test
