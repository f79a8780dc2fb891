// Loading a settings layer: file limits, tolerance of sloppy files, the loader's
// acceptance rules and the two list-valued keys.
#include <gtest/gtest.h>

#include <string>

#include "config/config_layer.h"
#include "support/temp_dir.h"
#include "util/files.h"

namespace veltrane {
namespace {

config_layer load_ok(std::string_view text) {
    config_layer layer;
    EXPECT_TRUE(load_config_text(text, layer)) << text;
    return layer;
}

bool loads(std::string_view text) {
    config_layer layer;
    return load_config_text(text, layer);
}

std::string snapshot_objects(int n) {
    std::string s = "{\"spectral_fidelity\": {\"snapshots\": [";
    for (int i = 0; i < n; ++i) s += "{\"time_sec\": " + std::to_string(i) + ".5},";
    return s + "]}}";
}

std::string band(double upper, bool with_peak_tolerance = true) {
    std::string b = "{\"upper_freq_hz\": " + std::to_string(upper) +
                    ", \"noise_floor_db\": -90, \"low_level_signal_threshold_db\": -60, \"peak_threshold_db\": -40,"
                    " \"signal_tolerance_db\": 3, \"low_level_signal_tolerance_db\": 6";
    if (with_peak_tolerance) b += ", \"peak_tolerance_db\": 0.5";
    return b + "}";
}

TEST(ConfigFile, SizeLimitIsSixteenKibMinusOne) {
    test::temp_dir dir;
    std::string body = "{\"loudness\": {\"gates_overall\": true}}";
    std::string exact = body + std::string(16383 - body.size(), ' ');
    ASSERT_TRUE(write_binary_file(dir.file("ok.json"), exact));
    ASSERT_TRUE(write_binary_file(dir.file("big.json"), exact + " "));
    config_layer layer;
    EXPECT_TRUE(load_config_file(dir.file("ok.json"), layer));
    EXPECT_TRUE(layer.is_set(param_id::loudness_gates_overall));
    EXPECT_FALSE(load_config_file(dir.file("big.json"), layer));
    EXPECT_FALSE(load_config_file(dir.file("missing.json"), layer));
}

TEST(ConfigFile, SloppyFilesLoadAndBadValuesOnlyUnsetTheirKey) {
    config_layer layer = load_ok(R"(
        // house tolerances
        {
          "unknown_section": {"x": [1, 2,]},
          "artifact": {"k": 7.5, "noise_floor_db": "loud", "window_samples": 96,},
          "general": {"length_mismatch_tolerance_pct": 2, "default_profile": "time_domain"}, // why not
          "level_fidelity": {"profile": "impulse", "gates_overall": false, "p99_tolerance_db": -},
          "alignment": {"fine_align_confidence_threshold": 0.5},
        })");
    EXPECT_EQ(layer[param_id::artifact_k].number, 7.5);
    EXPECT_FALSE(layer.is_set(param_id::artifact_noise_floor_db));
    EXPECT_EQ(layer[param_id::artifact_window_samples].integer, 96);
    EXPECT_EQ(layer[param_id::general_length_mismatch_tolerance_pct].number, 2.0);
    EXPECT_EQ(layer[param_id::general_default_profile].text, "time_domain");
    EXPECT_EQ(layer[param_id::level_fidelity_profile].text, "impulse");
    EXPECT_TRUE(layer.is_set(param_id::level_fidelity_gates_overall));
    EXPECT_FALSE(layer[param_id::level_fidelity_gates_overall].boolean);
    EXPECT_FALSE(layer.is_set(param_id::level_fidelity_p99_tolerance_db));
    EXPECT_FALSE(layer.is_set(param_id::alignment_fine_align_confidence_threshold));  // no such section here
}

TEST(ConfigFile, WholeLoadFailures) {
    EXPECT_FALSE(loads("{\"artifact\": {\"k\": 1}"));
    EXPECT_TRUE(loads(""));
    // The text ends at a NUL byte, taking the closing brace with it.
    EXPECT_FALSE(loads(std::string("{\"a\": 1\0}", 10)));
}

TEST(ConfigFile, IntegerAcceptanceAndTextCapacity) {
    config_layer layer = load_ok(R"({
        "artifact": {"window_samples": 0, "min_run": -3, "min_silence_clip_run": 4},
        "impulse_template": {"frame_size": 1},
        "spectral_fidelity": {"fft_size": -1024, "sweep_edge_skip_samples": -5},
        "distortion": {"fundamental_notch_bins": 12.9}})");
    EXPECT_FALSE(layer.is_set(param_id::artifact_window_samples));
    EXPECT_FALSE(layer.is_set(param_id::artifact_min_run));
    EXPECT_EQ(layer[param_id::artifact_min_silence_clip_run].integer, 4);
    EXPECT_EQ(layer[param_id::impulse_template_frame_size].integer, 1);
    EXPECT_FALSE(layer.is_set(param_id::spectral_fft_size));
    EXPECT_EQ(layer[param_id::spectral_sweep_edge_skip_samples].integer, -5);
    EXPECT_EQ(layer[param_id::distortion_fundamental_notch_bins].integer, 12);

