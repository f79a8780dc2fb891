// Writes what the browser test opens, into the directory given as the only argument: two
// ERROR pages (the second stands in for "the next report" when checking that a theme
// choice carries over between pages) and a WAV pair, ref.wav and dut.wav, from which the
// test has the real binary write an analyze report.
#include <cmath>
#include <cstdio>
#include <string>
#include <vector>

#include "audio/wav.h"

#include "report/error_page.h"

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: %s <output-directory>\n", argv[0]);
        return 2;
    }
    const std::string dir = argv[1];
    // The error text carries markup and quotes: it must show as text, never run.
    veltrane::error_page_info first{
        "/captures/reference/sweep_48k.wav", "C:\\captures\\dut\\take3.wav",
        "failed to read --ref '/captures/<script>window.__vtInjected=1</script>.wav' (file not found or not "
        "readable); --dut sample rate 8000 Hz is outside the supported range [22050, 192000] Hz",
        "0.7.1-beta"};
    veltrane::error_page_info second{"ref.wav", "dut.wav", "alignment failed -- no match", "0.7.1-beta"};
    if (!veltrane::write_error_page(dir + "/error.html", first) ||
        !veltrane::write_error_page(dir + "/next.html", second)) {
        std::fprintf(stderr, "could not write the pages to %s\n", dir.c_str());
        return 1;
    }
    // Half a second of a two-tone stereo signal; the DUT is the same signal 25 samples late.
    constexpr std::uint32_t rate = 48000;
    constexpr std::uint64_t frames = rate / 2;
    constexpr std::uint64_t delay = 25;
    std::vector<double> ref(frames * 2), dut(frames * 2, 0.0);
    for (std::uint64_t i = 0; i < frames; ++i) {
        double t = static_cast<double>(i) / rate;
        ref[2 * i] = 0.4 * std::sin(6.283185307179586 * 440.0 * t) + 0.2 * std::sin(6.283185307179586 * 3100.0 * t);
        ref[2 * i + 1] = 0.3 * std::sin(6.283185307179586 * 660.0 * t) + 0.2 * std::sin(6.283185307179586 * 5300.0 * t);
    }
    for (std::uint64_t i = delay; i < frames; ++i) {
        dut[2 * i] = ref[2 * (i - delay)];
        dut[2 * i + 1] = ref[2 * (i - delay) + 1];
    }
    if (!veltrane::wav_write(dir + "/ref.wav", rate, 2, 24, ref, frames) ||
        !veltrane::wav_write(dir + "/dut.wav", rate, 2, 24, dut, frames)) {
        std::fprintf(stderr, "could not write the WAV pair to %s\n", dir.c_str());
        return 1;
    }
    return 0;
}
