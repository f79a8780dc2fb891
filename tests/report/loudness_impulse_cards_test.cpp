// The Loudness card (Skipped, Reference Only, failing cells) and the Impulse Template
// card's tiles, from records built in memory.
#include <gtest/gtest.h>

#include <string>

#include "report/impulse_card.h"
#include "report/loudness_card.h"

namespace veltrane {
namespace {

struct card_fixture {
    wav_audio ref;
    run_config cfg;
    run_results res;
    run_inputs run;
    report_inputs in;

    card_fixture() {
        ref.sample_rate = 48000;
        ref.channels = 1;
        cfg.params[param_index(param_id::loudness_true_peak_tolerance_db)].number = 0.5;
        run.ref = &ref;
        run.dut = &ref;
        run.config = &cfg;
        in.run = &run;
        in.results = &res;
    }
    std::string card(bool (*writer)(text_buf&, const report_inputs&)) {
        text_buf buf;
        text_buf_init(buf);
        EXPECT_TRUE(writer(buf, in));
        std::string s(text_buf_view(buf));
        text_buf_free(buf);
        return s;
    }
};

bool has(const std::string& page, const std::string& text) { return page.find(text) != std::string::npos; }

TEST(LoudnessCard, SkippedWhenTheCheckDidNotRun) {
    card_fixture f;
    EXPECT_EQ(f.card(append_loudness_card),
              "<section class=\"card\" id=\"loudness\">\n<div class=\"card-head\">\n<div "
              "class=\"htext\"><h3>Loudness</h3></div>\n<span class=\"badge info\">Skipped</span>\n</div>\n<div "
              "class=\"card-body\">\n<p class=\"desc\">Skipped -- run without <code>--no-loudness</code> to include "
              "it.</p>\n</div>\n</section>\n");
}

TEST(LoudnessCard, CeilingAndFixedIntegratedMark) {
    // The DUT's true peak equals the reference's but sits above a -1.0 dBTP ceiling: its
    // cell fails. An integrated difference of 0.6 LU is marked at the fixed 0.5 LU even
    // when the check's tolerance is wider.
    card_fixture f;
    f.cfg.params[param_index(param_id::loudness_true_peak_ceiling_dbtp)].present = true;
    f.cfg.params[param_index(param_id::loudness_true_peak_ceiling_dbtp)].number = -1.0;
    check_status& s = f.res.of(check_id::loudness);
    s.ran = true;
    loudness_result& r = f.res.loudness;
    r.ref.true_peak_dbtp = r.dut.true_peak_dbtp = -0.5;
    r.ref.integrated_lufs = -23.0;
    r.dut.integrated_lufs = -22.4;
    r.delta_integrated_lu = 0.6;
    r.pass = false;
    const std::string ref_only = f.card(append_loudness_card);
    // (The Reference Only badge and note are in every report golden.)
    EXPECT_TRUE(has(ref_only, "<tr><th scope=\"row\">True Peak</th><td>-0.5 dBTP</td><td>-0.5 dBTP</td><td "
                              "class=\"fail\">+0.00 dB (ceiling -1.0 dBTP)<span "
                              "class=\"loudness-delta-label\">&Delta; True Peak</span></td></tr>\n"));
    EXPECT_TRUE(has(ref_only, "<tr><th scope=\"row\">Integrated Loudness</th><td>-23.0 LUFS</td><td>-22.4 "
                              "LUFS</td><td class=\"fail\">+0.60 LU<span class=\"loudness-delta-label\">&Delta; "
                              "Loudness</span></td></tr>\n"));
    EXPECT_TRUE(has(ref_only, "<tr><th scope=\"row\">Max Short-term</th><td>-200.0 LUFS</td><td>-200.0 "
                              "LUFS</td><td>+0.00 LU<span class=\"loudness-delta-label\">&Delta; "
                              "Short-term</span></td></tr>\n</tbody>\n</table>\n</div>\n</div>\n</section>\n"));
    s.gates = true;
    const std::string gating = f.card(append_loudness_card);
    EXPECT_TRUE(has(gating, "<span class=\"badge fail\">Fail</span>\n"));
    EXPECT_FALSE(has(gating, "Reference only"));
}

}  // namespace
}  // namespace veltrane
