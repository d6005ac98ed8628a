#include "config/config_check.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <initializer_list>
#include <limits>
#include <map>
#include <memory>
#include <span>
#include <string_view>
#include <utility>

#include "base/ascii.h"
#include "base/edit_distance.h"
#include "base/files.h"
#include "base/numbers.h"
#include "base/owners.h"
#include "base/platform/system.h"
#include "base/vystring.h"
#include "config/config_file.h"
#include "config/config_keys.h"
#include "config/config_lines.h"
#include "config/settings.h"

namespace zot {
namespace {

constexpr size_t kMaxFileSize = size_t{1024} * 1024;

struct Range {
    std::string_view key;
    int64_t first;
    int64_t last;
};

constexpr int64_t kMaxNumber = std::numeric_limits<int32_t>::max();

// Other numbers are from 0 on.
constexpr Range kRanges[] = {
    {"port", 1, 65535}, {"minrequestkey", 0, 65535}, {"timeout", -kMaxNumber, kMaxNumber}};

// Blanks from a web page and the like would be invisible.
std::string Quoted(std::string_view text) {
    std::string quoted = "\"";
    for (char c : text) {
        char escaped[5] = {c, 0};
        if (c < ' ' || c > '~') {
            std::snprintf(escaped, sizeof escaped, "\\x%02x", static_cast<unsigned char>(c));
        }
        quoted += escaped;
    }
    return quoted + "\"";
}

std::string Lower(std::string_view text) {
    std::string lower(text);
    std::transform(lower.begin(), lower.end(), lower.begin(), LowerAscii);
    return lower;
}

bool IsAddress(std::string_view text) {
    in_addr ignored{};
    return inet_pton(AF_INET, std::string(text).c_str(), &ignored) == 1;
}

// In a list of addresses, where the last of all addresses is read as an error.
bool IsListed(std::string_view text) { return IsAddress(text) && text != "255.255.255.255"; }

bool IsName(std::string_view text) {
    return text.find_first_not_of("0123456789.-") != std::string_view::npos &&
           std::all_of(text.begin(), text.end(),
                       [](char c) { return IsAlnum(c) || c == '.' || c == '-' || c == '_'; });
}

// The text before the first separator, without blanks; `rest` is left with what follows it.
std::string_view TakeItem(std::string_view& rest, std::string_view separators) {
    size_t end = std::min(rest.find_first_of(separators), rest.size());
    std::string_view item = TrimView(rest.substr(0, end));
    rest.remove_prefix(std::min(end + 1, rest.size()));
    return item;
}

class ConfigChecker {
  public:
    explicit ConfigChecker(const char* path) : path_(path) {}

    std::vector<ConfigMistake> Check() {
        std::string content;
        if (!Read(content)) return std::move(mistakes_);
        CheckLines(content);
        CheckWhole();
        std::stable_sort(mistakes_.begin(), mistakes_.end(),
                         [](const auto& a, const auto& b) { return a.line < b.line; });
        return std::move(mistakes_);
    }

  private:
    // The last line of a key, and its value there.
    struct Place {
        size_t line = 0;
        std::string value;
    };

    void Tell(size_t line, std::string text) { mistakes_.push_back({line, std::move(text)}); }

    bool Read(std::string& content) {
        struct stat status {};
        errno = 0;
        UniqueFd fd = OpenRegularFile(path_, status);
        UniqueFile file(fd ? fdopen(fd.Get(), "r") : nullptr);
        if (file == nullptr) {
            char reason[256] = "it is no regular file";
            if (errno != 0) SystemErrorText(errno, reason, sizeof reason);
            Tell(0, std::string("cannot be read: ") + reason);
            return false;
        }
        fd.Release();
        content.resize(kMaxFileSize + 1);
        content.resize(fread(content.data(), 1, content.size(), file.get()));
        if (ferror(file.get()) != 0 || content.size() > kMaxFileSize) {
            Tell(0, "cannot be read whole, or is no configuration: it is larger than 1 MiB");
            return false;
        }
        if (content.find('\0') != std::string::npos) {
            Tell(0, "holds NUL bytes, as UTF-16 does: write it as plain text (UTF-8)");
            return false;
        }
        if ((status.st_mode & S_IROTH) != 0) Tell(0, "everybody can read its password: chmod o=");
        if ((status.st_mode & S_IWOTH) != 0) Tell(0, "everybody can change it: chmod o=");
        return true;
    }

    void CheckLines(std::string_view rest) {
        constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
        if (rest.starts_with(kByteOrderMark)) {
            Tell(1, "begins with a byte-order mark, so this line sets nothing");
            rest.remove_prefix(kByteOrderMark.size());
        }
        for (size_t number = 1; !rest.empty(); ++number) {
            size_t end = std::min(rest.find('\n'), rest.size());
            CheckLine(number, rest.substr(0, end));
            rest.remove_prefix(std::min(end + 1, rest.size()));
        }
    }

