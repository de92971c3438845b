// GlobalStringTable.cpp: interning, reference counting and removal of the process-wide strings.
#include "CoreLib/GlobalStringTable.h"

#include "CoreLib/FileWriter.h"
#include "CoreLib/HashKernels.h"
#include "CoreLib/MemoryManager.h"
#include "CoreLib/Report.h"
#include "CoreLib/ScratchString.h"

#include <immintrin.h>

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

using hashing::BytesEqualTo;
using hashing::HashWord;
using hashing::LoadShortText;
using hashing::LoadWord;
using hashing::PowerOf33;
using hashing::SameBytes;

constexpr uint32_t kLockSpinCount = 4000;
constexpr unsigned int kBucketCount = 513;
constexpr unsigned int kSlotsPerChunk = 10;
constexpr size_t kMaxLength = 65535;

// A chain's positions are kept in 32 bits; chains stop growing well before they run out.
constexpr unsigned int kMaxChunks = 0x0FFFFFFF;
// The fingerprint scan reads 32 slots (a 64-byte line of fingerprints) at a time.
constexpr unsigned int kScanSlots = 32;

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

constexpr uint32_t InverseOf33() {
    // Newton's iteration for an inverse modulo 2^32; each step doubles the bits that are right.
    uint32_t inverse = 1;
    for (int step = 0; step < 5; ++step) {
        inverse *= 2 - 33 * inverse;
    }
    return inverse;
}
static_assert(33u * InverseOf33() == 1u, "33 is odd, so it has an inverse modulo 2^32");

struct HashPowers {
    // 33^k and 33^-k for k = 0 to 64.
    uint32_t m_Powers[65];
    uint32_t m_Inverses[65];
    // For the 512-bit hash: the weight of pair j (bytes 2j and 2j + 1) of a 64-byte block is
    // 33^(62 - 2j). Unpacking bytes to 16 bits works within 16-byte lanes: the low unpack holds
    // pairs 8L to 8L + 3 of each lane L, the high one pairs 8L + 4 to 8L + 7; the weights match.
    alignas(64) uint32_t m_LowWeights[16];
    alignas(64) uint32_t m_HighWeights[16];
    constexpr HashPowers() : m_Powers(), m_Inverses(), m_LowWeights(), m_HighWeights() {
        for (unsigned int exponent = 0; exponent <= 64; ++exponent) {
            m_Powers[exponent] = exponent == 0 ? 1u : m_Powers[exponent - 1] * 33u;
            m_Inverses[exponent] = exponent == 0 ? 1u : m_Inverses[exponent - 1] * InverseOf33();
        }
        for (unsigned int lane = 0; lane < 4; ++lane) {
            for (unsigned int pair = 0; pair < 4; ++pair) {
                m_LowWeights[4 * lane + pair] = m_Powers[62 - 2 * (8 * lane + pair)];
                m_HighWeights[4 * lane + pair] = m_Powers[62 - 2 * (8 * lane + 4 + pair)];
            }
        }
    }
};
constexpr HashPowers kHashPowers;

struct TextHash {
    uint32_t m_Hash;
    bool m_HasNul;
};

// h = h * 33 + c over the bytes, each taken as a sign-extended signed char, 8 bytes at a time, and
// whether a NUL is among them. The last 1 to 7 bytes are read as the word that ends with them, the
// bytes before them masked out: they then weigh as the text's last ones.
TextHash HashText(const char* text, size_t length) {
    uint32_t hash = 0;
    unsigned int nuls = 0;
    size_t index = 0;
    for (; index + 8 <= length; index += 8) {
        __m128i bytes = _mm_cvtsi64_si128(static_cast<long long>(LoadWord(text + index)));
        nuls |= BytesEqualTo(bytes, 0);
        hash = hash * PowerOf33(8) + HashWord(bytes);
    }
    if (const size_t rest = length - index; rest != 0) {
        const auto skipped = static_cast<unsigned int>(8 - rest);
        uint64_t word = 0;
        if (length >= 8) [[likely]] {
            word = LoadWord(text + length - 8) & ~uint64_t{0} << (8 * skipped);
        } else {
            word = LoadShortText(text, length);
        }
        __m128i bytes = _mm_cvtsi64_si128(static_cast<long long>(word));
        nuls |= BytesEqualTo(bytes, 0) >> skipped;
        hash = hash * kHashPowers.m_Powers[rest] + HashWord(bytes);
    }
    return TextHash{hash, nuls != 0};
}

