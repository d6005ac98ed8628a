// Names for temporary files, and the files themselves: created exclusively, never through a link,
// and removed with their owner.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "base/owners.h"

namespace zot {

// A number that no other call in this process gets: the process id in the upper bits of a 32-bit
// value, plus a sequence number.
int64_t UniqueId();

// Writes a path in `tmpDir` (empty for the root, as in the settings) into the buffer: that of
// `fixedName` or, without one, a name for which no regular file exists. Creates nothing. False,
// with an empty buffer, when the buffer is smaller than 16 bytes or too small for the path, or when
// no free name was found.
bool MakeTempName(std::string_view tmpDir, char* buffer, size_t size, const char* fixedName);

// One temporary file of mode 0600, removed with the object.
class TempFile {
  public:
    enum class Result { kCreated, kNoName, kNotCreated };

    TempFile() = default;
    TempFile(const TempFile&) = delete;
    TempFile& operator=(const TempFile&) = delete;
    ~TempFile() { Remove(); }

    // Creates the file, open for writing. With a `prefix` its name is prefix + unique number +
    // ".txt", otherwise MakeTempName's own form. Names that are taken are skipped.
    Result Create(std::string_view tmpDir, std::string_view prefix = {});

    const char* Path() const noexcept { return path_; }
    // Writes all of it; false on a short write.
    bool Write(std::string_view content);
    // Sets the mode of the file; false with errno on failure.
    bool SetMode(unsigned mode);
    void Close() noexcept { file_.Reset(); }

  private:
    void Remove() noexcept;

    char path_[512] = "";
    UniqueFd file_;
};

}  // namespace zot
