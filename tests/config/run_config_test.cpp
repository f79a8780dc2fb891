// Resolution of an analyze run's settings and its validation rules, without audio.
#include <gtest/gtest.h>

#include <cmath>
#include <string>

#include "config/run_config.h"

// The cases below name only the inputs that matter and leave the rest at their defaults
// through designated initializers, which this compiler would otherwise warn about.
#pragma GCC diagnostic ignored "-Wmissing-field-initializers"

namespace veltrane {
namespace {

config_layer config_text(std::string_view text) {
    config_layer layer;
    EXPECT_TRUE(load_config_text(text, layer)) << text;
    return layer;
}

// A defaults record whose analysis object is `analysis` and whose top level adds `top`.
defaults_record defaults_text(std::string_view analysis, std::string_view top = "") {
    std::string text = "{" + std::string(top) + (top.empty() ? "" : ",") + "\"analysis\": " +
                       std::string(analysis.empty() ? "{}" : analysis) + "}";
    defaults_record record;
    EXPECT_TRUE(load_defaults_text(text, record)) << text;
    return record;
}

struct inputs {
    command_line_overrides cl;
    std::string config = "{}";
    std::string analysis = "{}";
    std::uint32_t rate = 48000;
    std::uint64_t overlap = 480000;
};

run_config resolve(const inputs& in) {
    return resolve_run_config(in.cl, config_text(in.config), defaults_text(in.analysis), in.rate, in.overlap);
}

std::string validate(const inputs& in) {
    settings_resolution r =
        resolve_check_settings(in.cl, config_text(in.config), defaults_text(in.analysis), in.rate, in.overlap);
    return r.error_message.value_or("");
}

TEST(RunConfig, BuiltInDefaultsScaleWithTheSampleRate) {
    struct {
        std::uint32_t rate;
        std::int64_t window, clip_run, edge_skip;
        param_source source;
    } cases[] = {{44100, 64, 8, 4096, param_source::builtin},
                 {48000, 64, 8, 4096, param_source::builtin},
                 {88200, 118, 15, 7526, param_source::builtin_for_rate},
                 {96000, 128, 16, 8192, param_source::builtin_for_rate}};
    for (const auto& c : cases) {
        run_config cfg = resolve({.rate = c.rate});
        EXPECT_EQ(cfg.integer(param_id::artifact_window_samples), c.window) << c.rate;
        EXPECT_EQ(cfg.integer(param_id::artifact_min_silence_clip_run), c.clip_run) << c.rate;
        EXPECT_EQ(cfg.integer(param_id::spectral_sweep_edge_skip_samples), c.edge_skip) << c.rate;
        EXPECT_EQ(cfg.source(param_id::artifact_window_samples), c.source) << c.rate;
    }
    run_config at_96k = resolve({.rate = 96000});
    EXPECT_EQ(at_96k.label(param_id::artifact_window_samples), "built-in default for this sample rate");
    EXPECT_EQ(resolve({.config = R"({"artifact": {"window_samples": 32}})", .rate = 96000})
                  .label(param_id::artifact_window_samples),
              "--config");
}

TEST(RunConfig, AutomaticFftSizeFollowsTheOverlap) {
    struct {
        std::uint32_t rate;
        std::uint64_t overlap;
        std::int64_t size;
        std::string_view label;
    } cases[] = {{96000, 20000, 16384, "built-in default for this sample rate"},
                 {96000, 10000, 8192, "built-in default"},
                 {192000, 40000, 32768, "built-in default for this sample rate"},
                 {192000, 20000, 16384, "built-in default for this sample rate"},
                 {44100, 100, 8192, "built-in default"}};
    for (const auto& c : cases) {
        run_config cfg = resolve({.rate = c.rate, .overlap = c.overlap});
        EXPECT_EQ(cfg.integer(param_id::spectral_fft_size), c.size) << c.rate << " " << c.overlap;
        EXPECT_EQ(cfg.label(param_id::spectral_fft_size), c.label) << c.rate << " " << c.overlap;
    }
    run_config fixed = resolve({.analysis = R"({"spectral_fidelity": {"fft_size": 32768}})", .rate = 96000, .overlap = 10});
    EXPECT_EQ(fixed.integer(param_id::spectral_fft_size), 32768);
    EXPECT_EQ(fixed.label(param_id::spectral_fft_size), "veltrane-defaults.cfg");
}

TEST(RunConfig, LayersFallbacksAndTheImpulseLevelProfile) {
    run_config cfg = resolve({.config = R"({"artifact": {"k": 9}, "level_fidelity": {"profile": "impulse"}})",
                              .analysis = R"({"artifact": {"k": 8, "min_severity": 5},
                                              "general": {"low_level_signal_threshold_db": -65}})"});
    EXPECT_EQ(cfg.number(param_id::artifact_k), 9.0);
    EXPECT_EQ(cfg.source(param_id::artifact_k), param_source::config_file);
    EXPECT_EQ(cfg.number(param_id::artifact_min_severity), 5.0);
    EXPECT_EQ(cfg.source(param_id::artifact_min_severity), param_source::defaults_file);
    EXPECT_EQ(cfg.number(param_id::artifact_min_global_severity), 100.0);
    EXPECT_EQ(cfg.number(param_id::time_domain_low_level_signal_threshold_db), -65.0);
    EXPECT_EQ(cfg.number(param_id::spectral_low_level_signal_threshold_db), -65.0);
    EXPECT_EQ(cfg.number(param_id::level_fidelity_noise_floor_db), -30.0);
    EXPECT_EQ(cfg.number(param_id::level_fidelity_p99_tolerance_db), 1.94);
    EXPECT_FALSE(cfg.present(param_id::loudness_true_peak_ceiling_dbtp));

    run_config own = resolve({.config = R"({"level_fidelity": {"profile": "impulse", "p99_tolerance_db": 3}})"});
    EXPECT_EQ(own.number(param_id::level_fidelity_p99_tolerance_db), 3.0);
    EXPECT_EQ(resolve({}).number(param_id::level_fidelity_noise_floor_db), -80.0);
}

TEST(RunConfig, SwitchesRecordTheirDecidingLabel) {
    run_config plain = resolve({});
    EXPECT_TRUE(plain.flag(param_id::level_fidelity_gates_overall));
    EXPECT_TRUE(plain.flag(param_id::bit_exact_enabled));
    EXPECT_FALSE(plain.flag(param_id::bit_exact_gates_overall));
    EXPECT_EQ(plain.label(param_id::bit_accuracy_enabled), "built-in default");

    inputs in;
    in.cl.bitexact = in.cl.bitaccuracy = in.cl.levelfidelity_ref_only = in.cl.artifact_ref_only = true;
    in.cl.loudness = in.cl.deepscan = in.cl.impulse = in.cl.no_distortion = true;
    in.analysis = R"({"bit_exact": {"enabled": false}})";
    run_config flags = resolve(in);
    EXPECT_TRUE(flags.flag(param_id::bit_exact_gates_overall));
    EXPECT_EQ(flags.label(param_id::bit_exact_gates_overall), "--bitexact");
    EXPECT_FALSE(flags.flag(param_id::bit_exact_enabled));  // --bitexact leaves running to the files
    EXPECT_EQ(flags.label(param_id::bit_accuracy_enabled), "--bitaccuracy");
    EXPECT_FALSE(flags.flag(param_id::level_fidelity_gates_overall));
    EXPECT_EQ(flags.label(param_id::level_fidelity_gates_overall), "--levelfidelity-ref-only");
    EXPECT_EQ(flags.label(param_id::artifact_gates_overall), "--artifact-ref-only");
    EXPECT_EQ(flags.label(param_id::loudness_gates_overall), "--loudness");
    EXPECT_TRUE(flags.flag(param_id::time_domain_enabled));
    EXPECT_TRUE(flags.flag(param_id::impulse_template_enabled));
    EXPECT_FALSE(flags.flag(param_id::distortion_enabled));

    inputs skip;
    skip.cl.no_bitexact = skip.cl.no_loudness = true;
    skip.config = R"({"loudness": {"gates_overall": true}, "bit_exact": {"gates_overall": true}})";
    run_config skipped = resolve(skip);
    EXPECT_FALSE(skipped.flag(param_id::bit_exact_enabled));
    EXPECT_FALSE(skipped.flag(param_id::loudness_enabled));
    EXPECT_TRUE(skipped.flag(param_id::loudness_gates_overall));
    EXPECT_EQ(skipped.label(param_id::loudness_gates_overall), "--config");
}

TEST(RunConfig, SweepProfilesSnapshotsAndContinuousScanning) {
    inputs amp;
    amp.cl.ampsweep = true;
    run_config cfg = resolve(amp);
    EXPECT_EQ(cfg.text(param_id::spectral_profile), "amp_sweep");
    EXPECT_EQ(cfg.label(param_id::spectral_profile), "command line");
    EXPECT_EQ(cfg.profile_kind, spectral_profile_kind::amp_sweep);
    EXPECT_TRUE(cfg.flag(param_id::spectral_continuous));
    EXPECT_EQ(cfg.label(param_id::spectral_continuous), "implied by sweep profile");
    EXPECT_TRUE(cfg.edge_skip_active);
    EXPECT_EQ(cfg.edge_skip_samples_for_check, 4096);
    EXPECT_FALSE(cfg.sweep_window_active);

    amp.analysis = R"({"spectral_fidelity": {"snapshots": true}})";
    run_config snap = resolve(amp);
    EXPECT_TRUE(snap.snapshots.active);
    EXPECT_EQ(snap.snapshots.count, 5u);
    EXPECT_EQ(snap.snapshots.source, param_source::defaults_file);
    EXPECT_FALSE(snap.flag(param_id::spectral_continuous));
    EXPECT_FALSE(snap.edge_skip_active);
    EXPECT_EQ(snap.edge_skip_samples_for_check, 0);
    EXPECT_EQ(validate(amp), "");

    inputs freq;
    freq.cl.freqsweep = true;
    freq.config = R"({"spectral_fidelity": {"continuous": false, "freq_sweep_start_hz": 20,
                      "freq_sweep_end_hz": 20000, "freq_sweep_shape": "log", "sweep_search_window_cents": 80}})";
    run_config stopped = resolve(freq);
    EXPECT_FALSE(stopped.flag(param_id::spectral_continuous));
    EXPECT_EQ(stopped.label(param_id::spectral_continuous), "--config");
    ASSERT_TRUE(stopped.sweep_window_active);
    EXPECT_EQ(stopped.sweep_window.shape, 1u);
    EXPECT_EQ(stopped.sweep_window.end_hz, 20000.0);
    EXPECT_EQ(stopped.sweep_window.search_window_cents, 80.0);
    EXPECT_FALSE(stopped.edge_skip_active);

    inputs listed;
    listed.cl.snapshots = 3;
    listed.config = R"({"spectral_fidelity": {"snapshots": [{"time_sec": 1.5}]}})";
    run_config plan = resolve(listed);
    EXPECT_EQ(plan.snapshots.count, 3u);
    EXPECT_TRUE(plan.snapshots.times_sec.empty());
    EXPECT_EQ(plan.label(param_id::spectral_snapshots), "command line");
    listed.cl.snapshots.reset();
    EXPECT_EQ(resolve(listed).snapshots.times_sec, std::vector<double>{1.5});
}

