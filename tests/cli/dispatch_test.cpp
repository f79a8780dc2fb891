// Black-box tests of program entry, dispatch and the option conventions shared by the
// subcommands, run against the real binary.
#include <gtest/gtest.h>

#include "support/process.h"

namespace veltrane::test {
namespace {

const std::string& usage() { return usage_text_from_binary(); }

TEST(Dispatch, UsageTextIsVerbatim) {
    const std::string& u = usage();
    EXPECT_EQ(u.rfind("veltrane -- WAV Audio QA analysis engine\n\nusage:\n", 0), 0u);
    // The literal percent sign must survive (the text is never used as a format).
    EXPECT_NE(u.find("add Time Domain (whole-file % diff scan, off by default)\n"), std::string::npos);
    EXPECT_NE(u.find("--json's path is the same with .json swapped in.\n"), std::string::npos);
    EXPECT_TRUE(u.ends_with("  veltrane trim --input original.wav --out trimmed.wav\n"));
    EXPECT_EQ(u.size(), 3218u);
}

// Every invocation here ends before any file is read: its status and both streams are exact.
TEST(Dispatch, StatusAndOutputOfEachInvocation) {
    const std::string analyze_requires = "error: analyze requires --ref, --dut, and --out\n\n" + usage();
    const std::string trim_requires = "error: trim requires --input and --out\n\n" + usage();
    const std::string plot_requires = "error: plot requires --input and --out\n\n" + usage();
    auto unrecognized = [](const char* arg) { return std::string("error: unrecognized argument '") + arg + "'\n\n" + usage(); };
    auto unknown = [](const char* cmd) {
        return std::string("error: unknown subcommand '") + cmd + "' (expected 'analyze', 'trim', or 'plot')\n\n" + usage();
    };
    struct row {
        std::vector<std::string> args;
        int status;
        std::string out, err;
    };
    const row rows[] = {
        {{}, 1, "", usage()},
        {{"--help"}, 0, usage(), ""},
        {{"-h"}, 0, usage(), ""},
        {{"--version"}, 0, "veltrane v0.7.1-beta\n", ""},
        // Subcommand names are case-sensitive, and help is an option only.
        {{"Analyze"}, 1, "", unknown("Analyze")},
        {{"--Version"}, 1, "", unknown("--Version")},
        {{"-v"}, 1, "", unknown("-v")},
        {{"help"}, 1, "", unknown("help")},
        // Nothing after the name, or a required option missing once parsing is done.
        {{"analyze"}, 1, "", analyze_requires},
        {{"trim"}, 1, "", trim_requires},
        {{"plot"}, 1, "", plot_requires},
        {{"trim", "--out", "y.wav"}, 1, "", trim_requires},
        {{"plot", "--input", "a.wav"}, 1, "", plot_requires},
        {{"analyze", "--ref", "a.wav", "--out", "o.html", "--json"}, 1, "", analyze_requires},
        // A value option standing last has no value and is unrecognized.
        {{"analyze", "--ref", "a.wav", "--dut", "b.wav", "--out"}, 1, "", unrecognized("--out")},
        {{"plot", "--input", "a.wav", "--out"}, 1, "", unrecognized("--out")},
        {{"trim", "--input", "a.wav", "--out", "b.wav", "--report"}, 1, "", unrecognized("--report")},
        // The scan stops at the first unknown argument, before a later --help; options of
        // one subcommand are unknown to another.
        {{"analyze", "--bogus", "--help"}, 1, "", unrecognized("--bogus")},
        {{"plot", "--input", "a.wav", "--out", "o.html", "--report", "r.json"}, 1, "", unrecognized("--report")},
        {{"trim", "--input", "a.wav", "--out", "o.wav", "--json"}, 1, "", unrecognized("--json")},
        // Help while scanning; a value option takes the next argument whatever it looks
        // like, so the last --help is the value of --out and the missing --dut is reported.
        {{"analyze", "--help"}, 0, usage(), ""},
        {{"trim", "--help"}, 0, usage(), ""},
        {{"plot", "--help"}, 0, usage(), ""},
        {{"analyze", "--json", "-h"}, 0, usage(), ""},
        {{"analyze", "--ref", "a.wav", "--out", "--help"}, 1, "", analyze_requires},
    };
    for (const row& r : rows) {
        SCOPED_TRACE(testing::PrintToString(r.args));
        const run_result res = run_veltrane(r.args);
        EXPECT_EQ(res.status, r.status);
        EXPECT_EQ(res.out, r.out);
        EXPECT_EQ(res.err, r.err);
    }
}

TEST(Subcommands, AnalyzeFlagConflicts) {
    const std::vector<std::string> base = {"analyze", "--ref", "a.wav", "--dut", "b.wav", "--out", "o.html"};
    const std::string sweeps =
        "error: --ampsweep and --freqsweep cannot both be set -- spectral_fidelity.profile is a single choice, not an "
        "independent toggle\n";
    const std::string gating = " cannot both be set -- one asks for strict gating, the other asks to skip the check entirely\n";
    struct {
        std::vector<std::string> flags;
        std::string message;
    } cases[] = {
        {{"--freqsweep", "--ampsweep"}, sweeps},
        {{"--no-bitexact", "--bitexact"}, "error: --bitexact and --no-bitexact" + gating},
        {{"--loudness", "--no-loudness"}, "error: --loudness and --no-loudness" + gating},
        // All three conflicts at once: the sweep conflict is reported first, alone.
        {{"--loudness", "--no-loudness", "--bitexact", "--no-bitexact", "--ampsweep", "--freqsweep"}, sweeps},
    };
    for (const auto& c : cases) {
        std::vector<std::string> args = base;
        args.insert(args.end(), c.flags.begin(), c.flags.end());
        run_result r = run_veltrane(args);
        EXPECT_EQ(r.status, 1);
        EXPECT_EQ(r.out, "");
        EXPECT_EQ(r.err, c.message);
    }
}

}  // namespace
}  // namespace veltrane::test
