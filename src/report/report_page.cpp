#include "report/report_page.h"

#include <cstdio>

#include "report/check_cards.h"
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
    const wav_audio& ref = *in.ref_audio;
    return text_buf_append(buf,
                           "<div class=\"signal-row\">\n<div class=\"signal-id\">\n<span "
                           "class=\"tag\">Reference</span>\n<span class=\"fname\">") &&
           text_buf_append_html_path(buf, in.ref_path.c_str()) &&
           text_buf_append(buf,
                           "</span>\n</div>\n<div class=\"signal-id dut\">\n<span class=\"tag\">Device Under "
                           "Test</span>\n<span class=\"fname\">") &&
           text_buf_append_html_path(buf, in.dut_path.c_str()) &&
           text_buf_appendf(buf, "</span>\n</div>\n<div class=\"signal-meta\">%u Hz &middot; %s &middot; %s</div>\n</div>\n",
                            ref.sample_rate, bit_depth_word(ref.format_code), ref.channels == 2 ? "Stereo" : "Mono");
}

bool append_kpi_grid(text_buf& buf, const report_inputs& in, const gating_summary& verdict) {
    const std::string profile = in.config ? in.config->text(param_id::spectral_profile) : std::string();
    bool bit_mode = in.bitexact_gates || in.bitaccuracy_ran;
    // Spectral fidelity and distortion tiles show their figures once those checks report
    // them; until then the spectral tile has no figure and distortion reads as skipped.
    return text_buf_append(buf,
                           "<div class=\"kpi-grid\">\n<div class=\"kpi\">\n<div class=\"k\">Analysis Mode</div>\n<div "
                           "class=\"v\">") &&
           text_buf_append(buf, analysis_mode_name(in).c_str()) && text_buf_append(buf, "</div>\n") &&
           (!bit_mode || text_buf_appendf(buf, "<div class=\"kpi-sub\">%s</div>\n", spectral_profile_name(profile))) &&
           text_buf_append(buf, "</div>\n") &&
           text_buf_append(buf,
                           "<div class=\"kpi\">\n<div class=\"k\">Spectral Fidelity</div>\n<div "
                           "class=\"v\">&mdash;<small> n/a</small></div>\n</div>\n") &&
           text_buf_append(buf, "<div class=\"kpi\">\n<div class=\"k\">THD+N</div>\n<div class=\"v\">") &&
           text_buf_append(buf, "&mdash;<small> skipped</small></div>\n</div>\n") &&
           text_buf_appendf(buf,
                            "<div class=\"kpi verdict%s\">\n<div class=\"k\">Overall Verdict</div>\n<div "
                            "class=\"v\">%s</div>\n</div>\n</div>\n",
                            verdict.overall_pass ? " ok" : "", verdict.overall_pass ? "PASS" : "FAIL");
}

bool append_navigation(text_buf& buf, const report_inputs& in, const gating_view& counts) {
    bool ok = text_buf_append(buf, "<nav class=\"nav-tabs\">\n") &&
              text_buf_appendf(buf, "<a href=\"#alignment\"%s>Signal Alignment</a>\n", in.align.aligned ? "" : " data-fail");
    if (ok && in.bitexact_ran) {
        ok = text_buf_appendf(buf, "<a href=\"#bitexact\"%s>%s</a>\n", fail_attributes(!in.bitexact.pass, counts.bitexact),
                              "Bit-Exactness");
    } else if (ok && in.bitaccuracy_ran) {
        ok = text_buf_appendf(buf, "<a href=\"#bitexact\"%s>%s</a>\n", fail_attributes(!in.bitaccuracy.pass, false),
                              "Bit Accuracy");
    }
    return ok && text_buf_append(buf, "</nav>\n");
}

