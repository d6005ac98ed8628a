#include "checks/files/tree_walk.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <climits>
#include <ctime>
#include <filesystem>
#include <limits>
#include <string>

#include "base/owners.h"
#include "checks/files/count_files.h"
#include "checks/files/folder_size.h"
#include "tests/support/file_tree.h"
#include "tests/support/ordinary_user.h"
#include "tests/support/temp_dir.h"

namespace zot {
namespace {

TEST(FolderSize, SumsWhatTheMaskTakes) {
    test::TempDir dir;
    test::MakeFile(dir / "a.log", 1);
    test::MakeFile(dir / ".b.log", 10);
    test::MakeFile(dir / "big", int64_t{5} << 30);
    test::MakeFifo(dir / "fifo.log");
    test::MakeFolder(dir / "sub.log");
    test::MakeFile(dir / "sub.log/c.log", 100);
    test::MakeFolder(dir / ".sub");
    test::MakeFile(dir / ".sub/d.log", 1000, 0444);
    test::MakeLink("big", dir / "link.log");
    test::MakeLink(".sub", dir / "sublink");
    test::MakeLink("..", dir / "sub.log/loop");
    constexpr int64_t kBig = int64_t{5} << 30;
    EXPECT_EQ(FolderSize(dir.Path(), false), 11 + kBig);
    EXPECT_EQ(FolderSize(dir.Path() + "/", true), 1111 + kBig);
    EXPECT_EQ(FolderSize(dir / "*.log", false), 11);
    EXPECT_EQ(FolderSize(dir / "*.log", true), 1111);
    EXPECT_EQ(FolderSize(dir / "a.log", true), 1);
    EXPECT_EQ(FolderSize(dir / "nothing", true), 0);
    EXPECT_EQ(FolderSize(dir / "nothing/*", true), -1);
    EXPECT_EQ(FolderSize(dir / "sublink", true), 1000);  // only the top may be a link
}

// A folder in the tree whose name is the mask is summed instead of its parent.
TEST(FolderSize, FolderNamedAsTheMask) {
    test::TempDir dir;
    test::MakeFolder(dir / "a");
    test::MakeFolder(dir / "a/core");
    test::MakeFile(dir / "a/core/other", 1);
    test::MakeFolder(dir / "a/core/deep");
    test::MakeFile(dir / "a/core/deep/other", 10);
    test::MakeFolder(dir / "b");
    test::MakeFile(dir / "b/core", 100);
    test::MakeFile(dir / "b/other", 1000);
    EXPECT_EQ(FolderSize(dir / "core", true), 111);
    test::MakeFolder(dir / "b/*");
    test::MakeFile(dir / "b/*/x", 5);
    EXPECT_EQ(FolderSize(dir.Path(), true), 16);
}

TEST(FolderSize, UnreadableFolders) {
    test::TempDir dir;
    test::SetMode(dir.Path(), 0755);
    test::MakeFolder(dir / "closed");
    test::MakeFile(dir / "closed/file", 1);
    test::MakeFile(dir / "file", 10);
    test::MakeFolder(dir / "unsearchable");
    test::MakeFile(dir / "unsearchable/file", 100);
    test::SetMode(dir / "closed", 0700);
    test::SetMode(dir / "unsearchable", 0744);
    EXPECT_EQ(test::AsOrdinaryUser([&] {
                  return std::to_string(FolderSize(dir.Path(), true)) + " " +
                         std::to_string(FolderSize(dir / "closed", true)) + " " +
                         std::to_string(FolderSize(dir / "unsearchable", true));
              }),
              "10 -1 -1");
}

// Below `path`, `levels` nested folders, each with a file "f" of one byte.
void MakeChain(const std::string& path, const std::string& name, int levels, mode_t mode = 0755) {
    UniqueFd folder(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    for (int level = 0; level < levels; ++level) {
        ASSERT_EQ(mkdirat(folder.Get(), name.c_str(), 0755), 0);
        ASSERT_EQ(fchmodat(folder.Get(), name.c_str(), mode, 0), 0);
        folder.Reset(openat(folder.Get(), name.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
        UniqueFd file(openat(folder.Get(), "f", O_WRONLY | O_CREAT | O_CLOEXEC, 0644));
        ASSERT_EQ(ftruncate(file.Get(), 1), 0);
    }
}

TEST(FolderSize, LevelsWithoutAPathAddNothing) {
    test::TempDir dir;
    MakeChain(dir.Path(), std::string(255, 'd'), 20);
    auto reachable = static_cast<int64_t>((PATH_MAX - 1 - dir.Path().size() - 1) / 256);
    EXPECT_EQ(FolderSize(dir.Path(), true), reachable);
}

TEST(FolderSize, WithoutADescriptorForEachLevelThereIsNoSum) {
    constexpr int kLevels = 300;
    test::TempDir dir;
    test::SetMode(dir.Path(), 0755);
    MakeChain(dir.Path(), "d", kLevels, 0777);
    auto resultsWith = [&dir](rlim_t descriptors) {
        return test::AsOrdinaryUser([&] {
            rlimit limit{descriptors, descriptors};
            setrlimit(RLIMIT_NOFILE, &limit);
            return std::to_string(FolderSize(dir.Path(), true)) + " " +
                   std::to_string(CountFiles(dir.Path(), "f", true, CountMode::kAllFiles, 0));
        });
    };
    EXPECT_EQ(resultsWith(kLevels + 178), "300 300");
    // The reserve is not touched, and a part is not reported as the whole.
    EXPECT_EQ(resultsWith(kLevels + 100), "-1 -1");
}

constexpr int32_t kMin = std::numeric_limits<int32_t>::min();

class CountFilesTest : public testing::Test {
  protected:
    CountFilesTest() { test::SetMode(dir_.Path(), 0777); }

    int64_t Count(std::string_view mask, bool recurse, CountMode mode, int64_t value = 0) {
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
        int64_t value;
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
        {"*", CountMode::kBiggerThan, (int64_t{1} << 40) - 1, 1, 1},
        {"*", CountMode::kBiggerThan, int64_t{1} << 40, 0, 0},
        {"*", CountMode::kSmallerThan, (int64_t{1} << 40) + 1, 4, 5},
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
    // A writable file is plain enough.
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

// More entries than one thread walks alone, in branches of different depth.
TEST(TreeWalk, LargeTreeIsCountedOnce) {
    test::TempDir dir;
    test::TempDir sources;
    test::MakeFile(sources / "file", 1);
    int files = 0;
    for (int branch = 0; branch < 30; ++branch) {
        std::string folder = dir / std::to_string(branch);
        test::MakeFolder(folder);
        for (int level = 0; level < branch % 7; ++level) test::MakeFolder(folder += "/below");
        for (int file = 0; file < 200; ++file, ++files) {
            std::filesystem::create_hard_link(sources / "file",
                                              folder + "/" + std::to_string(file));
        }
    }
    for (int run = 0; run < 20; ++run) {
        EXPECT_EQ(FolderSize(dir.Path(), true), files);
        EXPECT_EQ(CountFiles(dir.Path(), "*", true, CountMode::kAllFiles, 0), files);
        EXPECT_EQ(CountFiles(dir.Path(), "below", true, CountMode::kSubFolders, 0),
                  4 * (1 + 2 + 3 + 4 + 5 + 6) + 1);
    }
}

}  // namespace
}  // namespace zot
