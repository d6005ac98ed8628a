#include "tests/support/ordinary_user.h"

#include <fcntl.h>
#include <grp.h>
#include <sys/wait.h>
#include <unistd.h>

#include "base/owners.h"

namespace zot::test {
namespace {

constexpr unsigned kNobody = 65534;

bool DropRoot() {
    if (geteuid() != 0) return true;
    return setgroups(0, nullptr) == 0 && setgid(kNobody) == 0 && setuid(kNobody) == 0;
}

}  // namespace

std::string AsOrdinaryUser(const std::function<std::string()>& work) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) return "pipe failed";
    UniqueFd reader(ends[0]);
    UniqueFd writer(ends[1]);
    pid_t child = fork();
    if (child == 0) {
        std::string result = DropRoot() ? work() : "cannot drop root";
        bool written = write(writer.Get(), result.data(), result.size()) ==
                       static_cast<ssize_t>(result.size());
        _exit(written ? 0 : 1);
    }
    writer.Reset();
    std::string result;
    char buffer[4096];
    for (ssize_t n; (n = read(reader.Get(), buffer, sizeof buffer)) > 0;) {
        result.append(buffer, static_cast<size_t>(n));
    }
    int status = 0;
    waitpid(child, &status, 0);
    return status == 0 ? result : "child failed: " + result;
}

}  // namespace zot::test
