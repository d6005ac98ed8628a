#include "checks/files/path.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <string>

#include "base/files.h"
#include "checks/files/directory_iterator.h"
#include "checks/files/file_macros.h"
#include "tests/support/file_tree.h"
#include "tests/support/ordinary_user.h"
#include "tests/support/temp_dir.h"

namespace zot {
namespace {

TEST(Path, Parts) {
    struct {
        std::string_view path, directory, name, withSlash;
    } cases[] = {
        {"/var/log/a.tar.gz", "/var/log/", "a.tar.gz", "/var/log/a.tar.gz/"},
        {"/var/log.d/a", "/var/log.d/", "a", "/var/log.d/a/"},
        {"name.", "", "name.", "name./"},
        {"/", "/", "", "/"},
        {"", "", "", "/"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(DirectoryPart(c.path), c.directory);
        EXPECT_EQ(NamePart(c.path), c.name);
        EXPECT_EQ(WithSlash(c.path), c.withSlash);
    }
    std::string longName(5000, 'n');
    EXPECT_EQ(NamePart("/" + longName).size(), 4095U);
    EXPECT_EQ(LastCharOf(".,", "a.b,c"), 4);
    EXPECT_EQ(LastCharOf(".,", "abc"), 0);
}

TEST(Path, QuestionsToTheSystem) {
    test::TempDir dir;
    std::string file = dir / "file";
    std::string link = dir / "link";
    test::MakeFile(file, int64_t{5} << 30);
    test::MakeLink("file", link);
    EXPECT_TRUE(IsRegularFile(link.c_str()));
    EXPECT_FALSE(MayBeDirectory(link));
    EXPECT_TRUE(MayBeDirectory(dir.Path()));
    EXPECT_EQ(FileSize(link), int64_t{5} << 30);

    int64_t size = -2;
    time_t changeTime = 0;
    time_t modificationTime = 0;
    EXPECT_EQ(FileInfo("", size, changeTime, modificationTime), 0);
    EXPECT_EQ(FileInfo(dir / "none", size, changeTime, modificationTime), 0);
    EXPECT_EQ(size, -2);
    EXPECT_EQ(FileInfo(link, size, changeTime, modificationTime), 1);
    EXPECT_EQ(size, 4);  // of the link itself

    ASSERT_EQ(unlink(file.c_str()), 0);
    EXPECT_EQ(FileSize(link), -1);
}

TEST(FileMacros, ResolveLevelByLevel) {
    test::TempDir dir;
    test::SetMode(dir.Path(), 0755);
    for (const char* folder : {"/old", "/New", "/.middle"}) test::MakeFolder(dir.Path() + folder);
    test::MakeFile(dir / "New/A.log");
    test::MakeFile(dir / "New/b.log");
    test::MakeLink("b.log", dir / "New/link");
    test::MakeFifo(dir / "fifo");
    // The top folder is the newest of all, yet "." and ".." are never chosen.
    test::SetModificationTime(dir / "New/A.log", 1000);
    test::SetModificationTime(dir / "New/b.log", 2000);
    test::SetModificationTime(dir / "New/link", 3000);
    test::SetModificationTime(dir / "fifo", -5);
    test::SetModificationTime(dir / "old", 10);
    test::SetModificationTime(dir / ".middle", 20);
    test::SetModificationTime(dir / "New", 30);
    struct {
        std::string text, resolved;
    } cases[] = {
        {"/%newestfolder%/%newestfile%", "/New/b.log"},
        {"/%NewestFOLDER%/%oldestFile%.Gz", "/New/A.log.Gz"},
        {"/%oldestfolder%", "/old"},
        {"/%newestfile%%oldestfile%", "/%newestfile%%oldestfile%"},  // nothing in ".../fifo"
        {"/%oldestfile%", "/fifo"},
        {"/old/%newestfile%/x", "/old/%newestfile%/x"},
        {"/%newestfolder%/%newestfolder%", "/%newestfolder%/%newestfolder%"},
        {"/plain%file%", "/plain%file%"},
        {"/New%oldestfile%", "/NewA.log"},  // no "/" is added
    };
    for (const auto& c : cases) {
        EXPECT_EQ(ResolveFileMacros(dir.Path() + c.text), dir.Path() + c.resolved) << c.text;
    }
    EXPECT_EQ(test::AsOrdinaryUser([&]() -> std::string {
                  if (chdir((dir / "New").c_str()) != 0) return "chdir";
                  return std::string(ResolveFileMacros("%newestfile%").View());
              }),
              "b.log");
}

TEST(FileMacros, EqualTimesAndWideTimes) {
    test::TempDir dir;
    for (char name = 'a'; name < 'k'; ++name) {
        test::MakeFile(dir / std::string(1, name));
        test::SetModificationTime(dir / std::string(1, name), 500);
    }
    FindRecord first;
    ASSERT_TRUE(FindFirst(dir.Path(), "[a-z]", 47, first));
    EXPECT_EQ(ResolveFileMacros(dir / "%newestfile%"), dir / first.name);
    EXPECT_EQ(ResolveFileMacros(dir / "%oldestfile%"), dir / first.name);
    // Only 32 bits of a time count.
    test::MakeFile(dir / "wide");
    test::SetModificationTime(dir / "wide", (int64_t{1} << 32) + 499);
    EXPECT_EQ(ResolveFileMacros(dir / "%oldestfile%"), dir / "wide");
}

TEST(FindWildcardFile, TakesTheFirstThatIsNeitherFolderNorLink) {
    test::TempDir dir;
    test::MakeFolder(dir / "a.log");
    test::MakeLink("a.log", dir / "b.log");
    EXPECT_EQ(FindWildcardFile(dir / "*.log"), "");
    test::MakeFifo(dir / ".c.log");
    EXPECT_EQ(FindWildcardFile(dir / "*.log"), dir / ".c.log");
    EXPECT_EQ(FindWildcardFile(dir / ""), "");
}

}  // namespace
}  // namespace zot
