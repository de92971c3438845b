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

// Entry handles in 32 bits. An entry block comes from a heap that aligns blocks to 16 bytes, so a
// handle (the block's start plus the 8-byte header) is 8 past a multiple of 16: its address
// divided by 16 names it, and within an 8 GiB window 29 bits do. The top 3 bits of a code pick one
// of 7 windows, each registered when its first handle comes; the last value sends a handle that
// fits none (another alignment, an eighth window) to a list of full addresses.
class GlobalStringCodes {
public:
    GlobalStringCodes() = default;
    ~GlobalStringCodes();
    GlobalStringCodes(const GlobalStringCodes&) = delete;
    GlobalStringCodes& operator=(const GlobalStringCodes&) = delete;

    // Gives the handle a code, registering its window or a far slot as needed; false when the far
    // list could not grow. A far handle takes a new slot each time: assign a handle once, and again
    // only after releasing its code.
    bool Assign(char* handle, uint32_t& code);
    // The code the handle was given; false when no handle at that address can have been given one.
    bool Find(const char* handle, uint32_t& code) const;
    char* Decode(uint32_t code) const {
        uint32_t window = code >> kOffsetBits;
        if (window != kFarWindow) [[likely]] {
            return reinterpret_cast<char*>(
                static_cast<uintptr_t>(m_Bases[window] + (uint64_t{code & kOffsetMask} << kUnitShift)));
        }
        return m_Far[code & kOffsetMask];
    }
    // Frees the far slot of a code that has one; other codes hold nothing.
    void Release(uint32_t code);

    unsigned int GetWindowCount() const { return m_WindowCount; }
    unsigned int GetFarCount() const { return m_FarInUse; }
    // No new window is registered once this many exist (at most 7, the default): later handles
    // outside the windows go to the far list. For tests of that list.
    void SetWindowLimit(unsigned int windows) { m_WindowLimit = windows < kFarWindow ? windows : kFarWindow; }
    // Bytes of the far list, as requested from the allocator.
    size_t GetFootprint() const { return m_FarCapacity * sizeof(char*); }
    bool IsFar(uint32_t code) const { return code >> kOffsetBits == kFarWindow; }

private:
    static constexpr unsigned int kUnitShift = 4;
    static constexpr unsigned int kOffsetBits = 29;
    static constexpr uint32_t kOffsetMask = (1u << kOffsetBits) - 1;
    static constexpr unsigned int kWindowShift = kOffsetBits + kUnitShift;
    static constexpr uint32_t kFarWindow = 7;

    // The code of an address in one of the first `windows` windows; false when it is in none.
    bool WindowCode(uint64_t address, unsigned int windows, uint32_t& code) const;

    // Each window's lowest handle address: its number << kWindowShift, plus 8.
    uint64_t m_Bases[kFarWindow] = {};
    unsigned int m_WindowCount = 0;
    unsigned int m_WindowLimit = kFarWindow;
    // Far handles by slot; a free slot is null.
    char** m_Far = nullptr;
    unsigned int m_FarCapacity = 0;
    unsigned int m_FarInUse = 0;
};

