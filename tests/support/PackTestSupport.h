// PackTestSupport.h: an independent reader and writer of the pack format for the pack suites, a
// temporary folder, and a fixture with the library, the pack manager and an open string table.
#pragma once

#include "CoreLib/FileSystem.h"
#include "CoreLib/GlobalStringTable.h"
#include "CoreLib/MemoryManager.h"
#include "CoreLib/PackedFile.h"
#include "CoreLib/PackedFileManager.h"
#include "CoreLib/platform/File.h"
#include "tests/support/CoreLibFixture.h"
#include "tests/support/TempDir.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <vector>

namespace zn::test {

using Bytes = std::vector<unsigned char>;

// Reaches the part size limit that only tests may lower.
struct PackedFileSeam {
    static void SetPartDataLimit(unsigned int bytes) { PackedFile::s_PartDataLimit = bytes; }
    static void RestorePartDataLimit() { PackedFile::s_PartDataLimit = PackedFile::kMaxPartDataSize; }
};

// The format as written down, read byte by byte: nothing here uses the library's reader.
struct RawEntry {
    std::string name;
    Bytes nameField;
    uint32_t offset = 0;
    uint32_t size = 0;
    uint32_t uncompressedSize = 0;
    uint32_t partIndex = 0;
};

struct RawPack {
    uint32_t version = 0;
    uint32_t dataOffset = 0;
    uint32_t numParts = 0;
    uint32_t tocSize = 0;
    uint8_t allowMemoryMapping = 0;
    uint32_t entryCount = 0;
    std::vector<RawEntry> entries;
};

inline uint32_t GetU32(const Bytes& bytes, size_t at) {
    return uint32_t{bytes.at(at)} | uint32_t{bytes.at(at + 1)} << 8 | uint32_t{bytes.at(at + 2)} << 16 |
           uint32_t{bytes.at(at + 3)} << 24;
}

inline void PutU32(Bytes& bytes, size_t at, uint32_t value) {
    for (int shift = 0; shift < 32; shift += 8) {
        bytes.at(at++) = static_cast<unsigned char>(value >> shift);
    }
}

inline RawPack ParsePack(const Bytes& bytes) {
    RawPack pack;
    pack.version = GetU32(bytes, 0);
    pack.dataOffset = GetU32(bytes, 4);
    pack.numParts = GetU32(bytes, 8);
    pack.tocSize = GetU32(bytes, 12);
    pack.allowMemoryMapping = bytes.at(16);
    pack.entryCount = GetU32(bytes, 17);
    for (uint32_t index = 0; index < pack.entryCount; ++index) {
        size_t at = 21 + size_t{index} * 272;
        RawEntry entry;
        entry.nameField.assign(bytes.begin() + static_cast<long>(at),
                               bytes.begin() + static_cast<long>(at + 256));
        entry.name.assign(reinterpret_cast<const char*>(&bytes.at(at)));
        entry.offset = GetU32(bytes, at + 256);
        entry.size = GetU32(bytes, at + 260);
        entry.uncompressedSize = GetU32(bytes, at + 264);
        entry.partIndex = GetU32(bytes, at + 268);
        pack.entries.push_back(entry);
    }
    return pack;
}

// One record for a hand-made pack.
struct HandEntry {
    std::string name;
    uint32_t offset;
    uint32_t size;
    uint32_t uncompressedSize;
    uint32_t partIndex;
};

// The first part of a hand-made pack: header, table, and padding to dataOffset (0 means the next
// multiple of 32768). The data area is left to the caller.
inline Bytes BuildPackHead(uint32_t version, uint32_t numParts, uint8_t allowMapping,
                           const std::vector<HandEntry>& entries, uint32_t dataOffset = 0) {
    uint32_t tocSize = 4 + 272 * static_cast<uint32_t>(entries.size());
    if (dataOffset == 0) {
        dataOffset = (17 + tocSize + 32767) / 32768 * 32768;
    }
    Bytes bytes(dataOffset, 0xAD);
    PutU32(bytes, 0, version);
    PutU32(bytes, 4, dataOffset);
    PutU32(bytes, 8, numParts);
    PutU32(bytes, 12, tocSize);
    bytes[16] = allowMapping;
    PutU32(bytes, 17, static_cast<uint32_t>(entries.size()));
    for (size_t index = 0; index < entries.size(); ++index) {
        size_t at = 21 + index * 272;
        std::memset(&bytes[at], 0, 256);
        std::memcpy(&bytes[at], entries[index].name.data(), entries[index].name.size());
        PutU32(bytes, at + 256, entries[index].offset);
        PutU32(bytes, at + 260, entries[index].size);
        PutU32(bytes, at + 264, entries[index].uncompressedSize);
        PutU32(bytes, at + 268, entries[index].partIndex);
    }
    return bytes;
}

inline Bytes ReadBytes(const std::filesystem::path& path) {
    std::ifstream stream(path, std::ios::binary);
    return Bytes(std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>());
}

inline void WriteBytes(const std::filesystem::path& path, const Bytes& bytes) {
    std::filesystem::create_directories(path.parent_path());
    std::ofstream stream(path, std::ios::binary | std::ios::trunc);
    stream.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
}

// Bytes from a fixed seed, so every run sees the same data.
inline Bytes RandomBytes(size_t size, unsigned int seed) {
    std::mt19937 generator(seed);
    Bytes bytes(size);
    for (unsigned char& byte : bytes) {
        byte = static_cast<unsigned char>(generator());
    }
    return bytes;
}

inline STDWString Wide(const std::filesystem::path& path) {
    std::string text = path.string();
    return STDWString(std::wstring(text.begin(), text.end()).c_str());
}

inline Path PathOf(const std::filesystem::path& path) {
    return Path(Wide(path), Path::ROOT_NONE);
}

// Frees what PackedFile::GetFileData handed over, as FileReader does.
inline void ReleaseFileData(bool mapped, char* base, unsigned int size, unsigned int viewSize) {
    if (base == nullptr) {
        return;
    }
    if (mapped) {
        platform::UnmapView(base, viewSize);
    } else if (size >= MemoryManager::kLargeBlockThreshold) {
        MemoryManager::LargeBlockFree(base, 0);
    } else {
        MemoryManager::GlobalFree(base, 0);
    }
}

// The file's bytes from a loaded pack, or nothing when the pack refuses.
inline bool FetchFromPack(PackedFile& pack, const char* name, bool wantMapped, Bytes& content,
                          bool* gotMapped = nullptr) {
    bool mapped = wantMapped;
    char* base = nullptr;
    unsigned int size = 0;
    unsigned int offset = 0;
    unsigned int viewSize = 0;
    if (!pack.GetFileData(name, mapped, base, size, offset, viewSize)) {
        EXPECT_EQ(base, nullptr);
        return false;
    }
    content.assign(base + offset, base + offset + size);
    if (gotMapped != nullptr) {
        *gotMapped = mapped;
    }
    ReleaseFileData(mapped, base, size, viewSize);
    return true;
}

// The library started, a pack manager in place, the string table held open for the test (the
// manager's own brackets would otherwise close it behind them), the media path in a temporary
// folder, and the part size limit at its default.
class PackFixture : public CoreLibFixture {
protected:
    void SetUp() override {
        CoreLibFixture::SetUp();
        GlobalStringTable::RequestTable();
        m_OwnsManager = Singleton<PackedFileManager>::GetInstance() == nullptr;
        Singleton<PackedFileManager>::_SDMInit();
        m_Media = m_Temp.Folder() / "media";
        std::filesystem::create_directories(m_Media);
        FileSystem::SetMediaPath(Wide(m_Media));
    }
    void TearDown() override {
        PackedFileSeam::RestorePartDataLimit();
        Singleton<PackedFileManager>::GetInstance()->Destroy();
        if (m_OwnsManager) {
            Singleton<PackedFileManager>::_SDMShutdown();
        }
        GlobalStringTable::ReleaseTable();
        RestoreTableLoadState();
        CoreLibFixture::TearDown();
    }

    // The balancing release leaves the table closed, as a host's run phase has it; later tests
    // expect it as a process finds it at load: enabled, no bracket open. Only a release past zero
    // enables it with a count of 0, and its report is swallowed.
    static void RestoreTableLoadState() {
        if (GlobalStringTable::IsTableEnabled() && GlobalStringTable::GetTableUseCount() == 0) {
            return;
        }
        ScopedCapture swallow;
        GlobalStringTable::ResetTable();
        GlobalStringTable::ReleaseTable();
        GlobalStringTable::RequestTable();
    }

    PackedFileManager& Manager() { return *Singleton<PackedFileManager>::GetInstance(); }

    TempDir m_Temp;
    std::filesystem::path m_Media;
    bool m_OwnsManager = false;
};

}  // namespace zn::test
