// align_channels on a 5-minute stereo 48 kHz pair (14.4 M frames per channel, a DUT
// 123 samples late). Each channel costs one correlation: two forward FFTs and one inverse
// FFT of 2^25 points over two complex arrays of 512 MiB each.
#include <benchmark/benchmark.h>

#include <random>
#include <vector>

#include "align/align.h"

namespace {

constexpr std::uint32_t rate_hz = 48000;
constexpr std::uint64_t frames = 300ull * rate_hz;
constexpr std::uint64_t delay = 123;

veltrane::wav_audio stereo(std::vector<double> samples) {
    veltrane::wav_audio a;
    a.sample_rate = rate_hz;
    a.channels = 2;
    a.format_code = 24;
    a.frame_count = frames;
    a.samples = std::move(samples);
    return a;
}

void BM_align_channels(benchmark::State& state) {
    std::mt19937 gen(7);
    std::uniform_real_distribution<double> dist(-0.5, 0.5);
    std::vector<double> ref(frames * 2), dut(frames * 2, 0.0);
    for (double& v : ref) v = dist(gen);
    for (std::uint64_t i = delay; i < frames; ++i) {
        dut[2 * i] = ref[2 * (i - delay)];
        dut[2 * i + 1] = ref[2 * (i - delay) + 1];
    }
    const veltrane::wav_audio r = stereo(std::move(ref));
    const veltrane::wav_audio d = stereo(std::move(dut));
    veltrane::align_result result;
    for (auto _ : state) {
        result = veltrane::align_channels(r, d, 4800, 0.9, 2, -70.0);
        benchmark::DoNotOptimize(result);
    }
    state.counters["offset"] = result.file_offset;
    state.counters["aligned"] = result.aligned ? 1 : 0;
}

BENCHMARK(BM_align_channels)->Unit(benchmark::kSecond)->Iterations(1);

}  // namespace

BENCHMARK_MAIN();
