#pragma once
// Page styles and scripts, kept as plain files in src/report/resources and compiled in
// byte for byte, so the report and plot pages stay self-contained.
#include <string_view>

namespace veltrane {

// The bytes of the resource file `name` (for example "report.css"), or an empty view
// when no such resource was compiled in.
std::string_view report_resource(std::string_view name);

}  // namespace veltrane