TEST(RunConfig, BandsComeWholeFromOneLayer) {
    auto bands = [](std::initializer_list<int> uppers) {
        std::string s = "{\"spectral_fidelity\": {\"bands\": [";
        for (int upper : uppers) {
            s += "{\"upper_freq_hz\": " + std::to_string(upper) +
                 ", \"noise_floor_db\": 1, \"low_level_signal_threshold_db\": 2, \"peak_threshold_db\": 3,"
                 " \"signal_tolerance_db\": 4, \"low_level_signal_tolerance_db\": 5, \"peak_tolerance_db\": 6},";
        }
        return s + "]}}";
    };
    run_config cfg = resolve({.config = bands({24000}), .analysis = bands({1000, 2000, 24000})});
    ASSERT_EQ(cfg.bands.size(), 1u);
    EXPECT_EQ(cfg.label(param_id::spectral_bands), "--config");
    EXPECT_EQ(resolve({.analysis = bands({1000, 2000, 24000})}).bands.size(), 3u);

    EXPECT_EQ(validate({.analysis = bands({1000, 24000})}), "");
    const std::string nyquist_error =
        "error: spectral_fidelity.bands must have strictly ascending upper_freq_hz, and the last band's upper_freq_hz "
        "must cover the Nyquist frequency (24000.0 Hz)\n";
    EXPECT_EQ(validate({.analysis = bands({1000, 23999})}), nyquist_error);
    EXPECT_EQ(validate({.analysis = bands({2000, 2000, 24000})}), nyquist_error);
    EXPECT_EQ(validate({.analysis = bands({3000, 2000, 24000})}), nyquist_error);
    EXPECT_EQ(validate({.cl = {.ampsweep = true},
                        .config = R"({"spectral_fidelity": {"relative_noise_floor_db": -50}})",
                        .analysis = bands({24000})}),
              "error: spectral_fidelity.bands and spectral_fidelity.relative_noise_floor_db cannot both be set -- use "
              "only one of them\n");
}

