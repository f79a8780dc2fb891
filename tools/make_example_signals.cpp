// Writes a deterministic example pair for trying veltrane out:
//   <dir>/reference.wav  8 s stereo 48 kHz 24-bit: three steady tones plus a slow
//                        tone burst pattern, so every check has something to measure;
//   <dir>/capture.wav    the same programme as a device would return it: 120 samples
//                        late, 0.2 dB quieter, with a faint noise floor and one click.
// Usage: make_example_signals <output-directory>
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <random>
#include <string>
#include <vector>

#include "audio/wav.h"

namespace {

constexpr std::uint32_t rate_hz = 48000;
constexpr std::uint32_t channels = 2;
constexpr std::uint32_t format_code = 24;
constexpr std::uint64_t frames = 8 * rate_hz;
constexpr double two_pi = 6.283185307179586476925286766559;

// Capture impairments.
constexpr std::uint64_t delay_samples = 120;     // 2.5 ms of latency
constexpr double gain_db = -0.2;                 // a slightly low output stage
constexpr double noise_floor_amplitude = 3e-5;   // about -90 dBFS of hiss
constexpr std::uint64_t click_frame = 5 * rate_hz + 1234;
constexpr double click_amplitude = 0.35;

std::vector<double> reference_programme() {
    std::vector<double> out(frames * channels);
    for (std::uint64_t i = 0; i < frames; ++i) {
        double t = static_cast<double>(i) / rate_hz;
        // -12 dBFS tones at 100 Hz, 1 kHz and 6.3 kHz; the right channel swaps the
        // level of the two upper tones so the channels differ.
        double a = 0.25;
        double low = a * std::sin(two_pi * 100.0 * t);
        double mid = a * std::sin(two_pi * 1000.0 * t);
        double high = a * std::sin(two_pi * 6300.0 * t);
        // A 0.5 s on / 0.5 s off 440 Hz burst at -20 dBFS with 10 ms ramps.
        double phase = std::fmod(t, 1.0);
        double ramp = std::min({1.0, phase / 0.01, std::max(0.0, (0.5 - phase) / 0.01)});
        double burst = phase < 0.5 ? 0.1 * ramp * std::sin(two_pi * 440.0 * t) : 0.0;
        out[i * channels] = low + mid + 0.5 * high + burst;
        out[i * channels + 1] = low + 0.5 * mid + high + burst;
    }
    return out;
}

std::vector<double> impaired_capture(const std::vector<double>& ref) {
    std::vector<double> out(ref.size(), 0.0);
    double gain = std::pow(10.0, gain_db / 20.0);
    std::mt19937 gen(20261123);
    std::uniform_real_distribution<double> hiss(-noise_floor_amplitude, noise_floor_amplitude);
    for (std::uint64_t i = 0; i < frames; ++i) {
        for (std::uint32_t c = 0; c < channels; ++c) {
            double v = i >= delay_samples ? gain * ref[(i - delay_samples) * channels + c] : 0.0;
            out[i * channels + c] = v + hiss(gen);
        }
    }
    out[click_frame * channels] += click_amplitude;
    return out;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: make_example_signals <output-directory>\n");
        return 1;
    }
    std::string dir = argv[1];
    std::vector<double> ref = reference_programme();
    std::vector<double> dut = impaired_capture(ref);
    std::string ref_path = dir + "/reference.wav";
    std::string dut_path = dir + "/capture.wav";
    if (!veltrane::wav_write(ref_path, rate_hz, channels, format_code, ref, frames) ||
        !veltrane::wav_write(dut_path, rate_hz, channels, format_code, dut, frames)) {
        std::fprintf(stderr, "error: could not write the example signals to '%s'\n", dir.c_str());
        return 1;
    }
    std::printf("wrote %s and %s\n", ref_path.c_str(), dut_path.c_str());
    return 0;
}
