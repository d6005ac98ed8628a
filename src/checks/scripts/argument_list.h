// Splits a command line into arguments without a shell: only blanks and whole quoted arguments have
// a meaning; variables, patterns and redirections are ordinary text.
#pragma once

#include <cstddef>
#include <string_view>

namespace zot {

class ArgumentList {
  public:
    static constexpr int kMaxArguments = 23;
    // Room for all arguments together, each with its terminating NUL.
    static constexpr size_t kArea = 1024;

    // Takes as many arguments as fit; the first one that does not, and all after it, are dropped.
    explicit ArgumentList(std::string_view line);
    ArgumentList(const ArgumentList&) = delete;
    ArgumentList& operator=(const ArgumentList&) = delete;

    int Count() const noexcept { return count_; }
    // NULL-terminated, as execve takes it; lives as long as the object.
    char** Arguments() noexcept { return arguments_; }

  private:
    int count_ = 0;
    char* arguments_[kMaxArguments + 1] = {};
    char area_[kArea];
};

}  // namespace zot
