#pragma once
#include <iosfwd>
#include <string_view>

namespace veltrane {

inline constexpr std::string_view program_version = "0.7.1-beta";

// The usage text, printed byte for byte (it holds a literal '%': never use it as a format).
extern const std::string_view usage_text;

// Writes the usage text to `err`; called after every command-line error.
void print_usage(std::ostream& err);

}  // namespace veltrane
