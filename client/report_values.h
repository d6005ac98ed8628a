// Values of reports as texts: for people with units, for programs plain, and as JSON.
#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>
#include <vector>

#include "client/host_run.h"
#include "client/replies.h"

namespace zot::client {

// "252.0 GiB", "18%", "3 ms", "yes"; a list with commas; "-" for nothing. Without control
// characters.
std::string HumanText(const Field& field);
// Numbers in full, flags as 1 and 0, texts unchanged; empty for nothing.
std::string PlainText(const Value& value);
nlohmann::ordered_json JsonValue(const Value& value);
bool IsNumeric(const Value& value);

// What people read instead of the name: its label, or "size" for size_bytes.
std::string ShownName(const Field& field);
// The heading of a column: the label, or "SIZE".
std::string Heading(const Field& field);

// What every report has besides the fields of its reply.
inline constexpr std::string_view kEnvelope[] = {"host", "status", "code", "seconds", "error"};
// One of these, or the record's field of this name; a field without a value if there is none.
Field ReportField(const HostReport& report, const Record& record, const std::string& name);

// The report's record as a JSON object: host, status, code and seconds, the fields (all, or those
// chosen), and "error" when there is one.
nlohmann::ordered_json JsonRecord(const HostReport& report, const Record& record,
                                  const std::vector<std::string>& chosen);

// Why a host gave no good answer, short enough for a table; empty for a good one.
std::string ShortReason(const HostReport& report);

}  // namespace zot::client
