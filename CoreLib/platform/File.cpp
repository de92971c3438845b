// File.cpp: files, directories and mapped views over POSIX.
#include "CoreLib/platform/File.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

namespace zn::platform {

namespace {

char FoldCase(char character) {
    return character >= 'A' && character <= 'Z' ? static_cast<char>(character - 'A' + 'a') : character;
}

// The character after the one that begins at text: names are UTF-8, and '?' stands for one
// character of the name, not one byte.
const char* NextCharacter(const char* text) {
    ++text;
    while ((static_cast<unsigned char>(*text) & 0xC0) == 0x80) {
        ++text;
    }
    return text;
}

// Closes a descriptor on every way out of a copy.
class ScopedDescriptor {
public:
    explicit ScopedDescriptor(int descriptor) : m_Descriptor(descriptor) {}
    ~ScopedDescriptor() {
        if (m_Descriptor >= 0) {
            close(m_Descriptor);
        }
    }
    ScopedDescriptor(const ScopedDescriptor&) = delete;
    ScopedDescriptor& operator=(const ScopedDescriptor&) = delete;
    int Get() const { return m_Descriptor; }

private:
    int m_Descriptor;
};

// The fallback where the kernel cannot copy between the two file systems.
bool CopyByReading(int source, int target) {
    char block[64 * 1024];
    for (;;) {
        ssize_t count = read(source, block, sizeof(block));
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count < 0) {
            return false;
        }
        if (count == 0) {
            return true;
        }
        if (!WriteAll(target, block, static_cast<size_t>(count))) {
            return false;
        }
    }
}

}  // namespace

bool WriteAll(int descriptor, const char* bytes, size_t count) {
    while (count > 0) {
        ssize_t written = write(descriptor, bytes, count);
        if (written < 0 && errno == EINTR) {
            continue;
        }
        if (written <= 0) {
            return false;
        }
        bytes += written;
        count -= static_cast<size_t>(written);
    }
    return true;
}

FILE* OpenStream(const char* path, const char* mode) {
    return std::fopen(path, mode);
}

bool PathExists(const char* path) {
    return access(path, F_OK) == 0;
}

bool IsDirectory(const char* path) {
    struct stat status;
    return stat(path, &status) == 0 && S_ISDIR(status.st_mode);
}

bool IsSymbolicLink(const char* path) {
    struct stat status;
    return lstat(path, &status) == 0 && S_ISLNK(status.st_mode);
}

bool MakeDirectory(const char* path) {
    return mkdir(path, 0777) == 0;
}

bool RemoveDirectory(const char* path) {
    return rmdir(path) == 0;
}

bool RemoveFile(const char* path) {
    return unlink(path) == 0;
}

bool RenamePath(const char* from, const char* to) {
    return std::rename(from, to) == 0;
}

bool CopyFileBytes(const char* source, const char* target) {
    ScopedDescriptor input(open(source, O_RDONLY | O_CLOEXEC));
    if (input.Get() < 0) {
        return false;
    }
    struct stat status;
    if (fstat(input.Get(), &status) != 0 || S_ISDIR(status.st_mode)) {
        return false;
    }
    ScopedDescriptor output(open(target, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, status.st_mode & 0777));
    if (output.Get() < 0) {
        return false;
    }
    off_t remaining = status.st_size;
    while (remaining > 0) {
        ssize_t copied =
            copy_file_range(input.Get(), nullptr, output.Get(), nullptr, static_cast<size_t>(remaining), 0);
        if (copied < 0 && errno == EINTR) {
            continue;
        }
        if (copied <= 0) {
            // The file offsets stand where the kernel's copy stopped; the plain loop carries on.
            return CopyByReading(input.Get(), output.Get());
        }
        remaining -= copied;
    }
    return true;
}

bool LastModifiedTime(const char* path, uint64_t& seconds) {
    struct stat status;
    if (stat(path, &status) != 0) {
        return false;
    }
    seconds = static_cast<uint64_t>(status.st_mtim.tv_sec);
    return true;
}

