#include "client/host_choice.h"

#include <filesystem>
#include <istream>
#include <optional>

#include "base/vystring.h"
#include "client/host_names.h"

namespace zot::client {
namespace {

// The inventory's usual place: where packages and ports keep configurations.
std::string DefaultInventory(const Environment& environment) {
    if (environment.hosts && *environment.hosts) return environment.hosts;
    std::error_code ignored;
    for (const char* path : {"/etc/zot/hosts", "/usr/local/etc/zot/hosts"}) {
        if (std::filesystem::exists(path, ignored)) return path;
    }
    return {};
}

bool IsSelection(const std::string& host) {
    return host == "all" || host.find_first_of("[],*?@") != std::string::npos;
}

// Only an inventory knows what these mean.
bool NeedsInventory(const std::string& host) {
    return host == "all" || host.find_first_of("*?@") != std::string::npos;
}

std::optional<Inventory> LoadInventory(const Invocation& call, const std::string& path,
                                       std::string& error) {
    const Options& options = call.options;
    return Inventory::Load(path, {options.target.port, options.passwordFile}, call.console.in,
                           error);
}

std::optional<Inventory> FindInventory(const Invocation& call, std::string& error) {
    const Options& options = call.options;
    if (!options.hosts.empty() && options.hosts != "all") {
        return LoadInventory(call, options.hosts, error);
    }
    std::string path = DefaultInventory(call.environment);
    if (!path.empty()) return LoadInventory(call, path, error);
    bool named = options.hosts.empty() && options.hostGiven &&
                 !NeedsInventory(options.target.host) && options.exclude.empty();
    if (named) {
        return Inventory::FromNames(options.target.host,
                                    {options.target.port, options.passwordFile}, error);
    }
    error = "there is no list of hosts: name one with --hosts, or make the folder /etc/zot/hosts";
    return {};
}

class PasswordReader {
  public:
    explicit PasswordReader(const Invocation& call) : call_(call) {}
    ~PasswordReader() {
        // A plugin prints its one line.
        if (open_.empty() || call_.options.plugin) return;
        Note(call_.console, "others can read the password of " + FoldNames(open_));
    }

    ChosenHost Take(const Host& host) {
        ChosenHost chosen = {host, call_.options.target, {}};
        chosen.target.host = host.address;
        chosen.target.port = host.port;
        if (!host.passwordFile.empty()) {
            bool forOthers = false;
            ReadPasswordFile(host.passwordFile, chosen.target.password, forOthers, chosen.fault);
            if (forOthers) open_.push_back(host.name);
        } else if (call_.environment.password) {
            // Cut out of a configuration with CR LF, it would have a CR at its end.
            chosen.target.password = TrimView(call_.environment.password);
        }
        if (chosen.target.password.empty() && chosen.fault.empty()) {
            chosen.fault = "no password: name a file with -P or set ZOT_PASSWORD";
        }
        return chosen;
    }

  private:
    const Invocation& call_;
    std::vector<std::string> open_;
};

bool ChooseMany(const Invocation& call, Choice& choice, std::string& error) {
    const Options& options = call.options;
    auto inventory = FindInventory(call, error);
    std::vector<const Host*> hosts;
    Selection selection = {options.hostGiven ? options.target.host : "", options.exclude,
                           options.pick};
    if (!inventory || !inventory->Select(selection, hosts, error)) return false;
    PasswordReader passwords(call);
    for (const Host* host : hosts) choice.hosts.push_back(passwords.Take(*host));
    choice.many = true;
    return true;
}

// The inventory that has the password of -H; empty when somebody gave one, or there is none.
std::string KnownWhere(const Invocation& call) {
    bool given = !call.options.passwordFile.empty() || call.environment.password;
    return given || !call.options.hostGiven ? "" : DefaultInventory(call.environment);
}

// The host of -H as the usual inventory knows it. False with the error text when the inventory
// cannot be read; `chosen` stays empty where it does not have the host.
bool FindKnown(const Invocation& call, std::optional<ChosenHost>& chosen, std::string& error) {
    const Options& options = call.options;
    const std::string path = KnownWhere(call);
    if (path.empty()) return true;
    auto inventory = LoadInventory(call, path, error);
    if (!inventory) return false;
    const Host* host = inventory->Find(options.target.host);
    if (!host) return true;
    chosen = PasswordReader(call).Take(*host);
    if (options.portGiven) chosen->target.port = options.target.port;
    error = chosen->fault;
    return error.empty();
}

// The host of -H, of which no inventory knows.
bool MakeHost(const Invocation& call, ChosenHost& chosen, std::string& error) {
    const Options& options = call.options;
    if (options.passwordFile.empty()) {
        chosen.host.name = chosen.host.address = options.target.host;
        chosen.host.port = options.target.port;
    } else {
        // In a folder there is a file for each host.
        auto inventory = Inventory::FromNames(options.target.host,
                                              {options.target.port, options.passwordFile}, error);
        if (!inventory || inventory->Hosts().size() != 1) {
            if (inventory) error = "not a name of a host: " + options.target.host;
            return false;
        }
        chosen.host = inventory->Hosts()[0];
    }
    chosen = PasswordReader(call).Take(chosen.host);
    error = chosen.fault;
    if (error.empty()) return true;
    if (const std::string path = KnownWhere(call); !path.empty()) {
        error += " (" + options.target.host + " is not in " + path + ")";
    }
    return false;
}

}  // namespace

bool ChooseHosts(Invocation& call, Choice& choice, std::string& error) {
    const Options& options = call.options;
    bool many = !options.hosts.empty() || !options.exclude.empty() || options.pick > 0 ||
                (options.hostGiven && IsSelection(options.target.host));
    if (many) return ChooseMany(call, choice, error);
    std::optional<ChosenHost> known;
    if (!FindKnown(call, known, error)) return false;
    ChosenHost& chosen = choice.hosts.emplace_back();
    if (!known) return MakeHost(call, chosen, error);
    chosen = std::move(*known);
    return true;
}

}  // namespace zot::client
