#pragma once
// The format limits analyze and plot put on their inputs: 22050 to 192000 Hz, mono or
// stereo. A failure is reported through report_run_error, so analyze's ERROR report can
// carry it.
#include <cstdint>
#include <iosfwd>

namespace veltrane {

inline constexpr std::uint32_t min_sample_rate_hz = 22050;
inline constexpr std::uint32_t max_sample_rate_hz = 192000;

// False (after reporting "<option> sample rate <rate> Hz is outside the supported range
// [22050, 192000] Hz") for a rate outside the range.
bool check_sample_rate(std::ostream& err, const char* option, std::uint32_t rate_hz);

// False (after reporting "<option> has <n> channel(s) -- veltrane only accepts mono or
// stereo input") for a channel count other than 1 or 2.
bool check_channel_count(std::ostream& err, const char* option, std::uint32_t channels);

}  // namespace veltrane
