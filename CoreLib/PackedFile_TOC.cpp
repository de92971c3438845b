// PackedFile_TOC.cpp: the trie of a pack's names, its stored form and the walks that list it.
#include "CoreLib/PackedFile_TOC.h"

#include "CoreLib/FileSystem.h"
#include "CoreLib/FileWriter.h"
#include "CoreLib/HashKernels.h"
#include "CoreLib/Localization.h"
#include "CoreLib/MemoryManager.h"
#include "CoreLib/PackedFile.h"
#include "CoreLib/Report.h"
#include "CoreLib/StringHelpers.h"

#include <cstring>

namespace zn {

namespace {
constexpr char kSeparator = '/';

// Roots that never lie inside a pack: the user's application folder, the executable's folder and
// the working folder.
bool IsRootOutsidePacks(Path::ERoot root) {
    return root == Path::ROOT_APP_USER || root == Path::ROOT_BINARY || root == Path::ROOT_WORKING;
}

// The low 8 bytes with the ASCII capitals made small, as the pack hash folds them; bytes above 0x7F
// are negative as signed chars and stay as they are.
inline __m128i FoldCapitals(__m128i bytes) {
    __m128i capitals = _mm_and_si128(_mm_cmpgt_epi8(bytes, _mm_set1_epi8('A' - 1)),
                                     _mm_cmplt_epi8(bytes, _mm_set1_epi8('Z' + 1)));
    return _mm_add_epi8(bytes, _mm_and_si128(capitals, _mm_set1_epi8('a' - 'A')));
}

// strncasecmp for names: only ASCII letters fold, as in the hash.
inline bool SameComponent(const char* name, const char* text, unsigned int length) {
    for (unsigned int index = 0; index < length; ++index) {
        unsigned char left = static_cast<unsigned char>(name[index]);
        unsigned char right = static_cast<unsigned char>(text[index]);
        if (left != right) {
            if (left >= 'A' && left <= 'Z') {
                left = static_cast<unsigned char>(left + ('a' - 'A'));
            }
            if (right >= 'A' && right <= 'Z') {
                right = static_cast<unsigned char>(right + ('a' - 'A'));
            }
            if (left != right) {
                return false;
            }
        }
        if (left == '\0') {
            return true;
        }
    }
    return true;
}
}  // namespace

// ---------------------------------------------------------------------------------------------
// FileTrieNode

FileTrieNode::FileTrieNode() = default;

void FileTrieNode::Init(const char* text, unsigned int length, unsigned int hash, FileTrieNode* parent,
                        PackedFile_TOC* owner) {
    m_Name.assign(text, length);
    m_Hash = hash;
    m_PathHash = hash;
    if (parent != nullptr && parent->m_Parent != nullptr) {
        m_PathHash = PackedFile::ContinueHashValue(parent->m_PathHash * 33 + kSeparator, text, length);
    }
    m_Parent = parent;
    m_Owner = owner;
    m_Data = nullptr;
}

void FileTrieNode::ResetPoolElement() {
    Clear();
    m_Name.Empty();
    m_Hash = 0;
    m_PathHash = 0;
    m_Parent = nullptr;
    m_Owner = nullptr;
    m_Data = nullptr;
}

FileTrieNode* FileTrieNode::FindChild(const char* text, unsigned int length) const {
    const unsigned int hash = PackedFile::GetHashValue(text, length);
    const unsigned int count = m_ChildIndex.GetSize();
    const ChildRef* children = m_ChildIndex.GetData();
    for (unsigned int index = 0; index < count; ++index) {
        if (children[index].m_Hash != hash) {
            continue;
        }
        FileTrieNode* child = children[index].m_Node;
        // Only length characters are compared: the hash already told the longer names apart.
        if (SameComponent(child->m_Name.ToChar(), text, length)) {
            return child;
        }
    }
    return nullptr;
}

const char* FileTrieNode::FindChar(const char* text, int length) {
    if (length < 1) {
        ZN_REPORT("Length of string 0 or negative!");
        return nullptr;
    }
    return static_cast<const char*>(std::memchr(text, kSeparator, static_cast<size_t>(length)));
}

void FileTrieNode::Clear() {
    for (unsigned int index = 0; index < m_Children.GetSize(); ++index) {
        FileTrieNode* child = m_Children[index];
        child->Clear();
        if (m_Owner != nullptr) {
            m_Owner->ReleaseNode(child);
        }
    }
    m_Children.RemoveAll();
    m_ChildIndex.RemoveAll();
}

void FileTrieNode::PrependAncestors(STDString& text, bool withRoot) const {
    for (const FileTrieNode* ancestor = m_Parent; ancestor != nullptr; ancestor = ancestor->m_Parent) {
        if (!withRoot && ancestor->m_Parent == nullptr) {
            break;
        }
        text.insert(0, 1, kSeparator);
        text.insert(0, ancestor->m_Name);
    }
}

STDString FileTrieNode::GetFullName() const {
    STDString text(m_Name);
    PrependAncestors(text, true);
    return text;
}

STDString FileTrieNode::GetRelativeName() const {
    STDString text(m_Name);
    PrependAncestors(text, false);
    return text;
}

// ---------------------------------------------------------------------------------------------
// PackedFile_TOC

PackedFile_TOC::PackedFile_TOC() : m_Scratch(1, ScratchString::MAX_SIZE_INFINITE, true) {
    m_NodePool.Setup(kPoolName, kPoolMaximumSize, kPoolInitialCount, kPoolGrowCount);
    const char* media = FileSystem::GetMediaPath().ToFixedString().ToChar();
    if (media == nullptr) {
        media = "";
    }
    size_t mediaLength = std::strlen(media);
    if (mediaLength > 0 && media[mediaLength - 1] == kSeparator) {
        --mediaLength;
    }
    m_Root = NewNode(media, static_cast<unsigned int>(mediaLength), nullptr);
}

PackedFile_TOC::~PackedFile_TOC() {
    // Nodes still out of the pool when it goes would never be taken down.
    if (m_Root != nullptr) {
        m_Root->Clear();
        m_NodePool.ReleaseObject(m_Root);
        m_Root = nullptr;
    }
    ClearIndex();
    FreeEntries();
}

FileTrieNode* PackedFile_TOC::NewNode(const char* text, unsigned int length, FileTrieNode* parent) {
    FileTrieNode* node = m_NodePool.GetFreeObject();
    if (node != nullptr) {
        node->Init(text, length, PackedFile::GetHashValue(text, length), parent, this);
        if (parent != nullptr) {
            IndexNode(node);
        }
    }
    return node;
}

unsigned int PackedFile_TOC::KeyStart(const char* keyText, unsigned int keyLength) const {
    const STDString& rootName = m_Root->GetName();
    // A path's interned text holds the media root; a stored name does not. Both land on the same
    // nodes once the root and its separator are skipped.
    // Keys end at their terminator: one shorter than the root, or without a terminator at the
    // root's length, cannot be the root; one shorter cannot hold it either.
    const unsigned int rootLength = rootName.Length();
    bool isRoot = rootLength <= keyLength && keyText[rootLength] == '\0' && rootName.Equals(keyText);
    bool holdsRoot =
        rootLength != 0 && keyLength >= rootLength && std::strstr(keyText, rootName.ToChar()) != nullptr;
    if (isRoot || holdsRoot) {
        unsigned int skipped = rootName.Length() + 1;
        return skipped < keyLength ? skipped : keyLength;
    }
    return 0;
}

void PackedFile_TOC::PrepareKey(const char* keyText, unsigned int keyLength) {
    m_Scratch.Reset();
    unsigned int start = KeyStart(keyText, keyLength);
    if (start < keyLength) {
        m_Scratch.Concatenate(keyText + start, keyLength - start);
    }
}

FileTrieNode* PackedFile_TOC::Walk(bool create) {
    const char* text = m_Scratch.ToChar();
    int remaining = static_cast<int>(m_Scratch.GetSize());
    FileTrieNode* node = m_Root;
    while (remaining > 0 && node != nullptr) {
        const char* separator = FileTrieNode::FindChar(text, remaining);
        unsigned int componentLength = separator != nullptr ? static_cast<unsigned int>(separator - text)
                                                            : static_cast<unsigned int>(remaining);
        FileTrieNode* child = node->FindChild(text, componentLength);
        if (child == nullptr) {
            if (!create) {
                return nullptr;
            }
            child = NewNode(text, componentLength, node);
            if (child == nullptr) {
                return nullptr;
            }
            node->AddChild(child);
        }
        node = child;
        if (separator == nullptr) {
            break;
        }
        remaining -= static_cast<int>(componentLength) + 1;
        text = separator + 1;
    }
    return node;
}

FileTrieNode* PackedFile_TOC::Find(const FixedString& key) {
    if (key.IsEmpty()) {
        return nullptr;
    }
    return Find(key.ToChar(), key.GetLength());
}

FileTrieNode* PackedFile_TOC::Find(const char* text, unsigned int length) {
    if (text == nullptr || length == 0) {
        return nullptr;
    }
    unsigned int start = KeyStart(text, length);
    FileTrieNode* node = nullptr;
    if (FindIndexed(text + start, length - start, node)) {
        return node;
    }
    PrepareKey(text, length);
    return Walk(false);
}

// ---------------------------------------------------------------------------------------------
// Path index

void PackedFile_TOC::IndexNode(FileTrieNode* node) {
    if ((m_IndexCount + 1) * 2 > m_IndexCapacity) {
        GrowIndex();
        if ((m_IndexCount + 1) * 2 > m_IndexCapacity) {
            return;
        }
    }
    unsigned int mask = m_IndexCapacity - 1;
    unsigned int slot = node->GetPathHash() & mask;
    while (m_Index[slot].m_Node != nullptr) {
        slot = (slot + 1) & mask;
    }
    m_Index[slot] = IndexSlot{node->GetPathHash(), node};
    ++m_IndexCount;
}

// Doubles the slots and places every node again; a table that cannot grow leaves the index as
// it was, and IndexNode then leaves the node out, which FindIndexed answers for by walking.
void PackedFile_TOC::GrowIndex() {
    unsigned int capacity = m_IndexCapacity == 0 ? 64 : m_IndexCapacity * 2;
    auto* slots = static_cast<IndexSlot*>(MemoryManager::SizedMalloc(sizeof(IndexSlot) * capacity));
    if (slots == nullptr) {
        m_IndexIncomplete = true;
        return;
    }
    std::memset(slots, 0, sizeof(IndexSlot) * capacity);
    unsigned int mask = capacity - 1;
    for (unsigned int index = 0; index < m_IndexCapacity; ++index) {
        if (m_Index[index].m_Node == nullptr) {
            continue;
        }
        unsigned int slot = m_Index[index].m_Hash & mask;
        while (slots[slot].m_Node != nullptr) {
            slot = (slot + 1) & mask;
        }
        slots[slot] = m_Index[index];
    }
    MemoryManager::SizedFree(m_Index, sizeof(IndexSlot) * m_IndexCapacity);
    m_Index = slots;
    m_IndexCapacity = capacity;
}

void PackedFile_TOC::ClearIndex() {
    MemoryManager::SizedFree(m_Index, sizeof(IndexSlot) * m_IndexCapacity);
    m_Index = nullptr;
    m_IndexCapacity = 0;
    m_IndexCount = 0;
    m_IndexIncomplete = false;
}

bool PackedFile_TOC::FindIndexed(const char* text, unsigned int length, FileTrieNode*& node) const {
    node = nullptr;
    if (m_IndexIncomplete || length == 0 || text[0] == kSeparator || text[length - 1] == kSeparator) {
        return false;
    }
    // One pass hashes the name as the nodes' path hashes were made and turns away what only the
    // walk answers: an empty component, or a terminator inside the text. Eight bytes at a time
    // while they last: this is most of a lookup's work.
    unsigned int hash = 0;
    unsigned int index = 0;
    unsigned int separatorBefore = 0;
    for (; index + 8 <= length; index += 8) {
        __m128i bytes = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(text + index));
        unsigned int separators = hashing::BytesEqualTo(bytes, kSeparator);
        if (hashing::BytesEqualTo(bytes, '\0') != 0 ||
            (separators & (separators << 1 | separatorBefore)) != 0) {
            return false;
        }
        separatorBefore = separators >> 7;
        hash = hash * hashing::PowerOf33(8) + hashing::HashWord(FoldCapitals(bytes));
    }
    for (; index < length; ++index) {
        char character = text[index];
        if (character == '\0' || (character == kSeparator && text[index - 1] == kSeparator)) {
            return false;
        }
        hash = PackedFile::ContinueHashValue(hash, &character, 1);
    }
    if (m_IndexCapacity == 0) {
        return true;
    }
    unsigned int mask = m_IndexCapacity - 1;
    for (unsigned int slot = hash & mask; m_Index[slot].m_Node != nullptr; slot = (slot + 1) & mask) {
        if (m_Index[slot].m_Hash != hash) {
            continue;
        }
        // The candidate's components, from the last, against the text's.
        FileTrieNode* candidate = m_Index[slot].m_Node;
        const FileTrieNode* level = candidate;
        unsigned int end = length;
        bool consumed = false;
        while (level->GetParent() != nullptr) {
            unsigned int start = end;
            while (start > 0 && text[start - 1] != kSeparator) {
                --start;
            }
            unsigned int componentLength = end - start;
            // Names are mostly asked for as they were stored: one compare of equal lengths
            // settles those.
            const STDString& name = level->GetName();
            if (name.Length() != componentLength ||
                (!hashing::SameBytes(name.ToChar(), text + start, componentLength) &&
                 !SameComponent(name.ToChar(), text + start, componentLength))) {
                break;
            }
            level = level->GetParent();
            if (start == 0) {
                consumed = true;
                break;
            }
            end = start - 1;
        }
        // Every component matched, and the last one matched a child of the root.
        if (consumed && level->GetParent() == nullptr) {
            node = candidate;
            return true;
        }
    }
    return true;
}

