// PackedFile_test.cpp: the stored form of a pack checked byte by byte with a reader written here,
// round trips through the library's reader, multi-part packs, and packs that lie.
#include "CoreLib/PackedFile.h"
#include "CoreLib/Heap.h"
#include "CoreLib/PackedFile_TOC.h"
#include "tests/support/PackTestSupport.h"

#include <sys/mman.h>

#include <gtest/gtest.h>
#include <zlib.h>

#include <algorithm>
#include <atomic>
#include <functional>
#include <string>
#include <thread>

namespace zn::test {
namespace {

constexpr const char* kWrongVersion = "Failed to load the pack file, wrong version or not a packed file!";
constexpr const char* kReadError = "PackedFile::GetFileData: Read error.";
constexpr const char* kMismatch = "PackedFile: Uncompress of data did not match uncompressed size.";

bool Contains(const std::vector<std::string>& messages, const std::string& text) {
    return std::find(messages.begin(), messages.end(), text) != messages.end();
}

class PackedFileTest : public PackFixture {
protected:
    std::filesystem::path PackPath(const char* name = "test.pak") const {
        return m_Temp.Folder() / "out" / name;
    }

    // Adds every (name, bytes) pair and saves; the bytes of the saved first part.
    Bytes SavePack(const std::vector<std::pair<std::string, Bytes>>& files, bool compress = false,
                   bool allowMapping = true) {
        PackedFile writer(true);
        for (const auto& [name, bytes] : files) {
            EXPECT_TRUE(writer.AddFile(name.c_str(), reinterpret_cast<const char*>(bytes.data()),
                                       static_cast<unsigned int>(bytes.size()), compress));
        }
        writer.SetAllowMemoryMapping(allowMapping);
        EXPECT_TRUE(writer.Save(PathOf(PackPath())));
        return ReadBytes(PackPath());
    }
};

// ---------------------------------------------------------------------------------------------
// The stored form

TEST_F(PackedFileTest, EmptyPackIsOneChunkOfHeaderTableAndPadding) {
    Bytes bytes = SavePack({});
    ASSERT_EQ(bytes.size(), 32768u);
    RawPack pack = ParsePack(bytes);
    EXPECT_EQ(pack.version, 7u);
    EXPECT_EQ(pack.dataOffset, 32768u);
    EXPECT_EQ(pack.numParts, 0u);
    EXPECT_EQ(pack.tocSize, 4u);
    EXPECT_EQ(pack.allowMemoryMapping, 1);
    EXPECT_EQ(pack.entryCount, 0u);
    EXPECT_TRUE(
        std::all_of(bytes.begin() + 21, bytes.end(), [](unsigned char byte) { return byte == 0xAD; }));
}

TEST_F(PackedFileTest, FilesStartOnChunksAndArePaddedWith0xAD) {
    Bytes exact = RandomBytes(32768, 1);
    Bytes overflowing = RandomBytes(32769, 2);
    Bytes bytes = SavePack({{"exact.bin", exact}, {"over.bin", overflowing}}, false, false);
    RawPack pack = ParsePack(bytes);
    EXPECT_EQ(pack.numParts, 1u);
    EXPECT_EQ(pack.allowMemoryMapping, 0);
    EXPECT_EQ(pack.tocSize, 4u + 2 * 272);
    ASSERT_EQ(pack.entries.size(), 2u);
    // 32768 bytes take one chunk, 32769 take two.
    ASSERT_EQ(bytes.size(), pack.dataOffset + 32768u + 65536u);
    EXPECT_EQ(pack.entries[0].name, "exact.bin");
    EXPECT_EQ(pack.entries[0].offset, 0u);
    EXPECT_EQ(pack.entries[0].size, 32768u);
    EXPECT_EQ(pack.entries[1].offset, 32768u);
    EXPECT_EQ(pack.entries[1].size, 32769u);
    for (const RawEntry& entry : pack.entries) {
        EXPECT_EQ(entry.uncompressedSize, 0u);
        EXPECT_EQ(entry.partIndex, 0u);
        EXPECT_TRUE(std::all_of(entry.nameField.begin() + static_cast<long>(entry.name.size()),
                                entry.nameField.end(), [](unsigned char byte) { return byte == 0; }));
    }
    auto data = bytes.begin() + pack.dataOffset;
    EXPECT_TRUE(std::equal(exact.begin(), exact.end(), data));
    EXPECT_TRUE(std::equal(overflowing.begin(), overflowing.end(), data + 32768));
    EXPECT_TRUE(
        std::all_of(data + 32768 + 32769, bytes.end(), [](unsigned char byte) { return byte == 0xAD; }));
    EXPECT_TRUE(
        std::all_of(bytes.begin() + 21 + 2 * 272, data, [](unsigned char byte) { return byte == 0xAD; }));
}

TEST_F(PackedFileTest, EntriesStandInDepthFirstOrderChildrenBeforeTheirParent) {
    Bytes one{1};
    Bytes bytes = SavePack({{"b/x", one}, {"a", one}, {"b/y", one}, {"b", one}, {"b/z/w", one}});
    RawPack pack = ParsePack(bytes);
    std::vector<std::string> names;
    for (const RawEntry& entry : pack.entries) {
        names.push_back(entry.name);
    }
    EXPECT_EQ(names, (std::vector<std::string>{"b/x", "b/y", "b/z/w", "b", "a"}));
    // Offsets follow the order of adding, not the order of the table.
    EXPECT_EQ(pack.entries[4].offset, 32768u);
    EXPECT_EQ(pack.entries[3].offset, 3u * 32768);
}

TEST_F(PackedFileTest, CompressedFilesAreOneZlibStreamEvenWhenLarger) {
    Bytes text(50000, 'z');
    Bytes noise = RandomBytes(100, 3);
    Bytes bytes = SavePack({{"text.txt", text}, {"noise.bin", noise}}, true, false);
    RawPack pack = ParsePack(bytes);
    ASSERT_EQ(pack.entries.size(), 2u);
    for (size_t index = 0; index < 2; ++index) {
        const RawEntry& entry = pack.entries[index];
        const Bytes& source = index == 0 ? text : noise;
        EXPECT_EQ(entry.uncompressedSize, source.size());
        uLongf inflatedSize = static_cast<uLongf>(source.size());
        Bytes inflated(source.size());
        ASSERT_EQ(
            uncompress(inflated.data(), &inflatedSize, &bytes[pack.dataOffset + entry.offset], entry.size),
            Z_OK);
        EXPECT_EQ(inflated, source);
    }
    EXPECT_LT(pack.entries[0].size, 1000u);
    EXPECT_GT(pack.entries[1].size, 100u);
}

TEST_F(PackedFileTest, AFileAddedTwiceIsReportedAndTheFirstStays) {
    ScopedCapture capture;
    Bytes first{1, 2, 3};
    Bytes second{4, 5};
    Bytes bytes = SavePack({{"twice.bin", first}, {"TWICE.bin", second}});
    EXPECT_EQ(capture.Messages(), std::vector<std::string>{"File TWICE.bin already added to packed file!"});
    ASSERT_EQ(capture.Reports().size(), 1u);
    EXPECT_EQ(capture.Reports()[0].function, "zn::PackedFile::AddRawBuffer");
    RawPack pack = ParsePack(bytes);
    ASSERT_EQ(pack.entries.size(), 1u);
    EXPECT_EQ(pack.entries[0].size, 3u);
    EXPECT_EQ(bytes.size(), 2u * 32768);
}

TEST_F(PackedFileTest, NamesOf255CharactersAndMoreAreRefusedBeforeAnyByteIsWritten) {
    PackedFile writer(true);
    ScopedCapture capture;
    std::string longest(254, 'n');
    std::string tooLong(255, 'n');
    EXPECT_TRUE(writer.AddFile(longest.c_str(), "abc", 3, false));
    writer.AddFile(tooLong.c_str(), "abc", 3, false);
    writer.AddFile((tooLong + "more").c_str(), "abc", 3, false);
    writer.AddFile("", "abc", 3, false);
    EXPECT_EQ(capture.Messages(),
              (std::vector<std::string>{"File size larger than max!", "File size larger than max!",
                                        "PackedFile: A file without a name can't be added."}));
    EXPECT_EQ(writer.GetNbFiles(), 1u);
    ASSERT_TRUE(writer.Save(PathOf(PackPath())));
    Bytes bytes = ReadBytes(PackPath());
    RawPack pack = ParsePack(bytes);
    ASSERT_EQ(pack.entries.size(), 1u);
    EXPECT_EQ(pack.entries[0].name, longest);
    EXPECT_EQ(bytes.size(), 2u * 32768);
}

TEST_F(PackedFileTest, OperationsOfTheOtherModeAreReported) {
    PackedFile writer(true);
    PackedFile reader(false);
    ScopedCapture capture;
    bool mapped = true;
    char* base = nullptr;
    unsigned int size = 0;
    unsigned int offset = 0;
    unsigned int viewSize = 0;
    EXPECT_FALSE(reader.AddFile("a", "x", 1, false));
    EXPECT_FALSE(reader.AddFile("a", PathOf(m_Media / "a.bin"), false));
    EXPECT_FALSE(reader.Save(PathOf(PackPath())));
    EXPECT_FALSE(writer.Load(PathOf(PackPath())));
    EXPECT_FALSE(writer.GetFileData("a", mapped, base, size, offset, viewSize));
    reader.SetAllowMemoryMapping(false);
    EXPECT_FALSE(reader.GetAllowMemoryMapping());
    EXPECT_TRUE(writer.GetAllowMemoryMapping());
    EXPECT_EQ(capture.Messages(), (std::vector<std::string>{
                                      "PackedFile: Called AddFile while not in write mode.",
                                      "PackedFile: Called AddFile while not in write mode.",
                                      "PackedFile: Called Write while not in write mode.",
                                      "PackedFile: Called Load while in write mode.",
                                      "PackedFile: Called GetFileData while in write mode.",
                                      "Can not set memory map flag if reading packed file!",
                                      "Error readiing packed file header!",
                                  }));
    ExpectAllOnChannel(capture, LogAssertProgrammer);
    EXPECT_FALSE(std::filesystem::exists(PackPath()));
}

TEST_F(PackedFileTest, AddingFromDiskTakesMissingEmptyAndOversizedFilesAsNothing) {
    std::filesystem::path source = m_Media / "Public" / "Game" / "x.znb";
    Bytes content = RandomBytes(1000, 4);
    WriteBytes(source, content);
    WriteBytes(m_Media / "empty.znb", {});
    std::filesystem::path huge = m_Temp.Folder() / "huge.bin";
    WriteBytes(huge, {});
    std::filesystem::resize_file(huge, 0x40000001);

    PackedFile writer(true);
    ScopedCapture capture;
    EXPECT_FALSE(writer.AddFile("missing", PathOf(m_Media / "missing.znb"), false));
    EXPECT_FALSE(writer.AddFile("empty", PathOf(m_Media / "empty.znb"), false));
    EXPECT_FALSE(writer.AddFile("huge", PathOf(huge), false));
    EXPECT_TRUE(writer.AddFile(PathOf(source), PathOf(source), false));
    std::string mediaText = m_Media.string();
    EXPECT_EQ(capture.Messages(),
              (std::vector<std::string>{
                  "The read file " + mediaText + "/missing.znb doesn't seem to exist.",
                  "File " + huge.string() + " is larger than the max packed file size: 1073741824!"}));
    ASSERT_TRUE(writer.Save(PathOf(PackPath())));
    RawPack pack = ParsePack(ReadBytes(PackPath()));
    ASSERT_EQ(pack.entries.size(), 1u);
    // A path is stored relative to the media root.
    EXPECT_EQ(pack.entries[0].name, "Public/Game/x.znb");
    EXPECT_EQ(pack.entries[0].size, 1000u);
}

// ---------------------------------------------------------------------------------------------
// Reading

TEST_F(PackedFileTest, ReadsBackEveryFileMappedAndAsABlock) {
    Bytes small = RandomBytes(5000, 5);
    Bytes large = RandomBytes(0x100000 + 7, 6);
    SavePack({{"dir/small.bin", small}, {"large.bin", large}});
    PackedFile reader(false);
    ASSERT_TRUE(reader.Load(PathOf(PackPath())));
    EXPECT_EQ(reader.GetNbFiles(), 2u);
    EXPECT_FALSE(reader.IsEmpty());
    EXPECT_TRUE(reader.GetAllowMemoryMapping());
    EXPECT_EQ(reader.GetFileSize("DIR/Small.bin"), 5000u);
    EXPECT_TRUE(reader.ContainsFile("dir"));
    EXPECT_FALSE(reader.ContainsFile("other"));
    EXPECT_EQ(reader.GetFileSize("dir"), 0u);

    for (bool wantMapped : {true, false}) {
        Bytes content;
        bool gotMapped = !wantMapped;
        ASSERT_TRUE(FetchFromPack(reader, "dir/small.bin", wantMapped, content, &gotMapped));
        EXPECT_EQ(content, small);
        EXPECT_EQ(gotMapped, wantMapped);
        ASSERT_TRUE(FetchFromPack(reader, "large.bin", wantMapped, content));
        EXPECT_EQ(content, large);
    }

    // A view starts on a page and reaches the file's end; the bytes start at the offset within it.
    bool mapped = true;
    char* base = nullptr;
    unsigned int size = 0;
    unsigned int offset = 0;
    unsigned int viewSize = 0;
    ASSERT_TRUE(reader.GetFileData("large.bin", mapped, base, size, offset, viewSize));
    size_t page = platform::MappingGranularity();
    uint64_t fileOffset = 32768 + 32768;
    EXPECT_EQ(offset, fileOffset % page);
    EXPECT_EQ(viewSize, offset + size);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(base) % page, 0u);
    ReleaseFileData(mapped, base, size, viewSize);

