#include "plot/plot_page.h"

#include <cstdio>
#include <vector>

#include "report/chart_frame.h"
#include "report/page_blocks.h"
#include "report/report_page.h"
#include "report/spectral_chart.h"
#include "report/waveform_chart.h"
#include "util/files.h"
#include "util/json_writer.h"

namespace veltrane {
namespace {

constexpr std::size_t title_stem_buffer_size = 256;  // stems of at most 255 bytes

enum class plot_view { spectrum_log, spectrum_linear, waveform, energy };

struct plot_card {
    plot_view view;
    const char* id;
    const char* title;
    const char* view_title;
    const char* frame_id;  // followed by the channel suffix
};

constexpr plot_card plot_cards[] = {
    {plot_view::spectrum_log, "spectral", "Spectrum", "Magnitude spectrum", "vt-spectral-frame"},
    {plot_view::spectrum_linear, "spectral-linear", "Frequency (Linear)", "Magnitude spectrum, linear frequency",
     "vt-spectral-linear-frame"},
    {plot_view::waveform, "overview", "Signal Overview", "Full signal", "vt-envelope-frame"},
    {plot_view::energy, "energy", "Time Energy", "Full signal, dB scale", "vt-energy-frame"},
};

bool append_view(text_buf& buf, const plot_inputs& in, const plot_card& card, std::uint32_t channel,
                 const char* suffix) {
    const bool spectral = card.view == plot_view::spectrum_log || card.view == plot_view::spectrum_linear;
    char frame_id[96];
    std::snprintf(frame_id, sizeof frame_id, "%s%s", card.frame_id, suffix);
    if (!append_chart_frame_open(buf, spectral ? "scope" : "scope overview", card.view_title, frame_id,
                                 spectral ? chart_kind::spectral : chart_kind::waveform, false))
        return false;
    bool ok;
    if (spectral) {
        spectral_chart_request req;
        req.ref = in.audio;
        req.n = in.fft_size;
        req.channel = channel;
        req.noise_floor_db = in.noise_floor_db;
        req.linear_axis = card.view == plot_view::spectrum_linear;
        req.id_suffix = suffix;
        ok = spectral_chart(buf, req);
    } else {
        ok = envelope_full(buf, *in.audio, nullptr, 0, channel, card.view == plot_view::energy, {}, suffix);
    }
    return ok && append_chart_frame_close(buf, chart_legend::signal);
}

bool append_card(text_buf& buf, const plot_inputs& in, const plot_card& card) {
    if (!text_buf_appendf(buf,
                          "<section class=\"card\" id=\"%s\">\n<div class=\"card-head\">\n<div "
                          "class=\"htext\"><h3>%s</h3></div>\n<span class=\"badge info\">Single File</span>\n</div>\n<div "
                          "class=\"card-body\">\n",
                          card.id, card.title))
        return false;
    if (in.audio->channels == 2) {
        if (!text_buf_append(buf, "<h4 class=\"channel-gallery-heading\">Left Channel</h4>\n") ||
            !append_view(buf, in, card, 0, "-ch0") ||
            !text_buf_append(buf, "<h4 class=\"channel-gallery-heading\">Right Channel</h4>\n") ||
            !append_view(buf, in, card, 1, "-ch1"))
            return false;
    } else if (!append_view(buf, in, card, 0, "")) {
        return false;
    }
    return text_buf_append(buf, "</div>\n</section>\n");
}

}  // namespace

bool append_plot_page(text_buf& buf, const plot_inputs& in, std::string_view timestamp) {
    const wav_audio& a = *in.audio;
    const std::string stem = file_stem(in.input_path, title_stem_buffer_size);
    text_buf title;
    bool ok = text_buf_append_html(title, stem.c_str()) &&
              append_page_head(buf, text_buf_view(title), " -- Veltrane Plot", "Veltrane Plot", in.version) &&
              text_buf_append(buf,
                              "<div class=\"signal-row\">\n<div class=\"signal-id single\">\n<span "
                              "class=\"tag\">Signal</span>\n<span class=\"fname\">") &&
              text_buf_append_html_path(buf, in.input_path.c_str()) &&
              text_buf_appendf(buf,
                               "</span>\n</div>\n<div class=\"signal-meta\">%u Hz &middot; %s &middot; %s &middot; "
                               "%.2fs</div>\n</div>\n",
                               a.sample_rate, bit_depth_word(a.format_code), a.channels == 2 ? "Stereo" : "Mono",
                               a.sample_rate ? static_cast<double>(a.frame_count) / a.sample_rate : 0.0) &&
              text_buf_append(buf,
                              "<nav class=\"nav-tabs\">\n<a href=\"#spectral\">Spectrum</a>\n<a "
                              "href=\"#spectral-linear\">Frequency (Linear)</a>\n<a href=\"#overview\">Signal "
                              "Overview</a>\n<a href=\"#energy\">Time Energy</a>\n</nav>\n");
    text_buf_free(title);
    for (const plot_card& card : plot_cards) ok = ok && append_card(buf, in, card);
    return ok && append_footer_top(buf, in.version, "plot", timestamp) && append_tester_row(buf, in.tester) &&
           text_buf_append(buf, "</footer>\n</div>\n") && append_theme_script(buf) && append_chart_script(buf) &&
           text_buf_append(buf, "</body>\n</html>\n");
}

bool write_plot_page(const std::string& html_path, const plot_inputs& in) {
    return write_page(html_path, [&](text_buf& buf) { return append_plot_page(buf, in, utc_timestamp()); });
}

bool build_plot_json(const plot_inputs& in, std::string& document) {
    const wav_audio& a = *in.audio;
    std::vector<char> storage(plot_json_buffer_size);
    json_writer w = make_json_writer(storage.data(), storage.size());
    const bool ok = json_begin(w) && json_add_string(w, "status", "plotted", true) &&
                    json_add_string(w, "input_file", in.input_path, true) &&
                    json_add_int(w, "sample_rate", static_cast<std::int32_t>(a.sample_rate), true) &&
                    json_add_int(w, "channels", static_cast<std::int32_t>(a.channels), true) &&
                    json_add_int(w, "bit_depth", static_cast<std::int32_t>(wav_bit_depth(a)), true) &&
                    json_add_string(w, "sample_format", wav_is_float(a) ? "float" : "integer", true) &&
                    json_add_long(w, "frame_count", static_cast<std::int64_t>(a.frame_count), true) &&
                    json_add_double(w, "duration_seconds",
                                    a.sample_rate ? static_cast<double>(a.frame_count) / a.sample_rate : 0.0, false) &&
                    json_end(w);
    if (ok) document.assign(w.buf, w.len);
    return ok;
}

bool write_plot_json(const std::string& json_path, const plot_inputs& in) {
    std::string document;
    return build_plot_json(in, document) && write_text_file(json_path, document);
}

}  // namespace veltrane
