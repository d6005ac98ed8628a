#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "base/numbers.h"
#include "client/agent_client.h"
#include "client/check.h"
#include "client/hash_digest.h"
#include "client/plugin.h"
#include "client/probe.h"
#include "client/replies.h"
#include "client/request_packet.h"
#include "client/text.h"
#include "protocol/request_text.h"

// Optional parameters are sent as "0", never as empty lines: where the agent finds an empty line it
// reads the next one that is not.

namespace zot::client {
namespace {

using Params = std::vector<std::string>;

constexpr std::string_view kFailed = "301";

void CheckDisk(const CheckRun& run, CheckResult& result) {
    Answer answer;
    double total = 0, free = 0, available = 0;
    const std::string& path = run.Arguments()[0];
    if (!run.Ask("TEST-UNC", Params{path}, 3, answer, result) ||
        !ReadNumber(answer.lines[0], total, result) || !ReadNumber(answer.lines[1], free, result) ||
        !ReadNumber(answer.lines[2], available, result)) {
        return;
    }
    // As df(1) counts: of what ordinary users can have. The available space can be negative while
    // the reserve is in use.
    double used = total - free;
    double usable = used + available;
    result.value = usable > 0 ? used * 100 / usable : 0;
    result.label = "used";
    result.unit = "%";
    result.limits = ";0;100";
    result.otherData =
        Concat({"available=", FormatDecimal(available), "B;;;0;", FormatDecimal(total)});
    result.text = Concat({path, " is ", FormatDecimal(*result.value), "% full, ",
                          FormatBytes(available), " of ", FormatBytes(total), " available"});
}

void CheckSize(const CheckRun& run, CheckResult& result) {
    const std::string& folder = run.Arguments()[0];
    SizeProbe probe(folder);
    if (!run.Follow(probe, result)) {
        if (probe.answer.code == kFailed) result.status = kCritical;
        return;
    }
    result.label = "size";
    result.unit = "B";
    result.limits = ";0";
    result.text = Concat({folder, " holds ", FormatBytes(*result.value)});
}

void CheckFiles(const CheckRun& run, CheckResult& result) {
    Answer answer;
    const std::string& folder = run.Arguments()[0];
    const std::string& mask = run.Arguments()[1];
    Params params = {folder, mask, "0", "0", "0", "0", "0", "0", "0", "0", "1"};
    if (!run.AskForValue("TEST-CountFiles", params, 0, answer, result)) return;
    result.label = "files";
    result.limits = ";0";
    result.text = Concat({Count(*result.value, "file ", "files "), mask, " in ", folder});
}

void CheckAge(const CheckRun& run, CheckResult& result) {
    constexpr size_t kPathLine = 3;
    constexpr size_t kAgeLine = 5;
    Answer answer;
    Params params = {run.Arguments()[0], "0", "0", "0", "0", "0", "1"};
    if (!run.AskForValue("TEST-FileExists", params, kAgeLine, answer, result)) {
        if (answer.code == kFailed) result.status = kCritical;
        return;
    }
    result.label = "age";
    result.unit = "s";  // there is no unit for minutes
    result.factor = 60;
    result.text = Concat(
        {answer.lines[kPathLine], " is ", Count(*result.value, "minute", "minutes"), " old"});
}

void CheckHash(const CheckRun& run, CheckResult& result) {
    const std::string& file = run.Arguments()[0];
    const std::string& expected = run.Arguments()[1];
    std::string algorithm = HashAlgorithm(expected);
    if (algorithm.empty()) {
        return result.Fail(kUnknown,
                           "neither a CRC-32 in decimal nor a digest of 32 (MD5), 64 "
                           "(SHA-256) or 128 (SHA-512) digits: " +
                               expected);
    }
    Answer answer;
    if (!run.Ask("TEST-FileHash", Params{file, algorithm, "0"}, 1, answer, result)) {
        bool missing = answer.code == kFailed && !answer.lines.empty() &&
                       answer.lines[0] == "File doesn`t exist";
        if (missing) result.status = kCritical;
        return;
    }
    if (answer.lines[0] == NormalDigest(expected)) {
        result.status = kOk;
        result.text = Concat({file, " is unchanged"});
    } else {
        result.Fail(kCritical, Concat({file, " has changed: ", answer.lines[0]}));
    }
}

void CheckProcess(const CheckRun& run, CheckResult& result) {
    const std::string& name = run.Arguments()[0];
    ProcessProbe probe(name, run.OwnCommandLine());
    if (!run.Follow(probe, result)) return;
    result.label = "processes";
    result.limits = ";0";
    result.text = Concat({Count(*result.value, "process ", "processes "), name});
}

void CheckAgent(const CheckRun& run, CheckResult& result) {
    Answer answer;
    std::vector<Record> records;
    std::string error;
    if (!run.Ask("GetInfo", Params{}, 1, answer, result)) return;
    if (!ReadReply("GetInfo", {}, answer, records, error)) return result.Fail(kUnknown, error);
    const Record& info = records[0];
    auto count = [&info](std::string_view name) {
        return FormatDecimal(Number(info, name).value_or(0));
    };
    result.value = run.Seconds() * 1000;
    result.label = "time";
    result.unit = "ms";
    result.limits = ";0";
    result.otherData = Concat({"connections=", count("opened_connections"),
                               "c active=", count("active_connections"),
                               " refused=", count("failed_connections"), "c"});
    result.text = Concat({"zot ", Text(info, "agent_version"), " on ", Text(info, "system"),
                          " answers in ", FormatDecimal(*result.value, 0), " ms, ",
                          count("opened_connections"), " connections since its start"});
}

void CheckCpu(const CheckRun& run, CheckResult& result) {
    Answer answer;
    if (!run.AskForValue("TEST-CPU", Params{}, 0, answer, result)) return;
    result.label = "cpu";
    result.unit = "%";
    result.limits = ";0;100";
    result.text = Concat({"CPU usage is ", FormatDecimal(*result.value), "%"});
}

void CheckTcp(const CheckRun& run, CheckResult& result) {
    constexpr int kReplyMs = 500;  // kept of the time limit for the reply
    Answer answer;
    std::string service = Concat({run.Arguments()[0], " port ", run.Arguments()[1]});
    int limit = std::max(1, run.TimeLimit().Remaining() - kReplyMs);
    // The data, unlike other parameters, may be an empty line.
    Params params = {run.Arguments()[0], run.Arguments()[1], std::to_string(limit), "", "0"};
    if (!run.AskForValue("TEST-TCP", params, 0, answer, result)) {
        if (answer.code == kFailed) {
            result.status = kCritical;
            result.text = Concat({service, ": ", ComplaintReason("TEST-TCP", answer)});
        }
        return;
    }
    result.label = "time";
    result.unit = "ms";
    result.limits = ";0";
    result.text = Concat({service, " answers in ", FormatDecimal(*result.value), " ms"});
}

constexpr size_t kAnyNumber = 1000;

constexpr Check kTable[] = {
    {"disk", "PATH", 1, 1, true, "", CheckDisk, "use of the file system of PATH, in per cent"},
    {"agent", "", 0, 0, true, "", CheckAgent,
     "milliseconds until the agent answers, with its version and connections"},
    {"size", "FOLDER", 1, 1, true, "", CheckSize, "size of the files below FOLDER, in bytes"},
    {"files", "FOLDER MASK", 2, 2, true, "", CheckFiles, "number of files in FOLDER"},
    {"age", "FILE", 1, 1, true, "", CheckAge, "age of FILE in minutes; missing is critical"},
    {"hash", "FILE EXPECTED", 2, 2, false, "", CheckHash,
     "critical if the checksum of FILE is another (no ranges)"},
    {"process", "NAME", 1, 1, true, "1:", CheckProcess,
     "number of processes with NAME in their command line, or of the program =NAME; without "
     "ranges, "
     "none is critical"},
    {"cpu", "", 0, 0, true, "", CheckCpu, "CPU usage in per cent"},
    {"log", "FILE PATTERN", 2, 2, true, "0", CheckLog,
     "number of new lines with PATTERN; without ranges, one is critical"},
    {"tcp", "HOST PORT", 2, 2, true, "", CheckTcp,
     "milliseconds that the agent takes to connect; failing is critical"},
    {"script", "FILE [ARGUMENT ...]", 1, kAnyNumber, true, "", CheckScript,
     "run the local script FILE there: the first number of its result line"},
};

}  // namespace

constexpr std::span<const Check> kChecks(kTable);

}  // namespace zot::client
