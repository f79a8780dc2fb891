// Black-box tests of `veltrane analyze` on generated WAV pairs: verdicts, summary line,
// exit statuses, status lines, format errors with their ERROR report, validation errors
// and the files written.
#include <gtest/gtest.h>

#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "support/process.h"
#include "support/temp_dir.h"
#include "support/wav_bytes.h"
#include "util/files.h"

namespace veltrane::test {
namespace {

using args = std::vector<std::string>;

constexpr std::uint32_t rate = 48000;
const std::string status_lines = "Aligning...\nAnalyzing...\nWriting report...\n";

std::string slurp(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream ss;
    ss << in.rdbuf();
    return ss.str();
}

// One second of stereo noise: aligns unambiguously.
std::vector<double> programme(std::uint64_t frames = rate) { return noise(frames, 2, 0.5, 7); }

// Frames [0, frames) of an interleaved stereo signal.
std::vector<double> head(const std::vector<double>& s, std::uint64_t frames) {
    return std::vector<double>(s.begin(), s.begin() + static_cast<std::ptrdiff_t>(frames * 2));
}

struct pair_dir {
    temp_dir dir;
    std::string ref, dut, html;
    pair_dir(const std::vector<double>& r, const std::vector<double>& d, std::uint32_t format = 16) {
        ref = write_wav(dir.file("ref.wav"), rate, 2, format, r);
        dut = write_wav(dir.file("dut.wav"), rate, 2, format, d);
        html = dir.file("report.html");
    }
    args analyze(const args& extra = {}) const {
        args a = {"analyze", "--ref", ref, "--dut", dut, "--out", html};
        a.insert(a.end(), extra.begin(), extra.end());
        return a;
    }
};

// Keys of a flat results document, in order.
std::vector<std::string> json_keys(const std::string& doc) {
    std::vector<std::string> keys;
    std::istringstream in(doc);
    for (std::string l; std::getline(in, l);) {
        if (l.rfind("    \"", 0) != 0) continue;
        keys.push_back(l.substr(5, l.find('"', 5) - 5));
    }
    return keys;
}

// The value text of `key` (without a trailing comma), or "<missing>".
std::string json_value(const std::string& doc, const std::string& key) {
    const std::string prefix = "\n    \"" + key + "\": ";
    std::size_t at = doc.find(prefix);
    if (at == std::string::npos) return "<missing>";
    std::size_t from = at + prefix.size();
    std::string value = doc.substr(from, doc.find('\n', from) - from);
    if (!value.empty() && value.back() == ',') value.pop_back();
    return value;
}

TEST(Analyze, IdenticalFilesPass) {
    auto s = programme();
    pair_dir p(s, s);
    run_result r = run_veltrane(p.analyze({"--json"}));
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.err, status_lines);
    std::string json = p.dir.file("report.json");
    EXPECT_EQ(r.out, "wrote " + p.html + " + " + json + " (overall: PASS)\n");
    std::string page = slurp(p.html);
    EXPECT_TRUE(page.starts_with("<!doctype html>\n<html lang=\"en\">\n"));
    EXPECT_NE(page.find("<title>ref -- Veltrane Report</title>"), std::string::npos);
    EXPECT_NE(page.find("<div class=\"kpi verdict ok\">"), std::string::npos);
    EXPECT_TRUE(page.ends_with("</body>\n</html>\n"));

