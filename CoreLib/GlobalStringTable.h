// GlobalStringTable.h: the process-wide table of interned strings that FixedString handles point
// into. Every entry is one block: an 8-byte header (reference count, length, bucket) followed by the
// characters, and the handle is the address of the characters.
#pragma once

#include "CoreLib/CriticalSection.h"
#include "CoreLib/TrackedObject.h"

#include <atomic>
#include <cstddef>
#include <cstdint>

namespace zn {

class Path;
class ScratchString;

// One chunk of a bucket's chain. The first chunk of every bucket lives in the table; overflow
// chunks are linked behind it and stay linked, even when empty, until the table goes.
struct GlobalStringBucket {
    // Handles; a null slot is free.
    char* m_Entries[10];
    // The next chunk of the chain, null at its end.
    GlobalStringBucket* m_Next;
    // How many leading slots are in use, holes included: every slot from m_Count on is null.
    unsigned int m_Count;
};

class GlobalStringTable : public TrackedObject<GlobalStringTable> {
public:
    // Interns length characters of text (length below 0: up to its terminator) and returns the
    // handle with one reference for the caller; null for a null text.
    static char* Add(const char* text, int length);
    // Take and give up one reference; the handle's value is not changed and null is ignored. The
    // reference that leaves only the table's own hold removes the entry.
    static void IncRefCount(char*& handle);
    static void DecRefCount(char*& handle);
    static const char* Get(char* const& handle) { return handle; }
    // 0 for a null handle.
    static unsigned int GetLength(char* const& handle);
    // The count includes the table's own hold: 2 for a string with one handle; 0 for null.
    static unsigned int GetRefCount(char* const& handle);

    // While the table is disabled, adding a string that is not yet interned is reported (and done).
    static bool IsTableEnabled() { return s_TableEnabled.load(std::memory_order_relaxed); }
    // Opens a bracket in which interning is legitimate, and enables the table.
    static void RequestTable();
    // Closes a bracket; the table stays enabled only while the use count is not 0.
    static void ReleaseTable();
    // Disables the table and forgets every open bracket: the host's switch to the run phase.
    static void ResetTable();

    // Writes every entry's characters and "\n" to the file, in bucket and slot order. A file that
    // cannot be opened is left alone.
    static void DumpContent(const Path& path);

    // Start-up and shutdown steps of CoreLibSDM.
    static void _SDMInit();
    static void _SDMShutdown();

    // Entries alive, under the table's lock.
    static unsigned int s_NbStrings;
    // A running statistic: 2 for each insertion, minus 1 for each removal (it is measured on the
    // entry's header, not on its text).
    static unsigned int s_TotalMemorySize;

    // Inspection, for tests and tools.
    // The count of open RequestTable brackets.
    static int GetTableUseCount() { return s_TableUseCount.load(std::memory_order_relaxed); }
    // The bucket written in a live entry's header.
    static unsigned int GetBucket(char* const& handle);
    // These take the table's lock and give 0 or null without a table or for a bucket past 512.
    // The sum of m_Count over the bucket's chunks.
    static unsigned int GetBucketChainLength(unsigned int bucket);
    // Chunks in the bucket's chain, the one inside the table included.
    static unsigned int GetBucketChunkCount(unsigned int bucket);
    // The chain's element with this index (chunks are skipped by their m_Count); null for a hole
    // or past the end.
    static char* GetBucketSlot(unsigned int bucket, unsigned int index);
    // Bytes the table holds beside its own object and the entry blocks: overflow chunks and side
    // indexes, as requested from their allocators (their capacity, used or not).
    static size_t GetIndexFootprint();
    // Checks every invariant: chunk counts and links, the side index against the slots, each
    // entry's header against its text, no text interned twice, s_NbStrings against the entries.
    static bool Validate();

private:
    // Where a text belongs: its bucket, and 32 bits of a second mix of its text that place and
    // tell apart the entries of one bucket in its side index.
    struct Key {
        unsigned int m_Bucket;
        uint32_t m_Fingerprint;
        // False when the fingerprint could not be computed (Remove then searches by address).
        bool m_Known;
        // The text has a NUL among its characters: only then do strncmp and a byte compare differ.
        bool m_HasNul;
    };

