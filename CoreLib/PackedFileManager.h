// PackedFileManager.h: every pack the game can see, answering for all of them at once. FileSystem
// and FileReader ask it about any path; it searches its packs in the order of their sorted file
// paths, and the first pack that has a name wins.
#pragma once

#include "CoreLib/Path.h"
#include "CoreLib/STDString.h"
#include "CoreLib/Set.h"
#include "CoreLib/Singleton.h"
#include "CoreLib/TrackedObject.h"

namespace zn {

class PackedFile;

class PackedFileManager : public Singleton<PackedFileManager>, public TrackedObject<PackedFileManager> {
public:
    PackedFileManager() = default;
    virtual ~PackedFileManager();
    PackedFileManager(const PackedFileManager&) = delete;
    PackedFileManager& operator=(const PackedFileManager&) = delete;

    // Forgets every pack, then loads the "*.pak" files of the media folder and of the user's "Mods"
    // folder in ascending path order. The host calls it once the media path is set.
    void CollectPackFiles();
    // Loads the packs that appeared since the last collection, after the others.
    void RefreshPackFiles();
    // Deletes every pack.
    void Destroy();

    // The bytes of a file held by a pack: a view of the pack (mapped true) or a block the caller
    // now owns, starting at base + offset, size bytes long; viewSize is the extent of the view.
    bool GetFileData(const Path& path, bool& mapped, char** base, unsigned int& size, unsigned int& offset,
                     unsigned int& viewSize);
    bool GetFileData(const wchar_t* const path, bool& mapped, char** base, unsigned int& size,
                     unsigned int& offset, unsigned int& viewSize);
    // As the first form, asking for a view only when the file's uncompressed size is at least
    // smallestMapped bytes: one lookup where asking GetFileSize first would make two.
    bool GetFileData(const Path& path, bool& mapped, char** base, unsigned int& size, unsigned int& offset,
                     unsigned int& viewSize, unsigned int smallestMapped);
    // True when a pack holds the name, as a file or as a directory.
    bool DoesFileExist(const Path& path);
    // The uncompressed size of the first pack's entry; 0 when no pack has it.
    unsigned int GetFileSize(const Path& path);
    bool DirectoryExists(const Path& path);
    // Adds the matching files and directories of every pack; a name in two packs is listed twice.
    void CollectFiles(const Path& directory, const STDWString& pattern, bool recursive, ObjectSet<Path>& out);
    void CollectDirectories(const Path& directory, bool recursive, ObjectSet<Path>& out);

    unsigned int GetPackCount() const { return m_Packs.GetSize(); }
    PackedFile* GetPack(unsigned int index) const { return m_Packs[index]; }

private:
    void LoadPackFile(const Path& path);

    // Owned, in order of loading, which is the lookup priority. Not locked: packs are collected
    // before worker threads read files.
    PrimitiveSet<PackedFile*> m_Packs;
};

}  // namespace zn
