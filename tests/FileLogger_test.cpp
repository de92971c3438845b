// The file loggers: which sink takes which channel, the text line form, and "log.xml" staying one
// well-formed document after every report, checked with TinyXML.
#include "CoreLib/FileLogger.h"

#include "CoreLib/CoreLibSDM.h"
#include "CoreLib/LogManager.h"
#include "CoreLib/Report.h"
#include "tests/support/PathFixture.h"
#include "tests/support/StderrCapture.h"

#include <gtest/gtest.h>

#include <tinyxml.h>

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace zn::test {
namespace {

std::string ReadFile(const char* name) {
    std::ifstream file(name, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
}

// Each test starts the library in a folder of its own, where the loggers create their files.
class FileLoggerTest : public ::testing::Test {
protected:
    void SetUp() override { CoreLibSDM::Init(); }
    void TearDown() override {
        if (LogManager::GetInstance() != nullptr) {
            CoreLibSDM::Shutdown();
        }
    }
    // Reports on every channel once, then flushes the files.
    void ReportOnEveryChannel() {
        for (int channel = 1; channel <= 128; channel <<= 1) {
            ZN_LOG(static_cast<ELogChannel>(channel), "on channel %d", channel);
        }
        LogManager::GetInstance()->FlushLoggers();
    }
    ScopedWorkingFolder m_Folder;
};

TEST_F(FileLoggerTest, MainLoggersComeInOrderWithTheirChannels) {
    LogManager* manager = LogManager::GetInstance();
    ASSERT_EQ(manager->GetLoggerCount(), 6);
    const wchar_t* const names[] = {L"log.txt", L"errors.txt", nullptr, L"network.txt", L"dialoglog.txt"};
    const int masks[] = {127, 62, 127, 64, 128};
    for (int index = 0; index < 5; ++index) {
        Logger* logger = manager->GetLogger(index);
        auto* fileLogger = dynamic_cast<FileLogger*>(logger);
        if (names[index] == nullptr) {
            EXPECT_NE(dynamic_cast<DebugOutputLogger*>(logger), nullptr);
        } else {
            ASSERT_NE(fileLogger, nullptr) << index;
            EXPECT_STREQ(fileLogger->GetFileName(), names[index]);
        }
        for (int channel = 1; channel <= 128; channel <<= 1) {
            EXPECT_EQ(logger->IsLogging(channel), (masks[index] & channel) != 0) << index << " " << channel;
        }
    }
    auto* xml = dynamic_cast<XmlFileLogger*>(manager->GetLogger(5));
    ASSERT_NE(xml, nullptr) << "the XML log is the sixth logger, made after the memory manager";
    for (int channel = 1; channel <= 128; channel <<= 1) {
        EXPECT_EQ(xml->IsLogging(channel), (63 & channel) != 0) << channel;
    }
}

TEST_F(FileLoggerTest, ChannelsReachTheirFilesOnly) {
    StderrCapture debugOutput;
    ReportOnEveryChannel();
    std::string log = ReadFile("log.txt");
    std::string errors = ReadFile("errors.txt");
    std::string network = ReadFile("network.txt");
    std::string dialog = ReadFile("dialoglog.txt");
    std::string xml = ReadFile("log.xml");
    for (int channel = 1; channel <= 128; channel <<= 1) {
        std::string text = "]: on channel " + std::to_string(channel) + "\n";
        EXPECT_EQ(log.find(text) != std::string::npos, channel != 128) << channel;
        EXPECT_EQ(errors.find(text) != std::string::npos, (62 & channel) != 0) << channel;
        EXPECT_EQ(network.find(text) != std::string::npos, channel == 64) << channel;
        EXPECT_EQ(dialog.find(text) != std::string::npos, channel == 128) << channel;
        std::string cdata = "<![CDATA[on channel " + std::to_string(channel) + "]]>";
        EXPECT_EQ(xml.find(cdata) != std::string::npos, (63 & channel) != 0) << channel;
    }
    EXPECT_EQ(debugOutput.Text().find("on channel 128"), std::string::npos)
        << "the dialog channel reaches no other sink";
}

TEST_F(FileLoggerTest, TextLinesCarryTimeSourceAndFunction) {
    int line = __LINE__ + 1;
    ZN_LOG(LogNetwork, "sent %d bytes", 42);
    LogManager::GetInstance()->FlushLoggers();
    std::string network = ReadFile("network.txt");
    // "[time][file line function]: message\n", the time as the log manager stamps it.
    std::string tail =
        "][tests/FileLogger_test.cpp " + std::to_string(line) + " " +
        "zn::test::{anonymous}::FileLoggerTest_TextLinesCarryTimeSourceAndFunction_Test::TestBody]: "
        "sent 42 bytes\n";
    ASSERT_GE(network.size(), tail.size());
    EXPECT_EQ(network.substr(network.size() - tail.size()), tail);
    EXPECT_EQ(network[0], '[');
    EXPECT_EQ(network.find('\n'), network.size() - 1) << "one report, one line";
}

TEST_F(FileLoggerTest, XmlLogIsOneDocumentAfterEveryReport) {
    const std::string header =
        "<?xml version=\"1.0\" encoding=\"ISO-8859-1\" ?>\n"
        "<?xml-stylesheet type=\"text/xsl\" href=\"../../../../ZNTools/XMLLogger/style.xsl\" ?>\n"
        "<ZNFramework>\n";
    LogManager::GetInstance()->FlushLoggers();
    EXPECT_EQ(ReadFile("log.xml"), header + "</ZNFramework>");
    for (int report = 0; report < 60; ++report) {
        ZN_LOG(report % 2 == 0 ? LogAssertProgrammer : LogAssertDesign, "report <%d> & more", report);
        LogManager::GetInstance()->FlushLoggers();
        TiXmlDocument document;
        std::string text = ReadFile("log.xml");
        document.Parse(text.c_str());
        ASSERT_FALSE(document.Error()) << "after report " << report << ": " << document.ErrorDesc();
        ASSERT_EQ(text.substr(text.size() - 14), "</ZNFramework>") << "no newline behind the closing tag";
        TiXmlElement* root = document.RootElement();
        ASSERT_NE(root, nullptr);
        int count = 0;
        const TiXmlElement* last = nullptr;
        for (const TiXmlElement* log = root->FirstChildElement("log"); log != nullptr;
             log = log->NextSiblingElement("log")) {
            ++count;
            last = log;
        }
        ASSERT_EQ(count, report + 1);
        EXPECT_STREQ(last->FirstChildElement("type")->GetText(), "assertprogrammer")
            << "channels 8 and 32 read the same";
        EXPECT_EQ(std::string(last->FirstChildElement("message")->GetText()),
                  "report <" + std::to_string(report) + "> & more");
        EXPECT_STREQ(last->FirstChildElement("file")->GetText(), "tests/FileLogger_test.cpp");
    }
    EXPECT_EQ(std::system("xmllint --noout log.xml"), 0) << "a strict parser takes the document too";
}

TEST_F(FileLoggerTest, XmlTypesFollowTheChannel) {
    ZN_LOG(LogInfo, "i");
    ZN_LOG(LogWarning, "w");
    ZN_LOG(LogError, "e");
    ZN_LOG(LogAssertArtist, "a");
    LogManager::GetInstance()->FlushLoggers();
    std::string xml = ReadFile("log.xml");
    size_t info = xml.find("<type>info</type>\n\t\t<timestamp>");
    size_t warning = xml.find("<type>warning</type>");
    size_t error = xml.find("<type>error</type>");
    size_t artist = xml.find("<type>assertartist</type>");
    ASSERT_NE(info, std::string::npos);
    EXPECT_LT(info, warning);
    EXPECT_LT(warning, error);
    EXPECT_LT(error, artist);
    EXPECT_NE(xml.find("\t<log>\n\t\t<type>info</type>\n"), std::string::npos);
    EXPECT_NE(xml.find("</function>\n\t\t<message><![CDATA[i]]></message>\n\t</log>\n"), std::string::npos);
}

TEST_F(FileLoggerTest, CdataTerminatorInAMessageIsWrittenAsItIs) {
    ZN_LOG(LogError, "%s", "before ]]> after");
    LogManager::GetInstance()->FlushLoggers();
    std::string xml = ReadFile("log.xml");
    EXPECT_NE(xml.find("<![CDATA[before ]]> after]]></message>"), std::string::npos);
    // The section ends at the message's own "]]>": a strict parser refuses the rest, and even a
    // lenient one cannot give the message back.
    TiXmlDocument document;
    document.Parse(xml.c_str());
    const TiXmlElement* log =
        document.Error() ? nullptr : document.RootElement()->LastChild("log")->ToElement();
    if (log != nullptr) {
        EXPECT_STRNE(log->FirstChildElement("message")->GetText(), "before ]]> after");
    }
    EXPECT_NE(std::system("xmllint --noout log.xml 2>/dev/null"), 0);
}

TEST_F(FileLoggerTest, LogsAreCreatedAnewAtEachStart) {
    ZN_LOG(LogInfo, "first run");
    CoreLibSDM::Shutdown();
    EXPECT_NE(ReadFile("log.txt").find("first run"), std::string::npos);
    CoreLibSDM::Init();
    LogManager::GetInstance()->FlushLoggers();
    EXPECT_EQ(ReadFile("log.txt").find("first run"), std::string::npos);
}

TEST(FileLogger, OverlongLineIsCutToTheBuffer) {
    ScopedWorkingFolder folder;
    auto* logger = new FileLogger(L"long.txt", true);
    std::string message(FileLogger::kLineCapacity + 100, 'x');
    logger->ProcessMessage(LogInfo, "time", message.c_str(), "file.cpp", 7, "f");
    logger->FlushLog();
    std::string text = ReadFile("long.txt");
    EXPECT_EQ(text.size(), FileLogger::kLineCapacity - 1);
    EXPECT_EQ(text.substr(0, 22), "[time][file.cpp 7 f]: ");
    delete logger;
}

TEST(FileLogger, UnopenableFileLeavesTheLoggerSilent) {
    ScopedWorkingFolder folder;
    auto* logger = new FileLogger(L"missing/folder/log.txt", true);
    logger->ProcessMessage(LogInfo, "time", "lost", "file.cpp", 1, "f");
    logger->FlushLog();
    delete logger;
    EXPECT_FALSE(std::ifstream("missing/folder/log.txt").good());
}

}  // namespace
}  // namespace zn::test
