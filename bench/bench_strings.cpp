// bench_strings: interning and lookup of FixedString against std::unordered_set<std::string> and
// absl::flat_hash_set<std::string> behind a std::mutex, copy and compare of handles against
// std::string, and the memory one interned string costs. Run it with no arguments; it ends with a
// table of per-operation times and ratios.
//
// The machines this runs on are shared, and their speed drifts within a run. So each benchmark of
// one set alone is repeated, the repetitions of all of them are run in a random interleaved order
// (unless the command line says otherwise), and the table takes the median of each one's
// repetitions; every time is the thread's processor time.
#include "CoreLib/CoreLibSDM.h"
#include "CoreLib/FixedString.h"
#include "CoreLib/GlobalStringTable.h"
#include "CoreLib/platform/PlatformHeap.h"

#include <absl/container/flat_hash_set.h>
#include <benchmark/benchmark.h>
#include <malloc.h>
#include <time.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <map>
#include <mutex>
#include <random>
#include <string>
#include <unordered_set>
#include <vector>

namespace {

// ---- the identifiers ----------------------------------------------------------------------------

const char* const kWords[] = {"textures", "models", "env",      "ui",      "menu",      "options",
                              "sound",    "fx",     "rock",     "grass",   "character", "npc",
                              "weapon",   "shader", "material", "level",   "key",       "binding",
                              "player",   "camera", "light",    "terrain", "mesh",      "anim"};
const char kSeparators[] = {'/', '/', '.', '_'};

// count distinct identifiers of 8 to 40 bytes, shaped like asset paths and keys
// ("textures/rock.level_0k3f"): words and separators, then a unique base-36 serial.
std::vector<std::string> MakeIdentifiers(size_t count, unsigned int seed) {
    std::mt19937 random(seed);
    std::vector<std::string> identifiers;
    identifiers.reserve(count);
    for (size_t serial = 0; serial < count; ++serial) {
        size_t length = 8 + random() % 33;
        std::string suffix = "_0000";
        for (size_t value = serial, position = 4; value != 0 && position > 0; value /= 36, --position) {
            suffix[position] = "0123456789abcdefghijklmnopqrstuvwxyz"[value % 36];
        }
        std::string text;
        while (text.size() + suffix.size() < length) {
            text += kWords[random() % std::size(kWords)];
            text += kSeparators[random() % std::size(kSeparators)];
        }
        text.resize(length - suffix.size());
        identifiers.push_back(text + suffix);
    }
    return identifiers;
}

// Each size's identifiers, made once: one set to intern and drop, another to look up.
const std::vector<std::string>& Identifiers(size_t count, unsigned int seed) {
    static std::map<std::pair<size_t, unsigned int>, std::vector<std::string>> cache;
    auto found = cache.find({count, seed});
    if (found == cache.end()) {
        found = cache.emplace(std::make_pair(count, seed), MakeIdentifiers(count, seed)).first;
    }
    return found->second;
}

std::vector<const std::string*> ShuffledOrder(const std::vector<std::string>& texts) {
    std::vector<const std::string*> order;
    order.reserve(texts.size());
    for (const std::string& text : texts) {
        order.push_back(&text);
    }
    std::shuffle(order.begin(), order.end(), std::mt19937(7));
    return order;
}

constexpr unsigned int kInternSeed = 1;
constexpr unsigned int kLookupSeed = 2;

// ---- the three string sets, behind one shape ------------------------------------------------------

// A lookup is an Add of an interned text: it gives a handle with a reference, which the caller
// keeps. The handles are released between rounds, outside the timing (BM_Copy times a release).
struct FixedStrings {
    std::vector<zn::FixedString> m_Held;
    std::vector<zn::FixedString> m_Found;
    void Reserve(size_t count) {
        m_Held.reserve(count);
        m_Found.reserve(count);
    }
    void Intern(const std::string& text) { m_Held.emplace_back(text.data(), static_cast<int>(text.size())); }
    const void* Lookup(const std::string& text) {
        return m_Found.emplace_back(text.data(), static_cast<int>(text.size())).ToChar();
    }
    void EndRound() { m_Found.clear(); }
    void Clear() {
        m_Held = std::vector<zn::FixedString>();
        m_Found = std::vector<zn::FixedString>();
    }
};

template <typename Set>
struct LockedSet {
    std::mutex m_Mutex;
    Set m_Set;
    void Reserve(size_t) {}
    void Intern(const std::string& text) {
        std::lock_guard<std::mutex> guard(m_Mutex);
        m_Set.insert(text);
    }
    const void* Lookup(const std::string& text) {
        std::lock_guard<std::mutex> guard(m_Mutex);
        auto found = m_Set.find(text);
        return found == m_Set.end() ? nullptr : found->data();
    }
    void EndRound() {}
    void Clear() { m_Set = Set(); }
};

struct StdUnorderedSet : LockedSet<std::unordered_set<std::string>> {};
struct AbslFlatHashSet : LockedSet<absl::flat_hash_set<std::string>> {};

void SetPerOperation(benchmark::State& state, size_t operations) {
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * operations));
    state.counters["per_op"] =
        benchmark::Counter(static_cast<double>(operations),
                           benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

// Interns count new texts; the set is emptied between iterations, outside the timing.
template <typename Strings>
void BM_Intern(benchmark::State& state) {
    const std::vector<std::string>& texts = Identifiers(static_cast<size_t>(state.range(0)), kInternSeed);
    Strings strings;
    for (auto _ : state) {
        strings.Reserve(texts.size());
        for (const std::string& text : texts) {
            strings.Intern(text);
        }
        state.PauseTiming();
        strings.Clear();
        state.ResumeTiming();
    }
    SetPerOperation(state, texts.size());
}

// Looks every interned text up again, in a shuffled order, each set behind its lock.
template <typename Strings>
void BM_Lookup(benchmark::State& state) {
    const std::vector<std::string>& texts = Identifiers(static_cast<size_t>(state.range(0)), kLookupSeed);
    std::vector<const std::string*> order = ShuffledOrder(texts);
    Strings strings;
    strings.Reserve(texts.size());
    for (const std::string& text : texts) {
        strings.Intern(text);
    }
    for (auto _ : state) {
        for (const std::string* text : order) {
            benchmark::DoNotOptimize(strings.Lookup(*text));
        }
        state.PauseTiming();
        strings.EndRound();
        state.ResumeTiming();
    }
    SetPerOperation(state, order.size());
    strings.Clear();
}

// Seven repetitions of each size up to 10^5, three of 10^6 (each of which interns a million texts).
#define STRING_SET_BENCHMARKS(Strings)                                                                   \
    BENCHMARK_TEMPLATE(BM_Intern, Strings)                                                               \
        ->Arg(10000)                                                                                     \
        ->Arg(100000)                                                                                    \
        ->Repetitions(7)                                                                                 \
        ->Unit(benchmark::kMillisecond);                                                                 \
    BENCHMARK_TEMPLATE(BM_Intern, Strings)->Arg(1000000)->Repetitions(3)->Unit(benchmark::kMillisecond); \
    BENCHMARK_TEMPLATE(BM_Lookup, Strings)                                                               \
        ->Arg(10000)                                                                                     \
        ->Arg(100000)                                                                                    \
        ->Repetitions(7)                                                                                 \
        ->Unit(benchmark::kMillisecond);                                                                 \
    BENCHMARK_TEMPLATE(BM_Lookup, Strings)->Arg(1000000)->Repetitions(3)->Unit(benchmark::kMillisecond)

STRING_SET_BENCHMARKS(FixedStrings);
STRING_SET_BENCHMARKS(StdUnorderedSet);
STRING_SET_BENCHMARKS(AbslFlatHashSet);

// ---- copy and compare -----------------------------------------------------------------------------

constexpr size_t kRing = 1024;

template <typename String>
std::vector<String> Ring() {
    const std::vector<std::string>& texts = Identifiers(kRing, 3);
    std::vector<String> ring;
    for (size_t index = 0; index < kRing; ++index) {
        // Neighbours share a text, so half of the comparisons are equal after a full byte compare.
        const std::string& text = texts[index / 2];
        ring.emplace_back(text.data(), text.size());
    }
    return ring;
}

template <typename String>
void BM_Copy(benchmark::State& state) {
    std::vector<String> ring = Ring<String>();
    size_t index = 0;
    for (auto _ : state) {
        String copy(ring[index++ % kRing]);
        benchmark::DoNotOptimize(copy);
    }
    SetPerOperation(state, 1);
}

template <typename String>
void BM_Compare(benchmark::State& state) {
    std::vector<String> ring = Ring<String>();
    size_t index = 0;
    for (auto _ : state) {
        bool equal = ring[index % kRing] == ring[(index + 1) % kRing];
        ++index;
        benchmark::DoNotOptimize(equal);
    }
    SetPerOperation(state, 1);
}

BENCHMARK_TEMPLATE(BM_Copy, zn::FixedString);
BENCHMARK_TEMPLATE(BM_Copy, std::string);
BENCHMARK_TEMPLATE(BM_Compare, zn::FixedString);
BENCHMARK_TEMPLATE(BM_Compare, std::string);

// ---- the summary -----------------------------------------------------------------------------------

double Median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values.empty() ? 0.0 : values[values.size() / 2];
}

