#pragma once
// The overall verdict: which checks failed while gating it. A check that did not run
// counts as passed; a check whose gate rule is "never" (bit accuracy) is reported but never
// counts. Failures are listed in the order of the table of checks.
#include <array>
#include <cstdint>
#include <string>

#include "checks/check_table.h"

namespace veltrane {

struct check_status;
struct run_results;

// Texts are kept within their fixed buffers: ids in 192 bytes, names in 320 bytes
// (at most 191 and 319 characters; what does not fit is cut).
inline constexpr std::size_t gating_ids_buffer_size = 192;
inline constexpr std::size_t gating_names_buffer_size = 320;

struct gating_summary {
    bool overall_pass = true;
    std::uint32_t failure_count = 0;
    std::string failure_ids;    // e.g. "length_mismatch,spectral"
    std::string failure_names;  // e.g. "Length Mismatch, Spectral Fidelity"
};

void add_gating_failure(gating_summary& summary, std::string_view id, std::string_view display_name);

// Whether a check's failure counts against the overall verdict: it ran, gates and failed.
// The verdict and the report's navigation marks both use it, so they agree.
bool counts_against_verdict(const check_status& status);

// The verdict of a run, computed once by the driver and handed to its outputs.
gating_summary collect_gating_failures(const run_results& results);

}  // namespace veltrane