    std::string doc = slurp(json);
    EXPECT_TRUE(doc.starts_with("{\n    \"veltrane_phase\": 2,\n    \"status\": \"analyzed\",\n"));
    EXPECT_TRUE(doc.ends_with("\n}\n"));
    EXPECT_EQ(doc.find(",\n}"), std::string::npos);
    // The page embeds the same document.
    EXPECT_NE(page.find("<script type=\"application/json\" id=\"veltrane-results\">\n" + doc + "\n</script>\n"),
              std::string::npos);
    const std::vector<std::string> expected = {
        "veltrane_phase", "status", "overall_verdict", "gating_failure_count", "gating_failures", "ref_file",
        "dut_file", "sample_rate", "ref_channels", "dut_channels", "ref_bit_depth", "dut_bit_depth",
        "ref_sample_format", "dut_sample_format", "ref_frame_count", "dut_frame_count", "align_file_offset",
        "align_disagreement_samples", "align_channel_0_confidence", "align_channel_0_offset", "align_channel_0_state",
        "align_channel_0_ref_silent", "align_channel_0_dut_silent", "align_channel_1_confidence",
        "align_channel_1_offset", "align_channel_1_state", "align_channel_1_ref_silent", "align_channel_1_dut_silent",
        "length_mismatch_verdict", "length_mismatch_ref_uncovered_pct", "length_mismatch_ref_uncovered_samples",
        "bitexact_verdict", "bitexact_samples_compared", "bitexact_samples_differing", "bitexact_max_error_db",
        "loudness_verdict", "loudness_ref_integrated_lufs", "loudness_dut_integrated_lufs",
        "loudness_delta_integrated_lu", "loudness_ref_lra_lu", "loudness_dut_lra_lu", "loudness_delta_lra_lu",
        "loudness_ref_true_peak_dbtp", "loudness_dut_true_peak_dbtp", "loudness_delta_true_peak_db",
        "loudness_ref_sample_peak_dbfs", "loudness_dut_sample_peak_dbfs", "loudness_delta_sample_peak_db",
        "loudness_ref_max_momentary_lufs", "loudness_dut_max_momentary_lufs", "loudness_delta_max_momentary_lu",
        "loudness_ref_max_short_term_lufs", "loudness_dut_max_short_term_lufs", "loudness_delta_max_short_term_lu"};
    EXPECT_EQ(json_keys(doc), expected);
    EXPECT_EQ(json_value(doc, "gating_failures"), "\"\"");
    EXPECT_EQ(json_value(doc, "gating_failure_count"), "0");
    EXPECT_EQ(json_value(doc, "bitexact_max_error_db"), "-999.000000");
    EXPECT_EQ(json_value(doc, "align_channel_0_confidence"), "1.000000");
    EXPECT_EQ(json_value(doc, "align_channel_1_state"), "\"measured\"");
}

TEST(Analyze, DelayedCaptureIsAlignedAndPasses) {
    auto s = programme();
    std::vector<double> late(200, 0.0);  // 100 frames of silence, then all but the last 100 frames
    late.insert(late.end(), s.begin(), s.end() - 200);
    pair_dir p(s, late);
    run_result r = run_veltrane(p.analyze({"--json", "--quiet"}));
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.err, "");
    std::string doc = slurp(p.dir.file("report.json"));
    EXPECT_EQ(json_value(doc, "align_file_offset"), "100");
    EXPECT_EQ(json_value(doc, "length_mismatch_ref_uncovered_samples"), "100");
    EXPECT_EQ(json_value(doc, "bitexact_verdict"), "\"PASS\"");
}

TEST(Analyze, ShortCaptureFailsOnLengthMismatch) {
    auto s = programme();
    pair_dir p(s, head(s, rate * 98 / 100));  // 2 % short
    run_result r = run_veltrane(p.analyze({"--exit-code", "--json"}));
    EXPECT_EQ(r.status, 2) << r.err;
    EXPECT_TRUE(r.out.ends_with(" (overall: FAIL -- Length Mismatch)\n")) << r.out;
    std::string doc = slurp(p.dir.file("report.json"));
    EXPECT_EQ(json_value(doc, "gating_failures"), "\"length_mismatch\"");
    EXPECT_EQ(json_value(doc, "length_mismatch_ref_uncovered_pct"), "2.000000");
    // Without --exit-code a FAIL verdict still exits 0 once the report is written.
    EXPECT_EQ(run_veltrane(p.analyze()).status, 0);
    std::string page = slurp(p.html);
    EXPECT_NE(page.find("Length mismatch: 2.0% of the reference (960 samples)"), std::string::npos);
}

TEST(Analyze, OneCodeDifferenceFailsOnlyWhenBitExactGates) {
    auto s = programme();
    auto d = s;
    d[2 * 1000 + 1] += 1.0 / 32767.0;  // one 16-bit code, right channel, frame 1000
    pair_dir p(s, d);
    run_result r = run_veltrane(p.analyze({"--exit-code"}));
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_TRUE(r.out.ends_with(" (overall: PASS)\n"));
    std::string page = slurp(p.html);
    EXPECT_NE(page.find("<div class=\"kpi-note\">Bit-Exactness failed but is not gating"), std::string::npos);
    EXPECT_NE(page.find("<a href=\"#bitexact\" data-fail data-nongating>Bit-Exactness</a>"), std::string::npos);

    r = run_veltrane(p.analyze({"--exit-code", "--bitexact", "--json"}));
    EXPECT_EQ(r.status, 2);
    EXPECT_TRUE(r.out.ends_with(" (overall: FAIL -- Bit-Exactness)\n"));
    std::string doc = slurp(p.dir.file("report.json"));
    EXPECT_EQ(json_value(doc, "bitexact_samples_differing"), "1");
    EXPECT_EQ(json_value(doc, "bitexact_first_diff_frame"), "1000");
    EXPECT_EQ(json_value(doc, "bitexact_first_diff_channel"), "1");
    EXPECT_EQ(json_value(doc, "bitexact_max_error_db"), "0.000000");
    page = slurp(p.html);
    EXPECT_NE(page.find("<div class=\"v\">Bit-Exact</div>"), std::string::npos);
    EXPECT_NE(page.find("<td>Bit-Exactness</td><td>Gating</td><td>enabled</td><td>--bitexact</td>"), std::string::npos);
}

