// Black-box tests of `veltrane trim` on generated captures: programme material framed by
// the sync tone, with silence and noise around it, in every sample format; the cut must
// hold exactly the programme frames and pass `analyze` against the programme. Failed
// searches, the capped window, the report file and the output-file guarantees.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "audio/wav.h"
#include "support/process.h"
#include "support/temp_dir.h"
#include "support/wav_bytes.h"
#include "trim/sync_tone.h"

namespace veltrane::test {
namespace {

using args = std::vector<std::string>;

std::string slurp(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream ss;
    ss << in.rdbuf();
    return ss.str();
}

std::string format(const char* fmt, auto... values) {
    char buf[1024];
    std::snprintf(buf, sizeof buf, fmt, values...);
    return buf;
}

// Standard error without the capped-window note.
std::string errors_only(const std::string& err) {
    return err.starts_with("note: ") ? err.substr(err.find('\n') + 1) : err;
}

std::vector<std::string> dir_entries(const std::string& dir) {
    std::vector<std::string> names;
    for (const auto& e : std::filesystem::directory_iterator(dir)) names.push_back(e.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
}

// Builds a capture piece by piece, every piece on all channels unless a channel is named.
struct capture {
    std::uint32_t rate;
    std::uint16_t channels;
    std::vector<double> samples;

    std::uint64_t frames() const { return samples.size() / channels; }
    std::uint64_t sec(double s) const { return static_cast<std::uint64_t>(std::llround(s * rate)); }

    capture& silence(double s) {
        samples.resize(samples.size() + sec(s) * channels, 0.0);
        return *this;
    }
    capture& hiss(double s, double amplitude, std::uint32_t seed) {
        const std::vector<double> n = noise(sec(s), channels, amplitude, seed);
        samples.insert(samples.end(), n.begin(), n.end());
        return *this;
    }
    // The sync tone scaled by `gain`; on one channel only when `only` is 0 or 1.
    capture& tone(double gain = 1.0, int only = -1) {
        std::vector<double> t(sync_template_length(rate));
        synth_sync_template(builtin_sync_spec, rate, t);
        for (double v : t)
            for (int c = 0; c < channels; ++c) samples.push_back(only < 0 || only == c ? gain * v : 0.0);
        return *this;
    }
    capture& add(const std::vector<double>& interleaved) {
        samples.insert(samples.end(), interleaved.begin(), interleaved.end());
        return *this;
    }
    // Adds noise on top of the last `s` seconds.
    capture& bury(double s, double amplitude, std::uint32_t seed) {
        const std::vector<double> n = noise(sec(s), channels, amplitude, seed);
        std::size_t from = samples.size() - n.size();
        for (std::size_t i = 0; i < n.size(); ++i) samples[from + i] += n[i];
        return *this;
    }
};

// Programme material: noise with a tone in it, different on each channel.
std::vector<double> programme(std::uint32_t rate, std::uint16_t channels, double s) {
    const auto frames = static_cast<std::uint64_t>(std::llround(s * rate));
    std::vector<double> p = noise(frames, channels, 0.25, 99);
    const std::vector<double> tone = sine(frames, channels, 1000.0, rate, 0.3);
    for (std::size_t i = 0; i < p.size(); ++i) p[i] += (i % channels == 0 ? 1.0 : -0.5) * tone[i];
    return p;
}

std::string defaults_file(const temp_dir& dir, double window_sec, double psr_threshold = 6.0) {
    const std::string path = dir.file("site.cfg");
    std::ofstream(path) << format("{\n  \"alignment\": {\n    \"sync_psr_threshold\": %.6f,\n"
                                  "    \"sync_search_window_sec\": %.6f\n  }\n}\n",
                                  psr_threshold, window_sec);
    return path;
}

std::string capped_note(double sec, std::uint64_t configured, std::uint64_t capped, std::uint32_t rate) {
    return format("note: sync_search_window_sec=%.1fs (%zu samples) exceeds half this file's length -- capped to "
                  "%.2fs (%zu samples) so the leading/trailing searches can't overlap (see the technical guide's "
                  "alignment section)\n",
                  sec, static_cast<std::size_t>(configured), static_cast<double>(capped) / rate,
                  static_cast<std::size_t>(capped));
}

// One "  <label>: channel C, sample S, PSR P, similarity X (reps: a b c d)" line.
struct match_line {
    int channel = -9;
    std::size_t sample = 0;
    double psr = 0, similarity = 0;
    double reps[4] = {};
    bool parsed = false;
};

match_line parse_match(const std::string& out, const std::string& label) {
    match_line m;
    const std::size_t at = out.find("\n  " + label + ": ");
    if (at == std::string::npos) return m;
    const std::string line = out.substr(at + 1, out.find('\n', at + 1) - at - 1);
    const std::string fmt = "  " + label + ": channel %d, sample %zu, PSR %lf, similarity %lf (reps: %lf %lf %lf %lf)";
    m.parsed = std::sscanf(line.c_str(), fmt.c_str(), &m.channel, &m.sample, &m.psr, &m.similarity, &m.reps[0],
                           &m.reps[1], &m.reps[2], &m.reps[3]) == 8 &&
               line.back() == ')';
    return m;
}

struct format_case {
    std::uint32_t rate;
    std::uint16_t channels;
    std::uint32_t format_code;
};

class TrimFormats : public ::testing::TestWithParam<format_case> {};

TEST_P(TrimFormats, CutsExactlyTheProgrammeAndItPassesAnalyze) {
    const format_case fc = GetParam();
    temp_dir dir;
    const std::vector<double> prog = programme(fc.rate, fc.channels, 1.5);
    capture cap{fc.rate, fc.channels, {}};
    cap.silence(0.6).hiss(0.4, 0.02, 5);
    const std::uint64_t lead_at = cap.frames();
    cap.tone();
    const std::uint64_t prog_at = cap.frames();
    cap.add(prog);
    const std::uint64_t trail_at = cap.frames();
    cap.tone().hiss(0.3, 0.02, 6).silence(0.7);

    const std::string in = write_wav(dir.file("capture.wav"), fc.rate, fc.channels, fc.format_code, cap.samples);
    const std::string ref = write_wav(dir.file("programme.wav"), fc.rate, fc.channels, fc.format_code, prog);
    const std::string out = dir.file("cut.wav");
    const run_result r = run_veltrane({"trim", "--input", in, "--out", out});
    ASSERT_EQ(r.status, 0) << r.err;
    // A 5 s file is shorter than twice the default 45 s window.
    const std::uint64_t half = cap.frames() / 2;
    EXPECT_EQ(r.err, capped_note(45.0, 45ull * fc.rate, half, fc.rate));

    const std::uint64_t prog_frames = prog.size() / fc.channels;
    EXPECT_EQ(trail_at - prog_at, prog_frames);
    EXPECT_TRUE(r.out.starts_with(format("wrote %s (%zu clean-signal frames)\n", out.c_str(),
                                         static_cast<std::size_t>(prog_frames))))
        << r.out;
    const match_line lead = parse_match(r.out, "leading");
    const match_line trail = parse_match(r.out, "trailing");
    ASSERT_TRUE(lead.parsed && trail.parsed) << r.out;
    EXPECT_EQ(lead.sample, lead_at);
    EXPECT_EQ(trail.sample, trail_at);
    for (const match_line* m : {&lead, &trail}) {
        // The tone is on every channel; the one where it stands out most is reported.
        EXPECT_GE(m->channel, 0);
        EXPECT_LT(m->channel, fc.channels);
        EXPECT_GT(m->psr, 6.0);
        EXPECT_GT(m->similarity, 0.99);
        for (double rep : m->reps) EXPECT_GT(rep, 6.0);
    }
    EXPECT_EQ(std::count(r.out.begin(), r.out.end(), '\n'), 3);

    wav_audio cut, want;
    ASSERT_TRUE(wav_read(out, cut));
    ASSERT_TRUE(wav_read(ref, want));
    EXPECT_EQ(cut.format_code, fc.format_code);
    EXPECT_EQ(cut.sample_rate, fc.rate);
    EXPECT_EQ(cut.channels, fc.channels);
    EXPECT_EQ(cut.frame_count, prog_frames);
    EXPECT_TRUE(cut.samples == want.samples) << "the cut is not the programme, sample for sample";

    const run_result a =
        run_veltrane({"analyze", "--ref", ref, "--dut", out, "--out", dir.file("report.html"), "--quiet"});
    EXPECT_EQ(a.status, 0) << a.err;
    EXPECT_TRUE(a.out.ends_with("(overall: PASS)\n")) << a.out;
}

INSTANTIATE_TEST_SUITE_P(EveryFormat, TrimFormats,
                         ::testing::Values(format_case{44100, 1, 16}, format_case{44100, 2, 24},
                                           format_case{44100, 1, 32}, format_case{44100, 2, 288},
                                           format_case{44100, 1, 320}, format_case{48000, 2, 16},
                                           format_case{48000, 1, 24}, format_case{48000, 2, 32},
                                           format_case{48000, 1, 288}, format_case{48000, 2, 320},
                                           format_case{96000, 1, 16}, format_case{96000, 2, 24},
                                           format_case{96000, 1, 32}, format_case{96000, 2, 288},
                                           format_case{96000, 2, 320}),
                         [](const auto& info) {
                             return format("r%u_ch%u_f%u", info.param.rate, info.param.channels,
                                           info.param.format_code);
                         });

// A 10 s capture at 48 kHz with the tones at frames 48000 and 400000: the 45 s window is
// capped to 5 s, the leading search covers frames 0 to 239999, the trailing one the rest.
TEST(Trim, ShortFileGetsTheCappedWindowNote) {
    temp_dir dir;
    capture cap{48000, 1, {}};
    cap.silence(1.0).tone().hiss(400000.0 / 48000 - 1.75, 0.1, 3).tone();
    cap.silence(10.0 - static_cast<double>(cap.frames()) / 48000);
    ASSERT_EQ(cap.frames(), 480000u);
    const std::string in = write_wav(dir.file("in.wav"), 48000, 1, 16, cap.samples);
    const std::string out = dir.file("out.wav");
    const run_result r = run_veltrane({"trim", "--input", in, "--out", out});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.err, capped_note(45.0, 2160000, 240000, 48000));
    EXPECT_NE(r.err.find("capped to 5.00s (240000 samples)"), std::string::npos);
    EXPECT_TRUE(r.out.starts_with(format("wrote %s (316000 clean-signal frames)\n", out.c_str()))) << r.out;
    EXPECT_EQ(parse_match(r.out, "leading").sample, 48000u);
    EXPECT_EQ(parse_match(r.out, "trailing").sample, 400000u);
}

TEST(Trim, WindowFromTheDefaultsFileAndNoNoteWhenItFits) {
    temp_dir dir;
    capture cap{48000, 2, {}};
    cap.hiss(0.5, 0.01, 1).tone(1.0, 1).add(programme(48000, 2, 2.0)).tone(1.0, 1).hiss(0.5, 0.01, 2);
    const std::string in = write_wav(dir.file("in.wav"), 48000, 2, 24, cap.samples);
    const run_result r = run_veltrane(
        {"trim", "--defaults-cfg", defaults_file(dir, 1.5), "--input", in, "--out", dir.file("out.wav")});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.err, "");
    const match_line lead = parse_match(r.out, "leading");
    EXPECT_EQ(lead.channel, 1);  // the tone is only in the right channel
    EXPECT_EQ(lead.sample, 24000u);
    EXPECT_EQ(parse_match(r.out, "trailing").channel, 1);
}

// 1 s of silence, leading tone, 1.5 s of programme, trailing tone, 1 s of silence: with a
// 1.75 s window a missing tone leaves only silence in its window.
struct failing_case {
    const char* name;
    bool leading;
    bool trailing;
    std::string expected_err;
};

TEST(Trim, MissingToneWritesNothingAndSaysWhich) {
    const std::vector<failing_case> cases = {
        {"no leading", false, true, "error: PSR below threshold (leading): got 0.00, need 6.00\n"},
        {"no trailing", true, false, "error: PSR below threshold (trailing): got 0.00, need 6.00\n"},
        {"neither", false, false, "error: PSR below threshold (leading): got 0.00, need 6.00\n"},
    };
    for (const failing_case& fc : cases) {
        SCOPED_TRACE(fc.name);
        temp_dir dir;
        capture cap{48000, 2, {}};
        cap.silence(1.0);
        fc.leading ? cap.tone() : cap.silence(0.75);
        cap.add(programme(48000, 2, 1.5));
        fc.trailing ? cap.tone() : cap.silence(0.75);
        cap.silence(1.0);
        const std::string in = write_wav(dir.file("in.wav"), 48000, 2, 16, cap.samples);
        const std::string cfg = defaults_file(dir, 1.75);
        const std::string out = dir.file("out.wav");
        write_bytes(out, {'k', 'e', 'e', 'p'});
        const std::vector<std::string> before = dir_entries(dir.path());
        const run_result r =
            run_veltrane({"trim", "--input", in, "--out", out, "--report", dir.file("r.json"), "--defaults-cfg", cfg});
        EXPECT_EQ(r.status, 1);
        EXPECT_EQ(r.err, fc.expected_err);
        EXPECT_EQ(r.out, "");
        EXPECT_EQ(slurp(out), "keep");  // an earlier file at --out survives
        EXPECT_EQ(dir_entries(dir.path()), before);
    }
}

TEST(Trim, NoiseInsteadOfTheToneIsNotTakenForIt) {
    temp_dir dir;
    capture cap{48000, 1, {}};
    // In place of the leading tone: a 10 ms burst of loud noise in silence.
    cap.silence(1.0).hiss(0.01, 0.9, 21).silence(0.74).add(programme(48000, 1, 1.5)).tone().silence(1.0);
    const std::string in = write_wav(dir.file("in.wav"), 48000, 1, 16, cap.samples);
    const std::string out = dir.file("out.wav");
    const run_result r = run_veltrane({"trim", "--defaults-cfg", defaults_file(dir, 1.7), "--input", in, "--out", out});
    EXPECT_EQ(r.status, 1);
    EXPECT_TRUE(r.err.starts_with("error: sync tone not detected (leading): the strongest match does not resemble "
                                  "the sync tone (similarity 0."))
        << r.err;
    EXPECT_TRUE(r.err.ends_with(", need 0.12)\n")) << r.err;
    EXPECT_FALSE(std::filesystem::exists(out));
}

// The tone buried in white noise: the matched filter still finds it clearly (high PSR),
// and the similarity to the tone falls with the noise level. Uniform noise of amplitude a
// has power a^2 / 3; the tone's power is about 0.004, so the similarity is about
// sqrt(0.004 / (0.004 + a^2 / 3)): 0.21 at a = 0.5, 0.11 at a = 0.95.
TEST(Trim, ToneBuriedInNoiseNearTheSimilarityThreshold) {
    for (double amplitude : {0.5, 0.95}) {
        SCOPED_TRACE(amplitude);
        temp_dir dir;
        capture cap{48000, 1, {}};
        cap.silence(0.5).tone().bury(0.75, amplitude, 31).add(programme(48000, 1, 1.0)).tone().bury(0.75, 0.3, 32);
        cap.silence(0.5);
        const std::string in = write_wav(dir.file("in.wav"), 48000, 1, 320, cap.samples);
        const std::string out = dir.file("out.wav");
        const run_result r = run_veltrane({"trim", "--input", in, "--out", out});
        if (amplitude < 0.9) {
            EXPECT_EQ(r.status, 0) << r.err;
            const match_line lead = parse_match(r.out, "leading");
            EXPECT_EQ(lead.sample, 24000u);
            EXPECT_NEAR(lead.similarity, 0.21, 0.03);
            EXPECT_GT(lead.psr, 20.0);
        } else {
            EXPECT_EQ(r.status, 1);
            double got = 0;
            ASSERT_EQ(std::sscanf(r.err.c_str(),
                                  "note: sync_search_window_sec=45.0s (2160000 samples) exceeds half this file's "
                                  "length -- capped to %*fs (%*u samples) so the leading/trailing searches can't "
                                  "overlap (see the technical guide's alignment section)\nerror: sync tone not "
                                  "detected (leading): the strongest match does not resemble the sync tone "
                                  "(similarity %lf, need 0.12)\n",
                                  &got),
                      1)
                << r.err;
            EXPECT_NEAR(got, 0.11, 0.02);
            EXPECT_FALSE(std::filesystem::exists(out));
        }
    }
}

// The PSR threshold from the defaults file decides exactly at the measured PSR.
TEST(Trim, PsrThresholdIsInclusive) {
    temp_dir dir;
    capture cap{44100, 1, {}};
    cap.silence(0.3).tone().bury(0.75, 0.7, 41).add(programme(44100, 1, 1.0)).tone().silence(0.3);
    const std::string in = write_wav(dir.file("in.wav"), 44100, 1, 24, cap.samples);
    const std::string report = dir.file("r.json");
    const run_result first = run_veltrane({"trim", "--input", in, "--out", dir.file("a.wav"), "--report", report});
    ASSERT_EQ(first.status, 0) << first.err;
    double lead_psr = 0, trail_psr = 0;
    const std::string doc = slurp(report);
    ASSERT_EQ(std::sscanf(doc.substr(doc.find("\"leading_psr\"")).c_str(), "\"leading_psr\": %lf", &lead_psr), 1);
    ASSERT_EQ(std::sscanf(doc.substr(doc.find("\"trailing_psr\"")).c_str(), "\"trailing_psr\": %lf", &trail_psr), 1);
    ASSERT_LT(lead_psr, trail_psr);  // the buried leading tone stands out less

    // The document holds the PSR to 6 decimals: a threshold a hair below passes, a hair
    // above fails on the leading tone, naming both figures.
    const run_result pass = run_veltrane({"trim", "--defaults-cfg", defaults_file(dir, 45.0, lead_psr - 1e-6),
                                          "--input", in, "--out", dir.file("b.wav")});
    EXPECT_EQ(pass.status, 0) << pass.err;
    const run_result fail = run_veltrane({"trim", "--defaults-cfg", defaults_file(dir, 45.0, lead_psr + 1e-6),
                                          "--input", in, "--out", dir.file("c.wav")});
    EXPECT_EQ(fail.status, 1);
    const std::string line = fail.err.substr(fail.err.find("error: "));
    EXPECT_EQ(line, format("error: PSR below threshold (leading): got %.2f, need %.2f\n", lead_psr, lead_psr + 1e-6));
    EXPECT_FALSE(std::filesystem::exists(dir.file("c.wav")));
}

TEST(Trim, TonesCloserThanOneToneLengthAreRejected) {
    // 6000 frames of silence, two tones back to back, 6000 frames of silence: the half
    // file is 42000 frames, so the leading search ends exactly where the trailing tone
    // starts, and the leading tone ends there too.
    temp_dir dir;
    capture cap{48000, 1, {}};
    cap.silence(0.125).tone().tone().silence(0.125);
    ASSERT_EQ(cap.frames(), 84000u);
    const std::string in = write_wav(dir.file("in.wav"), 48000, 1, 16, cap.samples);
    const std::string out = dir.file("out.wav");
    const run_result r = run_veltrane({"trim", "--input", in, "--out", out});
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.err, capped_note(45.0, 2160000, 42000, 48000) +
                         "error: trailing occurrence (sample 42000) is not after the leading occurrence ends (sample "
                         "42000) -- check the input file\n");
    EXPECT_FALSE(std::filesystem::exists(out));
}

