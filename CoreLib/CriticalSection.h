// CriticalSection.h: the library's recursive lock, and its scope guard.
#pragma once

#include <atomic>
#include <cstdint>

namespace zn {

// A recursive lock that spins a while before it sleeps, so short waits stay off the kernel.
class CriticalSection {
public:
    static constexpr uint32_t kDefaultSpinCount = 4000;

    explicit CriticalSection(uint32_t spinCount = kDefaultSpinCount);
    ~CriticalSection() = default;
    CriticalSection(const CriticalSection&) = delete;
    CriticalSection& operator=(const CriticalSection&) = delete;

    // Enters the lock, waiting as long as another thread holds it; re-entry by the owner nests.
    void Lock();
    // Leaves one level of nesting; the last one lets a waiter in.
    void Unlock();
    // Enters only if that is possible at once; true on success.
    bool TryLock();

    uint32_t GetSpinCount() const { return m_SpinCount; }
    // True when the calling thread holds the lock.
    bool IsOwnedByCurrentThread() const;

private:
    bool TryAcquire();
    void WaitForRelease();

    // 0 free, 1 held, 2 held and another thread may be asleep on it.
    std::atomic<uint32_t> m_State{0};
    // Thread id of the holder, 0 when free; written only by the holder.
    std::atomic<uint32_t> m_Owner{0};
    // Nesting depth of the holder; touched only by the holder.
    uint32_t m_Recursion = 0;
    uint32_t m_SpinCount;
};

// Holds a CriticalSection for the lifetime of the guard.
class CSLock {
public:
    explicit CSLock(CriticalSection* section) : m_Section(section) { m_Section->Lock(); }
    ~CSLock() { m_Section->Unlock(); }
    CSLock(const CSLock&) = delete;
    CSLock& operator=(const CSLock&) = delete;

private:
    CriticalSection* m_Section;
};

// Holds a CriticalSection for the lifetime of the guard when there is one: for locks of services
// that may not exist yet, or any more.
class CSLockIfAny {
public:
    explicit CSLockIfAny(CriticalSection* section) : m_Section(section) {
        if (m_Section != nullptr) {
            m_Section->Lock();
        }
    }
    ~CSLockIfAny() {
        if (m_Section != nullptr) {
            m_Section->Unlock();
        }
    }
    CSLockIfAny(const CSLockIfAny&) = delete;
    CSLockIfAny& operator=(const CSLockIfAny&) = delete;

private:
    CriticalSection* m_Section;
};

}  // namespace zn
