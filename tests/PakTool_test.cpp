// PakTool_test.cpp: the `corelib pak` tool driven in-process: round trips checked against the
// files on disk and against the independent pack reader, exact output, damaged and hostile packs,
// the command line, and the progress line.
#include "tools/corelib/PakTool.h"
#include "tests/support/PackTestSupport.h"
#include "tools/corelib/StateFolder.h"

#include <gtest/gtest.h>
#include <zlib.h>

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <map>

namespace zn::test {
namespace {

struct ToolRun {
    int status;
    std::string out;
    std::string err;
};

using Tree = std::map<std::string, std::string>;

constexpr const char* kSeeHelp = " (see 'corelib --help')\n";

// Every regular file below root, by name relative to it.
Tree ReadTree(const std::filesystem::path& root) {
    Tree tree;
    std::error_code error;
    for (auto walker = std::filesystem::recursive_directory_iterator(root, error);
         walker != std::filesystem::recursive_directory_iterator(); walker.increment(error)) {
        if (walker->is_regular_file() && !walker->is_symlink()) {
            tree[walker->path().lexically_relative(root).generic_string()] = ReadAll(walker->path());
        }
    }
    return tree;
}

std::string Text(const Bytes& bytes) {
    return std::string(bytes.begin(), bytes.end());
}

class PakToolTest : public PackFixture {
protected:
    ToolRun Run(std::vector<std::string> words, FILE* err = nullptr) {
        std::vector<char*> argv{const_cast<char*>("corelib")};
        for (std::string& word : words) {
            argv.push_back(word.data());
        }
        char* outText = nullptr;
        char* errText = nullptr;
        size_t outSize = 0;
        size_t errSize = 0;
        FILE* out = open_memstream(&outText, &outSize);
        FILE* errStream = err != nullptr ? err : open_memstream(&errText, &errSize);
        tools::ToolOptions options;
        options.workingFolder = m_Temp.Folder().string();
        int status =
            tools::RunCorelibTool(static_cast<int>(argv.size()), argv.data(), out, errStream, options);
        std::fclose(out);
        if (err == nullptr) {
            std::fclose(errStream);
        }
        ToolRun run{status, std::string(outText, outSize),
                    errText != nullptr ? std::string(errText, errSize) : ""};
        std::free(outText);
        std::free(errText);
        return run;
    }

    std::string At(const std::string& relative) const { return (m_Temp.Folder() / relative).string(); }

    void WriteTree(const std::string& folder, const Tree& tree) const {
        for (const auto& [name, content] : tree) {
            m_Temp.Write(folder + "/" + name, content);
        }
    }

    // A pack made by the library itself, so that it may hold names the tool would never write.
    void SavePack(const std::string& pack, const Tree& files, bool compress = false) {
        PackedFile writer(true);
        for (const auto& [name, content] : files) {
            writer.AddFile(name.c_str(), content.data(), static_cast<unsigned int>(content.size()), compress);
        }
        writer.SetAllowMemoryMapping(!compress);
        ASSERT_TRUE(writer.Save(PathOf(At(pack))));
    }