TEST(Analyze, BitAccuracyWithoutBitExactness) {
    auto s = programme();
    auto d = s;
    d[0] = s[0] > 0 ? s[0] - 0.25 : s[0] + 0.25;  // 8192 codes, about 78 dB: fails a 6 dB tolerance
    pair_dir p(s, d);
    ASSERT_TRUE(write_text_file(p.dir.file("tol.json"), "{\"bit_accuracy\": {\"tolerance_db\": 6}}"));
    run_result r = run_veltrane(p.analyze({"--no-bitexact", "--bitaccuracy", "--json", "--config", p.dir.file("tol.json")}));
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_TRUE(r.out.ends_with(" (overall: PASS)\n"));  // bit accuracy never gates
    std::string doc = slurp(p.dir.file("report.json"));
    EXPECT_EQ(json_value(doc, "bitexact_verdict"), "<missing>");
    EXPECT_EQ(json_value(doc, "bit_accuracy_verdict"), "\"FAIL\"");
    EXPECT_EQ(json_value(doc, "bit_accuracy_tolerance_db"), "6.000000");
    EXPECT_EQ(json_value(doc, "bit_accuracy_worst_diff_frame"), "0");
    std::string page = slurp(p.html);
    EXPECT_NE(page.find("<h3>Bit Accuracy</h3>"), std::string::npos);
    EXPECT_NE(page.find("Strict comparison skipped"), std::string::npos);
    EXPECT_EQ(page.find("<div class=\"diffrate-bar\">"), std::string::npos);
    EXPECT_NE(page.find("<td>Bit Accuracy</td><td>Enabled</td><td>yes</td><td>--bitaccuracy</td>"), std::string::npos);
}

TEST(Analyze, UnreadableInputsWriteAnErrorReport) {
    temp_dir dir;
    std::string dut = write_wav(dir.file("take3.wav"), rate, 2, 16, programme());
    run_result r = run_veltrane({"analyze", "--ref", "x.wav", "--dut", dut, "--out", dir.file("out/"), "--json"}, dir.path());
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.out, "");
    EXPECT_EQ(r.err, "error: failed to read --ref 'x.wav' (file not found or not readable)\nwrote an error report to " +
                         dir.file("out/take3.html") + " (overall: ERROR)\n");
    std::string page = slurp(dir.file("out/take3.html"));
    EXPECT_NE(page.find("<div class=\"v\">ERROR</div>"), std::string::npos);
    std::string doc = slurp(dir.file("out/take3.json"));
    EXPECT_EQ(json_value(doc, "error"), "\"failed to read --ref 'x.wav' (file not found or not readable)\"");
    EXPECT_TRUE(doc.ends_with("    \"dut_file\": \"" + dut + "\"\n}\n"));

    // A file that exists but is not WAV is described by the reader.
    write_bytes(dir.file("junk.wav"), {'R', 'I', 'F', 'F'});
    r = run_veltrane({"analyze", "--ref", dut, "--dut", "junk.wav", "--out", "r.html"}, dir.path());
    EXPECT_EQ(r.err.substr(0, r.err.find('\n')),
              "error: failed to read --dut 'junk.wav' (not a supported 16/24/32-bit integer or 32/64-bit float PCM WAV "
              "file)");
}

