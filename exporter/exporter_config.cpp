#include "exporter/exporter_config.h"

#include <algorithm>
#include <cstddef>
#include <filesystem>
#include <map>
#include <optional>
#include <utility>

#include "base/ascii.h"
#include "base/numbers.h"
#include "client/hash_digest.h"
#include "client/text.h"
#include "exporter/yaml_reader.h"

namespace zot::exporter {
namespace {

using client::Concat;

// Names stand in URLs and labels.
bool IsName(std::string_view text) {
    return !text.empty() && std::all_of(text.begin(), text.end(), [](char c) {
        return IsAlnum(c) || c == '_' || c == '-' || c == '.';
    });
}

std::string TypeWords() {
    std::string words;
    for (const CheckType& type : CheckTypes()) {
        words.append(words.empty() ? "" : ", ").append(type.word);
    }
    return words;
}

class ConfigReader {
  public:
    ConfigReader(const std::string& path, ExporterConfig& config, Mistakes& mistakes)
        : folder_(std::filesystem::path(path).parent_path()),
          config_(config),
          mistakes_(mistakes) {}

    void Read(const YAML::Node& document);

  private:
    std::string Path(const std::string& path) const { return (folder_ / path).string(); }
    void ReadDefaults(const YAML::Node& node);
    void ReadModule(const std::string& name, const YAML::Node& node);
    void ReadChecks(const YAML::Node& node, Module& module);
    void ReadCheck(const YAML::Node& node, Module& module);
    std::optional<std::string> ReadValue(const CheckKey& key, YamlMap& map);
    void Admit(Check check, YamlMap& map, Module& module);