// The fingerprint kept per slot: 16 bits of a mix of the text's hash and its length, never 0, which
// marks a free slot. The hash is the one of the bytes before the first NUL, so texts that strncmp
// finds equal at one length share it. The bucket is the hash modulo 513; the high bits of a product
// depend on all of the hash, so the entries of one bucket differ in them.
uint16_t TagOf(const char* text, size_t length, const TextHash& whole) {
    uint32_t hash = whole.m_Hash;
    if (whole.m_HasNul) {
        hash =
            HashText(text, static_cast<size_t>(static_cast<const char*>(std::memchr(text, 0, length)) - text))
                .m_Hash;
    }
    uint32_t mix = (hash + static_cast<uint32_t>(length) * 0x9E3779B9u) * 0x85EBCA6Bu;
    auto tag = static_cast<uint16_t>(mix >> 16);
    return tag != 0 ? tag : 1;
}

// strncmp's verdict on equality. Without a NUL in the text it is a plain byte compare.
bool SameText(const char* stored, const char* text, size_t length, bool textHasNul) {
    if (textHasNul) [[unlikely]] {
        return std::strncmp(stored, text, length) == 0;
    }
    return SameBytes(stored, text, length);
}

// A bucket's block for a capacity of chunks: the fingerprints, padded to 16 bytes, the codes, then
// the chunk counts. The scan reads whole groups of 32 fingerprints, which may run on into the
// codes: the block is never shorter than those groups.
size_t TagBytes(unsigned int chunks) {
    return (size_t{chunks} * kSlotsPerChunk * sizeof(uint16_t) + 15) & ~size_t{15};
}

size_t BlockBytes(unsigned int chunks) {
    size_t slots = size_t{chunks} * kSlotsPerChunk;
    size_t scanned = (slots * sizeof(uint16_t) + 63) & ~size_t{63};
    return std::max(TagBytes(chunks) + slots * sizeof(uint32_t) + chunks, scanned);
}

uint16_t* TagsOf(const GlobalStringBucket& bucket) {
    return reinterpret_cast<uint16_t*>(bucket.m_Block);
}

uint32_t* CodesOf(const GlobalStringBucket& bucket) {
    return reinterpret_cast<uint32_t*>(bucket.m_Block + TagBytes(bucket.m_ChunkCapacity));
}

uint8_t* CountsOf(const GlobalStringBucket& bucket) {
    return reinterpret_cast<uint8_t*>(CodesOf(bucket) + bucket.m_ChunkCapacity * kSlotsPerChunk);
}

unsigned int SlotCount(const GlobalStringBucket& bucket) {
    return bucket.m_ChunkCount * kSlotsPerChunk;
}

// Bit i is set when slot i of the 32 from tags holds the tag.
uint32_t MatchTags(const uint16_t* tags, __m128i tag) {
    const auto* group = reinterpret_cast<const __m128i*>(tags);
    __m128i low = _mm_packs_epi16(_mm_cmpeq_epi16(_mm_loadu_si128(group), tag),
                                  _mm_cmpeq_epi16(_mm_loadu_si128(group + 1), tag));
    __m128i high = _mm_packs_epi16(_mm_cmpeq_epi16(_mm_loadu_si128(group + 2), tag),
                                   _mm_cmpeq_epi16(_mm_loadu_si128(group + 3), tag));
    return static_cast<uint32_t>(_mm_movemask_epi8(low)) | static_cast<uint32_t>(_mm_movemask_epi8(high))
                                                               << 16;
}

// The position of the live slot that holds code, or the chain's end.
unsigned int FindCode(const GlobalStringBucket& bucket, uint32_t code) {
    const uint16_t* tags = TagsOf(bucket);
    const uint32_t* codes = CodesOf(bucket);
    const unsigned int end = SlotCount(bucket);
    const __m128i wanted = _mm_set1_epi32(static_cast<int>(code));
    unsigned int position = 0;
    for (; position + 4 <= end; position += 4) {
        __m128i equal =
            _mm_cmpeq_epi32(_mm_loadu_si128(reinterpret_cast<const __m128i*>(codes + position)), wanted);
        for (auto matches = static_cast<unsigned int>(_mm_movemask_ps(_mm_castsi128_ps(equal))); matches != 0;
             matches &= matches - 1) {
            // A free slot may still hold a stale code.
            unsigned int match = position + static_cast<unsigned int>(__builtin_ctz(matches));
            if (tags[match] != 0) {
                return match;
            }
        }
    }
    for (; position < end; ++position) {
        if (codes[position] == code && tags[position] != 0) {
            return position;
        }
    }
    return end;
}

