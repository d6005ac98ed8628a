// The hosts that may be asked, and no others: each with its address and the place of its password.
//
// An inventory is one of
//   - a folder with a password file for each host, named like the host ("web1" or "web1:1056");
//     files in a folder below belong to the group of that folder's name;
//   - a list with a line for each host, "NAME[:PORT] [addr=ADDRESS] [password=FILE] [groups=A,B]";
//     NAME may be a set, "web[1-10]", a user in front of it ("root@web1") is dropped, further words
//     without "=" are further hosts, "#" begins a comment; lists of other tools work as they are;
//   - JSON as Prometheus' file_sd has it: "targets" are hosts, a label "password" names the file,
//     "groups" the groups, and every other label NAME=VALUE is a group of that name.
#pragma once

#include <cstdint>
#include <iosfwd>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "client/target.h"

namespace zot::client {

struct Host {
    std::string name;     // as all output shows it: without port and address
    std::string address;  // a name or an IPv4 address to connect to
    uint16_t port = 1055;
    std::string passwordFile;  // empty: the common password, if there is one
    std::vector<std::string> groups;
};

struct Selection {
    std::string include{};  // "web[1-10],db*,@group", empty for all
    std::string exclude{};
    size_t pick = 0;  // how many of them, by chance; 0 for all
};

class Inventory {
  public:
    struct Defaults {
        uint16_t port = 1055;
        std::string passwordFile{};  // for hosts that name none; a folder has a file for each host
    };

    // Reads a folder, a list or JSON; "-" is a list or JSON on `input`. Relative password files are
    // relative to the list's folder. On failure returns nothing, with the error text, which names
    // the line.
    static std::optional<Inventory> Load(const std::string& path, const Defaults& defaults,
                                         std::istream& input, std::string& error);
    // Hosts that are named one by one: "web[1-10],db1:1056".
    static std::optional<Inventory> FromNames(std::string_view names, const Defaults& defaults,
                                              std::string& error);

    // In the order of the list; of a folder by name (web2 before web10).
    std::span<const Host> Hosts() const { return hosts_; }
    const Host* Find(std::string_view name) const;
    // The selected hosts in the inventory's order. False with the error text when a part of the
    // selection matches no host.
    bool Select(const Selection& selection, std::vector<const Host*>& hosts,
                std::string& error) const;

  private:
    friend class InventoryReader;
    std::vector<Host> hosts_;
    std::vector<size_t> byName_;  // their places, sorted by name
};

// The line of a list that describes the host. Paths of password files stay as they are.
std::string ListLine(const Host& host);

// Reads the first line of a password file, without its line end. `forOthers` tells whether users
// besides owner and group can read it. False with the error text, even for an empty line.
bool ReadPasswordFile(const std::string& path, std::string& password, bool& forOthers,
                      std::string& error);

}  // namespace zot::client
