#pragma once
// The Impulse Template card: per channel the failure count and, when there is one, the
// worst sample with its excess over the envelope.
#include "report/report_inputs.h"
#include "report/text_buf.h"

namespace veltrane {

bool append_impulse_card(text_buf& buf, const report_inputs& in);

}  // namespace veltrane
