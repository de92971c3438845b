// BitMatrix.cpp: the bit field's storage and its bit operations.
#include "CoreLib/BitMatrix.h"

#include "CoreLib/MemoryManager.h"

#include <cstring>

namespace zn {

BitMatrix::BitMatrix(unsigned int xSize, unsigned int ySize)
    : m_Words(nullptr), m_XSize(xSize), m_YSize(ySize) {
    size_t bytes = sizeof(unsigned int) * static_cast<size_t>(WordCountFor(xSize, ySize));
    m_Words = static_cast<unsigned int*>(MemoryManager::GlobalMalloc(bytes, 0));
    if (m_Words != nullptr) {
        std::memset(m_Words, 0, bytes);
    }
}

BitMatrix::~BitMatrix() {
    MemoryManager::GlobalFree(m_Words, 0);
}

unsigned int* BitMatrix::WordOf(unsigned int bit) const {
    // Coordinates are not checked, but a bit past the words would be outside the block.
    if (m_Words == nullptr || bit / 32 >= WordCountFor(m_XSize, m_YSize)) {
        return nullptr;
    }
    return m_Words + bit / 32;
}

void BitMatrix::Set(unsigned int x, unsigned int y) {
    unsigned int bit = x + y * m_XSize;
    if (unsigned int* word = WordOf(bit)) {
        *word |= 1u << (bit % 32);
    }
}

void BitMatrix::Reset(unsigned int x, unsigned int y) {
    unsigned int bit = x + y * m_XSize;
    if (unsigned int* word = WordOf(bit)) {
        *word &= ~(1u << (bit % 32));
    }
}

unsigned int BitMatrix::Get(unsigned int x, unsigned int y) const {
    unsigned int bit = x + y * m_XSize;
    const unsigned int* word = WordOf(bit);
    return (word != nullptr && (*word & (1u << (bit % 32))) != 0) ? 1 : 0;
}

}  // namespace zn
