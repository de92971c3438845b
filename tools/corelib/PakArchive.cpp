// PakArchive.cpp: opening a pack for the tool's commands, and fetching entries with reasons a user
// can act on when they cannot be had.
#include "tools/corelib/PakArchive.h"

#include "CoreLib/CriticalSection.h"
#include "CoreLib/FixedString.h"
#include "CoreLib/Path.h"
#include "CoreLib/STDString.h"
#include "tools/corelib/ToolOutput.h"

#include <strings.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>

namespace zn::tools {

namespace {
// The size of the file at path, or false when there is none.
bool FileSize(const std::string& path, uint64_t& size) {
    struct stat info;
    if (stat(path.c_str(), &info) != 0 || !S_ISREG(info.st_mode)) {
        return false;
    }
    size = static_cast<uint64_t>(info.st_size);
    return true;
}

}  // namespace

void EntryBytes::Release() {
    if (m_Base == nullptr) {
        return;
    }
    PackedFile::ReleaseFileData(m_Mapped, m_Base, m_Size, m_ViewSize);
    m_Base = nullptr;
    m_Size = 0;
    m_Offset = 0;
    m_ViewSize = 0;
    m_Mapped = false;
}

PakArchive::OpenResult PakArchive::Open(const std::string& path, std::string& reason) {
    m_Path = path;
    struct stat info;
    if (stat(path.c_str(), &info) != 0) {
        reason = "cannot open " + Quoted(path) + ": " + std::strerror(errno);
        return OpenResult::Unreadable;
    }
    if (S_ISDIR(info.st_mode)) {
        reason = Quoted(path) + " is a folder, not a pack";
        return OpenResult::Unreadable;
    }
    // A pipe or a device could block the load forever or change under it.
    if (!S_ISREG(info.st_mode)) {
        reason = Quoted(path) + " is not a regular file";
        return OpenResult::Unreadable;
    }
    if (m_Pack.Load(Path(STDString(path.c_str()), Path::ROOT_NONE))) {
        return OpenResult::Loaded;
    }
    // A load that failed on a missing part keeps its header and table; any other failure leaves
    // no table behind (an empty pack has none either way).
    const PackedFileHeader* header = GetHeader();
    bool tableRead = header != nullptr && (m_Pack.GetTOC()->GetEntries() != nullptr ||
                                           header->m_TocSize == PackedFile_TOC::kCountSize);
    for (unsigned int part = 1; tableRead && part < GetPartCount(); ++part) {
        uint64_t size = 0;
        if (!FileSize(GetPartPath(part), size)) {
            reason = "part file " + Quoted(GetPartPath(part)) + " of " + Quoted(path) + " is missing";
            return OpenResult::PartMissing;
        }
    }
    reason = Quoted(path) + " is not a pack, or its table of contents is damaged";
    return OpenResult::Unreadable;
}

unsigned int PakArchive::GetPartCount() const {
    const PackedFileHeader* header = GetHeader();
    return header == nullptr || header->m_NumParts == 0 ? 1 : header->m_NumParts;
}

std::string PakArchive::PartPath(const std::string& packPath, unsigned int part) {
    if (part == 0) {
        return packPath;
    }
    // The pack names its parts so, with the number as a byte, wherever the pack lies.
    size_t lastSeparator = packPath.rfind('/');
    size_t lastDot = packPath.rfind('.');
    bool hasExtension =
        lastDot != std::string::npos && (lastSeparator == std::string::npos || lastDot > lastSeparator);
    std::string stem = hasExtension ? packPath.substr(0, lastDot) : packPath;
    std::string extension = hasExtension ? packPath.substr(lastDot + 1) : std::string();
    std::vector<char> name(stem.size() + extension.size() + 8);
    std::snprintf(name.data(), name.size(), PackedFile::kPartNameFormat, stem.c_str(),
                  static_cast<unsigned char>(part), extension.c_str());
    return std::string(name.data());
}

unsigned int PakArchive::GetEntryCount() const {
    const PackedFile_TOC* table = m_Pack.GetTOC();
    return table->GetEntries() != nullptr ? table->GetEntryCount() : 0;
}

const PackedFileEntry& PakArchive::GetEntry(unsigned int index) const {
    return m_Pack.GetTOC()->GetEntries()[index];
}

uint64_t PakArchive::ContentSize(const PackedFileEntry& entry) {
    return entry.m_UncompressedSize != 0 ? entry.m_UncompressedSize : entry.m_Size;
}

uint64_t PakArchive::FileOffset(const PackedFileEntry& entry) const {
    uint64_t dataOffset = entry.m_PartIndex == 0 && GetHeader() != nullptr ? GetHeader()->m_DataOffset : 0;
    return uint64_t{entry.m_Offset} + dataOffset;
}

int PakArchive::FindEntry(const std::string& name) {
    CSLock lock(&m_Pack.GetCriticalSection());
    const PackedFileEntry* found = m_Pack.GetTOC()->FindEntry(name.c_str());
    const PackedFileEntry* first = m_Pack.GetTOC()->GetEntries();
    if (found == nullptr || first == nullptr || found < first || found >= first + GetEntryCount()) {
        return -1;
    }
    return static_cast<int>(found - first);
}

bool PakArchive::IsFolder(const std::string& name) {
    CSLock lock(&m_Pack.GetCriticalSection());
    const FileTrieNode* node = name.empty() ? nullptr : m_Pack.GetTOC()->Find(FixedString(name.c_str()));
    return node != nullptr && node->GetChildCount() > 0;
}

std::vector<unsigned int> PakArchive::EntriesBelow(const std::string& folder) const {
    std::string prefix = folder;
    while (!prefix.empty() && prefix.back() == '/') {
        prefix.pop_back();
    }
    prefix += '/';
    std::vector<unsigned int> found;
    for (unsigned int index = 0; index < GetEntryCount(); ++index) {
        if (strncasecmp(GetEntry(index).m_Name, prefix.c_str(), prefix.size()) == 0) {
            found.push_back(index);
        }
    }
    return found;
}

bool PakArchive::Fetch(unsigned int index, bool wantMapped, EntryBytes& bytes, std::string& reason) {
    bytes.Release();
    const PackedFileEntry& entry = GetEntry(index);
    std::string name = NameOf(entry);
    // The pack finds files by name alone: of two entries whose names differ only in case, the
    // later one is the only one any reader gets.
    if (FindEntry(name) != static_cast<int>(index)) {
        reason = "another entry of the same name (names compare without case) hides it";
        return false;
    }
    std::string partPath = GetPartPath(entry.m_PartIndex);
    uint64_t partSize = 0;
    if (entry.m_PartIndex >= GetPartCount() || !FileSize(partPath, partSize)) {
        reason = "its part file " + Quoted(partPath) + " is missing";
        return false;
    }
    uint64_t offset = FileOffset(entry);
    if (offset + entry.m_Size > partSize) {
        reason = "its " + std::to_string(entry.m_Size) + " bytes at offset " + std::to_string(offset) +
                 " reach past the end of " + Quoted(partPath) + " (" + std::to_string(partSize) + " bytes)";
        return false;
    }
    bool mapped = wantMapped;
    if (!m_Pack.GetFileData(name.c_str(), mapped, bytes.m_Base, bytes.m_Size, bytes.m_Offset,
                            bytes.m_ViewSize)) {
        bytes.m_Base = nullptr;
        reason = entry.m_UncompressedSize != 0
                     ? "its data does not inflate to the stated " + std::to_string(entry.m_UncompressedSize) +
                           " bytes"
                     : std::string(mapped ? "it cannot be mapped" : "it cannot be read");
        return false;
    }
    bytes.m_Mapped = mapped;
    if (bytes.m_Size != ContentSize(entry)) {
        reason = "it gave " + std::to_string(bytes.m_Size) + " bytes instead of " +
                 std::to_string(ContentSize(entry));
        bytes.Release();
        return false;
    }
    return true;
}

bool OpenWhole(ToolOutput& output, PakArchive& archive, const std::string& path) {
    std::string reason;
    if (archive.Open(path, reason) != PakArchive::OpenResult::Loaded) {
        output.Fail("%s", reason.c_str());
        return false;
    }
    return true;
}

}  // namespace zn::tools
