// Counts every call of the global operator new in the binary, the library's
// included: the benchmarks read the counter around their measured loops to
// prove what allocates on the hot path and what does not.
#include <cstdint>
#include <cstdlib>
#include <new>

#include "bench.h"

namespace {

// The benchmark processes are single-threaded; relaxed atomics keep the
// counter exact anyway should a library thread ever allocate.
std::uint64_t gAllocations = 0;

void* Allocate(std::size_t size) {
  __atomic_fetch_add(&gAllocations, 1, __ATOMIC_RELAXED);
  if (size == 0) size = 1;
  for (;;) {
    if (void* p = std::malloc(size)) return p;
    std::new_handler handler = std::get_new_handler();
    if (!handler) throw std::bad_alloc();
    handler();
  }
}

void* AllocateNoThrow(std::size_t size) noexcept {
  __atomic_fetch_add(&gAllocations, 1, __ATOMIC_RELAXED);
  return std::malloc(size == 0 ? 1 : size);
}

}  // namespace

namespace bench {
std::uint64_t Allocations() { return __atomic_load_n(&gAllocations, __ATOMIC_RELAXED); }
}  // namespace bench

void* operator new(std::size_t size) { return Allocate(size); }
void* operator new[](std::size_t size) { return Allocate(size); }
void* operator new(std::size_t size, std::nothrow_t const&) noexcept { return AllocateNoThrow(size); }
void* operator new[](std::size_t size, std::nothrow_t const&) noexcept { return AllocateNoThrow(size); }
void operator delete(void* p) noexcept { std::free(p); }
void operator delete[](void* p) noexcept { std::free(p); }
void operator delete(void* p, std::size_t) noexcept { std::free(p); }
void operator delete[](void* p, std::size_t) noexcept { std::free(p); }
void operator delete(void* p, std::nothrow_t const&) noexcept { std::free(p); }
void operator delete[](void* p, std::nothrow_t const&) noexcept { std::free(p); }
