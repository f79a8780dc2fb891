#pragma once
// Builds WAV files byte by byte for tests, independently of the product's writer, so that
// reader tests and command tests do not depend on the code they check.
#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace veltrane::test {

using bytes = std::vector<std::uint8_t>;

void put_u16(bytes& b, std::uint32_t v);
void put_u32(bytes& b, std::uint32_t v);

struct chunk {
    chunk(std::string id_, bytes body_, std::optional<std::uint32_t> size_ = std::nullopt, bool pad_ = true)
        : id(std::move(id_)), body(std::move(body_)), size(size_), pad(pad_) {}
    std::string id;                     // four characters
    bytes body;
    std::optional<std::uint32_t> size;  // size field to store; default body.size()
    bool pad = true;                    // add the pad byte after an odd-sized body
};

// A plain "fmt " body (16 bytes): tag, channels, rate, byte rate, block align, bits.
bytes fmt_body(std::uint16_t tag, std::uint16_t channels, std::uint32_t rate, std::uint16_t bits);
// An extensible "fmt " body (40 bytes) whose SubFormat starts with `subformat` (1 or 3).
bytes fmt_extensible_body(std::uint16_t channels, std::uint32_t rate, std::uint16_t bits,
                          std::uint16_t subformat, std::uint32_t channel_mask);

// "RIFF" + size + "WAVE" followed by the chunks in order.
bytes riff(const std::vector<chunk>& chunks);

// Encodes normalised samples the way a WAV file stores them: integer codes are
// llround(clamp(x, -1, 1) * (2^(bits-1) - 1)); float formats store the value.
bytes encode_samples(std::uint32_t format_code, const std::vector<double>& samples);

// A complete plain WAV file in one of the five formats (format_code 16, 24, 32, 288, 320).
bytes wav_file(std::uint32_t rate, std::uint16_t channels, std::uint32_t format_code,
               const std::vector<double>& samples, bool extensible = false);

void write_bytes(const std::string& path, const bytes& data);
bytes read_bytes(const std::string& path);

// Writes a WAV file; returns the path for convenience.
std::string write_wav(const std::string& path, std::uint32_t rate, std::uint16_t channels,
                      std::uint32_t format_code, const std::vector<double>& samples);

// Interleaved sine: amplitude * sin(2 pi f t + phase) on every channel.
std::vector<double> sine(std::uint64_t frames, std::uint16_t channels, double freq_hz, double rate_hz,
                         double amplitude, double phase = 0.0);

// Deterministic white noise in [-amplitude, amplitude], interleaved.
std::vector<double> noise(std::uint64_t frames, std::uint16_t channels, double amplitude, std::uint32_t seed = 1);

}  // namespace veltrane::test