TEST(Trim, FileShorterThanTwoTonesReportsPsrZero) {
    temp_dir dir;
    capture cap{48000, 1, {}};
    cap.tone().silence(0.25);
    const std::string in = write_wav(dir.file("in.wav"), 48000, 1, 16, cap.samples);
    const run_result r = run_veltrane({"trim", "--input", in, "--out", dir.file("out.wav")});
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.err, capped_note(45.0, 2160000, 24000, 48000) +
                         "error: PSR below threshold (leading): got 0.00, need 6.00\n");
}

// A capture that trims cleanly, in `format_code`, optionally with an extensible header.
std::string good_capture(const temp_dir& dir, std::uint32_t format_code, bool extensible = false) {
    capture cap{48000, 2, {}};
    cap.silence(0.5).tone().add(programme(48000, 2, 1.0)).tone().silence(0.5);
    const std::string in = dir.file("in.wav");
    write_bytes(in, wav_file(48000, 2, format_code, cap.samples, extensible));
    return in;
}

TEST(Trim, ReportFileHoldsTheMatchesInOrder) {
    temp_dir dir;
    const std::string in = good_capture(dir, 16);
    const std::string out = dir.file("out.wav");
    const std::string report = dir.file("trim.json");
    const run_result printed = run_veltrane({"trim", "--input", in, "--out", dir.file("first.wav")});
    ASSERT_EQ(printed.status, 0) << printed.err;
    const run_result r = run_veltrane({"trim", "--report", report, "--input", in, "--out", out});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out, "wrote " + out + " (48000 clean-signal frames) + " + report + "\n");
    EXPECT_EQ(slurp(out), slurp(dir.file("first.wav")));

    const match_line lead = parse_match(printed.out, "leading");
    const match_line trail = parse_match(printed.out, "trailing");
    std::string want = "{\n    \"input_file\": \"" + in + "\",\n";
    for (const auto& [label, m] : {std::pair{"leading", lead}, std::pair{"trailing", trail}}) {
        want += format("    \"%s_sample_offset\": %zu,\n    \"%s_channel\": %d,\n", label, m.sample, label, m.channel);
        // The printed line rounds to 2 and 3 decimals; take the document's own digits after
        // checking that they agree.
        const std::string doc = slurp(report);
        double psr = 0, sim = 0;
        std::sscanf(doc.substr(doc.find(format("\"%s_psr\"", label))).c_str(), "\"%*[a-z_]\": %lf", &psr);
        std::sscanf(doc.substr(doc.find(format("\"%s_similarity\"", label))).c_str(), "\"%*[a-z_]\": %lf", &sim);
        EXPECT_EQ(format("%.2f", psr), format("%.2f", m.psr));
        EXPECT_EQ(format("%.3f", sim), format("%.3f", m.similarity));
        want += format("    \"%s_psr\": %.6f,\n    \"%s_similarity\": %.6f,\n", label, psr, label, sim);
        for (int i = 0; i < 4; ++i) {
            double rep = 0;
            std::sscanf(doc.substr(doc.find(format("\"%s_rep_psr_%d\"", label, i))).c_str(), "\"%*[a-z_0-9]\": %lf",
                        &rep);
            EXPECT_EQ(format("%.2f", rep), format("%.2f", m.reps[i]));
            want += format("    \"%s_rep_psr_%d\": %.6f,\n", label, i, rep);
        }
    }
    want += "    \"sync_point\": 60000,\n    \"trim_point\": 108000\n}\n";
    EXPECT_EQ(slurp(report), want);
}

