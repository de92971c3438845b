// File.h: files, directories and mapped views of the operating system. Paths are UTF-8 text; the
// library turns its wide paths into UTF-8 before it calls these.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

namespace zn::platform {

// Opens a stream; mode is a C library mode ("rb", "wb+"). Null on failure, with errno set.
FILE* OpenStream(const char* path, const char* mode);

// True when something (file or directory) is at path.
bool PathExists(const char* path);
// True when a directory is at path.
bool IsDirectory(const char* path);
// True when path itself is a symbolic link, whatever it points to.
bool IsSymbolicLink(const char* path);
bool MakeDirectory(const char* path);
bool RemoveDirectory(const char* path);
bool RemoveFile(const char* path);
bool RenamePath(const char* from, const char* to);
// Copies the bytes of a file, replacing target if it exists.
bool CopyFileBytes(const char* source, const char* target);
// Modification time in seconds since 1970; false when the path cannot be read.
bool LastModifiedTime(const char* path, uint64_t& seconds);

struct DirectoryEntry {
    std::string name;
    bool isDirectory;
};
// The entries of a directory whose names match a pattern of '*' and '?' (ASCII letters without
// case; "*.*" matches every name), "." and ".." included when they match. False when the directory
// cannot be read.
bool ListDirectory(const char* directory, const char* pattern, std::vector<DirectoryEntry>& entries);
// The pattern rules of ListDirectory on one name.
bool MatchesPattern(const char* name, const char* pattern);

// The folder for temporary files, with a trailing '/'.
std::string TemporaryFolder();
// Creates a new empty file "<folder><prefix>XXXXXX" and returns its name; empty on failure.
std::string CreateTemporaryFile(const std::string& folder, const char* prefix);

// A file opened for mapping, and views of it.
struct MappedFile {
    int descriptor = -1;
    uint64_t size = 0;
};
// Opens a file read-only for mapping; hint tells the kernel how it will be read.
enum class AccessHint { Sequential, Random };
bool OpenForMapping(const char* path, AccessHint hint, MappedFile& file);
void CloseMapping(MappedFile& file);
// Maps size bytes from offset, which must be a multiple of MappingGranularity(); null on failure.
void* MapView(const MappedFile& file, uint64_t offset, size_t size);
void UnmapView(void* view, size_t size);
// Writes all count bytes at the descriptor's position, resuming after interruptions and short
// writes; false on an error.
bool WriteAll(int descriptor, const char* bytes, size_t count);
// Reads up to size bytes at offset; the count read, or -1.
long long ReadAt(const MappedFile& file, void* target, size_t size, uint64_t offset);
// The alignment a view's offset needs: the page size.
size_t MappingGranularity();
// Reads up to size bytes at the file's own position and moves it; the count read, or -1.
long long ReadNext(const MappedFile& file, void* target, size_t size);
// Moves the file's own position; origin 0, 1, 2 counts from the start, the position, the end.
// The new position, or -1.
long long SetFilePosition(const MappedFile& file, long long offset, int origin);

}  // namespace zn::platform
