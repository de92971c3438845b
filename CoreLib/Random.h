// Random.h: a repeatable random source that draws from a table made once by seeding.
#pragma once

#include "CoreLib/TrackedObject.h"

namespace zn {

// Seeding fills a table of values of the run-time library's 15-bit generator; draws read the table
// in order and start again at its end, so a seed and a size fix the whole sequence, and SetIndex
// rewinds or replays it.
class Random : public TrackedObject<Random> {
public:
    // Largest value a draw gives.
    static constexpr unsigned int kMaxValue = 0x7fff;
    static constexpr unsigned int kDefaultSize = 2000;

    Random() = default;
    ~Random();
    Random(const Random&) = delete;
    Random& operator=(const Random&) = delete;

    // Seeds from the current calendar time with a table of size values.
    void SeedRandom(unsigned int size);
    // Makes a table of size values from seed. The read position is kept.
    void Seed(unsigned int seed, unsigned int size);

    // The next value of the table, in [0, 32767]; an unseeded object reports and gives 0.
    unsigned int GetRand();
    // A value in [low, high], high included.
    int GetRand(int low, int high);
    // A value in [low, high].
    float GetRand(float low, float high);

    unsigned int GetSeed() const { return m_Seed; }
    unsigned int GetIndex() const { return m_Index; }
    void SetIndex(unsigned int index) { m_Index = index; }
    unsigned int GetSize() const { return m_Size; }

private:
    void GenerateList();
    void FreeList();

    unsigned int* m_List = nullptr;
    unsigned int m_Index = 0;
    unsigned int m_Size = kDefaultSize;
    unsigned int m_Seed = 0;
    unsigned int m_State = 0;
    bool m_Seeded = false;
    // The table came from "GLOBAL"; otherwise, made before the memory manager existed, from malloc.
    bool m_ListInGlobalHeap = false;
};

}  // namespace zn
