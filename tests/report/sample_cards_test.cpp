// Cards of level fidelity, artifact detection and time domain: badges, tables, tiles,
// severity texts and the per-channel waveform views.
#include "report/sample_cards.h"

#include <gtest/gtest.h>

#include <string>

#include "support/audio_pair.h"

namespace veltrane {
namespace {

struct card_fixture {
    wav_audio ref = test::audio_from(std::vector<double>(2 * 4800, 0.25), 2);
    run_config cfg;
    run_inputs run;
    run_results res;
    report_inputs in;

    card_fixture() {
        run.ref = run.dut = &ref;
        run.config = &cfg;
        in.run = &run;
        in.results = &res;
        set(param_id::level_fidelity_p99_tolerance_db, 1.02);
        set(param_id::artifact_min_severity, 4.0);
        set(param_id::artifact_min_global_severity, 100.0);
        cfg.params[param_index(param_id::artifact_min_silence_clip_run)].integer = 8;
    }
    void set(param_id id, double v) { cfg.params[param_index(id)].number = v; }

    std::string card(bool (*writer)(text_buf&, const report_inputs&)) const {
        text_buf buf;
        text_buf_init(buf);
        EXPECT_TRUE(writer(buf, in));
        std::string s(text_buf_view(buf));
        text_buf_free(buf);
        EXPECT_TRUE(s.ends_with("</div>\n</section>\n"));
        return s;
    }
};

bool has(const std::string& s, const std::string& part) { return s.find(part) != std::string::npos; }

TEST(SampleCards, ArtifactSeverityTexts) {
    struct severity_case {
        double severity, global;
        const char* text;
    };
    const severity_case cases[] = {
        {3.9, 2.5e6, " &middot; 2.5&times;10<sup>6</sup>&times; file-wide"},
        {4.0, 150.0, " &middot; 150&times; file-wide"},
        {4.5, 150.0, " &middot; 4.5&times;"},
        {250.0, 0.0, " &middot; 250&times;"},
        {1.0, 50.0, " &middot; silence/full scale"},
    };
    for (const severity_case& c : cases)
        EXPECT_EQ(artifact_severity_text(c.severity, c.global, 4.0, 100.0), c.text) << c.severity << " " << c.global;
}

TEST(SampleCards, TimeDomainTilesAndWaveformGallery) {
    card_fixture f;
    time_domain_result& r = f.res.time_domain;
    r.channel_count = 2;
    r.pass = false;
    r.channels[0] = {true, 4800, 0, 0};
    r.channels[1] = {false, 4790, 10, 3, true, 2400, 12.0, -0.5, -0.56, 10.0, 0, 1, 2};
    std::string s = f.card(append_time_domain_card);
    EXPECT_TRUE(s.starts_with("<section class=\"card\" id=\"timedomain\">\n<div class=\"card-head\">\n<div "
                              "class=\"htext\"><h3>Time Domain</h3></div>\n<span class=\"badge fail\">Fail</span>\n"));
    EXPECT_TRUE(has(s, "<div class=\"tile\"><div class=\"k\">Total Fails</div><div class=\"v fail\">3</div></div>\n"
                       "</div>\n<div class=\"tile-row\">\n<div class=\"tile\"><div class=\"k\">Fails: Low-Level Signal "
                       "Tier</div><div class=\"v\">0</div></div>"));
    EXPECT_TRUE(has(s, "<div class=\"v\">2400 (0.050 s)</div></div>\n<div class=\"tile\"><div class=\"k\">Diff / "
                       "Tolerance</div><div class=\"v fail\">12.00% / 10.00%</div></div>\n<div class=\"tile\"><div "
                       "class=\"k\">Ref / DUT Amplitude</div><div class=\"v\">-0.500000 / -0.560000</div>"));
    // Left: the full view only; right: the detail view, then the full view.
    const std::size_t left = s.find("<h4 class=\"channel-gallery-heading\">Left Channel</h4>\n<div class=\"scope\">\n");
    const std::size_t right = s.find("<h4 class=\"channel-gallery-heading\">Right Channel</h4>\n");
    ASSERT_NE(left, std::string::npos);
    ASSERT_NE(right, std::string::npos);
    EXPECT_TRUE(has(s, "<div class=\"scope-head\"><span class=\"title\">Full signal</span>\n<div "
                       "class=\"zoom-toolbar\"><span class=\"zoom-hint\">scroll to zoom &middot; drag to pan &middot; "
                       "shift+drag to box-zoom</span><div class=\"trace-toggle\" data-target=\"vt-timedomain-frame-ch0\">"));
    EXPECT_LT(s.find("id=\"vt-envelope-svg-timedomain-ch0\""), right);
    EXPECT_EQ(s.find("vt-timedomain-zoom-frame-ch0"), std::string::npos);
    EXPECT_LT(right, s.find("<div class=\"zoom-frame\" data-zoom-kind=\"waveform\" id=\"vt-timedomain-zoom-frame-ch1\">\n"
                            "<svg "));
    EXPECT_LT(s.find("id=\"vt-envelope-data-timedomain-zoom-ch1\""), s.find("id=\"vt-envelope-svg-timedomain-ch1\""));
    EXPECT_TRUE(has(s, "aria-label=\"Detail view around worst point, reference vs. DUT\""));
    EXPECT_TRUE(has(s, "</script>\n<div class=\"zoom-box\" hidden></div>\n</div>\n<div class=\"legend-row\">\n"));

    // Mono: no gallery, unsuffixed ids.
    f.ref = test::audio_from(std::vector<double>(4800, 0.25), 1);
    r.channel_count = 1;
    r.channels[0] = r.channels[1];
    s = f.card(append_time_domain_card);
    EXPECT_FALSE(has(s, "channel-gallery-heading"));
    EXPECT_TRUE(has(s, "<div class=\"v\">Mono</div>"));
    EXPECT_TRUE(has(s, "id=\"vt-timedomain-zoom-frame\""));
    EXPECT_TRUE(has(s, "id=\"vt-envelope-svg-timedomain\""));
}

}  // namespace
}  // namespace veltrane
