// FileSystem_test.cpp: the settings, the media path, and the user's, binary and working folders
// against the system's own answers.
#include "CoreLib/FileSystem.h"

#include "CoreLib/Localization.h"
#include "tests/support/CapturingLogger.h"
#include "tests/support/PathFixture.h"

#include <gtest/gtest.h>

#include <pwd.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <string>

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

}  // namespace
}  // namespace zn
