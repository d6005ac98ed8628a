#include "tests/support/file_tree.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>
#include <system_error>

#include "base/owners.h"

namespace zot::test {
namespace {

void Check(bool done, const std::string& path) {
    if (!done) throw std::system_error(errno, std::generic_category(), path);
}

}  // namespace

void MakeFolder(const std::string& path, unsigned mode) {
    Check(mkdir(path.c_str(), 0755) == 0, path);
    SetMode(path, mode);
}

void MakeFile(const std::string& path, int64_t size, unsigned mode) {
    UniqueFd fd(open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644));
    Check(fd && (size == 0 || ftruncate(fd.Get(), size) == 0), path);
    if (mode != 0644) Check(fchmod(fd.Get(), static_cast<mode_t>(mode)) == 0, path);
}

void MakeFifo(const std::string& path) { Check(mkfifo(path.c_str(), 0666) == 0, path); }

void MakeSocket(const std::string& path) {
    UniqueFd fd(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
    Check(bind(fd.Get(), reinterpret_cast<sockaddr*>(&address), sizeof address) == 0, path);
}

void MakeLink(const std::string& target, const std::string& path) {
    Check(symlink(target.c_str(), path.c_str()) == 0, path);
}

void SetMode(const std::string& path, unsigned mode) {
    Check(chmod(path.c_str(), static_cast<mode_t>(mode)) == 0, path);
}

void SetModificationTime(const std::string& path, time_t seconds) {
    timespec times[2] = {{seconds, 0}, {seconds, 0}};
    Check(utimensat(AT_FDCWD, path.c_str(), times, AT_SYMLINK_NOFOLLOW) == 0, path);
}

}  // namespace zot::test
