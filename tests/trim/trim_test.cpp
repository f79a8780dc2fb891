// The trim run's stages without the command line: the search window, the plan built
// from the two searches, the cut written under a temporary name, and the report document.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "support/temp_dir.h"
#include "support/wav_bytes.h"
#include "trim/trim.h"

namespace veltrane {
namespace {

TEST(TrimWindow, CappedToHalfTheFile) {
    struct row {
        double sec;
        std::uint32_t rate;
        std::uint64_t frames;
        std::uint64_t configured, samples;
        bool capped;
    };
    const std::vector<row> rows = {
        {45.0, 48000, 480000, 2160000, 240000, true},     // 10 s file: capped to 5 s
        {45.0, 48000, 4320000, 2160000, 2160000, false},  // exactly half: not capped
        {45.0, 48000, 4319999, 2160000, 2159999, true},   // odd length: half rounds down
        {45.0, 44100, 100000000, 1984500, 1984500, false},
        {0.5, 96000, 1000000, 48000, 48000, false},
        {1e-6, 48000, 1000, 0, 0, false},                 // llround(0.048) = 0
        {0.0, 48000, 1000, 0, 0, false},
        {-3.0, 48000, 1000, 0, 0, false},                 // a negative window searches nothing
        {1e30, 48000, 1000, UINT64_MAX, 500, true},       // beyond any count: capped
        {45.0, 48000, 0, 2160000, 0, true},               // empty file
    };
    for (const row& r : rows) {
        SCOPED_TRACE(r.sec);
        const trim_window w = trim_search_window(r.sec, r.rate, r.frames);
        EXPECT_EQ(w.configured_samples, r.configured);
        EXPECT_EQ(w.samples, r.samples);
        EXPECT_EQ(w.capped, r.capped);
    }
}

wav_audio audio_of(std::uint32_t rate, std::uint32_t channels, std::uint32_t format_code, std::vector<double> s) {
    wav_audio a;
    a.sample_rate = rate;
    a.channels = channels;
    a.format_code = format_code;
    a.frame_count = s.size() / channels;
    a.samples = std::move(s);
    return a;
}

// Mono: `lead` frames of silence, the tone, `gap` frames of noise, the tone, `tail` frames.
wav_audio framed(std::uint64_t lead, std::uint64_t gap, std::uint64_t tail) {
    std::vector<double> tone(sync_template_length(48000));
    synth_sync_template(builtin_sync_spec, 48000, tone);
    std::vector<double> s(lead, 0.0);
    s.insert(s.end(), tone.begin(), tone.end());
    const std::vector<double> n = test::noise(gap, 1, 0.2, 3);
    s.insert(s.end(), n.begin(), n.end());
    s.insert(s.end(), tone.begin(), tone.end());
    s.resize(s.size() + tail, 0.0);
    return audio_of(48000, 1, 16, std::move(s));
}

TEST(TrimPlan, PointsAroundTheProgramme) {
    const wav_audio a = framed(48000, 100000, 30000);
    const trim_plan p = plan_trim(a, trim_search_window(45.0, 48000, a.frame_count), 6.0);
    ASSERT_EQ(p.failure, trim_failure::none);
    EXPECT_TRUE(p.window.capped);
    EXPECT_EQ(p.leading.sample_offset, 48000u);
    EXPECT_EQ(p.trailing.sample_offset, 48000u + 36000 + 100000);
    EXPECT_EQ(p.sync_point, 84000u);
    EXPECT_EQ(p.trim_point, 184000u);
    EXPECT_EQ(p.cut_frames(), 100000u);
}

TEST(TrimPlan, StopsAtTheFirstMissingTone) {
    const wav_audio a = framed(48000, 100000, 30000);
    // A window too short to hold the tone: the leading search fails and the trailing
    // one is never run.
    const trim_plan p = plan_trim(a, trim_search_window(0.5, 48000, a.frame_count), 6.0);
    EXPECT_EQ(p.failure, trim_failure::leading_not_found);
    EXPECT_EQ(p.leading.psr, 0.0);
    EXPECT_EQ(p.trailing.channel, 0);
    EXPECT_EQ(p.trailing.psr, 0.0);
    EXPECT_EQ(p.cut_frames(), 0u);
    // A threshold no match reaches.
    EXPECT_EQ(plan_trim(a, trim_search_window(45.0, 48000, a.frame_count), 1e9).failure,
              trim_failure::leading_not_found);
}

TEST(TrimWrite, CutInTheInputFormatThroughATemporaryFile) {
    test::temp_dir dir;
    std::vector<double> s;
    for (int i = 0; i < 40; ++i) s.push_back(i / 64.0 - 0.3);
    const wav_audio a = audio_of(44100, 2, 24, s);
    const std::string out = dir.file("cut.wav");
    ASSERT_TRUE(write_trimmed_wav(out, a, 5, 15));
    wav_audio back;
    ASSERT_TRUE(wav_read(out, back));
    EXPECT_EQ(back.format_code, 24u);
    EXPECT_EQ(back.frame_count, 10u);
    for (std::size_t i = 0; i < 20; ++i) EXPECT_NEAR(back.samples[i], s[10 + i], 1e-6) << i;
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(dir.path()), {}), 1);

