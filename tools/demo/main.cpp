// The demo host: starts the library as a game would, exercises its services on the media folder
// given on the command line, and stops it, saying what it did at each stage.
#include "CoreLib/CoreLib.h"

#include <cstdio>
#include <cstring>
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

// A game object as the library's own classes are made: tracked, from "GLOBAL".
struct Monster : public zn::TrackedObject<Monster> {
    zn::FixedString m_Kind;
    float m_Health = 100.0f;
};

void ShowMemory() {
    size_t before = zn::MemoryManager::GetMemoryInUse();
    Monster* monster = new Monster;
    void* vertices = zn::MemoryManager::GlobalMalloc(4096, 16);
    void* level = zn::MemoryManager::LargeBlockMalloc(2 << 20, 0);
    std::printf("demo: a tracked object, 4 KiB aligned to 16 and a 2 MiB block: %zu bytes more in use\n",
                zn::MemoryManager::GetMemoryInUse() - before);
    zn::MemoryManager::LargeBlockFree(level, 0);
    zn::MemoryManager::GlobalFree(vertices, 16);
    delete monster;
    std::printf("demo: after freeing them: %zu bytes more in use; heap totals on standard error:\n",
                zn::MemoryManager::GetMemoryInUse() - before);
    zn::MemoryManager::DebugPrint();
}

void ShowStrings() {
    zn::FixedString first("textures/rock.dds");
    zn::STDString built = zn::STDString("textures/") + "rock.dds";
    zn::FixedString second(built.ToChar());
    std::printf("demo: two FixedStrings of one text share one address: %s (%u references)\n",
                first == second ? "yes" : "no", first.GetRefCount());
    zn::STDString padded("  \t spaced out \r\n");
    padded.TrimWhiteSpaceLeftAndRight();
    std::printf("demo: trimmed \"%s\"; wildcard \"*.DDS\" matches: %s\n", padded.ToChar(),
                zn::StringHelpers::WildcardMatch(first.ToChar(), "*.DDS") ? "yes" : "no");
    const char bytes[] = "CoreLib";
    zn::STDString encoded = zn::base64_encode(reinterpret_cast<const unsigned char*>(bytes), 7);
    std::printf("demo: base64 of \"%s\" is %s, and a new GUID is %s\n", bytes, encoded.ToChar(),
                zn::GenerateGUID().ToChar());
}

void ShowScratch() {
    zn::ScratchString line(64, zn::ScratchString::MAX_SIZE_INFINITE, true);
    line.SetFloatPrecision(2);
    line << "loaded " << 12 << " meshes in " << 1.75f << " s";
    line.AppendFormattedString(" (%s)", "rock.dds");
    std::printf("demo: a scratch string built \"%s\" in %u of %u characters\n", line.ToChar(), line.GetSize(),
                line.GetAllocatedSize());
    zn::ScratchBuffer stream(0);
    const unsigned int header[2] = {0x4E5A, 3};
    stream.Write(header, sizeof(header));
    stream.Write("abc", 3);
    unsigned int back[2] = {};
    stream.Read(back, sizeof(back));
    std::printf("demo: a scratch buffer holds %u bytes in %u, read back %#x and %u\n", stream.GetSize(),
                stream.GetBufferSize(), back[0], back[1]);
}

void ShowGeometry() {
    zn::Quaternion turn;
    turn.FromAngleAxisZ(1.5707964f);
    MathMatrix<float, 3, 3> rotation;
    turn.ToRotation(rotation);
    MathVector<float, 3> east(1.0f, 0.0f, 0.0f);
    MathVector<float, 3> north = rotation * east;
    zn::UnitVector3 packed;
    packed.PackVector(north);
    MathVector<float, 3> unpacked;
    packed.UnpackVector(unpacked);
    std::printf(
        "demo: a quarter turn about z takes (1, 0, 0) to (%.2f, %.2f, %.2f); packed in two bytes it "
        "comes back as (%.3f, %.3f, %.3f)\n",
        north[0], north[1], north[2], unpacked[0], unpacked[1], unpacked[2]);
}

void ShowClocksAndRandom() {
    zn::GameClock clock("demo");
    clock.Init(50);
    for (int frame = 0; frame < 5; ++frame) {
        clock.Tick();
    }
    zn::Random random;
    random.Seed(1, 2000);
    int first = random.GetRand();
    int second = random.GetRand();
    std::printf("demo: five frames capped at 50 fps took %.3f s; seed 1 draws %d and %d\n",
                clock.GetTickCount(), first, second);
}

