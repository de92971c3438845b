// bench_packs: the library's packs against PhysFS over a ZIP of the same files, against libzip,
// and against the loose files on disk (through FileReader and through plain open/read), on one
// generated file set in one run: opening an archive, looking up every name, reading every file.
// Every figure is warm-cache: the whole set is read once before the first measure.
#include "CoreLib/CoreLibSDM.h"
#include "CoreLib/CriticalSection.h"
#include "CoreLib/FileReader.h"
#include "CoreLib/FileSystem.h"
#include "CoreLib/FixedString.h"
#include "CoreLib/GlobalStringTable.h"
#include "CoreLib/LogManager.h"
#include "CoreLib/Logger.h"
#include "CoreLib/PackedFile.h"
#include "CoreLib/PackedFileManager.h"
#include "CoreLib/PackedFile_TOC.h"
#include "CoreLib/Path.h"
#include "CoreLib/Singleton.h"
#include "bench/bench_packs_corpus.h"

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <physfs.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zip.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

namespace {

using zn::bench::Corpus;
using zn::bench::kFileCount;
using zn::bench::Touch;
using Clock = std::chrono::steady_clock;

// Repetitions of every measure; the summary gives their median and their spread.
constexpr int kRepetitions = 5;
// Each read iteration reads the whole set (about 250 MB): two are enough.
constexpr int kReadIterations = 2;

Corpus g_Corpus;

zn::PackedFileManager* Manager() {
    return zn::Singleton<zn::PackedFileManager>::GetInstance();
}

double Seconds(Clock::time_point start, Clock::time_point end) {
    return std::chrono::duration<double>(end - start).count();
}

// Counts the library's reports: a route that reports while it is measured is measuring a failure.
class ReportCounter : public zn::Logger {
public:
    void ProcessMessage(zn::ELogChannel, const char*, const char* message, const char*, int,
                        const char* function) override {
        if (m_Count.fetch_add(1) < 5) {
            std::fprintf(stderr, "bench_packs: library report from %s: %s\n", function, message);
        }
    }
    void FlushLog() override {}
    unsigned int Count() const { return m_Count.load(); }

private:
    std::atomic<unsigned int> m_Count{0};
};

// The media folder and the packs the manager sees while one measure runs: a host's start-up.
class MediaScope {
public:
    explicit MediaScope(const std::filesystem::path& media) {
        zn::FileSystem::SetMediaPath(zn::bench::Wide(media));
        Manager()->CollectPackFiles();
    }
    ~MediaScope() { Manager()->Destroy(); }
    MediaScope(const MediaScope&) = delete;
    MediaScope& operator=(const MediaScope&) = delete;
};

// The paths of every file in visiting order, made once as a game makes them at load time.
std::vector<zn::Path> MediaPaths() {
    std::vector<zn::Path> paths;
    paths.reserve(kFileCount);
    for (unsigned int index : g_Corpus.order) {
        paths.emplace_back(zn::STDString(g_Corpus.files[index].name.c_str()), zn::Path::ROOT_MEDIA);
    }
    return paths;
}

const std::string& NameAt(unsigned int visit) {
    return g_Corpus.files[g_Corpus.order[visit]].name;
}

void CountLookups(benchmark::State& state, unsigned int found) {
    if (found != kFileCount) {
        state.SkipWithError("a name was not found");
    }
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * kFileCount);
}

void CountReads(benchmark::State& state, uint64_t checksum) {
    if (checksum != g_Corpus.totalChecksum) {
        state.SkipWithError("the bytes read differ from the bytes written");
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * g_Corpus.totalBytes));
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * kFileCount);
}

// ---- opening ----

void OpenPackedFile(benchmark::State& state, const std::filesystem::path* pack) {
    zn::Path path = zn::bench::PathOf(*pack);
    for (auto _ : state) {
        Clock::time_point start = Clock::now();
        auto* packed = new zn::PackedFile(false);
        bool loaded = packed->Load(path);
        Clock::time_point end = Clock::now();
        state.SetIterationTime(Seconds(start, end));
        if (!loaded || packed->GetNbFiles() != kFileCount) {
            state.SkipWithError("the pack did not load");
        }
        delete packed;
    }
}