// ---- the same kernels in 512-bit vectors ----------------------------------------------------------
//
// On processors with AVX-512 (BW) a lookup runs these instead: a text of up to 64 bytes is one masked
// load, which reads nothing past its end, and 32 fingerprints are one compare. The results are the
// same bit for bit; what changes is how few instructions a lookup takes, and with them how many
// lookups' memory reads the processor can have in flight at once.
#define ZN_WIDE_KERNEL __attribute__((target("avx512f,avx512bw")))

// The first count (0 to 64) of 64 bytes.
ZN_WIDE_KERNEL inline __mmask64 LeadingBytes(size_t count) {
    return count >= 64 ? ~__mmask64{0} : (__mmask64{1} << count) - 1;
}

// The sum of the 16 lanes, modulo 2^32. (The masked shuffles leave no lane undefined.)
ZN_WIDE_KERNEL inline uint32_t SumOfLanes(__m512i values) {
    constexpr __mmask16 kAll = 0xFFFF;
    values = _mm512_add_epi32(values, _mm512_maskz_shuffle_i32x4(kAll, values, values, 0x4E));
    values = _mm512_add_epi32(values, _mm512_maskz_shuffle_i32x4(kAll, values, values, 0xB1));
    values = _mm512_add_epi32(values, _mm512_maskz_shuffle_epi32(kAll, values, _MM_PERM_BADC));
    values = _mm512_add_epi32(values, _mm512_maskz_shuffle_epi32(kAll, values, _MM_PERM_CDAB));
    return static_cast<uint32_t>(_mm512_cvtsi512_si32(values));
}

// The hash of count (0 to 64) bytes. The block is weighed as if it were followed by zeros up to 64
// bytes, which multiplies its sum by 33 for each missing byte; 33's inverse takes that back. Adds
// the NULs among the bytes to nuls.
ZN_WIDE_KERNEL inline uint32_t HashBlockWide(const char* bytes, size_t count, __mmask64& nuls) {
    const __m512i pairWeights = _mm512_set1_epi32(0x00010021);  // 33, 1
    const __mmask64 mask = LeadingBytes(count);
    __m512i block = _mm512_maskz_loadu_epi8(mask, bytes);
    nuls |= _mm512_mask_testn_epi8_mask(mask, block, block);
    __m512i low = _mm512_madd_epi16(_mm512_srai_epi16(_mm512_unpacklo_epi8(block, block), 8), pairWeights);
    __m512i high = _mm512_madd_epi16(_mm512_srai_epi16(_mm512_unpackhi_epi8(block, block), 8), pairWeights);
    uint32_t sum =
        SumOfLanes(_mm512_add_epi32(_mm512_mullo_epi32(low, _mm512_load_si512(kHashPowers.m_LowWeights)),
                                    _mm512_mullo_epi32(high, _mm512_load_si512(kHashPowers.m_HighWeights))));
    return sum * kHashPowers.m_Inverses[64 - count];
}

// HashText's result: a text of up to 64 bytes is one block, a longer one a block each 64 bytes.
ZN_WIDE_KERNEL inline TextHash HashTextWide(const char* text, size_t length) {
    __mmask64 nuls = 0;
    if (length <= 64) [[likely]] {
        uint32_t hash = HashBlockWide(text, length, nuls);
        return TextHash{hash, nuls != 0};
    }
    uint32_t hash = 0;
    for (size_t index = 0; index < length; index += 64) {
        const size_t count = std::min<size_t>(64, length - index);
        hash = hash * kHashPowers.m_Powers[count] + HashBlockWide(text + index, count, nuls);
    }
    return TextHash{hash, nuls != 0};
}

// SameText's result.
ZN_WIDE_KERNEL inline bool SameTextWide(const char* stored, const char* text, size_t length,
                                        bool textHasNul) {
    if (textHasNul) [[unlikely]] {
        return std::strncmp(stored, text, length) == 0;
    }
    for (size_t index = 0; index < length; index += 64) {
        const __mmask64 mask = LeadingBytes(length - index);
        if (_mm512_mask_cmpneq_epi8_mask(mask, _mm512_maskz_loadu_epi8(mask, stored + index),
                                         _mm512_maskz_loadu_epi8(mask, text + index)) != 0) {
            return false;
        }
    }
    return true;
}

