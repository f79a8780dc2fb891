// The sync tone's synthesis, the matched filter's scoring and the detector, each against
// known answers.
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

std::vector<double> tone_at(std::uint32_t rate) {
    std::vector<double> t(sync_template_length(rate));
    synth_sync_template(builtin_sync_spec, rate, t);
    return t;
}

// Zero crossings per second in samples [from, from + count), halved: the frequency of a
// tone that changes slowly over the stretch.
double crossing_rate_hz(const std::vector<double>& x, std::size_t from, std::size_t count, double rate) {
    int crossings = 0;
    for (std::size_t i = from + 1; i < from + count; ++i)
        if ((x[i - 1] < 0.0) != (x[i] < 0.0)) ++crossings;
    return crossings * rate / (2.0 * static_cast<double>(count));
}

TEST(SyncTone, LengthsAtCommonRates) {
    struct row {
        std::uint32_t rate;
        std::uint64_t chirp, gap, total;
    };
    for (const row& r : {row{48000, 7200, 2400, 36000}, row{44100, 6615, 2205, 33075}, row{96000, 14400, 4800, 72000},
                         row{22050, 3308, 1103, 16541}, row{1, 0, 0, 0}}) {
        SCOPED_TRACE(r.rate);
        EXPECT_EQ(sync_chirp_length(builtin_sync_spec, r.rate), r.chirp);
        EXPECT_EQ(sync_gap_length(builtin_sync_spec, r.rate), r.gap);
        EXPECT_EQ(sync_template_length(r.rate), r.total);
        EXPECT_EQ(sync_spec_length(single_chirp_spec(builtin_sync_spec, 2), r.rate), r.chirp);
    }
}

TEST(SyncTone, GapsAreSilentAndLevelIsMinus20dBFS) {
    const std::vector<double> t = tone_at(48000);
    for (std::size_t gap_start : {7200u, 16800u, 26400u}) {
        for (std::size_t i = gap_start; i < gap_start + 2400; ++i) ASSERT_EQ(t[i], 0.0) << i;
        EXPECT_NE(t[gap_start - 2], 0.0);  // the fade ends one sample early: its last sample is 0
        EXPECT_EQ(t[gap_start - 1], 0.0);
        EXPECT_NE(t[gap_start + 2401], 0.0);
    }
    double peak = 0.0;
    for (double v : t) peak = std::max(peak, std::fabs(v));
    EXPECT_LE(peak, 0.1);
    EXPECT_GT(peak, 0.0999);
    EXPECT_EQ(t[0], 0.0);  // the fade starts from silence
    // Inside the 3 ms fade (144 samples at 48 kHz) the level grows linearly.
    double early = 0.0, late = 0.0;
    for (std::size_t i = 0; i < 40; ++i) early = std::max(early, std::fabs(t[i]));
    for (std::size_t i = 150; i < 400; ++i) late = std::max(late, std::fabs(t[i]));
    EXPECT_LT(early, 0.03);
    EXPECT_GT(late, 0.099);
}

TEST(SyncTone, EachChirpSweepsHighLowHigh) {
    const double rate = 96000.0;
    const std::vector<double> t = tone_at(96000);
    const std::size_t lc = 14400, lg = 4800;
    for (std::size_t i = 0; i < 4; ++i) {
        SCOPED_TRACE(i);
        const chirp_band band = builtin_sync_spec.chirps[i];
        const std::size_t at = i * (lc + lg);
        // Over 400 samples the frequency moves by about 4 % of the sweep; the crossing rate
        // follows the V: falling from the high edge to the turning point, rising back.
        const double sweep = band.high_hz - band.low_hz;
        const double half = static_cast<double>(lc / 2);
        const auto expected = [&](double n) {
            return n < half ? band.high_hz - n / half * sweep : band.low_hz + (n - half) / (lc - half) * sweep;
        };
        for (double centre : {400.0, 3000.0, half - 200.0, half + 2000.0, lc - 400.0}) {
            const double got = crossing_rate_hz(t, at + static_cast<std::size_t>(centre) - 200, 400, rate);
            EXPECT_NEAR(got, expected(centre), 0.05 * expected(centre)) << centre;
        }
    }
}

