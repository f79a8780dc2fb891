// A long capture through the real `veltrane analyze`: writes a deterministic stereo 48 kHz
// 24-bit reference of the given length (60 minutes by default, 1 GiB per file) and a DUT
// that is the same audio delayed by a known number of samples into a fresh temporary
// folder, runs analyze on them with --json, prints the wall time, the peak resident
// memory of the analyze process and the offset and confidences it found, then removes
// the folder. Run by hand only (bench/run.sh skips it unless VELTRANE_BENCH_LONG=1): it
// writes 2 GiB and analyze needs about 7 GiB of memory for the hour.
//
//   long_capture_bench [--minutes M] [--delay D] [--veltrane PATH]
//
// Exits 0 when analyze succeeded and found the delay.
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <span>
#include <sstream>
#include <string>
#include <vector>

#include "audio/wav.h"

namespace {

constexpr std::uint32_t rate_hz = 48000;
constexpr std::uint32_t channels = 2;
constexpr std::uint32_t bits = 24;
constexpr std::uint64_t frames_per_write = 1u << 16;

// Sample (frame, channel) of the reference: hashed noise at about -9 dBFS RMS, a pure
// function of its position so the DUT can be written as the same audio shifted.
double reference_sample(std::uint64_t frame, std::uint32_t channel) {
    std::uint64_t x = frame * channels + channel + 0x9E3779B97F4A7C15ull;  // splitmix64
    x = (x ^ (x >> 30)) * 0xBF58476D1CE4E5B9ull;
    x = (x ^ (x >> 27)) * 0x94D049BB133111EBull;
    x ^= x >> 31;
    return (static_cast<double>(x >> 11) / 9007199254740992.0 - 0.5) * 1.2;  // 2^53; uniform in [-0.6, 0.6)
}

void put_le(std::vector<std::uint8_t>& out, std::uint64_t v, int bytes) {
    for (int i = 0; i < bytes; ++i) out.push_back(static_cast<std::uint8_t>(v >> (8 * i)));
}

// A 44-byte PCM header followed by `frames` frames of the reference delayed by `delay`
// frames (silence before it), written block by block.
bool write_capture(const std::string& path, std::uint64_t frames, std::uint64_t delay) {
    const std::uint64_t data_bytes = frames * channels * (bits / 8);
    std::vector<std::uint8_t> header;
    header.insert(header.end(), {'R', 'I', 'F', 'F'});
    put_le(header, 36 + data_bytes, 4);
    header.insert(header.end(), {'W', 'A', 'V', 'E', 'f', 'm', 't', ' '});
    put_le(header, 16, 4);
    put_le(header, 1, 2);  // integer PCM
    put_le(header, channels, 2);
    put_le(header, rate_hz, 4);
    put_le(header, rate_hz * channels * (bits / 8), 4);
    put_le(header, channels * (bits / 8), 2);
    put_le(header, bits, 2);
    header.insert(header.end(), {'d', 'a', 't', 'a'});
    put_le(header, data_bytes, 4);

    std::FILE* f = std::fopen(path.c_str(), "wb");
    if (!f) return false;
    bool ok = std::fwrite(header.data(), 1, header.size(), f) == header.size();
    std::vector<double> block(frames_per_write * channels);
    for (std::uint64_t first = 0; ok && first < frames; first += frames_per_write) {
        const std::uint64_t count = std::min(frames_per_write, frames - first);
        for (std::uint64_t i = 0; i < count; ++i)
            for (std::uint32_t c = 0; c < channels; ++c)
                block[i * channels + c] = first + i < delay ? 0.0 : reference_sample(first + i - delay, c);
        ok = veltrane::write_pcm_samples(f, bits, std::span<const double>(block.data(), count * channels));
    }
    return std::fclose(f) == 0 && ok;
}

// The line of `key` in a flat JSON document, trimmed; empty when absent.
std::string json_line(const std::string& doc, const std::string& key) {
    const std::size_t at = doc.find("\"" + key + "\"");
    if (at == std::string::npos) return {};
    return doc.substr(at, doc.find('\n', at) - at);
}

}  // namespace

