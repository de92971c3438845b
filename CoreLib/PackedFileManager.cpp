// PackedFileManager.cpp: collecting the packs of the media folder and of the user's "Mods" folder,
// and answering for all of them in the order of their sorted paths.
#include "CoreLib/PackedFileManager.h"

#include "CoreLib/FileSystem.h"
#include "CoreLib/GlobalStringTable.h"
#include "CoreLib/PackedFile.h"
#include "CoreLib/PackedFile_TOC.h"

#include <cwchar>

namespace zn {

namespace {
constexpr const wchar_t* kPackPattern = L"*.pak";
constexpr const wchar_t* kModsFolder = L"Mods";

// The "*.pak" files of the media folder and of the user's "Mods" folder; each collection sorts the
// whole set, so both come out as one list in ascending path text.
void CollectPackPaths(ObjectSet<Path>& found) {
    FileSystem::CollectFiles(Path(STDWString(L""), Path::ROOT_MEDIA), kPackPattern, false, found, false,
                             true);
    FileSystem::CollectFiles(Path(STDWString(kModsFolder), Path::ROOT_APP_USER), kPackPattern, false, found,
                             false, true);
}

// The key of a path in every pack: its text relative to the media root. A lookup runs for every
// file a game opens, so a key of plain ASCII, the common case, is made on the stack and touches
// nothing shared; any other is converted and interned inside a string-table bracket.
class PackKey {
public:
    explicit PackKey(const Path& path) {
        const wchar_t* text = nullptr;
        unsigned int length = 0;
        path.GetPathComponent(Path::RelativeFilePath, text, length);
        if (!CopyAscii(text, length)) {
            GlobalStringTable::RequestTable();
            path.GetPathComponent(Path::RelativeFilePath, m_Interned);
            m_Text = m_Interned.ToChar() != nullptr ? m_Interned.ToChar() : "";
            m_Length = m_Interned.GetLength();
            GlobalStringTable::ReleaseTable();
        }
    }

    FileTrieNode* FindIn(PackedFile* pack) const { return pack->GetTOC()->Find(m_Text, m_Length); }

private:
    bool CopyAscii(const wchar_t* text, unsigned int length) {
        if (length >= sizeof(m_Buffer)) {
            return false;
        }
        // Copied whole and checked after: a loop without an early exit runs in vector steps.
        unsigned int outside = 0;
        for (unsigned int index = 0; index < length; ++index) {
            auto character = static_cast<uint32_t>(text[index]);
            outside |= static_cast<unsigned int>(character - 1 >= 0x7F);
            m_Buffer[index] = static_cast<char>(character);
        }
        if (outside != 0) {
            return false;
        }
        m_Buffer[length] = '\0';
        m_Text = m_Buffer;
        m_Length = length;
        return true;
    }

