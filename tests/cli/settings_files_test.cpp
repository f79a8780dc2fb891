// Black-box tests of how the commands load their settings files: the defaults file
// (named or next to the executable), analyze's --config file and the profiles.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "support/process.h"
#include "support/temp_dir.h"
#include "util/files.h"

namespace veltrane::test {
namespace {

using args = std::vector<std::string>;

constexpr const char* broken_defaults = "{\"general\": {\"test_engineer\": \"Jo\"}\n";
constexpr const char* valid_defaults = R"(// site settings
{
  "general": {"test_engineer": "Jo", "tester_info_enabled": true,},
  "alignment": {"sync_psr_threshold": 7},
  "analysis": {"spectral_fidelity": {"noise_floor_db": -110}, "unknown": 1}
})";

// One invocation of each command with `extra` appended; all name outputs in `dir`.
std::vector<args> every_command(const temp_dir& dir, const args& extra) {
    std::vector<args> commands = {
        {"trim", "--input", dir.file("x.wav"), "--out", dir.file("y.wav")},
        {"plot", "--input", dir.file("x.wav"), "--out", dir.file("p.html")},
        {"analyze", "--ref", dir.file("r.wav"), "--dut", dir.file("d.wav"), "--out", dir.file("a.html")},
    };
    for (args& a : commands) a.insert(a.end(), extra.begin(), extra.end());
    return commands;
}

bool mentions_settings_failure(const std::string& err) {
    return err.find("defaults") != std::string::npos || err.find("failed to read or parse") != std::string::npos;
}

TEST(DefaultsCfgOption, MissingOrBrokenFileStopsEveryCommand) {
    temp_dir dir;
    ASSERT_TRUE(write_text_file(dir.file("broken.cfg"), broken_defaults));
    for (const char* name : {"missing.cfg", "broken.cfg"}) {
        for (const args& a : every_command(dir, {"--defaults-cfg", name})) {
            run_result r = run_veltrane(a, dir.path());
            EXPECT_EQ(r.status, 1) << a[0] << " " << name;
            EXPECT_EQ(r.out, "");
            EXPECT_EQ(r.err, std::string("error: --defaults-cfg '") + name + "' does not exist or could not be parsed\n")
                << a[0];
        }
    }
    EXPECT_FALSE(path_exists(dir.file("y.wav")));
    EXPECT_FALSE(path_exists(dir.file("p.html")));
    EXPECT_FALSE(path_exists(dir.file("a.html")));
}

// A copy of the binary in its own directory, so that a veltrane-defaults.cfg can sit
// next to it.
class ImplicitDefaultsFile : public ::testing::Test {
protected:
    void SetUp() override {
        binary_ = dir_.file("veltrane");
        std::filesystem::copy_file(VELTRANE_BIN, binary_);
    }
    run_result run(const args& a) { return run_program(binary_, a, dir_.path()); }

    temp_dir dir_;
    std::string binary_;
};

TEST_F(ImplicitDefaultsFile, OnlyABrokenFileNextToTheBinaryStopsACommand) {
    for (const args& a : every_command(dir_, {})) EXPECT_FALSE(mentions_settings_failure(run(a).err)) << a[0];
    ASSERT_TRUE(write_text_file(dir_.file("veltrane-defaults.cfg"), valid_defaults));
    for (const args& a : every_command(dir_, {})) EXPECT_FALSE(mentions_settings_failure(run(a).err)) << a[0];

    ASSERT_TRUE(write_text_file(dir_.file("veltrane-defaults.cfg"), broken_defaults));
    for (const args& a : every_command(dir_, {})) {
        run_result r = run(a);
        EXPECT_EQ(r.status, 1) << a[0];
        EXPECT_EQ(r.err, "error: failed to read or parse veltrane-defaults.cfg\n") << a[0];
    }
    // A named file replaces the one next to the binary; unknown keys, trailing commas and
    // comments in it do no harm.
    ASSERT_TRUE(write_text_file(dir_.file("site.cfg"), valid_defaults));
    for (const args& a : every_command(dir_, {"--defaults-cfg", dir_.file("site.cfg")})) {
        EXPECT_FALSE(mentions_settings_failure(run(a).err)) << a[0];
    }
}

// --config is read before the defaults file; flag conflicts are refused before any file
// is looked at; an unknown profile names the file it came from.
TEST(AnalyzeSettingsFiles, ErrorsNameTheFileAtFault) {
    temp_dir dir;
    ASSERT_TRUE(write_text_file(dir.file("unbalanced.json"), "{\"loudness\": {\"enabled\": false}"));
    ASSERT_TRUE(write_text_file(dir.file("tol.json"), R"({"general": {"default_profile": "deepscan"}})"));
    ASSERT_TRUE(write_text_file(dir.file("site.cfg"), R"({"analysis": {"general": {"default_profile": "Time_Domain"}}})"));
    ASSERT_TRUE(write_text_file(dir.file("good.json"), R"({"general": {"default_profile": "time_domain"}})"));
    const std::string tail =
        "' not recognized -- must be one of \"bit_exact\", \"bit_accuracy\", \"amplitude_sweep\", "
        "\"frequency_sweep\", \"frequency_domain\", \"impulse_domain\", \"time_domain\" (--deepscan)\n";
    struct row {
        args extra;
        std::string err;
    };
    const row rows[] = {
        {{"--config", "nope.json", "--defaults-cfg", "missing.cfg"}, "error: failed to read or parse --config 'nope.json'\n"},
        {{"--config", "unbalanced.json"}, "error: failed to read or parse --config 'unbalanced.json'\n"},
        {{"--config", "nope.json", "--ampsweep", "--freqsweep"},
         "error: --ampsweep and --freqsweep cannot both be set -- spectral_fidelity.profile is a single choice, not an "
         "independent toggle\n"},
        {{"--defaults-cfg", "site.cfg", "--config", "tol.json"}, "error: --config's general.default_profile 'deepscan" + tail},
        {{"--defaults-cfg", "site.cfg", "--config", "good.json"},
         "error: veltrane-defaults.cfg's general.default_profile 'Time_Domain" + tail},
    };
    for (const row& r : rows) {
        args a = {"analyze", "--ref", "r.wav", "--dut", "d.wav", "--out", "a.html"};
        a.insert(a.end(), r.extra.begin(), r.extra.end());
        run_result res = run_veltrane(a, dir.path());
        EXPECT_EQ(res.status, 1) << r.err;
        EXPECT_EQ(res.err, r.err);
    }
}

}  // namespace
}  // namespace veltrane::test
