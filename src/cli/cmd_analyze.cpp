// The analyze run, from the command line to the verdict: options and settings files, the
// two inputs and their format checks, alignment, settings resolution, the checks, the
// verdict, the results document, the report page and the summary line.
//
// The driver knows no check by name. A check is added in five places, none of them here:
// its unit in src/checks/, its row in the table of checks (checks/check_table.cpp, which
// also holds its run step), its result field in run_results (checks/run_results.h), its
// block in the results document (cli/results_json.cpp) and its card (report/). The verdict
// is computed once, below, and handed to the results document and the page.
#include <ostream>
#include <string>

#include "align/align.h"
#include "audio/wav.h"
#include "checks/gating.h"
#include "checks/run_results.h"
#include "cli/analyze_options.h"
#include "cli/commands.h"
#include "cli/error_report.h"
#include "cli/input_formats.h"
#include "cli/output_paths.h"
#include "cli/results_json.h"
#include "cli/settings_files.h"
#include "cli/usage.h"
#include "config/run_config.h"
#include "report/report_inputs.h"
#include "report/report_page.h"
#include "util/files.h"

namespace veltrane {
namespace {

void status_line(const analyze_options& opts, std::ostream& err, const char* line) {
    if (!opts.quiet) err << line << std::flush;
}

// Reads one input, reporting a failure as an incomparable-files error.
bool read_input(const char* option, const std::string& path, wav_audio& audio, std::ostream& err) {
    if (wav_read(path, audio)) return true;
    report_run_error(err, "failed to read %s '%s' (%s)", option, path.c_str(), describe_wav_read_failure(path).c_str());
    return false;
}

// The format checks on the two inputs; every failure is reported, the run stops when any
// of them failed.
bool formats_comparable(const wav_audio& ref, const wav_audio& dut, std::ostream& err) {
    const bool ref_rate_ok = check_sample_rate(err, "--ref", ref.sample_rate);
    const bool rates_ok = check_sample_rate(err, "--dut", dut.sample_rate) && ref_rate_ok;
    if (!check_channel_count(err, "--ref", ref.channels)) {
        check_channel_count(err, "--dut", dut.channels);
        return false;
    }
    if (!check_channel_count(err, "--dut", dut.channels)) return false;
    if (!rates_ok) return false;
    if (ref.channels != dut.channels) {
        report_run_error(err, "--ref has %u channel(s) but --dut has %u -- ref and DUT must have identical channel count",
                         ref.channels, dut.channels);
        return false;
    }
    if (ref.sample_rate != dut.sample_rate) {
        report_run_error(err,
                         "--ref is %u Hz but --dut is %u Hz -- ref and DUT must share the same sample rate (veltrane "
                         "does no resampling of its own)",
                         ref.sample_rate, dut.sample_rate);
        return false;
    }
    return true;
}

// Everything from the command line up to the printed summary. Fills `request` once the
// command line and settings files are accepted, so a later failure to compare the two
// files can leave an error report behind.
int run_analyze(int argc, char** argv, error_report_request& request, std::ostream& out, std::ostream& err) {
    analyze_options opts;
    if (auto status = parse_analyze_options(argc, argv, opts, out, err)) return *status;
    if (!outputs_spare_inputs(opts, err)) return 1;
    analyze_settings_files settings;
    if (!load_analyze_settings_files(opts, settings, err)) return 1;

    request.armed = true;
    request.ref_path = opts.ref_path;
    request.dut_path = opts.dut_path;
    request.out_path = opts.out_path;
    request.json = opts.json;

    // Both inputs live until the end of this function; every return releases them.
    wav_audio ref;
    wav_audio dut;
    if (!read_input("--ref", opts.ref_path, ref, err)) return 1;
    if (!read_input("--dut", opts.dut_path, dut, err)) return 1;
    if (!formats_comparable(ref, dut, err)) return 1;

    const alignment_settings align_cfg = resolve_alignment_settings(settings.config_file, settings.defaults, ref.sample_rate);
    status_line(opts, err, "Aligning...\n");
    run_results results;
    results.align = align_channels(ref, dut, align_cfg.max_search_samples, align_cfg.min_confidence,
                              static_cast<std::int32_t>(align_cfg.agreement_tolerance_samples),
                              align_cfg.low_level_threshold_db);
    if (!results.align.aligned) {
        auto diagnosis =
            diagnose_alignment(ref, dut, results.align, align_cfg.max_search_samples, align_cfg.min_confidence);
        std::string message = compose_alignment_message(results.align, diagnosis, ref.sample_rate, align_cfg.min_confidence,
                                                        align_cfg.max_search_samples,
                                                        static_cast<std::int32_t>(align_cfg.agreement_tolerance_samples));
        report_run_error(err, "%s", message.c_str());
        return 1;
    }

    // The overlap of the aligned files chooses the automatic fft size; the length-mismatch
    // figures then judge it against the resolved tolerance.
    const std::uint64_t overlap_frames = compute_overlap(ref.frame_count, dut.frame_count, results.align.file_offset).frames();
    settings_resolution resolved = resolve_check_settings(opts.overrides, settings.config_file,
                                                          settings.defaults, ref.sample_rate, overlap_frames);
    if (resolved.error_message) {
        err << *resolved.error_message;
        return 1;
    }
    const run_config& cfg = resolved.config;
    const length_mismatch_result length_mismatch =
        compute_length_mismatch(ref.frame_count, dut.frame_count, results.align.file_offset,
                                cfg.number(param_id::general_length_mismatch_tolerance_pct));

    status_line(opts, err, "Analyzing...\n");
    record_length_mismatch(results, length_mismatch);
    run_checks(check_context{ref, dut, results.align.file_offset, cfg}, results);

    const run_inputs run{opts.ref_path, opts.dut_path, &ref, &dut, &cfg};
    const gating_summary verdict = collect_gating_failures(results);
    std::string results_json;
    std::string overflow;
    if (!build_results_json(run, results, verdict, results_json, &overflow)) {
        err << "error: internal -- results JSON exceeded buffer size (" << overflow << ")\n";
        return 1;
    }
    const report_inputs page{&run, &results, &verdict, results_json, program_version, cfg.tester};

    output_paths paths;
    if (!resolve_output_paths(opts.out_path, opts.dut_path, opts.json, paths, err)) {
        err << "error: could not resolve output path from --out '" << opts.out_path << "'\n";
        return 1;
    }
    status_line(opts, err, "Writing report...\n");
    if (!write_report_page(paths.html_path, page)) {
        err << "error: failed to write '" << paths.html_path << "'\n";
        return 1;
    }
    if (opts.json && !write_text_file(paths.json_path, results_json)) {
        err << "error: failed to write '" << paths.json_path << "'" << stale_output_note(paths.json_path) << "\n";
        return 1;
    }

    wav_free(ref);
    wav_free(dut);
    std::string summary = verdict.overall_pass ? "overall: PASS" : "overall: FAIL -- " + verdict.failure_names;
    if (summary.size() > 399) summary.resize(399);  // the summary text holds at most 399 characters
    if (opts.json)
        out << "wrote " << paths.html_path << " + " << paths.json_path << " (" << summary << ")\n";
    else
        out << "wrote " << paths.html_path << " (" << summary << ")\n";
    return opts.exit_code && !verdict.overall_pass ? 2 : 0;
}

}  // namespace

int cmd_analyze(int argc, char** argv, std::ostream& out, std::ostream& err) {
    error_report_request request;
    run_error_summary& summary = current_run_error_summary();
    run_error_summary_clear(summary);
    int status = run_analyze(argc, argv, request, out, err);
    if (status == 1 && request.armed && summary.len > 0) write_error_report(request, run_error_summary_text(summary), err);
    return status;
}

}  // namespace veltrane
