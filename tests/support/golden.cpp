#include "support/golden.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <sstream>

namespace veltrane::test {
namespace {

std::string golden_path(const std::string& name) { return std::string(VELTRANE_TEST_DATA_DIR) + "/golden/" + name; }

bool blessing() {
    const char* v = std::getenv("VELTRANE_BLESS_GOLDEN");
    return v && std::string_view(v) == "1";
}

// Line number (1-based) and text of the first line where the two texts part.
std::string first_difference(std::string_view expected, std::string_view actual) {
    std::size_t line = 1, start = 0;
    for (std::size_t i = 0; i < expected.size() && i < actual.size(); ++i) {
        if (expected[i] != actual[i]) break;
        if (expected[i] == '\n') {
            ++line;
            start = i + 1;
        }
    }
    auto line_at = [&](std::string_view s) {
        if (start >= s.size()) return std::string("<end of text>");
        return std::string(s.substr(start, s.find('\n', start) - start));
    };
    return "line " + std::to_string(line) + "\n  golden: " + line_at(expected) + "\n  actual: " + line_at(actual);
}

}  // namespace

void expect_golden(const std::string& name, std::string_view actual) {
    const std::string path = golden_path(name);
    if (blessing()) {
        std::ofstream out(path, std::ios::binary | std::ios::trunc);
        out << actual;
        ASSERT_TRUE(out.good()) << "could not bless " << path;
        return;
    }
    std::ifstream in(path, std::ios::binary);
    ASSERT_TRUE(in.good()) << "missing golden " << path << " (create it with VELTRANE_BLESS_GOLDEN=1)";
    std::ostringstream ss;
    ss << in.rdbuf();
    const std::string expected = ss.str();
    if (expected != actual)
        ADD_FAILURE() << "output differs from golden " << name << " at " << first_difference(expected, actual)
                      << "\n(re-bless with VELTRANE_BLESS_GOLDEN=1 if the change is intended)";
}

std::string mask_timestamp(std::string page) {
    constexpr std::size_t stamp_length = 23;  // "YYYY-MM-DD HH:MM:SS UTC"
    for (std::string_view marker : {"<span>report generated ", "<span>plot generated "})
        for (std::size_t at = page.find(marker); at != std::string::npos; at = page.find(marker, at + 1))
            page.replace(at + marker.size(), stamp_length, "<generation time>");
    return page;
}

}  // namespace veltrane::test
