// Committed WAV files: the malformed-file corpus (tests/data/wav_corpus, also the fuzzer's
// seeds) must give the reasons its manifest names, and the files written by sox and
// ffmpeg (tests/data/interop) must decode to the manifest's facts, agree with one another
// across formats, and survive a write.
#include <gtest/gtest.h>

#include <cmath>
#include <fstream>
#include <iterator>
#include <sstream>

#include "audio/wav.h"
#include "support/temp_dir.h"
#include "support/wav_bytes.h"

namespace veltrane::test {
namespace {

const std::string data_dir = std::string(VELTRANE_TEST_DATA_DIR) + "/";

// The manifest's lines without comments, split into fields.
std::vector<std::vector<std::string>> manifest(const std::string& path) {
    std::vector<std::vector<std::string>> rows;
    std::ifstream in(path);
    for (std::string line; std::getline(in, line);) {
        if (line.empty() || line[0] == '#') continue;
        std::istringstream fields(line);
        rows.emplace_back(std::istream_iterator<std::string>(fields), std::istream_iterator<std::string>());
    }
    return rows;
}

std::string reason_name(const std::string& expected) { return expected == "ok" ? "none" : expected; }

TEST(WavDataFiles, CorpusFilesGiveTheirManifestReason) {
    const auto rows = manifest(data_dir + "wav_corpus/manifest.txt");
    ASSERT_GE(rows.size(), 35u);
    for (const auto& row : rows) {
        ASSERT_EQ(row.size(), 2u);
        wav_audio audio;
        EXPECT_EQ(wav_failure_name(wav_decode(read_bytes(data_dir + "wav_corpus/" + row[0]), audio).failure),
                  reason_name(row[1]))
            << row[0];
    }
}

TEST(WavDataFiles, InteropFilesMatchTheManifestAndSurviveAWrite) {
    const auto rows = manifest(data_dir + "interop/manifest.txt");
    ASSERT_EQ(rows.size(), 16u);
    temp_dir dir;
    for (const auto& row : rows) {
        ASSERT_EQ(row.size(), 9u);
        SCOPED_TRACE(row[0]);
        wav_audio a;
        const bool ok = wav_read(data_dir + "interop/" + row[0], a);
        EXPECT_EQ(wav_failure_name(wav_last_failure()), reason_name(row[8]));
        if (!ok) continue;
        EXPECT_EQ(std::to_string(a.sample_rate), row[1]);
        EXPECT_EQ(std::to_string(a.channels), row[2]);
        EXPECT_EQ(std::to_string(a.format_code), row[3]);
        EXPECT_EQ(std::to_string(a.frame_count), row[4]);
        EXPECT_EQ(a.is_extensible ? "1" : "0", row[5]);
        EXPECT_EQ(std::to_string(a.channel_mask), row[6]);
        EXPECT_EQ(std::to_string(a.extra_chunks.size()), row[7]);

        // Written and read again, only the most negative integer code (below -1.0) may move.
        ASSERT_TRUE(wav_write(dir.file("copy.wav"), a.sample_rate, a.channels, a.format_code, a.samples, a.frame_count));
        wav_audio b;
        ASSERT_TRUE(wav_read(dir.file("copy.wav"), b));
        for (double& x : a.samples) x = std::max(x, -1.0);
        EXPECT_TRUE(b.samples == a.samples);
    }
}

wav_audio read_interop(const std::string& name) {
    wav_audio a;
    EXPECT_TRUE(wav_read(data_dir + "interop/" + name, a)) << name;
    return a;
}

double max_difference(const wav_audio& a, const wav_audio& b) {
    EXPECT_EQ(a.samples.size(), b.samples.size());
    double worst = 0.0;
    for (std::size_t i = 0; i < std::min(a.samples.size(), b.samples.size()); ++i)
        worst = std::max(worst, std::fabs(a.samples[i] - b.samples[i]));
    return worst;
}

double peak(const wav_audio& a) {
    double p = 0.0;
    for (double x : a.samples) p = std::max(p, std::fabs(x));
    return p;
}

TEST(WavDataFiles, InteropFormatsOfOneSignalAgree) {
    // sox: two tones at 0.9 of full scale. sox scales integers by 2^(bits-1) where the
    // reader divides by 2^(bits-1) - 1: at 0.9 that is 0.9 of a step, plus half a step of
    // rounding.
    const wav_audio f32 = read_interop("sox_f32_stereo.wav");
    EXPECT_NEAR(peak(f32), 0.9, 0.01);
    EXPECT_LE(max_difference(f32, read_interop("sox_s16_stereo.wav")), 1.5 / 32767.0);
    EXPECT_LE(max_difference(f32, read_interop("sox_s24_stereo_plain.wav")), 1.5 / 8388607.0);
    EXPECT_EQ(max_difference(read_interop("sox_s24_stereo_plain.wav"), read_interop("sox_s24_stereo_ext.wav")), 0.0);

    // ffmpeg: the same tones at 1/8 of full scale, plain 16-bit and extensible others.
    const wav_audio ff = read_interop("ffmpeg_f32_stereo_ext.wav");
    EXPECT_NEAR(peak(ff), 0.125, 0.001);
    EXPECT_LE(max_difference(ff, read_interop("ffmpeg_s16_stereo.wav")), 1.0 / 32767.0);
    EXPECT_LE(max_difference(ff, read_interop("ffmpeg_s32_stereo_ext.wav")), 1e-7);
}

}  // namespace
}  // namespace veltrane::test
