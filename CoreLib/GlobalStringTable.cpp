// GlobalStringTable.cpp: interning, reference counting and removal of the process-wide strings.
#include "CoreLib/GlobalStringTable.h"

#include "CoreLib/FileWriter.h"
#include "CoreLib/MemoryManager.h"
#include "CoreLib/Report.h"
#include "CoreLib/ScratchString.h"

#include <emmintrin.h>

#include <algorithm>
#include <cstring>
#include <new>

namespace zn {

GlobalStringTable* GlobalStringTable::s_Table = nullptr;
std::atomic<bool> GlobalStringTable::s_TableEnabled{true};
std::atomic<int> GlobalStringTable::s_TableUseCount{0};
unsigned int GlobalStringTable::s_NbStrings = 0;
unsigned int GlobalStringTable::s_TotalMemorySize = 0;

// Takes one from value and returns the result. A value that was not positive is reported: it is
// the trace of a reference given up twice.
int AtomicDecrement(std::atomic<int32_t>& value) {
    // Acquire and release: the thread that takes the count to 0 frees the block, after every
    // other holder's last use of it.
    int32_t previous = value.fetch_sub(1, std::memory_order_acq_rel);
    if (previous <= 0) {
        ZN_REPORT("Value needs to be positive");
    }
    return previous - 1;
}

namespace {

constexpr uint32_t kLockSpinCount = 4000;
constexpr unsigned int kBucketCount = 513;
constexpr unsigned int kSlotsPerChunk = 10;
constexpr size_t kMaxLength = 65535;

// Side-index tags: live ones have the top bit set over the fingerprint's top 7 bits.
constexpr uint8_t kEmptyTag = 0;
constexpr uint8_t kRemovedTag = 1;
// A chain's positions are kept in 32 bits; chains stop growing well before they run out.
constexpr unsigned int kMaxPositions = 0x7FFFFFF0;
constexpr unsigned int kMinIndexCapacity = 8;

// The header in front of an entry's characters.
struct EntryHeader {
    std::atomic<int32_t> m_RefCount;
    uint16_t m_Length;
    uint16_t m_Bucket;
};
static_assert(sizeof(EntryHeader) == 8 && std::atomic<int32_t>::is_always_lock_free,
              "an entry header is a 32-bit count, a 16-bit length and a 16-bit bucket");

EntryHeader& HeaderOf(char* handle) {
    return *reinterpret_cast<EntryHeader*>(handle - sizeof(EntryHeader));
}

constexpr uint32_t PowerOf33(unsigned int exponent) {
    return exponent == 0 ? 1u : 33u * PowerOf33(exponent - 1);
}

struct TextHash {
    uint32_t m_Hash;
    bool m_HasNul;
};

// The four sums b0 * 33^3 + b1 * 33^2 + b2 * 33 + b3 of the 16 bytes' quarters, each byte taken as
// a signed char: pairs by one multiply-add of 16-bit lanes (a pair lies within +-4352, so the pairs
// pack back into 16 bits exactly), quarters by a second one into 32-bit lanes.
__m128i QuarterSums(__m128i bytes) {
    const __m128i pairWeights = _mm_set1_epi32(0x00010021);     // 33, 1
    const __m128i quarterWeights = _mm_set1_epi32(0x00010441);  // 1089, 1
    __m128i low = _mm_srai_epi16(_mm_unpacklo_epi8(bytes, bytes), 8);
    __m128i high = _mm_srai_epi16(_mm_unpackhi_epi8(bytes, bytes), 8);
    __m128i pairs = _mm_packs_epi32(_mm_madd_epi16(low, pairWeights), _mm_madd_epi16(high, pairWeights));
    return _mm_madd_epi16(pairs, quarterWeights);
}

uint32_t Lane(__m128i values, int lane) {
    alignas(16) uint32_t lanes[4];
    _mm_store_si128(reinterpret_cast<__m128i*>(lanes), values);
    return lanes[lane];
}

// h = h * 33 + c over the bytes, each taken as a sign-extended signed char, 16 and then 8 bytes at a
// time, and whether a NUL is among them.
TextHash HashText(const char* text, size_t length) {
    const __m128i zero = _mm_setzero_si128();
    uint32_t hash = 0;
    int nuls = 0;
    size_t index = 0;
    for (; index + 16 <= length; index += 16) {
        __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(text + index));
        nuls |= _mm_movemask_epi8(_mm_cmpeq_epi8(bytes, zero));
        __m128i quarters = QuarterSums(bytes);
        hash = hash * PowerOf33(16) + Lane(quarters, 0) * PowerOf33(12) + Lane(quarters, 1) * PowerOf33(8) +
               Lane(quarters, 2) * PowerOf33(4) + Lane(quarters, 3);
    }
    if (index + 8 <= length) {
        __m128i bytes = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(text + index));
        nuls |= _mm_movemask_epi8(_mm_cmpeq_epi8(bytes, zero)) & 0xFF;
        __m128i quarters = QuarterSums(bytes);
        hash = hash * PowerOf33(8) + Lane(quarters, 0) * PowerOf33(4) + Lane(quarters, 1);
        index += 8;
    }
    for (; index < length; ++index) {
        auto c = static_cast<signed char>(text[index]);
        nuls |= c == 0;
        hash = hash * 33u + static_cast<uint32_t>(c);
    }
    return TextHash{hash, nuls != 0};
}

