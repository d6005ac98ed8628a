// The command line of zotq, and the password that is never on it.
#pragma once

#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "client/agent_client.h"

namespace zot::client {

struct Options {
    Target target;
    std::string passwordFile;
    bool unescape = false;
    bool json = false;
    bool showPassword = false;
    bool help = false;
    bool version = false;
    std::vector<std::string> words;  // the command and its parameters
};

// Reads the options up to the first word that is none, so that a parameter may begin with "-".
// Takes the arguments behind the program's name. Returns 1, or 0 with the error text.
int ParseOptions(std::span<const char* const> arguments, Options& options, std::string& error);

// One line for each option, for the help text.
std::string OptionsHelp();

// The password: the first line of the password file when one was named, without its line end,
// otherwise `environmentValue` (may be null). Returns 1, or 0 with the error text when there is
// none, since an agent has no empty password.
int ReadPassword(const Options& options, const char* environmentValue, std::string& password,
                 std::string& error);

}  // namespace zot::client
