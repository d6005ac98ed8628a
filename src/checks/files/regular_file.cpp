#include "checks/files/regular_file.h"

#include <errno.h>
#include <fcntl.h>
#include <unistd.h>

#include "base/files.h"
#include "base/vystring.h"

namespace zot {

bool RegularFile::Open(std::string_view path) {
    VyString terminated(path);
    fd_.Reset();
    // To open a tape or the reading end of a pipe already does something to it.
    if (!IsRegularFile(terminated.Terminate())) return false;
    fd_.Reset(open(terminated.Terminate(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    struct stat status {};
    if (!fd_ || fstat(fd_.Get(), &status) != 0 || !S_ISREG(status.st_mode)) {
        fd_.Reset();
        return false;
    }
    size_ = status.st_size;
    posix_fadvise(fd_.Get(), 0, 0, POSIX_FADV_SEQUENTIAL);
    return true;
}

bool RegularFile::Stat(struct stat& status) const { return fstat(fd_.Get(), &status) == 0; }

bool RegularFile::Seek(int64_t offset) { return lseek(fd_.Get(), offset, SEEK_SET) >= 0; }

ssize_t RegularFile::Read(char* buffer, size_t size) {
    size_t done = 0;
    while (done < size) {
        ssize_t count = read(fd_.Get(), buffer + done, size - done);
        if (count == 0) break;
        if (count > 0) {
            done += static_cast<size_t>(count);
        } else if (errno != EINTR) {
            return -1;
        }
    }
    return static_cast<ssize_t>(done);
}

}  // namespace zot