// The fingerprint: a 64-bit finaliser over the text's hash and its length. The hash is the one of
// the bytes before the first NUL, so texts that strncmp finds equal at one length share it.
uint32_t FinishFingerprint(const char* text, size_t length, const TextHash& whole) {
    uint32_t hash = whole.m_Hash;
    if (whole.m_HasNul) {
        hash =
            HashText(text, static_cast<size_t>(static_cast<const char*>(std::memchr(text, 0, length)) - text))
                .m_Hash;
    }
    uint64_t mix = (static_cast<uint64_t>(length) << 32) | hash;
    mix = (mix ^ (mix >> 33)) * 0xFF51AFD7ED558CCDull;
    mix = (mix ^ (mix >> 33)) * 0xC4CEB9FE1A85EC53ull;
    return static_cast<uint32_t>(mix >> 32);
}

uint32_t Fingerprint(const char* text, size_t length) {
    return FinishFingerprint(text, length, HashText(text, length));
}

// strncmp's verdict on equality. Without a NUL in the text it is a plain byte compare, done here
// in words: the texts are short, and a call costs as much as the compare.
bool SameText(const char* stored, const char* text, size_t length, bool textHasNul) {
    if (textHasNul) {
        return std::strncmp(stored, text, length) == 0;
    }
    uint64_t difference = 0;
    size_t offset = 0;
    for (; offset + 8 <= length; offset += 8) {
        uint64_t left = 0;
        uint64_t right = 0;
        std::memcpy(&left, stored + offset, sizeof(left));
        std::memcpy(&right, text + offset, sizeof(right));
        difference |= left ^ right;
    }
    for (; offset < length; ++offset) {
        difference |= static_cast<unsigned char>(stored[offset] ^ text[offset]);
    }
    return difference == 0;
}

uint8_t TagOf(uint32_t fingerprint) {
    return static_cast<uint8_t>(0x80 | (fingerprint >> 25));
}

// Where a fingerprint's probe starts in an index of this capacity (any capacity, no modulo). It is
// taken from the bits below the tag's, so entries that meet in a probe do not share their tags.
unsigned int PlaceOf(uint32_t fingerprint, unsigned int capacity) {
    return static_cast<unsigned int>((static_cast<uint64_t>(fingerprint & 0x1FFFFFF) * capacity) >> 25);
}

// The block of a side index: tags, then handles, then records.
size_t TagBytes(unsigned int capacity) {
    return (capacity + 7) & ~7u;
}

size_t IndexBytes(unsigned int capacity) {
    return TagBytes(capacity) + capacity * (sizeof(char*) + sizeof(uint64_t));
}

unsigned int NextProbe(unsigned int probe, unsigned int capacity) {
    return probe + 1 == capacity ? 0 : probe + 1;
}

// Live entries and tombstones together stay at or below three quarters of the index, so every probe
// meets an empty entry.
bool IsCrowded(unsigned int used, unsigned int capacity) {
    return used * 4 > capacity * 3;
}

}  // namespace

GlobalStringTable::GlobalStringTable() : m_Buckets{}, m_Indexes{}, m_Lock(kLockSpinCount) {}

