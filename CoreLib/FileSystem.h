// FileSystem.h: the folders a game is installed under, the user's and process's folders, and file
// and directory operations that see the loose files on disk first and the packed files second.
#pragma once

#include "CoreLib/Path.h"
#include "CoreLib/STDString.h"
#include "CoreLib/Set.h"
#include "CoreLib/platform/FileVersion.h"

#include <cstdint>
#include <cstdio>

// Gives the binary being built (a host's executable or library) the version that
// FileSystem::GetFileVersion and GetExeVersion read back. Once per binary, at namespace scope, with
// constants that fit 16 bits.
#define ZN_EMBED_FILE_VERSION(major, minor, revision, build) \
    ZN_PLATFORM_EMBED_VERSION_NOTE(major, minor, revision, build)

namespace zn {

// Static settings and operations only. The settings are set by the host during start-up, before
// other threads run, and are read without a lock. File operations hold no lock of their own. Texts
// go to the operating system as UTF-8.
class FileSystem {
public:
    // Sets every setting to its default: no media path, the active mod "Main", the rest empty.
    static void _SDMInit();
    // Gives up the media path's text and identity; the other settings stay.
    static void _SDMShutDown();

    // The root of all game data. A text that begins with "." is taken relative to the working
    // folder; the stored text always ends in "/".
    static void SetMediaPath(const STDWString& text);
    static const Path& GetMediaPath() { return s_MediaPath; }
    // Folder names used by the roots of later paths, stored as given.
    static void SetPublicDataPath(const STDWString& text) { s_PublicDataPath = text; }
    static const STDWString& GetPublicDataPath() { return s_PublicDataPath; }
    static void SetActiveModName(const STDWString& text) { s_ActiveModName = text; }
    static const STDWString& GetActiveModName() { return s_ActiveModName; }
    static void SetStudioName(const STDWString& text) { s_StudioName = text; }
    static const STDWString& GetStudioName() { return s_StudioName; }
    static void SetAppName(const STDWString& text) { s_AppName = text; }
    static const STDWString& GetAppName() { return s_AppName; }

    // The folder of the running executable, ending in "/"; "" with a report when it can't be read.
    static STDWString GetBinaryPath();
    // The working folder, without a final "/"; "" with a report when it can't be read.
    static STDWString GetWorkingPath();
    // The user's home folder from the user database, without a final "/"; "" with a report when
    // the user has none.
    static STDWString GetUserFolder();

    // The longest text CreateDir and CreateDirRecursive accept, in 16-bit units.
    static constexpr unsigned int kMaxDirectoryText = 256;

    // True when anything (a file too) is at the path on disk, else when a pack has the directory.
    // A path that is not absolute is reported, and tried all the same.
    static bool DirectoryExists(const Path& path);
    // True when the file or directory is on disk or in a pack. A path that is not absolute is
    // reported, and tried all the same.
    static bool FileExists(const Path& path);
    // As above for a text; one that is not absolute is taken relative to the working folder on
    // disk, and as it stands in the packs. Null is reported and false.
    static bool FileExists(const wchar_t* text);
    // The byte length of the file on disk, else of the first pack's entry; 0 when neither has it.
    static unsigned int GetSizeOfFile(const Path& path);
    // Makes one directory whose parent exists. True when it exists already; false for a text of
    // more than kMaxDirectoryText units.
    static bool CreateDir(const Path& path);
    // Makes the directory and every missing parent. False only for a text of more than
    // kMaxDirectoryText units or a parent that cannot be made; a last directory that cannot be made
    // is reported and the answer is still true. The server part of a network path ("//server/...")
    // is never made.
    static bool CreateDirRecursive(const Path& path);
    static bool RemoveFile(const Path& path);
    // Removes the directory with everything under it. True when it did not exist. A symbolic link
    // is removed as a link: what it points to is never walked.
    static bool RemoveDir(const Path& path);
    // Renames or moves a file or directory.
    static bool MoveFileA(const Path& from, const Path& to);
    // True when the text ends in '/' or '\'.
    static bool EndsWithSlash(const STDString& text);
    static bool EndsWithSlash(const STDWString& text);
    // Replaces each of " * / : < > ? \ | by replacement.
    static void ReplaceInvalidFilenameCharacters(STDString& text, char replacement);
    static void ReplaceInvalidFilenameCharacters(STDWString& text, wchar_t replacement);
    // Adds the files of directory whose names match pattern ('*' and '?', ASCII letters without
    // case, "*.*" for every name), from disk and, with includePacks, from the packs; then sorts the
    // whole of out by the units of the text. A name on disk and in a pack is listed twice. reserved
    // has no effect.
    static void CollectFiles(const Path& directory, const STDWString& pattern, bool recursive,
                             ObjectSet<Path>& out, bool reserved, bool includePacks);
    // As CollectFiles, for the directories under directory.
    static void CollectDirectories(const Path& directory, bool recursive, ObjectSet<Path>& out, bool reserved,
                                   bool includePacks);
    // Copies the ".znb" files of from, and only those, into to, which is made when missing; each
    // copy writes one line to the debug output. With recursive, each subdirectory of from goes to
    // the folder of its name under to. True when every copy succeeded.
    static bool CopyFilesFromDir(const Path& from, const Path& to, bool recursive);
    // The version of the running executable, as GetFileVersion gives it.
    static STDString GetExeVersion();
    // "major.minor.revision.build" from the version note of a binary (see ZN_EMBED_FILE_VERSION);
    // "" when the file has none, after one line on standard output naming the step that failed and
    // its error number.
    static STDString GetFileVersion(const Path& path);
    // The modification time in seconds since 1970; 0 when the file cannot be read.
    static uint64_t GetLastModifiedFileTime(const Path& path);

private:
    static Path s_MediaPath;
    static STDWString s_PublicDataPath;
    static STDWString s_ActiveModName;
    static STDWString s_StudioName;
    static STDWString s_AppName;

    // The disk alone, true on success.
    static bool InternalDirectoryExists(const wchar_t* path);
    static bool InternalCreateDir(const wchar_t* path);
    static bool InternalRemoveDir(const wchar_t* path);
};

// Opens a file named by wide text, with a wide mode ("rb"); null on failure.
FILE* fopen(const wchar_t* path, const wchar_t* mode);
// Opening by narrow text is unsupported by design: always null. Code in this namespace that means
// the C library's fopen must name it std::fopen.
FILE* fopen(const char* path, const char* mode);

}  // namespace zn
