#include "trim/trim.h"

#include <array>
#include <cmath>
#include <cstdio>
#include <span>

#include "util/json_writer.h"

namespace veltrane {
namespace {

// One search with the fixed similarity threshold.
sync_match search(sync_detector& detector, const wav_audio& audio, std::uint64_t start, std::uint64_t length,
                  double psr_threshold) {
    return find_sync(detector, audio, start, length, psr_threshold, sync_similarity_threshold);
}

bool add_match(json_writer& w, const char* label, const sync_match& m) {
    char key[64];
    std::snprintf(key, sizeof key, "%s_sample_offset", label);
    bool ok = json_add_long(w, key, static_cast<std::int64_t>(m.sample_offset), true);
    std::snprintf(key, sizeof key, "%s_channel", label);
    ok = ok && json_add_int(w, key, m.channel, true);
    std::snprintf(key, sizeof key, "%s_psr", label);
    ok = ok && json_add_double(w, key, m.psr, true);
    std::snprintf(key, sizeof key, "%s_similarity", label);
    ok = ok && json_add_double(w, key, m.similarity, true);
    for (std::uint32_t i = 0; i < builtin_sync_tone.chirp_count; ++i) {
        std::snprintf(key, sizeof key, "%s_rep_psr_%d", label, static_cast<int>(i));
        ok = ok && json_add_double(w, key, m.rep_psr[i], true);
    }
    return ok;
}

}  // namespace

trim_window trim_search_window(double window_sec, std::uint32_t sample_rate_hz, std::uint64_t frame_count) {
    trim_window w;
    const double samples = window_sec * static_cast<double>(sample_rate_hz);
    // A window of 0 s or less searches nothing; one too long for a 64-bit count is simply
    // longer than any file and ends up capped.
    if (samples >= 9.2e18) {
        w.configured_samples = UINT64_MAX;
    } else if (samples > 0.0) {
        w.configured_samples = static_cast<std::uint64_t>(std::llround(samples));
    }
    const std::uint64_t half = frame_count / 2;
    w.capped = w.configured_samples > half;
    w.samples = w.capped ? half : w.configured_samples;
    return w;
}

trim_plan plan_trim(const wav_audio& audio, const trim_window& window, double psr_threshold) {
    trim_plan plan;
    plan.window = window;
    sync_detector detector;
    plan.leading = search(detector, audio, 0, window.samples, psr_threshold);
    if (!plan.leading.found) {
        plan.failure = trim_failure::leading_not_found;
        return plan;
    }
    plan.trailing = search(detector, audio, audio.frame_count - window.samples, window.samples, psr_threshold);
    if (!plan.trailing.found) {
        plan.failure = trim_failure::trailing_not_found;
        return plan;
    }
    plan.sync_point = plan.leading.sample_offset + sync_template_length(audio.sample_rate);
    plan.trim_point = plan.trailing.sample_offset;
    if (plan.sync_point >= plan.trim_point) plan.failure = trim_failure::out_of_order;
    return plan;
}

bool write_trimmed_wav(const std::string& path, const wav_audio& audio, std::uint64_t sync_point,
                       std::uint64_t trim_point) {
    if (path.empty() || trim_point <= sync_point || trim_point > audio.frame_count) return false;
    const std::uint64_t frames = trim_point - sync_point;
    // The cut is written straight from the decoded input: no second copy of the samples.
    const std::span<const double> cut =
        std::span<const double>(audio.samples).subspan(sync_point * audio.channels, frames * audio.channels);
    // The writer works under a temporary name and renames it into place when complete, so a
    // failed write leaves no file behind and an earlier file at `path` untouched.
    return wav_write(path, audio.sample_rate, audio.channels, audio.format_code, cut, frames);
}

bool build_trim_report(std::string_view input_path, const trim_plan& plan, std::string& text) {
    std::array<char, trim_report_buffer_size> buf{};
    json_writer w = make_json_writer(buf.data(), buf.size());
    bool ok = json_begin(w) && json_add_string(w, "input_file", input_path, true) &&
              add_match(w, "leading", plan.leading) && add_match(w, "trailing", plan.trailing) &&
              json_add_long(w, "sync_point", static_cast<std::int64_t>(plan.sync_point), true) &&
              json_add_long(w, "trim_point", static_cast<std::int64_t>(plan.trim_point), false) && json_end(w);
    text.assign(ok ? std::string_view(w.buf, w.len) : std::string_view());
    return ok;
}

}  // namespace veltrane