// The two sets of kernels a bucket scan takes: which of 32 slots hold a fingerprint, and strncmp's
// verdict on an entry of the right length.
struct PlainKernels {
    static uint32_t MatchGroup(const uint16_t* tags, uint16_t tag) {
        return MatchTags(tags, _mm_set1_epi16(static_cast<short>(tag)));
    }
    static bool SameEntry(const char* stored, const char* text, size_t length, bool textHasNul) {
        return SameText(stored, text, length, textHasNul);
    }
};

struct WideKernels {
    ZN_WIDE_KERNEL static uint32_t MatchGroup(const uint16_t* tags, uint16_t tag) {
        return _mm512_cmpeq_epi16_mask(_mm512_loadu_si512(tags), _mm512_set1_epi16(static_cast<short>(tag)));
    }
    ZN_WIDE_KERNEL static bool SameEntry(const char* stored, const char* text, size_t length,
                                         bool textHasNul) {
        return SameTextWide(stored, text, length, textHasNul);
    }
};

// The live entry of the bucket whose text equals the first length bytes of text, or null: the
// fingerprints are compared 32 at a time, and only the entries they match are read. Always inlined,
// so that each form of the lookup compiles it with its own instructions.
template <typename Kernels>
[[gnu::always_inline]] inline char* ScanBucket(const GlobalStringBucket& bucket,
                                               const GlobalStringCodes& codes, const char* text,
                                               unsigned int length, uint16_t tag, bool textHasNul) {
    if (bucket.m_Block == nullptr) {
        return nullptr;
    }
    const uint16_t* tags = TagsOf(bucket);
    const uint32_t* slots = CodesOf(bucket);
    const unsigned int end = SlotCount(bucket);
    for (unsigned int group = 0; group < end; group += kScanSlots) {
        for (uint32_t matches = Kernels::MatchGroup(tags + group, tag); matches != 0;
             matches &= matches - 1) {
            unsigned int position = group + static_cast<unsigned int>(__builtin_ctz(matches));
            if (position >= end) {
                return nullptr;  // the group ran past the chain
            }
            char* handle = codes.Decode(slots[position]);
            if (HeaderOf(handle).m_Length == length &&
                (handle == text || Kernels::SameEntry(handle, text, length, textHasNul))) {
                return handle;
            }
        }
    }
    return nullptr;
}

bool ProcessorHasWideKernels() {
    static const bool hasThem = [] {
        __builtin_cpu_init();
        return __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512bw");
    }();
    return hasThem;
}

}  // namespace

// ---- entry codes --------------------------------------------------------------------------------

namespace {
constexpr uint64_t kUnitMask = 15;
// Where a handle lies in its 16-byte unit: behind the entry header of a 16-aligned block.
constexpr uint64_t kHandleOffset = 8;
}  // namespace

GlobalStringCodes::~GlobalStringCodes() {
    if (m_Far != nullptr) {
        MemoryManager::GlobalFree(m_Far, 0);
    }
}

bool GlobalStringCodes::WindowCode(uint64_t address, unsigned int windows, uint32_t& code) const {
    const uint64_t base = (address >> kWindowShift << kWindowShift) | kHandleOffset;
    for (unsigned int window = 0; window < windows; ++window) {
        if (m_Bases[window] == base) {
            code = window << kOffsetBits | static_cast<uint32_t>((address >> kUnitShift) & kOffsetMask);
            return true;
        }
    }
    return false;
}

