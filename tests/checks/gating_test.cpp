#include "checks/gating.h"

#include <gtest/gtest.h>

#include "checks/run_results.h"

namespace veltrane {
namespace {

// A record in which the named checks ran with the given gating and verdict.
struct outcome {
    check_id id;
    bool gates;
    bool passed;
};
run_results record(std::initializer_list<outcome> outcomes) {
    run_results r;
    for (const outcome& o : outcomes) r.of(o.id) = {true, o.gates, o.passed, ""};
    return r;
}

TEST(Gating, OnlyChecksThatRanGateAndFailedCount) {
    EXPECT_TRUE(collect_gating_failures(run_results{}).overall_pass);
    // Ran and failed without gating (bit-exactness by default, loudness reference-only,
    // bit accuracy always), or did not run at all: the verdict stays PASS.
    run_results r = record({{check_id::bitexact, false, false},
                            {check_id::loudness, false, false},
                            {check_id::bit_accuracy, false, false}});
    r.of(check_id::distortion).passed = false;  // not run
    gating_summary s = collect_gating_failures(r);
    EXPECT_TRUE(s.overall_pass);
    EXPECT_EQ(s.failure_count, 0u);
    EXPECT_EQ(s.failure_ids, "");
    r.of(check_id::loudness).gates = true;
    s = collect_gating_failures(r);
    EXPECT_FALSE(s.overall_pass);
    EXPECT_EQ(s.failure_ids, "loudness");
    EXPECT_EQ(s.failure_names, "Loudness");
}

TEST(Gating, ListsEveryFailureInFixedOrder) {
    run_results r;
    for (const check_info& row : check_table()) r.of(row.id) = {true, true, false, ""};
    gating_summary s = collect_gating_failures(r);
    EXPECT_EQ(s.failure_count, 10u);  // every row, bit accuracy included once it gates
    r.of(check_id::bit_accuracy).gates = false;
    s = collect_gating_failures(r);
    EXPECT_EQ(s.failure_count, 9u);
    EXPECT_EQ(s.failure_ids,
              "length_mismatch,bitexact,levelfidelity,artifact,spectral,distortion,loudness,time_domain,"
              "impulse_template");
    EXPECT_EQ(s.failure_names,
              "Length Mismatch, Bit-Exactness, Level Fidelity, Artifact Detection, Spectral Fidelity, Distortion, "
              "Loudness, Time Domain, Impulse Template");

    s = collect_gating_failures(record({{check_id::spectral, true, false}, {check_id::length_mismatch, true, false}}));
    EXPECT_EQ(s.failure_ids, "length_mismatch,spectral");
    EXPECT_EQ(s.failure_names, "Length Mismatch, Spectral Fidelity");
}

TEST(Gating, ListsAreCutToTheirBuffers) {
    gating_summary s;
    for (int i = 0; i < 40; ++i) add_gating_failure(s, "impulse_template", "Impulse Template");
    EXPECT_EQ(s.failure_count, 40u);
    EXPECT_EQ(s.failure_ids.size(), gating_ids_buffer_size - 1);
    EXPECT_EQ(s.failure_names.size(), gating_names_buffer_size - 1);
}

}  // namespace
}  // namespace veltrane
