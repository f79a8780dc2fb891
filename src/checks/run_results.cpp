#include "checks/run_results.h"

#include <algorithm>
#include <vector>

namespace veltrane {

check_status resolve_check_switches(const check_info& row, const run_config& cfg) {
    check_status s;
    s.ran = !row.enabled_by || cfg.flag(*row.enabled_by);
    s.gates = row.gates == gate_rule::always || (row.gates == gate_rule::by_switch && cfg.flag(*row.gating_switch));
    if (row.gating_switch)
        s.gating_label = std::string(cfg.label(*row.gating_switch));
    else if (row.enabled_by)
        s.gating_label = std::string(cfg.label(*row.enabled_by));
    return s;
}

void record_length_mismatch(run_results& out, const length_mismatch_result& lm) {
    out.length_mismatch = lm;
    check_status& s = out.of(check_id::length_mismatch);
    s.ran = true;
    s.gates = true;
    s.passed = !lm.failed;
}

void run_checks(const check_context& ctx, run_results& out) {
    std::vector<const check_info*> order;
    for (const check_info& row : check_table())
        if (row.run) order.push_back(&row);
    std::sort(order.begin(), order.end(), [](const check_info* a, const check_info* b) { return a->run_rank < b->run_rank; });
    for (const check_info* row : order) {
        check_status& s = out.of(row->id);
        s = resolve_check_switches(*row, ctx.cfg);
        if (s.ran) s.passed = row->run(ctx, out);
    }
}

}  // namespace veltrane