    // Blocks follow the size rule FileReader frees them by.
    for (const char* name : {"dir/small.bin", "large.bin"}) {
        mapped = false;
        ASSERT_TRUE(reader.GetFileData(name, mapped, base, size, offset, viewSize));
        HeapBase* heap = HeapBase::FindHeapByPtr(base);
        ASSERT_NE(heap, nullptr);
        EXPECT_STREQ(heap->GetHeapName(), size >= 0x100000 ? "LARGEBLOCK" : "GLOBAL");
        ReleaseFileData(mapped, base, size, viewSize);
    }

    // The library's own release gives a block back to its heap and unmaps a view; null is ignored.
    for (const char* name : {"dir/small.bin", "large.bin"}) {
        mapped = false;
        ASSERT_TRUE(reader.GetFileData(name, mapped, base, size, offset, viewSize));
        HeapBase* heap = HeapBase::FindHeapByPtr(base);
        ASSERT_NE(heap, nullptr);
        size_t inUse = heap->GetMemoryInUse();
        PackedFile::ReleaseFileData(mapped, base, size, viewSize);
        EXPECT_LT(heap->GetMemoryInUse(), inUse) << name;
    }
    mapped = true;
    ASSERT_TRUE(reader.GetFileData("large.bin", mapped, base, size, offset, viewSize));
    ASSERT_TRUE(mapped);
    EXPECT_EQ(msync(base, viewSize, MS_ASYNC), 0);
    PackedFile::ReleaseFileData(mapped, base, size, viewSize);
    EXPECT_NE(msync(base, viewSize, MS_ASYNC), 0) << "the view is still mapped";
    PackedFile::ReleaseFileData(false, nullptr, 5000, 0);