    const Tree m_Sample{{"top.txt", "hello\n"},
                        {"empty.bin", ""},
                        {"nested/deep/exact.bin", Text(RandomBytes(32768, 1))},
                        {"nested/over.bin", Text(RandomBytes(32769, 2))},
                        {"nested/deep/Name With Spaces.TXT", std::string(5000, 'w')}};
};

// ---------------------------------------------------------------------------------------------
// Round trips

TEST_F(PakToolTest, CreateListExtractGivesBackEveryByteStoredAndDeflated) {
    WriteTree("src", m_Sample);
    for (bool compress : {false, true}) {
        SCOPED_TRACE(compress ? "deflated" : "stored");
        std::string pack = At(compress ? "c.pak" : "s.pak");
        ScopedCapture capture;
        std::vector<std::string> create{"pak", "create", At("src"), pack};
        if (compress) {
            create.push_back("--compress");
        }
        ToolRun created = Run(create);
        ASSERT_EQ(created.status, 0) << created.err;
        EXPECT_EQ(created.out, "created '" + pack + "': 5 entries, 70543 bytes" +
                                   (compress ? " deflated" : "") + ", memory mapping " +
                                   (compress ? "off" : "allowed") + "\n");
        EXPECT_EQ(created.err, "");

        RawPack raw = ParsePack(ReadBytes(pack));
        EXPECT_EQ(raw.allowMemoryMapping, compress ? 0 : 1);
        ASSERT_EQ(raw.entries.size(), 5u);
        for (const RawEntry& entry : raw.entries) {
            // An empty file is stored as it is even in a deflated pack.
            EXPECT_EQ(entry.uncompressedSize != 0, compress && !m_Sample.at(entry.name).empty())
                << entry.name;
        }
        // Sorted insertion: a folder's files come before the folder's later siblings.
        EXPECT_EQ(raw.entries[0].name, "empty.bin");
        EXPECT_EQ(raw.entries[1].name, "nested/deep/Name With Spaces.TXT");
        EXPECT_EQ(raw.entries[4].name, "top.txt");

        ToolRun listed = Run({"pak", "list", pack});
        EXPECT_EQ(listed.status, 0);
        EXPECT_NE(listed.out.find("  nested/over.bin\n"), std::string::npos);
        std::string target = At(compress ? "out-c" : "out-s");
        ToolRun extracted = Run({"pak", "extract", pack, target});
        ASSERT_EQ(extracted.status, 0) << extracted.err;
        EXPECT_EQ(extracted.out, "extracted 5 entries into '" + target + "'\n");
        EXPECT_EQ(ReadTree(target), m_Sample);
        EXPECT_EQ(capture.Messages(), std::vector<std::string>{});
    }
}

TEST_F(PakToolTest, ListShowsOneExactLineAnEntry) {
    std::string text(40000, 't');
    SavePack("m.pak", {{"a/stored.bin", "12345"}, {"b.txt", ""}});
    SavePack("d.pak", {{"deflated.txt", text}}, true);
    ToolRun listed = Run({"pak", "list", At("m.pak")});
    EXPECT_EQ(listed.status, 0);
    EXPECT_EQ(listed.out,
              "      Stored  Uncompressed  Part  Method    Name\n"
              "           5             5     0  stored    a/stored.bin\n"
              "           0             0     0  stored    b.txt\n"
              "2 entries in 1 part file, 5 bytes stored, 5 bytes uncompressed, memory mapping allowed\n");
    uint32_t stored = ParsePack(ReadBytes(At("d.pak"))).entries.at(0).size;
    char line[128];
    std::snprintf(line, sizeof(line), "%12u         40000     0  deflated  deflated.txt\n", stored);
    EXPECT_EQ(Run({"pak", "list", At("d.pak")}).out,
              "      Stored  Uncompressed  Part  Method    Name\n" + std::string(line) +
                  "1 entry in 1 part file, " + std::to_string(stored) +
                  " bytes stored, 40000 bytes uncompressed, memory mapping off\n");
}

TEST_F(PakToolTest, CatWritesTheEntryBytesExactly) {
    std::string binary = Text(RandomBytes(70000, 3));
    binary[10] = '\0';
    SavePack("m.pak", {{"bin/data.raw", binary}, {"empty", ""}});
    ToolRun cat = Run({"pak", "cat", At("m.pak"), "BIN/Data.RAW"});
    EXPECT_EQ(cat.status, 0);
    EXPECT_EQ(cat.out, binary);
    EXPECT_EQ(Run({"pak", "cat", At("m.pak"), "empty"}).out, "");

    ToolRun unknown = Run({"pak", "cat", At("m.pak"), "nope"});
    EXPECT_EQ(unknown.status, 1);
    EXPECT_EQ(unknown.out, "");
    EXPECT_EQ(unknown.err, "corelib: no entry 'nope' in '" + At("m.pak") + "'\n");
    EXPECT_EQ(Run({"pak", "cat", At("m.pak"), "bin"}).err,
              "corelib: 'bin' is a folder in '" + At("m.pak") + "', not an entry\n");
}

TEST_F(PakToolTest, PathsAreTakenFromTheGivenWorkingFolderAndAPackNeverTakesItselfIn) {
    WriteTree("src", {{"one.txt", "1"}});
    ASSERT_EQ(Run({"pak", "create", "src", "./src/self.pak"}).status, 0);
    ASSERT_EQ(Run({"pak", "create", "src/", "src//self.pak", "--no-mmap"}).status, 0);
    RawPack raw = ParsePack(ReadBytes(At("src/self.pak")));
    EXPECT_EQ(raw.allowMemoryMapping, 0);
    ASSERT_EQ(raw.entries.size(), 1u);
    EXPECT_EQ(raw.entries[0].name, "one.txt");
    EXPECT_EQ(raw.entries[0].uncompressedSize, 0u);
}

// The pack's trie strips the media path's text wherever it stands in a name: the tool must not
// leave the media path on a folder whose text can turn up in its names.
TEST_F(PakToolTest, NamesHoldingTheMediaPathTextRoundTrip) {
    // With the media path left on the folder, this name would lose everything up to "f.txt" and
    // collide with the other entry.
    std::string inner = "x" + At("media-src") + "f.txt";
    WriteTree("media-src", {{inner, "inner"}, {"f.txt", "outer"}});
    FileSystem::SetMediaPath(Wide(At("media-src")));
    ASSERT_EQ(Run({"pak", "create", At("media-src"), At("m.pak")}).status, 0);
    EXPECT_EQ(Run({"pak", "cat", At("m.pak"), inner}).out, "inner");
    ASSERT_EQ(Run({"pak", "extract", At("m.pak"), At("out")}).status, 0);
    EXPECT_EQ(ReadTree(At("out")), (Tree{{inner, "inner"}, {"f.txt", "outer"}}));
    // The host's media path is given back.
    EXPECT_EQ(FileSystem::GetMediaPath().ToWString(), Wide(At("media-src") + "/"));
}

TEST_F(PakToolTest, CreateRefusesWhatAPackCannotHoldAndWritesNothing) {
    std::string longName(255, 'n');
    WriteTree("src",
              {{"Case.txt", "1"}, {"case.txt", "2"}, {longName, "3"}, {"back\\slash", "4"}, {"ok", "5"}});
    std::filesystem::create_symlink("/etc/passwd", At("src/link"));
    ToolRun run = Run({"pak", "create", At("src"), At("m.pak")});
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.out, "");
    EXPECT_EQ(run.err,
              "corelib: skipping 'link': not a regular file\n"
              "corelib: 'back\\slash' holds a '\\', which every reader of the pack takes as a folder "
              "separator\n"
              "corelib: 'Case.txt' and 'case.txt' differ only in case: a pack can hold one of them\n"
              "corelib: '" +
                  longName +
                  "' is too long for a pack entry: 255 bytes, at most 254\n"
                  "corelib: '" +
                  At("m.pak") + "' not written: 3 files cannot go into a pack\n");
    EXPECT_FALSE(std::filesystem::exists(At("m.pak")));
    EXPECT_EQ(Run({"pak", "create", At("missing"), At("m.pak")}).err,
              "corelib: '" + At("missing") + "' is not a folder\n");
}

// ---------------------------------------------------------------------------------------------
// Verification

TEST_F(PakToolTest, VerifyPassesAGoodPackAndNamesEveryProblemOfABrokenOne) {
    WriteTree("src", {{"a.bin", Text(RandomBytes(1000, 4))}, {"b.bin", Text(RandomBytes(40000, 5))}});
    ASSERT_EQ(Run({"pak", "create", At("src"), At("m.pak")}).status, 0);
    ToolRun good = Run({"pak", "verify", At("m.pak")});
    EXPECT_EQ(good.status, 0);
    EXPECT_EQ(good.out, "OK: '" + At("m.pak") + "': 2 entries in 1 part file read back whole\n");
    EXPECT_EQ(good.err, "");

    // Cut inside b.bin's data.
    std::filesystem::resize_file(At("m.pak"), 65536 + 100);
    ToolRun cut = Run({"pak", "verify", At("m.pak")});
    EXPECT_EQ(cut.status, 1);
    EXPECT_EQ(cut.out, "entry 'b.bin': its 40000 bytes at offset 65536 reach past the end of '" +
                           At("m.pak") + "' (65636 bytes)\n1 problem found\n");
    EXPECT_EQ(cut.err, "corelib: '" + At("m.pak") + "' failed verification: 1 problem\n");

    // Cut inside the header.
    std::filesystem::resize_file(At("m.pak"), 10);
    ToolRun header = Run({"pak", "verify", At("m.pak")});
    EXPECT_EQ(header.status, 1);
    EXPECT_EQ(header.out, "'" + At("m.pak") + "' is not a pack, or its table of contents is damaged\n");
}

TEST_F(PakToolTest, VerifyAndListNameAMissingPartFile) {
    WriteTree("src", {{"a", Text(RandomBytes(40000, 6))}, {"b", "bee"}, {"c", "sea"}});
    // The part limit drops to one chunk: a fills part 0, and b and c open a part each.
    PackedFileSeam::SetPartDataLimit(32768);
    ASSERT_EQ(Run({"pak", "create", At("src"), At("m.pak")}).status, 0);
    ToolRun listed = Run({"pak", "list", At("m.pak")});
    EXPECT_NE(listed.out.find("           3             3     2  stored    c\n"), std::string::npos)
        << listed.out;
    EXPECT_NE(listed.out.find("3 entries in 3 part files"), std::string::npos);
    EXPECT_EQ(Run({"pak", "verify", At("m.pak")}).status, 0);

    std::filesystem::remove(At("m_2.pak"));
    ToolRun verified = Run({"pak", "verify", At("m.pak")});
    EXPECT_EQ(verified.status, 1);
    EXPECT_EQ(verified.out, "part file '" + At("m_2.pak") + "' is missing\nentry 'c': its part file '" +
                                At("m_2.pak") + "' is missing\n2 problems found\n");
    ToolRun list = Run({"pak", "list", At("m.pak")});
    EXPECT_EQ(list.status, 1);
    EXPECT_EQ(list.err, "corelib: part file '" + At("m_2.pak") + "' of '" + At("m.pak") + "' is missing\n");
}

TEST_F(PakToolTest, VerifyCatchesACorruptedDeflatedEntry) {
    WriteTree("src", {{"text.txt", std::string(20000, 'a')}, {"other.txt", "fine"}});
    ASSERT_EQ(Run({"pak", "create", At("src"), At("m.pak"), "--compress"}).status, 0);
    Bytes bytes = ReadBytes(At("m.pak"));
    RawPack raw = ParsePack(bytes);
    const RawEntry& text = raw.entries.at(1);
    ASSERT_EQ(text.name, "text.txt");
    // Past the two bytes of the zlib header, 0xFF begins a deflate block of the reserved type.
    std::fill_n(bytes.begin() + raw.dataOffset + text.offset + 2, text.size - 2, 0xFF);
    WriteBytes(At("m.pak"), bytes);
    ToolRun verified = Run({"pak", "verify", At("m.pak")});
    EXPECT_EQ(verified.status, 1);
    EXPECT_EQ(verified.out,
              "entry 'text.txt': its data does not inflate to the stated 20000 bytes\n1 problem found\n");
    ToolRun extracted = Run({"pak", "extract", At("m.pak"), At("out")});
    EXPECT_EQ(extracted.status, 1);
    EXPECT_EQ(ReadTree(At("out")), (Tree{{"other.txt", "fine"}}));
}

// ---------------------------------------------------------------------------------------------
// Hostile names and links

TEST_F(PakToolTest, ExtractionRefusesNamesThatLeaveTheTargetAndWritesNothing) {
    SavePack("evil.pak", {{"ok.txt", "fine"},
                          {"../escape.txt", "1"},
                          {"/abs.txt", "2"},
                          {"C:/drive.txt", "3"},
                          {"a//b.txt", "4"},
                          {"trail/", "5"},
                          {"sub/../../up.txt", "6"},
                          {"back\\..\\..\\slash.txt", "7"}});
    Tree before = ReadTree(m_Temp.Folder());
    ToolRun run = Run({"pak", "extract", At("evil.pak"), At("target/inner")});
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.out, "");
    for (const char* line :
         {"corelib: refusing entry '../escape.txt': its '..' component climbs out of the target folder\n",
          "corelib: refusing entry '/abs.txt': it is an absolute name\n",
          "corelib: refusing entry 'C:/drive.txt': it names a drive\n",
          "corelib: refusing entry 'a//b.txt': it has an empty path component\n",
          "corelib: refusing entry 'trail/': it has an empty path component\n",
          "corelib: refusing entry 'sub/../../up.txt': its '..' component climbs out of the target folder\n",
          "corelib: refusing entry 'back\\..\\..\\slash.txt': its '..' component climbs out of the target "
          "folder\n"}) {
        EXPECT_NE(run.err.find(line), std::string::npos) << line;
    }
    EXPECT_NE(
        run.err.find("corelib: nothing extracted into '" + At("target/inner") + "': 7 unsafe entry names\n"),
        std::string::npos);
    EXPECT_EQ(ReadTree(m_Temp.Folder()), before);
    EXPECT_FALSE(std::filesystem::exists(At("target")));

