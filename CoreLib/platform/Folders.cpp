// Folders.cpp: the user's, the executable's and the working folder on Linux.
#include "CoreLib/platform/Folders.h"

#include <pwd.h>
#include <sys/types.h>
#include <unistd.h>

#include <cerrno>
#include <vector>

namespace zn::platform {

namespace {
// The buffers below start at this size and double while the call says they are too small.
constexpr size_t kInitialBufferSize = 1024;
constexpr size_t kMaximumBufferSize = size_t{1} << 20;

// The folder tests put in place of the user's home; empty when unset.
std::string& HomeFolderOverride() {
    static std::string folder;
    return folder;
}
}  // namespace

void SetHomeFolderOverride(const char* folder) {
    HomeFolderOverride() = folder != nullptr ? folder : "";
}

uint32_t CurrentUserId() {
    return static_cast<uint32_t>(::getuid());
}

int GetHomeFolder(uint32_t userId, std::string& folder) {
    if (!HomeFolderOverride().empty()) {
        folder = HomeFolderOverride();
        return 0;
    }
    long suggested = ::sysconf(_SC_GETPW_R_SIZE_MAX);
    std::vector<char> buffer(suggested > 0 ? static_cast<size_t>(suggested) : kInitialBufferSize);
    for (;;) {
        passwd entry{};
        passwd* found = nullptr;
        int error = ::getpwuid_r(static_cast<uid_t>(userId), &entry, buffer.data(), buffer.size(), &found);
        if (error == ERANGE && buffer.size() < kMaximumBufferSize) {
            buffer.resize(buffer.size() * 2);
            continue;
        }
        if (error != 0) {
            return error;
        }
        if (found == nullptr || found->pw_dir == nullptr) {
            return ENOENT;
        }
        folder = found->pw_dir;
        return 0;
    }
}

int GetExecutablePath(std::string& path) {
    std::vector<char> buffer(kInitialBufferSize);
    for (;;) {
        ssize_t length = ::readlink("/proc/self/exe", buffer.data(), buffer.size());
        if (length < 0) {
            return errno;
        }
        // A result that fills the buffer may have been cut: try again with more room.
        if (static_cast<size_t>(length) == buffer.size()) {
            if (buffer.size() >= kMaximumBufferSize) {
                return ENAMETOOLONG;
            }
            buffer.resize(buffer.size() * 2);
            continue;
        }
        path.assign(buffer.data(), static_cast<size_t>(length));
        return 0;
    }
}

int GetWorkingFolder(std::string& folder) {
    std::vector<char> buffer(kInitialBufferSize);
    for (;;) {
        if (::getcwd(buffer.data(), buffer.size()) != nullptr) {
            folder = buffer.data();
            return 0;
        }
        if (errno == ERANGE && buffer.size() < kMaximumBufferSize) {
            buffer.resize(buffer.size() * 2);
            continue;
        }
        return errno;
    }
}

}  // namespace zn::platform
