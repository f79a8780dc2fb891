// WAV writer: header layouts, integer clamping and rounding, float pass-through, refused
// arguments, and the read -> write round trip.
#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <limits>
#include <random>

#include "audio/wav.h"
#include "support/temp_dir.h"
#include "support/wav_bytes.h"

namespace veltrane::test {
namespace {

std::uint32_t u32_at(const bytes& b, std::size_t at) {
    return b[at] | (b[at + 1] << 8) | (b[at + 2] << 16) | (static_cast<std::uint32_t>(b[at + 3]) << 24);
}

// Integer codes the writer produces for `values`.
std::vector<std::int64_t> written_codes(std::uint32_t bits, std::vector<double> values) {
    bytes out;
    encode_pcm_samples(bits, values, out);
    std::vector<std::int64_t> result;
    const std::uint32_t n = bits / 8;
    for (std::size_t i = 0; i + n <= out.size(); i += n) {
        std::uint64_t u = 0;
        for (std::uint32_t k = 0; k < n; ++k) u |= static_cast<std::uint64_t>(out[i + k]) << (8 * k);
        const std::uint64_t sign = std::uint64_t{1} << (bits - 1);
        result.push_back(static_cast<std::int64_t>(u ^ sign) - static_cast<std::int64_t>(sign));
    }
    return result;
}

TEST(WavWriter, IntegerHeaderLayout) {
    temp_dir dir;
    std::vector<double> samples(2000, 0.25);
    ASSERT_TRUE(wav_write(dir.file("a.wav"), 44100, 2, 16, samples, 1000));
    bytes b = read_bytes(dir.file("a.wav"));
    ASSERT_EQ(b.size(), 4044u);
    bytes header = {'R', 'I', 'F', 'F'};
    put_u32(header, 4036);
    header.insert(header.end(), {'W', 'A', 'V', 'E', 'f', 'm', 't', ' '});
    put_u32(header, 16);
    put_u16(header, 1);
    put_u16(header, 2);
    put_u32(header, 44100);
    put_u32(header, 44100 * 4);
    put_u16(header, 4);
    put_u16(header, 16);
    header.insert(header.end(), {'d', 'a', 't', 'a'});
    put_u32(header, 4000);
    EXPECT_EQ(bytes(b.begin(), b.begin() + 44), header);
    EXPECT_EQ(b[44] | (b[45] << 8), 8192);  // 0.25 * 32767 = 8191.75

    ASSERT_TRUE(wav_write(dir.file("b.wav"), 96000, 1, 24, {}, 0));
    b = read_bytes(dir.file("b.wav"));
    ASSERT_EQ(b.size(), 44u);
    EXPECT_EQ(u32_at(b, 4), 36u);
    EXPECT_EQ(u32_at(b, 28), 96000u * 3);
    EXPECT_EQ(b[32], 3);
    EXPECT_EQ(b[34], 24);
}

TEST(WavWriter, FloatHeaderLayoutAndValues) {
    temp_dir dir;
    std::vector<double> samples(10, 1.5);
    samples[1] = 0.1;
    ASSERT_TRUE(wav_write(dir.file("f.wav"), 48000, 1, 288, samples, 10));
    bytes b = read_bytes(dir.file("f.wav"));
    ASSERT_EQ(b.size(), 98u);
    bytes header = {'R', 'I', 'F', 'F'};
    put_u32(header, 90);
    header.insert(header.end(), {'W', 'A', 'V', 'E', 'f', 'm', 't', ' '});
    put_u32(header, 18);
    put_u16(header, 3);
    put_u16(header, 1);
    put_u32(header, 48000);
    put_u32(header, 48000 * 4);
    put_u16(header, 4);
    put_u16(header, 32);
    put_u16(header, 0);
    header.insert(header.end(), {'f', 'a', 'c', 't'});
    put_u32(header, 4);
    put_u32(header, 10);
    header.insert(header.end(), {'d', 'a', 't', 'a'});
    put_u32(header, 40);
    EXPECT_EQ(bytes(b.begin(), b.begin() + 58), header);
    float first, second;
    std::memcpy(&first, &b[58], 4);
    std::memcpy(&second, &b[62], 4);
    EXPECT_EQ(first, 1.5f);  // not clamped
    EXPECT_EQ(second, 0.1f);  // rounded to the nearest float

    // 64-bit floats are stored bit for bit.
    const std::vector<double> exact = {0.1, -7.25, std::numeric_limits<double>::denorm_min()};
    ASSERT_TRUE(wav_write(dir.file("d.wav"), 8000, 3, 320, exact, 1));
    b = read_bytes(dir.file("d.wav"));
    ASSERT_EQ(b.size(), 58u + 24u);
    EXPECT_EQ(u32_at(b, 46), 1u);
    EXPECT_EQ(u32_at(b, 54), 24u);
    EXPECT_EQ(std::memcmp(&b[58], exact.data(), 24), 0);
}

TEST(WavWriter, IntegerClampingAndRounding) {
    EXPECT_EQ(written_codes(16, {1.5, -1.5, 0.5, -0.5, 1.0, -1.0, 0.0, -0.0}),
              (std::vector<std::int64_t>{32767, -32767, 16384, -16384, 32767, -32767, 0, 0}));
    // Just below one half rounds down; exactly one half rounds away from zero.
    EXPECT_EQ(written_codes(16, {0.4999 / 32767.0, -0.4999 / 32767.0, 1.5 / 32767.0, -2.5 / 32767.0}),
              (std::vector<std::int64_t>{0, 0, 2, -3}));
    EXPECT_EQ(written_codes(24, {1.0, -1.0, 0.5, -8388608 / 8388607.0}),
              (std::vector<std::int64_t>{8388607, -8388607, 4194304, -8388607}));
    EXPECT_EQ(written_codes(32, {1.0, -1.0, 1e9, -0.5}),
              (std::vector<std::int64_t>{INT32_MAX, -INT32_MAX, INT32_MAX, -1073741824}));
    EXPECT_EQ(written_codes(16, {std::numeric_limits<double>::quiet_NaN(), std::numeric_limits<double>::infinity()}),
              (std::vector<std::int64_t>{0, 32767}));

    bytes out;
    encode_pcm_samples(24, std::vector<double>{-1.0}, out);
    EXPECT_EQ(out, (bytes{0x01, 0x00, 0x80}));
    encode_pcm_samples(20, std::vector<double>{0.5}, out);  // unsupported width appends nothing
    EXPECT_EQ(out.size(), 3u);
}

TEST(WavWriter, RefusesBadArgumentsBeforeCreatingTheFile) {
    temp_dir dir;
    const std::string path = dir.file("x.wav");
    const std::vector<double> s = {0.0, 0.0};
    for (std::uint32_t code : {8u, 20u, 0u, 64u, 256u, 272u, 280u}) {
        EXPECT_FALSE(wav_write(path, 48000, 1, code, s, 2)) << code;
    }
    EXPECT_FALSE(wav_write(path, 0, 1, 16, s, 2));
    EXPECT_FALSE(wav_write(path, 48000, 0, 16, s, 2));
    EXPECT_FALSE(wav_write(path, 48000, 1, 16, s, 3));  // more frames than samples
    EXPECT_FALSE(std::filesystem::exists(path));
    EXPECT_FALSE(wav_write("", 48000, 1, 16, s, 2));
    EXPECT_FALSE(wav_write(dir.file("no/such/dir.wav"), 48000, 1, 16, s, 2));

    EXPECT_TRUE(write_pcm_samples(nullptr, 16, {}) == false);
    std::FILE* f = std::fopen(path.c_str(), "wb");
    ASSERT_NE(f, nullptr);
    EXPECT_TRUE(write_pcm_samples(f, 16, {}));
    EXPECT_FALSE(write_pcm_samples(f, 8, s));
    std::fclose(f);
    EXPECT_TRUE(read_bytes(path).empty());
}

// Every 16-bit code, and spread-out 24/32-bit codes, survive a read and a write
// unchanged except the most negative, which comes back one step higher.
TEST(WavRoundTrip, IntegerFilesAreByteIdenticalApartFromTheMostNegativeCode) {
    temp_dir dir;
    std::mt19937 gen(7);
    for (std::uint32_t bits : {16u, 24u, 32u}) {
        for (std::uint16_t channels : {1, 2}) {
            const std::int64_t lo = -(std::int64_t{1} << (bits - 1));
            const std::int64_t hi = -lo - 1;
            std::vector<std::int64_t> values = {lo, lo + 1, -1, 0, 1, hi - 1, hi};
            if (bits == 16) {
                for (std::int64_t v = lo; v <= hi; ++v) values.push_back(v);
            } else {
                std::uniform_int_distribution<std::int64_t> dist(lo, hi);
                for (int i = 0; i < 70000; ++i) values.push_back(dist(gen));
            }
            if (values.size() % 2) values.push_back(0);  // whole frames, and no pad byte after 24-bit data
            bytes data;
            for (std::int64_t v : values)
                for (std::uint32_t k = 0; k < bits / 8; ++k)
                    data.push_back(static_cast<std::uint8_t>(static_cast<std::uint64_t>(v) >> (8 * k)));
            const bytes original = riff({{"fmt ", fmt_body(1, channels, 48000, static_cast<std::uint16_t>(bits))},
                                         {"data", data}});

            wav_audio audio;
            ASSERT_TRUE(wav_decode(original, audio).ok());
            const std::string path = dir.file("rt.wav");
            ASSERT_TRUE(wav_write(path, audio.sample_rate, audio.channels, audio.format_code, audio.samples,
                                  audio.frame_count));
            bytes expected = original;
            for (std::size_t i = 0; i < values.size(); ++i) {
                if (values[i] != lo) continue;
                expected[44 + i * (bits / 8)] = 0x01;  // lo + 1: lowest byte 01, the rest as lo
            }
            EXPECT_TRUE(read_bytes(path) == expected) << bits << "-bit, " << channels << " channel(s)";
        }
    }
}

}  // namespace
}  // namespace veltrane::test
