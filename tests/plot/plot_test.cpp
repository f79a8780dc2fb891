// Black-box tests of `veltrane plot`: the page (whole, against its golden), the JSON
// document, the FFT size rules, and the failures that write nothing.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/golden.h"
#include "support/process.h"
#include "support/temp_dir.h"
#include "support/wav_bytes.h"
#include "util/files.h"

namespace veltrane::test {
namespace {

// A chirp-like test signal: a 440 Hz tone under quiet noise.
std::vector<double> signal(std::uint64_t frames, std::uint16_t channels, std::uint32_t rate) {
    std::vector<double> s = sine(frames, channels, 440.0, rate, 0.5);
    const std::vector<double> n = noise(frames, channels, 0.01, 9);
    for (std::size_t i = 0; i < s.size(); ++i) s[i] += n[i];
    return s;
}

TEST(Plot, StereoPageAndDocument) {
    temp_dir dir;
    write_wav(dir.file("song.wav"), 48000, 2, 24, signal(96000, 2, 48000));
    run_result r = run_veltrane({"plot", "--input", "song.wav", "--out", "out/", "--json"}, dir.path());
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.err, "");
    EXPECT_EQ(r.out, "wrote out/song.html + out/song.json\n");
    expect_golden("plot_stereo_24.html", mask_timestamp(file_text(dir.file("out/song.html"))));
    EXPECT_EQ(file_text(dir.file("out/song.json")),
              "{\n    \"status\": \"plotted\",\n    \"input_file\": \"song.wav\",\n    \"sample_rate\": 48000,\n"
              "    \"channels\": 2,\n    \"bit_depth\": 24,\n    \"sample_format\": \"integer\",\n"
              "    \"frame_count\": 96000,\n    \"duration_seconds\": 2.000000\n}\n");
}

TEST(Plot, FormatsAndFftSizes) {
    temp_dir dir;
    // 32-bit float, mono, 0.1 s at 96 kHz: N falls from 16384 to 8192 and stops there.
    write_wav(dir.file("short.wav"), 96000, 1, 288, signal(9600, 1, 96000));
    run_result r = run_veltrane({"plot", "--input", "short.wav", "--out", "short.html", "--json"}, dir.path());
    ASSERT_EQ(r.status, 0) << r.err;
    const std::string doc = file_text(dir.file("short.json"));
    EXPECT_NE(doc.find("\"bit_depth\": 32,\n    \"sample_format\": \"float\""), std::string::npos);
    const std::string page = file_text(dir.file("short.html"));
    EXPECT_NE(page.find("\"binHz\":11.718750"), std::string::npos);  // 96000 / 8192
    EXPECT_NE(page.find("96000 Hz &middot; 32-bit float &middot; Mono &middot; 0.10s"), std::string::npos);
    // A file shorter than N (2400 frames) shows the chart's note in place of the spectra.
    write_wav(dir.file("tiny.wav"), 48000, 1, 16, signal(2400, 1, 48000));
    r = run_veltrane({"plot", "--input", "tiny.wav", "--out", "tiny.html"}, dir.path());
    ASSERT_EQ(r.status, 0) << r.err;
    const std::string tiny = file_text(dir.file("tiny.html"));
    EXPECT_NE(tiny.find("<p class=\"vt-chart-note\">Not enough overlapping samples"), std::string::npos);
    EXPECT_EQ(tiny.find("vt-spectral-data"), std::string::npos);

    // The defaults file's fft size is checked against the supported sizes.
    ASSERT_TRUE(write_text_file(dir.file("site.cfg"), R"({"analysis": {"spectral_fidelity": {"fft_size": 3000}}})"));
    r = run_veltrane({"plot", "--input", "short.wav", "--out", "bad.html", "--defaults-cfg", "site.cfg"}, dir.path());
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.err,
              "error: spectral_fidelity.fft_size 3000 not supported -- must be one of 1024, 2048, 4096, 8192, 16384, "
              "32768\n");
    EXPECT_FALSE(path_exists(dir.file("bad.html")));
    ASSERT_TRUE(write_text_file(dir.file("site.cfg"), R"({"analysis": {"spectral_fidelity": {"fft_size": 1024}}})"));
    r = run_veltrane({"plot", "--input", "short.wav", "--out", "small.html", "--defaults-cfg", "site.cfg"}, dir.path());
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_NE(file_text(dir.file("small.html")).find("\"binHz\":93.750000"), std::string::npos);
}

TEST(Plot, UnusableInputsWriteNothing) {
    temp_dir dir;
    write_wav(dir.file("low.wav"), 8000, 1, 16, signal(8000, 1, 8000));
    const std::vector<std::uint8_t> not_wav(100, 7);
    write_bytes(dir.file("junk.wav"), not_wav);
    struct failing {
        const char* input;
        const char* message;
    };
    const failing cases[] = {
        {"low.wav", "error: --input sample rate 8000 Hz is outside the supported range [22050, 192000] Hz\n"},
        {"junk.wav",
         "error: failed to read --input 'junk.wav' (not a supported 16/24/32-bit integer or 32/64-bit float PCM WAV "
         "file)\n"},
    };
    for (const failing& c : cases) {
        run_result r = run_veltrane({"plot", "--input", c.input, "--out", "p.html", "--json"}, dir.path());
        EXPECT_EQ(r.status, 1) << c.input;
        EXPECT_EQ(r.err, c.message);
        EXPECT_EQ(r.out, "");
    }
    EXPECT_FALSE(path_exists(dir.file("p.html")));
    EXPECT_FALSE(path_exists(dir.file("p.json")));
}

}  // namespace
}  // namespace veltrane::test