    std::filesystem::path folder_;
    ExporterConfig& config_;
    Mistakes& mistakes_;
    std::map<std::string, Check> known_;
    std::string infoName_;  // of the check whose metrics can be there once
};

void ConfigReader::Read(const YAML::Node& document) {
    YamlMap map(document, "the configuration", mistakes_);
    if (auto hosts = map.Text("hosts", true)) {
        config_.hosts = Path(*hosts);
        if (*hosts == "-") map.Wrong("hosts", "hosts must be a folder or a file");
    }
    if (auto state = map.Text("state")) config_.state = Path(*state);
    if (const YAML::Node* defaults = map.Take("defaults")) ReadDefaults(*defaults);
    const YAML::Node* modules = map.Take("modules", true);
    if (!modules) return;
    YamlMap names(*modules, "modules", mistakes_);
    for (const auto& [name, node] : names.TakeAll()) {
        if (!IsName(name)) {
            names.Wrong(name, "a module's name must be of letters, digits, '_', '-' and '.'");
        }
        ReadModule(name, node);
    }
    if (config_.modules.empty()) map.Wrong("modules", "there is no module");
}

void ConfigReader::ReadDefaults(const YAML::Node& node) {
    YamlMap map(node, "defaults", mistakes_);
    config_.defaults.port = map.Port("port").value_or(config_.defaults.port);
    config_.timeout = map.Duration("timeout").value_or(config_.timeout);
    if (auto file = map.Text("password_file")) config_.defaults.passwordFile = Path(*file);
}

void ConfigReader::ReadModule(const std::string& name, const YAML::Node& node) {
    Module module;
    module.name = name;
    YamlMap map(node, "a module", mistakes_);
    module.timeout = map.Duration("timeout").value_or(config_.timeout);
    const YAML::Node* checks = map.Take("checks", true);
    if (checks && checks->IsSequence() && checks->size() > 0) {
        ReadChecks(*checks, module);
    } else if (checks) {
        map.Wrong("checks", "checks must be a list with at least one check");
    }
    config_.modules.push_back(std::move(module));
}

void ConfigReader::ReadChecks(const YAML::Node& node, Module& module) {
    for (const auto& check : node) ReadCheck(check, module);
}

void ConfigReader::ReadCheck(const YAML::Node& node, Module& module) {
    YamlMap map(node, "a check", mistakes_);
    Check check;
    auto name = map.Text("name", true);
    auto word = map.Text("type", true);
    if (name && !IsName(*name)) {
        map.Wrong("name", "a check's name must be of letters, digits, '_', '-' and '.'");
    }
    check.name = name.value_or("");
    check.type = word ? FindCheckType(*word) : nullptr;
    if (!check.type) {
        if (word) {
            map.Wrong("type", Concat({"there is no type ", *word, "; there are ", TypeWords()}));
        }
        map.TakeAll();  // which keys are right is not known
        return;
    }
    bool whole = name.has_value();
    for (const CheckKey& key : check.type->keys) {
        auto value = ReadValue(key, map);
        whole = whole && value;
        check.values.push_back(value.value_or(""));
    }
    if (whole) Admit(std::move(check), map, module);
}

std::optional<std::string> ConfigReader::ReadValue(const CheckKey& key, YamlMap& map) {
    bool needed = key.fallback.empty();
    if (key.kind == KeyKind::kPort) {
        auto port = map.Port(key.name, needed);
        return port ? std::optional(std::to_string(*port)) : std::nullopt;
    }
    auto text = map.Text(key.name, needed);
    if (!text && !needed) return std::string(key.fallback);
    if (text && key.kind == KeyKind::kDigest && client::HashAlgorithm(*text).empty()) {
        map.Wrong(key.name,
                  "digest must be a CRC-32 in decimal, or 32 (MD5), 64 (SHA-256) or 128 (SHA-512) "
                  "hexadecimal digits");
        return {};
    }
    return text;
}

void ConfigReader::Admit(Check check, YamlMap& map, Module& module) {
    auto [known, isNew] = known_.emplace(check.name, check);
    bool twice = std::any_of(module.checks.begin(), module.checks.end(),
                             [&](const Check& other) { return other.name == check.name; });
    if (twice) {
        map.Wrong("name", Concat({"the module has a check ", check.name, " already"}));
    } else if (!isNew && !(known->second == check)) {
        map.Wrong("name", Concat({check.name, " is another check in another module"}));
    } else if (IsOfTheAgent(check) && !infoName_.empty() && infoName_ != check.name) {
        map.Wrong("name",
                  Concat({"a check of this type must have one name everywhere, here ", infoName_}));
    } else if (CountsLog(check) && config_.state.empty()) {
        map.Wrong("type", "log checks need the key state, a folder for their positions");
    }
    if (IsOfTheAgent(check)) infoName_ = check.name;
    module.checks.push_back(std::move(check));
}

}  // namespace

const Module* ExporterConfig::FindModule(std::string_view name) const {
    auto found = std::find_if(modules.begin(), modules.end(),
                              [name](const Module& module) { return module.name == name; });
    return found == modules.end() ? nullptr : &*found;
}

bool ReadConfig(const std::string& path, ExporterConfig& config,
                std::vector<std::string>& mistakes) {
    Mistakes found(path);
    if (auto document = ReadYaml(path, found)) ConfigReader(path, config, found).Read(*document);
    mistakes.insert(mistakes.end(), found.Lines().begin(), found.Lines().end());
    return found.None();
}

std::string ConfigAsYaml(const ExporterConfig& config) {
    YAML::Emitter out;
    out << YAML::BeginMap << YAML::Key << "hosts" << YAML::Value << config.hosts;
    if (!config.state.empty()) out << YAML::Key << "state" << YAML::Value << config.state;
    out << YAML::Key << "defaults" << YAML::Value << YAML::BeginMap;
    out << YAML::Key << "port" << YAML::Value << config.defaults.port;
    out << YAML::Key << "timeout" << YAML::Value << FormatDuration(config.timeout);
    if (!config.defaults.passwordFile.empty()) {
        out << YAML::Key << "password_file" << YAML::Value << config.defaults.passwordFile;
    }
    out << YAML::EndMap << YAML::Key << "modules" << YAML::Value << YAML::BeginMap;
    for (const Module& module : config.modules) {
        out << YAML::Key << module.name << YAML::Value << YAML::BeginMap;
        out << YAML::Key << "timeout" << YAML::Value << FormatDuration(module.timeout);
        out << YAML::Key << "checks" << YAML::Value << YAML::BeginSeq;
        for (const Check& check : module.checks) {
            out << YAML::BeginMap << YAML::Key << "name" << YAML::Value << check.name;
            out << YAML::Key << "type" << YAML::Value << std::string(check.type->word);
            for (size_t i = 0; i < check.values.size(); ++i) {
                out << YAML::Key << std::string(check.type->keys[i].name) << YAML::Value
                    << check.values[i];
            }
            out << YAML::EndMap;
        }
        out << YAML::EndSeq << YAML::EndMap;
    }
    out << YAML::EndMap << YAML::EndMap;
    return std::string(out.c_str()) + "\n";
}

}  // namespace zot::exporter
