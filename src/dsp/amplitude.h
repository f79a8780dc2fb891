#pragma once
// Hann-windowed single-sided amplitude spectrum of one channel, scaled so that a sine of
// peak amplitude A centred on a bin reads about A (linear) or 20 log10 A dBFS.
#include <cstdint>
#include <span>
#include <vector>

#include "audio/wav.h"
#include "dsp/fft.h"

namespace veltrane {

enum class spectrum_form {
    linear,      // amplitude, full scale 1.0
    db_check,    // dBFS, -200.0 where the amplitude is 0 (the spectral check)
    db_chart,    // dBFS, -140.0 where the amplitude is 0 (charts)
};

// Floors of the two dB forms, standing for "no level at all".
inline constexpr double spectrum_check_floor_db = -200.0;
inline constexpr double spectrum_chart_floor_db = -140.0;

// The window value for sample i of an n-point frame: the symmetric Hann window of length
// n shifted one sample left, 0.5 (1 - cos(2 pi (i + 1) / (n - 1))).
double shifted_hann(std::uint64_t i, std::uint64_t n);

// Writes n / 2 bins (bin k at k * rate / n Hz) of frames [start_frame, start_frame + n)
// of `channel` to `out`. The caller guarantees the frames exist and n is a power of two;
// out must hold n / 2 values. Each bin is |X[k]| * 4 / n: 2 for the single side, 2 for the
// Hann window's coherent gain of 0.5.
void amplitude_spectrum(const wav_audio& audio, std::uint32_t channel, std::uint64_t start_frame, std::uint64_t n,
                        std::span<double> out, spectrum_form form);

}  // namespace veltrane

namespace veltrane {

// What every spectrum of one size shares: the window table (shifted_hann for i = 0 .. n-1,
// the same values the plain form computes per call), the transform's twiddles and its
// work buffer.
// A scan makes one and reuses it for every frame, so a frame costs only its transform.
struct amplitude_workspace {
    std::uint64_t n = 0;
    std::vector<double> window;
    std::vector<complex_value> frame;
    fft_plan plan;  // forward, n points
};

// Sizes the workspace for n-point spectra; false (workspace left empty) when memory is
// exhausted.
bool amplitude_workspace_init(amplitude_workspace& ws, std::uint64_t n);

// The same values as amplitude_spectrum(audio, channel, start_frame, ws.n, out, form), bit
// for bit, without allocating.
void amplitude_spectrum(amplitude_workspace& ws, const wav_audio& audio, std::uint32_t channel,
                        std::uint64_t start_frame, std::span<double> out, spectrum_form form);

// The check's dB form for the bins that can matter against a level `cutoff_db`: a bin
// whose amplitude is certainly below cutoff_db - 0.001 dB is written as -infinity without
// taking its modulus and logarithm; every other bin gets exactly the db_check value. The
// test is made on re^2 + im^2 with a relative margin of 1e-6, far wider than the rounding
// of either side, so no bin at or above the cutoff is ever skipped. A caller that only
// compares bins with levels at or above the cutoff (and floors everything below it) sees
// the same results as with the full spectrum. With a cutoff at or below -199.999 dB every
// bin is computed (the -200 dB floor of a zero bin must stay comparable).
void amplitude_spectrum_db_above(amplitude_workspace& ws, const wav_audio& audio, std::uint32_t channel,
                                 std::uint64_t start_frame, std::span<double> out, double cutoff_db);

}  // namespace veltrane
