// The Signal Overview card: which failed checks leave a marker, in which order and where,
// and that only channel 0 carries them.
#include "report/overview_card.h"

#include <gtest/gtest.h>

#include <string>

#include "support/audio_pair.h"

namespace veltrane {
namespace {

void fail(run_results& r, check_id id) { r.of(id) = {true, true, false, ""}; }

TEST(OverviewCard, MarkersOfFailedChecksInTheirOrder) {
    run_results r;
    EXPECT_TRUE(overview_markers(r).empty());
    fail(r, check_id::distortion);
    r.distortion.channel_count = 1;
    r.distortion.channels[0].worst_frame_start = 4096;
    fail(r, check_id::artifact);
    r.artifact.channels[0].event_count = 2;
    r.artifact.channels[0].worst_event_start_frame = 777;
    fail(r, check_id::bitexact);
    r.bitexact.samples_differing = 1;
    r.bitexact.worst_diff_frame = 12;
    fail(r, check_id::levelfidelity);  // no included samples: no spot to mark
    fail(r, check_id::spectral);       // snapshots, none failed on channel 0: no spot
    r.spectral.snapshot_mode = true;
    r.spectral.snapshots.channel_count = 2;
    r.spectral.snapshots.snapshot_count = 3;
    r.spectral.snapshots.snapshots[1][0].frame.pass = false;
    std::vector<marker> m = overview_markers(r);
    ASSERT_EQ(m.size(), 3u);
    EXPECT_STREQ(m[0].label, "Bit-Exact");
    EXPECT_EQ(m[0].frame, 12);
    EXPECT_STREQ(m[1].label, "Artifact");
    EXPECT_EQ(m[1].frame, 777);
    EXPECT_STREQ(m[2].label, "Distortion");
    EXPECT_EQ(m[2].frame, 4096);

    r.spectral.snapshots.snapshots[0][2].frame.pass = false;
    r.spectral.snapshots.snapshots[0][2].frame.worst_frame_start = 96000;
    r.of(check_id::distortion).ran = false;  // a check that did not run never marks
    m = overview_markers(r);
    ASSERT_EQ(m.size(), 3u);
    EXPECT_STREQ(m[2].label, "Spectral");
    EXPECT_EQ(m[2].frame, 96000);
}

TEST(OverviewCard, StereoMarksTheLeftChannelOnly) {
    const wav_audio a = test::audio_from(std::vector<double>(9600, 0.25), 2);
    run_inputs run;
    run.ref = &a;
    run.dut = &a;
    run_results r;
    fail(r, check_id::bitexact);
    r.bitexact.samples_differing = 1;
    r.bitexact.worst_diff_frame = 2400;
    report_inputs in;
    in.run = &run;
    in.results = &r;
    text_buf buf;
    ASSERT_TRUE(append_overview_card(buf, in));
    const std::string card(text_buf_view(buf));
    const std::size_t left = card.find("id=\"vt-envelope-data-overview-ch0\"");
    const std::size_t right = card.find("id=\"vt-envelope-data-overview-ch1\"");
    ASSERT_NE(left, std::string::npos);
    ASSERT_NE(right, std::string::npos);
    EXPECT_NE(card.substr(left, right - left).find("\"markers\":[{\"label\":\"Bit-Exact\",\"frac\":0.500000}]"),
              std::string::npos);
    EXPECT_NE(card.substr(right).find("\"markers\":[]"), std::string::npos);
    EXPECT_NE(card.find("<h4 class=\"channel-gallery-heading\">Right Channel</h4>"), std::string::npos);
}

}  // namespace
}  // namespace veltrane