bool GlobalStringCodes::Assign(char* handle, uint32_t& code) {
    auto address = static_cast<uint64_t>(reinterpret_cast<uintptr_t>(handle));
    if ((address & kUnitMask) == kHandleOffset) {
        if (WindowCode(address, std::min(m_WindowCount, m_WindowLimit), code)) {
            return true;
        }
        if (m_WindowCount < m_WindowLimit) {
            m_Bases[m_WindowCount] = (address >> kWindowShift << kWindowShift) | kHandleOffset;
            return WindowCode(address, ++m_WindowCount, code);
        }
    }
    unsigned int slot = 0;
    while (slot < m_FarCapacity && m_Far[slot] != nullptr) {
        ++slot;
    }
    if (slot == m_FarCapacity) {
        unsigned int capacity = std::max(8u, m_FarCapacity * 2);
        if (capacity > kOffsetMask + 1) {
            return false;
        }
        auto* far = static_cast<char**>(MemoryManager::GlobalMalloc(capacity * sizeof(char*), 0));
        if (far == nullptr) {
            return false;
        }
        std::fill(far, far + capacity, nullptr);
        if (m_Far != nullptr) {
            std::copy(m_Far, m_Far + m_FarCapacity, far);
            MemoryManager::GlobalFree(m_Far, 0);
        }
        m_Far = far;
        m_FarCapacity = capacity;
    }
    m_Far[slot] = handle;
    ++m_FarInUse;
    code = kFarWindow << kOffsetBits | slot;
    return true;
}

bool GlobalStringCodes::Find(const char* handle, uint32_t& code) const {
    // The far list first: a handle in it may lie in a window all the same, one that a limit kept it
    // from. It is empty unless the address space is unusual, or a test made it so.
    if (m_FarInUse != 0) {
        for (unsigned int slot = 0; slot < m_FarCapacity; ++slot) {
            if (m_Far[slot] == handle) {
                code = kFarWindow << kOffsetBits | slot;
                return true;
            }
        }
    }
    auto address = static_cast<uint64_t>(reinterpret_cast<uintptr_t>(handle));
    return (address & kUnitMask) == kHandleOffset && WindowCode(address, m_WindowCount, code);
}

void GlobalStringCodes::Release(uint32_t code) {
    if (IsFar(code) && (code & kOffsetMask) < m_FarCapacity && m_Far[code & kOffsetMask] != nullptr) {
        m_Far[code & kOffsetMask] = nullptr;
        --m_FarInUse;
    }
}

// ---- the table ------------------------------------------------------------------------------------

GlobalStringTable::GlobalStringTable() : m_Wide(ProcessorHasWideKernels()), m_Lock(kLockSpinCount) {
    // Every chain starts with its first chunk, empty.
    for (GlobalStringBucket& bucket : m_Buckets) {
        bucket = GlobalStringBucket{nullptr, 1, 0, 0};
    }
}

GlobalStringTable::~GlobalStringTable() {
    // Entry blocks still alive are not freed: their handles may outlive the table.
    for (GlobalStringBucket& bucket : m_Buckets) {
        if (bucket.m_Block != nullptr) {
            MemoryManager::GlobalFree(bucket.m_Block, 0);
        }
    }
}

inline unsigned int GlobalStringTable::Hash(const char* text, unsigned int length) {
    return HashText(text, length).m_Hash % s_NbGlobalStringHashBuckets;
}

inline GlobalStringTable::Key GlobalStringTable::MakeKey(const char* text, unsigned int length) {
    // One pass over the text gives both.
    TextHash whole = HashText(text, length);
    return Key{whole.m_Hash % s_NbGlobalStringHashBuckets, TagOf(text, length, whole), whole.m_HasNul};
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
    GlobalStringTable& table = *s_Table;
    auto storedLength = static_cast<unsigned int>(textLength);
    return table.m_Wide.load(std::memory_order_relaxed) ? table.InternWide(text, storedLength, length)
                                                        : table.Intern(text, storedLength, length);
}

char* GlobalStringTable::Intern(const char* text, unsigned int length, int requestedLength) {
    // Hashing needs no lock, so it stays outside it.
    const Key key = MakeKey(text, length);
    CSLock guard(&m_Lock);
    if (char* found = Find(text, length, key)) {
        // Under the lock this may revive an entry that only the table still held.
        HeaderOf(found).m_RefCount.fetch_add(1, std::memory_order_relaxed);
        return found;
    }
    return AddMissing(text, length, requestedLength, key);
}

char* GlobalStringTable::AddMissing(const char* text, unsigned int length, int requestedLength,
                                    const Key& key) {
    if (!IsTableEnabled()) {
        // Under the name of the entry point the caller used; the length as the caller gave it.
        ZN_REPORT_AS("zn::GlobalStringTable::Add",
                     "Trying to add string [%.*s] to GlobalStringTable when it is locked.", requestedLength,
                     text);
    }
    return Create(text, length, key);
}

inline char* GlobalStringTable::Find(const char* text, unsigned int length, const Key& key) const {
    return ScanBucket<PlainKernels>(m_Buckets[key.m_Bucket], m_Codes, text, length, key.m_Tag, key.m_HasNul);
}

