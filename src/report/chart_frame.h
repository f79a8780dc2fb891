#pragma once
// The frame every interactive chart sits in, on the report and on the plot page: the
// scope (a titled box), its head with the zoom hint, the optional reference/DUT trace
// toggle and the zoom reset button, the zoom frame the page script binds to (by its id and
// kind), and after the chart the hidden zoom box, the colour legend and the closings.
#include "report/text_buf.h"

namespace veltrane {

enum class chart_kind { spectral, waveform };
enum class chart_legend { reference_and_dut, signal };

// "<div class=\"<scope_class>\">", the scope head titled `title` (a program text, not
// escaped) with the trace toggle when `trace_toggle`, and the opening of the zoom frame
// `frame_id` of `kind`.
bool append_chart_frame_open(text_buf& buf, const char* scope_class, const char* title, const char* frame_id,
                             chart_kind kind, bool trace_toggle);

// The zoom box, the end of the zoom frame, the legend and the end of the scope.
bool append_chart_frame_close(text_buf& buf, chart_legend legend);

}  // namespace veltrane
