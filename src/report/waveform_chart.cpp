#include "report/waveform_chart.h"

#include <algorithm>
#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <new>
#include <vector>

namespace veltrane {
namespace {

// Geometry in SVG user units; the SVG's viewBox is 0 0 1000 200, stretched to its box.
constexpr double view_width = 1000.0;
constexpr double view_height = 200.0;
constexpr double plot_left = 58.0;
constexpr double plot_right = 990.0;
constexpr double plot_width = plot_right - plot_left;  // 932
constexpr double plot_top = 10.0;
constexpr double plot_bottom = 156.0;
constexpr double linear_centre_y = 83.0;   // (plot_top + plot_bottom) / 2
constexpr double linear_half_height = 73.0;
constexpr double linear_limit = 1.2;       // full scale plus 20 % headroom
constexpr double db_min = -140.0;          // the floor a silent sample is drawn at
constexpr double db_max = 20.0;
constexpr double db_span = db_max - db_min;        // 160 dB over the plot height
constexpr double db_height = plot_bottom - plot_top;  // 146
constexpr double y_label_x = 52.0;
constexpr double time_label_y = 170.0;
constexpr int major_ticks = 5;   // six labelled ticks, 0/5 to 5/5 of the view
constexpr int minor_per_major = 4;
constexpr double column_step = 1.0 / 4096.0;  // 2^-12, exact
static_assert(envelope_columns == 4096);

double x_left(std::size_t k) { return plot_left + static_cast<double>(k) / 4096.0 * plot_width; }
double x_right(std::size_t k) { return plot_left + static_cast<double>(k + 1) / 4096.0 * plot_width; }

double value_y(double v, bool db_scale) {
    if (db_scale) return v < db_min ? plot_bottom : plot_bottom - (std::min(v, db_max) + 140.0) / db_span * db_height;
    return v > linear_limit ? plot_top : linear_centre_y - std::max(v, -linear_limit) / linear_limit * linear_half_height;
}

// Formats into a small stack buffer and appends it: one formatting pass for the many
// short pieces of path data and the data island.
bool append_small(text_buf& buf, const char* format, ...) __attribute__((format(printf, 2, 3)));
bool append_small(text_buf& buf, const char* format, ...) {
    char text[160];
    std::va_list args;
    va_start(args, format);
    int n = std::vsnprintf(text, sizeof text, format, args);
    va_end(args);
    if (n < 0 || static_cast<std::size_t>(n) >= sizeof text) return false;
    return text_buf_append(buf, std::string_view(text, static_cast<std::size_t>(n)));
}

// The per-column envelope of one trace.
struct trace_columns {
    std::vector<double> min;
    std::vector<double> max;
    std::vector<std::uint8_t> valid;
};

bool allocate(trace_columns& t) {
    try {
        t.min.assign(envelope_columns, 0.0);
        t.max.assign(envelope_columns, 0.0);
        t.valid.assign(envelope_columns, 0);
    } catch (const std::bad_alloc&) {
        t = trace_columns{};
        return false;
    }
    return true;
}

// Level of one sample on the dB scale: 20 log10 |x|, -140 for an exact zero.
double sample_db(double x) { return x == 0.0 ? db_min : 20.0 * std::log10(std::fabs(x)); }

// Fills column k from frames [first, last) of `audio` (already limited to the file).
void fill_column(trace_columns& t, std::size_t k, const wav_audio& audio, std::uint32_t channel, std::int64_t first,
                 std::int64_t last, bool db_scale) {
    if (last <= first) return;
    const std::size_t stride = audio.channels;
    const double* p = audio.samples.data() + static_cast<std::size_t>(first) * stride + channel;
    double lo = 0.0, hi = 0.0;
    for (std::int64_t i = first; i < last; ++i, p += stride) {
        double v = db_scale ? sample_db(*p) : *p;
        if (i == first) {
            lo = hi = v;
        } else {
            lo = std::min(lo, v);
            hi = std::max(hi, v);
        }
    }
    if (db_scale) {
        lo = std::max(lo, db_min);
        hi = std::max(hi, db_min);
    }
    t.min[k] = lo;
    t.max[k] = hi;
    t.valid[k] = 1;
}

// Column k covers reference frames [a, b) with a = s0 + trunc(k 2^-12 span); the trace
// reads frames [a + shift, b + shift) of its own file, limited to that file.
void compute_columns(trace_columns& t, const wav_audio& audio, std::int64_t shift, std::uint32_t channel,
                     std::int64_t s0, std::int64_t span, bool db_scale) {
    if (channel >= audio.channels) return;
    const auto frames = static_cast<std::int64_t>(audio.frame_count);
    for (std::size_t k = 0; k < envelope_columns; ++k) {
        auto a = s0 + static_cast<std::int64_t>(static_cast<double>(k) * column_step * static_cast<double>(span));
        auto b = s0 + static_cast<std::int64_t>(static_cast<double>(k + 1) * column_step * static_cast<double>(span));
        fill_column(t, k, audio, channel, std::max<std::int64_t>(a + shift, 0), std::min(b + shift, frames), db_scale);
    }
}

// Path data: each maximal run of valid columns a..b traces its upper edge and closes
// with "Z"; only the run that reaches the last column walks back along the minima, so
// earlier runs show their upper edge only. The page script redraws by the same rule.
bool append_path_data(text_buf& buf, const trace_columns& t, bool db_scale) {
    std::size_t k = 0;
    while (k < envelope_columns) {
        if (!t.valid[k]) {
            ++k;
            continue;
        }
        const std::size_t a = k;
        double y = value_y(t.max[a], db_scale);
        if (!append_small(buf, "M%.2f,%.2f L%.2f,%.2f ", x_left(a), y, x_right(a), y)) return false;
        std::size_t b = a;
        while (b + 1 < envelope_columns && t.valid[b + 1]) {
            ++b;
            if (!append_small(buf, "L%.2f,%.2f ", x_right(b), value_y(t.max[b], db_scale))) return false;
        }
        if (b == envelope_columns - 1) {
            for (std::size_t j = b + 1; j-- > a;)
                if (!append_small(buf, "L%.2f,%.2f ", x_left(j), value_y(t.min[j], db_scale))) return false;
        }
        if (!text_buf_append(buf, "Z ")) return false;
        k = b + 1;
    }
    return true;
}

bool append_trace(text_buf& buf, const trace_columns& t, bool db_scale, const char* colour, double opacity,
                  const char* name) {
    return text_buf_appendf(buf, "<path fill=\"var(%s)\" fill-opacity=\"%.2f\" stroke=\"none\" data-trace=\"%s\" d=\"",
                            colour, opacity, name) &&
           append_path_data(buf, t, db_scale) && text_buf_append(buf, "\"/>\n");
}

bool append_line(text_buf& buf, double x1, double y1, double x2, double y2, const char* tail) {
    return append_small(buf, "<line x1=\"%.2f\" y1=\"%.2f\" x2=\"%.2f\" y2=\"%.2f\" %s/>\n", x1, y1, x2, y2, tail);
}

bool append_amplitude_grid(text_buf& buf, bool db_scale) {
    if (db_scale) {
        for (int i = 0; i < 9; ++i) {
            double v = db_max - 20.0 * i;  // +20 down to -140 dB
            double y = value_y(v, true);
            if (!append_line(buf, plot_left, y, plot_right, y, "stroke=\"var(--ink-soft)\" stroke-width=\"1\" opacity=\"0.55\"") ||
                !append_small(buf,
                              "<text x=\"%.2f\" y=\"%.2f\" font-size=\"9.5\" text-anchor=\"end\" "
                              "fill=\"var(--muted)\">%.0f</text>\n",
                              y_label_x, y + 3.0, v))
                return false;
        }
        return true;
    }
    // +1.2 down to -1.2 by repeated subtraction, so the middle line's value is a tiny
    // positive residue: it is the zero line and reads "+0.0".
    double v = linear_limit;
    for (int i = 0; i < 13; ++i, v -= 0.2) {
        double y = value_y(v, false);
        const char* opacity = std::fabs(v) < 1e-9 ? "0.9" : "0.55";
        if (!append_small(buf,
                          "<line x1=\"%.2f\" y1=\"%.2f\" x2=\"%.2f\" y2=\"%.2f\" stroke=\"var(--ink-soft)\" "
                          "stroke-width=\"1\" opacity=\"%s\"/>\n",
                          plot_left, y, plot_right, y, opacity) ||
            !append_small(buf,
                          "<text x=\"%.2f\" y=\"%.2f\" font-size=\"9.5\" text-anchor=\"end\" "
                          "fill=\"var(--muted)\">%+.1f</text>\n",
                          y_label_x, y + 3.0, v))
            return false;
    }
    return true;
}

// Six labelled ticks at fifths of the view; between neighbours three minor lines. Labels
// are minutes:seconds when the view ends at one minute or later, else seconds.
bool append_time_grid(text_buf& buf, std::int64_t s0, std::int64_t span, std::uint32_t rate) {
    const double rate_hz = rate ? static_cast<double>(rate) : 1.0;
    const bool minutes = static_cast<double>(s0 + span) / rate_hz >= 60.0;
    auto tick_x = [](int i) { return plot_left + static_cast<double>(i) / major_ticks * plot_width; };
    for (int i = 0; i <= major_ticks; ++i) {
        const double x = tick_x(i);
        if (i < major_ticks) {
            for (int j = 1; j < minor_per_major; ++j) {
                double xm = x + static_cast<double>(j) / minor_per_major * (tick_x(i + 1) - x);
                if (!append_line(buf, xm, plot_top, xm, plot_bottom,
                                 "stroke=\"var(--line-strong)\" stroke-width=\"1\" opacity=\"0.5\""))
                    return false;
            }
        }
        const double t = (static_cast<double>(s0) + static_cast<double>(i) / major_ticks * static_cast<double>(span)) / rate_hz;
        char label[48];
        if (minutes) {
            auto r = static_cast<long>(t + 0.5);
            std::snprintf(label, sizeof label, "%d:%02d", static_cast<int>(r / 60), static_cast<int>(r % 60));
        } else {
            std::snprintf(label, sizeof label, "%.1fs", t);
        }
        if (!append_line(buf, x, plot_top, x, plot_bottom, "stroke=\"var(--ink-soft)\" stroke-width=\"1\" opacity=\"0.5\"") ||
            !append_small(buf,
                          "<text x=\"%.2f\" y=\"%.2f\" font-size=\"9.5\" text-anchor=\"middle\" "
                          "fill=\"var(--muted)\">%s</text>\n",
                          x, time_label_y, label))
            return false;
    }
    return true;
}

// Where a frame falls on the plot: its fraction of the view, clamped to the plot.
double frame_x(std::int64_t frame, std::int64_t s0, std::int64_t span, double if_empty) {
    if (span == 0) return if_empty;
    double f = static_cast<double>(frame - s0) / static_cast<double>(span);
    return plot_left + std::clamp(f, 0.0, 1.0) * plot_width;
}

bool append_island_array(text_buf& buf, const char* key, const std::vector<double>& values,
                         const std::vector<std::uint8_t>& valid) {
    if (!append_small(buf, "\"%s\":[", key)) return false;
    for (std::size_t k = 0; k < envelope_columns; ++k)
        if (!append_small(buf, "%s%.4f", k ? "," : "", valid[k] ? values[k] : 0.0)) return false;
    return true;
}

bool append_island_trace(text_buf& buf, const trace_columns& t) {
    if (!append_island_array(buf, "min", t.min, t.valid) || !text_buf_append(buf, "],") ||
        !append_island_array(buf, "max", t.max, t.valid) || !text_buf_append(buf, "],\"valid\":["))
        return false;
    for (std::size_t k = 0; k < envelope_columns; ++k)
        if (!append_small(buf, "%s%d", k ? "," : "", t.valid[k] ? 1 : 0)) return false;
    return text_buf_append(buf, "]");
}

bool append_island(text_buf& buf, const char* id, const wav_audio& ref, std::int64_t s0, std::int64_t span,
                   bool db_scale, const trace_columns& ref_cols, const trace_columns* dut_cols,
                   std::span<const marker> markers) {
    if (!text_buf_appendf(buf,
                          "<script type=\"application/json\" id=\"vt-envelope-data%s\">{\"chartLeft\":%.1f,"
                          "\"chartRight\":%.1f,\"chartTop\":%.1f,\"chartBottom\":%.1f,\"sampleRate\":%u,"
                          "\"totalFrames\":%ld,\"yScale\":\"%s\",\"dbMin\":%.1f,\"dbMax\":%.1f,",
                          id, plot_left, plot_right, plot_top, plot_bottom, ref.sample_rate, static_cast<long>(span),
                          db_scale ? "db" : "amp", db_min, db_max) ||
        !text_buf_append(buf, "\"ref\":{") || !append_island_trace(buf, ref_cols) || !text_buf_append(buf, "},"))
        return false;
    if (dut_cols) {
        if (!text_buf_append(buf, "\"dut\":{") || !append_island_trace(buf, *dut_cols) || !text_buf_append(buf, "}"))
            return false;
    } else if (!text_buf_append(buf, "\"dut\":null")) {
        return false;
    }
    if (!text_buf_append(buf, ",\"markers\":[")) return false;
    for (std::size_t i = 0; i < markers.size(); ++i) {
        double frac = span == 0 ? 0.0 : static_cast<double>(markers[i].frame - s0) / static_cast<double>(span);
        if (!text_buf_appendf(buf, "%s{\"label\":\"%s\",\"frac\":%.6f}", i ? "," : "", markers[i].label, frac))
            return false;
    }
    return text_buf_append(buf, "]}</script>\n");
}

bool append_chart(text_buf& buf, const wav_audio& ref, const wav_audio* dut, bool db_scale,
                  std::span<const marker> markers, bool detail, std::int64_t centre_frame, std::int64_t s0,
                  std::int64_t span, const char* id, const char* label, const trace_columns& ref_cols,
                  const trace_columns* dut_cols) {
    const char* ink = "stroke=\"var(--ink-soft)\" stroke-width=\"1.4\"";
    if (!text_buf_appendf(buf,
                          "<svg viewBox=\"0 0 %.0f %.0f\" preserveAspectRatio=\"none\" class=\"vt-envelope\" "
                          "id=\"vt-envelope-svg%s\" role=\"img\" aria-label=\"%s%s\">\n",
                          view_width, view_height, id, label, dut ? ", reference vs. DUT" : "") ||
        !append_line(buf, plot_left, plot_top, plot_left, plot_bottom, ink) ||
        !append_line(buf, plot_left, plot_bottom, plot_right, plot_bottom, ink) ||
        !append_amplitude_grid(buf, db_scale) || !append_time_grid(buf, s0, span, ref.sample_rate) ||
        !text_buf_appendf(buf,
                          "<text x=\"%.2f\" y=\"%.2f\" font-size=\"10.5\" text-anchor=\"middle\" "
                          "fill=\"var(--ink-soft)\">%s</text>\n",
                          524.0, 184.0, "Time (s)") ||
        !text_buf_appendf(buf,
                          "<text x=\"14\" y=\"%.2f\" font-size=\"10.5\" text-anchor=\"middle\" "
                          "fill=\"var(--ink-soft)\" transform=\"rotate(-90 14 %.2f)\">%s</text>\n",
                          linear_centre_y, linear_centre_y, db_scale ? "Amplitude (dB)" : "Amplitude") ||
        !append_trace(buf, ref_cols, db_scale, "--ref-trace", 0.85, "ref") ||
        (dut_cols && !append_trace(buf, *dut_cols, db_scale, "--dut-trace", 0.55, "dut")))
        return false;
    for (const marker& m : markers) {
        double x = m.frame < s0 ? plot_left : frame_x(m.frame, s0, span, plot_left);
        if (!append_line(buf, x, plot_top, x, plot_bottom, "stroke=\"var(--fail)\" stroke-width=\"1\" stroke-dasharray=\"3,2\"") ||
            !text_buf_appendf(buf,
                              "<text x=\"%.2f\" y=\"%.2f\" font-size=\"9\" fill=\"var(--fail)\" "
                              "transform=\"rotate(-90 %.2f %.2f)\" text-anchor=\"start\">",
                              x + 3.0, 12.0, x + 3.0, 12.0) ||
            !text_buf_append_html(buf, m.label) || !text_buf_append(buf, "</text>\n"))
            return false;
    }
    if (detail) {
        double x = frame_x(centre_frame, s0, span, (plot_left + plot_right) / 2.0);
        if (!append_line(buf, x, plot_top, x, plot_bottom,
                         "stroke=\"var(--line)\" stroke-width=\"1.5\" stroke-dasharray=\"4,3\" opacity=\"0.8\""))
            return false;
    }
    return text_buf_append(buf, "</svg>\n") &&
           append_island(buf, id, ref, s0, span, db_scale, ref_cols, dut_cols, markers);
}

}  // namespace

bool envelope_chart(text_buf& buf, const wav_audio& ref, const wav_audio* dut, std::int64_t offset_frames,
                    std::uint32_t channel, bool db_scale, std::span<const marker> markers, bool detail,
                    std::int64_t centre_frame, std::int64_t start_frame, std::int64_t end_frame,
                    const char* id_suffix, const char* label) {
    char id[256];
    int n = std::snprintf(id, sizeof id, "%s%s", id_suffix ? id_suffix : "", db_scale ? "-energy" : "");
    if (n < 0 || static_cast<std::size_t>(n) >= sizeof id) return false;

    trace_columns ref_cols, dut_cols;
    if (!allocate(ref_cols) || (dut && !allocate(dut_cols))) return false;

    const std::int64_t s0 = std::max<std::int64_t>(start_frame, 0);
    const std::int64_t span =
        std::max(std::min(static_cast<std::int64_t>(ref.frame_count), end_frame), s0) - s0;
    compute_columns(ref_cols, ref, 0, channel, s0, span, db_scale);
    if (dut) compute_columns(dut_cols, *dut, offset_frames, channel, s0, span, db_scale);
    return append_chart(buf, ref, dut, db_scale, markers, detail, centre_frame, s0, span, id, label, ref_cols,
                        dut ? &dut_cols : nullptr);
}

bool envelope_full(text_buf& buf, const wav_audio& ref, const wav_audio* dut, std::int64_t offset_frames,
                   std::uint32_t channel, bool db_scale, std::span<const marker> markers, const char* id_suffix) {
    return envelope_chart(buf, ref, dut, offset_frames, channel, db_scale, markers, false, 0, 0,
                          static_cast<std::int64_t>(ref.frame_count), id_suffix, "Full-file waveform overview");
}

bool envelope_detail(text_buf& buf, const wav_audio& ref, const wav_audio* dut, std::int64_t offset_frames,
                     std::uint32_t channel, std::int64_t centre_frame, double scale, const char* id_suffix) {
    const auto half = static_cast<std::int64_t>(static_cast<double>(ref.sample_rate) * 0.5 * scale);
    return envelope_chart(buf, ref, dut, offset_frames, channel, false, {}, true, centre_frame, centre_frame - half,
                          centre_frame + half, id_suffix, "Detail view around worst point");
}

}  // namespace veltrane
