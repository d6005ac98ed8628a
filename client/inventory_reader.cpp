// Reads the three kinds of inventory.
#include <algorithm>
#include <filesystem>
#include <istream>
#include <iterator>
#include <map>
#include <nlohmann/json.hpp>
#include <sstream>

#include "base/numbers.h"
#include "base/vystring.h"
#include "client/host_names.h"
#include "client/inventory.h"
#include "client/local_file.h"
#include "client/text.h"

namespace zot::client {

namespace fs = std::filesystem;

class InventoryReader {
  public:
    InventoryReader(const Inventory::Defaults& defaults, fs::path base)
        : defaults_(defaults), base_(std::move(base)) {}

    bool ReadFolder(const std::string& path, const std::string& group);
    bool ReadText(const std::string& text);
    bool ReadNames(std::string_view names);
    Inventory Take();
    std::string Error() const { return error_; }

  private:
    bool ReadList(const std::string& text);
    bool ReadLine(std::string_view line);
    bool ReadTargets(const std::string& text);
    bool ReadAttribute(const std::string& word, Host& attributes);
    bool Add(const std::string& word, const Host& attributes);
    bool AddOne(Host host);
    std::string PasswordFile(const Host& host) const;
    bool Fail(std::string error) {
        error_ = std::move(error);
        return false;
    }

