// bench_heap: the library's allocation routes against glibc, jemalloc and mimalloc on the same
// workloads, in one run. Run it with no arguments; --rss=NAME is the child mode that measures
// the peak resident memory of the mixed workload for one allocator in a fresh process.
#include "CoreLib/CoreLibSDM.h"
#include "CoreLib/MemoryManager.h"
#include "CoreLib/TrackedObject.h"
#include "CoreLib/platform/PlatformHeap.h"

#include <benchmark/benchmark.h>
#include <dlfcn.h>
#include <jemalloc/jemalloc.h>
#include <mimalloc.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <random>
#include <string>
#include <thread>
#include <vector>

namespace {

using zn::platform::PlatformHeap;

// ---- the allocators, behind one shape ----

struct Raw {
    static PlatformHeap* Heap() {
        static PlatformHeap* heap = zn::platform::HeapCreate(zn::platform::HEAP_NO_SERIALIZE, 0x7EC00, 0);
        return heap;
    }
    static void* Alloc(size_t size) { return zn::platform::HeapAlloc(Heap(), 0, size); }
    static void Free(void* p) { zn::platform::HeapFree(Heap(), 0, p); }
    // HeapReAlloc of null fails, as on Win32: the first block comes from HeapAlloc.
    static void* Realloc(void* p, size_t size) {
        return p == nullptr ? Alloc(size) : zn::platform::HeapReAlloc(Heap(), 0, p, size);
    }
};

// The process heap is serialised: this is the allocator shared between threads.
struct RawShared {
    static void* Alloc(size_t size) {
        return zn::platform::HeapAlloc(zn::platform::GetProcessHeap(), 0, size);
    }
    static void Free(void* p) { zn::platform::HeapFree(zn::platform::GetProcessHeap(), 0, p); }
    static void* Realloc(void* p, size_t size) {
        return p == nullptr ? Alloc(size)
                            : zn::platform::HeapReAlloc(zn::platform::GetProcessHeap(), 0, p, size);
    }
};

struct Global {
    static void* Alloc(size_t size) { return zn::MemoryManager::GlobalMalloc(size, 0); }
    static void Free(void* p) { zn::MemoryManager::GlobalFree(p, 0); }
    static void* Realloc(void* p, size_t size) { return zn::MemoryManager::GlobalRealloc(p, size, 0); }
};

// What new and delete of a TrackedObject do, with the object's size as the request.
struct Tracked {
    static void* Alloc(size_t size) { return zn::MemObject::operator new(size, zn::GetHeapGLOBAL()); }
    static void Free(void* p) { zn::MemObject::operator delete (p, size_t{0}); }
};

// glibc's own allocator, looked up in libc itself. Linking mimalloc makes it the process's malloc,
// and it defines __libc_malloc and friends as well, so neither name reaches glibc from here.
struct GlibcEntryPoints {
    void* (*m_Malloc)(size_t) = nullptr;
    void (*m_Free)(void*) = nullptr;
    void* (*m_Realloc)(void*, size_t) = nullptr;

