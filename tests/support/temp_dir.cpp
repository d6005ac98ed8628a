#include "tests/support/temp_dir.h"

#include <stdlib.h>

#include <fstream>
#include <iterator>
#include <stdexcept>

namespace zot::test {

TempDir::TempDir() {
    std::string name = (std::filesystem::temp_directory_path() / "zot-test-XXXXXX").string();
    if (mkdtemp(name.data()) == nullptr) throw std::runtime_error("mkdtemp " + name);
    path_ = name;
}

TempDir::~TempDir() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

std::string TempDir::Write(std::string_view name, std::string_view content) const {
    std::string path = *this / name;
    std::ofstream file(path, std::ios::binary);
    file.write(content.data(), static_cast<std::streamsize>(content.size()));
    if (!file.flush()) throw std::runtime_error("cannot write " + path);
    return path;
}

std::string ReadFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

}  // namespace zot::test
