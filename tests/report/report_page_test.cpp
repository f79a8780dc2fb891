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
    // (The words of the common formats and modes are compared whole in the goldens.)
    EXPECT_STREQ(bit_depth_word(320), "64-bit float");
    EXPECT_STREQ(bit_depth_word(8), "unknown");
    run_results res;
    EXPECT_EQ(analysis_mode_name(res, "amp_sweep"), "Amplitude Sweep");
    res.of(check_id::bit_accuracy).ran = true;
    res.of(check_id::time_domain).ran = true;
    EXPECT_EQ(analysis_mode_name(res, "freq_sweep"), "Bit Accuracy + Deepscan");
    res.of(check_id::bitexact).gates = true;
    res.of(check_id::impulse_template).ran = true;
    EXPECT_EQ(analysis_mode_name(res, ""), "Bit-Exact + Bit Accuracy + Deepscan + Impulse");
}

TEST(ReportCards, StereoAlignmentWithBorrowedChannel) {
    wav_audio ref;
    ref.sample_rate = 48000;
    ref.channels = 2;
    run_inputs run;
    run.ref = &ref;
    run_results res;
    res.align.channels = 2;
    res.align.aligned = true;
    res.align.file_offset = 7;
    res.align.channel[0] = {true, 7, 0.987, true, false, align_state::silent_borrowed};
    res.align.channel[1] = {true, 7, 0.987, false, false, align_state::measured};
    report_inputs in;
    in.run = &run;
    in.results = &res;
    std::string card = built(append_alignment_card, in);
    EXPECT_NE(card.find("<div class=\"align-gauge-caption\">File Offset 7 smp (0.15 ms) &middot; Disagreement 0 smp</div>"),
              std::string::npos);
    EXPECT_NE(card.find("<div class=\"align-gauge-caption\">L: Reference is silent on this channel -- offset borrowed "
                        "from the other channel (confidence 0.987), not independently measured.</div>\n"),
              std::string::npos);
    EXPECT_NE(card.find("<span class=\"align-gauge-num\">0.987</span>"), std::string::npos);
    EXPECT_EQ(card.find("R: "), std::string::npos);
}

}  // namespace
}  // namespace veltrane