void OpenThroughManager(benchmark::State& state, const std::filesystem::path* media) {
    zn::FileSystem::SetMediaPath(zn::bench::Wide(*media));
    for (auto _ : state) {
        Clock::time_point start = Clock::now();
        Manager()->CollectPackFiles();
        Clock::time_point end = Clock::now();
        state.SetIterationTime(Seconds(start, end));
        if (Manager()->GetPackCount() != 1 || Manager()->GetPack(0)->GetNbFiles() != kFileCount) {
            state.SkipWithError("the manager did not collect the pack");
        }
        Manager()->Destroy();
    }
}

void OpenPhysfs(benchmark::State& state, const std::filesystem::path* zip) {
    for (auto _ : state) {
        Clock::time_point start = Clock::now();
        int mounted = PHYSFS_mount(zip->c_str(), nullptr, 1);
        Clock::time_point end = Clock::now();
        state.SetIterationTime(Seconds(start, end));
        if (mounted == 0) {
            state.SkipWithError(PHYSFS_getErrorByCode(PHYSFS_getLastErrorCode()));
            break;
        }
        PHYSFS_unmount(zip->c_str());
    }
}

void OpenLibzip(benchmark::State& state, const std::filesystem::path* zip) {
    for (auto _ : state) {
        Clock::time_point start = Clock::now();
        int error = 0;
        zip_t* archive = zip_open(zip->c_str(), ZIP_RDONLY, &error);
        Clock::time_point end = Clock::now();
        state.SetIterationTime(Seconds(start, end));
        if (archive == nullptr || zip_get_num_entries(archive, 0) != kFileCount) {
            state.SkipWithError("zip_open failed");
            break;
        }
        zip_discard(archive);
    }
}

// ---- looking up every name ----

// Looks every name up once an iteration, through found(visit), and checks that all were found.
template <typename Found>
void LookUpEveryName(benchmark::State& state, Found found) {
    unsigned int count = 0;
    for (auto _ : state) {
        count = 0;
        for (unsigned int visit = 0; visit < kFileCount; ++visit) {
            count += found(visit) ? 1 : 0;
        }
    }
    CountLookups(state, count);
}

// The stored zip mounted in PhysFS for one measure; a failed mount skips the measure.
class PhysfsMount {
public:
    PhysfsMount(benchmark::State& state, const std::filesystem::path& zip) : m_Zip(zip) {
        m_Mounted = PHYSFS_mount(m_Zip.c_str(), nullptr, 1) != 0;
        if (!m_Mounted) {
            state.SkipWithError("PHYSFS_mount failed");
        }
    }
    ~PhysfsMount() {
        if (m_Mounted) {
            PHYSFS_unmount(m_Zip.c_str());
        }
    }
    PhysfsMount(const PhysfsMount&) = delete;
    PhysfsMount& operator=(const PhysfsMount&) = delete;
    bool IsMounted() const { return m_Mounted; }

private:
    const std::filesystem::path& m_Zip;
    bool m_Mounted = false;
};

void LookupManagerPrebuilt(benchmark::State& state) {
    MediaScope media(g_Corpus.storedMedia);
    std::vector<zn::Path> paths = MediaPaths();
    LookUpEveryName(state, [&](unsigned int visit) { return Manager()->DoesFileExist(paths[visit]); });
}

void LookupManagerPathInLoop(benchmark::State& state) {
    MediaScope media(g_Corpus.storedMedia);
    LookUpEveryName(state, [](unsigned int visit) {
        zn::Path path(zn::STDString(NameAt(visit).c_str()), zn::Path::ROOT_MEDIA);
        return Manager()->DoesFileExist(path);
    });
}

// The public question of a game: the disk first (a failed stat here), then the packs.
void LookupFileSystemPrebuilt(benchmark::State& state) {
    MediaScope media(g_Corpus.storedMedia);
    std::vector<zn::Path> paths = MediaPaths();
    LookUpEveryName(state, [&](unsigned int visit) { return zn::FileSystem::FileExists(paths[visit]); });
}

void LookupPackContainsFile(benchmark::State& state) {
    zn::PackedFile pack(false);
    pack.Load(zn::bench::PathOf(g_Corpus.storedPack));
    LookUpEveryName(state, [&](unsigned int visit) { return pack.ContainsFile(NameAt(visit).c_str()); });
}

