#pragma once
// Everything an analyze run hands to its outputs: the report page, the results document
// and the overall verdict all read this one record, so a check is added to the outputs
// by adding its result here and one block per output.
//
// Checks are listed in run order. A check that did not run keeps a cleared record that
// counts as passed.
#include <string>
#include <string_view>

#include "align/align.h"
#include "audio/wav.h"
#include "checks/bit_compare.h"
#include "checks/gating.h"
#include "config/defaults_file.h"
#include "config/run_config.h"

namespace veltrane {

struct report_inputs {
    std::string ref_path;  // --ref as typed
    std::string dut_path;  // --dut as typed
    const wav_audio* ref_audio = nullptr;
    const wav_audio* dut_audio = nullptr;
    const run_config* config = nullptr;  // resolved settings with their provenance

    align_result align;
    length_mismatch_result length_mismatch;
    double length_mismatch_tolerance_pct = 0.0;  // general.length_mismatch_tolerance_pct

    // Bit-exactness: runs unless disabled; gates only when asked to.
    bool bitexact_ran = false;
    bool bitexact_gates = false;
    std::string bitexact_gating_label;  // provenance of the gating switch
    bit_compare_result bitexact;

    // Bit accuracy: runs only when asked for; never gates.
    bool bitaccuracy_ran = false;
    std::string bitaccuracy_label;  // provenance of the enabling switch
    double bitaccuracy_tolerance_db = 0.0;
    bit_compare_result bitaccuracy;

    // Gating switches of the checks whose results are not part of this record yet.
    bool level_gates = true;
    bool artifact_gates = true;
    bool distortion_ran = false;
    bool loudness_ran = false;
    bool loudness_gates = false;
    bool time_domain_ran = false;
    bool impulse_ran = false;

    std::string results_json;  // the run's results document, embedded in the page
    std::string_view version;
    tester_identity tester;  // footer identity, each item only when enabled and non-empty
};

// The verdict inputs of the run, read off the record.
gating_inputs gating_inputs_from(const report_inputs& in);

}  // namespace veltrane
