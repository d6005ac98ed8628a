#include "client/inventory.h"

#include <fnmatch.h>
#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <random>
#include <set>

#include "client/host_names.h"
#include "client/local_file.h"

namespace zot::client {
namespace {

// What one part of a selection means: "@group", a name, or a mask.
bool Matches(const Host& host, const std::string& part) {
    if (part.starts_with('@')) {
        return std::find(host.groups.begin(), host.groups.end(), part.substr(1)) !=
               host.groups.end();
    }
    return part == "all" || fnmatch(part.c_str(), host.name.c_str(), 0) == 0;
}

bool Mark(std::span<const Host> hosts, const std::string& text, std::vector<bool>& marks,
          std::string& error) {
    std::vector<std::string> parts;
    if (!ExpandNames(text, parts, error)) return false;
    for (const std::string& part : parts) {
        bool found = false;
        for (size_t i = 0; i < hosts.size(); ++i) {
            if (!Matches(hosts[i], part)) continue;
            marks[i] = found = true;
        }
        if (found) continue;
        error = "not in the list of hosts: " + part;
        return false;
    }
    return true;
}

}  // namespace

const Host* Inventory::Find(std::string_view name) const {
    auto found = std::lower_bound(
        byName_.begin(), byName_.end(), name,
        [this](size_t place, std::string_view wanted) { return hosts_[place].name < wanted; });
    if (found == byName_.end() || hosts_[*found].name != name) return nullptr;
    return &hosts_[*found];
}

bool Inventory::Select(const Selection& selection, std::vector<const Host*>& hosts,
                       std::string& error) const {
    std::vector<bool> chosen(hosts_.size(), selection.include.empty());
    std::vector<bool> left(hosts_.size());
    if (!Mark(hosts_, selection.include, chosen, error) ||
        !Mark(hosts_, selection.exclude, left, error)) {
        return false;
    }
    std::vector<const Host*> all;
    for (size_t i = 0; i < hosts_.size(); ++i) {
        if (chosen[i] && !left[i]) all.push_back(&hosts_[i]);
    }
    hosts.clear();
    if (selection.pick == 0) {
        hosts = std::move(all);
    } else {
        std::sample(all.begin(), all.end(), std::back_inserter(hosts), selection.pick,
                    std::mt19937(std::random_device()()));
    }
    if (!hosts.empty()) return true;
    error = hosts_.empty() ? "the list of hosts is empty" : "no host is left to ask";
    return false;
}

std::string ListLine(const Host& host) {
    std::string line = host.name + ":" + std::to_string(host.port);
    if (host.address != host.name) line += " addr=" + host.address;
    if (!host.passwordFile.empty()) line += " password=" + host.passwordFile;
    for (size_t i = 0; i < host.groups.size(); ++i) {
        line += (i == 0 ? " groups=" : ",") + host.groups[i];
    }
    return line;
}

bool ReadPasswordFile(const std::string& path, std::string& password, bool& forOthers,
                      std::string& error) {
    forOthers = false;
    if (!ReadFirstLine(path, password, error)) return false;
    if (password.empty()) {
        error = "password file " + path + " has no password on its first line";
        return false;
    }
    // In a folder that others cannot enter the file's own mode says little.
    struct stat file = {}, folder = {};
    std::string parent = std::filesystem::path(path).parent_path().string();
    forOthers = stat(path.c_str(), &file) == 0 && (file.st_mode & S_IROTH) != 0 &&
                stat(parent.empty() ? "." : parent.c_str(), &folder) == 0 &&
                (folder.st_mode & S_IXOTH) != 0;
    return true;
}

}  // namespace zot::client
