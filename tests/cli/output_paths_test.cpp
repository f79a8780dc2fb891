// Output naming from --out, the run's error summary and the ERROR report.
#include <gtest/gtest.h>

#include <filesystem>
#include <sstream>
#include <string>

#include "cli/error_report.h"
#include "cli/output_paths.h"
#include "support/temp_dir.h"
#include "support/wav_bytes.h"

namespace veltrane {
namespace {

struct resolved {
    bool ok = false;
    output_paths paths;
    std::string err;
};

resolved resolve(const std::string& out, const std::string& name_source, bool json) {
    resolved r;
    std::ostringstream err;
    r.ok = resolve_output_paths(out, name_source, json, r.paths, err);
    r.err = err.str();
    return r;
}

// prefix + n letters + suffix (built step by step: GCC 12 misreads the operator+ chain).
std::string padded(const char* prefix, std::size_t n, const char* suffix) {
    std::string s = prefix;
    s.append(n, 'm');
    s.append(suffix);
    return s;
}

std::string slurp(const std::string& path) {
    test::bytes raw = test::read_bytes(path);
    return std::string(raw.begin(), raw.end());
}

TEST(OutputPaths, ExactModeKeepsTheNameAndDerivesTheJson) {
    struct {
        const char* out;
        const char* json;
    } cases[] = {
        {"results/run1.html", "results/run1.json"},
        {"veltrane-no-such-report", "veltrane-no-such-report.json"},
        {"my.report.html", "my.report.json"},
        {"a\\b/c\\d.htm", "a\\b/c\\d.json"},  // the later separator of either kind
        {"dir.x/report", "dir.x/report.json"},
    };
    for (const auto& c : cases) {
        resolved r = resolve(c.out, "caps/take3.wav", true);
        ASSERT_TRUE(r.ok) << c.out;
        EXPECT_EQ(r.paths.html_path, c.out);
        EXPECT_EQ(r.paths.json_path, c.json);
        EXPECT_EQ(r.err, "");
    }
    resolved no_json = resolve("results/run1.html", "take3.wav", false);
    ASSERT_TRUE(no_json.ok);
    EXPECT_EQ(no_json.paths.json_path, "");
    EXPECT_FALSE(std::filesystem::exists("results"));  // exact mode creates nothing
}

TEST(OutputPaths, DirectoryModeCreatesOneLevel) {
    test::temp_dir tmp;
    // Missing directory with a trailing separator: created, named after the DUT's stem.
    std::string out = tmp.file("out") + "/";
    resolved r = resolve(out, "caps/take3.wav", true);
    ASSERT_TRUE(r.ok);
    EXPECT_TRUE(std::filesystem::is_directory(tmp.file("out")));
    EXPECT_EQ(r.paths.html_path, tmp.file("out/take3.html"));
    EXPECT_EQ(r.paths.json_path, tmp.file("out/take3.json"));

    // A backslash also marks a directory; the join always uses "/".
    r = resolve(tmp.file("win") + "\\", "C:\\caps\\take.b.wav", false);
    ASSERT_TRUE(r.ok);
    EXPECT_EQ(r.paths.html_path, tmp.file("win") + "/take.b.html");
    EXPECT_TRUE(std::filesystem::is_directory(tmp.file("win")));

    // An existing directory without a trailing separator.
    std::filesystem::create_directory(tmp.file("report"));
    r = resolve(tmp.file("report"), ".wav", true);
    ASSERT_TRUE(r.ok);
    EXPECT_EQ(r.paths.html_path, tmp.file("report/.wav.html"));
    EXPECT_EQ(r.paths.json_path, tmp.file("report/.wav.json"));

    // Only one trailing separator is removed.
    r = resolve(tmp.file("report") + "//", "x.wav", false);
    ASSERT_TRUE(r.ok);
    EXPECT_EQ(r.paths.html_path, tmp.file("report") + "//x.html");
}

TEST(OutputPaths, MissingParentIsAnError) {
    test::temp_dir tmp;
    resolved r = resolve(tmp.file("a/b/"), "take3.wav", true);
    EXPECT_FALSE(r.ok);
    EXPECT_EQ(r.err, "error: could not create output directory '" + tmp.file("a/b") + "'\n");
    EXPECT_FALSE(std::filesystem::exists(tmp.file("a")));
}

TEST(OutputPaths, LengthLimits) {
    test::temp_dir tmp;
    const std::string max_out(4095, 'r');
    resolved r = resolve(max_out, "d.wav", false);
    EXPECT_TRUE(r.ok);
    EXPECT_FALSE(resolve(max_out + "r", "d.wav", false).ok);
    EXPECT_FALSE(resolve(std::string(4096, 'r') + "/", "d.wav", false).ok);

    // Exact mode JSON: prefix + stem + ".json" must fit 4095 characters.
    std::string prefix = std::string(3900, 'p') + "/";
    std::string stem(189, 's');  // 3901 + 189 + 5 = 4095
    r = resolve(prefix + stem + ".html", "d.wav", true);
    ASSERT_TRUE(r.ok);
    EXPECT_EQ(r.paths.json_path.size(), 4095u);
    EXPECT_FALSE(resolve(prefix + stem + "s.html", "d.wav", true).ok);

    // Stems are cut to 255 characters.
    r = resolve(tmp.path() + "/", std::string(300, 'n') + ".wav", true);
    ASSERT_TRUE(r.ok);
    EXPECT_EQ(r.paths.html_path, tmp.path() + "/" + std::string(255, 'n') + ".html");
    r = resolve(padded("x/", 300, ".html"), "d.wav", true);
    ASSERT_TRUE(r.ok);
    EXPECT_EQ(r.paths.json_path, padded("x/", 255, ".json"));

    // Directory mode: "<dir>/<stem>.html" over 4095 characters fails. The directory ends up
    // between 3841 and 4041 characters long, leaving a stem of 48 to 248 characters.
    std::string deep = tmp.path();
    while (deep.size() <= 3840) {
        deep.append(1, '/').append(200, 'd');
        ASSERT_TRUE(std::filesystem::create_directory(deep));
    }
    std::string stem_source(4095 - deep.size() - 6, 'q');
    stem_source.append(".wav");
    r = resolve(deep, stem_source, false);
    ASSERT_TRUE(r.ok);
    EXPECT_EQ(r.paths.html_path.size(), 4095u);
    EXPECT_FALSE(resolve(deep, stem_source.insert(0, 1, 'q'), false).ok);
}

TEST(RunErrorSummary, JoinsMessagesAndCutsOnOverflow) {
    run_error_summary s;
    run_error_summary_append(s, "first");
    run_error_summary_append(s, "second");
    EXPECT_EQ(run_error_summary_text(s), "first; second");

    run_error_summary_clear(s);
    run_error_summary_append(s, std::string(1590, 'a'));
    run_error_summary_append(s, "bcdefghijklmnop");
    EXPECT_EQ(s.len, 1599u);
    EXPECT_EQ(run_error_summary_text(s), std::string(1590, 'a') + "; bcdefgh");
    run_error_summary_append(s, "more");
    EXPECT_EQ(s.len, 1599u);
}

TEST(RunErrorSummary, ReportRunErrorPrintsAndCollects) {
    run_error_summary& current = current_run_error_summary();
    run_error_summary_clear(current);
    std::ostringstream err;
    report_run_error(err, "%s sample rate %u Hz is outside the supported range [%u, %u] Hz", "--ref", 16000u, 22050u,
                     192000u);
    report_run_error(err, "%s sample rate %u Hz is outside the supported range [%u, %u] Hz", "--dut", 8000u, 22050u,
                     192000u);
    EXPECT_EQ(err.str(),
              "error: --ref sample rate 16000 Hz is outside the supported range [22050, 192000] Hz\n"
              "error: --dut sample rate 8000 Hz is outside the supported range [22050, 192000] Hz\n");
    EXPECT_EQ(run_error_summary_text(current),
              "--ref sample rate 16000 Hz is outside the supported range [22050, 192000] Hz; "
              "--dut sample rate 8000 Hz is outside the supported range [22050, 192000] Hz");

    // One message is cut to 1499 characters.
    run_error_summary_clear(current);
    std::ostringstream err2;
    std::string long_text(2000, 'x');
    report_run_error(err2, "%s", long_text.c_str());
    EXPECT_EQ(err2.str(), "error: " + std::string(1499, 'x') + "\n");
    EXPECT_EQ(current.len, 1499u);
    run_error_summary_clear(current);
}

TEST(ErrorDocument, KeysInOrder) {
    error_report_request req{true, "C:\\in\\ref.wav", "dut.wav", "out/", true};
    std::string doc;
    ASSERT_TRUE(build_error_document(req, "failed to read --ref 'x' (file not found or not readable)", doc));
    EXPECT_EQ(doc,
              "{\n"
              "    \"veltrane_phase\": 2,\n"
              "    \"status\": \"error\",\n"
              "    \"overall_verdict\": \"ERROR\",\n"
              "    \"error\": \"failed to read --ref 'x' (file not found or not readable)\",\n"
              "    \"ref_file\": \"C:\\\\in\\\\ref.wav\",\n"
              "    \"dut_file\": \"dut.wav\"\n"
              "}\n");
    EXPECT_TRUE(build_error_document(req, std::string(511, 'e'), doc));
    EXPECT_FALSE(build_error_document(req, std::string(510, 'e') + "\"", doc));  // 512 bytes once escaped
}

struct report_run {
    std::string err;
};

report_run write_report(const error_report_request& req, const std::string& error_text) {
    std::ostringstream err;
    write_error_report(req, error_text, err);
    return {err.str()};
}

TEST(ErrorReport, WritesPageAndDocument) {
    test::temp_dir tmp;
    error_report_request req{true, "x.wav", "caps/take3.wav", tmp.file("out") + "/", true};
    const std::string text = "failed to read --ref 'x.wav' (file not found or not readable)";
    report_run r = write_report(req, text);
    std::string html = tmp.file("out/take3.html");
    EXPECT_EQ(r.err, "wrote an error report to " + html + " (overall: ERROR)\n");
    std::string page = slurp(html);
    EXPECT_NE(page.find("<p class=\"run-error\">failed to read --ref &#39;x.wav&#39; (file not found or not "
                        "readable)</p>"),
              std::string::npos);
    EXPECT_NE(page.find("<span><b>Veltrane</b> v0.7.1-beta</span>"), std::string::npos);
    std::string doc = slurp(tmp.file("out/take3.json"));
    EXPECT_NE(doc.find("    \"error\": \"" + text + "\",\n"), std::string::npos);
    EXPECT_TRUE(doc.ends_with("    \"dut_file\": \"caps/take3.wav\"\n}\n"));

    // Without --json only the page is written.
    error_report_request no_json{true, "x.wav", "d.wav", tmp.file("plain.html"), false};
    r = write_report(no_json, "boom");
    EXPECT_EQ(r.err, "wrote an error report to " + tmp.file("plain.html") + " (overall: ERROR)\n");
    EXPECT_FALSE(std::filesystem::exists(tmp.file("plain.json")));
}

TEST(ErrorReport, FailuresAreWarnings) {
    test::temp_dir tmp;
    // Unresolvable --out: only the directory error.
    error_report_request bad_dir{true, "r.wav", "d.wav", tmp.file("a/b/"), true};
    EXPECT_EQ(write_report(bad_dir, "boom").err,
              "error: could not create output directory '" + tmp.file("a/b") + "'\n");

    // The page cannot be written: one warning naming it, no document.
    error_report_request bad_page{true, "r.wav", "d.wav", tmp.file("nodir/page.html"), true};
    EXPECT_EQ(write_report(bad_page, "boom").err,
              "warning: could not write the error report '" + tmp.file("nodir/page.html") + "'\n");

    // A summary too long for the document: the page stays, the document is reported.
    error_report_request long_text{true, "r.wav", "d.wav", tmp.file("long.html"), true};
    EXPECT_EQ(write_report(long_text, std::string(600, 'z')).err,
              "warning: could not write the error report '" + tmp.file("long.json") + "'\n");
    EXPECT_TRUE(std::filesystem::exists(tmp.file("long.html")));
    EXPECT_FALSE(std::filesystem::exists(tmp.file("long.json")));

    // The document's path is taken by a directory.
    std::filesystem::create_directory(tmp.file("taken.json"));
    error_report_request taken{true, "r.wav", "d.wav", tmp.file("taken.html"), true};
    EXPECT_EQ(write_report(taken, "boom").err,
              "warning: could not write the error report '" + tmp.file("taken.json") + "'\n");
}

}  // namespace
}  // namespace veltrane