int main(int argc, char** argv) {
    double minutes = 60.0;
    std::int64_t delay = 37;
    std::string veltrane = VELTRANE_BIN;
    if (const char* env = std::getenv("VELTRANE_BIN")) veltrane = env;
    for (int i = 1; i + 1 < argc; i += 2) {
        if (std::strcmp(argv[i], "--minutes") == 0) minutes = std::atof(argv[i + 1]);
        else if (std::strcmp(argv[i], "--delay") == 0) delay = std::atoll(argv[i + 1]);
        else if (std::strcmp(argv[i], "--veltrane") == 0) veltrane = argv[i + 1];
    }
    if (minutes <= 0.0 || delay < 0) {
        std::fprintf(stderr, "usage: long_capture_bench [--minutes M] [--delay D>=0] [--veltrane PATH]\n");
        return 1;
    }
    const auto frames = static_cast<std::uint64_t>(minutes * 60.0 * rate_hz);

    char pattern[] = "/tmp/veltrane-long-XXXXXX";
    if (!::mkdtemp(pattern)) {
        std::perror("mkdtemp");
        return 1;
    }
    const std::string dir = pattern;
    const std::string ref = dir + "/ref.wav", dut = dir + "/dut.wav", html = dir + "/report.html";
    std::printf("%.1f-minute stereo 48 kHz 24-bit pair, DUT %lld samples late, in %s\n", minutes,
                static_cast<long long>(delay), dir.c_str());
    std::fflush(stdout);
    auto t0 = std::chrono::steady_clock::now();
    if (!write_capture(ref, frames, 0) || !write_capture(dut, frames, static_cast<std::uint64_t>(delay))) {
        std::fprintf(stderr, "could not write the pair into %s\n", dir.c_str());
        std::filesystem::remove_all(dir);
        return 1;
    }
    std::printf("  files written in %.1f s\n",
                std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count());
    std::fflush(stdout);

    t0 = std::chrono::steady_clock::now();
    const pid_t child = ::fork();
    if (child == 0) {
        ::execl(veltrane.c_str(), veltrane.c_str(), "analyze", "--ref", ref.c_str(), "--dut", dut.c_str(), "--out",
                html.c_str(), "--json", static_cast<char*>(nullptr));
        std::perror("exec");
        std::_Exit(127);
    }
    int status = 0;
    struct rusage usage {};
    const bool waited = child > 0 && ::wait4(child, &status, 0, &usage) == child;
    const double wall_s = std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();

    std::ostringstream doc;
    doc << std::ifstream(dir + "/report.json").rdbuf();
    const std::string results = doc.str();
    const std::string offset = json_line(results, "align_file_offset");
    const int exit_status = waited && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    const auto seconds = [](const timeval& t) {
        return static_cast<double>(t.tv_sec) + 1e-6 * static_cast<double>(t.tv_usec);
    };
    std::printf("  analyze exit status %d, wall time %.1f s (cpu %.1f s user + %.1f s system), "
                "peak RSS %.2f GiB (%ld KiB)\n",
                exit_status, wall_s, seconds(usage.ru_utime), seconds(usage.ru_stime),
                static_cast<double>(usage.ru_maxrss) / (1024.0 * 1024.0), usage.ru_maxrss);
    std::printf("  %s\n  %s\n  %s\n", offset.c_str(), json_line(results, "align_channel_0_confidence").c_str(),
                json_line(results, "align_channel_1_confidence").c_str());
    std::filesystem::remove_all(dir);
    const bool found = !offset.empty() && std::strtoll(offset.c_str() + offset.find(':') + 1, nullptr, 10) == delay;
    std::printf("  offset %s\n", found ? "found" : "NOT found");
    return exit_status == 0 && found ? 0 : 1;
}