    // The safe entry can still be had by name; verify names every unsafe one.
    ASSERT_EQ(Run({"pak", "extract", At("evil.pak"), At("target"), "ok.txt"}).status, 0);
    EXPECT_EQ(ReadTree(At("target")), (Tree{{"ok.txt", "fine"}}));
    ToolRun verified = Run({"pak", "verify", At("evil.pak")});
    EXPECT_EQ(verified.status, 1);
    EXPECT_NE(verified.out.find("entry '/abs.txt': it is an absolute name, so it cannot be extracted\n"),
              std::string::npos);
    EXPECT_NE(verified.out.find("7 problems found\n"), std::string::npos);
}

TEST_F(PakToolTest, ExtractionFollowsNoLinkBelowTheTarget) {
    m_Temp.Write("outside/kept.txt", "original");
    m_Temp.MakeDirectory("target");
    std::filesystem::create_directory_symlink(At("outside"), At("target/link"));
    std::filesystem::create_symlink(At("outside/kept.txt"), At("target/leaf.txt"));
    SavePack("m.pak", {{"link/x.txt", "through"}, {"leaf.txt", "new"}, {"sub/y.txt", "y"}});
    ToolRun run = Run({"pak", "extract", At("m.pak"), At("target")});
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.err,
              "corelib: cannot extract 'link/x.txt': 'link' is a symbolic link or not a folder\n"
              "corelib: 1 of 3 entries could not be extracted into '" +
                  At("target") + "'\n");
    EXPECT_EQ(ReadTree(At("outside")), (Tree{{"kept.txt", "original"}}));
    // The link in the file's place is replaced, not written through.
    EXPECT_FALSE(std::filesystem::is_symlink(At("target/leaf.txt")));
    EXPECT_EQ(ReadAll(At("target/leaf.txt")), "new");
    EXPECT_EQ(ReadAll(At("target/sub/y.txt")), "y");
}

