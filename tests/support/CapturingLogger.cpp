#include "tests/support/CapturingLogger.h"

namespace zn::test {

std::vector<std::string> CapturingLogger::Messages() const {
    std::lock_guard<std::mutex> guard(m_Mutex);
    std::vector<std::string> messages;
    for (const CapturedReport& report : m_Reports) {
        messages.push_back(report.message);
    }
    return messages;
}

ScopedCapture::ScopedCapture(int channels)
    : m_Logger(new CapturingLogger(channels)), m_Slot(LogManager::GetInstance()->RegisterLogger(m_Logger)) {}

ScopedCapture::~ScopedCapture() {
    LogManager::GetInstance()->RemoveLogger(m_Slot);
    delete m_Logger;
}

}  // namespace zn::test
