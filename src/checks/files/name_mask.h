// A shell wildcard pattern for the names of a folder: "*" and "?" also match a leading dot.
#pragma once

#include <fnmatch.h>

#include <string_view>

#include "base/vystring.h"

namespace zot {

class NameMask {
  public:
    NameMask() { text_.Terminate(); }
    explicit NameMask(std::string_view text) : text_(text), everything_(text == "*") {
        text_.Terminate();
    }

    // The pattern, NUL-terminated.
    const char* Text() const noexcept { return text_.Data(); }
    bool Matches(const char* name) const {
        return everything_ || fnmatch(text_.Data(), name, 0) == 0;
    }

  private:
    VyString text_;
    bool everything_ = false;
};

}  // namespace zot
