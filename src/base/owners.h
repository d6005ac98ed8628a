// Small owners: each holds one descriptor, stream or directory and closes it exactly once.
#pragma once

#include <dirent.h>
#include <unistd.h>

#include <cstdio>
#include <memory>
#include <utility>

namespace zot {

class UniqueFd {
  public:
    UniqueFd() = default;
    explicit UniqueFd(int fd) noexcept : fd_(fd) {}
    UniqueFd(UniqueFd&& other) noexcept : fd_(other.Release()) {}
    UniqueFd& operator=(UniqueFd&& other) noexcept {
        Reset(other.Release());
        return *this;
    }
    ~UniqueFd() { Reset(); }

    int Get() const noexcept { return fd_; }
    explicit operator bool() const noexcept { return fd_ >= 0; }
    // Gives the descriptor away; the caller closes it.
    int Release() noexcept { return std::exchange(fd_, -1); }
    void Reset(int fd = -1) noexcept {
        int old = std::exchange(fd_, fd);
        if (old >= 0 && old != fd) close(old);
    }

  private:
    int fd_ = -1;
};

struct CloseStream {
    void operator()(FILE* stream) const noexcept { fclose(stream); }
};
using UniqueFile = std::unique_ptr<FILE, CloseStream>;

struct CloseDirectory {
    void operator()(DIR* directory) const noexcept { closedir(directory); }
};
using UniqueDir = std::unique_ptr<DIR, CloseDirectory>;

}  // namespace zot
