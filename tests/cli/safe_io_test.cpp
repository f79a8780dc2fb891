// Black-box tests of the real binary in hostile situations: FIFOs as inputs, writes that
// fail half-way, a stale results document beside a new ERROR page, outputs that name an
// input, file names full of markup and control bytes, and settings out of range.
#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include "json_check.h"
#include "report/report_page.h"
#include "support/process.h"
#include "support/temp_dir.h"
#include "support/wav_bytes.h"
#include "util/files.h"

namespace veltrane::test {
namespace {

using args = std::vector<std::string>;

constexpr std::uint32_t rate = 48000;

std::vector<std::string> listing(const std::string& dir) {
    std::vector<std::string> names;
    for (const auto& e : std::filesystem::directory_iterator(dir)) names.push_back(e.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
}

// The page's copy of the results document.
std::string island(const std::string& page) {
    const std::string open = "<script type=\"application/json\" id=\"veltrane-results\">\n";
    std::size_t from = page.find(open);
    if (from == std::string::npos) return "<no island>";
    from += open.size();
    return page.substr(from, page.find("\n</script>\n", from) - from);
}

// A quarter second of stereo noise as ref.wav and dut.wav in a fresh directory.
struct pair_dir {
    temp_dir dir;
    std::string ref, dut;
    explicit pair_dir(const std::string& dut_name = "dut.wav") {
        std::vector<double> s = noise(rate / 4, 2, 0.5, 11);
        ref = write_wav(dir.file("ref.wav"), rate, 2, 16, s);
        dut = write_wav(dir.file(dut_name), rate, 2, 16, s);
    }
    args analyze(const std::string& out, const args& extra = {}) const {
        args a = {"analyze", "--ref", ref, "--dut", dut, "--out", out, "--quiet"};
        a.insert(a.end(), extra.begin(), extra.end());
        return a;
    }
};

TEST(SafeInputs, FifoInputsFailWithinASecond) {
    pair_dir p;
    const std::string fifo = p.dir.file("pipe");
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    const std::string html = p.dir.file("report.html");
    const std::string read_error = "(file not found or not readable)\n";
    struct row {
        args command;
        std::string err;
    };
    const row rows[] = {
        {{"analyze", "--ref", fifo, "--dut", p.dut, "--out", html, "--quiet"},
         "error: failed to read --ref '" + fifo + "' " + read_error + "wrote an error report to " + html +
             " (overall: ERROR)\n"},
        {{"analyze", "--ref", p.ref, "--dut", fifo, "--out", html, "--quiet"},
         "error: failed to read --dut '" + fifo + "' " + read_error + "wrote an error report to " + html +
             " (overall: ERROR)\n"},
        {{"analyze", "--ref", p.ref, "--dut", p.dut, "--out", html, "--config", fifo},
         "error: failed to read or parse --config '" + fifo + "'\n"},
        {{"analyze", "--ref", p.ref, "--dut", p.dut, "--out", html, "--defaults-cfg", fifo},
         "error: --defaults-cfg '" + fifo + "' does not exist or could not be parsed\n"},
    };
    // (trim and plot load --defaults-cfg through the same code as analyze.)
    for (const row& r : rows) {
        // A FIFO must fail within a second of what the same command takes on a missing
        // file (the sanitizer build alone needs about half a second to start).
        args missing = r.command;
        std::replace(missing.begin(), missing.end(), fifo, p.dir.file("missing"));
        const double baseline = run_veltrane(missing).seconds;
        run_result res = run_veltrane_within(baseline + 1.0, r.command);
        ASSERT_FALSE(res.timed_out) << r.command[0] << " " << r.err;
        EXPECT_EQ(res.status, 1);
        EXPECT_EQ(res.err, r.err);
    }
}

// Runs veltrane with a file-size limit of a few KiB, so writing the ~27 KB page fails as
// on a full disk; the limit's signal is ignored so the write fails instead of the process.
run_result run_with_small_disk(const args& a) {
    args sh = {"-c", "trap '' XFSZ; ulimit -f 8; exec \"$0\" \"$@\"", VELTRANE_BIN};
    sh.insert(sh.end(), a.begin(), a.end());
    return run_program("/bin/sh", sh);
}

TEST(SafeOutputs, FailedWriteKeepsTheEarlierReportWhole) {
    pair_dir p;
    const std::string html = p.dir.file("report.html");
    const std::string json = p.dir.file("report.json");
    ASSERT_EQ(run_veltrane(p.analyze(html, {"--json"})).status, 0);
    const std::string page = file_text(html);
    const std::string doc = file_text(json);
    const auto before = listing(p.dir.path());

    run_result r = run_with_small_disk(p.analyze(html, {"--json"}));
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.err, "error: failed to write '" + html + "'\n");
    EXPECT_EQ(file_text(html), page);  // not cut inside the island
    EXPECT_EQ(file_text(json), doc);
    EXPECT_EQ(listing(p.dir.path()), before);  // no temporary file left
}

TEST(SafeOutputs, ErrorPageNeverStandsBesideAnOlderResultsDocument) {
    pair_dir p;
    const std::string html = p.dir.file("report.html");
    const std::string json = p.dir.file("report.json");
    ASSERT_EQ(run_veltrane(p.analyze(html, {"--json"})).status, 0);
    ASSERT_NE(file_text(json).find("\"overall_verdict\": \"PASS\""), std::string::npos);

    // A missing reference with a long path: the error summary is over 511 bytes, so the
    // error document cannot be written.
    const std::string ref = p.dir.file(std::string(250, 'a') + "/" + std::string(250, 'b') + "/ref.wav");
    run_result r = run_veltrane({"analyze", "--ref", ref, "--dut", p.dut, "--out", html, "--json", "--quiet"});
    EXPECT_EQ(r.status, 1);
    const std::string message = "failed to read --ref '" + ref + "' (file not found or not readable)";
    EXPECT_EQ(r.err, "error: " + message + "\nwarning: could not write the error report '" + json +
                         "' (the \"error\" value is " + std::to_string(message.size()) +
                         " bytes long after escaping, over the 511-byte limit); the older '" + json +
                         "' was removed so that it is not taken for this run's result\n");
    EXPECT_FALSE(path_exists(json));
    EXPECT_NE(file_text(html).find("<div class=\"v\">ERROR</div>"), std::string::npos);

    // The same failure with no earlier document says nothing about one.
    r = run_veltrane({"analyze", "--ref", ref, "--dut", p.dut, "--out", html, "--json", "--quiet"});
    EXPECT_EQ(r.err, "error: " + message + "\nwarning: could not write the error report '" + json +
                         "' (the \"error\" value is " + std::to_string(message.size()) +
                         " bytes long after escaping, over the 511-byte limit)\n");
}

TEST(SafeOutputs, ResultsDocumentFailureNamesTheValue) {
    // A DUT path of over 511 characters does not fit the document's dut_file entry.
    pair_dir p;
    const std::string deep = p.dir.file(std::string(250, 'd') + "/" + std::string(250, 'e'));
    std::filesystem::create_directories(deep);
    const std::string dut = write_wav(deep + "/dut.wav", rate, 2, 16, noise(rate / 4, 2, 0.5, 11));
    const std::string html = p.dir.file("report.html");
    run_result r = run_veltrane({"analyze", "--ref", p.ref, "--dut", dut, "--out", html, "--quiet"});
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.err, "error: internal -- results JSON exceeded buffer size (the \"dut_file\" value is " +
                         std::to_string(dut.size()) + " bytes long after escaping, over the 511-byte limit)\n");
    EXPECT_FALSE(path_exists(html));
}

TEST(SafeOutputs, OutputNamingAnInputIsRefused) {
    pair_dir p;
    const std::string cfg = p.dir.file("x.json");
    ASSERT_TRUE(write_text_file(cfg, "{}"));
    ASSERT_EQ(link(p.dut.c_str(), p.dir.file("hard.wav").c_str()), 0);
    struct row {
        args extra;
        std::string out, output, option, input;
    };
    const row rows[] = {
        {{}, p.dut, p.dut, "--dut", p.dut},
        {{}, p.dir.path() + "/./ref.wav", p.dir.path() + "/./ref.wav", "--ref", p.ref},
        {{}, p.dir.file("hard.wav"), p.dir.file("hard.wav"), "--dut", p.dut},
        {{"--json", "--config", cfg}, p.dir.file("x.html"), p.dir.file("x.json"), "--config", cfg},
    };
    const std::string ref_bytes = file_text(p.ref), dut_bytes = file_text(p.dut), cfg_bytes = file_text(cfg);
    for (const row& r : rows) {
        run_result res = run_veltrane(p.analyze(r.out, r.extra));
        EXPECT_EQ(res.status, 1);
        EXPECT_EQ(res.err, "error: output '" + r.output + "' is the same file as " + r.option + " '" + r.input +
                               "' -- refusing to overwrite an input\n");
    }
    EXPECT_EQ(file_text(p.ref), ref_bytes);
    EXPECT_EQ(file_text(p.dut), dut_bytes);
    EXPECT_EQ(file_text(cfg), cfg_bytes);
    EXPECT_FALSE(path_exists(p.dir.file("x.html")));
}

TEST(SafeOutputs, FileNamesNeverChangeThePageOrBreakTheJson) {
    // The DUT's own name holds markup (its "</" part makes "x<" a directory), a comment
    // opener, control bytes and a stray Latin-1 byte.
    temp_dir names;
    ASSERT_TRUE(ensure_directory(names.file("x<")));
    const std::vector<std::string> duts = {
        "x</SCRIPT><img src=x onerror=alert(1)>.wav",
        "<!--<script>.wav",
        "a\x01\x1b[31m\x08.wav",
        "caf\xe9 & \"q\".wav",
    };
    for (const std::string& name : duts) {
        pair_dir p;
        const std::string dut = names.file(name);
        std::filesystem::copy_file(p.dut, dut, std::filesystem::copy_options::overwrite_existing);
        const std::string html = p.dir.file("report.html");
        run_result r = run_veltrane({"analyze", "--ref", p.ref, "--dut", dut, "--out", html, "--json", "--quiet"});
        ASSERT_EQ(r.status, 0) << r.err;
        const std::string page = file_text(html);
        const std::string doc = file_text(p.dir.file("report.json"));
        EXPECT_TRUE(fuzz::is_valid_json(doc)) << doc;
        EXPECT_EQ(island(page), escape_script_close(doc));
        EXPECT_EQ(island(page).find_first_of("<>&"), std::string::npos);
        EXPECT_EQ(page.find("<img"), std::string::npos);
        EXPECT_EQ(page.find("<!--"), std::string::npos);
    }
    // An ordinary name: the island is the document byte for byte.
    pair_dir p;
    ASSERT_EQ(run_veltrane(p.analyze(p.dir.file("r.html"), {"--json"})).status, 0);
    EXPECT_EQ(island(file_text(p.dir.file("r.html"))), file_text(p.dir.file("r.json")));
}

TEST(SafeSettings, NumbersOutOfRangeOrNotFiniteNeverReachTheRun) {
    pair_dir p;
    const std::string html = p.dir.file("report.html");
    const std::string defaults = p.dir.file("site.cfg");
    const std::string config = p.dir.file("tol.json");
    struct row {
        std::string defaults_text, config_text;
        int status;
        std::string err;
    };
    const row rows[] = {
        {R"({"alignment": {"fine_align_max_search_sec": 1e300}})", "{}", 1,
         "error: veltrane-defaults.cfg's alignment.fine_align_max_search_sec 1e+300 is out of range -- must be "
         "between 0 and 86400\n"},
        {R"({"alignment": {"fine_align_max_search_sec": -0.5}})", "{}", 1,
         "error: veltrane-defaults.cfg's alignment.fine_align_max_search_sec -0.5 is out of range -- must be "
         "between 0 and 86400\n"},
        {R"({"alignment": {"fine_align_agreement_tolerance_samples": -3}})", "{}", 1,
         "error: veltrane-defaults.cfg's alignment.fine_align_agreement_tolerance_samples -3 is out of range -- "
         "must be between 0 and 2147483647\n"},
        {"{}", R"({"general": {"length_mismatch_tolerance_pct": -1}})", 1,
         "error: --config's general.length_mismatch_tolerance_pct -1 is out of range -- must be between 0 and "
         "100\n"},
        {"{}", R"({"spectral_fidelity": {"freq_sweep_start_hz": 0}})", 1,
         "error: --config's spectral_fidelity.freq_sweep_start_hz 0 is out of range -- must be above 0 and at most "
         "1000000\n"},
        // NaN and infinities read as not set: the built-in values apply and the run passes.
        {R"({"alignment": {"fine_align_max_search_sec": -nan, "fine_align_confidence_threshold": 1e999}})",
         R"({"general": {"length_mismatch_tolerance_pct": -nan}})", 0, ""},
    };
    for (const row& r : rows) {
        ASSERT_TRUE(write_text_file(defaults, r.defaults_text));
        ASSERT_TRUE(write_text_file(config, r.config_text));
        run_result res = run_veltrane(p.analyze(html, {"--defaults-cfg", defaults, "--config", config}));
        EXPECT_EQ(res.status, r.status) << r.defaults_text << r.config_text;
        EXPECT_EQ(res.err, r.err);
    }
    // A NaN length tolerance does not switch the length check off.
    std::vector<double> s = noise(rate / 4, 2, 0.5, 11);
    const std::string short_dut = write_wav(p.dir.file("short.wav"), rate, 2, 16,
                                            std::vector<double>(s.begin(), s.begin() + 2 * (rate / 8)));
    run_result res = run_veltrane({"analyze", "--ref", p.ref, "--dut", short_dut, "--out", html, "--config", config,
                                   "--quiet"});
    EXPECT_EQ(res.status, 0) << res.err;
    EXPECT_NE(res.out.find("overall: FAIL -- Length Mismatch"), std::string::npos) << res.out;
}

}  // namespace
}  // namespace veltrane::test
