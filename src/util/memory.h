#pragma once
// Memory hints for the large work arrays (decoded audio, correlation buffers), and how
// much memory the machine can still give.
#include <cstddef>
#include <cstdint>
#include <memory>

namespace veltrane {

// Asks the kernel to back a large, not yet touched buffer with transparent huge pages.
// Page faults dominate the cost of filling hundreds of megabytes of fresh memory (on a
// virtual machine each 4 KiB fault is expensive); one fault per 2 MiB page removes most of
// it. Only a hint: failure or an unsupported platform changes nothing.
void advise_huge_pages(const void* data, std::size_t bytes);

// A per-frame work array of `count` doubles, uninitialised, or null when the memory
// cannot be had (the caller degrades as its check describes). A large array is backed
// with huge pages and populated in one call instead of one page fault per 4 KiB on its
// first write: on a virtual machine those faults cost as much as the check's own work.
std::unique_ptr<double[]> allocate_work_array(std::uint64_t count);

// Installed physical memory in bytes; 0 when the platform cannot tell.
std::uint64_t physical_memory_bytes();

// Bytes a new allocation can still be backed by without swapping or the kernel killing a
// process: the kernel's MemAvailable estimate (free memory plus reclaimable caches), or,
// where that is not published, the free physical pages. Never more than
// physical_memory_bytes(). 0 when the platform cannot tell.
std::uint64_t available_memory_bytes();

}  // namespace veltrane