// Keeps each run's seconds per operation for the table printed at the end, which gives the median
// of each benchmark's repetitions.
class SummaryReporter : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run>& runs) override {
        for (const Run& run : runs) {
            auto counter = run.counters.find("per_op");
            if (run.run_type == Run::RT_Iteration && counter != run.counters.end()) {
                // Keyed without the repetition count: "BM_Lookup<FixedStrings>/100000".
                std::string name =
                    run.run_name.function_name + (run.run_name.args.empty() ? "" : "/" + run.run_name.args);
                m_NanosecondsPerOp[name].push_back(counter->second.value * 1e9);
            }
        }
        ConsoleReporter::ReportRuns(runs);
    }

    double Get(const std::string& name) const {
        auto found = m_NanosecondsPerOp.find(name);
        return found == m_NanosecondsPerOp.end() ? 0.0 : Median(found->second);
    }

    void PrintTable() const {
        std::printf(
            "\nEach set alone, medians of the repetitions: per operation (ns) and FixedString's speed "
            "relative to each peer (peer time / FixedString time):\n");
        std::printf("%-8s %9s %12s %12s %12s %10s %10s\n", "", "strings", "FixedString", "unordered",
                    "flat_hash", "vs unord.", "vs absl");
        for (const char* operation : {"BM_Intern", "BM_Lookup"}) {
            for (const char* count : {"10000", "100000", "1000000"}) {
                double fixed = Get(std::string(operation) + "<FixedStrings>/" + count);
                double unordered = Get(std::string(operation) + "<StdUnorderedSet>/" + count);
                double absl = Get(std::string(operation) + "<AbslFlatHashSet>/" + count);
                std::printf("%-8s %9s %12.1f %12.1f %12.1f %9.2fx %9.2fx\n", operation + 3, count, fixed,
                            unordered, absl, fixed > 0 ? unordered / fixed : 0.0,
                            fixed > 0 ? absl / fixed : 0.0);
            }
        }
        for (const char* operation : {"BM_Copy", "BM_Compare"}) {
            double fixed = Get(std::string(operation) + "<zn::FixedString>");
            double standard = Get(std::string(operation) + "<std::string>");
            std::printf("%-8s  FixedString %.2f ns, std::string %.2f ns: %.1fx\n", operation + 3, fixed,
                        standard, fixed > 0 ? standard / fixed : 0.0);
        }
    }

