// What the command line says, and the words that describe it: help text, manual page and
// completions have the same options.
#pragma once

#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "client/range.h"
#include "client/target.h"

namespace zot::client {

enum class Output { kDefault, kTable, kJson, kNdjson, kCsv, kRaw };

struct Options {
    Target target;  // a single host; its time limit and port are those of all
    bool hostGiven = false;
    bool portGiven = false;
    bool timeoutGiven = false;
    std::string passwordFile;
    bool unescape = false;
    bool json = false;
    bool showPassword = false;
    bool help = false;
    bool version = false;

    Output output = Output::kDefault;
    std::vector<std::string> fields;

    std::string hosts;  // the inventory; empty for none
    std::string exclude;
    size_t pick = 0;
    size_t atOnce = 256;
    bool fold = false;
    bool diff = false;
    std::string failedFile;

    bool plugin = false;
    std::optional<Range> warning;
    std::optional<Range> critical;
    std::string stateFile;  // empty: the usual place
    int holdMinutes = 0;
    std::optional<int> unreachable;  // the plugin status for an agent that does not answer

    bool dryRun = false;
    bool force = false;
    bool check = false;
    std::string canary;
    std::string batches;
    size_t maxFailures = 1;
    int pauseSeconds = 0;
    std::string rolloutList;

    std::vector<std::string> words;  // the command and its parameters
};

// Where an option belongs.
enum class Scope { kAll, kPlugin, kSet, kUpgrade };

struct OptionWords {
    std::string_view flags;     // "-H,--hostname"
    std::string_view argument;  // "HOST"; empty for a flag
    Scope scope;
    std::string_view help;  // a sentence without its full stop
};

extern const std::span<const OptionWords> kOptionWords;

// Reads the options up to the first word that is not one, so that a parameter may begin with "-".
// Takes the arguments after the program's name. False with the error text, also for options that
// contradict each other.
bool ParseOptions(std::span<const char* const> arguments, Options& options, std::string& error);

// Continues after the name of a subcommand, where options and words may be mixed up to "--"; with
// `wordsOnly` the first word ends the options again. The words that are left follow the
// subcommand's name.
bool ParseSubcommand(Scope scope, bool wordsOnly, Options& options, std::string& error);

// One line or more for each option of the scope, for the help text.
std::string OptionsHelp(Scope scope);

}  // namespace zot::client
