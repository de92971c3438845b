// ScratchBuffer.cpp: the growing byte stream.
#include "CoreLib/ScratchBuffer.h"

#include "CoreLib/MemoryManager.h"
#include "CoreLib/Report.h"

#include <cstdint>
#include <cstring>

namespace zn {

namespace {

bool IsLarge(uint64_t size) {
    return size >= MemoryManager::kLargeBlockThreshold;
}

}  // namespace

ScratchBuffer::ScratchBuffer(unsigned int size) {
    if (size == 0) {
        return;
    }
    m_Data = static_cast<char*>(MemoryManager::SizedMalloc(size));
    if (m_Data == nullptr) {
        ZN_REPORT("ScratchBuffer cannot allocate %u bytes", size);
        return;
    }
    m_BufferSize = size;
}

ScratchBuffer::~ScratchBuffer() {
    Destroy();
}

void ScratchBuffer::Destroy() {
    if (m_Data != nullptr) {
        MemoryManager::SizedFree(m_Data, m_BufferSize);
    }
    m_Data = nullptr;
    m_BufferSize = 0;
    m_Size = 0;
    m_WritePosition = 0;
    m_ReadPosition = 0;
}

bool ScratchBuffer::Resize(unsigned int newSize) {
    void* moved = MemoryManager::SmartRealloc(m_Data, m_BufferSize, newSize, 0);
    if (moved == nullptr) {
        ZN_REPORT("ScratchBuffer cannot grow from %u to %u bytes", m_BufferSize, newSize);
        // A move between the two heaps has freed the old block already; within a heap it stays.
        if (m_Data != nullptr && IsLarge(m_BufferSize) != IsLarge(newSize)) {
            m_Data = nullptr;
            m_BufferSize = 0;
            Clear();
        }
        return false;
    }
    m_Data = static_cast<char*>(moved);
    m_BufferSize = newSize;
    return true;
}

void ScratchBuffer::Grow(unsigned int extra) {
    uint64_t grownSize = uint64_t{m_BufferSize} + extra;
    if (grownSize > UINT32_MAX) {
        ZN_REPORT("ScratchBuffer cannot grow from %u to %llu bytes", m_BufferSize,
                  static_cast<unsigned long long>(grownSize));
        return;
    }
    Resize(static_cast<unsigned int>(grownSize));
}

void ScratchBuffer::GrowTo(unsigned int size) {
    if (size > m_BufferSize) {
        Resize(size);
    }
}

void ScratchBuffer::Write(const void* const data, unsigned int length) {
    uint64_t end = uint64_t{m_WritePosition} + length;
    if (end > UINT32_MAX) {
        ZN_REPORT("ScratchBuffer cannot grow from %u to %llu bytes", m_BufferSize,
                  static_cast<unsigned long long>(end));
        return;
    }
    uint64_t capacity = m_BufferSize != 0 ? m_BufferSize : 1;
    while (end > capacity) {
        capacity *= 2;
    }
    if (capacity > UINT32_MAX) {
        capacity = UINT32_MAX;
    }
    if (capacity > m_BufferSize && !Resize(static_cast<unsigned int>(capacity))) {
        return;
    }
    if (length != 0) {
        std::memcpy(m_Data + m_WritePosition, data, length);
    }
    m_WritePosition += length;
    if (m_WritePosition > m_Size) {
        m_Size = m_WritePosition;
    }
}

void ScratchBuffer::Read(void* const target, unsigned int length) {
    if (uint64_t{m_ReadPosition} + length > m_Size) {
        ZN_REPORT("ScratchBuffer requesting to read while not enough data available");
        return;
    }
    if (length != 0) {
        std::memcpy(target, m_Data + m_ReadPosition, length);
    }
    m_ReadPosition += length;
}

void ScratchBuffer::Clear() {
    m_Size = 0;
    m_WritePosition = 0;
    m_ReadPosition = 0;
}

void ScratchBuffer::CopyFrom(const ScratchBuffer& other) {
    if (&other == this) {
        ZN_REPORT("Trying to copy a scratchbuffer to itself...?");
        return;
    }
    if (m_BufferSize < other.m_BufferSize) {
        Destroy();
        m_Data = static_cast<char*>(MemoryManager::SizedMalloc(other.m_BufferSize));
        if (m_Data == nullptr) {
            ZN_REPORT("ScratchBuffer cannot allocate %u bytes", other.m_BufferSize);
            return;
        }
        m_BufferSize = other.m_BufferSize;
    }
    m_Size = other.m_Size;
    m_WritePosition = other.m_WritePosition;
    m_ReadPosition = other.m_ReadPosition;
    if (other.m_BufferSize != 0) {
        std::memcpy(m_Data, other.m_Data, other.m_BufferSize);
    }
}

bool ScratchBuffer::operator==(const ScratchBuffer& other) const {
    if (m_BufferSize != other.m_BufferSize) {
        return false;
    }
    return m_BufferSize == 0 || std::memcmp(m_Data, other.m_Data, m_BufferSize) == 0;
}

void ScratchBuffer::MoveWritePosition(long long position) {
    if (position < 0 || position > UINT32_MAX) {
        ZN_REPORT("ScratchBuffer cannot move its write position to %lld", position);
        return;
    }
    // The bytes up to the size must exist, or a later read would leave the allocation.
    if (position > m_Size) {
        GrowTo(static_cast<unsigned int>(position));
        if (position > m_BufferSize) {
            return;
        }
        m_Size = static_cast<unsigned int>(position);
    }
    m_WritePosition = static_cast<unsigned int>(position);
}

void ScratchBuffer::SeekWrite(int offset, ESeekPos origin) {
    long long base = 0;
    if (origin == SEEKPOS_CURRENT) {
        base = m_WritePosition;
    } else if (origin == SEEKPOS_END) {
        base = m_Size;
    }
    MoveWritePosition(base + offset);
}

void ScratchBuffer::IndicateBytesWritten(unsigned int count) {
    MoveWritePosition(static_cast<long long>(m_WritePosition) + count);
}

}  // namespace zn