private:
    std::map<std::string, std::vector<double>> m_NanosecondsPerOp;
};

// ---- paired rounds -------------------------------------------------------------------------------

// Here the three sets are built side by side in one process and measured in alternating rounds
// over the same texts, so each round compares them under the same conditions; the medians of the
// rounds are reported.

// The calling thread's processor time: time the thread spent waiting for a processor does not count.
double ThreadNanoseconds() {
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) * 1e9 + static_cast<double>(now.tv_nsec);
}

template <typename Strings>
double TimeLookups(Strings& strings, const std::vector<const std::string*>& order) {
    double start = ThreadNanoseconds();
    for (const std::string* text : order) {
        benchmark::DoNotOptimize(strings.Lookup(*text));
    }
    double nanoseconds = ThreadNanoseconds() - start;
    strings.EndRound();
    return nanoseconds / static_cast<double>(order.size());
}

template <typename Strings>
double TimeInterning(Strings& strings, const std::vector<std::string>& texts) {
    strings.Reserve(texts.size());
    double start = ThreadNanoseconds();
    for (const std::string& text : texts) {
        strings.Intern(text);
    }
    double nanoseconds = ThreadNanoseconds() - start;
    strings.Clear();
    return nanoseconds / static_cast<double>(texts.size());
}

struct PairedTimes {
    std::vector<double> m_Fixed, m_Unordered, m_Absl, m_VersusUnordered, m_VersusAbsl;
    void Add(double fixed, double unordered, double absl) {
        m_Fixed.push_back(fixed);
        m_Unordered.push_back(unordered);
        m_Absl.push_back(absl);
        m_VersusUnordered.push_back(unordered / fixed);
        m_VersusAbsl.push_back(absl / fixed);
    }
    void Print(const char* operation, size_t count) const {
        std::printf("%-8s %9zu %12.1f %12.1f %12.1f %9.2fx %9.2fx\n", operation, count, Median(m_Fixed),
                    Median(m_Unordered), Median(m_Absl), Median(m_VersusUnordered), Median(m_VersusAbsl));
    }
};