TEST(SyncTone, SingleChirpEqualsItsSliceOfTheTone) {
    // Every chirp starts at phase 0, so chirp i alone is exactly samples i * (Lc + Lg) on.
    for (std::uint32_t rate : {44100u, 48000u}) {
        const std::vector<double> t = tone_at(rate);
        const std::uint64_t lc = sync_chirp_length(builtin_sync_spec, rate);
        const std::uint64_t lg = sync_gap_length(builtin_sync_spec, rate);
        for (std::uint32_t i = 0; i < 4; ++i) {
            std::vector<double> one(lc);
            synth_sync_template(single_chirp_spec(builtin_sync_spec, i), rate, one);
            EXPECT_TRUE(std::equal(one.begin(), one.end(), t.begin() + static_cast<std::ptrdiff_t>(i * (lc + lg))))
                << rate << " chirp " << i;
        }
    }
}

TEST(SyncTone, ShortBufferGetsThePrefix) {
    const std::vector<double> t = tone_at(48000);
    std::vector<double> part(10000, 7.0);
    synth_sync_template(builtin_sync_spec, 48000, part);
    EXPECT_TRUE(std::equal(part.begin(), part.end(), t.begin()));
}

// --- scoring of correlation values -------------------------------------------------------

std::vector<complex_value> as_correlation(const std::vector<double>& c) {
    std::vector<complex_value> out;
    for (double v : c) out.push_back({v, 123.0});  // imaginary parts are ignored
    return out;
}

TEST(MatchedFilterScore, PeakExclusionAndRatio) {
    struct row {
        std::vector<double> c;
        std::uint64_t m;
        std::uint64_t position;
        double peak;
        double psr;
    };
    const std::vector<row> rows = {
        // K = 8: w = min(2, m). With m = 1 the sidelobes are p = 0 and 4..7.
        {{3, 2, 10, 2, 1, 1, 1, 1}, 1, 2, 10.0, 10.0 / (7.0 / 5.0)},
        // m = 8 widens w to 2: p = 0 lies inside the window, sidelobes 5..7.
        {{3, 2, 10, 2, 1, 1, 1, 1}, 8, 2, 10.0, 10.0},
        // Sign is ignored; ties keep the earliest candidate.
        {{0, -9, 9, 0, 1, 1, 1, 1, 1, 1, 1, 1}, 100, 1, 9.0, 9.0},
        // Peak near the start: nothing below the window.
        {{8, 1, 1, 2, 2, 2, 2, 2}, 100, 0, 8.0, 4.0},
        // Fewer than 4 candidates: w = 1, and here every other candidate is within it.
        {{1, 4, 1}, 100, 1, 4.0, 0.0},
        // Sidelobes all zero: PSR 0.
        {{0, 0, 0, 0, 5, 0, 0, 0, 0, 0, 0, 0}, 100, 4, 5.0, 0.0},
        // A single candidate.
        {{-2}, 5, 0, 2.0, 0.0},
        // No candidate at all.
        {{}, 5, 0, -1.0, 0.0},
    };
    for (std::size_t i = 0; i < rows.size(); ++i) {
        SCOPED_TRACE(i);
        const std::vector<complex_value> c = as_correlation(rows[i].c);
        const matched_filter_result r = score_correlation(c, rows[i].m);
        EXPECT_EQ(r.position, rows[i].position);
        EXPECT_EQ(r.peak, rows[i].peak);
        EXPECT_DOUBLE_EQ(r.psr, rows[i].psr);
    }
}

// c(p) computed directly, for comparison with the transform.
std::vector<double> direct_correlation(const std::vector<double>& x, const std::vector<double>& t) {
    std::vector<double> c;
    for (std::size_t p = 0; p + t.size() <= x.size(); ++p) {
        double s = 0.0;
        for (std::size_t j = 0; j < t.size(); ++j) s += x[p + j] * t[j];
        c.push_back(s);
    }
    return c;
}

