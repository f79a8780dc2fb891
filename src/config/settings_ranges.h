#pragma once
// Range checks of the numbers a settings file sets. The reader already refuses NaN and
// the infinities; these limits keep every finite value a file can hold within what the
// checks and the alignment can use (no negative tolerances or windows, no window so
// long that converting it to samples overflows, no confidence above 1). The limits are
// generous: they only reject values that cannot mean anything, never a strict setting.
//
// Rules already enforced with their own messages during resolution (fft size, overlap
// fractions, the snapshot count, sweep_edge_skip_samples >= 0) are not repeated here,
// and integer keys whose loader accepts only positive values need no further check.
#include <optional>
#include <string>
#include <string_view>

#include "config/config_layer.h"
#include "config/params.h"

namespace veltrane {

// The allowed values of one number or integer key: min <= value <= max, or
// min < value <= max when min_exclusive.
struct setting_range {
    param_id id = param_id::count_;
    double min = 0.0;
    double max = 0.0;
    bool min_exclusive = false;
};

// The range of `id`, or nullopt when the key has no range of its own here.
std::optional<setting_range> range_of(param_id id);

// Checks every number and integer set in `layer`, then each spectral band and snapshot
// time, in table order; the first value out of range gives the complete line
//   "error: <label>'s <section.key> <value> is out of range -- must be between <min> and <max>\n"
// (or "... must be above <min> and at most <max>\n" for an exclusive lower limit), where
// <label> is "--config" or "veltrane-defaults.cfg" and band and snapshot values are named
// like "spectral_fidelity.bands[2].peak_tolerance_db". nullopt when every value is usable.
std::optional<std::string> check_setting_ranges(const config_layer& layer, std::string_view file_label);

}  // namespace veltrane
