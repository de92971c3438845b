// PackedFile_TOC.h: the table of contents of a pack as a trie keyed by whole path components, so
// the directories of an archive exist without being stored and a lookup costs one short child scan
// a component. It also owns the entry records read from a pack.
#pragma once

#include "CoreLib/FixedString.h"
#include "CoreLib/Path.h"
#include "CoreLib/Pool.h"
#include "CoreLib/STDString.h"
#include "CoreLib/ScratchString.h"
#include "CoreLib/Set.h"
#include "CoreLib/TrackedObject.h"

#include <cstdint>

namespace zn {

class FileWriter;
class PackedFile_TOC;

// One file of a pack, 272 bytes stored verbatim in the table of contents (little-endian fields).
struct PackedFileEntry {
    // Bytes of the name field, its terminator included.
    static constexpr unsigned int kNameSize = 256;

    // Path relative to the media root, forward slashes, terminated, the rest zero.
    char m_Name[kNameSize];
    // In the first part relative to the data offset; in later parts relative to the part's start.
    uint32_t m_Offset;
    // Bytes stored: the compressed size when m_UncompressedSize is not 0.
    uint32_t m_Size;
    // 0 for a file stored as it is; otherwise its size after inflating.
    uint32_t m_UncompressedSize;
    // 0 is the first part.
    uint32_t m_PartIndex;
};
static_assert(sizeof(PackedFileEntry) == 272, "a pack entry is stored as exactly 272 bytes");

// One component of a pack's names. A node with data is a file; every node can have children, so a
// name can be a file and a directory at once.
class FileTrieNode : public PoolElement {
public:
    FileTrieNode();
    ~FileTrieNode() override = default;
    FileTrieNode(const FileTrieNode&) = delete;
    FileTrieNode& operator=(const FileTrieNode&) = delete;

    // Gives the node its component (length characters of text), the component's hash, its parent
    // and owner, as it leaves the pool.
    void Init(const char* text, unsigned int length, unsigned int hash, FileTrieNode* parent,
              PackedFile_TOC* owner);
    // Back to the pool's state: children cleared, no name, no data.
    void ResetPoolElement() override;

    // The child whose name is length characters of text, ignoring case; null when there is none.
    FileTrieNode* FindChild(const char* text, unsigned int length) const;
    void AddChild(FileTrieNode* child) {
        m_Children.Add(child);
        m_ChildIndex.Add(ChildRef{child->m_Hash, child});
    }
    // The first '/' in the length characters of text, or null. A length below 1 is reported and
    // gives null: the text is then the last component.
    static const char* FindChar(const char* text, int length);

    void SetData(PackedFileEntry* data) { m_Data = data; }
    PackedFileEntry* GetData() const { return m_Data; }
    bool HasData() const { return m_Data != nullptr; }

    // Gives every child, cleared, back to the owner's pool and empties the list.
    void Clear();

    // The name with every ancestor's name and a '/' in front, the root's included.
    STDString GetFullName() const;
    // As GetFullName, without the root's name.
    STDString GetRelativeName() const;

    const STDString& GetName() const { return m_Name; }
    unsigned int GetHash() const { return m_Hash; }
    // The hash of the whole name below the root, components joined by '/', as GetHashValue folds it.
    unsigned int GetPathHash() const { return m_PathHash; }
    FileTrieNode* GetParent() const { return m_Parent; }
    unsigned int GetChildCount() const { return m_Children.GetSize(); }
    FileTrieNode* GetChild(unsigned int index) const { return m_Children[index]; }

private:
    void PrependAncestors(STDString& text, bool withRoot) const;

    // The component as first inserted; later spellings that differ in case find this node.
    STDString m_Name;
    // PackedFile::GetHashValue of m_Name, case-folded.
    uint32_t m_Hash = 0;
    uint32_t m_PathHash = 0;
    // Null at the root.
    FileTrieNode* m_Parent = nullptr;
    // The owner, and thus the pool.
    PackedFile_TOC* m_Owner = nullptr;
    // In order of first insertion.
    PrimitiveSet<FileTrieNode*> m_Children;
    // The children again with their hashes, in the same order: a scan reads one compact array, the
    // pointer beside the hash it matches, and touches no other child.
    struct ChildRef {
        uint32_t m_Hash;
        FileTrieNode* m_Node;
    };
    PrimitiveSet<ChildRef> m_ChildIndex;
    // Null for a directory; points into the owner's entry array or into an entry of a pack being
    // written.
    PackedFileEntry* m_Data = nullptr;
};

// The pool the nodes of one table come from.
class FileTrieNodePool : public BasePool<FileTrieNode, PoolMemory, PoolQueue<FileTrieNode*>> {
protected:
    FileTrieNode* ConstructElement(void* address) override { return new (address) FileTrieNode(); }
};

// Not locked itself: the key scratch text is shared, so every call runs under the owning pack's
// lock.
class PackedFile_TOC : public TrackedObject<PackedFile_TOC> {
public:
    static constexpr const char* kPoolName = "FileTrieNode";
    static constexpr unsigned int kPoolMaximumSize = 128000;
    static constexpr unsigned int kPoolGrowCount = 3200;
    static constexpr unsigned int kPoolInitialCount = 64000;
    // Bytes of the entry count in front of the records.
    static constexpr unsigned int kCountSize = 4;