TEST(MatchedFilter, AgreesWithDirectCorrelation) {
    const std::vector<double> tmpl = test::noise(37, 1, 1.0, 3);
    for (std::size_t n : {36u, 37u, 60u, 200u, 1000u}) {
        SCOPED_TRACE(n);
        std::vector<double> x = test::noise(n, 1, 0.3, 11);
        if (n >= 137)
            for (std::size_t j = 0; j < tmpl.size(); ++j) x[100 + j] -= tmpl[j];  // an inverted copy at 100
        const matched_filter_result got = matched_filter(x, tmpl);
        const matched_filter_result want = score_correlation(as_correlation(direct_correlation(x, tmpl)), tmpl.size());
        EXPECT_EQ(got.position, want.position);
        EXPECT_NEAR(got.peak, want.peak, 1e-9 * std::max(1.0, want.peak));
        EXPECT_NEAR(got.psr, want.psr, 1e-9 * std::max(1.0, want.psr));
        if (n >= 137) {
            EXPECT_EQ(got.position, 100u);
        }
    }
}

TEST(MatchedFilter, CachedTemplateTransformGivesTheSameBits) {
    const std::vector<double> tmpl = test::noise(300, 1, 1.0, 5);
    template_spectrum spectrum;
    std::vector<complex_value> work;
    // Alternate between stretch lengths with different transform sizes and back.
    for (std::size_t n : {2000u, 2000u, 700u, 2000u, 299u, 2001u}) {
        SCOPED_TRACE(n);
        const std::vector<double> x = test::noise(n, 1, 0.5, static_cast<std::uint32_t>(n));
        matched_filter_result reused;
        ASSERT_TRUE(matched_filter(contiguous(x), tmpl, spectrum, work, reused));
        const matched_filter_result fresh = matched_filter(x, tmpl);
        EXPECT_EQ(reused.position, fresh.position);
        EXPECT_EQ(reused.peak, fresh.peak);
        EXPECT_EQ(reused.psr, fresh.psr);
    }
}

TEST(MatchedFilter, ReadsOneChannelOfInterleavedAudio) {
    const std::vector<double> tmpl = test::noise(50, 1, 1.0, 8);
    std::vector<double> stereo = test::noise(400, 2, 0.2, 9);
    std::vector<double> right(400);
    for (std::size_t i = 0; i < 50; ++i) stereo[2 * (220 + i) + 1] += tmpl[i];
    for (std::size_t i = 0; i < 400; ++i) right[i] = stereo[2 * i + 1];
    template_spectrum spectrum;
    std::vector<complex_value> work;
    matched_filter_result strided;
    ASSERT_TRUE(matched_filter({stereo.data() + 1, 2, 400}, tmpl, spectrum, work, strided));
    const matched_filter_result plain = matched_filter(right, tmpl);
    EXPECT_EQ(strided.position, 220u);
    EXPECT_EQ(strided.psr, plain.psr);
    EXPECT_EQ(strided.peak, plain.peak);
}

// --- the detector -------------------------------------------------------------------------

wav_audio make_audio(std::uint32_t rate, std::uint32_t channels, std::vector<double> samples) {
    wav_audio a;
    a.sample_rate = rate;
    a.channels = channels;
    a.format_code = 16;
    a.frame_count = samples.size() / channels;
    a.samples = std::move(samples);
    return a;
}

// `frames` of mono silence with the tone (scaled by `gain`) at `at`.
std::vector<double> tone_in_silence(std::uint32_t rate, std::uint64_t frames, std::uint64_t at, double gain = 1.0) {
    std::vector<double> x(frames, 0.0);
    const std::vector<double> t = tone_at(rate);
    for (std::size_t i = 0; i < t.size() && at + i < frames; ++i) x[at + i] = gain * t[i];
    return x;
}