bool append_footer(text_buf& buf, const report_inputs& in, std::string_view timestamp) {
    return text_buf_append(buf, "<footer>\n<div class=\"footer-row-top\">\n") &&
           text_buf_appendf(buf, "<span><b>Veltrane</b> v%.*s</span>\n", static_cast<int>(in.version.size()),
                            in.version.data()) &&
           text_buf_appendf(buf, "<span>report generated %.*s</span>\n</div>\n", static_cast<int>(timestamp.size()),
                            timestamp.data()) &&
           append_tester_row(buf, in.tester) && text_buf_append(buf, "</footer>\n");
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

std::string analysis_mode_name(const report_inputs& in) {
    std::string mode;
    if (in.bitexact_gates && in.bitaccuracy_ran)
        mode = "Bit-Exact + Bit Accuracy";
    else if (in.bitexact_gates)
        mode = "Bit-Exact";
    else if (in.bitaccuracy_ran)
        mode = "Bit Accuracy";
    else
        mode = spectral_profile_name(in.config ? in.config->text(param_id::spectral_profile) : std::string());
    if (in.time_domain_ran) mode += " + Deepscan";
    if (in.impulse_ran) mode += " + Impulse";
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
    const run_config& cfg = *in.config;
    auto source = [&](param_id id) { return param_source_label(cfg.source(id)); };
    char value[160];
    auto fmt = [&](const char* format, auto... args) -> const char* {
        std::snprintf(value, sizeof value, format, args...);
        return value;
    };
    const char* sf = "Spectral Fidelity";
    const char* lf = "Level Fidelity";
    const char* ad = "Artifact Detection";
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
    ok = ok && config_row(buf, "Bit-Exactness", "Gating", in.bitexact_gates ? "enabled" : "disabled", in.bitexact_gating_label);
    ok = ok && config_row(buf, "Bit Accuracy", "Enabled", in.bitaccuracy_ran ? "yes" : "no", in.bitaccuracy_label);
    return ok && text_buf_append(buf, "</table></div>\n</div>\n</section>\n");
}

bool append_report_page(text_buf& buf, const report_inputs& in, std::string_view timestamp) {
    // The verdict view is taken once and shared by the KPI tiles and the navigation.
    const gating_inputs gating = gating_inputs_from(in);
    const gating_summary verdict = collect_gating_failures(gating);
    const gating_view counts = gating_failures_by_check(gating);
    const std::string stem = file_stem(in.ref_path, title_stem_buffer_size);
    const bool bit_card = in.bitexact_ran || in.bitaccuracy_ran;

    return text_buf_append(buf,
                           "<!doctype html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n<meta "
                           "name=\"viewport\" content=\"width=device-width, initial-scale=1\">\n<title>") &&
           text_buf_append_html(buf, stem.c_str()) && text_buf_append(buf, " -- Veltrane Report</title>\n") &&
           append_style_block(buf) && text_buf_append(buf, "</head>\n<body>\n<div class=\"dash\">\n") &&
           append_top_bar_open(buf, "Veltrane Report") &&
           text_buf_appendf(buf, "<b>v%.*s</b></div>\n", static_cast<int>(in.version.size()), in.version.data()) &&
           append_theme_toggle(buf) && text_buf_append(buf, "</div>\n</div>\n") && append_signal_row(buf, in) &&
           append_kpi_grid(buf, in, verdict) &&
           (!(in.bitexact_ran && !in.bitexact_gates && !in.bitexact.pass) ||
            text_buf_append(buf,
                            "<div class=\"kpi-note\">Bit-Exactness failed but is not gating the overall verdict "
                            "&mdash; run with <code>--bitexact</code> to require an exact match. See the "
                            "Bit-Exactness section below for details.</div>\n")) &&
           append_navigation(buf, in, counts) &&
           // Cards in page order.
           append_alignment_card(buf, in) && (!bit_card || append_bit_card(buf, in)) &&
           append_configuration_card(buf, in) && append_footer(buf, in, timestamp) && text_buf_append(buf, "</div>\n") &&
           text_buf_append(buf, "<script type=\"application/json\" id=\"veltrane-results\">\n") &&
           text_buf_append(buf, std::string_view(escape_script_close(in.results_json))) &&
           text_buf_append(buf, "\n</script>\n") && append_theme_script(buf) &&
           text_buf_append(buf, "</body>\n</html>\n");
}

bool write_report_page(const std::string& html_path, const report_inputs& in) {
    return write_page(html_path, [&](text_buf& buf) { return append_report_page(buf, in, utc_timestamp()); });
}

}  // namespace veltrane
