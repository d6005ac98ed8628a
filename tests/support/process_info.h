// What another process holds, according to its system. Where the system does not say, these throw:
// a test must not pass on what nobody saw.
#pragma once

#include <sys/types.h>

#include <map>
#include <string>

namespace zot::test {

// The memory that is really in use.
long ResidentKib(pid_t pid);
long ThreadCount(pid_t pid);

// The largest nice value of its threads.
int LargestNice(pid_t pid);

// The open descriptors, each with the path of what it refers to, or another text if it has none.
std::map<int, std::string> DescriptorsOf(pid_t pid);

// The arguments, each with its terminating NUL.
std::string CommandLineOf(pid_t pid);

// How often the text occurs in the writable memory of the process.
int CountInMemory(pid_t pid, const std::string& text);

}  // namespace zot::test
