// The sync tone's synthesis, the matched filter's scoring and the detector, against known
// answers.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <vector>

#include "support/wav_bytes.h"
#include "trim/matched_filter.h"
#include "trim/sync_detect.h"
#include "trim/sync_tone.h"

namespace veltrane {
namespace {

std::vector<double> tone_at(std::uint32_t rate, std::uint32_t chirp = 99) {
    const sync_tone_shape tone = chirp < 4 ? single_chirp_tone(builtin_sync_tone, chirp) : builtin_sync_tone;
    std::vector<double> t(sync_tone_length(tone, rate));
    synth_sync_template(tone, rate, t);
    return t;
}

TEST(SyncTone, LengthsGapsAndLevel) {
    struct row {
        std::uint32_t rate;
        std::uint64_t chirp, gap, total;
    };
    for (const row& r : {row{48000, 7200, 2400, 36000}, row{44100, 6615, 2205, 33075}, row{22050, 3308, 1103, 16541},
                         row{1, 0, 0, 0}}) {
        EXPECT_EQ(sync_chirp_length(builtin_sync_tone, r.rate), r.chirp);
        EXPECT_EQ(sync_gap_length(builtin_sync_tone, r.rate), r.gap);
        EXPECT_EQ(sync_template_length(r.rate), r.total);
    }
    const std::vector<double> t = tone_at(48000);
    for (std::size_t gap : {7200u, 16800u, 26400u}) {
        EXPECT_TRUE(std::all_of(t.begin() + gap, t.begin() + gap + 2400, [](double v) { return v == 0.0; })) << gap;
        EXPECT_NE(t[gap - 2], 0.0);
        EXPECT_EQ(t[gap - 1], 0.0);  // the fade-out reaches 0 on the chirp's last sample
    }
    EXPECT_EQ(t[0], 0.0);
    double peak = 0.0, early = 0.0;
    for (std::size_t i = 0; i < t.size(); ++i) peak = std::max(peak, std::fabs(t[i]));
    for (std::size_t i = 0; i < 40; ++i) early = std::max(early, std::fabs(t[i]));
    EXPECT_GT(peak, 0.0999);  // -20 dBFS
    EXPECT_LE(peak, 0.1);
    EXPECT_LT(early, 0.03);  // still inside the 144-sample fade-in
}

TEST(SyncTone, ChirpsSweepHighLowHighAndStandAlone) {
    const double rate = 96000.0;
    const std::vector<double> t = tone_at(96000);
    const std::size_t lc = 14400, lg = 4800;
    for (std::uint32_t i = 0; i < 4; ++i) {
        const chirp_band b = builtin_sync_tone.chirps[i];
        const double half = lc / 2, sweep = b.high_hz - b.low_hz;
        // Zero crossings over 400 samples give the frequency at their centre.
        for (double centre : {400.0, half - 200.0, half + 2000.0, lc - 400.0}) {
            int crossings = 0;
            for (std::size_t k = i * (lc + lg) + centre - 199; k < i * (lc + lg) + centre + 200; ++k)
                crossings += (t[k - 1] < 0.0) != (t[k] < 0.0);
            const double want =
                centre < half ? b.high_hz - centre / half * sweep : b.low_hz + (centre - half) / half * sweep;
            EXPECT_NEAR(crossings * rate / 800.0, want, 0.05 * want) << i << " at " << centre;
        }
        // Every chirp starts at phase 0, so the chirp alone is exactly its slice of the tone.
        const std::vector<double> one = tone_at(96000, i);
        ASSERT_EQ(one.size(), lc);
        EXPECT_TRUE(std::equal(one.begin(), one.end(), t.begin() + static_cast<std::ptrdiff_t>(i * (lc + lg))));
    }
}

TEST(MatchedFilterScore, PeakExclusionAndRatio) {
    struct row {
        std::vector<double> c;
        std::uint64_t m, position;
        double peak, psr;
    };
    const std::vector<row> rows = {
        {{3, 2, 10, 2, 1, 1, 1, 1}, 1, 2, 10, 10 / 1.4},  // w = min(8/4, m) = 1: sidelobes p = 0 and 4..7
        {{3, 2, 10, 2, 1, 1, 1, 1}, 8, 2, 10, 10},        // w = 2: p = 0 is inside the window
        {{0, -9, 9, 0, 1, 1, 1, 1, 1, 1, 1, 1}, 100, 1, 9, 9},  // sign ignored, ties keep the earliest
        {{8, 1, 1, 2, 2, 2, 2, 2}, 100, 0, 8, 4},         // nothing below the window
        {{1, 4, 1}, 100, 1, 4, 0},                        // K < 4: w = 1, no sidelobe
        {{0, 0, 0, 0, 5, 0, 0, 0, 0, 0, 0, 0}, 100, 4, 5, 0},  // zero mean
        {{}, 5, 0, -1, 0},                                // no candidate
    };
    for (const row& r : rows) {
        std::vector<complex_value> c;
        for (double v : r.c) c.push_back({v, 123.0});  // imaginary parts are ignored
        const matched_filter_result got = score_correlation(c, r.m);
        EXPECT_EQ(got.position, r.position);
        EXPECT_EQ(got.peak, r.peak);
        EXPECT_DOUBLE_EQ(got.psr, r.psr);
    }
}

TEST(MatchedFilter, AgreesWithDirectCorrelationAndReusesItsTransform) {
    const std::vector<double> tmpl = test::noise(37, 1, 1.0, 3);
    template_spectrum spectrum;
    std::vector<complex_value> work;
    for (std::size_t n : {36u, 37u, 200u, 1000u, 300u, 1000u}) {
        SCOPED_TRACE(n);
        std::vector<double> x = test::noise(2 * n, 1, 0.3, static_cast<std::uint32_t>(n));
        for (std::size_t j = 0; n > 137 && j < tmpl.size(); ++j) x[2 * (100 + j) + 1] -= tmpl[j];  // inverted copy
        std::vector<double> odd(n), direct;
        for (std::size_t i = 0; i < n; ++i) odd[i] = x[2 * i + 1];
        for (std::size_t p = 0; p + tmpl.size() <= n; ++p) {
            double s = 0.0;
            for (std::size_t j = 0; j < tmpl.size(); ++j) s += odd[p + j] * tmpl[j];
            direct.push_back(s);
        }
        std::vector<complex_value> c;
        for (double v : direct) c.push_back({v, 0.0});
        const matched_filter_result want = score_correlation(c, tmpl.size());
        const matched_filter_result fresh = matched_filter(odd, tmpl);
        EXPECT_EQ(fresh.position, want.position);
        EXPECT_NEAR(fresh.peak, want.peak, 1e-9 * std::max(1.0, want.peak));
        EXPECT_NEAR(fresh.psr, want.psr, 1e-9 * std::max(1.0, want.psr));
        EXPECT_TRUE(n <= 137 || fresh.position == 100u);
        // Reading every second value of the interleaved buffer, with the transform kept
        // from earlier calls of other sizes, gives the same bits.
        matched_filter_result reused;
        ASSERT_TRUE(matched_filter({x.data() + 1, 2, n}, tmpl, spectrum, work, reused));
        EXPECT_EQ(reused.position, fresh.position);
        EXPECT_EQ(reused.peak, fresh.peak);
        EXPECT_EQ(reused.psr, fresh.psr);
    }
}

wav_audio audio_of(std::uint32_t rate, std::uint32_t channels, std::vector<double> s) {
    wav_audio a;
    a.sample_rate = rate;
    a.channels = channels;
    a.format_code = 16;
    a.frame_count = s.size() / channels;
    a.samples = std::move(s);
    return a;
}

// `frames` of silence on `channels` channels, the tone (times `gain`) at `at` on `channel`.
wav_audio tone_in_silence(std::uint64_t frames, std::uint64_t at, double gain = 1.0, std::uint32_t channels = 1,
                          std::uint32_t channel = 0) {
    std::vector<double> x(frames * channels, 0.0);
    const std::vector<double> t = tone_at(48000);
    for (std::size_t i = 0; i < t.size() && at + i < frames; ++i) x[(at + i) * channels + channel] = gain * t[i];
    return audio_of(48000, channels, std::move(x));
}

TEST(FindSync, FindsTheToneWhereverItIs) {
    const sync_match m = find_sync(tone_in_silence(144000, 0), 0, 2160000, 6.0, sync_similarity_threshold);
    EXPECT_TRUE(m.found);
    EXPECT_EQ(m.sample_offset, 0u);
    EXPECT_EQ(m.channel, 0);
    EXPECT_GT(m.psr, 100.0);
    EXPECT_NEAR(m.similarity, 1.0, 1e-9);
    EXPECT_EQ(m.rep_count, 4);
    for (std::size_t i = 0; i < 8; ++i) EXPECT_EQ(m.rep_psr[i] > 6.0, i < 4) << i;

    // Inverted: the same figures. Offsets count from the file's start, not the stretch's.
    const sync_match up = find_sync(tone_in_silence(192000, 150000), 100000, 96000, 6.0, 0.12);
    const sync_match down = find_sync(tone_in_silence(192000, 150000, -1.0), 100000, 96000, 6.0, 0.12);
    EXPECT_TRUE(down.found);
    EXPECT_EQ(down.sample_offset, 150000u);
    EXPECT_EQ(up.psr, down.psr);
    EXPECT_EQ(up.similarity, down.similarity);
    EXPECT_EQ(up.rep_psr, down.rep_psr);

    // Only in the right channel of a stereo file.
    const sync_match right = find_sync(tone_in_silence(96000, 20000, 1.0, 2, 1), 0, 96000, 6.0, 0.12);
    EXPECT_TRUE(right.found);
    EXPECT_EQ(right.channel, 1);
    EXPECT_EQ(right.sample_offset, 20000u);
}

TEST(FindSync, UnusableStretchesAndSilence) {
    const wav_audio a = tone_in_silence(50000, 0);
    struct row {
        std::uint64_t start, length;
    };
    // Shorter than the tone (36000), at or past the end, cut short by the end; silence.
    for (const row& r : {row{0, 35999}, row{50000, 40000}, row{60000, 1}, row{14001, 40000}}) {
        const sync_match m = find_sync(a, r.start, r.length, 6.0, 0.12);
        EXPECT_TRUE(!m.found && m.channel == 0 && m.psr == 0.0 && m.similarity == 0.0 && m.sample_offset == 0 &&
                    m.rep_count == 0)
            << r.start;
    }
    const sync_match quiet = find_sync(tone_in_silence(96000, 0, 0.0, 2), 0, 96000, 6.0, 0.12);
    EXPECT_TRUE(!quiet.found && quiet.channel == 0 && quiet.psr == 0.0 && quiet.similarity == 0.0);
}

TEST(FindSync, ThresholdsAreInclusive) {
    std::vector<double> x = test::noise(144000, 1, 0.2, 17);
    const std::vector<double> t = tone_at(48000);
    for (std::size_t i = 0; i < t.size(); ++i) x[50000 + i] += t[i];
    const wav_audio a = audio_of(48000, 1, x);
    sync_detector d;  // one detector for every search, as trim uses it
    const sync_match m = find_sync(d, a, 0, x.size(), 0.0, 0.0);
    ASSERT_TRUE(m.found);
    EXPECT_EQ(m.sample_offset, 50000u);
    EXPECT_TRUE(find_sync(d, a, 0, x.size(), m.psr, m.similarity).found);
    EXPECT_FALSE(find_sync(d, a, 0, x.size(), std::nextafter(m.psr, 1e9), m.similarity).found);
    const sync_match s = find_sync(d, a, 0, x.size(), m.psr, std::nextafter(m.similarity, 2.0));
    EXPECT_FALSE(s.found);
    EXPECT_EQ(s.psr, m.psr);
    EXPECT_EQ(s.rep_count, 0);  // chirps are checked only for a match that passed
}

}  // namespace
}  // namespace veltrane