GlobalStringTable::~GlobalStringTable() {
    // Entry blocks still alive are not freed: their handles may outlive the table.
    for (SideIndex& index : m_Indexes) {
        delete[] index.m_Overflow;
        if (index.m_Tags != nullptr) {
            MemoryManager::GlobalFree(index.m_Tags, 0);
        }
    }
}

inline unsigned int GlobalStringTable::Hash(const char* text, unsigned int length) {
    return HashText(text, length).m_Hash % s_NbGlobalStringHashBuckets;
}

inline GlobalStringTable::Key GlobalStringTable::MakeKey(const char* text, unsigned int length) {
    // One pass over the text gives both.
    TextHash whole = HashText(text, length);
    return Key{whole.m_Hash % s_NbGlobalStringHashBuckets, FinishFingerprint(text, length, whole), true,
               whole.m_HasNul};
}

inline unsigned int GlobalStringTable::ExtractHash(char* const& handle) {
    return HeaderOf(handle).m_Bucket;
}

char* GlobalStringTable::Add(const char* text, int length) {
    if (s_Table == nullptr) {
        ZN_REPORT("There is no global string table?");
        // Without a table there is no lock to take and nowhere to file the string.
        return nullptr;
    }
    if (text == nullptr) {
        return nullptr;
    }
    size_t textLength = length < 0 ? std::strlen(text) : static_cast<size_t>(length);
    if (textLength > kMaxLength) {
        ZN_REPORT("String length can not be larger than 65536!");
        // Refused: the header's 16-bit length could not describe the entry.
        return nullptr;
    }
    auto storedLength = static_cast<unsigned int>(textLength);
    // Hashing needs no lock, so it stays outside it, and so does the fetch of the index line.
    Key key = MakeKey(text, storedLength);
    s_Table->PrefetchIndex(key);
    CSLock guard(&s_Table->m_Lock);
    if (char* found = s_Table->Find(text, storedLength, key)) {
        // Under the lock this may revive an entry that only the table still held.
        HeaderOf(found).m_RefCount.fetch_add(1, std::memory_order_relaxed);
        return found;
    }
    if (!IsTableEnabled()) {
        ZN_REPORT("Trying to add string [%.*s] to GlobalStringTable when it is locked.", length, text);
    }
    return s_Table->Create(text, storedLength, key);
}

inline GlobalStringBucket& GlobalStringTable::ChunkAt(unsigned int bucket, unsigned int chunkIndex) {
    return chunkIndex == 0 ? m_Buckets[bucket] : m_Indexes[bucket].m_Overflow[chunkIndex - 1];
}

inline const GlobalStringBucket& GlobalStringTable::ChunkAt(unsigned int bucket,
                                                            unsigned int chunkIndex) const {
    return chunkIndex == 0 ? m_Buckets[bucket] : m_Indexes[bucket].m_Overflow[chunkIndex - 1];
}

inline char* GlobalStringTable::SlotAt(unsigned int bucket, unsigned int position) const {
    return ChunkAt(bucket, position / kSlotsPerChunk).m_Entries[position % kSlotsPerChunk];
}

inline unsigned int GlobalStringTable::PositionCount(unsigned int bucket) const {
    return (m_Indexes[bucket].m_OverflowCount + 1) * kSlotsPerChunk;
}

inline void GlobalStringTable::PrefetchIndex(const Key& key) {
    // Read without the lock: a stale set only makes the hint miss, and a prefetch never faults.
    SideIndex& index = m_Indexes[key.m_Bucket];
    uint8_t* tags = std::atomic_ref<uint8_t*>(index.m_Tags).load(std::memory_order_relaxed);
    char** handles = std::atomic_ref<char**>(index.m_Handles).load(std::memory_order_relaxed);
    unsigned int capacity = std::atomic_ref<unsigned int>(index.m_Capacity).load(std::memory_order_relaxed);
    if (tags != nullptr) {
        unsigned int place = PlaceOf(key.m_Fingerprint, capacity);
        __builtin_prefetch(tags + place);
        __builtin_prefetch(handles + place);
    }
}

