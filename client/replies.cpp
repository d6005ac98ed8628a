#include "client/replies.h"

#include <algorithm>
#include <array>

#include "base/ascii.h"
#include "base/escaping.h"
#include "base/numbers.h"
#include "base/vystring.h"
#include "client/reply_times.h"
#include "client/reply_values.h"
#include "client/settings_reply.h"
#include "client/text.h"

namespace zot::client {
namespace {

constexpr int kLine = 0;    // + n: line n of the reply, from 0
constexpr int kParam = 16;  // + n: parameter n of the request, from 0

struct Column {
    std::string_view name;
    Kind kind;
    int source;
    bool inTable = true;
};

struct ReplyFormat {
    std::string_view command;
    std::array<Column, 9> columns;
};

// Lists, and replies that code below reads, have rows without columns.
constexpr ReplyFormat kFormats[] = {
    {"TEST-UNC",
     {{{"path", Kind::kText, kParam},
       {"size_bytes", Kind::kBytes, kLine},
       {"free_bytes", Kind::kBytes, kLine + 1, false},
       {"available_bytes", Kind::kBytes, kLine + 2},
       {"query_seconds", Kind::kMilliseconds, kLine + 3, false}}}},
    {"TEST-FolderSize", {{{"path", Kind::kText, kParam}, {"size_bytes", Kind::kBytes, kLine}}}},
    {"TEST-CountFiles",
     {{{"folder", Kind::kText, kParam},
       {"mask", Kind::kText, kParam + 1},
       {"count", Kind::kInteger, kLine}}}},
    {"TEST-FileExists",
     {{{"path", Kind::kText, kLine + 3},
       {"size_bytes", Kind::kBytes, kLine},
       {"changed", Kind::kLocalTime, kLine + 1, false},
       {"modified", Kind::kLocalTime, kLine + 2},
       {"age_seconds", Kind::kMinutes, kLine + 5}}}},
    {"TEST-FileCompare",
     {{{"path", Kind::kText, kParam + 1},
       {"mode", Kind::kMode, kParam},
       {"with", Kind::kText, kParam + 2},
       {"equal", Kind::kFlag, kLine}}}},
    {"TEST-FileHash",
     {{{"path", Kind::kText, kParam},
       {"algorithm", Kind::kAlgorithm, kParam + 1},
       {"digest", Kind::kText, kLine}}}},
    {"TEST-Process", {{{"name", Kind::kText, kParam + 1}, {"count", Kind::kInteger, kLine}}}},
    {"TEST-CPU", {{{"usage_percent", Kind::kPercent, kLine}}}},
    {"TEST-ExternalPrg",
     {{{"command", Kind::kText, kParam}, {"exit_code", Kind::kInteger, kLine}}}},
    {"TEST-ShellScript",
     {{{"result", Kind::kEscaped, kLine}, {"output", Kind::kLines, kLine + 1, false}}}},
    {"TEST-TCP",
     {{{"service", Kind::kText, kParam},
       {"port", Kind::kInteger, kParam + 1},
       {"answer_seconds", Kind::kMilliseconds, kLine},
       {"received", Kind::kText, kLine + 1, false}}}},
    {"TEST-UDP",
     {{{"service", Kind::kText, kParam},
       {"port", Kind::kInteger, kParam + 1},
       {"answer_seconds", Kind::kMilliseconds, kLine},
       {"received", Kind::kText, kLine + 1, false}}}},
    {"TEST-TextLog",
     {{{"path", Kind::kText, kParam},
       {"match_offset", Kind::kInteger, kLine, false},
       {"line", Kind::kText, kLine + 1},
       {"more", Kind::kFlag, kLine + 2, false},
       {"position", Kind::kInteger, kLine + 3, false},
       {"last_size", Kind::kInteger, kLine + 4, false},
       {"last_modified", Kind::kInteger, kLine + 5, false},
       {"file_size_bytes", Kind::kBytes, kLine + 6}}}},
    {"TEST-TextLog2",
     {{{"path", Kind::kEscaped, kLine + 8},
       {"match_offset", Kind::kInteger, kLine, false},
       {"line", Kind::kText, kLine + 1},
       {"more", Kind::kFlag, kLine + 2, false},
       {"position", Kind::kInteger, kLine + 3, false},
       {"last_size", Kind::kInteger, kLine + 4, false},
       {"last_modified", Kind::kInteger, kLine + 5, false},
       {"file_size_bytes", Kind::kBytes, kLine + 6},
       {"first_criterion", Kind::kFlag, kLine + 7, false}}}},
    {"ACT-ExternalCmd", {{{"command", Kind::kText, kParam}, {"exit_code", Kind::kInteger, kLine}}}},
    {"ACT-TCPUDPsend", {{{"message", Kind::kText, kLine}}}},
    {"ACT-Syslog", {{{"message", Kind::kText, kLine}}}},
    {"ReloadCfg", {{{"message", Kind::kText, kLine}}}},
    {"ReloadApp", {{{"message", Kind::kText, kLine}}}},
    {"QUIT", {{{"message", Kind::kText, kLine}}}},
    {"SetSettings", {}},
    {"UpgradeCode", {}},
};

const ReplyFormat* FindFormat(std::string_view command) {
    auto found = std::find_if(std::begin(kFormats), std::end(kFormats),
                              [&](const ReplyFormat& format) { return format.command == command; });
    return found == std::end(kFormats) ? nullptr : found;
}

bool ReadColumn(const Column& column, std::span<const std::string> params, const Answer& answer,
                Record& record, std::string& error) {
    bool ofRequest = column.source >= kParam;
    size_t index = static_cast<size_t>(ofRequest ? column.source - kParam : column.source);
    Field& field = record.emplace_back();
    field.name = column.name;
    field.inTable = column.inTable;
    if (ofRequest) {
        // This only repeats the question; if it made no sense the agent has said so.
        if (index < params.size()) Convert(column.kind, params[index], field);
        return true;
    }
    if (index >= answer.lines.size()) {
        error = "the agent's reply is too short: it has no " + field.name;
        return false;
    }
    if (Convert(column.kind, answer.lines[index], field)) return true;
    error = "not a number in the agent's reply: " + answer.lines[index];
    return false;
}

void InsertAfter(Record& record, std::string_view name, Field field) {
    auto place = std::find_if(record.begin(), record.end(),
                              [name](const Field& other) { return other.name == name; });
    if (place != record.end()) ++place;
    record.insert(place, std::move(field));
}

// As df(1) counts: of what ordinary users can have. The available space can be negative while the
// reserve is in use.
void AddUse(Record& record) {
    double used = *Number(record, "size_bytes") - *Number(record, "free_bytes");
    double usable = used + *Number(record, "available_bytes");
    double percent = usable > 0 ? used * 100 / usable : 0;
    InsertAfter(record, "size_bytes", {"used_percent", percent, Unit::kPercent});
}

void AddModificationTime(Record& record, const Answer& answer, time_t now) {
    int64_t time = LocalTimeToEpoch(TrimView(answer.lines[2]),
                                    static_cast<int64_t>(*Number(record, "age_seconds")), now);
    InsertAfter(record, "modified", {"modified_timestamp_seconds", time, Unit::kTimestamp, false});
}

// A file beyond the limit of the request has its size instead of the digest.
void TellMissingDigest(Record& record) {
    Field& digest = record.back();
    if (!Text(record, "digest").starts_with("File size ")) return;
    record.push_back({"note", digest.value});
    record[record.size() - 2].value = std::monostate();
}

bool ReadProcesses(const Answer& answer, std::vector<Record>& records, std::string& error) {
    if (answer.lines.empty()) {
        error = "the agent's reply is too short: it has no command";
        return false;
    }
    for (std::string& line : LinesOf(Unescape(answer.lines[0]).View())) {
        records.emplace_back().push_back({"command", std::move(line)});
    }
    return true;
}

struct FileListShape {
    size_t count = 0;
    bool size = false, changed = false, modified = false;
};

void ReadFile(std::span<const std::string> lines, const FileListShape& shape, Record& record) {
    size_t next = 0;
    auto take = [&](std::string_view name, Kind kind) {
        Field& field = record.emplace_back();
        field.name = name;
        if (!Convert(kind, lines[next++], field)) field.value = std::monostate();
    };
    take("name", Kind::kEscaped);
    take("attributes", Kind::kInteger);
    int64_t attributes = static_cast<int64_t>(Number(record, "attributes").value_or(0));
    record.back().inTable = false;
    record.push_back({"folder", (attributes & 16) != 0});
    if (shape.size) take("size_bytes", Kind::kBytes);
    if (shape.changed) take("changed", Kind::kLocalTime);
    if (shape.modified) take("modified", Kind::kLocalTime);
}

bool ReadFileList(std::span<const std::string> params, const Answer& answer,
                  std::vector<Record>& records, std::string& error) {
    auto asked = [&](size_t index) {
        return index < params.size() && TrimView(params[index]) == "1";
    };
    FileListShape shape = {0, asked(6), asked(7), asked(8)};
    size_t perEntry =
        2U + (shape.size ? 1 : 0) + (shape.changed ? 1 : 0) + (shape.modified ? 1 : 0);
    int64_t count = -1, lines = 0;
    bool good = answer.lines.size() >= 3 && ParseInt64(TrimView(answer.lines[1]), count) &&
                ParseInt64(TrimView(answer.lines[2]), lines) && count >= 0 &&
                lines == static_cast<int64_t>(perEntry) &&
                static_cast<uint64_t>(count) <= (answer.lines.size() - 3) / perEntry;
    if (!good) {
        error = "the agent's list of files is damaged";
        return false;
    }
    for (size_t i = 0; i < static_cast<size_t>(count); ++i) {
        ReadFile(std::span(answer.lines).subspan(3 + i * perEntry, perEntry), shape,
                 records.emplace_back());
    }
    return true;
}

void ReadUnknown(const Answer& answer, Record& record) {
    for (size_t i = 0; i < answer.lines.size(); ++i) {
        record.push_back({"value_" + std::to_string(i + 1), answer.lines[i]});
    }
}

bool ReadFormat(const ReplyFormat& format, std::span<const std::string> params,
                const Answer& answer, Record& record, std::string& error, time_t now) {
    for (const Column& column : format.columns) {
        if (column.name.empty()) break;
        if (!ReadColumn(column, params, answer, record, error)) return false;
    }
    if (format.command == "TEST-UNC") AddUse(record);
    if (format.command == "TEST-FileExists") AddModificationTime(record, answer, now);
    if (format.command == "TEST-FileHash") TellMissingDigest(record);
    return true;
}

}  // namespace

const Field* FindField(const Record& record, std::string_view name) {
    auto found = std::find_if(record.begin(), record.end(),
                              [name](const Field& field) { return field.name == name; });
    return found == record.end() ? nullptr : &*found;
}

std::optional<double> Number(const Record& record, std::string_view name) {
    const Field* field = FindField(record, name);
    if (!field) return {};
    if (auto flag = std::get_if<bool>(&field->value)) return *flag ? 1 : 0;
    if (auto integer = std::get_if<int64_t>(&field->value)) return static_cast<double>(*integer);
    if (auto number = std::get_if<double>(&field->value)) return *number;
    return {};
}

std::string Text(const Record& record, std::string_view name) {
    const Field* field = FindField(record, name);
    const std::string* text = field ? std::get_if<std::string>(&field->value) : nullptr;
    return text ? *text : std::string();
}

bool ReadReply(std::string_view command, std::span<const std::string> params, const Answer& answer,
               std::vector<Record>& records, std::string& error, time_t now) {
    records.clear();
    if (command == "GetProcessesList") return ReadProcesses(answer, records, error);
    if (command == "GetFilesList") return ReadFileList(params, answer, records, error);
    Record& record = records.emplace_back();
    if (command == "GetInfo") {
        record = ReadInfo(answer);
    } else if (command == "GetSettings") {
        record = ReadSettings(answer);
    } else if (const ReplyFormat* format = FindFormat(command)) {
        return ReadFormat(*format, params, answer, record, error, now);
    } else {
        ReadUnknown(answer, record);
    }
    return true;
}

Record AskedFields(std::string_view command, std::span<const std::string> params) {
    Record record;
    const ReplyFormat* format = FindFormat(command);
    for (size_t i = 0; format && i < format->columns.size(); ++i) {
        const Column& column = format->columns[i];
        // Where the agent tells which file it found, the first parameter says which was asked for.
        bool asked = column.source >= kParam, found = !asked && column.name == "path";
        size_t index = asked ? static_cast<size_t>(column.source - kParam) : 0;
        if ((!asked && !found) || index >= params.size()) continue;
        Field& field = record.emplace_back();
        field.name = column.name;
        field.inTable = column.inTable;
        Convert(column.kind, params[index], field);
    }
    return record;
}

std::string ComplaintReason(std::string_view command, const Answer& answer) {
    if (answer.lines.empty()) return {};
    const std::string& reason = answer.lines[0];
    bool exchange = command == "TEST-TCP" || command == "TEST-UDP";
    if (!exchange || answer.lines.size() < 2) return reason;
    // The system's words alone can be "Operation now in progress".
    static constexpr std::pair<std::string_view, std::string_view> kSteps[] = {
        {"-3", "no socket"},
        {"-4", "sending failed"},
        {"-5", "receiving failed"},
        {"-6", "connecting failed"},
    };
    for (const auto& [number, step] : kSteps) {
        if (TrimView(answer.lines[1]) == number) return Concat({step, " (", reason, ")"});
    }
    return reason;
}

std::string Complaint(std::string_view command, const Answer& answer) {
    std::string reason = ComplaintReason(command, answer);
    return Concat({"the agent answered ", answer.code, reason.empty() ? "" : ": ", reason});
}

std::vector<std::string> FieldNames(std::string_view command) {
    if (command == "GetProcessesList") return {"command"};
    if (command == "GetFilesList") {
        return {"name", "attributes", "folder", "size_bytes", "changed", "modified"};
    }
    if (command == "GetInfo") return InfoFieldNames();
    if (command == "GetSettings") return SettingsFieldNames();
    std::vector<std::string> names;
    const ReplyFormat* format = FindFormat(command);
    for (size_t i = 0; format && i < format->columns.size(); ++i) {
        if (!format->columns[i].name.empty()) names.emplace_back(format->columns[i].name);
    }
    if (command == "TEST-UNC") names.insert(names.begin() + 2, "used_percent");
    if (command == "TEST-FileExists") names.insert(names.begin() + 4, "modified_timestamp_seconds");
    if (command == "TEST-FileHash") names.emplace_back("note");
    return names;
}

std::vector<std::string_view> CommandNames() {
    std::vector<std::string_view> names = {"GetInfo", "GetSettings", "GetFilesList",
                                           "GetProcessesList"};
    for (const ReplyFormat& format : kFormats) names.push_back(format.command);
    return names;
}

}  // namespace zot::client
