// A folder for a fuzz target that needs files: in memory where the system offers that, the working
// directory of the process, and removed at its end.
#pragma once

#include <stdlib.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>

namespace zot::fuzz {

class Scratch {
  public:
    Scratch() {
        for (const char* parent : {"/dev/shm", "/tmp"}) {
            path_ = std::string(parent) + "/zot-fuzz-XXXXXX";
            if (mkdtemp(path_.data()) != nullptr && chdir(path_.c_str()) == 0) return;
        }
        std::abort();
    }
    ~Scratch() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    Scratch(const Scratch&) = delete;
    Scratch& operator=(const Scratch&) = delete;

    const std::string& Path() const { return path_; }
    std::string operator/(std::string_view name) const { return path_ + "/" + std::string(name); }

    static void Write(const std::string& path, std::string_view content) {
        std::ofstream(path, std::ios::binary).write(content.data(), std::ssize(content));
    }
    static std::string Read(const std::string& path) {
        std::ifstream file(path, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    }

  private:
    std::string path_;
};

// The input up to the first line feed; `input` keeps what follows it.
inline std::string_view TakeLine(std::string_view& input) {
    std::string_view line = input.substr(0, input.find('\n'));
    input.remove_prefix(line.size() < input.size() ? line.size() + 1 : line.size());
    return line;
}

// Takes the first byte of the input, 0 when there is none.
inline unsigned char TakeByte(std::string_view& input) {
    if (input.empty()) return 0;
    auto byte = static_cast<unsigned char>(input.front());
    input.remove_prefix(1);
    return byte;
}

// A property that must hold whatever the input is.
inline void Require(bool holds) {
    if (!holds) std::abort();
}

}  // namespace zot::fuzz