    // Refused cuts and unwritable places leave the earlier file and no temporary behind.
    test::write_bytes(out, {'o', 'l', 'd'});
    EXPECT_FALSE(write_trimmed_wav(out, a, 15, 15));
    EXPECT_FALSE(write_trimmed_wav(out, a, 5, 21));
    EXPECT_FALSE(write_trimmed_wav(dir.file("none/cut.wav"), a, 5, 15));
    std::filesystem::create_directory(dir.file("d"));
    EXPECT_FALSE(write_trimmed_wav(dir.file("d"), a, 5, 15));
    EXPECT_EQ(test::read_bytes(out), (test::bytes{'o', 'l', 'd'}));
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(dir.path()), {}), 2);
    EXPECT_TRUE(std::filesystem::is_empty(dir.file("d")));
}

TEST(TrimReport, FlatDocumentInItsBuffer) {
    trim_plan p;
    p.leading.sample_offset = 48000;
    p.leading.channel = 1;
    p.leading.psr = 123.4567891;
    p.leading.similarity = 0.9999996;
    p.leading.rep_count = 4;
    p.leading.rep_psr = {10.0, 11.0, 12.0, 13.5};
    p.trailing.sample_offset = 1000000;
    p.trailing.psr = 7.0;
    p.trailing.similarity = 0.5;
    p.sync_point = 84000;
    p.trim_point = 1000000;
    std::string doc;
    ASSERT_TRUE(build_trim_report("in \"x\".wav", p, doc));
    EXPECT_EQ(doc,
              "{\n"
              "    \"input_file\": \"in \\\"x\\\".wav\",\n"
              "    \"leading_sample_offset\": 48000,\n"
              "    \"leading_channel\": 1,\n"
              "    \"leading_psr\": 123.456789,\n"
              "    \"leading_similarity\": 1.000000,\n"
              "    \"leading_rep_psr_0\": 10.000000,\n"
              "    \"leading_rep_psr_1\": 11.000000,\n"
              "    \"leading_rep_psr_2\": 12.000000,\n"
              "    \"leading_rep_psr_3\": 13.500000,\n"
              "    \"trailing_sample_offset\": 1000000,\n"
              "    \"trailing_channel\": 0,\n"
              "    \"trailing_psr\": 7.000000,\n"
              "    \"trailing_similarity\": 0.500000,\n"
              "    \"trailing_rep_psr_0\": 0.000000,\n"
              "    \"trailing_rep_psr_1\": 0.000000,\n"
              "    \"trailing_rep_psr_2\": 0.000000,\n"
              "    \"trailing_rep_psr_3\": 0.000000,\n"
              "    \"sync_point\": 84000,\n"
              "    \"trim_point\": 1000000\n"
              "}\n");
    // The input path is the only part of variable length: one that escapes to more than
    // 511 bytes does not fit a string entry (the rest of the document is far below the
    // 2048 bytes of its buffer).
    EXPECT_TRUE(build_trim_report(std::string(511, 'a'), p, doc));
    EXPECT_FALSE(build_trim_report(std::string(510, 'a') + "\"", p, doc));
    EXPECT_TRUE(doc.empty());
}

}  // namespace
}  // namespace veltrane
