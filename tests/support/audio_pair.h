#pragma once
// In-memory inputs for the check tests: wav_audio records built straight from sample
// vectors, without going through files.
#include <cstdint>
#include <vector>

#include "audio/wav.h"

namespace veltrane::test {

// `samples` interleaved; format_code 24 (integer) unless given.
inline wav_audio audio_from(std::vector<double> samples, std::uint32_t channels = 1, std::uint32_t rate = 48000,
                            std::uint32_t format_code = 24) {
    wav_audio a;
    a.sample_rate = rate;
    a.channels = channels;
    a.format_code = format_code;
    a.frame_count = channels ? samples.size() / channels : 0;
    a.samples = std::move(samples);
    return a;
}

}  // namespace veltrane::test
