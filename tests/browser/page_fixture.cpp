// Writes the pages the browser test opens: two ERROR pages in the directory given as
// the only argument. The second stands in for "the next report" when checking that a
// theme choice carries over between pages.
#include <cstdio>
#include <string>

#include "report/error_page.h"

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: %s <output-directory>\n", argv[0]);
        return 2;
    }
    const std::string dir = argv[1];
    // The error text carries markup and quotes: it must show as text, never run.
    veltrane::error_page_info first{
        "/captures/reference/sweep_48k.wav", "C:\\captures\\dut\\take3.wav",
        "failed to read --ref '/captures/<script>window.__vtInjected=1</script>.wav' (file not found or not "
        "readable); --dut sample rate 8000 Hz is outside the supported range [22050, 192000] Hz",
        "0.7.1-beta"};
    veltrane::error_page_info second{"ref.wav", "dut.wav", "alignment failed -- no match", "0.7.1-beta"};
    if (!veltrane::write_error_page(dir + "/error.html", first) ||
        !veltrane::write_error_page(dir + "/next.html", second)) {
        std::fprintf(stderr, "could not write the pages to %s\n", dir.c_str());
        return 1;
    }
    return 0;
}
