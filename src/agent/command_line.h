// The command line: zot [-d|-i] [-v|-vd] [-p <port>] <cfg_file>
#pragma once

#include "config/settings.h"

namespace zot {

// Fills interactive, verbose, debug, port and configPath. On any error prints the reason and the
// usage and ends the process with exit code 1.
void ParseCommandLine(int argc, char** argv, AgentSettings& settings);

}  // namespace zot
