// FileSystem.cpp: the settings, the folders of the user and of the process, and the file and
// directory operations over the disk and the packs.
#include "CoreLib/FileSystem.h"

#include "CoreLib/BoundedFormat.h"
#include "CoreLib/GlobalStringTable.h"
#include "CoreLib/Localization.h"
#include "CoreLib/PackedFileManager.h"
#include "CoreLib/Report.h"
#include "CoreLib/platform/File.h"
#include "CoreLib/platform/FileVersion.h"
#include "CoreLib/platform/Folders.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

// The build gives the project's version; these stand in for a build that does not.
#ifndef CORELIB_VERSION_MAJOR
#define CORELIB_VERSION_MAJOR 1
#endif
#ifndef CORELIB_VERSION_MINOR
#define CORELIB_VERSION_MINOR 3
#endif
#ifndef CORELIB_VERSION_PATCH
#define CORELIB_VERSION_PATCH 0
#endif
#ifndef CORELIB_VERSION_TWEAK
#define CORELIB_VERSION_TWEAK 0
#endif

// The library's own version, for GetFileVersion on libCoreLib.
ZN_EMBED_FILE_VERSION(CORELIB_VERSION_MAJOR, CORELIB_VERSION_MINOR, CORELIB_VERSION_PATCH,
                      CORELIB_VERSION_TWEAK);

