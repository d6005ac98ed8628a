#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <ctime>
#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

#include "checks/files/file_checks.h"
#include "checks/files/file_hash.h"
#include "tests/support/file_tree.h"
#include "tests/support/ordinary_user.h"
#include "tests/support/temp_dir.h"

namespace zot {
namespace {

using Handler = void(std::string_view, const AgentSettings&, Reply&);

std::string Answer(Handler& handler, const std::string& params) {
    Reply reply;
    handler(params, AgentSettings(), reply);
    return std::string(reply.Text().View());
}

// Parameter lines by number; the others hold "0".
std::string Lines(std::initializer_list<std::pair<int, std::string>> values) {
    std::vector<std::string> lines(21, std::string(1, '0'));
    for (const auto& [number, text] : values) lines[static_cast<size_t>(number)] = text;
    std::string result;
    for (size_t number = 1; number <= 20; ++number) result += lines[number] + "\n";
    return result + "\r";
}

std::string DateText(time_t time) {
    char text[20];
    std::tm local{};
    strftime(text, sizeof text, "%d%m%Y%H%M%S", localtime_r(&time, &local));
    return text;
}

TEST(FileTests, Unc) {
    auto answer = [](const std::string& path) { return Answer(TestUnc, path + "\n\r"); };
    EXPECT_EQ(answer(""), "501\nPath not specified\n");
    EXPECT_EQ(answer("\\"), "501\nPath not specified\n");
    EXPECT_EQ(answer("/no/such"), "301\nNo such file or directory\n");
    // A file system without a size where processes are files, otherwise a tiny one, always full.
    std::string steady = access("/proc/self", F_OK) == 0 ? "/proc" : "/dev";
    struct statvfs space {};
    ASSERT_EQ(statvfs(steady.c_str(), &space), 0);
    std::string total = std::to_string(space.f_blocks * space.f_frsize);
    total.insert(0, 6 - std::min<size_t>(total.size(), 6), ' ');
    EXPECT_EQ(answer(steady + "\\"), "200\n" + total + "\n     0\n     0\n0\n");
    ASSERT_EQ(statvfs("/", &space), 0);
    total = std::to_string(space.f_blocks * space.f_frsize);
    EXPECT_EQ(answer("/").substr(0, 5 + total.size()), "200\n" + total + "\n");
}

TEST(FileTests, FolderSize) {
    test::TempDir dir;
    auto answer = [&dir](const std::string& path, const char* deep, const char* macros = "0") {
        return Answer(TestFolderSize, Lines({{1, dir / path}, {2, deep}, {8, macros}}));
    };
    EXPECT_EQ(answer("", "0"), "200\n     0\n");
    test::MakeFolder(dir / "sub");
    test::MakeFile(dir / "sub/file", 123456789);
    EXPECT_EQ(answer("", "01"), "200\n     0\n");
    EXPECT_EQ(answer("", "1"), "200\n123456789\n");
    EXPECT_EQ(answer("%newestfolder%", "0", "1"), "200\n123456789\n");
    EXPECT_EQ(answer("%newestfolder%/x", "0"), "301\nFolder/File doesn`t exist or access denied\n");
}

TEST(FileTests, CountFiles) {
    test::TempDir dir;
    auto answer = [&dir](const std::string& folder, const char* mode, const char* value,
                         const char* macros = "0") {
        return Answer(
            TestCountFiles,
            Lines({{1, dir / folder}, {2, "*.txt"}, {4, mode}, {5, value}, {11, macros}}));
    };
    EXPECT_EQ(answer("", "0", "0"), "200\n0\n");
    test::MakeFolder(dir / "sub");
    test::MakeFile(dir / "sub/a.txt", 5);
    EXPECT_EQ(answer("%oldestfolder%", "3", "+4", "1"), "200\n1\n");
    EXPECT_EQ(answer("sub", "3", "5"), "200\n0\n");
    EXPECT_EQ(answer("sub", "none", "0"), "200\n1\n");
    for (const char* mode : {"6", "-1"}) EXPECT_EQ(answer("", mode, "0"), "501\nWrong parameter\n");
    for (const char* value : {"x", "1x", "1 2"}) {
        EXPECT_EQ(answer("", "0", value), "501\nWrong parameter\n");
    }
    EXPECT_EQ(answer("none", "0", "0"), "301\nFolder doesn`t exist or access denied\n");
}

TEST(FileTests, FileExists) {
    test::TempDir dir;
    auto answer = [&dir](const std::string& path, const char* macros = "0") {
        return Answer(TestFileExists, Lines({{1, dir / path}, {7, macros}}));
    };
    test::MakeFile(dir / "access_1.log", 77);
    test::MakeLink("access_1.log", dir / "link");
    test::SetModificationTime(dir / "access_1.log", std::time(nullptr) - 7210);
    struct stat status {};
    ASSERT_EQ(lstat((dir / "access_1.log").c_str(), &status), 0);
    std::string found = "200\n    77\n" + DateText(status.st_ctime) + "\n" +
                        DateText(status.st_mtime) + "\n" + dir / "access_1.log" + "\nmin\n120\n";
    EXPECT_EQ(answer("access_1.log"), found);
    EXPECT_EQ(answer("access*.log"), found);
    EXPECT_EQ(answer("%oldestfile%", "1"), found);
    EXPECT_EQ(answer("link").substr(0, 11), "200\n    12\n");  // the link itself
    test::MakeFile(dir / "two\r\nlines");
    EXPECT_NE(answer("two*").find(dir / "two%0D%0Alines" + "\nmin\n"), std::string::npos);
    EXPECT_EQ(answer("*.txt"), "301\nno such file or acess denied\n");
}

TEST(FileTests, FileCompare) {
    test::TempDir dir;
    std::string one = dir.Write("one", "error: Err. in\n");
    std::string two = dir.Write("two", "error: Err.");
    test::SetModificationTime(one, 1000);
    test::SetModificationTime(two, (int64_t{1} << 32) + 1000);
    test::MakeFolder(dir / "sub");
    std::string inSub = dir.Write("sub/file", "Err");
    std::string macro = dir / "sub/%newestfile%";
    std::string empty = dir.Write("empty", "");
    test::MakeFile(dir / "8MB", 0x800000);
    test::MakeFile(dir / "9MB", 0x800001);
    test::MakeFifo(dir / "fifo");
    const std::string yes = "200\n1\n";
    const std::string no = "200\n0\n";
    const std::string missing = "301\nFile doesn`t exist\n";
    struct {
        std::string params, answer;
    } cases[] = {
        {Lines({{1, "1"}, {2, one}, {3, inSub}}), yes},
        {Lines({{1, "1"}, {2, one}, {3, two}, {4, "1"}, {6, "1"}}), yes},  // 32 bits; a prefix
        {Lines({{1, "1"}, {2, one}, {3, inSub}, {4, "1"}}), no},
        {Lines({{1, "1"}, {2, one}, {3, two}, {5, "1"}, {6, "1"}}), no},
        {Lines({{1, "1"}, {2, one}, {3, inSub}, {6, "1"}}), no},
        {Lines({{1, "1"}, {2, macro}, {3, macro}, {5, "1"}, {12, "1"}, {13, "1"}}), yes},
        {Lines({{1, "1"}, {2, macro}, {3, one}, {13, "1"}}), missing},
        {Lines({{1, "1"}, {2, one}, {3, dir / "fifo"}}), missing},
        {Lines({{1, "2"}, {2, one}, {3, inSub}}), yes},
        {Lines({{1, "2"}, {2, macro}, {3, one}, {9, "1"}}), no},
        {Lines({{1, "2"}, {2, one}, {3, macro}, {9, "1"}, {10, "1"}}), missing},  // none in file 2
        {Lines({{1, "2"}, {2, one}, {3, empty}}), yes},
        {Lines({{1, "2"}, {2, dir / "8MB"}, {3, dir / "8MB"}}), yes},
        {Lines({{1, "2"}, {2, one}, {3, dir / "9MB"}}),
         "301\nThe size of the second file cannot exceed 8Mb\n"},
        {Lines({{1, "3"}, {2, one}, {3, "ERR"}}), yes},
        {Lines({{1, "3"}, {2, one}, {3, "ERR"}, {4, "1"}}), no},
        {Lines({{1, "3"}, {2, one}, {3, "err"}, {5, "1"}}), yes},
        {Lines({{1, "3"}, {2, one}, {3, "rro"}, {5, "1"}}), no},
        {Lines({{1, "3"}, {2, macro}, {3, "Err"}, {11, "1"}}), yes},
        {Lines({{1, "3"}, {2, macro}, {3, "Err"}, {12, "1"}}), missing},
        {"3\n" + one + "\n\n\r", "301\nI/O Error\n"},
        {Lines({{1, "4"}, {2, one}}), "501\nWrong parameter\n"},
        {Lines({{1, "4"}, {2, dir / "none"}}), missing},
        {Lines({{1, "3"}, {2, dir.Path()}, {3, "x"}}), missing},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(Answer(TestFileCompare, c.params), c.answer) << c.params;
    }
}

std::string Hash(const std::string& file, const std::string& algorithm,
                 const std::string& limit = "0") {
    return Answer(TestFileHash, file + "\n" + algorithm + "\n" + limit + "\n\r");
}

TEST(FileHash, ValuesAndErrors) {
    test::TempDir dir;
    test::SetMode(dir.Path(), 0755);
    std::string digits = dir.Write("digits", "123456789");
    std::string abc = dir.Write("abc", "abc");
    // The check value of the CRC is 0xCBF43926; its complement is the register itself.
    EXPECT_EQ(Hash(digits, "0"), "200\n873187033\n");
    EXPECT_EQ(Hash(abc, "1"), "200\n900150983cd24fb0d6963f7d28e17f72\n");
    EXPECT_EQ(Hash(abc, "2"),
              "200\nba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad\n");
    EXPECT_EQ(Hash(abc, "3"),
              "200\nddaf35a193617abacc417349ae20413112e6fa4e89a97ea20a9eeee64b55d39a"
              "2192992a274fc1a836ba3c23a3feebbd454d4423643ce80e2a9ac94fa54ca49f\n");
    for (const char* unknown : {"4", "-1"}) EXPECT_EQ(Hash(abc, unknown), "301\n\n");
    EXPECT_EQ(Hash(dir / "none", "1"), "301\nFile doesn`t exist\n");
    EXPECT_EQ(Hash(dir.Path(), "1"), "301\nFile doesn`t exist\n");
    test::MakeFifo(dir / "fifo");
    EXPECT_EQ(Hash(dir / "fifo", "9"), "301\nFile doesn`t exist\n");
    test::SetMode(abc, 0600);
    EXPECT_EQ(test::AsOrdinaryUser([&] { return Hash(abc, "1"); }), "301\nCannot open file\n");

    VyString value;
    std::string_view errorText;
    EXPECT_EQ(HashFile("", HashAlgorithm::kMd5, value, errorText), 0);
    EXPECT_EQ(errorText, "File is not specified");
    EXPECT_EQ(HashFile(dir / "fifo", HashAlgorithm::kMd5, value, errorText), 0);
    EXPECT_EQ(errorText, "Cannot open file");
}

// Sizes that are multiples of the old block size give an error, however the file is read now.
TEST(FileHash, MultiplesOfTheBlock) {
    test::TempDir dir;
    for (int64_t size : {0, 20480, 40960, 655360}) {
        test::MakeFile(dir / std::to_string(size), size);
        EXPECT_EQ(Hash(dir / std::to_string(size), "0"), "301\nRead error\n") << size;
    }
    for (int64_t size : {1, 20479, 20481, 131072, 262144}) {
        test::MakeFile(dir / std::to_string(size), size);
        EXPECT_EQ(Hash(dir / std::to_string(size), "0").substr(0, 4), "200\n") << size;
    }
    test::MakeFile(dir / "zeros", 131072);
    EXPECT_EQ(Hash(dir / "zeros", "1"), "200\n0dfbe8aa4c20b52e1b8bf3cb6cbdf193\n");
}

TEST(FileHash, SizeLimit) {
    test::TempDir dir;
    test::MakeFile(dir / "file", 2000000);
    test::MakeFile(dir / "huge", int64_t{5000} << 20);
    EXPECT_EQ(Hash(dir / "file", "0", "100"), "200\nFile size 1 MB\n");
    EXPECT_EQ(Hash(dir / "file", "9", "1999999"), "200\nFile size 1 MB\n");
    EXPECT_EQ(Hash(dir / "huge", "2", "4294967297"), "200\nFile size 5000 MB\n");
    for (const char* none : {"2000000", "0", "-5", "none"}) {
        EXPECT_EQ(Hash(dir / "file", "0", none).size(), 15U) << none;
    }
}

// The header lines joined by blanks, then the entries, each joined the same way and sorted.
std::vector<std::string> Listed(const std::string& params) {
    std::istringstream text(Answer(GetFilesList, params));
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
    using Entries = std::vector<std::string>;
    std::string folder = dir.Path() + "/";
    auto listed = [&](const std::string& mask, const std::string& flags) {
        return Listed(dir.Path() + "\n" + mask + "\n" + Flags(flags));
    };
    EXPECT_EQ(listed("*.txt", "1100000"),
              (Entries{"200 " + folder + " 3 2", ".. 16", "a.txt 0", "sub 16"}));
    EXPECT_EQ(listed("*.txt", "0111000"),
              (Entries{"200 " + folder + " 3 2", ".b.txt 2", "a.txt 0", "fifo.txt 4"}));
    EXPECT_EQ(listed("*.txt", "1010000"),
              (Entries{"200 " + folder + " 3 2", ".. 16", ".sub 18", "sub 16"}));
    EXPECT_EQ(listed("*", "0101000"), (Entries{"200 " + folder + " 2 2", "a.txt 0", "fifo.txt 4"}));

    std::tm epoch{};
    time_t zero = 0;
    char date[20];
    strftime(date, sizeof date, "%d%m%Y%H%M%S", localtime_r(&zero, &epoch));
    EXPECT_EQ(listed("a*", "0100101"),
              (Entries{"200 " + folder + " 1 4", std::string("a.txt 0      3 ") + date}));
    EXPECT_EQ(listed("a*", "0100010")[0], "200 " + folder + " 1 3");
    // A file means its folder, a missing folder the one above it.
    EXPECT_EQ(Listed(dir / "a.txt" + "\nsub\n" + Flags("1000000"))[0], "200 " + folder + " 2 2");
    EXPECT_EQ(Listed(dir / "none/" + "\n*\n" + Flags("1111111")),
              Entries{"200 " + folder + "none/ 0 5"});
    EXPECT_EQ(Listed("\r")[0], "200 / 0 2");
    // A name with line breaks is still one line.
    test::MakeFile(dir / "x\n1\r");
    EXPECT_EQ(listed("x*", "0100000"), (Entries{"200 " + folder + " 1 2", "x%0A1%0D 0"}));
}

TEST(GetFilesList, AnswersALargeFolderWhole) {
    constexpr int kEntries = 20000;
    test::TempDir dir;
    test::TempDir sources;
    test::MakeFile(sources / "file");
    // The names count, and many names of one file are made and removed far faster than files.
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
