// What the lines of each command's reply mean: records of named, typed fields in plain units
// (bytes, seconds, per cent), for people, programs and metrics alike.
#pragma once

#include <cstdint>
#include <ctime>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "client/request_packet.h"

namespace zot::client {

enum class Unit { kNone, kBytes, kSeconds, kPercent, kTimestamp };

// Nothing, a flag, a whole number, a number, a text, or a list of texts.
using Value =
    std::variant<std::monostate, bool, int64_t, double, std::string, std::vector<std::string>>;

struct Field {
    std::string name;  // "size_bytes"
    Value value;
    Unit unit = Unit::kNone;
    bool inTable = true;  // shown unless somebody chose fields
    std::string label{};  // for people, unless made from the name
};

using Record = std::vector<Field>;

// The field of this name; nullptr if there is none.
const Field* FindField(const Record& record, std::string_view name);
// A field's number, of whatever type; nothing for texts, lists and missing fields.
std::optional<double> Number(const Record& record, std::string_view name);
// A field's text; empty for anything else.
std::string Text(const Record& record, std::string_view name);

// Reads a reply 200 to `command`, which was asked with these parameters (still escaped), into
// records: one, or one for each entry of a list (GetFilesList, GetProcessesList). The lines of an
// unknown command become "value_1", "value_2" and so on.
//
// Times of files travel in the agent's local time; `now` and the file's age give its zone. False
// when the reply has too few lines or a number is wrong: `error` names the field.
bool ReadReply(std::string_view command, std::span<const std::string> params, const Answer& answer,
               std::vector<Record>& records, std::string& error, time_t now = time(nullptr));

// What a reply to the command would only repeat of the request: the path, the name. For an answer
// that brought nothing else.
Record AskedFields(std::string_view command, std::span<const std::string> params);

// What an answer other than 200 says, for people: "the agent answered 301: File doesn`t exist".
std::string Complaint(std::string_view command, const Answer& answer);
// Only the reason; empty if there is none.
std::string ComplaintReason(std::string_view command, const Answer& answer);

// The names of all fields that a reply to the command can have, in the order of its first record;
// empty for an unknown command. Includes those of settings and information.
std::vector<std::string> FieldNames(std::string_view command);

// The commands whose replies are known, and which this system's agents carry out.
std::vector<std::string_view> CommandNames();

// "folder_size" from "Folder Size", "ok_log_file" from "OkLogFile".
std::string SnakeCase(std::string_view name);

}  // namespace zot::client