inline char* GlobalStringTable::Find(const char* text, unsigned int length, const Key& key) const {
    const SideIndex& index = m_Indexes[key.m_Bucket];
    if (index.m_Capacity == 0) {
        return nullptr;
    }
    const uint8_t tag = TagOf(key.m_Fingerprint);
    for (unsigned int probe = PlaceOf(key.m_Fingerprint, index.m_Capacity);;
         probe = NextProbe(probe, index.m_Capacity)) {
        uint8_t probed = index.m_Tags[probe];
        if (probed == kEmptyTag) {
            return nullptr;
        }
        if (probed != tag) {
            continue;
        }
        char* handle = index.m_Handles[probe];
        if (HeaderOf(handle).m_Length == length &&
            (handle == text || SameText(handle, text, length, key.m_HasNul))) {
            return handle;
        }
    }
}

char* GlobalStringTable::Create(const char* text, unsigned int length, const Key& key) {
    size_t size = (kHeaderSize + length + 1 + 3) & ~size_t{3};
    void* block = MemoryManager::GlobalMalloc(size, 0);
    if (block == nullptr) {
        return nullptr;
    }
    // Two references: the table's own hold, and the caller's.
    new (block) EntryHeader{2, static_cast<uint16_t>(length), static_cast<uint16_t>(key.m_Bucket)};
    char* handle = static_cast<char*>(block) + kHeaderSize;
    std::memcpy(handle, text, length);
    handle[length] = '\0';
    if (!Insert(handle, key)) {
        MemoryManager::GlobalFree(block, 0);
        return nullptr;
    }
    return handle;
}

bool GlobalStringTable::Insert(char* const& handle, const Key& key) {
    if (!Reserve(key.m_Bucket)) {
        return false;
    }
    SideIndex& index = m_Indexes[key.m_Bucket];
    unsigned int position = FindFreePosition(key.m_Bucket);
    GlobalStringBucket& chunk = ChunkAt(key.m_Bucket, position / kSlotsPerChunk);
    unsigned int slot = position % kSlotsPerChunk;
    chunk.m_Entries[slot] = handle;
    if (slot == chunk.m_Count) {
        ++chunk.m_Count;
    }
    index.m_FirstFree = position + 1;
    IndexHandle(key.m_Bucket, handle, key.m_Fingerprint, position);
    ++s_NbStrings;
    // Measured from the block's start, that is on the header: a count of 2 makes it 2.
    s_TotalMemorySize += static_cast<unsigned int>(std::strlen(GetRealBufferStart(handle)) + 1);
    return true;
}

unsigned int GlobalStringTable::FindFreePosition(unsigned int bucket) const {
    const unsigned int end = PositionCount(bucket);
    unsigned int position = m_Indexes[bucket].m_FirstFree;
    while (position < end && SlotAt(bucket, position) != nullptr) {
        ++position;
    }
    return position;
}

bool GlobalStringTable::Reserve(unsigned int bucket) {
    SideIndex& index = m_Indexes[bucket];
    if (FindFreePosition(bucket) == PositionCount(bucket) && !AppendChunk(bucket)) {
        return false;
    }
    if (index.m_Capacity == 0) {
        return Rehash(bucket, kMinIndexCapacity);
    }
    if (!IsCrowded(index.m_Live + index.m_Tombstones + 1, index.m_Capacity)) {
        return true;
    }
    // Crowded by live entries: grow by half. Crowded by tombstones: rebuild at the same size.
    bool grow = IsCrowded((index.m_Live + 1) * 3 / 2, index.m_Capacity);
    return Rehash(bucket, grow ? index.m_Capacity + index.m_Capacity / 2 : index.m_Capacity);
}

