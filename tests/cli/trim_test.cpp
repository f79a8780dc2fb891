// Black-box tests of `veltrane trim` on generated captures: programme material framed by
// the sync tone with silence and noise around it, in every sample format, must be cut to
// exactly the programme frames and then pass `analyze` against the programme; failed
// searches write nothing and say why.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

#include "audio/wav.h"
#include "support/process.h"
#include "support/temp_dir.h"
#include "support/wav_bytes.h"
#include "trim/sync_tone.h"

namespace veltrane::test {
namespace {

std::string fmt(const char* f, auto... v) {
    char buf[1024];
    std::snprintf(buf, sizeof buf, f, v...);
    return buf;
}

std::string slurp(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

// A capture assembled piece by piece; every piece covers all channels.
struct capture {
    std::uint32_t rate;
    std::uint16_t channels;
    std::vector<double> s;
    std::uint64_t frames() const { return s.size() / channels; }
    std::uint64_t n(double sec) const { return static_cast<std::uint64_t>(std::llround(sec * rate)); }
    capture& silence(double sec) { return s.resize(s.size() + n(sec) * channels), *this; }
    capture& add(const std::vector<double>& x) { return s.insert(s.end(), x.begin(), x.end()), *this; }
    capture& hiss(double sec, double amp, std::uint32_t seed) { return add(noise(n(sec), channels, amp, seed)); }
    capture& tone(double gain = 1.0) {
        std::vector<double> t(sync_template_length(rate));
        synth_sync_template(builtin_sync_tone, rate, t);
        for (double v : t) s.insert(s.end(), channels, gain * v);
        return *this;
    }
    // Noise added onto the last `sec` seconds.
    capture& bury(double sec, double amp, std::uint32_t seed) {
        const std::vector<double> x = noise(n(sec), channels, amp, seed);
        for (std::size_t i = 0; i < x.size(); ++i) s[s.size() - x.size() + i] += x[i];
        return *this;
    }
};

// Programme: noise plus a 1 kHz tone, different on each channel.
std::vector<double> programme(std::uint32_t rate, std::uint16_t channels, std::uint64_t frames) {
    std::vector<double> p = noise(frames, channels, 0.25, 99);
    const std::vector<double> t = sine(frames, channels, 1000.0, rate, 0.3);
    for (std::size_t i = 0; i < p.size(); ++i) p[i] += (i % channels ? -0.5 : 1.0) * t[i];
    return p;
}

std::string defaults_cfg(const temp_dir& dir, double window_sec, double psr = 6.0) {
    const std::string path = dir.file(fmt("w%g_p%.6f.cfg", window_sec, psr));
    std::ofstream(path) << fmt("{ \"alignment\": { \"sync_psr_threshold\": %.6f, \"sync_search_window_sec\": %.6f } }",
                               psr, window_sec);
    return path;
}

std::string capped_note(std::uint64_t configured, std::uint64_t capped, std::uint32_t rate) {
    return fmt("note: sync_search_window_sec=45.0s (%zu samples) exceeds half this file's length -- capped to %.2fs "
               "(%zu samples) so the leading/trailing searches can't overlap (see the technical guide's alignment "
               "section)\n",
               static_cast<std::size_t>(configured), static_cast<double>(capped) / rate,
               static_cast<std::size_t>(capped));
}

// "  <label>: channel C, sample S, PSR P, similarity X (reps: a b c d)"; channel -9 when absent.
struct match_line {
    int channel = -9;
    std::size_t sample = 0;
    double psr = 0, similarity = 0, reps[4] = {};
};
match_line parse_match(const std::string& out, const std::string& label) {
    match_line m;
    const std::size_t at = out.find("\n  " + label + ": ");
    if (at == std::string::npos) return m;
    const std::string f =
        "\n  " + label + ": channel %d, sample %zu, PSR %lf, similarity %lf (reps: %lf %lf %lf %lf)\n";
    if (std::sscanf(out.c_str() + at, f.c_str(), &m.channel, &m.sample, &m.psr, &m.similarity, &m.reps[0], &m.reps[1],
                    &m.reps[2], &m.reps[3]) != 8)
        m.channel = -9;
    return m;
}

struct format_case {
    std::uint32_t rate;
    std::uint16_t channels;
    std::uint32_t format_code;
    bool extensible;
};

class TrimFormats : public ::testing::TestWithParam<format_case> {};

TEST_P(TrimFormats, CutIsExactlyTheProgrammeAndPassesAnalyze) {
    const format_case fc = GetParam();
    temp_dir dir;
    const std::vector<double> prog = programme(fc.rate, fc.channels, fc.rate * 3 / 2);
    capture cap{fc.rate, fc.channels, {}};
    cap.silence(0.6).hiss(0.4, 0.02, 5);
    const std::uint64_t lead_at = cap.frames();
    cap.tone().add(prog);
    const std::uint64_t trail_at = cap.frames();
    cap.tone().hiss(0.3, 0.02, 6).silence(0.7);
    const std::string in = dir.file("capture.wav"), ref = dir.file("programme.wav"), out = dir.file("cut.wav");
    write_bytes(in, wav_file(fc.rate, fc.channels, fc.format_code, cap.s, fc.extensible));
    write_wav(ref, fc.rate, fc.channels, fc.format_code, prog);

    const run_result r = run_veltrane({"trim", "--input", in, "--out", out});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.err, capped_note(45ull * fc.rate, cap.frames() / 2, fc.rate));  // a 5 s file
    const std::uint64_t prog_frames = prog.size() / fc.channels;
    EXPECT_TRUE(r.out.starts_with(fmt("wrote %s (%zu clean-signal frames)\n", out.c_str(), prog_frames))) << r.out;
    for (const auto& [label, at] : {std::pair{"leading", lead_at}, std::pair{"trailing", trail_at}}) {
        const match_line m = parse_match(r.out, label);
        EXPECT_EQ(m.sample, at) << label << "\n" << r.out;
        EXPECT_TRUE(m.channel >= 0 && m.channel < fc.channels);  // the tone is on every channel
        EXPECT_GT(m.similarity, 0.99);
        for (double rep : m.reps) EXPECT_GT(rep, 6.0);
    }
    // Plain PCM or IEEE float header of the input's width, never extensible.
    const bytes head = read_bytes(out);
    ASSERT_GE(head.size(), 36u);
    EXPECT_EQ(head[20], fc.format_code > 256 ? 3 : 1);
    EXPECT_EQ(head[34], fc.format_code & 0xFF);

    wav_audio cut, want;
    ASSERT_TRUE(wav_read(out, cut) && wav_read(ref, want));
    EXPECT_EQ(cut.format_code, fc.format_code);
    EXPECT_EQ(cut.frame_count, prog_frames);
    EXPECT_TRUE(cut.samples == want.samples) << "the cut is not the programme, sample for sample";

    const run_result a = run_veltrane({"analyze", "--ref", ref, "--dut", out, "--out", dir.file("r.html"), "--quiet"});
    EXPECT_EQ(a.status, 0) << a.err;
    EXPECT_TRUE(a.out.ends_with("(overall: PASS)\n")) << a.out;
}

// Every sample format at each rate, mono and stereo, some with an extensible header.
const format_case format_cases[] = {
    {44100, 1, 16, false}, {44100, 2, 24, true},   {44100, 1, 32, false}, {44100, 2, 288, false},
    {44100, 1, 320, false}, {48000, 2, 16, false}, {48000, 1, 24, false}, {48000, 2, 32, false},
    {48000, 1, 288, true}, {48000, 2, 320, false}, {96000, 1, 16, false}, {96000, 2, 24, false},
    {96000, 1, 32, true},  {96000, 2, 288, false}, {96000, 2, 320, false},
};

INSTANTIATE_TEST_SUITE_P(
    EveryFormat, TrimFormats, ::testing::ValuesIn(format_cases),
    [](const auto& info) {
        return fmt("r%u_ch%u_f%u%s", info.param.rate, info.param.channels, info.param.format_code,
                   info.param.extensible ? "_ext" : "");
    });

// Captures at 48 kHz, mono 16-bit, each run with an earlier file at --out that must survive
// a failure; stderr is compared whole, stdout only by its first line.
TEST(Trim, OutcomesAndMessages) {
    const std::vector<double> prog = programme(48000, 1, 72000);
    struct row {
        const char* name;
        std::function<void(capture&)> build;
        double window_sec;  // 0: the default 45 s
        int status;
        std::string err;
        std::string first_out_line;  // with %s for the output path
    };
    const std::vector<row> rows = {
        // 10 s: the window is capped to 5 s, the tones are at frames 48000 and 400000.
        {"capped window",
         [&](capture& c) { c.silence(1).tone().hiss(316000 / 48000.0, 0.1, 3).tone().silence(44000 / 48000.0); },
         0, 0, capped_note(2160000, 240000, 48000), "wrote %s (316000 clean-signal frames)"},
        {"window from the defaults file",
         [&](capture& c) { c.hiss(0.5, 0.01, 1).tone().add(prog).tone().silence(0.5); },
         1.5, 0, "", "wrote %s (72000 clean-signal frames)"},
        // With a 1.75 s window a missing tone leaves only silence in its window: PSR 0.
        {"no leading tone", [&](capture& c) { c.silence(1.75).add(prog).tone().silence(1); }, 1.75, 1,
         "error: PSR below threshold (leading): got 0.00, need 6.00\n", ""},
        {"no trailing tone", [&](capture& c) { c.silence(1).tone().add(prog).silence(1.75); }, 1.75, 1,
         "error: PSR below threshold (trailing): got 0.00, need 6.00\n", ""},
        // Two tones back to back in 84000 frames: the leading tone ends exactly where the
        // trailing one starts.
        {"tones too close", [&](capture& c) { c.silence(0.125).tone().tone().silence(0.125); }, 0, 1,
         capped_note(2160000, 42000, 48000) +
             "error: trailing occurrence (sample 42000) is not after the leading occurrence ends (sample 42000) -- "
             "check the input file\n",
         ""},
        {"shorter than two tones", [&](capture& c) { c.tone().silence(0.25); }, 0, 1,
         capped_note(2160000, 24000, 48000) + "error: PSR below threshold (leading): got 0.00, need 6.00\n", ""},
    };
    for (const row& rw : rows) {
        SCOPED_TRACE(rw.name);
        temp_dir dir;
        capture cap{48000, 1, {}};
        rw.build(cap);
        const std::string in = write_wav(dir.file("in.wav"), 48000, 1, 16, cap.s);
        const std::string out = dir.file("out.wav");
        write_bytes(out, {'k', 'e', 'e', 'p'});
        std::vector<std::string> a = {"trim", "--input", in, "--out", out};
        if (rw.window_sec > 0) a.insert(a.end(), {"--defaults-cfg", defaults_cfg(dir, rw.window_sec)});
        const run_result r = run_veltrane(a);
        EXPECT_EQ(r.status, rw.status);
        EXPECT_EQ(r.err, rw.err);
        if (rw.status == 0) {
            EXPECT_TRUE(r.out.starts_with(fmt(rw.first_out_line.c_str(), out.c_str()) + "\n")) << r.out;
            EXPECT_EQ(std::count(r.out.begin(), r.out.end(), '\n'), 3);
        } else {
            EXPECT_EQ(r.out, "");
            EXPECT_EQ(slurp(out), "keep");
            EXPECT_EQ(std::distance(std::filesystem::directory_iterator(dir.path()), {}), rw.window_sec > 0 ? 3 : 2);
        }
    }
}

// Near the thresholds. The tone buried in uniform noise of amplitude a: the matched filter
// still finds it clearly, but its similarity is about sqrt(P / (P + a^2 / 3)) with the
// tone's power P of about 0.004: 0.21 at a = 0.5, 0.11 at a = 0.95. And the PSR threshold
// decides exactly at the measured PSR (the report holds it to 6 decimals).
TEST(Trim, NearTheThresholds) {
    temp_dir dir;
    for (double amp : {0.5, 0.95}) {
        capture cap{48000, 1, {}};
        cap.silence(0.5).tone().bury(0.75, amp, 31).add(programme(48000, 1, 48000)).tone().silence(0.5);
        const std::string in = write_wav(dir.file("in.wav"), 48000, 1, 320, cap.s);
        const run_result r = run_veltrane({"trim", "--input", in, "--out", dir.file("out.wav"), "--report",
                                           dir.file("r.json")});
        if (amp < 0.9) {
            ASSERT_EQ(r.status, 0) << r.err;
            const std::string doc = slurp(dir.file("r.json"));
            double psr = 0, sim = 0;
            std::sscanf(doc.c_str() + doc.find("\"leading_psr\""),
                        "\"leading_psr\": %lf,\n    \"leading_similarity\": %lf", &psr, &sim);
            EXPECT_NEAR(sim, 0.21, 0.03);
            EXPECT_GT(psr, 20.0);
            for (double delta : {-1e-6, 1e-6}) {
                const run_result t = run_veltrane({"trim", "--defaults-cfg", defaults_cfg(dir, 45, psr + delta),
                                                   "--input", in, "--out", dir.file("t.wav")});
                EXPECT_EQ(t.status, delta < 0 ? 0 : 1);
                if (delta > 0) {
                    EXPECT_TRUE(t.err.ends_with(
                        fmt("error: PSR below threshold (leading): got %.2f, need %.2f\n", psr, psr + delta)));
                }
            }
        } else {
            EXPECT_EQ(r.status, 1);
            EXPECT_TRUE(r.err.ends_with("error: sync tone not detected (leading): the strongest match does not "
                                        "resemble the sync tone (similarity 0.11, need 0.12)\n"))
                << r.err;
        }
    }
    // A loud 10 ms noise burst in place of the leading tone stands out but is not the tone.
    capture burst{48000, 1, {}};
    burst.silence(1).hiss(0.01, 0.9, 21).silence(0.74).add(programme(48000, 1, 72000)).tone().silence(1);
    const std::string burst_wav = write_wav(dir.file("b.wav"), 48000, 1, 16, burst.s);
    const run_result b = run_veltrane(
        {"trim", "--defaults-cfg", defaults_cfg(dir, 1.7), "--input", burst_wav, "--out", dir.file("x.wav")});
    EXPECT_EQ(b.status, 1);
    EXPECT_TRUE(b.err.starts_with("error: sync tone not detected (leading): the strongest match does not resemble "
                                  "the sync tone (similarity 0.0"))
        << b.err;
    EXPECT_FALSE(std::filesystem::exists(dir.file("x.wav")));
}

// The report file, then every error after which nothing may be left behind (not even a
// temporary file) apart from the WAV of a run whose report could not be written.
TEST(Trim, ReportFileAndErrors) {
    temp_dir dir;
    capture cap{48000, 2, {}};
    cap.silence(0.5).tone().add(programme(48000, 2, 48000)).tone().silence(0.5);
    const std::string in = write_wav(dir.file("in.wav"), 48000, 2, 24, cap.s);
    const std::string out = dir.file("out.wav"), report = dir.file("trim.json");
    const run_result r = run_veltrane({"trim", "--report", report, "--input", in, "--out", out});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out, "wrote " + out + " (48000 clean-signal frames) + " + report + "\n");
    const std::string doc = slurp(report);
    EXPECT_TRUE(doc.starts_with("{\n    \"input_file\": \"" + in + "\",\n    \"leading_sample_offset\": 24000,\n"));
    EXPECT_TRUE(doc.ends_with(",\n    \"sync_point\": 60000,\n    \"trim_point\": 108000\n}\n")) << doc;
    EXPECT_EQ(std::count(doc.begin(), doc.end(), '\n'), 21);  // braces and 19 entries

