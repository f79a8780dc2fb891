#include "report/report_page.h"

#include <algorithm>
#include <cstdio>
#include <vector>

#include "report/check_cards.h"
#include "report/overview_card.h"
#include "report/distortion_card.h"
#include "report/spectral_card.h"
#include "report/page_blocks.h"
#include "util/files.h"

namespace veltrane {
namespace {

constexpr std::size_t title_stem_buffer_size = 256;  // stems of at most 255 bytes

// The nav attributes of a check: nothing when it passed, " data-fail" when it failed and
// counts against the verdict, " data-fail data-nongating" when it failed without counting.
const char* fail_attributes(bool failed, bool counts) {
    if (!failed) return "";
    return counts ? " data-fail" : " data-fail data-nongating";
}

bool append_signal_row(text_buf& buf, const report_inputs& in) {
    const wav_audio& ref = *in.run->ref;
    return append_signal_ids(buf, in.run->ref_path, in.run->dut_path) &&
           text_buf_appendf(buf, "<div class=\"signal-meta\">%u Hz &middot; %s &middot; %s</div>\n</div>\n",
                            ref.sample_rate, bit_depth_word(ref.format_code), ref.channels == 2 ? "Stereo" : "Mono");
}

bool append_kpi_grid(text_buf& buf, const report_inputs& in) {
    const gating_summary& verdict = *in.verdict;
    const std::string profile = in.run->config->text(param_id::spectral_profile);
    const run_results& res = *in.results;
    bool bit_mode = res.of(check_id::bitexact).gates || res.of(check_id::bit_accuracy).ran;
    return text_buf_append(buf,
                           "<div class=\"kpi-grid\">\n<div class=\"kpi\">\n<div class=\"k\">Analysis Mode</div>\n<div "
                           "class=\"v\">") &&
           text_buf_append(buf, analysis_mode_name(res, profile).c_str()) && text_buf_append(buf, "</div>\n") &&
           (!bit_mode || text_buf_appendf(buf, "<div class=\"kpi-sub\">%s</div>\n", spectral_profile_name(profile))) &&
           text_buf_append(buf, "</div>\n") &&
           append_spectral_kpi(buf, in) && append_thdn_kpi(buf, in) &&
           text_buf_appendf(buf,
                            "<div class=\"kpi verdict%s\">\n<div class=\"k\">Overall Verdict</div>\n<div "
                            "class=\"v\">%s</div>\n</div>\n</div>\n",
                            verdict.overall_pass ? " ok" : "", verdict.overall_pass ? "PASS" : "FAIL");
}

// The checks that have a card on this page, in page order, one per anchor: where two
// checks share a card (bit-exactness and bit accuracy), the first one shown takes it.
std::vector<const check_info*> checks_on_page(const run_results& res) {
    std::vector<const check_info*> rows;
    for (const check_info& row : check_table())
        if (card_writer_for(row.id) && (row.shown == shown_rule::always || res.of(row.id).ran)) rows.push_back(&row);
    std::stable_sort(rows.begin(), rows.end(),
                     [](const check_info* a, const check_info* b) { return a->page_rank < b->page_rank; });
    std::vector<const check_info*> unique;
    for (const check_info* row : rows)
        if (std::none_of(unique.begin(), unique.end(), [&](const check_info* u) { return u->anchor == row->anchor; }))
            unique.push_back(row);
    return unique;
}

bool append_navigation(text_buf& buf, const report_inputs& in, const std::vector<const check_info*>& cards) {
    bool ok = text_buf_append(buf, "<nav class=\"nav-tabs\">\n") &&
              text_buf_appendf(buf, "<a href=\"#alignment\"%s>Signal Alignment</a>\n",
                               in.results->align.aligned ? "" : " data-fail");
    for (const check_info* row : cards) {
        const check_status& s = in.results->of(row->id);
        ok = ok && text_buf_appendf(buf, "<a href=\"#%s\"%s>%s</a>\n", row->anchor.data(),
                                    fail_attributes(s.ran && !s.passed, counts_against_verdict(s)),
                                    row->tab_label.data());
        if (row->id == check_id::spectral) ok = ok && text_buf_append(buf, "<a href=\"#overview\">Signal Overview</a>\n");
    }
    return ok && text_buf_append(buf, "</nav>\n");
}

bool append_footer(text_buf& buf, const report_inputs& in, std::string_view timestamp) {
    return append_footer_top(buf, in.version, "report", timestamp) && append_tester_row(buf, in.tester) &&
           text_buf_append(buf, "</footer>\n");
}

// One row of the Configuration card: check, parameter, value (already formatted), source.
bool config_row(text_buf& buf, const char* check, const char* parameter, const char* value, std::string_view source) {
    return text_buf_appendf(buf, "<tr><td>%s</td><td>%s</td><td>%s</td><td>%.*s</td></tr>\n", check, parameter, value,
                            static_cast<int>(source.size()), source.data());
}

}  // namespace

const char* spectral_profile_name(std::string_view profile) {
    if (profile == "freq_sweep") return "Frequency Sweep";
    if (profile == "amp_sweep") return "Amplitude Sweep";
    return "Frequency Domain";
}

const char* bit_depth_word(std::uint32_t format_code) {
    switch (format_code) {
        case 16: return "16-bit";
        case 24: return "24-bit";
        case 32: return "32-bit";
        case 288: return "32-bit float";
        case 320: return "64-bit float";
        default: return "unknown";
    }
}

std::string analysis_mode_name(const run_results& res, std::string_view spectral_profile) {
    const bool bitexact_gates = res.of(check_id::bitexact).gates;
    const bool bitaccuracy_ran = res.of(check_id::bit_accuracy).ran;
    std::string mode;
    if (bitexact_gates && bitaccuracy_ran)
        mode = "Bit-Exact + Bit Accuracy";
    else if (bitexact_gates)
        mode = "Bit-Exact";
    else if (bitaccuracy_ran)
        mode = "Bit Accuracy";
    else
        mode = spectral_profile_name(spectral_profile);
    if (res.of(check_id::time_domain).ran) mode += " + Deepscan";
    if (res.of(check_id::impulse_template).ran) mode += " + Impulse";
    return mode;
}

std::string escape_script_close(std::string_view document) {
    std::string out;
    out.reserve(document.size());
    for (char c : document) {
        switch (c) {
            case '<': out.append("\\u003c"); break;
            case '>': out.append("\\u003e"); break;
            case '&': out.append("\\u0026"); break;
            default: out.push_back(c);
        }
    }
    return out;
}

bool append_tester_row(text_buf& buf, const tester_identity& tester) {
    const auto& engineer = tester.test_engineer;
    const auto& product = tester.test_product;
    const auto& company = tester.test_company_name;
    if (!engineer && !product && !company) return true;
    if (!text_buf_append(buf, "<div class=\"footer-row-tester\">")) return false;
    bool wrote_tested_by = engineer || company;
    if (wrote_tested_by) {
        if (!text_buf_append(buf, "Tested by <b>") || (engineer && !text_buf_append_html(buf, engineer->c_str())) ||
            (engineer && company && !text_buf_append(buf, "</b> &middot; <b>")) ||
            (company && !text_buf_append_html(buf, company->c_str())) || !text_buf_append(buf, "</b>"))
            return false;
    }
    if (product) {
        if (!text_buf_append(buf, wrote_tested_by ? " &middot; product <b>" : "Product <b>") ||
            !text_buf_append_html(buf, product->c_str()) || !text_buf_append(buf, "</b>"))
            return false;
    }
    return text_buf_append(buf, "</div>\n");
}

bool append_configuration_card(text_buf& buf, const report_inputs& in) {
    const run_config& cfg = *in.run->config;
    const run_results& res = *in.results;
    auto source = [&](param_id id) { return param_source_label(cfg.source(id)); };
    char value[160];
    auto fmt = [&](const char* format, auto... args) -> const char* {
        std::snprintf(value, sizeof value, format, args...);
        return value;
    };
    const char* sf = check_row(check_id::spectral).display_name.data();
    const char* lf = check_row(check_id::levelfidelity).display_name.data();
    const char* ad = check_row(check_id::artifact).display_name.data();
    const check_status& bitexact = res.of(check_id::bitexact);
    const check_status& bit_accuracy = res.of(check_id::bit_accuracy);
    bool ok = text_buf_append(buf,
                              "<section class=\"card\" id=\"configuration\">\n<div class=\"card-head\">\n<div "
                              "class=\"htext\"><h3>Configuration</h3><span class=\"sub\">resolved parameters this run "
                              "used, and where each came from</span></div>\n</div>\n<div class=\"card-body\">\n<div "
                              "class=\"overflow-x\"><table class=\"dt\"><tr><th>Check</th><th>Parameter</th><th>Value</"
                              "th><th>Source</th></tr>\n");
    ok = ok && config_row(buf, sf, "Profile", cfg.text(param_id::spectral_profile).c_str(), source(param_id::spectral_profile));
    ok = ok && config_row(buf, sf, "FFT Size", fmt("%zu", static_cast<std::size_t>(cfg.integer(param_id::spectral_fft_size))),
                          source(param_id::spectral_fft_size));
    ok = ok && config_row(buf, sf, "Peak Tolerance", fmt("%.2f dB", cfg.number(param_id::spectral_peak_tolerance_db)),
                          source(param_id::spectral_peak_tolerance_db));
    if (cfg.present(param_id::spectral_relative_noise_floor_db))
        ok = ok && config_row(buf, sf, "Relative Noise Floor",
                              fmt("%.2f dB", cfg.number(param_id::spectral_relative_noise_floor_db)),
                              source(param_id::spectral_relative_noise_floor_db));
    if (!cfg.bands.empty())
        ok = ok && config_row(buf, sf, "Bands", fmt("%zu configured", cfg.bands.size()), source(param_id::spectral_bands));
    ok = ok && config_row(buf, sf, "Continuous Scan", cfg.flag(param_id::spectral_continuous) ? "enabled" : "disabled",
                          source(param_id::spectral_continuous));
    if (cfg.edge_skip_active)
        ok = ok && config_row(buf, sf, "Sweep Edge Skip",
                              fmt("%ld samples at each end", static_cast<long>(cfg.integer(param_id::spectral_sweep_edge_skip_samples))),
                              source(param_id::spectral_sweep_edge_skip_samples));
    if (cfg.present(param_id::spectral_overlap_fraction) && cfg.set_in_file(param_id::spectral_overlap_fraction))
        ok = ok && config_row(buf, sf, "Overlap Fraction", fmt("%.2f", cfg.number(param_id::spectral_overlap_fraction)),
                              source(param_id::spectral_overlap_fraction));
    if (cfg.snapshots.active)
        ok = ok && config_row(buf, sf, "Snapshots", fmt("%zu", static_cast<std::size_t>(cfg.snapshots.count)),
                              param_source_label(cfg.snapshots.source));
    ok = ok && config_row(buf, lf, "Profile", cfg.text(param_id::level_fidelity_profile).c_str(),
                          source(param_id::level_fidelity_profile));
    ok = ok && config_row(buf, lf, "P99 Tolerance", fmt("%.2f dB", cfg.number(param_id::level_fidelity_p99_tolerance_db)),
                          source(param_id::level_fidelity_p99_tolerance_db));
    double run_ms = cfg.number(param_id::level_fidelity_min_sustained_run_ms);
    ok = ok && config_row(buf, lf, "Min Sustained Run", run_ms > 0 ? fmt("%.1f ms", run_ms) : "disabled",
                          source(param_id::level_fidelity_min_sustained_run_ms));
    ok = ok && config_row(buf, ad, "Neighborhood Window",
                          fmt("%zu samples", static_cast<std::size_t>(cfg.integer(param_id::artifact_window_samples))),
                          source(param_id::artifact_window_samples));
    ok = ok && config_row(buf, ad, "Minimum Severity", fmt("%.4g&times;", cfg.number(param_id::artifact_min_severity)),
                          source(param_id::artifact_min_severity));
    ok = ok && config_row(buf, ad, "Min Silence/Clip Run",
                          fmt("%zu samples", static_cast<std::size_t>(cfg.integer(param_id::artifact_min_silence_clip_run))),
                          source(param_id::artifact_min_silence_clip_run));
    ok = ok && config_row(buf, ad, "Minimum Whole-File Severity",
                          fmt("%.4g&times;", cfg.number(param_id::artifact_min_global_severity)),
                          source(param_id::artifact_min_global_severity));
    ok = ok && config_row(buf, check_row(check_id::bitexact).display_name.data(), "Gating",
                          bitexact.gates ? "enabled" : "disabled", bitexact.gating_label);
    ok = ok && config_row(buf, check_row(check_id::bit_accuracy).display_name.data(), "Enabled",
                          bit_accuracy.ran ? "yes" : "no", bit_accuracy.gating_label);
    return ok && text_buf_append(buf, "</table></div>\n</div>\n</section>\n");
}

bool append_report_page(text_buf& buf, const report_inputs& in, std::string_view timestamp) {
    const run_results& res = *in.results;
    const check_status& bitexact = res.of(check_id::bitexact);
    const std::string stem = file_stem(in.run->ref_path, title_stem_buffer_size);
    const std::vector<const check_info*> cards = checks_on_page(res);
    text_buf title;
    text_buf_init(title);
    bool ok = text_buf_append_html(title, stem.c_str()) &&
              append_page_head(buf, text_buf_view(title), " -- Veltrane Report", "Veltrane Report", in.version) &&
              append_signal_row(buf, in) && append_kpi_grid(buf, in) &&
              (!(bitexact.ran && !bitexact.gates && !bitexact.passed) ||
               text_buf_append(buf,
                               "<div class=\"kpi-note\">Bit-Exactness failed but is not gating the overall verdict "
                               "&mdash; run with <code>--bitexact</code> to require an exact match. See the "
                               "Bit-Exactness section below for details.</div>\n")) &&
              append_navigation(buf, in, cards) && append_alignment_card(buf, in);
    text_buf_free(title);
    // The Signal Overview card, which belongs to no check, follows the spectral card.
    for (const check_info* row : cards)
        ok = ok && card_writer_for(row->id)(buf, in) && (row->id != check_id::spectral || append_overview_card(buf, in));
    return ok && append_configuration_card(buf, in) && append_footer(buf, in, timestamp) &&
           text_buf_append(buf, "</div>\n") &&
           text_buf_append(buf, "<script type=\"application/json\" id=\"veltrane-results\">\n") &&
           text_buf_append(buf, std::string_view(escape_script_close(in.results_json))) &&
           text_buf_append(buf, "\n</script>\n") && append_theme_script(buf) && append_chart_script(buf) &&
           text_buf_append(buf, "</body>\n</html>\n");
}

bool write_report_page(const std::string& html_path, const report_inputs& in) {
    return write_page(html_path, [&](text_buf& buf) { return append_report_page(buf, in, utc_timestamp()); });
}

}  // namespace veltrane
