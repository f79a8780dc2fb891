// The table of checks is consistent with itself. (How its switches follow the settings is
// exercised by the command-line tests: --bitexact, --bitaccuracy, the -ref-only flags and
// the --no- flags.)
#include "checks/check_table.h"

#include <gtest/gtest.h>

#include <set>

#include "checks/run_results.h"

namespace veltrane {
namespace {

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
