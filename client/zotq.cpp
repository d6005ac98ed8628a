// zotq: asks an agent from the command line.
#include <unistd.h>

#include <cstdlib>
#include <iostream>
#include <span>

#include "client/invocation.h"
#include "client/program.h"
#include "client/request_packet.h"

int main(int argc, char** argv) {
    using namespace zot::client;
    std::ios::sync_with_stdio(false);
    std::span<const char* const> arguments(argv, static_cast<size_t>(argc));
    Environment environment = {getenv("ZOT_PASSWORD"), getenv("XDG_STATE_HOME"), getenv("HOME")};
    Console console = {std::cin, std::cout, std::cerr, isatty(STDERR_FILENO) == 1};
    return RunProgram(arguments.subspan(argc > 0 ? 1 : 0), environment, console);
}