FileTrieNode* PackedFile_TOC::Insert(const FixedString& key, PackedFileEntry* entry) {
    if (key.IsEmpty()) {
        return nullptr;
    }
    PrepareKey(key.ToChar(), key.GetLength());
    FileTrieNode* node = Walk(true);
    if (node == nullptr || entry == nullptr) {
        return node;
    }
    if (node->HasData()) {
        ZN_REPORT("Data of trie node already set, overwriting!");
    }
    node->SetData(entry);
    ++m_Count;
    return node;
}

PackedFileEntry* PackedFile_TOC::FindEntry(const char* name) {
    FixedString key(name);
    FileTrieNode* node = Find(key);
    return node != nullptr ? node->GetData() : nullptr;
}

void PackedFile_TOC::FreeEntries() {
    if (m_Entries != nullptr) {
        MemoryManager::GlobalFree(m_Entries, 0);
        m_Entries = nullptr;
    }
    m_EntryCount = 0;
}

bool PackedFile_TOC::Load(const void* buffer, unsigned int size) {
    FreeEntries();
    if (buffer == nullptr || size < kCountSize) {
        return false;
    }
    uint32_t entryCount = 0;
    std::memcpy(&entryCount, buffer, kCountSize);
    const char* records = static_cast<const char*>(buffer) + kCountSize;
    if (uint64_t{entryCount} * sizeof(PackedFileEntry) != uint64_t{size} - kCountSize) {
        return false;
    }
    // A name is used as a terminated text from here on: one that fills its field is not a name.
    for (uint32_t index = 0; index < entryCount; ++index) {
        const char* name = records + size_t{index} * sizeof(PackedFileEntry);
        if (std::memchr(name, '\0', PackedFileEntry::kNameSize) == nullptr) {
            return false;
        }
    }
    if (entryCount == 0) {
        return true;
    }
    size_t bytes = size_t{entryCount} * sizeof(PackedFileEntry);
    m_Entries = static_cast<PackedFileEntry*>(MemoryManager::GlobalMalloc(bytes, 0));
    if (m_Entries == nullptr) {
        return false;
    }
    std::memcpy(m_Entries, records, bytes);
    m_EntryCount = entryCount;
    for (uint32_t index = 0; index < entryCount; ++index) {
        Insert(FixedString(m_Entries[index].m_Name), &m_Entries[index]);
    }
    return true;
}

