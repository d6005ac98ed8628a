#include "client/options.h"

#include <CLI/CLI.hpp>
#include <algorithm>

#include "base/numbers.h"
#include "client/text.h"

namespace zot::client {
namespace {

constexpr int32_t kMaxPort = 65535;
constexpr int32_t kMaxSeconds = 86400;
constexpr int32_t kMaxMinutes = 525600;
constexpr int32_t kMaxCount = 100000;

constexpr OptionWords kRows[] = {
    {"-H,--hostname", "HOST", Scope::kAll,
     "name or IPv4 address of the agent's host (127.0.0.1), or several: web[1-10],db1,@group"},
    {"-p,--port", "PORT", Scope::kAll, "TCP port of the agent (1055)"},
    {"-t,--timeout", "SECONDS", Scope::kAll,
     "time limit for each request, for each step of an upgrade; 1 to 86400 (10)"},
    {"-P", "FILE", Scope::kAll,
     "take the password from the first line of FILE; in a folder, of the file named like the host"},
    {"-o,--output", "FORMAT", Scope::kAll, "print a table, json, ndjson, csv or raw lines"},
    {"--fields", "NAME,...", Scope::kAll, "print these fields only"},
    {"--hosts", "FILE", Scope::kAll,
     "ask the hosts of a list or a folder of password files; all: those of /etc/zot/hosts; -: of "
     "standard input"},
    {"-x,--exclude", "HOST", Scope::kAll, "leave these hosts out"},
    {"--pick", "N", Scope::kAll, "ask only N of the hosts, chosen at random"},
    {"--at-once", "N", Scope::kAll, "ask at most N hosts at once (256)"},
    {"--fold", "", Scope::kAll, "print equal answers once, with all hosts that gave them"},
    {"--diff", "", Scope::kAll, "print only the fields that differ between hosts"},
    {"--failed", "FILE", Scope::kAll, "write the hosts that failed to FILE, for --hosts"},
    {"-u", "", Scope::kAll, "print line breaks inside values as such, not as %0D and %0A"},
    {"--json", "", Scope::kAll, "print the reply as one JSON object with code and values"},
    {"--show-password", "", Scope::kAll, "settings: show the password too"},
    {"--plugin", "", Scope::kAll, "be a monitoring plugin"},
    {"-w,--warning", "RANGE", Scope::kPlugin, "plugin: warn outside RANGE"},
    {"-c,--critical", "RANGE", Scope::kPlugin, "plugin: critical outside RANGE"},
    {"--state", "FILE", Scope::kAll, "log: keep the position in FILE"},
    {"--hold", "MINUTES", Scope::kPlugin,
     "plugin: keep the log check critical this long after a line was found"},
    {"--unreachable", "STATE", Scope::kPlugin,
     "plugin: the status when no reply comes: ok, warning, critical or unknown (unknown)"},
    {"--dry-run", "", Scope::kSet, "show what would change, and change nothing"},
    {"--force", "", Scope::kSet, "do it even if it would lock you out"},
    {"--canary", "HOST", Scope::kUpgrade, "upgrade these hosts first, as a batch of their own"},
    {"--batch", "N,...", Scope::kUpgrade,
     "sizes of the batches, hosts or per cent of all; the last one repeats (1,5,20%)"},
    {"--max-failures", "N", Scope::kUpgrade, "stop when this many hosts have failed (1)"},
    {"--pause", "SECONDS", Scope::kUpgrade, "wait this long between batches (0)"},
    {"--list", "FILE", Scope::kUpgrade,
     "record in FILE who has what (upgrade-DIGEST.txt); hosts recorded as upgraded with the same "
     "file are skipped"},
    {"--check", "", Scope::kUpgrade,
     "ask every host before and after, and upgrade none that is unfit"},
    {"--dry-run", "", Scope::kUpgrade, "show the plan and upgrade nothing"},
    {"--force", "", Scope::kUpgrade, "send even a file that does not look right for that system"},
    {"-h,--help", "", Scope::kAll, "print this help and exit"},
    {"-V,--version", "", Scope::kAll, "print the version and exit"},
};

std::string_view LastFlag(const OptionWords& row) {
    return row.flags.substr(row.flags.rfind(',') + 1);
}

std::string_view FirstFlag(const OptionWords& row) {
    return row.flags.substr(0, row.flags.find(','));
}

bool ParseNumber(std::string_view text, int32_t min, int32_t max, int32_t& value) {
    return ParseInt(text, value) && value >= min && value <= max;
}

template <typename T>
bool SetNumber(std::string_view text, int32_t min, int32_t max, T& target) {
    int32_t value = 0;
    if (!ParseNumber(text, min, max, value)) return false;
    target = static_cast<T>(value);
    return true;
}

bool SetText(std::string_view text, std::string& target) {
    target = text;
    return !text.empty();
}

template <size_t n>
int WordAt(std::string_view text, const std::string_view (&words)[n]) {
    auto found = std::find(std::begin(words), std::end(words), text);
    return found == std::end(words) ? -1 : static_cast<int>(found - std::begin(words));
}

bool SetOutput(std::string_view text, Output& output) {
    constexpr std::string_view kFormats[] = {"", "table", "json", "ndjson", "csv", "raw"};
    int format = WordAt(text, kFormats);
    output = static_cast<Output>(std::max(format, 0));
    return format > 0;
}

bool SetStatus(std::string_view text, std::optional<int>& status) {
    constexpr std::string_view kStates[] = {"ok", "warning", "critical", "unknown"};
    int state = WordAt(text, kStates);
    if (state >= 0) status = state;
    return state >= 0;
}

bool SetFields(std::string_view text, std::vector<std::string>& fields) {
    fields.clear();
    while (!text.empty()) {
        size_t end = std::min(text.find(','), text.size());
        if (end > 0) fields.emplace_back(text.substr(0, end));
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    return !fields.empty();
}

bool SetRange(std::string_view text, std::optional<Range>& range) {
    range = Range::Parse(text);
    return range.has_value();
}

// Stores the value of the option with this (last) name; false when it is wrong.
bool Apply(std::string_view name, const std::string& value, Options& options) {
    if (name == "--hostname") {
        options.hostGiven = true;
        return SetText(value, options.target.host);
    }
    if (name == "--port") {
        options.portGiven = true;
        return SetNumber(value, 1, kMaxPort, options.target.port);
    }
    if (name == "--timeout") {
        int32_t seconds = 0;
        bool good = ParseNumber(value, 1, kMaxSeconds, seconds);
        if (good) options.target.timeout = std::chrono::seconds(seconds);
        options.timeoutGiven = true;
        return good;
    }
    if (name == "-P") return SetText(value, options.passwordFile);
    if (name == "--output") return SetOutput(value, options.output);
    if (name == "--fields") return SetFields(value, options.fields);
    if (name == "--hosts") return SetText(value, options.hosts);
    if (name == "--exclude") return SetText(value, options.exclude);
    if (name == "--pick") return SetNumber(value, 1, kMaxCount, options.pick);
    if (name == "--at-once") return SetNumber(value, 1, kMaxCount, options.atOnce);
    if (name == "--failed") return SetText(value, options.failedFile);
    if (name == "--warning") return SetRange(value, options.warning);
    if (name == "--critical") return SetRange(value, options.critical);
    if (name == "--state") return SetText(value, options.stateFile);
    if (name == "--hold") return SetNumber(value, 1, kMaxMinutes, options.holdMinutes);
    if (name == "--unreachable") return SetStatus(value, options.unreachable);
    if (name == "--canary") return SetText(value, options.canary);
    if (name == "--batch") return SetText(value, options.batches);
    if (name == "--max-failures") return SetNumber(value, 1, kMaxCount, options.maxFailures);
    if (name == "--pause") return SetNumber(value, 0, kMaxSeconds, options.pauseSeconds);
    if (name == "--list") return SetText(value, options.rolloutList);
    return false;
}

bool& Flag(std::string_view name, Options& options) {
    struct Row {
        std::string_view name;
        bool Options::*flag;
    };
    constexpr Row kFlags[] = {
        {"-u", &Options::unescape},       {"--json", &Options::json},
        {"--fold", &Options::fold},       {"--diff", &Options::diff},
        {"--plugin", &Options::plugin},   {"--show-password", &Options::showPassword},
        {"--dry-run", &Options::dryRun},  {"--force", &Options::force},
        {"--check", &Options::check},     {"--help", &Options::help},
        {"--version", &Options::version},
    };
    auto row = std::find_if(std::begin(kFlags), std::end(kFlags),
                            [name](const Row& other) { return other.name == name; });
    return options.*row->flag;
}

void AddOption(CLI::App& app, const OptionWords& row, Options& options) {
    std::string_view name = LastFlag(row);
    std::string flags(row.flags);
    if (row.argument.empty()) {
        bool& flag = Flag(name, options);
        app.add_flag_callback(flags, [&flag] { flag = true; });
        return;
    }
    std::string shown(FirstFlag(row));
    app.add_option_function<std::string>(flags,
                                         [name, shown, &options](const std::string& value) {
                                             if (Apply(name, value, options)) return;
                                             throw CLI::ValidationError(
                                                 "wrong value of option " + shown + ": " + value,
                                                 CLI::ExitCodes::ValidationError);
                                         })
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeLast);
}

void AddOptions(CLI::App& app, Scope scope, Options& options) {
    app.set_help_flag();
    for (const OptionWords& row : kRows) {
        bool always = row.scope == Scope::kAll || row.scope == Scope::kPlugin;
        if (always || row.scope == scope) AddOption(app, row, options);
    }
}

// Leaves in `words` what is not an option. CLI11 takes its arguments in reverse.
bool Parse(CLI::App& app, std::vector<std::string> arguments, std::vector<std::string>& words,
           std::string& error) {
    std::reverse(arguments.begin(), arguments.end());
    try {
        app.parse(arguments);
    } catch (const CLI::ArgumentMismatch& fault) {
        // "--port: 1 required TEXT missing"
        std::string_view text = fault.what();
        error = "option " + std::string(text.substr(0, text.find(':'))) + " needs a value";
        return false;
    } catch (const CLI::ParseError& fault) {
        error = fault.what();
        return false;
    }
    words = app.remaining();
    if (words.empty()) return true;
    if (words[0] == "--") {
        words.erase(words.begin());
    } else if (words[0].size() > 1 && words[0][0] == '-') {
        error = "unknown option " + words[0];
        return false;
    }
    return true;
}

bool GoTogether(const Options& options, std::string& error) {
    bool pluginOnly = options.warning || options.critical || options.holdMinutes > 0 ||
                      options.unreachable.has_value();
    bool forPeople = options.output != Output::kDefault || !options.fields.empty() ||
                     options.fold || options.diff || !options.failedFile.empty();
    bool fleet = !options.hosts.empty() || !options.exclude.empty() || options.pick > 0;
    bool isLog = !options.words.empty() && options.words[0] == "log";
    if (!options.stateFile.empty() && !isLog) {
        error = "--state goes with the log check only";
    } else if (pluginOnly && !options.plugin) {
        error = "-w, -c, --hold and --unreachable go with --plugin only";
    } else if (options.plugin && (options.json || forPeople || fleet)) {
        error =
            "--plugin prints its one line and asks one host: --json, -o, --fields, --fold, "
            "--diff, --failed, --hosts, -x and --pick do not go with it";
    } else if (options.plugin && (options.unescape || options.showPassword)) {
        error = "-u and --show-password do not go with --plugin";
    } else if ((options.fold || options.diff) &&
               (options.output == Output::kCsv || options.output == Output::kRaw)) {
        error = "--fold and --diff print a table, json or ndjson";
    } else if (options.json && (forPeople || fleet)) {
        error = "--json is the form of one reply; for anything else there is -o json";
    }
    return error.empty();
}

}  // namespace

constexpr std::span<const OptionWords> kOptionWords(kRows);

bool ParseOptions(std::span<const char* const> arguments, Options& options, std::string& error) {
    CLI::App app;
    AddOptions(app, Scope::kAll, options);
    app.prefix_command();
    return Parse(app, {arguments.begin(), arguments.end()}, options.words, error) &&
           GoTogether(options, error);
}

bool ParseSubcommand(Scope scope, bool wordsOnly, Options& options, std::string& error) {
    CLI::App app;
    AddOptions(app, scope, options);
    std::vector<std::string> words;
    if (wordsOnly) {
        app.prefix_command();
    } else {
        app.add_option("words", words);
    }
    std::vector<std::string> left;
    if (!Parse(app, {options.words.begin() + 1, options.words.end()}, left, error)) return false;
    options.words.resize(1);
    options.words.insert(options.words.end(), words.begin(), words.end());
    options.words.insert(options.words.end(), left.begin(), left.end());
    return GoTogether(options, error);
}

std::string OptionsHelp(Scope scope) {
    std::vector<std::pair<std::string, std::string_view>> rows;
    for (const OptionWords& row : kRows) {
        bool general = scope == Scope::kAll && row.scope == Scope::kPlugin;
        if (row.scope != scope && !general) continue;
        std::string left(row.flags);
        if (size_t comma = left.find(','); comma != std::string::npos) left.insert(comma + 1, " ");
        if (!row.argument.empty()) left.append(" ").append(row.argument);
        rows.emplace_back(left, row.help);
    }
    return HelpTable(rows);
}

}  // namespace zot::client
