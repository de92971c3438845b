// ToolOutput.h: how the tool speaks: results on one stream, "corelib: <reason>" lines and a
// progress line on the other.
#pragma once

#include "CoreLib/BoundedFormat.h"

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>

namespace zn::tools {

class ToolOutput {
public:
    // The progress line is shown only when err is a terminal: a pipe or a file never gets it.
    ToolOutput(FILE* out, FILE* err);
    ~ToolOutput() { EndProgress(); }
    ToolOutput(const ToolOutput&) = delete;
    ToolOutput& operator=(const ToolOutput&) = delete;

    FILE* Out() const { return m_Out; }
    FILE* Err() const { return m_Err; }
    bool ShowsProgress() const { return m_ShowProgress; }

    // Writes "corelib: <text>" on err and gives kExitFailure.
    int Fail(const char* format, ...) ZN_PRINTF_FORMAT(2, 3);
    // Writes "corelib: <text> (see 'corelib --help')" on err and gives kExitUsage.
    int Misuse(const char* format, ...) ZN_PRINTF_FORMAT(2, 3);
    // Writes "corelib: <text>" on err.
    void Say(const char* format, ...) ZN_PRINTF_FORMAT(2, 3);
    // Writes one line of results on out.
    void Print(const char* format, ...) ZN_PRINTF_FORMAT(2, 3);

    // "\r[done/total] name", rewritten in place.
    void Progress(unsigned int done, unsigned int total, const std::string& name);
    // Blanks the progress line so that the next text starts on a clean line.
    void EndProgress();

private:
    FILE* m_Out;
    FILE* m_Err;
    bool m_ShowProgress;
    // Columns the progress line covers now.
    size_t m_ProgressWidth = 0;
};

// "1 entry", "2 entries": the count and the word that goes with it.
std::string Counted(uint64_t count, const char* one, const char* many);

// The name with control characters written as \xNN, so that a hostile entry name can neither
// break a line of output nor send escape sequences to a terminal.
std::string Printable(const std::string& name);
// The printable name between single quotes, as messages show names.
std::string Quoted(const std::string& name);

}  // namespace zn::tools
