// StateFolder.cpp: the per-user folder the program runs in, so that the library's log files of the
// last run land there.
#include "tools/corelib/StateFolder.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <vector>

namespace zn::tools {

namespace {
bool IsAbsolute(const char* text) {
    return text != nullptr && text[0] == '/';
}

// Makes the folder's parents as usual and the folder itself private to the user.
bool MakePrivateFolder(const std::string& folder) {
    std::error_code error;
    std::filesystem::create_directories(std::filesystem::path(folder).parent_path(), error);
    return (mkdir(folder.c_str(), 0700) == 0 || errno == EEXIST) &&
           std::filesystem::is_directory(folder, error);
}
}  // namespace

StateFolder::~StateFolder() {
    if (m_Temporary) {
        std::error_code ignored;
        std::filesystem::remove_all(m_Folder, ignored);
    }
}

std::string StateFolder::ChooseFolder(const char* stateHome, const char* home) {
    if (IsAbsolute(stateHome)) {
        return std::string(stateHome) + "/corelib";
    }
    if (IsAbsolute(home)) {
        return std::string(home) + "/.local/state/corelib";
    }
    return "";
}

std::string StateFolder::CurrentFolder() {
    std::vector<char> buffer(4096);
    while (getcwd(buffer.data(), buffer.size()) == nullptr) {
        if (errno != ERANGE) {
            return "";
        }
        buffer.resize(buffer.size() * 2);
    }
    return buffer.data();
}

bool StateFolder::Enter(std::string& reason) {
    std::string folder = ChooseFolder(std::getenv("XDG_STATE_HOME"), std::getenv("HOME"));
    if (!folder.empty() && MakePrivateFolder(folder) && chdir(folder.c_str()) == 0) {
        m_Folder = folder;
        return true;
    }
    std::error_code error;
    std::string pattern = (std::filesystem::temp_directory_path(error) / "corelib-XXXXXX").string();
    if (error || mkdtemp(pattern.data()) == nullptr) {
        reason = "no folder for the log files: " + std::string(std::strerror(errno));
        return false;
    }
    if (chdir(pattern.c_str()) != 0) {
        reason = "cannot enter '" + pattern + "': " + std::strerror(errno);
        std::filesystem::remove(pattern, error);
        return false;
    }
    m_Folder = pattern;
    m_Temporary = true;
    return true;
}

}  // namespace zn::tools