bool GlobalStringTable::AppendChunk(unsigned int bucket) {
    SideIndex& index = m_Indexes[bucket];
    if (PositionCount(bucket) + kSlotsPerChunk > kMaxPositions) {
        return false;
    }
    if (index.m_OverflowCount == index.m_OverflowCapacity) {
        // The chunks move to a larger array and are linked anew; growing by half keeps the unused
        // part small and the copies amortised.
        unsigned int capacity = index.m_OverflowCapacity + index.m_OverflowCapacity / 2 + 1;
        auto* chunks = new (std::nothrow) GlobalStringBucket[capacity]();
        if (chunks == nullptr) {
            return false;
        }
        std::copy(index.m_Overflow, index.m_Overflow + index.m_OverflowCount, chunks);
        for (unsigned int chunk = 0; chunk + 1 < index.m_OverflowCount; ++chunk) {
            chunks[chunk].m_Next = &chunks[chunk + 1];
        }
        delete[] index.m_Overflow;
        index.m_Overflow = chunks;
        index.m_OverflowCapacity = capacity;
    }
    index.m_Overflow[index.m_OverflowCount] = GlobalStringBucket{};
    ++index.m_OverflowCount;
    // Relinks the whole chain's head and tail: the array may just have moved.
    m_Buckets[bucket].m_Next = &index.m_Overflow[0];
    if (index.m_OverflowCount > 1) {
        index.m_Overflow[index.m_OverflowCount - 2].m_Next = &index.m_Overflow[index.m_OverflowCount - 1];
    }
    return true;
}

bool GlobalStringTable::Rehash(unsigned int bucket, unsigned int capacity) {
    SideIndex& index = m_Indexes[bucket];
    auto* block = static_cast<uint8_t*>(MemoryManager::GlobalMalloc(IndexBytes(capacity), 0));
    if (block == nullptr) {
        return false;
    }
    std::memset(block, 0, TagBytes(capacity));
    const SideIndex old = index;
    // Atomic stores: PrefetchIndex reads these three without the lock.
    std::atomic_ref<uint8_t*>(index.m_Tags).store(block, std::memory_order_relaxed);
    std::atomic_ref<char**>(index.m_Handles)
        .store(reinterpret_cast<char**>(block + TagBytes(capacity)), std::memory_order_relaxed);
    std::atomic_ref<unsigned int>(index.m_Capacity).store(capacity, std::memory_order_relaxed);
    index.m_Records = reinterpret_cast<uint64_t*>(index.m_Handles + capacity);
    index.m_Live = 0;
    index.m_Tombstones = 0;
    for (unsigned int probe = 0; probe < old.m_Capacity; ++probe) {
        if (old.m_Tags[probe] > kRemovedTag) {
            uint64_t record = old.m_Records[probe];
            IndexHandle(bucket, old.m_Handles[probe], static_cast<uint32_t>(record >> 32),
                        static_cast<unsigned int>(record));
        }
    }
    if (old.m_Tags != nullptr) {
        MemoryManager::GlobalFree(old.m_Tags, 0);
    }
    return true;
}

void GlobalStringTable::SweepIndex(unsigned int bucket) {
    SideIndex& index = m_Indexes[bucket];
    // A sparse index spreads a small bucket over many cache lines: past one live entry in eight it is
    // rebuilt at a quarter full. Otherwise tombstones, which lengthen every probe that meets them,
    // are swept out past a quarter of the index, at the same size. Either takes at least a quarter
    // of the index's size in removals to come round again, so the cost is amortised.
    if (index.m_Live * 8 < index.m_Capacity && index.m_Capacity > kMinIndexCapacity) {
        Rehash(bucket, std::max(kMinIndexCapacity, index.m_Live * 4));
    } else if (index.m_Tombstones * 4 > index.m_Capacity) {
        Rehash(bucket, index.m_Capacity);
    }
}

void GlobalStringTable::IndexHandle(unsigned int bucket, char* handle, uint32_t fingerprint,
                                    unsigned int position) {
    SideIndex& index = m_Indexes[bucket];
    unsigned int probe = PlaceOf(fingerprint, index.m_Capacity);
    while (index.m_Tags[probe] > kRemovedTag) {
        probe = NextProbe(probe, index.m_Capacity);
    }
    if (index.m_Tags[probe] == kRemovedTag) {
        --index.m_Tombstones;
    }
    index.m_Tags[probe] = TagOf(fingerprint);
    index.m_Handles[probe] = handle;
    index.m_Records[probe] = static_cast<uint64_t>(fingerprint) << 32 | position;
    ++index.m_Live;
}

void GlobalStringTable::IncRefCount(char*& handle) {
    if (handle != nullptr) {
        // Relaxed: whoever handed this handle over already made the entry visible.
        HeaderOf(handle).m_RefCount.fetch_add(1, std::memory_order_relaxed);
    }
}

