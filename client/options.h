// The command line of zotq, and the password that is never on it.
#pragma once

#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "client/agent_client.h"
#include "client/range.h"

namespace zot::client {

struct Options {
    Target target;
    std::string passwordFile;
    std::string stateFile;  // empty: the usual place
    std::optional<Range> warning;
    std::optional<Range> critical;
    bool unescape = false;
    bool json = false;
    bool plugin = false;
    bool showPassword = false;
    bool help = false;
    bool version = false;
    std::vector<std::string> words;  // the command and its parameters
};

// Reads the options up to the first word that is none, so that a parameter may begin with "-".
// Takes the arguments behind the program's name. Returns 1, or 0 with the error text, also for
// options that do not go together.
int ParseOptions(std::span<const char* const> arguments, Options& options, std::string& error);

// One line for each option, for the help text.
std::string OptionsHelp();

// The password: the first line of the password file when one was named, without its line end,
// otherwise `environmentValue` (may be null). Returns 1, or 0 with the error text when there is
// none, since an agent has no empty password.
int ReadPassword(const Options& options, const char* environmentValue, std::string& password,
                 std::string& error);

}  // namespace zot::client
