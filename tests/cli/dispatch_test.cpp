// Black-box tests of program entry, dispatch and the option conventions shared by the
// subcommands, run against the real binary.
#include <gtest/gtest.h>

#include "support/process.h"

namespace veltrane::test {
namespace {

const std::string& usage() { return usage_text_from_binary(); }

TEST(Dispatch, NoArgumentsPrintsUsageToStderr) {
    run_result r = run_veltrane({});
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.out, "");
    EXPECT_EQ(r.err, usage());
}

TEST(Dispatch, HelpAndVersion) {
    for (const char* flag : {"--help", "-h"}) {
        run_result r = run_veltrane({flag});
        EXPECT_EQ(r.status, 0) << flag;
        EXPECT_EQ(r.err, "") << flag;
        EXPECT_EQ(r.out, usage()) << flag;
    }
    run_result v = run_veltrane({"--version"});
    EXPECT_EQ(v.status, 0);
    EXPECT_EQ(v.out, "veltrane v0.7.1-beta\n");
    EXPECT_EQ(v.err, "");
}

TEST(Dispatch, UsageTextIsVerbatim) {
    const std::string& u = usage();
    EXPECT_EQ(u.rfind("veltrane -- WAV Audio QA analysis engine\n\nusage:\n", 0), 0u);
    // The literal percent sign must survive (the text is never used as a format).
    EXPECT_NE(u.find("add Time Domain (whole-file % diff scan, off by default)\n"), std::string::npos);
    EXPECT_NE(u.find("--json's path is the same with .json swapped in.\n"), std::string::npos);
    EXPECT_TRUE(u.ends_with("  veltrane trim --input original.wav --out trimmed.wav\n"));
    EXPECT_EQ(u.size(), 3218u);
}

TEST(Dispatch, UnknownSubcommandIsCaseSensitive) {
    for (const char* cmd : {"Analyze", "--Version", "-v", "help"}) {
        run_result r = run_veltrane({cmd});
        EXPECT_EQ(r.status, 1) << cmd;
        EXPECT_EQ(r.out, "");
        EXPECT_EQ(r.err, std::string("error: unknown subcommand '") + cmd +
                             "' (expected 'analyze', 'trim', or 'plot')\n\n" + usage());
    }
}

TEST(Subcommands, NothingAfterTheNamePrintsRequiresLine) {
    struct {
        const char* cmd;
        const char* line;
    } cases[] = {{"analyze", "error: analyze requires --ref, --dut, and --out\n\n"},
                 {"trim", "error: trim requires --input and --out\n\n"},
                 {"plot", "error: plot requires --input and --out\n\n"}};
    for (const auto& c : cases) {
        run_result r = run_veltrane({c.cmd});
        EXPECT_EQ(r.status, 1) << c.cmd;
        EXPECT_EQ(r.out, "");
        EXPECT_EQ(r.err, std::string(c.line) + usage());
    }
}

TEST(Subcommands, MissingRequiredOptionAfterParsing) {
    run_result r = run_veltrane({"trim", "--out", "y.wav"});
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.err, "error: trim requires --input and --out\n\n" + usage());
    r = run_veltrane({"plot", "--input", "a.wav"});
    EXPECT_EQ(r.err, "error: plot requires --input and --out\n\n" + usage());
    r = run_veltrane({"analyze", "--ref", "a.wav", "--out", "o.html", "--json"});
    EXPECT_EQ(r.err, "error: analyze requires --ref, --dut, and --out\n\n" + usage());
}

TEST(Subcommands, ValueOptionStandingLastIsUnrecognized) {
    run_result r = run_veltrane({"analyze", "--ref", "a.wav", "--dut", "b.wav", "--out"});
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.out, "");
    EXPECT_EQ(r.err, "error: unrecognized argument '--out'\n\n" + usage());
    r = run_veltrane({"plot", "--input", "a.wav", "--out"});
    EXPECT_EQ(r.err, "error: unrecognized argument '--out'\n\n" + usage());
    r = run_veltrane({"trim", "--input", "a.wav", "--out", "b.wav", "--report"});
    EXPECT_EQ(r.err, "error: unrecognized argument '--report'\n\n" + usage());
}

TEST(Subcommands, UnknownArgumentStopsParsing) {
    // The scan stops at the first unknown argument, before a later --help.
    run_result r = run_veltrane({"analyze", "--bogus", "--help"});
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.err, "error: unrecognized argument '--bogus'\n\n" + usage());
    // Options of one subcommand are unknown to another.
    r = run_veltrane({"plot", "--input", "a.wav", "--out", "o.html", "--report", "r.json"});
    EXPECT_EQ(r.err, "error: unrecognized argument '--report'\n\n" + usage());
    r = run_veltrane({"trim", "--input", "a.wav", "--out", "o.wav", "--json"});
    EXPECT_EQ(r.err, "error: unrecognized argument '--json'\n\n" + usage());
}

TEST(Subcommands, HelpWhileScanning) {
    for (const char* cmd : {"analyze", "trim", "plot"}) {
        run_result r = run_veltrane({cmd, "--help"});
        EXPECT_EQ(r.status, 0) << cmd;
        EXPECT_EQ(r.out, usage());
        EXPECT_EQ(r.err, "");
    }
    run_result r = run_veltrane({"analyze", "--json", "-h"});
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out, usage());
    // A value option takes the next argument whatever it looks like, so this --help is
    // the value of --out and the missing --dut is what gets reported.
    r = run_veltrane({"analyze", "--ref", "a.wav", "--out", "--help"});
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.err, "error: analyze requires --ref, --dut, and --out\n\n" + usage());
}

TEST(Subcommands, AnalyzeFlagConflicts) {
    const std::vector<std::string> base = {"analyze", "--ref", "a.wav", "--dut", "b.wav", "--out", "o.html"};
    struct {
        std::vector<std::string> flags;
        const char* message;
    } cases[] = {
        {{"--freqsweep", "--ampsweep"},
         "error: --ampsweep and --freqsweep cannot both be set -- spectral_fidelity.profile is a single choice, not "
         "an independent toggle\n"},
        {{"--no-bitexact", "--bitexact"},
         "error: --bitexact and --no-bitexact cannot both be set -- one asks for strict gating, the other asks to "
         "skip the check entirely\n"},
        {{"--loudness", "--no-loudness"},
         "error: --loudness and --no-loudness cannot both be set -- one asks for strict gating, the other asks to "
         "skip the check entirely\n"},
    };
    for (const auto& c : cases) {
        std::vector<std::string> args = base;
        args.insert(args.end(), c.flags.begin(), c.flags.end());
        run_result r = run_veltrane(args);
        EXPECT_EQ(r.status, 1);
        EXPECT_EQ(r.out, "");
        EXPECT_EQ(r.err, c.message);
    }
    // All three conflicts at once: the sweep conflict is reported first, alone.
    std::vector<std::string> args = base;
    args.insert(args.end(), {"--loudness", "--no-loudness", "--bitexact", "--no-bitexact", "--ampsweep", "--freqsweep"});
    EXPECT_EQ(run_veltrane(args).err, cases[0].message);
}

}  // namespace
}  // namespace veltrane::test
