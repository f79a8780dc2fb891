// Sizes stored in a WAV file are untrusted: a header that claims far more data than the
// file holds must be refused before anything is allocated for it. The global operator
// new of this test binary records the largest request while a check is running.
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

void* operator new(std::size_t size) {
    if (tracking.load(std::memory_order_relaxed)) {
        std::size_t seen = largest_request.load(std::memory_order_relaxed);
        while (size > seen && !largest_request.compare_exchange_weak(seen, size)) {
        }
    }
    if (void* p = std::malloc(size == 0 ? 1 : size)) return p;
    throw std::bad_alloc();
}
void operator delete(void* p) noexcept { std::free(p); }
void operator delete(void* p, std::size_t) noexcept { std::free(p); }

namespace veltrane::test {
namespace {

// Decodes `file` and returns the largest single allocation made while doing so.
std::size_t largest_allocation_decoding(const bytes& file, wav_failure& failure) {
    wav_audio audio;
    largest_request = 0;
    tracking = true;
    failure = wav_decode(file, audio).failure;
    tracking = false;
    return largest_request;
}

TEST(WavReaderAllocation, HugeClaimedSizesAllocateNothingLarge) {
    const bytes fmt = fmt_body(1, 2, 48000, 16);
    struct {
        const char* what;
        bytes file;
        wav_failure expected;
    } cases[] = {
        {"data chunk of 4 GiB - 16", riff({{"fmt ", fmt}, {"data", bytes(16, 0), 0xFFFFFFF0u}}),
         wav_failure::truncated_data},
        {"unknown chunk of 2 GiB", riff({{"fmt ", fmt}, {"data", bytes(16, 0)}, {"LIST", bytes(16, 0), 0x7FFFFFFEu}}),
         wav_failure::truncated_chunk},
        {"unknown chunk of 4 GiB - 2", riff({{"LIST", bytes(16, 0), 0xFFFFFFFEu}, {"fmt ", fmt}}),
         wav_failure::truncated_chunk},
    };
    for (const auto& c : cases) {
        wav_failure failure = wav_failure::none;
        const std::size_t largest = largest_allocation_decoding(c.file, failure);
        EXPECT_EQ(failure, c.expected) << c.what;
        EXPECT_LT(largest, 4096u) << c.what;
    }

    // The tracker does see the sample array of a real file: 1000 stereo frames.
    wav_failure failure = wav_failure::none;
    EXPECT_GE(largest_allocation_decoding(riff({{"fmt ", fmt}, {"data", bytes(4000, 0)}}), failure),
              2000u * sizeof(double));
    EXPECT_EQ(failure, wav_failure::none);
}

}  // namespace
}  // namespace veltrane::test
