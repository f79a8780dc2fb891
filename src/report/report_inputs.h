#pragma once
// What an analyze run hands to its report page: the inputs as given, the run's results
// record, the verdict computed once by the driver, the results document to embed, the
// program version and the tester identity. The page never recomputes the verdict.
#include <string_view>

#include "checks/gating.h"
#include "checks/run_results.h"
#include "config/defaults_file.h"

namespace veltrane {

struct report_inputs {
    const run_inputs* run = nullptr;
    const run_results* results = nullptr;
    const gating_summary* verdict = nullptr;
    std::string_view results_json;  // the run's results document, embedded in the page
    std::string_view version;
    tester_identity tester;  // footer identity, each item only when enabled and non-empty
};

}  // namespace veltrane
