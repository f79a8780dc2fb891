#include "util/memory.h"

#include <cstdint>

#include <sys/mman.h>

namespace veltrane {

void advise_huge_pages(const void* data, std::size_t bytes) {
#ifdef MADV_HUGEPAGE
    constexpr std::uintptr_t huge_page_bytes = std::uintptr_t{2} << 20;  // x86-64 and arm64 with 4 KiB base pages
    if (bytes < 2 * huge_page_bytes) return;
    const auto start = reinterpret_cast<std::uintptr_t>(data);
    const std::uintptr_t first = (start + huge_page_bytes - 1) & ~(huge_page_bytes - 1);
    const std::uintptr_t last = (start + bytes) & ~(huge_page_bytes - 1);
    if (last > first) ::madvise(reinterpret_cast<void*>(first), last - first, MADV_HUGEPAGE);
#else
    (void)data;
    (void)bytes;
#endif
}

}  // namespace veltrane
