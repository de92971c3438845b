// bench_zip: Compressor and DeCompressor against zlib's own one-shot compress2 and uncompress on the
// same few MiB of structured data, at the two levels the library offers (zlib 1 and 9).
#include "CoreLib/Compressor.h"
#include "CoreLib/CoreLibSDM.h"
#include "tests/support/StructuredBytes.h"

#include <benchmark/benchmark.h>
#include <zlib.h>

#include <cstdio>
#include <random>
#include <vector>

namespace {

using Bytes = std::vector<unsigned char>;

constexpr size_t kDataSize = 4 << 20;

// Text records with a binary table now and then, like the logs, tables and scripts in a pack.
const Bytes& Data() {
    static const Bytes data = zn::test::StructuredBytes(kDataSize, 2026);
    return data;
}

int ZlibLevel(zn::ECompressionLevel level) {
    return level == zn::CompressionLevelFast ? 1 : 9;
}

Bytes ZlibCompress(int level) {
    uLongf size = compressBound(Data().size());
    Bytes stream(size);
    compress2(stream.data(), &size, Data().data(), Data().size(), level);
    stream.resize(size);
    return stream;
}

void BM_CoreLibDeflate(benchmark::State& state) {
    auto level = static_cast<zn::ECompressionLevel>(state.range(0));
    size_t produced = 0;
    for (auto _ : state) {
        zn::Compressor compressor(level);
        compressor.Deflate(Data().data(), static_cast<unsigned int>(Data().size()));
        zn::ZipperOutput output = compressor.GetOutput();
        produced = output.m_OutputSize;
        benchmark::DoNotOptimize(output.m_Output);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * Data().size()));
    state.counters["ratio"] = static_cast<double>(Data().size()) / static_cast<double>(produced);
}

void BM_ZlibCompress2(benchmark::State& state) {
    int level = ZlibLevel(static_cast<zn::ECompressionLevel>(state.range(0)));
    // The bound is allocated once outside the loop: compress2 needs the whole output up front.
    Bytes stream(compressBound(Data().size()));
    uLongf produced = 0;
    for (auto _ : state) {
        produced = stream.size();
        compress2(stream.data(), &produced, Data().data(), Data().size(), level);
        benchmark::DoNotOptimize(stream.data());
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * Data().size()));
    state.counters["ratio"] = static_cast<double>(Data().size()) / static_cast<double>(produced);
}

// Throughput counts the inflated bytes, as for deflation.
void BM_CoreLibInflate(benchmark::State& state) {
    Bytes stream = ZlibCompress(ZlibLevel(static_cast<zn::ECompressionLevel>(state.range(0))));
    for (auto _ : state) {
        zn::DeCompressor decompressor;
        decompressor.Inflate(stream.data(), static_cast<unsigned int>(stream.size()));
        zn::ZipperOutput output = decompressor.GetOutput();
        if (output.m_OutputSize != Data().size()) {
            state.SkipWithError("wrong inflated size");
        }
        benchmark::DoNotOptimize(output.m_Output);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * Data().size()));
}

void BM_ZlibUncompress(benchmark::State& state) {
    Bytes stream = ZlibCompress(ZlibLevel(static_cast<zn::ECompressionLevel>(state.range(0))));
    Bytes data(Data().size());
    for (auto _ : state) {
        uLongf size = data.size();
        if (uncompress(data.data(), &size, stream.data(), stream.size()) != Z_OK) {
            state.SkipWithError("uncompress failed");
        }
        benchmark::DoNotOptimize(data.data());
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * Data().size()));
}

BENCHMARK(BM_CoreLibDeflate)
    ->Arg(zn::CompressionLevelFast)
    ->Arg(zn::CompressionLevelBest)
    ->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ZlibCompress2)
    ->Arg(zn::CompressionLevelFast)
    ->Arg(zn::CompressionLevelBest)
    ->Unit(benchmark::kMillisecond);
BENCHMARK(BM_CoreLibInflate)
    ->Arg(zn::CompressionLevelFast)
    ->Arg(zn::CompressionLevelBest)
    ->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ZlibUncompress)
    ->Arg(zn::CompressionLevelFast)
    ->Arg(zn::CompressionLevelBest)
    ->Unit(benchmark::kMillisecond);

}  // namespace

int main(int argc, char** argv) {
    zn::CoreLibSDM::Init();
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return 1;
    }
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    zn::CoreLibSDM::Shutdown();
    return 0;
}
