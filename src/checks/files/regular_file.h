// Reads the content of files that a request names. Only regular files are opened: a fifo or a
// device in their place is refused without waiting for anybody at its other end.
#pragma once

#include <sys/stat.h>
#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <limits>
#include <string_view>

#include "base/mapped_bytes.h"
#include "base/owners.h"

namespace zot {

class RegularFile {
  public:
    RegularFile() = default;
    ~RegularFile();
    RegularFile(const RegularFile&) = delete;
    RegularFile& operator=(const RegularFile&) = delete;

    // Call once. Opens the file for reading from start to end. False when that fails or it is not a
    // regular file.
    bool Open(std::string_view path);

    // The size in bytes when it was opened.
    int64_t Size() const noexcept { return size_; }
    // Its status now. False, with errno, on an error.
    bool Stat(struct stat& status) const;
    // Continues reading at the offset from the start. False, with errno, when that is negative.
    bool Seek(int64_t offset);
    // Reads until the buffer holds `size` bytes or the file ends; fewer bytes mean its end. Returns
    // their number, or -1 with errno. It is also an error when the peer that asked has gone, and
    // after 64 MiB of a file whose content is made up while it is read, as under /proc.
    ssize_t Read(char* buffer, size_t size);

    // The bytes from `offset` to `end`, mapped; no matter where reading continues. Empty when they
    // cannot be had so, and when the peer that asked has gone.
    MappedBytes Map(int64_t offset, int64_t end) const;

    // Makes `other` the same open file, read from its start and independently of this one. False,
    // with errno, when no descriptor is left.
    bool Share(RegularFile& other) const;
    // Makes the file end at this offset for all further reads.
    void EndAt(int64_t offset) noexcept { end_ = offset; }

    // How many bytes from here on are zeros that nobody ever wrote; 0 where that is unknown. Asks
    // the system only if `lastRead`, the block read last, is all zeros.
    int64_t HoleAfter(std::string_view lastRead) const;
    // Skips `count` bytes of a hole.
    void Skip(int64_t count) noexcept { offset_ += count; }

  private:
    void Adopt(UniqueFd fd, int64_t size) noexcept;

    UniqueFd fd_;
    int64_t size_ = 0;
    int64_t offset_ = 0;
    int64_t end_ = std::numeric_limits<int64_t>::max();
    bool madeUp_ = false;
    bool locked_ = false;  // the agent holds a lock on it that closing drops
};

}  // namespace zot
