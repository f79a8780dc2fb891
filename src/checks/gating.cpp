#include "checks/gating.h"

#include "checks/run_results.h"

namespace veltrane {
namespace {

void append_cut(std::string& text, std::string_view separator, std::string_view item, std::size_t buffer_size) {
    if (!text.empty()) text += separator;
    text += item;
    if (text.size() > buffer_size - 1) text.resize(buffer_size - 1);
}

}  // namespace

void add_gating_failure(gating_summary& summary, std::string_view id, std::string_view display_name) {
    append_cut(summary.failure_ids, ",", id, gating_ids_buffer_size);
    append_cut(summary.failure_names, ", ", display_name, gating_names_buffer_size);
    ++summary.failure_count;
}

bool counts_against_verdict(const check_status& status) { return status.ran && status.gates && !status.passed; }

gating_summary collect_gating_failures(const run_results& results) {
    gating_summary s;
    for (const check_info& row : check_table())
        if (counts_against_verdict(results.of(row.id))) add_gating_failure(s, row.key, row.display_name);
    s.overall_pass = s.failure_count == 0;
    return s;
}

}  // namespace veltrane
