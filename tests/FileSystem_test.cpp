// FileSystem_test.cpp: the settings, the media path, and the user's, binary and working folders
// against the system's own answers; the file and directory operations on real temporary folders,
// checked through the standard library; the version notes of real and hand-built ELF files.
#include "CoreLib/FileSystem.h"

#include "CoreLib/GlobalStringTable.h"
#include "CoreLib/Localization.h"
#include "tests/support/CapturingLogger.h"
#include "tests/support/PathFixture.h"
#include "tests/support/StderrCapture.h"
#include "tests/support/TempDir.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <link.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <utility>
#include <vector>

// The test program's own version, for GetExeVersion.
ZN_EMBED_FILE_VERSION(7, 8, 9, 10);

namespace zn {
namespace {

using test::PathFixture;
using test::ScopedCapture;
using test::ScopedWorkingFolder;
using test::UnitsOf;

class FileSystemSettingsTest : public PathFixture {};

std::wstring Text(const STDWString& text) {
    return std::wstring(text.ToChar(), text.Length());
}

TEST_F(FileSystemSettingsTest, StartUpGivesTheDefaults) {
    EXPECT_TRUE(FileSystem::GetMediaPath().IsEmpty());
    EXPECT_FALSE(FileSystem::GetMediaPath().ToFixedString().IsValid());
    EXPECT_EQ(Text(FileSystem::GetPublicDataPath()), L"");
    EXPECT_EQ(Text(FileSystem::GetActiveModName()), L"Main");
    EXPECT_EQ(Text(FileSystem::GetStudioName()), L"");
    EXPECT_EQ(Text(FileSystem::GetAppName()), L"");

    FileSystem::SetActiveModName(L"Other");
    FileSystem::_SDMInit();
    EXPECT_EQ(Text(FileSystem::GetActiveModName()), L"Main");
}

TEST_F(FileSystemSettingsTest, SettersStoreTheirTextUnprocessed) {
    FileSystem::SetPublicDataPath(L"Data\\Public");
    FileSystem::SetActiveModName(L"My Mod/");
    FileSystem::SetStudioName(L"St\u00FCdio");
    FileSystem::SetAppName(L"");
    EXPECT_EQ(Text(FileSystem::GetPublicDataPath()), L"Data\\Public");
    EXPECT_EQ(Text(FileSystem::GetActiveModName()), L"My Mod/");
    EXPECT_EQ(Text(FileSystem::GetStudioName()), L"St\u00FCdio");
    EXPECT_EQ(Text(FileSystem::GetAppName()), L"");
}

TEST_F(FileSystemSettingsTest, ShutDownResetsOnlyTheMediaPath) {
    FileSystem::SetMediaPath(L"/srv/game");
    FileSystem::SetStudioName(L"Studio");
    const int desc = FileSystem::GetMediaPath().GetPathDesc();
    FileSystem::_SDMShutDown();
    EXPECT_TRUE(FileSystem::GetMediaPath().IsEmpty());
    EXPECT_FALSE(FileSystem::GetMediaPath().ToFixedString().IsValid());
    EXPECT_EQ(FileSystem::GetMediaPath().GetPathDesc(), desc);
    EXPECT_EQ(Text(FileSystem::GetStudioName()), L"Studio");
}

TEST_F(FileSystemSettingsTest, MediaPathGetsASeparatorButKeepsTheIdentityOfItsText) {
    FileSystem::SetMediaPath(L"/srv/game");
    const Path& media = FileSystem::GetMediaPath();
    EXPECT_EQ(Text(media.ToWString()), L"/srv/game/");
    // The separator is added after the analysis: identity and indices are those of "/srv/game".
    EXPECT_STREQ(media.ToFixedString().ToChar(), "/srv/game");
    EXPECT_EQ(media.GetPathDesc(),
              Path::PATHDESC_MEDIA_ROOT | Path::PATHDESC_ABSOLUTE | Path::PATHDESC_DIRECTORY);
    EXPECT_EQ(media.GetRoot(), Path::ROOT_MEDIA);
    STDWString rootPart;
    media.GetPathComponent(0x01, rootPart);
    EXPECT_EQ(Text(rootPart), L"/srv/game");

    FileSystem::SetMediaPath(L"C:\\Games\\Title\\");
    EXPECT_EQ(Text(FileSystem::GetMediaPath().ToWString()), L"C:/Games/Title/");
    EXPECT_STREQ(FileSystem::GetMediaPath().ToFixedString().ToChar(), "C:/Games/Title/");
}

TEST_F(FileSystemSettingsTest, DottedMediaPathIsResolvedAgainstTheWorkingFolder) {
    ScopedWorkingFolder working("w\u00F6rk");
    const std::wstring cwd = UnitsOf(std::filesystem::current_path());
    const std::wstring parent = UnitsOf(std::filesystem::current_path().parent_path());

    FileSystem::SetMediaPath(L"./media");
    EXPECT_EQ(Text(FileSystem::GetMediaPath().ToWString()), cwd + L"/media/");
    FileSystem::SetMediaPath(L".");
    EXPECT_EQ(Text(FileSystem::GetMediaPath().ToWString()), cwd + L"/");
    FileSystem::SetMediaPath(L"..\\data");
    EXPECT_EQ(Text(FileSystem::GetMediaPath().ToWString()), parent + L"/data/");
    // The merged path is taken as it stands: it is no longer marked as the media root.
    EXPECT_EQ(FileSystem::GetMediaPath().GetRoot(), Path::ROOT_NONE);
    EXPECT_EQ(FileSystem::GetMediaPath().GetPathDesc() & Path::PATHDESC_MEDIA_ROOT, 0);
}

TEST_F(FileSystemSettingsTest, EmptyMediaTextBecomesTheSeparatorAlone) {
    FileSystem::SetMediaPath(L"");
    EXPECT_EQ(Text(FileSystem::GetMediaPath().ToWString()), L"/");
    EXPECT_STREQ(FileSystem::GetMediaPath().ToFixedString().ToChar(), "");
}

TEST_F(FileSystemSettingsTest, UserFolderIsTheHomeOfTheUserDatabaseNotOfTheEnvironment) {
    const passwd* entry = getpwuid(getuid());
    ASSERT_NE(entry, nullptr);
    const std::wstring expected = UnitsOf(std::filesystem::path(entry->pw_dir));

    const char* savedHome = std::getenv("HOME");
    const std::string restore = savedHome != nullptr ? savedHome : "";
    setenv("HOME", "/nonexistent/elsewhere", 1);
    ScopedCapture capture;
    STDWString folder = FileSystem::GetUserFolder();
    if (savedHome != nullptr) {
        setenv("HOME", restore.c_str(), 1);
    } else {
        unsetenv("HOME");
    }
    EXPECT_EQ(Text(folder), expected);
    EXPECT_TRUE(capture.Messages().empty());
}

TEST_F(FileSystemSettingsTest, BinaryPathIsTheExecutablesFolderWithASeparator) {
    const std::filesystem::path executable = std::filesystem::read_symlink("/proc/self/exe");
    STDWString binary = FileSystem::GetBinaryPath();
    EXPECT_EQ(Text(binary), UnitsOf(executable.parent_path()) + L"/");
    EXPECT_TRUE(std::filesystem::exists(std::filesystem::path(
        Localization::ConvertWideToMultiByte(binary).Get() + executable.filename().string())));
}

TEST_F(FileSystemSettingsTest, WorkingPathFollowsTheProcessAndCarriesSurrogatePairs) {
    ScopedWorkingFolder working("cwd-\u00E9\u20AC\U0001F600");
    STDWString folder = FileSystem::GetWorkingPath();
    EXPECT_EQ(Text(folder), UnitsOf(std::filesystem::current_path()));
    // U+1F600 is stored as its two 16-bit units.
    EXPECT_NE(Text(folder).find(std::wstring{wchar_t(0xD83D), wchar_t(0xDE00)}), std::wstring::npos);
    EXPECT_NE(Text(folder).back(), L'/');
}

TEST_F(FileSystemSettingsTest, RemovedWorkingFolderIsReportedAndGivesEmptyText) {
    ScopedWorkingFolder working("gone");
    std::filesystem::remove(working.Folder());
    ScopedCapture capture;
    STDWString folder = FileSystem::GetWorkingPath();
    EXPECT_TRUE(folder.IsEmpty());
    ASSERT_EQ(capture.Messages().size(), 1u);
    EXPECT_EQ(capture.Messages()[0], "Failed to fetch working folder - got result 2");
    EXPECT_EQ(capture.Reports()[0].function, "zn::FileSystem::GetWorkingPath");
}

// ---- Operations on disk ----

using test::ReadAll;
using test::StderrCapture;
using test::TempDir;

namespace fs = std::filesystem;

// Not-ASCII names throughout: on disk as UTF-8, in memory as 16-bit units (U+1F600 as a pair).
const std::string kOddName = "d\u00E9j\u00E0 vu \u20AC \U0001F600";

class FileSystemTest : public PathFixture {};

Path PathOf(const fs::path& file) {
    return Path(STDWString(UnitsOf(file).c_str()), Path::ROOT_NONE);
}

std::vector<std::wstring> Texts(const ObjectSet<Path>& paths) {
    std::vector<std::wstring> texts;
    for (unsigned int index = 0; index < paths.GetSize(); ++index) {
        texts.push_back(Text(paths[index].ToWString()));
    }
    return texts;
}

// The oracle of a collection: the names the standard library lists, as units, sorted as units.
std::vector<std::wstring> Sorted(std::vector<fs::path> files) {
    std::vector<std::wstring> texts;
    for (const fs::path& file : files) {
        texts.push_back(UnitsOf(file));
    }
    std::sort(texts.begin(), texts.end());
    return texts;
}

TEST_F(FileSystemTest, ExistenceSeesFilesAndDirectoriesWithOddNames) {
    TempDir temp(kOddName);
    temp.Write("f\u00FCr Sie.znb", "x");
    // The paths are made first: a pack lookup closes the string table's bracket behind it, and a
    // text interned after that is reported.
    const Path file = PathOf(temp / "f\u00FCr Sie.znb");
    const Path folder = PathOf(temp.Folder());
    const Path otherFile = PathOf(temp / "fur Sie.znb");
    const Path missing = PathOf(temp / "none");
    ScopedCapture capture;
    EXPECT_TRUE(FileSystem::FileExists(file));
    EXPECT_TRUE(FileSystem::FileExists(UnitsOf(temp / "f\u00FCr Sie.znb").c_str()));
    EXPECT_TRUE(FileSystem::FileExists(folder));
    EXPECT_FALSE(FileSystem::FileExists(otherFile));
    EXPECT_TRUE(FileSystem::DirectoryExists(folder));
    // Anything at the name counts as a directory, as the system's access test answers.
    EXPECT_TRUE(FileSystem::DirectoryExists(file));
    EXPECT_FALSE(FileSystem::DirectoryExists(missing));
    EXPECT_TRUE(capture.Messages().empty());
}

TEST_F(FileSystemTest, RelativeTextIsLookedForInTheWorkingFolderWithEitherSeparator) {
    ScopedWorkingFolder working;
    fs::create_directories("sub dir");
    std::ofstream("sub dir/x.znb") << "x";
    EXPECT_TRUE(FileSystem::FileExists(L"sub dir\\x.znb"));
    EXPECT_TRUE(FileSystem::FileExists(L"sub dir/x.znb"));
    EXPECT_FALSE(FileSystem::FileExists(L"sub dir/y.znb"));
}

TEST_F(FileSystemTest, NullAndNotAbsoluteAreReportedAndTriedAllTheSame) {
    ScopedCapture capture;
    EXPECT_FALSE(FileSystem::FileExists(static_cast<const wchar_t*>(nullptr)));
    // The empty text is the working folder, which exists.
    EXPECT_TRUE(FileSystem::FileExists(Path()));
    EXPECT_FALSE(FileSystem::DirectoryExists(Path()));
    const std::vector<std::string> expected = {
        "Can't be NULL", "File exists called with an invalid path variable: ", "Path  is not absolute!"};
    EXPECT_EQ(capture.Messages(), expected);
    ASSERT_EQ(capture.Reports().size(), 3u);
    EXPECT_EQ(capture.Reports()[0].function, "zn::FileSystem::FileExists");
    EXPECT_EQ(capture.Reports()[2].function, "zn::FileSystem::DirectoryExists");
    test::ExpectAllOnChannel(capture, LogAssertProgrammer);
}

TEST_F(FileSystemTest, SizeAndModificationTimeComeFromTheDisk) {
    TempDir temp;
    temp.Write("big file", std::string(70001, 'z'));
    temp.Write("empty");
    EXPECT_EQ(FileSystem::GetSizeOfFile(PathOf(temp / "big file")), 70001u);
    EXPECT_EQ(FileSystem::GetSizeOfFile(PathOf(temp / "empty")), 0u);
    EXPECT_EQ(FileSystem::GetSizeOfFile(PathOf(temp / "missing")), 0u);
    EXPECT_EQ(FileSystem::GetSizeOfFile(PathOf(temp.Folder())), 0u);

    const timespec times[2] = {{1500000000, 0}, {1234567890, 500}};
    ASSERT_EQ(utimensat(AT_FDCWD, (temp / "big file").c_str(), times, 0), 0);
    EXPECT_EQ(FileSystem::GetLastModifiedFileTime(PathOf(temp / "big file")), 1234567890u);
    EXPECT_EQ(FileSystem::GetLastModifiedFileTime(PathOf(temp / "missing")), 0u);
}

TEST_F(FileSystemTest, SlashesAndInvalidCharacters) {
    EXPECT_TRUE(FileSystem::EndsWithSlash(STDString("a/")));
    EXPECT_TRUE(FileSystem::EndsWithSlash(STDString("\\")));
    EXPECT_FALSE(FileSystem::EndsWithSlash(STDString("a/b")));
    EXPECT_FALSE(FileSystem::EndsWithSlash(STDString("")));
    EXPECT_TRUE(FileSystem::EndsWithSlash(STDWString(L"a\\")));
    EXPECT_FALSE(FileSystem::EndsWithSlash(STDWString(L"")));

    STDString narrow("a\"b*c/d:e<f>g?h\\i|j. k \u00E9");
    FileSystem::ReplaceInvalidFilenameCharacters(narrow, '_');
    EXPECT_STREQ(narrow.ToChar(), "a_b_c_d_e_f_g_h_i_j. k \u00E9");
    STDWString wide(L"<\u00E9>|x.y z?");
    FileSystem::ReplaceInvalidFilenameCharacters(wide, L'-');
    EXPECT_EQ(Text(wide), L"-\u00E9--x.y z-");
}

TEST_F(FileSystemTest, CreateDirMakesOneLevelUpTo256Units) {
    TempDir temp;
    EXPECT_TRUE(FileSystem::CreateDir(PathOf(temp / kOddName)));
    EXPECT_TRUE(fs::is_directory(temp / kOddName));
    EXPECT_TRUE(FileSystem::CreateDir(PathOf(temp / kOddName)));
    EXPECT_FALSE(FileSystem::CreateDir(PathOf(temp / "no/parent")));

    const std::wstring folder = UnitsOf(temp.Folder()) + L"/";
    const std::wstring longest = folder + std::wstring(256 - folder.size(), L'n');
    const std::wstring tooLong = folder + std::wstring(257 - folder.size(), L'n');
    EXPECT_FALSE(FileSystem::CreateDir(Path(STDWString(tooLong.c_str()), Path::ROOT_NONE)));
    EXPECT_FALSE(FileSystem::CreateDirRecursive(Path(STDWString(tooLong.c_str()), Path::ROOT_NONE)));
    EXPECT_FALSE(fs::exists(temp / std::string(257 - folder.size(), 'n')));
    EXPECT_TRUE(FileSystem::CreateDir(Path(STDWString(longest.c_str()), Path::ROOT_NONE)));
    EXPECT_TRUE(fs::is_directory(temp / std::string(256 - folder.size(), 'n')));
}

TEST_F(FileSystemTest, CreateDirRecursiveMakesEveryMissingLevel) {
    TempDir temp;
    ScopedCapture capture;
    EXPECT_TRUE(FileSystem::CreateDirRecursive(PathOf(temp / (kOddName + "/b c/d"))));
    EXPECT_TRUE(fs::is_directory(temp / (kOddName + "/b c/d")));
    EXPECT_TRUE(FileSystem::CreateDirRecursive(PathOf(temp / "e/f//g/")));
    EXPECT_TRUE(fs::is_directory(temp / "e/f/g"));
    EXPECT_TRUE(capture.Messages().empty());
}

TEST_F(FileSystemTest, CreateDirRecursiveFailsOnlyOnAMiddleLevel) {
    TempDir temp;
    // 200 units, 400 bytes: more than a name may hold on disk.
    std::string tooLongName;
    for (int index = 0; index < 200; ++index) {
        tooLongName += "\u00E9";
    }
    ScopedCapture capture;
    EXPECT_FALSE(FileSystem::CreateDirRecursive(PathOf(temp / ("a/" + tooLongName + "/b"))));
    EXPECT_TRUE(fs::is_directory(temp / "a"));
    EXPECT_TRUE(capture.Messages().empty());

    const Path last = PathOf(temp / ("c/" + tooLongName));
    EXPECT_TRUE(FileSystem::CreateDirRecursive(last));
    EXPECT_TRUE(fs::is_directory(temp / "c"));
    ASSERT_EQ(capture.Messages().size(), 1u);
    EXPECT_EQ(capture.Messages()[0], "Failed to create directory recursively [" +
                                         std::string(Localization::ConvertWideToMultiByte(last).Get()) + "]");
    EXPECT_EQ(capture.Reports()[0].function, "zn::FileSystem::CreateDirRecursive");
}

TEST_F(FileSystemTest, CreateDirRecursiveNeverMakesTheServerOfANetworkPath) {
    const std::string server = "corelib-no-server-" + std::to_string(getpid());
    const Path share(STDWString(UnitsOf("//" + server + "/share").c_str()), Path::ROOT_NONE);
    ScopedCapture capture;
    // The last level cannot be made without its server, which is reported but is no failure.
    EXPECT_TRUE(FileSystem::CreateDirRecursive(share));
    EXPECT_FALSE(fs::exists("/" + server));
    const std::vector<std::string> expected = {"Failed to create directory recursively [//" + server +
                                               "/share]"};
    EXPECT_EQ(capture.Messages(), expected);
    std::error_code ignored;
    fs::remove_all("/" + server, ignored);
}

TEST_F(FileSystemTest, RemoveDirRemovesANestedTreeButNotWhatALinkPointsTo) {
    TempDir temp;
    temp.Write("tree/a.znb", "a");
    temp.Write("tree/" + kOddName + "/b.xml", "b");
    temp.Write("tree/" + kOddName + "/deeper/c", "c");
    temp.MakeDirectory("tree/empty");
    temp.Write("outside/keep.znb", "k");
    fs::create_directory_symlink(temp / "outside", temp / "tree/link");
    EXPECT_TRUE(FileSystem::RemoveDir(PathOf(temp / "tree")));
    EXPECT_FALSE(fs::exists(temp / "tree"));
    EXPECT_EQ(ReadAll(temp / "outside/keep.znb"), "k");
    EXPECT_TRUE(FileSystem::RemoveDir(PathOf(temp / "tree")));
}

TEST_F(FileSystemTest, RemoveFileAndMoveFile) {
    TempDir temp;
    temp.Write(kOddName + ".znb", "moved");
    temp.MakeDirectory("dir");
    EXPECT_TRUE(FileSystem::MoveFileA(PathOf(temp / (kOddName + ".znb")), PathOf(temp / "dir/n\u00E9w.znb")));
    EXPECT_EQ(ReadAll(temp / "dir/n\u00E9w.znb"), "moved");
    EXPECT_FALSE(fs::exists(temp / (kOddName + ".znb")));
    EXPECT_FALSE(FileSystem::MoveFileA(PathOf(temp / "missing"), PathOf(temp / "other")));

    EXPECT_FALSE(FileSystem::RemoveFile(PathOf(temp / "dir")));
    EXPECT_TRUE(FileSystem::RemoveFile(PathOf(temp / "dir/n\u00E9w.znb")));
    EXPECT_FALSE(fs::exists(temp / "dir/n\u00E9w.znb"));
    EXPECT_FALSE(FileSystem::RemoveFile(PathOf(temp / "dir/n\u00E9w.znb")));
}

// ---- Collection ----

class FileSystemCollectTest : public FileSystemTest {
protected:
    // Upper case sorts before lower case, a name before its longer forms, "é" (0xE9) after ASCII,
    // and the U+1F600 pair (0xD83D) after that.
    void SetUp() override {
        FileSystemTest::SetUp();
        for (const char* name : {"b.znb", "B.ZNB", "a", "a.znb", "a.xml", "ab.znb", "Z.znb", "\u00E9.znb",
                                 "\U0001F600.znb", "x.znbak"}) {
            m_Temp.Write(name, name);
        }
        m_Temp.Write("sub/c.znb");
        m_Temp.Write("sub/deeper/d.znb");
        m_Temp.Write("sub/deeper/e.xml");
        m_Temp.MakeDirectory(kOddName);
    }
    std::vector<std::wstring> Files(const wchar_t* pattern, bool recursive) {
        ObjectSet<Path> found;
        FileSystem::CollectFiles(PathOf(m_Temp.Folder()), pattern, recursive, found, false, true);
        return Texts(found);
    }
    TempDir m_Temp;
};

TEST_F(FileSystemCollectTest, StarDotStarListsEveryFileSortedByUnits) {
    std::vector<fs::path> expected;
    for (const fs::directory_entry& entry : fs::directory_iterator(m_Temp.Folder())) {
        if (!entry.is_directory()) {
            expected.push_back(entry.path());
        }
    }
    EXPECT_EQ(Files(L"*.*", false), Sorted(expected));
    EXPECT_EQ(Files(L"*.*", false).front(), UnitsOf(m_Temp / "B.ZNB"));
    EXPECT_EQ(Files(L"*.*", false).back(), UnitsOf(m_Temp / "\U0001F600.znb"));
}

TEST_F(FileSystemCollectTest, PatternsMatchWithoutCaseAndQuestionMarkIsOneCharacter) {
    const std::vector<std::wstring> binary = Files(L"*.znb", false);
    EXPECT_EQ(binary, Sorted({m_Temp / "B.ZNB", m_Temp / "Z.znb", m_Temp / "a.znb", m_Temp / "ab.znb",
                              m_Temp / "b.znb", m_Temp / "\u00E9.znb", m_Temp / "\U0001F600.znb"}));
    EXPECT_EQ(Files(L"?.ZNB", false),
              Sorted({m_Temp / "B.ZNB", m_Temp / "Z.znb", m_Temp / "a.znb", m_Temp / "b.znb",
                      m_Temp / "\u00E9.znb", m_Temp / "\U0001F600.znb"}));
    EXPECT_EQ(Files(L"a?*", false), Sorted({m_Temp / "a.znb", m_Temp / "a.xml", m_Temp / "ab.znb"}));
    EXPECT_TRUE(Files(L"*.none", false).empty());
}

TEST_F(FileSystemCollectTest, RecursiveWalkAddsTheSubfolders) {
    EXPECT_EQ(Files(L"*.znb", true),
              Sorted({m_Temp / "B.ZNB", m_Temp / "Z.znb", m_Temp / "a.znb", m_Temp / "ab.znb",
                      m_Temp / "b.znb", m_Temp / "\u00E9.znb", m_Temp / "\U0001F600.znb",
                      m_Temp / "sub/c.znb", m_Temp / "sub/deeper/d.znb"}));
}

TEST_F(FileSystemCollectTest, DirectoriesAloneAndRecursively) {
    ObjectSet<Path> found;
    FileSystem::CollectDirectories(PathOf(m_Temp.Folder()), false, found, false, true);
    EXPECT_EQ(Texts(found), Sorted({m_Temp / "sub", m_Temp / kOddName}));
    found.RemoveAll();
    FileSystem::CollectDirectories(PathOf(m_Temp.Folder()), true, found, false, false);
    EXPECT_EQ(Texts(found), Sorted({m_Temp / "sub", m_Temp / kOddName, m_Temp / "sub/deeper"}));
}

TEST_F(FileSystemCollectTest, AddsToTheSetAndSortsAllOfItAndAFinalSeparatorIsNotDoubled) {
    ObjectSet<Path> found;
    found.Add(Path(STDWString(L"/zzz"), Path::ROOT_NONE));
    found.Add(Path(STDWString(L"/"), Path::ROOT_NONE));
    ScopedCapture capture;
    FileSystem::CollectFiles(PathOf(m_Temp / "sub/deeper/"), L"*", false, found, false, true);
    FileSystem::CollectFiles(PathOf(m_Temp / "missing"), L"*", true, found, false, true);
    EXPECT_EQ(Texts(found), (std::vector<std::wstring>{L"/", UnitsOf(m_Temp / "sub/deeper/d.znb"),
                                                       UnitsOf(m_Temp / "sub/deeper/e.xml"), L"/zzz"}));
    EXPECT_TRUE(capture.Messages().empty());
}

// ---- Copying ----

// The copy lines among what went to the debug output (the log's own sinks write there too).
std::string CopyLines(const std::string& debugText) {
    std::string lines;
    size_t start = 0;
    while (start < debugText.size()) {
        const size_t end = std::min(debugText.find('\n', start), debugText.size() - 1) + 1;
        if (debugText.compare(start, 12, "[CopyFile - ") == 0) {
            lines += debugText.substr(start, end - start);
        }
        start = end;
    }
    return lines;
}

std::string DebugLine(bool copied, const fs::path& source, const fs::path& to) {
    return std::string("[CopyFile - ") + (copied ? "OK] " : "FAILED] ") + source.string() + " -> " +
           to.string() + "\n";
}

TEST_F(FileSystemTest, CopyTakesOnlyBinaryObjectFilesAndMakesTheTarget) {
    TempDir temp;
    temp.Write("from/a.znb", "first");
    temp.Write(std::string("from/") + kOddName + ".ZNB", "second");
    temp.Write("from/c.xml", "xml");
    temp.Write("from/d.znx", "znx");
    temp.Write("from/sub/e.znb", "nested");
    ScopedCapture capture;
    StderrCapture debug;
    EXPECT_TRUE(FileSystem::CopyFilesFromDir(PathOf(temp / "from"), PathOf(temp / "out/deep"), false));
    EXPECT_EQ(CopyLines(debug.Text()),
              DebugLine(true, temp / "from/a.znb", temp / "out/deep") +
                  DebugLine(true, temp / ("from/" + kOddName + ".ZNB"), temp / "out/deep"));
    EXPECT_EQ(ReadAll(temp / "out/deep/a.znb"), "first");
    EXPECT_EQ(ReadAll(temp / ("out/deep/" + kOddName + ".ZNB")), "second");
    EXPECT_FALSE(fs::exists(temp / "out/deep/c.xml"));
    EXPECT_FALSE(fs::exists(temp / "out/deep/d.znx"));
    EXPECT_FALSE(fs::exists(temp / "out/deep/sub"));
    EXPECT_TRUE(capture.Messages().empty());
}

TEST_F(FileSystemTest, CopyOfAFolderOfXmlFilesCopiesNothingAndSucceeds) {
    TempDir temp;
    temp.Write("from/a.xml", "a");
    temp.Write("from/b.xml", "b");
    ScopedCapture capture;
    StderrCapture debug;
    EXPECT_TRUE(FileSystem::CopyFilesFromDir(PathOf(temp / "from"), PathOf(temp / "to"), true));
    EXPECT_EQ(CopyLines(debug.Text()), "");
    EXPECT_TRUE(fs::is_directory(temp / "to"));
    EXPECT_TRUE(fs::is_empty(temp / "to"));
    EXPECT_TRUE(capture.Messages().empty());
}

TEST_F(FileSystemTest, RecursiveCopyPutsEachSubfolderUnderItsName) {
    TempDir temp;
    temp.Write("from/top.znb", "t");
    temp.Write("from/sub one/x.znb", "x");
    temp.Write("from/sub one/" + kOddName + "/y.znb", "y");
    EXPECT_TRUE(FileSystem::CopyFilesFromDir(PathOf(temp / "from"), PathOf(temp / "to"), true));
    EXPECT_EQ(ReadAll(temp / "to/top.znb"), "t");
    EXPECT_EQ(ReadAll(temp / "to/sub one/x.znb"), "x");
    EXPECT_EQ(ReadAll(temp / ("to/sub one/" + kOddName + "/y.znb")), "y");
}

TEST_F(FileSystemTest, CopyFailuresAreReportedUnderTheWorkersName) {
    TempDir temp;
    temp.Write("from/a.znb", "a");
    temp.Write("from/b.znb", "b");
    temp.MakeDirectory("to/a.znb");  // a copy onto a directory fails
    ScopedCapture capture;
    StderrCapture debug;
    EXPECT_FALSE(FileSystem::CopyFilesFromDir(PathOf(temp / "from"), PathOf(temp / "to"), false));
    EXPECT_EQ(CopyLines(debug.Text()), DebugLine(false, temp / "from/a.znb", temp / "to") +
                                           DebugLine(true, temp / "from/b.znb", temp / "to"));
    EXPECT_EQ(ReadAll(temp / "to/b.znb"), "b");
    const std::vector<std::string> expected = {
        "Copy of files failed",
        "Failed to copy files from " + (temp / "from").string() + " to " + (temp / "to").string()};
    EXPECT_EQ(capture.Messages(), expected);
    ASSERT_EQ(capture.Reports().size(), 2u);
    EXPECT_EQ(capture.Reports()[0].channel, LogAssertProgrammer);
    EXPECT_EQ(capture.Reports()[1].channel, LogInfo);
    EXPECT_EQ(capture.Reports()[0].function, "do_CopyFilesFromDir");
    EXPECT_EQ(capture.Reports()[1].function, "do_CopyFilesFromDir");
}

TEST_F(FileSystemTest, CopyFromNothingOrIntoAnImpossibleTargetFails) {
    TempDir temp;
    temp.Write("from/a.znb", "a");
    temp.Write("file", "not a folder");
    ScopedCapture capture;
    EXPECT_FALSE(FileSystem::CopyFilesFromDir(PathOf(temp / "none"), PathOf(temp / "to"), true));
    EXPECT_FALSE(fs::exists(temp / "to"));
    ASSERT_EQ(capture.Messages().size(), 1u);
    EXPECT_EQ(capture.Messages()[0], "Trying to copy files from directory that doesn't exist");
    EXPECT_EQ(capture.Reports()[0].function, "do_CopyFilesFromDir");

    capture.Logger().Clear();
    StderrCapture debug;
    EXPECT_FALSE(FileSystem::CopyFilesFromDir(PathOf(temp / "from"), PathOf(temp / "file/to/deep"), false));
    EXPECT_EQ(CopyLines(debug.Text()), "");
    const std::vector<std::string> expected = {
        "Copy of files failed",
        "Failed to copy files from " + (temp / "from").string() + " to " + (temp / "file/to/deep").string()};
    EXPECT_EQ(capture.Messages(), expected);
}

// ---- Versions ----

class FileSystemVersionTest : public FileSystemTest {
protected:
    // The text GetFileVersion gives, and what it printed on standard output.
    std::string Version(const fs::path& file, std::string& printed) {
        testing::internal::CaptureStdout();
        const STDString version = FileSystem::GetFileVersion(PathOf(file));
        printed = testing::internal::GetCapturedStdout();
        return version.ToChar();
    }
};

// The file the dynamic loader took the library from.
std::string LoadedCoreLib() {
    std::string found;
    dl_iterate_phdr(
        [](dl_phdr_info* info, size_t, void* data) {
            const std::string name = info->dlpi_name != nullptr ? info->dlpi_name : "";
            if (name.find("libCoreLib.so") == std::string::npos) {
                return 0;
            }
            *static_cast<std::string*>(data) = name;
            return 1;
        },
        &found);
    return found;
}

// The description bytes readelf shows for the library's note ("01 00 03 00 ..."), or "" when
// readelf is not installed.
std::string ReadelfDescription(const std::string& file) {
    std::string output;
    if (FILE* pipe = popen(("readelf -n '" + file + "' 2>/dev/null").c_str(), "r")) {
        char chunk[4096];
        while (size_t count = std::fread(chunk, 1, sizeof(chunk), pipe)) {
            output.append(chunk, count);
        }
        pclose(pipe);
    }
    const size_t owner = output.find("CoreLib");
    const std::string label = "description data: ";
    const size_t data = output.find(label, owner == std::string::npos ? output.size() : owner);
    if (data == std::string::npos) {
        return "";
    }
    std::string bytes = output.substr(data + label.size(), output.find('\n', data) - data - label.size());
    bytes.erase(bytes.find_last_not_of(' ') + 1);
    return bytes;
}

TEST_F(FileSystemVersionTest, LibraryCarriesTheVersionItsFileIsNamedAfter) {
    const std::string library = LoadedCoreLib();
    ASSERT_FALSE(library.empty());
    // The build names the file libCoreLib.so.MAJOR.MINOR.PATCH from the same project version.
    const std::string real = fs::canonical(library).filename().string();
    const std::string named = real.substr(std::string("libCoreLib.so.").size());
    std::string printed;
    const std::string version = Version(library, printed);
    EXPECT_EQ(printed, "");
    EXPECT_EQ(version.rfind(named + ".", 0), 0u) << version << " for " << real;

    const std::string shown = ReadelfDescription(library);
    if (!shown.empty()) {
        unsigned int numbers[4] = {};
        ASSERT_EQ(
            std::sscanf(version.c_str(), "%u.%u.%u.%u", &numbers[0], &numbers[1], &numbers[2], &numbers[3]),
            4);
        char expected[64];
        std::snprintf(expected, sizeof(expected), "%02x %02x %02x %02x %02x %02x %02x %02x",
                      numbers[0] & 0xFF, numbers[0] >> 8, numbers[1] & 0xFF, numbers[1] >> 8,
                      numbers[2] & 0xFF, numbers[2] >> 8, numbers[3] & 0xFF, numbers[3] >> 8);
        EXPECT_EQ(shown, expected);
    }
}

TEST_F(FileSystemVersionTest, ExecutableVersionIsReadWithTheStringTableRequested) {
    ASSERT_EQ(GlobalStringTable::GetTableUseCount(), 0);
    testing::internal::CaptureStdout();
    const STDString version = FileSystem::GetExeVersion();
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_STREQ(version.ToChar(), "7.8.9.10");
    // The bracket was balanced, and its release closed the table as a host's run phase has it.
    EXPECT_EQ(GlobalStringTable::GetTableUseCount(), 0);
    EXPECT_FALSE(GlobalStringTable::IsTableEnabled());
    // Back to the load state for the next tests: enabled, no bracket open.
    GlobalStringTable::ReleaseTable();
    GlobalStringTable::RequestTable();
}

// Hand-built ELF files: a 64-bit little-endian header, one note section at offset 64, then the
// section headers (the null one and the notes').
struct ElfNote {
    std::string owner;  // without its terminator
    uint32_t type;
    std::string description;
};
constexpr size_t kShoffAt = 0x28;
constexpr size_t kShnumAt = 0x3C;
constexpr size_t kNotesAt = 64;

void Put(std::string& bytes, uint64_t value, int size, size_t at = std::string::npos) {
    for (int index = 0; index < size; ++index) {
        const char byte = static_cast<char>((value >> (8 * index)) & 0xFF);
        if (at == std::string::npos) {
            bytes += byte;
        } else {
            bytes[at + index] = byte;
        }
    }
}

std::string Padded(std::string bytes, size_t alignment) {
    bytes.resize((bytes.size() + alignment - 1) / alignment * alignment, '\0');
    return bytes;
}

std::string ElfWithNotes(const std::vector<ElfNote>& notes, uint64_t alignment = 4) {
    std::string section;
    for (const ElfNote& note : notes) {
        Put(section, note.owner.size() + 1, 4);
        Put(section, note.description.size(), 4);
        Put(section, note.type, 4);
        section += Padded(note.owner + '\0', alignment) + Padded(note.description, alignment);
    }
    std::string file = std::string(
                           "\x7f"
                           "ELF\x02\x01\x01",
                           7) +
                       std::string(9, '\0');
    Put(file, 3, 2);   // a shared object
    Put(file, 62, 2);  // x86-64
    Put(file, 1, 4);
    Put(file, 0, 8);
    Put(file, 0, 8);
    Put(file, kNotesAt + Padded(section, 8).size(), 8);  // e_shoff
    Put(file, 0, 4);
    Put(file, 64, 2);
    Put(file, 0, 2);
    Put(file, 0, 2);
    Put(file, 64, 2);  // e_shentsize
    Put(file, 2, 2);   // e_shnum
    Put(file, 0, 2);
    file += Padded(section, 8) + std::string(64, '\0');
    for (uint64_t field : {uint64_t{0}, uint64_t{7}}) {  // sh_name, sh_type SHT_NOTE
        Put(file, field, 4);
    }
    for (uint64_t field : {uint64_t{2}, uint64_t{0}, uint64_t{kNotesAt}, uint64_t{section.size()}}) {
        Put(file, field, 8);  // sh_flags, sh_addr, sh_offset, sh_size
    }
    Put(file, 0, 8);  // sh_link, sh_info
    Put(file, alignment, 8);
    Put(file, 0, 8);
    return file;
}

const ElfNote kBuildId = {"GNU", 3, std::string(20, '\x5a')};
const ElfNote kVersion = {"CoreLib", 1, std::string("\x0a\x00\x02\x01\x03\x00\xff\xff", 8)};

TEST_F(FileSystemVersionTest, NoteIsFoundAmongOthersAndGivesHighThenLowWords) {
    TempDir temp;
    temp.Write("four", ElfWithNotes({kBuildId, kVersion}));
    temp.Write("eight", ElfWithNotes({kBuildId, kVersion}, 8));
    std::string printed;
    EXPECT_EQ(Version(temp / "four", printed), "10.258.3.65535");
    EXPECT_EQ(Version(temp / "eight", printed), "10.258.3.65535");
    EXPECT_EQ(printed, "");
}

TEST_F(FileSystemVersionTest, EachFailingStepPrintsItsLineAndGivesEmptyText) {
    TempDir temp;
    temp.Write("plain.txt", "not a binary at all, but long enough to hold an ELF header's worth of bytes");
    temp.Write("no note", ElfWithNotes({kBuildId}));
    temp.Write("other type", ElfWithNotes({{"CoreLib", 2, kVersion.description}}));
    temp.Write("other owner", ElfWithNotes({{"CoreLi", 1, kVersion.description}}));
    temp.Write("empty", ElfWithNotes({{"CoreLib", 1, ""}}));
    temp.Write("wide", ElfWithNotes({{"CoreLib", 1, std::string(16, '\x01')}}));
    const std::vector<std::pair<std::string, std::string>> cases = {
        {"missing", "Error in GetFileVersionInfoSize: 2\n"},
        {"plain.txt", "Error in GetFileVersionInfoSize: 8\n"},
        {"no note", "Error in GetFileVersionInfoSize: 61\n"},
        {"other type", "Error in GetFileVersionInfoSize: 61\n"},
        {"other owner", "Error in GetFileVersionInfoSize: 61\n"},
        {"empty", "Error in GetFileVersionInfoSize: 61\n"},
        {"wide", "Error in VerQueryValue: 22\n"},
    };
    for (const auto& [name, line] : cases) {
        std::string printed;
        EXPECT_EQ(Version(temp / name, printed), "") << name;
        EXPECT_EQ(printed, line) << name;
    }
}

TEST_F(FileSystemVersionTest, DamagedHeadersAreRefusedWithoutReadingOutside) {
    const std::string good = ElfWithNotes({kBuildId, kVersion});
    const size_t noteHeader = good.size() - 64;
    std::vector<std::pair<std::string, std::string>> cases;
    std::string bytes = good;
    Put(bytes, good.size() + 100, 8, kShoffAt);
    cases.push_back({bytes, "8"});
    bytes = good;
    Put(bytes, 0xFFFF, 2, kShnumAt);
    cases.push_back({bytes, "8"});
    bytes = good;
    bytes[4] = 1;  // a 32-bit file
    cases.push_back({bytes, "8"});
    cases.push_back({good.substr(0, 40), "8"});
    bytes = good;
    Put(bytes, 0xFFFFFFF0u, 4, kNotesAt);  // the first note's owner runs past everything
    cases.push_back({bytes, "61"});
    bytes = good;
    Put(bytes, 0x7FFFFFFFFFFFFFF0u, 8, noteHeader + 32);  // the section runs past the file
    cases.push_back({bytes, "61"});
    TempDir temp;
    for (size_t index = 0; index < cases.size(); ++index) {
        temp.Write("damaged", cases[index].first);
        std::string printed;
        EXPECT_EQ(Version(temp / "damaged", printed), "") << index;
        EXPECT_EQ(printed, "Error in GetFileVersionInfoSize: " + cases[index].second + "\n") << index;
    }
}

// ---- Opening ----

TEST_F(FileSystemTest, WideOpenWorksAndNarrowOpenNeverDoes) {
    TempDir temp;
    temp.Write(kOddName + ".txt", "content");
    FILE* stream = fopen(UnitsOf(temp / (kOddName + ".txt")).c_str(), L"rb");
    ASSERT_NE(stream, nullptr);
    char read[16] = {};
    EXPECT_EQ(std::fread(read, 1, sizeof(read), stream), 7u);
    std::fclose(stream);
    EXPECT_STREQ(read, "content");
    EXPECT_EQ(fopen(UnitsOf(temp / "missing").c_str(), L"rb"), nullptr);

    EXPECT_EQ(fopen((temp / (kOddName + ".txt")).c_str(), "rb"), nullptr);
    EXPECT_EQ(fopen((temp / "new.txt").c_str(), "wb"), nullptr);
    EXPECT_FALSE(fs::exists(temp / "new.txt"));
}

}  // namespace
}  // namespace zn
