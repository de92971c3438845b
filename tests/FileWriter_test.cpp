// FileWriter_test.cpp: plain writes and positions, the compressed mode against zlib and the reader,
// temporary files, the byte order, and the quiet failures.
#include "CoreLib/FileWriter.h"

#include "CoreLib/FileReader.h"
#include "CoreLib/Path.h"
#include "tests/support/CapturingLogger.h"
#include "tests/support/ScratchFolder.h"
#include "tests/support/StringTableFixture.h"
#include "tests/support/StructuredBytes.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <zlib.h>

#include <unistd.h>

#include <cstdint>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

namespace zn::test {
namespace {

using ::testing::ElementsAre;

class FileWriterTest : public StringTableFixture {
protected:
    ScratchFolder m_Folder;
};

// The name the system gives the file behind an open stream.
std::filesystem::path NameOfStream(FILE* file) {
    return std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(fileno(file)));
}

TEST_F(FileWriterTest, WritesItemsAndMovesAround) {
    FileWriter writer(m_Folder.PathOf("plain.bin"), CompressionType_None, STDWString(L"wb"));
    ASSERT_TRUE(writer.IsLoaded());
    EXPECT_EQ(writer.Write("abcdefgh", 4, 2), 2u);
    EXPECT_EQ(writer.Tell(), 8);
    EXPECT_TRUE(writer.Seek(2, SEEKPOS_START));
    EXPECT_EQ(writer.Write("XY", 1, 2), 2u);
    EXPECT_TRUE(writer.Seek(0, SEEKPOS_END));
    EXPECT_EQ(writer.Write("!", 1, 1), 1u);
    EXPECT_TRUE(writer.Flush());
    EXPECT_EQ(m_Folder.Read("plain.bin"), "abXYefgh!");
    writer.Close();
    EXPECT_FALSE(writer.IsLoaded());
}

TEST_F(FileWriterTest, OpensAPathTextAsItStandsAndReopens) {
    const std::wstring name = m_Folder.FileName("text.txt").wstring();
    FileWriter writer(name.c_str(), CompressionType_None, L"w");
    ASSERT_TRUE(writer.IsLoaded());
    writer.Write("first\n", 1, 6);
    EXPECT_TRUE(writer.OpenFile(name.c_str(), L"ab"));
    writer.Write("second\n", 1, 7);
    writer.Close();
    writer.Close();
    EXPECT_EQ(m_Folder.Read("text.txt"), "first\nsecond\n");
}

TEST_F(FileWriterTest, FailureToOpenIsSilentAndLeavesNothingToWrite) {
    const Path path = m_Folder.PathOf("no/such/folder/file.bin");
    ScopedCapture capture;
    FileWriter writer(path, CompressionType_None, STDWString(L"wb"));
    EXPECT_FALSE(writer.IsLoaded());
    EXPECT_EQ(writer.GetFile(), nullptr);
    EXPECT_EQ(writer.Write("x", 1, 1), 0u);
    EXPECT_FALSE(writer.Seek(0, SEEKPOS_START));
    EXPECT_EQ(writer.Tell(), -1);
    EXPECT_FALSE(writer.Flush());
    EXPECT_TRUE(capture.Reports().empty());
}

TEST_F(FileWriterTest, EndianSwapLeavesTheHostsByteOrder) {
    const uint32_t value = 0x01020304;
    {
        FileWriter writer(m_Folder.PathOf("order.bin"), CompressionType_None, STDWString(L"wb"));
        writer.SetEndianSwap(true);
        writer.Write(&value, sizeof(value), 1);
    }
    EXPECT_EQ(m_Folder.Read("order.bin"), std::string("\x04\x03\x02\x01", 4));
    FileReader reader(m_Folder.PathOf("order.bin"), true, false);
    reader.SetEndianSwap(true);
    uint32_t back = 0;
    EXPECT_EQ(reader.Read(&back, sizeof(back)), 4u);
    EXPECT_EQ(back, value);
}

// ---- compressed mode -------------------------------------------------------------------------------

TEST_F(FileWriterTest, CompressedWriteIsOneZlibStreamTheReaderInflates) {
    std::vector<unsigned char> content = StructuredBytes(1500000, 11);
    {
        FileWriter writer(m_Folder.PathOf("packed.z"), CompressionType_Zlib, STDWString(L"wb"));
        ASSERT_TRUE(writer.IsLoaded());
        // The count is not used: one block, one item written.
        EXPECT_EQ(writer.Write(content.data(), static_cast<unsigned int>(content.size()), 9), 1u);
    }
    const std::string stored = m_Folder.Read("packed.z");
    ASSERT_LT(stored.size(), content.size());
    std::vector<unsigned char> inflated(content.size() + 16);
    uLongf inflatedSize = inflated.size();
    ASSERT_EQ(uncompress(inflated.data(), &inflatedSize, reinterpret_cast<const Bytef*>(stored.data()),
                         stored.size()),
              Z_OK);
    inflated.resize(inflatedSize);
    EXPECT_EQ(inflated, content);

    FileReader reader(m_Folder.PathOf("packed.z"), true, false, CompressionType_Zlib);
    ASSERT_TRUE(reader.IsLoaded());
    ASSERT_EQ(reader.GetFileSize(), content.size());
    EXPECT_EQ(std::memcmp(reader.GetData(), content.data(), content.size()), 0);
}

TEST_F(FileWriterTest, CompressedModeHasNoPosition) {
    FileWriter writer(m_Folder.PathOf("packed.z"), CompressionType_Zlib, STDWString(L"wb"));
    ScopedCapture capture;
    EXPECT_FALSE(writer.Seek(0, SEEKPOS_START));
    EXPECT_EQ(writer.Tell(), 0);
    EXPECT_THAT(capture.Messages(),
                ElementsAre("Seek doesnt work in Compressed mode!", "Tell doesnt work in Compressed mode!"));
    ExpectAllOnChannel(capture, LogError);
}

// ---- temporary files -------------------------------------------------------------------------------

TEST_F(FileWriterTest, TemporaryFileLivesUntilClose) {
    FileWriter writer(FileWriteType_Temp);
    ASSERT_TRUE(writer.IsLoaded());
    const std::filesystem::path name = NameOfStream(writer.GetFile());
    EXPECT_EQ(name.filename().string().rfind("ZN_", 0), 0u) << name;
    EXPECT_EQ(name.parent_path(), std::filesystem::path(P_tmpdir));
    ASSERT_TRUE(std::filesystem::exists(name));

    // Opened for reading too: what was written comes back through the same stream.
    EXPECT_EQ(writer.Write("scratch", 1, 7), 7u);
    FileReader reader(writer.GetFile(), false);
    char back[8] = {};
    EXPECT_EQ(reader.Read(back, 1, 7), 7u);
    EXPECT_STREQ(back, "scratch");

    writer.Close();
    EXPECT_FALSE(std::filesystem::exists(name));
    EXPECT_FALSE(writer.IsLoaded());
}

TEST_F(FileWriterTest, TemporaryFileIsRemovedByTheDestructor) {
    std::filesystem::path name;
    {
        FileWriter writer(FileWriteType_Temp);
        ASSERT_TRUE(writer.IsLoaded());
        name = NameOfStream(writer.GetFile());
        ASSERT_TRUE(std::filesystem::exists(name));
    }
    EXPECT_FALSE(std::filesystem::exists(name));
}

TEST_F(FileWriterTest, UnknownTypeIsReportedAndStaysClosed) {
    ScopedCapture capture;
    FileWriter writer(static_cast<EFileWriteType>(1));
    EXPECT_FALSE(writer.IsLoaded());
    EXPECT_EQ(writer.GetFile(), nullptr);
    EXPECT_THAT(capture.Messages(), ElementsAre("Unknown filewriter type!"));
    EXPECT_EQ(capture.Reports()[0].function, "zn::FileWriter::FileWriter");
}

}  // namespace
}  // namespace zn::test
