// ExtractFolder.h: the folder entries are extracted into, and the names it accepts. Nothing is
// ever written outside it: names that climb out are refused, and no symbolic link below it is
// followed.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace zn::tools {

// Why an entry name cannot be extracted, or "" when it can. A name is extracted only when it is a
// plain relative name: no ".." or "." component, not absolute (a leading '/' or '\', or a drive
// letter), no empty component ("a//b", a trailing separator). '\' counts as a separator, as it does
// for every path of the library.
std::string CheckEntryName(const std::string& name);

// The components of a checked name.
std::vector<std::string> SplitEntryName(const std::string& name);

class ExtractFolder {
public:
    ExtractFolder() = default;
    ~ExtractFolder();
    ExtractFolder(const ExtractFolder&) = delete;
    ExtractFolder& operator=(const ExtractFolder&) = delete;

    // Makes the folder (and its parents) when missing and holds it open. The folder itself may be
    // reached through links: the user named it.
    bool Open(const std::string& path, std::string& reason);

    // Writes a file under a checked name, making the folders on its way. A folder on the way or
    // the file itself that is a symbolic link is never followed: a link on the way fails, and a
    // link in the file's place is replaced by the file. The file appears whole or not at all.
    bool WriteFile(const std::string& name, const char* data, size_t size, std::string& reason);

private:
    // The descriptor of the folder holding the file, made on the way; -1 with a reason.
    int OpenParent(const std::vector<std::string>& components, std::string& reason) const;

    int m_Descriptor = -1;
    unsigned int m_TemporaryCount = 0;
};

}  // namespace zn::tools
