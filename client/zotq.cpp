// zotq: asks agents from the command line.
#include <unistd.h>

#include <cstddef>
#include <cstdlib>
#include <iostream>
#include <span>
#include <string>

#include "client/invocation.h"
#include "client/program.h"

int main(int argc, char** argv) {
    using namespace zot::client;
    std::ios::sync_with_stdio(false);
    std::span<const char* const> arguments(argv, static_cast<size_t>(argc));
    Environment environment = {getenv("ZOT_PASSWORD"), getenv("XDG_STATE_HOME"), getenv("HOME"),
                               getenv("ZOT_HOSTS"), getenv("NO_COLOR")};
    for (const char* argument : arguments) {
        if (!environment.commandLine.empty()) environment.commandLine += ' ';
        environment.commandLine += argument;
    }
    Console console = {std::cin, std::cout, std::cerr, isatty(STDERR_FILENO) == 1,
                       isatty(STDOUT_FILENO) == 1};
    return RunProgram(arguments.subspan(argc > 0 ? 1 : 0), environment, console);
}
