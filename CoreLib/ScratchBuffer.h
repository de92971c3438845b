// ScratchBuffer.h: a growing byte stream with separate read and write positions, the carrier of
// event data and of in-memory object streams. Blocks of 1 MiB and more live in "LARGEBLOCK".
#pragma once

#include "CoreLib/SeekPos.h"
#include "CoreLib/TrackedObject.h"

namespace zn {

class ScratchBuffer : public TrackedObject<ScratchBuffer> {
public:
    // size 0 allocates nothing; otherwise the bytes are not cleared.
    explicit ScratchBuffer(unsigned int size);
    ~ScratchBuffer();
    // A copy would share the bytes; CopyFrom duplicates them.
    ScratchBuffer(const ScratchBuffer&) = delete;
    ScratchBuffer& operator=(const ScratchBuffer&) = delete;

    // Frees the bytes and zeroes every field; the buffer can be written again afterwards.
    void Destroy();

    // Adds extra bytes to the allocation.
    void Grow(unsigned int extra);
    // Grows the allocation to size bytes unless it is that large already.
    void GrowTo(unsigned int size);

    // Copies length bytes at the read position, or reports and copies nothing when fewer remain.
    void Read(void* const target, unsigned int length);
    // Copies length bytes at the write position, doubling the allocation as needed.
    void Write(const void* const data, unsigned int length);

    void ResetRead() { m_ReadPosition = 0; }
    // Forgets the content and keeps the storage.
    void Clear();
    // Takes the other buffer's bytes and positions.
    void CopyFrom(const ScratchBuffer& other);

    // Equal allocations, byte for byte, whatever the positions.
    bool operator==(const ScratchBuffer& other) const;
    bool operator!=(const ScratchBuffer& other) const { return !(*this == other); }

    // Moves the write position from the start, the write position or the size; the size follows.
    void SeekWrite(int offset, ESeekPos origin);

    // For callers that read or wrote through GetReadData and GetWriteData.
    void IndicateBytesRead(unsigned int count) { m_ReadPosition += count; }
    void IndicateBytesWritten(unsigned int count);

    bool CanRead() const { return m_ReadPosition < m_Size; }
    char* GetReadData() const { return m_Data != nullptr ? m_Data + m_ReadPosition : nullptr; }
    char* GetWriteData() const { return m_Data != nullptr ? m_Data + m_WritePosition : nullptr; }

    unsigned int GetBufferSize() const { return m_BufferSize; }
    unsigned int GetSize() const { return m_Size; }
    unsigned int GetWritePosition() const { return m_WritePosition; }
    unsigned int GetReadPosition() const { return m_ReadPosition; }

private:
    // Moves the bytes into an allocation of newSize; false, with a report, when memory ran out.
    bool Resize(unsigned int newSize);
    // Sets the write position, growing the allocation so that the size never passes it.
    void MoveWritePosition(long long position);

    char* m_Data = nullptr;
    unsigned int m_BufferSize = 0;
    unsigned int m_Size = 0;
    unsigned int m_WritePosition = 0;
    unsigned int m_ReadPosition = 0;
};

}  // namespace zn
