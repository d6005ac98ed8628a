// Which hosts a run asks, and with which password. A password goes only to hosts that the command
// line or the inventory names.
#pragma once

#include <string>
#include <vector>

#include "client/inventory.h"
#include "client/invocation.h"
#include "client/target.h"

namespace zot::client {

struct ChosenHost {
    Host host;
    Target target;
    std::string fault;  // why it cannot be asked: its password file, for example
};

struct Choice {
    std::vector<ChosenHost> hosts;
    bool many = false;  // the output names the hosts
};

// False with the error text when the options make no sense or no host is left. A missing password
// is such an error for a single host; where there are many it is only that host's fault.
bool ChooseHosts(Invocation& call, Choice& choice, std::string& error);

}  // namespace zot::client
