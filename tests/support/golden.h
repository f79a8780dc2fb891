#pragma once
// Whole pages and documents compared against files kept under tests/data/golden/.
//
// A golden that differs or is missing fails the test. After an intended change of output,
// re-bless every golden the run touches with
//     VELTRANE_BLESS_GOLDEN=1 ctest ...   (or the test binary itself)
// and review the diff of tests/data/golden/ before committing it.
#include <string>
#include <string_view>

namespace veltrane::test {

// Compares `actual` with tests/data/golden/<name>; with VELTRANE_BLESS_GOLDEN=1 writes it
// there instead. Reports a failure (with the first differing line) through GoogleTest.
void expect_golden(const std::string& name, std::string_view actual);

// Replaces the generation time of a page footer ("report generated YYYY-MM-DD HH:MM:SS UTC",
// or "plot generated ...")
// with a fixed text, so a page written by the binary can be compared with its golden.
std::string mask_timestamp(std::string page);

}  // namespace veltrane::test
