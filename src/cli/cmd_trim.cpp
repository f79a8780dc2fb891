// The trim command: finds the leading and the trailing sync tone of a capture, writes the
// programme material between them as a WAV file in the input's own sample format and
// reports where the tones were found, on standard output or as a JSON file.
#include <array>
#include <cstdarg>
#include <cstdio>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "audio/wav.h"
#include "cli/commands.h"
#include "cli/options.h"
#include "cli/settings_files.h"
#include "trim/trim.h"
#include "util/files.h"

namespace veltrane {
namespace {

constexpr std::array<option_def, 4> trim_option_defs{{
    {"--input", true},
    {"--out", true},
    {"--report", true},
    {"--defaults-cfg", true},
}};

constexpr std::string_view trim_requires = "error: trim requires --input and --out\n\n";

// printf-style formatting straight onto a stream; the text is never cut.
#if defined(__GNUC__)
__attribute__((format(printf, 2, 3)))
#endif
void print_to(std::ostream& os, const char* format, ...) {
    va_list args;
    va_start(args, format);
    va_list measure;
    va_copy(measure, args);
    const int n = std::vsnprintf(nullptr, 0, format, measure);
    va_end(measure);
    if (n > 0) {
        std::vector<char> text(static_cast<std::size_t>(n) + 1);
        std::vsnprintf(text.data(), text.size(), format, args);
        os.write(text.data(), n);
    }
    va_end(args);
}

// Why a search failed: no channel searched, a PSR below the threshold, or a clear match
// that does not resemble the tone.
void print_sync_error(std::ostream& err, const char* label, const sync_match& m, double psr_threshold) {
    if (m.channel < 0) {
        print_to(err, "error: sync tone not detected (%s)\n", label);
    } else if (psr_threshold > m.psr) {
        print_to(err, "error: PSR below threshold (%s): got %.2f, need %.2f\n", label, m.psr, psr_threshold);
    } else {
        print_to(err,
                 "error: sync tone not detected (%s): the strongest match does not resemble the sync tone "
                 "(similarity %.2f, need %.2f)\n",
                 label, m.similarity, sync_similarity_threshold);
    }
}

void print_match_line(std::ostream& out, const char* label, const sync_match& m) {
    print_to(out, "  %s: channel %d, sample %zu, PSR %.2f, similarity %.3f", label, static_cast<int>(m.channel),
             static_cast<std::size_t>(m.sample_offset), m.psr, m.similarity);
    if (m.rep_count > 0) {
        out << " (reps:";
        for (std::int32_t i = 0; i < m.rep_count && i < static_cast<std::int32_t>(m.rep_psr.size()); ++i)
            print_to(out, " %.2f", m.rep_psr[static_cast<std::size_t>(i)]);
        out << ")";
    }
    out << "\n";
}

}  // namespace

int cmd_trim(int argc, char** argv, std::ostream& out, std::ostream& err) {
    scanned_options scanned;
    if (auto status = scan_subcommand(argc, argv, trim_option_defs, trim_requires, scanned, out, err)) return *status;
    if (!scanned.has("--input") || !scanned.has("--out")) return report_missing_required(trim_requires, err);
    const std::string input = *scanned.value("--input");
    const std::string output = *scanned.value("--out");
    const std::string* report = scanned.value("--report");
    std::optional<std::string> defaults_cfg;
    if (const std::string* v = scanned.value("--defaults-cfg")) defaults_cfg = *v;
    defaults_record defaults;
    if (!load_command_defaults(defaults_cfg, defaults, err)) return 1;
    const sync_settings settings = resolve_sync_settings(defaults);

    wav_audio audio;
    if (!wav_read(input, audio)) {
        print_to(err, "error: failed to read --input '%s' (%s)\n", input.c_str(), wav_error_text().c_str());
        return 1;
    }

    const trim_window window = trim_search_window(settings.search_window_sec, audio.sample_rate, audio.frame_count);
    if (window.capped) {
        print_to(err,
                 "note: sync_search_window_sec=%.1fs (%zu samples) exceeds half this file's length -- capped to "
                 "%.2fs (%zu samples) so the leading/trailing searches can't overlap (see the technical guide's "
                 "alignment section)\n",
                 settings.search_window_sec, static_cast<std::size_t>(window.configured_samples),
                 static_cast<double>(window.samples) / static_cast<double>(audio.sample_rate),
                 static_cast<std::size_t>(window.samples));
    }

    const trim_plan plan = plan_trim(audio, window, settings.psr_threshold);
    switch (plan.failure) {
        case trim_failure::leading_not_found:
            print_sync_error(err, "leading", plan.leading, settings.psr_threshold);
            return 1;
        case trim_failure::trailing_not_found:
            print_sync_error(err, "trailing", plan.trailing, settings.psr_threshold);
            return 1;
        case trim_failure::out_of_order:
            print_to(err,
                     "error: trailing occurrence (sample %zu) is not after the leading occurrence ends (sample %zu) "
                     "-- check the input file\n",
                     static_cast<std::size_t>(plan.trim_point), static_cast<std::size_t>(plan.sync_point));
            return 1;
        case trim_failure::none:
            break;
    }

    const std::uint64_t frames = plan.cut_frames();
    const bool written = write_trimmed_wav(output, audio, plan.sync_point, plan.trim_point);
    wav_free(audio);
    if (!written) {
        print_to(err, "error: failed to write '%s'\n", output.c_str());
        return 1;
    }

    if (!report) {
        print_to(out, "wrote %s (%zu clean-signal frames)\n", output.c_str(), static_cast<std::size_t>(frames));
        print_match_line(out, "leading", plan.leading);
        print_match_line(out, "trailing", plan.trailing);
        return 0;
    }
    std::string doc;
    if (!build_trim_report(input, plan, doc) || !write_text_file(*report, doc)) {
        print_to(err, "error: failed to write '%s'\n", report->c_str());
        return 1;
    }
    print_to(out, "wrote %s (%zu clean-signal frames) + %s\n", output.c_str(), static_cast<std::size_t>(frames),
             report->c_str());
    return 0;
}

}  // namespace veltrane