// ---------------------------------------------------------------------------------------------
// The command line

TEST_F(PakToolTest, UsageMistakesExitWithTwoAndOneLine) {
    struct Case {
        std::vector<std::string> words;
        std::string err;
    };
    const std::vector<Case> cases{
        {{"frob"}, "corelib: unknown command 'frob'"},
        {{"pak"}, "corelib: 'pak' needs a command: create, list, extract, cat or verify"},
        {{"pak", "frob"}, "corelib: unknown pak command 'frob'"},
        {{"pak", "create", "only"},
         "corelib: wrong arguments for 'pak create'; usage: corelib pak create <folder> <out.pak> "
         "[--compress] "
         "[--no-mmap]"},
        {{"pak", "cat", "x.pak"},
         "corelib: wrong arguments for 'pak cat'; usage: corelib pak cat <pak> <name>"},
        {{"pak", "list", "a", "b"}, "corelib: wrong arguments for 'pak list'; usage: corelib pak list <pak>"},
        {{"pak", "extract", "x.pak"},
         "corelib: wrong arguments for 'pak extract'; usage: corelib pak extract <pak> <folder> [names...]"},
        {{"pak", "list", "x.pak", "--bogus"}, "corelib: unknown option '--bogus'"},
        {{"pak", "verify", "x.pak", "--compress"}, "corelib: option '--compress' belongs to 'pak create'"},
    };
    for (const Case& testCase : cases) {
        ToolRun run = Run(testCase.words);
        EXPECT_EQ(run.status, 2) << testCase.err;
        EXPECT_EQ(run.err, testCase.err + kSeeHelp);
        EXPECT_EQ(run.out, "");
    }
    ToolRun bare = Run({});
    EXPECT_EQ(bare.status, 2);
    EXPECT_EQ(bare.err.rfind("Usage: corelib pak <command> [arguments]\n", 0), 0u);
    for (const std::vector<std::string>& help :
         {std::vector<std::string>{"--help"}, {"pak", "--help"}, {"pak", "list", "-h"}}) {
        ToolRun run = Run(help);
        EXPECT_EQ(run.status, 0);
        EXPECT_EQ(run.out, bare.err);
        EXPECT_EQ(run.err, "");
    }
    // "--" lets a name start with a dash.
    SavePack("m.pak", {{"-dash", "d"}});
    EXPECT_EQ(Run({"pak", "cat", "--", At("m.pak"), "-dash"}).out, "d");
    ToolRun missing = Run({"pak", "list", At("none.pak")});
    EXPECT_EQ(missing.status, 1);
    EXPECT_EQ(missing.err, "corelib: cannot open '" + At("none.pak") + "': No such file or directory\n");
}

