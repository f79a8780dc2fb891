#pragma once
// One record of an analyze run's outcome: the alignment, the length-mismatch figures and,
// per check of the table of checks, whether it ran, whether it gates the verdict (with the
// provenance label of that switch), whether it passed, and its own result record. The
// driver fills it; the verdict, the results document and the report page read it. It
// holds no output text.
//
// Adding a check: its unit in src/checks/, one row in the table of checks (check_table.cpp,
// with the step that runs it), one result field below, one block in the results document
// (cli/results_json.cpp) and one card (report/).
#include <array>
#include <cstdint>
#include <string>

#include "align/align.h"
#include "audio/wav.h"
#include "checks/artifacts.h"
#include "checks/bit_compare.h"
#include "checks/check_table.h"
#include "checks/distortion.h"
#include "checks/impulse_template.h"
#include "checks/level_fidelity.h"
#include "checks/loudness.h"
#include "checks/spectral_scan.h"
#include "checks/time_domain.h"
#include "config/run_config.h"

namespace veltrane {

// What every check reads: both inputs, the alignment's file offset (DUT frame = reference
// frame + offset) and the run's resolved settings.
struct check_context {
    const wav_audio& ref;
    const wav_audio& dut;
    std::int64_t offset_frames;
    const run_config& cfg;
};

// The inputs of a run as the outputs describe them.
struct run_inputs {
    std::string ref_path;  // --ref as typed
    std::string dut_path;  // --dut as typed
    const wav_audio* ref = nullptr;
    const wav_audio* dut = nullptr;
    const run_config* config = nullptr;  // resolved settings with their provenance
};

struct check_status {
    bool ran = false;
    bool gates = false;   // a failure counts against the overall verdict
    bool passed = true;   // a check that did not run counts as passed
    std::string gating_label;  // provenance of its gating switch, else of its enabling switch
};

struct run_results {
    align_result align;
    length_mismatch_result length_mismatch;
    std::array<check_status, check_count> status{};

    // Result records, one per check; cleared (passed) when the check did not run.
    bit_compare_result bitexact;
    bit_compare_result bit_accuracy;
    level_fidelity_result level;
    artifact_result artifact;
    spectral_check_result spectral;
    distortion_result distortion;
    loudness_result loudness;
    time_domain_result time_domain;
    impulse_template_result impulse_template;

    const check_status& of(check_id id) const { return status[static_cast<std::size_t>(id)]; }
    check_status& of(check_id id) { return status[static_cast<std::size_t>(id)]; }
};

// Whether the check runs and gates under these settings, with the label the report shows.
check_status resolve_check_switches(const check_info& row, const run_config& cfg);

// Records the length-mismatch figures (computed before the checks, since the overlap feeds
// the settings) and its status.
void record_length_mismatch(run_results& out, const length_mismatch_result& lm);

// Runs every check of the table that is enabled, in run order, recording each status.
void run_checks(const check_context& ctx, run_results& out);

}  // namespace veltrane
