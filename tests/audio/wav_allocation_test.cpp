// Sizes stored in a WAV file are untrusted: a header claiming far more than the file holds
// must be refused before anything is allocated for it. This binary's operator new records
// the largest request while a decode runs.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <new>

#include "audio/wav.h"
#include "support/wav_bytes.h"

namespace {
std::atomic<bool> tracking{false};
std::atomic<std::size_t> largest_request{0};
}  // namespace

[[gnu::noinline]] void* operator new(std::size_t size) {
    if (tracking && size > largest_request) largest_request = size;
    if (void* p = std::malloc(size == 0 ? 1 : size)) return p;
    throw std::bad_alloc();
}
// Not inlined, so the compiler does not pair the free() with a built-in operator new.
[[gnu::noinline]] void operator delete(void* p) noexcept { std::free(p); }
[[gnu::noinline]] void operator delete(void* p, std::size_t) noexcept { std::free(p); }

namespace veltrane::test {
namespace {

std::size_t largest_allocation_decoding(const bytes& file, wav_failure expected) {
    wav_audio audio;
    largest_request = 0;
    tracking = true;
    const wav_failure failure = wav_decode(file, audio).failure;
    tracking = false;
    EXPECT_EQ(failure, expected);
    return largest_request;
}

TEST(WavReaderAllocation, HugeClaimedSizesAllocateNothingLarge) {
    const bytes fmt = fmt_body(1, 2, 48000, 16), body(16, 0);
    EXPECT_LT(largest_allocation_decoding(riff({{"fmt ", fmt}, {"data", body, 0xFFFFFFF0u}}), wav_failure::truncated_data),
              4096u);
    EXPECT_LT(largest_allocation_decoding(riff({{"fmt ", fmt}, {"data", body}, {"LIST", body, 0x7FFFFFFEu}}),
                                          wav_failure::truncated_chunk),
              4096u);
    // The tracker does see the sample array of a real file: 1000 stereo frames.
    EXPECT_GE(largest_allocation_decoding(riff({{"fmt ", fmt}, {"data", bytes(4000, 0)}}), wav_failure::none),
              2000u * sizeof(double));
}

}  // namespace
}  // namespace veltrane::test
