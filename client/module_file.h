// The executable that an upgrade sends: reads it, identifies it by its digest, and checks it before
// it goes to a host that could not run it.
#pragma once

#include <string>
#include <string_view>

namespace zot::client {

// Reads a file of the size that agents take. False with the error text.
bool ReadModule(const std::string& path, std::string& module, std::string& error);

// SHA-256 in hexadecimal digits.
std::string ModuleDigest(std::string_view module);

// Why the file is not an executable: neither ELF nor a script; empty when it is one.
std::string ModuleFault(std::string_view module);
// Why a host with this "RunningOS" ("Linux 6.1 ...") could not run it; empty when nothing suggests
// that. The host's processor is not known.
std::string ModuleMisfit(std::string_view module, std::string_view runningOs);

}  // namespace zot::client
