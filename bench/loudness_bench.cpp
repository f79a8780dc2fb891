// Loudness measurement of both files of a 5-minute stereo 48 kHz pair: the product's
// measure_loudness (each channel K-weighted once, the squares shared by the momentary,
// short-term and range series, blocks and true-peak phases summed side by side) beside
// the literal one-value-at-a-time version of the tests. Both must give identical
// figures; both times are printed.
#include <chrono>
#include <cmath>
#include <cstdio>
#include <ctime>
#include <numbers>
#include <random>
#include <string_view>
#include <vector>

#include "checks/loudness.h"
#include "support/loudness_literal.h"

namespace {

constexpr std::uint32_t rate_hz = 48000;
constexpr std::uint64_t frames = 300ull * rate_hz;

// Programme-like material: three tones and noise under a slowly moving level, with a
// louder passage in the middle; the DUT is the reference 0.3 dB quieter plus a little
// noise of its own.
veltrane::wav_audio make_pair_file(bool dut) {
    veltrane::wav_audio a;
    a.sample_rate = rate_hz;
    a.channels = 2;
    a.format_code = 24;
    a.frame_count = frames;
    a.samples.resize(frames * 2);
    std::mt19937 gen(11);
    std::mt19937 dut_gen(12);
    std::uniform_real_distribution<double> noise(-1.0, 1.0);
    const double two_pi = 2.0 * std::numbers::pi;
    const double gain = dut ? std::pow(10.0, -0.3 / 20.0) : 1.0;
    for (std::uint64_t i = 0; i < frames; ++i) {
        const double t = static_cast<double>(i) / rate_hz;
        const double level = (t > 120.0 && t < 180.0 ? 0.5 : 0.2) * (0.75 + 0.25 * std::sin(two_pi * 0.05 * t));
        for (std::uint32_t c = 0; c < 2; ++c) {
            double v = level * (0.5 * std::sin(two_pi * (110.0 + 55.0 * c) * t) + 0.3 * std::sin(two_pi * 1250.0 * t) +
                                0.1 * std::sin(two_pi * 7000.0 * t) + 0.1 * noise(gen));
            if (dut) v = v * gain + 1e-4 * noise(dut_gen);
            a.samples[i * 2 + c] = v;
        }
    }
    return a;
}

bool same(const veltrane::loudness_measurement& a, const veltrane::loudness_measurement& b) {
    return a.integrated_lufs == b.integrated_lufs && a.lra_lu == b.lra_lu && a.true_peak_dbtp == b.true_peak_dbtp &&
           a.sample_peak_dbfs == b.sample_peak_dbfs && a.max_momentary_lufs == b.max_momentary_lufs &&
           a.max_short_term_lufs == b.max_short_term_lufs;
}

void print(const char* name, const veltrane::loudness_measurement& m) {
    std::printf("  %s: I %.3f LUFS, LRA %.3f LU, TP %.3f dBTP, SP %.3f dBFS, M %.3f, S %.3f LUFS\n", name,
                m.integrated_lufs, m.lra_lu, m.true_peak_dbtp, m.sample_peak_dbfs, m.max_momentary_lufs,
                m.max_short_term_lufs);
}

// Processor time of this process, in seconds: the machine is shared, so wall time
// includes other programs' turns.
double cpu_seconds() {
    timespec ts{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &ts);
    return static_cast<double>(ts.tv_sec) + 1e-9 * static_cast<double>(ts.tv_nsec);
}

}  // namespace

int main(int argc, char** argv) {
    // --fast-only skips the literal measurement (for profiling the product's).
    const bool fast_only = argc > 1 && std::string_view(argv[1]) == "--fast-only";
    using clock = std::chrono::steady_clock;
    const veltrane::wav_audio files[2] = {make_pair_file(false), make_pair_file(true)};
    veltrane::loudness_measurement fast[2], literal[2];
    double best_fast = 1e9, best_fast_cpu = 1e9;
    for (int round = 0; round < 3; ++round) {
        const auto t0 = clock::now();
        const double c0 = cpu_seconds();
        for (int f = 0; f < 2; ++f) fast[f] = veltrane::measure_loudness(files[f], 2, 0, frames, rate_hz);
        best_fast_cpu = std::min(best_fast_cpu, cpu_seconds() - c0);
        best_fast = std::min(best_fast, std::chrono::duration<double>(clock::now() - t0).count());
    }
    if (fast_only) {
        std::printf("measure_loudness of both files: %.3f s wall, %.3f s cpu (best of 3)\n", best_fast, best_fast_cpu);
        return 0;
    }
    const auto t1 = clock::now();
    const double c1 = cpu_seconds();
    for (int f = 0; f < 2; ++f)
        literal[f] = veltrane::test::measure_loudness_literal(files[f], 2, 0, frames, rate_hz);
    const double literal_cpu = cpu_seconds() - c1;
    const double literal_sec = std::chrono::duration<double>(clock::now() - t1).count();
    print("ref", fast[0]);
    print("dut", fast[1]);
    const bool identical = same(fast[0], literal[0]) && same(fast[1], literal[1]);
    std::printf("loudness of both files of a 5-min stereo 48 kHz pair:\n"
                "  measure_loudness %.3f s wall, %.3f s cpu (best of 3)\n"
                "  literal          %.3f s wall, %.3f s cpu\n"
                "  results %s\n",
                best_fast, best_fast_cpu, literal_sec, literal_cpu, identical ? "identical" : "DIFFERENT");
    return identical ? 0 : 1;
}