unsigned int PackedFile_TOC::CountData(const FileTrieNode* node) const {
    unsigned int count = node->HasData() ? 1 : 0;
    for (unsigned int index = 0; index < node->GetChildCount(); ++index) {
        count += CountData(node->GetChild(index));
    }
    return count;
}

unsigned int PackedFile_TOC::GetSize() const {
    return kCountSize + CountData(m_Root) * static_cast<unsigned int>(sizeof(PackedFileEntry));
}

bool PackedFile_TOC::Write(FileWriter* writer) const {
    uint32_t count = m_Count;
    bool written = writer->Write(&count, kCountSize, 1) == 1;
    return WriteNode(m_Root, writer) && written;
}

// Children first, then the node's own record: a load rebuilds the children in the same order.
bool PackedFile_TOC::WriteNode(const FileTrieNode* node, FileWriter* writer) const {
    bool written = true;
    for (unsigned int index = 0; index < node->GetChildCount(); ++index) {
        written = WriteNode(node->GetChild(index), writer) && written;
    }
    if (node->HasData()) {
        written = writer->Write(node->GetData(), sizeof(PackedFileEntry), 1) == 1 && written;
    }
    return written;
}

void PackedFile_TOC::Clear() {
    ClearIndex();
    m_Root->Clear();
    m_Root->SetData(nullptr);
    m_Count = 0;
    FreeEntries();
}

