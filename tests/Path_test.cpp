// Path_test.cpp: roots, analysis, components, identity, editing and merging of paths.
#include "CoreLib/Path.h"

#include "CoreLib/FileSystem.h"
#include "CoreLib/FixedString.h"
#include "CoreLib/GlobalSwitches.h"
#include "CoreLib/Localization.h"
#include "CoreLib/Report.h"
#include "tests/support/CapturingLogger.h"
#include "tests/support/PathFixture.h"

#include <gtest/gtest.h>

#include <pwd.h>
#include <unistd.h>

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace zn {
namespace {

using test::PathFixture;
using test::ScopedCapture;
using test::ScopedWorkingFolder;
using test::UnitsOf;

constexpr const wchar_t* kMedia = L"/media/game/";

// Every test runs with the media folder "/media/game/".
class PathTest : public PathFixture {
protected:
    void SetUp() override {
        PathFixture::SetUp();
        FileSystem::SetMediaPath(L"/media/game");
    }
};

std::wstring Text(const Path& path) {
    return std::wstring(path.ToWChar(), path.Length());
}

std::wstring Component(const Path& path, unsigned char mask) {
    STDWString text;
    path.GetPathComponent(mask, text);
    return std::wstring(text.ToChar(), text.Length());
}

std::wstring Media(const wchar_t* rest) {
    return std::wstring(kMedia) + rest;
}

const char* const kAbsoluteWithRoot =
    "This path looks to be an absolute path, but was created using a ROOT.  This shouldnt be. \n Path: %s";
const char* const kMediaWithRoot =
    "This path seems to contain the mediapath already, but was created using a ROOT.  This shouldnt be. \n "
    "Path: %s";

std::string Message(const char* format, const char* path) {
    char buffer[512];
    snprintf(buffer, sizeof(buffer), format, path);
    return buffer;
}

TEST_F(PathTest, PublicRootFileGivesEveryComponent) {
    ScopedCapture capture;
    Path path(STDWString(L"a/b/c.znb"), Path::ROOT_PUBLIC);
    EXPECT_EQ(Text(path), Media(L"Public/a/b/c.znb"));
    EXPECT_STREQ(path.ToFixedString().ToChar(), "/media/game/Public/a/b/c.znb");
    EXPECT_EQ(path.GetPathDesc(), Path::PATHDESC_FILE | Path::PATHDESC_ABSOLUTE | Path::PATHDESC_ZNB);
    EXPECT_EQ(path.GetRoot(), Path::ROOT_PUBLIC);
    EXPECT_FALSE(path.IsLocked());

    EXPECT_EQ(Component(path, Path::FullPath), Media(L"Public/a/b"));
    EXPECT_EQ(Component(path, Path::FullFilePath), Media(L"Public/a/b/c.znb"));
    EXPECT_EQ(Component(path, Path::FullFilePathNoExtension), Media(L"Public/a/b/c"));
    EXPECT_EQ(Component(path, Path::RelativePath), L"Public/a/b");
    EXPECT_EQ(Component(path, Path::RelativeFilePath), L"Public/a/b/c.znb");
    EXPECT_EQ(Component(path, Path::RelativeFilePathNoExtension), L"Public/a/b/c");
    EXPECT_EQ(Component(path, Path::Extension), L"znb");
    EXPECT_EQ(Component(path, Path::File), L"c.znb");
    EXPECT_EQ(Component(path, Path::FileNoExtension), L"c");
    EXPECT_EQ(Component(path, Path::Dir), L"b");
    EXPECT_EQ(Component(path, 0x01), L"/media/game/");
    EXPECT_EQ(Component(path, 0x10), Text(path));
    EXPECT_EQ(Component(path, 0x00), L"");
    EXPECT_TRUE(capture.Messages().empty());

    const wchar_t* start = nullptr;
    unsigned int length = 0;
    path.GetPathComponent(Path::File, start, length);
    EXPECT_EQ(start, path.ToWChar() + Text(path).size() - 5);
    EXPECT_EQ(length, 5u);
    FixedString interned;
    path.GetPathComponent(Path::RelativeFilePathNoExtension, interned);
    EXPECT_STREQ(interned.ToChar(), "Public/a/b/c");
}

TEST_F(PathTest, DirectoryComponentsCoverTheWholeNameAndNoExtension) {
    Path path(STDWString(L"a/b"), Path::ROOT_PUBLIC);
    EXPECT_EQ(path.GetPathDesc(), Path::PATHDESC_DIRECTORY | Path::PATHDESC_ABSOLUTE);
    EXPECT_EQ(Component(path, Path::FullPath), Media(L"Public/a/b"));
    EXPECT_EQ(Component(path, Path::FullFilePath), Media(L"Public/a/b"));
    EXPECT_EQ(Component(path, Path::FullFilePathNoExtension), Media(L"Public/a/b"));
    EXPECT_EQ(Component(path, Path::RelativePath), L"Public/a/b");
    EXPECT_EQ(Component(path, Path::RelativeFilePath), L"Public/a/b");
    EXPECT_EQ(Component(path, Path::RelativeFilePathNoExtension), L"Public/a/b");
    EXPECT_EQ(Component(path, Path::Extension), L"");
    EXPECT_EQ(Component(path, Path::File), L"");
    EXPECT_EQ(Component(path, Path::FileNoExtension), L"");
    EXPECT_EQ(Component(path, Path::Dir), L"b");

    // A trailing separator leaves the last directory's name empty.
    Path trailing(STDWString(L"a/b/"), Path::ROOT_MEDIA);
    EXPECT_EQ(Component(trailing, Path::Dir), L"");
    EXPECT_EQ(Component(trailing, Path::RelativePath), L"a/b/");
}

TEST_F(PathTest, DotsDecideBetweenFileAndDirectory) {
    struct Case {
        const wchar_t* text;
        int desc;
    };
    const int file = Path::PATHDESC_FILE | Path::PATHDESC_ABSOLUTE;
    const int directory = Path::PATHDESC_DIRECTORY | Path::PATHDESC_ABSOLUTE;
    const std::vector<Case> cases = {
        {L"a.b/c", directory},
        {L"x.dir/sub/name", directory},
        {L"readme.md", directory},
        {L"notes.tx", directory},
        {L"a.c", directory},
        {L"readme.text", file | Path::PATHDESC_UNKNOWN_TYPE},
        {L"FOO.ZNB", file | Path::PATHDESC_ZNB},
        {L"foo.GR2", file | Path::PATHDESC_GR2},
        {L"foo.gR2", file | Path::PATHDESC_GR2},
        {L"a/b/..", directory},
        {L"a/..b", directory},
        {L"scene.xml", file | Path::PATHDESC_XML},
        {L"scene.xmlz", file | Path::PATHDESC_XML},
        {L"scene.ZnX", file | Path::PATHDESC_ZNX},
        {L"t.dds", file | Path::PATHDESC_DDS},
        {L"m.Gsf", file | Path::PATHDESC_GSF},
        {L"f.fnt", file | Path::PATHDESC_FNT},
        {L"m.gr3", file | Path::PATHDESC_UNKNOWN_TYPE},
        {L"dir.d/archive.tar.gz.znb", file | Path::PATHDESC_ZNB},
    };
    for (const Case& test : cases) {
        Path path(STDWString(test.text), Path::ROOT_MEDIA);
        EXPECT_EQ(path.GetPathDesc(), test.desc) << Text(path);
        EXPECT_EQ(Text(path), Media(test.text));
    }
    Path dotted(STDWString(L"a.b/c"), Path::ROOT_MEDIA);
    EXPECT_EQ(Component(dotted, Path::Dir), L"c");
    Path parent(STDWString(L"a/b/.."), Path::ROOT_MEDIA);
    EXPECT_EQ(Component(parent, Path::Dir), L"..");
}

TEST_F(PathTest, TextsShorterThanThreeCharactersTakeAnyDotAsExtension) {
    FileSystem::_SDMInit();  // no media path: the text stays as short as it was given
    Path shortText(STDWString(L"a."), Path::ROOT_NONE);
    EXPECT_EQ(shortText.GetPathDesc(),
              Path::PATHDESC_FILE | Path::PATHDESC_ABSOLUTE | Path::PATHDESC_UNKNOWN_TYPE);
    EXPECT_EQ(Component(shortText, Path::FileNoExtension), L"a");
    EXPECT_EQ(Component(shortText, Path::Extension), L"");
    Path threeCharacters(STDWString(L".ab"), Path::ROOT_NONE);
    EXPECT_EQ(threeCharacters.GetPathDesc(), Path::PATHDESC_DIRECTORY | Path::PATHDESC_ABSOLUTE);
}

TEST_F(PathTest, AbsoluteTextWithARootIsReportedAndKeptWithoutRootPart) {
    ScopedCapture capture;
    Path drive(STDWString(L"C:/x"), Path::ROOT_MEDIA);
    EXPECT_EQ(Text(drive), L"C:/x");
    EXPECT_EQ(drive.GetPathDesc(), Path::PATHDESC_DIRECTORY | Path::PATHDESC_ABSOLUTE);
    EXPECT_EQ(Component(drive, Path::RelativePath), L"");
    EXPECT_EQ(Component(drive, Path::FullPath), L"");
    EXPECT_EQ(Component(drive, Path::Dir), L"x");

    Path rootedAbsolute(STDWString(L"/etc/game/x.xml"), Path::ROOT_PUBLIC);
    EXPECT_EQ(Text(rootedAbsolute), L"/etc/game/x.xml");
    EXPECT_EQ(rootedAbsolute.GetPathDesc(),
              Path::PATHDESC_FILE | Path::PATHDESC_ABSOLUTE | Path::PATHDESC_XML);
    // No root part: the file groups still work, the directory groups give nothing.
    EXPECT_EQ(Component(rootedAbsolute, Path::RelativeFilePath), L"x.xml");
    EXPECT_EQ(Component(rootedAbsolute, Path::FullPath), L"");

    const std::vector<std::string> expected = {Message(kAbsoluteWithRoot, "C:/x"),
                                               Message(kAbsoluteWithRoot, "/etc/game/x.xml")};
    EXPECT_EQ(capture.Messages(), expected);
    EXPECT_EQ(capture.Reports()[0].function, "zn::Path::Analyse");
    test::ExpectAllOnChannel(capture, LogAssertProgrammer);
}

TEST_F(PathTest, AbsoluteTextWithoutRootOrForTheApplicationUserIsSilent) {
    ScopedCapture capture;
    Path none(STDWString(L"C:\\Tools\\bin\\tool.dds"), Path::ROOT_NONE);
    EXPECT_EQ(Text(none), L"C:/Tools/bin/tool.dds");
    EXPECT_EQ(none.GetPathDesc(), Path::PATHDESC_FILE | Path::PATHDESC_ABSOLUTE | Path::PATHDESC_DDS);
    Path appUser(STDWString(L"/home/someone/save.znb"), Path::ROOT_APP_USER);
    EXPECT_EQ(Text(appUser), L"/home/someone/save.znb");
    EXPECT_TRUE(capture.Messages().empty());
}

TEST_F(PathTest, TextHoldingTheMediaPathIsNotPrefixedAgain) {
    ScopedCapture capture;
    Path withRoot(STDWString(L"/media/game/Public/x.znb"), Path::ROOT_PUBLIC);
    EXPECT_EQ(Text(withRoot), L"/media/game/Public/x.znb");
    EXPECT_EQ(Component(withRoot, Path::RelativeFilePath), L"Public/x.znb");
    Path withoutRoot(STDWString(L"/media/game/y.dds"), Path::ROOT_NONE);
    EXPECT_EQ(Component(withoutRoot, Path::RelativeFilePath), L"y.dds");
    const std::vector<std::string> expected = {Message(kMediaWithRoot, "/media/game/Public/x.znb")};
    EXPECT_EQ(capture.Messages(), expected);
}

TEST_F(PathTest, EveryRootPutsItsFolderInFront) {
    const passwd* entry = getpwuid(getuid());
    ASSERT_NE(entry, nullptr);
    const std::wstring user = UnitsOf(std::filesystem::path(entry->pw_dir));
    const std::wstring binary = UnitsOf(std::filesystem::read_symlink("/proc/self/exe").parent_path()) + L"/";
    ScopedWorkingFolder working;
    const std::wstring cwd = UnitsOf(std::filesystem::current_path());

    FileSystem::SetPublicDataPath(L"Data/");
    FileSystem::SetStudioName(L"Studio");
    FileSystem::SetAppName(L"App");
    GlobalSwitches switches;
    switches.languageFolder = L"French";
    GlobalSwitches* savedGlobal = Global;
    Global = &switches;

    struct Case {
        Path::ERoot root;
        std::wstring prefix;
    };
    const std::vector<Case> cases = {
        {Path::ROOT_MEDIA, Media(L"")},
        {Path::ROOT_PUBLIC_DATA, Media(L"Data/")},
        {Path::ROOT_ACTIVE_MOD, Media(L"Mods/Main/")},
        {Path::ROOT_USER, user + L"/"},
        {Path::ROOT_APP_USER, user + L"/Studio/App/"},
        {Path::ROOT_LOCALIZATION, Media(L"Localization/French/")},
        {Path::ROOT_BINARY, binary},
        {Path::ROOT_WORKING, cwd + L"/"},
        {Path::ROOT_MODS, Media(L"Mods/")},
        {Path::ROOT_PUBLIC, Media(L"Public/")},
        {Path::ROOT_PUBLIC_GAME, Media(L"Public/Game/")},
        {Path::ROOT_NONE, L""},
    };
    ScopedCapture capture;
    for (const Case& test : cases) {
        Path path(STDWString(L"x\\y.znb"), test.root);
        EXPECT_EQ(Text(path), test.prefix + L"x/y.znb") << "root " << test.root;
        EXPECT_EQ(path.GetRoot(), test.root);
        EXPECT_EQ(path.GetPathDesc(), Path::PATHDESC_FILE | Path::PATHDESC_ABSOLUTE | Path::PATHDESC_ZNB);
        // The root part ends where the media path would, whatever the root.
        EXPECT_EQ(Component(path, 0x01), Text(path).substr(0, std::wstring(kMedia).size()))
            << "root " << test.root;
    }
    EXPECT_TRUE(capture.Messages().empty());
    Global = savedGlobal;
}

TEST_F(PathTest, RootFoldersWithoutSeparatorOrLanguageStillJoin) {
    FileSystem::SetPublicDataPath(L"Data");
    Path publicData(STDWString(L"x.znb"), Path::ROOT_PUBLIC_DATA);
    EXPECT_EQ(Text(publicData), Media(L"Data/x.znb"));
    GlobalSwitches* savedGlobal = Global;
    Global = nullptr;
    Path localized(STDWString(L"strings.xml"), Path::ROOT_LOCALIZATION);
    EXPECT_EQ(Text(localized), Media(L"Localization//strings.xml"));
    Global = savedGlobal;
}

TEST_F(PathTest, IdentityIsTheExactInternedText) {
    Path upper(STDWString(L"Textures/Rock.dds"), Path::ROOT_MEDIA);
    Path lower(STDWString(L"textures/rock.dds"), Path::ROOT_MEDIA);
    Path same(STDWString(L"Rock.dds"), Path::ROOT_NONE);
    Path viaOtherRoot(STDWString(L"Public/Rock.dds"), Path::ROOT_MEDIA);
    Path viaPublic(STDWString(L"Rock.dds"), Path::ROOT_PUBLIC);
    EXPECT_FALSE(upper == lower);
    EXPECT_TRUE(upper != lower);
    EXPECT_FALSE(Path::IsKeysEqual(upper, lower));
    EXPECT_TRUE(viaOtherRoot == viaPublic);
    EXPECT_TRUE(Path::IsKeysEqual(viaOtherRoot, viaPublic));
    EXPECT_EQ(FixedStringHacker::GetHandle(viaOtherRoot.ToFixedString()),
              FixedStringHacker::GetHandle(viaPublic.ToFixedString()));
    EXPECT_FALSE(same.Equals(upper));
    for (unsigned int tableSize : {1u, 7u, 64u, 1021u}) {
        const auto handle = reinterpret_cast<uintptr_t>(viaPublic.ToFixedString().ToChar());
        EXPECT_EQ(Path::KeyToHashIndex(viaPublic, tableSize), static_cast<unsigned int>(handle % tableSize));
        EXPECT_EQ(Path::KeyToHashIndex(viaPublic, tableSize), Path::KeyToHashIndex(viaOtherRoot, tableSize));
    }
    EXPECT_TRUE(Path::Assert());
}

TEST_F(PathTest, NarrowTextsAreUtf8AndIdentityIsUtf8) {
    Path path(STDString("donn\xC3\xA9"
                        "es/\xF0\x9F\x98\x80.znb"),
              Path::ROOT_MEDIA);
    const std::wstring smiley{wchar_t(0xD83D), wchar_t(0xDE00)};
    EXPECT_EQ(Text(path), Media(L"donn\u00E9es/") + smiley + L".znb");
    EXPECT_STREQ(path.ToFixedString().ToChar(),
                 "/media/game/donn\xC3\xA9"
                 "es/\xF0\x9F\x98\x80.znb");
    Path wide(STDWString(Text(path).c_str()), Path::ROOT_NONE);
    EXPECT_TRUE(wide == path);
    FixedString file;
    path.GetPathComponent(Path::FileNoExtension, file);
    EXPECT_STREQ(file.ToChar(), "\xF0\x9F\x98\x80");
    Localization::ConvertWideToMultiByte converted(path);
    EXPECT_STREQ(converted.Get(),
                 "/media/game/donn\xC3\xA9"
                 "es/\xF0\x9F\x98\x80.znb");
    EXPECT_EQ(converted.GetLength(), path.ToFixedString().GetLength());
}

TEST_F(PathTest, DefaultEmptyAndResetPaths) {
    Path unanalysed(Path::ROOT_USER);
    EXPECT_TRUE(unanalysed.IsEmpty());
    EXPECT_EQ(unanalysed.GetPathDesc(), Path::PATHDESC_EMPTY);
    EXPECT_EQ(unanalysed.GetRoot(), Path::ROOT_USER);
    EXPECT_FALSE(unanalysed.ToFixedString().IsValid());
    EXPECT_EQ(Path().GetRoot(), Path::ROOT_MEDIA);
    EXPECT_EQ(Component(unanalysed, Path::FullFilePath), L"");

    // The empty media root is analysed as a directory of length 0, so it is no longer "empty".
    Path empty = Path::Empty();
    EXPECT_TRUE(empty.IsEmpty());
    EXPECT_EQ(empty.GetPathDesc(),
              Path::PATHDESC_MEDIA_ROOT | Path::PATHDESC_ABSOLUTE | Path::PATHDESC_DIRECTORY);
    EXPECT_STREQ(empty.ToFixedString().ToChar(), "");
    EXPECT_TRUE(empty == Path::Empty());
    EXPECT_FALSE(empty == unanalysed);

    Path path(STDWString(L"a/b.znx"), Path::ROOT_MODS);
    const int desc = path.GetPathDesc();
    path.Reset();
    EXPECT_TRUE(path.IsEmpty());
    EXPECT_FALSE(path.ToFixedString().IsValid());
    EXPECT_EQ(path.GetPathDesc(), desc);
    EXPECT_EQ(path.GetRoot(), Path::ROOT_MODS);
}

TEST_F(PathTest, CopiesShareTheInternedTextAndTheLock) {
    Path path(STDWString(L"shared.znb"), Path::ROOT_MEDIA);
    const unsigned int references = path.ToFixedString().GetRefCount();
    {
        Path copy(path);
        EXPECT_EQ(copy.ToFixedString().GetRefCount(), references + 1);
        EXPECT_TRUE(copy == path);
        EXPECT_EQ(copy.GetPathDesc(), path.GetPathDesc());
        EXPECT_EQ(Component(copy, Path::RelativeFilePath), L"shared.znb");
    }
    EXPECT_EQ(path.ToFixedString().GetRefCount(), references);
    path.Lock();
    Path lockedCopy(STDWString(L"other"), Path::ROOT_MEDIA);
    lockedCopy = path;
    EXPECT_TRUE(lockedCopy.IsLocked());
    path.Unlock();
}

TEST_F(PathTest, ChildPathsAreTakenAsTheyStand) {
    ScopedCapture capture;
    Path parent(STDWString(L"levels"), Path::ROOT_PUBLIC);
    Path child(parent, L"one\\map.znb");
    EXPECT_EQ(Text(child), Media(L"Public/levels/one/map.znb"));
    EXPECT_EQ(child.GetRoot(), Path::ROOT_NONE);
    EXPECT_EQ(Component(child, Path::RelativeFilePath), L"Public/levels/one/map.znb");
    Path narrowChild(parent, "caf\xC3\xA9.xml");
    EXPECT_EQ(Text(narrowChild), Media(L"Public/levels/caf\u00E9.xml"));
    EXPECT_EQ(narrowChild.GetPathDesc(), Path::PATHDESC_FILE | Path::PATHDESC_ABSOLUTE | Path::PATHDESC_XML);
    Path separatorOnly(parent, static_cast<const wchar_t*>(nullptr));
    EXPECT_EQ(Text(separatorOnly), Media(L"Public/levels/"));
    EXPECT_TRUE(capture.Messages().empty());
}

TEST_F(PathTest, ChildOfTheMediaRootKeepsItsMark) {
    const Path& media = FileSystem::GetMediaPath();
    Path folder(media, L"sub");
    EXPECT_EQ(Text(folder), L"/media/game/sub");
    EXPECT_EQ(folder.GetPathDesc(),
              Path::PATHDESC_MEDIA_ROOT | Path::PATHDESC_ABSOLUTE | Path::PATHDESC_DIRECTORY);
    // The root part is the whole text, so nothing is relative to it.
    EXPECT_EQ(Component(folder, 0x01), L"/media/game/sub");
    EXPECT_EQ(Component(folder, Path::RelativePath), L"");
    Path file(folder, L"f.znb");
    EXPECT_NE(file.GetPathDesc() & Path::PATHDESC_MEDIA_ROOT, 0);
    EXPECT_EQ(Component(file, Path::RelativeFilePath), L"f.znb");
    EXPECT_EQ(Component(file, 0x01), L"/media/game/sub/f.znb");
}

TEST_F(PathTest, EditsBetweenLockAndUnlockAreAnalysedAgain) {
    ScopedCapture capture;
    Path path(STDWString(L"maps"), Path::ROOT_NONE);
    EXPECT_EQ(Text(path), L"maps");
    path.Lock();
    path.Append(L"start.dds");
    EXPECT_STREQ(path.ToFixedString().ToChar(), "maps");
    path.Unlock();
    EXPECT_EQ(Text(path), L"maps/start.dds");
    EXPECT_STREQ(path.ToFixedString().ToChar(), "maps/start.dds");
    EXPECT_EQ(path.GetPathDesc(), Path::PATHDESC_FILE | Path::PATHDESC_ABSOLUTE | Path::PATHDESC_DDS);

    path.Lock();
    path.Replace(L"start.dds", L"end\\final.gsf");
    path.Unlock();
    EXPECT_EQ(Text(path), L"maps/end/final.gsf");
    EXPECT_EQ(Component(path, Path::Dir), L"end");
    EXPECT_TRUE(capture.Messages().empty());
}

TEST_F(PathTest, EditOfARootedPathReportsTheMediaPathOnUnlock) {
    ScopedCapture capture;
    Path path(STDWString(L"maps"), Path::ROOT_MEDIA);
    path.Lock();
    path.Append(L"start.dds");
    path.Unlock();
    EXPECT_EQ(Text(path), Media(L"maps/start.dds"));
    EXPECT_EQ(Component(path, Path::RelativeFilePath), L"maps/start.dds");
    const std::vector<std::string> expected = {Message(kMediaWithRoot, "/media/game/maps/start.dds")};
    EXPECT_EQ(capture.Messages(), expected);
}

TEST_F(PathTest, EditsWithoutLockAreReportedAndCarryOn) {
    ScopedCapture capture;
    Path path(STDWString(L"maps"), Path::ROOT_MEDIA);
    path.Append(L"x.znb");
    EXPECT_EQ(Text(path), Media(L"maps/x.znb"));
    // Without Unlock nothing is analysed again.
    EXPECT_STREQ(path.ToFixedString().ToChar(), "/media/game/maps");
    EXPECT_NE(path.GetPathDesc() & Path::PATHDESC_DIRECTORY, 0);
    path.MakeAbsolute();
    EXPECT_EQ(Text(path), Media(L"maps/x.znb"));
    const std::vector<std::string> expected = {"Assert! Path not locked!", ZN_DEFAULT_ASSERT_TEXT};
    EXPECT_EQ(capture.Messages(), expected);
    EXPECT_EQ(capture.Reports()[0].function, "zn::Path::Append");
    EXPECT_EQ(capture.Reports()[1].function, "zn::Path::MakeAbsolute");
}

TEST_F(PathTest, MergeDropsOneBaseComponentForEachDotDot) {
    Path base(STDWString(L"/base/one/two"), Path::ROOT_NONE);
    struct Case {
        const wchar_t* relative;
        const wchar_t* merged;
    };
    const std::vector<Case> cases = {
        {L"../../x/y.znb", L"/base/x/y.znb"},
        {L"../x", L"/base/one/x"},
        {L"./x/y", L"/base/one/two/x/y"},
        {L"x/y", L"/base/one/two/x/y"},
        {L"..", L"/base/one"},
        {L"../../../../x", L"/x"},
        // Skipped by number: a ".." after a named component drops the wrong components.
        {L"a/../b", L"/base/one/../b"},
        {L"./../x", L"/base/one/x"},
    };
    for (const Case& test : cases) {
        Path relative(STDWString(test.relative), Path::ROOT_NONE);
        Path merged;
        Path::MergeAndCanonicalizePaths(base, relative, merged);
        EXPECT_EQ(Text(merged), test.merged) << Text(relative);
        EXPECT_EQ(merged.GetRoot(), Path::ROOT_NONE);
    }
    Path drive(STDWString(L"C:\\game\\bin"), Path::ROOT_NONE);
    Path relative(STDWString(L"../data/a.dds"), Path::ROOT_NONE);
    Path::MergeAndCanonicalizePaths(drive, relative, relative);
    EXPECT_EQ(Text(relative), L"C:/game/data/a.dds");
    EXPECT_EQ(relative.GetPathDesc(), Path::PATHDESC_FILE | Path::PATHDESC_ABSOLUTE | Path::PATHDESC_DDS);
}

TEST_F(PathTest, MergeResultInsideTheMediaFolderGetsItsRootPart) {
    Path base(STDWString(L"levels/one"), Path::ROOT_MEDIA);
    Path relative(STDWString(L"../two/map.znb"), Path::ROOT_NONE);
    Path merged;
    Path::MergeAndCanonicalizePaths(base, relative, merged);
    EXPECT_EQ(Text(merged), Media(L"levels/two/map.znb"));
    EXPECT_EQ(Component(merged, Path::RelativeFilePath), L"levels/two/map.znb");
}

TEST_F(PathTest, MergeBeforeStartUpIsReportedAndLeavesTheResult) {
    Path::_SDMShutDown();
    Path base(STDWString(L"/a/b"), Path::ROOT_NONE);
    Path relative(STDWString(L"../c"), Path::ROOT_NONE);
    Path result(STDWString(L"/kept"), Path::ROOT_NONE);
    {
        ScopedCapture capture;
        Path::MergeAndCanonicalizePaths(base, relative, result);
        const std::vector<std::string> expected = {ZN_DEFAULT_ASSERT_TEXT};
        EXPECT_EQ(capture.Messages(), expected);
    }
    EXPECT_EQ(Text(result), L"/kept");
    Path::_SDMInit();
    Path::_SDMInit();
    Path::MergeAndCanonicalizePaths(base, relative, result);
    EXPECT_EQ(Text(result), L"/a/c");
}

TEST_F(PathTest, DataPackNameIsTheFolderUnderPublic) {
    STDWString name;
    EXPECT_TRUE(Path(STDWString(L"Pack1/x/y.znb"), Path::ROOT_PUBLIC).GetDataPackName(name));
    EXPECT_EQ(std::wstring(name.ToChar()), L"Pack1");
    EXPECT_TRUE(Path(STDWString(L"Public/Pack2/z"), Path::ROOT_MEDIA).GetDataPackName(name));
    EXPECT_EQ(std::wstring(name.ToChar()), L"Pack2");

    name = L"untouched";
    EXPECT_FALSE(Path(STDWString(L"Public/file.znb"), Path::ROOT_MEDIA).GetDataPackName(name));
    EXPECT_FALSE(Path(STDWString(L"C:/Public/Pack/x.znb"), Path::ROOT_NONE).GetDataPackName(name));
    EXPECT_EQ(std::wstring(name.ToChar()), L"untouched");

    // The folder at the root is not checked to be "Public/": seven characters are skipped.
    EXPECT_TRUE(Path(STDWString(L"Others/Pack/x.znb"), Path::ROOT_MEDIA).GetDataPackName(name));
    EXPECT_EQ(std::wstring(name.ToChar()), L"Pack");

    // Without a media path the root part is empty and "Public/" stands at index 0.
    FileSystem::_SDMInit();
    EXPECT_FALSE(Path(STDWString(L"Public/Pack/x.znb"), Path::ROOT_NONE).GetDataPackName(name));
}

}  // namespace
}  // namespace zn
