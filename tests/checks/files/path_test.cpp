#include "checks/files/path.h"

#include <gtest/gtest.h>

#include <string>

#include "base/files.h"
#include "tests/support/file_tree.h"
#include "tests/support/temp_dir.h"

namespace zot {
namespace {

TEST(Path, Parts) {
    struct {
        std::string_view path, directory, name, extension, withSlash;
    } cases[] = {
        {"/var/log/a.tar.gz", "/var/log/", "a.tar.gz", ".gz", "/var/log/a.tar.gz/"},
        {"/var/log.d/a", "/var/log.d/", "a", "", "/var/log.d/a/"},
        {"name.", "", "name.", ".", "name./"},
        {"/", "/", "", "", "/"},
        {"", "", "", "", "/"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(DirectoryPart(c.path), c.directory);
        EXPECT_EQ(NamePart(c.path), c.name);
        EXPECT_EQ(ExtensionOf(c.path), c.extension);
        EXPECT_EQ(WithSlash(c.path), c.withSlash);
    }
    std::string longName(5000, 'n');
    EXPECT_EQ(NamePart("/" + longName).size(), 4095U);
    EXPECT_EQ(ExtensionOf("." + longName).size(), 4095U);
    EXPECT_EQ(LastCharOf(".,", "a.b,c"), 4);
    EXPECT_EQ(LastCharOf(".,", "abc"), 0);
}

TEST(Path, QuestionsToTheSystem) {
    test::TempDir dir;
    std::string file = dir / "file";
    std::string link = dir / "link";
    test::MakeFile(file, int64_t{5} << 30);
    test::MakeLink("file", link);
    test::SetModificationTime(file, (int64_t{1} << 32) + 7);
    EXPECT_TRUE(IsRegularFile(link.c_str()));
    EXPECT_FALSE(IsDirectory(link));
    EXPECT_TRUE(IsDirectory(dir.Path()));
    EXPECT_EQ(FileSize(link), int64_t{5} << 30);
    EXPECT_EQ(ModificationTime(link), 7);  // cut to 32 bits

    int64_t size = -2;
    time_t changeTime = 0;
    time_t modificationTime = 0;
    EXPECT_EQ(FileInfo("", size, changeTime, modificationTime), 0);
    EXPECT_EQ(FileInfo(dir / "none", size, changeTime, modificationTime), 0);
    EXPECT_EQ(size, -2);
    EXPECT_EQ(FileInfo(link, size, changeTime, modificationTime), 1);
    EXPECT_EQ(size, 4);  // of the link itself

    EXPECT_TRUE(RemoveFile(file));
    EXPECT_FALSE(RemoveFile(file));
    EXPECT_EQ(FileSize(link), -1);
    EXPECT_EQ(ModificationTime(link), -1);
}

}  // namespace
}  // namespace zot
