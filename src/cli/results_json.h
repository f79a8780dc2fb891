#pragma once
// The results document of an analyze run: one flat JSON object, one key per reported
// figure, built in a fixed 65536-byte buffer (so at most 65535 bytes with its final
// newline). Embedded in the report page and, with --json, written to its own file.
#include <cstddef>
#include <string>

#include "checks/gating.h"
#include "checks/run_results.h"

namespace veltrane {

inline constexpr std::size_t results_json_buffer_size = 65536;

// Builds the document: header, alignment, length mismatch, then one block per check that
// ran, in the order of the table of checks. False when it does not fit the buffer
// (nothing usable is produced); `failure`, when given, then says which value did not fit
// (json_failure_text).
bool build_results_json(const run_inputs& run, const run_results& results, const gating_summary& verdict,
                        std::string& document, std::string* failure = nullptr);

}  // namespace veltrane
