// FileReader_test.cpp: the stream, buffer and mapped forms on files of every size, reading past the
// end, lines, the caller's stream, compressed files, misuse reports, and the open pack handle.
#include "CoreLib/FileReader.h"

#include "CoreLib/Heap.h"
#include "CoreLib/MemoryManager.h"
#include "CoreLib/PackedFileManager.h"
#include "CoreLib/Path.h"
#include "tests/support/CapturingLogger.h"
#include "tests/support/ScratchFolder.h"
#include "tests/support/StringTableFixture.h"
#include "tests/support/StructuredBytes.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <zlib.h>

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

namespace zn::test {
namespace {

using ::testing::ElementsAre;

std::string RandomText(size_t size, uint32_t seed) {
    std::mt19937 random(seed);
    std::string bytes(size, '\0');
    for (char& byte : bytes) {
        byte = static_cast<char>(random());
    }
    return bytes;
}

// zlib's own one-shot compression: the files a compressed reader must accept.
std::string ZlibCompress(const std::string& bytes) {
    uLongf size = compressBound(bytes.size());
    std::string packed(size, '\0');
    EXPECT_EQ(compress2(reinterpret_cast<Bytef*>(packed.data()), &size,
                        reinterpret_cast<const Bytef*>(bytes.data()), bytes.size(), 6),
              Z_OK);
    packed.resize(size);
    return packed;
}

// The permissions the kernel lists for the mapping that holds address, e.g. "r--p".
std::string MappingPermissions(const void* address) {
    std::ifstream maps("/proc/self/maps");
    const uintptr_t target = reinterpret_cast<uintptr_t>(address);
    for (std::string line; std::getline(maps, line);) {
        std::istringstream fields(line);
        std::string range;
        std::string permissions;
        fields >> range >> permissions;
        size_t dash = range.find('-');
        uintptr_t begin = std::stoull(range.substr(0, dash), nullptr, 16);
        uintptr_t end = std::stoull(range.substr(dash + 1), nullptr, 16);
        if (target >= begin && target < end) {
            return permissions;
        }
    }
    return "";
}

enum class Form { Stream, Buffer, Mapped };

class FileReaderTest : public StringTableFixture {
protected:
    static FileReader::TBufferType TypeOf(Form form) {
        return form == Form::Stream   ? FileReader::BufferType_File
               : form == Form::Buffer ? FileReader::BufferType_Buffer
                                      : FileReader::BufferType_MemoryMapped;
    }
    static FileReader* Open(const Path& path, Form form) {
        return new FileReader(path, form == Form::Buffer, form == Form::Mapped);
    }
    // Reads the rest of the reader in pieces of an awkward size, never asking past the end.
    static std::string ReadAll(FileReader& reader) {
        std::string content;
        char piece[4099];
        while (long long left = reader.GetFileSize() - reader.Tell()) {
            unsigned int asked = static_cast<unsigned int>(std::min<long long>(left, sizeof(piece)));
            unsigned int bytes = reader.Read(piece, 1, asked);
            content.append(piece, bytes);
            if (bytes < asked) {
                break;
            }
        }
        return content;
    }

    static void WarmUpPackLookup(const Path& path) {
        if (PackedFileManager* manager = Singleton<PackedFileManager>::GetInstance()) {
            manager->DoesFileExist(path);
        }
    }