TEST(Trim, UnwritableReportKeepsTheWav) {
    temp_dir dir;
    const std::string in = good_capture(dir, 24);
    const std::string out = dir.file("out.wav");
    const std::string report = dir.file("missing/r.json");
    const run_result r = run_veltrane({"trim", "--input", in, "--out", out, "--report", report});
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(errors_only(r.err), "error: failed to write '" + report + "'\n");
    EXPECT_EQ(r.out, "");
    wav_audio cut;
    EXPECT_TRUE(wav_read(out, cut));
    EXPECT_EQ(cut.frame_count, 48000u);
}

TEST(Trim, OutputHeaderFollowsTheInputFormat) {
    struct row {
        std::uint32_t format_code;
        bool extensible;
        std::size_t header_bytes;
        std::uint16_t tag;
        std::uint16_t bits;
    };
    for (const row& rw : {row{24, true, 44, 1, 24}, row{288, true, 58, 3, 32}, row{320, false, 58, 3, 64},
                          row{32, false, 44, 1, 32}}) {
        SCOPED_TRACE(rw.format_code);
        temp_dir dir;
        const std::string in = good_capture(dir, rw.format_code, rw.extensible);
        const std::string out = dir.file("out.wav");
        const run_result r = run_veltrane({"trim", "--input", in, "--out", out});
        ASSERT_EQ(r.status, 0) << r.err;
        const bytes b = read_bytes(out);
        ASSERT_EQ(b.size(), rw.header_bytes + 48000u * 2 * rw.bits / 8);
        EXPECT_EQ(b[20] | b[21] << 8, rw.tag);  // plain PCM or IEEE float tag, never extensible
        EXPECT_EQ(b[34] | b[35] << 8, rw.bits);
    }
}

