// The kinds of checks: what each is called and needs in the configuration, what it asks an agent,
// and which metrics come of the reply. One row for each; the rest of the exporter knows no kind.
#pragma once

#include <chrono>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "client/probe.h"
#include "client/replies.h"
#include "exporter/metric_text.h"

namespace zot::exporter {

enum class KeyKind { kText, kPort, kDigest };

struct CheckKey {
    std::string_view name;      // in the configuration
    std::string_view label;     // of its metrics; empty for none
    std::string_view fallback;  // empty: it must be given
    KeyKind kind = KeyKind::kText;
};

struct CheckType;

// A check as the configuration has it.
struct Check {
    std::string name;
    const CheckType* type = nullptr;
    std::vector<std::string> values;  // of the type's keys, in their order
    bool operator==(const Check&) const = default;
};

struct CheckType {
    std::string_view word;
    std::string_view command;  // whose reply has the fields
    std::span<const CheckKey> keys;
    // What to ask. `limit` is what is left of the time. Null for a log, see log_counter.h.
    std::unique_ptr<client::Probe> (*ask)(const Check& check, std::chrono::milliseconds limit);
    // Adds the metrics of a reply.
    void (*report)(const Check& check, const client::Record& record, MetricText& metrics);
    std::string_view help;
};

std::span<const CheckType> CheckTypes();
// Nullptr for a word that is none.
const CheckType* FindCheckType(std::string_view word);

// Whether the check counts lines, which must not happen twice at once.
bool CountsLog(const Check& check);
// Whether its metrics are the agent's own, without a label for the check: it can be there once.
bool IsOfTheAgent(const Check& check);

// The field that a log check's record has, and where its values stand.
inline constexpr std::string_view kMatchesField = "matches";
inline constexpr size_t kLogPath = 0;
inline constexpr size_t kLogPattern = 1;

}  // namespace zot::exporter
