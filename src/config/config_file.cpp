#include "config/config_file.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <initializer_list>
#include <string_view>
#include <utility>

#include "base/escaping.h"
#include "base/files.h"
#include "base/numbers.h"
#include "config/config_keys.h"
#include "config/config_lines.h"

namespace zot {
namespace {

constexpr int32_t kDefaultTimeout = 4000;  // milliseconds

// Entries are separated by blanks in the file and by CR LF in memory.
VyString FilterListFromFile(std::string_view value) {
    VyString list = Unescape(value);
    list.Trim();
    list.CollapseRuns(' ');
    return list.ReplaceAll(" ", "\r\n", true);
}

void ApplyLine(AgentSettings& settings, std::string_view line) {
    ConfigLine parts;
    if (!SplitConfigLine(line, parts)) return;
    const ConfigKey* key = FindConfigKey(parts.key);
    if (key == nullptr) return;
    switch (key->kind) {
        case ConfigKind::kString:
        case ConfigKind::kAddressList:
            settings.*key->text = parts.value;
            break;
        case ConfigKind::kFilterList:
            settings.*key->text = FilterListFromFile(parts.value);
            break;
        case ConfigKind::kFlag:
            settings.*key->flag = parts.value.starts_with('1');
            break;
        case ConfigKind::kNumber:
            settings.*key->number = ToInt(parts.value);
            break;
        case ConfigKind::kPort:
            // A port from the command line, from an earlier line or from an earlier load stays.
            if (settings.*key->number == 0) settings.*key->number = ToInt(parts.value);
            break;
    }
}

bool Validate(AgentSettings& settings, VyString& errorText) {
    bool valid = true;
    if (settings.port == 0) {
        errorText.Append("  TCP post is not specified!\n");
        valid = false;
    }
    if (settings.password.Empty()) {
        errorText.Append("  Password is not specified!\n");
        valid = false;
    }
    if (settings.agentPath.At(1) != '/') {
        errorText.Append("  Full path to the agent is not specified!\n");
        return false;
    }
    if (IsRegularFile(settings.agentPath.Terminate())) return valid;
    errorText.Append("  Invalid path to the agent!\n");
    return false;
}

void RebuildActiveFilter(AgentSettings& settings, VyString& errorText) {
    settings.activeFilter = "\r\n";
    std::string_view rest = settings.filterList;
    for (char mark : settings.filterMarks.View()) {
        std::string_view line = rest.substr(0, rest.find('\n'));
        rest.remove_prefix(std::min(line.size() + 1, rest.size()));
        std::string_view entry = TrimView(line);
        if (entry.empty()) {
            // The list is the one with fewer items; administrators search for this very wording.
            errorText = "FilterMarks has less items than FilterList";
            return;
        }
        if (mark != '1') continue;
        settings.activeFilter.Append(entry);
        settings.activeFilter.Append("\r\n");
    }
}

// A script named without a directory is beside the agent. The directory keeps its "/", so the path
// holds two in a row, and a script without any name becomes the directory: both appear in replies
// that servers have been written against.
void ResolveScripts(AgentSettings& settings) {
    std::string_view agent = settings.agentPath;
    std::string_view directory = agent.substr(0, agent.rfind('/') + 1);
    if (directory.empty()) return;
    for (auto script : {&AgentSettings::cpuUsageScript, &AgentSettings::procListScript,
                        &AgentSettings::procCntScript}) {
        VyString& path = settings.*script;
        if (path.Pos("/") != 0) continue;
        VyString name = std::move(path);
        path = VyString::Concat(directory, "/");
        path.Append(name);
    }
}

void ResolveTmpDir(AgentSettings& settings) {
    VyString& directory = settings.tmpDir;
    const char* exported = getenv("TMPDIR");
    if (directory.Empty() || !IsDirectory(directory.Terminate())) {
        // A TMPDIR that leads nowhere still hides TMP.
        const char* candidate = exported != nullptr ? exported : getenv("TMP");
        directory = candidate != nullptr && IsDirectory(candidate) ? candidate : ".";
    }
    if (directory.At(directory.Length()) == '/') directory.Cut(directory.Length() - 1);
    // Other threads may be reading the environment, so it changes only when necessary.
    if (exported == nullptr || directory != exported) setenv("TMPDIR", directory.Terminate(), 1);
}

bool Load(AgentSettings& settings, VyString& errorText) {
    errorText.Clear();
    SetConfigDefaults(settings);
    if (settings.configPath[0] == '\0') {
        errorText = "Configuration file is not specified";
        return false;
    }
    {
        ConfigReader file;
        bool opened = file.Open(settings.configPath);
        for (std::string_view line; opened && file.Next(line);) ApplyLine(settings, line);
        if (!opened || file.Failed()) {
            errorText = VyString::Concat("Cannot open configuration file '", settings.configPath);
            errorText.Append('\'');
            ResolveTmpDir(settings);  // the agent goes on and needs one
            return false;
        }
    }
    PostProcessConfig(settings, errorText);
    if (settings.timeout == 0) settings.timeout = kDefaultTimeout;
    return Validate(settings, errorText);
}

}  // namespace

bool LoadConfig(AgentSettings& settings, VyString& errorText) {
    bool loaded = Load(settings, errorText);
    settings.loadError = loaded ? "" : TrimView(errorText);
    return loaded;
}

bool LoadConfigLocked(SettingsStore& store, VyString& errorText) {
    return store.Change(
        [&errorText](AgentSettings& settings) { return LoadConfig(settings, errorText); });
}

std::optional<bool> TryLoadConfig(SettingsStore& store, VyString& errorText) {
    return store.TryChange(
        [&errorText](AgentSettings& settings) { return LoadConfig(settings, errorText); });
}

void PostProcessConfig(AgentSettings& settings, VyString& errorText) {
    RebuildActiveFilter(settings, errorText);
    ResolveScripts(settings);
    ResolveTmpDir(settings);
}

}  // namespace zot
