// YAML files read key by key, with the place of every mistake in them, not only of the first.
#pragma once

#include <yaml-cpp/yaml.h>

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace zot::exporter {

// What is wrong in one file, as "FILE:LINE:COLUMN: text".
class Mistakes {
  public:
    explicit Mistakes(std::string path) : path_(std::move(path)) {}
    void Add(const YAML::Mark& place, std::string_view text);
    bool None() const { return lines_.empty(); }
    const std::vector<std::string>& Lines() const { return lines_; }

  private:
    std::string path_;
    std::vector<std::string> lines_;
};

// Reads the file as one YAML document. Nothing, with the mistake, when it cannot be read or is no
// YAML.
std::optional<YAML::Node> ReadYaml(const std::string& path, Mistakes& mistakes);

// A mapping, read key by key. A value of the wrong kind is a mistake and reads like one that is
// missing; so is a key that is there twice, and at the end each key that nobody asked for.
class YamlMap {
  public:
    // `what` names the mapping for people: "a module". Anything but a mapping is a mistake; nothing
    // at all is an empty one. REQUIRES that `mistakes` outlives this.
    YamlMap(const YAML::Node& node, std::string what, Mistakes& mistakes);
    // Notes the keys that are left over.
    ~YamlMap();
    YamlMap(const YamlMap&) = delete;
    YamlMap& operator=(const YamlMap&) = delete;

    // The value of the key; nullptr when there is none, which is a mistake if it is needed.
    const YAML::Node* Take(std::string_view key, bool needed = false);
    // A text that is not empty, on one line.
    std::optional<std::string> Text(std::string_view key, bool needed = false);
    std::optional<uint16_t> Port(std::string_view key, bool needed = false);
    // "10s", "1m30s", "500ms": from a millisecond to a day.
    std::optional<std::chrono::milliseconds> Duration(std::string_view key);
    std::optional<bool> Flag(std::string_view key);
    // The pairs in the order of the file, for mappings with names of the user's own as keys.
    std::vector<std::pair<std::string, YAML::Node>> TakeAll();

    // A mistake at the key's value, or at the mapping if there is none.
    void Wrong(std::string_view key, std::string_view text);

  private:
    struct Entry {
        std::string key;
        YAML::Node keyNode;
        YAML::Node value;
        bool taken = false;
    };
    Entry* Find(std::string_view key);

    std::string what_;
    YAML::Mark place_;
    Mistakes& mistakes_;
    std::vector<Entry> entries_;
};

// "10s", "1m30s", "500ms"; nothing when it is no such text.
std::optional<std::chrono::milliseconds> ParseDuration(std::string_view text);
// The shortest such text.
std::string FormatDuration(std::chrono::milliseconds duration);

}  // namespace zot::exporter
