#include "checks/scripts/temp_name.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <string>

#include "tests/support/temp_dir.h"

namespace zot {
namespace {

namespace fs = std::filesystem;

TEST(TempName, NamesAndRefusals) {
    char buffer[64];
    EXPECT_EQ(MakeTempName("/tmp", nullptr, 64, nullptr), 0);
    EXPECT_EQ(MakeTempName("/tmp", buffer, 15, "a"), 0);
    EXPECT_STREQ(buffer, "");
    EXPECT_EQ(MakeTempName("/tmp", buffer, sizeof buffer, "fixed.txt"), 1);
    EXPECT_STREQ(buffer, "/tmp/fixed.txt");
    EXPECT_EQ(MakeTempName("", buffer, sizeof buffer, "fixed.txt"), 1);
    EXPECT_STREQ(buffer, "/fixed.txt");
    // The directory and its "/" must leave 16 bytes.
    EXPECT_EQ(MakeTempName(std::string(47, 'd'), buffer, sizeof buffer, "f"), 1);
    EXPECT_EQ(MakeTempName(std::string(48, 'd'), buffer, sizeof buffer, "f"), 0);

    int64_t id = UniqueId();
    EXPECT_EQ(id >> 16, static_cast<uint32_t>(getpid()) << 16 >> 16);
    EXPECT_EQ(UniqueId(), id + 1);
    std::string expected = "/tmp/tmp-" + std::to_string(id + 2) + "-";
    EXPECT_EQ(MakeTempName("/tmp", buffer, sizeof buffer, nullptr), 1);
    EXPECT_EQ(std::string(buffer).substr(0, expected.size()), expected);
}

TEST(TempName, FilesArePrivateAndNeverReplaceWhatIsThere) {
    zot::test::TempDir dir;
    std::string victim = dir.Write("victim", "precious");
    std::string next = "tmpPzot-" + std::to_string(UniqueId() + 1) + ".txt";
    fs::create_symlink(victim, dir / next);
    std::string path;
    {
        TempFile file;
        ASSERT_EQ(file.Create(dir.Path(), "tmpPzot-"), TempFile::Result::kCreated);
        path = file.Path();
        EXPECT_NE(path, dir / next);
        struct stat info {};
        ASSERT_EQ(stat(path.c_str(), &info), 0);
        EXPECT_EQ(info.st_mode & 07777, 0600U);
        EXPECT_TRUE(file.Write("text"));
    }
    EXPECT_FALSE(fs::exists(path));
    EXPECT_EQ(test::ReadFile(victim), "precious");

    TempFile none;
    EXPECT_EQ(none.Create(dir / "missing"), TempFile::Result::kNotCreated);
    EXPECT_EQ(none.Create(std::string(500, 'd')), TempFile::Result::kNoName);
}

}  // namespace
}  // namespace zot