    // Beside each bucket: an open-addressing index of its entries, probed linearly from a place
    // chosen by the fingerprint, kept as three arrays in one block. A byte per entry holds 7 bits
    // of the fingerprint (or marks the entry empty or removed): small enough to stay in cache, it
    // is scanned first, and only an entry whose byte matches has its handle read and its text
    // compared. The records hold each entry's full fingerprint and its position in the chain
    // (chunk k, slot j is position 10k + j), for removals and rebuilds. A lookup touches no chunk:
    // the overflow chunks of a chain lie in one array, so a position gives its slot by arithmetic.
    struct SideIndex {
        uint8_t* m_Tags;
        char** m_Handles;
        // fingerprint << 32 | position
        uint64_t* m_Records;
        // The overflow chunks, in chain order; m_Buckets[bucket].m_Next points at the first.
        GlobalStringBucket* m_Overflow;
        unsigned int m_Capacity;
        unsigned int m_Live;
        unsigned int m_Tombstones;
        unsigned int m_OverflowCount;
        unsigned int m_OverflowCapacity;
        // Every position below this one holds an entry.
        unsigned int m_FirstFree;
    };

    GlobalStringTable();
    ~GlobalStringTable();
    GlobalStringTable(const GlobalStringTable&) = delete;
    GlobalStringTable& operator=(const GlobalStringTable&) = delete;

    // The bucket of length bytes of text, each taken as a sign-extended signed char.
    static unsigned int Hash(const char* text, unsigned int length);
    static Key MakeKey(const char* text, unsigned int length);
    // Starts fetching the side-index lines where the key's probe begins; needs no lock.
    void PrefetchIndex(const Key& key);
    // The live entry whose text equals the first length bytes of text, or null.
    char* Find(const char* text, unsigned int length, const Key& key) const;
    // Makes the entry block and files it; null when no memory could be had.
    char* Create(const char* text, unsigned int length, const Key& key);
    // Files the handle in the first free slot of its chain; false when the chain could not grow.
    bool Insert(char* const& handle, const Key& key);
    // Frees the entry if only the table's hold is left on it.
    void Remove(char* const& handle, const Key& key);
    static char* GetRealBufferStart(char* const& handle) { return handle - kHeaderSize; }
    static unsigned int ExtractHash(char* const& handle);

    // The chain's chunk with this index (0 is the table's own) and the slot of a position.
    GlobalStringBucket& ChunkAt(unsigned int bucket, unsigned int chunkIndex);
    const GlobalStringBucket& ChunkAt(unsigned int bucket, unsigned int chunkIndex) const;
    char* SlotAt(unsigned int bucket, unsigned int position) const;
    unsigned int PositionCount(unsigned int bucket) const;
    // Position of the first empty slot of the chain, or the chain's end.
    unsigned int FindFreePosition(unsigned int bucket) const;
    // The side-index entry of the handle, or the index's capacity.
    unsigned int FindIndexEntry(char* const& handle, unsigned int bucket, uint32_t fingerprint) const;
    // Makes room for one more entry: a slot in the chain and in the side index. False without memory.
    bool Reserve(unsigned int bucket);
    bool AppendChunk(unsigned int bucket);
    bool Rehash(unsigned int bucket, unsigned int capacity);
    // Shrinks or sweeps the side index after a removal.
    void SweepIndex(unsigned int bucket);
    void IndexHandle(unsigned int bucket, char* handle, uint32_t fingerprint, unsigned int position);
    bool ValidateBucket(unsigned int bucket, unsigned int& liveEntries) const;

    // Appends "\t-", the text and "\n" for every entry, in bucket and slot order.
    static void ListStrings(ScratchString& list);
    // Calls visit(handle) for every entry, in bucket and slot order, under the table's lock.
    template <typename Visit>
    void ForEachString(Visit visit) const;
    void DumpStringTable(const Path& path);

    static constexpr size_t kHeaderSize = 8;
    static const unsigned int s_NbGlobalStringHashBuckets = 513;
    static const unsigned int s_NbEntriesPerBucket = 10;

    static GlobalStringTable* s_Table;
    // Not under the table's lock: the count changes atomically and the flag is written after it.
    static std::atomic<bool> s_TableEnabled;
    static std::atomic<int> s_TableUseCount;

    // Guarded by m_Lock, as are m_Indexes, the overflow chunks, s_NbStrings and s_TotalMemorySize.
    // Lock order: this lock, then the memory manager's, then the log manager's.
    GlobalStringBucket m_Buckets[s_NbGlobalStringHashBuckets];
    SideIndex m_Indexes[s_NbGlobalStringHashBuckets];
    mutable CriticalSection m_Lock;
};

}  // namespace zn
