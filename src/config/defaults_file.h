#pragma once
// The site defaults file, veltrane-defaults.cfg: tester identity (top-level "general"),
// alignment and sync-tone settings ("alignment") and the lowest-ranking layer of check
// settings ("analysis", holding the ten check sections). Every command loads it before
// it reads any audio. Also the profiles that a file's general.default_profile names.
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "config/config_layer.h"

namespace veltrane {

inline constexpr std::string_view defaults_file_name = "veltrane-defaults.cfg";

struct defaults_record {
    // The tester and alignment items: only the param_section::tester and
    // param_section::alignment entries are ever set here.
    config_layer top_level;
    // The `analysis` object: the check sections, same shape as the --config layer.
    config_layer analysis;
};

// Loads a defaults file's raw bytes into `record` (cleared first). False when the text
// fails preparation (too long after stripping, unbalanced braces, open string) or the
// analysis layer has an invalid bands or snapshots list. Missing sections, missing keys
// and unreadable values are never errors.
bool load_defaults_text(std::string_view raw, defaults_record& record);

// The file at `path`: false when it does not exist, cannot be read, is 16384 bytes or
// longer, or fails load_defaults_text.
bool load_defaults_file_at(const std::string& path, defaults_record& record);

// Where veltrane-defaults.cfg would sit next to the running executable: "<dir>/" plus
// the file name. nullopt when the executable's directory cannot be found or the joined
// path would need more than 4095 characters.
std::optional<std::string> implicit_defaults_path();
// The same rule from a given executable directory (exposed for tests).
std::optional<std::string> defaults_path_in(std::string_view executable_directory);

// The command-level rule. With `named_path` (--defaults-cfg) the file must exist and
// load. Without it, the file next to the executable is loaded if it exists; a missing
// file there (or no usable executable directory) is success with nothing set. The caller
// picks the message by whether a path was named.
bool load_defaults_file(const std::optional<std::string>& named_path, defaults_record& record);

// Applies the layer's general.default_profile, if set, to that same layer; a profile
// only fills keys the layer leaves unset. False for an unknown name, with the complete
// "error: ...\n" line (naming `file_label`, "--config" or "veltrane-defaults.cfg") in
// `error_message`.
bool apply_default_profile(config_layer& layer, std::string_view file_label, std::string& error_message);

// Tester identity for the report and plot pages: each text is given only when
// general.tester_info_enabled is true and the text is set and not empty.
struct tester_identity {
    std::optional<std::string> test_engineer;
    std::optional<std::string> test_product;
    std::optional<std::string> test_company_name;
};
tester_identity resolve_tester_identity(const defaults_record& defaults);

// Sync-tone settings of `trim`, from the defaults file's alignment section.
struct sync_settings {
    double psr_threshold = 0.0;      // peak-to-sidelobe ratio a sync tone must reach
    double search_window_sec = 0.0;  // length searched at each end of the file, seconds
};
sync_settings resolve_sync_settings(const defaults_record& defaults);

// Spectrum settings of `plot`, from the defaults file's analysis layer only.
struct plot_spectrum_settings {
    std::int64_t fft_size = 0;      // frame length N in samples
    double noise_floor_db = 0.0;    // dBFS
    std::string error_message;      // non-empty: a configured fft size is not supported
};
plot_spectrum_settings resolve_plot_spectrum_settings(const defaults_record& defaults, std::uint32_t sample_rate_hz,
                                                      std::uint64_t frame_count);

}  // namespace veltrane
