// Compressor_test.cpp: round trips, zlib's levels and format against zlib itself and Python's zlib,
// bad streams that must end with one report and no output, misuse, and zlib's memory in "GLOBAL".
#include "CoreLib/Compressor.h"

#include "CoreLib/MemoryManager.h"
#include "tests/support/CapturingLogger.h"
#include "tests/support/CoreLibFixture.h"
#include "tests/support/StructuredBytes.h"
#include "tests/support/TempDir.h"

#include <gtest/gtest.h>
#include <zlib.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <type_traits>
#include <vector>

namespace zn::test {
namespace {

using Bytes = std::vector<unsigned char>;
using test::StructuredBytes;

constexpr unsigned int kBlock = Zipper::kOutputBlockSize;

Bytes RandomBytes(size_t size, uint32_t seed) {
    std::mt19937 random(seed);
    Bytes bytes(size);
    for (unsigned char& byte : bytes) {
        byte = static_cast<unsigned char>(random());
    }
    return bytes;
}

// Numbered lines of one text: a stream a fraction of the size.
Bytes TextBytes(size_t size) {
    Bytes bytes;
    char line[64];
    for (unsigned int number = 0; bytes.size() < size; ++number) {
        int length = std::snprintf(line, sizeof(line), "record %06u of the level table\n", number);
        bytes.insert(bytes.end(), line, line + length);
    }
    bytes.resize(size);
    return bytes;
}

Bytes Copy(const ZipperOutput& output) {
    EXPECT_LE(output.m_OutputSize, output.m_OutputCapacity);
    if (output.m_Output == nullptr) {
        return {};
    }
    return Bytes(output.m_Output, output.m_Output + output.m_OutputSize);
}

Bytes DeflateBytes(const Bytes& data, ECompressionLevel level) {
    Compressor compressor(level);
    compressor.Deflate(data.data(), static_cast<unsigned int>(data.size()));
    return Copy(compressor.GetOutput());
}

Bytes InflateBytes(const Bytes& stream, ECompressionLevel level = CompressionLevelBest) {
    DeCompressor decompressor(level);
    decompressor.Inflate(stream.data(), static_cast<unsigned int>(stream.size()));
    return Copy(decompressor.GetOutput());
}

Bytes ZlibCompress(const Bytes& data, int level) {
    uLongf size = compressBound(data.size());
    Bytes stream(size);
    EXPECT_EQ(compress2(stream.data(), &size, data.data(), data.size(), level), Z_OK);
    stream.resize(size);
    return stream;
}

Bytes ZlibUncompress(const Bytes& stream, size_t expectedSize) {
    uLongf size = expectedSize;
    Bytes data(expectedSize + 1);
    EXPECT_EQ(uncompress(data.data(), &size, stream.data(), stream.size()), Z_OK);
    data.resize(size);
    return data;
}

void ExpectReports(const ScopedCapture& capture, const std::vector<std::string>& messages) {
    EXPECT_EQ(capture.Messages(), messages);
    ExpectAllOnChannel(capture, LogAssertProgrammer);
}

class CompressRoundTrip : public CoreLibFixture {};
class CompressFormat : public CoreLibFixture {};
class CompressInterop : public CoreLibFixture {};
class ZipperBadInput : public CoreLibFixture {};
class ZipperMisuse : public CoreLibFixture {};
class ZipperAllocatorHeap : public CoreLibFixture {};

// ---- round trips ----

TEST_F(CompressRoundTrip, RandomAndStructuredBlocksComeBackAtEachLevel) {
    ScopedCapture capture;
    const size_t sizes[] = {0, 1, 2, 100, kBlock - 1, kBlock, kBlock + 1, 100000, 1 << 20};
    uint32_t seed = 1;
    for (size_t size : sizes) {
        for (bool structured : {false, true}) {
            Bytes data = structured ? StructuredBytes(size, seed) : RandomBytes(size, seed);
            ++seed;
            for (ECompressionLevel level : {CompressionLevelFast, CompressionLevelBest}) {
                SCOPED_TRACE(testing::Message()
                             << "size " << size << " structured " << structured << " level " << level);
                Bytes stream = DeflateBytes(data, level);
                // The level given to decompression changes nothing.
                EXPECT_EQ(InflateBytes(stream, level), data);
                EXPECT_EQ(ZlibUncompress(stream, data.size()), data);
            }
        }
    }
    ExpectReports(capture, {});
}

TEST_F(CompressRoundTrip, SeveralMebibytesComeBack) {
    ScopedCapture capture;
    Bytes noise = RandomBytes(3 << 20, 77);
    EXPECT_EQ(InflateBytes(DeflateBytes(noise, CompressionLevelBest)), noise);
    Bytes records = StructuredBytes(5 << 20, 78);
    Bytes stream = DeflateBytes(records, CompressionLevelFast);
    EXPECT_LT(stream.size(), records.size() / 2);
    EXPECT_EQ(InflateBytes(stream), records);
    ExpectReports(capture, {});
}

TEST_F(CompressRoundTrip, OutputGrowsInBlocksOf32768) {
    ScopedCapture capture;
    Bytes noise = RandomBytes(200000, 5);
    Compressor compressor;
    unsigned int produced = compressor.Deflate(noise.data(), static_cast<unsigned int>(noise.size()));
    ZipperOutput output = compressor.GetOutput();
    EXPECT_LE(produced, output.m_OutputSize);
    EXPECT_GT(output.m_OutputSize, noise.size());
    EXPECT_EQ(output.m_OutputCapacity % kBlock, 0u);
    EXPECT_LT(output.m_OutputCapacity - output.m_OutputSize, kBlock);
    Bytes first = Copy(output);
    EXPECT_EQ(Copy(compressor.GetOutput()), first);
    EXPECT_EQ(InflateBytes(first), noise);

    // 100000 bytes out of a stream that fits the first block.
    Bytes records = TextBytes(100000);
    Bytes stream = DeflateBytes(records, CompressionLevelBest);
    ASSERT_LT(stream.size(), kBlock);
    DeCompressor decompressor;
    EXPECT_EQ(decompressor.Inflate(stream.data(), static_cast<unsigned int>(stream.size())), 100000u);
    ZipperOutput inflated = decompressor.GetOutput();
    EXPECT_EQ(inflated.m_OutputSize, 100000u);
    EXPECT_EQ(inflated.m_OutputCapacity, 4 * kBlock);
    EXPECT_EQ(Copy(inflated), records);
    ExpectReports(capture, {});
}

TEST_F(CompressRoundTrip, EmptyInputGivesTheEmptyZlibStream) {
    ScopedCapture capture;
    const Bytes emptyStream = {0x78, 0xDA, 0x03, 0x00, 0x00, 0x00, 0x00, 0x01};
    Compressor fed;
    // Before the finish only the two header bytes are out.
    EXPECT_EQ(fed.Deflate("", 0), 2u);
    EXPECT_EQ(Copy(fed.GetOutput()), emptyStream);
    Compressor neverFed;
    EXPECT_EQ(Copy(neverFed.GetOutput()), emptyStream);
    EXPECT_EQ(ZlibCompress({}, 9), emptyStream);

    DeCompressor decompressor;
    decompressor.Inflate(emptyStream.data(), static_cast<unsigned int>(emptyStream.size()));
    ZipperOutput output = decompressor.GetOutput();
    EXPECT_EQ(output.m_OutputSize, 0u);
    EXPECT_EQ(output.m_OutputCapacity, kBlock);
    ExpectReports(capture, {});
}

// ---- format ----

TEST_F(CompressFormat, LevelsAreZlibsOneAndNineByteForByte) {
    ScopedCapture capture;
    for (size_t size : {size_t{0}, size_t{1000}, size_t{300000}}) {
        Bytes records = StructuredBytes(size, 11);
        Bytes fast = DeflateBytes(records, CompressionLevelFast);
        Bytes best = DeflateBytes(records, CompressionLevelBest);
        EXPECT_EQ(fast, ZlibCompress(records, 1)) << size;
        EXPECT_EQ(best, ZlibCompress(records, 9)) << size;
        EXPECT_EQ(DeflateBytes(records, static_cast<ECompressionLevel>(2)), best) << size;
        EXPECT_EQ(DeflateBytes(records, static_cast<ECompressionLevel>(-1)), best) << size;
        // The header names the level class: 0x01 fastest, 0xDA maximum.
        ASSERT_GE(fast.size(), 6u);
        EXPECT_EQ(fast[0], 0x78);
        EXPECT_EQ(fast[1], 0x01);
        EXPECT_EQ(best[0], 0x78);
        EXPECT_EQ(best[1], 0xDA);
        // The Adler-32 of the data closes the stream, most significant byte first.
        uLong adler = adler32(adler32(0, nullptr, 0), records.data(), static_cast<uInt>(records.size()));
        const unsigned char* trailer = best.data() + best.size() - 4;
        EXPECT_EQ((uLong{trailer[0]} << 24) | (trailer[1] << 16) | (trailer[2] << 8) | trailer[3], adler);
    }
    Bytes records = StructuredBytes(300000, 12);
    EXPECT_NE(DeflateBytes(records, CompressionLevelFast), DeflateBytes(records, CompressionLevelBest));
    ExpectReports(capture, {});
}

// ---- interoperability with Python's zlib ----

// The Python interpreter that serves as the independent zlib, or empty when there is none.
std::string FindPython() {
    if (std::filesystem::exists("/usr/bin/python3")) {
        return "/usr/bin/python3";
    }
    return std::system("command -v python3 >/dev/null 2>&1") == 0 ? "python3" : "";
}

void WriteFile(const std::filesystem::path& path, const Bytes& bytes) {
    std::ofstream out(path, std::ios::binary);
    out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
}

Bytes ReadFile(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    EXPECT_TRUE(in.good()) << path;
    return Bytes(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

// Inflates every ours-*.z into a .out file, and deflates every plain-*.bin at levels 0, 1, 6 and
// 9 and once as a stream of sync-flushed pieces.
constexpr const char* kPythonScript = R"(import pathlib, sys, zlib
folder = pathlib.Path(sys.argv[1])
for packed in sorted(folder.glob('ours-*.z')):
    packed.with_suffix('.out').write_bytes(zlib.decompress(packed.read_bytes()))
for plain in sorted(folder.glob('plain-*.bin')):
    data = plain.read_bytes()
    for level in (0, 1, 6, 9):
        (folder / f'py{level}-{plain.stem}.z').write_bytes(zlib.compress(data, level))
    stream = zlib.compressobj(6)
    pieces = [stream.compress(data[at:at + 5000]) + stream.flush(zlib.Z_SYNC_FLUSH)
              for at in range(0, len(data), 5000)]
    (folder / f'pysync-{plain.stem}.z').write_bytes(b''.join(pieces) + stream.flush())
)";

TEST_F(CompressInterop, PythonInflatesOursAndWeInflatePythons) {
    std::string python = FindPython();
    if (python.empty()) {
        GTEST_SKIP()
            << "python3 is not installed: the zlib interoperability check needs Python's zlib module";
    }
    ScopedCapture capture;
    TempDir temp;
    const std::filesystem::path& folder = temp.Folder();
    struct Input {
        std::string name;
        Bytes data;
    };
    const std::vector<Input> inputs = {{"empty", {}},
                                       {"one", {0x5A}},
                                       {"records", StructuredBytes(70000, 21)},
                                       {"noise", RandomBytes(300000, 22)},
                                       {"large", StructuredBytes(600000, 23)}};
    for (const Input& input : inputs) {
        WriteFile(folder / ("plain-" + input.name + ".bin"), input.data);
        WriteFile(folder / ("ours-" + input.name + "-fast.z"),
                  DeflateBytes(input.data, CompressionLevelFast));
        WriteFile(folder / ("ours-" + input.name + "-best.z"),
                  DeflateBytes(input.data, CompressionLevelBest));
    }
    WriteFile(folder / "script.py", Bytes(kPythonScript, kPythonScript + std::strlen(kPythonScript)));
    std::string command = python + " '" + (folder / "script.py").string() + "' '" + folder.string() + "'";
    ASSERT_EQ(std::system(command.c_str()), 0) << command;

    for (const Input& input : inputs) {
        SCOPED_TRACE(input.name);
        EXPECT_EQ(ReadFile(folder / ("ours-" + input.name + "-fast.out")), input.data);
        EXPECT_EQ(ReadFile(folder / ("ours-" + input.name + "-best.out")), input.data);
        for (const char* kind : {"py0", "py1", "py6", "py9", "pysync"}) {
            Bytes stream = ReadFile(folder / (std::string(kind) + "-plain-" + input.name + ".z"));
            ASSERT_FALSE(stream.empty()) << kind;
            EXPECT_EQ(InflateBytes(stream), input.data) << kind;
        }
    }
    ExpectReports(capture, {});
}

// ---- bad streams ----

// Inflates the stream and gives the output size; the Zipper is gone when this returns, so any
// report its destruction makes is in the capture too.
unsigned int InflatedSize(const Bytes& stream, unsigned int* capacity = nullptr) {
    DeCompressor decompressor;
    decompressor.Inflate(stream.data(), static_cast<unsigned int>(stream.size()));
    ZipperOutput output = decompressor.GetOutput();
    if (capacity != nullptr) {
        *capacity = output.m_OutputCapacity;
    }
    return output.m_OutputSize;
}

TEST_F(ZipperBadInput, CorruptStreamsAreReportedOnceAndGiveNothing) {
    Bytes records = StructuredBytes(120000, 31);
    const Bytes good = ZlibCompress(records, 9);
    std::vector<std::pair<std::string, Bytes>> cases;
    Bytes badHeader = good;
    badHeader[0] = 0x00;
    cases.emplace_back("header", badHeader);
    Bytes badCheck = good;
    badCheck.back() ^= 0x01;
    cases.emplace_back("checksum", badCheck);
    for (size_t at : {size_t{2}, size_t{40}, good.size() / 2, good.size() - 10}) {
        Bytes flipped = good;
        flipped[at] ^= 0x5A;
        cases.emplace_back("flip at " + std::to_string(at), flipped);
    }
    // A preset dictionary that the stream would need: 0x78 0xBB announces it.
    cases.emplace_back("dictionary", Bytes{0x78, 0xBB, 0x00, 0x00, 0x00, 0x01, 0x03, 0x00});
    cases.emplace_back("noise", RandomBytes(5000, 32));
    ScopedCapture capture;
    for (const auto& [name, stream] : cases) {
        SCOPED_TRACE(name);
        capture.Logger().Clear();
        unsigned int capacity = 0;
        EXPECT_EQ(InflatedSize(stream, &capacity), 0u);
        EXPECT_LE(capacity, 5 * kBlock);
        ExpectReports(capture, {"Inflate has failed!"});
    }
}

TEST_F(ZipperBadInput, TruncatedStreamsAreReportedAtEveryCut) {
    const Bytes small = ZlibCompress(StructuredBytes(3000, 41), 9);
    Bytes zeros(1 << 20, 0);
    const Bytes large = ZlibCompress(zeros, 9);
    std::vector<Bytes> cuts;
    ScopedCapture capture;
    for (size_t length = 0; length < small.size(); ++length) {
        cuts.emplace_back(small.begin(), small.begin() + static_cast<std::ptrdiff_t>(length));
    }
    for (size_t length : {large.size() / 2, large.size() - 4, large.size() - 1}) {
        cuts.emplace_back(large.begin(), large.begin() + static_cast<std::ptrdiff_t>(length));
    }
    for (const Bytes& cut : cuts) {
        SCOPED_TRACE(testing::Message()
                     << "length " << cut.size() << " of " << small.size() << "/" << large.size());
        capture.Logger().Clear();
        unsigned int capacity = 0;
        EXPECT_EQ(InflatedSize(cut, &capacity), 0u);
        EXPECT_LE(capacity, zeros.size() + 2 * kBlock);
        ExpectReports(capture, {"Inflate has failed!"});
    }
}

TEST_F(ZipperBadInput, FailureIsReportedWhereItIsMet) {
    Bytes good = ZlibCompress(StructuredBytes(40000, 51), 9);
    Bytes badHeader = good;
    badHeader[1] ^= 0x01;
    {
        ScopedCapture capture;
        DeCompressor decompressor;
        EXPECT_EQ(decompressor.Inflate(badHeader.data(), static_cast<unsigned int>(badHeader.size())), 0u);
        ASSERT_EQ(capture.Reports().size(), 1u);
        EXPECT_EQ(capture.Reports()[0].function, "zn::Zipper::Inflate");
        EXPECT_EQ(decompressor.GetOutput().m_OutputSize, 0u);
        EXPECT_EQ(capture.Reports().size(), 1u);
    }
    {
        ScopedCapture capture;
        DeCompressor decompressor;
        unsigned int partial = decompressor.Inflate(good.data(), static_cast<unsigned int>(good.size() - 6));
        EXPECT_GT(partial, 0u);
        EXPECT_TRUE(capture.Reports().empty());
        EXPECT_EQ(decompressor.GetOutput().m_OutputSize, 0u);
        ASSERT_EQ(capture.Reports().size(), 1u);
        EXPECT_EQ(capture.Reports()[0].function, "zn::Zipper::Flush");
        EXPECT_EQ(capture.Reports()[0].message, "Inflate has failed!");
    }
}

TEST_F(ZipperBadInput, BytesBehindTheStreamAreLeftAlone) {
    ScopedCapture capture;
    Bytes records = StructuredBytes(45000, 61);
    Bytes stream = ZlibCompress(records, 9);
    Bytes garbage = RandomBytes(777, 62);
    stream.insert(stream.end(), garbage.begin(), garbage.end());
    EXPECT_EQ(InflateBytes(stream), records);
    ExpectReports(capture, {});
}

// ---- misuse ----

// Reaches the operation that the other face hides.
class ExposedDeCompressor : public DeCompressor {
public:
    using Zipper::Deflate;
};
class ExposedCompressor : public Compressor {
public:
    using Zipper::Inflate;
};

TEST_F(ZipperMisuse, TheWrongOperationIsReportedAndChangesNothing) {
    ScopedCapture capture;
    Bytes records = StructuredBytes(20000, 71);
    Bytes stream = ZlibCompress(records, 9);

    ExposedDeCompressor decompressor;
    EXPECT_EQ(decompressor.Deflate(records.data(), static_cast<unsigned int>(records.size())), 0u);
    ExpectReports(capture, {"This compressor is initialised as am Inflator.  You cannot deflate."});
    decompressor.Inflate(stream.data(), static_cast<unsigned int>(stream.size()));
    EXPECT_EQ(Copy(decompressor.GetOutput()), records);

    capture.Logger().Clear();
    ExposedCompressor compressor;
    EXPECT_EQ(compressor.Inflate(stream.data(), static_cast<unsigned int>(stream.size())), 0u);
    ExpectReports(capture, {"This compressor is initialised as a Deflator.  You cannot inflate."});
    compressor.Deflate(records.data(), static_cast<unsigned int>(records.size()));
    EXPECT_EQ(Copy(compressor.GetOutput()), stream);
}

TEST_F(ZipperMisuse, ASecondBlockFindsNoRoom) {
    ScopedCapture capture;
    Bytes records = StructuredBytes(20000, 81);
    Bytes stream = ZlibCompress(records, 9);
    DeCompressor decompressor;
    decompressor.Inflate(stream.data(), static_cast<unsigned int>(stream.size()));
    EXPECT_EQ(decompressor.Inflate(stream.data(), static_cast<unsigned int>(stream.size())), records.size());
    ExpectReports(capture, {"There is no room in the stream"});
    EXPECT_EQ(Copy(decompressor.GetOutput()), records);
    // Nor does one whose block went on behind the end of its stream.
    capture.Logger().Clear();
    Bytes trailed = stream;
    trailed.insert(trailed.end(), {1, 2, 3, 4});
    DeCompressor ended;
    ended.Inflate(trailed.data(), static_cast<unsigned int>(trailed.size()));
    EXPECT_EQ(ended.Inflate(stream.data(), static_cast<unsigned int>(stream.size())), records.size());
    ExpectReports(capture, {"There is no room in the stream"});
    EXPECT_EQ(Copy(ended.GetOutput()), records);
    // A stream abandoned after a failure takes no block either.
    capture.Logger().Clear();
    DeCompressor failed;
    failed.Inflate("garbage", 7);
    failed.Inflate(stream.data(), static_cast<unsigned int>(stream.size()));
    ExpectReports(capture, {"Inflate has failed!", "There is no room in the stream"});
}

TEST_F(ZipperMisuse, ASecondDeflateRestartsTheOutputWithinItsBuffer) {
    ScopedCapture capture;
    Bytes noise = RandomBytes(100000, 85);
    Compressor compressor;
    unsigned int first = compressor.Deflate(noise.data(), static_cast<unsigned int>(noise.size()));
    ASSERT_GT(first, kBlock);
    EXPECT_TRUE(capture.Messages().empty());
    // The stream now counts more bytes than the buffer, restarted at its front, holds.
    unsigned int second = compressor.Deflate(noise.data(), static_cast<unsigned int>(noise.size()));
    ZipperOutput output = compressor.GetOutput();
    EXPECT_LE(second, output.m_OutputCapacity);
    EXPECT_LE(output.m_OutputSize, output.m_OutputCapacity);
    std::vector<std::string> messages = capture.Messages();
    ASSERT_FALSE(messages.empty());
    for (const std::string& message : messages) {
        EXPECT_EQ(message, "Size does not match!");
    }
    EXPECT_EQ(capture.Reports()[0].function, "zn::Zipper::GrowOutputBuffer");
    ExpectAllOnChannel(capture, LogAssertProgrammer);
}

TEST_F(ZipperMisuse, StreamsThatCannotRunAreReportedOnce) {
    ScopedCapture capture;
    {
        Compressor compressor;
        EXPECT_EQ(compressor.Deflate(nullptr, 10), 0u);
        EXPECT_EQ(compressor.GetOutput().m_OutputSize, 0u);
    }
    ExpectReports(capture, {"Deflate has failed!"});
    capture.Logger().Clear();
    {
        DeCompressor neverFed;
        EXPECT_EQ(neverFed.GetOutput().m_OutputSize, 0u);
    }
    ExpectReports(capture, {"Inflate has failed!"});
    capture.Logger().Clear();
    {
        DeCompressor emptyBlock;
        EXPECT_EQ(emptyBlock.Inflate("", 0), 0u);
    }
    ExpectReports(capture, {"Inflate has failed!"});
}

static_assert(!std::is_copy_constructible_v<Compressor> && !std::is_copy_assignable_v<Compressor>);
static_assert(!std::is_copy_constructible_v<DeCompressor> && !std::is_copy_assignable_v<DeCompressor>);

// ---- zlib's memory ----

TEST_F(ZipperAllocatorHeap, HooksAllocateFromGlobal) {
    ScopedCapture capture;
    Heap& global = GetHeapGLOBAL();
    size_t before = global.GetMemoryInUse();
    void* block = ZipperAllocator::Malloc(nullptr, 100, 24);
    ASSERT_NE(block, nullptr);
    EXPECT_TRUE(global.IsPtrOwned(block));
    EXPECT_GE(global.GetMemoryInUse(), before + 2400);
    std::memset(block, 0xA5, 2400);
    ZipperAllocator::Free(nullptr, block);
    EXPECT_EQ(global.GetMemoryInUse(), before);
    ExpectReports(capture, {});

    int cookie = 0;
    block = ZipperAllocator::Malloc(&cookie, 4, 4);
    ASSERT_NE(block, nullptr);
    EXPECT_TRUE(global.IsPtrOwned(block));
    ZipperAllocator::Free(&cookie, block);
    EXPECT_EQ(global.GetMemoryInUse(), before);
    ExpectReports(capture, {"Allocation shouldn't be opaque", "Free shouldn't be opaque"});
    EXPECT_EQ(capture.Reports()[0].function, "zn::ZipperAllocator::Malloc");
    EXPECT_EQ(capture.Reports()[1].function, "zn::ZipperAllocator::Free");
}

TEST_F(ZipperAllocatorHeap, ZlibStateAndOutputLiveInTheLibrarysHeaps) {
    ScopedCapture capture;
    Heap& global = GetHeapGLOBAL();
    size_t before = global.GetMemoryInUse();
    {
        // Level 9's state (window, chains, pending buffer) is some 256 KiB beside the first block.
        Compressor compressor(CompressionLevelBest);
        EXPECT_GT(global.GetMemoryInUse(), before + kBlock + 200000);
        Bytes noise = RandomBytes(1500000, 91);
        compressor.Deflate(noise.data(), static_cast<unsigned int>(noise.size()));
        ZipperOutput output = compressor.GetOutput();
        EXPECT_GE(output.m_OutputCapacity, MemoryManager::kLargeBlockThreshold);
        EXPECT_TRUE(GetHeapLARGEBLOCK().IsPtrOwned(output.m_Output));
        EXPECT_FALSE(global.IsPtrOwned(output.m_Output));
    }
    EXPECT_EQ(global.GetMemoryInUse(), before);
    {
        Bytes stream = ZlibCompress(StructuredBytes(60000, 92), 9);
        DeCompressor decompressor;
        decompressor.Inflate(stream.data(), static_cast<unsigned int>(stream.size()));
        ZipperOutput output = decompressor.GetOutput();
        EXPECT_TRUE(global.IsPtrOwned(output.m_Output));
        // The 32 KiB window beside the output and the inflate state.
        EXPECT_GT(global.GetMemoryInUse(), before + output.m_OutputCapacity + 32768);
    }
    EXPECT_EQ(global.GetMemoryInUse(), before);
    ExpectReports(capture, {});
}

}  // namespace
}  // namespace zn::test
