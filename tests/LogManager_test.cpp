// Channel masks, logger masks, the line forms, the dialog route and concurrent reports.
#include "CoreLib/LogManager.h"

#include "CoreLib/Assert.h"
#include "CoreLib/ILog.h"
#include "CoreLib/Report.h"
#include "CoreLib/assert/AssertDialog.h"
#include "tests/support/CapturingLogger.h"
#include "tests/support/CoreLibFixture.h"
#include "tests/support/StderrCapture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <ctime>
#include <regex>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

namespace zn::test {
namespace {

using ::testing::ElementsAre;

class LogManagerTest : public CoreLibFixture {
protected:
    LogManager& Manager() { return *LogManager::GetInstance(); }
};

TEST_F(LogManagerTest, MaskedChannelReachesNoLoggerUntilUnmasked) {
    ScopedCapture capture;
    Manager().MaskChannel(LogWarning);
    EXPECT_TRUE(Manager().IsChannelMasked(LogWarning));
    EXPECT_TRUE(Manager().IsChannelMasked(static_cast<ELogChannel>(LogWarning | LogInfo)));
    ZN_LOG(LogWarning, "hidden");
    ZN_LOG(LogInfo, "shown");
    Manager().UnmaskChannel(LogWarning);
    EXPECT_FALSE(Manager().IsChannelMasked(LogWarning));
    ZN_LOG(LogWarning, "back");
    EXPECT_THAT(capture.Messages(), ElementsAre("shown", "back"));
}

TEST_F(LogManagerTest, ChannelThreeReachesLoggersOfBitOneAndOfBitTwo) {
    ScopedCapture infoOnly(LogInfo);
    ScopedCapture warningOnly(LogWarning);
    ScopedCapture errorOnly(LogError);
    ZN_LOG(static_cast<ELogChannel>(3), "both");
    EXPECT_THAT(infoOnly.Messages(), ElementsAre("both"));
    EXPECT_THAT(warningOnly.Messages(), ElementsAre("both"));
    EXPECT_TRUE(errorOnly.Messages().empty());
}

TEST_F(LogManagerTest, LoggerWithMaskZeroGetsNothing) {
    ScopedCapture silent(0);
    ScopedCapture all;
    ZN_LOG(LogError, "x");
    ZN_LOG(LogDialog, "y");
    EXPECT_TRUE(silent.Messages().empty());
    EXPECT_EQ(all.Messages().size(), 2u);
}

TEST_F(LogManagerTest, LoggerMaskOperations) {
    DebugOutputLogger logger;
    EXPECT_FALSE(logger.IsLogging(0xFF)) << "mask 0 at construction";
    logger.EnableLogging(LogInfo | LogNetwork);
    EXPECT_TRUE(logger.IsLogging(LogInfo));
    EXPECT_TRUE(logger.IsLogging(LogNetwork | LogError));
    EXPECT_FALSE(logger.IsLogging(LogError));
    logger.DisableLogging(LogInfo);
    EXPECT_FALSE(logger.IsLogging(LogInfo));
    DebugOutputLogger copy;
    copy = logger;
    EXPECT_TRUE(copy.IsLogging(LogNetwork));
    DebugOutputLogger constructed(logger);
    EXPECT_TRUE(constructed.IsLogging(LogNetwork));
    EXPECT_FALSE(constructed.IsLogging(LogInfo));
}

TEST_F(LogManagerTest, ReportCarriesSourceLocationAndQualifiedFunction) {
    ScopedCapture capture;
    int line = __LINE__ + 1;
    ZN_LOG(LogError, "number %d, text %s", 12, "abc");
    std::vector<CapturedReport> reports = capture.Reports();
    ASSERT_EQ(reports.size(), 1u);
    EXPECT_EQ(reports[0].channel, LogError);
    EXPECT_EQ(reports[0].message, "number 12, text abc");
    EXPECT_EQ(reports[0].file, __FILE__);
    EXPECT_EQ(reports[0].line, line);
    EXPECT_EQ(reports[0].function,
              "zn::test::{anonymous}::LogManagerTest_ReportCarriesSourceLocationAndQualifiedFunction_Test::"
              "TestBody");
}

TEST_F(LogManagerTest, AssertWithoutTextUsesTheDefaultText) {
    ScopedCapture capture;
    ZN_ASSERT(2 + 2 == 5);
    ZN_ASSERT(2 + 2 == 4);
    ZN_ASSERT_MSG(false, "custom %d", 1);
    std::vector<CapturedReport> reports = capture.Reports();
    ASSERT_EQ(reports.size(), 2u);
    EXPECT_EQ(reports[0].channel, LogAssertProgrammer);
    EXPECT_EQ(reports[0].message, "Assert! [Replace me with a better description]");
    EXPECT_EQ(reports[1].message, "custom 1");
}

TEST_F(LogManagerTest, TimeStampIsUtcDayMonthYearWithMilliseconds) {
    ScopedCapture capture;
    std::time_t before = std::time(nullptr);
    ZN_LOG(LogInfo, "tick");
    std::time_t after = std::time(nullptr);
    std::vector<CapturedReport> reports = capture.Reports();
    ASSERT_EQ(reports.size(), 1u);
    std::smatch match;
    const std::string& stamp = reports[0].time;
    ASSERT_TRUE(std::regex_match(stamp, match,
                                 std::regex(R"((\d{2})-(\d{2})-(\d{4}) (\d{2}):(\d{2}):(\d{2}):(\d{3}))")))
        << stamp;
    std::tm calendar = {};
    calendar.tm_mday = std::stoi(match[1]);
    calendar.tm_mon = std::stoi(match[2]) - 1;
    calendar.tm_year = std::stoi(match[3]) - 1900;
    calendar.tm_hour = std::stoi(match[4]);
    calendar.tm_min = std::stoi(match[5]);
    calendar.tm_sec = std::stoi(match[6]);
    std::time_t stamped = timegm(&calendar);
    EXPECT_GE(stamped, before);
    EXPECT_LE(stamped, after);
}

TEST_F(LogManagerTest, DebugOutputLineForm) {
    StderrCapture err;
    int line = __LINE__ + 1;
    ZN_LOG(LogWarning, "careful");
    std::string expected =
        std::string(__FILE__) + "\\(" + std::to_string(line) + "\\): \\[" +
        R"(\d{2}-\d{2}-\d{4} \d{2}:\d{2}:\d{2}:\d{3})" +
        " - zn::test::\\{anonymous\\}::LogManagerTest_DebugOutputLineForm_Test::TestBody\\] careful\n";
    EXPECT_TRUE(std::regex_match(err.Text(), std::regex(expected))) << err.Text();
}

TEST_F(LogManagerTest, DebugOutputTakesChannelsUpTo64ButNotDialog) {
    StderrCapture err;
    ZN_LOG(LogNetwork, "net");
    ZN_LOG(LogDialog, "dialog");
    std::string text = err.Text();
    EXPECT_NE(text.find("] net\n"), std::string::npos);
    EXPECT_EQ(text.find("dialog"), std::string::npos);
}

TEST_F(LogManagerTest, ReportInsideAReportIsDelivered) {
    // A logger that reports while it handles a report: the locks are recursive.
    class Echo : public CapturingLogger {
    public:
        void ProcessMessage(ELogChannel channel, const char* time, const char* message, const char* file,
                            int line, const char* function) override {
            CapturingLogger::ProcessMessage(channel, time, message, file, line, function);
            if (std::string(message) == "outer") {
                ZN_LOG(LogInfo, "inner");
            }
        }
    };
    auto* echo = new Echo();
    int slot = Manager().RegisterLogger(echo);
    ScopedCapture later;
    ZN_LOG(LogInfo, "outer");
    EXPECT_THAT(echo->Messages(), ElementsAre("outer", "inner"));
    // The logger behind the one that reported still receives the outer text, not the inner one.
    EXPECT_THAT(later.Messages(), ElementsAre("inner", "outer"));
    Manager().RemoveLogger(slot);
    delete echo;
}

TEST_F(LogManagerTest, OverlongMessageIsReportedThenDeliveredCut) {
    ScopedCapture capture;
    std::string huge(70000, 'z');
    ZN_LOG(LogInfo, "%s", huge.c_str());
    std::vector<std::string> messages = capture.Messages();
    // The message overflows the manager's buffer, then the debug output's on its way there: both
    // are reported, and the cut message still reaches the loggers behind the debug output.
    ASSERT_EQ(messages.size(), 3u);
    EXPECT_EQ(messages[0],
              "znvsnprintf is going out of range! Use znvsnprintf_s if you want it to truncate\nString "
              "format:\n%s");
    EXPECT_EQ(
        messages[1],
        "znvsnprintf is going out of range! Use znvsnprintf_s if you want it to truncate\nString format:\n"
        "%s(%d): [%s - %s] %s\n");
    EXPECT_EQ(messages[2], std::string(65534, 'z'));
    ZN_LOG(LogInfo, "short");
    EXPECT_EQ(capture.Messages().back(), "short");
}

TEST_F(LogManagerTest, RegistrationSlotsAreNotReused) {
    int count = Manager().GetLoggerCount();
    auto* first = new CapturingLogger();
    int firstSlot = Manager().RegisterLogger(first);
    EXPECT_EQ(firstSlot, count);
    Manager().RemoveLogger(firstSlot);
    EXPECT_EQ(Manager().GetLogger(firstSlot), nullptr);
    EXPECT_EQ(Manager().GetLoggerCount(), count + 1);
    delete first;
    auto* second = new CapturingLogger();
    EXPECT_EQ(Manager().RegisterLogger(second), count + 1);
    ZN_LOG(LogInfo, "to second");
    EXPECT_THAT(second->Messages(), ElementsAre("to second"));
    // ClearLoggers deletes second; the count stays.
    Manager().ClearLoggers();
    EXPECT_EQ(Manager().GetLoggerCount(), count + 2);
    EXPECT_EQ(Manager().GetLogger(0), nullptr);
}

TEST_F(LogManagerTest, SeventeenthLoggerIsRefusedAndReported) {
    ScopedCapture capture;
    std::vector<CapturingLogger*> extra;
    while (Manager().GetLoggerCount() < LogManager::kMaxLoggers) {
        extra.push_back(new CapturingLogger());
        ASSERT_GE(Manager().RegisterLogger(extra.back()), 0);
    }
    CapturingLogger refused;
    EXPECT_EQ(Manager().RegisterLogger(&refused), -1);
    EXPECT_THAT(capture.Messages(), ElementsAre("Cannot register more than 16 loggers"));
    for (int slot = 0; slot < LogManager::kMaxLoggers; ++slot) {
        for (CapturingLogger* logger : extra) {
            if (Manager().GetLogger(slot) == logger) {
                Manager().RemoveLogger(slot);
            }
        }
    }
    for (CapturingLogger* logger : extra) {
        delete logger;
    }
}

TEST_F(LogManagerTest, FlushReachesEveryLogger) {
    ScopedCapture capture;
    Manager().FlushLoggers();
    Manager().FlushLoggers();
    EXPECT_EQ(capture.Logger().m_Flushes, 2);
}

TEST_F(LogManagerTest, ManyThreadsLoggingAtOnceProduceWholeLines) {
    constexpr int kThreads = 4;
    constexpr int kReports = 1500;
    ScopedCapture capture;
    StderrCapture err;
    std::vector<std::thread> threads;
    for (int thread = 0; thread < kThreads; ++thread) {
        threads.emplace_back([thread] {
            std::string payload(100 + thread * 37, static_cast<char>('a' + thread));
            for (int report = 0; report < kReports; ++report) {
                ZN_LOG(LogInfo, "t%d r%d %s", thread, report, payload.c_str());
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    std::vector<int> nextReport(kThreads, 0);
    std::vector<std::string> messages = capture.Messages();
    ASSERT_EQ(messages.size(), static_cast<size_t>(kThreads * kReports));
    for (const std::string& message : messages) {
        int thread = -1;
        int report = -1;
        ASSERT_EQ(std::sscanf(message.c_str(), "t%d r%d", &thread, &report), 2) << message;
        ASSERT_EQ(report, nextReport[thread]++) << "reports of one thread arrive in order";
        std::string payload(100 + thread * 37, static_cast<char>('a' + thread));
        std::string expected = "t";
        expected += std::to_string(thread) + " r" + std::to_string(report) + " " + payload;
        EXPECT_EQ(message, expected);
    }
    // Every debug output line is whole: one write per report.
    std::istringstream lines(err.Text());
    std::string line;
    int lineCount = 0;
    std::regex whole(R"(.*\(\d+\): \[[^\]]+\] t(\d) r\d+ ([a-d]+))");
    while (std::getline(lines, line)) {
        std::smatch match;
        ASSERT_TRUE(std::regex_match(line, match, whole)) << line;
        EXPECT_EQ(match[2].length(), 100 + std::stoi(match[1]) * 37);
        ++lineCount;
    }
    EXPECT_EQ(lineCount, kThreads * kReports);
}

// The dialog route: LogManager::Assert hands the report to the assertion function of its channel.
struct DialogCall {
    int kind;
    std::string message;
    std::string details;
};
std::vector<DialogCall> g_DialogCalls;
int g_DialogAnswer = AssertResultSkip;

int RecordingDialog(int kind, const char* message, const char* details, bool /*debuggerAttached*/) {
    g_DialogCalls.push_back({kind, message, details});
    return g_DialogAnswer;
}

class AssertRoute : public LogManagerTest {
protected:
    void SetUp() override {
        LogManagerTest::SetUp();
        g_DialogCalls.clear();
        g_DialogAnswer = AssertResultSkip;
        SetAssertDialogHandler(RecordingDialog);
    }
    void TearDown() override {
        SetAssertDialogHandler(nullptr);
        LogManagerTest::TearDown();
    }
};

TEST_F(AssertRoute, NetworkChannelIsFalseAndShowsNothing) {
    EXPECT_FALSE(Manager().Assert(LogNetwork, "f.cpp", 3, "zn::F::G", "x"));
    EXPECT_FALSE(Manager().Assert(LogInfo, "f.cpp", 3, "zn::F::G", "x"));
    EXPECT_TRUE(g_DialogCalls.empty());
}

TEST_F(AssertRoute, ProgrammerChannelsShowKindZeroWithFunction) {
    ScopedCapture capture;
    g_DialogAnswer = AssertResultIgnore;
    EXPECT_TRUE(Manager().Assert(LogAssertProgrammer, "src/a.cpp", 12, "zn::A::B", "bad %d\tvalue", 7));
    g_DialogAnswer = AssertResultSkip;
    EXPECT_FALSE(Manager().Assert(LogError, "src/a.cpp", 13, "zn::A::C", "err"));
    ASSERT_EQ(g_DialogCalls.size(), 2u);
    EXPECT_EQ(g_DialogCalls[0].kind, 0);
    EXPECT_EQ(g_DialogCalls[0].message, "bad 7 value");
    EXPECT_EQ(g_DialogCalls[0].details,
              "File: src/a.cpp\nFunction: zn::A::B\nLine: 12\n\nCallStack:\n----------\n");
    EXPECT_EQ(g_DialogCalls[1].kind, 0);
    EXPECT_TRUE(capture.Messages().empty()) << "no logger sees the dialog route";
    EXPECT_FALSE(g_DebugMessageActive);
}

TEST_F(AssertRoute, ArtAndDesignChannelsShowTheirKindsWithoutFunction) {
    EXPECT_FALSE(Manager().Assert(LogAssertArtist, "art.cpp", 1, "zn::X::Y", "texture"));
    EXPECT_FALSE(Manager().Assert(LogAssertDesign, "d.cpp", 2, "zn::X::Y", "level"));
    EXPECT_FALSE(Manager().Assert(LogDialog, "d.cpp", 3, "zn::X::Y", "speaker"));
    ASSERT_EQ(g_DialogCalls.size(), 3u);
    EXPECT_EQ(g_DialogCalls[0].kind, 1);
    EXPECT_EQ(g_DialogCalls[0].details, "File: art.cpp\nLine: 1\n\nCallStack:\n----------\n");
    EXPECT_EQ(g_DialogCalls[1].kind, 2);
    EXPECT_EQ(g_DialogCalls[2].kind, 2);
    EXPECT_EQ(g_DialogCalls[2].message, "speaker");
}

TEST_F(AssertRoute, MaskedChannelShowsNothing) {
    Manager().MaskChannel(LogAssertProgrammer);
    EXPECT_FALSE(Manager().Assert(LogAssertProgrammer, "a", 1, "f", "x"));
    EXPECT_TRUE(g_DialogCalls.empty());
}

TEST_F(AssertRoute, MessageIsCutTo1023Characters) {
    std::string longText(3000, 'm');
    Manager().Assert(LogAssertProgrammer, "a", 1, "f", "%s", longText.c_str());
    ASSERT_EQ(g_DialogCalls.size(), 1u);
    EXPECT_EQ(g_DialogCalls[0].message, std::string(1022, 'm'));
}

TEST_F(AssertRoute, DialogFallbackPrintsAndSkips) {
    SetAssertDialogHandler(nullptr);
    StderrCapture err;
    char message[] = "a\tb";
    EXPECT_EQ(ShowAssertDialog(2, message, "details here", false), AssertResultSkip);
    EXPECT_STREQ(message, "a b");
    EXPECT_EQ(err.Text(), "Assertion (design): a b\ndetails here\n");
}

TEST(ILogTest, FlushTwiceSendsTheTextTwice) {
    ILog log;
    log << "count " << 3 << " " << 2.5 << " " << static_cast<unsigned long long>(7) << std::hex << " " << 255;
    StderrCapture err;
    log.Flush();
    log.Flush();
    EXPECT_EQ(err.Text(), "count 3 2.5 7 ffcount 3 2.5 7 ff");
}

TEST(LogManagerLifetime, CreateAndDestroyOutsideStartUp) {
    ASSERT_EQ(LogManager::GetInstance(), nullptr);
    LogManager::Create();
    ASSERT_NE(LogManager::GetInstance(), nullptr);
    EXPECT_EQ(LogManager::GetInstance()->GetLoggerCount(), 5) << "four text files and the debug output";
    LogManager::Destroy();
    EXPECT_EQ(LogManager::GetInstance(), nullptr);
    LogManager::Destroy();
}

}  // namespace
}  // namespace zn::test
