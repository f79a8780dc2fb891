// Sizes stored in a WAV file are untrusted: a header claiming far more than the file holds
// must be refused before anything is allocated for it. The test binary's operator new
// records the largest request while a decode runs.
#include <gtest/gtest.h>

#include "audio/wav.h"
#include "support/allocation.h"
#include "support/wav_bytes.h"

namespace veltrane::test {
namespace {

std::size_t largest_allocation_decoding(const bytes& file, wav_failure expected) {
    wav_audio audio;
    allocation_tracker tracker;
    const wav_failure failure = wav_decode(file, audio).failure;
    EXPECT_EQ(failure, expected);
    return tracker.largest();
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
