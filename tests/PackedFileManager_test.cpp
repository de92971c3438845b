// PackedFileManager_test.cpp: which packs the manager loads from the media folder and the user's
// "Mods" folder, in which order it asks them, and how it falls through between them.
#include "CoreLib/PackedFileManager.h"
#include "CoreLib/FileReader.h"
#include "CoreLib/PackedFile.h"
#include "CoreLib/platform/Folders.h"
#include "tests/support/PackTestSupport.h"

#include <gtest/gtest.h>

#include <string>

namespace zn::test {
namespace {

class PackedFileManagerTest : public PackFixture {
protected:
    void TearDown() override {
        platform::SetHomeFolderOverride(nullptr);
        PackFixture::TearDown();
    }

    // Writes a pack of (name, text) files with the library's writer.
    void MakePack(const std::filesystem::path& path,
                  const std::vector<std::pair<std::string, std::string>>& files, bool compress = false) {
        PackedFile writer(true);
        for (const auto& [name, text] : files) {
            ASSERT_TRUE(
                writer.AddFile(name.c_str(), text.data(), static_cast<unsigned int>(text.size()), compress));
        }
        writer.SetAllowMemoryMapping(!compress);
        ASSERT_TRUE(writer.Save(PathOf(path)));
    }

    Path MediaFile(const wchar_t* name) const { return Path(STDWString(name), Path::ROOT_MEDIA); }

    // The text the manager serves for a media-relative name; "" when no pack has it.
    std::string Served(const wchar_t* name, bool wantMapped = true) {
        bool mapped = wantMapped;
        char* base = nullptr;
        unsigned int size = 0;
        unsigned int offset = 0;
        unsigned int viewSize = 0;
        if (!Manager().GetFileData(MediaFile(name), mapped, &base, size, offset, viewSize)) {
            return "";
        }
        std::string text(base + offset, size);
        ReleaseFileData(mapped, base, size, viewSize);
        return text;
    }

    std::vector<std::string> LoadedPacks() {
        std::vector<std::string> names;
        for (unsigned int index = 0; index < Manager().GetPackCount(); ++index) {
            names.emplace_back(Manager().GetPack(index)->GetFilePath().ToFixedString().ToChar());
        }
        return names;
    }