// A bucket: its chain of chunks of 10 slots, in chain order, kept as parallel arrays in one block.
// Per slot a 16-bit fingerprint of the entry's text (0 for a free slot) and the entry's code, then
// per chunk its count: how many leading slots are in use, holes included. The fingerprints are the
// index a lookup scans, a cache line for 32 slots, before it reads the one entry that matches; a
// slot's position (chunk k, slot j is 10k + j) is its place in every array, so no chunk is linked
// to the next and an emptied chunk stays in the chain by the chunk count alone.
struct GlobalStringBucket {
    // Null until the bucket's first entry: the first chunk then exists, empty, without storage.
    uint8_t* m_Block;
    // Chunks in the chain, 1 at least.
    unsigned int m_ChunkCount;
    // Chunks the block has room for.
    unsigned int m_ChunkCapacity;
    // Every slot before this position holds an entry.
    unsigned int m_FirstFree;
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
    // The sum of the counts of the bucket's chunks.
    static unsigned int GetBucketChainLength(unsigned int bucket);
    // Chunks in the bucket's chain, the first one included.
    static unsigned int GetBucketChunkCount(unsigned int bucket);
    // The chain's element with this index (chunks are skipped by their counts); null for a hole or
    // past the end.
    static char* GetBucketSlot(unsigned int bucket, unsigned int index);
    // Bytes the table holds beside its own object and the entry blocks: the buckets' blocks and the
    // far list, as requested from the allocator (their capacity, used or not).
    static size_t GetIndexFootprint();
    // Entries whose handle has no window and is kept in full in the far list.
    static unsigned int GetFarEntryCount();
    // GlobalStringCodes::SetWindowLimit on the table's codes, for tests of entries in the far list.
    static void SetCodeWindowLimit(unsigned int windows);
    // Whether lookups hash and scan with the processor's 512-bit vector instructions. They are used
    // when the processor has them, and give the same results as the plain form, which tests turn on
    // with false to run both; true is refused without those instructions. The form now in use.
    static bool UseWideInstructions(bool use);
    static bool UsesWideInstructions();
    // Checks every invariant: chunk counts, fingerprints and codes against the slots' entries, each
    // entry's header against its text, no text interned twice, s_NbStrings against the entries.
    static bool Validate();

private:
    // Where a text belongs: its bucket, and the fingerprint that tells it apart from the bucket's
    // other entries.
    struct Key {
        unsigned int m_Bucket;
        uint16_t m_Tag;
        // The text has a NUL among its characters: only then do strncmp and a byte compare differ.
        bool m_HasNul;
    };

    GlobalStringTable();
    ~GlobalStringTable();
    GlobalStringTable(const GlobalStringTable&) = delete;
    GlobalStringTable& operator=(const GlobalStringTable&) = delete;

    // The bucket of length bytes of text, each taken as a sign-extended signed char.
    static unsigned int Hash(const char* text, unsigned int length);
    static Key MakeKey(const char* text, unsigned int length);
    // Add for a text of a checked length: the entry with a reference for the caller, found or made.
    // The length as the caller gave it goes into the report of an addition to a disabled table.
    char* Intern(const char* text, unsigned int length, int requestedLength);
    char* AddMissing(const char* text, unsigned int length, int requestedLength, const Key& key);
    // The live entry whose text equals the first length bytes of text, or null.
    char* Find(const char* text, unsigned int length, const Key& key) const;
    // The same three in 512-bit vector instructions, for processors that have them.
    char* InternWide(const char* text, unsigned int length, int requestedLength);
    static Key MakeKeyWide(const char* text, unsigned int length);
    char* FindWide(const char* text, unsigned int length, const Key& key) const;
    // Makes the entry block and files it; null when no memory could be had.
    char* Create(const char* text, unsigned int length, const Key& key);
    // Files the handle in the first free slot of its chain; false when the chain could not grow.
    bool Insert(char* const& handle, const Key& key);
    // Frees the entry if only the table's hold is left on it.
    void Remove(char* const& handle, unsigned int bucket);
    static char* GetRealBufferStart(char* const& handle) { return handle - kHeaderSize; }
    static unsigned int ExtractHash(char* const& handle);

    // The entry in a slot, or null for a free one.
    char* SlotAt(const GlobalStringBucket& bucket, unsigned int position) const;
    // Position of the first free slot of the chain, or the chain's end.
    static unsigned int FindFreePosition(const GlobalStringBucket& bucket);
    // Makes room for one more chunk in the bucket's block; false without memory.
    static bool Grow(GlobalStringBucket& bucket);
    bool ValidateBucket(unsigned int bucket, unsigned int& liveEntries, unsigned int& farEntries) const;

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

    // Guarded by m_Lock, as are the buckets' blocks, s_NbStrings and s_TotalMemorySize. Lock order:
    // this lock, then the memory manager's, then the log manager's.
    GlobalStringBucket m_Buckets[s_NbGlobalStringHashBuckets];
    GlobalStringCodes m_Codes;
    // Lookups use MakeKeyWide and FindWide: the processor has them, and no test has turned them off.
    std::atomic<bool> m_Wide;
    mutable CriticalSection m_Lock;
};

}  // namespace zn