    // The root is named after the media path as it stands now, without a trailing '/'.
    PackedFile_TOC();
    ~PackedFile_TOC();
    PackedFile_TOC(const PackedFile_TOC&) = delete;
    PackedFile_TOC& operator=(const PackedFile_TOC&) = delete;

    // The node of a name, file or directory; null when there is none or the key is empty. A key
    // that holds the root's text is taken relative to it.
    FileTrieNode* Find(const FixedString& key);
    // As above for length characters of a terminated text, which is not interned: the packs'
    // lookups make their keys on the stack.
    FileTrieNode* Find(const char* text, unsigned int length);
    // The node of a name, made with its missing directories. A non-null entry becomes the node's
    // data, with a report when it had data already. Null for an empty key.
    FileTrieNode* Insert(const FixedString& key, PackedFileEntry* entry);
    // Interns name and gives the entry of its node; null for a directory or an unknown name.
    PackedFileEntry* FindEntry(const char* name);

    // Rebuilds the table from a stored table of contents of size bytes: the entry count, then the
    // records. False, with the table left empty, when the count disagrees with the size or a name
    // has no terminator.
    bool Load(const void* buffer, unsigned int size);
    // The entry count, then every record in post-order. True when every byte was written.
    bool Write(FileWriter* writer) const;
    // Bytes Write produces: 4 + 272 for every node with data.
    unsigned int GetSize() const;

    // Adds ROOT_NONE paths of the files under dir matching the pattern ('/' in the pattern walks
    // through directories matching its head).
    void CollectFiles(const Path& dir, const STDWString& pattern, bool recursive, ObjectSet<Path>& out);
    // Adds ROOT_NONE paths of the directories under dir.
    void CollectDirectories(const Path& dir, bool recursive, ObjectSet<Path>& out);
    // Adds the interned relative name of every file, in post-order.
    void GetFileNames(ObjectSet<FixedString>& out);

    // Gives every node but the root back to the pool, forgets the entries and the count.
    void Clear();

    FileTrieNode* GetRoot() const { return m_Root; }
    unsigned int GetCount() const { return m_Count; }
    const FileTrieNodePool& GetNodePool() const { return m_NodePool; }
    // Records of the last Load, in stored order; null before one.
    const PackedFileEntry* GetEntries() const { return m_Entries; }
    unsigned int GetEntryCount() const { return m_EntryCount; }

private:
    friend class FileTrieNode;

    // Leaves in m_Scratch the part of the key below the root.
    void PrepareKey(const char* keyText, unsigned int keyLength);
    // Where the part of the key below the root starts; keyLength when nothing is below it.
    unsigned int KeyStart(const char* keyText, unsigned int keyLength) const;
    // Walks m_Scratch from the root; with create, missing nodes are made.
    FileTrieNode* Walk(bool create);
    FileTrieNode* NewNode(const char* text, unsigned int length, FileTrieNode* parent);
    void ReleaseNode(FileTrieNode* node) { m_NodePool.ReleaseObject(node); }
    void FreeEntries();

    // The path index: every node but the root under the hash of its whole name, so that a lookup
    // of an ordinary name (no empty component) hashes it once, reads one slot and checks one node
    // against the text, instead of scanning the children of every directory on the way.
    struct IndexSlot {
        uint32_t m_Hash;
        FileTrieNode* m_Node;
    };
    void IndexNode(FileTrieNode* node);
    void GrowIndex();
    void ClearIndex();
    // The node of an ordinary name, through the index; false when the name is not ordinary and only
    // the walk can answer.
    bool FindIndexed(const char* text, unsigned int length, FileTrieNode*& node) const;

    void CollectDirectories(FileTrieNode* node, bool recursive, ObjectSet<Path>& out);
    void CollectFiles(FileTrieNode* node, const char* pattern, bool recursive, ObjectSet<Path>& out);
    bool WriteNode(const FileTrieNode* node, FileWriter* writer) const;
    unsigned int CountData(const FileTrieNode* node) const;
    void GetFileNames(const FileTrieNode* node, ObjectSet<FixedString>& out);

    FileTrieNode* m_Root = nullptr;
    ScratchString m_Scratch;
    FileTrieNodePool m_NodePool;
    // Entries inserted with data.
    uint32_t m_Count = 0;
    // The records of the last Load, from "GLOBAL".
    PackedFileEntry* m_Entries = nullptr;
    unsigned int m_EntryCount = 0;
    // Open addressing, a power of two of slots at most half full; null until the first node.
    IndexSlot* m_Index = nullptr;
    unsigned int m_IndexCapacity = 0;
    unsigned int m_IndexCount = 0;
    // A node was left out when the index could not grow: only the walk answers from then on.
    bool m_IndexIncomplete = false;
};

}  // namespace zn
