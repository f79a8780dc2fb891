#pragma once
// Cards of the report that show one check's result, and the pieces they share. Each
// writer appends to the page buffer and returns false on the first failed append.
#include <cstdint>

#include "report/report_inputs.h"
#include "report/text_buf.h"

namespace veltrane {

// Badge of a card head and the opening of its body.
enum class card_badge { pass, fail, reference_only, skipped };
card_badge badge_for(bool passed);
bool append_badge(text_buf& buf, card_badge badge);

// Position of an alignment confidence on the gauge track, in percent (0..100), and the
// band word ("poor", "fair", "good", "excellent").
struct gauge_position {
    double pointer_pct = 0.0;
    const char* word = "poor";
};
gauge_position gauge_position_for(double confidence);

// The gauge with its value, an optional extra line (already formatted HTML, or null)
// and its caption.
bool append_alignment_gauge(text_buf& buf, double confidence, const char* caption, const char* extra_line);

// "frame N (time)" tile with the reference and DUT values and their difference.
bool append_worst_point_tile(text_buf& buf, const char* label, std::uint32_t sample_rate_hz, std::uint64_t frame,
                             double ref_value, double dut_value, bool failing);

bool append_alignment_card(text_buf& buf, const report_inputs& in);
bool append_bit_card(text_buf& buf, const report_inputs& in);  // written when either bit check ran

// The card of a check, or null when it has none (length mismatch is on the alignment card).
// The page shows it when the table of checks says so.
using card_writer = bool (*)(text_buf& buf, const report_inputs& in);
card_writer card_writer_for(check_id id);

}  // namespace veltrane
