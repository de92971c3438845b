// The demo host: starts the library as a game would, exercises its services on the media folder
// given on the command line, and stops it, saying what it did at each stage.
#include "CoreLib/CoreLib.h"

#include <cstdio>
#include <string>

namespace {
void Say(const char* text) {
    std::printf("demo: %s\n", text);
}

// A logger that counts what reaches it, to show channel masks at work.
class CountingLogger : public zn::Logger {
public:
    void ProcessMessage(zn::ELogChannel, const char*, const char*, const char*, int, const char*) override {
        ++m_Count;
    }
    void FlushLog() override {}
    int m_Count = 0;
};

void ShowReports() {
    zn::LogManager* log = zn::LogManager::GetInstance();
    auto* counter = new CountingLogger();
    counter->EnableLogging(zn::LogInfo | zn::LogWarning | zn::LogNetwork);
    int slot = log->RegisterLogger(counter);

    Say("reporting on the info, warning, error and network channels (debug output on standard error):");
    ZN_LOG(zn::LogInfo, "demo host started with %d processor(s)", cpuCount);
    ZN_LOG(zn::LogWarning, "a warning with a number: %.3f", 3.14159);
    ZN_LOG(zn::LogError, "an error about '%s'", "a missing file");
    ZN_LOG(zn::LogNetwork, "network traffic: %u bytes", 1500u);
    ZN_ASSERT(1 + 1 == 3);

    log->MaskChannel(zn::LogInfo);
    ZN_LOG(zn::LogInfo, "this info report is masked and reaches no logger");
    log->UnmaskChannel(zn::LogInfo);

    std::printf("demo: the counting logger (info, warning, network) saw %d report(s)\n", counter->m_Count);
    log->RemoveLogger(slot);
    delete counter;
}

void ShowFormatting() {
    char buffer[16];
    unsigned int size = sizeof(buffer);
    bool fitted = znsnprintf_s(buffer, size, "%s", "fits");
    std::printf("demo: znsnprintf_s \"fits\" into 16: %s, %u left\n", fitted ? "true" : "false", size);
    size = sizeof(buffer);
    fitted = znsnprintf_s(buffer, size, "%s", "sixteen chars!!!");
    std::printf("demo: znsnprintf_s 16 characters into 16: %s, kept \"%s\"\n", fitted ? "true" : "false",
                buffer);
}

void ShowMachine() {
    initCPU();
    zn::CPUDescription cpu = zn::GetCPUDescription();
    bool wow64 = false;
    bool answered = Is64BitOS(wow64);
    std::printf("demo: %d processor(s), vendor %s, family %u, SSE2 %s, %.1f GiB of memory\n", cpuCount,
                cpu.vendor, cpu.family, cpu.hasSSE2 ? "yes" : "no",
                static_cast<double>(GetSystemRAM(RAM_GIGABYTES)));
    std::printf("demo: word size question answered: %s, 32-bit emulation: %s\n", answered ? "yes" : "no",
                wow64 ? "yes" : "no");
}
}  // namespace

int main(int argc, char** argv) {
    // Line by line, so the demo's lines and the debug output on standard error keep their order.
    std::setvbuf(stdout, nullptr, _IOLBF, 0);
    std::string media = argc > 1 ? argv[1] : "samples";
    std::printf("demo: media folder %s\n", media.c_str());

    zn::CoreLibSDM::Init();
    Say("CoreLibSDM::Init done");
    ShowMachine();
    ShowReports();
    ShowFormatting();
    zn::CoreLibSDM::Shutdown();
    Say("CoreLibSDM::Shutdown done");
    return 0;
}
