// TempDir.h: a fresh folder under the system's temporary folder for one test, removed with all it
// holds at the end of its scope, and helpers that fill it through the standard library (never
// through the code under test).
#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

namespace zn::test {

class TempDir {
public:
    // leafName, UTF-8, is a folder made inside the fresh one, so a test can choose the last name.
    explicit TempDir(const std::string& leafName = "") {
        std::string pattern = (std::filesystem::temp_directory_path() / "corelib-fs-XXXXXX").string();
        EXPECT_NE(mkdtemp(pattern.data()), nullptr);
        m_Root = pattern;
        m_Folder = leafName.empty() ? m_Root : m_Root / leafName;
        std::filesystem::create_directories(m_Folder);
    }
    ~TempDir() {
        std::error_code ignored;
        std::filesystem::remove_all(m_Root, ignored);
    }
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    const std::filesystem::path& Folder() const { return m_Folder; }
    // A name under the folder; relative is UTF-8 with '/' separators.
    std::filesystem::path operator/(const std::string& relative) const { return m_Folder / relative; }

    // Writes bytes to a file under the folder, making its parents.
    void Write(const std::string& relative, const std::string& bytes = "") const {
        const std::filesystem::path file = m_Folder / relative;
        std::filesystem::create_directories(file.parent_path());
        std::ofstream(file, std::ios::binary) << bytes;
    }
    void MakeDirectory(const std::string& relative) const {
        std::filesystem::create_directories(m_Folder / relative);
    }

private:
    std::filesystem::path m_Root;
    std::filesystem::path m_Folder;
};

// The whole content of a file, or "" when it cannot be read.
inline std::string ReadAll(const std::filesystem::path& file) {
    std::ifstream input(file, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(input), std::istreambuf_iterator<char>());
}

}  // namespace zn::test