void ShowPathsAndText(const std::string& media) {
    zn::FileSystem::SetMediaPath(
        zn::STDWString(zn::Localization::ConvertMultiByteToWide(media.c_str()).Get()));
    zn::Path texture(zn::STDString("Public/Game/rock.DDS"), zn::Path::ROOT_MEDIA);
    zn::STDWString extension;
    texture.GetPathComponent(zn::Path::Extension, extension);
    zn::Localization::ConvertWideToMultiByte full(texture);
    zn::Localization::ConvertWideToMultiByte type(extension);
    std::printf("demo: a media path reads %s, extension \"%s\"\n", full.Get(), type.Get());
    zn::Localization::ConvertMultiByteToWide wide("Gr\xc3\xbc\xc3\x9f \xf0\x9f\x8e\xae");
    std::printf("demo: \"Gr\xc3\xbc\xc3\x9f \xf0\x9f\x8e\xae\" is %u bytes of UTF-8 and %u 16-bit units\n",
                static_cast<unsigned int>(std::strlen("Gr\xc3\xbc\xc3\x9f \xf0\x9f\x8e\xae")),
                wide.GetLength());
}

// Packs the sample files into "Demo.pak" in the media folder, collects it, and reads one entry back
// through FileReader, which asks the packs before the disk.
void ShowPacks() {
    const char* const greeting = "Hello from inside a pack.\n";
    std::string level;
    for (int row = 0; row < 64; ++row) {
        level += "<tile x=\"" + std::to_string(row) + "\" kind=\"grass\"/>\n";
    }
    zn::PackedFile writer(true);
    writer.SetAllowMemoryMapping(false);
    writer.AddFile("Public/Game/greeting.txt", greeting, static_cast<unsigned int>(std::strlen(greeting)),
                   false);
    writer.AddFile("Public/Game/level.xml", level.data(), static_cast<unsigned int>(level.size()), true);
    writer.AddFile("Public/Game/readme.md", zn::Path(zn::STDString("README.md"), zn::Path::ROOT_MEDIA),
                   false);
    zn::Path packPath(zn::STDString("Demo.pak"), zn::Path::ROOT_MEDIA);
    bool saved = writer.Save(packPath);
    zn::PackedFileManager* manager = zn::Singleton<zn::PackedFileManager>::GetInstance();
    manager->CollectPackFiles();
    zn::FileReader reader(zn::Path(zn::STDString("Public/Game/greeting.txt"), zn::Path::ROOT_MEDIA), true,
                          false, zn::CompressionType_None);
    std::string text = reader.IsLoaded()
                           ? std::string(static_cast<const char*>(reader.GetData()), reader.GetFileSize())
                           : std::string("(not found)\n");
    zn::FileReader levelReader(zn::Path(zn::STDString("Public/Game/level.xml"), zn::Path::ROOT_MEDIA), true,
                               false, zn::CompressionType_None);
    std::printf("demo: Demo.pak %s with %u pack(s) collected; greeting.txt %s the pack: %s",
                saved ? "saved" : "NOT SAVED", manager->GetPackCount(),
                reader.FromPackFile() ? "comes from" : "does not come from", text.c_str());
    std::printf("demo: level.xml, stored compressed, reads back as %u bytes (%s)\n",
                levelReader.GetFileSize(),
                levelReader.GetFileSize() == level.size() ? "as written" : "CHANGED");
    manager->Destroy();
}

void ShowCompression() {
    std::string text;
    for (int line = 0; line < 200; ++line) {
        text += "the same line of a level file, over and over\n";
    }
    zn::Compressor compressor(zn::CompressionLevelBest);
    compressor.Deflate(text.data(), static_cast<unsigned int>(text.size()));
    zn::ZipperOutput packed = compressor.GetOutput();
    zn::DeCompressor decompressor;
    decompressor.Inflate(packed.m_Output, packed.m_OutputSize);
    zn::ZipperOutput unpacked = decompressor.GetOutput();
    bool same =
        unpacked.m_OutputSize == text.size() && std::memcmp(unpacked.m_Output, text.data(), text.size()) == 0;
    std::printf("demo: %zu bytes of text deflate to %u and inflate back %s\n", text.size(),
                packed.m_OutputSize, same ? "unchanged" : "CHANGED");
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
    ShowMemory();
    ShowStrings();
    ShowScratch();
    ShowGeometry();
    ShowClocksAndRandom();
    // GenerateGUID's bracket has closed the string table: the rest runs as a loading phase.
    zn::GlobalStringTable::RequestTable();
    ShowPathsAndText(media);
    ShowCompression();
    ShowPacks();
    zn::GlobalStringTable::ReleaseTable();
    zn::CoreLibSDM::Shutdown();
    Say("CoreLibSDM::Shutdown done");
    return 0;
}
