#include "align/align.h"

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "support/wav_bytes.h"
#include "support/audio_pair.h"

namespace veltrane {
namespace {

constexpr std::uint32_t rate = 48000;
constexpr std::int64_t max_lag = 4800;  // 0.1 s at 48 kHz
constexpr double threshold = 0.9;

wav_audio make_audio(std::vector<double> samples, std::uint32_t channels, std::uint32_t format_code = 320) {
    return test::audio_from(std::move(samples), channels, rate, format_code);
}

// `s` (interleaved) shifted by `delay` frames: later for positive delays (silence in
// front, the end cut off), earlier for negative ones (the start missing).
std::vector<double> shifted(const std::vector<double>& s, std::uint32_t channels, std::int64_t delay) {
    std::vector<double> out(s.size(), 0.0);
    const auto frames = static_cast<std::int64_t>(s.size() / channels);
    for (std::int64_t i = 0; i < frames; ++i) {
        std::int64_t src = i - delay;
        if (src < 0 || src >= frames) continue;
        for (std::uint32_t c = 0; c < channels; ++c) out[i * channels + c] = s[src * channels + c];
    }
    return out;
}

std::vector<double> quantised16(std::vector<double> s) {
    for (double& v : s) v = std::round(v * 32767.0) / 32767.0;
    return s;
}

align_result align(const wav_audio& r, const wav_audio& d) { return align_channels(r, d, max_lag, threshold, 2, -70.0); }

TEST(CrossCorrelate, KnownDelayAndSign) {
    std::vector<double> a = test::noise(5000, 1, 0.5, 3);
    std::vector<double> b = shifted(a, 1, 37);
    correlation_peak p = cross_correlate(a, b, 100, false);
    EXPECT_EQ(p.lag, 37);
    EXPECT_NEAR(p.confidence, 1.0, 1e-9);
    for (double& v : b) v = -v;
    p = cross_correlate(a, b, 100, true);
    EXPECT_EQ(p.lag, 37);
    EXPECT_NEAR(p.confidence, -1.0, 1e-9);
    // A delay beyond the searched range is not found.
    EXPECT_NE(cross_correlate(a, shifted(a, 1, 300), 100, false).lag, 300);
    EXPECT_EQ(cross_correlate(a, {}, 100, false).confidence, 0.0);
}

TEST(AlignChannels, DelayedAndAdvancedCaptures) {
    for (std::uint32_t channels : {1u, 2u}) {
        for (std::int64_t delay : {100, -100, 0, 4800}) {
            std::vector<double> s = quantised16(test::noise(24000, channels, 0.5, 11));
            wav_audio ref = make_audio(s, channels, 16);
            wav_audio dut = make_audio(quantised16(shifted(s, channels, delay)), channels, 16);
            align_result r = align(ref, dut);
            EXPECT_TRUE(r.aligned) << channels << " ch, delay " << delay;
            EXPECT_EQ(r.file_offset, delay);
            EXPECT_EQ(r.channels, channels);
            for (std::uint32_t c = 0; c < channels; ++c) {
                EXPECT_EQ(r.channel[c].offset, delay);
                EXPECT_GT(r.channel[c].confidence, 0.999);
                EXPECT_EQ(r.channel[c].state, align_state::measured);
            }
        }
    }
}

TEST(AlignChannels, SilentChannelsBorrowOrZero) {
    std::vector<double> s = test::noise(12000, 2, 0.5, 5);
    std::vector<double> d = shifted(s, 2, 7);
    for (std::size_t i = 0; i < d.size(); i += 2) d[i] = 0.0;  // left silent in the DUT only
    align_result r = align(make_audio(s, 2), make_audio(d, 2));
    EXPECT_TRUE(r.aligned);
    EXPECT_EQ(r.channel[0].state, align_state::silent_borrowed);
    EXPECT_TRUE(r.channel[0].dut_silent);
    EXPECT_FALSE(r.channel[0].ref_silent);
    EXPECT_EQ(r.channel[0].offset, 7);
    EXPECT_EQ(r.file_offset, 7);
    EXPECT_DOUBLE_EQ(r.channel[0].confidence, r.channel[1].confidence);

    align_result quiet = align(make_audio(std::vector<double>(8000, 0.0), 1), make_audio(std::vector<double>(8000, 0.0), 1));
    EXPECT_TRUE(quiet.aligned);
    EXPECT_EQ(quiet.channel[0].state, align_state::silent_zero);
    EXPECT_EQ(quiet.file_offset, 0);
    EXPECT_STREQ(align_state_name(align_state::silent_zero), "silent_zero");
}

TEST(AlignChannels, ChannelsThatDisagree) {
    std::vector<double> s = test::noise(12000, 2, 0.5, 8);
    std::vector<double> d(s.size());
    std::vector<double> left = shifted(s, 2, 3), right = shifted(s, 2, 6);
    for (std::size_t i = 0; i < d.size(); i += 2) {
        d[i] = left[i];
        d[i + 1] = right[i + 1];
    }
    align_result r = align(make_audio(s, 2), make_audio(d, 2));
    EXPECT_EQ(r.disagreement_samples, 3);
    EXPECT_FALSE(r.aligned);
    EXPECT_EQ(compose_alignment_message(r, {}, rate, threshold, max_lag, 2),
              "alignment failed -- the channels disagree by 3 samples (left lines up at +3, right at +6), more than the "
              "2 allowed. If the DUT really delays one channel, raise alignment.fine_align_agreement_tolerance_samples "
              "in veltrane-defaults.cfg; otherwise check the capture.");
}

// Diagnoses of failed mono alignments, with the sentence each produces.
struct diagnosed {
    align_result result;
    align_diagnosis d;
    std::string message;
};

diagnosed diagnose(const std::vector<double>& ref, const std::vector<double>& dut) {
    wav_audio r = make_audio(ref, 1), d = make_audio(dut, 1);
    diagnosed out;
    out.result = align(r, d);
    EXPECT_FALSE(out.result.aligned);
    auto both = diagnose_alignment(r, d, out.result, max_lag, threshold);
    out.d = both[0];
    out.message = compose_alignment_message(out.result, both, rate, threshold, max_lag, 2);
    return out;
}

TEST(Diagnosis, PolarityAndWindow) {
    std::vector<double> s = test::noise(4 * rate, 1, 0.5, 21);
    std::vector<double> inverted = s;
    for (double& v : inverted) v = -v;
    diagnosed p = diagnose(s, inverted);
    EXPECT_EQ(p.d.kind, align_diagnosis_kind::polarity_inverted);
    EXPECT_NEAR(p.d.polarity_confidence, -1.0, 1e-9);
    EXPECT_EQ(p.message,
              "alignment failed -- the DUT is polarity-inverted: it matches the reference with the sign flipped "
              "(correlation -1.0000), so no offset lines it up. Invert it and run again.");

    diagnosed w = diagnose(s, shifted(s, 1, 6000));
    EXPECT_EQ(w.d.kind, align_diagnosis_kind::outside_window);
    EXPECT_EQ(w.d.wide_offset, 6000);
    EXPECT_EQ(w.message,
              "alignment failed -- the DUT matches the reference but 0.125 s (6000 samples) late, outside the +-0.100 "
              "s search window. Set alignment.fine_align_max_search_sec to at least 0.3 in veltrane-defaults.cfg, or "
              "trim both files so they start together.");
}

TEST(Diagnosis, HeadTailDriftMiddleAndNoMatch) {
    const std::uint64_t n = 4 * rate;
    std::vector<double> s = test::noise(n, 1, 0.5, 31);
    std::vector<double> other = test::noise(n, 1, 0.5, 32);
    auto splice = [&](std::uint64_t from, std::uint64_t to, const std::vector<double>& src) {
        std::vector<double> out = s;
        for (std::uint64_t i = from; i < to; ++i) out[i] = src[i];
        return out;
    };
    diagnosed head = diagnose(s, splice(n / 2, n, other));
    EXPECT_EQ(head.d.kind, align_diagnosis_kind::head_only);
    EXPECT_EQ(head.message,
              "alignment failed -- the first 1.0 s lines up (offset +0 samples) but the last 1.0 s does not "
              "(correlation " +
                  std::string(head.message.substr(head.message.find("(correlation ") + 13, 4)) +
                  "). Something changes partway through: for example a splice, a long dropout, a slip larger than the "
                  "search window, or a different or truncated ending.");
    EXPECT_EQ(diagnose(s, splice(0, n / 2, other)).d.kind, align_diagnosis_kind::tail_only);
    EXPECT_EQ(diagnose(s, splice(rate + rate / 2, n - rate - rate / 2, other)).d.kind, align_diagnosis_kind::middle_differs);

    // 50 samples dropped in the middle: the end lines up 50 samples earlier.
    std::vector<double> dropped(s.begin(), s.begin() + 2 * rate);
    dropped.insert(dropped.end(), s.begin() + 2 * rate + 50, s.end());
    dropped.resize(n, 0.0);
    diagnosed drift = diagnose(s, dropped);
    EXPECT_EQ(drift.d.kind, align_diagnosis_kind::drift);
    EXPECT_EQ(drift.d.head_offset, 0);
    EXPECT_EQ(drift.d.tail_offset, -50);
    EXPECT_NE(drift.message.find("the start of the files lines up (offset +0 samples) but the end lines up 50 samples "
                                 "earlier (offset -50, 3.0 s further on). That fits samples skipped or repeated in "
                                 "between, or a clock-speed difference of about 347 ppm."),
              std::string::npos);

    diagnosed none = diagnose(s, other);
    EXPECT_EQ(none.d.kind, align_diagnosis_kind::no_match);
    EXPECT_EQ(none.message.rfind("alignment failed -- no consistent match (correlation ", 0), 0u);
    EXPECT_NE(none.message.find(", needs 0.9000) in the whole file"), std::string::npos);
}

align_result stereo_failure() {
    align_result r;
    r.channels = 2;
    r.channel[0].confidence = 0.2;
    r.channel[1].confidence = 0.3;
    return r;
}

TEST(AlignmentMessage, StereoForms) {
    align_result r = stereo_failure();
    std::array<align_diagnosis, 2> d{};
    d[0].kind = d[1].kind = align_diagnosis_kind::polarity_inverted;
    d[0].polarity_confidence = -0.99;
    d[1].polarity_confidence = -0.98;
    EXPECT_EQ(compose_alignment_message(r, d, rate, threshold, max_lag, 2),
              "alignment failed -- both channels: the DUT is polarity-inverted: it matches the reference with the sign "
              "flipped (correlation -0.9900), so no offset lines it up. Invert it and run again.");

    d[0] = d[1] = align_diagnosis{};
    d[0].kind = d[1].kind = align_diagnosis_kind::head_only;
    d[0].segment_len = d[1].segment_len = rate;
    d[0].head_offset = 12;
    d[1].head_offset = 13;
    std::string two = compose_alignment_message(r, d, rate, threshold, max_lag, 2);
    EXPECT_EQ(two.rfind("alignment failed -- left channel: the first 1.0 s lines up (offset +12 samples)", 0), 0u);
    EXPECT_NE(two.find("truncated ending. right channel: the first 1.0 s lines up (offset +13 samples)"), std::string::npos);

    d[0] = d[1] = align_diagnosis{};
    EXPECT_EQ(compose_alignment_message(r, d, rate, threshold, max_lag, 2).substr(0, 106),
              "alignment failed -- no consistent match (correlation 0.2000 on the left channel, 0.3000 on the right, "
              "need");

    r.channel[1] = {true, 0, 0.0, true, true, align_state::silent_zero};
    std::string silent = compose_alignment_message(r, d, rate, threshold, max_lag, 2);
    EXPECT_EQ(silent.rfind("alignment failed -- left channel: no consistent match (correlation 0.2000, needs 0.9000)", 0), 0u);
    EXPECT_TRUE(silent.ends_with(
        "Check that you gave the right pair. The right channel is silent in the reference or the DUT, so it offered no "
        "offset to go by."));
}

TEST(AlignmentMessage, OutsideWindowEarlyAndCut) {
    align_result r;
    r.channels = 1;
    std::array<align_diagnosis, 2> d{};
    d[0].kind = align_diagnosis_kind::outside_window;
    d[0].wide_offset = -24000;
    EXPECT_EQ(compose_alignment_message(r, d, rate, threshold, max_lag, 2),
              "alignment failed -- the DUT matches the reference but 0.500 s (24000 samples) early, outside the +-0.100 "
              "s search window. Set alignment.fine_align_max_search_sec to at least 0.6 in veltrane-defaults.cfg, or "
              "trim both files so they start together.");
    // Absurd figures (300-digit numbers) make the per-channel form overflow the message
    // buffer: the text is cut silently at 1399 characters.
    align_result s = stereo_failure();
    s.channel[0].confidence = 1e300;
    d[0] = d[1] = align_diagnosis{};
    d[1].kind = align_diagnosis_kind::head_only;
    d[1].tail_confidence = 1e300;
    std::string text = compose_alignment_message(s, d, rate, 1e300, max_lag, 2);
    EXPECT_EQ(text.size(), 1399u);
    EXPECT_NE(text.find(". right channel: the first 0.0 s lines up"), std::string::npos);
}

}  // namespace
}  // namespace veltrane
