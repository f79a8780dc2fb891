// Spectral fidelity: the frame comparison, frame placement of the scans, snapshots, and
// known answers on generated pairs (identity, a +3 dB shelf above 5 kHz, sweeps, short
// files); the scans must match the literal per-frame-allocating version bit for bit.
#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "checks/spectral_scan.h"
#include "dsp/amplitude.h"
#include "support/literal_spectral.h"

namespace veltrane {
namespace {

constexpr double pi = 3.14159265358979323846;
constexpr std::uint32_t rate = 48000;

wav_audio make_audio(std::uint32_t channels, std::vector<double> samples, std::uint32_t sample_rate = rate) {
    wav_audio a;
    a.sample_rate = sample_rate;
    a.channels = channels;
    a.format_code = 320;
    a.frame_count = samples.size() / channels;
    a.samples = std::move(samples);
    return a;
}

struct tone {
    double freq_hz, amplitude;
};

std::vector<double> tones(std::uint64_t frames, const std::vector<tone>& parts, std::uint32_t channels = 1) {
    std::vector<double> v(frames * channels, 0.0);
    for (std::uint64_t i = 0; i < frames; ++i)
        for (const tone& t : parts)
            for (std::uint32_t c = 0; c < channels; ++c)
                v[i * channels + c] += t.amplitude * std::sin(2.0 * pi * t.freq_hz * static_cast<double>(i) / rate);
    return v;
}

// Logarithmic sweep from f0 to f1 over the whole length, amplitude 0.5.
std::vector<double> log_sweep(std::uint64_t frames, double f0, double f1) {
    std::vector<double> v(frames);
    const double t_total = static_cast<double>(frames) / rate;
    const double k = std::log(f1 / f0);
    for (std::uint64_t i = 0; i < frames; ++i) {
        const double t = static_cast<double>(i) / rate;
        v[i] = 0.5 * std::sin(2.0 * pi * f0 * t_total / k * (std::exp(t / t_total * k) - 1.0));
    }
    return v;
}

spectral_band default_band() {
    return {1e300, -100.0, -70.0, -60.0, 5.0, 10.0, 1.0};
}

spectral_settings defaults() {
    spectral_settings s;
    s.bands = {default_band()};
    return s;
}

TEST(AmplitudeWorkspace, SameBitsAsThePlainSpectrum) {
    const wav_audio a = make_audio(2, tones(9000, {{1000.0, 0.5}, {7777.0, 0.01}}, 2));
    for (std::uint64_t n : {1024u, 8192u}) {
        amplitude_workspace ws;
        ASSERT_TRUE(amplitude_workspace_init(ws, n));
        for (spectrum_form form : {spectrum_form::linear, spectrum_form::db_check, spectrum_form::db_chart}) {
            std::vector<double> plain(n / 2), reused(n / 2);
            amplitude_spectrum(a, 1, 17, n, plain, form);
            amplitude_spectrum(ws, a, 1, 17, reused, form);
            EXPECT_EQ(plain, reused) << n;
        }
    }
}

TEST(AmplitudeWorkspace, LevelsBelowTheCutoffAreSkippedAndNoOthers) {
    // Tones from 0 dB down to -150 dB: against a -100 dB cutoff the bins above it keep
    // their exact values, and only bins well below it read -infinity.
    const wav_audio a = make_audio(1, tones(8192, {{1000.0, 1.0}, {3000.0, 1e-5}, {5000.0, 1e-5 * 0.99999}, {9000.0, 3e-8}}));
    amplitude_workspace ws;
    ASSERT_TRUE(amplitude_workspace_init(ws, 8192));
    std::vector<double> full(4096), cut(4096);
    amplitude_spectrum(a, 0, 0, 8192, full, spectrum_form::db_check);
    for (double cutoff : {-100.0, -60.0, -199.999, -250.0}) {
        amplitude_spectrum_db_above(ws, a, 0, 0, cut, cutoff);
        std::size_t skipped = 0;
        for (std::size_t k = 0; k < 4096; ++k) {
            if (std::isinf(cut[k])) {
                ++skipped;
                EXPECT_LT(full[k], cutoff - 0.001 + 1e-6) << k;
            } else {
                EXPECT_EQ(cut[k], full[k]) << k;
            }
        }
        if (cutoff > -199.0) {
            EXPECT_GT(skipped, 100u) << cutoff;
        } else {
            EXPECT_EQ(skipped, 0u) << cutoff;
        }
    }
}

TEST(BinBandMap, FirstBandReachingTheBinFrequency) {
    std::vector<spectral_band> bands(3, default_band());
    bands[0].upper_freq_hz = 1000.0;
    bands[1].upper_freq_hz = 1003.0;  // narrower than a bin: no bin of its own beyond 1000
    bands[2].upper_freq_hz = 24000.0;
    const auto map = build_bin_band_map(bands, rate, 48);  // 1000 Hz bins
    EXPECT_EQ(map[0], 0);
    EXPECT_EQ(map[1], 0);  // exactly 1000 Hz: inclusive
    EXPECT_EQ(map[2], 2);
    EXPECT_EQ(map[23], 2);
    const auto one = build_bin_band_map(std::vector<spectral_band>{default_band()}, rate, 8192);
    EXPECT_TRUE(std::all_of(one.begin(), one.end(), [](std::uint8_t b) { return b == 0; }));
}

// One frame of a generated pair, compared with a given setup.
struct frame_case {
    const char* name;
    std::vector<tone> ref, dut;
    spectral_profile_kind profile;
    std::optional<sweep_window_settings> window;
    bool gated;
    std::uint64_t bins_failed;
    bool peak_failed;
    double worst_freq_hz;  // -1: not checked
};

TEST(SpectralFrame, GatingPeaksAndTolerances) {
    const double bin_hz = static_cast<double>(rate) / 8192.0;
    const double f1k = 171 * bin_hz, f6k = 1024 * bin_hz, f10k = 1707 * bin_hz;
    const double shelf = std::pow(10.0, 3.0 / 20.0);
    sweep_window_settings narrow{0, 0.0, 0.0, 1000.0, 50.0};
    const frame_case cases[] = {
        {"identical", {{f1k, 0.1}, {f6k, 0.1}}, {{f1k, 0.1}, {f6k, 0.1}}, spectral_profile_kind::freq_domain_multitone,
         std::nullopt, false, 0, false, -1},
        // +3 dB above 5 kHz: the two peak bins there exceed the 1 dB peak tolerance; their
        // skirts (5 dB) and the low-level bins (10 dB) stay inside.
        {"shelf", {{f1k, 0.1}, {f6k, 0.1}, {f10k, 0.1}}, {{f1k, 0.1}, {f6k, 0.1 * shelf}, {f10k, 0.1 * shelf}},
         spectral_profile_kind::freq_domain_multitone, std::nullopt, false, 2, true, -1},
        {"silent multitone", {}, {}, spectral_profile_kind::freq_domain_multitone, std::nullopt, true, 0, false, -1},
        // The strong tone at 6 kHz lies outside the window around 1 kHz, where only a
        // -80 dB tone sits, below the -60 dB peak threshold: gated.
        {"amp sweep window", {{f6k, 0.5}, {1000.0, 1e-4}}, {{f6k, 0.5}, {1000.0, 1e-4}},
         spectral_profile_kind::amp_sweep, narrow, false, 0, false, -1},
    };
    for (const frame_case& c : cases) {
        SCOPED_TRACE(c.name);
        const wav_audio ref = make_audio(1, tones(8192, c.ref));
        const wav_audio dut = make_audio(1, tones(8192, c.dut));
        std::vector<spectral_band> bands{default_band()};
        const auto map = build_bin_band_map(bands, rate, 8192);
        spectral_frame_setup setup{8192, c.profile, std::nullopt, bands, map, c.window};
        setup.lowest_threshold_db = lowest_band_threshold_db(bands);
        spectral_frame_buffers buf;
        ASSERT_TRUE(spectral_frame_buffers_init(buf, 8192));
        std::vector<double> ratios(4096);
        const spectral_frame_result r = compare_spectral_frame(ref, dut, 0, 0, 0, setup, buf, ratios.data());
        EXPECT_EQ(r.gated, c.gated);
        EXPECT_EQ(r.bins_failed, c.bins_failed);
        EXPECT_EQ(r.peak_failed, c.peak_failed);
        if (c.worst_freq_hz >= 0) {
            EXPECT_EQ(static_cast<double>(r.worst_bin) * bin_hz, c.worst_freq_hz);
        }
        if (!r.gated && c.bins_failed == 0) {
            // Identical frames: every judged ratio is 0, the worst is the first judged bin.
            EXPECT_EQ(r.worst_ratio, 0.0);
            for (std::uint64_t i = 0; i < r.bins_compared; ++i) EXPECT_EQ(ratios[i], 0.0);
        }
        if (c.bins_failed) {
            EXPECT_NEAR(r.worst_diff_db, 3.0, 0.01);
        }
    }
}

TEST(SpectralFrame, AmpSweepSearchWindowGatesOnTheWindowOnly) {
    // A freq_sweep frame whose strongest bin inside the window is below the peak
    // threshold is gated although a stronger tone lies outside it.
    const wav_audio a = make_audio(1, tones(8192, {{6000.0, 0.5}, {1000.0, 1e-4}}));
    std::vector<spectral_band> bands{default_band()};
    const auto map = build_bin_band_map(bands, rate, 8192);
    spectral_frame_buffers buf;
    ASSERT_TRUE(spectral_frame_buffers_init(buf, 8192));
    std::vector<double> ratios(4096);
    sweep_window_settings w{0, 1000.0, 1000.0, 0.0, 50.0};
    spectral_frame_setup setup{8192, spectral_profile_kind::freq_sweep, std::nullopt, bands, map, w};
    EXPECT_TRUE(compare_spectral_frame(a, a, 0, 0, 0, setup, buf, ratios.data()).gated);
    setup.sweep_window.reset();  // whole spectrum: the 6 kHz tone clears the threshold
    EXPECT_FALSE(compare_spectral_frame(a, a, 0, 0, 0, setup, buf, ratios.data()).gated);
}

TEST(SpectralFrame, RelativeFloorAndTiers) {
    // amp_sweep with a relative floor of -30 dB: bins more than 30 dB under the peak are
    // noise. A DUT error 40 dB under the peak is excluded, one 20 dB under is judged.
    const wav_audio ref = make_audio(1, tones(8192, {{1000.0, 0.5}}));
    const wav_audio quiet = make_audio(1, tones(8192, {{1000.0, 0.5}, {5000.0, 0.005}}));
    const wav_audio loud = make_audio(1, tones(8192, {{1000.0, 0.5}, {5000.0, 0.05}}));
    std::vector<spectral_band> bands{default_band()};
    const auto map = build_bin_band_map(bands, rate, 8192);
    spectral_frame_buffers buf;
    ASSERT_TRUE(spectral_frame_buffers_init(buf, 8192));
    std::vector<double> ratios(4096);
    spectral_frame_setup setup{8192, spectral_profile_kind::amp_sweep, -30.0, bands, map, std::nullopt};
    EXPECT_EQ(compare_spectral_frame(ref, quiet, 0, 0, 0, setup, buf, ratios.data()).bins_failed, 0u);
    const spectral_frame_result r = compare_spectral_frame(ref, loud, 0, 0, 0, setup, buf, ratios.data());
    EXPECT_GT(r.bins_failed, 0u);
    EXPECT_FALSE(r.peak_failed);
    EXPECT_NEAR(r.worst_bin * (48000.0 / 8192), 5000.0, 6.0);
}

TEST(SpectralScan, FramePlacement) {
    // 10 s at 48 kHz, default N: one frame centred, 240000 - 4096 after the start.
    EXPECT_EQ(centred_frame_start(0, 480000, 8192), 235904u);
    EXPECT_EQ(centred_frame_start(100, 8292, 8192), 100u);
    struct {
        std::int64_t start, end;
        double overlap;
        std::int64_t skip;
        bool active;
        std::vector<std::uint64_t> firsts;
        std::uint64_t skipped;
    } cases[] = {
        {0, 40000, 0.0, 4096, true, {4096, 12288, 20480, 27712}, 4096},  // added frame ends at end - skip
        {0, 40000, 0.0, 4096, false, {4096, 12288, 20480}, 4096},      // not a sweep: no added frame
        {0, 24576, 0.5, 0, false, {0, 4096, 8192, 12288, 16384}, 0},   // hop 4096
        {0, 9000, 0.0, 4096, true, {404}, 404},                        // skip limited by the length
        {0, 8000, 0.0, 0, false, {}, 0},                               // shorter than N
    };
    for (const auto& c : cases) {
        std::uint64_t skipped = 99;
        EXPECT_EQ(continuous_frame_starts(c.start, c.end, 8192, c.overlap, c.skip, c.active, skipped), c.firsts);
        EXPECT_EQ(skipped, c.skipped);
    }
}

TEST(SpectralScan, PercentilesBySelectionMatchTheSortedList) {
    std::vector<double> v;
    for (int i = 0; i < 1001; ++i) v.push_back(std::fmod(i * 0.7548776662, 1.0));
    std::vector<double> sorted = v;
    std::sort(sorted.begin(), sorted.end());
    const auto p = pooled_percentiles(v, {0.5, 0.95, 0.99});
    EXPECT_EQ(p[0], sorted[500]);
    EXPECT_EQ(p[1], sorted[950]);
    EXPECT_EQ(p[2], sorted[990]);
    std::vector<double> one{0.25};
    EXPECT_EQ(pooled_percentiles(one, {0.5, 0.95, 0.99}), (std::array<double, 3>{0.25, 0.25, 0.25}));
}

TEST(SpectralScan, KnownAnswersMatchTheLiteralScan) {
    const std::uint64_t frames = 5 * rate;
    const double shelf = std::pow(10.0, 3.0 / 20.0);
    const wav_audio multi = make_audio(2, tones(frames, {{440.0, 0.2}, {3000.0, 0.1}, {7000.0, 0.1}}, 2));
    const wav_audio shelved =
        make_audio(2, tones(frames, {{440.0, 0.2}, {3000.0, 0.1}, {7000.0, 0.1 * shelf}}, 2));
    const wav_audio sweep = make_audio(1, log_sweep(frames, 20.0, 20000.0));

    spectral_settings single = defaults();
    spectral_settings continuous = defaults();
    continuous.continuous = true;
    continuous.overlap_fraction = 0.5;
    spectral_settings freqsweep = defaults();
    freqsweep.profile = spectral_profile_kind::freq_sweep;
    freqsweep.continuous = true;
    freqsweep.edge_skip_active = true;
    freqsweep.edge_skip_samples = 4096;
    freqsweep.sweep_window = sweep_window_settings{1, 20.0, 20000.0, 0.0, 50.0};

    struct {
        const char* name;
        const wav_audio& ref;
        const wav_audio& dut;
        const spectral_settings& s;
        bool pass;
        std::uint64_t frames;
    } cases[] = {
        {"identical single", multi, multi, single, true, 1},
        {"shelf single", multi, shelved, single, false, 1},
        {"shelf continuous", multi, shelved, continuous, false, 57},
        {"log sweep", sweep, sweep, freqsweep, true, 29},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const spectral_result r = scan_spectral(c.ref, c.dut, 0, c.s);
        const spectral_result lit = test::literal_scan_spectral(c.ref, c.dut, 0, c.s);
        EXPECT_EQ(r.pass, c.pass);
        EXPECT_EQ(r.channels[0].frames_scanned, c.frames);
        EXPECT_TRUE(test::same_result(r, lit));
        if (!c.pass) {
            EXPECT_TRUE(r.channels[0].worst_bin_is_peak);
            EXPECT_NEAR(r.channels[0].worst_bin_freq_hz, 7000.0, 6.0);
            EXPECT_NEAR(r.channels[0].worst_bin_diff_db, 3.0, 0.05);
        } else if (&c.ref == &c.dut) {
            EXPECT_EQ(r.channels[0].p99_ratio, 0.0);
            EXPECT_EQ(r.channels[0].bins_failed, 0u);
        }
    }
    // The sweep's edges: 4096 samples skipped at each end, the last frame ends exactly there.
    const spectral_result r = scan_spectral(sweep, sweep, 0, freqsweep);
    EXPECT_EQ(r.channels[0].edge_skipped_samples, 4096u);
    std::uint64_t skip = 0;
    const auto starts = continuous_frame_starts(0, static_cast<std::int64_t>(frames), 8192, 0.0, 4096, true, skip);
    EXPECT_EQ(starts.back() + 8192, frames - 4096);
    EXPECT_EQ(starts.front(), 4096u);
}

TEST(SpectralScan, ShortFilesAndOffsets) {
    const wav_audio a = make_audio(1, tones(8000, {{1000.0, 0.5}}));
    spectral_settings s = defaults();
    const spectral_result r = scan_spectral(a, a, 0, s);
    EXPECT_TRUE(r.pass && r.channels[0].insufficient_samples);
    EXPECT_EQ(r.channels[0].frames_scanned, 0u);
    s.snapshots = true;
    s.snapshot_count = 5;
    const spectral_snapshots_result snaps = scan_spectral_snapshots(a, a, 0, s);
    EXPECT_TRUE(snaps.pass && snaps.insufficient_samples);
    EXPECT_EQ(snaps.snapshot_count, 0u);

    // A DUT 300 frames late: frames are compared at the aligned position.
    std::vector<double> late(300, 0.0);
    const std::vector<double> body = tones(20000, {{1000.0, 0.5}});
    late.insert(late.end(), body.begin(), body.end());
    const spectral_result aligned = scan_spectral(make_audio(1, body), make_audio(1, late), 300, defaults());
    EXPECT_TRUE(aligned.pass);
    EXPECT_EQ(aligned.channels[0].p99_ratio, 0.0);
}

TEST(SpectralSnapshots, TimesLandWhereAsked) {
    const std::uint64_t frames = 10 * rate;
    const wav_audio a = make_audio(2, tones(frames, {{1000.0, 0.5}}, 2));
    struct {
        const char* name;
        std::uint64_t count;
        std::vector<double> times;
        std::vector<std::uint32_t> firsts;
    } cases[] = {
        {"one in the middle", 1, {}, {240000 - 4096}},
        // margin llround(480000 * 0.05) = 24000: centres 24000 .. 456000, 108000 apart
        {"five spread", 5, {}, {24000 - 4096, 132000 - 4096, 240000 - 4096, 348000 - 4096, 456000 - 4096}},
        {"explicit", 3, {2.0, -1.0, 60.0}, {96000 - 4096, 0, 480000 - 8192}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        spectral_settings s = defaults();
        s.snapshots = true;
        s.snapshot_count = c.count;
        s.snapshot_times_sec = c.times;
        const spectral_snapshots_result r = scan_spectral_snapshots(a, a, 0, s);
        ASSERT_EQ(r.snapshot_count, c.firsts.size());
        EXPECT_EQ(r.channel_count, 2u);
        EXPECT_TRUE(r.pass);
        for (std::size_t i = 0; i < c.firsts.size(); ++i) {
            EXPECT_EQ(r.snapshots[1][i].frame.worst_frame_start, c.firsts[i]);
            EXPECT_DOUBLE_EQ(r.snapshots[1][i].time_sec, (4096.0 + c.firsts[i]) / rate);
            EXPECT_EQ(r.snapshots[1][i].frame.frames_scanned, 1u);
        }
    }
}

TEST(SpectralSnapshots, OneFailingSnapshotFailsTheCheck) {
    // The DUT's 7 kHz tone is 3 dB loud only in the second half: the late snapshots fail.
    const std::uint64_t frames = 4 * rate;
    std::vector<double> ref = tones(frames, {{1000.0, 0.2}, {7000.0, 0.1}});
    std::vector<double> dut = ref;
    for (std::uint64_t i = frames / 2; i < frames; ++i)
        dut[i] += (std::pow(10.0, 3.0 / 20.0) - 1.0) * 0.1 * std::sin(2.0 * pi * 7000.0 * static_cast<double>(i) / rate);
    spectral_settings s = defaults();
    s.snapshots = true;
    s.snapshot_count = 4;
    const spectral_snapshots_result r = scan_spectral_snapshots(make_audio(1, ref), make_audio(1, dut), 0, s);
    EXPECT_FALSE(r.pass);
    EXPECT_TRUE(r.snapshots[0][0].frame.pass);
    EXPECT_FALSE(r.snapshots[0][3].frame.pass);
    EXPECT_NEAR(r.snapshots[0][3].frame.worst_bin_diff_db, 3.0, 0.05);
}

}  // namespace
}  // namespace veltrane
