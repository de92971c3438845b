// CapturingLogger.h: a logger that keeps every report it is offered, for exact assertions.
#pragma once

#include "CoreLib/LogManager.h"

#include <mutex>
#include <string>
#include <vector>

namespace zn::test {

struct CapturedReport {
    ELogChannel channel;
    std::string time;
    std::string message;
    std::string file;
    int line;
    std::string function;
};

class CapturingLogger : public Logger {
public:
    explicit CapturingLogger(int channels = 0xFF) { EnableLogging(channels); }

    void ProcessMessage(ELogChannel channel, const char* time, const char* message, const char* file,
                        int line, const char* function) override {
        std::lock_guard<std::mutex> guard(m_Mutex);
        m_Reports.push_back({channel, time, message, file, line, function});
    }
    void FlushLog() override { ++m_Flushes; }

    std::vector<CapturedReport> Reports() const {
        std::lock_guard<std::mutex> guard(m_Mutex);
        return m_Reports;
    }
    std::vector<std::string> Messages() const;
    void Clear() {
        std::lock_guard<std::mutex> guard(m_Mutex);
        m_Reports.clear();
    }
    int m_Flushes = 0;

private:
    mutable std::mutex m_Mutex;
    std::vector<CapturedReport> m_Reports;
};

// Registers a capturing logger with the running log manager for the scope, and removes it.
class ScopedCapture {
public:
    explicit ScopedCapture(int channels = 0xFF);
    ~ScopedCapture();
    ScopedCapture(const ScopedCapture&) = delete;
    ScopedCapture& operator=(const ScopedCapture&) = delete;

    CapturingLogger& Logger() { return *m_Logger; }
    std::vector<std::string> Messages() const { return m_Logger->Messages(); }
    std::vector<CapturedReport> Reports() const { return m_Logger->Reports(); }

private:
    CapturingLogger* m_Logger;
    int m_Slot;
};

}  // namespace zn::test
