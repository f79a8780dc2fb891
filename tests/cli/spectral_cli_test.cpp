// The spectral fidelity and distortion checks through the real binary: which keys the
// results document carries in each mode, the KPI tiles, the cards, and the verdict.
#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

#include "support/process.h"
#include "support/temp_dir.h"
#include "support/wav_bytes.h"

namespace veltrane::test {
namespace {

constexpr std::uint32_t rate = 48000;
constexpr double pi = 3.14159265358979323846;

// Mono: a 1 kHz tone over low noise (the noise makes alignment unambiguous), optionally
// with the 7 kHz tone `boost_db` louder in the DUT than in the reference.
std::vector<double> tone_pair_side(std::uint64_t frames, double seven_k_amplitude) {
    std::vector<double> v = noise(frames, 1, 0.01, 5);
    for (std::uint64_t i = 0; i < frames; ++i) {
        const double t = static_cast<double>(i) / rate;
        v[i] += 0.3 * std::sin(2.0 * pi * 1000.0 * t) + seven_k_amplitude * std::sin(2.0 * pi * 7000.0 * t);
    }
    return v;
}

std::vector<double> log_sweep(std::uint64_t frames) {
    std::vector<double> v(frames);
    const double t_total = static_cast<double>(frames) / rate, k = std::log(1000.0);
    for (std::uint64_t i = 0; i < frames; ++i)
        v[i] = 0.5 * std::sin(2.0 * pi * 20.0 * t_total / k * (std::exp(static_cast<double>(i) / rate / t_total * k) - 1.0));
    return v;
}

struct cli_case {
    const char* name;
    std::vector<double> ref, dut;
    std::vector<std::string> flags;
    std::string summary;
    std::vector<std::pair<std::string, std::string>> keys;  // expected values; "<missing>" for absent keys
    std::vector<std::string> page_has;
};

TEST(SpectralCli, ModesKeysTilesAndCards) {
    const std::vector<double> tone = tone_pair_side(rate, 0.1);
    const std::vector<double> loud = tone_pair_side(rate, 0.1 * std::pow(10.0, 3.0 / 20.0));
    const std::vector<double> sweep = log_sweep(3 * rate);
    const std::vector<double> short_noise = noise(6000, 1, 0.5, 9);
    const cli_case cases[] = {
        {"single frame fails on a +3 dB tone",
         tone,
         loud,
         {"--levelfidelity-ref-only"},  // the level check would also see the partial's +3 dB
         "overall: FAIL -- Spectral Fidelity, Distortion",
         {{"spectral_verdict", "\"FAIL\""},
          {"spectral_channel_0_frames_scanned", "1"},
          {"spectral_channel_0_worst_bin_is_peak", "1"},
          {"spectral_channel_0_worst_bin_freq_hz", "7001.953125"},  // bin 1195, nearest to 7 kHz
          {"distortion_verdict", "\"FAIL\""}},  // the louder 7 kHz tone is excess power
         {"<span class=\"badge fail\">Fail</span>", ">Fail +3.0dB</text>", "<div class=\"k\">Bins Failed</div><div class=\"v fail\">",
          "<div class=\"v-sub\">tolerance 1.000000 dB</div>", "Checked at 0:00.5 of 0:01.0"}},
        {"continuous sweep skips its edges",
         sweep,
         sweep,
         {"--freqsweep"},
         "overall: PASS",
         {{"spectral_verdict", "\"PASS\""},
          {"spectral_channel_0_edge_skipped_samples", "4096"},
          {"spectral_channel_0_frames_scanned", "17"},  // (144000 - 8192 - 8192) / 8192 + 1 = 16, plus the end frame
          {"spectral_channel_0_p99_ratio", "0.000000"}},
         {"Checked across the whole file except the first and last 85 ms (17 points)", "0.00<small> p99 ratio</small>",
          "<td>Sweep Edge Skip</td><td>4096 samples at each end</td>"}},
        {"no distortion",
         tone,
         tone,
         {"--no-distortion"},
         "overall: PASS",
         {{"distortion_verdict", "<missing>"}, {"spectral_verdict", "\"PASS\""}},
         {"&mdash;<small> skipped</small>", "<p class=\"desc\">Skipped -- run without <code>--no-distortion</code> to include it.</p>"}},
        {"short files",
         short_noise,
         short_noise,
         {},
         "overall: PASS",
         {{"spectral_channel_0_insufficient_samples", "1"},
          {"spectral_channel_0_p99_ratio", "<missing>"},
          {"distortion_channel_0_insufficient_samples", "1"},
          {"distortion_channel_0_thdn_ratio", "<missing>"}},
         {"<p class=\"chart-note\">Not enough aligned samples for a snapshot frame.</p>", "&mdash;<small> n/a</small>"}},
        {"short files with snapshots",
         short_noise,
         short_noise,
         {"--snapshots", "3"},
         "overall: PASS",
         {{"spectral_insufficient_samples", "1"}, {"spectral_snapshot_count", "0"},
          {"spectral_channel_0_snapshot_0_time_sec", "<missing>"}},
         {"0/0<small> snapshots</small>"}},
        {"snapshots",
         tone,
         loud,
         {"--snapshots", "3", "--no-distortion", "--levelfidelity-ref-only"},
         "overall: FAIL -- Spectral Fidelity",
         {{"spectral_snapshot_count", "3"},
          {"spectral_channel_0_snapshot_2_verdict", "\"FAIL\""},
          {"spectral_channel_0_snapshot_0_time_sec", "0.085333"},  // centre 2400 pulled to the start: (4096 + 0) / 48000
          {"spectral_channel_0_snapshot_1_time_sec", "0.500000"},
          {"spectral_channel_0_snapshot_2_time_sec", "0.914667"}},
         {"0/3<small> snapshots</small>", "snapshot 1 at 0:00.1 failed", "<td>Snapshots</td><td>3</td>"}},
    };
    for (const cli_case& c : cases) {
        SCOPED_TRACE(c.name);
        temp_dir dir;
        write_wav(dir.file("ref.wav"), rate, 1, 24, c.ref);
        write_wav(dir.file("dut.wav"), rate, 1, 24, c.dut);
        std::vector<std::string> args = {"analyze", "--ref", "ref.wav", "--dut", "dut.wav", "--out", "out.html", "--json", "--quiet"};
        args.insert(args.end(), c.flags.begin(), c.flags.end());
        const run_result r = run_veltrane(args, dir.path());
        EXPECT_EQ(r.status, 0) << r.err;
        EXPECT_EQ(r.out, "wrote out.html + out.json (" + c.summary + ")\n");
        const std::string doc = file_text(dir.file("out.json"));
        for (const auto& [key, value] : c.keys) EXPECT_EQ(json_value(doc, key), value) << key;
        const std::string page = file_text(dir.file("out.html"));
        for (const std::string& text : c.page_has) EXPECT_NE(page.find(text), std::string::npos) << text;
    }
}

}  // namespace
}  // namespace veltrane::test
