#include "util/memory.h"

#include <algorithm>
#include <cstdio>
#include <new>

#include <sys/mman.h>
#include <unistd.h>

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

std::unique_ptr<double[]> allocate_work_array(std::uint64_t count) {
    if (count > SIZE_MAX / sizeof(double)) return nullptr;
    std::unique_ptr<double[]> data;
    try {
        data.reset(new double[count]);
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
    const std::size_t bytes = static_cast<std::size_t>(count) * sizeof(double);
    advise_huge_pages(data.get(), bytes);
#ifdef __linux__
    // MADV_POPULATE_WRITE (Linux 5.14) faults the whole range in at once; older kernels
    // refuse the advice and the pages fault in on first use as usual.
    constexpr int populate_write = 23;
    constexpr std::size_t page = 4096;
    const auto start = reinterpret_cast<std::uintptr_t>(data.get());
    const std::uintptr_t first = (start + page - 1) & ~std::uintptr_t{page - 1};
    const std::uintptr_t last = (start + bytes) & ~std::uintptr_t{page - 1};
    if (bytes >= (std::size_t{4} << 20) && last > first)
        ::madvise(reinterpret_cast<void*>(first), last - first, populate_write);
#endif
    return data;
}

namespace {

std::uint64_t pages_to_bytes(long pages) {
    const long page_bytes = ::sysconf(_SC_PAGE_SIZE);
    if (pages <= 0 || page_bytes <= 0) return 0;
    return static_cast<std::uint64_t>(pages) * static_cast<std::uint64_t>(page_bytes);
}

// The "MemAvailable:" line of /proc/meminfo (in KiB there), 0 when absent.
std::uint64_t meminfo_available_bytes() {
    std::FILE* f = std::fopen("/proc/meminfo", "r");
    if (!f) return 0;
    std::uint64_t bytes = 0;
    char line[256];
    while (std::fgets(line, sizeof line, f)) {
        unsigned long long kib = 0;
        if (std::sscanf(line, "MemAvailable: %llu kB", &kib) == 1) {
            bytes = static_cast<std::uint64_t>(kib) * 1024;
            break;
        }
    }
    std::fclose(f);
    return bytes;
}

}  // namespace

std::uint64_t physical_memory_bytes() { return pages_to_bytes(::sysconf(_SC_PHYS_PAGES)); }

std::uint64_t available_memory_bytes() {
    const std::uint64_t physical = physical_memory_bytes();
    std::uint64_t available = meminfo_available_bytes();
    if (available == 0) available = pages_to_bytes(::sysconf(_SC_AVPHYS_PAGES));
    return physical > 0 ? std::min(available, physical) : available;
}

}  // namespace veltrane