    ScratchFolder m_Folder;
};

// ---- the three forms -----------------------------------------------------------------------------

struct FormCase {
    Form form;
    size_t size;
};

class FileReaderFormTest : public FileReaderTest, public ::testing::WithParamInterface<FormCase> {};

TEST_P(FileReaderFormTest, GivesTheWholeFileAndFreesItsMemory) {
    const FormCase param = GetParam();
    const std::string content = RandomText(param.size, static_cast<uint32_t>(param.size));
    m_Folder.Write("data.bin", content);
    // The path first: interning its text may grow the string table's own index for good.
    const Path path = m_Folder.PathOf("data.bin");
    // A reader asks the pack manager first, which interns the path's key: that growth of the
    // string table stays, so it is made before the measure.
    WarmUpPackLookup(path);
    ScopedCapture capture;
    const size_t memoryBefore = MemoryManager::GetMemoryInUse();

    FileReader* reader = Open(path, param.form);
    if (param.form == Form::Mapped && param.size == 0) {
        // An empty file has nothing to map.
        EXPECT_FALSE(reader->IsLoaded());
        EXPECT_EQ(reader->GetType(), FileReader::BufferType_None);
    } else {
        ASSERT_TRUE(reader->IsLoaded());
        EXPECT_EQ(reader->GetType(), TypeOf(param.form));
        EXPECT_EQ(reader->GetFileSize(), param.size);
        EXPECT_FALSE(reader->FromPackFile());
        if (param.form != Form::Stream && param.size > 0) {
            EXPECT_EQ(std::memcmp(reader->GetData(), content.data(), param.size), 0);
        }
        if (param.form == Form::Buffer && param.size > 0) {
            HeapBase* heap = HeapBase::FindHeapByPtr(reader->GetData());
            ASSERT_NE(heap, nullptr);
            EXPECT_STREQ(heap->GetHeapName(), param.size >= 0x100000 ? "LARGEBLOCK" : "GLOBAL");
        }
        EXPECT_EQ(ReadAll(*reader), content);
        EXPECT_EQ(reader->Tell(), static_cast<long long>(param.size));
    }
    delete reader;
    EXPECT_TRUE(capture.Reports().empty());
    EXPECT_EQ(MemoryManager::GetMemoryInUse(), memoryBefore);
}

INSTANTIATE_TEST_SUITE_P(EmptySmallAndLarge, FileReaderFormTest,
                         ::testing::Values(FormCase{Form::Stream, 0}, FormCase{Form::Buffer, 0},
                                           FormCase{Form::Mapped, 0}, FormCase{Form::Stream, 100},
                                           FormCase{Form::Buffer, 100}, FormCase{Form::Mapped, 100},
                                           FormCase{Form::Stream, 3 * 1024 * 1024 + 123},
                                           FormCase{Form::Buffer, 3 * 1024 * 1024 + 123},
                                           FormCase{Form::Mapped, 3 * 1024 * 1024 + 123}));

TEST_F(FileReaderTest, MissingFileLeavesEveryFormUnloadedWithoutReport) {
    const Path missing = m_Folder.PathOf("missing.bin");
    const Path folderPath = m_Folder.PathOf("");
    ScopedCapture capture;
    for (Form form : {Form::Stream, Form::Buffer, Form::Mapped}) {
        FileReader* reader = Open(missing, form);
        EXPECT_FALSE(reader->IsLoaded());
        EXPECT_EQ(reader->GetType(), FileReader::BufferType_None);
        EXPECT_EQ(reader->GetFileSize(), 0u);
        delete reader;
    }
    FileReader folder(folderPath, true, false);
    EXPECT_FALSE(folder.IsLoaded());
    EXPECT_TRUE(capture.Reports().empty());
}

TEST_F(FileReaderTest, MappedViewIsReadOnlyAndOutlivesTheFileName) {
    const std::string content = RandomText(10000, 7);
    const std::filesystem::path file = m_Folder.Write("mapped.bin", content);
    FileReader reader(m_Folder.PathOf("mapped.bin"), false, true);
    ASSERT_TRUE(reader.IsLoaded());
    const std::string permissions = MappingPermissions(reader.GetData());
    ASSERT_EQ(permissions.size(), 4u);
    EXPECT_EQ(permissions.substr(0, 3), "r--");

    std::filesystem::remove(file);
    ASSERT_FALSE(std::filesystem::exists(file));
    EXPECT_EQ(ReadAll(reader), content);
    EXPECT_EQ(reader.GetFileName(), nullptr);
}

TEST_F(FileReaderTest, DiskLoadsKeepACopyOfThePath) {
    m_Folder.Write("named.txt", "x");
    Path path = m_Folder.PathOf("named.txt");
    FileReader reader(path, true, false);
    ASSERT_NE(reader.GetFileName(), nullptr);
    EXPECT_EQ(std::wstring(reader.GetFileName()), std::wstring(path.ToWChar()));
}

TEST_F(FileReaderTest, DisposeFreesOnceAndKeepsTypeAndFlags) {
    m_Folder.Write("twice.bin", std::string(2 * 1024 * 1024, 'z'));
    FileReader reader(m_Folder.PathOf("twice.bin"), true, false);
    ScopedCapture capture;
    reader.Dispose();
    reader.Dispose();
    EXPECT_TRUE(reader.IsLoaded());
    EXPECT_EQ(reader.GetType(), FileReader::BufferType_Buffer);
    EXPECT_EQ(reader.GetFileSize(), 0u);
    EXPECT_EQ(reader.GetData(), nullptr);
    EXPECT_TRUE(capture.Reports().empty());
}

// ---- reading -------------------------------------------------------------------------------------

TEST_F(FileReaderTest, ReadPastTheEndCopiesWholeItemsAndReports) {
    m_Folder.Write("ten.bin", "0123456789");
    for (Form form : {Form::Buffer, Form::Mapped}) {
        FileReader* reader = Open(m_Folder.PathOf("ten.bin"), form);
        ScopedCapture capture;
        char target[16];
        std::memset(target, '#', sizeof(target));
        EXPECT_EQ(reader->Read(target, 4, 3), 8u);
        EXPECT_EQ(std::string(target, 10), "01234567##");
        EXPECT_EQ(reader->Tell(), 8);
        EXPECT_EQ(reader->Read(target, 4), 0u);
        EXPECT_EQ(reader->Read(target, 1, 5), 2u);
        EXPECT_EQ(reader->Read(target, 0, 1), 0u);
        EXPECT_EQ(reader->Read(target, 1, 0), 0u);
        EXPECT_THAT(capture.Messages(),
                    ElementsAre("Trying to read more from a file then the file size.",
                                "Trying to read more from a file then the file size.",
                                "Trying to read more from a file then the file size.", "size can't be 0"));
        ExpectAllOnChannel(capture, LogAssertProgrammer);
        EXPECT_EQ(capture.Reports()[0].function, "zn::FileReader::Read");
        delete reader;
    }
}

TEST_F(FileReaderTest, StreamReadCountsBytesOfWholeItems) {
    m_Folder.Write("ten.bin", "0123456789");
    FileReader reader(m_Folder.PathOf("ten.bin"), false, false);
    ScopedCapture capture;
    char target[16];
    EXPECT_FALSE(reader.EndOfFile());
    // fread stops inside the third item: two whole items count, and the stream is at its end.
    EXPECT_EQ(reader.Read(target, 4, 3), 8u);
    EXPECT_TRUE(reader.EndOfFile());
    reader.Seek(1, SEEKPOS_START);
    EXPECT_EQ(reader.Read(target, 3, 2), 6u);
    EXPECT_EQ(std::string(target, 6), "123456");
    EXPECT_TRUE(capture.Reports().empty());
}

TEST_F(FileReaderTest, SeekAndTellInEveryForm) {
    m_Folder.Write("seek.bin", "abcdefghij");
    for (Form form : {Form::Stream, Form::Buffer, Form::Mapped}) {
        FileReader* reader = Open(m_Folder.PathOf("seek.bin"), form);
        char byte = 0;
        EXPECT_TRUE(reader->Seek(-3, SEEKPOS_END));
        EXPECT_EQ(reader->Tell(), 7);
        EXPECT_EQ(reader->Read(&byte, 1), 1u);
        EXPECT_EQ(byte, 'h');
        EXPECT_TRUE(reader->Seek(-5, SEEKPOS_CURRENT));
        EXPECT_EQ(reader->Read(&byte, 1), 1u);
        EXPECT_EQ(byte, 'd');
        EXPECT_TRUE(reader->Seek(1, SEEKPOS_START));
        EXPECT_EQ(reader->Read(&byte, 1), 1u);
        EXPECT_EQ(byte, 'b');
        delete reader;
    }
}

TEST_F(FileReaderTest, SoughtOutsideTheContentReadsNothing) {
    m_Folder.Write("small.bin", "abc");
    FileReader reader(m_Folder.PathOf("small.bin"), true, false);
    ScopedCapture capture;
    char target[4] = {'#', '#', '#', '#'};
    reader.Seek(-2, SEEKPOS_START);
    EXPECT_EQ(reader.Tell(), -2);
    EXPECT_EQ(reader.Read(target, 1, 1), 0u);
    reader.Seek(10, SEEKPOS_END);
    EXPECT_EQ(reader.Read(target, 1, 1), 0u);
    EXPECT_TRUE(reader.EndOfFile());
    EXPECT_EQ(target[0], '#');
    EXPECT_EQ(capture.Messages().size(), 2u);
}

TEST_F(FileReaderTest, RefPointsIntoViewsOnly) {
    const std::string content = "0123456789";
    m_Folder.Write("ref.bin", content);
    FileReader mapped(m_Folder.PathOf("ref.bin"), false, true);
    FileReader buffer(m_Folder.PathOf("ref.bin"), true, false);
    ScopedCapture capture;
    void* pointer = nullptr;
    EXPECT_EQ(mapped.Ref(pointer, 3), 3u);
    EXPECT_EQ(pointer, mapped.GetData());
    EXPECT_EQ(mapped.Ref(pointer, 4, 5), 4u);
    EXPECT_EQ(std::string(static_cast<const char*>(pointer), 4), "3456");
    EXPECT_EQ(mapped.Tell(), 7);
    EXPECT_EQ(mapped.Ref(pointer, 0, 1), 0u);
    EXPECT_EQ(mapped.Ref(pointer, 1, 0), 0u);
    pointer = nullptr;
    EXPECT_EQ(buffer.Ref(pointer, 1), 0u);
    EXPECT_EQ(pointer, nullptr);
    EXPECT_EQ(buffer.Tell(), 0);
    EXPECT_THAT(capture.Messages(),
                ElementsAre("size can't be 0", "You can only use Ref on MemMapped files"));
}

// ---- lines ---------------------------------------------------------------------------------------

TEST_F(FileReaderTest, MemoryLinesTreatEveryRunOfLineEndsAsOne) {
    m_Folder.Write("lines.txt", "one\r\ntwo\n\nthree\r\r\rfour");
    for (Form form : {Form::Buffer, Form::Mapped}) {
        FileReader* reader = Open(m_Folder.PathOf("lines.txt"), form);
        ScopedCapture capture;
        std::vector<std::string> lines;
        char line[32];
        while (!reader->EndOfFile() && reader->ReadLine(line, sizeof(line))) {
            lines.emplace_back(line);
        }
        EXPECT_THAT(lines, ElementsAre("one", "two", "three", "four"));
        EXPECT_TRUE(capture.Reports().empty());

        // At the end there is nothing to take: reported, and the line is empty.
        std::strcpy(line, "old");
        EXPECT_TRUE(reader->ReadLine(line, sizeof(line)));
        EXPECT_STREQ(line, "");
        EXPECT_THAT(capture.Messages(), ElementsAre("File pointer out of bounds!"));
        EXPECT_FALSE(reader->ReadLine(nullptr, 10));
        delete reader;
    }
}

TEST_F(FileReaderTest, MemoryLineTakesItsFirstCharacterUntested) {
    m_Folder.Write("lead.txt", "\nab\n");
    FileReader reader(m_Folder.PathOf("lead.txt"), true, false);
    char line[8];
    ASSERT_TRUE(reader.ReadLine(line, sizeof(line)));
    EXPECT_STREQ(line, "\nab");
    EXPECT_TRUE(reader.EndOfFile());
}

TEST_F(FileReaderTest, ShortLineBufferIsReportedAndTheLineStays) {
    m_Folder.Write("long.txt", "three\nx");
    FileReader reader(m_Folder.PathOf("long.txt"), true, false);
    ScopedCapture capture;
    char line[8];
    EXPECT_FALSE(reader.ReadLine(line, 6));
    EXPECT_THAT(capture.Messages(),
                ElementsAre("Destination buffer too small to read line! Buffer size 6, needed 6."));
    EXPECT_EQ(reader.Tell(), 0);
    ASSERT_TRUE(reader.ReadLine(line, 7));
    EXPECT_STREQ(line, "three");
}

TEST_F(FileReaderTest, StreamLinesKeepTheirEnds) {
    m_Folder.Write("lines.txt", "one\r\ntwo\n\nend");
    FileReader reader(m_Folder.PathOf("lines.txt"), false, false);
    std::vector<std::string> lines;
    char line[32];
    while (reader.ReadLine(line, sizeof(line))) {
        lines.emplace_back(line);
    }
    EXPECT_THAT(lines, ElementsAre("one\r\n", "two\n", "\n", "end"));
    EXPECT_TRUE(reader.EndOfFile());
}

// ---- the caller's stream ---------------------------------------------------------------------------

TEST_F(FileReaderTest, CallersStreamIsRewoundAndClosedWhenReadToMemory) {
    FILE* file = std::fopen(m_Folder.FileName("own.bin").c_str(), "wb+");
    ASSERT_NE(file, nullptr);
    std::fputs("caller's bytes", file);
    const int descriptor = fileno(file);
    FileReader reader(file, true);
    ASSERT_TRUE(reader.IsLoaded());
    EXPECT_EQ(reader.GetType(), FileReader::BufferType_Buffer);
    EXPECT_EQ(ReadAll(reader), "caller's bytes");
    // The descriptor behind the stream is gone: the stream was closed.
    errno = 0;
    EXPECT_EQ(fcntl(descriptor, F_GETFD), -1);
    EXPECT_EQ(errno, EBADF);
}

TEST_F(FileReaderTest, CallersStreamReadAsStreamStaysOpen) {
    FILE* file = std::fopen(m_Folder.FileName("own.bin").c_str(), "wb+");
    ASSERT_NE(file, nullptr);
    std::fputs("kept", file);
    {
        FileReader reader(file, false);
        ASSERT_TRUE(reader.IsLoaded());
        EXPECT_EQ(reader.GetFile(), file);
        EXPECT_EQ(reader.GetFileSize(), 4u);
        EXPECT_EQ(ReadAll(reader), "kept");
    }
    EXPECT_EQ(std::fputs("more", file), 1);
    EXPECT_EQ(std::fclose(file), 0);
    EXPECT_EQ(m_Folder.Read("own.bin"), "keptmore");
}

// ---- compressed files ------------------------------------------------------------------------------

TEST_F(FileReaderTest, ZlibFileIsInflatedInMemory) {
    std::vector<unsigned char> structured = StructuredBytes(2 * 1024 * 1024 + 77, 3);
    const std::string content(structured.begin(), structured.end());
    m_Folder.Write("packed.z", ZlibCompress(content));
    const Path path = m_Folder.PathOf("packed.z");
    // A reader asks the pack manager first, which interns the path's key: that growth of the
    // string table stays, so it is made before the measure.
    WarmUpPackLookup(path);
    const size_t memoryBefore = MemoryManager::GetMemoryInUse();
    {
        FileReader reader(path, true, false, CompressionType_Zlib);
        ASSERT_TRUE(reader.IsLoaded());
        EXPECT_EQ(reader.GetFileSize(), content.size());
        EXPECT_EQ(ReadAll(reader), content);
    }
    EXPECT_EQ(MemoryManager::GetMemoryInUse(), memoryBefore);
}

TEST_F(FileReaderTest, CompressedFileMustBeLoadedInMemory) {
    m_Folder.Write("packed.z", ZlibCompress("abc"));
    const Path path = m_Folder.PathOf("packed.z");
    ScopedCapture capture;
    FileReader reader(path, false, false, CompressionType_Zlib);
    EXPECT_FALSE(reader.IsLoaded());
    EXPECT_THAT(capture.Messages(), ElementsAre("Compressed files need to be loaded in memory!"));
    ExpectAllOnChannel(capture, LogError);
}

TEST_F(FileReaderTest, ThreadsLoadingAtOnceEachGetTheirFile) {
    // Appended, not concatenated: GCC 12 warns falsely on "t" + std::to_string(...) at -O3.
    auto nameOf = [](size_t index) {
        std::string name = "t";
        name += std::to_string(index);
        return name;
    };
    std::vector<std::string> contents;
    for (int index = 0; index < 4; ++index) {
        contents.push_back(RandomText(200000 + index, static_cast<uint32_t>(index)));
        m_Folder.Write(nameOf(static_cast<size_t>(index)), ZlibCompress(contents.back()));
    }
    std::vector<int> matches(contents.size(), 0);
    std::vector<std::thread> threads;
    for (size_t index = 0; index < contents.size(); ++index) {
        threads.emplace_back([&, index] {
            for (int round = 0; round < 5; ++round) {
                FileReader reader(m_Folder.PathOf(nameOf(index)), true, false, CompressionType_Zlib);
                matches[index] += ReadAll(reader) == contents[index] ? 1 : 0;
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_THAT(matches, ElementsAre(5, 5, 5, 5));
}

// ---- misuse --------------------------------------------------------------------------------------

TEST_F(FileReaderTest, UnloadedReaderReportsWithItsFunctionNames) {
    FileReader reader(m_Folder.PathOf("missing.bin"), false, false);
    ScopedCapture capture;
    char target[4];
    EXPECT_FALSE(reader.Seek(0, SEEKPOS_START));
    EXPECT_EQ(reader.Tell(), 0);
    EXPECT_EQ(reader.Read(target, 1, 1), 0u);
    EXPECT_FALSE(reader.ReadLine(target, sizeof(target)));
    EXPECT_TRUE(reader.EndOfFile());
    EXPECT_EQ(reader.GetData(), nullptr);
    EXPECT_EQ(reader.GetFile(), nullptr);
    EXPECT_THAT(capture.Messages(), ElementsAre("zn::FileReader::Seek - This code shuld not be reached!!",
                                                "zn::FileReader::Tell - This code shuld not be reached!!",
                                                "zn::FileReader::Read - This code shuld not be reached!!",
                                                "zn::FileReader::ReadLine - This code shuld not be reached!!",
                                                "zn::FileReader::EndOfFile - Not implemented!!",
                                                "GetData returning NULL because type is not buffer"));
}

TEST_F(FileReaderTest, DataAndStreamAreGivenOnlyByTheirForms) {
    m_Folder.Write("form.bin", "x");
    FileReader stream(m_Folder.PathOf("form.bin"), false, false);
    FileReader buffer(m_Folder.PathOf("form.bin"), true, false);
    ScopedCapture capture;
    EXPECT_EQ(stream.GetData(), nullptr);
    EXPECT_EQ(buffer.GetFile(), nullptr);
    EXPECT_NE(stream.GetFile(), nullptr);
    EXPECT_NE(buffer.GetData(), nullptr);
    EXPECT_THAT(capture.Messages(), ElementsAre("GetData returning NULL because type is not buffer",
                                                "GetFile returning NULL because type is not file"));
    EXPECT_EQ(capture.Reports()[1].function, "zn::FileReader::GetFile");
}

// ---- the open pack handle --------------------------------------------------------------------------

TEST_F(FileReaderTest, PackHandleReadsAndSeeksTheFile) {
    m_Folder.Write("pack.pak", "HEADERpayload");
    FileReaderPacked pack(m_Folder.PathOf("pack.pak"));
    ASSERT_TRUE(pack.IsLoaded());
    EXPECT_EQ(pack.GetFileSize(), 13u);
    EXPECT_EQ(pack.GetFileMapHandle(), &pack.GetFileHandle());
    char target[16] = {};
    EXPECT_EQ(pack.Read(target, 2, 3), 6u);
    EXPECT_EQ(std::string(target, 6), "HEADER");
    EXPECT_TRUE(pack.Seek(-4, SEEKPOS_END));
    EXPECT_EQ(pack.Read(target, 1, 10), 4u);
    EXPECT_EQ(std::string(target, 4), "load");
    void* view = platform::MapView(pack.GetFileHandle(), 0, 13);
    ASSERT_NE(view, nullptr);
    EXPECT_EQ(std::string(static_cast<const char*>(view), 13), "HEADERpayload");
    platform::UnmapView(view, 13);
    pack.Dispose();
    EXPECT_FALSE(pack.IsLoaded());
    EXPECT_EQ(pack.Read(target, 1, 1), 0u);
}

TEST_F(FileReaderTest, PackHandleReportsMissingAndEmptyFiles) {
    m_Folder.Write("empty.pak", "");
    Path missing = m_Folder.PathOf("missing.pak");
    Path empty = m_Folder.PathOf("empty.pak");
    ScopedCapture capture;
    FileReaderPacked first(missing);
    FileReaderPacked second(empty);
    EXPECT_FALSE(first.IsLoaded());
    EXPECT_FALSE(second.IsLoaded());
    EXPECT_EQ(second.GetFileHandle().descriptor, -1);
    const std::string missingText = m_Folder.FileName("missing.pak").string();
    const std::string emptyText = m_Folder.FileName("empty.pak").string();
    EXPECT_THAT(capture.Messages(),
                ElementsAre("Opening of file " + missingText + " failed!", "File size 0 " + emptyText + "!"));
    EXPECT_EQ(capture.Reports()[0].function, "zn::FileReaderPacked::Load");
}

}  // namespace
}  // namespace zn::test