bool MatchesPattern(const char* name, const char* pattern) {
    if (std::strcmp(pattern, "*.*") == 0) {
        return true;
    }
    // Greedy match with one backtracking point: the last star seen.
    const char* starPattern = nullptr;
    const char* starName = nullptr;
    while (*name != '\0') {
        if (*pattern == '*') {
            starPattern = ++pattern;
            starName = name;
        } else if (*pattern == '?') {
            ++pattern;
            name = NextCharacter(name);
        } else if (*pattern != '\0' && FoldCase(*pattern) == FoldCase(*name)) {
            ++pattern;
            ++name;
        } else if (starPattern != nullptr) {
            pattern = starPattern;
            starName = NextCharacter(starName);
            name = starName;
        } else {
            return false;
        }
    }
    while (*pattern == '*') {
        ++pattern;
    }
    return *pattern == '\0';
}

bool ListDirectory(const char* directory, const char* pattern, std::vector<DirectoryEntry>& entries) {
    DIR* folder = opendir(directory);
    if (folder == nullptr) {
        return false;
    }
    std::string base = directory;
    if (!base.empty() && base.back() != '/') {
        base += '/';
    }
    while (dirent* entry = readdir(folder)) {
        if (!MatchesPattern(entry->d_name, pattern)) {
            continue;
        }
        bool isDirectory = entry->d_type == DT_DIR;
        if (entry->d_type == DT_UNKNOWN || entry->d_type == DT_LNK) {
            isDirectory = IsDirectory((base + entry->d_name).c_str());
        }
        entries.push_back({entry->d_name, isDirectory});
    }
    closedir(folder);
    return true;
}

std::string TemporaryFolder() {
    return std::string(P_tmpdir) + "/";
}

std::string CreateTemporaryFile(const std::string& folder, const char* prefix) {
    std::string name = folder + prefix + "XXXXXX";
    int descriptor = mkstemp(name.data());
    if (descriptor < 0) {
        return std::string();
    }
    close(descriptor);
    return name;
}

bool OpenForMapping(const char* path, AccessHint hint, MappedFile& file) {
    int descriptor = open(path, O_RDONLY | O_CLOEXEC);
    if (descriptor < 0) {
        return false;
    }
    struct stat status;
    if (fstat(descriptor, &status) != 0 || !S_ISREG(status.st_mode)) {
        close(descriptor);
        return false;
    }
    posix_fadvise(descriptor, 0, 0,
                  hint == AccessHint::Sequential ? POSIX_FADV_SEQUENTIAL : POSIX_FADV_RANDOM);
    file.descriptor = descriptor;
    file.size = static_cast<uint64_t>(status.st_size);
    return true;
}

void CloseMapping(MappedFile& file) {
    if (file.descriptor >= 0) {
        close(file.descriptor);
    }
    file.descriptor = -1;
    file.size = 0;
}

void* MapView(const MappedFile& file, uint64_t offset, size_t size) {
    if (file.descriptor < 0 || size == 0 || offset % MappingGranularity() != 0) {
        return nullptr;
    }
    void* view = mmap(nullptr, size, PROT_READ, MAP_PRIVATE, file.descriptor, static_cast<off_t>(offset));
    return view == MAP_FAILED ? nullptr : view;
}

void UnmapView(void* view, size_t size) {
    if (view != nullptr) {
        munmap(view, size);
    }
}

long long ReadAt(const MappedFile& file, void* target, size_t size, uint64_t offset) {
    size_t done = 0;
    while (done < size) {
        ssize_t count = pread(file.descriptor, static_cast<char*>(target) + done, size - done,
                              static_cast<off_t>(offset + done));
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count < 0) {
            return -1;
        }
        if (count == 0) {
            break;
        }
        done += static_cast<size_t>(count);
    }
    return static_cast<long long>(done);
}

long long ReadNext(const MappedFile& file, void* target, size_t size) {
    size_t done = 0;
    while (done < size) {
        ssize_t count = read(file.descriptor, static_cast<char*>(target) + done, size - done);
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count < 0) {
            return -1;
        }
        if (count == 0) {
            break;
        }
        done += static_cast<size_t>(count);
    }
    return static_cast<long long>(done);
}

long long SetFilePosition(const MappedFile& file, long long offset, int origin) {
    static const int kWhence[] = {SEEK_SET, SEEK_CUR, SEEK_END};
    if (origin < 0 || origin > 2) {
        return -1;
    }
    return static_cast<long long>(lseek(file.descriptor, static_cast<off_t>(offset), kWhence[origin]));
}

size_t MappingGranularity() {
    static const size_t pageSize = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    return pageSize;
}

}  // namespace zn::platform
