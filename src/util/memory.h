#pragma once
// Memory hints for the large work arrays (decoded audio, correlation buffers).
#include <cstddef>

namespace veltrane {

// Asks the kernel to back a large, not yet touched buffer with transparent huge pages.
// Page faults dominate the cost of filling hundreds of megabytes of fresh memory (on a
// virtual machine each 4 KiB fault is expensive); one fault per 2 MiB page removes most of
// it. Only a hint: failure or an unsupported platform changes nothing.
void advise_huge_pages(const void* data, std::size_t bytes);

}  // namespace veltrane
