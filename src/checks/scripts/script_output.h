// Reads what a script left in its output file.
#pragma once

#include <cstdio>
#include <string_view>

#include "base/owners.h"

namespace zot {

class ScriptOutput {
  public:
    // Opens the file; false if it is gone or cannot be read.
    bool Open(const char* path);

    // The next line with its line feed, at most 511 characters: a longer line comes in pieces.
    // False at the end of the file. The text lives until the next call.
    bool NextLine(std::string_view& line);

    void Rewind() { std::rewind(file_.get()); }

    // The number at the start of the output, after blanks; false without one.
    bool ReadInt(int& value);
    bool ReadFloat(float& value);

  private:
    const char* FirstWord();

    UniqueFile file_;
    char buffer_[512];
};

}  // namespace zot
