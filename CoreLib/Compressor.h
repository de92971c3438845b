// Compressor.h: one-shot zlib compression and decompression of a block into a growing output
// buffer, with zlib's own memory taken from the "GLOBAL" heap.
#pragma once

// zlib's stream record; only the implementation sees its fields.
struct z_stream_s;

namespace zn {

enum ECompressionAction : int { CompressionActionInflate = 0, CompressionActionDeflate = 1 };

// 0 is zlib's fastest level (1); every other value is zlib's best (9).
enum ECompressionLevel : int { CompressionLevelFast = 0, CompressionLevelBest = 1 };

// What a Zipper has produced. The block stays owned by the Zipper and dies with it.
struct ZipperOutput {
    unsigned char* m_Output;
    unsigned int m_OutputCapacity;
    unsigned int m_OutputSize;
};

// zlib's allocation hooks: every block zlib asks for comes from "GLOBAL".
class ZipperAllocator {
public:
    // count * size bytes from "GLOBAL"; reports a non-null opaque and allocates anyway.
    static void* Malloc(void* opaque, unsigned int count, unsigned int size);
    // Gives a block of Malloc back to "GLOBAL"; reports a non-null opaque and frees anyway.
    static void Free(void* opaque, void* block);
};

// One zlib stream, fed one block in its life, whose whole result lands in one buffer that grows
// by 32768 bytes at a time. Data in standard zlib format (header and Adler-32 check), nothing
// added. A stream that fails is reported, ended at once and leaves an empty output.
class Zipper {
public:
    // The block in which the output grows.
    static constexpr unsigned int kOutputBlockSize = 32768;

    virtual ~Zipper();
    Zipper(const Zipper&) = delete;
    Zipper& operator=(const Zipper&) = delete;

    // Finishes the stream, then gives the buffer, its capacity and the bytes produced.
    ZipperOutput GetOutput();

protected:
    Zipper(ECompressionAction action, ECompressionLevel level);

    // Compresses the block, restarting the output; returns the bytes produced so far.
    unsigned int Deflate(const void* data, unsigned int size);
    // Decompresses the block, restarting the output; returns the bytes produced so far.
    unsigned int Inflate(const void* data, unsigned int size);

private:
    // How driving the stream ended.
    enum class DriveResult { Done, Failed, NoRoom };

    // Gives the stream its one block and drives it.
    DriveResult Feed(const void* data, unsigned int size);
    // Keeps the output of a driven stream, or abandons a stream that did not finish; the size.
    unsigned int Settle(DriveResult result);
    // Calls zlib until the input is used (no flush) or the stream ends (finish).
    DriveResult Drive(int flush);
    int Step(int flush);
    void Flush();
    // Moves the output into a block 32768 bytes larger; false when that cannot be had.
    bool GrowOutputBuffer();
    // Bytes between the buffer's start and zlib's write position.
    unsigned int BytesHeld() const;
    void UpdateOutputSize();
    // Ends and frees the stream and empties the output, after a failure.
    void Abandon();
    void ReleaseStream();

    ECompressionAction m_Action;
    unsigned char* m_Output;
    unsigned int m_OutputCapacity;
    unsigned int m_OutputSize;
    z_stream_s* m_Stream;
};

// The compressing face of Zipper.
class Compressor : public Zipper {
public:
    explicit Compressor(ECompressionLevel level = CompressionLevelBest)
        : Zipper(CompressionActionDeflate, level) {}
    ~Compressor() override = default;

    using Zipper::Deflate;
};

// The decompressing face of Zipper. The level has no effect on decompression.
class DeCompressor : public Zipper {
public:
    explicit DeCompressor(ECompressionLevel level = CompressionLevelBest)
        : Zipper(CompressionActionInflate, level) {}
    ~DeCompressor() override = default;

    using Zipper::Inflate;
};

}  // namespace zn
