// The analyze run, from the command line to the verdict: options and settings files, the
// two inputs and their format checks, alignment, settings resolution, the checks, the
// verdict, the results document, the report page and the summary line.
//
// A check is wired in once per layer: its run step in run_checks, its result in
// report_inputs (which also feeds the verdict), its block in the results document and its
// card in the report page.
#include <ostream>
#include <string>

#include "align/align.h"
#include "audio/wav.h"
#include "checks/bit_compare.h"
#include "checks/gating.h"
#include "cli/analyze_options.h"
#include "cli/commands.h"
#include "cli/error_report.h"
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

// Sample rates analyze accepts, in Hz.
constexpr std::uint32_t min_sample_rate_hz = 22050;
constexpr std::uint32_t max_sample_rate_hz = 192000;

void status_line(const analyze_options& opts, std::ostream& err, const char* line) {
    if (!opts.quiet) err << line << std::flush;
}

// Reads one input, reporting a failure as an incomparable-files error.
bool read_input(const char* option, const std::string& path, wav_audio& audio, std::ostream& err) {
    if (wav_read(path, audio)) return true;
    report_run_error(err, "failed to read %s '%s' (%s)", option, path.c_str(), describe_wav_read_failure(path).c_str());
    return false;
}

bool rate_supported(std::uint32_t rate) { return rate >= min_sample_rate_hz && rate <= max_sample_rate_hz; }
bool channels_supported(std::uint32_t channels) { return channels == 1 || channels == 2; }

void report_rate(std::ostream& err, const char* option, std::uint32_t rate) {
    report_run_error(err, "%s sample rate %u Hz is outside the supported range [%u, %u] Hz", option, rate,
                     min_sample_rate_hz, max_sample_rate_hz);
}

void report_channels(std::ostream& err, const char* option, std::uint32_t channels) {
    report_run_error(err, "%s has %u channel(s) -- veltrane only accepts mono or stereo input", option, channels);
}

// The format checks on the two inputs; every failure is reported, the run stops when any
// of them failed.
bool formats_comparable(const wav_audio& ref, const wav_audio& dut, std::ostream& err) {
    bool rates_ok = true;
    if (!rate_supported(ref.sample_rate)) {
        report_rate(err, "--ref", ref.sample_rate);
        rates_ok = false;
    }
    if (!rate_supported(dut.sample_rate)) {
        report_rate(err, "--dut", dut.sample_rate);
        rates_ok = false;
    }
    if (!channels_supported(ref.channels)) {
        report_channels(err, "--ref", ref.channels);
        if (!channels_supported(dut.channels)) report_channels(err, "--dut", dut.channels);
        return false;
    }
    if (!channels_supported(dut.channels)) {
        report_channels(err, "--dut", dut.channels);
        return false;
    }
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

// Runs the checks in their fixed order and records each result with its switches. A
// check that does not run keeps a cleared record that counts as passed.
void run_checks(report_inputs& in, const run_config& cfg) {
    const wav_audio& ref = *in.ref_audio;
    const wav_audio& dut = *in.dut_audio;
    const std::int32_t offset = in.align.file_offset;

    in.bitexact_ran = cfg.flag(param_id::bit_exact_enabled);
    in.bitexact_gates = cfg.flag(param_id::bit_exact_gates_overall);
    in.bitexact_gating_label = std::string(cfg.label(param_id::bit_exact_gates_overall));
    if (in.bitexact_ran) in.bitexact = compare_bits(ref, dut, offset, cfg.number(param_id::bit_exact_bit_deviation_db));

    in.bitaccuracy_ran = cfg.flag(param_id::bit_accuracy_enabled);
    in.bitaccuracy_label = std::string(cfg.label(param_id::bit_accuracy_enabled));
    in.bitaccuracy_tolerance_db = cfg.number(param_id::bit_accuracy_tolerance_db);
    if (in.bitaccuracy_ran) in.bitaccuracy = compare_bits(ref, dut, offset, in.bitaccuracy_tolerance_db);

    in.level_gates = cfg.flag(param_id::level_fidelity_gates_overall);
    in.artifact_gates = cfg.flag(param_id::artifact_gates_overall);
    in.loudness_gates = cfg.flag(param_id::loudness_gates_overall);
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
    report_inputs in;
    in.align = align_channels(ref, dut, align_cfg.max_search_samples, align_cfg.min_confidence,
                              static_cast<std::int32_t>(align_cfg.agreement_tolerance_samples),
                              align_cfg.low_level_threshold_db);
    if (!in.align.aligned) {
        auto diagnosis = diagnose_alignment(ref, dut, in.align, align_cfg.max_search_samples, align_cfg.min_confidence);
        std::string message = compose_alignment_message(in.align, diagnosis, ref.sample_rate, align_cfg.min_confidence,
                                                        align_cfg.max_search_samples,
                                                        static_cast<std::int32_t>(align_cfg.agreement_tolerance_samples));
        report_run_error(err, "%s", message.c_str());
        return 1;
    }

    // The overlap of the aligned files chooses the automatic fft size; the length-mismatch
    // figures then judge it against the resolved tolerance.
    const std::uint64_t overlap_frames = compute_overlap(ref.frame_count, dut.frame_count, in.align.file_offset).frames();
    settings_resolution resolved = resolve_check_settings(command_line_overrides_from(opts), settings.config_file,
                                                          settings.defaults, ref.sample_rate, overlap_frames);
    if (resolved.error_message) {
        err << *resolved.error_message;
        return 1;
    }
    const run_config& cfg = resolved.config;
    in.length_mismatch_tolerance_pct = cfg.number(param_id::general_length_mismatch_tolerance_pct);
    in.length_mismatch = compute_length_mismatch(ref.frame_count, dut.frame_count, in.align.file_offset,
                                                 in.length_mismatch_tolerance_pct);

    status_line(opts, err, "Analyzing...\n");
    in.ref_path = opts.ref_path;
    in.dut_path = opts.dut_path;
    in.ref_audio = &ref;
    in.dut_audio = &dut;
    in.config = &cfg;
    in.version = program_version;
    in.tester = cfg.tester;
    run_checks(in, cfg);

    const gating_summary verdict = collect_gating_failures(gating_inputs_from(in));
    std::string overflow;
    if (!build_results_json(in, verdict, in.results_json, &overflow)) {
        err << "error: internal -- results JSON exceeded buffer size (" << overflow << ")\n";
        return 1;
    }

    output_paths paths;
    if (!resolve_output_paths(opts.out_path, opts.dut_path, opts.json, paths, err)) {
        err << "error: could not resolve output path from --out '" << opts.out_path << "'\n";
        return 1;
    }
    status_line(opts, err, "Writing report...\n");
    if (!write_report_page(paths.html_path, in)) {
        err << "error: failed to write '" << paths.html_path << "'\n";
        return 1;
    }
    if (opts.json && !write_text_file(paths.json_path, in.results_json)) {
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
