// BitMatrix.h: a two-dimensional field of bits, one word of 32 bits after another, row by row.
#pragma once

#include "CoreLib/TrackedObject.h"

namespace zn {

class BitMatrix : public TrackedObject<BitMatrix> {
public:
    // Cleared storage of (xSize * ySize / 32) + 1 words from "GLOBAL".
    BitMatrix(unsigned int xSize, unsigned int ySize);
    ~BitMatrix();
    BitMatrix(const BitMatrix&) = delete;
    BitMatrix& operator=(const BitMatrix&) = delete;

    // The bit of (x, y) is x + y * x-size. None of these checks x against the x size or y against
    // the y size: a coordinate outside them reaches whichever bit that formula names.
    void Set(unsigned int x, unsigned int y);
    void Reset(unsigned int x, unsigned int y);
    // 1 when the bit is set, 0 otherwise.
    unsigned int Get(unsigned int x, unsigned int y) const;

    unsigned int GetXSize() const { return m_XSize; }
    unsigned int GetYSize() const { return m_YSize; }
    // The number of words allocated; 0 when the heap had no memory.
    unsigned int GetWordCount() const { return m_Words != nullptr ? WordCountFor(m_XSize, m_YSize) : 0; }
    const unsigned int* GetWords() const { return m_Words; }

    static unsigned int WordCountFor(unsigned int xSize, unsigned int ySize) {
        return (xSize * ySize / 32) + 1;
    }

private:
    // The word holding bit, or null for a bit past the allocation.
    unsigned int* WordOf(unsigned int bit) const;

    unsigned int* m_Words;
    unsigned int m_XSize;
    unsigned int m_YSize;
};

}  // namespace zn
