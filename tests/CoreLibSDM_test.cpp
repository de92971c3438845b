// Start-up order, idempotence, and the library registry of StaticDataManager.
#include "CoreLib/CoreLibSDM.h"

#include "CoreLib/Assert.h"
#include "CoreLib/LogManager.h"
#include "CoreLib/StaticDataManager.h"
#include "tests/support/CapturingLogger.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace zn::test {
namespace {

using ::testing::ElementsAre;
using ::testing::ElementsAreArray;

std::vector<std::string> g_Steps;
void RecordStep(const char* step, bool starting) {
    g_Steps.push_back(std::string(starting ? "+" : "-") + step);
}

class StartUpOrder : public ::testing::Test {
protected:
    void SetUp() override {
        g_Steps.clear();
        CoreLibSDM::SetStepObserver(RecordStep);
    }
    void TearDown() override {
        CoreLibSDM::Shutdown();
        CoreLibSDM::SetStepObserver(nullptr);
    }
};

TEST_F(StartUpOrder, InitRunsTheStepsInOrderAndShutdownUndoesThemInReverse) {
    CoreLibSDM::Init();
    EXPECT_THAT(g_Steps, ElementsAre("+SeedRandom", "+AssertLock", "+LogManager", "+UnitVector3",
                                     "+MemoryManager", "+XmlLogger", "+GlobalAllocator",
                                     "+LargeBlockAllocater", "+GlobalStringTable", "+WellKnownStrings",
                                     "+Localization", "+Path", "+FileSystem", "+PackedFileManager"));
    g_Steps.clear();
    CoreLibSDM::Shutdown();
    EXPECT_THAT(g_Steps, ElementsAre("-PackedFileManager", "-FileSystem", "-Path", "-Localization",
                                     "-WellKnownStrings", "-GlobalStringTable", "-LargeBlockAllocater",
                                     "-GlobalAllocator", "-MemoryManager", "-LogManager", "-AssertLock"));
}

TEST_F(StartUpOrder, SecondInitAndSecondShutdownDoNothing) {
    CoreLibSDM::Init();
    LogManager* manager = LogManager::GetInstance();
    CriticalSection* lock = AssertLock;
    ASSERT_NE(manager, nullptr);
    ASSERT_NE(lock, nullptr);
    CoreLibSDM::Init();
    EXPECT_EQ(LogManager::GetInstance(), manager);
    EXPECT_EQ(AssertLock, lock);
    EXPECT_EQ(g_Steps.size(), 14u);
    CoreLibSDM::Shutdown();
    EXPECT_EQ(LogManager::GetInstance(), nullptr);
    EXPECT_EQ(AssertLock, nullptr);
    g_Steps.clear();
    CoreLibSDM::Shutdown();
    EXPECT_TRUE(g_Steps.empty());
}

TEST_F(StartUpOrder, LibraryCanStartAgainAfterShutdown) {
    CoreLibSDM::Init();
    CoreLibSDM::Shutdown();
    EXPECT_FALSE(CoreLibSDM::IsInitialized());
    CoreLibSDM::Init();
    EXPECT_TRUE(CoreLibSDM::IsInitialized());
    EXPECT_NE(LogManager::GetInstance(), nullptr);
}

// The registry's state is all public statics: each test starts from an empty one.
class Registry : public ::testing::Test {
protected:
    void SetUp() override {
        Reset();
        s_Calls.clear();
    }
    void TearDown() override {
        StaticDataManager::Shutdown();
        Reset();
    }
    static void Reset() {
        for (unsigned int index = 0; index < StaticDataManager::s_NbLibraries; ++index) {
            StaticDataManager::ms_apOrder[index] = 0;
            StaticDataManager::ms_apfnInitFunctions[index] = nullptr;
            StaticDataManager::ms_apfnShutdownFunctions[index] = nullptr;
        }
        StaticDataManager::ms_uiNumLibraries = 0;
        StaticDataManager::ms_uiNumInitializedLibraries = 0;
        StaticDataManager::SetRootLibrary(nullptr, nullptr);
        StaticDataManager::ms_bInitialized = false;
    }
    static std::vector<std::string> s_Calls;
};
std::vector<std::string> Registry::s_Calls;

#define LIBRARY(name)                              \
    void Init##name() {                            \
        Registry_Calls().push_back("init " #name); \
    }                                              \
    void Stop##name() {                            \
        Registry_Calls().push_back("stop " #name); \
    }
std::vector<std::string>& Registry_Calls();
LIBRARY(A)
LIBRARY(B)
LIBRARY(C)
LIBRARY(Root)
#undef LIBRARY

class RegistryAccess : public Registry {
public:
    static std::vector<std::string>& Calls() { return s_Calls; }
};
std::vector<std::string>& Registry_Calls() {
    return RegistryAccess::Calls();
}

TEST_F(Registry, EntryAskingForPlaceThreeRunsAtIndexTwo) {
    StaticDataManager::AddLibrary(InitA, StopA, 3);
    StaticDataManager::AddLibrary(InitB, StopB, 0);
    StaticDataManager::AddLibrary(InitC, StopC, 0);
    StaticDataManager::Init();
    EXPECT_EQ(StaticDataManager::ms_apfnInitFunctions[2], &InitA);
    EXPECT_EQ(StaticDataManager::ms_apfnInitFunctions[0], &InitC) << "the swap partner takes the old index";
    EXPECT_EQ(StaticDataManager::ms_apfnInitFunctions[1], &InitB);
    EXPECT_EQ(StaticDataManager::ms_apOrder[2], 3u);
    EXPECT_THAT(s_Calls, ElementsAre("init C", "init B", "init A"));
    EXPECT_EQ(StaticDataManager::ms_uiNumInitializedLibraries, 3u);
}

TEST_F(Registry, SecondEntryAskingForATakenPlaceStaysWhereItIs) {
    StaticDataManager::AddLibrary(InitA, StopA, 0);
    StaticDataManager::AddLibrary(InitB, StopB, 1);
    StaticDataManager::AddLibrary(InitC, StopC, 1);
    StaticDataManager::Init();
    EXPECT_EQ(StaticDataManager::ms_apfnInitFunctions[0], &InitB);
    EXPECT_EQ(StaticDataManager::ms_apfnInitFunctions[1], &InitA);
    EXPECT_EQ(StaticDataManager::ms_apfnInitFunctions[2], &InitC);
    EXPECT_THAT(s_Calls, ElementsAre("init B", "init A", "init C"));
}

TEST_F(Registry, LateEntryIsSwappedIntoPlaceButOnlyNewIndicesRun) {
    StaticDataManager::AddLibrary(InitA, StopA, 0);
    StaticDataManager::AddLibrary(InitB, StopB, 0);
    StaticDataManager::Init();
    EXPECT_THAT(s_Calls, ElementsAre("init A", "init B"));
    s_Calls.clear();
    StaticDataManager::AddLibrary(InitC, StopC, 1);
    StaticDataManager::ProcessAccumulatedLibraries();
    // C is swapped into index 0, below the started ones, and A comes up to index 2: only index 2
    // and above run, so A starts a second time and C does not start.
    EXPECT_EQ(StaticDataManager::ms_apfnInitFunctions[0], &InitC);
    EXPECT_EQ(StaticDataManager::ms_apfnInitFunctions[2], &InitA);
    EXPECT_THAT(s_Calls, ElementsAre("init A"));
    EXPECT_EQ(StaticDataManager::ms_uiNumInitializedLibraries, 3u);
}

TEST_F(Registry, LateEntryAskingForALaterPlaceIsSwappedThere) {
    StaticDataManager::AddLibrary(InitA, StopA, 0);
    StaticDataManager::Init();
    s_Calls.clear();
    StaticDataManager::AddLibrary(InitB, StopB, 0);
    StaticDataManager::AddLibrary(InitC, StopC, 2);
    StaticDataManager::ProcessAccumulatedLibraries();
    EXPECT_EQ(StaticDataManager::ms_apfnInitFunctions[1], &InitC);
    EXPECT_EQ(StaticDataManager::ms_apfnInitFunctions[2], &InitB);
    EXPECT_THAT(s_Calls, ElementsAre("init C", "init B"));
}

TEST_F(Registry, RemovingAStartedEntryStopsItOnceAndShutdownSkipsIt) {
    StaticDataManager::AddLibrary(InitA, StopA, 0);
    StaticDataManager::AddLibrary(InitB, StopB, 0);
    StaticDataManager::AddLibrary(InitC, StopC, 0);
    StaticDataManager::Init();
    s_Calls.clear();
    StaticDataManager::RemoveLibrary(InitB, StopB);
    EXPECT_THAT(s_Calls, ElementsAre("stop B"));
    EXPECT_EQ(StaticDataManager::ms_uiNumLibraries, 2u);
    EXPECT_EQ(StaticDataManager::ms_uiNumInitializedLibraries, 2u);
    EXPECT_EQ(StaticDataManager::ms_apfnInitFunctions[1], &InitC);
    s_Calls.clear();
    StaticDataManager::Shutdown();
    EXPECT_THAT(s_Calls, ElementsAre("stop C", "stop A"));
}

TEST_F(Registry, RemovingTheLastStartedEntryLeavesNoTrace) {
    StaticDataManager::AddLibrary(InitA, StopA, 0);
    StaticDataManager::AddLibrary(InitB, StopB, 0);
    StaticDataManager::Init();
    s_Calls.clear();
    StaticDataManager::RemoveLibrary(InitB, StopB);
    StaticDataManager::Shutdown();
    EXPECT_THAT(s_Calls, ElementsAre("stop B", "stop A"));
}

TEST_F(Registry, RemovalKeepsOrdersAtTheirOldIndices) {
    StaticDataManager::AddLibrary(InitA, StopA, 0);
    StaticDataManager::AddLibrary(InitB, StopB, 0);
    StaticDataManager::AddLibrary(InitC, StopC, 7);
    StaticDataManager::RemoveLibrary(InitA, StopA);
    EXPECT_EQ(StaticDataManager::ms_apfnInitFunctions[1], &InitC);
    EXPECT_EQ(StaticDataManager::ms_apOrder[1], 0u);
    EXPECT_EQ(StaticDataManager::ms_apOrder[2], 7u);
    EXPECT_TRUE(s_Calls.empty()) << "an entry that has not run is not stopped";
}

TEST_F(Registry, RemovingAnUnknownPairReportsAndStillCounts) {
    CoreLibSDM::Init();
    {
        ScopedCapture capture;
        StaticDataManager::AddLibrary(InitA, StopA, 0);
        StaticDataManager::AddLibrary(InitB, StopB, 0);
        StaticDataManager::RemoveLibrary(InitC, StopC);
        EXPECT_THAT(capture.Messages(),
                    ElementsAre("Error. More libraries got removed than there were in the list. Check your "
                                "shutdown process."));
        EXPECT_EQ(StaticDataManager::ms_uiNumLibraries, 1u);
        EXPECT_EQ(StaticDataManager::ms_apfnInitFunctions[1], &InitB) << "nothing moves";
    }
    CoreLibSDM::Shutdown();
}

TEST_F(Registry, SeventeenthLibraryIsReported) {
    CoreLibSDM::Init();
    {
        ScopedCapture capture;
        for (int index = 0; index < 16; ++index) {
            StaticDataManager::AddLibrary(InitA, StopA, 0);
        }
        EXPECT_TRUE(capture.Messages().empty());
        StaticDataManager::AddLibrary(InitB, StopB, 0);
        EXPECT_THAT(
            capture.Messages(),
            ElementsAre("Running out of library space. Increase the list of SDM's that can be loaded."));
        EXPECT_EQ(StaticDataManager::ms_uiNumLibraries, 16u);
    }
    CoreLibSDM::Shutdown();
}

TEST_F(Registry, ShutdownWithoutInitWalksAnEmptyTable) {
    StaticDataManager::Shutdown();
    EXPECT_TRUE(s_Calls.empty());
    EXPECT_FALSE(CoreLibSDM::IsInitialized());
    EXPECT_FALSE(StaticDataManager::IsInitialized());
}

TEST_F(Registry, InitStartsCoreThenRootThenLibrariesAndShutdownReverses) {
    StaticDataManager::SetRootLibrary(InitB, StopB);
    StaticDataManager::SetRootLibrary(InitRoot, StopRoot);
    StaticDataManager::AddLibrary(InitA, StopA, 0);
    StaticDataManager::Init();
    EXPECT_TRUE(CoreLibSDM::IsInitialized());
    EXPECT_THAT(s_Calls, ElementsAre("init Root", "init A"));
    StaticDataManager::Init();
    EXPECT_EQ(s_Calls.size(), 2u);
    s_Calls.clear();
    StaticDataManager::Shutdown();
    EXPECT_THAT(s_Calls, ElementsAre("stop A", "stop Root"));
    EXPECT_FALSE(CoreLibSDM::IsInitialized());
}

TEST_F(Registry, ProcessBeforeInitDoesNothing) {
    StaticDataManager::AddLibrary(InitA, StopA, 0);
    StaticDataManager::ProcessAccumulatedLibraries();
    EXPECT_TRUE(s_Calls.empty());
    EXPECT_EQ(StaticDataManager::ms_uiNumInitializedLibraries, 0u);
}

TEST_F(Registry, CoreObjectRegistersTheCoreOnce) {
    unsigned int before = CoreLibSDM::GetInstanceCount();
    Reset();
    CoreLibSDM first;
    CoreLibSDM second;
    EXPECT_EQ(CoreLibSDM::GetInstanceCount(), before + 2);
    if (before == 0) {
        ASSERT_EQ(StaticDataManager::ms_uiNumLibraries, 1u);
        EXPECT_EQ(StaticDataManager::ms_apfnInitFunctions[0], &CoreLibSDM::Init);
        EXPECT_EQ(StaticDataManager::ms_apfnShutdownFunctions[0], &CoreLibSDM::Shutdown);
        // The core's own entry takes it down during the walk; the explicit call after is a no-op.
        StaticDataManager::Init();
        EXPECT_TRUE(CoreLibSDM::IsInitialized());
        StaticDataManager::Shutdown();
        EXPECT_FALSE(CoreLibSDM::IsInitialized());
    } else {
        EXPECT_EQ(StaticDataManager::ms_uiNumLibraries, 0u);
    }
}

}  // namespace
}  // namespace zn::test
