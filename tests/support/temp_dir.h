#pragma once
// A fresh directory under the system temporary directory, removed with everything in it
// when the object goes away.
#include <filesystem>
#include <string>

namespace veltrane::test {

class temp_dir {
public:
    temp_dir();
    ~temp_dir();
    temp_dir(const temp_dir&) = delete;
    temp_dir& operator=(const temp_dir&) = delete;

    const std::string& path() const { return path_; }
    // `name` joined to the directory with "/".
    std::string file(const std::string& name) const { return path_ + "/" + name; }

private:
    std::string path_;
};

}  // namespace veltrane::test
