// Canonical WAV writer: a 44-byte header for integer PCM, a 58-byte header with a "fact"
// chunk for IEEE float, then the samples, encoded block by block into a buffer and
// written with one fwrite per block.
#include "audio/wav.h"

#include "util/files.h"

#include <algorithm>
#include <cstring>
#include <new>

namespace veltrane {
namespace {

// Samples encoded per block: 64 Ki samples is at most 512 KiB of 64-bit floats, large
// enough that the number of writes is small and small enough to stay in cache.
constexpr std::size_t block_samples = 65536;

// Integer codes are scaled by the reader's full-scale divisors (wav_full_scale_*), so they
// survive a read and a write unchanged (the most negative one comes back one step higher).
void put16(std::vector<std::uint8_t>& b, std::uint32_t v) {
    b.push_back(static_cast<std::uint8_t>(v));
    b.push_back(static_cast<std::uint8_t>(v >> 8));
}

void put32(std::vector<std::uint8_t>& b, std::uint32_t v) {
    put16(b, v & 0xFFFFu);
    put16(b, v >> 16);
}

void put_id(std::vector<std::uint8_t>& b, const char* id) { b.insert(b.end(), id, id + 4); }

// Clamps x to [-1, 1], scales it and rounds half away from zero, then clamps the result
// to [lo, hi]. The rounding works on the exact fraction t - trunc(t) (exact because
// |t| < 2^52), which gives the same result as std::round without a library call.
std::int64_t to_code(double x, double scale, std::int64_t lo, std::int64_t hi) {
    if (x != x) return 0;  // NaN has no code; store silence
    const double clamped = x > 1.0 ? 1.0 : (x < -1.0 ? -1.0 : x);
    const double t = clamped * scale;
    auto code = static_cast<std::int64_t>(t);
    const double frac = t - static_cast<double>(code);
    if (frac >= 0.5) ++code;
    else if (frac <= -0.5) --code;
    return code < lo ? lo : (code > hi ? hi : code);
}

bool valid_format_code(std::uint32_t code) {
    return code == 16 || code == 24 || code == 32 || code == 32 + wav_float_flag || code == 64 + wav_float_flag;
}

bool write_all(std::FILE* file, const std::vector<std::uint8_t>& bytes) {
    return bytes.empty() || std::fwrite(bytes.data(), 1, bytes.size(), file) == bytes.size();
}

void encode_float_samples(std::uint32_t bits, std::span<const double> samples, std::vector<std::uint8_t>& out) {
    const std::size_t start = out.size();
    out.resize(start + (bits / 8u) * samples.size());
    std::uint8_t* p = out.data() + start;
    for (double x : samples) {
        std::uint64_t u;
        std::size_t n;
        if (bits == 32) {
            const float f = static_cast<float>(x);  // round to nearest
            std::uint32_t u32;
            std::memcpy(&u32, &f, sizeof u32);
            u = u32;
            n = 4;
        } else {
            std::memcpy(&u, &x, sizeof u);
            n = 8;
        }
        for (std::size_t k = 0; k < n; ++k) p[k] = static_cast<std::uint8_t>(u >> (8 * k));
        p += n;
    }
}

// Header of the file; all sizes are 32-bit as in the file format.
std::vector<std::uint8_t> make_header(std::uint32_t sample_rate, std::uint32_t channels, std::uint32_t bits,
                                      bool is_float, std::uint64_t frames) {
    const std::uint32_t sample_bytes = bits / 8u;
    const auto data_bytes = static_cast<std::uint32_t>(sample_bytes * frames * channels);
    std::vector<std::uint8_t> h;
    h.reserve(58);
    put_id(h, "RIFF");
    // Integer: 4 ("WAVE") + 24 ("fmt " chunk) + 8 ("data" header) = 36.
    // Float: 4 + 26 ("fmt " chunk of 18) + 12 ("fact" chunk) + 8 = 50, written as 18 + 32.
    put32(h, is_float ? 18u + data_bytes + 32u : data_bytes + 36u);
    put_id(h, "WAVE");
    put_id(h, "fmt ");
    put32(h, is_float ? 18u : 16u);
    put16(h, is_float ? 3u : 1u);
    put16(h, channels);
    put32(h, sample_rate);
    put32(h, sample_rate * channels * sample_bytes);
    put16(h, channels * sample_bytes);
    put16(h, bits);
    if (is_float) {
        put16(h, 0);  // extension size
        put_id(h, "fact");
        put32(h, 4);
        put32(h, static_cast<std::uint32_t>(frames));
    }
    put_id(h, "data");
    put32(h, data_bytes);
    return h;
}

}  // namespace

void encode_pcm_samples(std::uint32_t bits, std::span<const double> samples, std::vector<std::uint8_t>& out) {
    const std::size_t start = out.size();
    switch (bits) {
    case 16: {
        out.resize(start + 2 * samples.size());
        std::uint8_t* p = out.data() + start;
        for (double x : samples) {
            const auto u = static_cast<std::uint32_t>(to_code(x, wav_full_scale_16, -32768, 32767));
            p[0] = static_cast<std::uint8_t>(u);
            p[1] = static_cast<std::uint8_t>(u >> 8);
            p += 2;
        }
        break;
    }
    case 24: {
        out.resize(start + 3 * samples.size());
        std::uint8_t* p = out.data() + start;
        for (double x : samples) {
            // The low three bytes of the two's-complement value.
            const auto u = static_cast<std::uint32_t>(to_code(x, wav_full_scale_24, -8388608, 8388607));
            p[0] = static_cast<std::uint8_t>(u);
            p[1] = static_cast<std::uint8_t>(u >> 8);
            p[2] = static_cast<std::uint8_t>(u >> 16);
            p += 3;
        }
        break;
    }
    case 32: {
        out.resize(start + 4 * samples.size());
        std::uint8_t* p = out.data() + start;
        for (double x : samples) {
            const auto u = static_cast<std::uint32_t>(to_code(x, wav_full_scale_32, INT32_MIN, INT32_MAX));
            p[0] = static_cast<std::uint8_t>(u);
            p[1] = static_cast<std::uint8_t>(u >> 8);
            p[2] = static_cast<std::uint8_t>(u >> 16);
            p[3] = static_cast<std::uint8_t>(u >> 24);
            p += 4;
        }
        break;
    }
    default:
        break;
    }
}

bool write_pcm_samples(std::FILE* file, std::uint32_t bits, std::span<const double> samples) {
    if (!file || (bits != 16 && bits != 24 && bits != 32)) return false;
    std::vector<std::uint8_t> block;
    try {
        block.reserve(std::min(samples.size(), block_samples) * (bits / 8u));
        for (std::size_t i = 0; i < samples.size(); i += block_samples) {
            block.clear();
            encode_pcm_samples(bits, samples.subspan(i, std::min(block_samples, samples.size() - i)), block);
            if (!write_all(file, block)) return false;
        }
    } catch (const std::bad_alloc&) {
        return false;
    }
    return true;
}

bool wav_write(const std::string& path, std::uint32_t sample_rate, std::uint32_t channels,
               std::uint32_t format_code, std::span<const double> samples, std::uint64_t frames) {
    if (path.empty() || sample_rate == 0 || channels == 0 || !valid_format_code(format_code)) return false;
    // The caller must hand over every sample the header announces.
    if (frames > samples.size() / channels) return false;
    const std::span<const double> body = samples.first(static_cast<std::size_t>(frames) * channels);
    const bool is_float = (format_code & wav_float_flag) != 0;
    const std::uint32_t bits = format_code & ~wav_float_flag;

    // Written under a temporary name and moved into place when complete, so a failed
    // write leaves no partial WAV file and an earlier file at `path` survives it.
    atomic_output output;
    if (!output.open(path)) return false;
    std::FILE* file = output.file();
    bool ok = false;
    try {
        ok = write_all(file, make_header(sample_rate, channels, bits, is_float, frames));
        if (ok && !is_float) {
            ok = write_pcm_samples(file, bits, body);
        } else if (ok) {
            std::vector<std::uint8_t> block;
            block.reserve(std::min(body.size(), block_samples) * (bits / 8u));
            for (std::size_t i = 0; ok && i < body.size(); i += block_samples) {
                block.clear();
                encode_float_samples(bits, body.subspan(i, std::min(block_samples, body.size() - i)), block);
                ok = write_all(file, block);
            }
        }
    } catch (const std::bad_alloc&) {
        ok = false;
    }
    return ok && output.commit();
}

}  // namespace veltrane