    ScopedCapture capture;
    Bytes content;
    EXPECT_FALSE(FetchFromPack(reader, "unknown.bin", false, content));
    EXPECT_FALSE(FetchFromPack(reader, "dir", false, content));
    EXPECT_TRUE(capture.Messages().empty());
}

TEST_F(PackedFileTest, CompressedFilesComeInflatedAsBlocksAndMappingCanBeForbidden) {
    Bytes text(70000, 'q');
    SavePack({{"text.txt", text}, {"empty.txt", {}}}, true, false);
    PackedFile reader(false);
    ASSERT_TRUE(reader.Load(PathOf(PackPath())));
    EXPECT_FALSE(reader.GetAllowMemoryMapping());
    EXPECT_EQ(reader.GetFileSize("text.txt"), 70000u);
    Bytes content;
    bool gotMapped = true;
    ASSERT_TRUE(FetchFromPack(reader, "text.txt", true, content, &gotMapped));
    EXPECT_FALSE(gotMapped);
    EXPECT_EQ(content, text);
    ASSERT_TRUE(FetchFromPack(reader, "empty.txt", true, content, &gotMapped));
    EXPECT_TRUE(content.empty());
    EXPECT_FALSE(gotMapped);
}

TEST_F(PackedFileTest, AMappablePackStillHandsCompressedFilesOutAsBlocks) {
    Bytes text(40000, 'r');
    SavePack({{"text.txt", text}}, true, true);
    PackedFile reader(false);
    ASSERT_TRUE(reader.Load(PathOf(PackPath())));
    Bytes content;
    bool gotMapped = true;
    ASSERT_TRUE(FetchFromPack(reader, "text.txt", true, content, &gotMapped));
    EXPECT_FALSE(gotMapped);
    EXPECT_EQ(content, text);
}

TEST_F(PackedFileTest, VersionSixIsRefusedAndEightIsRead) {
    Bytes data = RandomBytes(100, 7);
    // One capture for the loop: a log manager has a fixed number of logger slots.
    ScopedCapture capture;
    for (uint32_t version : {6u, 8u}) {
        Bytes bytes = BuildPackHead(version, 1, 1, {{"f.bin", 0, 100, 0, 0}});
        bytes.insert(bytes.end(), data.begin(), data.end());
        bytes.resize(bytes.size() + 32768 - 100, 0xAD);
        WriteBytes(PackPath(), bytes);
        PackedFile reader(false);
        capture.Logger().Clear();
        bool loaded = reader.Load(PathOf(PackPath()));
        EXPECT_EQ(loaded, version == 8);
        Bytes content;
        EXPECT_EQ(FetchFromPack(reader, "f.bin", false, content), version == 8);
        if (version == 6) {
            EXPECT_EQ(capture.Messages(), std::vector<std::string>{kWrongVersion});
            EXPECT_EQ(capture.Reports()[0].function, "zn::PackedFile::Load");
        } else {
            EXPECT_EQ(content, data);
            EXPECT_TRUE(capture.Messages().empty());
        }
    }
}

TEST_F(PackedFileTest, LoadingAgainForgetsTheEarlierPackAndAMissingFileIsReported) {
    SavePack({{"first.bin", {1}}});
    PackedFile reader(false);
    ASSERT_TRUE(reader.Load(PathOf(PackPath())));
    std::filesystem::rename(PackPath(), PackPath("old.pak"));
    SavePack({{"second.bin", {2}}});
    ASSERT_TRUE(reader.Load(PathOf(PackPath())));
    EXPECT_FALSE(reader.ContainsFile("first.bin"));
    EXPECT_TRUE(reader.ContainsFile("second.bin"));
    EXPECT_EQ(reader.GetFilePath(), PathOf(PackPath()));

    ScopedCapture capture;
    std::string missing = (m_Temp.Folder() / "none.pak").string();
    EXPECT_FALSE(reader.Load(PathOf(m_Temp.Folder() / "none.pak")));
    EXPECT_EQ(capture.Messages(), (std::vector<std::string>{"Opening of file " + missing + " failed!",
                                                            "Failed to load pack file: " + missing}));
}

TEST_F(PackedFileTest, ManyThreadsReadOnePack) {
    std::vector<std::pair<std::string, Bytes>> files;
    for (unsigned int index = 0; index < 8; ++index) {
        files.emplace_back("t/file" + std::to_string(index), RandomBytes(1000 + index * 5000, 100 + index));
    }
    SavePack(files, false, true);
    PackedFile reader(false);
    ASSERT_TRUE(reader.Load(PathOf(PackPath())));
    std::atomic<unsigned int> wrong{0};
    std::vector<std::thread> threads;
    for (unsigned int thread = 0; thread < 4; ++thread) {
        threads.emplace_back([&, thread] {
            for (unsigned int round = 0; round < 50; ++round) {
                const auto& [name, source] = files[(thread + round) % files.size()];
                Bytes content;
                if (!FetchFromPack(reader, name.c_str(), (round & 1) != 0, content) || content != source) {
                    ++wrong;
                }
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(wrong.load(), 0u);
}

// ---------------------------------------------------------------------------------------------
// Parts

TEST_F(PackedFileTest, APartTakesNoFurtherFileOnceItsDataReachedTheLimit) {
    PackedFileSeam::SetPartDataLimit(65536);
    Bytes a = RandomBytes(30000, 8);
    Bytes b = RandomBytes(70000, 9);
    Bytes c = RandomBytes(10, 10);
    Bytes d = RandomBytes(20, 11);
    // The test comes before the write: after a, part 0 is under the limit, so b joins it and takes
    // the part well past the limit; c then opens part 1.
    Bytes bytes = SavePack({{"a", a}, {"b", b}, {"c", c}, {"d", d}});
    RawPack pack = ParsePack(bytes);
    EXPECT_EQ(pack.numParts, 2u);
    ASSERT_EQ(pack.entries.size(), 4u);
    EXPECT_EQ(pack.entries[0].partIndex, 0u);
    EXPECT_EQ(pack.entries[1].partIndex, 0u);
    EXPECT_EQ(pack.entries[1].offset, 32768u);
    EXPECT_EQ(pack.entries[2].partIndex, 1u);
    EXPECT_EQ(pack.entries[2].offset, 0u);
    EXPECT_EQ(pack.entries[3].partIndex, 1u);
    EXPECT_EQ(pack.entries[3].offset, 32768u);
    EXPECT_EQ(bytes.size(), pack.dataOffset + 32768u + 3 * 32768u);
    Bytes part = ReadBytes(PackPath("test_1.pak"));
    ASSERT_EQ(part.size(), 65536u);
    EXPECT_TRUE(std::equal(c.begin(), c.end(), part.begin()));
    EXPECT_TRUE(std::equal(d.begin(), d.end(), part.begin() + 32768));
    EXPECT_FALSE(std::filesystem::exists(PackPath("test_2.pak")));

    PackedFile reader(false);
    ASSERT_TRUE(reader.Load(PathOf(PackPath())));
    const std::vector<std::pair<const char*, const Bytes*>> expected{
        {"a", &a}, {"b", &b}, {"c", &c}, {"d", &d}};
    for (const auto& [name, source] : expected) {
        for (bool wantMapped : {true, false}) {
            Bytes content;
            ASSERT_TRUE(FetchFromPack(reader, name, wantMapped, content)) << name;
            EXPECT_EQ(content, *source) << name;
        }
    }

    std::filesystem::remove(PackPath("test_1.pak"));
    ScopedCapture capture;
    PackedFile broken(false);
    EXPECT_FALSE(broken.Load(PathOf(PackPath())));
    EXPECT_EQ(capture.Messages(),
              std::vector<std::string>{"Packed file " + PackPath().string() + " is missing file " +
                                       PackPath("test_1.pak").string() + ", pack not loaded correctly!"});
    // What was read stays: the table is there, the missing part's files are not readable.
    EXPECT_TRUE(broken.ContainsFile("c"));
    Bytes content;
    EXPECT_TRUE(FetchFromPack(broken, "a", false, content));
    EXPECT_FALSE(FetchFromPack(broken, "c", false, content));
}

TEST_F(PackedFileTest, AHandMadePackReadsFromFarIntoASparsePart) {
    const uint32_t farOffset = 0x50000123;
    Bytes near = RandomBytes(3000, 12);
    Bytes far = RandomBytes(9000, 13);
    Bytes head =
        BuildPackHead(7, 2, 1, {{"near.bin", 0, 3000, 0, 0}, {"deep/far.bin", farOffset, 9000, 0, 1}});
    head.insert(head.end(), near.begin(), near.end());
    WriteBytes(PackPath("hand.pak"), head);
    {
        std::fstream part(PackPath("hand_1.pak"), std::ios::binary | std::ios::out | std::ios::trunc);
        part.seekp(farOffset);
        part.write(reinterpret_cast<const char*>(far.data()), static_cast<std::streamsize>(far.size()));
    }
    PackedFile reader(false);
    ASSERT_TRUE(reader.Load(PathOf(PackPath("hand.pak"))));
    for (bool wantMapped : {true, false}) {
        Bytes content;
        ASSERT_TRUE(FetchFromPack(reader, "near.bin", wantMapped, content));
        EXPECT_EQ(content, near);
        ASSERT_TRUE(FetchFromPack(reader, "deep/far.bin", wantMapped, content));
        EXPECT_EQ(content, far);
    }
}

// ---------------------------------------------------------------------------------------------
// Packs that lie

// Every file of the pack either reads back as saved or is refused; nothing reads out of bounds.
void ExpectNoWrongContent(PackedFile& reader, const std::vector<std::pair<std::string, Bytes>>& files) {
    for (const auto& [name, source] : files) {
        for (bool wantMapped : {true, false}) {
            Bytes content;
            if (FetchFromPack(reader, name.c_str(), wantMapped, content)) {
                EXPECT_EQ(content.size(), source.size()) << name;
            }
        }
    }
}

TEST_F(PackedFileTest, TruncatedPacksAreRefusedOrServeOnlyWhatIsThere) {
    std::vector<std::pair<std::string, Bytes>> files{{"a/one.bin", RandomBytes(1000, 14)},
                                                     {"two.bin", RandomBytes(40000, 15)},
                                                     {"a/three", RandomBytes(5, 16)}};
    Bytes whole = SavePack(files);
    std::vector<size_t> cuts{0,     1,     3,     4,     8,
                             12,    16,    17,    20,    21,
                             100,   292,   293,   294,   500,
                             837,   838,   4096,  32768, 32769,
                             33768, 65535, 65536, 80000, whole.size() - 1};
    ScopedCapture capture;
    for (size_t cut : cuts) {
        WriteBytes(PackPath("cut.pak"), Bytes(whole.begin(), whole.begin() + static_cast<long>(cut)));
        capture.Logger().Clear();
        PackedFile reader(false);
        bool loaded = reader.Load(PathOf(PackPath("cut.pak")));
        EXPECT_EQ(loaded, cut >= 837) << cut;
        if (!loaded && cut > 0) {
            EXPECT_TRUE(Contains(capture.Messages(), kWrongVersion)) << cut;
            EXPECT_EQ(reader.GetNbFiles(), 0u) << cut;
        }
        ExpectNoWrongContent(reader, files);
    }
}

TEST_F(PackedFileTest, LyingTablesAreRefusedWhole) {
    Bytes data(32768, 0x11);
    struct Case {
        const char* what;
        std::function<void(Bytes&)> corrupt;
    };
    std::vector<Case> cases{
        {"toc larger than the file", [](Bytes& b) { PutU32(b, 12, 0x7FFFFFF0); }},
        {"toc size below the count", [](Bytes& b) { PutU32(b, 12, 2); }},
        {"count disagrees with toc", [](Bytes& b) { PutU32(b, 17, 3); }},
        {"huge count", [](Bytes& b) { PutU32(b, 17, 0xFFFFFFFF); }},
        {"name without terminator", [](Bytes& b) { std::memset(&b[21], 'x', 256); }},
        {"part beyond the parts", [](Bytes& b) { PutU32(b, 21 + 268, 1); }},
        {"too many parts", [](Bytes& b) { PutU32(b, 8, 300); }},
    };
    ScopedCapture capture;
    for (const Case& testCase : cases) {
        Bytes bytes = BuildPackHead(7, 1, 1, {{"f.bin", 0, 100, 0, 0}});
        bytes.insert(bytes.end(), data.begin(), data.end());
        testCase.corrupt(bytes);
        WriteBytes(PackPath("lie.pak"), bytes);
        capture.Logger().Clear();
        PackedFile reader(false);
        EXPECT_FALSE(reader.Load(PathOf(PackPath("lie.pak")))) << testCase.what;
        EXPECT_EQ(capture.Messages(), std::vector<std::string>{kWrongVersion}) << testCase.what;
        EXPECT_EQ(reader.GetNbFiles(), 0u) << testCase.what;
    }
}

TEST_F(PackedFileTest, EntriesThatReachPastTheirPartAreRefused) {
    Bytes data(32768, 0x22);
    Bytes bytes = BuildPackHead(7, 1, 1,
                                {{"past.bin", 32000, 769, 0, 0},
                                 {"far.bin", 0xFFFFFF00, 0x200, 0, 0},
                                 {"huge.bin", 0, 0xFFFFFFFF, 0, 0},
                                 {"edge.bin", 32000, 768, 0, 0}});
    bytes.insert(bytes.end(), data.begin(), data.end());
    WriteBytes(PackPath("lie.pak"), bytes);
    PackedFile reader(false);
    ASSERT_TRUE(reader.Load(PathOf(PackPath("lie.pak"))));
    ScopedCapture capture;
    Bytes content;
    for (const char* name : {"past.bin", "far.bin", "huge.bin"}) {
        EXPECT_FALSE(FetchFromPack(reader, name, true, content)) << name;
        EXPECT_FALSE(FetchFromPack(reader, name, false, content)) << name;
    }
    EXPECT_EQ(capture.Messages(), (std::vector<std::string>{"Mapping of file failed, err 22", kReadError,
                                                            "Mapping of file failed, err 22", kReadError,
                                                            "Mapping of file failed, err 22", kReadError}));
    ASSERT_TRUE(FetchFromPack(reader, "edge.bin", true, content));
    EXPECT_EQ(content, Bytes(768, 0x22));
}

TEST_F(PackedFileTest, CompressedSizesThatLieAreReportedAndNothingIsHandedOut) {
    Bytes source(20000, 'c');
    uLongf deflatedSize = compressBound(static_cast<uLong>(source.size()));
    Bytes deflated(deflatedSize);
    ASSERT_EQ(compress(deflated.data(), &deflatedSize, source.data(), static_cast<uLong>(source.size())),
              Z_OK);
    deflated.resize(deflatedSize);
    uint32_t stored = static_cast<uint32_t>(deflated.size());
    Bytes bytes = BuildPackHead(7, 1, 0,
                                {{"good", 0, stored, 20000, 0},
                                 {"more", 0, stored, 20001, 0},
                                 {"less", 0, stored, 19999, 0},
                                 {"bomb", 0, stored, 0xFFFFFFFF, 0},
                                 {"cut", 0, stored - 10, 20000, 0},
                                 {"noise", 32768, 100, 5000, 0}});
    deflated.resize(32768, 0xAD);
    bytes.insert(bytes.end(), deflated.begin(), deflated.end());
    Bytes noise = RandomBytes(32768, 17);
    bytes.insert(bytes.end(), noise.begin(), noise.end());
    WriteBytes(PackPath("lie.pak"), bytes);
    PackedFile reader(false);
    ASSERT_TRUE(reader.Load(PathOf(PackPath("lie.pak"))));
    Bytes content;
    ASSERT_TRUE(FetchFromPack(reader, "good", true, content));
    EXPECT_EQ(content, source);
    ScopedCapture capture;
    for (const char* name : {"more", "less", "bomb", "cut", "noise"}) {
        capture.Logger().Clear();
        EXPECT_FALSE(FetchFromPack(reader, name, false, content)) << name;
        EXPECT_EQ(capture.Messages(), std::vector<std::string>{kMismatch}) << name;
    }
}

TEST_F(PackedFileTest, RandomDamageToHeaderAndTableNeverReadsOutOfBounds) {
    std::vector<std::pair<std::string, Bytes>> files{{"x/a.bin", RandomBytes(700, 18)},
                                                     {"b.bin", RandomBytes(33000, 19)}};
    Bytes whole = SavePack(files, true, false);
    std::mt19937 generator(20);
    size_t headAndTable = 21 + 2 * 272;
    ScopedCapture capture;
    for (int round = 0; round < 150; ++round) {
        Bytes bytes = whole;
        int flips = 1 + static_cast<int>(generator() % 4);
        for (int flip = 0; flip < flips; ++flip) {
            bytes[generator() % headAndTable] ^= static_cast<unsigned char>(1u << (generator() % 8));
        }
        WriteBytes(PackPath("fuzz.pak"), bytes);
        capture.Logger().Clear();
        PackedFile reader(false);
        reader.Load(PathOf(PackPath("fuzz.pak")));
        ExpectNoWrongContent(reader, files);
    }
}

}  // namespace
}  // namespace zn::test
