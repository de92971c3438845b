// PackedFile_TOC_test.cpp: the trie of a pack's names, its lookups, walks and stored form.
#include "CoreLib/PackedFile_TOC.h"
#include "CoreLib/FileWriter.h"
#include "CoreLib/PackedFile.h"
#include "tests/support/PackTestSupport.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <random>
#include <set>
#include <string>

namespace zn::test {
namespace {

class PackedFileTocTest : public PackFixture {
protected:
    // An entry whose name is the given text; the table only points to it.
    PackedFileEntry* MakeEntry(const std::string& name, uint32_t size = 1) {
        m_Entries.push_back(std::make_unique<PackedFileEntry>());
        PackedFileEntry* entry = m_Entries.back().get();
        std::memset(entry, 0, sizeof(PackedFileEntry));
        std::memcpy(entry->m_Name, name.data(), name.size());
        entry->m_Size = size;
        return entry;
    }
    FileTrieNode* Insert(PackedFile_TOC& toc, const std::string& name) {
        return toc.Insert(FixedString(name.c_str()), MakeEntry(name));
    }
    std::string MediaRoot() const {
        std::string text = m_Media.string();
        return text;
    }
    static std::set<std::string> Texts(const ObjectSet<Path>& paths) {
        std::set<std::string> texts;
        for (unsigned int index = 0; index < paths.GetSize(); ++index) {
            texts.insert(paths[index].ToFixedString().ToChar());
        }
        return texts;
    }

