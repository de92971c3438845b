// A libFuzzer target for the pack reader: every input is written as a pack file, loaded, and every
// entry it lists is read back mapped and unmapped and looked up the ways the manager does. A pack is
// outside data, so whatever the bytes, the reader must report and refuse, never read out of bounds.
#include "CoreLib/CoreLib.h"

#include <unistd.h>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

namespace {

// Receives every report and reads its whole text, so that a report formatted from hostile bytes
// (an unterminated name, say) is read to its end under the address sanitizer, without writing log
// files on every run.
class ReadingLogger : public zn::Logger {
public:
    void ProcessMessage(zn::ELogChannel, const char* message, const char* file, const char* function, int,
                        const char*) override {
        m_Sum += std::strlen(message) + (file != nullptr ? std::strlen(file) : 0) +
                 (function != nullptr ? std::strlen(function) : 0);
    }
    void FlushLog() override {}
    size_t m_Sum = 0;
};

std::string g_PackPath;
// Summed over every byte handed out, so that no read can be optimised away.
volatile unsigned int g_Checksum = 0;

void ReadEntry(zn::PackedFile& pack, const char* name, bool wantMapped) {
    bool mapped = wantMapped;
    char* base = nullptr;
    unsigned int size = 0;
    unsigned int offset = 0;
    unsigned int viewSize = 0;
    if (!pack.GetFileData(name, mapped, base, size, offset, viewSize)) {
        return;
    }
    unsigned int sum = 0;
    const unsigned char* bytes = reinterpret_cast<const unsigned char*>(base) + offset;
    for (unsigned int index = 0; index < size; ++index) {
        sum += bytes[index];
    }
    g_Checksum = g_Checksum + sum;
    zn::PackedFile::ReleaseFileData(mapped, base, size, viewSize);
}

void Exercise(const uint8_t* data, size_t size) {
    FILE* file = std::fopen(g_PackPath.c_str(), "wb");
    if (file == nullptr) {
        std::abort();
    }
    if (size != 0 && std::fwrite(data, 1, size, file) != size) {
        std::abort();
    }
    std::fclose(file);

    zn::PackedFile pack(false);
    if (!pack.Load(zn::Path(zn::STDString(g_PackPath.c_str()), zn::Path::ROOT_NONE))) {
        return;
    }
    zn::ObjectSet<zn::FixedString> names;
    pack.GetFileNames(names);
    for (unsigned int index = 0; index < names.GetSize(); ++index) {
        const char* name = names[index].ToChar();
        ReadEntry(pack, name, true);
        ReadEntry(pack, name, false);
        g_Checksum = g_Checksum + pack.GetFileSize(name) + (pack.ContainsFile(name) ? 1 : 0);
    }
    zn::ObjectSet<zn::Path> found;
    zn::Path root(zn::STDWString(L""), zn::Path::ROOT_MEDIA);
    pack.CollectFiles(root, zn::STDWString(L"*"), true, found);
    pack.CollectDirectories(root, true, found);
    for (unsigned int index = 0; index < found.GetSize(); ++index) {
        g_Checksum = g_Checksum + (pack.ContainsDirectory(found[index]) ? 1 : 0);
    }
    g_Checksum = g_Checksum + pack.GetNbFiles() + (pack.IsEmpty() ? 1 : 0);
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    const char* folder = std::getenv("TMPDIR");
    g_PackPath = std::string(folder != nullptr && *folder != '\0' ? folder : "/tmp") + "/corelib-fuzz-" +
                 std::to_string(getpid()) + ".pak";
    zn::CoreLibSDM::Init();
    // Reports stay on, so their formatting is exercised, but reach only the reading logger.
    zn::LogManager* log = zn::LogManager::GetInstance();
    log->ClearLoggers();
    auto* logger = new ReadingLogger();
    logger->EnableLogging(0xFF);
    log->RegisterLogger(logger);
    // Loading a pack interns its names; hold the table open as a host does while it loads.
    zn::GlobalStringTable::RequestTable();
    // libFuzzer ends with exit(); the library is stopped as a host stops it, so that the leak check
    // that follows sees only what a run left behind.
    std::atexit([] {
        zn::GlobalStringTable::ReleaseTable();
        zn::CoreLibSDM::Shutdown();
        std::remove(g_PackPath.c_str());
    });
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Exercise(data, size);
    return 0;
}
