#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

#include "checks/files/file_tests.h"
#include "protocol/request_text.h"
#include "tests/support/file_tree.h"
#include "tests/support/temp_dir.h"

namespace zot {
namespace {

// The header lines joined by blanks, then the entries, each joined the same way and sorted.
std::vector<std::string> Listed(const std::string& params) {
    AgentSettings settings;
    settings.testTextLog = 1;
    Reply reply;
    GetFilesList(params, settings, reply);
    std::istringstream text{std::string(reply.Text().View())};
    std::string code, folder, count, perEntry, line;
    std::getline(text, code);
    std::getline(text, folder);
    std::getline(text, count);
    std::getline(text, perEntry);
    std::vector<std::string> entries;
    for (int number = 0; std::getline(text, line); ++number) {
        if (number % std::stoi(perEntry) == 0) {
            entries.push_back(line);
        } else {
            entries.back() += " " + line;
        }
    }
    std::sort(entries.begin(), entries.end());
    entries.insert(entries.begin(), code + " " + folder + " " + count + " " + perEntry);
    return entries;
}

std::string Flags(const std::string& digits) {
    std::string lines;
    for (char digit : digits) lines += std::string(1, digit) + "\n";
    return lines + "\r";
}

TEST(GetFilesList, PassesMasksAndColumns) {
    test::TempDir dir;
    test::MakeFile(dir / "a.txt", 3);
    test::MakeFile(dir / ".b.txt", 4);
    test::MakeFolder(dir / "sub");
    test::MakeFolder(dir / ".sub");
    test::MakeFifo(dir / "fifo.txt");
    test::MakeLink("a.txt", dir / "link.txt");
    test::SetModificationTime(dir / "a.txt", 0);
    using Lines = std::vector<std::string>;
    std::string folder = dir.Path() + "/";
    auto listed = [&](const std::string& mask, const std::string& flags) {
        return Listed(dir.Path() + "\n" + mask + "\n" + Flags(flags));
    };
    EXPECT_EQ(listed("*.txt", "1100000"),
              (Lines{"200 " + folder + " 3 2", ".. 16", "a.txt 0", "sub 16"}));
    EXPECT_EQ(listed("*.txt", "0111000"),
              (Lines{"200 " + folder + " 3 2", ".b.txt 2", "a.txt 0", "fifo.txt 4"}));
    EXPECT_EQ(listed("*.txt", "1010000"),
              (Lines{"200 " + folder + " 3 2", ".. 16", ".sub 18", "sub 16"}));
    EXPECT_EQ(listed("*", "0101000"), (Lines{"200 " + folder + " 2 2", "a.txt 0", "fifo.txt 4"}));

    std::tm epoch{};
    time_t zero = 0;
    char date[20];
    strftime(date, sizeof date, "%d%m%Y%H%M%S", localtime_r(&zero, &epoch));
    EXPECT_EQ(listed("a*", "0100101"),
              (Lines{"200 " + folder + " 1 4", std::string("a.txt 0      3 ") + date}));
    EXPECT_EQ(listed("a*", "0100010")[0], "200 " + folder + " 1 3");
    // A file stands for its folder, a folder that is missing for the one above it.
    EXPECT_EQ(Listed(dir / "a.txt" + "\nsub\n" + Flags("1000000"))[0], "200 " + folder + " 2 2");
    EXPECT_EQ(Listed(dir / "none/" + "\n*\n" + Flags("1111111")),
              Lines{"200 " + folder + "none/ 0 5"});
    EXPECT_EQ(Listed("\r")[0], "200 / 0 2");
    // A name with line breaks is still one line.
    test::MakeFile(dir / "x\n1\r");
    EXPECT_EQ(listed("x*", "0100000"), (Lines{"200 " + folder + " 1 2", "x%0A1%0D 0"}));
}

TEST(GetFilesList, AnswersALargeFolderWhole) {
    constexpr int kEntries = 20000;
    test::TempDir dir;
    test::TempDir sources;
    test::MakeFile(sources / "file");
    // Names are what counts, and many of one file are made and removed far faster than files.
    for (int i = 0; i < kEntries; ++i) {
        std::filesystem::create_hard_link(sources / "file", dir / ("entry-" + std::to_string(i)));
    }
    std::vector<std::string> listed = Listed(dir.Path() + "\n*\n" + Flags("0100111"));
    EXPECT_EQ(listed[0], "200 " + dir.Path() + "/ " + std::to_string(kEntries) + " 5");
    ASSERT_EQ(listed.size(), kEntries + 1U);
    EXPECT_EQ(std::unique(listed.begin(), listed.end()), listed.end());
    EXPECT_EQ(listed[1].substr(0, 17), "entry-0 0      0 ");
}

}  // namespace
}  // namespace zot
