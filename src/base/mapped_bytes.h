// A part of a file, mapped into memory for reading: no copy is made of it.
//
// Another program may cut the file short meanwhile, or its disk may fail. Looking at the bytes then
// raises a signal that would end the process. The guard catches it: the bytes become zeros, and
// IsWhole tells. Without the guard nothing is mapped.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace zot {

// Catches the signal in every thread, from here on. Call before there are other threads.
void GuardMappedBytes();

// Belongs to the thread that made it, which has one at a time.
class MappedBytes {
  public:
    // `size` bytes from `offset` on; the file must have them. Empty when they cannot be mapped or
    // should rather be read.
    MappedBytes(int fd, int64_t offset, size_t size) noexcept;
    ~MappedBytes();
    MappedBytes(const MappedBytes&) = delete;
    MappedBytes& operator=(const MappedBytes&) = delete;

    std::string_view View() const noexcept { return view_; }

    // False when bytes that were looked at could not be had, and zeros were seen in their place.
    bool IsWhole() const noexcept { return whole_; }

    // Puts zeros in the place of all bytes if `address` is among them. Async-signal-safe.
    bool ReplaceIfAt(const void* address) noexcept;

  private:
    char* begin_ = nullptr;
    size_t size_ = 0;  // of the mapping, from the page where it begins
    std::string_view view_;
    volatile bool whole_ = true;
};

}  // namespace zot
