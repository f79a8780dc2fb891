// The trim run's stages without the command line: the search window and the report
// document.
#include <gtest/gtest.h>

#include <string>

#include "trim/trim.h"

namespace veltrane {
namespace {

TEST(TrimWindow, CappedToHalfTheFile) {
    struct row {
        double sec;
        std::uint32_t rate;
        std::uint64_t frames, configured, samples;
        bool capped;
    };
    for (const row& r : {
             row{45.0, 48000, 480000, 2160000, 240000, true},     // 10 s file: 5 s
             row{45.0, 48000, 4320000, 2160000, 2160000, false},  // exactly half
             row{45.0, 48000, 4319999, 2160000, 2159999, true},   // half rounds down
             row{0.5, 96000, 1000000, 48000, 48000, false},
             row{1e-6, 48000, 1000, 0, 0, false},                 // llround(0.048) = 0
             row{-3.0, 48000, 1000, 0, 0, false},                 // searches nothing
             row{1e30, 48000, 1000, UINT64_MAX, 500, true},       // beyond any count
             row{45.0, 48000, 0, 2160000, 0, true},               // empty file
         }) {
        const trim_window w = trim_search_window(r.sec, r.rate, r.frames);
        EXPECT_EQ(w.configured_samples, r.configured) << r.sec;
        EXPECT_EQ(w.samples, r.samples) << r.sec;
        EXPECT_EQ(w.capped, r.capped) << r.sec;
    }
}

TEST(TrimReport, FlatDocumentInItsBuffer) {
    trim_plan p;
    p.leading = {true, 48000, 1, 123.4567891, 0.9999996, 4, {10.0, 11.0, 12.0, 13.5}};
    p.trailing = {true, 1000000, 0, 7.0, 0.5, 0, {}};
    p.sync_point = 84000;
    p.trim_point = 1000000;
    std::string doc;
    ASSERT_TRUE(build_trim_report("in \"x\".wav", p, doc));
    EXPECT_EQ(doc,
              "{\n    \"input_file\": \"in \\\"x\\\".wav\",\n    \"leading_sample_offset\": 48000,\n"
              "    \"leading_channel\": 1,\n    \"leading_psr\": 123.456789,\n    \"leading_similarity\": 1.000000,\n"
              "    \"leading_rep_psr_0\": 10.000000,\n    \"leading_rep_psr_1\": 11.000000,\n"
              "    \"leading_rep_psr_2\": 12.000000,\n    \"leading_rep_psr_3\": 13.500000,\n"
              "    \"trailing_sample_offset\": 1000000,\n    \"trailing_channel\": 0,\n"
              "    \"trailing_psr\": 7.000000,\n"
              "    \"trailing_similarity\": 0.500000,\n    \"trailing_rep_psr_0\": 0.000000,\n"
              "    \"trailing_rep_psr_1\": 0.000000,\n    \"trailing_rep_psr_2\": 0.000000,\n"
              "    \"trailing_rep_psr_3\": 0.000000,\n    \"sync_point\": 84000,\n    \"trim_point\": 1000000\n}\n");
    // The input path is the only part of variable length; one that escapes to more than
    // 511 bytes does not fit a string entry.
    EXPECT_TRUE(build_trim_report(std::string(511, 'a'), p, doc));
    EXPECT_FALSE(build_trim_report(std::string(510, 'a') + "\"", p, doc));
    EXPECT_TRUE(doc.empty());
}

}  // namespace
}  // namespace veltrane