// ---------------------------------------------------------------------------------------------
// Walks

void PackedFile_TOC::CollectDirectories(const Path& dir, bool recursive, ObjectSet<Path>& out) {
    FileTrieNode* node = Find(dir.ToFixedString());
    if (node != nullptr) {
        CollectDirectories(node, recursive, out);
    }
}

void PackedFile_TOC::CollectDirectories(FileTrieNode* node, bool recursive, ObjectSet<Path>& out) {
    for (unsigned int index = 0; index < node->GetChildCount(); ++index) {
        FileTrieNode* child = node->GetChild(index);
        if (child->HasData()) {
            continue;
        }
        out.Add(Path(child->GetFullName(), Path::ROOT_NONE));
        if (recursive) {
            CollectDirectories(child, recursive, out);
        }
    }
}

void PackedFile_TOC::CollectFiles(const Path& dir, const STDWString& pattern, bool recursive,
                                  ObjectSet<Path>& out) {
    if (IsRootOutsidePacks(dir.GetRoot())) {
        return;
    }
    STDString narrowPattern(Localization::ConvertWideToMultiByte(pattern).Get());
    narrowPattern.ToLower();
    FileTrieNode* node = Find(dir.ToFixedString());
    if (node == nullptr) {
        return;
    }
    CollectFiles(node, narrowPattern.ToChar(), recursive, out);
}

