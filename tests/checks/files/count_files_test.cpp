#include "checks/files/count_files.h"

#include <gtest/gtest.h>

#include <ctime>
#include <limits>
#include <string>

#include "tests/support/file_tree.h"
#include "tests/support/ordinary_user.h"
#include "tests/support/temp_dir.h"

namespace zot {
namespace {

constexpr int32_t kMin = std::numeric_limits<int32_t>::min();

class CountFilesTest : public testing::Test {
  protected:
    CountFilesTest() { test::SetMode(dir_.Path(), 0777); }

    int64_t Count(std::string_view mask, bool recurse, CountMode mode, int32_t value = 0) {
        return CountFiles(dir_.Path(), mask, recurse, mode, value);
    }
    std::string CountAsUser(const std::string& folder, std::string_view mask, bool recurse) {
        return test::AsOrdinaryUser([&] {
            return std::to_string(CountFiles(folder, mask, recurse, CountMode::kAllFiles, 0));
        });
    }

    test::TempDir dir_;
};

TEST_F(CountFilesTest, Modes) {
    time_t now = std::time(nullptr);
    test::MakeFile(dir_ / "a.log", 10);
    test::MakeFile(dir_ / ".b.log", 20);
    test::MakeFile(dir_ / "huge", int64_t{1} << 40);
    test::MakeFifo(dir_ / "fifo");
    test::MakeLink("a.log", dir_ / "link.log");
    test::MakeFolder(dir_ / "sub");
    test::MakeFolder(dir_ / ".hidden");
    test::MakeFile(dir_ / "sub/c.log", 10);
    test::MakeFile(dir_ / ".hidden/d.log", 10);
    test::SetModificationTime(dir_ / "a.log", now - 3600);
    test::SetModificationTime(dir_ / "huge", now + 36000);
    struct {
        std::string_view mask;
        CountMode mode;
        int32_t value;
        int64_t flat, deep;
    } cases[] = {
        {"*", CountMode::kAllFiles, 0, 4, 5},
        {"*.log", CountMode::kAllFiles, 0, 2, 3},
        {"none", CountMode::kAllFiles, 0, 0, 0},
        {"*", CountMode::kOlderThan, 30, 1, 1},
        {"*", CountMode::kNewerThan, 30, 3, 4},
        {"*", CountMode::kNewerThan, -60, 1, 1},
        {"*", CountMode::kBiggerThan, 10, 2, 2},
        {"*", CountMode::kSmallerThan, 20, 2, 3},
        {"*", CountMode::kBiggerThan, -1, 4, 5},
        {"*", CountMode::kSubFolders, 0, 2, 2},
        {"?ub", CountMode::kSubFolders, 0, 1, 1},
        // Minutes wrap around in 32 bits: what lies that far ahead is long past.
        {"*", CountMode::kOlderThan, kMin, 0, 0},
        {"*", CountMode::kNewerThan, kMin, 4, 5},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(Count(c.mask, false, c.mode, c.value), c.flat) << c.mask << int(c.mode);
        EXPECT_EQ(Count(c.mask, true, c.mode, c.value), c.deep) << c.mask << int(c.mode);
    }
    EXPECT_EQ(CountFiles(dir_ / "none", "*", false, CountMode::kAllFiles, 0), -1);
    EXPECT_EQ(CountFiles(dir_ / "none", "*", true, CountMode::kAllFiles, 0), -1);
}

// A folder without one plain entry gives -1 with recursion, whatever was counted in it.
TEST_F(CountFilesTest, FolderThatTheAgentMayNotWrite) {
    test::MakeFolder(dir_ / "locked");
    std::string locked = dir_ / "locked";
    test::MakeFile(locked + "/file");
    EXPECT_EQ(CountAsUser(locked, "*", true), "1");  // here ".." is plain
    test::SetMode(dir_.Path(), 0755);
    EXPECT_EQ(CountAsUser(locked, "*", true), "-1");
    EXPECT_EQ(CountAsUser(locked, "*", false), "1");
    test::MakeFolder(locked + "/inner");
    EXPECT_EQ(CountAsUser(locked + "/inner", "*.none", true), "-1");
    EXPECT_EQ(CountAsUser(locked + "/inner", "*.none", false), "-1");
    // A file that may be written is plain enough.
    test::MakeFile(locked + "/inner/open", 0, 0666);
    EXPECT_EQ(CountAsUser(locked + "/inner", "*.none", false), "0");
    EXPECT_EQ(CountAsUser(locked + "/inner", "*", true), "1");
    test::SetMode(dir_.Path(), 0777);
    // From above such a folder is not even entered; one that can be entered adds its files.
    test::MakeFolder(dir_ / "shared", 0777);
    test::MakeFile(dir_ / "shared/file");
    test::MakeFolder(dir_ / "unsearchable", 0766);
    test::MakeFile(dir_ / "unsearchable/file");
    EXPECT_EQ(CountAsUser(dir_.Path(), "*", true), "1");
    EXPECT_EQ(CountAsUser(dir_ / "unsearchable", "*", false), "-1");
}

}  // namespace
}  // namespace zot