void GlobalStringTable::DecRefCount(char*& handle) {
    if (handle == nullptr) {
        return;
    }
    EntryHeader& header = HeaderOf(handle);
    // What Remove needs is read while this reference still keeps the block alive: once the count
    // falls to 1, another thread's Remove may free it. Only what looks like the last handle pays
    // for hashing the text; when a race makes it the last after all, Remove searches by address.
    Key key{ExtractHash(handle), 0, false, true};
    if (header.m_RefCount.load(std::memory_order_relaxed) <= 2) {
        key.m_Fingerprint = Fingerprint(handle, header.m_Length);
        key.m_Known = true;
    }
    if (AtomicDecrement(header.m_RefCount) != 1) {
        return;
    }
    if (s_Table == nullptr) {
        ZN_REPORT(ZN_DEFAULT_ASSERT_TEXT);
        // The table that held the entry is gone, and with it the lock that Remove takes.
        return;
    }
    s_Table->Remove(handle, key);
}

inline unsigned int GlobalStringTable::FindIndexEntry(char* const& handle, unsigned int bucket,
                                                      uint32_t fingerprint) const {
    const SideIndex& index = m_Indexes[bucket];
    if (index.m_Capacity == 0) {
        return 0;
    }
    const uint8_t tag = TagOf(fingerprint);
    // Only addresses are compared: the block of a handle that is no longer filed may be freed.
    for (unsigned int probe = PlaceOf(fingerprint, index.m_Capacity);;
         probe = NextProbe(probe, index.m_Capacity)) {
        uint8_t probed = index.m_Tags[probe];
        if (probed == tag && index.m_Handles[probe] == handle) {
            return probe;
        }
        if (probed == kEmptyTag) {
            return index.m_Capacity;
        }
    }
}

void GlobalStringTable::Remove(char* const& handle, const Key& key) {
    if (handle == nullptr) {
        return;
    }
    CSLock guard(&m_Lock);
    SideIndex& index = m_Indexes[key.m_Bucket];
    uint32_t fingerprint = key.m_Fingerprint;
    if (!key.m_Known) {
        // Found by address in the chain, the entry is alive under this lock and may be read.
        unsigned int position = 0;
        const unsigned int end = PositionCount(key.m_Bucket);
        while (position < end && SlotAt(key.m_Bucket, position) != handle) {
            ++position;
        }
        if (position == end) {
            return;
        }
        fingerprint = Fingerprint(handle, HeaderOf(handle).m_Length);
    }
    unsigned int probe = FindIndexEntry(handle, key.m_Bucket, fingerprint);
    if (probe == index.m_Capacity) {
        return;  // removed by another thread already
    }
    std::atomic<int32_t>& count = HeaderOf(handle).m_RefCount;
    if (count.load(std::memory_order_relaxed) != 1) {
        return;  // revived by an Add since its last handle went
    }
    if (AtomicDecrement(count) != 0) {
        return;
    }
    char* block = GetRealBufferStart(handle);
    // Measured on the header again: with a count of 0 this is 1.
    s_TotalMemorySize -= static_cast<unsigned int>(std::strlen(block) + 1);
    MemoryManager::GlobalFree(block, 0);
    auto position = static_cast<unsigned int>(index.m_Records[probe]);
    GlobalStringBucket& chunk = ChunkAt(key.m_Bucket, position / kSlotsPerChunk);
    unsigned int slot = position % kSlotsPerChunk;
    chunk.m_Entries[slot] = nullptr;
    if (slot + 1 == chunk.m_Count) {
        --chunk.m_Count;
    }
    index.m_Tags[probe] = kRemovedTag;
    index.m_Handles[probe] = nullptr;
    --index.m_Live;
    ++index.m_Tombstones;
    index.m_FirstFree = std::min(index.m_FirstFree, position);
    --s_NbStrings;
    SweepIndex(key.m_Bucket);
}

unsigned int GlobalStringTable::GetLength(char* const& handle) {
    return handle == nullptr ? 0 : HeaderOf(handle).m_Length;
}

unsigned int GlobalStringTable::GetRefCount(char* const& handle) {
    return handle == nullptr
               ? 0
               : static_cast<unsigned int>(HeaderOf(handle).m_RefCount.load(std::memory_order_relaxed));
}

