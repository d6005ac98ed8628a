// Reads the configuration file: its lines in pieces of limited length, each split into key and
// value.
#pragma once

#include <stdio.h>

#include <cstddef>
#include <string_view>

#include "base/owners.h"
#include "base/vystring.h"

namespace zot {

// The longest line; the rest of a longer one counts as a line of its own.
inline constexpr size_t kMaxConfigLine = 1023;

// Reads a file line by line and leaves no copy of its passwords in memory.
class ConfigReader {
  public:
    ConfigReader();
    ~ConfigReader();
    ConfigReader(const ConfigReader&) = delete;
    ConfigReader& operator=(const ConfigReader&) = delete;

    // False when the file cannot be opened or is not a regular file: a reload must not wait for a
    // fifo in its place.
    bool Open(const char* path);
    // REQUIRES an open file. Gives the next line with its line end, at most kMaxConfigLine bytes
    // and never beyond a NUL; it is valid until the next call. False at the end of the file.
    bool Next(std::string_view& line);
    // Whether an error ended the reading.
    bool Failed() const { return ferror(file_.get()) != 0; }
    int Descriptor() const { return fileno(file_.get()); }

  private:
    VyString streamBuffer_;
    VyString line_;
    UniqueFile file_;
};

struct ConfigLine {
    std::string_view key;    // in the case in which it is written
    size_t valueAt = 0;      // offset of the value in the line
    std::string_view value;  // without its line end and the blanks around it
};

// Splits a line. False for comments and for lines that set nothing.
bool SplitConfigLine(std::string_view line, ConfigLine& parts);

}  // namespace zot
