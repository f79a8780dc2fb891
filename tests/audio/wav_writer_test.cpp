// WAV writer: header layouts, integer clamping and rounding, refused arguments, and the
// read -> write round trip of integer files.
#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <limits>
#include <random>

#include "audio/wav.h"
#include "support/temp_dir.h"
#include "support/wav_bytes.h"

namespace veltrane::test {
namespace {

TEST(WavWriter, CanonicalFileLayouts) {
    temp_dir dir;
    // 16-bit stereo, 1000 frames: 44-byte header, RIFF size 4036, data size 4000.
    const std::vector<double> stereo = sine(1000, 2, 440.0, 44100.0, 0.5);
    ASSERT_TRUE(wav_write(dir.file("i.wav"), 44100, 2, 16, stereo, 1000));
    const bytes written = read_bytes(dir.file("i.wav"));
    EXPECT_EQ(written.size(), 4044u);
    EXPECT_EQ(written, wav_file(44100, 2, 16, stereo));

    // 32-bit float mono, 10 frames: 18-byte "fmt " chunk, "fact" chunk, 98 bytes in all.
    // Floats are not clamped.
    std::vector<double> mono(10, 1.5);
    mono[1] = 0.1;
    ASSERT_TRUE(wav_write(dir.file("f.wav"), 48000, 1, 288, mono, 10));
    bytes fmt = fmt_body(3, 1, 48000, 32), fact;
    put_u16(fmt, 0);
    put_u32(fact, 10);
    const bytes expected = riff({{"fmt ", fmt}, {"fact", fact}, {"data", encode_samples(288, mono)}});
    EXPECT_EQ(expected.size(), 98u);
    EXPECT_EQ(read_bytes(dir.file("f.wav")), expected);

    // 64-bit floats bit for bit; zero frames give a header only.
    const std::vector<double> exact = {0.1, -7.25, std::numeric_limits<double>::denorm_min()};
    ASSERT_TRUE(wav_write(dir.file("d.wav"), 8000, 3, 320, exact, 1));
    const bytes d = read_bytes(dir.file("d.wav"));
    ASSERT_EQ(d.size(), 58u + 24u);
    EXPECT_EQ(bytes(d.begin() + 58, d.end()), encode_samples(320, exact));
    ASSERT_TRUE(wav_write(dir.file("z.wav"), 96000, 1, 24, {}, 0));
    EXPECT_EQ(read_bytes(dir.file("z.wav")), wav_file(96000, 1, 24, {}));
}

// Integer codes the writer produces for `values`, sign-extended.
std::vector<std::int64_t> written_codes(std::uint32_t bits, std::vector<double> values) {
    bytes out;
    encode_pcm_samples(bits, values, out);
    std::vector<std::int64_t> result;
    for (std::size_t i = 0; i + bits / 8 <= out.size(); i += bits / 8) {
        std::uint64_t u = 0;
        for (std::uint32_t k = 0; k < bits / 8; ++k) u |= static_cast<std::uint64_t>(out[i + k]) << (8 * k);
        const std::uint64_t sign = std::uint64_t{1} << (bits - 1);
        result.push_back(static_cast<std::int64_t>(u ^ sign) - static_cast<std::int64_t>(sign));
    }
    return result;
}

TEST(WavWriter, IntegerClampingAndRounding) {
    EXPECT_EQ(written_codes(16, {1.5, -1.5, 0.5, -0.5, 0.4999 / 32767, -2.5 / 32767, std::nan("")}),
              (std::vector<std::int64_t>{32767, -32767, 16384, -16384, 0, -3, 0}));
    EXPECT_EQ(written_codes(24, {1.0, -1.0, 0.5, -8388608 / 8388607.0}),
              (std::vector<std::int64_t>{8388607, -8388607, 4194304, -8388607}));
    EXPECT_EQ(written_codes(32, {1e9, -1.0, -0.5}), (std::vector<std::int64_t>{INT32_MAX, -INT32_MAX, -1073741824}));
    bytes out;
    encode_pcm_samples(24, std::vector<double>{-1.0}, out);
    EXPECT_EQ(out, (bytes{0x01, 0x00, 0x80}));
}

TEST(WavWriter, RefusesBadArgumentsBeforeCreatingTheFile) {
    temp_dir dir;
    const std::string path = dir.file("x.wav");
    const std::vector<double> s = {0.0, 0.0};
    for (std::uint32_t code : {8u, 20u, 0u, 64u, 256u, 280u}) EXPECT_FALSE(wav_write(path, 48000, 1, code, s, 2)) << code;
    EXPECT_FALSE(wav_write(path, 0, 1, 16, s, 2));
    EXPECT_FALSE(wav_write(path, 48000, 0, 16, s, 2));
    EXPECT_FALSE(wav_write(path, 48000, 1, 16, s, 3));  // more frames than samples
    EXPECT_FALSE(std::filesystem::exists(path));
    EXPECT_FALSE(wav_write("", 48000, 1, 16, s, 2));
    EXPECT_FALSE(wav_write(dir.file("no/such/dir.wav"), 48000, 1, 16, s, 2));
}

// Every 16-bit code, and random 24/32-bit codes, survive a read and a write unchanged
// except the most negative, which comes back one step higher.
TEST(WavRoundTrip, IntegerFilesAreByteIdenticalApartFromTheMostNegativeCode) {
    temp_dir dir;
    std::mt19937 gen(7);
    for (std::uint32_t bits : {16u, 24u, 32u}) {
        for (std::uint16_t channels : {1, 2}) {
            const std::int64_t lo = -(std::int64_t{1} << (bits - 1)), hi = -lo - 1;
            std::vector<std::int64_t> values = {lo, lo + 1, -1, 0, 1, hi};
            std::uniform_int_distribution<std::int64_t> dist(lo, hi);
            for (std::int64_t i = lo; i <= hi && values.size() < 70000; ++i) values.push_back(bits == 16 ? i : dist(gen));
            bytes data;
            for (std::int64_t v : values)
                for (std::uint32_t k = 0; k < bits / 8; ++k) data.push_back(static_cast<std::uint8_t>(v >> (8 * k)));
            const auto depth = static_cast<std::uint16_t>(bits);
            const bytes original = riff({{"fmt ", fmt_body(1, channels, 48000, depth)}, {"data", data}});
            wav_audio a;
            ASSERT_TRUE(wav_decode(original, a).ok());
            ASSERT_TRUE(wav_write(dir.file("rt.wav"), a.sample_rate, a.channels, a.format_code, a.samples, a.frame_count));
            bytes expected = original;
            for (std::size_t i = 0; i < values.size(); ++i)
                if (values[i] == lo) expected[44 + i * (bits / 8)] = 0x01;  // lo + 1 differs in the lowest byte
            EXPECT_TRUE(read_bytes(dir.file("rt.wav")) == expected) << bits << "-bit, " << channels << " channel(s)";
        }
    }
}

}  // namespace
}  // namespace veltrane::test