TEST_F(PakToolTest, TheProgressLineAppearsOnATerminalOnly) {
    WriteTree("src", {{"a.txt", "a"}, {"b.txt", "b"}});
    ToolRun piped = Run({"pak", "create", At("src"), At("p.pak")});
    ASSERT_EQ(piped.status, 0);
    EXPECT_EQ(piped.err, "");

    int terminal = posix_openpt(O_RDWR | O_NOCTTY);
    if (terminal < 0 || grantpt(terminal) != 0 || unlockpt(terminal) != 0) {
        GTEST_SKIP() << "no pseudo-terminal here";
    }
    FILE* err = std::fopen(ptsname(terminal), "w");
    ASSERT_NE(err, nullptr);
    ToolRun shown = Run({"pak", "create", At("src"), At("t.pak")}, err);
    std::fclose(err);
    EXPECT_EQ(shown.status, 0);
    std::string screen;
    char buffer[4096];
    pollfd ready{terminal, POLLIN, 0};
    while (poll(&ready, 1, 200) > 0 && (ready.revents & POLLIN) != 0) {
        ssize_t count = read(terminal, buffer, sizeof(buffer));
        if (count <= 0) {
            break;
        }
        screen.append(buffer, static_cast<size_t>(count));
    }
    close(terminal);
    EXPECT_EQ(screen, "\r[1/2] a.txt\r[2/2] b.txt\r           \r");
}

