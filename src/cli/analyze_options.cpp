#include "cli/analyze_options.h"

#include <array>
#include <cstdlib>
#include <ostream>

#include "cli/options.h"

namespace veltrane {
namespace {

// Every flag of analyze (an option without a value) and the field it sets. The option
// list the scanner reads is made from this table and the value options.
struct analyze_flag {
    std::string_view name;
    bool* (*field)(analyze_options&);
};
constexpr analyze_flag analyze_flags[] = {
    {"--json", [](analyze_options& o) { return &o.json; }},
    {"--deepscan", [](analyze_options& o) { return &o.overrides.deepscan; }},
    {"--impulse", [](analyze_options& o) { return &o.overrides.impulse; }},
    {"--ampsweep", [](analyze_options& o) { return &o.overrides.ampsweep; }},
    {"--freqsweep", [](analyze_options& o) { return &o.overrides.freqsweep; }},
    {"--bitaccuracy", [](analyze_options& o) { return &o.overrides.bitaccuracy; }},
    {"--bitexact", [](analyze_options& o) { return &o.overrides.bitexact; }},
    {"--no-bitexact", [](analyze_options& o) { return &o.overrides.no_bitexact; }},
    {"--no-distortion", [](analyze_options& o) { return &o.overrides.no_distortion; }},
    {"--levelfidelity-ref-only", [](analyze_options& o) { return &o.overrides.levelfidelity_ref_only; }},
    {"--no-loudness", [](analyze_options& o) { return &o.overrides.no_loudness; }},
    {"--loudness", [](analyze_options& o) { return &o.overrides.loudness; }},
    {"--artifact-ref-only", [](analyze_options& o) { return &o.overrides.artifact_ref_only; }},
    {"--quiet", [](analyze_options& o) { return &o.quiet; }},
    {"--exit-code", [](analyze_options& o) { return &o.exit_code; }},
};

constexpr std::string_view analyze_value_options[] = {"--ref", "--dut", "--out", "--config", "--defaults-cfg",
                                                      "--snapshots"};

constexpr auto analyze_option_defs = [] {
    std::array<option_def, std::size(analyze_value_options) + std::size(analyze_flags)> defs{};
    std::size_t n = 0;
    for (std::string_view name : analyze_value_options) defs[n++] = {name, true};
    for (const analyze_flag& flag : analyze_flags) defs[n++] = {flag.name, false};
    return defs;
}();

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
    if (const std::string* v = scanned.value("--snapshots")) opts.overrides.snapshots = parse_snapshot_count(*v);
    for (const analyze_flag& flag : analyze_flags) *flag.field(opts) = scanned.has(flag.name);
    const command_line_overrides& cl = opts.overrides;

    if (cl.ampsweep && cl.freqsweep) {
        err << "error: --ampsweep and --freqsweep cannot both be set -- spectral_fidelity.profile is a single "
               "choice, not an independent toggle\n";
        return 1;
    }
    if (cl.bitexact && cl.no_bitexact) {
        err << "error: --bitexact and --no-bitexact cannot both be set -- one asks for strict gating, the other "
               "asks to skip the check entirely\n";
        return 1;
    }
    if (cl.loudness && cl.no_loudness) {
        err << "error: --loudness and --no-loudness cannot both be set -- one asks for strict gating, the other "
               "asks to skip the check entirely\n";
        return 1;
    }
    return std::nullopt;
}

}  // namespace veltrane
