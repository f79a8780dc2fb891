#include "checks/gating.h"

#include <gtest/gtest.h>

namespace veltrane {
namespace {

TEST(Gating, DefaultsPass) {
    gating_summary s = collect_gating_failures(gating_inputs{});
    EXPECT_TRUE(s.overall_pass);
    EXPECT_EQ(s.failure_count, 0u);
    EXPECT_EQ(s.failure_ids, "");
    EXPECT_EQ(s.failure_names, "");
}

TEST(Gating, NonGatingAndSkippedChecksNeverFail) {
    gating_inputs in;
    in.bitexact_ran = true;  // ran and failed, but does not gate
    in.bitexact_passed = false;
    in.level_gates = false;
    in.level_passed = false;
    in.artifact_gates = false;
    in.artifact_passed = false;
    in.loudness_ran = true;  // reference only by default
    in.loudness_passed = false;
    in.distortion_passed = false;  // did not run
    in.time_domain_passed = false;
    in.impulse_template_passed = false;
    EXPECT_TRUE(collect_gating_failures(in).overall_pass);
    in.loudness_gates = true;
    gating_summary s = collect_gating_failures(in);
    EXPECT_FALSE(s.overall_pass);
    EXPECT_EQ(s.failure_ids, "loudness");
    EXPECT_EQ(s.failure_names, "Loudness");
}

TEST(Gating, ListsEveryFailureInFixedOrder) {
    gating_inputs in;
    in.length_mismatch_failed = true;
    in.bitexact_ran = in.bitexact_gates = true;
    in.bitexact_passed = false;
    in.level_passed = in.artifact_passed = in.spectral_passed = false;
    in.distortion_ran = true;
    in.distortion_passed = false;
    in.loudness_ran = in.loudness_gates = true;
    in.loudness_passed = false;
    in.time_domain_ran = true;
    in.time_domain_passed = false;
    in.impulse_template_ran = true;
    in.impulse_template_passed = false;
    gating_summary s = collect_gating_failures(in);
    EXPECT_EQ(s.failure_count, 9u);
    EXPECT_EQ(s.failure_ids,
              "length_mismatch,bitexact,levelfidelity,artifact,spectral,distortion,loudness,time_domain,"
              "impulse_template");
    EXPECT_EQ(s.failure_names,
              "Length Mismatch, Bit-Exactness, Level Fidelity, Artifact Detection, Spectral Fidelity, Distortion, "
              "Loudness, Time Domain, Impulse Template");
}

TEST(Gating, LengthAndSpectralTogether) {
    gating_inputs in;
    in.length_mismatch_failed = true;
    in.spectral_passed = false;
    gating_summary s = collect_gating_failures(in);
    EXPECT_EQ(s.failure_ids, "length_mismatch,spectral");
    EXPECT_EQ(s.failure_names, "Length Mismatch, Spectral Fidelity");
}

}  // namespace
}  // namespace veltrane