    std::string p15(15, 'q'), p16(16, 'q');
    EXPECT_EQ(load_ok("{\"level_fidelity\": {\"profile\": \"" + p15 + "\"}}")[param_id::level_fidelity_profile].text,
              p15);
    EXPECT_FALSE(load_ok("{\"level_fidelity\": {\"profile\": \"" + p16 + "\"}}").is_set(param_id::level_fidelity_profile));
}

TEST(ConfigFile, SectionsAreFoundByFirstOccurrence) {
    // A key nested in a band element before the section's own key yields the nested value.
    config_layer layer = load_ok("{\"spectral_fidelity\": {\"bands\": [" + band(24000) + "], \"noise_floor_db\": -120}}");
    EXPECT_EQ(layer[param_id::spectral_noise_floor_db].number, -90.0);
    ASSERT_EQ(layer.bands.size(), 1u);
    EXPECT_EQ(layer.bands[0].peak_tolerance_db, 0.5);
    // A section object of 4096 bytes or more is skipped as a whole.
    std::string big = "{\"artifact\": {\"k\": 3, \"pad\": \"" + std::string(4090, 'x') + "\"}}";
    EXPECT_FALSE(load_ok(big).is_set(param_id::artifact_k));
}

TEST(ConfigFile, SnapshotForms) {
    config_layer count = load_ok(R"({"spectral_fidelity": {"snapshots": 26}})");
    EXPECT_EQ(count.snapshot_count, 26);
    EXPECT_TRUE(count.is_set(param_id::spectral_snapshots));
    EXPECT_EQ(load_ok(R"({"spectral_fidelity": {"snapshots": true}})").snapshot_count, 5);
    for (const char* unset : {R"({"spectral_fidelity": {"snapshots": 0}})", R"({"spectral_fidelity": {"snapshots": false}})",
                              R"({"spectral_fidelity": {"snapshots": [1, 2]}})", R"({"spectral_fidelity": {"snapshots": -4}})"}) {
        config_layer layer = load_ok(unset);
        EXPECT_FALSE(layer.is_set(param_id::spectral_snapshots)) << unset;
        EXPECT_EQ(layer.snapshot_count, 0);
        EXPECT_TRUE(layer.snapshot_times_sec.empty());
    }
    config_layer times = load_ok(snapshot_objects(25));
    ASSERT_EQ(times.snapshot_times_sec.size(), 25u);
    EXPECT_EQ(times.snapshot_times_sec[3], 3.5);
    EXPECT_FALSE(loads(snapshot_objects(26)));
    EXPECT_FALSE(loads(R"({"spectral_fidelity": {"snapshots": [{"time_sec": 1}, {"time": 2}]}})"));
    // An element of 256 bytes or more quietly ends the list.
    std::string long_element = "{\"time_sec\": 2, \"pad\": \"" + std::string(240, 'x') + "\"}";
    config_layer cut = load_ok("{\"spectral_fidelity\": {\"snapshots\": [{\"time_sec\": 1}, " + long_element + "]}}");
    EXPECT_EQ(cut.snapshot_times_sec, std::vector<double>{1.0});
}

TEST(ConfigFile, BandLists) {
    std::string five;
    for (int i = 1; i <= 5; ++i) five += band(i * 5000) + ",";
    EXPECT_EQ(load_ok("{\"spectral_fidelity\": {\"bands\": [" + five + "]}}").bands.size(), 5u);
    EXPECT_FALSE(loads("{\"spectral_fidelity\": {\"bands\": [" + five + band(30000) + "]}}"));
    EXPECT_FALSE(loads("{\"spectral_fidelity\": {\"bands\": [" + band(1000) + "," + band(24000, false) + "]}}"));
    EXPECT_FALSE(load_ok(R"({"spectral_fidelity": {"bands": []}})").is_set(param_id::spectral_bands));
}

}  // namespace
}  // namespace veltrane
