// WAV reader: one walk over the chunks of a file held in memory, then one conversion pass
// of the data chunk into normalised doubles.
#include "audio/wav.h"

#include "util/files.h"
#include "util/memory.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <new>

#include <sys/stat.h>

namespace veltrane {
namespace {

constexpr char generic_error_text[] = "not a supported 16/24/32-bit integer or 32/64-bit float PCM WAV file";

// The last failed read's own text (only the NaN/infinity check sets one) and its reason.
char last_error_text[wav_error_text_buffer_size] = "";
wav_failure last_failure = wav_failure::none;

// "RIFF" + 32-bit size + "WAVE".
constexpr std::size_t riff_header_bytes = 12;
// A chunk header is a four-character id and a 32-bit little-endian size.
constexpr std::size_t chunk_header_bytes = 8;
// A "fmt " chunk needs at least the 16 bytes of the plain PCM layout; at most the 40
// bytes of the extensible layout are looked at.
constexpr std::uint32_t fmt_min_bytes = 16;
constexpr std::uint32_t fmt_max_read_bytes = 40;
// The extensible layout carries its SubFormat code at byte 24, so a chunk must have at
// least 26 bytes for it to be read.
constexpr std::uint32_t fmt_extensible_min_bytes = 26;

constexpr std::uint16_t tag_pcm = 1;
constexpr std::uint16_t tag_float = 3;
constexpr std::uint16_t tag_extensible = 0xFFFE;

// Integer codes are divided by 2^(bits-1) - 1 so the most positive code reads as +1.0.

// Exponent fields of IEEE single and double precision; all ones means infinity or NaN.
constexpr std::uint32_t float_exponent_mask = 0x7F800000u;
constexpr std::uint64_t double_exponent_mask = 0x7FF0000000000000ull;

std::uint16_t le16(const std::uint8_t* p) {
    return static_cast<std::uint16_t>(p[0] | (p[1] << 8));
}

std::uint32_t le32(const std::uint8_t* p) {
    return static_cast<std::uint32_t>(p[0]) | (static_cast<std::uint32_t>(p[1]) << 8) |
           (static_cast<std::uint32_t>(p[2]) << 16) | (static_cast<std::uint32_t>(p[3]) << 24);
}

std::uint64_t le64(const std::uint8_t* p) {
    return static_cast<std::uint64_t>(le32(p)) | (static_cast<std::uint64_t>(le32(p + 4)) << 32);
}

bool has_id(const std::uint8_t* p, const char* id) { return std::memcmp(p, id, 4) == 0; }

// What the last "fmt " chunk said. Each "fmt " chunk replaces every field.
struct format_facts {
    bool seen = false;
    std::uint16_t channels = 0;
    std::uint32_t sample_rate = 0;
    std::uint16_t bits = 0;
    bool is_float = false;
    bool is_extensible = false;
    std::uint32_t channel_mask = 0;
};

// Reads the format facts from a "fmt " body of `read_bytes` = min(size, 40) bytes.
wav_failure parse_fmt(const std::uint8_t* body, std::uint32_t size, format_facts& fmt) {
    fmt = format_facts{};
    fmt.seen = true;
    const std::uint16_t tag = le16(body);
    fmt.channels = le16(body + 2);
    fmt.sample_rate = le32(body + 4);
    fmt.bits = le16(body + 14);
    if (tag == tag_extensible && size >= fmt_extensible_min_bytes) {
        const std::uint16_t subformat = le16(body + 24);
        if (subformat != tag_pcm && subformat != tag_float) return wav_failure::unsupported_format;
        fmt.is_float = subformat == tag_float;
        fmt.channel_mask = le32(body + 20);
        fmt.is_extensible = true;
        return wav_failure::none;
    }
    if (tag != tag_pcm && tag != tag_float) return wav_failure::unsupported_format;
    fmt.is_float = tag == tag_float;
    return wav_failure::none;
}

bool bits_supported(const format_facts& fmt) {
    if (fmt.is_float) return fmt.bits == 32 || fmt.bits == 64;
    return fmt.bits == 16 || fmt.bits == 24 || fmt.bits == 32;
}

// Converts `count` stored values at `src` into `dst`. Returns the index of the first
// non-finite float value, or `count` when there is none (always for integer data).
std::size_t convert_samples(const std::uint8_t* src, std::size_t count, const format_facts& fmt, double* dst) {
    if (!fmt.is_float) {
        switch (fmt.bits) {
        case 16:
            for (std::size_t i = 0; i < count; ++i)
                dst[i] = static_cast<std::int16_t>(le16(src + 2 * i)) / wav_full_scale_16;
            break;
        case 24:
            for (std::size_t i = 0; i < count; ++i) {
                const std::uint8_t* p = src + 3 * i;
                // Place the three bytes at the top of 32 bits, then shift back arithmetically
                // to sign-extend from bit 23.
                const std::uint32_t top = (static_cast<std::uint32_t>(p[0]) << 8) |
                                          (static_cast<std::uint32_t>(p[1]) << 16) |
                                          (static_cast<std::uint32_t>(p[2]) << 24);
                dst[i] = (static_cast<std::int32_t>(top) >> 8) / wav_full_scale_24;
            }
            break;
        default:  // 32
            for (std::size_t i = 0; i < count; ++i)
                dst[i] = static_cast<std::int32_t>(le32(src + 4 * i)) / wav_full_scale_32;
            break;
        }
        return count;
    }
    if (fmt.bits == 32) {
        for (std::size_t i = 0; i < count; ++i) {
            const std::uint32_t u = le32(src + 4 * i);
            float f;
            std::memcpy(&f, &u, sizeof f);
            dst[i] = f;
        }
        for (std::size_t i = 0; i < count; ++i)
            if ((le32(src + 4 * i) & float_exponent_mask) == float_exponent_mask) return i;
        return count;
    }
    for (std::size_t i = 0; i < count; ++i) {
        const std::uint64_t u = le64(src + 8 * i);
        std::memcpy(dst + i, &u, sizeof u);
    }
    for (std::size_t i = 0; i < count; ++i)
        if ((le64(src + 8 * i) & double_exponent_mask) == double_exponent_mask) return i;
    return count;
}

wav_failure decode_into(std::span<const std::uint8_t> bytes, wav_audio& out, std::string& error_text) {
    const std::uint8_t* const base = bytes.data();
    const std::uint64_t len = bytes.size();
    if (len < riff_header_bytes || !has_id(base, "RIFF") || !has_id(base + 8, "WAVE"))
        return wav_failure::bad_riff_header;

    format_facts fmt;
    bool have_data = false;
    std::uint64_t data_pos = 0;
    std::uint32_t data_size = 0;
    std::vector<std::uint8_t> extra;

    // The RIFF size is ignored: the walk runs until fewer than 8 bytes remain. A skip past
    // the end of the buffer simply ends it.
    std::uint64_t pos = riff_header_bytes;
    while (pos <= len && len - pos >= chunk_header_bytes) {
        const std::uint8_t* header = base + pos;
        const std::uint32_t size = le32(header + 4);
        pos += chunk_header_bytes;
        if (has_id(header, "data")) {
            have_data = true;
            data_pos = pos;
            data_size = size;
            pos += static_cast<std::uint64_t>(size) + (size & 1u);
        } else if (has_id(header, "fmt ")) {
            if (size < fmt_min_bytes) return wav_failure::fmt_too_short;
            if (len - pos < std::min(size, fmt_max_read_bytes)) return wav_failure::fmt_too_short;
            const wav_failure f = parse_fmt(base + pos, size, fmt);
            if (f != wav_failure::none) return f;
            pos += static_cast<std::uint64_t>(size) + (size & 1u);
        } else {
            // Rounded up to even in 32 bits: a stored size of 0xFFFFFFFF pads to 0, so such a
            // chunk contributes its header only and the walk goes on right after it.
            const std::uint32_t padded = (size + 1u) & ~1u;
            if (len - pos < padded) return wav_failure::truncated_chunk;
            try {
                extra.insert(extra.end(), header, header + chunk_header_bytes + padded);
            } catch (const std::bad_alloc&) {
                return wav_failure::out_of_memory;
            }
            pos += padded;
        }
    }

    if (!fmt.seen || !have_data) return wav_failure::missing_chunk;
    if (!bits_supported(fmt)) return wav_failure::unsupported_bits;
    if (fmt.channels == 0 || fmt.sample_rate == 0) return wav_failure::zero_channels_or_rate;
    const std::uint32_t sample_bytes = fmt.bits / 8u;
    const std::uint32_t frame_bytes = sample_bytes * fmt.channels;  // at most 8 * 65535
    if (data_size % frame_bytes != 0) return wav_failure::partial_frame;
    // Checked against the bytes present before the sample array is sized from it.
    if (len - data_pos < data_size) return wav_failure::truncated_data;

    const std::uint64_t frames = data_size / frame_bytes;
    const std::size_t count = data_size / sample_bytes;
    std::vector<double> samples;
    try {
        samples.reserve(count);
        advise_huge_pages(samples.data(), count * sizeof(double));
        samples.resize(count);
    } catch (const std::bad_alloc&) {
        return wav_failure::out_of_memory;
    }
    const std::size_t bad = convert_samples(base + data_pos, count, fmt, samples.data());
    if (bad < count) {
        char text[wav_error_text_buffer_size];
        std::snprintf(text, sizeof text, "contains NaN or infinite samples, first at frame %zu, channel %zu",
                      bad / fmt.channels, bad % fmt.channels);
        error_text = text;
        return wav_failure::non_finite_sample;
    }

    out.sample_rate = fmt.sample_rate;
    out.channels = fmt.channels;
    out.format_code = fmt.bits + (fmt.is_float ? wav_float_flag : 0u);
    out.is_extensible = fmt.is_extensible;
    out.channel_mask = fmt.channel_mask;
    out.samples = std::move(samples);
    out.frame_count = frames;
    out.extra_chunks = std::move(extra);
    return wav_failure::none;
}

// Reads a whole regular file with one read. Non-regular files (pipes, directories,
// devices) are refused: their size is not known up front and they cannot be positioned.
wav_failure read_whole_file(const std::string& path, std::unique_ptr<std::uint8_t[]>& data, std::size_t& size) {
    // Opened without blocking and only as a regular file: a FIFO would otherwise wait for
    // a writer forever.
    std::FILE* file = open_regular_file_for_reading(path);
    if (!file) return path_exists(path) && !is_regular_file(path) ? wav_failure::read_failed : wav_failure::open_failed;
    struct file_closer {
        std::FILE* f;
        ~file_closer() { std::fclose(f); }
    } closer{file};

    struct stat st {};
    if (::fstat(fileno(file), &st) != 0 || !S_ISREG(st.st_mode) || st.st_size < 0) return wav_failure::read_failed;
    const auto file_bytes = static_cast<std::uint64_t>(st.st_size);
    if (file_bytes > static_cast<std::uint64_t>(PTRDIFF_MAX)) return wav_failure::out_of_memory;
    try {
        // At least one byte so a zero-length file still gets a valid pointer.
        data = std::make_unique_for_overwrite<std::uint8_t[]>(std::max<std::size_t>(file_bytes, 1));
        advise_huge_pages(data.get(), file_bytes);
    } catch (const std::bad_alloc&) {
        return wav_failure::out_of_memory;
    }
    // A file that shrank since fstat is decoded as far as it goes, as a stream would be.
    size = file_bytes == 0 ? 0 : std::fread(data.get(), 1, file_bytes, file);
    if (size < file_bytes && std::ferror(file)) return wav_failure::read_failed;
    return wav_failure::none;
}

}  // namespace

const char* wav_failure_name(wav_failure failure) {
    switch (failure) {
    case wav_failure::none: return "none";
    case wav_failure::open_failed: return "open_failed";
    case wav_failure::read_failed: return "read_failed";
    case wav_failure::bad_riff_header: return "bad_riff_header";
    case wav_failure::fmt_too_short: return "fmt_too_short";
    case wav_failure::unsupported_format: return "unsupported_format";
    case wav_failure::missing_chunk: return "missing_chunk";
    case wav_failure::unsupported_bits: return "unsupported_bits";
    case wav_failure::zero_channels_or_rate: return "zero_channels_or_rate";
    case wav_failure::partial_frame: return "partial_frame";
    case wav_failure::truncated_data: return "truncated_data";
    case wav_failure::truncated_chunk: return "truncated_chunk";
    case wav_failure::out_of_memory: return "out_of_memory";
    case wav_failure::non_finite_sample: return "non_finite_sample";
    }
    return "unknown";
}

wav_decode_result wav_decode(std::span<const std::uint8_t> bytes, wav_audio& out) {
    wav_free(out);
    wav_decode_result result;
    result.failure = decode_into(bytes, out, result.error_text);
    if (!result.ok()) wav_free(out);
    return result;
}

bool wav_read(const std::string& path, wav_audio& out) {
    last_error_text[0] = '\0';
    last_failure = wav_failure::none;
    wav_free(out);

    std::unique_ptr<std::uint8_t[]> data;
    std::size_t size = 0;
    last_failure = read_whole_file(path, data, size);
    if (last_failure != wav_failure::none) return false;

    const wav_decode_result result = wav_decode(std::span<const std::uint8_t>(data.get(), size), out);
    // The raw bytes go as soon as the samples are decoded: from here on a file costs only
    // its 8 bytes per sample, which matters when the second input of a run is read next.
    data.reset();
    last_failure = result.failure;
    if (!result.ok()) {
        std::snprintf(last_error_text, sizeof last_error_text, "%s", result.error_text.c_str());
        return false;
    }
    return true;
}

wav_failure wav_last_failure() { return last_failure; }

std::string wav_error_text() {
    return last_error_text[0] != '\0' ? std::string(last_error_text) : std::string(generic_error_text);
}

void wav_free(wav_audio& audio) { audio = wav_audio{}; }

std::string describe_wav_read_failure(const std::string& path) {
    std::FILE* file = open_regular_file_for_reading(path);
    if (!file) return "file not found or not readable";
    std::fclose(file);
    return wav_error_text();
}

}  // namespace veltrane
