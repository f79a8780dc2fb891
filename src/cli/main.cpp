#include <iostream>

#include "cli/commands.h"

int main(int argc, char** argv) {
    int status = veltrane::run_main(argc, argv, std::cout, std::cerr);
    std::cout.flush();
    return status;
}
