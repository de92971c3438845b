// bench_clock: how closely GameClock's frame cap holds a frame rate, against a deadline sleep with
// the standard library, and the cost of a Random draw against the standard and run-time generators.
#include "CoreLib/CoreLibSDM.h"
#include "CoreLib/GameClock.h"
#include "CoreLib/Random.h"
#include "CoreLib/platform/Crt.h"

#include <benchmark/benchmark.h>

#include <chrono>
#include <cmath>
#include <cstdlib>
#include <random>
#include <thread>
#include <vector>

namespace {

using SteadyClock = std::chrono::steady_clock;

constexpr int kFramesPerSecond = 60;
constexpr int kFrames = 120;

// Busy work standing in for a frame's game code, so the cap has a varying remainder to wait.
void SimulateWork(std::chrono::microseconds work) {
    auto until = SteadyClock::now() + work;
    while (SteadyClock::now() < until) {
    }
}

// Frame lengths measured outside the clock under test, reduced to the counters of the report.
void ReportFrames(benchmark::State& state, const std::vector<double>& frameMicroseconds,
                  double totalSeconds) {
    double target = 1000000.0 / kFramesPerSecond;
    double sum = 0.0;
    double worst = 0.0;
    for (double frame : frameMicroseconds) {
        sum += frame;
        worst = std::max(worst, std::fabs(frame - target));
    }
    double mean = sum / static_cast<double>(frameMicroseconds.size());
    double squares = 0.0;
    for (double frame : frameMicroseconds) {
        squares += (frame - mean) * (frame - mean);
    }
    state.counters["fps"] = static_cast<double>(frameMicroseconds.size()) / totalSeconds;
    state.counters["mean_us"] = mean;
    state.counters["jitter_us"] = std::sqrt(squares / static_cast<double>(frameMicroseconds.size()));
    state.counters["worst_us"] = worst;
}

// One benchmark iteration is one frame: work, then the clock's Tick.
void FrameCapGameClock(benchmark::State& state) {
    std::chrono::microseconds work(state.range(0));
    zn::GameClock clock("bench");
    clock.Init(kFramesPerSecond);
    clock.Tick();
    std::vector<double> frames;
    frames.reserve(kFrames);
    auto begin = SteadyClock::now();
    auto previous = begin;
    for (auto _ : state) {
        SimulateWork(work);
        clock.Tick();
        auto now = SteadyClock::now();
        frames.push_back(std::chrono::duration<double, std::micro>(now - previous).count());
        previous = now;
    }
    ReportFrames(state, frames, std::chrono::duration<double>(previous - begin).count());
}

// The usual hand-made cap: sleep until the next frame's deadline on the standard clock.
void FrameCapSleepUntil(benchmark::State& state) {
    std::chrono::microseconds work(state.range(0));
    auto period = std::chrono::nanoseconds(1000000000 / kFramesPerSecond);
    std::vector<double> frames;
    frames.reserve(kFrames);
    auto begin = SteadyClock::now();
    auto previous = begin;
    auto deadline = begin;
    for (auto _ : state) {
        SimulateWork(work);
        deadline += period;
        std::this_thread::sleep_until(deadline);
        auto now = SteadyClock::now();
        frames.push_back(std::chrono::duration<double, std::micro>(now - previous).count());
        previous = now;
    }
    ReportFrames(state, frames, std::chrono::duration<double>(previous - begin).count());
}

void DrawRandom(benchmark::State& state) {
    zn::Random random;
    random.Seed(12345, zn::Random::kDefaultSize);
    for (auto _ : state) {
        benchmark::DoNotOptimize(random.GetRand());
    }
}

void DrawRandomRange(benchmark::State& state) {
    zn::Random random;
    random.Seed(12345, zn::Random::kDefaultSize);
    for (auto _ : state) {
        benchmark::DoNotOptimize(random.GetRand(1, 6));
    }
}

void DrawMinstd(benchmark::State& state) {
    std::minstd_rand generator(12345);
    for (auto _ : state) {
        benchmark::DoNotOptimize(generator());
    }
}

void DrawMinstdRange(benchmark::State& state) {
    std::minstd_rand generator(12345);
    std::uniform_int_distribution<int> die(1, 6);
    for (auto _ : state) {
        benchmark::DoNotOptimize(die(generator));
    }
}

void DrawGlibcRand(benchmark::State& state) {
    std::srand(12345);
    for (auto _ : state) {
        benchmark::DoNotOptimize(std::rand());
    }
}

void DrawCrtRand(benchmark::State& state) {
    zn::platform::CrtSrand(12345);
    for (auto _ : state) {
        benchmark::DoNotOptimize(zn::platform::CrtRand());
    }
}

BENCHMARK(FrameCapGameClock)
    ->Name("FrameCap60/corelib_gameclock")
    ->Arg(0)
    ->Arg(5000)
    ->Iterations(kFrames)
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);
BENCHMARK(FrameCapSleepUntil)
    ->Name("FrameCap60/std_sleep_until")
    ->Arg(0)
    ->Arg(5000)
    ->Iterations(kFrames)
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);
BENCHMARK(DrawRandom)->Name("Draw/corelib_random");
BENCHMARK(DrawMinstd)->Name("Draw/std_minstd_rand");
BENCHMARK(DrawGlibcRand)->Name("Draw/glibc_rand");
BENCHMARK(DrawCrtRand)->Name("Draw/corelib_crt_rand");
BENCHMARK(DrawRandomRange)->Name("DrawDie/corelib_random");
BENCHMARK(DrawMinstdRange)->Name("DrawDie/std_minstd_uniform_int");

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