// The trie alone, with the interned keys made beforehand: what a lookup costs without interning.
void LookupTrieWithKeys(benchmark::State& state) {
    zn::PackedFile pack(false);
    pack.Load(zn::bench::PathOf(g_Corpus.storedPack));
    std::vector<zn::FixedString> keys;
    for (unsigned int visit = 0; visit < kFileCount; ++visit) {
        keys.emplace_back(NameAt(visit).c_str());
    }
    LookUpEveryName(state, [&](unsigned int visit) {
        zn::CSLock lock(&pack.GetCriticalSection());
        return pack.GetTOC()->Find(keys[visit]) != nullptr;
    });
}

void LookupPhysfsExists(benchmark::State& state) {
    PhysfsMount zip(state, g_Corpus.storedZip);
    if (zip.IsMounted()) {
        LookUpEveryName(state, [](unsigned int visit) { return PHYSFS_exists(NameAt(visit).c_str()) != 0; });
    }
}

void LookupPhysfsStat(benchmark::State& state) {
    PhysfsMount zip(state, g_Corpus.storedZip);
    if (zip.IsMounted()) {
        LookUpEveryName(state, [](unsigned int visit) {
            PHYSFS_Stat stat;
            return PHYSFS_stat(NameAt(visit).c_str(), &stat) != 0 && stat.filetype == PHYSFS_FILETYPE_REGULAR;
        });
    }
}

void LookupLibzip(benchmark::State& state) {
    int error = 0;
    zip_t* archive = zip_open(g_Corpus.storedZip.c_str(), ZIP_RDONLY, &error);
    if (archive == nullptr) {
        state.SkipWithError("zip_open failed");
        return;
    }
    LookUpEveryName(
        state, [&](unsigned int visit) { return zip_name_locate(archive, NameAt(visit).c_str(), 0) >= 0; });
    zip_discard(archive);
}

// ---- reading every file ----

// The peers and the baselines read into one buffer the caller owns, as their interfaces allow; the
// library hands out a view or a block of its own per file, as its interface does.
std::vector<char>& SharedBuffer() {
    static std::vector<char> buffer(g_Corpus.largestFile);
    return buffer;
}

void ReadFileReader(benchmark::State& state, const std::filesystem::path* media, bool loadInMemory,
                    bool memoryMap) {
    MediaScope scope(*media);
    std::vector<zn::Path> paths = MediaPaths();
    uint64_t checksum = 0;
    unsigned int mappedCount = 0;
    for (auto _ : state) {
        checksum = 0;
        mappedCount = 0;
        for (const zn::Path& path : paths) {
            zn::FileReader reader(path, loadInMemory, memoryMap);
            if (reader.IsLoaded()) {
                checksum += Touch(reader.GetData(), reader.GetFileSize());
                mappedCount += reader.GetType() == zn::FileReader::BufferType_MemoryMapped;
            }
        }
    }
    state.counters["mapped_files"] = mappedCount;
    CountReads(state, checksum);
}

void ReadGetFileData(benchmark::State& state, const std::filesystem::path* pack, bool wantMapped) {
    zn::PackedFile packed(false);
    packed.Load(zn::bench::PathOf(*pack));
    uint64_t checksum = 0;
    unsigned int mappedCount = 0;
    for (auto _ : state) {
        checksum = 0;
        mappedCount = 0;
        for (unsigned int visit = 0; visit < kFileCount; ++visit) {
            bool mapped = wantMapped;
            char* base = nullptr;
            unsigned int size = 0;
            unsigned int offset = 0;
            unsigned int viewSize = 0;
            if (!packed.GetFileData(NameAt(visit).c_str(), mapped, base, size, offset, viewSize)) {
                continue;
            }
            checksum += Touch(base + offset, size);
            mappedCount += mapped;
            zn::PackedFile::ReleaseFileData(mapped, base, size, viewSize);
        }
    }
    state.counters["mapped_files"] = mappedCount;
    CountReads(state, checksum);
}

