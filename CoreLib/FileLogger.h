// FileLogger.h: the loggers that write reports to files: plain text lines, and one XML document
// that is complete after every report, so that a crash leaves a readable log.
#pragma once

#include "CoreLib/FileWriter.h"
#include "CoreLib/Logger.h"

namespace zn {

// One line a report, "[time][file line function]: message", in a file created anew at each start.
// Made with the plain run-time new, before the memory manager exists.
class FileLogger : public Logger {
public:
    static constexpr unsigned int kLineCapacity = 0x100000;

    // A file that cannot be opened leaves the logger silent. flag is kept and not read.
    FileLogger(const wchar_t* fileName, bool flag);
    ~FileLogger() override;
    FileLogger(const FileLogger&) = delete;
    FileLogger& operator=(const FileLogger&) = delete;

    // A line longer than kLineCapacity - 1 characters is cut to it. Does not flush.
    void ProcessMessage(ELogChannel channel, const char* time, const char* message, const char* file,
                        int line, const char* function) override;
    void FlushLog() override;

    const wchar_t* GetFileName() const { return m_FileName; }

private:
    wchar_t* m_FileName;
    // Kept as the host gave it; every line is written the same way whatever it says.
    [[maybe_unused]] bool m_Flag;
    char m_Line[kLineCapacity];
    FileWriter m_Writer;
};

// Every report as a <log> element of one <ZNFramework> document; the closing root tag is written
// again behind each report, over the previous one.
class XmlFileLogger : public Logger {
public:
    XmlFileLogger();
    XmlFileLogger(const XmlFileLogger&) = delete;
    XmlFileLogger& operator=(const XmlFileLogger&) = delete;

    // The message goes into a CDATA section as it is: a message holding "]]>" breaks the document.
    void ProcessMessage(ELogChannel channel, const char* time, const char* message, const char* file,
                        int line, const char* function) override;
    void FlushLog() override;

private:
    void WriteText(const char* text);
    // Remembers where the closing tag goes and writes it.
    void Close();

    FileWriter m_Writer;
    unsigned int m_ClosingTagPosition = 0;
};

}  // namespace zn