TEST(FindSync, ToneAtStartOfSilence) {
    const wav_audio a = make_audio(48000, 1, tone_in_silence(48000, 48000 * 3, 0));
    const sync_match m = find_sync(a, 0, 45 * 48000, 6.0, sync_similarity_threshold);
    EXPECT_TRUE(m.found);
    EXPECT_EQ(m.sample_offset, 0u);
    EXPECT_EQ(m.channel, 0);
    EXPECT_GT(m.psr, 100.0);
    EXPECT_NEAR(m.similarity, 1.0, 1e-9);
    EXPECT_EQ(m.rep_count, 4);
    for (int i = 0; i < 4; ++i) EXPECT_GT(m.rep_psr[static_cast<std::size_t>(i)], 6.0) << i;
    for (int i = 4; i < 8; ++i) EXPECT_EQ(m.rep_psr[static_cast<std::size_t>(i)], 0.0);
}

TEST(FindSync, InvertedToneMatchesTheSame) {
    const std::uint64_t at = 12345;
    const wav_audio up = make_audio(44100, 1, tone_in_silence(44100, 44100 * 4, at));
    const wav_audio down = make_audio(44100, 1, tone_in_silence(44100, 44100 * 4, at, -1.0));
    const sync_match a = find_sync(up, 0, 44100 * 4, 6.0, sync_similarity_threshold);
    const sync_match b = find_sync(down, 0, 44100 * 4, 6.0, sync_similarity_threshold);
    EXPECT_TRUE(b.found);
    EXPECT_EQ(b.sample_offset, at);
    EXPECT_EQ(a.sample_offset, b.sample_offset);
    EXPECT_EQ(a.psr, b.psr);
    EXPECT_EQ(a.similarity, b.similarity);
    EXPECT_EQ(a.rep_psr, b.rep_psr);
}

TEST(FindSync, OffsetIsCountedFromTheFileStart) {
    const wav_audio a = make_audio(48000, 1, tone_in_silence(48000, 48000 * 4, 150000));
    const sync_match m = find_sync(a, 100000, 48000 * 2, 6.0, sync_similarity_threshold);
    EXPECT_TRUE(m.found);
    EXPECT_EQ(m.sample_offset, 150000u);
    // A stretch that ends before the tone does not find it.
    EXPECT_FALSE(find_sync(a, 0, 150000, 6.0, sync_similarity_threshold).found);
}

TEST(FindSync, ToneOnlyInTheRightChannel) {
    std::vector<double> mono = tone_in_silence(48000, 48000 * 2, 20000);
    std::vector<double> left = test::noise(48000 * 2, 1, 0.05, 4);
    std::vector<double> stereo;
    for (std::size_t i = 0; i < mono.size(); ++i) {
        stereo.push_back(left[i]);
        stereo.push_back(mono[i]);
    }
    const sync_match m = find_sync(make_audio(48000, 2, stereo), 0, 48000 * 2, 6.0, sync_similarity_threshold);
    EXPECT_TRUE(m.found);
    EXPECT_EQ(m.channel, 1);
    EXPECT_EQ(m.sample_offset, 20000u);
}

TEST(FindSync, UnusableStretchesGiveTheAllZeroResult) {
    const wav_audio a = make_audio(48000, 1, tone_in_silence(48000, 50000, 0));
    struct row {
        std::uint64_t start, length;
    };
    // Shorter than the tone (36000), starting at or past the end, or cut by the end.
    for (const row& r : {row{0, 35999}, row{50000, 40000}, row{60000, 40000}, row{14001, 40000}}) {
        SCOPED_TRACE(r.start);
        const sync_match m = find_sync(a, r.start, r.length, 6.0, sync_similarity_threshold);
        EXPECT_FALSE(m.found);
        EXPECT_EQ(m.channel, 0);
        EXPECT_EQ(m.psr, 0.0);
        EXPECT_EQ(m.similarity, 0.0);
        EXPECT_EQ(m.sample_offset, 0u);
        EXPECT_EQ(m.rep_count, 0);
    }
    // Exactly the tone's length: one candidate, so no sidelobes and a PSR of 0.
    const sync_match exact = find_sync(a, 0, 36000, 6.0, sync_similarity_threshold);
    EXPECT_FALSE(exact.found);
    EXPECT_EQ(exact.psr, 0.0);
    EXPECT_NEAR(exact.similarity, 1.0, 1e-9);
}

