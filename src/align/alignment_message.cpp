// The paragraph that explains a failed alignment, composed from the alignment result and
// the per-channel diagnoses into a bounded buffer.
#include <algorithm>
#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <string>

#include "align/align.h"

namespace veltrane {
namespace {

// The whole message lives in 1400 bytes (at most 1399 characters); one channel's
// description is first composed in 800 bytes to decide whether "both channels" applies.
constexpr std::size_t message_buffer_size = 1400;
constexpr std::size_t channel_buffer_size = 800;

// Text with a fixed capacity: appends go to the free space only and are cut silently, so
// the text never exceeds capacity - 1 characters.
class bounded_text {
public:
    explicit bounded_text(std::size_t capacity) : capacity_(capacity) {}

    void append(const char* piece) { appendf("%s", piece); }
    void appendf(const char* format, ...) __attribute__((format(printf, 2, 3))) {
        const std::size_t free = capacity_ - text_.size();
        if (free <= 1) return;
        char buffer[message_buffer_size];
        std::va_list args;
        va_start(args, format);
        int n = std::vsnprintf(buffer, sizeof buffer, format, args);
        va_end(args);
        if (n <= 0) return;
        std::size_t len = std::min<std::size_t>({static_cast<std::size_t>(n), sizeof buffer - 1, free - 1});
        text_.append(buffer, len);
    }
    const std::string& text() const { return text_; }

private:
    std::size_t capacity_;
    std::string text_;
};

const char* channel_label(std::uint64_t ch) { return ch == 0 ? "left channel: " : "right channel: "; }
const char* channel_name(std::uint64_t ch) { return ch == 0 ? "left" : "right"; }

void describe_channel(bounded_text& out, const char* label, const align_diagnosis& d, std::uint32_t rate,
                      double threshold, std::int64_t max_lag, double confidence) {
    const double r = rate;
    const double seg = d.segment_len / r;
    switch (d.kind) {
        case align_diagnosis_kind::polarity_inverted:
            out.appendf("%sthe DUT is polarity-inverted: it matches the reference with the sign flipped (correlation "
                        "%.4f), so no offset lines it up. Invert it and run again.",
                        label, d.polarity_confidence);
            return;
        case align_diagnosis_kind::outside_window: {
            const long shift = std::labs(static_cast<long>(d.wide_offset));
            out.appendf("%sthe DUT matches the reference but %.3f s (%ld samples) %s, outside the +-%.3f s search "
                        "window. Set alignment.fine_align_max_search_sec to at least %.1f in veltrane-defaults.cfg, or "
                        "trim both files so they start together.",
                        label, shift / r, shift, d.wide_offset > 0 ? "late" : "early", static_cast<double>(max_lag) / r,
                        std::ceil(10.0 * shift / r + 1.0) / 10.0);
            return;
        }
        case align_diagnosis_kind::drift: {
            const long diff = static_cast<long>(d.tail_offset) - static_cast<long>(d.head_offset);
            out.appendf("%sthe start of the files lines up (offset %+ld samples) but the end lines up %ld samples %s "
                        "(offset %+ld, %.1f s further on). That fits samples skipped or repeated in between, or a "
                        "clock-speed difference of about %.0f ppm. One fixed offset cannot line up the whole file, so no "
                        "comparison was made.",
                        label, static_cast<long>(d.head_offset), std::labs(diff), diff > 0 ? "later" : "earlier",
                        static_cast<long>(d.tail_offset), d.tail_start / r,
                        std::labs(diff) * 1000000.0 / static_cast<double>(d.tail_start));
            return;
        }
        case align_diagnosis_kind::head_only:
            out.appendf("%sthe first %.1f s lines up (offset %+ld samples) but the last %.1f s does not (correlation "
                        "%.2f). Something changes partway through: for example a splice, a long dropout, a slip larger "
                        "than the search window, or a different or truncated ending.",
                        label, seg, static_cast<long>(d.head_offset), seg, d.tail_confidence);
            return;
        case align_diagnosis_kind::tail_only:
            out.appendf("%sthe last %.1f s lines up (offset %+ld samples) but the first %.1f s does not (correlation "
                        "%.2f). The beginning differs, or the content changes partway through.",
                        label, seg, static_cast<long>(d.tail_offset), seg, d.head_confidence);
            return;
        case align_diagnosis_kind::middle_differs:
            out.appendf("%sthe first and the last %.1f s both line up (offset %+ld samples) but the files as a whole do "
                        "not (correlation %.2f, needs %.2f): a stretch in between differs, for example a splice, a "
                        "long dropout or inserted audio.",
                        label, seg, static_cast<long>(d.head_offset), confidence, threshold);
            return;
        case align_diagnosis_kind::no_match:
            break;
    }
    out.appendf("%sno consistent match (correlation %.4f, needs %.4f) in the whole file, its first and last stretch, "
                "or a wider search. The files may not contain the same audio, or the DUT is too heavily changed to "
                "line up. Check that you gave the right pair.",
                label, confidence, threshold);
}

// Whether the two channels' descriptions would say the same thing.
bool same_findings(const align_diagnosis& a, const align_diagnosis& b) {
    if (a.kind != b.kind) return false;
    switch (a.kind) {
        case align_diagnosis_kind::outside_window: return a.wide_offset == b.wide_offset;
        case align_diagnosis_kind::drift: return a.head_offset == b.head_offset && a.tail_offset == b.tail_offset;
        case align_diagnosis_kind::head_only:
        case align_diagnosis_kind::middle_differs: return a.head_offset == b.head_offset;
        case align_diagnosis_kind::tail_only: return a.tail_offset == b.tail_offset;
        case align_diagnosis_kind::polarity_inverted:
        case align_diagnosis_kind::no_match: return true;
    }
    return false;
}

}  // namespace

std::string compose_alignment_message(const align_result& result, const std::array<align_diagnosis, 2>& diagnosis,
                                      std::uint32_t sample_rate, double threshold, std::int64_t max_lag,
                                      std::int32_t tolerance_samples) {
    bounded_text msg(message_buffer_size);
    msg.append("alignment failed -- ");
    const align_channel& left = result.channel[0];
    const align_channel& right = result.channel[1];
    if (result.channels < 2) {
        describe_channel(msg, "", diagnosis[0], sample_rate, threshold, max_lag, left.confidence);
        return msg.text();
    }
    if (left.channel_ok && right.channel_ok) {
        msg.appendf("the channels disagree by %ld samples (left lines up at %+ld, right at %+ld), more than the %ld "
                    "allowed. If the DUT really delays one channel, raise "
                    "alignment.fine_align_agreement_tolerance_samples in veltrane-defaults.cfg; otherwise check the "
                    "capture.",
                    static_cast<long>(result.disagreement_samples), static_cast<long>(left.offset),
                    static_cast<long>(right.offset), static_cast<long>(tolerance_samples));
        return msg.text();
    }
    if (!left.channel_ok && !right.channel_ok) {
        if (diagnosis[0].kind == align_diagnosis_kind::no_match && diagnosis[1].kind == align_diagnosis_kind::no_match) {
            msg.appendf("no consistent match (correlation %.4f on the left channel, %.4f on the right, needs %.4f) in "
                        "the whole file, its first and last stretch, or a wider search. The files may not contain the "
                        "same audio, or the DUT is too heavily changed to line up. Check that you gave the right pair.",
                        left.confidence, right.confidence, threshold);
            return msg.text();
        }
        bounded_text one(channel_buffer_size);
        describe_channel(one, "", diagnosis[0], sample_rate, threshold, max_lag, left.confidence);
        if (same_findings(diagnosis[0], diagnosis[1])) {
            msg.appendf("both channels: %s", one.text().c_str());
            return msg.text();
        }
    }
    bool first = true;
    for (std::uint64_t ch = 0; ch < 2; ++ch) {
        if (result.channel[ch].channel_ok) continue;
        if (!first) msg.append(" ");
        first = false;
        describe_channel(msg, channel_label(ch), diagnosis[ch], sample_rate, threshold, max_lag,
                         result.channel[ch].confidence);
        if (result.channel[1 - ch].state == align_state::silent_zero)
            msg.appendf(" The %s channel is silent in the reference or the DUT, so it offered no offset to go by.",
                        channel_name(1 - ch));
    }
    return msg.text();
}

}  // namespace veltrane
