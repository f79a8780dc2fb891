// Whole outputs of `veltrane analyze` on generated pairs, compared byte for byte with the
// goldens in tests/data/golden/ (footer time masked): the report page, the results
// document, the ERROR page and the error document. The runs use relative paths in a
// fresh folder so the documents do not depend on where the test runs.
#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

#include "support/golden.h"
#include "support/process.h"
#include "support/temp_dir.h"
#include "support/wav_bytes.h"
#include "util/files.h"

namespace veltrane::test {
namespace {

constexpr std::uint32_t rate = 48000;

struct scenario {
    const char* name;
    std::uint16_t channels;
    std::uint32_t format;
    std::vector<double> ref, dut;
    std::vector<std::string> flags;
    const char* defaults_cfg = nullptr;  // written as site.cfg and named with --defaults-cfg
    int status = 0;
};

// Runs one scenario and compares its page and, with --json, its document.
void check_scenario(const scenario& s) {
    SCOPED_TRACE(s.name);
    temp_dir dir;
    write_wav(dir.file("ref.wav"), rate, s.channels, s.format, s.ref);
    write_wav(dir.file("dut.wav"), rate, s.channels, s.format, s.dut);
    std::vector<std::string> args = {"analyze", "--ref", "ref.wav", "--dut", "dut.wav", "--out", "out/", "--quiet"};
    args.insert(args.end(), s.flags.begin(), s.flags.end());
    if (s.defaults_cfg) {
        ASSERT_TRUE(write_text_file(dir.file("site.cfg"), s.defaults_cfg));
        args.insert(args.end(), {"--defaults-cfg", "site.cfg"});
    }
    run_result r = run_veltrane(args, dir.path());
    EXPECT_EQ(r.status, s.status) << r.err;
    expect_golden(std::string(s.name) + ".html", mask_timestamp(file_text(dir.file("out/dut.html"))));
    if (path_exists(dir.file("out/dut.json"))) expect_golden(std::string(s.name) + ".json", file_text(dir.file("out/dut.json")));
}

TEST(GoldenOutputs, AnalyzePagesAndDocuments) {
    const auto stereo = noise(rate, 2, 0.5, 7);
    const auto mono = noise(rate, 1, 0.5, 11);

    // The mono capture is 100 frames late, 2 % short, and one sample is a code off.
    std::vector<double> late(100, 0.0);
    late.insert(late.end(), mono.begin(), mono.end() - static_cast<std::ptrdiff_t>(rate * 2 / 100 + 100));
    late[5000] += 1.0 / 32767.0;
    std::vector<double> inverted = stereo;
    for (double& v : inverted) v = -v;
    // +2.3 dB: integrated loudness and true peak out of tolerance, and every sample above
    // 1.25 x the reference's magnitude and the -30 dBFS floor out of the impulse template.
    std::vector<double> louder = stereo;
    for (double& v : louder) v *= 1.3;

    // A 1 kHz tone whose capture adds a 2nd harmonic at -36 dB: spectral snapshots and THD+N fail.
    const auto tone = sine(rate, 1, 1000.0, rate, 0.5);
    auto distorted = tone;
    const auto harmonic = sine(rate, 1, 2000.0, rate, 0.0075);
    for (std::size_t i = 0; i < distorted.size(); ++i) distorted[i] += harmonic[i];

    const char* site = R"({"general": {"test_engineer": "Jo <QA>", "test_product": "Amp-7", "tester_info_enabled": true},
                          "analysis": {"level_fidelity": {"p99_tolerance_db": 0.5}}})";
    // The capture is 1.5 dB loud, with a 10-sample dropout and a click; level fidelity is
    // reported only, so artifact detection alone fails the run.
    std::vector<double> loud = mono;
    for (double& v : loud) v *= std::pow(10.0, 1.5 / 20.0);
    for (std::size_t i = 0; i < 10; ++i) loud[20000 + i] = 0.0;
    loud[30000] += 0.4;
    const scenario scenarios[] = {
        {"fail_mono_level_artifact", 1, 16, mono, loud, {"--json", "--levelfidelity-ref-only", "--exit-code"}, nullptr, 2},
        {"pass_stereo_24", 2, 24, stereo, stereo, {"--json"}},
        {"fail_mono_bitexact", 1, 16, mono, late, {"--json", "--bitexact", "--bitaccuracy", "--exit-code"}, site, 2},
        {"bit_accuracy_only", 2, 288, stereo, stereo, {"--json", "--no-bitexact", "--bitaccuracy"}},
        {"error_polarity", 2, 16, stereo, inverted, {"--json"}, nullptr, 1},
        {"fail_spectral_distortion", 1, 24, tone, distorted, {"--json", "--snapshots", "2"}},
        {"fail_loudness_impulse", 2, 24, stereo, louder, {"--json", "--loudness", "--impulse", "--exit-code"}, nullptr, 2},
    };
    for (const scenario& s : scenarios) check_scenario(s);
}

}  // namespace
}  // namespace veltrane::test