TEST(Analyze, FormatChecksReportEveryProblem) {
    temp_dir dir;
    auto mono = noise(2000, 1, 0.5);
    write_wav(dir.file("r16k.wav"), 16000, 1, 16, mono);
    write_wav(dir.file("d8k.wav"), 8000, 1, 16, mono);
    run_result r = run_veltrane({"analyze", "--ref", "r16k.wav", "--dut", "d8k.wav", "--out", "o.html", "--json"}, dir.path());
    EXPECT_EQ(r.status, 1);
    const std::string both =
        "--ref sample rate 16000 Hz is outside the supported range [22050, 192000] Hz; --dut sample rate 8000 Hz is "
        "outside the supported range [22050, 192000] Hz";
    EXPECT_NE(r.err.find("error: --dut sample rate 8000 Hz"), std::string::npos);
    EXPECT_EQ(json_value(slurp(dir.file("o.json")), "error"), "\"" + both + "\"");

    write_wav(dir.file("r3.wav"), rate, 3, 16, noise(100, 3, 0.5));
    write_wav(dir.file("d4.wav"), rate, 4, 16, noise(100, 4, 0.5));
    r = run_veltrane({"analyze", "--ref", "r3.wav", "--dut", "d4.wav", "--out", "o.html"}, dir.path());
    EXPECT_EQ(r.err,
              "error: --ref has 3 channel(s) -- veltrane only accepts mono or stereo input\n"
              "error: --dut has 4 channel(s) -- veltrane only accepts mono or stereo input\n"
              "wrote an error report to o.html (overall: ERROR)\n");

    write_wav(dir.file("r44.wav"), 44100, 2, 16, programme(100));
    write_wav(dir.file("d48.wav"), rate, 2, 16, programme(100));
    r = run_veltrane({"analyze", "--ref", "r44.wav", "--dut", "d48.wav", "--out", "o.html"}, dir.path());
    EXPECT_EQ(r.err.substr(0, r.err.find('\n')),
              "error: --ref is 44100 Hz but --dut is 48000 Hz -- ref and DUT must share the same sample rate "
              "(veltrane does no resampling of its own)");

    write_wav(dir.file("mono.wav"), rate, 1, 16, noise(100, 1, 0.5));
    r = run_veltrane({"analyze", "--ref", "mono.wav", "--dut", "d48.wav", "--out", "o.html"}, dir.path());
    EXPECT_EQ(r.err.substr(0, r.err.find('\n')),
              "error: --ref has 1 channel(s) but --dut has 2 -- ref and DUT must have identical channel count");
}

TEST(Analyze, AlignmentFailureIsExplainedInTheErrorReport) {
    auto s = programme();
    auto inverted = s;
    for (double& v : inverted) v = -v;
    pair_dir p(s, inverted);
    run_result r = run_veltrane(p.analyze({"--json"}));
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.out, "");
    const std::string message =
        "alignment failed -- both channels: the DUT is polarity-inverted: it matches the reference with the sign "
        "flipped (correlation -1.0000), so no offset lines it up. Invert it and run again.";
    EXPECT_EQ(r.err, "Aligning...\nerror: " + message + "\nwrote an error report to " + p.html + " (overall: ERROR)\n");
    EXPECT_NE(slurp(p.html).find("<p class=\"run-error\">" + message + "</p>"), std::string::npos);
    EXPECT_EQ(json_value(slurp(p.dir.file("report.json")), "error"), "\"" + message + "\"");
}

TEST(Analyze, ValidationErrorsWriteNoReport) {
    auto s = programme();
    pair_dir p(s, s);
    run_result r = run_veltrane(p.analyze({"--snapshots", "26"}));
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.err, "Aligning...\nerror: spectral_fidelity.snapshots must resolve to between 1 and 25 snapshots, got 26\n");
    EXPECT_FALSE(path_exists(p.html));
}

TEST(Analyze, OutputPathErrors) {
    auto s = programme(4800);
    pair_dir p(s, s);
    run_result r = run_veltrane({"analyze", "--ref", p.ref, "--dut", p.dut, "--out", p.dir.file("a/b/"), "--quiet"});
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.err, "error: could not create output directory '" + p.dir.file("a/b") +
                         "'\nerror: could not resolve output path from --out '" + p.dir.file("a/b/") + "'\n");
    // An existing directory without a trailing separator takes the DUT's stem.
    r = run_veltrane({"analyze", "--ref", p.ref, "--dut", p.dut, "--out", p.dir.path(), "--quiet"});
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_TRUE(path_exists(p.dir.file("dut.html")));
    // A report that cannot be written.
    r = run_veltrane({"analyze", "--ref", p.ref, "--dut", p.dut, "--out", p.dir.file("none/x.html"), "--quiet"});
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.err, "error: failed to write '" + p.dir.file("none/x.html") + "'\n");
}

}  // namespace
}  // namespace veltrane::test
