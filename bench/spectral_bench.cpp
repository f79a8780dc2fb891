// The spectral fidelity and THD+N checks on a 5-minute stereo 48 kHz pair: a logarithmic
// sweep from 20 Hz to 20 kHz and a DUT 0.2 dB quieter. The continuous --freqsweep scan
// (N 8192, overlap 0.5, 4096 samples skipped at each end) places about 3500 frames per
// channel, two 8192-point spectra each; the default single-frame check places one. Every
// product figure is compared with the literal per-frame-allocating version
// (tests/support/literal_spectral.h): the counter "identical" is 1 when all fields match
// bit for bit.
#include <benchmark/benchmark.h>

#include <cmath>
#include <vector>

#include "checks/distortion.h"
#include "checks/spectral_scan.h"
#include "support/literal_spectral.h"

namespace {

using namespace veltrane;

constexpr std::uint32_t rate_hz = 48000;
constexpr std::uint64_t frames = 300ull * rate_hz;

struct bench_pair {
    wav_audio ref, dut;
};

const bench_pair& pair() {
    static const bench_pair p = [] {
        bench_pair b;
        for (wav_audio* a : {&b.ref, &b.dut}) {
            a->sample_rate = rate_hz;
            a->channels = 2;
            a->format_code = 24;
            a->frame_count = frames;
            a->samples.resize(frames * 2);
        }
        const double t_total = static_cast<double>(frames) / rate_hz;
        const double k = std::log(20000.0 / 20.0);
        const double gain = std::pow(10.0, -0.2 / 20.0);
        for (std::uint64_t i = 0; i < frames; ++i) {
            const double t = static_cast<double>(i) / rate_hz;
            const double x = 0.5 * std::sin(2.0 * 3.14159265358979323846 * 20.0 * t_total / k * (std::exp(t / t_total * k) - 1.0));
            b.ref.samples[2 * i] = b.ref.samples[2 * i + 1] = x;
            b.dut.samples[2 * i] = b.dut.samples[2 * i + 1] = x * gain;
        }
        return b;
    }();
    return p;
}

spectral_settings freqsweep_settings() {
    spectral_settings s;
    s.bands = {{1e300, -100.0, -70.0, -60.0, 5.0, 10.0, 1.0}};
    s.profile = spectral_profile_kind::freq_sweep;
    s.continuous = true;
    s.overlap_fraction = 0.5;
    s.edge_skip_active = true;
    s.edge_skip_samples = 4096;
    s.sweep_window = sweep_window_settings{1, 20.0, 20000.0, 0.0, 50.0};
    return s;
}

spectral_settings single_frame_settings() {
    spectral_settings s;
    s.bands = {{1e300, -100.0, -70.0, -60.0, 5.0, 10.0, 1.0}};
    return s;
}

distortion_settings thdn_settings(bool continuous) {
    distortion_settings s;
    s.continuous = continuous;
    s.overlap_fraction = continuous ? 0.5 : 0.0;
    return s;
}

void spectral_case(benchmark::State& state, const spectral_settings& s, bool literal) {
    const bench_pair& p = pair();
    spectral_result r;
    for (auto _ : state) {
        r = literal ? test::literal_scan_spectral(p.ref, p.dut, 0, s) : scan_spectral(p.ref, p.dut, 0, s);
        benchmark::DoNotOptimize(r);
    }
    const double frames_done = static_cast<double>(r.channels[0].frames_scanned + r.channels[1].frames_scanned);
    state.counters["frames"] = frames_done;
    state.counters["frames_per_s"] = benchmark::Counter(frames_done, benchmark::Counter::kIsIterationInvariantRate);
    state.counters["p99_ratio"] = r.channels[0].p99_ratio;
    if (!literal) state.counters["identical"] = test::same_result(r, test::literal_scan_spectral(p.ref, p.dut, 0, s)) ? 1 : 0;
}

void thdn_case(benchmark::State& state, bool continuous, bool literal) {
    const bench_pair& p = pair();
    const distortion_settings s = thdn_settings(continuous);
    distortion_result r;
    for (auto _ : state) {
        r = literal ? test::literal_check_distortion(p.ref, p.dut, 0, s) : check_distortion(p.ref, p.dut, 0, s);
        benchmark::DoNotOptimize(r);
    }
    const double frames_done = static_cast<double>(r.channels[0].frames_scanned + r.channels[1].frames_scanned);
    state.counters["frames"] = frames_done;
    state.counters["frames_per_s"] = benchmark::Counter(frames_done, benchmark::Counter::kIsIterationInvariantRate);
    if (!literal) state.counters["identical"] = test::same_result(r, test::literal_check_distortion(p.ref, p.dut, 0, s)) ? 1 : 0;
}

void BM_spectral_freqsweep_continuous(benchmark::State& st) { spectral_case(st, freqsweep_settings(), false); }
void BM_spectral_freqsweep_continuous_literal(benchmark::State& st) { spectral_case(st, freqsweep_settings(), true); }
void BM_spectral_single_frame(benchmark::State& st) { spectral_case(st, single_frame_settings(), false); }
void BM_spectral_single_frame_literal(benchmark::State& st) { spectral_case(st, single_frame_settings(), true); }
void BM_thdn_single_frame(benchmark::State& st) { thdn_case(st, false, false); }
void BM_thdn_continuous(benchmark::State& st) { thdn_case(st, true, false); }
void BM_thdn_continuous_literal(benchmark::State& st) { thdn_case(st, true, true); }

BENCHMARK(BM_spectral_freqsweep_continuous)->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(BM_spectral_freqsweep_continuous_literal)->Unit(benchmark::kMillisecond)->Iterations(1);
BENCHMARK(BM_spectral_single_frame)->Unit(benchmark::kMillisecond)->Iterations(20);
BENCHMARK(BM_spectral_single_frame_literal)->Unit(benchmark::kMillisecond)->Iterations(20);
BENCHMARK(BM_thdn_single_frame)->Unit(benchmark::kMillisecond)->Iterations(20);
BENCHMARK(BM_thdn_continuous)->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(BM_thdn_continuous_literal)->Unit(benchmark::kMillisecond)->Iterations(1);

}  // namespace

BENCHMARK_MAIN();
