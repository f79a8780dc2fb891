// Replays fuzz inputs without libFuzzer: every file named on the command line, and every
// regular file inside a directory named there (in name order), goes once through the
// harness's LLVMFuzzerTestOneInput. Built with the ordinary compiler and registered in
// CTest, so each CI run replays the committed corpora under the sanitizers; a harness
// invariant that breaks aborts the program.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

int main(int argc, char** argv) {
    namespace fs = std::filesystem;
    std::vector<fs::path> inputs;
    for (int i = 1; i < argc; ++i) {
        const fs::path arg = argv[i];
        std::error_code ec;
        if (fs::is_directory(arg, ec)) {
            std::vector<fs::path> found;
            for (const fs::directory_entry& e : fs::directory_iterator(arg, ec)) {
                if (e.is_regular_file(ec)) found.push_back(e.path());
            }
            std::sort(found.begin(), found.end());
            inputs.insert(inputs.end(), found.begin(), found.end());
        } else if (fs::is_regular_file(arg, ec)) {
            inputs.push_back(arg);
        } else {
            std::fprintf(stderr, "error: no such input '%s'\n", argv[i]);
            return 1;
        }
    }
    if (inputs.empty()) {
        std::fprintf(stderr, "error: no inputs to replay\n");
        return 1;
    }
    for (const fs::path& p : inputs) {
        std::ifstream in(p, std::ios::binary);
        const std::vector<char> bytes{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
        if (!in.good() && !in.eof()) {
            std::fprintf(stderr, "error: could not read '%s'\n", p.c_str());
            return 1;
        }
        LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
    }
    std::printf("replayed %zu inputs\n", inputs.size());
    return 0;
}
