#include "report/spectral_chart.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <new>
#include <string>
#include <vector>

#include "dsp/amplitude.h"

namespace veltrane {
namespace {

// Geometry in SVG user units.
constexpr double view_w = 1000.0;
constexpr double view_h = 320.0;
constexpr double left = 58.0;
constexpr double right = 990.0;
constexpr double width = right - left;  // 932
constexpr double top = 12.0;
constexpr double bottom = 276.0;
constexpr double height = bottom - top;  // 264
constexpr double db_min = -140.0;
constexpr double db_max = 20.0;
constexpr double freq_min_hz = 20.0;  // left end of the log axis
constexpr double label_y = 290.0;
constexpr double title_y = 304.0;
constexpr double pi = 3.14159265358979323846;
// |sin(pi d)/(pi d)| / |1 - d^2| at d = 0.5: the Hann window's gain for a tone half a bin
// off, used when the offset estimate leaves the +-0.5 range.
constexpr double half_bin_gain = 0.8488263631567752;

double y_of(double db) { return db < db_min ? bottom : bottom - (std::min(db, db_max) - db_min) / (db_max - db_min) * height; }

struct freq_axis {
    bool linear;
    double nyquist;
    double x(double f) const {
        if (linear) return left + std::min(std::max(f, 0.0), nyquist) / nyquist * width;
        return left + (std::log10(std::max(f, freq_min_hz)) - std::log10(freq_min_hz)) /
                          (std::log10(nyquist) - std::log10(freq_min_hz)) * width;
    }
};

bool line(text_buf& buf, double x1, double y1, double x2, double y2, const char* style) {
    return text_buf_appendf(buf, "<line x1=\"%.2f\" y1=\"%.2f\" x2=\"%.2f\" y2=\"%.2f\" %s/>\n", x1, y1, x2, y2, style);
}

constexpr const char* minor_style = "stroke=\"var(--line-strong)\" stroke-width=\"1\" opacity=\"0.6\"";
constexpr const char* minor_freq_style = "stroke=\"var(--line-strong)\" stroke-width=\"1\" opacity=\"0.55\"";
constexpr const char* axis_style = "stroke=\"var(--ink-soft)\" stroke-width=\"1.4\"";
constexpr const char* grid_style = "stroke=\"var(--ink-soft)\" stroke-width=\"1\" opacity=\"0.55\"";

bool append_grid(text_buf& buf, const freq_axis& ax) {
    bool ok = true;
    for (int i = 0; i < 8; ++i) {  // +10, -10, ..., -130 dB
        const double y = y_of(10.0 - 20.0 * i);
        ok = ok && line(buf, left, y, right, y, minor_style);
    }
    if (!ax.linear) {
        static constexpr int minor_digits[] = {3, 4, 6, 7, 8, 9};  // 1, 2 and 5 carry labels
        int count = 0;
        double decade = 10.0;
        for (int e = 1; e <= 5; ++e, decade *= 10.0)
            for (int d : minor_digits) {
                const double f = d * decade;
                if (f < freq_min_hz || f > ax.nyquist || count >= 64) continue;
                ++count;
                const double x = ax.x(f);
                ok = ok && line(buf, x, top, x, bottom, minor_freq_style);
            }
    }
    ok = ok && line(buf, left, top, left, bottom, axis_style) && line(buf, left, bottom, right, bottom, axis_style);
    for (int i = 0; i < 9; ++i) {  // +20 .. -140 dB
        const double v = 20.0 - 20.0 * i;
        const double y = y_of(v);
        ok = ok && line(buf, left, y, right, y, grid_style) &&
             text_buf_appendf(buf,
                              "<text x=\"%.2f\" y=\"%.2f\" font-size=\"9.5\" text-anchor=\"end\" "
                              "fill=\"var(--muted)\">%.0f</text>\n",
                              52.0, y + 3.0, v);
    }
    return ok;
}

bool append_tick(text_buf& buf, const freq_axis& ax, double f) {
    const double x = ax.x(f);
    if (!line(buf, x, top, x, bottom, grid_style)) return false;
    if (f >= 1000.0)
        return text_buf_appendf(buf,
                                "<text x=\"%.2f\" y=\"%.2f\" font-size=\"9.5\" text-anchor=\"middle\" "
                                "fill=\"var(--muted)\">%.0fk</text>\n",
                                x, label_y, f / 1000.0);
    return text_buf_appendf(buf,
                            "<text x=\"%.2f\" y=\"%.2f\" font-size=\"9.5\" text-anchor=\"middle\" "
                            "fill=\"var(--muted)\">%.0f</text>\n",
                            x, label_y, f);
}

bool append_ticks(text_buf& buf, const freq_axis& ax) {
    bool ok = true;
    if (ax.linear) {
        const double step = nice_number(nice_number(ax.nyquist, false) / 5.0, true);
        for (int k = 0; k < 16; ++k) {
            const double f = k * step;
            if (f > ax.nyquist + 1e-9 * step) break;
            ok = ok && append_tick(buf, ax, f);
        }
        return ok;
    }
    static constexpr int labelled_digits[] = {1, 2, 5};
    int count = 0;
    double last_x = -1.0;
    double decade = 10.0;
    for (int e = 1; e <= 5; ++e, decade *= 10.0)
        for (int d : labelled_digits) {
            const double f = d * decade;
            if (f < freq_min_hz || f > ax.nyquist || count >= 16) continue;
            ++count;
            last_x = ax.x(f);
            ok = ok && append_tick(buf, ax, f);
        }
    // The Nyquist frequency gets a label of its own when the last tick is far from the edge.
    if (ok && count > 0 && last_x < right - 40.0) {
        ok = line(buf, right, top, right, bottom, grid_style) &&
             text_buf_appendf(buf,
                              "<text x=\"%.2f\" y=\"%.2f\" font-size=\"9.5\" text-anchor=\"end\" "
                              "fill=\"var(--muted)\">%.1fk</text>\n",
                              right, label_y, ax.nyquist / 1000.0);
    }
    return ok;
}

struct threshold {
    double db;
    std::string text;
};

std::vector<threshold> thresholds_of(const spectral_chart_request& req) {
    char text[96];
    std::vector<threshold> t;
    std::snprintf(text, sizeof text, "noise floor %.0fdB", req.noise_floor_db);
    t.push_back({req.noise_floor_db, text});
    if (req.low_level_threshold_db) {
        std::snprintf(text, sizeof text, "low-level signal threshold %.0fdB", *req.low_level_threshold_db);
        t.push_back({*req.low_level_threshold_db, text});
    }
    if (req.peak_threshold_db) {
        std::snprintf(text, sizeof text, "peak threshold %.0fdB", *req.peak_threshold_db);
        t.push_back({*req.peak_threshold_db, text});
    }
    return t;
}

bool append_tiers(text_buf& buf, const spectral_chart_request& req, const std::vector<threshold>& lines) {
    constexpr const char* rect = "<rect x=\"%.2f\" y=\"%.2f\" width=\"%.2f\" height=\"%.2f\" fill=\"var(--accent)\" opacity=\"0.05\"/>\n";
    const double floor_y = y_of(req.noise_floor_db);
    bool ok = text_buf_appendf(buf, rect, left, floor_y, width, bottom - floor_y);
    if (ok && req.peak_threshold_db) {
        const double peak_y = y_of(*req.peak_threshold_db);
        const double low_y = req.low_level_threshold_db ? y_of(*req.low_level_threshold_db) : floor_y;
        ok = text_buf_appendf(buf, rect, left, peak_y, width, low_y - peak_y);
    }
    for (const threshold& t : lines) {
        const double y = y_of(t.db);
        ok = ok && text_buf_appendf(buf,
                                    "<line x1=\"%.2f\" y1=\"%.2f\" x2=\"%.2f\" y2=\"%.2f\" stroke=\"var(%s)\" "
                                    "stroke-width=\"1\" stroke-dasharray=\"%s\"/>\n<text x=\"%.2f\" y=\"%.2f\" "
                                    "font-size=\"10\" fill=\"var(%s)\" text-anchor=\"%s\">%s</text>\n",
                                    left, y, right, y, "--gate", "4,3", 64.0, t.db < db_min ? 273.0 : y - 3.0, "--gate",
                                    "start", t.text.c_str());
    }
    return ok;
}

bool append_trace(text_buf& buf, const freq_axis& ax, const std::vector<double>& db, double bin_hz, const char* color) {
    bool ok = text_buf_appendf(buf, "<polyline fill=\"none\" stroke=\"var(%s)\" stroke-width=\"1.5\" points=\"", color);
    for (std::size_t k = 0; ok && k < db.size(); ++k) {
        const double f = static_cast<double>(k) * bin_hz;
        if (!ax.linear && f < freq_min_hz) continue;
        ok = text_buf_appendf(buf, "%.2f,%.2f ", ax.x(f), y_of(db[k]));
    }
    return ok && text_buf_append(buf, "\"/>\n");
}

bool append_fail_marker(text_buf& buf, const freq_axis& ax, const std::vector<double>& ref, const std::vector<double>& dut,
                        double bin_hz, double freq, double diff_db) {
    const double last = static_cast<double>(ref.size() - 1);
    const std::size_t k = static_cast<std::size_t>(std::clamp(std::round(freq / bin_hz), 0.0, last));
    const double level = std::max(ref[k], dut[k]);
    const double fy = level < db_min ? 266.0 : y_of(level) - 10.0;
    char label[48];
    std::snprintf(label, sizeof label, "Fail %+.1fdB", diff_db);
    const double w = static_cast<double>(std::strlen(label)) * 5.6 + 12.0;
    const double x = ax.x(freq);
    return text_buf_appendf(buf,
                            "<path d=\"M%.2f,%.2f l-5,-9 l10,0 Z\" fill=\"var(--fail)\" stroke=\"var(--fail-line)\" "
                            "stroke-width=\"1\"/>\n",
                            x, fy + 20.0) &&
           text_buf_appendf(buf,
                            "<rect x=\"%.2f\" y=\"%.2f\" width=\"%.2f\" height=\"16\" rx=\"4\" fill=\"var(--fail-soft)\" "
                            "stroke=\"var(--fail-line)\" stroke-width=\"1\"/>\n",
                            x - w / 2.0, fy - 22.0, w) &&
           text_buf_appendf(buf,
                            "<text x=\"%.2f\" y=\"%.2f\" font-size=\"10\" font-weight=\"700\" text-anchor=\"middle\" "
                            "fill=\"var(--fail)\">%s</text>\n",
                            x, fy - 10.5, label);
}

bool append_levels(text_buf& buf, const char* key, const std::vector<double>& db) {
    bool ok = text_buf_appendf(buf, "\"%s\":[", key);
    for (std::size_t k = 0; ok && k < db.size(); ++k) ok = text_buf_appendf(buf, k ? ",%.2f" : "%.2f", db[k]);
    return ok && text_buf_append(buf, "]");
}

}  // namespace

double nice_number(double x, bool round) {
    const double e = std::floor(std::log10(x));
    const double p = std::pow(10.0, e);
    const double f = x / p;
    double nice;
    if (round)
        nice = f < 1.5 ? 1.0 : f < 3.0 ? 2.0 : f < 7.0 ? 5.0 : 10.0;
    else
        nice = f <= 1.0 ? 1.0 : f <= 2.0 ? 2.0 : f <= 5.0 ? 5.0 : 10.0;
    return nice * p;
}

double spectrum_peak_level(std::span<const double> db) {
    if (db.empty()) return 0.0;
    if (db.size() < 2) return db[0];
    std::size_t m = 0;
    for (std::size_t k = 1; k < db.size(); ++k)
        if (db[k] > db[m]) m = k;
    if (m < 2 || m == db.size() - 1) return db[m];
    const double a = std::pow(10.0, db[m - 1] / 20.0);
    const double b = std::pow(10.0, db[m] / 20.0);
    const double c = std::pow(10.0, db[m + 1] / 20.0);
    const double delta = 2.0 * (c - a) / (2.0 * b + a + c);
    double g = half_bin_gain;
    if (std::fabs(delta) <= 0.5) {
        if (std::fabs(delta) < 1e-12)
            g = 1.0 / std::fabs(1.0 - delta * delta);
        else
            g = std::fabs(std::sin(pi * delta) / (pi * delta)) / std::fabs(1.0 - delta * delta);
    }
    return db[m] - 20.0 * std::log10(g);
}

bool spectral_chart(text_buf& buf, const spectral_chart_request& req, spectral_chart_peaks* peaks) {
    const wav_audio& ref = *req.ref;
    const std::int64_t n = static_cast<std::int64_t>(req.n);
    std::int64_t lo = 0;
    std::int64_t hi = static_cast<std::int64_t>(ref.frame_count);
    if (req.dut) {
        lo = std::max<std::int64_t>(0, -req.offset);
        hi = std::min(hi, static_cast<std::int64_t>(req.dut->frame_count) - req.offset);
    }
    const std::int64_t overlap = hi > lo ? hi - lo : 0;
    if (n > overlap || n < 2)
        return text_buf_append(buf,
                               "<p class=\"vt-chart-note\">Not enough overlapping samples to render a spectral "
                               "snapshot.</p>\n");
    std::int64_t s = req.frame_start ? std::max(lo, static_cast<std::int64_t>(*req.frame_start))
                                     : std::max(lo + overlap / 2 - n / 2, lo);
    if (s + n > hi) s = hi - n;

    amplitude_workspace ws;
    std::vector<double> ref_db, dut_db;
    try {
        ref_db.resize(req.n / 2);
        if (req.dut) dut_db.resize(req.n / 2);
    } catch (const std::bad_alloc&) {
        return false;
    }
    if (!amplitude_workspace_init(ws, req.n)) return false;
    amplitude_spectrum(ws, ref, req.channel, static_cast<std::uint64_t>(s), ref_db, spectrum_form::db_chart);
    if (req.dut)
        amplitude_spectrum(ws, *req.dut, req.channel, static_cast<std::uint64_t>(s + req.offset), dut_db,
                           spectrum_form::db_chart);
    if (peaks) {
        peaks->set = true;
        peaks->ref_db = spectrum_peak_level(ref_db);
        if (req.dut) peaks->dut_db = spectrum_peak_level(dut_db);
    }

    const double rate = static_cast<double>(ref.sample_rate);
    const double bin_hz = rate / static_cast<double>(req.n);
    const freq_axis ax{req.linear_axis, rate / 2.0};
    std::string id(req.linear_axis ? "-linear" : "");
    id += req.id_suffix;
    const std::vector<threshold> lines = thresholds_of(req);
    const bool fail_marker = req.dut && req.fail_freq_hz && req.fail_db;

    bool ok = text_buf_appendf(buf,
                               "<svg viewBox=\"0 0 %.0f %.0f\" preserveAspectRatio=\"none\" class=\"vt-spectral-chart\" "
                               "id=\"vt-spectral-svg%s\" role=\"img\" aria-label=\"Spectral snapshot%s\">\n",
                               view_w, view_h, id.c_str(), req.dut ? ", reference vs. DUT" : "") &&
              append_grid(buf, ax) && append_ticks(buf, ax) &&
              text_buf_appendf(buf,
                               "<text x=\"%.2f\" y=\"%.2f\" font-size=\"10.5\" text-anchor=\"middle\" "
                               "fill=\"var(--ink-soft)\">%s</text>\n",
                               524.0, title_y, "Frequency (Hz)") &&
              text_buf_appendf(buf,
                               "<text x=\"14\" y=\"%.2f\" font-size=\"10.5\" text-anchor=\"middle\" "
                               "fill=\"var(--ink-soft)\" transform=\"rotate(-90 14 %.2f)\">%s</text>\n",
                               144.0, 144.0, "Amplitude (dB)") &&
              append_tiers(buf, req, lines) && append_trace(buf, ax, ref_db, bin_hz, "--ref-trace") &&
              (!req.dut || append_trace(buf, ax, dut_db, bin_hz, "--dut-trace")) &&
              (!fail_marker || append_fail_marker(buf, ax, ref_db, dut_db, bin_hz, *req.fail_freq_hz, *req.fail_db)) &&
              text_buf_append(buf, "</svg>\n");

    char low[32] = "null";
    char peak[32] = "null";
    if (req.low_level_threshold_db) std::snprintf(low, sizeof low, "%.2f", *req.low_level_threshold_db);
    if (req.peak_threshold_db) std::snprintf(peak, sizeof peak, "%.2f", *req.peak_threshold_db);
    ok = ok &&
         text_buf_appendf(buf,
                          "<script type=\"application/json\" id=\"vt-spectral-data%s\">{\"chartLeft\":%.1f,\"chartRight\":%.1f,"
                          "\"chartTop\":%.1f,\"chartBottom\":%.1f,\"binHz\":%.6f,\"nyquistHz\":%.3f,\"freqMinHz\":%.1f,"
                          "\"dbMin\":%.1f,\"dbMax\":%.1f,\"freqScale\":\"%s\",\"tierNoiseFloorDb\":%.2f,"
                          "\"tierNonPeakDb\":%s,\"tierPeakDb\":%s,",
                          id.c_str(), left, right, top, bottom, bin_hz, rate / 2.0, freq_min_hz, db_min, db_max,
                          req.linear_axis ? "linear" : "log", req.noise_floor_db, low, peak) &&
         append_levels(buf, "ref", ref_db) && text_buf_append(buf, ",") &&
         (req.dut ? append_levels(buf, "dut", dut_db) : text_buf_append(buf, "\"dut\":null")) &&
         text_buf_append(buf, ",\"markers\":[");
    for (std::size_t i = 0; ok && i < lines.size(); ++i)
        ok = text_buf_appendf(buf, "%s{\"db\":%.2f,\"text\":\"%s\",\"color\":\"%s\",\"dash\":\"%s\",\"align\":\"%s\"}",
                              i ? "," : "", lines[i].db, lines[i].text.c_str(), "--gate", "4,3", "left");
    ok = ok && text_buf_append(buf, "]");
    if (ok && fail_marker)
        ok = text_buf_appendf(buf, ",\"failMarker\":{\"freqHz\":%.3f,\"diffDb\":%.2f}", *req.fail_freq_hz, *req.fail_db);
    else
        ok = ok && text_buf_append(buf, ",\"failMarker\":null");
    return ok && text_buf_append(buf, ",\"peaks\":[]}</script>\n");
}

}  // namespace veltrane
