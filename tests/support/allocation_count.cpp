#include "tests/support/allocation_count.hpp"

#include <cstdlib>

#if defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define SORVEL_UNDER_SANITIZER
#endif
#endif
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define SORVEL_UNDER_SANITIZER
#endif

namespace {
thread_local std::size_t allocations = 0, allocatedBytes = 0;

void count(std::size_t bytes) {
    ++allocations;
    allocatedBytes += bytes;
}
} // namespace

#ifdef SORVEL_UNDER_SANITIZER

// The sanitizers own malloc; they offer a hook instead.
extern "C" int __sanitizer_install_malloc_and_free_hooks(void (*)(const volatile void*, std::size_t),
                                                         void (*)(const volatile void*));
namespace {
[[maybe_unused]] const int installed = __sanitizer_install_malloc_and_free_hooks(
    [](const volatile void*, std::size_t size) { count(size); }, [](const volatile void*) {});
} // namespace

#else

// operator new ends in malloc, so these three see everything.
extern "C" {
void* __libc_malloc(std::size_t);
void* __libc_calloc(std::size_t, std::size_t);
void* __libc_realloc(void*, std::size_t);

void* malloc(std::size_t size) {
    ::count(size);
    return __libc_malloc(size);
}
void* calloc(std::size_t count, std::size_t size) {
    ::count(count * size);
    return __libc_calloc(count, size);
}
void* realloc(void* p, std::size_t size) {
    ::count(size);
    return __libc_realloc(p, size);
}
}

#endif

AllocationCount::AllocationCount() : m_start(allocations), m_startBytes(allocatedBytes) {}
std::size_t AllocationCount::total() const { return allocations - m_start; }
std::size_t AllocationCount::bytes() const { return allocatedBytes - m_startBytes; }
