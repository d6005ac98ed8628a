#include "client/module_file.h"

#include <cstdint>
#include <cstring>
#include <span>

#include "base/sha2.h"
#include "client/local_file.h"
#include "client/text.h"
#include "client/upgrade_transfer.h"

namespace zot::client {
namespace {

constexpr std::string_view kElfMark =
    "\x7F"
    "ELF";

// A little-endian number of an ELF file; 0 beyond its end.
uint64_t NumberAt(std::string_view file, uint64_t offset, size_t size) {
    if (offset > file.size() || size > file.size() - offset) return 0;
    uint64_t value = 0;
    for (size_t i = size; i-- > 0;) {
        value = value << 8 | static_cast<uint8_t>(file[static_cast<size_t>(offset) + i]);
    }
    return value;
}

// The program that loads it, according to its PT_INTERP; empty for a static one.
std::string_view Interpreter(std::string_view file) {
    constexpr uint64_t kInterpreter = 3;
    bool wide = NumberAt(file, 4, 1) == 2;
    uint64_t table = wide ? NumberAt(file, 32, 8) : NumberAt(file, 28, 4);
    uint64_t entrySize = NumberAt(file, wide ? 54 : 42, 2);
    uint64_t count = NumberAt(file, wide ? 56 : 44, 2);
    if (table > file.size()) return {};
    for (uint64_t i = 0; i < count; ++i) {
        uint64_t entry = table + i * entrySize;
        if (NumberAt(file, entry, 4) != kInterpreter) continue;
        uint64_t offset = wide ? NumberAt(file, entry + 8, 8) : NumberAt(file, entry + 4, 4);
        uint64_t size = wide ? NumberAt(file, entry + 32, 8) : NumberAt(file, entry + 16, 4);
        if (offset > file.size()) return {};
        std::string_view path = file.substr(static_cast<size_t>(offset),
                                            static_cast<size_t>(std::min<uint64_t>(size, 4096)));
        return path.substr(0, path.find('\0'));
    }
    return {};
}

// "Linux" or "FreeBSD"; empty when the file does not say.
std::string_view SystemOf(std::string_view file) {
    constexpr uint64_t kGnu = 3, kFreeBsd = 9;
    uint64_t abi = NumberAt(file, 7, 1);
    if (abi == kFreeBsd) return "FreeBSD";
    if (abi == kGnu) return "Linux";
    std::string_view loader = Interpreter(file);
    if (loader.find("ld-linux") != std::string_view::npos) return "Linux";
    if (loader.find("ld-musl") != std::string_view::npos) return "Linux";
    if (loader.find("ld-elf.so") != std::string_view::npos) return "FreeBSD";
    return {};
}

}  // namespace

bool ReadModule(const std::string& path, std::string& module, std::string& error) {
    if (!ReadWholeFile(path, kMaxModuleSize, module, error)) return false;
    if (module.size() >= kMinModuleSize) return true;
    error = path + " has less than " + std::to_string(kMinModuleSize) +
            " bytes, which agents do not take";
    return false;
}

std::string ModuleDigest(std::string_view module) {
    Sha256 hash;
    uint8_t digest[Sha256::kDigestSize];
    hash.Update({reinterpret_cast<const uint8_t*>(module.data()), module.size()});
    hash.Final(digest);
    return HexText(digest);
}

std::string ModuleFault(std::string_view module) {
    if (module.starts_with("#!")) return {};
    if (!module.starts_with(kElfMark)) return "neither an ELF executable nor a script";
    constexpr uint64_t kExecutable = 2, kShared = 3;  // today's executables are both
    uint64_t type = NumberAt(module, 16, 2);
    return type == kExecutable || type == kShared ? "" : "an ELF file, but not an executable";
}

std::string ModuleMisfit(std::string_view module, std::string_view runningOs) {
    if (!module.starts_with(kElfMark)) return {};
    std::string_view wanted = runningOs.substr(0, runningOs.find(' '));
    std::string_view built = SystemOf(module);
    if (wanted.empty() || built.empty() || wanted == built) return {};
    return "it was built for " + std::string(built) + ", and the host runs " + std::string(wanted);
}

}  // namespace zot::client
