// Checking a configuration file before an agent loads it.
//
// A load takes what it understands and passes over the rest, so a misspelt key fails open and a
// value that is no number counts as 0. This tells every such line.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace zot {

struct ConfigMistake {
    size_t line;  // from 1; 0: of the file as a whole
    std::string text;
};

// All mistakes in the file, by line. REQUIRES a process without other threads: TMPDIR is set as a
// load sets it.
std::vector<ConfigMistake> CheckConfig(const char* path);

// Prints them as "PATH:LINE: TEXT". Returns whether there was none.
bool ReportConfigMistakes(const char* path);

}  // namespace zot
