// ToolOutput.cpp: result lines, reasons and the terminal-only progress line.
#include "tools/corelib/ToolOutput.h"

#include "tools/corelib/PakTool.h"

#include <unistd.h>

#include <cstdarg>

namespace zn::tools {

namespace {
// A progress line longer than a narrow terminal would wrap, and "\r" would then rewrite only its
// last row; long names keep their end, the part that tells files apart.
constexpr size_t kMaxProgressName = 60;

void WriteLine(FILE* stream, const char* prefix, const char* format, va_list arguments) {
    std::fputs(prefix, stream);
    std::vfprintf(stream, format, arguments);
    std::fputc('\n', stream);
}
}  // namespace

ToolOutput::ToolOutput(FILE* out, FILE* err)
    : m_Out(out), m_Err(err), m_ShowProgress(isatty(fileno(err)) == 1) {}

int ToolOutput::Fail(const char* format, ...) {
    EndProgress();
    va_list arguments;
    va_start(arguments, format);
    WriteLine(m_Err, "corelib: ", format, arguments);
    va_end(arguments);
    return kExitFailure;
}

int ToolOutput::Misuse(const char* format, ...) {
    EndProgress();
    std::fputs("corelib: ", m_Err);
    va_list arguments;
    va_start(arguments, format);
    std::vfprintf(m_Err, format, arguments);
    va_end(arguments);
    std::fputs(" (see 'corelib --help')\n", m_Err);
    return kExitUsage;
}

void ToolOutput::Say(const char* format, ...) {
    EndProgress();
    va_list arguments;
    va_start(arguments, format);
    WriteLine(m_Err, "corelib: ", format, arguments);
    va_end(arguments);
}

void ToolOutput::Print(const char* format, ...) {
    EndProgress();
    va_list arguments;
    va_start(arguments, format);
    WriteLine(m_Out, "", format, arguments);
    va_end(arguments);
}

void ToolOutput::Progress(unsigned int done, unsigned int total, const std::string& name) {
    if (!m_ShowProgress) {
        return;
    }
    std::string shown = Printable(name);
    if (shown.size() > kMaxProgressName) {
        shown.replace(0, shown.size() - kMaxProgressName + 3, "...");
    }
    std::string line = "[";
    line += std::to_string(done) + "/" + std::to_string(total) + "] " + shown;
    size_t width = line.size();
    // Blanks cover what a longer earlier line left behind.
    if (width < m_ProgressWidth) {
        line.append(m_ProgressWidth - width, ' ');
    }
    std::fprintf(m_Err, "\r%s", line.c_str());
    std::fflush(m_Err);
    m_ProgressWidth = width;
}

void ToolOutput::EndProgress() {
    if (m_ProgressWidth == 0) {
        return;
    }
    std::fprintf(m_Err, "\r%*s\r", static_cast<int>(m_ProgressWidth), "");
    std::fflush(m_Err);
    m_ProgressWidth = 0;
}

std::string Counted(uint64_t count, const char* one, const char* many) {
    return std::to_string(count) + " " + (count == 1 ? one : many);
}

std::string Printable(const std::string& name) {
    static const char kHex[] = "0123456789abcdef";
    std::string shown;
    shown.reserve(name.size());
    for (unsigned char character : name) {
        if (character < 0x20 || character == 0x7F) {
            shown += "\\x";
            shown += kHex[character >> 4];
            shown += kHex[character & 0xF];
        } else {
            shown += static_cast<char>(character);
        }
    }
    return shown;
}

std::string Quoted(const std::string& name) {
    // Appended, not concatenated: GCC 12 warns falsely on "'" + std::string at -O3.
    std::string quoted = "'";
    quoted += Printable(name);
    quoted += '\'';
    return quoted;
}

}  // namespace zn::tools