void GlobalStringTable::RequestTable() {
    s_TableUseCount.fetch_add(1, std::memory_order_relaxed);
    s_TableEnabled.store(true, std::memory_order_relaxed);
}

void GlobalStringTable::ReleaseTable() {
    int useCount = s_TableUseCount.fetch_sub(1, std::memory_order_relaxed) - 1;
    s_TableEnabled.store(useCount != 0, std::memory_order_relaxed);
    if (useCount < 0) {
        ZN_REPORT("Releasing fixedstring table more than it was requested!");
    }
}

void GlobalStringTable::ResetTable() {
    s_TableEnabled.store(false, std::memory_order_relaxed);
    s_TableUseCount.store(0, std::memory_order_relaxed);
}

void GlobalStringTable::_SDMInit() {
    if (s_Table != nullptr) {
        ZN_REPORT(ZN_DEFAULT_ASSERT_TEXT);
        // A second table would orphan every entry of the first: equal texts would stop sharing a handle.
        return;
    }
    s_Table = new GlobalStringTable;
    // A library started again begins as a process does at load: enabled, no bracket open.
    s_TableUseCount.store(0, std::memory_order_relaxed);
    s_TableEnabled.store(true, std::memory_order_relaxed);
}

void GlobalStringTable::_SDMShutdown() {
    if (s_NbStrings != 0 && s_Table != nullptr) {
        ScratchString report(1024, ScratchString::MAX_SIZE_INFINITE, true);
        report << "Fixed stringtable is leaking the following strings:\n";
        ListStrings(report);
        // The strings are data, not a format.
        ZN_REPORT("%s", report.ToChar());
    }
    delete s_Table;
    s_Table = nullptr;
}

template <typename Visit>
void GlobalStringTable::ForEachString(Visit visit) const {
    CSLock guard(&m_Lock);
    for (const GlobalStringBucket& bucket : m_Buckets) {
        for (const GlobalStringBucket* chunk = &bucket; chunk != nullptr; chunk = chunk->m_Next) {
            for (char* handle : chunk->m_Entries) {
                if (handle != nullptr) {
                    visit(handle);
                }
            }
        }
    }
}

void GlobalStringTable::ListStrings(ScratchString& list) {
    s_Table->ForEachString([&list](char* handle) { list << "\t-" << handle << "\n"; });
}

void GlobalStringTable::DumpContent(const Path& path) {
    if (s_Table == nullptr) {
        ZN_REPORT("There is no global string table?");
        return;
    }
    s_Table->DumpStringTable(path);
}

void GlobalStringTable::DumpStringTable(const Path& path) {
    RequestTable();
    FileWriter file(path, CompressionType_None, STDWString(L"wb"));
    if (file.IsLoaded()) {
        // Each entry's own length: the characters are written as they were interned.
        ForEachString([&file](char* handle) {
            file.Write(handle, GetLength(handle), 1);
            file.Write("\n", 1, 1);
        });
    }
    ReleaseTable();
    file.Close();
}

// ---- inspection ---------------------------------------------------------------------------------

unsigned int GlobalStringTable::GetBucket(char* const& handle) {
    return handle == nullptr ? 0 : ExtractHash(handle);
}

unsigned int GlobalStringTable::GetBucketChainLength(unsigned int bucket) {
    if (s_Table == nullptr || bucket >= kBucketCount) {
        return 0;
    }
    CSLock guard(&s_Table->m_Lock);
    unsigned int length = 0;
    for (const GlobalStringBucket* chunk = &s_Table->m_Buckets[bucket]; chunk != nullptr;
         chunk = chunk->m_Next) {
        length += chunk->m_Count;
    }
    return length;
}

unsigned int GlobalStringTable::GetBucketChunkCount(unsigned int bucket) {
    if (s_Table == nullptr || bucket >= kBucketCount) {
        return 0;
    }
    CSLock guard(&s_Table->m_Lock);
    unsigned int chunks = 0;
    for (const GlobalStringBucket* chunk = &s_Table->m_Buckets[bucket]; chunk != nullptr;
         chunk = chunk->m_Next) {
        ++chunks;
    }
    return chunks;
}

