#include "checks/files/file_content.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "tests/support/file_tree.h"
#include "tests/support/temp_dir.h"

namespace zot {
namespace {

TEST(SameContent, ComparesTheCommonLength) {
    test::TempDir dir;
    auto pattern = [](size_t size) {
        std::string text(size, '\0');
        for (size_t i = 0; i < size; ++i) text[i] = static_cast<char>(i * 7 + i / 251);
        return text;
    };
    std::string whole = dir.Write("whole", pattern(300000));
    for (size_t size : {0U, 1U, 10240U, 20480U, 131072U, 262144U, 299999U, 300000U}) {
        std::string text = pattern(size);
        EXPECT_EQ(SameContent(whole, dir.Write("part", text)), true) << size;
        EXPECT_EQ(SameContent(dir / "part", whole), true) << size;
        if (size == 0) continue;
        text.back() ^= 1;
        EXPECT_EQ(SameContent(whole, dir.Write("part", text)), false) << size;
    }
    test::MakeFifo(dir / "fifo");
    EXPECT_EQ(SameContent(whole, dir / "fifo"), std::nullopt);
    EXPECT_EQ(SameContent(dir / "none", whole), std::nullopt);
    EXPECT_EQ(SameContent("/proc/self/mem", whole), std::nullopt);  // opens, but cannot be read
}

// The search by its definition, one window after another.
bool DefinedSearch(const std::string& data, std::string text, bool caseSensitive, bool wholeWord) {
    auto lower = [caseSensitive](std::string& s) {
        if (!caseSensitive) std::transform(s.begin(), s.end(), s.begin(), ::tolower);
    };
    if (data.size() < text.size()) return false;
    lower(text);
    size_t bufferSize = std::min(data.size() + 1, 3 * text.size());
    std::string buffer;
    for (size_t position = 0;;) {
        std::string load = data.substr(position, bufferSize - buffer.size());
        bool endOfFile = load.size() < bufferSize - buffer.size();
        position += load.size();
        lower(load);
        buffer += load;
        for (size_t hit = 0; (hit = buffer.find(text, hit)) != std::string::npos;) {
            size_t end = hit + text.size();
            bool begins = hit == 0 || !isalnum(static_cast<unsigned char>(buffer[hit - 1]));
            bool ends = end == buffer.size() || !isalnum(static_cast<unsigned char>(buffer[end]));
            if (!wholeWord || (begins && ends)) return true;
            hit = end;
        }
        if (endOfFile) return false;
        buffer = buffer.substr(buffer.size() - text.size());
    }
}

TEST(FindInFile, AgreesWithTheDefinition) {
    test::TempDir dir;
    std::mt19937 random(20240229);
    int found = 0;
    for (int round = 0; round < 1000; ++round) {
        std::string data(random() % 60, ' ');
        for (char& c : data) c = "aaAb. \0"[random() % 7];
        std::string text(1 + random() % 5, 'a');
        for (char& c : text) c = "aaAb."[random() % 5];
        std::string path = dir.Write(std::to_string(round), data);
        for (int flags = 0; flags < 4; ++flags) {
            bool expected = DefinedSearch(data, text, flags & 1, flags & 2);
            found += expected ? 1 : 0;
            ASSERT_EQ(FindInFile(path, text, flags & 1, flags & 2), expected)
                << "text " << text << " data " << data << " flags " << flags;
        }
    }
    EXPECT_GT(found, 1000);
    EXPECT_LT(found, 3000);
}

TEST(FindInFile, TakesTextsLongerThanOneRead) {
    test::TempDir dir;
    std::string text(300000, 'x');
    text.front() = 'A';
    text.back() = '\0';
    std::string data(900000, 'x');
    data.replace(262143, text.size(), text);
    std::string path = dir.Write("data", data);
    EXPECT_EQ(FindInFile(path, text, true, false), true);
    text.front() = 'a';
    EXPECT_EQ(FindInFile(path, text, false, false), true);
    EXPECT_EQ(FindInFile(path, text, true, false), false);
}

// Whole words at the borders of the windows of nine bytes and of the blocks they are read in.
TEST(FindInFile, WordsAtTheEndOfABlock) {
    test::TempDir dir;
    constexpr size_t kBlockEnd = 9 + (262144 - 9) / 6 * 6;
    for (size_t at = kBlockEnd - 12; at < kBlockEnd; ++at) {
        for (size_t size = kBlockEnd; size < kBlockEnd + 8; ++size) {
            std::string data(size, 'x');
            data.replace(at, 3, "err");
            std::string path = dir.Write(std::to_string(at) + "-" + std::to_string(size), data);
            EXPECT_EQ(FindInFile(path, "err", true, true), DefinedSearch(data, "err", true, true))
                << at << " " << size;
        }
    }
}

TEST(FileContent, HolesCostNothingAndCountAsZeros) {
    constexpr int64_t kTerabyte = int64_t{1} << 40;
    test::TempDir dir;
    auto make = [&](const char* name, const char* end) {
        test::MakeFile(dir / name, kTerabyte);
        FILE* file = std::fopen((dir / name).c_str(), "a");
        std::fputs(end, file);
        std::fclose(file);
        return dir / name;
    };
    std::string hit = make("hit", "a hit");
    EXPECT_EQ(SameContent(hit, make("same", "a hit")), true);
    EXPECT_EQ(SameContent(hit, make("other", "a hot")), false);
    EXPECT_EQ(SameContent(hit, make("longer", "a hit and more")), true);
    for (bool wholeWord : {false, true}) {
        EXPECT_EQ(FindInFile(hit, "hit", true, wholeWord), true);
        EXPECT_EQ(FindInFile(hit, "hot", false, wholeWord), false);
        EXPECT_EQ(FindInFile(hit, {"\0a", 2}, true, wholeWord), true);
    }
}

// Files of this kind can have no end, whatever they are called.
TEST(FileContent, MadeUpFilesEnd) {
    for (const char* path : {"/proc/self/pagemap", "/proc/kcore"}) {
        if (FILE* file = std::fopen(path, "r")) {
            std::fclose(file);
            EXPECT_NE(SameContent(path, path), true) << path;
        }
    }
}

TEST(FindInFile, Errors) {
    test::TempDir dir;
    std::string file = dir.Write("file", "text");
    test::MakeFifo(dir / "fifo");
    EXPECT_EQ(FindInFile(file, "", true, false), std::nullopt);
    EXPECT_EQ(FindInFile("", "text", true, false), std::nullopt);
    EXPECT_EQ(FindInFile(dir / "none", "text", true, false), std::nullopt);
    EXPECT_EQ(FindInFile(dir / "fifo", "text", true, false), std::nullopt);
    EXPECT_EQ(FindInFile(file, "longer text", true, false), false);
    EXPECT_EQ(FindFileInFile(dir / "none", dir.Write("empty", "")), true);
    EXPECT_EQ(FindFileInFile(file, dir / "none"), std::nullopt);
    EXPECT_EQ(FindFileInFile(file, file), true);
    test::MakeFile(dir / "large", kMaxSoughtFile + 1);
    EXPECT_EQ(FindFileInFile(dir / "large", dir / "large"), std::nullopt);
}

}  // namespace
}  // namespace zot
