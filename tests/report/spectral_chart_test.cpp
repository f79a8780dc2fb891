// The spectral chart: axis helpers, the interpolated peak level, tick placement on both
// axes, the short-overlap note, thresholds, fail marker and data island; and the card's
// time text.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <string>
#include <vector>

#include "dsp/amplitude.h"
#include "report/spectral_card.h"
#include "report/spectral_chart.h"

namespace veltrane {
namespace {

constexpr double pi = 3.14159265358979323846;

wav_audio tone_audio(std::uint32_t rate, std::uint64_t frames, double freq_hz, double amplitude) {
    wav_audio a;
    a.sample_rate = rate;
    a.channels = 1;
    a.format_code = 320;
    a.frame_count = frames;
    for (std::uint64_t i = 0; i < frames; ++i)
        a.samples.push_back(amplitude * std::sin(2.0 * pi * freq_hz * static_cast<double>(i) / rate));
    return a;
}

std::string draw(const spectral_chart_request& req, spectral_chart_peaks* peaks = nullptr) {
    text_buf buf;
    text_buf_init(buf);
    EXPECT_TRUE(spectral_chart(buf, req, peaks));
    std::string out(text_buf_view(buf));
    text_buf_free(buf);
    return out;
}

bool has(const std::string& page, const std::string& text) { return page.find(text) != std::string::npos; }

TEST(SpectralChart, NiceNumbers) {
    struct {
        double x;
        bool round;
        double nice;
    } cases[] = {{22050, false, 50000}, {10000, true, 10000}, {24000, false, 50000}, {1.4, true, 1},
                 {2.9, true, 2},         {6.9, true, 5},      {7.0, true, 10},       {2.0, false, 2}};
    for (const auto& c : cases) EXPECT_DOUBLE_EQ(nice_number(c.x, c.round), c.nice) << c.x;
}

TEST(SpectralChart, PeakLevelUndoesTheScallopingLoss) {
    const double bin_hz = 48000.0 / 8192;
    const wav_audio on_bin = tone_audio(48000, 8192, 171 * bin_hz, 0.5);
    const wav_audio between = tone_audio(48000, 8192, 171.5 * bin_hz, 0.5);
    std::vector<double> db(4096);
    amplitude_spectrum(on_bin, 0, 0, 8192, db, spectrum_form::db_chart);
    EXPECT_NEAR(spectrum_peak_level(db), 20.0 * std::log10(0.5), 0.05);
    amplitude_spectrum(between, 0, 0, 8192, db, spectrum_form::db_chart);
    const double largest = *std::max_element(db.begin(), db.end());
    EXPECT_NEAR(spectrum_peak_level(db) - largest, 20.0 * std::log10(1.0 / 0.8488263631567752), 0.02);
    EXPECT_NEAR(spectrum_peak_level(db), 20.0 * std::log10(0.5), 0.05);
    // Edge bins and tiny spectra return the largest level as it is.
    EXPECT_EQ(spectrum_peak_level(std::vector<double>{-3.0}), -3.0);
    EXPECT_EQ(spectrum_peak_level(std::vector<double>{-10.0, -3.0, -20.0}), -3.0);
    EXPECT_EQ(spectrum_peak_level(std::vector<double>{-10.0, -30.0, -20.0, -1.0}), -1.0);
}

// (The log axis at 48 kHz is compared whole in the goldens.)
TEST(SpectralChart, FrequencyTicksByRateAndAxis) {
    struct {
        const char* name;
        std::uint32_t rate;
        bool linear;
        std::vector<std::string> present, absent;
    } cases[] = {
        {"log 96k", 96000, false,
         {"<text x=\"885.17\" y=\"290.00\" font-size=\"9.5\" text-anchor=\"middle\" fill=\"var(--muted)\">20k</text>",
          "<text x=\"990.00\" y=\"290.00\" font-size=\"9.5\" text-anchor=\"end\" fill=\"var(--muted)\">48.0k</text>"},
         {}},
        {"linear 44.1k", 44100, true,
         {">0</text>", ">10k</text>", ">20k</text>", "id=\"vt-spectral-svg-linear-x\"", "\"freqScale\":\"linear\""},
         {">30k</text>", ">50</text>"}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const wav_audio a = tone_audio(c.rate, 8192, 1000.0, 0.5);
        spectral_chart_request req;
        req.ref = &a;
        req.linear_axis = c.linear;
        req.id_suffix = "-x";
        const std::string svg = draw(req);
        for (const auto& t : c.present) EXPECT_TRUE(has(svg, t)) << t;
        for (const auto& t : c.absent) EXPECT_FALSE(has(svg, t)) << t;
    }
}

TEST(SpectralChart, ThresholdsMarkerAndIsland) {
    const wav_audio ref = tone_audio(48000, 20000, 1000.0, 0.5);
    const wav_audio dut = tone_audio(48000, 20000, 1000.0, 0.6);
    spectral_chart_request req;
    req.ref = &ref;
    req.dut = &dut;
    req.low_level_threshold_db = -70.0;
    req.peak_threshold_db = -60.0;
    req.fail_freq_hz = 1000.0;
    req.fail_db = 1.58;
    spectral_chart_peaks peaks;
    const std::string svg = draw(req, &peaks);
    EXPECT_TRUE(peaks.set);
    EXPECT_NEAR(peaks.dut_db - peaks.ref_db, 20.0 * std::log10(1.2), 0.01);
    for (const char* t : {"aria-label=\"Spectral snapshot, reference vs. DUT\"", ">noise floor -100dB</text>",
                          ">low-level signal threshold -70dB</text>", ">peak threshold -60dB</text>",
                          ">Fail +1.6dB</text>", ",\"failMarker\":{\"freqHz\":1000.000,\"diffDb\":1.58},\"peaks\":[]}</script>\n",
                          "\"tierNoiseFloorDb\":-100.00,\"tierNonPeakDb\":-70.00,\"tierPeakDb\":-60.00,\"ref\":[",
                          "{\"db\":-60.00,\"text\":\"peak threshold -60dB\",\"color\":\"--gate\",\"dash\":\"4,3\",\"align\":\"left\"}]",
                          "stroke=\"var(--dut-trace)\""})
        EXPECT_TRUE(has(svg, t)) << t;
    // The tier between the peak and the low-level threshold: y(-60) = 144, y(-70) = 160.5.
    EXPECT_TRUE(has(svg, "<rect x=\"58.00\" y=\"144.00\" width=\"932.00\" height=\"16.50\""));
    // Without a DUT: no marker, no DUT array, the thresholds not given are null.
    spectral_chart_request ref_only;
    ref_only.ref = &ref;
    const std::string plain = draw(ref_only);
    EXPECT_TRUE(has(plain, "\"tierNonPeakDb\":null,\"tierPeakDb\":null,"));
    EXPECT_TRUE(has(plain, ",\"dut\":null,\"markers\":[{"));
    EXPECT_TRUE(has(plain, "\"failMarker\":null"));
    EXPECT_FALSE(has(plain, "Fail "));
    // 4096 levels in the island's ref array.
    const std::size_t from = plain.find("\"ref\":[") + 7;
    const std::string levels = plain.substr(from, plain.find(']', from) - from);
    EXPECT_EQ(std::count(levels.begin(), levels.end(), ','), 4095);
}

TEST(SpectralChart, TooShortAnOverlapWritesOnlyTheNote) {
    const wav_audio ref = tone_audio(48000, 4000, 1000.0, 0.5);
    spectral_chart_request req;
    req.ref = &ref;
    req.dut = &ref;
    req.n = 4096;
    spectral_chart_peaks peaks;
    EXPECT_EQ(draw(req, &peaks),
              "<p class=\"vt-chart-note\">Not enough overlapping samples to render a spectral snapshot.</p>\n");
    EXPECT_FALSE(peaks.set);
}

TEST(SpectralCard, TimeText) {
    EXPECT_EQ(spectral_time_text(65.3), "1:05.3");
    EXPECT_EQ(spectral_time_text(4.0), "0:04.0");
    EXPECT_EQ(spectral_time_text(0.5), "0:00.5");
    EXPECT_EQ(spectral_time_text(600.0), "10:00.0");
}

}  // namespace
}  // namespace veltrane
