// ExtractFolder.cpp: extraction below one folder, walked one component at a time through open
// folder descriptors, so that a link planted anywhere below the folder cannot redirect a write.
#include "tools/corelib/ExtractFolder.h"

#include "CoreLib/platform/File.h"
#include "tools/corelib/ToolOutput.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cctype>
#include <cerrno>
#include <cstring>
#include <filesystem>

namespace zn::tools {

namespace {
bool IsSeparator(char character) {
    return character == '/' || character == '\\';
}

}  // namespace

std::string CheckEntryName(const std::string& name) {
    if (name.empty()) {
        return "it has no name";
    }
    if (IsSeparator(name[0])) {
        return "it is an absolute name";
    }
    if (name.size() >= 2 && name[1] == ':' && std::isalpha(static_cast<unsigned char>(name[0])) != 0) {
        return "it names a drive";
    }
    size_t start = 0;
    while (start <= name.size()) {
        size_t end = start;
        while (end < name.size() && !IsSeparator(name[end])) {
            ++end;
        }
        std::string component = name.substr(start, end - start);
        if (component.empty()) {
            return "it has an empty path component";
        }
        if (component == "..") {
            return "its '..' component climbs out of the target folder";
        }
        if (component == ".") {
            return "it has a '.' component";
        }
        start = end + 1;
    }
    return "";
}

std::vector<std::string> SplitEntryName(const std::string& name) {
    std::vector<std::string> components(1);
    for (char character : name) {
        if (IsSeparator(character)) {
            components.emplace_back();
        } else {
            components.back() += character;
        }
    }
    return components;
}

ExtractFolder::~ExtractFolder() {
    if (m_Descriptor >= 0) {
        close(m_Descriptor);
    }
}

bool ExtractFolder::Open(const std::string& path, std::string& reason) {
    std::error_code error;
    std::filesystem::create_directories(path, error);
    m_Descriptor = open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (m_Descriptor < 0) {
        reason = "cannot open the folder " + Quoted(path) + ": " + std::strerror(errno);
        return false;
    }
    return true;
}

int ExtractFolder::OpenParent(const std::vector<std::string>& components, std::string& reason) const {
    int folder = dup(m_Descriptor);
    std::string walked;
    for (size_t index = 0; folder >= 0 && index + 1 < components.size(); ++index) {
        const std::string& component = components[index];
        walked += (walked.empty() ? "" : "/") + component;
        if (mkdirat(folder, component.c_str(), 0777) != 0 && errno != EEXIST) {
            reason = "cannot make the folder " + Quoted(walked) + ": " + std::strerror(errno);
            close(folder);
            return -1;
        }
        // O_NOFOLLOW: a link in the place of a folder is refused, never walked through.
        int next = openat(folder, component.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
        if (next < 0) {
            bool link = errno == ELOOP || errno == ENOTDIR;
            reason = Quoted(walked) + (link ? " is a symbolic link or not a folder"
                                            : std::string(": ") + std::strerror(errno));
            close(folder);
            return -1;
        }
        close(folder);
        folder = next;
    }
    if (folder < 0) {
        reason = std::string("cannot open the target folder: ") + std::strerror(errno);
    }
    return folder;
}

bool ExtractFolder::WriteFile(const std::string& name, const char* data, size_t size, std::string& reason) {
    std::vector<std::string> components = SplitEntryName(name);
    int folder = OpenParent(components, reason);
    if (folder < 0) {
        return false;
    }
    // The bytes go to a fresh file beside the target and are renamed over it: the rename replaces
    // a link or a hard link in the target's place instead of writing through it.
    std::string temporary;
    int file = -1;
    do {
        temporary = ".corelib-extract-" + std::to_string(getpid()) + "-" + std::to_string(m_TemporaryCount++);
        file = openat(folder, temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0666);
    } while (file < 0 && errno == EEXIST);
    bool written = file >= 0 && platform::WriteAll(file, data, size);
    int savedError = errno;
    if (file >= 0 && close(file) != 0 && written) {
        written = false;
        savedError = errno;
    }
    if (written && renameat(folder, temporary.c_str(), folder, components.back().c_str()) != 0) {
        written = false;
        savedError = errno;
    }
    if (!written) {
        if (file >= 0) {
            unlinkat(folder, temporary.c_str(), 0);
        }
        reason = std::string("cannot write ") + Quoted(name) + ": " + std::strerror(savedError);
    }
    close(folder);
    return written;
}

}  // namespace zn::tools