    temp_dir edir;  // a directory of its own for the errors
    const std::string good = write_wav(edir.file("in.wav"), 48000, 2, 24, cap.s);
    std::filesystem::create_directory(edir.file("sub"));
    const std::string usage = usage_text_from_binary(), req = "error: trim requires --input and --out\n\n";
    const std::string missing = edir.file("nope.wav"), cfg = edir.file("none.cfg"), sub = edir.file("sub");
    const std::string no_dir = edir.file("no/x");
    const std::vector<std::pair<std::vector<std::string>, std::string>> rows = {  // arguments, end of stderr
        {{"trim"}, req + usage},
        {{"trim", "--out", "x.wav"}, req + usage},
        {{"trim", "--input", "a.wav", "--out"}, "error: unrecognized argument '--out'\n\n" + usage},
        {{"trim", "--input", "a.wav", "--json", "-h"}, "error: unrecognized argument '--json'\n\n" + usage},
        {{"trim", "--input", missing, "--out", "o.wav", "--defaults-cfg", cfg},
         "error: --defaults-cfg '" + cfg + "' does not exist or could not be parsed\n"},
        {{"trim", "--input", missing, "--out", "o.wav"},
         "error: failed to read --input '" + missing +
             "' (not a supported 16/24/32-bit integer or 32/64-bit float PCM WAV file)\n"},
        {{"trim", "--input", good, "--out", no_dir}, "error: failed to write '" + no_dir + "'\n"},
        {{"trim", "--input", good, "--out", sub}, "error: failed to write '" + sub + "'\n"},
        {{"trim", "--input", good, "--out", "kept.wav", "--report", no_dir},
         "error: failed to write '" + no_dir + "'\n"},
    };
    for (const auto& [a, err] : rows) {
        const run_result e = run_veltrane(a, edir.path());
        EXPECT_EQ(e.status, 1) << a.back();
        EXPECT_TRUE(e.err.ends_with(err)) << e.err;
        EXPECT_EQ(e.out, "");
    }
    std::vector<std::string> names;
    for (const auto& e : std::filesystem::directory_iterator(edir.path())) names.push_back(e.path().filename());
    std::sort(names.begin(), names.end());
    EXPECT_EQ(names, (std::vector<std::string>{"in.wav", "kept.wav", "sub"}));
    EXPECT_TRUE(std::filesystem::is_empty(sub));
    EXPECT_EQ(run_veltrane({"trim", "--input", "a.wav", "-h", "--json"}).out, usage);
}

}  // namespace
}  // namespace veltrane::test