TEST(RunConfig, AlignmentSettings) {
    defaults_record none;
    alignment_settings s = resolve_alignment_settings(config_layer{}, none, 44100);
    EXPECT_EQ(s.min_confidence, 0.9);
    EXPECT_EQ(s.agreement_tolerance_samples, 2);
    EXPECT_EQ(s.max_search_samples, 4410);
    EXPECT_EQ(s.low_level_threshold_db, -70.0);

    defaults_record site = defaults_text(R"({"general": {"low_level_signal_threshold_db": -60}})",
                                         R"("alignment": {"fine_align_max_search_sec": 0.5,
                                            "fine_align_confidence_threshold": 0.75})");
    s = resolve_alignment_settings(config_layer{}, site, 44101);
    EXPECT_EQ(s.max_search_samples, 22051);  // 22050.5 rounds away from zero
    EXPECT_EQ(s.min_confidence, 0.75);
    EXPECT_EQ(s.low_level_threshold_db, -60.0);
    s = resolve_alignment_settings(config_text(R"({"general": {"low_level_signal_threshold_db": -55},
                                                  "alignment": {"fine_align_max_search_sec": 9}})"),
                                   site, 44101);
    EXPECT_EQ(s.low_level_threshold_db, -55.0);
    EXPECT_EQ(s.max_search_samples, 22051);  // --config has no alignment section

    // The conversion is defined for any number, even when a caller skipped the range checks.
    for (auto [seconds, samples] : {std::pair<double, std::int64_t>{0.0, 0}, {-2.0, 0}, {std::nan(""), 0},
                                    {1e300, 9007199254740992LL}}) {
        defaults_record d;
        d.top_level.set_number(param_id::alignment_fine_align_max_search_sec, seconds);
        EXPECT_EQ(resolve_alignment_settings(config_layer{}, d, 48000).max_search_samples, samples) << seconds;
    }
}

