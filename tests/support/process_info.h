// What another process holds, as its system tells. Where the system does not tell, these throw: a
// test must not pass on what nobody saw.
#pragma once

#include <sys/types.h>

#include <map>
#include <string>

namespace zot::test {

// Memory that is really there.
long ResidentKib(pid_t pid);
long ThreadCount(pid_t pid);

// The open descriptors, each with the path of what it refers to; other texts where it has no path.
std::map<int, std::string> DescriptorsOf(pid_t pid);

// The arguments, each with its terminating NUL.
std::string CommandLineOf(pid_t pid);

// How often the text stands in the writable memory of the process.
int CountInMemory(pid_t pid, const std::string& text);

}  // namespace zot::test
