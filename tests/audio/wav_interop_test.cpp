// Files written by sox and ffmpeg (tests/data/interop, made by
// tools/make_interop_fixtures.sh): the reader must agree with the manifest, the formats
// of one signal must decode to the same values, and integer files must survive a write.
#include <gtest/gtest.h>

#include <cmath>
#include <fstream>
#include <sstream>

#include "audio/wav.h"
#include "support/temp_dir.h"

namespace veltrane::test {
namespace {

const std::string interop_dir = std::string(VELTRANE_TEST_DATA_DIR) + "/interop/";

struct fixture {
    std::string file;
    std::uint32_t rate = 0, channels = 0, format_code = 0;
    std::uint64_t frames = 0;
    bool extensible = false;
    std::uint32_t channel_mask = 0;
    std::size_t extra_bytes = 0;
    std::string expect;
};

std::vector<fixture> load_manifest() {
    std::vector<fixture> out;
    std::ifstream in(interop_dir + "manifest.txt");
    std::string line;
    while (std::getline(in, line)) {
        if (line.empty() || line[0] == '#') continue;
        std::istringstream fields(line);
        fixture f;
        int ext = 0;
        fields >> f.file >> f.rate >> f.channels >> f.format_code >> f.frames >> ext >> f.channel_mask >> f.extra_bytes >>
            f.expect;
        f.extensible = ext != 0;
        if (fields) out.push_back(f);
    }
    return out;
}

wav_audio read_fixture(const std::string& name) {
    wav_audio a;
    EXPECT_TRUE(wav_read(interop_dir + name, a)) << name;
    return a;
}

TEST(WavInterop, FilesMatchTheManifestAndSurviveAWrite) {
    const std::vector<fixture> fixtures = load_manifest();
    ASSERT_EQ(fixtures.size(), 16u);
    temp_dir dir;
    for (const fixture& f : fixtures) {
        SCOPED_TRACE(f.file);
        wav_audio a;
        const bool ok = wav_read(interop_dir + f.file, a);
        EXPECT_EQ(wav_failure_name(wav_last_failure()), f.expect == "ok" ? std::string("none") : f.expect);
        if (!ok) continue;
        EXPECT_EQ(a.sample_rate, f.rate);
        EXPECT_EQ(a.channels, f.channels);
        EXPECT_EQ(a.format_code, f.format_code);
        EXPECT_EQ(a.frame_count, f.frames);
        EXPECT_EQ(a.is_extensible, f.extensible);
        EXPECT_EQ(a.channel_mask, f.channel_mask);
        EXPECT_EQ(a.extra_chunks.size(), f.extra_bytes);

        const std::string copy = dir.file("copy.wav");
        ASSERT_TRUE(wav_write(copy, a.sample_rate, a.channels, a.format_code, a.samples, a.frame_count));
        wav_audio b;
        ASSERT_TRUE(wav_read(copy, b));
        EXPECT_EQ(b.format_code, a.format_code);
        ASSERT_EQ(b.samples.size(), a.samples.size());
        // Only the most negative integer code (below -1.0) may change, to -1.0.
        for (std::size_t i = 0; i < a.samples.size(); ++i) {
            const double want = a.samples[i] < -1.0 ? -1.0 : a.samples[i];
            ASSERT_EQ(b.samples[i], want) << "sample " << i;
        }
    }
}

// The largest difference between two decodings of the same signal.
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

TEST(WavInterop, FormatsOfOneSignalAgree) {
    // sox: two tones at 0.9 of full scale, in four formats.
    const wav_audio f32 = read_fixture("sox_f32_stereo.wav");
    const wav_audio s16 = read_fixture("sox_s16_stereo.wav");
    const wav_audio s24 = read_fixture("sox_s24_stereo_plain.wav");
    const wav_audio s24_ext = read_fixture("sox_s24_stereo_ext.wav");
    EXPECT_NEAR(peak(f32), 0.9, 0.01);
    EXPECT_EQ(s24.samples, s24_ext.samples);
    // sox scales integers by 2^(bits-1) where the reader divides by 2^(bits-1) - 1: at a
    // peak of 0.9 that is 0.9 of a step, plus half a step of rounding.
    EXPECT_LE(max_difference(f32, s16), 1.5 / 32767.0);
    EXPECT_LE(max_difference(f32, s24), 1.5 / 8388607.0);

    // ffmpeg: the same tones at 1/8 of full scale, plain 16-bit and extensible others.
    const wav_audio ff_f32 = read_fixture("ffmpeg_f32_stereo_ext.wav");
    EXPECT_NEAR(peak(ff_f32), 0.125, 0.001);
    EXPECT_LE(max_difference(ff_f32, read_fixture("ffmpeg_s16_stereo.wav")), 1.0 / 32767.0);
    EXPECT_LE(max_difference(ff_f32, read_fixture("ffmpeg_s32_stereo_ext.wav")), 1e-7);
    const wav_audio ff_s24 = read_fixture("ffmpeg_s24_stereo_ext.wav");
    EXPECT_NEAR(peak(ff_s24), 0.125, 0.001);
}

}  // namespace
}  // namespace veltrane::test