void ReadPhysfs(benchmark::State& state, const std::filesystem::path* zip) {
    PhysfsMount mount(state, *zip);
    if (!mount.IsMounted()) {
        return;
    }
    std::vector<char>& buffer = SharedBuffer();
    uint64_t checksum = 0;
    for (auto _ : state) {
        checksum = 0;
        for (unsigned int visit = 0; visit < kFileCount; ++visit) {
            PHYSFS_File* file = PHYSFS_openRead(NameAt(visit).c_str());
            if (file == nullptr) {
                continue;
            }
            PHYSFS_sint64 length = PHYSFS_fileLength(file);
            PHYSFS_sint64 got =
                length > 0 && static_cast<size_t>(length) <= buffer.size()
                    ? PHYSFS_readBytes(file, buffer.data(), static_cast<PHYSFS_uint64>(length))
                    : -1;
            PHYSFS_close(file);
            if (got == length) {
                checksum += Touch(buffer.data(), static_cast<size_t>(got));
            }
        }
    }
    CountReads(state, checksum);
}

void ReadLibzip(benchmark::State& state, const std::filesystem::path* zip) {
    int error = 0;
    zip_t* archive = zip_open(zip->c_str(), ZIP_RDONLY, &error);
    if (archive == nullptr) {
        state.SkipWithError("zip_open failed");
        return;
    }
    std::vector<char>& buffer = SharedBuffer();
    uint64_t checksum = 0;
    for (auto _ : state) {
        checksum = 0;
        for (unsigned int visit = 0; visit < kFileCount; ++visit) {
            zip_file_t* file = zip_fopen(archive, NameAt(visit).c_str(), 0);
            if (file == nullptr) {
                continue;
            }
            size_t got = 0;
            zip_int64_t count = 0;
            while (got < buffer.size() &&
                   (count = zip_fread(file, buffer.data() + got, buffer.size() - got)) > 0) {
                got += static_cast<size_t>(count);
            }
            zip_fclose(file);
            checksum += Touch(buffer.data(), got);
        }
    }
    zip_discard(archive);
    CountReads(state, checksum);
}

std::vector<std::string> LooseFileNames() {
    std::vector<std::string> names;
    for (unsigned int visit = 0; visit < kFileCount; ++visit) {
        names.push_back((g_Corpus.looseMedia / NameAt(visit)).string());
    }
    return names;
}

// The baseline: open, fstat, read to the end, close.
void ReadPlain(benchmark::State& state) {
    std::vector<std::string> names = LooseFileNames();
    std::vector<char>& buffer = SharedBuffer();
    uint64_t checksum = 0;
    for (auto _ : state) {
        checksum = 0;
        for (const std::string& name : names) {
            int descriptor = open(name.c_str(), O_RDONLY | O_CLOEXEC);
            struct stat status;
            if (descriptor < 0 || fstat(descriptor, &status) != 0 ||
                static_cast<size_t>(status.st_size) > buffer.size()) {
                continue;
            }
            size_t got = 0;
            ssize_t count = 0;
            while (got < static_cast<size_t>(status.st_size) &&
                   (count = read(descriptor, buffer.data() + got, buffer.size() - got)) > 0) {
                got += static_cast<size_t>(count);
            }
            close(descriptor);
            checksum += Touch(buffer.data(), got);
        }
    }
    CountReads(state, checksum);
}

// A second baseline: each loose file mapped, every page touched, unmapped.
void ReadMmap(benchmark::State& state) {
    std::vector<std::string> names = LooseFileNames();
    uint64_t checksum = 0;
    for (auto _ : state) {
        checksum = 0;
        for (const std::string& name : names) {
            int descriptor = open(name.c_str(), O_RDONLY | O_CLOEXEC);
            struct stat status;
            if (descriptor < 0 || fstat(descriptor, &status) != 0 || status.st_size == 0) {
                continue;
            }
            auto size = static_cast<size_t>(status.st_size);
            void* view = mmap(nullptr, size, PROT_READ, MAP_PRIVATE, descriptor, 0);
            close(descriptor);
            if (view != MAP_FAILED) {
                checksum += Touch(view, size);
                munmap(view, size);
            }
        }
    }
    CountReads(state, checksum);
}

// ---- registration ----

double MinOf(const std::vector<double>& values) {
    return values.empty() ? 0.0 : *std::min_element(values.begin(), values.end());
}

double MaxOf(const std::vector<double>& values) {
    return values.empty() ? 0.0 : *std::max_element(values.begin(), values.end());
}