    std::vector<std::unique_ptr<PackedFileEntry>> m_Entries;
};

TEST_F(PackedFileTocTest, HashFoldsAsciiCaseAndSignExtendsOtherBytes) {
    EXPECT_EQ(PackedFile::GetHashValue(""), 0u);
    EXPECT_EQ(PackedFile::GetHashValue("a"), 97u);
    EXPECT_EQ(PackedFile::GetHashValue("Ab"), 97u * 33 + 98);
    EXPECT_EQ(PackedFile::GetHashValue("aB"), PackedFile::GetHashValue("AB"));
    EXPECT_EQ(PackedFile::GetHashValue("\xC3"), 0xFFFFFFC3u);
    EXPECT_EQ(PackedFile::GetHashValue("x\xC3"), 120u * 33 + 0xFFFFFFC3u);
    EXPECT_EQ(PackedFile::GetHashValue("abc/def", 3), PackedFile::GetHashValue("ABC"));
    EXPECT_EQ(PackedFile::GetHashValue("ab", 10), PackedFile::GetHashValue("ab"));
    // 32-bit overflow is ignored.
    uint32_t expected = 0;
    for (char character : std::string("averyveryverylongname.znb")) {
        expected = expected * 33 + static_cast<uint32_t>(character);
    }
    EXPECT_EQ(PackedFile::GetHashValue("AVeryVeryVeryLongName.ZNB"), expected);
}

TEST_F(PackedFileTocTest, NamesAreCaseInsensitiveAndKeepTheirFirstSpelling) {
    PackedFile_TOC toc;
    FileTrieNode* first = Insert(toc, "A/b.dds");
    EXPECT_EQ(toc.Find(FixedString("a/B.DDS")), first);
    EXPECT_EQ(std::string(first->GetName().ToChar()), "b.dds");
    EXPECT_EQ(std::string(first->GetParent()->GetName().ToChar()), "A");
    EXPECT_EQ(std::string(first->GetRelativeName().ToChar()), "A/b.dds");
    EXPECT_EQ(std::string(first->GetFullName().ToChar()), MediaRoot() + "/A/b.dds");
    EXPECT_EQ(std::string(toc.GetRoot()->GetName().ToChar()), MediaRoot());
    EXPECT_EQ(toc.FindEntry("a/b.DDs"), first->GetData());
    // Only whole components match: a prefix or a longer name is another node.
    EXPECT_EQ(toc.Find(FixedString("a/b.dd")), nullptr);
    EXPECT_EQ(toc.Find(FixedString("a/b.ddsx")), nullptr);
    EXPECT_EQ(toc.Find(FixedString("")), nullptr);
    EXPECT_EQ(toc.Find(FixedString()), nullptr);
}

TEST_F(PackedFileTocTest, DirectoriesAreNodesWithoutEntriesAndCanGainOne) {
    PackedFile_TOC toc;
    FileTrieNode* file = Insert(toc, "a/b");
    FileTrieNode* directory = toc.Find(FixedString("a"));
    ASSERT_NE(directory, nullptr);
    EXPECT_FALSE(directory->HasData());
    EXPECT_EQ(toc.FindEntry("a"), nullptr);
    EXPECT_EQ(toc.Find(FixedString("a/")), directory);
    EXPECT_EQ(Insert(toc, "a"), directory);
    EXPECT_TRUE(directory->HasData());
    EXPECT_EQ(toc.FindEntry("a/b"), file->GetData());
    EXPECT_STREQ(toc.FindEntry("a")->m_Name, "a");
    EXPECT_EQ(toc.GetCount(), 2u);
    EXPECT_EQ(toc.GetSize(), 4u + 2 * 272);
}

TEST_F(PackedFileTocTest, TheMediaPathInsideAKeyIsStripped) {
    PackedFile_TOC toc;
    FileTrieNode* node = Insert(toc, "Public/Game/x.znb");
    EXPECT_EQ(toc.Find(FixedString((MediaRoot() + "/Public/Game/x.znb").c_str())), node);
    EXPECT_EQ(toc.Find(Path(STDWString(L"Public/Game/x.znb"), Path::ROOT_MEDIA).ToFixedString()), node);
    EXPECT_EQ(toc.Find(Path(STDWString(L"Game/x.znb"), Path::ROOT_PUBLIC).ToFixedString()), node);
    // The media folder itself is the root.
    EXPECT_EQ(toc.Find(Path(STDWString(L""), Path::ROOT_MEDIA).ToFixedString()), toc.GetRoot());
    EXPECT_EQ(toc.Find(FixedString(MediaRoot().c_str())), toc.GetRoot());
}

TEST_F(PackedFileTocTest, InsertingDataTwiceIsReportedAndOverwrites) {
    PackedFile_TOC toc;
    Insert(toc, "x/y");
    PackedFileEntry* second = MakeEntry("X/Y", 2);
    ScopedCapture capture;
    FileTrieNode* node = toc.Insert(FixedString("X/Y"), second);
    EXPECT_EQ(capture.Messages(), std::vector<std::string>{"Data of trie node already set, overwriting!"});
    EXPECT_EQ(node->GetData(), second);
    EXPECT_EQ(toc.GetCount(), 2u);
    EXPECT_EQ(std::string(node->GetName().ToChar()), "y");
}

TEST_F(PackedFileTocTest, FindCharFindsTheSeparatorAndReportsAnEmptyText) {
    const char* text = "ab/cd";
    EXPECT_EQ(FileTrieNode::FindChar(text, 5), text + 2);
    EXPECT_EQ(FileTrieNode::FindChar(text, 2), nullptr);
    ScopedCapture capture;
    EXPECT_EQ(FileTrieNode::FindChar(text, 0), nullptr);
    EXPECT_EQ(FileTrieNode::FindChar(text, -3), nullptr);
    EXPECT_EQ(capture.Messages(), (std::vector<std::string>{"Length of string 0 or negative!",
                                                            "Length of string 0 or negative!"}));
}

TEST_F(PackedFileTocTest, PatternsWalkTheSubtreeOrThroughMatchingDirectories) {
    PackedFile_TOC toc;
    for (const char* name :
         {"top.znb", "top.xml", "a1/x.znb", "a1/deep/y.znb", "a2/z.znb", "a2/z.dds", "b/w.znb", "Up/U.ZNB"}) {
        Insert(toc, name);
    }
    Path media(STDWString(L""), Path::ROOT_MEDIA);
    std::string root = MediaRoot() + "/";
    ObjectSet<Path> found;
    toc.CollectFiles(media, L"*.znb", true, found);
    // The pattern is lowered, the names are not: the match ignores case.
    EXPECT_EQ(Texts(found),
              (std::set<std::string>{root + "top.znb", root + "a1/x.znb", root + "a1/deep/y.znb",
                                     root + "a2/z.znb", root + "b/w.znb", root + "Up/U.ZNB"}));
    EXPECT_EQ(found.GetSize(), 6u);

    ObjectSet<Path> flat;
    toc.CollectFiles(media, L"*.ZNB", false, flat);
    EXPECT_EQ(Texts(flat), (std::set<std::string>{root + "top.znb"}));

    ObjectSet<Path> oneLevel;
    toc.CollectFiles(media, L"a*/*.znb", false, oneLevel);
    EXPECT_EQ(Texts(oneLevel), (std::set<std::string>{root + "a1/x.znb", root + "a2/z.znb"}));

    ObjectSet<Path> inside;
    toc.CollectFiles(Path(STDWString(L"a1"), Path::ROOT_MEDIA), L"*", true, inside);
    EXPECT_EQ(Texts(inside), (std::set<std::string>{root + "a1/x.znb", root + "a1/deep/y.znb"}));

    ObjectSet<Path> none;
    toc.CollectFiles(media, L"a1/", true, none);
    toc.CollectFiles(Path(STDWString(L"missing"), Path::ROOT_MEDIA), L"*", true, none);
    toc.CollectFiles(Path(STDWString(L"a1"), Path::ROOT_WORKING), L"*", true, none);
    EXPECT_EQ(none.GetSize(), 0u);
    EXPECT_EQ(found[0].GetRoot(), Path::ROOT_NONE);
}

TEST_F(PackedFileTocTest, DirectoriesAreCollectedOnceEachAndFileNamesInPostOrder) {
    PackedFile_TOC toc;
    for (const char* name : {"a/b/c.znb", "a/d.znb", "e/f.znb", "g.znb"}) {
        Insert(toc, name);
    }
    std::string root = MediaRoot() + "/";
    Path media(STDWString(L""), Path::ROOT_MEDIA);
    ObjectSet<Path> top;
    toc.CollectDirectories(media, false, top);
    EXPECT_EQ(Texts(top), (std::set<std::string>{root + "a", root + "e"}));
    ObjectSet<Path> all;
    toc.CollectDirectories(media, true, all);
    EXPECT_EQ(Texts(all), (std::set<std::string>{root + "a", root + "a/b", root + "e"}));
    EXPECT_EQ(all.GetSize(), 3u);

    ObjectSet<FixedString> names;
    toc.GetFileNames(names);
    std::vector<std::string> texts;
    for (unsigned int index = 0; index < names.GetSize(); ++index) {
        texts.push_back(names[index].ToChar());
    }
    EXPECT_EQ(texts, (std::vector<std::string>{"a/b/c.znb", "a/d.znb", "e/f.znb", "g.znb"}));
}

TEST_F(PackedFileTocTest, StoredFormRoundTripsInPostOrder) {
    PackedFile_TOC toc;
    for (const char* name : {"b/x", "a", "b/y", "b"}) {
        Insert(toc, name);
    }
    std::filesystem::path file = m_Temp.Folder() / "toc.bin";
    {
        FileWriter writer(PathOf(file), CompressionType_None, STDWString(L"wb"));
        ASSERT_TRUE(writer.IsLoaded());
        EXPECT_TRUE(toc.Write(&writer));
    }
    Bytes bytes = ReadBytes(file);
    ASSERT_EQ(bytes.size(), toc.GetSize());
    EXPECT_EQ(GetU32(bytes, 0), 4u);
    std::vector<std::string> stored;
    for (size_t at = 4; at < bytes.size(); at += 272) {
        stored.emplace_back(reinterpret_cast<const char*>(&bytes[at]));
    }
    EXPECT_EQ(stored, (std::vector<std::string>{"b/x", "b/y", "b", "a"}));

    PackedFile_TOC loaded;
    ASSERT_TRUE(loaded.Load(bytes.data(), static_cast<unsigned int>(bytes.size())));
    EXPECT_EQ(loaded.GetCount(), 4u);
    EXPECT_EQ(loaded.GetEntryCount(), 4u);
    // Children come back in stored order: b before a, and x before y.
    EXPECT_EQ(std::string(loaded.GetRoot()->GetChild(0)->GetName().ToChar()), "b");
    EXPECT_EQ(std::string(loaded.GetRoot()->GetChild(0)->GetChild(0)->GetName().ToChar()), "x");
    EXPECT_STREQ(loaded.FindEntry("B/Y")->m_Name, "b/y");

    bytes[4 + 271] = 0x41;  // the stored order is kept byte for byte, other fields included
    PackedFile_TOC reloaded;
    ASSERT_TRUE(reloaded.Load(bytes.data(), static_cast<unsigned int>(bytes.size())));
    EXPECT_EQ(reloaded.FindEntry("b/x")->m_PartIndex, 0x41000000u);
}

TEST_F(PackedFileTocTest, LoadRefusesCountsThatDisagreeAndNamesWithoutTerminator) {
    Bytes bytes(4 + 272, 0);
    PutU32(bytes, 0, 1);
    std::memcpy(&bytes[4], "ok", 2);
    PackedFile_TOC toc;
    EXPECT_TRUE(toc.Load(bytes.data(), static_cast<unsigned int>(bytes.size())));
    EXPECT_FALSE(toc.Load(bytes.data(), 3));
    EXPECT_FALSE(toc.Load(bytes.data(), static_cast<unsigned int>(bytes.size() - 1)));
    PutU32(bytes, 0, 0x10000001);  // 0x10000001 * 272 wraps to 272 in 32 bits
    EXPECT_FALSE(toc.Load(bytes.data(), static_cast<unsigned int>(bytes.size())));
    PutU32(bytes, 0, 1);
    std::memset(&bytes[4], 'n', 256);
    EXPECT_FALSE(toc.Load(bytes.data(), static_cast<unsigned int>(bytes.size())));
    EXPECT_EQ(toc.GetEntries(), nullptr);
}

TEST_F(PackedFileTocTest, ClearGivesEveryNodeBackToThePool) {
    PackedFile_TOC toc;
    EXPECT_EQ(toc.GetNodePool().GetCurrentSize(), 64000u);
    EXPECT_EQ(toc.GetNodePool().GetMaximumSize(), 128000u);
    EXPECT_EQ(toc.GetNodePool().GetGrowCount(), 3200u);
    EXPECT_STREQ(toc.GetNodePool().GetName(), "FileTrieNode");
    for (const char* name : {"a/b/c", "a/b/d", "e"}) {
        Insert(toc, name);
    }
    EXPECT_EQ(toc.GetNodePool().GetUsedCount(), 6u);
    toc.Clear();
    EXPECT_EQ(toc.GetNodePool().GetUsedCount(), 1u);
    EXPECT_EQ(toc.GetCount(), 0u);
    EXPECT_EQ(toc.GetRoot()->GetChildCount(), 0u);
    EXPECT_TRUE(toc.GetNodePool().Validate());
    EXPECT_EQ(toc.Find(FixedString("a")), nullptr);
    // Released nodes come back clean.
    FileTrieNode* node = toc.Insert(FixedString("q"), nullptr);
    EXPECT_FALSE(node->HasData());
    EXPECT_EQ(node->GetChildCount(), 0u);
    EXPECT_EQ(std::string(node->GetName().ToChar()), "q");
}

// Lookups of many names, spelt in random case, with stray separators, prefixes and extensions,
// against a model of the tree: the node found is the one whose relative name equals the key,
// ASCII case aside, or none.
TEST_F(PackedFileTocTest, LookupsAgreeWithAModelOfTheTree) {
    ScopedCapture capture;
    PackedFile_TOC toc;
    std::mt19937 random(20261123);
    const char* parts[] = {"data", "Mesh", "tex", "a", "b", "set_1", "set_12", "file.znb", "FILE.dds", "x"};
    std::map<std::string, FileTrieNode*> model;  // lower-case name -> node
    auto lower = [](std::string text) {
        for (char& character : text) {
            if (character >= 'A' && character <= 'Z') {
                character = static_cast<char>(character + ('a' - 'A'));
            }
        }
        return text;
    };
    for (int count = 0; count < 3000; ++count) {
        std::string name;
        int depth = 1 + static_cast<int>(random() % 4);
        for (int level = 0; level < depth; ++level) {
            if (level > 0) {
                name += '/';
            }
            name += parts[random() % 10];
            name += std::to_string(random() % 7);
        }
        FileTrieNode* node = Insert(toc, name);
        ASSERT_NE(node, nullptr);
        // The node and every directory above it, under their first spelling.
        for (FileTrieNode* level = node; level->GetParent() != nullptr; level = level->GetParent()) {
            std::string key = lower(level->GetRelativeName().ToChar());
            ASSERT_TRUE(model.emplace(key, level).first->second == level) << key;
        }
    }
    auto respell = [&](const std::string& text) {
        std::string spelt = text;
        for (char& character : spelt) {
            if (random() % 2 == 0 && character >= 'a' && character <= 'z') {
                character = static_cast<char>(character - ('a' - 'A'));
            }
        }
        return spelt;
    };
    int found = 0;
    for (const auto& [key, node] : model) {
        ASSERT_EQ(toc.Find(FixedString(respell(key).c_str())), node) << key;
        // A trailing separator still finds the node; prefixes, extensions and empty components are
        // other names.
        ASSERT_EQ(toc.Find(FixedString((respell(key) + "/").c_str())), node) << key;
        for (std::string other : {key + "z", key.substr(0, key.size() - 1), "/" + key, key + "/q"}) {
            auto expected = model.find(lower(other));
            FileTrieNode* wanted = expected != model.end() ? expected->second : nullptr;
            if (other[0] == '/') {
                wanted = nullptr;
            }
            ASSERT_EQ(toc.Find(FixedString(other.c_str())), wanted) << other;
        }
        size_t separator = key.find('/');
        if (separator != std::string::npos) {
            std::string doubled = key.substr(0, separator) + "//" + key.substr(separator + 1);
            ASSERT_EQ(toc.Find(FixedString(doubled.c_str())), nullptr) << doubled;
        }
        ++found;
    }
    EXPECT_GT(found, 3000);
    for (const std::string& message : capture.Messages()) {
        EXPECT_EQ(message, "Data of trie node already set, overwriting!");
    }
    // "ab" and "c " hash alike, alone and at the end of a longer name: only the text decides.
    ASSERT_EQ(PackedFile::GetHashValue("ab"), PackedFile::GetHashValue("c "));
    FileTrieNode* ab = Insert(toc, "twins/ab");
    EXPECT_EQ(toc.Find(FixedString("twins/c ")), nullptr);
    EXPECT_EQ(toc.Find(FixedString("c ")), nullptr);
    FileTrieNode* spaced = Insert(toc, "twins/c ");
    EXPECT_NE(spaced, ab);
    EXPECT_EQ(toc.Find(FixedString("TWINS/AB")), ab);
    EXPECT_EQ(toc.Find(FixedString("twins/c ")), spaced);
    EXPECT_EQ(toc.Find(FixedString("ab")), nullptr);
    // A name one level short or long of a node with the same last components is another name.
    EXPECT_EQ(toc.Find(FixedString("x/twins/ab")), nullptr);

    // After a clear, nothing is found, and new names are found again.
    toc.Clear();
    EXPECT_EQ(toc.Find(FixedString(model.begin()->first.c_str())), nullptr);
    FileTrieNode* again = Insert(toc, "Data1/Mesh2");
    EXPECT_EQ(toc.Find(FixedString("data1/MESH2")), again);
}

// Names of every length up to 40, so the eight-byte steps of the hash and their remainders, made of
// the bytes either side of the capitals' range and bytes above 0x7F; separators doubled at every place.
TEST_F(PackedFileTocTest, LookupsOfEveryLengthAndByteAgreeWithTheModel) {
    ScopedCapture capture;
    PackedFile_TOC toc;
    std::mt19937 random(7);
    const char alphabet[] = {'@',
                             'A',
                             'M',
                             'Z',
                             '[',
                             '`',
                             'a',
                             'm',
                             'z',
                             '{',
                             '0',
                             '.',
                             '_',
                             static_cast<char>(0xC3),
                             static_cast<char>(0x80),
                             static_cast<char>(0xFF)};
    auto fold = [](std::string text) {
        for (char& character : text) {
            if (character >= 'A' && character <= 'Z') {
                character = static_cast<char>(character + ('a' - 'A'));
            }
        }
        return text;
    };
    std::map<std::string, std::pair<std::string, FileTrieNode*>> model;  // folded -> spelling, node
    for (unsigned int length = 1; length <= 40; ++length) {
        for (int sample = 0; sample < 6; ++sample) {
            std::string name;
            for (unsigned int index = 0; index < length; ++index) {
                bool separator = index > 0 && index + 1 < length && name.back() != '/' && random() % 5 == 0;
                name += separator ? '/' : alphabet[random() % sizeof(alphabet)];
            }
            FileTrieNode* node = Insert(toc, name);
            ASSERT_NE(node, nullptr) << name;
            model.emplace(fold(name), std::make_pair(name, node));
        }
    }
    for (const auto& [folded, entry] : model) {
        const auto& [name, node] = entry;
        std::string upper = name;
        for (char& character : upper) {
            if (character >= 'a' && character <= 'z') {
                character = static_cast<char>(character - ('a' - 'A'));
            }
        }
        ASSERT_EQ(toc.Find(FixedString(upper.c_str())), node) << name;
        ASSERT_EQ(toc.Find(FixedString(folded.c_str())), node) << name;
        for (size_t place = 0; place < name.size(); ++place) {
            if (name[place] == '/') {
                std::string doubled = name;
                doubled.insert(place, 1, '/');
                ASSERT_EQ(toc.Find(FixedString(doubled.c_str())), nullptr) << doubled;
            }
        }
        // One byte changed, in the first eight or the last: another name, unless the model has it.
        for (size_t place : {size_t{0}, name.size() - 1}) {
            std::string other = name;
            other[place] = other[place] == 'q' ? 'r' : 'q';
            auto known = model.find(fold(other));
            ASSERT_EQ(toc.Find(FixedString(other.c_str())),
                      known != model.end() ? known->second.second : nullptr)
                << other;
        }
    }
    // Short names meet again under another case: only that is reported.
    for (const std::string& message : capture.Messages()) {
        EXPECT_EQ(message, "Data of trie node already set, overwriting!");
    }
}

}  // namespace
}  // namespace zn::test
