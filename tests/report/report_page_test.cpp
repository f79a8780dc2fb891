#include "report/report_page.h"

#include <gtest/gtest.h>

#include "report/check_cards.h"

namespace veltrane {
namespace {

std::string built(bool (*fn)(text_buf&, const report_inputs&), const report_inputs& in) {
    text_buf buf;
    text_buf_init(buf);
    EXPECT_TRUE(fn(buf, in));
    std::string s(text_buf_view(buf));
    text_buf_free(buf);
    return s;
}

TEST(ReportPage, GaugeBands) {
    EXPECT_DOUBLE_EQ(gauge_position_for(0.7).pointer_pct, 20.0);
    EXPECT_STREQ(gauge_position_for(0.7).word, "poor");
    EXPECT_NEAR(gauge_position_for(0.95).pointer_pct, 45.0 + 0.05 / 0.07 * 30.0, 1e-9);
    EXPECT_STREQ(gauge_position_for(0.95).word, "good");
    EXPECT_STREQ(gauge_position_for(0.9).word, "fair");
    EXPECT_STREQ(gauge_position_for(0.97).word, "good");
    EXPECT_DOUBLE_EQ(gauge_position_for(1.0).pointer_pct, 100.0);
    EXPECT_DOUBLE_EQ(gauge_position_for(1.5).pointer_pct, 100.0);
    EXPECT_DOUBLE_EQ(gauge_position_for(-2.0).pointer_pct, 0.0);
    EXPECT_DOUBLE_EQ(gauge_position_for(-1.0).pointer_pct, 0.0);

    text_buf buf;
    text_buf_init(buf);
    ASSERT_TRUE(append_alignment_gauge(buf, -2.0, "cap", nullptr));
    EXPECT_NE(text_buf_view(buf).find("left:0.0%\"></div></div>\n<div class=\"align-gauge-value\"><span "
                                      "class=\"align-gauge-num\">-2.000</span><span class=\"align-gauge-word "
                                      "poor\">Poor</span>"),
              std::string::npos);
    text_buf_free(buf);
}

TEST(ReportPage, IslandCopyEscapesEveryMarkupCharacter) {
    EXPECT_EQ(escape_script_close("a</script>b</SCRIPT>"), "a\\u003c/script\\u003eb\\u003c/SCRIPT\\u003e");
    EXPECT_EQ(escape_script_close("<!--<script> & x"), "\\u003c!--\\u003cscript\\u003e \\u0026 x");
    EXPECT_EQ(escape_script_close("{\n    \"k\": \"a\\\\b \\u0001 \xc3\xa9\"\n}\n"),
              "{\n    \"k\": \"a\\\\b \\u0001 \xc3\xa9\"\n}\n");  // nothing else changes
    EXPECT_EQ(escape_script_close(""), "");
}

TEST(ReportPage, TesterRow) {
    auto row = [](std::optional<std::string> engineer, std::optional<std::string> product,
                  std::optional<std::string> company) {
        text_buf buf;
        text_buf_init(buf);
        EXPECT_TRUE(append_tester_row(buf, tester_identity{engineer, product, company}));
        std::string s(text_buf_view(buf));
        text_buf_free(buf);
        return s;
    };
    EXPECT_EQ(row({}, {}, {}), "");
    EXPECT_EQ(row({}, "Amp-7", {}), "<div class=\"footer-row-tester\">Product <b>Amp-7</b></div>\n");
    EXPECT_EQ(row("Jo", "Amp-7", {}),
              "<div class=\"footer-row-tester\">Tested by <b>Jo</b> &middot; product <b>Amp-7</b></div>\n");
    EXPECT_EQ(row("Jo", {}, "A&B"), "<div class=\"footer-row-tester\">Tested by <b>Jo</b> &middot; <b>A&amp;B</b></div>\n");
    EXPECT_EQ(row({}, {}, "Co"), "<div class=\"footer-row-tester\">Tested by <b>Co</b></div>\n");
}

TEST(ReportPage, WordsForFormatsAndModes) {
    EXPECT_STREQ(bit_depth_word(320), "64-bit float");
    EXPECT_STREQ(bit_depth_word(288), "32-bit float");
    EXPECT_STREQ(bit_depth_word(8), "unknown");
    report_inputs in;
    EXPECT_EQ(analysis_mode_name(in), "Frequency Domain");
    in.bitaccuracy_ran = true;
    in.time_domain_ran = true;
    EXPECT_EQ(analysis_mode_name(in), "Bit Accuracy + Deepscan");
    in.bitexact_gates = true;
    in.impulse_ran = true;
    EXPECT_EQ(analysis_mode_name(in), "Bit-Exact + Bit Accuracy + Deepscan + Impulse");
}

TEST(ReportCards, StereoAlignmentWithBorrowedChannel) {
    wav_audio ref;
    ref.sample_rate = 48000;
    ref.channels = 2;
    report_inputs in;
    in.ref_audio = &ref;
    in.align.channels = 2;
    in.align.aligned = true;
    in.align.file_offset = 7;
    in.align.channel[0] = {true, 7, 0.987, true, false, align_state::silent_borrowed};
    in.align.channel[1] = {true, 7, 0.987, false, false, align_state::measured};
    std::string card = built(append_alignment_card, in);
    EXPECT_NE(card.find("<div class=\"align-gauge-caption\">File Offset 7 smp (0.15 ms) &middot; Disagreement 0 smp</div>"),
              std::string::npos);
    EXPECT_NE(card.find("<div class=\"align-gauge-caption\">L: Reference is silent on this channel -- offset borrowed "
                        "from the other channel (confidence 0.987), not independently measured.</div>\n"),
              std::string::npos);
    EXPECT_NE(card.find("<span class=\"align-gauge-num\">0.987</span>"), std::string::npos);
    EXPECT_EQ(card.find("R: "), std::string::npos);
}

TEST(ReportCards, BitCardRateAndTiles) {
    wav_audio ref;
    ref.sample_rate = 48000;
    report_inputs in;
    in.ref_audio = &ref;
    in.bitexact_ran = true;
    in.bitexact.samples_compared = 1000000;
    in.bitexact.samples_differing = 3;
    in.bitexact.first_diff_frame = 480;
    in.bitexact.worst_diff_frame = 480;
    in.bitexact.first_diff_ref_value = 0.5;
    in.bitexact.first_diff_dut_value = 0.25;
    in.bitaccuracy_ran = true;
    in.bitaccuracy_tolerance_db = 108.0;
    in.bitaccuracy.worst_diff_frame = 480;
    std::string card = built(append_bit_card, in);
    EXPECT_NE(card.find("3 <span class=\"pct\">of 1000000 &middot; 0.0003%</span>"), std::string::npos);
    EXPECT_NE(card.find("<div class=\"k\">First Diff</div><div class=\"v\">frame 480 (10.00 ms)</div>\n<div "
                        "class=\"v-sub\">ref 0.500000 &rarr; dut 0.250000 &middot; <span class=\"delta\">&Delta; "
                        "0.250000</span>"),
              std::string::npos);
    EXPECT_EQ(card.find("Worst Diff"), std::string::npos);  // same spot as the first difference
    EXPECT_NE(card.find("108.00 dB tolerance &middot; same location as above"), std::string::npos);
    EXPECT_NE(card.find("style=\"width: 0.2%;\""), std::string::npos);
}

}  // namespace
}  // namespace veltrane