benchmark::internal::Benchmark* Common(benchmark::internal::Benchmark* benchmark) {
    return benchmark->Repetitions(kRepetitions)
        ->DisplayAggregatesOnly(true)
        ->ComputeStatistics("min", MinOf)
        ->ComputeStatistics("max", MaxOf);
}

void RegisterOpening() {
    const Corpus& c = g_Corpus;
    auto opening = [](benchmark::internal::Benchmark* benchmark) {
        Common(benchmark)->UseManualTime()->Unit(benchmark::kMicrosecond);
    };
    opening(
        benchmark::RegisterBenchmark("Open/corelib/PackedFile_Load_stored", OpenPackedFile, &c.storedPack));
    opening(benchmark::RegisterBenchmark("Open/corelib/PackedFile_Load_compressed", OpenPackedFile,
                                         &c.compressedPack));
    opening(benchmark::RegisterBenchmark("Open/corelib/manager_CollectPackFiles", OpenThroughManager,
                                         &c.storedMedia));
    opening(benchmark::RegisterBenchmark("Open/physfs/mount_stored_zip", OpenPhysfs, &c.storedZip));
    opening(benchmark::RegisterBenchmark("Open/physfs/mount_deflated_zip", OpenPhysfs, &c.deflatedZip));
    opening(benchmark::RegisterBenchmark("Open/libzip/zip_open_stored", OpenLibzip, &c.storedZip));
    opening(benchmark::RegisterBenchmark("Open/libzip/zip_open_deflated", OpenLibzip, &c.deflatedZip));
}

void RegisterLookups() {
    auto lookup = [](const char* name, void (*function)(benchmark::State&)) {
        Common(benchmark::RegisterBenchmark(name, function))->Unit(benchmark::kMicrosecond);
    };
    lookup("Lookup/corelib/manager_DoesFileExist_prebuilt_path", LookupManagerPrebuilt);
    lookup("Lookup/corelib/manager_DoesFileExist_path_in_loop", LookupManagerPathInLoop);
    lookup("Lookup/corelib/FileSystem_FileExists_prebuilt_path", LookupFileSystemPrebuilt);
    lookup("Lookup/corelib/PackedFile_ContainsFile", LookupPackContainsFile);
    lookup("Lookup/corelib/trie_Find_prebuilt_key", LookupTrieWithKeys);
    lookup("Lookup/physfs/PHYSFS_exists", LookupPhysfsExists);
    lookup("Lookup/physfs/PHYSFS_stat", LookupPhysfsStat);
    lookup("Lookup/libzip/zip_name_locate", LookupLibzip);
}

void RegisterReads() {
    const Corpus& c = g_Corpus;
    auto reading = [](benchmark::internal::Benchmark* benchmark) {
        Common(benchmark)->Iterations(kReadIterations)->UseRealTime()->Unit(benchmark::kMillisecond);
    };
    reading(benchmark::RegisterBenchmark("Read/stored/corelib_FileReader_manager", ReadFileReader,
                                         &c.storedMedia, true, false));
    reading(benchmark::RegisterBenchmark("Read/stored/corelib_FileReader_unmapped_pack", ReadFileReader,
                                         &c.unmappedMedia, true, false));
    reading(benchmark::RegisterBenchmark("Read/stored/corelib_GetFileData_mapped", ReadGetFileData,
                                         &c.storedPack, true));
    reading(benchmark::RegisterBenchmark("Read/stored/corelib_GetFileData_read", ReadGetFileData,
                                         &c.storedPack, false));
    reading(benchmark::RegisterBenchmark("Read/stored/physfs", ReadPhysfs, &c.storedZip));
    reading(benchmark::RegisterBenchmark("Read/stored/libzip", ReadLibzip, &c.storedZip));
    reading(benchmark::RegisterBenchmark("Read/compressed/corelib_FileReader_manager", ReadFileReader,
                                         &c.compressedMedia, true, false));
    reading(benchmark::RegisterBenchmark("Read/compressed/corelib_GetFileData", ReadGetFileData,
                                         &c.compressedPack, false));
    reading(benchmark::RegisterBenchmark("Read/compressed/physfs", ReadPhysfs, &c.deflatedZip));
    reading(benchmark::RegisterBenchmark("Read/compressed/libzip", ReadLibzip, &c.deflatedZip));
    reading(benchmark::RegisterBenchmark("Read/loose/corelib_FileReader_block", ReadFileReader, &c.looseMedia,
                                         true, false));
    reading(benchmark::RegisterBenchmark("Read/loose/corelib_FileReader_view", ReadFileReader, &c.looseMedia,
                                         false, true));
    reading(benchmark::RegisterBenchmark("Read/loose/read", ReadPlain));
    reading(benchmark::RegisterBenchmark("Read/loose/mmap", ReadMmap));
}

