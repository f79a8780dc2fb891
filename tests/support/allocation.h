#pragma once
// The test binary's own global operator new: it can record the largest request and fail
// requests above a limit with std::bad_alloc, as exhausted memory would. This reaches the
// degraded paths of the product (a page that cannot be built, a spectrum without its work
// buffer, an alignment without its channel copies) without any hook in the product, and
// shows that sizes taken from hostile files allocate nothing large.
#include <cstddef>

namespace veltrane::test {

// While alive, every request of more than `bytes` throws std::bad_alloc.
class allocation_limit {
public:
    explicit allocation_limit(std::size_t bytes);
    ~allocation_limit();
    allocation_limit(const allocation_limit&) = delete;
    allocation_limit& operator=(const allocation_limit&) = delete;
};

// While alive, records the largest request made.
class allocation_tracker {
public:
    allocation_tracker();
    ~allocation_tracker();
    allocation_tracker(const allocation_tracker&) = delete;
    allocation_tracker& operator=(const allocation_tracker&) = delete;
    std::size_t largest() const;
};

}  // namespace veltrane::test
