// zotq: asks an agent from the command line.
#include <cstdlib>
#include <iostream>
#include <span>

#include "client/program.h"

int main(int argc, char** argv) {
    std::ios::sync_with_stdio(false);
    std::span<const char* const> arguments(argv, static_cast<size_t>(argc));
    return zot::client::RunProgram(arguments.subspan(argc > 0 ? 1 : 0), getenv("ZOT_PASSWORD"),
                                   {std::cin, std::cout, std::cerr});
}
