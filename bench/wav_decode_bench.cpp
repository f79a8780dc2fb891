// Throughput of wav_read (and, for comparison, wav_write) on a 5-minute stereo 48 kHz
// 24-bit file: 300 s * 48000 frames * 2 channels = 28.8 M samples, 86.4 MB of data.
//
// Peak memory expectation for one read: the whole file (86.4 MB) and the decoded doubles
// (8 bytes per sample = 230.4 MB) are held together while converting, about 317 MB;
// afterwards only the doubles remain.
#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "audio/wav.h"

namespace {

constexpr std::uint32_t rate_hz = 48000;
constexpr std::uint32_t channels = 2;
constexpr std::uint64_t frames = 300ull * rate_hz;  // 5 minutes

std::vector<double> test_signal() {
    std::vector<double> samples(frames * channels);
    const double step = 2.0 * 3.14159265358979323846 * 997.0 / rate_hz;  // a 997 Hz tone
    for (std::uint64_t i = 0; i < frames; ++i) {
        const double v = 0.7 * std::sin(step * static_cast<double>(i));
        samples[2 * i] = v;
        samples[2 * i + 1] = -v;
    }
    return samples;
}

// A temporary directory holding the test file, removed at exit.
struct bench_file {
    std::string dir;
    std::string path;
    std::uintmax_t bytes = 0;
    bench_file() {
        std::string pattern = (std::filesystem::temp_directory_path() / "veltrane-bench-XXXXXX").string();
        if (!mkdtemp(pattern.data())) std::abort();
        dir = pattern;
        path = dir + "/five_minutes_24bit.wav";
        if (!veltrane::wav_write(path, rate_hz, channels, 24, test_signal(), frames)) std::abort();
        bytes = std::filesystem::file_size(path);
    }
    ~bench_file() {
        std::error_code ec;
        std::filesystem::remove_all(dir, ec);
    }
};

const bench_file& shared_file() {
    static bench_file file;
    return file;
}

void set_rate(benchmark::State& state, std::uintmax_t bytes_per_iteration) {
    const auto total = static_cast<double>(bytes_per_iteration) * static_cast<double>(state.iterations());
    state.SetBytesProcessed(static_cast<std::int64_t>(total));
    state.counters["MB/s"] = benchmark::Counter(total / 1e6, benchmark::Counter::kIsRate);
}

void BM_wav_read_24bit_stereo_5min(benchmark::State& state) {
    const bench_file& file = shared_file();
    for (auto _ : state) {
        veltrane::wav_audio audio;
        if (!veltrane::wav_read(file.path, audio)) {
            state.SkipWithError("wav_read failed");
            break;
        }
        benchmark::DoNotOptimize(audio.samples.data());
    }
    set_rate(state, file.bytes);
}
BENCHMARK(BM_wav_read_24bit_stereo_5min)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_wav_write_24bit_stereo_5min(benchmark::State& state) {
    const bench_file& file = shared_file();
    const std::vector<double> samples = test_signal();
    const std::string out = file.dir + "/written.wav";
    for (auto _ : state) {
        if (!veltrane::wav_write(out, rate_hz, channels, 24, samples, frames)) {
            state.SkipWithError("wav_write failed");
            break;
        }
    }
    set_rate(state, file.bytes);
}
BENCHMARK(BM_wav_write_24bit_stereo_5min)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