    const Inventory::Defaults& defaults_;
    fs::path base_;  // for relative password files
    Inventory inventory_;
    std::map<std::string, size_t> known_;
    std::string error_;
};

namespace {

constexpr size_t kMaxListSize = size_t{64} << 20;
constexpr int32_t kMaxPort = 65535;

// A name is printed, and may become part of a path.
bool IsName(std::string_view name) {
    return !name.empty() && name != "." && name != ".." &&
           std::all_of(name.begin(), name.end(), [](char c) {
               auto byte = static_cast<unsigned char>(c);
               return byte > 32 && byte < 127 && c != '/' && c != ':' && c != ',' && c != '@';
           });
}

// Compares numbers inside names by value: web2 before web10.
bool ComesBefore(const std::string& a, const std::string& b) {
    size_t i = 0, j = 0;
    auto digits = [](const std::string& text, size_t from) {
        size_t end = from;
        while (end < text.size() && text[end] >= '0' && text[end] <= '9') ++end;
        return std::string_view(text).substr(from, end - from);
    };
    while (i < a.size() && j < b.size()) {
        std::string_view left = digits(a, i), right = digits(b, j);
        if (!left.empty() && !right.empty()) {
            int64_t x = ToInt64(left), y = ToInt64(right);
            if (x != y) return x < y;
            i += left.size();
            j += right.size();
        } else if (a[i] != b[j]) {
            return a[i] < b[j];
        } else {
            ++i;
            ++j;
        }
    }
    return a.size() - i < b.size() - j;
}

std::vector<std::string> SplitList(const std::string& text) {
    std::vector<std::string> parts;
    std::istringstream stream(text);
    for (std::string part; std::getline(stream, part, ',');) {
        if (!part.empty()) parts.push_back(part);
    }
    return parts;
}

}  // namespace

Inventory InventoryReader::Take() {
    // The map has the names in order.
    for (const auto& [name, place] : known_) inventory_.byName_.push_back(place);
    return std::move(inventory_);
}

std::string InventoryReader::PasswordFile(const Host& host) const {
    std::error_code ignored;
    fs::path path = host.passwordFile;
    if (path.empty()) {
        path = defaults_.passwordFile;
    } else if (path.is_relative()) {
        path = base_ / path;
    }
    if (path.empty()) return {};
    return fs::absolute(fs::is_directory(path, ignored) ? path / host.name : path).string();
}

bool InventoryReader::AddOne(Host host) {
    if (!IsName(host.name)) return Fail("not a name of a host: " + host.name);
    if (host.address.empty()) host.address = host.name;
    host.passwordFile = PasswordFile(host);
    auto [place, isNew] = known_.emplace(host.name, inventory_.hosts_.size());
    if (isNew) {
        inventory_.hosts_.push_back(std::move(host));
        return true;
    }
    Host& same = inventory_.hosts_[place->second];
    if (same.address != host.address || same.port != host.port) {
        return Fail("the host " + host.name + " is there twice, with another address or port");
    }
    for (std::string& group : host.groups) {
        if (std::find(same.groups.begin(), same.groups.end(), group) == same.groups.end()) {
            same.groups.push_back(std::move(group));
        }
    }
    return true;
}

// A word that names hosts: "root@web[1-3]:1056".
bool InventoryReader::Add(const std::string& word, const Host& attributes) {
    std::string names = word.substr(word.find('@') + 1);  // 0 if there is no user
    Host host = attributes;
    if (size_t colon = names.find(':'); colon != std::string::npos) {
        int32_t port = 0;
        if (!ParseInt(std::string_view(names).substr(colon + 1), port) || port < 1 ||
            port > kMaxPort) {
            return Fail("not a port: " + names);
        }
        host.port = static_cast<uint16_t>(port);
        names.resize(colon);
    }
    std::vector<std::string> expanded;
    if (!ExpandNames(names, expanded, error_)) return false;
    if (expanded.size() > 1 && !host.address.empty()) {
        return Fail("one address for several hosts: " + word);
    }
    return std::all_of(expanded.begin(), expanded.end(), [&](const std::string& name) {
        host.name = name;
        return AddOne(host);
    });
}

bool InventoryReader::ReadAttribute(const std::string& word, Host& attributes) {
    size_t equals = word.find('=');
    std::string name = word.substr(0, equals), value = word.substr(equals + 1);
    if (name == "addr") {
        attributes.address = value;
        if (!IsName(value)) return Fail("not an address: " + value);
    } else if (name == "password") {
        attributes.passwordFile = value;
    } else if (name == "groups") {
        attributes.groups = SplitList(value);
    } else {
        return Fail("not known: " + word + " (there are addr=, password= and groups=)");
    }
    return !value.empty() || Fail("no value: " + word);
}

bool InventoryReader::ReadLine(std::string_view line) {
    line = line.substr(0, line.find('#'));
    std::istringstream words{std::string(line)};
    std::vector<std::string> names;
    Host attributes;
    attributes.port = defaults_.port;
    for (std::string word; words >> word;) {
        if (word.find('=') == std::string::npos) {
            names.push_back(word);
        } else if (!ReadAttribute(word, attributes)) {
            return false;
        }
    }
    if (names.empty() && line.find('=') != std::string_view::npos) {
        return Fail("not a name of a host");
    }
    if (names.size() > 1 && !attributes.address.empty()) {
        return Fail("one address for several hosts: " + names[1]);
    }
    return std::all_of(names.begin(), names.end(),
                       [&](const std::string& name) { return Add(name, attributes); });
}

bool InventoryReader::ReadList(const std::string& text) {
    std::istringstream lines(text);
    std::string line;
    for (int number = 1; std::getline(lines, line); ++number) {
        if (!ReadLine(line)) return Fail("line " + std::to_string(number) + ": " + error_);
    }
    return true;
}

bool InventoryReader::ReadTargets(const std::string& text) {
    using nlohmann::json;
    json groups = json::parse(text, nullptr, false);
    if (!groups.is_array()) return Fail("begins like JSON, but is no list of targets");
    for (const json& group : groups) {
        if (!group.is_object() || !group.contains("targets") || !group["targets"].is_array()) {
            return Fail("an entry of the JSON list has no \"targets\"");
        }
        Host attributes;
        attributes.port = defaults_.port;
        const json labels = group.value("labels", json::object());
        for (const auto& [name, value] : labels.items()) {
            if (!value.is_string()) return Fail("the label " + name + " is no text");
            std::string content = value.get<std::string>();
            if (name == "password") {
                attributes.passwordFile = content;
            } else if (name == "groups") {
                for (std::string& part : SplitList(content)) attributes.groups.push_back(part);
            } else {
                attributes.groups.push_back(Concat({name, "=", content}));
            }
        }
        for (const json& target : group["targets"]) {
            if (!target.is_string()) return Fail("a target is not a text");
            if (!Add(target.get<std::string>(), attributes)) return false;
        }
    }
    return true;
}

bool InventoryReader::ReadText(const std::string& text) {
    size_t begin = text.find_first_not_of(" \t\r\n");
    bool isJson = begin != std::string::npos && (text[begin] == '[' || text[begin] == '{');
    return isJson ? ReadTargets(text) : ReadList(text);
}

bool InventoryReader::ReadFolder(const std::string& path, const std::string& group) {
    std::error_code failure;
    std::vector<std::string> files, folders;
    for (fs::directory_iterator entry(path, failure), end; !failure && entry != end;
         entry.increment(failure)) {
        std::string name = entry->path().filename().string();
        if (name.starts_with('.') || name.ends_with('~')) continue;
        std::error_code ignored;
        if (entry->is_regular_file(ignored)) files.push_back(name);
        if (entry->is_directory(ignored) && group.empty()) folders.push_back(name);
    }
    if (failure) return Fail("cannot read " + path + ": " + failure.message());
    std::sort(files.begin(), files.end(), ComesBefore);
    std::sort(folders.begin(), folders.end(), ComesBefore);
    Host attributes;
    attributes.port = defaults_.port;
    if (!group.empty()) attributes.groups.push_back(group);
    for (const std::string& file : files) {
        attributes.passwordFile = (fs::absolute(path) / file).string();
        if (!Add(file, attributes)) return false;
    }
    return std::all_of(folders.begin(), folders.end(), [&](const std::string& folder) {
        return ReadFolder((fs::path(path) / folder).string(), folder);
    });
}

bool InventoryReader::ReadNames(std::string_view names) {
    // Each name may have a port of its own, so they are handled one by one.
    std::vector<std::string> expanded;
    if (!ExpandNames(names, expanded, error_)) return false;
    Host attributes;
    attributes.port = defaults_.port;
    return std::all_of(expanded.begin(), expanded.end(),
                       [&](const std::string& name) { return Add(name, attributes); });
}

std::optional<Inventory> Inventory::Load(const std::string& path, const Defaults& defaults,
                                         std::istream& input, std::string& error) {
    std::error_code failure;
    bool isFolder = path != "-" && fs::is_directory(path, failure);
    fs::path base = path == "-" ? fs::path() : fs::path(path).parent_path();
    InventoryReader reader(defaults, base);
    if (isFolder) {
        if (reader.ReadFolder(path, "")) return reader.Take();
    } else {
        std::string text;
        if (path == "-") {
            text.assign(std::istreambuf_iterator<char>(input), {});
        } else if (!ReadWholeFile(path, kMaxListSize, text, error)) {
            return {};
        }
        if (reader.ReadText(text)) return reader.Take();
    }
    error = (path == "-" ? "the list of hosts" : path) + ": " + reader.Error();
    return {};
}

std::optional<Inventory> Inventory::FromNames(std::string_view names, const Defaults& defaults,
                                              std::string& error) {
    InventoryReader reader(defaults, {});
    if (reader.ReadNames(names)) return reader.Take();
    error = reader.Error();
    return {};
}

}  // namespace zot::client
