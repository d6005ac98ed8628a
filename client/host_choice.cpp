#include "client/host_choice.h"

#include <filesystem>
#include <istream>
#include <optional>

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
        if (open_.empty()) return;
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
        } else if (call_.environment.password && *call_.environment.password) {
            chosen.target.password = call_.environment.password;
        } else {
            chosen.fault = "no password: name a file with password= or -P, or set ZOT_PASSWORD";
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

// The host of -H as the usual inventory knows it, if no password was given for it.
std::optional<ChosenHost> FindKnown(const Invocation& call) {
    const Options& options = call.options;
    bool given = !options.passwordFile.empty() || call.environment.password;
    std::string path = DefaultInventory(call.environment);
    if (given || !options.hostGiven || path.empty()) return {};
    std::string ignored;
    auto inventory = LoadInventory(call, path, ignored);
    const Host* host = inventory ? inventory->Find(options.target.host) : nullptr;
    if (!host) return {};
    ChosenHost chosen = PasswordReader(call).Take(*host);
    if (options.portGiven) chosen.target.port = options.target.port;
    return chosen;
}

}  // namespace

bool ChooseHosts(Invocation& call, Choice& choice, std::string& error) {
    const Options& options = call.options;
    bool many = !options.hosts.empty() || !options.exclude.empty() || options.pick > 0 ||
                (options.hostGiven && IsSelection(options.target.host));
    if (many) return ChooseMany(call, choice, error);
    if (auto known = FindKnown(call)) {
        error = known->fault;
        choice.hosts.push_back(std::move(*known));
        return error.empty();
    }
    if (!TakePassword(call, error)) return false;
    ChosenHost& chosen = choice.hosts.emplace_back();
    chosen.host.name = chosen.host.address = options.target.host;
    chosen.host.port = options.target.port;
    chosen.host.passwordFile = options.passwordFile;
    chosen.target = options.target;
    return true;
}

}  // namespace zot::client
