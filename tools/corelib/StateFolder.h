// StateFolder.h: where the program runs. The library creates its log files ("log.txt",
// "errors.txt", "network.txt", "dialoglog.txt", "log.xml") in the working folder when it starts, so
// the program moves to a folder of its own first: the user's folder is never littered, and an
// earlier "log.txt" of the user's is never overwritten.
#pragma once

#include <string>

namespace zn::tools {

class StateFolder {
public:
    StateFolder() = default;
    // A private temporary folder is removed with the logs in it; the state folder stays.
    ~StateFolder();
    StateFolder(const StateFolder&) = delete;
    StateFolder& operator=(const StateFolder&) = delete;

    // Makes the state folder when missing (mode 0700) and moves there; when that cannot be done,
    // moves to a fresh private folder under the temporary folder. False, staying where it is, with
    // a reason when neither can be had.
    bool Enter(std::string& reason);
    const std::string& GetFolder() const { return m_Folder; }
    bool IsTemporary() const { return m_Temporary; }

    // "$XDG_STATE_HOME/corelib", else "$HOME/.local/state/corelib"; a value that is not absolute
    // is ignored, as the base folder convention asks. "" when neither is set.
    static std::string ChooseFolder(const char* stateHome, const char* home);
    // The process's working folder; "" when it cannot be told (it was removed, say).
    static std::string CurrentFolder();

private:
    std::string m_Folder;
    bool m_Temporary = false;
};

}  // namespace zn::tools