    void CheckLine(size_t number, std::string_view line) {
        if (line.size() > kMaxConfigLine) {
            Tell(number, "is longer than " + std::to_string(kMaxConfigLine) +
                             " bytes: the rest counts as a line of its own");
        }
        std::string_view text = TrimView(line);
        if (text.find('\r') != std::string_view::npos) {
            // Its text is not repeated: the password may be part of it.
            Tell(number, "holds a carriage return: lines end with LF or CR LF");
            return;
        }
        if (text.empty() || line.starts_with('#') || line.starts_with(';')) return;
        ConfigLine parts;
        if (!SplitConfigLine(line, parts)) {
            if (!text.starts_with('#') && !text.starts_with(';')) {
                Tell(number, "sets nothing: there is no \"=\"");
            }
            return;
        }
        const ConfigKey* key = FindConfigKey(parts.key);
        if (key == nullptr) {
            TellUnknown(number, parts.key);
            return;
        }
        Place& place = places_[key->name];
        if (place.line != 0) {
            const bool firstCounts = key->kind == ConfigKind::kPort;
            Tell(number, std::string(key->name) + " stands on line " + std::to_string(place.line) +
                             " already; the " + (firstCounts ? "first" : "last") + " one counts");
        }
        place = {number, std::string(parts.value)};
        CheckValue(number, *key, parts.value);
    }

    void TellUnknown(size_t number, std::string_view written) {
        if (written.starts_with('#') || written.starts_with(';')) {
            Tell(number, "a comment begins with its very first character, this one with a blank");
            return;
        }
        const std::string wanted = Lower(written);
        std::string_view nearest;
        size_t least = wanted.size() / 3 + 1;
        for (const ConfigKey& key : ConfigKeys()) {
            size_t distance = EditDistance(wanted, key.name);
            if (distance >= least) continue;
            least = distance;
            nearest = key.name;
        }
        std::string text = "unknown key " + Quoted(written);
        if (!nearest.empty()) text += ", did you mean " + std::string(nearest) + "?";
        Tell(number, text);
    }

    void CheckValue(size_t number, const ConfigKey& key, std::string_view value) {
        switch (key.kind) {
            case ConfigKind::kFlag:
                if (value == "0" || value == "1") break;
                Tell(number, std::string(key.name) + " is 1 or 0; " + Quoted(value) +
                                 " counts as " + (value.starts_with('1') ? "1" : "0"));
                break;
            case ConfigKind::kNumber:
            case ConfigKind::kPort:
                CheckNumber(number, key.name, value);
                break;
            case ConfigKind::kAddressList:
                CheckAddresses(number, key.name, value);
                break;
            case ConfigKind::kString:
            case ConfigKind::kFilterList:
                break;  // looked at when the file is known whole
        }
    }

    void CheckNumber(size_t number, std::string_view key, std::string_view value) {
        int64_t parsed = 0;
        Range range = {key, 0, kMaxNumber};
        for (const Range& row : kRanges) {
            if (row.key == key) range = row;
        }
        if (ParseInt64(value, parsed) && range.first <= parsed && parsed <= range.last) return;
        Tell(number, std::string(key) + " is a number from " + std::to_string(range.first) +
                         " to " + std::to_string(range.last) + ", not " + Quoted(value));
    }

    void CheckAddresses(size_t number, std::string_view key, std::string_view value) {
        for (std::string_view rest = value; !rest.empty();) {
            std::string_view item = TakeItem(rest, ",");
            std::string_view ends = item;
            std::string_view first = TakeItem(ends, "-");
            bool range = first.size() != item.size();
            if (first == "0.0.0.0") {
                Tell(number, std::string(key) + ": 0.0.0.0 ends the list and admits nobody");
                return;
            }
            if (IsListed(first) && (!range || IsListed(TrimView(ends)))) continue;
            Tell(number, std::string(key) + ": " + Quoted(item) +
                             " is no address and no range such as 192.0.2.1-192.0.2.9; names and "
                             "networks do not count here");
        }
    }

    // Of a key that is there; nullptr for one that is not.
    const Place* Find(std::string_view key) const {
        auto found = places_.find(key);
        return found == places_.end() ? nullptr : &found->second;
    }
    size_t LineOf(std::string_view key) const {
        const Place* place = Find(key);
        return place != nullptr ? place->line : 0;
    }

