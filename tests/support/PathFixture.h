// PathFixture.h: a started library with the path and file system statics up, whose string table
// must end each test as it began; and a temporary folder that is the working folder for a scope.
#pragma once

#include "CoreLib/FileSystem.h"
#include "CoreLib/Path.h"
#include "tests/support/StringTableFixture.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <string>

namespace zn::test {

// The statics' own start-up hooks guard against a second start, so the fixture may run them
// whether or not the library's start-up does too.
class PathFixture : public StringTableFixture {
protected:
    void SetUp() override {
        StringTableFixture::SetUp();
        Path::_SDMInit();
        FileSystem::_SDMInit();
    }
    void TearDown() override {
        FileSystem::_SDMShutDown();
        Path::_SDMShutDown();
        StringTableFixture::TearDown();
    }
};

// Makes a fresh folder, optionally with a given last name, makes it the working folder, and puts
// the old working folder back and removes the folder at the end of the scope.
class ScopedWorkingFolder {
public:
    explicit ScopedWorkingFolder(const std::string& leafName = "")
        : m_Previous(std::filesystem::current_path()) {
        std::string pattern = (std::filesystem::temp_directory_path() / "corelib-path-XXXXXX").string();
        EXPECT_NE(mkdtemp(pattern.data()), nullptr);
        m_Root = pattern;
        m_Folder = leafName.empty() ? m_Root : m_Root / leafName;
        std::filesystem::create_directories(m_Folder);
        std::filesystem::current_path(m_Folder);
    }
    ~ScopedWorkingFolder() {
        std::filesystem::current_path(m_Previous);
        std::error_code ignored;
        std::filesystem::remove_all(m_Root, ignored);
    }
    ScopedWorkingFolder(const ScopedWorkingFolder&) = delete;
    ScopedWorkingFolder& operator=(const ScopedWorkingFolder&) = delete;

    const std::filesystem::path& Folder() const { return m_Folder; }
    const std::filesystem::path& Root() const { return m_Root; }

private:
    std::filesystem::path m_Previous;
    std::filesystem::path m_Root;
    std::filesystem::path m_Folder;
};

// The 16-bit units of a file system path, one in each wchar_t, from the standard library's own
// UTF-16 form: an oracle independent of the library's conversion.
inline std::wstring UnitsOf(const std::filesystem::path& path) {
    std::wstring units;
    for (char16_t unit : path.u16string()) {
        units += static_cast<wchar_t>(unit);
    }
    return units;
}

}  // namespace zn::test
