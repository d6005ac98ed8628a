// Which hosts a run asks, and with which password. A password goes to nobody but the hosts that the
// command line or the inventory names.
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
    std::string fault;  // why it cannot be asked: its password file, say
};

struct Choice {
    std::vector<ChosenHost> hosts;
    bool many = false;  // the output names the hosts
};

// False with the error text when the options make no sense or nobody is left. A single host without
// a password is such a fault; one of many is a fault of its own.
bool ChooseHosts(Invocation& call, Choice& choice, std::string& error);

}  // namespace zot::client
