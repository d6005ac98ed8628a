#include "client/subcommands.h"

#include <algorithm>

#include "base/ascii.h"
#include "base/edit_distance.h"
#include "client/replies.h"
#include "client/text.h"

namespace zot::client {
namespace {

constexpr size_t kAny = 1000;

constexpr Subcommand kTable[] = {
    {"status", "", 0, 0, Scope::kAll, false, AskStatus,
     "show whether the agent answers, and what it is"},
    {"disk", "[PATH ...]", 0, kAny, Scope::kAll, false, AskDisk,
     "space of the file systems of PATH (/)"},
    {"size", "FOLDER ...", 1, kAny, Scope::kAll, false, AskSize, "size of the files below FOLDER"},
    {"files", "FOLDER [MASK]", 1, 2, Scope::kAll, false, AskFiles,
     "number of files in FOLDER that match MASK (*)"},
    {"age", "FILE ...", 1, kAny, Scope::kAll, false, AskAge, "size and age of FILE"},
    {"hash", "FILE [ALGORITHM]", 1, 2, Scope::kAll, false, AskHash,
     "checksum of FILE: sha256, sha512, md5 or crc32 (sha256)"},
    {"process", "NAME ...", 1, kAny, Scope::kAll, false, AskProcess,
     "number of processes with NAME in their command line, or of the program =NAME"},
    {"cpu", "", 0, 0, Scope::kAll, false, AskCpu, "CPU usage"},
    {"log", "FILE PATTERN", 2, 2, Scope::kAll, false, AskLog,
     "lines of FILE with PATTERN that are new since the last time"},
    {"tcp", "HOST PORT", 2, 2, Scope::kAll, false, AskTcp,
     "time that the agent's host takes to connect to PORT on HOST"},
    {"script", "FILE [ARGUMENT ...]", 1, kAny, Scope::kAll, true, AskScript,
     "run the local script FILE on the agent's host"},
    {"info", "", 0, 0, Scope::kAll, false, AskInfo, "show what the agent is and offers"},
    {"settings", "", 0, 0, Scope::kAll, false, ShowSettings,
     "show the agent's settings, without the password; of many hosts as with --fold"},
    {"set", "NAME=VALUE ...", 1, kAny, Scope::kSet, false, ChangeSettings,
     "change settings; names and values that the agent would not take are refused"},
    {"upgrade", "FILE", 1, 1, Scope::kUpgrade, false, UpgradeAgent,
     "send FILE as the agent's new executable and wait until it answers"},
    {"hosts", "", 0, 0, Scope::kAll, false, ShowHosts,
     "show which hosts the options choose, and ask none"},
};

std::string Lower(std::string_view text) {
    std::string lower;
    for (char c : text) lower += LowerAscii(c);
    return lower;
}

}  // namespace

constexpr std::span<const Subcommand> kSubcommands(kTable);

const Subcommand* FindSubcommand(std::string_view name) {
    auto found = std::find_if(std::begin(kTable), std::end(kTable),
                              [name](const Subcommand& row) { return row.name == name; });
    return found == std::end(kTable) ? nullptr : found;
}

std::string NearestCommand(std::string_view word) {
    std::string wanted = Lower(word), nearest;
    size_t least = wanted.size() / 3 + 1;
    auto consider = [&](std::string_view name) {
        size_t distance = EditDistance(wanted, Lower(name));
        if (distance >= least) return;
        least = distance;
        nearest = name;
    };
    for (const Subcommand& row : kTable) consider(row.name);
    for (std::string_view name : CommandNames()) consider(name);
    return nearest;
}

}  // namespace zot::client