TEST_F(PakToolTest, TheProgramRunsInAStateFolderOfItsOwn) {
    EXPECT_EQ(tools::StateFolder::ChooseFolder("/s", "/home/u"), "/s/corelib");
    EXPECT_EQ(tools::StateFolder::ChooseFolder("relative", "/home/u"), "/home/u/.local/state/corelib");
    EXPECT_EQ(tools::StateFolder::ChooseFolder(nullptr, ""), "");

    std::string started = tools::StateFolder::CurrentFolder();
    const char* saved = std::getenv("XDG_STATE_HOME");
    std::string savedText = saved != nullptr ? saved : "";
    setenv("XDG_STATE_HOME", At("state").c_str(), 1);
    {
        tools::StateFolder state;
        std::string reason;
        EXPECT_TRUE(state.Enter(reason)) << reason;
        EXPECT_EQ(state.GetFolder(), At("state/corelib"));
        EXPECT_EQ(tools::StateFolder::CurrentFolder(), At("state/corelib"));
        EXPECT_EQ(std::filesystem::status(At("state/corelib")).permissions() & std::filesystem::perms::all,
                  std::filesystem::perms::owner_all);
    }
    EXPECT_EQ(chdir(started.c_str()), 0);
    saved != nullptr ? setenv("XDG_STATE_HOME", savedText.c_str(), 1) : unsetenv("XDG_STATE_HOME");
}

}  // namespace
}  // namespace zn::test