// ---- the summary: ratios of this run against the targets ----

// Seconds per iteration of one measure over its repetitions, in wall-clock and in process time.
struct Timing {
    double realMedian = 0;
    double realMin = 0;
    double realMax = 0;
    double cpuMedian = 0;
};

// Passes everything to the console and keeps the aggregates of each measure for the summary.
class SummaryReporter : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run>& runs) override {
        ConsoleReporter::ReportRuns(runs);
        for (const Run& run : runs) {
            if (run.error_occurred || run.run_type != Run::RT_Aggregate || run.iterations == 0) {
                continue;
            }
            double iterations = static_cast<double>(run.iterations);
            Timing& timing = m_Timings[run.run_name.function_name];
            if (run.aggregate_name == "median") {
                timing.realMedian = run.real_accumulated_time / iterations;
                timing.cpuMedian = run.cpu_accumulated_time / iterations;
            } else if (run.aggregate_name == "min") {
                timing.realMin = run.real_accumulated_time / iterations;
            } else if (run.aggregate_name == "max") {
                timing.realMax = run.real_accumulated_time / iterations;
            }
        }
    }

    // The ratio is the peer's time over ours: above 1 we are faster. A target is met when the ratio
    // of medians reaches atLeast (0: no target); it is judged on wall-clock and on process time,
    // since a loaded machine stretches the first alone. A pair left out by a filter is not printed.
    void Compare(const char* what, const std::string& ours, const std::string& peer, double atLeast) const {
        auto mine = m_Timings.find(ours);
        auto theirs = m_Timings.find(peer);
        if (mine == m_Timings.end() || theirs == m_Timings.end() || mine->second.realMedian <= 0 ||
            mine->second.cpuMedian <= 0) {
            return;
        }
        const Timing& a = mine->second;
        const Timing& b = theirs->second;
        double real = b.realMedian / a.realMedian;
        double cpu = b.cpuMedian / a.cpuMedian;
        double worst = a.realMax > 0 ? b.realMin / a.realMax : 0.0;
        double best = a.realMin > 0 ? b.realMax / a.realMin : 0.0;
        std::printf("  %-50s %10s vs %10s  real %5.2fx (%.2f-%.2fx)  cpu %5.2fx", what,
                    Format(a.realMedian).c_str(), Format(b.realMedian).c_str(), real, worst, best, cpu);
        if (atLeast > 0) {
            std::printf("  target >= %.2fx: real %s, cpu %s", atLeast, real >= atLeast ? "met" : "NOT MET",
                        cpu >= atLeast ? "met" : "NOT MET");
        }
        std::printf("\n");
    }

    void PrintSummary() const {
        std::printf(
            "\nSummary: medians of %d repetitions, ours vs the peer's wall-clock time, then the peer's time "
            "over ours (above 1 we are faster) in wall-clock time (in brackets: the worst and the best "
            "pairing of repetitions) and in process time\n",
            kRepetitions);
        Compare("open: PackedFile::Load vs PHYSFS_mount", "Open/corelib/PackedFile_Load_stored",
                "Open/physfs/mount_stored_zip", 2.0);
        Compare("open: CollectPackFiles vs PHYSFS_mount", "Open/corelib/manager_CollectPackFiles",
                "Open/physfs/mount_stored_zip", 2.0);
        Compare("open: PackedFile::Load vs zip_open", "Open/corelib/PackedFile_Load_stored",
                "Open/libzip/zip_open_stored", 0);
        Compare("lookup, prebuilt Path vs PHYSFS_exists",
                "Lookup/corelib/manager_DoesFileExist_prebuilt_path", "Lookup/physfs/PHYSFS_exists", 5.0);
        Compare("lookup, prebuilt Path vs PHYSFS_stat", "Lookup/corelib/manager_DoesFileExist_prebuilt_path",
                "Lookup/physfs/PHYSFS_stat", 5.0);
        Compare("lookup, Path in the loop vs PHYSFS_exists",
                "Lookup/corelib/manager_DoesFileExist_path_in_loop", "Lookup/physfs/PHYSFS_exists", 0);
        Compare("lookup, trie alone (prebuilt key) vs PHYSFS_exists", "Lookup/corelib/trie_Find_prebuilt_key",
                "Lookup/physfs/PHYSFS_exists", 0);
        Compare("lookup, prebuilt Path vs zip_name_locate",
                "Lookup/corelib/manager_DoesFileExist_prebuilt_path", "Lookup/libzip/zip_name_locate", 0);
        Compare("stored read, FileReader vs read()", "Read/stored/corelib_FileReader_manager",
                "Read/loose/read", 1.0 / 1.2);
        Compare("stored read, FileReader, unmapped pack vs read()",
                "Read/stored/corelib_FileReader_unmapped_pack", "Read/loose/read", 1.0 / 1.2);
        Compare("stored read, GetFileData mapped vs read()", "Read/stored/corelib_GetFileData_mapped",
                "Read/loose/read", 1.0 / 1.2);
        Compare("stored read, GetFileData read vs read()", "Read/stored/corelib_GetFileData_read",
                "Read/loose/read", 1.0 / 1.2);
        Compare("stored read, FileReader vs PhysFS", "Read/stored/corelib_FileReader_manager",
                "Read/stored/physfs", 0);
        Compare("stored read, FileReader vs libzip", "Read/stored/corelib_FileReader_manager",
                "Read/stored/libzip", 0);
        Compare("compressed read, FileReader vs libzip", "Read/compressed/corelib_FileReader_manager",
                "Read/compressed/libzip", 1.0);
        Compare("compressed read, GetFileData vs libzip", "Read/compressed/corelib_GetFileData",
                "Read/compressed/libzip", 1.0);
        Compare("compressed read, FileReader vs PhysFS", "Read/compressed/corelib_FileReader_manager",
                "Read/compressed/physfs", 0);
        Compare("loose read, FileReader block vs read()", "Read/loose/corelib_FileReader_block",
                "Read/loose/read", 0);
    }

