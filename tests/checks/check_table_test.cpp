// How the table of checks turns the run's settings into run and gating switches.
#include "checks/check_table.h"

#include <gtest/gtest.h>

#include <set>

#include "checks/run_results.h"

namespace veltrane {
namespace {

TEST(CheckTable, SwitchesFollowTheSettings) {
    run_config cfg;
    auto set_flag = [&](param_id id, bool value, std::string_view label) {
        resolved_param& p = cfg.params[param_index(id)];
        p.present = true;
        p.boolean = value;
        p.label = label;
    };
    set_flag(param_id::bit_exact_enabled, true, "built-in default");
    set_flag(param_id::bit_exact_gates_overall, true, "--bitexact");
    set_flag(param_id::bit_accuracy_enabled, true, "--bitaccuracy");
    set_flag(param_id::level_fidelity_gates_overall, false, "--levelfidelity-ref-only");
    set_flag(param_id::loudness_enabled, false, "--no-loudness");

    check_status s = resolve_check_switches(check_row(check_id::bitexact), cfg);
    EXPECT_TRUE(s.ran && s.gates);
    EXPECT_EQ(s.gating_label, "--bitexact");
    s = resolve_check_switches(check_row(check_id::bit_accuracy), cfg);
    EXPECT_TRUE(s.ran);
    EXPECT_FALSE(s.gates);  // reported, never gating
    EXPECT_EQ(s.gating_label, "--bitaccuracy");
    s = resolve_check_switches(check_row(check_id::levelfidelity), cfg);
    EXPECT_TRUE(s.ran);
    EXPECT_FALSE(s.gates);
    s = resolve_check_switches(check_row(check_id::spectral), cfg);
    EXPECT_TRUE(s.ran && s.gates);
    EXPECT_FALSE(resolve_check_switches(check_row(check_id::loudness), cfg).ran);
}

TEST(CheckTable, RanksAndAnchorsAreConsistent) {
    std::set<int> run_ranks;
    for (const check_info& row : check_table()) {
        EXPECT_EQ(&check_row(row.id), &row);
        EXPECT_TRUE(run_ranks.insert(row.run_rank).second) << row.key;
        EXPECT_EQ(row.gates == gate_rule::by_switch, row.gating_switch.has_value()) << row.key;
        EXPECT_TRUE(row.json_prefix.starts_with(row.key)) << row.key;
    }
    // Only the two bit checks share a card (and so an anchor and a page rank).
    EXPECT_EQ(check_row(check_id::bitexact).anchor, check_row(check_id::bit_accuracy).anchor);
    EXPECT_EQ(check_row(check_id::bitexact).page_rank, check_row(check_id::bit_accuracy).page_rank);
}

}  // namespace
}  // namespace veltrane
