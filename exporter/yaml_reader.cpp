#include "exporter/yaml_reader.h"

#include <algorithm>
#include <cstddef>

#include "base/ascii.h"
#include "base/numbers.h"
#include "client/local_file.h"
#include "client/text.h"

namespace zot::exporter {
namespace {

using client::Concat;
using std::chrono::milliseconds;

constexpr size_t kMaxFileSize = size_t{16} << 20;
constexpr milliseconds kMaxDuration = std::chrono::hours(24);

struct TimeUnit {
    std::string_view name;
    milliseconds length;
};
constexpr TimeUnit kTimeUnits[] = {
    {"h", std::chrono::hours(1)},
    {"m", std::chrono::minutes(1)},
    {"s", std::chrono::seconds(1)},
    {"ms", milliseconds(1)},
};

bool IsPlainText(std::string_view text) {
    return !text.empty() && std::none_of(text.begin(), text.end(), [](char c) {
        return static_cast<unsigned char>(c) < 32 || c == 127;
    });
}

}  // namespace

void Mistakes::Add(const YAML::Mark& place, std::string_view text) {
    std::string line = path_ + ":";
    if (!place.is_null()) {
        line += std::to_string(place.line + 1) + ":" + std::to_string(place.column + 1) + ":";
    }
    lines_.push_back(Concat({line, " ", text}));
}

// The library tells by exceptions what is no YAML; they end here.
std::optional<YAML::Node> ReadYaml(const std::string& path, Mistakes& mistakes) {
    std::string content, error;
    if (!client::ReadWholeFile(path, kMaxFileSize, content, error)) {
        mistakes.Add(YAML::Mark::null_mark(), error);
        return {};
    }
    try {
        return YAML::Load(content);
    } catch (const YAML::Exception& exception) {
        mistakes.Add(exception.mark, exception.msg);
        return {};
    }
}

YamlMap::YamlMap(const YAML::Node& node, std::string what, Mistakes& mistakes)
    : what_(std::move(what)), place_(node.Mark()), mistakes_(mistakes) {
    if (!node.IsMap()) {
        if (!node.IsNull()) mistakes_.Add(place_, what_ + " must be a mapping of keys to values");
        return;
    }
    for (const auto& pair : node) {
        if (!pair.first.IsScalar()) {
            mistakes_.Add(pair.first.Mark(), "a key must be a plain text");
        } else if (Find(pair.first.Scalar())) {
            mistakes_.Add(pair.first.Mark(), Concat({pair.first.Scalar(), " is here twice"}));
        } else {
            entries_.push_back({pair.first.Scalar(), pair.first, pair.second});
        }
    }
}

YamlMap::~YamlMap() {
    for (const Entry& entry : entries_) {
        if (entry.taken) continue;
        mistakes_.Add(entry.keyNode.Mark(), Concat({what_, " has no key ", entry.key}));
    }
}

YamlMap::Entry* YamlMap::Find(std::string_view key) {
    auto found = std::find_if(entries_.begin(), entries_.end(),
                              [key](const Entry& entry) { return entry.key == key; });
    return found == entries_.end() ? nullptr : &*found;
}

const YAML::Node* YamlMap::Take(std::string_view key, bool needed) {
    if (Entry* entry = Find(key)) {
        entry->taken = true;
        return &entry->value;
    }
    if (needed) mistakes_.Add(place_, Concat({what_, " needs ", key}));
    return nullptr;
}

void YamlMap::Wrong(std::string_view key, std::string_view text) {
    const Entry* entry = Find(key);
    mistakes_.Add(entry ? entry->value.Mark() : place_, text);
}

std::optional<std::string> YamlMap::Text(std::string_view key, bool needed) {
    const YAML::Node* node = Take(key, needed);
    if (!node) return {};
    if (node->IsScalar() && IsPlainText(node->Scalar())) return node->Scalar();
    Wrong(key, Concat({key, " must be a text on one line"}));
    return {};
}

std::optional<uint16_t> YamlMap::Port(std::string_view key, bool needed) {
    const YAML::Node* node = Take(key, needed);
    if (!node) return {};
    int32_t port = 0;
    if (node->IsScalar() && ParseInt(node->Scalar(), port) && port > 0 && port <= UINT16_MAX) {
        return static_cast<uint16_t>(port);
    }
    Wrong(key, Concat({key, " must be a number from 1 to 65535"}));
    return {};
}

std::optional<milliseconds> YamlMap::Duration(std::string_view key) {
    const YAML::Node* node = Take(key);
    if (!node) return {};
    auto duration = node->IsScalar() ? ParseDuration(node->Scalar()) : std::nullopt;
    if (!duration) Wrong(key, Concat({key, " must be a time like 500ms, 10s or 1m30s, to 24h"}));
    return duration;
}

std::optional<bool> YamlMap::Flag(std::string_view key) {
    const YAML::Node* node = Take(key);
    if (!node) return {};
    if (node->IsScalar() && (node->Scalar() == "true" || node->Scalar() == "false")) {
        return node->Scalar() == "true";
    }
    Wrong(key, Concat({key, " must be true or false"}));
    return {};
}

std::vector<std::pair<std::string, YAML::Node>> YamlMap::TakeAll() {
    std::vector<std::pair<std::string, YAML::Node>> pairs;
    for (Entry& entry : entries_) {
        entry.taken = true;
        pairs.emplace_back(entry.key, entry.value);
    }
    return pairs;
}

std::optional<milliseconds> ParseDuration(std::string_view text) {
    milliseconds total{0};
    while (!text.empty()) {
        size_t digits = 0;
        while (digits < text.size() && IsDigit(text[digits])) ++digits;
        if (digits == 0 || digits > 9) return {};
        size_t end = digits;
        while (end < text.size() && !IsDigit(text[end])) ++end;
        std::string_view name = text.substr(digits, end - digits);
        const auto* unit = std::find_if(std::begin(kTimeUnits), std::end(kTimeUnits),
                                        [name](const TimeUnit& row) { return row.name == name; });
        if (unit == std::end(kTimeUnits)) return {};
        total += ToInt64(text.substr(0, digits)) * unit->length;
        text.remove_prefix(end);
    }
    if (total <= milliseconds(0) || total > kMaxDuration) return {};
    return total;
}

std::string FormatDuration(milliseconds duration) {
    std::string text;
    for (const TimeUnit& unit : kTimeUnits) {
        auto count = duration / unit.length;
        if (count > 0) text += Concat({std::to_string(count), unit.name});
        duration %= unit.length;
    }
    return text;
}

}  // namespace zot::exporter
