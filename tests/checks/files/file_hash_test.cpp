#include "checks/files/file_hash.h"

#include <gtest/gtest.h>

#include <string>

#include "checks/files/file_tests.h"
#include "tests/support/file_tree.h"
#include "tests/support/ordinary_user.h"
#include "tests/support/temp_dir.h"

namespace zot {
namespace {

std::string Answer(const std::string& file, const std::string& algorithm,
                   const std::string& limit = "0") {
    AgentSettings settings;
    settings.testFileCrc = 1;
    Reply reply;
    TestFileHash(file + "\n" + algorithm + "\n" + limit + "\n\r", settings, reply);
    return std::string(reply.Text().View());
}

TEST(FileHash, ValuesAndErrors) {
    test::TempDir dir;
    test::SetMode(dir.Path(), 0755);
    std::string digits = dir.Write("digits", "123456789");
    std::string abc = dir.Write("abc", "abc");
    // The check value of the CRC is 0xCBF43926; its complement is the register itself.
    EXPECT_EQ(Answer(digits, "0"), "200\n873187033\n");
    EXPECT_EQ(Answer(abc, "1"), "200\n900150983cd24fb0d6963f7d28e17f72\n");
    EXPECT_EQ(Answer(abc, "2"),
              "200\nba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad\n");
    EXPECT_EQ(Answer(abc, "3"),
              "200\nddaf35a193617abacc417349ae20413112e6fa4e89a97ea20a9eeee64b55d39a"
              "2192992a274fc1a836ba3c23a3feebbd454d4423643ce80e2a9ac94fa54ca49f\n");
    for (const char* unknown : {"4", "-1"}) EXPECT_EQ(Answer(abc, unknown), "301\n\n");
    EXPECT_EQ(Answer(dir / "none", "1"), "301\nFile doesn`t exist\n");
    EXPECT_EQ(Answer(dir.Path(), "1"), "301\nFile doesn`t exist\n");
    test::MakeFifo(dir / "fifo");
    EXPECT_EQ(Answer(dir / "fifo", "9"), "301\nFile doesn`t exist\n");
    test::SetMode(abc, 0600);
    EXPECT_EQ(test::AsOrdinaryUser([&] { return Answer(abc, "1"); }), "301\nCannot open file\n");

    VyString value;
    std::string_view errorText;
    EXPECT_EQ(HashFile("", HashAlgorithm::kMd5, value, errorText), 0);
    EXPECT_EQ(errorText, "File is not specified");
    EXPECT_EQ(HashFile(dir / "fifo", HashAlgorithm::kMd5, value, errorText), 0);
    EXPECT_EQ(errorText, "Cannot open file");
}

// Multiples of the block that the sizes were once read in end with an error, whatever is read now.
TEST(FileHash, MultiplesOfTheBlock) {
    test::TempDir dir;
    for (int64_t size : {0, 20480, 40960, 655360}) {
        test::MakeFile(dir / std::to_string(size), size);
        EXPECT_EQ(Answer(dir / std::to_string(size), "0"), "301\nRead error\n") << size;
    }
    for (int64_t size : {1, 20479, 20481, 131072, 262144}) {
        test::MakeFile(dir / std::to_string(size), size);
        EXPECT_EQ(Answer(dir / std::to_string(size), "0").substr(0, 4), "200\n") << size;
    }
    test::MakeFile(dir / "zeros", 131072);
    EXPECT_EQ(Answer(dir / "zeros", "1"), "200\n0dfbe8aa4c20b52e1b8bf3cb6cbdf193\n");
}

TEST(FileHash, SizeLimit) {
    test::TempDir dir;
    test::MakeFile(dir / "file", 2000000);
    test::MakeFile(dir / "huge", int64_t{5000} << 20);
    EXPECT_EQ(Answer(dir / "file", "0", "100"), "200\nFile size 1 MB\n");
    EXPECT_EQ(Answer(dir / "file", "9", "1999999"), "200\nFile size 1 MB\n");
    EXPECT_EQ(Answer(dir / "huge", "2", "4294967297"), "200\nFile size 5000 MB\n");
    for (const char* none : {"2000000", "0", "-5", "none"}) {
        EXPECT_EQ(Answer(dir / "file", "0", none).size(), 15U) << none;
    }
}

}  // namespace
}  // namespace zot