TEST(Trim, CommandLineAndInputErrors) {
    temp_dir dir;
    const std::string usage = usage_text_from_binary();
    const std::string requires_line = "error: trim requires --input and --out\n\n";
    struct row {
        args a;
        int status;
        std::string err;
        std::string out;
    };
    const std::string missing = dir.file("nope.wav");
    const std::string not_wav = dir.file("text.wav");
    write_bytes(not_wav, {'h', 'i'});
    const std::vector<row> rows = {
        {{"trim"}, 1, requires_line + usage, ""},
        {{"trim", "--out", "x.wav"}, 1, requires_line + usage, ""},
        {{"trim", "--input", "a.wav", "--out"}, 1, "error: unrecognized argument '--out'\n\n" + usage, ""},
        {{"trim", "--input", "a.wav", "--json", "--out", "b.wav"}, 1, "error: unrecognized argument '--json'\n\n" + usage,
         ""},
        {{"trim", "--input", "a.wav", "-h"}, 0, "", usage},
        {{"trim", "--input", missing, "--out", dir.file("o.wav"), "--defaults-cfg", dir.file("none.cfg")}, 1,
         "error: --defaults-cfg '" + dir.file("none.cfg") + "' does not exist or could not be parsed\n", ""},
        {{"trim", "--input", missing, "--out", dir.file("o.wav")}, 1,
         "error: failed to read --input '" + missing +
             "' (not a supported 16/24/32-bit integer or 32/64-bit float PCM WAV file)\n",
         ""},
        {{"trim", "--input", not_wav, "--out", dir.file("o.wav")}, 1,
         "error: failed to read --input '" + not_wav +
             "' (not a supported 16/24/32-bit integer or 32/64-bit float PCM WAV file)\n",
         ""},
    };
    for (const row& rw : rows) {
        SCOPED_TRACE(rw.a.size() > 1 ? rw.a[1] : rw.a[0]);
        const run_result r = run_veltrane(rw.a);
        EXPECT_EQ(r.status, rw.status);
        EXPECT_EQ(r.err, rw.err);
        EXPECT_EQ(r.out, rw.out);
    }
    EXPECT_FALSE(std::filesystem::exists(dir.file("o.wav")));
}