ZN_WIDE_KERNEL inline GlobalStringTable::Key GlobalStringTable::MakeKeyWide(const char* text,
                                                                            unsigned int length) {
    TextHash whole = HashTextWide(text, length);
    return Key{whole.m_Hash % s_NbGlobalStringHashBuckets, TagOf(text, length, whole), whole.m_HasNul};
}

ZN_WIDE_KERNEL inline char* GlobalStringTable::FindWide(const char* text, unsigned int length,
                                                        const Key& key) const {
    return ScanBucket<WideKernels>(m_Buckets[key.m_Bucket], m_Codes, text, length, key.m_Tag, key.m_HasNul);
}

ZN_WIDE_KERNEL char* GlobalStringTable::InternWide(const char* text, unsigned int length,
                                                   int requestedLength) {
    const Key key = MakeKeyWide(text, length);
    CSLock guard(&m_Lock);
    if (char* found = FindWide(text, length, key)) {
        HeaderOf(found).m_RefCount.fetch_add(1, std::memory_order_relaxed);
        return found;
    }
    return AddMissing(text, length, requestedLength, key);
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
    GlobalStringBucket& bucket = m_Buckets[key.m_Bucket];
    uint32_t code = 0;
    if (!m_Codes.Assign(handle, code)) {
        return false;
    }
    const unsigned int position = FindFreePosition(bucket);
    // A full chain gets one more chunk; the first entry of a bucket gets storage for the first.
    const bool newChunk = position == SlotCount(bucket);
    if ((newChunk || bucket.m_Block == nullptr) && !Grow(bucket)) {
        m_Codes.Release(code);
        return false;
    }
    if (newChunk) {
        ++bucket.m_ChunkCount;
    }
    TagsOf(bucket)[position] = key.m_Tag;
    CodesOf(bucket)[position] = code;
    uint8_t& count = CountsOf(bucket)[position / kSlotsPerChunk];
    if (position % kSlotsPerChunk == count) {
        ++count;
    }
    bucket.m_FirstFree = position + 1;
    ++s_NbStrings;
    // Measured from the block's start, that is on the header: a count of 2 makes it 2.
    s_TotalMemorySize += static_cast<unsigned int>(std::strlen(GetRealBufferStart(handle)) + 1);
    return true;
}

unsigned int GlobalStringTable::FindFreePosition(const GlobalStringBucket& bucket) {
    const unsigned int end = SlotCount(bucket);
    if (bucket.m_Block == nullptr) {
        return 0;
    }
    const uint16_t* tags = TagsOf(bucket);
    const __m128i freeTag = _mm_setzero_si128();
    unsigned int group = bucket.m_FirstFree & ~(kScanSlots - 1);
    uint32_t below = ~0u << (bucket.m_FirstFree - group);
    for (; group < end; group += kScanSlots, below = ~0u) {
        if (uint32_t free = MatchTags(tags + group, freeTag) & below) {
            return std::min(end, group + static_cast<unsigned int>(__builtin_ctz(free)));
        }
    }
    return end;
}

bool GlobalStringTable::Grow(GlobalStringBucket& bucket) {
    // Room for one more chunk than the chain has, or for the first one. Growing by a thirty-second
    // keeps the unused part of the block small (it counts in every string's cost) and the copies
    // amortised: a chain of n chunks has been copied about 32n chunks' worth.
    const bool first = bucket.m_Block == nullptr;
    const unsigned int needed = first ? 1 : bucket.m_ChunkCount + 1;
    if (needed <= bucket.m_ChunkCapacity) {
        return true;
    }
    if (needed > kMaxChunks) {
        return false;
    }
    const unsigned int capacity = std::min(kMaxChunks, std::max(needed, needed + needed / 32));
    auto* block = static_cast<uint8_t*>(MemoryManager::GlobalMalloc(BlockBytes(capacity), 0));
    if (block == nullptr) {
        return false;
    }
    std::memset(block, 0, BlockBytes(capacity));
    GlobalStringBucket grown = bucket;
    grown.m_Block = block;
    grown.m_ChunkCapacity = capacity;
    if (!first) {
        const unsigned int slots = bucket.m_ChunkCapacity * kSlotsPerChunk;
        std::memcpy(TagsOf(grown), TagsOf(bucket), slots * sizeof(uint16_t));
        std::memcpy(CodesOf(grown), CodesOf(bucket), slots * sizeof(uint32_t));
        std::memcpy(CountsOf(grown), CountsOf(bucket), bucket.m_ChunkCapacity);
        MemoryManager::GlobalFree(bucket.m_Block, 0);
    }
    bucket.m_Block = block;
    bucket.m_ChunkCapacity = capacity;
    return true;
}

