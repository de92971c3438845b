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

// The key of a path in every pack: its text relative to the media root, interned.
FixedString MakeKey(const Path& path) {
    GlobalStringTable::RequestTable();
    FixedString key;
    path.GetPathComponent(Path::RelativeFilePath, key);
    GlobalStringTable::ReleaseTable();
    return key;
}

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
    FixedString key = MakeKey(path);
    bool wanted = mapped;
    for (unsigned int index = 0; index < m_Packs.GetSize(); ++index) {
        PackedFile* pack = m_Packs[index];
        CSLock lock(&pack->GetCriticalSection());
        if (pack->GetTOC()->Find(key) == nullptr) {
            continue;
        }
        // Each pack is asked for what the caller wanted, whatever an earlier pack made of it.
        mapped = wanted;
        if (pack->GetFileData(key.ToChar(), mapped, *base, size, offset, viewSize)) {
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
    FixedString key = MakeKey(path);
    for (unsigned int index = 0; index < m_Packs.GetSize(); ++index) {
        if (PackHasNode(m_Packs[index], key)) {
            return true;
        }
    }
    return false;
}

unsigned int PackedFileManager::GetFileSize(const Path& path) {
    FixedString key = MakeKey(path);
    for (unsigned int index = 0; index < m_Packs.GetSize(); ++index) {
        PackedFile* pack = m_Packs[index];
        CSLock lock(&pack->GetCriticalSection());
        if (pack->GetTOC()->Find(key) != nullptr) {
            return pack->GetFileSize(key.ToChar());
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
