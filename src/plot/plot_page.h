#pragma once
// The plot page: one WAV file drawn on its own, with no reference and no verdict. Its
// magnitude spectrum (Hann-windowed FFT frame of N samples centred in the file, dBFS) on a
// logarithmic and on a linear frequency axis, its whole waveform in linear full scale and
// in dB (Time Energy), per channel; plus a small JSON document of the file's format facts.
#include <cstdint>
#include <string>
#include <string_view>

#include "audio/wav.h"
#include "config/defaults_file.h"
#include "report/text_buf.h"

namespace veltrane {

struct plot_inputs {
    std::string input_path;  // --input as typed
    const wav_audio* audio = nullptr;
    std::uint64_t fft_size = 8192;  // N, samples per spectrum frame
    double noise_floor_db = -100.0;  // dBFS line drawn on the spectra
    std::string_view version;
    tester_identity tester;
};

// The plot document is built in a buffer of this many bytes (a very long path does not fit).
inline constexpr std::size_t plot_json_buffer_size = 1024;

// Appends the whole page; `timestamp` is the footer's generation time.
bool append_plot_page(text_buf& buf, const plot_inputs& in, std::string_view timestamp);
// Builds the page with the current UTC time and writes it with one write; nothing is
// written when it cannot be built.
bool write_plot_page(const std::string& html_path, const plot_inputs& in);

// The JSON document: status, input file, rate, channels, bit depth, sample format, frames
// and duration. False when it does not fit its buffer.
bool build_plot_json(const plot_inputs& in, std::string& document);
bool write_plot_json(const std::string& json_path, const plot_inputs& in);

}  // namespace veltrane
