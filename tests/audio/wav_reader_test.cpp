// WAV reader: chunk walk, format validation, sample conversion and the failure reasons,
// on files built byte by byte.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>

#include "audio/wav.h"
#include "support/temp_dir.h"
#include "support/wav_bytes.h"

namespace veltrane::test {
namespace {

constexpr const char* generic_text = "not a supported 16/24/32-bit integer or 32/64-bit float PCM WAV file";

// Little-endian integer codes of `bits` bits.
bytes codes(std::uint32_t bits, std::initializer_list<std::int64_t> values) {
    bytes out;
    for (std::int64_t v : values)
        for (std::uint32_t i = 0; i < bits / 8; ++i) out.push_back(static_cast<std::uint8_t>(static_cast<std::uint64_t>(v) >> (8 * i)));
    return out;
}

bytes floats(std::initializer_list<float> values) {
    bytes out;
    for (float f : values) {
        std::uint32_t u;
        std::memcpy(&u, &f, 4);
        put_u32(out, u);
    }
    return out;
}

struct decoded {
    wav_decode_result result;
    wav_audio audio;
};

decoded decode(const bytes& file) {
    decoded d;
    d.result = wav_decode(file, d.audio);
    return d;
}

wav_failure failure_of(const bytes& file) { return decode(file).result.failure; }

void expect_empty(const wav_audio& a) {
    EXPECT_EQ(a.sample_rate, 0u);
    EXPECT_EQ(a.channels, 0u);
    EXPECT_EQ(a.format_code, 0u);
    EXPECT_FALSE(a.is_extensible);
    EXPECT_EQ(a.channel_mask, 0u);
    EXPECT_TRUE(a.samples.empty());
    EXPECT_EQ(a.frame_count, 0u);
    EXPECT_TRUE(a.extra_chunks.empty());
}

TEST(WavReader, ConvertsEachFormatInFileOrder) {
    // Stereo 16-bit: channel 0 first in each frame.
    decoded d = decode(riff({{"fmt ", fmt_body(1, 2, 44100, 16)}, {"data", codes(16, {1, -2, 32767, -32768})}}));
    ASSERT_TRUE(d.result.ok()) << wav_failure_name(d.result.failure);
    EXPECT_EQ(d.audio.sample_rate, 44100u);
    EXPECT_EQ(d.audio.channels, 2u);
    EXPECT_EQ(d.audio.format_code, 16u);
    EXPECT_EQ(d.audio.frame_count, 2u);
    ASSERT_EQ(d.audio.samples.size(), 4u);
    EXPECT_EQ(d.audio.samples[0], 1 / 32767.0);
    EXPECT_EQ(d.audio.samples[1], -2 / 32767.0);
    EXPECT_EQ(d.audio.samples[2], 1.0);  // the most positive code is exactly full scale
    EXPECT_EQ(d.audio.samples[3], -32768 / 32767.0);

    // 24-bit: three little-endian bytes, sign-extended from bit 23.
    d = decode(riff({{"fmt ", fmt_body(1, 1, 48000, 24)},
                     {"data", {0x00, 0x00, 0x80, 0xFF, 0xFF, 0x7F, 0xFF, 0xFF, 0xFF, 0x56, 0x34, 0x12}}}));
    ASSERT_TRUE(d.result.ok());
    EXPECT_EQ(d.audio.format_code, 24u);
    ASSERT_EQ(d.audio.samples.size(), 4u);
    EXPECT_EQ(d.audio.samples[0], -8388608 / 8388607.0);
    EXPECT_EQ(d.audio.samples[1], 1.0);
    EXPECT_EQ(d.audio.samples[2], -1 / 8388607.0);
    EXPECT_EQ(d.audio.samples[3], 0x123456 / 8388607.0);

    d = decode(riff({{"fmt ", fmt_body(1, 1, 48000, 32)}, {"data", codes(32, {INT32_MIN, INT32_MAX, 7})}}));
    ASSERT_TRUE(d.result.ok());
    EXPECT_EQ(d.audio.samples[0], INT32_MIN / 2147483647.0);
    EXPECT_EQ(d.audio.samples[1], 1.0);
    EXPECT_EQ(d.audio.samples[2], 7 / 2147483647.0);

    // Floats are taken unchanged, even beyond full scale.
    d = decode(riff({{"fmt ", fmt_body(3, 1, 48000, 32)}, {"data", floats({0.1f, -1.5f, 3.0f})}}));
    ASSERT_TRUE(d.result.ok());
    EXPECT_EQ(d.audio.format_code, 288u);
    EXPECT_EQ(d.audio.samples, (std::vector<double>{double(0.1f), -1.5, 3.0}));

    d = decode(wav_file(48000, 1, 320, {0.1, -2.25}));
    ASSERT_TRUE(d.result.ok());
    EXPECT_EQ(d.audio.format_code, 320u);
    EXPECT_EQ(d.audio.samples, (std::vector<double>{0.1, -2.25}));
}

TEST(WavReader, ChunkOrderAndReplacement) {
    bytes data = codes(16, {100, 200});
    // "fmt " after "data" reads normally.
    decoded d = decode(riff({{"data", data}, {"fmt ", fmt_body(1, 1, 8000, 16)}}));
    ASSERT_TRUE(d.result.ok());
    EXPECT_EQ(d.audio.samples, (std::vector<double>{100 / 32767.0, 200 / 32767.0}));

    // A later "data" chunk and a later "fmt " chunk replace earlier ones.
    d = decode(riff({{"fmt ", fmt_extensible_body(2, 96000, 24, 1, 3)},
                     {"data", codes(16, {1})},
                     {"fmt ", fmt_body(1, 1, 8000, 16)},
                     {"data", data}}));
    ASSERT_TRUE(d.result.ok());
    EXPECT_EQ(d.audio.sample_rate, 8000u);
    EXPECT_EQ(d.audio.channels, 1u);
    EXPECT_FALSE(d.audio.is_extensible);
    EXPECT_EQ(d.audio.channel_mask, 0u);
    EXPECT_EQ(d.audio.frame_count, 2u);

    // The RIFF size is not consulted: the walk goes to the physical end.
    bytes file = riff({{"fmt ", fmt_body(1, 1, 8000, 16)}, {"data", data}});
    file[4] = file[5] = file[6] = file[7] = 0;
    EXPECT_TRUE(decode(file).result.ok());
}

TEST(WavReader, ExtensibleFormatChunk) {
    decoded d = decode(riff({{"fmt ", fmt_extensible_body(2, 48000, 24, 1, 0x3)}, {"data", codes(24, {5, -5})}}));
    ASSERT_TRUE(d.result.ok());
    EXPECT_TRUE(d.audio.is_extensible);
    EXPECT_EQ(d.audio.channel_mask, 0x3u);
    EXPECT_EQ(d.audio.format_code, 24u);

    d = decode(riff({{"fmt ", fmt_extensible_body(1, 48000, 32, 3, 0x4)}, {"data", floats({0.25f})}}));
    ASSERT_TRUE(d.result.ok());
    EXPECT_EQ(d.audio.format_code, 288u);
    EXPECT_EQ(d.audio.samples, std::vector<double>{0.25});

    // SubFormat 2 (ADPCM) is refused.
    EXPECT_EQ(failure_of(riff({{"fmt ", fmt_extensible_body(1, 48000, 16, 2, 0x4)}, {"data", codes(16, {0})}})),
              wav_failure::unsupported_format);

    // 26 bytes are enough to reach the SubFormat code; 24 are not, and tag 0xFFFE alone
    // is not a supported tag.
    bytes ext = fmt_extensible_body(1, 48000, 16, 1, 0x4);
    EXPECT_TRUE(decode(riff({{"fmt ", bytes(ext.begin(), ext.begin() + 26)}, {"data", codes(16, {0})}})).result.ok());
    EXPECT_EQ(failure_of(riff({{"fmt ", bytes(ext.begin(), ext.begin() + 24)}, {"data", codes(16, {0})}})),
              wav_failure::unsupported_format);

    // Plain tags other than 1 and 3 are refused (here A-law, 6).
    EXPECT_EQ(failure_of(riff({{"fmt ", fmt_body(6, 1, 8000, 16)}, {"data", codes(16, {0})}})),
              wav_failure::unsupported_format);
}

TEST(WavReader, NonFiniteFloatSamplesNameTheFirstOne) {
    const float nan = std::numeric_limits<float>::quiet_NaN();
    const float inf = std::numeric_limits<float>::infinity();
    std::vector<double> values(2 * 16, 0.0);
    bytes data = encode_samples(288, values);
    auto set = [&](std::size_t index, float f) { std::memcpy(&data[4 * index], &f, 4); };
    set(2 * 10 + 1, nan);  // frame 10, channel 1
    decoded d = decode(riff({{"fmt ", fmt_body(3, 2, 48000, 32)}, {"data", data}}));
    EXPECT_EQ(d.result.failure, wav_failure::non_finite_sample);
    EXPECT_EQ(d.result.error_text, "contains NaN or infinite samples, first at frame 10, channel 1");
    expect_empty(d.audio);

    set(2 * 3, -inf);  // an earlier infinity wins
    d = decode(riff({{"fmt ", fmt_body(3, 2, 48000, 32)}, {"data", data}}));
    EXPECT_EQ(d.result.error_text, "contains NaN or infinite samples, first at frame 3, channel 0");

    // 64-bit float: the exponent test is on the double's own bits.
    bytes data64 = encode_samples(320, {0.0, 1.0, 2.0});
    const double inf64 = std::numeric_limits<double>::infinity();
    std::memcpy(&data64[16], &inf64, 8);
    d = decode(riff({{"fmt ", fmt_body(3, 1, 48000, 64)}, {"data", data64}}));
    EXPECT_EQ(d.result.error_text, "contains NaN or infinite samples, first at frame 2, channel 0");

    // Subnormals, zeros, negative zero and the largest finite values are fine.
    d = decode(riff({{"fmt ", fmt_body(3, 1, 48000, 32)},
                     {"data", floats({std::numeric_limits<float>::denorm_min(), 0.0f, -0.0f,
                                      std::numeric_limits<float>::max(), -std::numeric_limits<float>::max()})}}));
    ASSERT_TRUE(d.result.ok());
    EXPECT_EQ(d.audio.samples[0], double(std::numeric_limits<float>::denorm_min()));
    EXPECT_TRUE(std::signbit(d.audio.samples[2]));
}

TEST(WavReader, UnsupportedBitDepths) {
    struct {
        std::uint16_t tag, bits;
    } cases[] = {{1, 8}, {1, 20}, {1, 64}, {3, 16}, {3, 24}, {1, 0}};
    for (const auto& c : cases) {
        bytes data(48, 0);
        EXPECT_EQ(failure_of(riff({{"fmt ", fmt_body(c.tag, 1, 8000, c.bits)}, {"data", data}})),
                  wav_failure::unsupported_bits)
            << "tag " << c.tag << " bits " << c.bits;
    }
    EXPECT_EQ(failure_of(riff({{"fmt ", fmt_body(1, 0, 8000, 16)}, {"data", {}}})), wav_failure::zero_channels_or_rate);
    EXPECT_EQ(failure_of(riff({{"fmt ", fmt_body(1, 1, 0, 16)}, {"data", {}}})), wav_failure::zero_channels_or_rate);
}

TEST(WavReader, DataSizeMustBeWholeFramesAndPresent) {
    // 16-bit stereo frames are 4 bytes: 7 is not a whole number of frames.
    EXPECT_EQ(failure_of(riff({{"fmt ", fmt_body(1, 2, 8000, 16)}, {"data", bytes(7, 0)}})), wav_failure::partial_frame);

    decoded d = decode(riff({{"fmt ", fmt_body(1, 2, 8000, 16)}, {"data", {}}}));
    ASSERT_TRUE(d.result.ok());
    EXPECT_EQ(d.audio.frame_count, 0u);
    EXPECT_TRUE(d.audio.samples.empty());
    EXPECT_EQ(d.audio.channels, 2u);

    // A data chunk that claims more than the file holds, even by one frame.
    EXPECT_EQ(failure_of(riff({{"fmt ", fmt_body(1, 1, 8000, 16)}, {"data", bytes(4, 0), 6u}})),
              wav_failure::truncated_data);
    EXPECT_EQ(failure_of(riff({{"fmt ", fmt_body(1, 1, 8000, 16)}, {"data", bytes(4, 0), 0xFFFFFFFEu}})),
              wav_failure::truncated_data);

    // An odd-sized data chunk at the end of the file without its pad byte is whole: the
    // skip past the end just ends the walk.
    d = decode(riff({{"fmt ", fmt_body(1, 1, 8000, 24)}, {"data", codes(24, {-3}), std::nullopt, false}}));
    ASSERT_TRUE(d.result.ok());
    EXPECT_EQ(d.audio.samples, std::vector<double>{-3 / 8388607.0});
}

TEST(WavReader, UnknownChunksAreCopiedWithTheirPad) {
    bytes odd = {'a', 'b', 'c', 'd', 'e'};
    decoded d = decode(riff({{"LIST", odd}, {"fmt ", fmt_body(1, 1, 8000, 16)}, {"bext", {}},
                             {"data", codes(16, {1})}, {"junk", {1, 2}}}));
    ASSERT_TRUE(d.result.ok());
    const bytes expected = {'L', 'I', 'S', 'T', 5, 0, 0, 0, 'a', 'b', 'c', 'd', 'e', 0,  // 8 + 6
                            'b', 'e', 'x', 't', 0, 0, 0, 0,                          // header only
                            'j', 'u', 'n', 'k', 2, 0, 0, 0, 1, 2};
    EXPECT_EQ(d.audio.extra_chunks, expected);

    // The same odd chunk ending the file without its pad byte fails the whole read.
    EXPECT_EQ(failure_of(riff({{"fmt ", fmt_body(1, 1, 8000, 16)}, {"data", codes(16, {1})},
                               {"LIST", odd, std::nullopt, false}})),
              wav_failure::truncated_chunk);

    // A size of 0xFFFFFFFF rounds up to 0 in 32 bits: the header is kept and the walk
    // resumes right after it, so the chunks that follow are still found.
    bytes file = riff({{"fmt ", fmt_body(1, 1, 8000, 16)}, {"data", codes(16, {1})}});
    const bytes huge = {'J', 'U', 'N', 'K', 0xFF, 0xFF, 0xFF, 0xFF};
    file.insert(file.begin() + 12, huge.begin(), huge.end());
    d = decode(file);
    ASSERT_TRUE(d.result.ok());
    EXPECT_EQ(d.audio.extra_chunks, huge);

    // An unknown chunk claiming 2 GiB fails cleanly.
    EXPECT_EQ(failure_of(riff({{"fmt ", fmt_body(1, 1, 8000, 16)}, {"data", codes(16, {1})},
                               {"big ", bytes(10, 0), 0x7FFFFFFEu}})),
              wav_failure::truncated_chunk);
}

TEST(WavReader, MalformedStructure) {
    bytes good = riff({{"fmt ", fmt_body(1, 1, 8000, 16)}, {"data", codes(16, {1})}});
    EXPECT_EQ(failure_of(bytes(good.begin(), good.begin() + 11)), wav_failure::bad_riff_header);
    bytes rifx = good;
    rifx[3] = 'X';
    EXPECT_EQ(failure_of(rifx), wav_failure::bad_riff_header);
    bytes wavx = good;
    wavx[11] = 'X';
    EXPECT_EQ(failure_of(wavx), wav_failure::bad_riff_header);

    // Only a RIFF header, or trailing bytes too few for a chunk header.
    EXPECT_EQ(failure_of(bytes(good.begin(), good.begin() + 12)), wav_failure::missing_chunk);
    bytes trailing = good;
    trailing.insert(trailing.end(), {'x', 'y', 'z', 0, 0, 0, 0});
    EXPECT_TRUE(decode(trailing).result.ok());

    EXPECT_EQ(failure_of(riff({{"fmt ", fmt_body(1, 1, 8000, 16)}})), wav_failure::missing_chunk);
    EXPECT_EQ(failure_of(riff({{"data", codes(16, {1})}})), wav_failure::missing_chunk);

    bytes fmt = fmt_body(1, 1, 8000, 16);
    EXPECT_EQ(failure_of(riff({{"fmt ", bytes(fmt.begin(), fmt.begin() + 14)}, {"data", codes(16, {1})}})),
              wav_failure::fmt_too_short);
    // A "fmt " chunk cut short by the end of the file.
    EXPECT_EQ(failure_of(riff({{"data", codes(16, {1})}, {"fmt ", bytes(fmt.begin(), fmt.begin() + 12), 16u}})),
              wav_failure::fmt_too_short);
    // A 40-byte claim with only the 16 plain bytes present: min(size, 40) bytes are needed.
    EXPECT_EQ(failure_of(riff({{"data", codes(16, {1})}, {"fmt ", fmt, 40u}})), wav_failure::fmt_too_short);
}

TEST(WavRead, FilesAndErrorTexts) {
    temp_dir dir;
    wav_audio a;
    a.sample_rate = 1;
    a.samples = {1.0};

    EXPECT_FALSE(wav_read(dir.file("missing.wav"), a));
    expect_empty(a);
    EXPECT_EQ(wav_last_failure(), wav_failure::open_failed);
    EXPECT_EQ(wav_error_text(), generic_text);
    EXPECT_EQ(describe_wav_read_failure(dir.file("missing.wav")), "file not found or not readable");

    EXPECT_FALSE(wav_read(dir.path(), a));  // a directory
    EXPECT_EQ(wav_last_failure(), wav_failure::read_failed);

    bytes data = encode_samples(288, {0.0, 0.0});
    const float nan = std::numeric_limits<float>::quiet_NaN();
    std::memcpy(&data[4], &nan, 4);
    write_bytes(dir.file("nan.wav"), riff({{"fmt ", fmt_body(3, 1, 48000, 32)}, {"data", data}}));
    EXPECT_FALSE(wav_read(dir.file("nan.wav"), a));
    EXPECT_EQ(wav_error_text(), "contains NaN or infinite samples, first at frame 1, channel 0");
    EXPECT_EQ(describe_wav_read_failure(dir.file("nan.wav")), wav_error_text());

    // The text is emptied by the next read, whatever its outcome.
    write_bytes(dir.file("bad.wav"), bytes(40, 0));
    EXPECT_FALSE(wav_read(dir.file("bad.wav"), a));
    EXPECT_EQ(wav_error_text(), generic_text);
    EXPECT_EQ(describe_wav_read_failure(dir.file("bad.wav")), generic_text);

    write_bytes(dir.file("empty.wav"), {});
    EXPECT_FALSE(wav_read(dir.file("empty.wav"), a));
    EXPECT_EQ(wav_last_failure(), wav_failure::bad_riff_header);

    write_wav(dir.file("ok.wav"), 22050, 2, 24, {0.5, -0.5, 0.25, 0.0});
    ASSERT_TRUE(wav_read(dir.file("ok.wav"), a));
    EXPECT_EQ(wav_last_failure(), wav_failure::none);
    EXPECT_EQ(a.frame_count, 2u);
    EXPECT_EQ(a.samples[0], std::llround(0.5 * 8388607.0) / 8388607.0);
    wav_free(a);
    expect_empty(a);
    wav_free(a);  // releasing twice is harmless
}

}  // namespace
}  // namespace veltrane::test
