// System.cpp: machine and process facts on Linux.
#include "CoreLib/platform/System.h"

#include "CoreLib/platform/TextUnits.h"

#include <cpuid.h>
#include <fcntl.h>
#include <sched.h>
#include <sys/sysinfo.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

namespace zn::platform {

namespace {
void WriteAll(int descriptor, const char* bytes, size_t count) {
    while (count > 0) {
        ssize_t written = ::write(descriptor, bytes, count);
        if (written <= 0) {
            return;
        }
        bytes += written;
        count -= static_cast<size_t>(written);
    }
}

const char* IconName(uint32_t iconFlags) {
    switch (iconFlags) {
        case MB_ICONINFORMATION:
            return "information";
        case MB_ICONWARNING:
            return "warning";
        case MB_ICONQUESTION:
            return "question";
        case MB_ICONERROR:
            return "error";
        default:
            return "message";
    }
}
}  // namespace

void OutputDebugStringA(const char* text) {
    if (text != nullptr) {
        WriteAll(STDERR_FILENO, text, std::strlen(text));
    }
}

void OutputDebugStringW(const wchar_t* text) {
    if (text == nullptr) {
        return;
    }
    std::string utf8;
    AppendUnitsAsUtf8(text, utf8);
    WriteAll(STDERR_FILENO, utf8.data(), utf8.size());
}

bool IsDebuggerPresent() {
    int descriptor = ::open("/proc/self/status", O_RDONLY | O_CLOEXEC);
    if (descriptor < 0) {
        return false;
    }
    char status[4096];
    ssize_t length = ::read(descriptor, status, sizeof(status) - 1);
    ::close(descriptor);
    if (length <= 0) {
        return false;
    }
    status[length] = '\0';
    const char* tracer = std::strstr(status, "TracerPid:");
    return tracer != nullptr && std::strtol(tracer + 10, nullptr, 10) != 0;
}

void DebugBreak() {
    __asm__ volatile("int3");
}

void MessageBox(const char* title, const char* text, uint32_t iconFlags) {
    std::string line = "[";
    line += IconName(iconFlags);
    line += "] ";
    line += title != nullptr ? title : "";
    line += ": ";
    line += text != nullptr ? text : "";
    line += "\n";
    WriteAll(STDERR_FILENO, line.data(), line.size());
}

bool GetComputerNameW(wchar_t* name, uint32_t* size) {
    char host[256] = {};
    if (::gethostname(host, sizeof(host) - 1) != 0 || size == nullptr) {
        return false;
    }
    std::wstring units;
    AppendUtf8AsUnits(host, units);
    if (name == nullptr || *size < units.size() + 1) {
        *size = static_cast<uint32_t>(units.size() + 1);
        return false;
    }
    std::memcpy(name, units.c_str(), (units.size() + 1) * sizeof(wchar_t));
    *size = static_cast<uint32_t>(units.size());
    return true;
}

void GetSystemInfo(SystemInfo* info) {
    long online = ::sysconf(_SC_NPROCESSORS_ONLN);
    info->numberOfProcessors = online > 0 ? static_cast<uint32_t>(online) : 0;
    info->activeProcessorMask = 0;
    cpu_set_t allowed;
    CPU_ZERO(&allowed);
    if (::sched_getaffinity(0, sizeof(allowed), &allowed) == 0) {
        for (int cpu = 0; cpu < 64; ++cpu) {
            if (CPU_ISSET(cpu, &allowed)) {
                info->activeProcessorMask |= uint64_t{1} << cpu;
            }
        }
    }
}

uint64_t GetTotalPhysicalMemory() {
    struct sysinfo facts;
    if (::sysinfo(&facts) != 0) {
        return 0;
    }
    return static_cast<uint64_t>(facts.totalram) * facts.mem_unit;
}

void CpuId(uint32_t leaf, uint32_t registers[4]) {
    __cpuid_count(leaf, 0, registers[0], registers[1], registers[2], registers[3]);
}

bool QueryCompatibilityMode(bool* emulated) {
    struct utsname kernel;
    if (::uname(&kernel) != 0) {
        return false;
    }
    bool kernelIs64Bit = std::strcmp(kernel.machine, "x86_64") == 0;
    *emulated = kernelIs64Bit && sizeof(void*) == 4;
    return true;
}

}  // namespace zn::platform