private:
    static std::string Format(double seconds) {
        char text[32];
        if (seconds < 1e-3) {
            std::snprintf(text, sizeof(text), "%.1f us", seconds * 1e6);
        } else {
            std::snprintf(text, sizeof(text), "%.2f ms", seconds * 1e3);
        }
        return text;
    }

    std::map<std::string, Timing> m_Timings;
};

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return 1;
    }
    zn::CoreLibSDM::Init();
    // The host's loading phase: paths and keys are interned while the table is open.
    zn::GlobalStringTable::RequestTable();
    auto* reports = new ReportCounter();
    reports->EnableLogging(zn::LogInfo | zn::LogWarning | zn::LogError | zn::LogAssertProgrammer |
                           zn::LogAssertArtist | zn::LogAssertDesign);
    int reportSlot = zn::LogManager::GetInstance()->RegisterLogger(reports);
    PHYSFS_init(argv[0]);

    int status = 0;
    Clock::time_point start = Clock::now();
    if (zn::bench::BuildCorpus(g_Corpus)) {
        std::printf("bench_packs: built in %.1f s, page cache warmed with %s\n", Seconds(start, Clock::now()),
                    zn::bench::MegaBytes(zn::bench::WarmPageCache(g_Corpus.root)).c_str());
        zn::bench::DescribeCorpus(g_Corpus);
        std::fflush(stdout);
        RegisterOpening();
        RegisterLookups();
        RegisterReads();
        SummaryReporter reporter;
        benchmark::RunSpecifiedBenchmarks(&reporter);
        reporter.PrintSummary();
        std::printf("bench_packs: %u library report(s) during the run\n", reports->Count());
    } else {
        status = 1;
    }
    if (!g_Corpus.root.empty()) {
        std::error_code ignored;
        std::filesystem::remove_all(g_Corpus.root, ignored);
    }

    benchmark::Shutdown();
    PHYSFS_deinit();
    zn::LogManager::GetInstance()->RemoveLogger(reportSlot);
    delete reports;
    zn::GlobalStringTable::ReleaseTable();
    zn::CoreLibSDM::Shutdown();
    return status;
}
