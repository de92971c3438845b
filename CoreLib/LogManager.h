// LogManager.h: the one route of every report: format once, stamp with the time, offer to the
// registered loggers.
#pragma once

#include "CoreLib/BoundedFormat.h"
#include "CoreLib/CriticalSection.h"
#include "CoreLib/Logger.h"

#include <cstdarg>
#include <cstddef>

namespace zn {

class LogManager {
public:
    static constexpr int kMaxLoggers = 16;
    static constexpr size_t kMessageBufferSize = 65536;
    static constexpr size_t kTimeBufferSize = 128;

    // Makes the manager with the plain run-time new (no heap exists yet) and registers the main loggers.
    static void Create();
    // Deletes every logger and the manager.
    static void Destroy();
    static LogManager* GetInstance() { return s_Instance; }

    // Registers the loggers that need no memory manager.
    void AddMainLoggers();
    // Registers the loggers that write through the memory system, once it exists.
    void AddMemoryManagerDependentLoggers();
    // Registers a logger made for the manager with the given channels; null is skipped.
    void AddLogger(Logger* logger, int channels);

    // Stores the logger at the next slot and returns its index; -1 when all 16 slots were used.
    int RegisterLogger(Logger* logger);
    // Empties the slot; the logger is not destroyed and the slot is not reused.
    void RemoveLogger(int index);
    // Deletes every registered logger; the slot count stays.
    void ClearLoggers();
    void FlushLoggers();

    // A masked channel reaches no logger.
    void MaskChannel(ELogChannel channels) { m_ChannelMask |= static_cast<unsigned short>(channels); }
    void UnmaskChannel(ELogChannel channels) { m_ChannelMask &= static_cast<unsigned short>(~channels); }
    bool IsChannelMasked(ELogChannel channels) const { return (m_ChannelMask & channels) != 0; }

    // Formats the report and offers it to every logger whose mask has a bit of channel.
    void Log(ELogChannel channel, const char* file, int line, const char* function, const char* format, ...)
        ZN_PRINTF_FORMAT(6, 7);
    // The dialog route: formats the report and hands it to the assertion function of its channel
    // (4 and 8 programmer, 16 art, 32 and 128 design); no logger sees it. False on other channels.
    bool Assert(ELogChannel channel, const char* file, int line, const char* function, const char* format,
                ...) ZN_PRINTF_FORMAT(6, 7);

    int GetLoggerCount() const { return m_LoggerCount; }
    Logger* GetLogger(int index) const;

    // Exported for hosts; the library does not read it.
    static bool s_SkipAssert;

private:
    LogManager();
    ~LogManager() = default;
    LogManager(const LogManager&) = delete;
    LogManager& operator=(const LogManager&) = delete;

    // The buffers of one report in progress. A report made while another is being delivered (a
    // logger that reports, a formatting overflow) gets the second set, so it never overwrites the
    // text that the remaining loggers of the first report are still to receive.
    struct ReportBuffers {
        char message[kMessageBufferSize];
        char time[kTimeBufferSize];
        // Length of the last message: clearing just that keeps the buffer all zero behind the text
        // without touching 64 KiB per report.
        size_t messageLength;
    };

    ReportBuffers& EnterReport();
    void LeaveReport() { --m_ReportDepth; }
    void GatherLogInfo(const char* format, va_list arguments, ReportBuffers& buffers);
    static void StampTime(ReportBuffers& buffers);

    static LogManager* s_Instance;
    static bool s_bLoggerInitialized;

    // All fields below are guarded by m_Lock during Log and Assert; registration belongs to the
    // start-up thread.
    Logger* m_Loggers[kMaxLoggers];
    short m_LoggerCount;
    ReportBuffers m_Report;
    ReportBuffers m_NestedReport;
    CriticalSection m_Lock;
    unsigned short m_ChannelMask;
    // Reports in progress on the thread that holds m_Lock.
    int m_ReportDepth;
};

// Set while an assertion dialog is open.
extern bool g_DebugMessageActive;
// Cleared after a debugger break has returned.
extern bool g_DebugBreakActive;
// Exported for hosts; the library does not read it.
extern bool g_DebugAssertActive;

}  // namespace zn
