#include "support/temp_dir.h"

#include <cstdlib>
#include <stdexcept>
#include <vector>

namespace veltrane::test {

temp_dir::temp_dir() {
    std::string pattern = (std::filesystem::temp_directory_path() / "veltrane-test-XXXXXX").string();
    std::vector<char> buf(pattern.begin(), pattern.end());
    buf.push_back('\0');
    if (!mkdtemp(buf.data())) throw std::runtime_error("mkdtemp failed");
    path_ = buf.data();
}

temp_dir::~temp_dir() {
    std::error_code ec;
    std::filesystem::remove_all(path_, ec);
}

}  // namespace veltrane::test
