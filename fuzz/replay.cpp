// Runs a fuzz target over files, and over all files of folders, without the fuzzer: any compiler
// can check that what was once found stays mended.
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace {

namespace fs = std::filesystem;

int Replay(const fs::path& path) {
    std::ifstream file(path, std::ios::binary);
    std::string bytes{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    if (!file) return 0;
    std::printf("%s\n", path.c_str());
    std::fflush(stdout);
    LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
    return 1;
}

}  // namespace

int main(int argc, char** argv) {
    int inputs = 0;
    for (int i = 1; i < argc; ++i) {
        // A target may change the working directory.
        fs::path path = fs::absolute(argv[i]);
        if (!fs::is_directory(path)) {
            inputs += Replay(path);
            continue;
        }
        for (const auto& entry : fs::directory_iterator(path)) inputs += Replay(entry.path());
    }
    std::printf("%d inputs\n", inputs);
    return inputs > 0 ? 0 : 1;
}
