#include "cli/input_formats.h"

#include "cli/error_report.h"

namespace veltrane {

bool check_sample_rate(std::ostream& err, const char* option, std::uint32_t rate_hz) {
    if (rate_hz >= min_sample_rate_hz && rate_hz <= max_sample_rate_hz) return true;
    report_run_error(err, "%s sample rate %u Hz is outside the supported range [%u, %u] Hz", option, rate_hz,
                     min_sample_rate_hz, max_sample_rate_hz);
    return false;
}

bool check_channel_count(std::ostream& err, const char* option, std::uint32_t channels) {
    if (channels == 1 || channels == 2) return true;
    report_run_error(err, "%s has %u channel(s) -- veltrane only accepts mono or stereo input", option, channels);
    return false;
}

}  // namespace veltrane
