// PakArchive.h: a pack opened for reading by the tool: its header, its stored entries in table
// order, its part files on disk, and the bytes of one entry.
#pragma once

#include "CoreLib/PackedFile.h"
#include "CoreLib/PackedFile_TOC.h"

#include <cstdint>
#include <string>
#include <vector>

namespace zn::tools {

class ToolOutput;

// The bytes of one entry as PackedFile::GetFileData handed them over: a view of the pack or a
// block, released by the rule the library's readers release them by.
class EntryBytes {
public:
    EntryBytes() = default;
    ~EntryBytes() { Release(); }
    EntryBytes(const EntryBytes&) = delete;
    EntryBytes& operator=(const EntryBytes&) = delete;

    const char* Data() const { return m_Base != nullptr ? m_Base + m_Offset : ""; }
    unsigned int Size() const { return m_Size; }
    bool IsMapped() const { return m_Mapped; }
    void Release();

private:
    friend class PakArchive;

    char* m_Base = nullptr;
    unsigned int m_Size = 0;
    unsigned int m_Offset = 0;
    unsigned int m_ViewSize = 0;
    bool m_Mapped = false;
};

class PakArchive {
public:
    enum class OpenResult {
        Loaded,
        // The table was read, but a part file named by the header is not there.
        PartMissing,
        // Not a pack: no file, a folder, a wrong version, or a table that disagrees with the file.
        Unreadable,
    };

    PakArchive() : m_Pack(false) {}
    PakArchive(const PakArchive&) = delete;
    PakArchive& operator=(const PakArchive&) = delete;

    // Opens the pack at an absolute path; anything but Loaded leaves a one-line reason.
    OpenResult Open(const std::string& path, std::string& reason);

    const std::string& GetPath() const { return m_Path; }
    const PackedFileHeader* GetHeader() const { return m_Pack.GetHeader(); }
    // Part files on disk: at least one, the pack itself, even for a pack saved with no part.
    unsigned int GetPartCount() const;
    // The path of a part: the pack for 0, "<path without extension>_<n>.<extension>" after it.
    std::string GetPartPath(unsigned int part) const { return PartPath(m_Path, part); }
    static std::string PartPath(const std::string& packPath, unsigned int part);

    // The stored entries in table order (depth first, a folder's files before the folder's own).
    unsigned int GetEntryCount() const;
    const PackedFileEntry& GetEntry(unsigned int index) const;
    static std::string NameOf(const PackedFileEntry& entry) { return std::string(entry.m_Name); }
    // The uncompressed size: what a reader of the entry gets.
    static uint64_t ContentSize(const PackedFileEntry& entry);
    // Where the entry's bytes start in its part file.
    uint64_t FileOffset(const PackedFileEntry& entry) const;

    // The entry a lookup of name finds (names compare without ASCII case); -1 when none does.
    int FindEntry(const std::string& name);
    // True when name is a folder of the pack's names.
    bool IsFolder(const std::string& name);
    // Indices of the entries below a folder, in table order.
    std::vector<unsigned int> EntriesBelow(const std::string& folder) const;

    // The bytes of an entry, mapped in place when wantMapped and the pack allows it. False with a
    // reason when the entry is hidden by another of the same name, reaches past its part, or does
    // not read or inflate whole.
    bool Fetch(unsigned int index, bool wantMapped, EntryBytes& bytes, std::string& reason);

private:
    std::string m_Path;
    PackedFile m_Pack;
};

// Opens the pack for a command that needs all of it; false after saying why.
bool OpenWhole(ToolOutput& output, PakArchive& archive, const std::string& path);

}  // namespace zn::tools
