// Random.cpp: the seeded table and the draws from it.
#include "CoreLib/Random.h"

#include "CoreLib/MemoryManager.h"
#include "CoreLib/Report.h"
#include "CoreLib/platform/Time.h"

#include <cstdint>
#include <cstdlib>

namespace zn {

namespace {
// The run-time library's linear congruential step and its 15-bit output.
constexpr unsigned int kMultiplier = 214013;
constexpr unsigned int kIncrement = 2531011;
}  // namespace

Random::~Random() {
    FreeList();
}

void Random::FreeList() {
    if (m_List == nullptr) {
        return;
    }
    if (!m_ListInGlobalHeap) {
        std::free(m_List);
    } else if (MemoryManager::IsCreated()) {
        MemoryManager::GlobalFree(m_List, 0);
    }
    // A table from "GLOBAL" that outlived the memory manager has no heap left to go back to.
    m_List = nullptr;
    m_ListInGlobalHeap = false;
}

void Random::GenerateList() {
    FreeList();
    size_t bytes = static_cast<size_t>(m_Size) * sizeof(unsigned int);
    if (MemoryManager::IsCreated()) {
        m_List = static_cast<unsigned int*>(MemoryManager::GlobalMalloc(bytes, 0));
        m_ListInGlobalHeap = true;
    } else if (bytes > 0) {
        m_List = static_cast<unsigned int*>(std::malloc(bytes));
    }
    if (m_List != nullptr) {
        for (unsigned int index = 0; index < m_Size; ++index) {
            m_State = m_State * kMultiplier + kIncrement;
            m_List[index] = (m_State >> 16) & kMaxValue;
        }
    }
    m_Seeded = true;
}

void Random::Seed(unsigned int seed, unsigned int size) {
    m_Seed = seed;
    m_State = seed;
    m_Size = size;
    GenerateList();
}

void Random::SeedRandom(unsigned int size) {
    Seed(static_cast<unsigned int>(platform::Time64()), size);
}

unsigned int Random::GetRand() {
    // An empty table (size 0, or no memory) has nothing to read, like one never made.
    if (!m_Seeded || m_List == nullptr || m_Size == 0) {
        ZN_REPORT("Trying to get a random on an uninitialized Random object. Seed it first!");
        return 0;
    }
    // A position past the end (set by hand, or kept from a larger table) starts the table again.
    if (m_Index >= m_Size) {
        m_Index = 0;
    }
    unsigned int value = m_List[m_Index];
    ++m_Index;
    if (m_Index >= m_Size) {
        m_Index = 0;
    }
    return value;
}

int Random::GetRand(int low, int high) {
    // The width is unsigned 32-bit arithmetic; the full int range wraps it to 0 and is taken as
    // 2^32, where the remainder is the value itself.
    uint32_t width = static_cast<uint32_t>(high) - static_cast<uint32_t>(low) + 1u;
    uint64_t value = GetRand();
    uint64_t offset = width == 0 ? value : value % width;
    return static_cast<int>(static_cast<uint32_t>(low) + static_cast<uint32_t>(offset));
}

float Random::GetRand(float low, float high) {
    return static_cast<float>(low + (high - low) * (static_cast<double>(GetRand()) / kMaxValue));
}

}  // namespace zn
