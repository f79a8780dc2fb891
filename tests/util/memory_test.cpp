#include "util/memory.h"

#include <gtest/gtest.h>

namespace veltrane {
namespace {

// The wide alignment probe trusts these figures to decide whether its buffers fit, so
// they must describe this machine: some memory installed, and never more available than
// installed (this runs on Linux, where both are published).
TEST(Memory, AvailableIsWithinPhysical) {
    const std::uint64_t physical = physical_memory_bytes();
    const std::uint64_t available = available_memory_bytes();
    EXPECT_GT(physical, std::uint64_t{64} << 20);
    EXPECT_GT(available, 0u);
    EXPECT_LE(available, physical);
}

}  // namespace
}  // namespace veltrane
