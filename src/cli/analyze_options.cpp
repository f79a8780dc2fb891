#include "cli/analyze_options.h"

#include <array>
#include <cstdlib>
#include <ostream>

#include "cli/options.h"

namespace veltrane {
namespace {

constexpr std::array<option_def, 21> analyze_option_defs{{
    {"--ref", true},
    {"--dut", true},
    {"--out", true},
    {"--json", false},
    {"--config", true},
    {"--defaults-cfg", true},
    {"--snapshots", true},
    {"--deepscan", false},
    {"--impulse", false},
    {"--ampsweep", false},
    {"--freqsweep", false},
    {"--bitaccuracy", false},
    {"--bitexact", false},
    {"--no-bitexact", false},
    {"--no-distortion", false},
    {"--levelfidelity-ref-only", false},
    {"--no-loudness", false},
    {"--loudness", false},
    {"--artifact-ref-only", false},
    {"--quiet", false},
    {"--exit-code", false},
}};

constexpr std::string_view analyze_requires = "error: analyze requires --ref, --dut, and --out\n\n";

}  // namespace

long parse_snapshot_count(const std::string& text) {
    long n = std::strtol(text.c_str(), nullptr, 10);
    return n < 0 ? 0 : n;
}

std::optional<int> parse_analyze_options(int argc, char** argv, analyze_options& opts,
                                         std::ostream& out, std::ostream& err) {
    scanned_options scanned;
    if (auto status = scan_subcommand(argc, argv, analyze_option_defs, analyze_requires, scanned, out, err)) {
        return status;
    }
    const std::string* ref = scanned.value("--ref");
    const std::string* dut = scanned.value("--dut");
    const std::string* out_path = scanned.value("--out");
    if (!ref || !dut || !out_path) return report_missing_required(analyze_requires, err);
    opts.ref_path = *ref;
    opts.dut_path = *dut;
    opts.out_path = *out_path;
    if (const std::string* v = scanned.value("--config")) opts.config_path = *v;
    if (const std::string* v = scanned.value("--defaults-cfg")) opts.defaults_cfg_path = *v;
    if (const std::string* v = scanned.value("--snapshots")) opts.snapshots = parse_snapshot_count(*v);
    opts.json = scanned.has("--json");
    opts.deepscan = scanned.has("--deepscan");
    opts.impulse = scanned.has("--impulse");
    opts.ampsweep = scanned.has("--ampsweep");
    opts.freqsweep = scanned.has("--freqsweep");
    opts.bitaccuracy = scanned.has("--bitaccuracy");
    opts.bitexact = scanned.has("--bitexact");
    opts.no_bitexact = scanned.has("--no-bitexact");
    opts.no_distortion = scanned.has("--no-distortion");
    opts.levelfidelity_ref_only = scanned.has("--levelfidelity-ref-only");
    opts.no_loudness = scanned.has("--no-loudness");
    opts.loudness = scanned.has("--loudness");
    opts.artifact_ref_only = scanned.has("--artifact-ref-only");
    opts.quiet = scanned.has("--quiet");
    opts.exit_code = scanned.has("--exit-code");

    if (opts.ampsweep && opts.freqsweep) {
        err << "error: --ampsweep and --freqsweep cannot both be set -- spectral_fidelity.profile is a single "
               "choice, not an independent toggle\n";
        return 1;
    }
    if (opts.bitexact && opts.no_bitexact) {
        err << "error: --bitexact and --no-bitexact cannot both be set -- one asks for strict gating, the other "
               "asks to skip the check entirely\n";
        return 1;
    }
    if (opts.loudness && opts.no_loudness) {
        err << "error: --loudness and --no-loudness cannot both be set -- one asks for strict gating, the other "
               "asks to skip the check entirely\n";
        return 1;
    }
    return std::nullopt;
}

}  // namespace veltrane
