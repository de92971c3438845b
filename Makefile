# The two commands of the README, and the pieces they are made of. Every target installs what is
# missing and configures what is not configured, so a fresh Debian 12 machine needs nothing else.
BUILD_DIR ?= build
ASAN_BUILD_DIR ?= build-asan
TSAN_BUILD_DIR ?= build-tsan
BENCH_BUILD_DIR ?= build-bench
FUZZ_BUILD_DIR ?= build-fuzz
JOBS ?= $(shell nproc)
CMAKE_FLAGS ?=

.PHONY: all deps build build-asan build-tsan build-fuzz demo test test-normal test-asan test-tsan test-fuzz bench format clean

all: build

deps:
	@bash scripts/install-deps.sh

$(BUILD_DIR)/build.ninja: | deps
	cmake -S . -B $(BUILD_DIR) -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo $(CMAKE_FLAGS)

$(ASAN_BUILD_DIR)/build.ninja: | deps
	cmake -S . -B $(ASAN_BUILD_DIR) -G Ninja -DCMAKE_BUILD_TYPE=Debug -DCORELIB_SANITIZE=address,undefined \
	    -DCORELIB_BUILD_TOOLS=OFF $(CMAKE_FLAGS)

$(TSAN_BUILD_DIR)/build.ninja: | deps
	cmake -S . -B $(TSAN_BUILD_DIR) -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCORELIB_SANITIZE=thread \
	    -DCORELIB_BUILD_TOOLS=OFF $(CMAKE_FLAGS)

# The fuzz targets need clang; the library is instrumented for coverage as well as for the address
# and undefined-behaviour sanitizers. The pak tool is built too: it writes the seed corpus.
$(FUZZ_BUILD_DIR)/build.ninja: | deps
	CC=clang CXX=clang++ cmake -S . -B $(FUZZ_BUILD_DIR) -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
	    -DCORELIB_SANITIZE=address,undefined,fuzzer-no-link -DCORELIB_BUILD_TESTS=OFF -DCORELIB_BUILD_TOOLS=ON \
	    -DCORELIB_BUILD_FUZZ=ON $(CMAKE_FLAGS)

$(BENCH_BUILD_DIR)/build.ninja: | deps
	cmake -S . -B $(BENCH_BUILD_DIR) -G Ninja -DCMAKE_BUILD_TYPE=Release -DCORELIB_BUILD_TESTS=OFF \
	    -DCORELIB_BUILD_TOOLS=OFF -DCORELIB_BUILD_BENCH=ON $(CMAKE_FLAGS)

build: deps $(BUILD_DIR)/build.ninja
	cmake --build $(BUILD_DIR) -j $(JOBS)

build-asan: deps $(ASAN_BUILD_DIR)/build.ninja
	cmake --build $(ASAN_BUILD_DIR) -j $(JOBS)

build-tsan: deps $(TSAN_BUILD_DIR)/build.ninja
	cmake --build $(TSAN_BUILD_DIR) -j $(JOBS)

build-fuzz: deps $(FUZZ_BUILD_DIR)/build.ninja
	cmake --build $(FUZZ_BUILD_DIR) -j $(JOBS)

# Runs the demo host on the sample media folder; what it writes stays in the working directory.
demo: build
	./$(BUILD_DIR)/tools/demo/corelib-demo samples

test-normal: build
	cd $(BUILD_DIR) && ctest -j $(JOBS) --output-on-failure --no-tests=error

test-asan: build-asan
	cd $(ASAN_BUILD_DIR) && ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 \
	    UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 ctest -j $(JOBS) --output-on-failure --no-tests=error

# The suites that run threads against each other, under ThreadSanitizer.
CONCURRENCY_TESTS = Thread|Concurren|CriticalSection|Interlocked|ManyThreads
test-tsan: build-tsan
	cd $(TSAN_BUILD_DIR) && TSAN_OPTIONS=halt_on_error=1:second_deadlock_stack=1 \
	    ctest -j $(JOBS) --output-on-failure --no-tests=error -R '$(CONCURRENCY_TESTS)'

# The fuzz targets, each for a bounded time (CORELIB_FUZZ_SECONDS, 45 by default), from seeds the
# tools write.
test-fuzz: build-fuzz
	cd $(FUZZ_BUILD_DIR) && ASAN_OPTIONS=detect_leaks=1 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
	    ctest --output-on-failure --no-tests=error -L fuzz

# Every test, in the normal build and under AddressSanitizer with UndefinedBehaviorSanitizer, the
# concurrency suites under ThreadSanitizer, and the fuzz targets.
test: test-normal test-asan test-tsan test-fuzz

bench: deps $(BENCH_BUILD_DIR)/build.ninja
	cmake --build $(BENCH_BUILD_DIR) -j $(JOBS)
	@for program in $(BENCH_BUILD_DIR)/bench/bench_*; do echo "== $$program"; $$program; done

format:
	find CoreLib tests tools bench -name '*.h' -o -name '*.cpp' | xargs clang-format -i

clean:
	rm -rf $(BUILD_DIR) $(ASAN_BUILD_DIR) $(TSAN_BUILD_DIR) $(FUZZ_BUILD_DIR) $(BENCH_BUILD_DIR)
