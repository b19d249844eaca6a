#pragma once

#include <cstddef>

/// Counts the heap allocations of the thread that makes it, from construction on: operator new,
/// malloc, calloc and realloc alike. Link allocation_count.cpp, which takes their place.
class AllocationCount {
public:
    AllocationCount();
    std::size_t total() const;
    std::size_t bytes() const; ///< asked for; what was freed again counts too

private:
    std::size_t m_start, m_startBytes;
};
