// The plot command: one WAV file drawn as a standalone page (and, with --json, its format
// facts as a small document), with no reference and no verdict.
#include <array>
#include <optional>
#include <ostream>
#include <string>

#include "audio/wav.h"
#include "cli/commands.h"
#include "cli/error_report.h"
#include "cli/input_formats.h"
#include "cli/options.h"
#include "cli/output_paths.h"
#include "cli/settings_files.h"
#include "cli/usage.h"
#include "plot/plot_page.h"

namespace veltrane {
namespace {

constexpr std::array<option_def, 4> plot_option_defs{{
    {"--input", true},
    {"--out", true},
    {"--json", false},
    {"--defaults-cfg", true},
}};

constexpr std::string_view plot_requires = "error: plot requires --input and --out\n\n";

// Everything after the options: the input is released by its owner on every return.
int plot_file(const std::string& input_path, const std::string& out_path, bool json, const defaults_record& defaults,
              wav_audio& audio, std::ostream& out, std::ostream& err) {
    if (!wav_read(input_path, audio)) {
        err << "error: failed to read --input '" << input_path << "' (" << wav_error_text() << ")\n";
        return 1;
    }
    if (!check_sample_rate(err, "--input", audio.sample_rate) || !check_channel_count(err, "--input", audio.channels))
        return 1;
    output_paths paths;
    if (!resolve_output_paths(out_path, input_path, json, paths, err)) {
        err << "error: could not resolve output path from --out '" << out_path << "'\n";
        return 1;
    }
    const plot_spectrum_settings spectrum = resolve_plot_spectrum_settings(defaults, audio.sample_rate, audio.frame_count);
    if (!spectrum.error_message.empty()) {
        err << spectrum.error_message;
        return 1;
    }
    plot_inputs in;
    in.input_path = input_path;
    in.audio = &audio;
    in.fft_size = static_cast<std::uint64_t>(spectrum.fft_size);
    in.noise_floor_db = spectrum.noise_floor_db;
    in.version = program_version;
    in.tester = resolve_tester_identity(defaults);
    if (!write_plot_page(paths.html_path, in)) {
        err << "error: failed to write '" << paths.html_path << "'\n";
        return 1;
    }
    if (!json) {
        out << "wrote " << paths.html_path << "\n";
        return 0;
    }
    if (!write_plot_json(paths.json_path, in)) {
        err << "error: failed to write '" << paths.json_path << "'\n";
        return 1;
    }
    out << "wrote " << paths.html_path << " + " << paths.json_path << "\n";
    return 0;
}

}  // namespace

int cmd_plot(int argc, char** argv, std::ostream& out, std::ostream& err) {
    scanned_options scanned;
    if (auto status = scan_subcommand(argc, argv, plot_option_defs, plot_requires, scanned, out, err)) return *status;
    const std::string* input = scanned.value("--input");
    const std::string* out_path = scanned.value("--out");
    if (!input || !out_path) return report_missing_required(plot_requires, err);
    std::optional<std::string> defaults_cfg;
    if (const std::string* v = scanned.value("--defaults-cfg")) defaults_cfg = *v;
    defaults_record defaults;
    if (!load_command_defaults(defaults_cfg, defaults, err)) return 1;
    wav_audio audio;
    const int status = plot_file(*input, *out_path, scanned.has("--json"), defaults, audio, out, err);
    wav_free(audio);
    return status;
}

}  // namespace veltrane
