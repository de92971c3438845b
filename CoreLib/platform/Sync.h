// Sync.h: the thread facts and the wait/wake primitive that the library's locks are built on.
#pragma once

#include <atomic>
#include <cstdint>

namespace zn::platform {

// The kernel's id of the calling thread (never 0), cached per thread.
uint32_t CurrentThreadId();

// Blocks while *word still holds expected; may return spuriously, callers re-check.
void FutexWait(std::atomic<uint32_t>* word, uint32_t expected);
// Wakes at most one thread blocked in FutexWait on word.
void FutexWakeOne(std::atomic<uint32_t>* word);
// Wakes every thread blocked in FutexWait on word.
void FutexWakeAll(std::atomic<uint32_t>* word);

// One processor pause hint, for spin loops.
inline void PauseHint() {
    __builtin_ia32_pause();
}

// Gives the rest of the time slice to another thread.
void YieldProcessor();

}  // namespace zn::platform
