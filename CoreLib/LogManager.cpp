// LogManager.cpp: report formatting and fan-out to the loggers.
#include "CoreLib/LogManager.h"

#include "CoreLib/Assert.h"
#include "CoreLib/FileLogger.h"
#include "CoreLib/MemoryManager.h"
#include "CoreLib/PlatformShims.h"
#include "CoreLib/Report.h"
#include "CoreLib/platform/Time.h"

#include <cstring>
#include <new>

namespace zn {

LogManager* LogManager::s_Instance = nullptr;
bool LogManager::s_bLoggerInitialized = false;
bool LogManager::s_SkipAssert = false;

bool g_DebugMessageActive = false;
bool g_DebugBreakActive = false;
bool g_DebugAssertActive = false;

namespace {
constexpr unsigned int kMessageLimit = LogManager::kMessageBufferSize - 1;
constexpr unsigned int kTimeLimit = LogManager::kTimeBufferSize - 1;
constexpr uint32_t kLogSpinCount = 4000;

// The lock order of the library: the memory manager's lock first (loggers may allocate), then the
// log manager's. Before the memory manager exists, and after it is gone, only the second is taken.
class ReportLocks {
public:
    explicit ReportLocks(CriticalSection* logLock)
        : m_MemoryLock(MemoryManager::IsCreated() ? &MemoryManager::GetInstance().GetCriticalSection()
                                                  : nullptr),
          m_LogLock(logLock) {}

private:
    CSLockIfAny m_MemoryLock;
    CSLock m_LogLock;
};
}  // namespace

LogManager::LogManager()
    : m_Loggers{},
      m_LoggerCount(0),
      m_Report{},
      m_NestedReport{},
      m_Lock(kLogSpinCount),
      m_ChannelMask(0),
      m_ReportDepth(0) {}

void LogManager::Create() {
    auto* manager = new (std::nothrow) LogManager();
    if (manager == nullptr) {
        return;
    }
    manager->AddMainLoggers();
    s_Instance = manager;
    s_bLoggerInitialized = true;
}

void LogManager::Destroy() {
    if (s_Instance == nullptr) {
        return;
    }
    s_Instance->ClearLoggers();
    delete s_Instance;
    s_Instance = nullptr;
}

// Each logger comes from the plain run-time, since the memory manager does not exist yet; one
// that cannot be made is left out.
void LogManager::AddLogger(Logger* logger, int channels) {
    if (logger != nullptr) {
        logger->EnableLogging(channels);
        RegisterLogger(logger);
    }
}

void LogManager::AddMainLoggers() {
    AddLogger(new (std::nothrow) FileLogger(L"log.txt", false), 127);
    AddLogger(new (std::nothrow) FileLogger(L"errors.txt", true), 62);
    AddLogger(new (std::nothrow) DebugOutputLogger(), 127);
    AddLogger(new (std::nothrow) FileLogger(L"network.txt", true), 64);
    AddLogger(new (std::nothrow) FileLogger(L"dialoglog.txt", true), 128);
}

void LogManager::AddMemoryManagerDependentLoggers() {
    AddLogger(new (std::nothrow) XmlFileLogger(), 63);
}

int LogManager::RegisterLogger(Logger* logger) {
    // A 17th logger would be written behind the table: refuse it instead.
    if (m_LoggerCount >= kMaxLoggers) {
        ZN_REPORT("Cannot register more than %d loggers", kMaxLoggers);
        return -1;
    }
    m_Loggers[m_LoggerCount] = logger;
    return m_LoggerCount++;
}

void LogManager::RemoveLogger(int index) {
    if (index >= 0 && index < m_LoggerCount) {
        m_Loggers[index] = nullptr;
    }
}

void LogManager::ClearLoggers() {
    for (int index = 0; index < m_LoggerCount; ++index) {
        delete m_Loggers[index];
        m_Loggers[index] = nullptr;
    }
}

void LogManager::FlushLoggers() {
    for (int index = 0; index < m_LoggerCount; ++index) {
        if (m_Loggers[index] != nullptr) {
            m_Loggers[index]->FlushLog();
        }
    }
}

Logger* LogManager::GetLogger(int index) const {
    return index >= 0 && index < m_LoggerCount ? m_Loggers[index] : nullptr;
}

void LogManager::StampTime(ReportBuffers& buffers) {
    platform::SYSTEMTIME now;
    platform::GetSystemTime(&now);
    unsigned int size = kTimeLimit;
    znsnprintf_s(buffers.time, size, "%.2d-%.2d-%.4d %.2d:%.2d:%.2d:%.3d", now.wDay, now.wMonth, now.wYear,
                 now.wHour, now.wMinute, now.wSecond, now.wMilliseconds);
}

LogManager::ReportBuffers& LogManager::EnterReport() {
    // Deeper nesting than one report inside another reuses the second set.
    return m_ReportDepth++ == 0 ? m_Report : m_NestedReport;
}

void LogManager::GatherLogInfo(const char* format, va_list arguments, ReportBuffers& buffers) {
    std::memset(buffers.message, 0, buffers.messageLength + 1);
    unsigned int size = kMessageLimit;
    if (!znvsnprintf_s(buffers.message, size, format, arguments)) {
        Log(LogAssertProgrammer, __FILE__, __LINE__, ZN_FUNCTION_NAME,
            "znvsnprintf is going out of range! Use znvsnprintf_s if you want it to truncate\nString "
            "format:\n%s",
            format);
    }
    buffers.messageLength = std::strlen(buffers.message);
    StampTime(buffers);
}

void LogManager::Log(ELogChannel channel, const char* file, int line, const char* function,
                     const char* format, ...) {
    ReportLocks guard(&m_Lock);
    if (!s_bLoggerInitialized || IsChannelMasked(channel)) {
        return;
    }
    ReportBuffers& buffers = EnterReport();
    va_list arguments;
    va_start(arguments, format);
    GatherLogInfo(format, arguments, buffers);
    va_end(arguments);
    for (int index = 0; index < m_LoggerCount; ++index) {
        Logger* logger = m_Loggers[index];
        if (logger != nullptr && logger->IsLogging(channel)) {
            logger->ProcessMessage(channel, buffers.time, buffers.message, file, line, function);
        }
    }
    LeaveReport();
}

bool LogManager::Assert(ELogChannel channel, const char* file, int line, const char* function,
                        const char* format, ...) {
    ReportLocks guard(&m_Lock);
    if (!s_bLoggerInitialized || IsChannelMasked(channel)) {
        return false;
    }
    bool programmer = channel == LogError || channel == LogAssertProgrammer;
    bool art = channel == LogAssertArtist;
    bool design = channel == LogAssertDesign || channel == LogDialog;
    if (!programmer && !art && !design) {
        return false;
    }
    ReportBuffers& buffers = EnterReport();
    va_list arguments;
    va_start(arguments, format);
    GatherLogInfo(format, arguments, buffers);
    va_end(arguments);
    bool result = programmer ? znProgrammerAssert(file, line, function, buffers.message)
                  : art      ? znArtAssert(file, line, buffers.message)
                             : znDesignAssert(file, line, buffers.message);
    LeaveReport();
    return result;
}

}  // namespace zn