void PairedRounds(size_t count, int rounds) {
    const std::vector<std::string>& internTexts = Identifiers(count, kInternSeed);
    const std::vector<std::string>& lookupTexts = Identifiers(count, kLookupSeed);
    std::vector<const std::string*> order = ShuffledOrder(lookupTexts);
    FixedStrings fixed;
    StdUnorderedSet unordered;
    AbslFlatHashSet absl;
    PairedTimes interning;
    for (int round = 0; round < rounds; ++round) {
        interning.Add(TimeInterning(fixed, internTexts), TimeInterning(unordered, internTexts),
                      TimeInterning(absl, internTexts));
    }
    fixed.Reserve(count);
    for (const std::string& text : lookupTexts) {
        fixed.Intern(text);
        unordered.Intern(text);
        absl.Intern(text);
    }
    PairedTimes lookups;
    for (int round = 0; round < rounds; ++round) {
        lookups.Add(TimeLookups(fixed, order), TimeLookups(unordered, order), TimeLookups(absl, order));
    }
    interning.Print("Intern", count);
    lookups.Print("Lookup", count);
}

// ---- memory -----------------------------------------------------------------------------------------

// Bytes of the busy blocks of a heap, each with its header and rounding; entryBytes gets those of
// the blocks that start at one of entryBlocks.
size_t BusyBytes(zn::platform::PlatformHeap* heap, const std::unordered_set<const void*>& entryBlocks,
                 size_t& entryBytes) {
    zn::platform::HeapLock(heap);
    zn::platform::HeapWalkEntry entry{};
    size_t bytes = 0;
    entryBytes = 0;
    while (zn::platform::HeapWalk(heap, &entry)) {
        if (entry.wFlags & zn::platform::PROCESS_HEAP_ENTRY_BUSY) {
            bytes += entry.cbData + entry.cbOverhead;
            if (entryBlocks.count(entry.lpData) != 0) {
                entryBytes += entry.cbData + entry.cbOverhead;
            }
        }
    }
    zn::platform::HeapUnlock(heap);
    return bytes;
}

