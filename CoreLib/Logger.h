// Logger.h: report channels, the base of every sink, and the debug output sink.
#pragma once

namespace zn {

// One bit per kind of report; a logger's mask selects the channels it takes.
enum ELogChannel {
    LogInfo = 1,
    LogWarning = 2,
    LogError = 4,
    LogAssertProgrammer = 8,
    LogAssertArtist = 16,
    LogAssertDesign = 32,
    LogNetwork = 64,
    LogDialog = 128,
};

// A sink of formatted reports. LogManager offers each report to every logger whose mask has a
// bit of the report's channel.
class Logger {
public:
    Logger() = default;
    Logger(const Logger& other) = default;
    Logger& operator=(const Logger& other) = default;
    virtual ~Logger() = default;

    // Takes one report; time, message, file and function are valid only during the call.
    virtual void ProcessMessage(ELogChannel channel, const char* time, const char* message, const char* file,
                                int line, const char* function) = 0;
    // Pushes buffered output to its destination.
    virtual void FlushLog() = 0;

    void EnableLogging(int channels) { m_ChannelMask |= channels; }
    void DisableLogging(int channels) { m_ChannelMask &= ~channels; }
    bool IsLogging(int channels) const { return (m_ChannelMask & channels) > 0; }

protected:
    int m_ChannelMask = 0;
};

// Sends each report to the debug output (standard error) as "file(line): [time - function] message".
class DebugOutputLogger : public Logger {
public:
    void ProcessMessage(ELogChannel channel, const char* time, const char* message, const char* file,
                        int line, const char* function) override;
    void FlushLog() override {}
};

}  // namespace zn
