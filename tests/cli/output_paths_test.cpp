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

// prefix + n copies of c + suffix (built step by step: GCC 12 misreads operator+ chains).
std::string padded(const std::string& prefix, std::size_t n, char c, const char* suffix) {
    std::string s = prefix;
    s.append(n, c);
    s.append(suffix);
    return s;
}

std::string error_report_stderr(const error_report_request& req, const std::string& error_text) {
    std::ostringstream err;
    write_error_report(req, error_text, err);
    return err.str();
}

TEST(OutputPaths, ExactModeKeepsTheNameAndDerivesTheJson) {
    for (auto [out, json] : {std::pair<const char*, const char*>{"results/run1.html", "results/run1.json"},
                             {"veltrane-no-such-report", "veltrane-no-such-report.json"},
                             {"my.report.html", "my.report.json"},
                             {"a\\b/c\\d.htm", "a\\b/c\\d.json"},  // the later separator of either kind
                             {"dir.x/report", "dir.x/report.json"}}) {
        resolved r = resolve(out, "caps/take3.wav", true);
        ASSERT_TRUE(r.ok) << out;
        EXPECT_EQ(r.paths.html_path, out);
        EXPECT_EQ(r.paths.json_path, json);
    }
    resolved no_json = resolve("results/run1.html", "take3.wav", false);
    EXPECT_TRUE(no_json.ok && no_json.paths.json_path.empty() && no_json.err.empty());
    EXPECT_FALSE(std::filesystem::exists("results"));  // exact mode creates nothing
}

TEST(OutputPaths, DirectoryMode) {
    test::temp_dir tmp;
    // A missing directory named with a trailing separator is created.
    resolved r = resolve(tmp.file("out") + "/", "caps/take3.wav", true);
    ASSERT_TRUE(r.ok);
    EXPECT_TRUE(std::filesystem::is_directory(tmp.file("out")));
    EXPECT_EQ(r.paths.html_path, tmp.file("out/take3.html"));
    EXPECT_EQ(r.paths.json_path, tmp.file("out/take3.json"));
    // A backslash marks a directory too; the join always uses "/"; only the last extension goes.
    r = resolve(tmp.file("win") + "\\", "C:\\caps\\take.b.wav", false);
    EXPECT_EQ(r.paths.html_path, tmp.file("win") + "/take.b.html");
    // An existing directory without a separator; a leading dot starts no extension.
    r = resolve(tmp.file("out"), ".wav", true);
    EXPECT_EQ(r.paths.html_path, tmp.file("out/.wav.html"));
    EXPECT_EQ(r.paths.json_path, tmp.file("out/.wav.json"));
    // Only one trailing separator is removed.
    r = resolve(tmp.file("out") + "//", "x.wav", false);
    EXPECT_EQ(r.paths.html_path, tmp.file("out") + "//x.html");
    // A missing parent is not created.
    r = resolve(tmp.file("a/b/"), "take3.wav", true);
    EXPECT_FALSE(r.ok);
    EXPECT_EQ(r.err, "error: could not create output directory '" + tmp.file("a/b") + "'\n");
    EXPECT_FALSE(std::filesystem::exists(tmp.file("a")));
}

TEST(OutputPaths, LengthLimits) {
    test::temp_dir tmp;
    EXPECT_TRUE(resolve(std::string(4095, 'r'), "d.wav", false).ok);
    EXPECT_FALSE(resolve(std::string(4096, 'r'), "d.wav", false).ok);
    EXPECT_FALSE(resolve(padded("", 4096, 'r', "/"), "d.wav", false).ok);

    // Exact mode: prefix + stem + ".json" must fit 4095 characters (3901 + 189 + 5).
    std::string prefix = padded("", 3900, 'p', "/");
    resolved r = resolve(padded(prefix, 189, 's', ".html"), "d.wav", true);
    EXPECT_EQ(r.paths.json_path.size(), 4095u);
    EXPECT_FALSE(resolve(padded(prefix, 190, 's', ".html"), "d.wav", true).ok);

    // Stems are cut to 255 characters.
    r = resolve(tmp.path() + "/", padded("", 300, 'n', ".wav"), false);
    EXPECT_EQ(r.paths.html_path, padded(tmp.path() + "/", 255, 'n', ".html"));
    r = resolve(padded("x/", 300, 'm', ".html"), "d.wav", true);
    EXPECT_EQ(r.paths.json_path, padded("x/", 255, 'm', ".json"));

    // Directory mode: "<dir>/<stem>.html" beyond 4095 characters fails. The directory
    // ends up 3841 to 4041 characters long, leaving room for a stem of 48 to 248.
    std::string deep = tmp.path();
    while (deep.size() <= 3840) {
        deep.append(1, '/').append(200, 'd');
        ASSERT_TRUE(std::filesystem::create_directory(deep));
    }
    std::string stem_source = padded("", 4095 - deep.size() - 6, 'q', ".wav");
    r = resolve(deep, stem_source, false);
    EXPECT_EQ(r.paths.html_path.size(), 4095u);
    EXPECT_FALSE(resolve(deep, stem_source.insert(0, 1, 'q'), false).ok);
}

