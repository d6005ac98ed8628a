#include "config/config_keys.h"

#include <algorithm>
#include <iterator>
#include <vector>

#include "base/ascii.h"
#include "config/check_record.h"

namespace zot {
namespace {

using A = AgentSettings;
using enum SaveRule;

constexpr ConfigKey Text(std::string_view name, VyString A::*text, const char* value,
                         SaveRule save = kAlways, ConfigKind kind = ConfigKind::kString) {
    return {.name = name, .kind = kind, .save = save, .text = text, .defaultText = value};
}

constexpr ConfigKey Flag(std::string_view name, bool A::*flag, bool value,
                         SaveRule save = kAlways) {
    return {
        .name = name, .kind = ConfigKind::kFlag, .save = save, .flag = flag, .defaultFlag = value};
}

constexpr ConfigKey Number(std::string_view name, int32_t A::*number, std::optional<int32_t> value,
                           SaveRule save, ConfigKind kind = ConfigKind::kNumber) {
    return {.name = name, .kind = kind, .save = save, .number = number, .defaultNumber = value};
}

// The default list and the default marks look swapped. Agents in the field start with them, and the
// warning that they cause is known, so they stay.
constexpr ConfigKey kFilterListKey =
    Text("filterlist", &A::filterList, "1", kAlways, ConfigKind::kFilterList);

// A save appends these before the keys of the checks.
constexpr ConfigKey kGeneralKeys[] = {
    Text("host", &A::host, nullptr),
    Number("port", &A::port, {}, kAlways, ConfigKind::kPort),
    Number("timeout", &A::timeout, {}, kAlways),
    Text("comment", &A::comment, ""),
    Text("password", &A::password, ""),
    Flag("filteractive", &A::filterActive, false),
    Text("filtermarks", &A::filterMarks, "127.0.0.1"),
    kFilterListKey,
    Text("verboselogfile", &A::verboseLogFile, nullptr),
    Flag("logsuccess", &A::logSuccess, false),
    Flag("logfails", &A::logFails, true),
    Text("oklogfile", &A::okLogFile, "log1.txt"),
    Text("badlogfile", &A::badLogFile, "log2.txt"),
    Flag("allowupdates", &A::allowUpdates, true),
    Flag("allowmanage", &A::allowManage, true),
    Text("updateaddr", &A::updateAddr, "127.0.0.1", kAlways, ConfigKind::kAddressList),
    Text("manageaddr", &A::manageAddr, "127.0.0.1", kAlways, ConfigKind::kAddressList),
};

// A save leaves these unchanged.
constexpr ConfigKey kUnsavedKeys[] = {
    Text("zotpath", &A::agentPath, "", kNever),
    Text("cpuusagescript", &A::cpuUsageScript, nullptr, kNever),
    Text("proclistscript", &A::procListScript, nullptr, kNever),
    Text("proccntscript", &A::procCntScript, nullptr, kNever),
    Text("tmpdir", &A::tmpDir, "", kNever),
    Text("pidfile", &A::pidFile, "", kNever),
    Number("delayforscripts", &A::delayForScripts, 90000, kNever),
    Number("minrequestkey", &A::minRequestKey, 0, kNever),
    Number("replaywindow", &A::replayWindow, 0, kNever),
    Text("auditlog", &A::auditLog, "", kNever),
};

std::vector<ConfigKey> AllKeys() {
    std::vector<ConfigKey> keys(std::begin(kGeneralKeys), std::end(kGeneralKeys));
    for (const CheckRecord& check : Checks()) {
        if (check.key.empty()) continue;
        keys.push_back(Flag(check.key, check.enabled, check.enabledByDefault, check.save));
    }
    keys.insert(keys.end(), std::begin(kUnsavedKeys), std::end(kUnsavedKeys));
    return keys;
}

bool SameKey(std::string_view key, std::string_view name) {
    return std::equal(key.begin(), key.end(), name.begin(), name.end(),
                      [](char a, char b) { return LowerAscii(a) == b; });
}

}  // namespace

std::span<const ConfigKey> ConfigKeys() {
    // Never destroyed: sessions may still load while the process ends.
    static const auto& keys = *new std::vector<ConfigKey>(AllKeys());
    return keys;
}

const ConfigKey* FindConfigKey(std::string_view key) {
    for (const ConfigKey& entry : ConfigKeys()) {
        if (SameKey(key, entry.name)) return &entry;
    }
    return nullptr;
}

void SetConfigDefaults(AgentSettings& settings) {
    for (const ConfigKey& key : ConfigKeys()) {
        if (key.defaultText != nullptr) settings.*key.text = key.defaultText;
        if (key.defaultNumber) settings.*key.number = *key.defaultNumber;
        if (key.flag != nullptr) settings.*key.flag = key.defaultFlag;
    }
    // Including those without a key.
    for (const CheckRecord& check : Checks()) settings.*check.enabled = check.enabledByDefault;
}

}  // namespace zot
