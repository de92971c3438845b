// Sync.cpp: thread ids and futex waits.
#include "CoreLib/platform/Sync.h"

#include <linux/futex.h>
#include <sched.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <climits>

namespace zn::platform {

namespace {
// Initial-exec keeps the cached id one instruction away; every lock of the library reads it.
__attribute__((tls_model("initial-exec"))) thread_local uint32_t t_ThreadId = 0;

long Futex(std::atomic<uint32_t>* word, int operation, uint32_t value) {
    static_assert(sizeof(std::atomic<uint32_t>) == sizeof(uint32_t), "futex word must be 32 bits");
    return syscall(SYS_futex, reinterpret_cast<uint32_t*>(word), operation, value, nullptr, nullptr, 0);
}
}  // namespace

uint32_t CurrentThreadId() {
    if (t_ThreadId == 0) {
        t_ThreadId = static_cast<uint32_t>(syscall(SYS_gettid));
    }
    return t_ThreadId;
}

void FutexWait(std::atomic<uint32_t>* word, uint32_t expected) {
    Futex(word, FUTEX_WAIT_PRIVATE, expected);
}

void FutexWakeOne(std::atomic<uint32_t>* word) {
    Futex(word, FUTEX_WAKE_PRIVATE, 1);
}

void FutexWakeAll(std::atomic<uint32_t>* word) {
    Futex(word, FUTEX_WAKE_PRIVATE, INT_MAX);
}

void YieldProcessor() {
    sched_yield();
}

}  // namespace zn::platform