    GlibcEntryPoints() {
        void* libc = dlopen("libc.so.6", RTLD_LAZY | RTLD_NOLOAD);
        if (libc != nullptr) {
            m_Malloc = reinterpret_cast<void* (*)(size_t)>(dlsym(libc, "malloc"));
            m_Free = reinterpret_cast<void (*)(void*)>(dlsym(libc, "free"));
            m_Realloc = reinterpret_cast<void* (*)(void*, size_t)>(dlsym(libc, "realloc"));
        }
        Dl_info origin{};
        if (m_Malloc == nullptr || m_Free == nullptr || m_Realloc == nullptr ||
            dladdr(reinterpret_cast<void*>(m_Malloc), &origin) == 0 || origin.dli_fname == nullptr ||
            std::strstr(origin.dli_fname, "libc.so") == nullptr) {
            std::fprintf(stderr, "bench_heap: glibc's malloc cannot be reached\n");
            std::abort();
        }
    }
};

const GlibcEntryPoints& GlibcAllocator() {
    static const GlibcEntryPoints s_EntryPoints;
    return s_EntryPoints;
}

struct Glibc {
    static void* Alloc(size_t size) { return GlibcAllocator().m_Malloc(size); }
    static void Free(void* p) { GlibcAllocator().m_Free(p); }
    static void* Realloc(void* p, size_t size) { return GlibcAllocator().m_Realloc(p, size); }
};

struct Jemalloc {
    static void* Alloc(size_t size) { return mallocx(size == 0 ? 1 : size, 0); }
    static void Free(void* p) {
        if (p != nullptr) {
            dallocx(p, 0);
        }
    }
    static void* Realloc(void* p, size_t size) {
        return p == nullptr ? mallocx(size, 0) : rallocx(p, size, 0);
    }
};

struct Mimalloc {
    static void* Alloc(size_t size) { return mi_malloc(size); }
    static void Free(void* p) { mi_free(p); }
    static void* Realloc(void* p, size_t size) { return mi_realloc(p, size); }
};

// ---- workloads ----

constexpr size_t kLiveBlocks = 4096;

std::vector<uint32_t> SizeSequence(size_t count, uint32_t low, uint32_t high, uint32_t seed) {
    std::mt19937 random(seed);
    std::vector<uint32_t> sizes(count);
    // Mixed sizes lean to the small end, as real programs do: a log-uniform spread.
    std::uniform_real_distribution<double> exponent(std::log2(static_cast<double>(low)),
                                                    std::log2(static_cast<double>(high)));
    for (uint32_t& size : sizes) {
        size = static_cast<uint32_t>(std::exp2(exponent(random)));
    }
    return sizes;
}

// Frees the oldest block of a ring of live blocks and puts a new one in its place, touching it
// as a program would. One iteration is one allocation and one free.
template <typename A>
void Churn(benchmark::State& state, uint32_t low, uint32_t high) {
    std::vector<uint32_t> sizes = SizeSequence(1 << 16, low, high, 42);
    std::vector<void*> live(kLiveBlocks, nullptr);
    // Warm up: fresh pages cost microseconds on first touch, which is not what is measured.
    for (int pass = 0; pass < 2; ++pass) {
        for (size_t slot = 0; slot < kLiveBlocks; ++slot) {
            A::Free(live[slot]);
            live[slot] = A::Alloc(sizes[slot]);
            std::memset(live[slot], 1, std::min<uint32_t>(sizes[slot], 64));
        }
    }
    size_t step = 0;
    for (auto _ : state) {
        size_t slot = step % kLiveBlocks;
        A::Free(live[slot]);
        void* block = A::Alloc(sizes[step & 0xFFFF]);
        static_cast<char*>(block)[0] = 1;
        live[slot] = block;
        ++step;
    }
    for (void* block : live) {
        A::Free(block);
    }
    state.SetItemsProcessed(state.iterations());
}

// Grows one buffer by an eighth at a time up to 4 MiB, then frees it and starts over. It never
// shrinks a block: after a shrink, the library's heaps reallocate in place only.
template <typename A>
void ReallocGrowth(benchmark::State& state) {
    void* buffer = nullptr;
    size_t size = 64;
    for (auto _ : state) {
        if (size >= (4u << 20)) {
            A::Free(buffer);
            buffer = nullptr;
            size = 64;
        }
        size += size / 8;
        buffer = A::Realloc(buffer, size);
        static_cast<char*>(buffer)[size - 1] = 1;
    }
    A::Free(buffer);
    state.SetItemsProcessed(state.iterations());
}

// Two threads each allocate a batch and hand it to the other, which frees it.
template <typename A>
void CrossThreadFree(benchmark::State& state) {
    constexpr size_t kBatch = 256;
    static std::mutex exchangeLock;
    static std::vector<void*> mailbox[2];
    int self = state.thread_index();
    std::vector<uint32_t> sizes = SizeSequence(kBatch, 16, 256, 7 + static_cast<uint32_t>(self));
    std::vector<void*> batch(kBatch);
    for (auto _ : state) {
        for (size_t index = 0; index < kBatch; ++index) {
            batch[index] = A::Alloc(sizes[index]);
            static_cast<char*>(batch[index])[0] = 1;
        }
        std::vector<void*> received;
        {
            std::lock_guard<std::mutex> guard(exchangeLock);
            mailbox[1 - self].insert(mailbox[1 - self].end(), batch.begin(), batch.end());
            received.swap(mailbox[self]);
        }
        for (void* block : received) {
            A::Free(block);
        }
    }
    std::lock_guard<std::mutex> guard(exchangeLock);
    for (void* block : mailbox[self]) {
        A::Free(block);
    }
    mailbox[self].clear();
    state.SetItemsProcessed(state.iterations() * kBatch);
}

// ---- heap walks ----

constexpr size_t kWalkBlocks = 100000;

void WalkRaw(benchmark::State& state) {
    PlatformHeap* heap = zn::platform::HeapCreate(zn::platform::HEAP_NO_SERIALIZE, 0, 0);
    std::vector<uint32_t> sizes = SizeSequence(kWalkBlocks, 16, 512, 3);
    for (uint32_t size : sizes) {
        zn::platform::HeapAlloc(heap, 0, size);
    }
    size_t visited = 0;
    for (auto _ : state) {
        zn::platform::HeapWalkEntry entry{};
        while (zn::platform::HeapWalk(heap, &entry)) {
            visited += (entry.wFlags & zn::platform::PROCESS_HEAP_ENTRY_BUSY) != 0;
        }
    }
    benchmark::DoNotOptimize(visited);
    zn::platform::HeapDestroy(heap);
    state.SetItemsProcessed(state.iterations() * kWalkBlocks);
}

bool CountBlock(const mi_heap_t*, const mi_heap_area_t*, void* block, size_t, void* counter) {
    *static_cast<size_t*>(counter) += block != nullptr;
    return true;
}

void WalkMimalloc(benchmark::State& state) {
    mi_heap_t* heap = mi_heap_new();
    std::vector<uint32_t> sizes = SizeSequence(kWalkBlocks, 16, 512, 3);
    for (uint32_t size : sizes) {
        benchmark::DoNotOptimize(mi_heap_malloc(heap, size));
    }
    size_t visited = 0;
    for (auto _ : state) {
        mi_heap_visit_blocks(heap, true, CountBlock, &visited);
    }
    benchmark::DoNotOptimize(visited);
    mi_heap_destroy(heap);
    state.SetItemsProcessed(state.iterations() * kWalkBlocks);
}

// ---- peak resident memory of the mixed workload, each allocator in a fresh process ----

template <typename A>
void MixedWorkloadOnce() {
    std::vector<uint32_t> sizes = SizeSequence(1 << 20, 16, 65536, 11);
    std::vector<void*> live(kLiveBlocks, nullptr);
    for (size_t step = 0; step < sizes.size(); ++step) {
        size_t slot = step % kLiveBlocks;
        A::Free(live[slot]);
        live[slot] = A::Alloc(sizes[step]);
        std::memset(live[slot], 1, sizes[step]);
    }
    for (void* block : live) {
        A::Free(block);
    }
}

// The child's own high-water mark of resident memory. getrusage and wait4 would not do: their
// maximum carries the parent's resident set over from before the child's exec.
long ReadHighWaterKiB() {
    FILE* status = std::fopen("/proc/self/status", "r");
    if (status == nullptr) {
        return -1;
    }
    char line[256];
    long kib = -1;
    while (std::fgets(line, sizeof(line), status) != nullptr) {
        if (std::sscanf(line, "VmHWM: %ld kB", &kib) == 1) {
            break;
        }
    }
    std::fclose(status);
    return kib;
}

// Runs the mixed workload for one allocator in a fresh process and reads back its peak.
long PeakResidentKiB(const char* allocator) {
    char self[4096];
    ssize_t length = readlink("/proc/self/exe", self, sizeof(self) - 1);
    if (length <= 0) {
        return -1;
    }
    self[length] = '\0';
    std::string command = std::string("'") + self + "' --rss=" + allocator;
    FILE* child = popen(command.c_str(), "r");
    if (child == nullptr) {
        return -1;
    }
    long kib = -1;
    if (std::fscanf(child, "%ld", &kib) != 1) {
        kib = -1;
    }
    return pclose(child) == 0 ? kib : -1;
}

int RunRssChild(const std::string& allocator) {
    if (allocator == "corelib") {
        MixedWorkloadOnce<Raw>();
    } else if (allocator == "corelib_global") {
        zn::CoreLibSDM::Init();
        MixedWorkloadOnce<Global>();
        zn::CoreLibSDM::Shutdown();
    } else if (allocator == "glibc") {
        MixedWorkloadOnce<Glibc>();
    } else if (allocator == "jemalloc") {
        MixedWorkloadOnce<Jemalloc>();
    } else if (allocator == "mimalloc") {
        MixedWorkloadOnce<Mimalloc>();
    } else {
        return 2;
    }
    std::printf("%ld\n", ReadHighWaterKiB());
    return 0;
}

void PeakResidentMemory(benchmark::State& state, const char* allocator) {
    long peak = 0;
    for (auto _ : state) {
        peak = PeakResidentKiB(allocator);
    }
    state.counters["peak_rss_KiB"] = static_cast<double>(peak);
}

// ---- registration ----

template <typename A>
void SmallChurn(benchmark::State& state) {
    Churn<A>(state, 16, 256);
}

template <typename A>
void MixedChurn(benchmark::State& state) {
    Churn<A>(state, 16, 65536);
}

#define ZN_ALL_ALLOCATORS(workload)                                            \
    BENCHMARK_TEMPLATE(workload, Raw)->Name(#workload "/corelib_raw");         \
    BENCHMARK_TEMPLATE(workload, Global)->Name(#workload "/corelib_global");   \
    BENCHMARK_TEMPLATE(workload, Tracked)->Name(#workload "/corelib_tracked"); \
    BENCHMARK_TEMPLATE(workload, Glibc)->Name(#workload "/glibc");             \
    BENCHMARK_TEMPLATE(workload, Jemalloc)->Name(#workload "/jemalloc");       \
    BENCHMARK_TEMPLATE(workload, Mimalloc)->Name(#workload "/mimalloc")

ZN_ALL_ALLOCATORS(SmallChurn);
ZN_ALL_ALLOCATORS(MixedChurn);
// A tracked object is never reallocated: the growth workload leaves that route out.
BENCHMARK_TEMPLATE(ReallocGrowth, Raw)->Name("ReallocGrowth/corelib_raw");
BENCHMARK_TEMPLATE(ReallocGrowth, Global)->Name("ReallocGrowth/corelib_global");
BENCHMARK_TEMPLATE(ReallocGrowth, Glibc)->Name("ReallocGrowth/glibc");
BENCHMARK_TEMPLATE(ReallocGrowth, Jemalloc)->Name("ReallocGrowth/jemalloc");
BENCHMARK_TEMPLATE(ReallocGrowth, Mimalloc)->Name("ReallocGrowth/mimalloc");
BENCHMARK_TEMPLATE(CrossThreadFree, RawShared)
    ->Name("CrossThreadFree/corelib_raw")
    ->Threads(2)
    ->UseRealTime();
BENCHMARK_TEMPLATE(CrossThreadFree, Global)
    ->Name("CrossThreadFree/corelib_global")
    ->Threads(2)
    ->UseRealTime();
BENCHMARK_TEMPLATE(CrossThreadFree, Tracked)
    ->Name("CrossThreadFree/corelib_tracked")
    ->Threads(2)
    ->UseRealTime();
BENCHMARK_TEMPLATE(CrossThreadFree, Glibc)->Name("CrossThreadFree/glibc")->Threads(2)->UseRealTime();
BENCHMARK_TEMPLATE(CrossThreadFree, Jemalloc)->Name("CrossThreadFree/jemalloc")->Threads(2)->UseRealTime();
BENCHMARK_TEMPLATE(CrossThreadFree, Mimalloc)->Name("CrossThreadFree/mimalloc")->Threads(2)->UseRealTime();
BENCHMARK(WalkRaw)->Name("HeapWalk/corelib_raw");
BENCHMARK(WalkMimalloc)->Name("HeapWalk/mimalloc_visit_blocks");
BENCHMARK_CAPTURE(PeakResidentMemory, corelib_raw, "corelib")->Iterations(1)->Name("PeakRSS/corelib_raw");
BENCHMARK_CAPTURE(PeakResidentMemory, corelib_global, "corelib_global")
    ->Iterations(1)
    ->Name("PeakRSS/corelib_global");
BENCHMARK_CAPTURE(PeakResidentMemory, glibc, "glibc")->Iterations(1)->Name("PeakRSS/glibc");
BENCHMARK_CAPTURE(PeakResidentMemory, jemalloc, "jemalloc")->Iterations(1)->Name("PeakRSS/jemalloc");
BENCHMARK_CAPTURE(PeakResidentMemory, mimalloc, "mimalloc")->Iterations(1)->Name("PeakRSS/mimalloc");

}  // namespace

int main(int argc, char** argv) {
    if (argc == 2 && std::strncmp(argv[1], "--rss=", 6) == 0) {
        return RunRssChild(argv[1] + 6);
    }
    zn::CoreLibSDM::Init();
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    zn::CoreLibSDM::Shutdown();
    return 0;
}