// Interns count new identifiers into an empty table and reports what each costs beyond its
// characters: the entry blocks, and the table's own blocks beside them (the buckets' arrays), all
// in the "GLOBAL" heap with its headers and rounding as a heap walk sees them; anything the
// run-time's allocator gave; and the table object's share.
void MeasureMemory(size_t count) {
    zn::CoreLibSDM::Shutdown();
    zn::CoreLibSDM::Init();
    std::vector<std::string> texts = MakeIdentifiers(count, 4);
    size_t characters = 0;
    for (const std::string& text : texts) {
        characters += text.size();
    }
    std::vector<zn::FixedString> held;
    held.reserve(count);
    std::unordered_set<const void*> entryBlocks;
    entryBlocks.reserve(count);
    zn::platform::PlatformHeap* heap = zn::platform::GetProcessHeap();
    size_t entryBytesBefore = 0;
    size_t heapBefore = BusyBytes(heap, entryBlocks, entryBytesBefore);
    size_t runTimeBefore = mallinfo2().uordblks;
    size_t indexBefore = zn::GlobalStringTable::GetIndexFootprint();
    for (const std::string& text : texts) {
        held.emplace_back(text.data(), static_cast<int>(text.size()));
    }
    double runTimeBytes = static_cast<double>(mallinfo2().uordblks) - static_cast<double>(runTimeBefore);
    double indexRequested = static_cast<double>(zn::GlobalStringTable::GetIndexFootprint() - indexBefore);
    // The set of block addresses comes from the run-time's allocator, after its count was taken.
    for (const zn::FixedString& string : held) {
        entryBlocks.insert(string.ToChar() - 8);
    }
    size_t entryBytes = 0;
    double heapBytes = static_cast<double>(BusyBytes(heap, entryBlocks, entryBytes) - heapBefore);
    double strings = static_cast<double>(count);
    double entryShare = static_cast<double>(entryBytes) - static_cast<double>(characters);
    double tableShare = sizeof(zn::GlobalStringTable);
    double total = heapBytes + runTimeBytes + tableShare - static_cast<double>(characters);
    std::printf(
        "%zu strings, %.1f characters on average: %.1f bytes per string beyond its characters\n"
        "    entry blocks beyond their characters %.1f, the table's other blocks in \"GLOBAL\" %.1f (%.1f as "
        "requested), run-time allocations %.1f, table object %.1f\n",
        count, static_cast<double>(characters) / strings, total / strings, entryShare / strings,
        (heapBytes - static_cast<double>(entryBytes)) / strings, indexRequested / strings,
        runTimeBytes / strings, tableShare / strings);
    held.clear();
}

}  // namespace

int main(int argc, char** argv) {
    // Interleaved repetitions unless the command line chooses.
    std::vector<char*> arguments(argv, argv + argc);
    std::string interleaving = "--benchmark_enable_random_interleaving=true";
    if (std::none_of(arguments.begin(), arguments.end(), [](const char* argument) {
            return std::strncmp(argument, "--benchmark_enable_random_interleaving", 38) == 0;
        })) {
        arguments.push_back(interleaving.data());
    }
    int argumentCount = static_cast<int>(arguments.size());
    zn::CoreLibSDM::Init();
    benchmark::Initialize(&argumentCount, arguments.data());
    if (benchmark::ReportUnrecognizedArguments(argumentCount, arguments.data())) {
        return 1;
    }
    SummaryReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    reporter.PrintTable();
    std::printf(
        "\nPaired rounds, medians (ns per operation, then FixedString's speed relative to each peer):\n");
    std::printf("%-8s %9s %12s %12s %12s %10s %10s\n", "", "strings", "FixedString", "unordered", "flat_hash",
                "vs unord.", "vs absl");
    PairedRounds(10000, 31);
    PairedRounds(100000, 15);
    PairedRounds(1000000, 5);
    std::printf("\nMemory:\n");
    MeasureMemory(100000);
    MeasureMemory(1000000);
    benchmark::Shutdown();
    zn::CoreLibSDM::Shutdown();
    return 0;
}
