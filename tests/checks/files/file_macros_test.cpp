#include "checks/files/file_macros.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <string>

#include "checks/files/directory_iterator.h"
#include "checks/files/find_wildcard_file.h"
#include "tests/support/file_tree.h"
#include "tests/support/ordinary_user.h"
#include "tests/support/temp_dir.h"

namespace zot {
namespace {

TEST(FileMacros, ResolveLevelByLevel) {
    test::TempDir dir;
    test::SetMode(dir.Path(), 0755);
    for (const char* folder : {"/old", "/New", "/.middle"}) test::MakeFolder(dir.Path() + folder);
    test::MakeFile(dir / "New/A.log");
    test::MakeFile(dir / "New/b.log");
    test::MakeLink("b.log", dir / "New/link");
    test::MakeFifo(dir / "fifo");
    // The top folder is the newest of all, yet "." and ".." stand for nothing.
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
    ASSERT_EQ(FindFirst(dir.Path(), "[a-z]", 47, first), 0);
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
