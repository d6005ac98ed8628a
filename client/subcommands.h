// The subcommands of zotq, one table for dispatch, help, completion and the nearest name. Each
// takes the words after the options, prints, and returns an ExitStatus.
#pragma once

#include <span>
#include <string>
#include <string_view>

#include "client/invocation.h"
#include "client/options.h"

namespace zot::client {

struct Subcommand {
    std::string_view name;
    std::string_view arguments;
    size_t minWords;
    size_t maxWords;
    Scope scope;
    bool wordsOnly;  // the first word ends the options
    int (*run)(Invocation& call);
    std::string_view help;
};

extern const std::span<const Subcommand> kSubcommands;

const Subcommand* FindSubcommand(std::string_view name);
// The name of a subcommand or of an agent's command that was probably meant; empty when none is
// similar.
std::string NearestCommand(std::string_view word);

// COMMAND [PARAM ...]: sends a request unchanged; prints one host's reply unchanged unless another
// form was chosen.
int SendRequest(Invocation& call);
// The checks, each in a file of its kind.
int AskDisk(Invocation& call);
int AskSize(Invocation& call);
int AskFiles(Invocation& call);
int AskAge(Invocation& call);
int AskHash(Invocation& call);
int AskProcess(Invocation& call);
int AskCpu(Invocation& call);
int AskTcp(Invocation& call);
int AskLog(Invocation& call);
int AskScript(Invocation& call);
int AskStatus(Invocation& call);
int AskInfo(Invocation& call);
// hosts: shows which hosts the options choose, and asks none.
int ShowHosts(Invocation& call);
// settings: shows the settings.
int ShowSettings(Invocation& call);
// set NAME=VALUE ...: changes settings, all or none of them.
int ChangeSettings(Invocation& call);
// upgrade FILE: replaces the agent's executable and waits for the new agent.
int UpgradeAgent(Invocation& call);

}  // namespace zot::client
