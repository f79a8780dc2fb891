// The defaults file: its three top-level objects, where it is looked for, the profiles,
// and the settings that trim and plot take from it.
#include <gtest/gtest.h>

#include <string>

#include "config/defaults_file.h"

namespace veltrane {
namespace {

defaults_record load_ok(std::string_view text) {
    defaults_record record;
    EXPECT_TRUE(load_defaults_text(text, record)) << text;
    return record;
}

constexpr std::string_view site_file = R"(
// site defaults
{
  "general": {"test_engineer": "Jo", "test_product": "", "test_company_name": "Acme",
              "tester_info_enabled": true},
  "alignment": {"sync_psr_threshold": 8.5, "fine_align_agreement_tolerance_samples": -1},
  "analysis": {
    "general": {"default_profile": "time_domain"},
    "spectral_fidelity": {"fft_size": 3000, "noise_floor_db": -110},
    "time_domain": {"enabled": false}
  }
})";

TEST(DefaultsFile, ReadsTesterAlignmentAndAnalysis) {
    defaults_record r = load_ok(site_file);
    EXPECT_EQ(r.top_level[param_id::tester_test_engineer].text, "Jo");
    EXPECT_EQ(r.top_level[param_id::alignment_sync_psr_threshold].number, 8.5);
    EXPECT_EQ(r.top_level[param_id::alignment_fine_align_agreement_tolerance_samples].integer, -1);
    EXPECT_EQ(r.analysis[param_id::general_default_profile].text, "time_domain");
    EXPECT_FALSE(r.analysis.is_set(param_id::tester_test_engineer));
    EXPECT_FALSE(r.top_level.is_set(param_id::spectral_fft_size));

    tester_identity who = resolve_tester_identity(r);
    EXPECT_EQ(who.test_engineer, "Jo");
    EXPECT_FALSE(who.test_product);  // set but empty
    EXPECT_EQ(who.test_company_name, "Acme");
    EXPECT_FALSE(resolve_tester_identity(load_ok(R"({"general": {"test_engineer": "Jo"}})")).test_engineer);

    sync_settings sync = resolve_sync_settings(r);
    EXPECT_EQ(sync.psr_threshold, 8.5);
    EXPECT_EQ(sync.search_window_sec, 45.0);
}

TEST(DefaultsFile, FirstOccurrenceQuirks) {
    // With analysis written first, its own "general" is the one found at the top.
    defaults_record r = load_ok(R"({"analysis": {"general": {"low_level_signal_threshold_db": -65}},
                                    "general": {"test_engineer": "Jo", "tester_info_enabled": true}})");
    EXPECT_FALSE(r.top_level.is_set(param_id::tester_test_engineer));
    EXPECT_EQ(r.analysis[param_id::general_low_level_signal_threshold_db].number, -65.0);
    // An analysis object of 4096 bytes or more is silently absent.
    std::string big = "{\"analysis\": {\"loudness\": {\"enabled\": false}, \"pad\": \"" + std::string(4100, 'x') + "\"}}";
    EXPECT_FALSE(load_ok(big).analysis.is_set(param_id::loudness_enabled));
}

// (Missing and unbalanced files are refused by every command in the command-line tests.)
TEST(DefaultsFile, LoadFailures) {
    defaults_record r;
    std::string bands;
    for (int i = 1; i <= 6; ++i) {
        bands += "{\"upper_freq_hz\": " + std::to_string(i * 4000) +
                 ", \"noise_floor_db\": 1, \"low_level_signal_threshold_db\": 1, \"peak_threshold_db\": 1,"
                 " \"signal_tolerance_db\": 1, \"low_level_signal_tolerance_db\": 1, \"peak_tolerance_db\": 1},";
    }
    EXPECT_FALSE(load_defaults_text("{\"analysis\": {\"spectral_fidelity\": {\"bands\": [" + bands + "]}}}", r));
}

