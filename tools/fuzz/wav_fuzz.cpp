// libFuzzer harness for the WAV decoder: any byte string must decode or fail cleanly, and
// a decoded record must be self-consistent. Decoded samples are also fed to the integer
// encoder, which must cope with any double (huge, subnormal, beyond full scale).
#include <cstdint>
#include <cstdlib>

#include "audio/wav.h"

namespace {
void require(bool condition) {
    if (!condition) std::abort();
}
}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace veltrane;
    wav_audio audio;
    const wav_decode_result result = wav_decode({data, size}, audio);
    require((result.failure == wav_failure::non_finite_sample) == !result.error_text.empty());
    if (!result.ok()) {
        require(audio.samples.empty() && audio.extra_chunks.empty() && audio.frame_count == 0 && audio.channels == 0);
        return 0;
    }
    require(audio.channels != 0 && audio.sample_rate != 0);
    require(audio.samples.size() == audio.frame_count * audio.channels);
    require(audio.extra_chunks.size() % 2 == 0 && audio.extra_chunks.size() <= size);
    const std::uint32_t code = audio.format_code;
    require(code == 16 || code == 24 || code == 32 || code == 288 || code == 320);
    std::vector<std::uint8_t> encoded;
    encode_pcm_samples(24, audio.samples, encoded);
    require(encoded.size() == 3 * audio.samples.size());
    return 0;
}