TEST(Trim, UnwritableOutputLeavesNothingBehind) {
    temp_dir dir;
    const std::string in = good_capture(dir, 16);
    std::filesystem::create_directory(dir.file("sub"));
    write_bytes(dir.file("sub/keep.txt"), {'x'});
    const std::vector<std::string> before = dir_entries(dir.path());
    // A missing directory, and a path that is an existing directory.
    for (const std::string& out : {dir.file("missing/out.wav"), dir.file("sub")}) {
        SCOPED_TRACE(out);
        const run_result r = run_veltrane({"trim", "--input", in, "--out", out});
        EXPECT_EQ(r.status, 1);
        EXPECT_EQ(errors_only(r.err), "error: failed to write '" + out + "'\n");
        EXPECT_EQ(r.out, "");
        EXPECT_EQ(dir_entries(dir.path()), before);
        EXPECT_EQ(dir_entries(dir.file("sub")), std::vector<std::string>{"keep.txt"});
    }
}

TEST(Trim, ReplacesAnEarlierOutputAndMayOverwriteItsInput) {
    temp_dir dir;
    const std::string in = good_capture(dir, 16);
    const std::string out = dir.file("out.wav");
    write_bytes(out, bytes(100000, 0x55));
    ASSERT_EQ(run_veltrane({"trim", "--input", in, "--out", out}).status, 0);
    EXPECT_EQ(read_bytes(out).size(), 44u + 48000u * 4);
    // Trimming a file onto itself reads it whole first.
    const bytes expected = read_bytes(out);
    ASSERT_EQ(run_veltrane({"trim", "--input", in, "--out", in}).status, 0);
    EXPECT_EQ(read_bytes(in), expected);
    EXPECT_EQ(dir_entries(dir.path()), (std::vector<std::string>{"in.wav", "out.wav"}));
}

}  // namespace
}  // namespace veltrane::test
