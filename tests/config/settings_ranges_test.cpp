// Range checks of settings-file numbers: every number and integer key with a range, the
// band and snapshot lists, and the exact message.
#include "config/settings_ranges.h"

#include <gtest/gtest.h>

#include <string>

#include "config/config_layer.h"
#include "config/defaults_file.h"

namespace veltrane {
namespace {

std::optional<std::string> check_config(std::string_view text) {
    config_layer layer;
    EXPECT_TRUE(load_config_text(text, layer)) << text;
    return check_setting_ranges(layer, "--config");
}

TEST(SettingRanges, LimitsAndMessages) {
    struct row {
        const char* text;
        const char* error;  // nullptr: accepted
    };
    const row rows[] = {
        {R"({"general": {"length_mismatch_tolerance_pct": 0, "low_level_signal_threshold_db": -300}})", nullptr},
        {R"({"general": {"length_mismatch_tolerance_pct": 100.5}})",
         "error: --config's general.length_mismatch_tolerance_pct 100.5 is out of range -- must be between 0 and 100\n"},
        {R"({"level_fidelity": {"p99_tolerance_db": -0.01}})",
         "error: --config's level_fidelity.p99_tolerance_db -0.01 is out of range -- must be between 0 and 300\n"},
        {R"({"loudness": {"true_peak_ceiling_dbtp": 2.5, "integrated_tolerance_lu": 300}})", nullptr},
        {R"({"time_domain": {"noise_floor_db": -301}})",
         "error: --config's time_domain.noise_floor_db -301 is out of range -- must be between -300 and 100\n"},
        {R"({"spectral_fidelity": {"amp_sweep_test_freq_hz": -1000}})",
         "error: --config's spectral_fidelity.amp_sweep_test_freq_hz -1000 is out of range -- must be above 0 and "
         "at most 1000000\n"},
        {R"({"bit_accuracy": {"tolerance_db": 1.5e124}})",
         "error: --config's bit_accuracy.tolerance_db 1.5e+124 is out of range -- must be between 0 and 400\n"},
        // Keys checked elsewhere keep their own rules: a negative edge skip passes here.
        {R"({"spectral_fidelity": {"sweep_edge_skip_samples": -1, "overlap_fraction": 7}})", nullptr},
        {R"({"spectral_fidelity": {"bands": [{"upper_freq_hz": 24000, "noise_floor_db": -90,
            "low_level_signal_threshold_db": -60, "peak_threshold_db": -40, "signal_tolerance_db": 3,
            "low_level_signal_tolerance_db": 6, "peak_tolerance_db": 0.5}, {"upper_freq_hz": 96000,
            "noise_floor_db": -90, "low_level_signal_threshold_db": -60, "peak_threshold_db": -40,
            "signal_tolerance_db": -3, "low_level_signal_tolerance_db": 6, "peak_tolerance_db": 0.5}]}})",
         "error: --config's spectral_fidelity.bands[1].signal_tolerance_db -3 is out of range -- must be between 0 "
         "and 300\n"},
        {R"({"spectral_fidelity": {"snapshots": [{"time_sec": 1}, {"time_sec": -2}]}})",
         "error: --config's spectral_fidelity.snapshots[1].time_sec -2 is out of range -- must be between 0 and "
         "86400\n"},
    };
    for (const row& r : rows) {
        std::optional<std::string> error = check_config(r.text);
        if (r.error) {
            EXPECT_EQ(error, std::string(r.error)) << r.text;
        } else {
            EXPECT_EQ(error, std::nullopt) << r.text;
        }
    }
}

TEST(SettingRanges, AlignmentSectionOfTheDefaultsFile) {
    defaults_record d;
    ASSERT_TRUE(load_defaults_text(R"({"alignment": {"fine_align_confidence_threshold": 1.01}})", d));
    EXPECT_EQ(check_setting_ranges(d.top_level, "veltrane-defaults.cfg"),
              "error: veltrane-defaults.cfg's alignment.fine_align_confidence_threshold 1.01 is out of range -- must "
              "be between 0 and 1\n");
    ASSERT_TRUE(load_defaults_text(R"({"alignment": {"fine_align_max_search_sec": 86400, "sync_search_window_sec": 0,
        "fine_align_agreement_tolerance_samples": 0}})", d));
    EXPECT_EQ(check_setting_ranges(d.top_level, "veltrane-defaults.cfg"), std::nullopt);
    // Every range in the table is well formed and belongs to a number or integer key.
    for (const param_descriptor& p : param_table) {
        if (auto r = range_of(p.id)) {
            EXPECT_LT(r->min, r->max) << param_display_name(p.id);
            EXPECT_TRUE(p.type == param_type::number || p.type == param_type::integer) << param_display_name(p.id);
        }
    }
}

}  // namespace
}  // namespace veltrane
