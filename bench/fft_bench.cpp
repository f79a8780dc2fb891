// Forward FFT of 2^20 and 2^25 points: the chunked-twiddle transform against the plain
// per-block loop it must match bit for bit. The "speedup" counter of the fast runs is
// the plain loop's time divided by the fast one's, measured at the same size.
#include <benchmark/benchmark.h>

#include <chrono>
#include <cstring>
#include <random>
#include <vector>

#include "dsp/fft.h"
#include "support/reference_fft.h"

namespace {

using veltrane::complex_value;

std::vector<complex_value> signal(std::size_t n) {
    std::mt19937 gen(1);
    std::uniform_real_distribution<double> dist(-1.0, 1.0);
    std::vector<complex_value> x(n);
    for (auto& v : x) v.re = dist(gen);
    return x;
}

double seconds_of(void (*fft)(std::span<complex_value>, bool), std::vector<complex_value> x) {
    auto t0 = std::chrono::steady_clock::now();
    fft(x, false);
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
}

void BM_fft(benchmark::State& state, bool fast) {
    const auto n = static_cast<std::size_t>(state.range(0));
    const std::vector<complex_value> input = signal(n);
    std::vector<complex_value> work;
    for (auto _ : state) {
        state.PauseTiming();
        work = input;
        state.ResumeTiming();
        if (fast)
            veltrane::fft_inplace(work, false);
        else
            veltrane::test::reference_fft(work, false);
        benchmark::DoNotOptimize(work.data());
    }
    if (fast) {
        double plain = seconds_of(veltrane::test::reference_fft, input);
        double quick = seconds_of(veltrane::fft_inplace, input);
        state.counters["speedup"] = plain / quick;
        std::vector<complex_value> a = input, b = input;
        veltrane::fft_inplace(a, false);
        veltrane::test::reference_fft(b, false);
        state.counters["identical"] = std::memcmp(a.data(), b.data(), n * sizeof(complex_value)) == 0 ? 1 : 0;
    }
}

BENCHMARK_CAPTURE(BM_fft, fast, true)->Arg(1 << 20)->Arg(1 << 25)->Unit(benchmark::kMillisecond)->Iterations(2);
BENCHMARK_CAPTURE(BM_fft, plain, false)->Arg(1 << 20)->Arg(1 << 25)->Unit(benchmark::kMillisecond)->Iterations(2);

}  // namespace

BENCHMARK_MAIN();