    // What only a load of the whole file shows.
    void CheckWhole() {
        AgentSettings settings;
        VyString errorText;
        VyString(path_).CopyToBuffer(settings.configPath, sizeof settings.configPath);
        const bool loads = LoadConfig(settings, errorText);
        if (Find("port") == nullptr) Tell(0, "port is missing");
        if (settings.password.Empty()) Tell(LineOf("password"), "password is missing or empty");
        if (const Place* host = Find("host"); host != nullptr && !host->value.empty() &&
                                              !IsAddress(host->value) && !IsName(host->value)) {
            Tell(host->line, "host: " + Quoted(host->value) + " is no IPv4 address and no name");
        }
        CheckAgentPath(settings.agentPath);
        CheckScript("cpuusagescript", settings.cpuUsageScript);
        CheckScript("proclistscript", settings.procListScript);
        CheckScript("proccntscript", settings.procCntScript);
        const Place* tmpDir = Find("tmpdir");
        if (tmpDir != nullptr && !tmpDir->value.empty() && !IsDirectory(tmpDir->value.c_str())) {
            Tell(tmpDir->line, "tmpdir: there is no folder " + tmpDir->value);
        }
        for (const char* key : {"verboselogfile", "oklogfile", "badlogfile", "pidfile"}) {
            CheckFolderOf(key);
        }
        CheckFolderOf("auditlog");
        if (settings.auditLog != "syslog" && Lower(settings.auditLog) == "syslog") {
            Tell(LineOf("auditlog"), "auditlog: the system's log is \"syslog\"");
        }
        CheckFilter(settings);
        if (!loads && mistakes_.empty()) Tell(0, std::string(TrimView(errorText)));
    }

    void CheckAgentPath(VyString path) {
        const size_t line = LineOf("zotpath");
        if (path.Empty()) {
            Tell(line, "zotpath is missing or empty");
        } else if (path.At(1) != '/') {
            Tell(line, "zotpath is a full path, from / on");
        } else if (!IsRegularFile(path.Terminate()) || access(path.Terminate(), X_OK) != 0) {
            Tell(line, "zotpath: " + std::string(path.View()) + " is no program");
        }
    }

    void CheckScript(const std::string& key, VyString path) {
        const Place* place = Find(key);
        if (place == nullptr || place->value.empty()) return;
        const char* trouble = nullptr;
        if (!IsRegularFile(path.Terminate())) {
            trouble = ": there is no file ";
        } else if (access(path.Terminate(), X_OK) != 0) {
            trouble = ": not executable: ";
        } else if (path.Pos(" ") != 0) {
            trouble = ": a blank ends the path: ";
        }
        if (trouble != nullptr) Tell(place->line, key + trouble + std::string(path.View()));
    }

    // A file without a folder lies beside the configuration.
    void CheckFolderOf(std::string_view key) {
        const Place* place = Find(key);
        if (place == nullptr) return;
        const size_t slash = place->value.rfind('/');
        if (slash == std::string::npos) return;
        const std::string folder = place->value.substr(0, slash + 1);
        if (IsDirectory(place->value.c_str())) {
            Tell(place->line, std::string(key) + " is a file, not a folder");
        } else if (!IsDirectory(folder.c_str())) {
            Tell(place->line, std::string(key) + ": there is no folder " + folder);
        }
    }

    void CheckFilter(const AgentSettings& settings) {
        const Place* list = Find("filterlist");
        const Place* marks = Find("filtermarks");
        size_t entries = 0;
        for (std::string_view rest = settings.filterList; list != nullptr && !rest.empty();) {
            std::string_view entry = TakeItem(rest, "\n");
            if (entry.empty()) continue;
            ++entries;
            if (IsAddress(entry)) continue;
            Tell(list->line, "filterlist: " + Quoted(entry) +
                                 " is no address; ranges, names and networks do not count here");
        }
        if (marks != nullptr && marks->value.find_first_not_of("01") != std::string::npos) {
            Tell(marks->line, "filtermarks is a 1 or a 0 for each entry of filterlist");
        } else if ((list != nullptr) != (marks != nullptr)) {
            Tell(std::max(LineOf("filterlist"), LineOf("filtermarks")),
                 "filterlist and filtermarks need each other: set both");
        } else if (marks != nullptr && marks->value.size() != entries) {
            Tell(std::max(list->line, marks->line),
                 "entries of filterlist: " + std::to_string(entries) +
                     ", marks in filtermarks: " + std::to_string(marks->value.size()));
        }
        bool admits = !settings.filterActive;
        for (std::string_view rest = settings.activeFilter; !rest.empty() && !admits;) {
            admits = IsAddress(TakeItem(rest, "\n"));
        }
        if (!admits) {
            Tell(LineOf("filteractive"), "filteractive=1, and no active entry: nobody may connect");
        }
    }

    const char* path_;
    std::vector<ConfigMistake> mistakes_;
    std::map<std::string_view, Place> places_;
};

}  // namespace

std::vector<ConfigMistake> CheckConfig(const char* path) { return ConfigChecker(path).Check(); }

bool ReportConfigMistakes(const char* path) {
    std::vector<ConfigMistake> mistakes = CheckConfig(path);
    for (const ConfigMistake& mistake : mistakes) {
        std::string line = mistake.line != 0 ? std::to_string(mistake.line) + ":" : "";
        std::printf("%s:%s %s\n", path, line.c_str(), mistake.text.c_str());
    }
    return mistakes.empty();
}

}  // namespace zot
