#include "client/options.h"

#include <cerrno>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <initializer_list>
#include <iomanip>
#include <memory>
#include <sstream>
#include <string_view>

#include "base/numbers.h"
#include "base/owners.h"
#include "base/platform.h"
#include "protocol/request_text.h"

namespace zot::client {
namespace {

constexpr int32_t kMaxPort = 65535;
constexpr int32_t kMaxSeconds = 86400;

// Returns false when the value is wrong.
using ApplyOption = bool (*)(std::string_view value, Options& options);

struct OptionRow {
    std::string_view name;
    std::string_view otherName;  // that plugins have for it, or none
    std::string_view argument;   // empty for a flag
    std::string_view help;
    ApplyOption apply;
};

bool ParseNumber(std::string_view text, int32_t max, int32_t& value) {
    return ParseInt(text, value) && value >= 1 && value <= max;
}

bool SetHost(std::string_view value, Options& options) {
    options.target.host = value;
    return !value.empty();
}

bool SetPort(std::string_view value, Options& options) {
    int32_t port = 0;
    if (!ParseNumber(value, kMaxPort, port)) return false;
    options.target.port = static_cast<uint16_t>(port);
    return true;
}

bool SetTimeout(std::string_view value, Options& options) {
    int32_t seconds = 0;
    if (!ParseNumber(value, kMaxSeconds, seconds)) return false;
    options.target.timeout = std::chrono::seconds(seconds);
    return true;
}

bool SetPasswordFile(std::string_view value, Options& options) {
    options.passwordFile = value;
    return !value.empty();
}

bool SetStateFile(std::string_view value, Options& options) {
    options.stateFile = value;
    return !value.empty();
}

template <std::optional<Range> Options::*range>
bool SetRange(std::string_view value, Options& options) {
    options.*range = Range::Parse(value);
    return (options.*range).has_value();
}

template <bool Options::*flag>
bool SetFlag(std::string_view, Options& options) {
    return options.*flag = true;
}

constexpr OptionRow kOptions[] = {
    {"-H", "--hostname", "HOST", "name or IPv4 address of the agent's host (127.0.0.1)", SetHost},
    {"-p", "--port", "PORT", "TCP port of the agent (1055)", SetPort},
    {"-t", "--timeout", "SECONDS",
     "time limit for the whole exchange, for each step of an upgrade; 1 to 86400 (10)", SetTimeout},
    {"-P", "", "FILE", "take the password from the first line of FILE", SetPasswordFile},
    {"-u", "", "", "print line breaks inside values as such, not as %0D and %0A",
     SetFlag<&Options::unescape>},
    {"--json", "", "", "print the reply as one JSON object", SetFlag<&Options::json>},
    {"--show-password", "", "", "settings: show the password too", SetFlag<&Options::showPassword>},
    {"--plugin", "", "", "be a monitoring plugin", SetFlag<&Options::plugin>},
    {"-w", "--warning", "RANGE", "plugin: warn outside of RANGE", SetRange<&Options::warning>},
    {"-c", "--critical", "RANGE", "plugin: critical outside of RANGE",
     SetRange<&Options::critical>},
    {"--state", "", "FILE", "plugin: where the log check keeps its position", SetStateFile},
    {"-h", "--help", "", "print this help and exit", SetFlag<&Options::help>},
    {"-V", "--version", "", "print the version and exit", SetFlag<&Options::version>},
};

// Whether the argument is the option, with the value attached to it: "-p1055", "--state=FILE".
bool IsOption(std::string_view argument, std::string_view name, bool takesValue,
              std::optional<std::string_view>& attached) {
    attached.reset();
    if (name.empty() || !argument.starts_with(name)) return false;
    std::string_view rest = argument.substr(name.size());
    if (rest.empty()) return true;
    bool isLong = name.starts_with("--");
    if (!takesValue || (isLong && rest[0] != '=')) return false;
    attached = isLong ? rest.substr(1) : rest;
    return true;
}

const OptionRow* FindOption(std::string_view argument, std::optional<std::string_view>& attached) {
    for (const OptionRow& row : kOptions) {
        for (std::string_view name : {row.name, row.otherName}) {
            if (IsOption(argument, name, !row.argument.empty(), attached)) return &row;
        }
    }
    return nullptr;
}

bool GoTogether(const Options& options, std::string& error) {
    bool pluginOnly = options.warning || options.critical || !options.stateFile.empty();
    if (pluginOnly && !options.plugin) {
        error = "-w, -c and --state go with --plugin only";
    } else if (options.plugin && options.json) {
        error = "--json does not go with --plugin";
    } else if (options.plugin && (options.unescape || options.showPassword)) {
        error = "-u and --show-password do not go with --plugin";
    }
    return error.empty();
}

struct FreeMemory {
    void operator()(char* memory) const noexcept { free(memory); }
};

// Reads the first line without its line end; empty when the file is. Returns 0, or the error
// number.
int ReadFirstLine(const char* path, std::string& line) {
    line.clear();
    UniqueFile file(fopen(path, "re"));
    if (!file) return errno;
    char* buffer = nullptr;
    size_t capacity = 0;
    ssize_t length = getline(&buffer, &capacity, file.get());
    int error = length < 0 && ferror(file.get()) ? errno : 0;
    std::unique_ptr<char, FreeMemory> owner(buffer);
    if (length < 0) return error;
    line.assign(buffer, static_cast<size_t>(length));
    if (line.ends_with('\n')) line.pop_back();
    if (line.ends_with('\r')) line.pop_back();
    return 0;
}

}  // namespace

int ParseOptions(std::span<const char* const> arguments, Options& options, std::string& error) {
    size_t next = 0;
    while (next < arguments.size()) {
        std::string_view argument = arguments[next];
        if (argument.size() < 2 || argument[0] != '-') break;
        ++next;
        if (argument == "--") break;
        std::optional<std::string_view> value;
        const OptionRow* row = FindOption(argument, value);
        if (!row) {
            error = "unknown option " + std::string(argument);
            return 0;
        }
        if (!row->argument.empty() && !value) {
            if (next == arguments.size()) {
                error = "option " + std::string(row->name) + " needs a value";
                return 0;
            }
            value = arguments[next++];
        }
        std::string_view given = value.value_or("");
        if (!row->apply(given, options)) {
            error = "wrong value of option " + std::string(row->name) + ": " + std::string(given);
            return 0;
        }
    }
    options.words.assign(arguments.begin() + static_cast<ptrdiff_t>(next), arguments.end());
    return GoTogether(options, error) ? 1 : 0;
}

std::string OptionsHelp() {
    std::ostringstream help;
    for (const OptionRow& row : kOptions) {
        std::string left(row.name);
        if (!row.otherName.empty()) left.append(", ").append(row.otherName);
        if (!row.argument.empty()) left.append(" ").append(row.argument);
        help << "  " << std::left << std::setw(24) << left << ' ' << row.help << '\n';
    }
    return help.str();
}

int ReadPassword(const Options& options, const char* environmentValue, std::string& password,
                 std::string& error) {
    if (options.passwordFile.empty()) {
        password = environmentValue ? environmentValue : "";
        if (!password.empty()) return 1;
        error = "no password: name a file with -P or set ZOT_PASSWORD";
        return 0;
    }
    if (int failure = ReadFirstLine(options.passwordFile.c_str(), password)) {
        char reason[256];
        SystemErrorText(failure, reason, sizeof(reason));
        error = "cannot read password file " + options.passwordFile + ": " + reason;
        return 0;
    }
    if (!password.empty()) return 1;
    error = "password file " + options.passwordFile + " has no password on its first line";
    return 0;
}

}  // namespace zot::client
