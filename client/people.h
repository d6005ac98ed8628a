// What the subcommands for people share: they choose hosts, ask them and print what they answer.
#pragma once

#include <string>
#include <vector>

#include "client/host_run.h"
#include "client/invocation.h"

namespace zot::client {

// Asks the chosen hosts these questions, in their order, and prints the reports. All questions have
// the same command.
int AskQuestions(Invocation& call, std::vector<Question> questions);

// The same with a task for each host. The reports have the fields of `command`'s reply.
int AskTasks(Invocation& call, const std::string& command, const TaskMaker& makeTask);

// Chooses the hosts and checks the names of fields; on an error prints it and returns false, with
// the exit status.
bool Prepare(Invocation& call, const std::vector<std::string>& fields, Choice& choice, int& status);

}  // namespace zot::client