void PackedFile_TOC::CollectFiles(FileTrieNode* node, const char* pattern, bool recursive,
                                  ObjectSet<Path>& out) {
    const char* separator = std::strchr(pattern, kSeparator);
    if (separator == nullptr) {
        for (unsigned int index = 0; index < node->GetChildCount(); ++index) {
            FileTrieNode* child = node->GetChild(index);
            if (child->HasData() && StringHelpers::WildcardMatch(child->GetName().ToChar(), pattern)) {
                out.Add(Path(child->GetFullName(), Path::ROOT_NONE));
            }
            if (recursive) {
                CollectFiles(child, pattern, recursive, out);
            }
        }
        return;
    }
    STDString head(pattern, static_cast<int>(separator - pattern));
    const char* tail = separator + 1;
    bool separatorIsLast = *tail == '\0';
    for (unsigned int index = 0; index < node->GetChildCount(); ++index) {
        FileTrieNode* child = node->GetChild(index);
        if (!separatorIsLast && StringHelpers::WildcardMatch(child->GetName().ToChar(), head.ToChar())) {
            CollectFiles(child, tail, recursive, out);
        }
        if (recursive) {
            CollectFiles(child, pattern, recursive, out);
        }
    }
}

void PackedFile_TOC::GetFileNames(ObjectSet<FixedString>& out) {
    GetFileNames(m_Root, out);
}

void PackedFile_TOC::GetFileNames(const FileTrieNode* node, ObjectSet<FixedString>& out) {
    for (unsigned int index = 0; index < node->GetChildCount(); ++index) {
        GetFileNames(node->GetChild(index), out);
    }
    if (node->HasData()) {
        out.Add(FixedString(node->GetRelativeName().ToChar()));
    }
}

}  // namespace zn