TEST(RunConfigValidation, EachRuleAndItsMessage) {
    struct {
        inputs in;
        const char* message;
    } cases[] = {
        {{.config = R"({"spectral_fidelity": {"fft_size": 3000}})"},
         "error: spectral_fidelity.fft_size 3000 not supported -- must be one of 1024, 2048, 4096, 8192, 16384, "
         "32768 (also used by Distortion, which reads this same field)\n"},
        {{.config = R"({"spectral_fidelity": {"profile": "sweep"}})"},
         "error: spectral_fidelity.profile 'sweep' not recognized -- must be one of \"freq_domain_multitone\", "
         "\"freq_sweep\", \"amp_sweep\"\n"},
        {{.cl = {.freqsweep = true}, .analysis = R"({"spectral_fidelity": {"relative_noise_floor_db": -40}})"},
         "error: spectral_fidelity.relative_noise_floor_db only applies to profile=\"amp_sweep\" (got "
         "profile=\"freq_sweep\")\n"},
        {{.config = R"({"spectral_fidelity": {"freq_sweep_start_hz": 20}})"},
         "error: spectral_fidelity.freq_sweep_start_hz and freq_sweep_end_hz must both be set together, or "
         "neither\n"},
        {{.cl = {.ampsweep = true},
          .config = R"({"spectral_fidelity": {"freq_sweep_start_hz": 20, "freq_sweep_end_hz": 2e4}})"},
         "error: spectral_fidelity.freq_sweep_start_hz/end_hz/shape only apply to profile=\"freq_sweep\" (got "
         "profile=\"amp_sweep\")\n"},
        {{.config = R"({"spectral_fidelity": {"amp_sweep_test_freq_hz": 1000}})"},
         "error: spectral_fidelity.amp_sweep_test_freq_hz only applies to profile=\"amp_sweep\" (got "
         "profile=\"freq_domain_multitone\")\n"},
        {{.cl = {.ampsweep = true}, .config = R"({"spectral_fidelity": {"sweep_search_window_cents": 30}})"},
         "error: spectral_fidelity.sweep_search_window_cents only applies once sweep peak windowing is active "
         "(freq_sweep_start_hz/end_hz for profile=\"freq_sweep\", or amp_sweep_test_freq_hz for "
         "profile=\"amp_sweep\")\n"},
        {{.cl = {.freqsweep = true},
          .config = R"({"spectral_fidelity": {"freq_sweep_start_hz": 20, "freq_sweep_end_hz": 2e4,
                         "freq_sweep_shape": "exp"}})"},
         "error: spectral_fidelity.freq_sweep_shape 'exp' not recognized -- must be \"linear\" or \"log\"\n"},
        {{.analysis = R"({"spectral_fidelity": {"sweep_edge_skip_samples": 100}})"},
         "error: spectral_fidelity.sweep_edge_skip_samples only applies to profile=\"freq_sweep\" or \"amp_sweep\" "
         "(got profile=\"freq_domain_multitone\")\n"},
        {{.cl = {.freqsweep = true}, .analysis = R"({"spectral_fidelity": {"sweep_edge_skip_samples": -7}})"},
         "error: spectral_fidelity.sweep_edge_skip_samples must be 0 or more, got -7\n"},
        {{.config = R"({"spectral_fidelity": {"overlap_fraction": 0.25}})"},
         "error: spectral_fidelity.overlap_fraction only applies when spectral_fidelity.continuous is true\n"},
        {{.config = R"({"spectral_fidelity": {"continuous": true, "overlap_fraction": 0.75}})"},
         "error: spectral_fidelity.overlap_fraction must be in [0, 0.5], got 0.7500\n"},
        {{.config = R"({"spectral_fidelity": {"continuous": true, "snapshots": 3}})"},
         "error: spectral_fidelity.snapshots and spectral_fidelity.continuous cannot both be set -- multi-snapshot "
         "and continuous scan are alternate modes\n"},
        {{.cl = {.snapshots = 0}},
         "error: spectral_fidelity.snapshots must resolve to between 1 and 25 snapshots, got 0\n"},
        {{.cl = {.snapshots = 26}},
         "error: spectral_fidelity.snapshots must resolve to between 1 and 25 snapshots, got 26\n"},
        {{.config = R"({"spectral_fidelity": {"snapshots": 26}})"},
         "error: spectral_fidelity.snapshots must resolve to between 1 and 25 snapshots, got 26\n"},
        {{.config = R"({"distortion": {"overlap_fraction": 0.25}})"},
         "error: distortion.overlap_fraction only applies when distortion.continuous is true\n"},
        {{.config = R"({"distortion": {"continuous": true, "overlap_fraction": -0.1}})"},
         "error: distortion.overlap_fraction must be in [0, 0.5], got -0.1000\n"},
    };
    for (const auto& c : cases) EXPECT_EQ(validate(c.in), c.message) << c.in.config << c.in.analysis;
}

TEST(RunConfigValidation, AcceptedCombinationsAndRuleOrder) {
    EXPECT_EQ(validate({}), "");
    EXPECT_EQ(validate({.cl = {.snapshots = 25}}), "");
    EXPECT_EQ(validate({.cl = {.ampsweep = true},
                        .config = R"({"spectral_fidelity": {"amp_sweep_test_freq_hz": 1000,
                                      "sweep_search_window_cents": 30, "relative_noise_floor_db": -60,
                                      "overlap_fraction": 0.5, "sweep_edge_skip_samples": 0}})"}),
              "");
    EXPECT_EQ(validate({.config = R"({"spectral_fidelity": {"continuous": true, "overlap_fraction": 0.5}})"}), "");
    // The earlier rule wins when several are broken; a defaults-file profile counts like a flag.
    EXPECT_TRUE(validate({.config = R"({"spectral_fidelity": {"fft_size": 100, "profile": "x"}})"})
                    .starts_with("error: spectral_fidelity.fft_size 100 not supported"));
    EXPECT_EQ(validate({.analysis = R"({"spectral_fidelity": {"profile": "amp_sweep", "relative_noise_floor_db": -1}})"}),
              "");
}

}  // namespace
}  // namespace veltrane