    // Longer than any name a pack holds, so that the root's text can still be found in it.
    char m_Buffer[4 * PackedFileEntry::kNameSize];
    const char* m_Text = "";
    unsigned int m_Length = 0;
    FixedString m_Interned;
};

// Asks one pack's trie, under that pack's lock alone.
bool PackHasNode(PackedFile* pack, const FixedString& key) {
    CSLock lock(&pack->GetCriticalSection());
    return pack->GetTOC()->Find(key) != nullptr;
}

bool IsRootOutsidePacks(Path::ERoot root) {
    return root == Path::ROOT_APP_USER || root == Path::ROOT_BINARY || root == Path::ROOT_WORKING;
}
}  // namespace

PackedFileManager::~PackedFileManager() {
    Destroy();
}

void PackedFileManager::Destroy() {
    for (unsigned int index = 0; index < m_Packs.GetSize(); ++index) {
        delete m_Packs[index];
    }
    m_Packs.RemoveAll();
}

void PackedFileManager::CollectPackFiles() {
    Destroy();
    GlobalStringTable::RequestTable();
    ObjectSet<Path> found;
    CollectPackPaths(found);
    for (unsigned int index = 0; index < found.GetSize(); ++index) {
        LoadPackFile(found[index]);
    }
    GlobalStringTable::ReleaseTable();
}

void PackedFileManager::RefreshPackFiles() {
    GlobalStringTable::RequestTable();
    ObjectSet<Path> found;
    CollectPackPaths(found);
    for (unsigned int index = 0; index < found.GetSize(); ++index) {
        const FixedString& identity = found[index].ToFixedString();
        bool known = false;
        for (unsigned int pack = 0; pack < m_Packs.GetSize() && !known; ++pack) {
            known = m_Packs[pack]->GetFilePath().ToFixedString() == identity;
        }
        // A pack whose file has gone stays; a new one comes last in the lookup.
        if (!known) {
            LoadPackFile(found[index]);
        }
    }
    GlobalStringTable::ReleaseTable();
}

void PackedFileManager::LoadPackFile(const Path& path) {
    STDWString name;
    path.GetPathComponent(Path::FileNoExtension, name);
    // A folder under "Mods/" named as the pack shadows it, so a mod can be worked on as loose files.
    if (FileSystem::DirectoryExists(Path(name, Path::ROOT_MODS))) {
        return;
    }
    // "<pack>_<digit>" is a further part of another pack, reached through that pack. Only a
    // one-digit suffix above 0 counts.
    int underscore = name.FindReverse(L'_');
    if (underscore >= 1 && underscore == static_cast<int>(name.Length()) - 2) {
        long number = std::wcstol(name.ToChar() + underscore + 1, nullptr, 10);
        if (number > 0) {
            return;
        }
    }
    auto* pack = new PackedFile(false);
    if (pack == nullptr) {
        return;
    }
    // A pack that failed to load stays, empty or partly filled: it has reported why.
    pack->Load(path);
    m_Packs.Add(pack);
}

bool PackedFileManager::GetFileData(const Path& path, bool& mapped, char** base, unsigned int& size,
                                    unsigned int& offset, unsigned int& viewSize) {
    return GetFileData(path, mapped, base, size, offset, viewSize, 0);
}

bool PackedFileManager::GetFileData(const Path& path, bool& mapped, char** base, unsigned int& size,
                                    unsigned int& offset, unsigned int& viewSize,
                                    unsigned int smallestMapped) {
    PackKey key(path);
    bool wanted = mapped;
    for (unsigned int index = 0; index < m_Packs.GetSize(); ++index) {
        PackedFile* pack = m_Packs[index];
        CSLock lock(&pack->GetCriticalSection());
        FileTrieNode* node = key.FindIn(pack);
        if (node == nullptr) {
            continue;
        }
        // Each pack is asked for what the caller wanted, whatever an earlier pack made of it.
        mapped = wanted && PackedFile::GetEntrySize(node->GetData()) >= smallestMapped;
        if (pack->GetFileData(node, mapped, *base, size, offset, viewSize)) {
            return true;
        }
    }
    return false;
}

bool PackedFileManager::GetFileData(const wchar_t* const path, bool& mapped, char** base, unsigned int& size,
                                    unsigned int& offset, unsigned int& viewSize) {
    return GetFileData(Path(STDWString(path), Path::ROOT_NONE), mapped, base, size, offset, viewSize);
}

bool PackedFileManager::DoesFileExist(const Path& path) {
    PackKey key(path);
    for (unsigned int index = 0; index < m_Packs.GetSize(); ++index) {
        PackedFile* pack = m_Packs[index];
        CSLock lock(&pack->GetCriticalSection());
        if (key.FindIn(pack) != nullptr) {
            return true;
        }
    }
    return false;
}

unsigned int PackedFileManager::GetFileSize(const Path& path) {
    PackKey key(path);
    for (unsigned int index = 0; index < m_Packs.GetSize(); ++index) {
        PackedFile* pack = m_Packs[index];
        CSLock lock(&pack->GetCriticalSection());
        if (FileTrieNode* node = key.FindIn(pack)) {
            return PackedFile::GetEntrySize(node->GetData());
        }
    }
    return 0;
}

bool PackedFileManager::DirectoryExists(const Path& path) {
    if (IsRootOutsidePacks(path.GetRoot())) {
        return false;
    }
    // The path's own interned text: the trie strips the media root from it.
    for (unsigned int index = 0; index < m_Packs.GetSize(); ++index) {
        if (PackHasNode(m_Packs[index], path.ToFixedString())) {
            return true;
        }
    }
    return false;
}

void PackedFileManager::CollectFiles(const Path& directory, const STDWString& pattern, bool recursive,
                                     ObjectSet<Path>& out) {
    for (unsigned int index = 0; index < m_Packs.GetSize(); ++index) {
        m_Packs[index]->CollectFiles(directory, pattern, recursive, out);
    }
}

void PackedFileManager::CollectDirectories(const Path& directory, bool recursive, ObjectSet<Path>& out) {
    for (unsigned int index = 0; index < m_Packs.GetSize(); ++index) {
        m_Packs[index]->CollectDirectories(directory, recursive, out);
    }
}

}  // namespace zn
