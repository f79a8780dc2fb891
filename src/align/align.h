#pragma once
// Per-channel alignment of a DUT capture to its reference: one whole-sample offset per
// channel found by FFT cross-correlation within +/- max_lag samples, judged by the
// normalised correlation (confidence, -1..1) against a threshold, with silent channels
// borrowing the other channel's offset or set to zero. Offsets are in samples (frames);
// positive means the DUT's audio comes later than the reference's, so DUT frame
// k + offset matches reference frame k.
#include <array>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "audio/wav.h"

namespace veltrane {

enum class align_state : std::uint32_t { measured = 0, silent_borrowed = 1, silent_zero = 2 };

// "measured", "silent_borrowed" or "silent_zero".
const char* align_state_name(align_state state);

struct align_channel {
    bool channel_ok = false;
    std::int32_t offset = 0;  // samples; the DUT's delay
    double confidence = 0.0;  // normalised correlation at the chosen lag
    bool ref_silent = false;  // reference channel RMS at or below the silence floor
    bool dut_silent = false;
    align_state state = align_state::measured;
};

struct align_result {
    std::array<align_channel, 2> channel{};  // for mono only channel[0] is filled
    std::uint64_t channels = 0;              // 1 or 2
    std::int32_t file_offset = 0;            // samples: channel 0's offset
    std::int32_t disagreement_samples = 0;   // |offset 0 - offset 1| for stereo, 0 for mono
    bool aligned = false;
};

enum class align_diagnosis_kind : std::uint32_t {
    no_match = 0,
    polarity_inverted = 1,
    outside_window = 2,
    drift = 3,
    head_only = 4,
    tail_only = 5,
    middle_differs = 6,
};

struct align_diagnosis {
    bool diagnosed = false;
    align_diagnosis_kind kind = align_diagnosis_kind::no_match;
    double polarity_confidence = 0.0;
    std::int32_t wide_offset = 0;
    double wide_confidence = 0.0;
    std::uint32_t segment_len = 0;  // samples; 0 when head/tail were not probed
    std::uint32_t tail_start = 0;   // samples
    double head_confidence = 0.0;
    double tail_confidence = 0.0;
    std::int32_t head_offset = 0;
    std::int32_t tail_offset = 0;
};

// One channel of an interleaved file as a contiguous array of frame_count values.
std::vector<double> extract_channel(const wav_audio& audio, std::uint32_t channel);

struct correlation_peak {
    std::int32_t lag = 0;     // samples: b is a delayed by `lag`
    double confidence = 0.0;  // c(m) / sqrt(Ea * Eb) over the overlap; 0 when undefined
};

// FFT cross-correlation of a (reference) and b (DUT) searched over lags within max_lag.
// With `inverted` the most negative correlation is searched (confidence then negative).
// Allocation failure gives lag 0, confidence 0.
//
// Only the searched lags are computed: the DUT is taken in blocks, each correlated with
// the stretch of the reference it can meet (overlap-save at one power-of-two transform
// size from blockwise_fft_size). Working memory is about 24 bytes per transform point and
// does not depend on the lengths of a and b: 1.5 MiB for 0.1 s at 48 kHz, 6 MiB at
// 192 kHz (align_channels searches both channels of a stereo pair side by side, twice
// that).
correlation_peak cross_correlate(std::span<const double> a, std::span<const double> b, std::int64_t max_lag,
                                 bool inverted);

// The same search computed from one full-length transform pair (next_pow2(len a + len b -
// 1) points, full_length_correlation_bytes of memory). It differs from cross_correlate
// only in rounding. Used by the wide diagnosis probe, whose lag range is half the file,
// and as the reference in tests and benchmarks.
correlation_peak cross_correlate_full_length(std::span<const double> a, std::span<const double> b,
                                             std::int64_t max_lag, bool inverted);

// Bytes held by the two transform buffers of the full-length search of a and b.
std::uint64_t full_length_correlation_bytes(std::uint64_t la, std::uint64_t lb);

// Transform size (a power of two) of the blockwise search for `lag_count` searched lags
// and `b_length` DUT samples: at least 4096 and at least four times the lag count, but
// never more than a single block holding all b_length samples needs.
std::uint64_t blockwise_fft_size(std::uint64_t lag_count, std::uint64_t b_length);

// Aligns every channel of `dut` to `ref` (same channel count, 1 or 2).
// max_lag in samples, threshold in confidence units, tolerance in samples, silence floor in dBFS.
align_result align_channels(const wav_audio& ref, const wav_audio& dut, std::int64_t max_lag, double threshold,
                            std::int32_t tolerance_samples, double silence_floor_db);

// Probes the channels that failed to align for a likely cause.
std::array<align_diagnosis, 2> diagnose_alignment(const wav_audio& ref, const wav_audio& dut,
                                                  const align_result& result, std::int64_t max_lag, double threshold);

// The user-facing explanation of a failed alignment, starting "alignment failed -- " and
// cut to at most 1399 characters. max_lag and tolerance in samples, rate in Hz.
std::string compose_alignment_message(const align_result& result, const std::array<align_diagnosis, 2>& diagnosis,
                                      std::uint32_t sample_rate, double threshold, std::int64_t max_lag,
                                      std::int32_t tolerance_samples);

}  // namespace veltrane
