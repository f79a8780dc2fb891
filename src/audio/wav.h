#pragma once
// WAV decoding into normalised doubles, and the canonical WAV writer.
//
// Accepted sample formats: 16/24/32-bit signed integer PCM and 32/64-bit IEEE float, in a
// plain (tag 1 or 3) or extensible (tag 0xFFFE) format chunk. Integer codes are divided
// by 2^(bits-1) - 1, so the most positive code reads as exactly +1.0 and the most negative
// one slightly below -1.0; the writer scales by the same factors.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <span>
#include <string>
#include <vector>

namespace veltrane {

// Added to the bit depth in format_code when the samples are IEEE float.
inline constexpr std::uint32_t wav_float_flag = 256;

// Full-scale divisors of the integer formats: a stored code c reads as c / (2^(bits-1) - 1),
// so the largest positive code is exactly 1.0. The writer scales by the same values and the
// bit comparison counts differences in these steps.
inline constexpr double wav_full_scale_16 = 32767.0;       // 2^15 - 1
inline constexpr double wav_full_scale_24 = 8388607.0;     // 2^23 - 1
inline constexpr double wav_full_scale_32 = 2147483647.0;  // 2^31 - 1

struct wav_audio {
    std::uint32_t sample_rate = 0;
    std::uint32_t channels = 0;
    std::uint32_t format_code = 0;   // 16, 24, 32 (integer), 288 (32-bit float), 320 (64-bit float)
    bool is_extensible = false;      // the format chunk had tag 0xFFFE
    std::uint32_t channel_mask = 0;  // speaker mask of an extensible format chunk, else 0
    std::vector<double> samples;     // frame_count * channels values, interleaved
    std::uint64_t frame_count = 0;
    std::vector<std::uint8_t> extra_chunks;  // every other chunk: 8-byte header + body padded to even length
};

inline std::uint32_t wav_bit_depth(const wav_audio& a) { return a.format_code & ~wav_float_flag; }
inline bool wav_is_float(const wav_audio& a) { return (a.format_code & wav_float_flag) != 0; }

// Why a decode failed. Only non_finite_sample has a text of its own for users; every
// other reason is shown as the generic format text.
enum class wav_failure {
    none,
    open_failed,         // the file could not be opened
    read_failed,         // not a regular file, or reading it failed
    bad_riff_header,     // fewer than 12 bytes, or not "RIFF"...."WAVE"
    fmt_too_short,       // "fmt " chunk below 16 bytes, or its body cut short
    unsupported_format,  // format tag / extensible subformat not integer PCM or IEEE float
    missing_chunk,       // no "fmt " or no "data" chunk
    unsupported_bits,    // bit depth not 16/24/32 (integer) or 32/64 (float)
    zero_channels_or_rate,
    partial_frame,       // data size not a whole number of frames
    truncated_data,      // data chunk runs past the end of the file
    truncated_chunk,     // an unknown chunk runs past the end of the file
    out_of_memory,
    non_finite_sample,   // a float sample is NaN or infinite
};

// Stable lower-case name of a failure reason ("none", "bad_riff_header", ...), used by
// test manifests and diagnostics.
const char* wav_failure_name(wav_failure failure);

// The module's error text lives in a buffer of this many bytes, so it holds at most 159
// characters; longer texts are cut.
inline constexpr std::size_t wav_error_text_buffer_size = 160;

struct wav_decode_result {
    wav_failure failure = wav_failure::none;
    std::string error_text;  // set only for non_finite_sample
    bool ok() const { return failure == wav_failure::none; }
};

// Decodes a whole WAV file held in memory. The chunk walk runs to the end of `bytes`
// (the RIFF size field is ignored); sizes stored in the file are checked against the
// bytes actually present before anything is allocated for them. On failure `out` is left
// empty. Touches no module state, so it is safe to drive from a fuzzer.
wav_decode_result wav_decode(std::span<const std::uint8_t> bytes, wav_audio& out);

// Reads and decodes the file at `path`: the whole file is read into memory with one read
// and handed to wav_decode, so peak memory is about the file size plus 8 bytes per
// sample; the raw bytes are released right after decoding, so once it returns only the
// samples (8 bytes each) remain. Only regular files are read (a pipe or a directory fails). On failure returns
// false, leaves `out` empty and records the reason for wav_error_text() and
// wav_last_failure().
bool wav_read(const std::string& path, wav_audio& out);

// The reason of the last wav_read (wav_failure::none after a successful one).
wav_failure wav_last_failure();

// The reason for the last failed wav_read: the module's error text if one was set (the
// NaN/infinity text), else "not a supported 16/24/32-bit integer or 32/64-bit float PCM WAV file".
std::string wav_error_text();

// Releases the samples and extra chunks and zeroes every field.
void wav_free(wav_audio& audio);

// For analyze: "file not found or not readable" when `path` cannot be opened for reading
// as a regular file (missing, no permission, or a FIFO, device or directory), else
// wav_error_text(). Never blocks.
std::string describe_wav_read_failure(const std::string& path);

// Writes a canonical WAV file (44-byte header for integer PCM, 58-byte header with a
// "fact" chunk for float). Integer samples are clamped to [-1, 1], scaled and rounded half
// away from zero; float samples are written unclamped. False when the path is empty, the
// rate or channel count is 0, the format code is not one of the five, `samples` holds
// fewer than frames * channels values (all checked before the file is created), the file
// cannot be created or a write is short. The file is written under a temporary name and
// renamed into place when complete (atomic_output), so a failure leaves no partial file
// and any earlier file at `path` unchanged. Header sizes are 32-bit and wrap like the format's.
bool wav_write(const std::string& path, std::uint32_t sample_rate, std::uint32_t channels,
               std::uint32_t format_code, std::span<const double> samples, std::uint64_t frames);

// Appends `samples` as little-endian integer codes of `bits` (16, 24 or 32) bits to `out`:
// each value is clamped to [-1, 1], scaled by 2^(bits-1) - 1, rounded half away from zero
// and stored in bits/8 bytes. A NaN is stored as 0. Any other `bits` appends nothing.
void encode_pcm_samples(std::uint32_t bits, std::span<const double> samples, std::vector<std::uint8_t>& out);

// Writes `samples` to an open file as integer codes of `bits` bits, encoded in blocks and
// written with one fwrite per block; true when every byte was written (a count of 0
// writes nothing and succeeds). False for `bits` other than 16, 24 or 32.
bool write_pcm_samples(std::FILE* file, std::uint32_t bits, std::span<const double> samples);

}  // namespace veltrane
