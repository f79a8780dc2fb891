#include "support/wav_bytes.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <fstream>
#include <iterator>
#include <random>
#include <stdexcept>

namespace veltrane::test {

void put_u16(bytes& b, std::uint32_t v) {
    b.push_back(static_cast<std::uint8_t>(v & 0xFF));
    b.push_back(static_cast<std::uint8_t>((v >> 8) & 0xFF));
}

void put_u32(bytes& b, std::uint32_t v) {
    put_u16(b, v & 0xFFFF);
    put_u16(b, v >> 16);
}

bytes fmt_body(std::uint16_t tag, std::uint16_t channels, std::uint32_t rate, std::uint16_t bits) {
    bytes b;
    put_u16(b, tag);
    put_u16(b, channels);
    put_u32(b, rate);
    put_u32(b, rate * channels * (bits / 8u));
    put_u16(b, channels * (bits / 8u));
    put_u16(b, bits);
    return b;
}

bytes fmt_extensible_body(std::uint16_t channels, std::uint32_t rate, std::uint16_t bits,
                          std::uint16_t subformat, std::uint32_t channel_mask) {
    bytes b = fmt_body(0xFFFE, channels, rate, bits);
    put_u16(b, 22);    // extension size
    put_u16(b, bits);  // valid bits
    put_u32(b, channel_mask);
    put_u16(b, subformat);
    static const std::uint8_t guid_tail[14] = {0x00, 0x00, 0x00, 0x00, 0x10, 0x00, 0x80,
                                               0x00, 0x00, 0xAA, 0x00, 0x38, 0x9B, 0x71};
    b.insert(b.end(), std::begin(guid_tail), std::end(guid_tail));
    return b;
}

bytes riff(const std::vector<chunk>& chunks) {
    bytes body;
    for (const chunk& c : chunks) {
        if (c.id.size() != 4) throw std::invalid_argument("chunk id must have four characters");
        body.insert(body.end(), c.id.begin(), c.id.end());
        put_u32(body, c.size.value_or(static_cast<std::uint32_t>(c.body.size())));
        body.insert(body.end(), c.body.begin(), c.body.end());
        if (c.pad && (c.body.size() & 1)) body.push_back(0);
    }
    bytes out = {'R', 'I', 'F', 'F'};
    put_u32(out, static_cast<std::uint32_t>(body.size() + 4));
    out.insert(out.end(), {'W', 'A', 'V', 'E'});
    out.insert(out.end(), body.begin(), body.end());
    return out;
}

bytes encode_samples(std::uint32_t format_code, const std::vector<double>& samples) {
    bytes out;
    for (double x : samples) {
        if (format_code == 288) {
            float f = static_cast<float>(x);
            std::uint32_t u;
            std::memcpy(&u, &f, 4);
            put_u32(out, u);
        } else if (format_code == 320) {
            std::uint64_t u;
            std::memcpy(&u, &x, 8);
            put_u32(out, static_cast<std::uint32_t>(u));
            put_u32(out, static_cast<std::uint32_t>(u >> 32));
        } else {
            double scale = std::ldexp(1.0, static_cast<int>(format_code) - 1) - 1.0;
            long long code = std::llround(std::clamp(x, -1.0, 1.0) * scale);
            auto u = static_cast<std::uint32_t>(code);
            for (std::uint32_t i = 0; i < format_code / 8; ++i) out.push_back(static_cast<std::uint8_t>(u >> (8 * i)));
        }
    }
    return out;
}

bytes wav_file(std::uint32_t rate, std::uint16_t channels, std::uint32_t format_code,
               const std::vector<double>& samples, bool extensible) {
    bool is_float = format_code >= 256;
    auto bits = static_cast<std::uint16_t>(is_float ? format_code - 256 : format_code);
    bytes fmt = extensible ? fmt_extensible_body(channels, rate, bits, is_float ? 3 : 1, channels == 2 ? 3u : 4u)
                           : fmt_body(is_float ? 3 : 1, channels, rate, bits);
    return riff({{"fmt ", fmt}, {"data", encode_samples(format_code, samples)}});
}

void write_bytes(const std::string& path, const bytes& data) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char*>(data.data()), static_cast<std::streamsize>(data.size()));
    if (!out) throw std::runtime_error("could not write " + path);
}

bytes read_bytes(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return bytes(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

std::string write_wav(const std::string& path, std::uint32_t rate, std::uint16_t channels,
                      std::uint32_t format_code, const std::vector<double>& samples) {
    write_bytes(path, wav_file(rate, channels, format_code, samples));
    return path;
}

std::vector<double> sine(std::uint64_t frames, std::uint16_t channels, double freq_hz, double rate_hz,
                         double amplitude, double phase) {
    std::vector<double> out(frames * channels);
    const double two_pi = 6.283185307179586476925286766559;
    for (std::uint64_t i = 0; i < frames; ++i) {
        double v = amplitude * std::sin(two_pi * freq_hz * static_cast<double>(i) / rate_hz + phase);
        for (std::uint16_t c = 0; c < channels; ++c) out[i * channels + c] = v;
    }
    return out;
}

std::vector<double> noise(std::uint64_t frames, std::uint16_t channels, double amplitude, std::uint32_t seed) {
    std::mt19937 gen(seed);
    std::uniform_real_distribution<double> dist(-amplitude, amplitude);
    std::vector<double> out(frames * channels);
    for (double& v : out) v = dist(gen);
    return out;
}

}  // namespace veltrane::test
