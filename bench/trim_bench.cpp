// trim of a 30-minute stereo 48 kHz 24-bit capture (86.4 M frames, 518 MB of data)
// against the time to read and decode the same file, the floor any trim run pays.
// Also the two parts trim adds on top of the read: the leading and trailing searches
// (two channels each, one 2^22-point correlation per channel over the 45 s window) and
// writing the cut.
//
// Peak memory: the file (518 MB) and its decoded doubles (1.38 GB) while reading, then
// the doubles and two 64 MiB transform buffers during the searches.
#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

#include "audio/wav.h"
#include "cli/commands.h"
#include "trim/sync_tone.h"
#include "trim/trim.h"

namespace {

constexpr std::uint32_t rate_hz = 48000;
constexpr std::uint32_t channels = 2;
constexpr std::uint64_t frames = 30ull * 60 * rate_hz;  // 30 minutes
constexpr std::uint64_t lead_at = rate_hz;              // the leading tone starts after 1 s

// 1 s of silence, the tone, programme up to 1.75 s before the end, the tone, 1 s of silence.
std::vector<double> capture() {
    std::vector<double> s(frames * channels, 0.0);
    std::vector<double> tone(veltrane::sync_template_length(rate_hz));
    veltrane::synth_sync_template(veltrane::builtin_sync_tone, rate_hz, tone);
    const std::uint64_t trail_at = frames - rate_hz - tone.size();
    const std::uint64_t programme_from = lead_at + tone.size();
    const double step = 2.0 * 3.14159265358979323846 * 997.0 / rate_hz;  // a 997 Hz tone plus some hiss
    std::uint32_t seed = 12345;
    for (std::uint64_t i = programme_from; i < trail_at; ++i) {
        seed = seed * 1664525u + 1013904223u;
        const double hiss = (static_cast<double>(seed >> 8) / 16777216.0 - 0.5) * 0.02;
        const double v = 0.5 * std::sin(step * static_cast<double>(i % 48000));
        s[2 * i] = v + hiss;
        s[2 * i + 1] = -v + hiss;
    }
    for (std::size_t i = 0; i < tone.size(); ++i)
        for (std::uint32_t c = 0; c < channels; ++c) {
            s[(lead_at + i) * channels + c] = tone[i];
            s[(trail_at + i) * channels + c] = tone[i];
        }
    return s;
}

struct bench_file {
    std::string dir, path, out;
    bench_file() {
        std::string pattern = (std::filesystem::temp_directory_path() / "veltrane-trim-bench-XXXXXX").string();
        if (!mkdtemp(pattern.data())) std::abort();
        dir = pattern;
        path = dir + "/capture_30min_24bit.wav";
        out = dir + "/cut.wav";
        if (!veltrane::wav_write(path, rate_hz, channels, 24, capture(), frames)) std::abort();
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

void BM_read_and_decode(benchmark::State& state) {
    const bench_file& f = shared_file();
    for (auto _ : state) {
        veltrane::wav_audio audio;
        if (!veltrane::wav_read(f.path, audio)) {
            state.SkipWithError("wav_read failed");
            break;
        }
        benchmark::DoNotOptimize(audio.samples.data());
    }
}
BENCHMARK(BM_read_and_decode)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(3);

void BM_trim_command(benchmark::State& state) {
    const bench_file& f = shared_file();
    std::string a0 = "veltrane", a1 = "trim", a2 = "--input", a3 = f.path, a4 = "--out", a5 = f.out;
    char* argv[] = {a0.data(), a1.data(), a2.data(), a3.data(), a4.data(), a5.data(), nullptr};
    for (auto _ : state) {
        std::ostringstream out, err;
        if (veltrane::run_main(6, argv, out, err) != 0) {
            state.SkipWithError(err.str().c_str());
            break;
        }
    }
}
BENCHMARK(BM_trim_command)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(3);

// The parts trim adds to the read, on an already decoded file.
void BM_trim_searches(benchmark::State& state) {
    veltrane::wav_audio audio;
    if (!veltrane::wav_read(shared_file().path, audio)) std::abort();
    const veltrane::trim_window window = veltrane::trim_search_window(45.0, rate_hz, audio.frame_count);
    for (auto _ : state) {
        const veltrane::trim_plan plan = veltrane::plan_trim(audio, window, 6.0);
        if (plan.failure != veltrane::trim_failure::none || plan.leading.sample_offset != lead_at) {
            state.SkipWithError("tones not found");
            break;
        }
    }
}
BENCHMARK(BM_trim_searches)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(3);

void BM_write_cut(benchmark::State& state) {
    veltrane::wav_audio audio;
    if (!veltrane::wav_read(shared_file().path, audio)) std::abort();
    const std::uint64_t tone = veltrane::sync_template_length(rate_hz);
    for (auto _ : state) {
        if (!veltrane::write_trimmed_wav(shared_file().out, audio, lead_at + tone, frames - rate_hz - tone)) {
            state.SkipWithError("write failed");
            break;
        }
    }
}
BENCHMARK(BM_write_cut)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(3);

}  // namespace

BENCHMARK_MAIN();