inline char* GlobalStringTable::SlotAt(const GlobalStringBucket& bucket, unsigned int position) const {
    return TagsOf(bucket)[position] == 0 ? nullptr : m_Codes.Decode(CodesOf(bucket)[position]);
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
    // The bucket is read while this reference still keeps the block alive: once the count falls
    // to 1, another thread's Remove may free it.
    const unsigned int bucket = ExtractHash(handle);
    if (AtomicDecrement(header.m_RefCount) != 1) {
        return;
    }
    if (s_Table == nullptr) {
        ZN_REPORT(ZN_DEFAULT_ASSERT_TEXT);
        // The table that held the entry is gone, and with it the lock that Remove takes.
        return;
    }
    s_Table->Remove(handle, bucket);
}

void GlobalStringTable::Remove(char* const& handle, unsigned int bucketIndex) {
    if (handle == nullptr || bucketIndex >= kBucketCount) {
        return;
    }
    CSLock guard(&m_Lock);
    GlobalStringBucket& bucket = m_Buckets[bucketIndex];
    // Only addresses are compared until the entry is found: the block of a handle that is no
    // longer filed may have been freed.
    uint32_t code = 0;
    if (bucket.m_Block == nullptr || !m_Codes.Find(handle, code)) {
        return;
    }
    const unsigned int position = FindCode(bucket, code);
    if (position == SlotCount(bucket)) {
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
    TagsOf(bucket)[position] = 0;
    CodesOf(bucket)[position] = 0;
    uint8_t& chunkCount = CountsOf(bucket)[position / kSlotsPerChunk];
    if (position % kSlotsPerChunk + 1 == chunkCount) {
        --chunkCount;
    }
    bucket.m_FirstFree = std::min(bucket.m_FirstFree, position);
    m_Codes.Release(code);
    --s_NbStrings;
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
        if (bucket.m_Block == nullptr) {
            continue;
        }
        for (unsigned int position = 0; position < SlotCount(bucket); ++position) {
            if (char* handle = SlotAt(bucket, position)) {
                visit(handle);
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
    const GlobalStringBucket& chain = s_Table->m_Buckets[bucket];
    if (chain.m_Block == nullptr) {
        return 0;
    }
    const uint8_t* counts = CountsOf(chain);
    unsigned int length = 0;
    for (unsigned int chunk = 0; chunk < chain.m_ChunkCount; ++chunk) {
        length += counts[chunk];
    }
    return length;
}

unsigned int GlobalStringTable::GetBucketChunkCount(unsigned int bucket) {
    if (s_Table == nullptr || bucket >= kBucketCount) {
        return 0;
    }
    CSLock guard(&s_Table->m_Lock);
    return s_Table->m_Buckets[bucket].m_ChunkCount;
}

char* GlobalStringTable::GetBucketSlot(unsigned int bucket, unsigned int index) {
    if (s_Table == nullptr || bucket >= kBucketCount) {
        return nullptr;
    }
    CSLock guard(&s_Table->m_Lock);
    const GlobalStringBucket& chain = s_Table->m_Buckets[bucket];
    if (chain.m_Block == nullptr) {
        return nullptr;
    }
    const uint8_t* counts = CountsOf(chain);
    unsigned int chunk = 0;
    while (chunk < chain.m_ChunkCount && index >= counts[chunk]) {
        index -= counts[chunk];
        ++chunk;
    }
    return chunk == chain.m_ChunkCount ? nullptr : s_Table->SlotAt(chain, chunk * kSlotsPerChunk + index);
}

size_t GlobalStringTable::GetIndexFootprint() {
    if (s_Table == nullptr) {
        return 0;
    }
    CSLock guard(&s_Table->m_Lock);
    size_t bytes = s_Table->m_Codes.GetFootprint();
    for (const GlobalStringBucket& bucket : s_Table->m_Buckets) {
        bytes += bucket.m_Block != nullptr ? BlockBytes(bucket.m_ChunkCapacity) : 0;
    }
    return bytes;
}

unsigned int GlobalStringTable::GetFarEntryCount() {
    if (s_Table == nullptr) {
        return 0;
    }
    CSLock guard(&s_Table->m_Lock);
    return s_Table->m_Codes.GetFarCount();
}

void GlobalStringTable::SetCodeWindowLimit(unsigned int windows) {
    if (s_Table != nullptr) {
        CSLock guard(&s_Table->m_Lock);
        s_Table->m_Codes.SetWindowLimit(windows);
    }
}

bool GlobalStringTable::UseWideInstructions(bool use) {
    if (s_Table == nullptr) {
        return false;
    }
    CSLock guard(&s_Table->m_Lock);
    s_Table->m_Wide.store(use && ProcessorHasWideKernels(), std::memory_order_relaxed);
    return s_Table->m_Wide.load(std::memory_order_relaxed);
}

bool GlobalStringTable::UsesWideInstructions() {
    return s_Table != nullptr && s_Table->m_Wide.load(std::memory_order_relaxed);
}

bool GlobalStringTable::Validate() {
    if (s_Table == nullptr) {
        return s_NbStrings == 0;
    }
    CSLock guard(&s_Table->m_Lock);
    unsigned int liveEntries = 0;
    unsigned int farEntries = 0;
    for (unsigned int bucket = 0; bucket < kBucketCount; ++bucket) {
        if (!s_Table->ValidateBucket(bucket, liveEntries, farEntries)) {
            return false;
        }
    }
    return liveEntries == s_NbStrings && farEntries == s_Table->m_Codes.GetFarCount();
}

bool GlobalStringTable::ValidateBucket(unsigned int bucketIndex, unsigned int& liveEntries,
                                       unsigned int& farEntries) const {
    const GlobalStringBucket& bucket = m_Buckets[bucketIndex];
    if (bucket.m_Block == nullptr) {
        return bucket.m_ChunkCount == 1 && bucket.m_ChunkCapacity == 0;
    }
    if (bucket.m_ChunkCount == 0 || bucket.m_ChunkCount > bucket.m_ChunkCapacity) {
        return false;
    }
    const uint16_t* tags = TagsOf(bucket);
    const uint32_t* codes = CodesOf(bucket);
    const uint8_t* counts = CountsOf(bucket);
    for (unsigned int position = 0; position < bucket.m_ChunkCapacity * kSlotsPerChunk; ++position) {
        const unsigned int chunk = position / kSlotsPerChunk;
        if (tags[position] == 0) {
            // A free slot; every slot before the first free position is in use.
            if (position < bucket.m_FirstFree && position < SlotCount(bucket)) {
                return false;
            }
            continue;
        }
        // Live slots lie in the chain, below their chunk's count.
        if (chunk >= bucket.m_ChunkCount || position % kSlotsPerChunk >= counts[chunk]) {
            return false;
        }
        char* handle = m_Codes.Decode(codes[position]);
        uint32_t code = 0;
        if (handle == nullptr || !m_Codes.Find(handle, code) || code != codes[position]) {
            return false;
        }
        // The entry is well formed, in this bucket, and found by its own text: a duplicate earlier
        // in the chain would be found instead.
        const EntryHeader& header = HeaderOf(handle);
        Key key = MakeKey(handle, header.m_Length);
        if (header.m_Bucket != bucketIndex || key.m_Bucket != bucketIndex || key.m_Tag != tags[position] ||
            handle[header.m_Length] != '\0' || header.m_RefCount.load() < 1 ||
            Find(handle, header.m_Length, key) != handle) {
            return false;
        }
        // Both forms of the lookup agree where the processor has the wide one.
        if (ProcessorHasWideKernels()) {
            Key wideKey = MakeKeyWide(handle, header.m_Length);
            if (wideKey.m_Bucket != key.m_Bucket || wideKey.m_Tag != key.m_Tag ||
                wideKey.m_HasNul != key.m_HasNul || FindWide(handle, header.m_Length, wideKey) != handle) {
                return false;
            }
        }
        farEntries += m_Codes.IsFar(code) ? 1 : 0;
        ++liveEntries;
    }
    for (unsigned int chunk = 0; chunk < bucket.m_ChunkCapacity; ++chunk) {
        if (counts[chunk] > kSlotsPerChunk || (chunk >= bucket.m_ChunkCount && counts[chunk] != 0)) {
            return false;
        }
    }
    return true;
}

}  // namespace zn