char* GlobalStringTable::GetBucketSlot(unsigned int bucket, unsigned int index) {
    if (s_Table == nullptr || bucket >= kBucketCount) {
        return nullptr;
    }
    CSLock guard(&s_Table->m_Lock);
    const GlobalStringBucket* chunk = &s_Table->m_Buckets[bucket];
    while (chunk != nullptr && index >= chunk->m_Count) {
        index -= chunk->m_Count;
        chunk = chunk->m_Next;
    }
    return chunk == nullptr ? nullptr : chunk->m_Entries[index];
}

size_t GlobalStringTable::GetIndexFootprint() {
    if (s_Table == nullptr) {
        return 0;
    }
    CSLock guard(&s_Table->m_Lock);
    size_t bytes = 0;
    for (const SideIndex& index : s_Table->m_Indexes) {
        bytes += index.m_OverflowCapacity * sizeof(GlobalStringBucket) +
                 (index.m_Capacity != 0 ? IndexBytes(index.m_Capacity) : 0);
    }
    return bytes;
}

bool GlobalStringTable::Validate() {
    if (s_Table == nullptr) {
        return s_NbStrings == 0;
    }
    CSLock guard(&s_Table->m_Lock);
    unsigned int liveEntries = 0;
    for (unsigned int bucket = 0; bucket < kBucketCount; ++bucket) {
        if (!s_Table->ValidateBucket(bucket, liveEntries)) {
            return false;
        }
    }
    return liveEntries == s_NbStrings;
}

bool GlobalStringTable::ValidateBucket(unsigned int bucket, unsigned int& liveEntries) const {
    const SideIndex& index = m_Indexes[bucket];
    // The chain is the table's chunk followed by the overflow array, in order.
    const unsigned int chunkCount = index.m_OverflowCount + 1;
    const GlobalStringBucket* chunk = &m_Buckets[bucket];
    for (unsigned int chunkIndex = 0; chunkIndex < chunkCount; ++chunkIndex, chunk = chunk->m_Next) {
        if (chunk != &ChunkAt(bucket, chunkIndex) || chunk->m_Count > kSlotsPerChunk) {
            return false;
        }
    }
    if (chunk != nullptr || index.m_OverflowCount > index.m_OverflowCapacity) {
        return false;
    }
    // Every filed entry is well formed, in its bucket, and found by its own text: a duplicate
    // earlier in the probe order would be found instead.
    const unsigned int end = PositionCount(bucket);
    unsigned int filed = 0;
    for (unsigned int position = 0; position < end; ++position) {
        char* handle = SlotAt(bucket, position);
        if (handle == nullptr) {
            continue;
        }
        const EntryHeader& header = HeaderOf(handle);
        Key key = MakeKey(handle, header.m_Length);
        if (position % kSlotsPerChunk >= ChunkAt(bucket, position / kSlotsPerChunk).m_Count ||
            header.m_Bucket != bucket || key.m_Bucket != bucket || handle[header.m_Length] != '\0' ||
            header.m_RefCount.load() < 1 || Find(handle, header.m_Length, key) != handle) {
            return false;
        }
        ++filed;
    }
    for (unsigned int position = 0; position < std::min(index.m_FirstFree, end); ++position) {
        if (SlotAt(bucket, position) == nullptr) {
            return false;
        }
    }
    // The side index holds exactly one live entry per filed handle, and room to probe.
    unsigned int live = 0;
    unsigned int tombstones = 0;
    for (unsigned int probe = 0; probe < index.m_Capacity; ++probe) {
        uint8_t tag = index.m_Tags[probe];
        if (tag <= kRemovedTag) {
            tombstones += tag == kRemovedTag ? 1 : 0;
            continue;
        }
        char* handle = index.m_Handles[probe];
        auto fingerprint = static_cast<uint32_t>(index.m_Records[probe] >> 32);
        auto position = static_cast<unsigned int>(index.m_Records[probe]);
        if (position >= end || SlotAt(bucket, position) != handle || tag != TagOf(fingerprint) ||
            fingerprint != Fingerprint(handle, HeaderOf(handle).m_Length)) {
            return false;
        }
        ++live;
    }
    if (live != filed || live != index.m_Live || tombstones != index.m_Tombstones ||
        (index.m_Capacity != 0 && IsCrowded(live + tombstones, index.m_Capacity))) {
        return false;
    }
    liveEntries += filed;
    return true;
}

}  // namespace zn
