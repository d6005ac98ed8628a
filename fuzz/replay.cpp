// Runs a fuzz target over files, and over all files of folders, without the fuzzer, so that any
// compiler can check that what was once found stays fixed. Variations of the files follow, the same
// in every run, so that each target's comparison with a plain algorithm covers more than its seeds.
//   NAME_replay [-VARIATIONS] FILE|FOLDER...
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace {

namespace fs = std::filesystem;

void Run(const std::string& bytes) {
    LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
}

void Replay(const fs::path& path, std::vector<std::string>& inputs) {
    std::ifstream file(path, std::ios::binary);
    std::string bytes{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    if (!file) return;
    std::printf("%s\n", path.c_str());
    std::fflush(stdout);
    Run(bytes);
    inputs.push_back(bytes);
}

// One of the inputs with a few pieces of others inserted, bytes removed and bytes changed.
std::string Variation(const std::vector<std::string>& inputs, std::mt19937& random) {
    auto pick = [&random](size_t count) { return random() % count; };
    std::string bytes = inputs[pick(inputs.size())];
    for (size_t changes = 1 + pick(8); changes > 0; --changes) {
        const std::string& other = inputs[pick(inputs.size())];
        size_t at = pick(bytes.size() + 1);
        size_t kind = pick(4);
        if (kind == 0) bytes.erase(at, pick(8));
        if (kind == 1 && at < bytes.size()) bytes[at] = static_cast<char>(random());
        if (kind > 1) bytes.insert(at, other, pick(other.size() + 1), pick(kind == 2 ? 24 : 4));
    }
    return bytes;
}

}  // namespace

int main(int argc, char** argv) {
    std::vector<std::string> inputs;
    int variations = 20000;
    for (int i = 1; i < argc; ++i) {
        if (argv[i][0] == '-') {
            variations = std::atoi(argv[i] + 1);
            continue;
        }
        // A target may change the working directory.
        fs::path path = fs::absolute(argv[i]);
        if (!fs::is_directory(path)) {
            Replay(path, inputs);
            continue;
        }
        for (const auto& entry : fs::directory_iterator(path)) Replay(entry.path(), inputs);
    }
    std::printf("%zu inputs\n", inputs.size());
    if (inputs.empty()) return 1;
    std::sort(inputs.begin(), inputs.end());  // folders list their files in any order
    std::mt19937 random(1);
    for (int i = 0; i < variations; ++i) Run(Variation(inputs, random));
    return 0;
}
