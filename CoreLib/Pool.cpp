// Pool.cpp: the blocks of storage that pools build their elements in.
#include "CoreLib/Pool.h"

#include "CoreLib/MemoryManager.h"
#include "CoreLib/platform/RunTime.h"

#include <cstdlib>
#include <cstring>

namespace zn {

size_t MemoryTrackerPoolMemory::s_TotalMemoryUsed = 0;

PoolMemory::PoolMemory() : m_Next(nullptr), m_Memory(nullptr), m_Name(nullptr) {}

PoolMemory::PoolMemory(size_t size, const char* name)
    : m_Next(nullptr), m_Memory(MemoryManager::GlobalMalloc(size, 0)), m_Name(name) {
    if (m_Memory != nullptr) {
        std::memset(m_Memory, 0, size);
    }
}

PoolMemory::~PoolMemory() {
    if (m_Memory != nullptr) {
        MemoryManager::GlobalFree(m_Memory, 0);
    }
}

MemoryTrackerPoolMemory::MemoryTrackerPoolMemory(size_t size, const char* name) {
    m_Name = name;
    m_Memory = std::malloc(size);
    if (m_Memory != nullptr) {
        std::memset(m_Memory, 0, size);
        s_TotalMemoryUsed += size;
    }
}

MemoryTrackerPoolMemory::~MemoryTrackerPoolMemory() {
    if (m_Memory != nullptr) {
        s_TotalMemoryUsed -= platform::MallocUsableSize(m_Memory);
        std::free(m_Memory);
        // The storage is gone: the base destructor must not give it to "GLOBAL".
        m_Memory = nullptr;
    }
}

}  // namespace zn
