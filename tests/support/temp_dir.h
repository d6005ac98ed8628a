// A test's own directory, removed with everything in it.
#pragma once

#include <filesystem>
#include <string>
#include <string_view>

namespace zot::test {

class TempDir {
  public:
    TempDir();
    ~TempDir();
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    const std::string& Path() const { return path_; }
    // The path of an entry of the directory.
    std::string operator/(std::string_view name) const { return path_ + "/" + std::string(name); }
    // Writes a file into the directory and returns its path.
    std::string Write(std::string_view name, std::string_view content) const;

  private:
    std::string path_;
};

// The whole content of a file; empty when it cannot be read.
std::string ReadFile(const std::string& path);

}  // namespace zot::test
