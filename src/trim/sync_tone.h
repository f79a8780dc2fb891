#pragma once
// The sync tone that frames a test signal: four V-shaped chirps (each sweeping from its
// high frequency down to its low one and back up), separated by short silences, at a
// peak level of -20 dBFS. This unit defines the tone so that the detector can synthesize
// exactly the template it searches for. Lengths are in samples (frames) at the file's
// sample rate; frequencies in Hz; the level in dBFS.
#include <array>
#include <cstdint>
#include <span>

namespace veltrane {

struct chirp_band {
    double low_hz = 0.0;   // turning point of the V
    double high_hz = 0.0;  // start and end frequency
};

inline constexpr std::size_t max_sync_chirps = 8;

struct sync_tone_shape {
    std::array<chirp_band, max_sync_chirps> chirps{};  // the first chirp_count are used, in order
    double chirp_sec = 0.0;                            // length of each chirp, seconds
    std::uint32_t chirp_count = 0;
    double gap_sec = 0.0;                              // silence between consecutive chirps, seconds
    double level_db = 0.0;                             // peak level, dBFS
};

// The one tone the system knows: 0.15 s chirps with 0.05 s gaps at -20 dBFS, 0.75 s in all.
inline constexpr sync_tone_shape builtin_sync_tone{
    {{{1100.0, 7800.0}, {900.0, 7000.0}, {1300.0, 8200.0}, {1000.0, 7500.0}}},
    0.15,
    4,
    0.05,
    -20.0,
};

// The same tone cut down to its chirp `index` alone (one chirp, no gap), for the
// per-chirp checks of the detector.
sync_tone_shape single_chirp_tone(const sync_tone_shape& tone, std::uint32_t index);

// llround(chirp_sec * rate) and llround(gap_sec * rate).
std::uint64_t sync_chirp_length(const sync_tone_shape& tone, std::uint32_t sample_rate_hz);
std::uint64_t sync_gap_length(const sync_tone_shape& tone, std::uint32_t sample_rate_hz);

// count * chirp length + (count - 1) * gap length (no gap term for a single chirp).
std::uint64_t sync_tone_length(const sync_tone_shape& tone, std::uint32_t sample_rate_hz);

// Length of the built-in tone: 36000 samples at 48000 Hz, 33075 at 44100 Hz.
std::uint64_t sync_template_length(std::uint32_t sample_rate_hz);

// Writes the tone into `out`, which must hold sync_tone_length(tone, rate) samples (a
// shorter buffer is filled as far as it goes). Each chirp starts at phase 0; its
// instantaneous frequency falls linearly from high to low over the first half (Lc / 2
// samples) and rises back over the rest; the phase is advanced by 2 pi f / rate before
// each sample; a 3 ms linear fade shapes both ends. Gaps are zeros.
void synth_sync_template(const sync_tone_shape& tone, std::uint32_t sample_rate_hz, std::span<double> out);

}  // namespace veltrane
