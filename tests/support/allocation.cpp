#include "support/allocation.h"

#include <atomic>
#include <cstdlib>
#include <limits>
#include <new>

namespace {
std::atomic<std::size_t> limit{std::numeric_limits<std::size_t>::max()};
std::atomic<bool> tracking{false};
std::atomic<std::size_t> largest_request{0};
}  // namespace

[[gnu::noinline]] void* operator new(std::size_t size) {
    if (tracking && size > largest_request) largest_request = size;
    if (size > limit) throw std::bad_alloc();
    if (void* p = std::malloc(size == 0 ? 1 : size)) return p;
    throw std::bad_alloc();
}
[[gnu::noinline]] void* operator new[](std::size_t size) { return operator new(size); }
// Not inlined, so the compiler does not pair the free() with a built-in operator new.
[[gnu::noinline]] void operator delete(void* p) noexcept { std::free(p); }
[[gnu::noinline]] void operator delete(void* p, std::size_t) noexcept { std::free(p); }
[[gnu::noinline]] void operator delete[](void* p) noexcept { std::free(p); }
[[gnu::noinline]] void operator delete[](void* p, std::size_t) noexcept { std::free(p); }

namespace veltrane::test {

allocation_limit::allocation_limit(std::size_t bytes) { limit = bytes; }
allocation_limit::~allocation_limit() { limit = std::numeric_limits<std::size_t>::max(); }

allocation_tracker::allocation_tracker() {
    largest_request = 0;
    tracking = true;
}
allocation_tracker::~allocation_tracker() { tracking = false; }
std::size_t allocation_tracker::largest() const { return largest_request; }

}  // namespace veltrane::test