namespace zn {

// Empty at load: the defaults are given by _SDMInit, in the start-up order.
Path FileSystem::s_MediaPath;
STDWString FileSystem::s_PublicDataPath;
STDWString FileSystem::s_ActiveModName;
STDWString FileSystem::s_StudioName;
STDWString FileSystem::s_AppName;

namespace {

using Utf8 = Localization::ConvertWideToMultiByte;

// The name under which the copy reports, that of the routine that does the work.
constexpr const char* kCopyReportName = "do_CopyFilesFromDir";

STDWString ToWide(const std::string& utf8) {
    return STDWString(
        Localization::ConvertMultiByteToWide(utf8.c_str(), static_cast<int>(utf8.size())).Get());
}

// Without a pack manager, the packs hold nothing.
PackedFileManager* Packs() {
    return Singleton<PackedFileManager>::GetInstance();
}

bool IsSeparator(wchar_t character) {
    return character == L'/' || character == L'\\';
}

// A text the system takes as absolute: it begins at the root, or has the drive form "C:".
bool IsAbsoluteText(const wchar_t* text) {
    return text[0] == L'/' || (text[0] != L'\0' && text[1] == L':');
}

template <typename Text>
bool TextEndsWithSlash(const Text& text) {
    return text.Length() >= 1 && IsSeparator(static_cast<wchar_t>(text[text.Length() - 1]));
}

template <typename Text, typename Char>
void ReplaceInvalidCharacters(Text& text, Char replacement) {
    const std::string_view invalid = "\"*/:<>?\\|";
    for (Char& character : text) {
        const auto unit = static_cast<std::make_unsigned_t<Char>>(character);
        if (unit < 0x80 && invalid.find(static_cast<char>(unit)) != std::string_view::npos) {
            character = replacement;
        }
    }
}

// Ascending by the units of the text; a text sorts before the longer texts it begins.
void SortByText(ObjectSet<Path>& paths) {
    Path* first = paths.GetData();
    std::sort(first, first + paths.GetSize(), [](const Path& left, const Path& right) {
        return std::wstring_view(left.ToWChar(), left.Length()) <
               std::wstring_view(right.ToWChar(), right.Length());
    });
}

// The entries of a directory that match pattern; none when it cannot be read.
std::vector<platform::DirectoryEntry> ListEntries(const Path& directory, const wchar_t* pattern) {
    std::vector<platform::DirectoryEntry> entries;
    platform::ListDirectory(Utf8(directory).Get(), Utf8(pattern).Get(), entries);
    return entries;
}

bool IsDotEntry(const platform::DirectoryEntry& entry) {
    return entry.name == "." || entry.name == "..";
}

Path ChildOf(const Path& directory, const std::string& utf8Name) {
    return Path(directory, ToWide(utf8Name).ToChar());
}

// relative extended by one directory name, with a separator unless it is empty or ends in one.
STDWString Extend(const STDWString& relative, const std::string& utf8Name) {
    STDWString extended = relative;
    if (!extended.IsEmpty() && !TextEndsWithSlash(extended)) {
        extended += L'/';
    }
    extended += ToWide(utf8Name);
    return extended;
}

// The walks over the disk: base extended by relative is the directory looked at.
void CollectDiskFiles(const Path& base, const STDWString& relative, const STDWString& pattern, bool recursive,
                      ObjectSet<Path>& out) {
    const Path directory(base, relative.ToChar());
    for (const platform::DirectoryEntry& entry : ListEntries(directory, pattern.ToChar())) {
        if (!entry.isDirectory) {
            out.Add(ChildOf(directory, entry.name));
        }
    }
    if (!recursive) {
        return;
    }
    for (const platform::DirectoryEntry& entry : ListEntries(directory, L"*")) {
        if (entry.isDirectory && !IsDotEntry(entry)) {
            CollectDiskFiles(base, Extend(relative, entry.name), pattern, true, out);
        }
    }
}

void CollectDiskDirectories(const Path& base, const STDWString& relative, bool recursive,
                            ObjectSet<Path>& out) {
    const Path directory(base, relative.ToChar());
    const std::vector<platform::DirectoryEntry> entries = ListEntries(directory, L"*");
    for (const platform::DirectoryEntry& entry : entries) {
        if (entry.isDirectory && !IsDotEntry(entry)) {
            out.Add(ChildOf(directory, entry.name));
        }
    }
    if (!recursive) {
        return;
    }
    for (const platform::DirectoryEntry& entry : entries) {
        if (entry.isDirectory && !IsDotEntry(entry)) {
            CollectDiskDirectories(base, Extend(relative, entry.name), true, out);
        }
    }
}

// The high and low words of the two version words, as the fixed version of a resource holds them.
bool QueryFixedVersion(const unsigned char* description, uint32_t size, uint32_t& mostSignificant,
                       uint32_t& leastSignificant) {
    if (size != platform::kVersionNoteDescriptionSize) {
        return false;
    }
    auto number = [description](int index) {
        return static_cast<uint32_t>(description[2 * index] | (description[2 * index + 1] << 8));
    };
    mostSignificant = (number(0) << 16) | number(1);
    leastSignificant = (number(2) << 16) | number(3);
    return true;
}

void PrintVersionError(const char* format, int error) {
    std::printf(format, error);
    std::fflush(stdout);
}

}  // namespace

void FileSystem::_SDMInit() {
    s_MediaPath = Path();
    s_PublicDataPath = L"";
    s_ActiveModName = L"Main";
    s_StudioName = L"";
    s_AppName = L"";
}

void FileSystem::_SDMShutDown() {
    s_MediaPath.Reset();
}

void FileSystem::SetMediaPath(const STDWString& text) {
    s_MediaPath = Path::MakeMediaPath(text);
}

STDWString FileSystem::GetBinaryPath() {
    std::string executable;
    int error = platform::GetExecutablePath(executable);
    if (error != 0) {
        ZN_REPORT("Failed to fetch binary folder - got result %d", error);
        return STDWString();
    }
    executable.erase(executable.rfind('/') + 1);
    return ToWide(executable);
}

STDWString FileSystem::GetWorkingPath() {
    std::string folder;
    int error = platform::GetWorkingFolder(folder);
    if (error != 0) {
        ZN_REPORT("Failed to fetch working folder - got result %d", error);
        return STDWString();
    }
    return ToWide(folder);
}

STDWString FileSystem::GetUserFolder() {
    std::string folder;
    int error = platform::GetHomeFolder(platform::CurrentUserId(), folder);
    if (error != 0) {
        ZN_REPORT("Failed to fetch user folder (my documents) - got result %d", error);
        return STDWString();
    }
    return ToWide(folder);
}

bool FileSystem::DirectoryExists(const Path& path) {
    if ((path.GetPathDesc() & Path::PATHDESC_ABSOLUTE) == 0) {
        ZN_REPORT("Path %ls is not absolute!", path.ToWChar());
    }
    if (InternalDirectoryExists(path.ToWChar())) {
        return true;
    }
    PackedFileManager* packs = Packs();
    return packs != nullptr && packs->DirectoryExists(path);
}

bool FileSystem::FileExists(const Path& path) {
    if ((path.GetPathDesc() & Path::PATHDESC_ABSOLUTE) == 0) {
        ZN_REPORT("File exists called with an invalid path variable: %ls", path.ToWChar());
    }
    if (FileExists(path.ToWChar())) {
        return true;
    }
    PackedFileManager* packs = Packs();
    return packs != nullptr && packs->DoesFileExist(path);
}

bool FileSystem::FileExists(const wchar_t* text) {
    if (text == nullptr) {
        ZN_REPORT("Can't be NULL");
        return false;
    }
    STDWString full;
    if (!IsAbsoluteText(text)) {
        full = GetWorkingPath();
        full += L'/';
    }
    full += text;
    std::replace(full.begin(), full.end(), L'\\', L'/');
    // Anything at the name counts, a directory too.
    if (platform::PathExists(Utf8(full).Get())) {
        return true;
    }
    PackedFileManager* packs = Packs();
    return packs != nullptr && packs->DoesFileExist(Path(STDWString(text), Path::ROOT_NONE));
}

unsigned int FileSystem::GetSizeOfFile(const Path& path) {
    const Utf8 name(path);
    // A directory opens as a stream here but not on every system: it has no size of its own.
    if (!platform::IsDirectory(name.Get())) {
        if (FILE* stream = platform::OpenStream(name.Get(), "rb")) {
            std::fseek(stream, 0, SEEK_END);
            const long size = std::ftell(stream);
            std::fclose(stream);
            return size > 0 ? static_cast<unsigned int>(size) : 0u;
        }
    }
    PackedFileManager* packs = Packs();
    return packs != nullptr ? packs->GetFileSize(path) : 0u;
}

bool FileSystem::CreateDir(const Path& path) {
    if (DirectoryExists(path)) {
        return true;
    }
    if (path.Length() > kMaxDirectoryText) {
        return false;
    }
    return InternalCreateDir(path.ToWChar());
}

bool FileSystem::CreateDirRecursive(const Path& path) {
    if (DirectoryExists(path)) {
        return true;
    }
    const unsigned int length = path.Length();
    if (length > kMaxDirectoryText) {
        return false;
    }
    wchar_t text[kMaxDirectoryText + 1] = {};
    std::copy_n(path.ToWChar(), length, text);
    unsigned int index = text[1] == L':' ? 2u : 0u;
    while (IsSeparator(text[index])) {
        ++index;
    }
    // The first part of a network path names a server, which no directory call can make.
    bool serverPart = IsSeparator(text[0]) && IsSeparator(text[1]);
    for (; index < length; ++index) {
        if (!IsSeparator(text[index])) {
            continue;
        }
        const wchar_t separator = text[index];
        text[index] = L'\0';
        if (serverPart) {
            serverPart = false;
        } else if (!InternalDirectoryExists(text)) {
            if (!InternalCreateDir(text)) {
                return false;
            }
            if (!InternalDirectoryExists(text)) {
                ZN_REPORT(ZN_DEFAULT_ASSERT_TEXT);
            }
        }
        text[index] = separator;
    }
    if (!InternalDirectoryExists(text) && InternalCreateDir(text) && !InternalDirectoryExists(text)) {
        ZN_REPORT("Failed to find a directory that was just created [%ls]", text);
    }
    if (!DirectoryExists(path)) {
        ZN_REPORT("Failed to create directory recursively [%ls]", path.ToWChar());
    }
    return true;
}

bool FileSystem::RemoveFile(const Path& path) {
    return platform::RemoveFile(Utf8(path).Get());
}

bool FileSystem::RemoveDir(const Path& path) {
    if (!DirectoryExists(path)) {
        return true;
    }
    const Utf8 name(path);
    if (platform::IsSymbolicLink(name.Get())) {
        return platform::RemoveFile(name.Get());
    }
    ObjectSet<Path> entries;
    CollectDirectories(path, false, entries, false, true);
    for (unsigned int index = 0; index < entries.GetSize(); ++index) {
        RemoveDir(entries[index]);
    }
    entries.RemoveAll();
    CollectFiles(path, L"*.*", false, entries, false, true);
    for (unsigned int index = 0; index < entries.GetSize(); ++index) {
        RemoveFile(entries[index]);
    }
    return InternalRemoveDir(path.ToWChar());
}

bool FileSystem::MoveFileA(const Path& from, const Path& to) {
    return platform::RenamePath(Utf8(from).Get(), Utf8(to).Get());
}

bool FileSystem::EndsWithSlash(const STDString& text) {
    return TextEndsWithSlash(text);
}

bool FileSystem::EndsWithSlash(const STDWString& text) {
    return TextEndsWithSlash(text);
}

void FileSystem::ReplaceInvalidFilenameCharacters(STDString& text, char replacement) {
    ReplaceInvalidCharacters(text, replacement);
}

void FileSystem::ReplaceInvalidFilenameCharacters(STDWString& text, wchar_t replacement) {
    ReplaceInvalidCharacters(text, replacement);
}

void FileSystem::CollectFiles(const Path& directory, const STDWString& pattern, bool recursive,
                              ObjectSet<Path>& out, bool /*reserved*/, bool includePacks) {
    CollectDiskFiles(directory, STDWString(), pattern, recursive, out);
    PackedFileManager* packs = Packs();
    if (includePacks && packs != nullptr) {
        packs->CollectFiles(directory, pattern, recursive, out);
    }
    SortByText(out);
}

void FileSystem::CollectDirectories(const Path& directory, bool recursive, ObjectSet<Path>& out,
                                    bool /*reserved*/, bool includePacks) {
    CollectDiskDirectories(directory, STDWString(), recursive, out);
    PackedFileManager* packs = Packs();
    if (includePacks && packs != nullptr) {
        packs->CollectDirectories(directory, recursive, out);
    }
    SortByText(out);
}

bool FileSystem::CopyFilesFromDir(const Path& from, const Path& to, bool recursive) {
    if (!DirectoryExists(from)) {
        ZN_REPORT_AS(kCopyReportName, "Trying to copy files from directory that doesn't exist");
        return false;
    }
    const bool targetReady = DirectoryExists(to) || CreateDirRecursive(to);
    bool succeeded = targetReady;
    if (targetReady) {
        // Only object files in the binary form are copied, whatever else the directory holds.
        ObjectSet<Path> files;
        CollectFiles(from, L"*.znb", false, files, false, true);
        for (unsigned int index = 0; index < files.GetSize(); ++index) {
            STDWString relative;
            files[index].GetPathComponent(Path::RelativeFilePath, relative);
            const Path target(to, relative.ToChar());
            const bool copied = platform::CopyFileBytes(Utf8(files[index]).Get(), Utf8(target).Get());
            znOutputDebugString(L"[CopyFile - %ls%ls -> %ls\n", copied ? L"OK] " : L"FAILED] ",
                                files[index].ToWChar(), to.ToWChar());
            succeeded = succeeded && copied;
        }
    }
    if (targetReady && recursive) {
        ObjectSet<Path> folders;
        CollectDirectories(from, false, folders, false, true);
        for (unsigned int index = 0; index < folders.GetSize(); ++index) {
            STDWString name;
            folders[index].GetPathComponent(Path::Dir, name);
            succeeded = CopyFilesFromDir(folders[index], Path(to, name.ToChar()), true) && succeeded;
        }
    }
    if (!succeeded) {
        ZN_REPORT_AS(kCopyReportName, "Copy of files failed");
        if (LogManager* logManager = LogManager::GetInstance()) {
            logManager->Log(LogInfo, __FILE__, __LINE__, kCopyReportName,
                            "Failed to copy files from %ls to %ls", from.ToWChar(), to.ToWChar());
        }
    }
    return succeeded;
}

STDString FileSystem::GetExeVersion() {
    std::string executable;
    if (platform::GetExecutablePath(executable) != 0) {
        executable.clear();
    }
    GlobalStringTable::RequestTable();
    STDString version = GetFileVersion(Path(STDString(executable.c_str()), Path::ROOT_NONE));
    GlobalStringTable::ReleaseTable();
    return version;
}

STDString FileSystem::GetFileVersion(const Path& path) {
    const Utf8 name(path);
    platform::VersionNoteLocation location;
    int error = platform::FindVersionNote(name.Get(), location);
    if (error != 0) {
        PrintVersionError("Error in GetFileVersionInfoSize: %d\n", error);
        return STDString();
    }
    // Only a description of the version's own size can be read as one: a longer one is read in
    // part, and refused below.
    unsigned char description[2 * platform::kVersionNoteDescriptionSize] = {};
    const uint32_t descriptionSize = location.size;
    location.size = std::min<uint32_t>(location.size, sizeof(description));
    error = platform::ReadVersionNote(name.Get(), location, description);
    if (error != 0) {
        PrintVersionError("Error in GetFileVersionInfo: %d\n", error);
        return STDString();
    }
    uint32_t mostSignificant = 0;
    uint32_t leastSignificant = 0;
    if (!QueryFixedVersion(description, descriptionSize, mostSignificant, leastSignificant)) {
        PrintVersionError("Error in VerQueryValue: %d\n", EINVAL);
        return STDString();
    }
    char text[48];
    std::snprintf(text, sizeof(text), "%d.%d.%d.%d", static_cast<int>(mostSignificant >> 16),
                  static_cast<int>(mostSignificant & 0xFFFF), static_cast<int>(leastSignificant >> 16),
                  static_cast<int>(leastSignificant & 0xFFFF));
    return STDString(text);
}

uint64_t FileSystem::GetLastModifiedFileTime(const Path& path) {
    uint64_t seconds = 0;
    return platform::LastModifiedTime(Utf8(path).Get(), seconds) ? seconds : 0;
}

bool FileSystem::InternalDirectoryExists(const wchar_t* path) {
    return platform::PathExists(Utf8(path).Get());
}

bool FileSystem::InternalCreateDir(const wchar_t* path) {
    return platform::MakeDirectory(Utf8(path).Get());
}

bool FileSystem::InternalRemoveDir(const wchar_t* path) {
    return platform::RemoveDirectory(Utf8(path).Get());
}

FILE* fopen(const wchar_t* path, const wchar_t* mode) {
    if (path == nullptr || mode == nullptr) {
        return nullptr;
    }
    return platform::OpenStream(Utf8(path).Get(), Utf8(mode).Get());
}

FILE* fopen(const char* /*path*/, const char* /*mode*/) {
    return nullptr;
}

}  // namespace zn
