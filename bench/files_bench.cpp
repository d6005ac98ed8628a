// The file tests beside tools that do the same on the same data, as ratios: below 1 the agent is
// faster. Each side runs in its own process; the fastest of several runs counts.
//
//     files_bench [FOLDER [MEBIBYTES]]
//
// Makes a tree of 100,000 files and two files of MEBIBYTES (1024) in a new folder below FOLDER (the
// system's temporary folder), and removes them again. The walks use two processors when they are
// free, so theirs is the ratio of wall time, on a machine that does nothing else.
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <random>
#include <string>
#include <vector>

#include "checks/files/file_checks.h"

namespace {

using Words = std::vector<std::string>;

struct Cost {
    double wall = 1e9;
    double processor = 1e9;  // user and system time
};

void ImproveBy(Cost& best, const std::function<void()>& work) {
    auto begin = std::chrono::steady_clock::now();
    pid_t child = fork();
    if (child == 0) {
        work();
        _exit(0);
    }
    int status = 0;
    rusage used{};
    if (wait4(child, &status, 0, &used) != child || status != 0) {
        std::fputs("a run failed\n", stderr);
        std::exit(1);
    }
    std::chrono::duration<double> wall = std::chrono::steady_clock::now() - begin;
    auto seconds = [](timeval time) {
        return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) * 1e-6;
    };
    best.wall = std::min(best.wall, wall.count());
    best.processor = std::min(best.processor, seconds(used.ru_utime) + seconds(used.ru_stime));
}

using Handler = void(std::string_view, const zot::AgentSettings&, zot::Reply&);

void RunHandler(Handler* handler, const Words& lines) {
    std::string params;
    for (const std::string& line : lines) params += line + "\n";
    zot::Reply reply;
    handler(params, zot::AgentSettings(), reply);
    if (reply.Code() != "200") _exit(1);
}

void RunTool(const Words& words) {
    std::vector<char*> arguments;
    for (const std::string& word : words) arguments.push_back(const_cast<char*>(word.c_str()));
    arguments.push_back(nullptr);
    if (freopen("/dev/null", "w", stdout) == nullptr) _exit(1);
    execvp(arguments[0], arguments.data());
    _exit(1);
}

void Compare(const char* title, Handler* handler, const Words& lines, const Words& tool) {
    Cost ours;
    Cost theirs;
    for (int run = 0; run < 5; ++run) {
        ImproveBy(ours, [&] { RunHandler(handler, lines); });
        ImproveBy(theirs, [&] { RunTool(tool); });
    }
    std::string name = tool[0] == "openssl" ? tool[0] + " dgst " + tool[2] : tool[0];
    std::printf("%-18s %7.1f ms  %-20s %7.1f ms  ratio %.2f (wall %.2f)\n", title,
                ours.processor * 1e3, name.c_str(), theirs.processor * 1e3,
                ours.processor / theirs.processor, ours.wall / theirs.wall);
    std::fflush(stdout);
}

void MakeTree(const std::string& top) {
    for (int folder = 0; folder < 1000; ++folder) {
        std::string path = top + "/" + std::to_string(folder % 10) + "/" + std::to_string(folder);
        std::filesystem::create_directories(path);
        for (size_t file = 0; file < 100; ++file) {
            std::ofstream(path + "/file-" + std::to_string(file)) << std::string(file * 10, 'x');
        }
    }
}

void MakeFile(const std::string& path, size_t mebibytes) {
    std::mt19937_64 random(1);
    std::vector<uint64_t> block(1 << 17);
    std::ofstream file(path, std::ios::binary);
    for (size_t i = 0; i < mebibytes; ++i) {
        for (uint64_t& word : block) word = random();
        file.write(reinterpret_cast<const char*>(block.data()), 1 << 20);
    }
}

void CompareTree(const std::string& tree) {
    using namespace zot;
    auto count = [&tree](const char* mode, const char* value) {
        return Words{tree, "*", "1", mode, value, "0", "0", "0", "0", "0", "0"};
    };
    Words size{tree, "1", "0", "0", "0", "0", "0", "0"};
    Words find{"find", tree, "-type", "f"};
    auto findWith = [&find](Words more) {
        more.insert(more.begin(), find.begin(), find.end());
        more.insert(more.end(), {"-printf", "x"});
        return more;
    };
    Compare("folder size", TestFolderSize, size, {"du", "-sb", tree});
    Compare("count all", TestCountFiles, count("0", "0"), findWith({}));
    Compare("count bigger", TestCountFiles, count("3", "500"), findWith({"-size", "+500c"}));
    Compare("count newer", TestCountFiles, count("2", "60"), findWith({"-mmin", "-60"}));
}

void CompareContent(const std::string& file, const std::string& copy) {
    using namespace zot;
    struct {
        const char* title;
        const char* number;
        const char* name;
        const char* tool;
    } hashes[] = {
        {"MD5", "1", "-md5", "md5sum"},
        {"SHA-256", "2", "-sha256", "sha256sum"},
        {"SHA-512", "3", "-sha512", "sha512sum"},
    };
    for (const auto& hash : hashes) {
        Words lines{file, hash.number, "0"};
        Compare(hash.title, TestFileHash, lines, {"openssl", "dgst", hash.name, file});
        Compare(hash.title, TestFileHash, lines, {hash.tool, file});
    }
    Compare("CRC-32", TestFileHash, {file, "0", "0"}, {"cksum", file});
    Compare("compare", TestFileCompare, {"1", file, copy, "0", "0", "1", "0"}, {"cmp", file, copy});
    Compare("find text", TestFileCompare, {"3", file, "not in there", "1", "0", "0"},
            {"sh", "-c", "grep -acF 'not in there' " + file + " || true"});
}

}  // namespace

int main(int argc, char** argv) {
    std::string top = argc > 1 ? argv[1] : std::filesystem::temp_directory_path().string();
    top += "/zot-files-bench-XXXXXX";
    if (mkdtemp(top.data()) == nullptr) return 1;
    MakeTree(top + "/tree");
    CompareTree(top + "/tree");
    MakeFile(top + "/file", argc > 2 ? std::strtoul(argv[2], nullptr, 10) : 1024);
    std::filesystem::copy_file(top + "/file", top + "/copy");
    CompareContent(top + "/file", top + "/copy");
    std::filesystem::remove_all(top);
}
