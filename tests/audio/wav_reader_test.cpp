// WAV reader on files built byte by byte: exact sample values, what later chunks replace,
// the copied extra chunks, the NaN/infinity text and the file-level error texts. The
// failure reasons of malformed files are covered by the corpus in tests/data/wav_corpus.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>

#include "audio/wav.h"
#include "support/temp_dir.h"
#include "support/wav_bytes.h"

namespace veltrane::test {
namespace {

// Little-endian integer codes of `bits` bits.
bytes codes(std::uint32_t bits, std::initializer_list<std::int64_t> values) {
    bytes out;
    for (std::int64_t v : values)
        for (std::uint32_t i = 0; i < bits / 8; ++i) out.push_back(static_cast<std::uint8_t>(static_cast<std::uint64_t>(v) >> (8 * i)));
    return out;
}

wav_audio decode_ok(const bytes& file) {
    wav_audio a;
    const wav_decode_result r = wav_decode(file, a);
    EXPECT_TRUE(r.ok()) << wav_failure_name(r.failure);
    return a;
}

TEST(WavReader, ConvertsEachFormatInFileOrder) {
    wav_audio a = decode_ok(riff({{"fmt ", fmt_body(1, 2, 44100, 16)}, {"data", codes(16, {1, -2, 32767, -32768})}}));
    EXPECT_EQ(a.frame_count, 2u);
    EXPECT_EQ(a.samples, (std::vector<double>{1 / 32767.0, -2 / 32767.0, 1.0, -32768 / 32767.0}));

    a = decode_ok(riff({{"fmt ", fmt_body(1, 1, 48000, 24)}, {"data", codes(24, {-8388608, 8388607, -1, 0x123456})}}));
    EXPECT_EQ(a.samples, (std::vector<double>{-8388608 / 8388607.0, 1.0, -1 / 8388607.0, 0x123456 / 8388607.0}));

    a = decode_ok(riff({{"fmt ", fmt_body(1, 1, 48000, 32)}, {"data", codes(32, {INT32_MIN, INT32_MAX, 7})}}));
    EXPECT_EQ(a.samples, (std::vector<double>{INT32_MIN / 2147483647.0, 1.0, 7 / 2147483647.0}));

    // Floats are taken unchanged, beyond full scale and subnormal alike.
    const float tiny = std::numeric_limits<float>::denorm_min();
    a = decode_ok(wav_file(48000, 1, 288, {0.1, -1.5, tiny, -0.0}));
    EXPECT_EQ(a.format_code, 288u);
    EXPECT_EQ(a.samples, (std::vector<double>{double(0.1f), -1.5, double(tiny), 0.0}));
    EXPECT_TRUE(std::signbit(a.samples[3]));
    a = decode_ok(wav_file(48000, 1, 320, {0.1, -2.25}));
    EXPECT_EQ(a.format_code, 320u);
    EXPECT_EQ(a.samples, (std::vector<double>{0.1, -2.25}));
}

TEST(WavReader, LaterChunksReplaceEarlierOnes) {
    wav_audio a = decode_ok(riff({{"fmt ", fmt_extensible_body(2, 96000, 32, 3, 0x3)},
                                  {"data", codes(16, {1})},
                                  {"fmt ", fmt_body(1, 1, 8000, 16)},
                                  {"data", codes(16, {100, 200})}}));
    EXPECT_EQ(a.sample_rate, 8000u);
    EXPECT_EQ(a.channels, 1u);
    EXPECT_EQ(a.format_code, 16u);
    EXPECT_FALSE(a.is_extensible);
    EXPECT_EQ(a.channel_mask, 0u);
    EXPECT_EQ(a.samples, (std::vector<double>{100 / 32767.0, 200 / 32767.0}));

    a = decode_ok(riff({{"data", codes(24, {5, -5})}, {"fmt ", fmt_extensible_body(2, 48000, 24, 1, 0x3)}}));
    EXPECT_TRUE(a.is_extensible);
    EXPECT_EQ(a.channel_mask, 0x3u);
    EXPECT_EQ(a.format_code, 24u);
}

TEST(WavReader, UnknownChunksAreCopiedWithTheirPad) {
    wav_audio a = decode_ok(riff({{"LIST", {'a', 'b', 'c', 'd', 'e'}}, {"fmt ", fmt_body(1, 1, 8000, 16)},
                                  {"bext", {}}, {"data", codes(16, {1})}, {"junk", {1, 2}}}));
    const bytes expected = {'L', 'I', 'S', 'T', 5, 0, 0, 0, 'a', 'b', 'c', 'd', 'e', 0,  // 8 + 6 bytes
                            'b', 'e', 'x', 't', 0, 0, 0, 0,                          // header only
                            'j', 'u', 'n', 'k', 2, 0, 0, 0, 1, 2};
    EXPECT_EQ(a.extra_chunks, expected);

    // A size of 0xFFFFFFFF rounds up to 0 in 32 bits: only the header is kept and the
    // walk resumes right after it.
    bytes file = riff({{"fmt ", fmt_body(1, 1, 8000, 16)}, {"data", codes(16, {1})}});
    const bytes huge = {'J', 'U', 'N', 'K', 0xFF, 0xFF, 0xFF, 0xFF};
    file.insert(file.begin() + 12, huge.begin(), huge.end());
    EXPECT_EQ(decode_ok(file).extra_chunks, huge);
}

TEST(WavReader, NonFiniteFloatSamplesNameTheFirstOne) {
    bytes data = encode_samples(288, std::vector<double>(2 * 16, 0.0));
    auto set = [&](std::size_t index, float f) { std::memcpy(&data[4 * index], &f, 4); };
    wav_audio a;
    set(2 * 10 + 1, std::numeric_limits<float>::quiet_NaN());  // frame 10, channel 1
    wav_decode_result r = wav_decode(riff({{"fmt ", fmt_body(3, 2, 48000, 32)}, {"data", data}}), a);
    EXPECT_EQ(r.failure, wav_failure::non_finite_sample);
    EXPECT_EQ(r.error_text, "contains NaN or infinite samples, first at frame 10, channel 1");
    EXPECT_TRUE(a.samples.empty());
    EXPECT_EQ(a.channels, 0u);

    set(2 * 3, -std::numeric_limits<float>::infinity());  // an earlier infinity wins
    r = wav_decode(riff({{"fmt ", fmt_body(3, 2, 48000, 32)}, {"data", data}}), a);
    EXPECT_EQ(r.error_text, "contains NaN or infinite samples, first at frame 3, channel 0");

    const double inf = std::numeric_limits<double>::infinity();
    r = wav_decode(wav_file(48000, 1, 320, {0.0, std::numeric_limits<double>::max(), inf}), a);
    EXPECT_EQ(r.error_text, "contains NaN or infinite samples, first at frame 2, channel 0");
}

TEST(WavRead, FilesAndErrorTexts) {
    const std::string generic = "not a supported 16/24/32-bit integer or 32/64-bit float PCM WAV file";
    temp_dir dir;
    wav_audio a;
    a.samples = {1.0};
    EXPECT_FALSE(wav_read(dir.file("missing.wav"), a));
    EXPECT_TRUE(a.samples.empty());
    EXPECT_EQ(wav_last_failure(), wav_failure::open_failed);
    EXPECT_EQ(wav_error_text(), generic);
    EXPECT_EQ(describe_wav_read_failure(dir.file("missing.wav")), "file not found or not readable");
    EXPECT_FALSE(wav_read(dir.path(), a));  // a directory
    EXPECT_EQ(wav_last_failure(), wav_failure::read_failed);

    write_bytes(dir.file("nan.wav"), wav_file(8000, 1, 320, {0.0, std::numeric_limits<double>::quiet_NaN()}));
    EXPECT_FALSE(wav_read(dir.file("nan.wav"), a));
    EXPECT_EQ(describe_wav_read_failure(dir.file("nan.wav")),
              "contains NaN or infinite samples, first at frame 1, channel 0");

    // The next read empties the text, whatever its outcome.
    write_bytes(dir.file("empty.wav"), {});
    EXPECT_FALSE(wav_read(dir.file("empty.wav"), a));
    EXPECT_EQ(wav_last_failure(), wav_failure::bad_riff_header);
    EXPECT_EQ(describe_wav_read_failure(dir.file("empty.wav")), generic);

    write_wav(dir.file("ok.wav"), 22050, 2, 24, {0.5, -0.5, 0.25, 0.0});
    ASSERT_TRUE(wav_read(dir.file("ok.wav"), a));
    EXPECT_EQ(wav_last_failure(), wav_failure::none);
    EXPECT_EQ(a.frame_count, 2u);
    wav_free(a);
    EXPECT_TRUE(a.samples.empty() && a.sample_rate == 0 && a.frame_count == 0);
}

}  // namespace
}  // namespace veltrane::test