    // The user folder under the temporary folder, with the application folder "s/a" in it.
    std::filesystem::path UseTemporaryUserFolder(const std::filesystem::path& home) {
        std::filesystem::create_directories(home);
        platform::SetHomeFolderOverride(home.string().c_str());
        FileSystem::SetStudioName(L"s");
        FileSystem::SetAppName(L"a");
        return home / "s" / "a" / "Mods";
    }
};

TEST_F(PackedFileManagerTest, AnEmptyMediaFolderCollectsNoPackAndAnswersNothing) {
    ScopedCapture capture;
    Manager().CollectPackFiles();
    EXPECT_EQ(Manager().GetPackCount(), 0u);
    EXPECT_FALSE(Manager().DoesFileExist(MediaFile(L"x.dds")));
    EXPECT_FALSE(Manager().DirectoryExists(MediaFile(L"dir")));
    EXPECT_EQ(Manager().GetFileSize(MediaFile(L"x.dds")), 0u);
    EXPECT_EQ(Served(L"x.dds"), "");
    ObjectSet<Path> found;
    Manager().CollectFiles(MediaFile(L""), L"*", true, found);
    Manager().CollectDirectories(MediaFile(L""), true, found);
    EXPECT_EQ(found.GetSize(), 0u);
    EXPECT_TRUE(capture.Messages().empty());
}

TEST_F(PackedFileManagerTest, TheFirstPackInPathOrderServesANameThatSeveralHold) {
    MakePack(m_Media / "b.pak", {{"x.dds", "from b"}, {"only_b.dds", "b alone"}, {"dir/in.znb", "dir of b"}});
    MakePack(m_Media / "a.pak", {{"X.DDS", "from a"}, {"dir/in.znb", "dir of a"}}, true);
    Manager().CollectPackFiles();
    EXPECT_EQ(LoadedPacks(),
              (std::vector<std::string>{(m_Media / "a.pak").string(), (m_Media / "b.pak").string()}));
    EXPECT_EQ(Served(L"x.dds"), "from a");
    EXPECT_EQ(Served(L"only_b.dds", false), "b alone");
    EXPECT_TRUE(Manager().DoesFileExist(MediaFile(L"only_b.dds")));
    EXPECT_TRUE(Manager().DoesFileExist(MediaFile(L"dir")));
    EXPECT_EQ(Manager().GetFileSize(MediaFile(L"x.dds")), 6u);
    EXPECT_TRUE(Manager().DirectoryExists(MediaFile(L"dir")));
    EXPECT_FALSE(Manager().DirectoryExists(Path(STDWString(L"dir"), Path::ROOT_WORKING)));

    // The wide form names the file by its whole text.
    bool mapped = true;
    char* base = nullptr;
    unsigned int size = 0;
    unsigned int offset = 0;
    unsigned int viewSize = 0;
    std::wstring whole = Wide(m_Media / "only_b.dds").ToChar();
    ASSERT_TRUE(Manager().GetFileData(whole.c_str(), mapped, &base, size, offset, viewSize));
    EXPECT_EQ(std::string(base + offset, size), "b alone");
    ReleaseFileData(mapped, base, size, viewSize);

    // Every pack lists its files: a name in two packs is listed twice.
    ObjectSet<Path> files;
    Manager().CollectFiles(MediaFile(L"dir"), L"*.znb", false, files);
    ASSERT_EQ(files.GetSize(), 2u);
    EXPECT_EQ(files[0], files[1]);
    ObjectSet<Path> directories;
    Manager().CollectDirectories(MediaFile(L""), false, directories);
    EXPECT_EQ(directories.GetSize(), 2u);

    // FileReader asks the packs before the disk.
    FileReader reader(MediaFile(L"x.dds"), true, false);
    ASSERT_TRUE(reader.IsLoaded());
    EXPECT_TRUE(reader.FromPackFile());
    EXPECT_EQ(std::string(static_cast<char*>(reader.GetData()), reader.GetFileSize()), "from a");
}

// A pack that allows mapping serves a reader a view for an entry of the threshold's size and a block
// for anything smaller; Ref works on both.
TEST_F(PackedFileManagerTest, ReadersMapOnlyLargeEntries) {
    std::string large(FileReader::kSmallestMappedPackEntry, 'L');
    large.front() = 'F';
    std::string justBelow(FileReader::kSmallestMappedPackEntry - 1, 'b');
    MakePack(m_Media / "sizes.pak", {{"large.bin", large}, {"below.bin", justBelow}, {"small.txt", "tiny"}});
    Manager().CollectPackFiles();
    struct Case {
        const wchar_t* name;
        const std::string* text;
        FileReader::TBufferType type;
    };
    const std::string tiny = "tiny";
    for (const Case& test : {Case{L"large.bin", &large, FileReader::BufferType_MemoryMapped},
                             Case{L"below.bin", &justBelow, FileReader::BufferType_Buffer},
                             Case{L"small.txt", &tiny, FileReader::BufferType_Buffer}}) {
        FileReader reader(MediaFile(test.name), false, false);
        ASSERT_TRUE(reader.IsLoaded());
        EXPECT_TRUE(reader.FromPackFile());
        EXPECT_EQ(reader.GetType(), test.type);
        ASSERT_EQ(reader.GetFileSize(), test.text->size());
        void* pointer = nullptr;
        ASSERT_EQ(reader.Ref(pointer, 4), 4u);
        EXPECT_EQ(std::string(static_cast<char*>(pointer), 4), test.text->substr(0, 4));
        EXPECT_EQ(std::string(static_cast<char*>(reader.GetData()), reader.GetFileSize()), *test.text);
    }
}

TEST_F(PackedFileManagerTest, AModFolderOfThePacksNameShadowsThePack) {
    MakePack(m_Media / "Main.pak", {{"Mods/Main/x.txt", "packed"}});
    MakePack(m_Media / "Other.pak", {{"y.txt", "other"}});
    WriteBytes(m_Media / "Mods" / "Main" / "x.txt", {'l', 'o', 'o', 's', 'e'});
    Manager().CollectPackFiles();
    EXPECT_EQ(LoadedPacks(), std::vector<std::string>{(m_Media / "Other.pak").string()});
    EXPECT_FALSE(Manager().DoesFileExist(MediaFile(L"Mods/Main/x.txt")));
    FileReader reader(MediaFile(L"Mods/Main/x.txt"), true, false);
    ASSERT_TRUE(reader.IsLoaded());
    EXPECT_FALSE(reader.FromPackFile());
    EXPECT_EQ(std::string(static_cast<char*>(reader.GetData()), reader.GetFileSize()), "loose");
}

TEST_F(PackedFileManagerTest, PartFilesAreReachedOnlyThroughTheirPack) {
    PackedFileSeam::SetPartDataLimit(1);
    MakePack(m_Media / "Main.pak", {{"first.txt", "one"}, {"second.txt", "two"}});
    PackedFileSeam::RestorePartDataLimit();
    ASSERT_TRUE(std::filesystem::exists(m_Media / "Main_1.pak"));
    // A one-digit suffix above 0 marks a part; anything else is a pack of its own.
    MakePack(m_Media / "data_12.pak", {{"twelve.txt", "12"}});
    MakePack(m_Media / "data_0.pak", {{"zero.txt", "0"}});
    MakePack(m_Media / "_5.pak", {{"five.txt", "5"}});
    Manager().CollectPackFiles();
    EXPECT_EQ(LoadedPacks(), (std::vector<std::string>{
                                 (m_Media / "Main.pak").string(), (m_Media / "_5.pak").string(),
                                 (m_Media / "data_0.pak").string(), (m_Media / "data_12.pak").string()}));
    EXPECT_EQ(Served(L"second.txt"), "two");
    EXPECT_EQ(Served(L"first.txt", false), "one");
    EXPECT_EQ(Served(L"twelve.txt"), "12");
}

TEST_F(PackedFileManagerTest, RefreshLoadsOnlyNewPacksAndPutsThemLast) {
    MakePack(m_Media / "m.pak", {{"x.txt", "m"}});
    Manager().CollectPackFiles();
    Manager().RefreshPackFiles();
    EXPECT_EQ(Manager().GetPackCount(), 1u);
    MakePack(m_Media / "a.pak", {{"x.txt", "a"}, {"new.txt", "new"}});
    Manager().RefreshPackFiles();
    Manager().RefreshPackFiles();
    EXPECT_EQ(LoadedPacks(),
              (std::vector<std::string>{(m_Media / "m.pak").string(), (m_Media / "a.pak").string()}));
    EXPECT_EQ(Served(L"x.txt"), "m");
    EXPECT_EQ(Served(L"new.txt"), "new");
    // A collection starts over in path order.
    Manager().CollectPackFiles();
    EXPECT_EQ(Served(L"x.txt"), "a");
    Manager().Destroy();
    EXPECT_EQ(Manager().GetPackCount(), 0u);
}

TEST_F(PackedFileManagerTest, MediaAndUserModPacksInterleaveByFullPath) {
    // The user folder is the temporary folder itself, so its "Mods" packs sort between the media's.
    std::filesystem::path mods = UseTemporaryUserFolder(m_Temp.Folder());
    FileSystem::SetMediaPath(Wide(m_Temp.Folder()));
    MakePack(m_Temp.Folder() / "a.pak", {{"in_a.txt", "a"}, {"shared.txt", "a"}});
    MakePack(m_Temp.Folder() / "z.pak", {{"late.txt", "z"}, {"mid.txt", "z"}});
    MakePack(mods / "m.pak", {{"mid.txt", "m"}, {"shared.txt", "m"}});
    Manager().CollectPackFiles();
    EXPECT_EQ(LoadedPacks(),
              (std::vector<std::string>{(m_Temp.Folder() / "a.pak").string(), (mods / "m.pak").string(),
                                        (m_Temp.Folder() / "z.pak").string()}));
    EXPECT_EQ(Served(L"shared.txt"), "a");
    EXPECT_EQ(Served(L"mid.txt"), "m");
    EXPECT_EQ(Served(L"late.txt"), "z");
}

TEST_F(PackedFileManagerTest, UserModPacksComeAfterMediaPacksWhenTheirPathSortsLater) {
    std::filesystem::path mods = UseTemporaryUserFolder(m_Temp.Folder() / "user");
    MakePack(mods / "a.pak", {{"x.txt", "user"}});
    MakePack(m_Media / "z.pak", {{"x.txt", "media"}});
    Manager().CollectPackFiles();
    EXPECT_EQ(LoadedPacks(),
              (std::vector<std::string>{(m_Media / "z.pak").string(), (mods / "a.pak").string()}));
    EXPECT_EQ(Served(L"x.txt"), "media");
}

TEST_F(PackedFileManagerTest, APackThatFailsStaysAndQueriesFallThroughToTheNext) {
    // a.pak names a file whose bytes lie past its end; b.pak holds it properly.
    Bytes head = BuildPackHead(7, 1, 1, {{"x.txt", 0, 5000, 0, 0}});
    head.insert(head.end(), 100, 'a');
    WriteBytes(m_Media / "a.pak", head);
    MakePack(m_Media / "b.pak", {{"x.txt", "from b"}});
    WriteBytes(m_Media / "c.pak", {6, 0, 0, 0});
    ScopedCapture capture;
    Manager().CollectPackFiles();
    EXPECT_EQ(Manager().GetPackCount(), 3u);
    EXPECT_EQ(capture.Messages(),
              std::vector<std::string>{"Failed to load the pack file, wrong version or not a packed file!"});
    EXPECT_EQ(Served(L"x.txt"), "from b");
    EXPECT_EQ(capture.Messages().back(), "Mapping of file failed, err 22");
    EXPECT_EQ(Manager().GetFileSize(MediaFile(L"x.txt")), 5000u);
    FileReader reader(MediaFile(L"x.txt"), true, false);
    ASSERT_TRUE(reader.IsLoaded());
    EXPECT_EQ(std::string(static_cast<char*>(reader.GetData()), reader.GetFileSize()), "from b");
}

}  // namespace
}  // namespace zn::test
