// Compressor.cpp: the zlib stream behind Compressor and DeCompressor, its growing output buffer,
// and the hooks that give zlib its memory from "GLOBAL".
#include "CoreLib/Compressor.h"

#include "CoreLib/MemoryManager.h"
#include "CoreLib/Report.h"

// zlib then declares its input as const, as it is.
#define ZLIB_CONST
#include <zlib.h>

#include <climits>
#include <cstring>

namespace zn {

namespace {
// zlib only compares the major digit, so any zlib 1.x accepts the version the streams were made for.
constexpr const char* kZlibVersion = "1.2.7";
constexpr int kZlibFastLevel = 1;
constexpr int kZlibBestLevel = 9;

}  // namespace

void* ZipperAllocator::Malloc(void* opaque, unsigned int count, unsigned int size) {
    if (opaque != nullptr) {
        ZN_REPORT("Allocation shouldn't be opaque");
    }
    // GlobalMalloc holds the manager's lock, the one lock over every heap, for the allocation.
    // Both factors are 32-bit, so their product cannot overflow a 64-bit size.
    return MemoryManager::GlobalMalloc(static_cast<size_t>(count) * size, 0);
}

void ZipperAllocator::Free(void* opaque, void* block) {
    if (opaque != nullptr) {
        ZN_REPORT("Free shouldn't be opaque");
    }
    MemoryManager::GlobalFree(block, 0);
}

Zipper::Zipper(ECompressionAction action, ECompressionLevel level)
    : m_Action(action), m_Output(nullptr), m_OutputCapacity(0), m_OutputSize(0), m_Stream(nullptr) {
    m_Output = static_cast<unsigned char*>(MemoryManager::SizedMalloc(kOutputBlockSize));
    m_OutputCapacity = m_Output != nullptr ? kOutputBlockSize : 0;

    m_Stream = static_cast<z_stream*>(MemoryManager::GlobalMalloc(sizeof(z_stream), 0));
    if (m_Stream == nullptr) {
        return;
    }
    std::memset(m_Stream, 0, sizeof(z_stream));
    m_Stream->zalloc = &ZipperAllocator::Malloc;
    m_Stream->zfree = &ZipperAllocator::Free;
    m_Stream->opaque = nullptr;

    if (m_Action == CompressionActionDeflate) {
        int zlibLevel = level == CompressionLevelFast ? kZlibFastLevel : kZlibBestLevel;
        deflateInit_(m_Stream, zlibLevel, kZlibVersion, static_cast<int>(sizeof(z_stream)));
        m_Stream->next_out = m_Output;
        m_Stream->avail_out = m_OutputCapacity;
    } else {
        // The buffer stands as input until the first Inflate replaces it; zlib refuses to run
        // before then, since no output is set.
        inflateInit_(m_Stream, kZlibVersion, static_cast<int>(sizeof(z_stream)));
        m_Stream->next_in = m_Output;
        m_Stream->avail_in = m_OutputCapacity;
    }
}

Zipper::~Zipper() {
    if (m_Stream != nullptr) {
        Flush();
        ReleaseStream();
    }
    MemoryManager::SizedFree(m_Output, m_OutputCapacity);
    m_Output = nullptr;
}

ZipperOutput Zipper::GetOutput() {
    Flush();
    return ZipperOutput{m_Output, m_OutputCapacity, m_OutputSize};
}

unsigned int Zipper::Deflate(const void* data, unsigned int size) {
    if (m_Action != CompressionActionDeflate) {
        ZN_REPORT("This compressor is initialised as am Inflator.  You cannot deflate.");
        return m_OutputSize;
    }
    if (m_Stream == nullptr) {
        ZN_REPORT("Deflate has failed!");
        return m_OutputSize;
    }
    DriveResult result = Feed(data, size);
    if (result == DriveResult::Failed) {
        ZN_REPORT("Deflate has failed!");
    }
    return Settle(result);
}

unsigned int Zipper::Inflate(const void* data, unsigned int size) {
    if (m_Action != CompressionActionInflate) {
        ZN_REPORT("This compressor is initialised as a Deflator.  You cannot inflate.");
        return m_OutputSize;
    }
    // A stream that has eaten its one block, or was abandoned, takes no second one.
    if (m_Stream == nullptr || m_Stream->avail_in == 0) {
        ZN_REPORT("There is no room in the stream");
        return m_OutputSize;
    }
    DriveResult result = Feed(data, size);
    if (result == DriveResult::Failed) {
        ZN_REPORT("Inflate has failed!");
    }
    return Settle(result);
}

Zipper::DriveResult Zipper::Feed(const void* data, unsigned int size) {
    m_Stream->next_in = static_cast<const Bytef*>(data);
    m_Stream->avail_in = size;
    m_Stream->next_out = m_Output;
    m_Stream->avail_out = m_OutputCapacity;
    return Drive(Z_NO_FLUSH);
}

unsigned int Zipper::Settle(DriveResult result) {
    if (result != DriveResult::Done) {
        Abandon();
        return m_OutputSize;
    }
    UpdateOutputSize();
    return m_OutputSize;
}

int Zipper::Step(int flush) {
    return m_Action == CompressionActionDeflate ? deflate(m_Stream, flush) : inflate(m_Stream, flush);
}

// Each round either makes progress or gives up, so neither a corrupt nor a truncated stream can
// keep it turning: zlib errors stop it, and so does a call that had room to write and moved nothing.
Zipper::DriveResult Zipper::Drive(int flush) {
    for (;;) {
        uLong inBefore = m_Stream->total_in;
        uLong outBefore = m_Stream->total_out;
        bool hadRoom = m_Stream->avail_out > 0;
        int result = Step(flush);
        if (result == Z_STREAM_END) {
            // Bytes behind the end of a zlib stream are not part of it: dropping them leaves the
            // stream fed, so a second block is refused as after any complete one.
            m_Stream->next_in = nullptr;
            m_Stream->avail_in = 0;
            return DriveResult::Done;
        }
        // With Z_FINISH, zlib answers Z_BUF_ERROR when it only needs more room to write.
        bool accepted = result == Z_OK || (flush == Z_FINISH && result == Z_BUF_ERROR);
        if (!accepted) {
            return DriveResult::Failed;
        }
        if (flush != Z_FINISH && m_Stream->avail_in == 0) {
            return DriveResult::Done;
        }
        bool moved = m_Stream->total_in != inBefore || m_Stream->total_out != outBefore;
        if (hadRoom && !moved) {
            return DriveResult::Failed;
        }
        if (!GrowOutputBuffer()) {
            return DriveResult::NoRoom;
        }
    }
}

void Zipper::Flush() {
    if (m_Stream == nullptr) {
        return;
    }
    DriveResult result = Drive(Z_FINISH);
    if (result == DriveResult::Failed) {
        if (m_Action == CompressionActionDeflate) {
            ZN_REPORT("Deflate has failed!");
        } else {
            ZN_REPORT("Inflate has failed!");
        }
    }
    if (result != DriveResult::Done) {
        Abandon();
        return;
    }
    UpdateOutputSize();
}

bool Zipper::GrowOutputBuffer() {
    if (m_OutputCapacity > UINT_MAX - kOutputBlockSize) {
        ZN_REPORT("Cannot grow the output buffer past %u bytes", m_OutputCapacity);
        return false;
    }
    unsigned int capacity = m_OutputCapacity + kOutputBlockSize;
    auto* block = static_cast<unsigned char*>(MemoryManager::SizedMalloc(capacity));
    if (block == nullptr) {
        ZN_REPORT("Cannot grow the output buffer past %u bytes", m_OutputCapacity);
        return false;
    }
    if (m_Stream->total_out > capacity) {
        ZN_REPORT("Size does not match!");
    }
    // What is copied, and where writing goes on, is what the old block really holds: after a
    // restarted output the stream's total can count more than that.
    unsigned int held = BytesHeld();
    if (held > 0) {
        std::memcpy(block, m_Output, held);
    }
    MemoryManager::SizedFree(m_Output, m_OutputCapacity);
    m_Output = block;
    m_OutputCapacity = capacity;
    m_Stream->next_out = block + held;
    m_Stream->avail_out = capacity - held;
    return true;
}

unsigned int Zipper::BytesHeld() const {
    if (m_Stream == nullptr || m_Stream->next_out == nullptr || m_Output == nullptr) {
        return 0;
    }
    return static_cast<unsigned int>(m_Stream->next_out - m_Output);
}

void Zipper::UpdateOutputSize() {
    uLong held = BytesHeld();
    m_OutputSize = static_cast<unsigned int>(m_Stream->total_out < held ? m_Stream->total_out : held);
}

void Zipper::Abandon() {
    ReleaseStream();
    m_OutputSize = 0;
}

void Zipper::ReleaseStream() {
    if (m_Stream == nullptr) {
        return;
    }
    if (m_Action == CompressionActionDeflate) {
        deflateEnd(m_Stream);
    } else {
        inflateEnd(m_Stream);
    }
    MemoryManager::GlobalFree(m_Stream, 0);
    m_Stream = nullptr;
}

}  // namespace zn