TEST(FindSync, NoiseBurstStandsOutButDoesNotResembleTheTone) {
    std::vector<double> x(48000 * 3, 0.0);
    const std::vector<double> burst = test::noise(480, 1, 0.9, 21);  // 10 ms of loud noise
    std::copy(burst.begin(), burst.end(), x.begin() + 60000);
    const sync_match m = find_sync(make_audio(48000, 1, x), 0, x.size(), 6.0, sync_similarity_threshold);
    EXPECT_FALSE(m.found);
    EXPECT_GE(m.psr, 6.0);
    EXPECT_LT(m.similarity, sync_similarity_threshold);
    EXPECT_EQ(m.rep_count, 0);
}

TEST(FindSync, SilenceHasNoMatch) {
    const wav_audio a = make_audio(48000, 2, std::vector<double>(48000 * 4, 0.0));
    const sync_match m = find_sync(a, 0, 96000, 6.0, sync_similarity_threshold);
    EXPECT_FALSE(m.found);
    EXPECT_EQ(m.channel, 0);
    EXPECT_EQ(m.psr, 0.0);
    EXPECT_EQ(m.similarity, 0.0);
}

TEST(FindSync, ThresholdsAreInclusive) {
    // A tone in noise: both figures are well defined; the search passes exactly when the
    // PSR and the similarity reach their thresholds.
    std::vector<double> x = test::noise(48000 * 3, 1, 0.2, 17);
    const std::vector<double> t = tone_at(48000);
    for (std::size_t i = 0; i < t.size(); ++i) x[50000 + i] += t[i];
    const wav_audio a = make_audio(48000, 1, x);
    const sync_match m = find_sync(a, 0, x.size(), 0.0, 0.0);
    ASSERT_TRUE(m.found);
    EXPECT_EQ(m.sample_offset, 50000u);
    EXPECT_TRUE(find_sync(a, 0, x.size(), m.psr, m.similarity).found);
    EXPECT_FALSE(find_sync(a, 0, x.size(), std::nextafter(m.psr, 1e9), m.similarity).found);
    const sync_match s = find_sync(a, 0, x.size(), m.psr, std::nextafter(m.similarity, 2.0));
    EXPECT_FALSE(s.found);
    EXPECT_EQ(s.rep_count, 0);  // chirps are only checked for a match that passed
    EXPECT_EQ(s.psr, m.psr);
}

TEST(FindSync, DetectorReuseGivesTheSameAnswers) {
    std::vector<double> x = test::noise(48000 * 6, 2, 0.05, 2);
    const std::vector<double> t = tone_at(48000);
    for (std::size_t i = 0; i < t.size(); ++i) {
        x[2 * (10000 + i)] += t[i];
        x[2 * (200000 + i) + 1] -= t[i];
    }
    const wav_audio a = make_audio(48000, 2, x);
    sync_detector d;
    for (std::uint64_t start : {0u, 144000u, 0u}) {
        const sync_match reused = find_sync(d, a, start, 144000, 6.0, sync_similarity_threshold);
        const sync_match fresh = find_sync(a, start, 144000, 6.0, sync_similarity_threshold);
        EXPECT_TRUE(reused.found);
        EXPECT_EQ(reused.sample_offset, start == 0 ? 10000u : 200000u);
        EXPECT_EQ(reused.channel, start == 0 ? 0 : 1);
        EXPECT_EQ(reused.psr, fresh.psr);
        EXPECT_EQ(reused.similarity, fresh.similarity);
        EXPECT_EQ(reused.rep_psr, fresh.rep_psr);
    }
}

}  // namespace
}  // namespace veltrane
