// CriticalSection.cpp: a futex lock with owner-tracked recursion.
#include "CoreLib/CriticalSection.h"

#include "CoreLib/platform/Sync.h"

namespace zn {

CriticalSection::CriticalSection(uint32_t spinCount) : m_SpinCount(spinCount) {}

bool CriticalSection::TryAcquire() {
    uint32_t expected = 0;
    return m_State.compare_exchange_strong(expected, 1, std::memory_order_acquire, std::memory_order_relaxed);
}

bool CriticalSection::IsOwnedByCurrentThread() const {
    return m_Owner.load(std::memory_order_relaxed) == platform::CurrentThreadId();
}

void CriticalSection::WaitForRelease() {
    // Spin first: the holders of this lock keep it for a few hundred cycles at most.
    for (uint32_t spin = 0; spin < m_SpinCount; ++spin) {
        if (m_State.load(std::memory_order_relaxed) == 0 && TryAcquire()) {
            return;
        }
        platform::PauseHint();
    }
    // Marking the word 2 tells the releasing thread that it has to wake someone.
    uint32_t previous = m_State.exchange(2, std::memory_order_acquire);
    while (previous != 0) {
        platform::FutexWait(&m_State, 2);
        previous = m_State.exchange(2, std::memory_order_acquire);
    }
}

void CriticalSection::Lock() {
    uint32_t self = platform::CurrentThreadId();
    if (m_Owner.load(std::memory_order_relaxed) == self) {
        ++m_Recursion;
        return;
    }
    if (!TryAcquire()) {
        WaitForRelease();
    }
    m_Owner.store(self, std::memory_order_relaxed);
    m_Recursion = 1;
}

void CriticalSection::Unlock() {
    if (--m_Recursion != 0) {
        return;
    }
    m_Owner.store(0, std::memory_order_relaxed);
    if (m_State.exchange(0, std::memory_order_release) == 2) {
        platform::FutexWakeOne(&m_State);
    }
}

bool CriticalSection::TryLock() {
    uint32_t self = platform::CurrentThreadId();
    if (m_Owner.load(std::memory_order_relaxed) == self) {
        ++m_Recursion;
        return true;
    }
    if (!TryAcquire()) {
        return false;
    }
    m_Owner.store(self, std::memory_order_relaxed);
    m_Recursion = 1;
    return true;
}

}  // namespace zn
