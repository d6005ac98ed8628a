#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>

#include "base/owners.h"
#include "tests/support/process_info.h"
#include "tests/support/temp_dir.h"

namespace zot::test {
namespace {

std::string Folder(pid_t pid) { return "/proc/" + std::to_string(pid); }

long StatusValue(pid_t pid, const std::string& name) {
    std::ifstream status(Folder(pid) + "/status");
    for (std::string line; std::getline(status, line);) {
        if (line.starts_with(name + ":")) return std::atol(line.c_str() + name.size() + 1);
    }
    throw std::runtime_error("no " + name + " of process " + std::to_string(pid));
}

}  // namespace

long ResidentKib(pid_t pid) { return StatusValue(pid, "VmRSS"); }

long ThreadCount(pid_t pid) { return StatusValue(pid, "Threads"); }

int LargestNice(pid_t pid) {
    int largest = -20;
    for (const auto& task : std::filesystem::directory_iterator(Folder(pid) + "/task")) {
        const auto thread = static_cast<id_t>(std::stoi(task.path().filename()));
        largest = std::max(largest, getpriority(PRIO_PROCESS, thread));
    }
    return largest;
}

std::map<int, std::string> DescriptorsOf(pid_t pid) {
    std::map<int, std::string> descriptors;
    for (const auto& entry : std::filesystem::directory_iterator(Folder(pid) + "/fd")) {
        // A descriptor that was closed since the folder was opened has no target any more.
        std::error_code closed;
        std::string target = std::filesystem::read_symlink(entry.path(), closed);
        if (!closed) descriptors[std::stoi(entry.path().filename())] = target;
    }
    return descriptors;
}

std::string CommandLineOf(pid_t pid) {
    std::string arguments = ReadFile(Folder(pid) + "/cmdline");
    if (arguments.empty()) throw std::runtime_error("no command line");
    return arguments;
}

int CountInMemory(pid_t pid, const std::string& text) {
    std::ifstream maps(Folder(pid) + "/maps");
    UniqueFd memory(open((Folder(pid) + "/mem").c_str(), O_RDONLY | O_CLOEXEC));
    if (!maps || !memory) throw std::runtime_error("the memory cannot be read");
    int count = 0;
    for (std::string line; std::getline(maps, line);) {
        size_t start = 0;
        size_t end = 0;
        char rights[5] = "";
        if (sscanf(line.c_str(), "%zx-%zx %4s", &start, &end, rights) != 3) continue;
        // A checker's shadow memory is larger than any machine.
        if (rights[1] != 'w' || end - start > size_t{256} << 20) continue;
        std::string bytes(end - start, '\0');
        ssize_t got = pread(memory.Get(), bytes.data(), bytes.size(), static_cast<off_t>(start));
        bytes.resize(static_cast<size_t>(std::max<ssize_t>(got, 0)));
        for (size_t at = bytes.find(text); at != std::string::npos; at = bytes.find(text, at + 1))
            ++count;
    }
    return count;
}

}  // namespace zot::test
