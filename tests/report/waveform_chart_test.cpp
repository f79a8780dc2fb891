// The waveform envelope chart: view window and columns, path runs, scales, grid labels,
// markers, centre line and the data island.
#include "report/waveform_chart.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "support/allocation.h"
#include "support/audio_pair.h"

namespace veltrane {
namespace {

wav_audio audio_of(std::uint32_t rate, std::uint32_t channels, std::vector<double> samples) {
    return test::audio_from(std::move(samples), channels, rate);
}

struct chart_text {
    bool ok = false;
    std::string text;
};

template <class Fn>
chart_text draw(Fn&& fn) {
    text_buf buf;
    text_buf_init(buf);
    chart_text out;
    out.ok = fn(buf);
    out.text = std::string(text_buf_view(buf));
    text_buf_free(buf);
    return out;
}

std::size_t count_of(const std::string& s, const std::string& what) {
    std::size_t n = 0;
    for (std::size_t p = s.find(what); p != std::string::npos; p = s.find(what, p + what.size())) ++n;
    return n;
}

// The numbers of array `key` inside the island object that starts at `from`.
std::vector<double> island_array(const std::string& s, const std::string& key, std::size_t from = 0) {
    std::size_t p = s.find("\"" + key + "\":[", from);
    EXPECT_NE(p, std::string::npos) << key;
    std::vector<double> values;
    if (p == std::string::npos) return values;
    p += key.size() + 4;
    std::size_t end = s.find(']', p);
    while (p < end) {
        std::size_t comma = s.find(',', p);
        if (comma == std::string::npos || comma > end) comma = end;
        values.push_back(std::stod(s.substr(p, comma - p)));
        p = comma + 1;
    }
    return values;
}

// The d attribute of the trace `name` ("ref" or "dut").
std::string path_of(const std::string& s, const std::string& name) {
    std::size_t p = s.find("data-trace=\"" + name + "\" d=\"");
    if (p == std::string::npos) return "<none>";
    p = s.find("d=\"", p) + 3;
    return s.substr(p, s.find('"', p) - p);
}

TEST(WaveformChart, DetailViewClampsItsWindowAndMarksTheCentre) {
    wav_audio ref = audio_of(48000, 1, std::vector<double>(100000, 0.25));
    auto c = draw([&](text_buf& b) { return envelope_detail(b, ref, &ref, 0, 0, 1000, 1.0, "-x"); });
    ASSERT_TRUE(c.ok);
    EXPECT_NE(c.text.find("\"totalFrames\":25000,"), std::string::npos);
    EXPECT_NE(c.text.find("<line x1=\"95.28\" y1=\"10.00\" x2=\"95.28\" y2=\"156.00\" stroke=\"var(--line)\" "
                          "stroke-width=\"1.5\" stroke-dasharray=\"4,3\" opacity=\"0.8\"/>\n</svg>\n"),
              std::string::npos);
    EXPECT_NE(c.text.find("id=\"vt-envelope-svg-x\""), std::string::npos);
    EXPECT_EQ(c.text.find("Z "), c.text.rfind("Z ", c.text.find("data-trace=\"dut\"")));  // one run per trace
}

TEST(WaveformChart, ShortFileSplitsIntoRunsAndOnlyTheLastCarriesTheLowerEdge) {
    wav_audio ref = audio_of(48000, 1, std::vector<double>(3000, 0.5));
    auto c = draw([&](text_buf& b) { return envelope_full(b, ref, nullptr, 0, 0, false, {}, ""); });
    ASSERT_TRUE(c.ok);
    std::vector<double> valid = island_array(c.text, "valid");
    ASSERT_EQ(valid.size(), 4096u);
    std::size_t invalid = 0, runs = 0, last_run_length = 0;
    for (std::size_t k = 0; k < valid.size(); ++k) {
        invalid += valid[k] == 0.0;
        runs += valid[k] == 1.0 && (k == 0 || valid[k - 1] == 0.0);
        last_run_length = valid[k] == 1.0 ? last_run_length + 1 : 0;
    }
    EXPECT_EQ(invalid, 4096u - 3000u);  // every frame fills exactly one column
    ASSERT_EQ(valid.back(), 1.0);
    const std::string d = path_of(c.text, "ref");
    EXPECT_EQ(count_of(d, "M"), runs);
    EXPECT_EQ(count_of(d, "Z "), runs);
    // One "L" per column along the upper edges, plus one per column of the last run on
    // its way back along the minima.
    EXPECT_EQ(count_of(d, "L"), 3000u + last_run_length);
    EXPECT_NE(d.find("L990.00,52.58 L989.77,52.58 L989.54,52.58 "), std::string::npos);
    EXPECT_NE(c.text.find("\"dut\":null,\"markers\":[]"), std::string::npos);
}

TEST(WaveformChart, ValuesBeyondTheScalesAreDrawnAtTheEdges) {
    struct scale_case {
        const char* name;
        double value;
        bool db;
        const char* upper_edge;  // first move of the path
        const char* island_max;
    };
    const scale_case cases[] = {
        {"over full scale", 1.5, false, "M58.00,10.00 L58.23,10.00 ", "1.5000"},
        {"below -1.2", -2.0, false, "M58.00,156.00 L58.23,156.00 ", "-2.0000"},
        {"digital silence in dB", 0.0, true, "M58.00,156.00 L58.23,156.00 ", "-140.0000"},
        {"below -140 dB", 1e-9, true, "M58.00,156.00 L58.23,156.00 ", "-140.0000"},
        {"full scale in dB", 1.0, true, "M58.00,28.25 L58.23,28.25 ", "0.0000"},
    };
    for (const scale_case& sc : cases) {
        wav_audio ref = audio_of(48000, 1, std::vector<double>(8192, sc.value));
        ref.format_code = 320;
        auto c = draw([&](text_buf& b) { return envelope_full(b, ref, nullptr, 0, 0, sc.db, {}, "-s"); });
        ASSERT_TRUE(c.ok) << sc.name;
        EXPECT_EQ(path_of(c.text, "ref").rfind(sc.upper_edge, 0), 0u) << sc.name;
        EXPECT_NE(c.text.find(std::string("\"max\":[") + sc.island_max + ","), std::string::npos) << sc.name;
        EXPECT_NE(c.text.find(sc.db ? "id=\"vt-envelope-svg-s-energy\"" : "id=\"vt-envelope-svg-s\""),
                  std::string::npos)
            << sc.name;
        EXPECT_NE(c.text.find(sc.db ? "\"yScale\":\"db\"" : "\"yScale\":\"amp\""), std::string::npos) << sc.name;
    }
}

TEST(WaveformChart, TimeLabelsInSecondsOrMinutes) {
    struct time_case {
        std::uint64_t seconds;
        std::vector<std::string> labels;
    };
    const time_case cases[] = {
        {90, {"0:00", "0:18", "0:36", "0:54", "1:12", "1:30"}},
        {30, {"0.0s", "6.0s", "12.0s", "18.0s", "24.0s", "30.0s"}},
    };
    for (const time_case& tc : cases) {
        wav_audio ref = audio_of(1000, 1, std::vector<double>(tc.seconds * 1000, 0.1));
        auto c = draw([&](text_buf& b) { return envelope_full(b, ref, nullptr, 0, 0, false, {}, ""); });
        std::size_t pos = 0;
        for (const std::string& label : tc.labels) {
            pos = c.text.find("text-anchor=\"middle\" fill=\"var(--muted)\">" + label + "</text>", pos);
            EXPECT_NE(pos, std::string::npos) << label;
        }
        EXPECT_EQ(count_of(c.text, "stroke=\"var(--line-strong)\""), 15u);
    }
    // Minor lines first, then the major tick, per fifth of the plot.
    wav_audio ref = audio_of(1000, 1, std::vector<double>(1000, 0.1));
    auto c = draw([&](text_buf& b) { return envelope_full(b, ref, nullptr, 0, 0, false, {}, ""); });
    EXPECT_NE(c.text.find("<line x1=\"104.60\" y1=\"10.00\" x2=\"104.60\" y2=\"156.00\" stroke=\"var(--line-strong)\" "
                          "stroke-width=\"1\" opacity=\"0.5\"/>\n"),
              std::string::npos);
    EXPECT_LT(c.text.find("x1=\"197.80\" y1=\"10.00\" x2=\"197.80\" y2=\"156.00\" stroke=\"var(--line-strong)\""),
              c.text.find("x1=\"244.40\" y1=\"10.00\" x2=\"244.40\" y2=\"156.00\" stroke=\"var(--ink-soft)\""));
}

TEST(WaveformChart, MarkersAndTheDutOffset) {
    // The DUT is the reference delayed by 250 frames with one spike at reference frame 2048.
    std::vector<double> ref_s(4096, 0.0), dut_s(4096 + 250, 0.0);
    dut_s[2048 + 250] = 0.75;
    wav_audio ref = audio_of(48000, 1, ref_s);
    wav_audio dut = audio_of(48000, 1, dut_s);
    const marker marks[] = {{"Level <Fidelity>", 0}, {"Artifact", 2048}, {"Early", -5}, {"Late", 9000}};
    auto c = draw([&](text_buf& b) { return envelope_full(b, ref, &dut, 250, 0, false, marks, "-m"); });
    ASSERT_TRUE(c.ok);
    std::vector<double> dut_max = island_array(c.text, "max", c.text.find("\"dut\":{"));
    ASSERT_EQ(dut_max.size(), 4096u);
    EXPECT_EQ(dut_max[2048], 0.75);
    EXPECT_EQ(dut_max[2047], 0.0);
    EXPECT_NE(c.text.find("<line x1=\"58.00\" y1=\"10.00\" x2=\"58.00\" y2=\"156.00\" stroke=\"var(--fail)\" "
                          "stroke-width=\"1\" stroke-dasharray=\"3,2\"/>\n<text x=\"61.00\" y=\"12.00\" font-size=\"9\" "
                          "fill=\"var(--fail)\" transform=\"rotate(-90 61.00 12.00)\" text-anchor=\"start\">Level "
                          "&lt;Fidelity&gt;</text>\n"),
              std::string::npos);
    EXPECT_NE(c.text.find("<line x1=\"524.00\" y1=\"10.00\" x2=\"524.00\" y2=\"156.00\" stroke=\"var(--fail)\""),
              std::string::npos);
    EXPECT_NE(c.text.find("<line x1=\"990.00\" y1=\"10.00\" x2=\"990.00\" y2=\"156.00\" stroke=\"var(--fail)\""),
              std::string::npos);
    EXPECT_NE(c.text.find(",\"markers\":[{\"label\":\"Level <Fidelity>\",\"frac\":0.000000},{\"label\":\"Artifact\","
                          "\"frac\":0.500000},{\"label\":\"Early\",\"frac\":-0.001221},{\"label\":\"Late\",\"frac\":"
                          "2.197266}]}</script>\n"),
              std::string::npos);
    EXPECT_NE(path_of(c.text, "dut"), "<none>");
    EXPECT_LT(c.text.find("data-trace=\"ref\""), c.text.find("data-trace=\"dut\""));
    EXPECT_NE(c.text.find("<path fill=\"var(--dut-trace)\" fill-opacity=\"0.55\" stroke=\"none\" data-trace=\"dut\""),
              std::string::npos);
    EXPECT_EQ(count_of(c.text, "<svg "), 1u);
}

TEST(WaveformChart, WindowBeyondTheFileDrawsAxesWithoutTraces) {
    wav_audio ref = audio_of(48000, 2, std::vector<double>(2000, 0.5));
    auto c = draw([&](text_buf& b) {
        return envelope_chart(b, ref, &ref, 0, 1, false, {}, true, 5000, 4000, 6000, "", "L");
    });
    ASSERT_TRUE(c.ok);
    EXPECT_EQ(path_of(c.text, "ref"), "");
    EXPECT_EQ(path_of(c.text, "dut"), "");
    EXPECT_NE(c.text.find("\"totalFrames\":0,"), std::string::npos);
    EXPECT_NE(c.text.find("<line x1=\"524.00\" y1=\"10.00\" x2=\"524.00\" y2=\"156.00\" stroke=\"var(--line)\""),
              std::string::npos);
    std::vector<double> valid = island_array(c.text, "valid");
    EXPECT_EQ(std::count(valid.begin(), valid.end(), 1.0), 0);
}

TEST(WaveformChart, FailsWithoutItsWorkArrays) {
    wav_audio ref = audio_of(48000, 1, std::vector<double>(100, 0.5));
    text_buf buf;
    text_buf_init(buf);
    bool ok = true;
    {
        test::allocation_limit limit(4096 * sizeof(double) - 1);
        ok = envelope_full(buf, ref, nullptr, 0, 0, false, {}, "");
    }
    EXPECT_FALSE(ok);
    EXPECT_EQ(buf.len, 0u);
    text_buf_free(buf);
}

}  // namespace
}  // namespace veltrane