TEST(RunErrorSummary, JoinsMessagesAndCutsOnOverflow) {
    run_error_summary& s = current_run_error_summary();
    run_error_summary_clear(s);
    std::ostringstream err;
    report_run_error(err, "%s sample rate %u Hz is outside the supported range [%u, %u] Hz", "--ref", 16000u, 22050u,
                     192000u);
    report_run_error(err, "%s has %u channel(s)", "--dut", 4u);
    EXPECT_EQ(err.str(),
              "error: --ref sample rate 16000 Hz is outside the supported range [22050, 192000] Hz\n"
              "error: --dut has 4 channel(s)\n");
    EXPECT_EQ(run_error_summary_text(s),
              "--ref sample rate 16000 Hz is outside the supported range [22050, 192000] Hz; --dut has 4 channel(s)");

    // One message is cut to 1499 characters, the summary to 1599.
    run_error_summary_clear(s);
    std::ostringstream long_err;
    report_run_error(long_err, "%s", std::string(2000, 'x').c_str());
    EXPECT_EQ(long_err.str(), padded("error: ", 1499, 'x', "\n"));
    report_run_error(long_err, "%s", std::string(200, 't').c_str());
    EXPECT_EQ(run_error_summary_text(s), padded("", 1499, 'x', "; ").append(98, 't'));
    EXPECT_EQ(s.len, 1599u);
    run_error_summary_clear(s);
}

TEST(ErrorReport, WritesPageAndDocument) {
    test::temp_dir tmp;
    error_report_request req{true, "C:\\in\\x.wav", "caps/take3.wav", tmp.file("out") + "/", true};
    const std::string text = "failed to read --ref 'C:\\in\\x.wav' (file not found or not readable)";
    EXPECT_EQ(error_report_stderr(req, text),
              "wrote an error report to " + tmp.file("out/take3.html") + " (overall: ERROR)\n");
    test::bytes page = test::read_bytes(tmp.file("out/take3.html"));
    EXPECT_NE(std::string(page.begin(), page.end())
                  .find("<p class=\"run-error\">failed to read --ref &#39;C:\\in\\x.wav&#39; (file not found"),
              std::string::npos);
    // (The error document's layout is compared whole in the goldens.)
    EXPECT_TRUE(std::filesystem::exists(tmp.file("out/take3.json")));

    // Without --json only the page is written.
    error_report_request no_json{true, "x.wav", "d.wav", tmp.file("plain.html"), false};
    EXPECT_EQ(error_report_stderr(no_json, "boom"),
              "wrote an error report to " + tmp.file("plain.html") + " (overall: ERROR)\n");
    EXPECT_FALSE(std::filesystem::exists(tmp.file("plain.json")));
}

TEST(ErrorReport, FailuresAreWarnings) {
    test::temp_dir tmp;
    auto request = [&](const std::string& out) { return error_report_request{true, "r.wav", "d.wav", out, true}; };
    auto warning = [](const std::string& path) { return "warning: could not write the error report '" + path + "'\n"; };
    // Unresolvable --out: only the directory error.
    EXPECT_EQ(error_report_stderr(request(tmp.file("a/b/")), "boom"),
              "error: could not create output directory '" + tmp.file("a/b") + "'\n");
    // The page cannot be written: one warning naming it.
    EXPECT_EQ(error_report_stderr(request(tmp.file("no/page.html")), "boom"), warning(tmp.file("no/page.html")));
    // 511 escaped bytes still fit the document's error entry; 512 do not, and the page stays.
    EXPECT_EQ(error_report_stderr(request(tmp.file("fits.html")), std::string(511, 'z')),
              "wrote an error report to " + tmp.file("fits.html") + " (overall: ERROR)\n");
    // The warning names the value that did not fit.
    EXPECT_EQ(error_report_stderr(request(tmp.file("long.html")), padded("", 510, 'z', "\"")),
              "warning: could not write the error report '" + tmp.file("long.json") +
                  "' (the \"error\" value is 512 bytes long after escaping, over the 511-byte limit)\n");
    EXPECT_TRUE(std::filesystem::exists(tmp.file("long.html")));
    EXPECT_FALSE(std::filesystem::exists(tmp.file("long.json")));
    // The document's path is taken by a directory.
    std::filesystem::create_directory(tmp.file("taken.json"));
    EXPECT_EQ(error_report_stderr(request(tmp.file("taken.html")), "boom"), warning(tmp.file("taken.json")));
}

}  // namespace
}  // namespace veltrane
