// ScratchFolder.h: a fresh temporary folder for the files of one test, removed with everything in
// it at the end of the scope; files are written and read back with the standard library, outside
// the code under test.
#pragma once

#include "CoreLib/Path.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

namespace zn::test {

class ScratchFolder {
public:
    ScratchFolder() {
        std::string pattern = (std::filesystem::temp_directory_path() / "corelib-files-XXXXXX").string();
        EXPECT_NE(mkdtemp(pattern.data()), nullptr);
        m_Root = pattern;
    }
    ~ScratchFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(m_Root, ignored);
    }
    ScratchFolder(const ScratchFolder&) = delete;
    ScratchFolder& operator=(const ScratchFolder&) = delete;

    const std::filesystem::path& Root() const { return m_Root; }
    std::filesystem::path FileName(const std::string& name) const { return m_Root / name; }
    // The file as the library names it: the absolute text, taken as it stands.
    Path PathOf(const std::string& name) const {
        return Path(STDString(FileName(name).c_str()), Path::ROOT_NONE);
    }

    // Writes the bytes as the whole file; returns its name.
    std::filesystem::path Write(const std::string& name, const std::string& bytes) const {
        std::filesystem::path file = FileName(name);
        std::ofstream stream(file, std::ios::binary | std::ios::trunc);
        stream.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
        EXPECT_TRUE(stream.good()) << file;
        return file;
    }
    // The whole file; empty when it cannot be read.
    std::string Read(const std::string& name) const {
        std::ifstream stream(FileName(name), std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>());
    }

private:
    std::filesystem::path m_Root;
};

}  // namespace zn::test