TEST(DefaultsFile, PathNextToTheExecutable) {
    EXPECT_EQ(defaults_path_in("/opt/vt/bin"), "/opt/vt/bin/veltrane-defaults.cfg");
    EXPECT_EQ(defaults_path_in(""), "/veltrane-defaults.cfg");
    // "/veltrane-defaults.cfg" is 22 characters; the joined path may hold 4095.
    EXPECT_TRUE(defaults_path_in(std::string(4073, 'd')));
    EXPECT_FALSE(defaults_path_in(std::string(4074, 'd')));
}

TEST(Profiles, FillOnlyUnsetKeysOfTheirOwnLayer) {
    struct {
        const char* profile;
        param_id target;  // count_: the profile changes nothing
        const char* text; // for text targets, else a bool switched on
    } cases[] = {{"bit_accuracy", param_id::bit_accuracy_enabled, nullptr},
                 {"impulse_domain", param_id::impulse_template_enabled, nullptr},
                 {"time_domain", param_id::time_domain_enabled, nullptr},
                 {"amplitude_sweep", param_id::spectral_profile, "amp_sweep"},
                 {"frequency_sweep", param_id::spectral_profile, "freq_sweep"},
                 {"bit_exact", param_id::count_, nullptr},
                 {"frequency_domain", param_id::count_, nullptr}};
    for (const auto& c : cases) {
        config_layer layer;
        layer.set_text(param_id::general_default_profile, c.profile);
        std::string message;
        ASSERT_TRUE(apply_default_profile(layer, "--config", message)) << c.profile;
        int set_count = 0;
        for (const layer_value& v : layer.values) set_count += v.set;
        EXPECT_EQ(set_count, c.target == param_id::count_ ? 1 : 2) << c.profile;
        if (c.target == param_id::count_) continue;
        if (c.text) {
            EXPECT_EQ(layer[c.target].text, c.text);
        } else {
            EXPECT_TRUE(layer[c.target].boolean) << c.profile;
        }
        // A key the layer sets itself, to either value, is left alone.
        config_layer own;
        own.set_text(param_id::general_default_profile, c.profile);
        own.set_bool(c.target, false);
        own.set_text(c.target, "own");
        ASSERT_TRUE(apply_default_profile(own, "--config", message));
        EXPECT_FALSE(own[c.target].boolean);
        EXPECT_EQ(own[c.target].text, "own");
    }
}

TEST(Profiles, UnknownNameIsRejectedWithTheFileLabel) {
    defaults_record r = load_ok(R"({"analysis": {"general": {"default_profile": "Time_Domain"}}})");
    std::string message;
    EXPECT_FALSE(apply_default_profile(r.analysis, "veltrane-defaults.cfg", message));
    EXPECT_EQ(message,
              "error: veltrane-defaults.cfg's general.default_profile 'Time_Domain' not recognized -- must be one of "
              "\"bit_exact\", \"bit_accuracy\", \"amplitude_sweep\", \"frequency_sweep\", \"frequency_domain\", "
              "\"impulse_domain\", \"time_domain\" (--deepscan)\n");
    config_layer none;
    EXPECT_TRUE(apply_default_profile(none, "--config", message));
}

TEST(PlotSettings, FftSizeAndNoiseFloorFromTheAnalysisLayer) {
    defaults_record empty;
    plot_spectrum_settings s = resolve_plot_spectrum_settings(empty, 44100, 88200);
    EXPECT_EQ(s.fft_size, 8192);
    EXPECT_EQ(s.noise_floor_db, -100.0);
    EXPECT_EQ(resolve_plot_spectrum_settings(empty, 96000, 9600).fft_size, 8192);
    EXPECT_EQ(resolve_plot_spectrum_settings(empty, 96000, 16384).fft_size, 16384);

    plot_spectrum_settings bad = resolve_plot_spectrum_settings(load_ok(site_file), 48000, 96000);
    EXPECT_EQ(bad.noise_floor_db, -110.0);
    EXPECT_EQ(bad.error_message,
              "error: spectral_fidelity.fft_size 3000 not supported -- must be one of 1024, 2048, 4096, 8192, 16384, "
              "32768\n");
}

}  // namespace
}  // namespace veltrane
